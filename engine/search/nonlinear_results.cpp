#include "search/nonlinear_results.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include "api/problem.hpp"
#include "nonlinear/model_values.hpp"
#include "nonlinear/nlp_solve.hpp"
#include "search/statuses.hpp"
#include "store/error.hpp"

namespace nlra {

namespace {

bool is_same_setting(const Params& a, const Params& b) {
    return std::all_of(a.table().begin(), a.table().end(), [&](const Param& control) {
        switch (control.type) {
            case NLRA_TYPE_DOUBLE:
                return a.get_double(control.id) == b.get_double(control.id);
            case NLRA_TYPE_STRING:
                return a.get_string(control.id) == b.get_string(control.id);
            default:
                return a.get_int(control.id) == b.get_int(control.id);
        }
    });
}

}  // namespace

bool stands(nslp_problem& problem, Monitor& monitor) {
    constexpr double kSame = 1e-9;
    const Model& model = problem.base->model;
    const nslp_problem::Result& result = problem.result;
    // Every change of the model has taken the result away.
    const bool is_same = problem.memory && is_optimum(result.status) &&
                         is_same_setting(problem.memory->controls, problem.base->controls) &&
                         is_same_setting(problem.memory->interior, problem.interior) &&
                         !model.formulas.last.empty();
    if (!is_same) return false;
    Solution point;
    point.x = result.solution.x;
    if (problem.nlp && problem.nlp->functions && !problem.memory->is_smooth_form) {
        ModelFunctions& functions = *problem.nlp->functions;
        functions.attach(monitor);
        std::vector<double> values(static_cast<size_t>(functions.structure().rows));
        if (!functions.objective(point.x.data(), point.objective) ||
            !functions.rows(point.x.data(), values.data())) {
            return false;
        }
        point.objective *= functions.sense();
        point.slack = result.solution.slack;
        for (size_t i = 0; i < values.size(); ++i) {
            const int row = functions.model_rows()[i];
            point.slack[row] = model.rhs[row] - values[i];
        }
    } else {
        try {
            evaluate_with_formulas(model, point);
        } catch (const Error&) {
            return false;  // the solve meets it again, and says so
        }
    }
    const auto same = [](double a, double b) {
        return std::fabs(a - b) <= kSame * std::max(1.0, std::fabs(b)) ||
               (std::isnan(a) && std::isnan(b));
    };
    return same(point.objective, result.solution.objective) &&
           std::equal(point.slack.begin(), point.slack.end(), result.solution.slack.begin(), same);
}

void keep_optimum(nslp_problem& problem, Monitor& monitor) {
    SolveInfo& info = problem.base->info;
    info.barrier_iterations = 0;
    problem.result.iterations = 0;
    problem.result.values.clear();
    monitor.log(1, "Nothing has changed since the last solve: its solution stands");
}

void tell_problem_beneath(nslp_problem& problem) {
    const nslp_problem::Result& result = problem.result;
    const Solution& solution = result.solution;
    nlra_problem& base = *problem.base;
    SolveInfo& info = base.info;
    info.stop = result.stop;
    // Of methods that count none of their own.
    if (info.simplex_iterations == 0) info.barrier_iterations = result.iterations;
    if (!base.model.formulas.empty()) return;
    if (!base.model.is_mip()) {
        info.lp_status = lp_status_of_nonlinear(result.status);
        info.lp_objective = solution.objective;
        base.lp_solution = solution;
        return;
    }
    info.mip_status = mip_status_of_nonlinear(result.status, solution.present);
    info.mip_objective = solution.objective;
    if (result.status == NSLP_GLOBALLY_OPTIMAL && !(std::fabs(info.best_bound) < kInfinity)) {
        info.best_bound = solution.objective;
        info.rel_gap = 0.0;
    }
    base.mip_solution = solution;
}

}  // namespace nlra
