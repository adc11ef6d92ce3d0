// Formulas, user functions and starting values of nonlinear problems.
#include <map>

#include "api/boundary.hpp"
#include "api/formula_arguments.hpp"
#include "nonlinear/user_function.hpp"
#include "store/make_room.hpp"

namespace nlra {
namespace {

Coefficient read_ith(int i, const int* colindex, const double* factor, const int* fstart,
                     const int* type, const double* value, const FormulaScope& scope) {
    if (fstart[i] < 0) fail(NLRA_ERROR_ARGUMENT, "fstart[%d] = %d is negative", i, fstart[i]);
    Coefficient made = read_coefficient(type + fstart[i], value + fstart[i], scope);
    made.factor = factor != nullptr ? factor[i] : 1.0;
    made.column = colindex != nullptr ? colindex[i] : -1;
    if (made.column != -1) check_index("colindex", made.column, scope.columns, Kind::kColumn);
    return made;
}

// All of them or, when there is no memory, none. By row, -1 standing for the objective.
void append(Formulas& formulas, std::map<int, Formula> added) {
    const auto find = [&](int row) -> Formula* {
        if (row == kObjectiveRow) return &formulas.objective;
        const auto found = formulas.rows.find(row);
        return found != formulas.rows.end() ? &found->second : nullptr;
    };
    for (const auto& [row, pieces] : added) {
        if (Formula* const present = find(row)) {
            make_room(*present, static_cast<int64_t>(pieces.size()));
        }
    }
    while (!added.empty()) {
        const auto first = added.begin();
        formulas.count_calls(first->second, 1);
        if (Formula* const present = find(first->first)) {
            for (Coefficient& piece : first->second) present->push_back(std::move(piece));
            added.erase(first);
        } else {
            formulas.rows.insert(added.extract(first));
        }
    }
}

}  // namespace
}  // namespace nlra

using namespace nlra;

int NSLPaddcoefs(NSLPprob prob, int n, const int* rowindex, const int* colindex,
                 const double* factor, const int* fstart, int parsed, const int* type,
                 const double* value) {
    return call(prob, __func__, Access::kChange, [&](nslp_problem& problem) {
        Model& model = problem.base->model;
        check_count("n", n);
        check_array("rowindex", rowindex, n);
        check_array("fstart", fstart, n);
        check_array("type", type, n);
        check_array("value", value, n);
        check_parsed(parsed);
        if (factor != nullptr) check_finite("factor", factor, n);
        const CalledFunctions functions(model.formulas);
        const FormulaScope scope{model.cols(), &functions.functions()};
        std::map<int, Formula> added;
        for (int i = 0; i < n; ++i) {
            check_formula_row("rowindex", rowindex[i], model);
            added[rowindex[i]].push_back(read_ith(i, colindex, factor, fstart, type, value, scope));
        }
        append(model.formulas, std::move(added));
        if (n > 0) problem.base->drop_solutions();
    });
}

int NSLPdelcoefs(NSLPprob prob, int n, const int* rowindex) {
    return call(prob, __func__, Access::kChange, [&](nslp_problem& problem) {
        Model& model = problem.base->model;
        check_count("n", n);
        check_array("rowindex", rowindex, n);
        for (int i = 0; i < n; ++i) check_formula_row("rowindex", rowindex[i], model);
        for (int i = 0; i < n; ++i) {
            Formulas& formulas = model.formulas;
            if (rowindex[i] == kObjectiveRow) {
                formulas.count_calls(formulas.objective, -1);
                formulas.objective.clear();
            } else {
                formulas.release_row(rowindex[i]);
                formulas.rows.erase(rowindex[i]);
            }
        }
        if (n > 0) problem.base->drop_solutions();
    });
}

int NSLPchgformula(NSLPprob prob, int rowindex, const int* type, const double* value) {
    return call(prob, __func__, Access::kChange, [&](nslp_problem& problem) {
        Model& model = problem.base->model;
        check_formula_row("rowindex", rowindex, model);
        Formula formula;
        if (type != nullptr) {
            check_array("value", value, 1);
            const CalledFunctions functions(model.formulas);
            formula.push_back(
                read_coefficient(type, value, {model.cols(), &functions.functions()}));
        }
        Formulas& formulas = model.formulas;
        Formula& place = rowindex == kObjectiveRow ? formulas.objective : formulas.rows[rowindex];
        formulas.count_calls(formula, 1);
        formulas.count_calls(place, -1);
        place.swap(formula);
        if (rowindex != kObjectiveRow && place.empty()) formulas.rows.erase(rowindex);
        problem.base->drop_solutions();
    });
}

int NSLPadduserfunction(NSLPprob prob, const char* name, NSLPuserfunction function, void* object,
                        int arguments, int derivatives, int* index) {
    return call(prob, __func__, Access::kChange, [&](nslp_problem& problem) {
        if (function == nullptr) fail(NLRA_ERROR_ARGUMENT, "function is null");
        check_array("index", index, 1);
        check_count("arguments", arguments);
        *index = problem.base->model.formulas.functions.add(
            {name != nullptr ? name : "", function, object, arguments, derivatives != 0});
    });
}

int NSLPforgetuserfunction(NSLPprob prob, int* index) {
    return call(prob, __func__, Access::kChange, [&](nslp_problem& problem) {
        check_array("index", index, 1);
        *index = problem.base->model.formulas.functions.forget_unused();
    });
}

int NSLPgetuserfuncobject(NSLPprob prob, int index, void** object) {
    return call(prob, __func__, Access::kShare, [&](nslp_problem& problem) {
        const UserFunctions& functions = problem.base->model.formulas.functions;
        check_array("object", object, 1);
        if (index < 0 || index >= functions.size() || functions[index].call == nullptr) {
            fail(NLRA_ERROR_ARGUMENT, "there is no user function %d", index);
        }
        *object = functions[index].object;
    });
}

int NSLPsetinitialvalues(NSLPprob prob, int n, const int* colindex, const double* value) {
    return call(prob, __func__, Access::kChange, [&](nslp_problem& problem) {
        Model& model = problem.base->model;
        check_count("n", n);
        check_array("colindex", colindex, n);
        check_array("value", value, n);
        check_indices("colindex", colindex, n, model.cols(), Kind::kColumn);
        check_finite("value", value, n);
        for (int i = 0; i < n; ++i) model.formulas.start[colindex[i]] = value[i];
        if (n > 0) model.formulas.last = LastPoint();
    });
}
