#include "nonlinear/ipopt_adapter.hpp"

#include <IpStdCInterface.h>
#include <dlfcn.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <mutex>
#include <new>

#include "nlra.h"
#include "store/error.hpp"

namespace nlra {

namespace {

// What Ipopt's callbacks get as their user data.
struct Call {
    const NlpStructure& structure;
    NlpFunctions& functions;
    std::exception_ptr exception;
    int iterations = 0;
};

// No exception may cross Ipopt's frames: keep the first one, and refuse everything after it.
template <class Body>
bool guarded(void* data, Body&& body) noexcept {
    Call& call = *static_cast<Call*>(data);
    if (call.exception) return false;
    try {
        return body(call);
    } catch (...) {
        call.exception = std::current_exception();
        return false;
    }
}

bool eval_f(ipindex, ipnumber* x, bool, ipnumber* value, void* data) {
    return guarded(data, [&](Call& call) { return call.functions.objective(x, *value); });
}

bool eval_grad_f(ipindex, ipnumber* x, bool, ipnumber* values, void* data) {
    return guarded(data, [&](Call& call) { return call.functions.gradient(x, values); });
}

bool eval_g(ipindex, ipnumber* x, bool, ipindex, ipnumber* values, void* data) {
    return guarded(data, [&](Call& call) { return call.functions.rows(x, values); });
}

bool eval_jac_g(ipindex, ipnumber* x, bool, ipindex, ipindex, ipindex* row, ipindex* col,
                ipnumber* values, void* data) {
    return guarded(data, [&](Call& call) {
        if (values != nullptr) return call.functions.jacobian(x, values);
        std::copy(call.structure.jacobian_row.begin(), call.structure.jacobian_row.end(), row);
        std::copy(call.structure.jacobian_col.begin(), call.structure.jacobian_col.end(), col);
        return true;
    });
}

bool eval_h(ipindex, ipnumber* x, bool, ipnumber factor, ipindex, ipnumber* multipliers, bool,
            ipindex, ipindex* row, ipindex* col, ipnumber* values, void* data) {
    return guarded(data, [&](Call& call) {
        // Ipopt insists on this function even where it approximates the Hessian itself.
        if (!call.structure.has_hessian) return false;
        if (values != nullptr) return call.functions.hessian(x, factor, multipliers, values);
        std::copy(call.structure.hessian_row.begin(), call.structure.hessian_row.end(), row);
        std::copy(call.structure.hessian_col.begin(), call.structure.hessian_col.end(), col);
        return true;
    });
}

bool intermediate(ipindex mode, ipindex iteration, ipnumber objective, ipnumber primal,
                  ipnumber dual, ipnumber barrier, ipnumber, ipnumber, ipnumber, ipnumber, ipindex,
                  void* data) {
    return guarded(data, [&](Call& call) {
        call.iterations = iteration;
        return call.functions.progress(
            {iteration, mode == RestorationPhaseMode, objective, primal, dual, barrier});
    });
}

// OpenBLAS would use a thread per core for matrices where that only costs. Its function is found
// through Ipopt's own library, since several copies of OpenBLAS may live in one process.
void limit_blas_threads() {
    static std::once_flag once;
    std::call_once(once, [] {
        Dl_info info;
        if (dladdr(reinterpret_cast<void*>(&CreateIpoptProblem), &info) == 0) return;
        void* library = dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
        if (library == nullptr) return;
        if (void* symbol = dlsym(library, "openblas_set_num_threads")) {
            reinterpret_cast<void (*)(int)>(symbol)(1);
        }
        dlclose(library);
    });
}

struct Free {
    void operator()(IpoptProblem problem) const { FreeIpoptProblem(problem); }
};
using Problem = std::unique_ptr<IpoptProblemInfo, Free>;

void set_option(const Problem& problem, const char* name, const char* value) {
    if (!AddIpoptStrOption(problem.get(), const_cast<char*>(name), const_cast<char*>(value))) {
        fail(NLRA_ERROR_SOLVER, "Ipopt does not take %s for option %s", value, name);
    }
}

void set_option(const Problem& problem, const char* name, double value) {
    if (!AddIpoptNumOption(problem.get(), const_cast<char*>(name), value)) {
        fail(NLRA_ERROR_SOLVER, "Ipopt does not take %g for option %s", value, name);
    }
}

void set_option(const Problem& problem, const char* name, int value) {
    if (!AddIpoptIntOption(problem.get(), const_cast<char*>(name), value)) {
        fail(NLRA_ERROR_SOLVER, "Ipopt does not take %d for option %s", value, name);
    }
}

// How far a warm start is moved off the bounds, and the barrier parameter that goes with it. The
// defaults, 1e-3 and 0.1, give most of a warm start away; much smaller ones make changed problems
// take longer than a cold start.
constexpr double kWarmStartPush = 1e-5;
constexpr double kWarmStartBarrier = 1e-4;

// Approximate minimum degree; minimum fill for large systems. METIS is not there.
int mumps_pivot_order(PivotOrder wanted, int size) {
    constexpr int kDegree = 0, kFill = 2, kQuasiDense = 6;
    switch (wanted) {
        case PivotOrder::kMinimumDegree:
            return kDegree;
        case PivotOrder::kMinimumFill:
            return kFill;
        case PivotOrder::kQuasiDense:
            return kQuasiDense;
        case PivotOrder::kBySize:
            break;
    }
    return size > 5000 ? kFill : kDegree;
}

void set_options(const Problem& problem, const NlpStructure& structure, const NlpOptions& options) {
    // Otherwise a file "ipopt.opt" in the working directory would be read.
    set_option(problem, "option_file_name", "");
    set_option(problem, "sb", "yes");
    set_option(problem, "print_level", 0);
    set_option(problem, "linear_solver", "mumps");
    set_option(problem, "mumps_pivot_order",
               mumps_pivot_order(options.pivot_order, structure.columns + structure.rows));
    set_option(problem, "tol", options.tolerance);
    set_option(problem, "max_iter", options.max_iterations);
    set_option(problem, "diverging_iterates_tol", options.divergence);
    set_option(problem, "bound_relax_factor", options.bound_relaxation);
    set_option(problem, "nlp_scaling_method",
               !options.given_scaling.empty() ? "user-scaling"
               : options.scaling              ? "gradient-based"
                                              : "none");
    set_option(problem, "bound_push", options.bound_push);
    // The other limit of the push is a share of a column's range.
    set_option(problem, "bound_frac", std::min(options.bound_push, 0.5));
    if (!structure.has_hessian || !options.exact_hessian) {
        set_option(problem, "hessian_approximation", "limited-memory");
    }
    if (structure.linear_rows) {
        set_option(problem, "jac_c_constant", "yes");
        set_option(problem, "jac_d_constant", "yes");
    }
    if (structure.constant_hessian) set_option(problem, "hessian_constant", "yes");
    // Not "mehrotra_algorithm": Ipopt dereferences null in it as soon as it enters restoration.
    if (options.adaptive_barrier) set_option(problem, "mu_strategy", "adaptive");
    if (options.warm_start) {
        set_option(problem, "warm_start_init_point", "yes");
        for (const char* const push :
             {"warm_start_bound_push", "warm_start_bound_frac", "warm_start_slack_bound_push",
              "warm_start_slack_bound_frac", "warm_start_mult_bound_push"}) {
            set_option(problem, push, kWarmStartPush);
        }
        set_option(problem, "mu_init", kWarmStartBarrier);
    }
    if (options.initial_barrier > 0.0) set_option(problem, "mu_init", options.initial_barrier);
}

NlpStatus status_of(ApplicationReturnStatus code) {
    switch (code) {
        case Solve_Succeeded:
        case Feasible_Point_Found:
            return NlpStatus::kSolved;
        case Solved_To_Acceptable_Level:
            return NlpStatus::kAcceptable;
        case Infeasible_Problem_Detected:
            return NlpStatus::kInfeasible;
        case Diverging_Iterates:
            return NlpStatus::kDiverging;
        case Maximum_Iterations_Exceeded:
            return NlpStatus::kIterationLimit;
        case User_Requested_Stop:
            return NlpStatus::kStopped;
        case Not_Enough_Degrees_Of_Freedom:
            return NlpStatus::kTooFewDegrees;
        case Insufficient_Memory:
            throw std::bad_alloc();
        case Invalid_Problem_Definition:
        case Invalid_Option:
            fail(NLRA_ERROR_SOLVER, "Ipopt refused the problem (code %d)", static_cast<int>(code));
        default:
            return NlpStatus::kFailed;
    }
}

std::vector<double> copy_or_zeros(const double* values, int count) {
    return values != nullptr ? std::vector<double>(values, values + count)
                             : std::vector<double>(count, 0.0);
}

}  // namespace

NlpResult solve_nlp(const NlpStructure& structure, NlpFunctions& functions, const NlpBounds& bounds,
                    const NlpStart& start, const NlpOptions& options) {
    limit_blas_threads();
    const int n = structure.columns;
    const int m = structure.rows;
    // The C interface lacks const; it copies what it is given.
    const Problem problem(CreateIpoptProblem(
        n, const_cast<double*>(bounds.lower), const_cast<double*>(bounds.upper), m,
        const_cast<double*>(bounds.row_lower), const_cast<double*>(bounds.row_upper),
        static_cast<int>(structure.jacobian_row.size()),
        static_cast<int>(structure.hessian_row.size()), 0, eval_f, eval_g, eval_grad_f, eval_jac_g,
        eval_h));
    if (!problem) fail(NLRA_ERROR_SOLVER, "Ipopt refused the problem");
    set_options(problem, structure, options);
    SetIntermediateCallback(problem.get(), intermediate);
    if (const NlpScaling& scaling = options.given_scaling; !scaling.empty()) {
        SetIpoptProblemScaling(problem.get(), scaling.objective,
                               const_cast<double*>(scaling.columns.data()),
                               const_cast<double*>(scaling.rows.data()));
    }

    NlpResult result;
    result.x = copy_or_zeros(start.x, n);
    result.multipliers = copy_or_zeros(start.multipliers, m);
    result.lower_multipliers = copy_or_zeros(start.lower_multipliers, n);
    result.upper_multipliers = copy_or_zeros(start.upper_multipliers, n);
    Call call{structure, functions, nullptr};
    const ApplicationReturnStatus code = IpoptSolve(
        problem.get(), result.x.data(), nullptr, &result.objective, result.multipliers.data(),
        result.lower_multipliers.data(), result.upper_multipliers.data(), &call);
    if (call.exception) std::rethrow_exception(call.exception);
    result.status = status_of(code);
    result.iterations = call.iterations;
    return result;
}

}  // namespace nlra
