// Solving and results.
#include <algorithm>
#include <cmath>
#include <numeric>

#include "api/boundary.hpp"
#include "api/checks.hpp"
#include "api/solution_out.hpp"
#include "search/optimize.hpp"
#include "search/solving.hpp"

namespace nlra {
namespace {

int optimize(NLRAprob prob, const char* function, const char* flags,
             void (*solve)(nlra_problem&, const char*)) {
    return call(prob, function, Access::kChange, [&](nlra_problem& problem) {
        const char* const wanted = check_solve_flags(flags);
        if (!problem.model.formulas.empty()) {
            fail(NLRA_ERROR_UNSUPPORTED,
                 "the problem has nonlinear formulas, which only the nonlinear solver takes");
        }
        const Solving solving(problem);
        problem.drop_nonlinear_results();
        solve(problem, wanted);
        solving.finish();
    });
}

// Of a problem that is given one again and again, but never solved so that they are used up.
constexpr size_t kMostStarts = 100;

const Solution& lp_solution(const nlra_problem& problem, bool with_duals) {
    const Solution& solution = problem.lp_solution;
    if (!solution.present) fail(NLRA_ERROR_STATE, "no solution of a linear solve is available");
    if (with_duals && !solution.has_duals) {
        fail(NLRA_ERROR_STATE, "the last linear solve has left no dual values");
    }
    return solution;
}

const Solution& mip_solution(const nlra_problem& problem) {
    if (!problem.mip_solution.present) {
        fail(NLRA_ERROR_STATE, "no solution of a mixed integer solve is available");
    }
    return problem.mip_solution;
}

}  // namespace
}  // namespace nlra

using namespace nlra;

int NLRAlpoptimize(NLRAprob prob, const char* flags) {
    return optimize(prob, __func__, flags, optimize_lp);
}

int NLRAmipoptimize(NLRAprob prob, const char* flags) {
    return optimize(prob, __func__, flags, optimize_mip);
}

int NLRAinterrupt(NLRAprob prob, int reason) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        switch (reason) {
            case NLRA_STOP_TIMELIMIT:
            case NLRA_STOP_CTRLC:
            case NLRA_STOP_NODELIMIT:
            case NLRA_STOP_ITERLIMIT:
            case NLRA_STOP_MIPGAP:
            case NLRA_STOP_SOLLIMIT:
            case NLRA_STOP_USER:
                break;
            default:
                fail(NLRA_ERROR_ARGUMENT, "reason = %d is not a reason to stop", reason);
        }
        if (!problem.solving.load()) return;
        // The first reason counts.
        int none = NLRA_STOP_NONE;
        problem.stop_request.compare_exchange_strong(none, reason);
    });
}

int NLRAgetlpsol(NLRAprob prob, double* x, double* slack, double* dual, double* dj) {
    return call(prob, __func__, Access::kShare, [&](nlra_problem& problem) {
        const bool with_duals = dual != nullptr || dj != nullptr;
        copy_solution(lp_solution(problem, with_duals), x, slack, dual, dj);
    });
}

int NLRAgetlpsolval(NLRAprob prob, int col, int row, double* x, double* slack, double* dual,
                    double* dj) {
    return call(prob, __func__, Access::kShare, [&](nlra_problem& problem) {
        const bool with_duals = dual != nullptr || dj != nullptr;
        copy_one(lp_solution(problem, with_duals), col, row, x, slack, dual, dj);
    });
}

int NLRAgetmipsol(NLRAprob prob, double* x, double* slack) {
    return call(prob, __func__, Access::kShare, [&](nlra_problem& problem) {
        copy_solution(mip_solution(problem), x, slack, nullptr, nullptr);
    });
}

int NLRAgetmipsolval(NLRAprob prob, int col, int row, double* x, double* slack) {
    return call(prob, __func__, Access::kShare, [&](nlra_problem& problem) {
        copy_one(mip_solution(problem), col, row, x, slack, nullptr, nullptr);
    });
}

int NLRAaddmipsol(NLRAprob prob, int n, const double* value, const int* colind, const char* name) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        const int cols = problem.model.cols();
        check_count("n", n);
        check_array("value", value, n);
        if (colind == nullptr && n != cols) {
            fail(NLRA_ERROR_ARGUMENT, "n = %d, but without colind values for all %d columns", n,
                 cols);
        }
        check_finite("value", value, n);
        MipStart start;
        if (name != nullptr) start.name = name;
        start.values.assign(value, value + n);
        start.cols.resize(static_cast<size_t>(n));
        if (colind == nullptr) {
            std::iota(start.cols.begin(), start.cols.end(), 0);
        } else {
            check_indices("colind", colind, n, cols, Kind::kColumn);
            std::copy_n(colind, n, start.cols.begin());
            const int64_t repeat = problem.duplicates.find(colind, 0, n, cols);
            if (repeat >= 0) {
                fail(NLRA_ERROR_ARGUMENT, "colind[%lld] = %d is there twice",
                     static_cast<long long>(repeat), colind[repeat]);
            }
        }
        std::vector<MipStart>& starts = problem.mip_starts;
        if (starts.size() == kMostStarts) starts.erase(starts.begin());
        starts.push_back(std::move(start));
    });
}
