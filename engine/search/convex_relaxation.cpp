#include "search/convex_relaxation.hpp"

#include <utility>

#include "api/nonlinear_problem.hpp"
#include "api/problem.hpp"
#include "nonlinear/convex_qp.hpp"
#include "nonlinear/nlp_solve.hpp"

namespace nlra {
namespace {

int lp_status(const nslp_problem::Result& result) {
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
    nlra_problem relaxed;
    relaxed.controls = params;
    relaxed.model = model;
    for (int j = 0; j < model.cols(); ++j) relaxed.model.set_type(j, 'C');
    nslp_problem nonlinear(relaxed);
    solve_nlp_locally(nonlinear, monitor);
    LpOutcome outcome;
    outcome.status = lp_status(nonlinear.result);
    outcome.stop = nonlinear.result.stop;
    outcome.iterations = nonlinear.result.iterations;
    outcome.solution = std::move(nonlinear.result.solution);
    return outcome;
}

}  // namespace nlra
