// Settings of columns, and what the formulas give: at the present point, and against the model's
// conditions.
#include <algorithm>

#include "analysis/violations.hpp"
#include "api/boundary.hpp"
#include "api/formula_arguments.hpp"
#include "nonlinear/model_values.hpp"
#include "nonlinear/user_function.hpp"
#include "search/monitor.hpp"

namespace nlra {
namespace {

double present_value(const nslp_problem& problem, int col) {
    const nslp_problem::Result& result = problem.result;
    if (const auto given = result.values.find(col); given != result.values.end()) {
        return given->second;
    }
    if (result.solution.present) return result.solution.x[col];
    const Model& model = problem.base->model;
    const auto start = model.formulas.start.find(col);
    if (start != model.formulas.start.end()) return start->second;
    return std::max(model.lower[col], std::min(model.upper[col], 0.0));
}

double value_at_present(const nslp_problem& problem, const Formula& formula) {
    const Model& model = problem.base->model;
    std::vector<double> x(static_cast<size_t>(model.cols()));
    for (int j = 0; j < model.cols(); ++j) x[j] = present_value(problem, j);
    return formula_value(model, formula, x.data());
}

// A row's coefficients of one column (-1: those of none), freed from it.
Formula coefficients_of(const Model& model, int row, int col) {
    const auto found = model.formulas.rows.find(row);
    Formula wanted;
    const auto take_from = [&](const Formula& formula) {
        for (const Coefficient& coefficient : formula) {
            if (coefficient.column != col) continue;
            wanted.push_back(coefficient);
            wanted.back().column = -1;
        }
    };
    if (row == kObjectiveRow) {
        take_from(model.formulas.objective);
    } else if (found != model.formulas.rows.end()) {
        take_from(found->second);
    }
    if (wanted.empty()) {
        fail(NLRA_ERROR_ARGUMENT, "row %d has no formula as coefficient of column %d", row, col);
    }
    return wanted;
}

NSLPvarinfo describe_column(const nslp_problem& problem, int col) {
    const Model& model = problem.base->model;
    const Solution& solution = problem.result.solution;
    const int status = problem.result.status;
    const auto start = model.formulas.start.find(col);
    NSLPvarinfo info{};
    info.detrow = -1;
    info.initstepbound = info.stepbound = kInfinity;
    info.damp = 1.0;
    info.value = present_value(problem, col);
    if (start != model.formulas.start.end()) {
        info.started = 1;
        info.initvalue = start->second;
    }
    info.converged = status == NSLP_LOCALLY_OPTIMAL || status == NSLP_GLOBALLY_OPTIMAL ? 1 : 0;
    info.vartype = model.coltype[col] == 'C' ? 0 : 1;
    info.fixed = model.lower[col] == model.upper[col] ? 1 : 0;
    const double tolerance = problem.base->controls.get_double(kFeasTol);
    if (info.value <= model.lower[col] + tolerance) {
        info.atbound = -1;
    } else if (info.value >= model.upper[col] - tolerance) {
        info.atbound = 1;
    }
    if (solution.has_duals) info.dj = solution.dj[col];
    return info;
}

void log_violations(Monitor& monitor, const char* what, const Violations& violations,
                    const Names& names) {
    if (violations.place < 0) {
        monitor.log(1, "  %-12s none", what);
    } else {
        monitor.log(1, "  %-12s %.3e absolute (%s), %.3e relative, %.3e in all", what,
                    violations.largest, names.get(violations.place).c_str(), violations.relative,
                    violations.sum);
    }
}

}  // namespace
}  // namespace nlra

using namespace nlra;

int NSLPgetvar(NSLPprob prob, int colindex, NSLPvarinfo* info) {
    return call(prob, __func__, Access::kShare, [&](nslp_problem& problem) {
        check_array("info", info, 1);
        check_index("colindex", colindex, problem.base->model.cols(), Kind::kColumn);
        *info = describe_column(problem, colindex);
    });
}

int NSLPchgvar(NSLPprob prob, int colindex, const double* initvalue, const double* value) {
    return call(prob, __func__, Access::kChange, [&](nslp_problem& problem) {
        check_index("colindex", colindex, problem.base->model.cols(), Kind::kColumn);
        if (initvalue != nullptr) check_finite("initvalue", initvalue, 1);
        if (value != nullptr) check_finite("value", value, 1);
        if (value != nullptr) problem.result.values[colindex] = *value;
        if (initvalue == nullptr) return;
        Formulas& formulas = problem.base->model.formulas;
        formulas.start[colindex] = *initvalue;
        formulas.last = LastPoint();
    });
}

int NSLPevaluateformula(NSLPprob prob, int parsed, const int* type, const double* value,
                        double* result) {
    return call(prob, __func__, Access::kShare, [&](nslp_problem& problem) {
        const Model& model = problem.base->model;
        check_parsed(parsed);
        check_array("type", type, 1);
        check_array("value", value, 1);
        check_array("result", result, 1);
        const CalledFunctions functions(model.formulas);
        *result = value_at_present(
            problem, {read_coefficient(type, value, {model.cols(), &functions.functions()})});
    });
}

int NSLPevaluatecoef(NSLPprob prob, int rowindex, int colindex, double* result) {
    return call(prob, __func__, Access::kShare, [&](nslp_problem& problem) {
        const Model& model = problem.base->model;
        check_formula_row("rowindex", rowindex, model);
        if (colindex != -1) check_index("colindex", colindex, model.cols(), Kind::kColumn);
        check_array("result", result, 1);
        *result = value_at_present(problem, coefficients_of(model, rowindex, colindex));
    });
}

int NSLPvalidate(NSLPprob prob) {
    return call(prob, __func__, Access::kShare, [](nslp_problem& problem) {
        const Model& model = problem.base->model;
        if (!problem.result.solution.present) {
            fail(NLRA_ERROR_STATE, "no solution of a nonlinear solve is available");
        }
        Solution point;
        point.x = problem.result.solution.x;
        evaluate_with_formulas(model, point);
        const PointViolations found = measure_violations(model, point);
        Monitor monitor(*problem.base);
        monitor.log(1, "The nonlinear solution, objective %.10g, violates", point.objective);
        log_violations(monitor, "rows", found.rows, model.rownames);
        log_violations(monitor, "bounds", found.bounds, model.colnames);
        log_violations(monitor, "integrality", found.integers, model.colnames);
        log_violations(monitor, "sets", found.sets, model.setnames);
    });
}

int NSLPvalidatevector(NSLPprob prob, const double* vector, double* sum, double* largest,
                       double* objective) {
    return call(prob, __func__, Access::kShare, [&](nslp_problem& problem) {
        const Model& model = problem.base->model;
        check_finite("vector", vector, model.cols());
        Solution point;
        if (model.cols() > 0) point.x.assign(vector, vector + model.cols());
        evaluate_with_formulas(model, point);
        const PointViolations found = measure_violations(model, point);
        double total = 0.0, most = 0.0;
        for (const Violations* kind : {&found.rows, &found.bounds, &found.integers, &found.sets}) {
            total += kind->sum;
            most = std::max(most, kind->largest);
        }
        if (sum != nullptr) *sum = total;
        if (largest != nullptr) *largest = most;
        if (objective != nullptr) *objective = point.objective;
    });
}
