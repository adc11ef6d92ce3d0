#include "search/convex_mip.hpp"

#include <utility>

#include "api/nonlinear_problem.hpp"
#include "api/problem.hpp"
#include "nonlinear/model_values.hpp"
#include "nonlinear/nlp_functions.hpp"
#include "search/monitor.hpp"
#include "search/outer_approximation.hpp"
#include "search/plain_form.hpp"
#include "search/statuses.hpp"

namespace nlra {

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
    if (!outcome.solution.present) return outcome;
    outcome.solution.x.resize(static_cast<size_t>(model.cols()));
    evaluate_with_formulas(model, outcome.solution);
    return outcome;
}

bool solve_convex_mip(nslp_problem& problem, const Model& model, Monitor& monitor) {
    nlra_problem& base = *problem.base;
    std::optional<MipOutcome> outcome = solve_convex_mip(model, base.controls, {}, monitor);
    if (!outcome) return false;
    nslp_problem::Result& result = problem.result;
    result.status = nonlinear_status_of_mip(outcome->status);
    result.stop = outcome->stop;
    result.iterations = static_cast<long>(outcome->iterations);
    result.solution = std::move(outcome->solution);
    base.info.best_bound = outcome->bound;
    base.info.rel_gap = outcome->gap;
    base.info.nodes = outcome->nodes;
    base.info.simplex_iterations = outcome->iterations;
    return true;
}

}  // namespace nlra
