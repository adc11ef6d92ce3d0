#include "search/optimize_nonlinear.hpp"

#include <cmath>

#include "api/problem.hpp"
#include "nonlinear/nlp_solve.hpp"
#include "nonlinear/user_function.hpp"
#include "search/monitor.hpp"
#include "search/report.hpp"
#include "store/error.hpp"

namespace nlra {

namespace {

void require_continuous(const Model& model) {
    if (!model.is_mip()) return;
    bool fixed = model.sets.empty() && model.indicators.empty();
    for (int j = 0; fixed && j < model.cols(); ++j) {
        const bool integral = model.coltype[j] == 'B' || model.coltype[j] == 'I';
        fixed = model.coltype[j] == 'C' || (integral && model.lower[j] == model.upper[j] &&
                                            model.lower[j] == std::round(model.lower[j]));
    }
    if (fixed) return;
    fail(NLRA_ERROR_UNSUPPORTED,
         "a problem with nonlinear formulas cannot have integer or semi-continuous columns, sets "
         "or indicators: the nonlinear solver has no search for such problems");
}

const char* status_text(int status) {
    static const char* const texts[] = {"not started",        "locally optimal", "globally optimal",
                                        "locally infeasible", "infeasible",      "unbounded",
                                        "unfinished"};
    return texts[status];
}

}  // namespace

void optimize_nonlinear(nslp_problem& problem) {
    Monitor monitor(*problem.base);
    problem.base->drop_solutions();
    require_continuous(problem.base->model);
    log_header(*problem.base, monitor);
    try {
        solve_nlp_locally(problem, monitor);
    } catch (const UserFunctionFailed&) {
        problem.result = {};
        problem.result.status = NSLP_UNFINISHED;
        problem.result.stop = NLRA_STOP_USER;
        fail(NLRA_ERROR_STATE, "a user function failed");
    }
    problem.base->info.seconds = monitor.elapsed();
    monitor.log(1, "Nonlinear problem: %s, objective %.10g, %ld iterations, %.2f s",
                status_text(problem.result.status), problem.result.solution.objective,
                problem.result.iterations, monitor.elapsed());
}

}  // namespace nlra
