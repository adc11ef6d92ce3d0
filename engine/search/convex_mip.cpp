#include "search/convex_mip.hpp"

#include <utility>

#include "api/nonlinear_problem.hpp"
#include "api/problem.hpp"
#include "nonlinear/nlp_functions.hpp"
#include "search/monitor.hpp"
#include "search/outer_approximation.hpp"
#include "search/plain_form.hpp"

namespace nlra {
namespace {

// x cut down to the model's own columns, with objective and slacks as the functions have them.
void evaluate_all(const Model& model, Monitor& monitor, Solution& solution) {
    solution.x.resize(static_cast<size_t>(model.cols()));
    const double objective = solution.objective;
    evaluate(model, solution);
    if (model.formulas.empty()) return;
    solution.objective = objective;
    ModelFunctions functions(model, monitor);
    const std::vector<int>& rows = functions.model_rows();
    std::vector<double> activity(rows.size());
    functions.rows(solution.x.data(), activity.data());
    for (size_t i = 0; i < rows.size(); ++i) {
        solution.slack[rows[i]] = model.rhs[rows[i]] - activity[i] + 0.0;
    }
    for (const auto& [row, value] : functions.constant_rows()) {
        solution.slack[row] = model.rhs[row] - value + 0.0;
    }
}

}  // namespace

std::optional<MipOutcome> solve_convex_mip(const Model& model, const Params& params,
                                           const std::vector<double>& start, Monitor& monitor) {
    const PlainForm form(model);
    for (int j = 0; j < form.model().cols(); ++j) {
        if (form.model().lower[j] <= form.model().upper[j]) continue;
        MipOutcome outcome;
        outcome.status = NLRA_MIP_INFEAS;
        outcome.bound = model.sense * kInfinity;
        return outcome;
    }
    ModelFunctions functions(form.model(), monitor);
    if (!functions.is_convex()) {
        if (!monitor.should_stop()) return std::nullopt;
        MipOutcome outcome;
        outcome.status = NLRA_MIP_NO_SOL_FOUND;
        outcome.stop = monitor.reason();
        outcome.bound = -model.sense * kInfinity;
        return outcome;
    }
    monitor.log(1, "Outer approximation: %d columns, %d rows", form.model().cols(),
                form.model().rows());
    MipOutcome outcome = approximate_outside(form, functions, params,
                                             start.empty() ? start : form.extend(start), monitor);
    if (outcome.solution.present) evaluate_all(model, monitor, outcome.solution);
    return outcome;
}

bool solve_convex_mip(nslp_problem& problem, const Model& model, Monitor& monitor) {
    nlra_problem& base = *problem.base;
    std::optional<MipOutcome> outcome = solve_convex_mip(model, base.controls, {}, monitor);
    if (!outcome) return false;
    nslp_problem::Result& result = problem.result;
    switch (outcome->status) {
        case NLRA_MIP_OPTIMAL:
            result.status = NSLP_GLOBALLY_OPTIMAL;
            break;
        case NLRA_MIP_INFEAS:
            result.status = NSLP_INFEASIBLE;
            break;
        case NLRA_MIP_UNBOUNDED:
            result.status = NSLP_UNBOUNDED;
            break;
        default:
            result.status = NSLP_UNFINISHED;
    }
    result.stop = outcome->stop;
    result.iterations = static_cast<long>(outcome->iterations);
    result.solution = std::move(outcome->solution);
    base.info.best_bound = outcome->bound;
    base.info.rel_gap = outcome->gap;
    base.info.nodes = outcome->nodes;
    return true;
}

}  // namespace nlra
