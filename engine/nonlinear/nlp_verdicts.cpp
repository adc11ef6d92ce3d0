#include "nonlinear/nlp_verdicts.hpp"

#include <algorithm>
#include <cmath>

#include "linear/linear_solver.hpp"
#include "nlra.h"

namespace nlra {

bool is_contradictory(const Model& model, const ModelFunctions& functions, double tolerance) {
    for (int j = 0; j < model.cols(); ++j) {
        if (model.lower[j] > model.upper[j] + tolerance) return true;
    }
    for (const auto& [row, value] : functions.constant_rows()) {
        if (violation(value, model.row_lower(row), model.row_upper(row)) > tolerance) return true;
    }
    return functions.range_is_contradictory(tolerance);
}

bool linear_part_is_infeasible(const Model& model, const Params& params, Monitor& monitor) {
    Model linear = model;
    linear.edits = Edits();
    for (const auto& [row, terms] : model.qrows) linear.rowtype[row] = 'N';
    for (const auto& [row, formula] : model.formulas.rows) linear.rowtype[row] = 'N';
    linear.qrows.clear();
    linear.qobj.clear();
    linear.formulas = Formulas();
    std::fill(linear.obj.begin(), linear.obj.end(), 0.0);
    linear.touch_structure();
    LinearSolver solver;
    return solver.solve_relaxation(linear, params, LpMethod::kAutomatic, monitor).status ==
           NLRA_LP_INFEAS;
}

bool improves_without_end(const Model& model, ModelFunctions& functions, const NlpResult& result) {
    constexpr double kFar = 1e6;
    constexpr double kFeasible = 1e-6;
    constexpr double kBetter = 1e-6;
    Judge judge(functions);
    NlpResult point = result;
    bool is_far = false;
    for (const double factor : {10.0, 100.0}) {
        for (int j = 0; j < model.cols(); ++j) {
            const double x = result.x[j];
            const bool is_bounded =
                x > 0.0 ? model.upper[j] < kInfinity : model.lower[j] > -kInfinity;
            if (std::fabs(x) <= kFar || is_bounded) continue;
            point.x[j] = factor * x;
            is_far = true;
        }
        if (!is_far) return false;
        const double before = point.objective;
        NlpResiduals residuals;
        if (!judge.measure(point, residuals) || residuals.primal > kFeasible) return false;
        if (!(point.objective < before - kBetter * std::max(1.0, std::fabs(before)))) return false;
    }
    return true;
}

}  // namespace nlra
