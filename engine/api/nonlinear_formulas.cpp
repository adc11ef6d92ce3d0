// Formulas, user functions and starting values of nonlinear problems.
#include <limits>

#include "api/boundary.hpp"
#include "api/checks.hpp"
#include "nonlinear/formula_parser.hpp"
#include "nonlinear/user_function.hpp"

namespace nlra {
namespace {

constexpr int kObjective = -1;

void check_row(const char* name, int index, const Model& model) {
    if (index != kObjective) check_index(name, index, model.rows(), Kind::kRow);
}

// The tokens up to the end token, which must be there.
Coefficient read_coefficient(const int* type, const double* value, const FormulaScope& scope) {
    const size_t tokens =
        check_formula(type, value, static_cast<size_t>(std::numeric_limits<int>::max()), scope);
    Coefficient result;
    result.types.assign(type, type + tokens);
    result.values.assign(value, value + tokens);
    return result;
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
        if (parsed != 1) {
            fail(NLRA_ERROR_ARGUMENT, "parsed = %d: only parsed formulas (1) are read", parsed);
        }
        const CalledFunctions functions(model.formulas);
        const FormulaScope scope{model.cols(), &functions.functions()};
        std::vector<Coefficient> made;
        made.reserve(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) {
            check_row("rowindex", rowindex[i], model);
            Coefficient c = read_coefficient(type + fstart[i], value + fstart[i], scope);
            c.factor = factor != nullptr ? factor[i] : 1.0;
            c.column = colindex != nullptr ? colindex[i] : -1;
            if (c.column != -1) check_index("colindex", c.column, model.cols(), Kind::kColumn);
            check_finite("factor", &c.factor, 1);
            made.push_back(std::move(c));
        }
        for (int i = 0; i < n; ++i) {
            Formula& formula = rowindex[i] == kObjective ? model.formulas.objective
                                                         : model.formulas.rows[rowindex[i]];
            formula.push_back(std::move(made[i]));
        }
        if (n > 0) problem.base->drop_solutions();
    });
}

int NSLPdelcoefs(NSLPprob prob, int n, const int* rowindex) {
    return call(prob, __func__, Access::kChange, [&](nslp_problem& problem) {
        Model& model = problem.base->model;
        check_count("n", n);
        check_array("rowindex", rowindex, n);
        for (int i = 0; i < n; ++i) check_row("rowindex", rowindex[i], model);
        for (int i = 0; i < n; ++i) {
            if (rowindex[i] == kObjective) {
                model.formulas.objective.clear();
            } else {
                model.formulas.rows.erase(rowindex[i]);
            }
        }
        if (n > 0) problem.base->drop_solutions();
    });
}

int NSLPchgformula(NSLPprob prob, int rowindex, const int* type, const double* value) {
    return call(prob, __func__, Access::kChange, [&](nslp_problem& problem) {
        Model& model = problem.base->model;
        check_row("rowindex", rowindex, model);
        Formula formula;
        if (type != nullptr) {
            check_array("value", value, 1);
            const CalledFunctions functions(model.formulas);
            formula.push_back(
                read_coefficient(type, value, {model.cols(), &functions.functions()}));
        }
        if (rowindex == kObjective) {
            model.formulas.objective.swap(formula);
        } else if (formula.empty()) {
            model.formulas.rows.erase(rowindex);
        } else {
            model.formulas.rows[rowindex].swap(formula);
        }
        problem.base->drop_solutions();
    });
}

int NSLPadduserfunction(NSLPprob prob, const char* name, NSLPuserfunction function, void* object,
                        int arguments, int derivatives, int* index) {
    return call(prob, __func__, Access::kChange, [&](nslp_problem& problem) {
        if (function == nullptr) fail(NLRA_ERROR_ARGUMENT, "function is null");
        check_array("index", index, 1);
        check_count("arguments", arguments);
        std::vector<UserFunction>& functions = problem.base->model.formulas.functions;
        functions.push_back(
            {name != nullptr ? name : "", function, object, arguments, derivatives != 0});
        *index = static_cast<int>(functions.size()) - 1;
    });
}

int NSLPgetuserfuncobject(NSLPprob prob, int index, void** object) {
    return call(prob, __func__, Access::kShare, [&](nslp_problem& problem) {
        const std::vector<UserFunction>& functions = problem.base->model.formulas.functions;
        check_array("object", object, 1);
        if (index < 0 || index >= static_cast<int>(functions.size())) {
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
    });
}
