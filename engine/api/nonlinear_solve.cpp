// Nonlinear solves and their results.
#include <algorithm>
#include <cstring>

#include "api/boundary.hpp"
#include "search/optimize_nonlinear.hpp"
#include "search/solving.hpp"

using namespace nlra;

int NSLPnlpoptimize(NSLPprob prob, const char* flags) {
    return call(prob, __func__, Access::kChange, [&](nslp_problem& problem) {
        const char* const wanted = flags != nullptr ? flags : "";
        const char* const unknown = wanted + std::strspn(wanted, "g");
        if (*unknown != '\0') {
            fail(NLRA_ERROR_ARGUMENT, "flags: '%c' (code %d) is not one of g", *unknown,
                 static_cast<unsigned char>(*unknown));
        }
        const Solving solving(*problem.base);
        optimize_nonlinear(problem);
    });
}

int NSLPgetslpsol(NSLPprob prob, double* x, double* slack, double* dual, double* dj) {
    return call(prob, __func__, Access::kShare, [&](nslp_problem& problem) {
        const Solution& solution = problem.result.solution;
        if (!solution.present) {
            fail(NLRA_ERROR_STATE, "no solution of a nonlinear solve is available");
        }
        if ((dual != nullptr || dj != nullptr) && !solution.has_duals) {
            fail(NLRA_ERROR_STATE, "the last nonlinear solve has left no dual values");
        }
        const auto copy_out = [](const std::vector<double>& values, double* out) {
            if (out != nullptr) std::copy(values.begin(), values.end(), out);
        };
        copy_out(solution.x, x);
        copy_out(solution.slack, slack);
        copy_out(solution.dual, dual);
        copy_out(solution.dj, dj);
    });
}
