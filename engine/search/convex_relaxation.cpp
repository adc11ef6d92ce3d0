#include "search/convex_relaxation.hpp"

#include <utility>

#include "nonlinear/convex_qp.hpp"
#include "nonlinear/nlp_options.hpp"
#include "nonlinear/nlp_solve.hpp"
#include "nslp.h"

namespace nlra {
namespace {

int lp_status(const NlpOutcome& result) {
    switch (result.status) {
        case NSLP_GLOBALLY_OPTIMAL:
            return NLRA_LP_OPTIMAL;
        case NSLP_INFEASIBLE:
            return NLRA_LP_INFEAS;
        case NSLP_UNBOUNDED:
            return NLRA_LP_UNBOUNDED;
        default:
            return result.stop != NLRA_STOP_NONE ? NLRA_LP_UNFINISHED : NLRA_LP_UNSOLVED;
    }
}

}  // namespace

LpOutcome solve_convex_relaxation(const Model& model, const Params& params, Monitor& monitor) {
    const DetailLog detail(monitor);
    if (model.formulas.empty()) return solve_convex_quadratic(model, params, monitor, nullptr);
    const NlpOptions options = nlp_options(Params(interior_control_table()), params);
    NlpOutcome result = solve_nlp_locally(model, params, options, monitor);
    LpOutcome outcome;
    outcome.status = lp_status(result);
    outcome.stop = result.stop;
    outcome.iterations = result.iterations;
    outcome.solution = std::move(result.solution);
    return outcome;
}

}  // namespace nlra
