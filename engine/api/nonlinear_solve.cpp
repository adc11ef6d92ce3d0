// Nonlinear solves and their results.
#include "api/boundary.hpp"
#include "api/checks.hpp"
#include "api/solution_out.hpp"
#include "search/optimize_nonlinear.hpp"
#include "search/solving.hpp"

namespace nlra {
namespace {

const Solution& solution_of(const nslp_problem& problem, bool with_duals) {
    const Solution& solution = problem.result.solution;
    if (!solution.present) {
        fail(NLRA_ERROR_STATE, "no solution of a nonlinear solve is available");
    }
    if (with_duals && !solution.has_duals) {
        fail(NLRA_ERROR_STATE, "the last nonlinear solve has left no dual values");
    }
    return solution;
}

}  // namespace
}  // namespace nlra

using namespace nlra;

int NSLPnlpoptimize(NSLPprob prob, const char* flags) {
    return call(prob, __func__, Access::kChange, [&](nslp_problem& problem) {
        check_solve_flags(flags);
        const Solving solving(*problem.base);
        optimize_nonlinear(problem);
        solving.finish();
    });
}

int NSLPgetslpsol(NSLPprob prob, double* x, double* slack, double* dual, double* dj) {
    return call(prob, __func__, Access::kShare, [&](nslp_problem& problem) {
        const bool with_duals = dual != nullptr || dj != nullptr;
        copy_solution(solution_of(problem, with_duals), x, slack, dual, dj);
    });
}

int NSLPgetslpsolval(NSLPprob prob, int col, int row, double* x, double* slack, double* dual,
                     double* dj) {
    return call(prob, __func__, Access::kShare, [&](nslp_problem& problem) {
        const bool with_duals = dual != nullptr || dj != nullptr;
        copy_one(solution_of(problem, with_duals), col, row, x, slack, dual, dj);
    });
}
