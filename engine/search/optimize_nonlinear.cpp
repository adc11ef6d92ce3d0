#include "search/optimize_nonlinear.hpp"

#include <cmath>
#include <string>

#include "api/problem.hpp"
#include "nonlinear/nlp_solve.hpp"
#include "nonlinear/nonsmooth_formulas.hpp"
#include "nonlinear/user_function.hpp"
#include "search/convex_mip.hpp"
#include "search/monitor.hpp"
#include "search/nonsmooth_solve.hpp"
#include "search/report.hpp"
#include "store/error.hpp"

namespace nlra {

namespace {

bool is_continuous(const Model& model) {
    if (!model.is_mip()) return true;
    bool fixed = model.sets.empty() && model.indicators.empty();
    for (int j = 0; fixed && j < model.cols(); ++j) {
        const bool integral = model.coltype[j] == 'B' || model.coltype[j] == 'I';
        fixed = model.coltype[j] == 'C' || (integral && model.lower[j] == model.upper[j] &&
                                            model.lower[j] == std::round(model.lower[j]));
    }
    return fixed;
}

// The first method that takes the model.
void solve(nslp_problem& problem, Monitor& monitor) {
    const Model& model = problem.base->model;
    const std::string obstacle = solve_nonsmooth(problem, monitor);
    if (obstacle.empty()) return;
    const bool has_kinks = function_kinds(model.formulas).nonsmooth;
    if (has_kinks) {
        monitor.log(1, "Functions with kinks are not reformulated (%s): subgradients are used",
                    obstacle.c_str());
    }
    if (is_continuous(model)) return solve_nlp_locally(problem, monitor);
    if (solve_convex_mip(problem, monitor)) return;
    const std::string kinks = " (functions with kinks are not reformulated: " + obstacle + ")";
    fail(NLRA_ERROR_UNSUPPORTED,
         "a problem with nonlinear formulas that is not convex cannot have integer or "
         "semi-continuous columns, sets or indicators: the nonlinear solver has no search for such "
         "problems%s",
         has_kinks ? kinks.c_str() : "");
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
    log_header(*problem.base, monitor);
    try {
        solve(problem, monitor);
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
