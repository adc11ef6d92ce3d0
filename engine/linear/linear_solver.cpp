#include "linear/linear_solver.hpp"

#include <algorithm>
#include <memory>
#include <utility>

#include "linear/relaxation.hpp"
#include "linear/session_pool.hpp"
#include "linear/solver_impl.hpp"
#include "linear/worker.hpp"
#include "nlra.h"
#include "store/error.hpp"

namespace nlra {
namespace {

// Up to here no factorization or presolve takes long enough to miss a poll, and a hand-over to a
// worker would show in a series of short solves. The smaller side bounds the order of a basis
// that is not mere slacks.
constexpr int kMaxDirectOrder = 500;
constexpr int64_t kMaxDirectNonzeros = 50000;

bool runs_directly(const Model& model) {
    return std::min(model.rows(), model.cols()) <= kMaxDirectOrder &&
           model.matrix.nonzeros() <= kMaxDirectNonzeros;
}

HighsSettings lp_settings(const Params& params, LpMethod method, const Monitor& monitor) {
    HighsSettings settings = common_settings(params, monitor);
    settings.relaxation = true;
    settings.solver = method == LpMethod::kInteriorPoint ? "ipx" : "simplex";
    settings.simplex_strategy =
        method == LpMethod::kPrimalSimplex ? kSimplexStrategyPrimal : kSimplexStrategyDual;
    settings.crossover = params.get_int(kCrossover) != 0;
    return settings;
}

void read_lp_solution(const Highs& highs, const Model& model, Solution& solution) {
    const HighsSolution& from = highs.getSolution();
    if (!from.value_valid) return;
    solution.present = true;
    solution.objective = highs.getInfo().objective_function_value + 0.0;
    copy_values(solution.x, from.col_value);
    solution.slack.resize(from.row_value.size());
    for (size_t i = 0; i < from.row_value.size(); ++i) {
        solution.slack[i] = model.rhs[i] - from.row_value[i] + 0.0;
    }
    if (!from.dual_valid) return;
    // HiGHS's duals are derivatives of the objective for both senses, as ours.
    solution.has_duals = true;
    copy_values(solution.dual, from.row_dual);
    copy_values(solution.dj, from.col_dual);
}

// The interior point method of HiGHS is known to go astray on models without a bounded set of
// optima: to call them optimal, to take one verdict for another, or to iterate without end. Only an
// optimum that the basis after crossover confirms, what presolve alone decided, and stops are
// taken.
bool is_doubtful_interior(const Highs& highs, const HighsSettings& settings, bool stopped) {
    const HighsInfo& info = highs.getInfo();
    const HighsModelStatus status = highs.getModelStatus();
    if (status == HighsModelStatus::kOptimal) {
        return settings.crossover &&
               (info.max_primal_infeasibility > 10 * settings.primal_tolerance ||
                info.max_dual_infeasibility > 10 * settings.dual_tolerance);
    }
    if (status == HighsModelStatus::kIterationLimit) {
        return info.ipm_iteration_count < settings.iteration_limit;
    }
    return !stopped && info.ipm_iteration_count > 0;
}

}  // namespace

bool is_tiny(const Model& model) {
    constexpr int kMaxSize = 50;
    constexpr int64_t kMaxNonzeros = 500;
    return int64_t{model.rows()} + model.cols() <= kMaxSize &&
           model.matrix.nonzeros() <= kMaxNonzeros;
}

double time_left(const Monitor& monitor) {
    const double remaining = monitor.remaining();
    return remaining >= kInfinity ? kHighsInf : remaining;
}

HighsSettings common_settings(const Params& params, const Monitor& monitor) {
    HighsSettings settings;
    settings.presolve = params.get_int(kPresolve) != 0;
    settings.time_limit = time_left(monitor);
    settings.primal_tolerance = params.get_double(kFeasTol);
    settings.dual_tolerance = params.get_double(kOptTol);
    settings.iteration_limit = clamp_to_int(params.get_int(kIterLimit));
    settings.seed = clamp_to_int(params.get_int(kSeed));
    settings.log_level = monitor.log_level();
    return settings;
}

// Without columns every row's value is zero; HiGHS calls such a model empty, whatever its rows.
bool zero_is_feasible(const Model& model, double tolerance) {
    for (int i = 0; i < model.rows(); ++i) {
        const Bounds bounds = relaxed_row(model, i);
        if (bounds.lower > tolerance || bounds.upper < -tolerance) return false;
    }
    return true;
}

// Whether a column could improve the objective without end as far as bounds tell.
bool may_be_unbounded(const Model& model) {
    for (int j = 0; j < model.cols(); ++j) {
        const double cost = model.sense * model.obj[j];
        if (cost == 0.0) continue;
        const Bounds bounds = relaxed_column(model, j);
        if (cost < 0.0 ? bounds.upper >= kInfinity : bounds.lower <= -kInfinity) return true;
    }
    return false;
}

int rules_to_avoid(const Highs& highs) {
    const HighsLp& lp = highs.getLp();
    for (HighsInt j = 0; j < lp.num_col_; ++j) {
        if (lp.col_lower_[j] <= -kHighsInf && lp.col_upper_[j] > 0.0 &&
            lp.col_upper_[j] < kHighsInf) {
            return 1 << kPresolveRuleParallelRowsAndCols;
        }
    }
    return 0;
}

// The reason of a run that ended early, NLRA_STOP_NONE for any other.
int stop_reason(HighsModelStatus status, const Monitor& monitor) {
    switch (status) {
        case HighsModelStatus::kTimeLimit:
            return NLRA_STOP_TIMELIMIT;
        case HighsModelStatus::kIterationLimit:
            return NLRA_STOP_ITERLIMIT;
        case HighsModelStatus::kSolutionLimit:
            return NLRA_STOP_SOLLIMIT;
        case HighsModelStatus::kInterrupt:
        case HighsModelStatus::kHighsInterrupt:
            return monitor.reason() != NLRA_STOP_NONE ? monitor.reason() : NLRA_STOP_USER;
        default:
            return NLRA_STOP_NONE;
    }
}

// Adding zero makes a negative zero a positive one.
void copy_values(std::vector<double>& to, const std::vector<double>& from) {
    to.resize(from.size());
    for (size_t i = 0; i < from.size(); ++i) to[i] = from[i] + 0.0;
}

LinearSolver::Impl::~Impl() {
    if (session) return_session(std::move(session));
}

void LinearSolver::Impl::drop() {
    session.reset();
    handover.forget();
}

Highs& LinearSolver::Impl::open(const Model& model) {
    if (!session) {
        session = take_session();
        handover.forget();
    }
    session->note_size(int64_t{model.rows()} + model.cols() + model.matrix.nonzeros());
    handover.sync(session->highs, model);
    return session->highs;
}

LpOutcome LinearSolver::Impl::solve_relaxation(const Model& model, const Params& params,
                                               LpMethod method, Monitor& monitor) {
    LpOutcome outcome;
    if (model.cols() == 0) {
        const bool feasible = zero_is_feasible(model, params.get_double(kFeasTol));
        outcome.status = feasible ? NLRA_LP_OPTIMAL : NLRA_LP_INFEAS;
        if (!feasible) return outcome;
        outcome.solution.present = outcome.solution.has_duals = true;
        outcome.solution.objective = model.constant;
        outcome.solution.slack = model.rhs;
        outcome.solution.dual.assign(model.rows(), 0.0);
        return outcome;
    }
    Highs& highs = open(model);
    HighsSettings settings = lp_settings(params, method, monitor);
    const bool on_worker = !runs_directly(model);
    const bool interior = method == LpMethod::kInteriorPoint;
    if (interior) {
        // It gains nothing from a basis, but loses presolve by it, and cannot do without presolve:
        // empty rows and free columns lead it astray.
        highs.clearSolver();
        settings.presolve = true;
    }
    const auto with_presolve = [&] {
        highs.clearSolver();
        settings.presolve = true;
        settings.presolve_rules_off = rules_to_avoid(highs);
        settings.time_limit = time_left(monitor);
    };
    const bool presolved = settings.presolve && !highs.getBasis().valid;
    if (presolved) settings.presolve_rules_off = rules_to_avoid(highs);

    // Without presolve first where that takes longer than the solve. Only an optimum is taken from
    // there, as HiGHS calls badly scaled models unbounded at times.
    const bool quick = presolved && !interior && is_tiny(model);
    settings.presolve = settings.presolve && !quick;

    HighsModelStatus status = HighsModelStatus::kNotset;
    // False when the instance is gone.
    const auto run_once = [&] {
        if (session->run(settings, on_worker, monitor) == RunEnd::kAbandoned) {
            outcome.status = NLRA_LP_UNFINISHED;
            outcome.stop = monitor.reason();
            drop();
            return false;
        }
        const HighsInfo& info = highs.getInfo();
        outcome.iterations += std::max<long>(0, info.simplex_iteration_count) +
                              std::max<long>(0, info.crossover_iteration_count);
        outcome.barrier_iterations += std::max<long>(0, info.ipm_iteration_count);
        status = highs.getModelStatus();
        return true;
    };
    for (int attempt = quick ? -1 : 0; attempt < 3; ++attempt) {
        if (attempt == 0 && quick) with_presolve();
        if (attempt > 0) {
            // Presolve that cannot tell unbounded from infeasible, or takes one for the other, a
            // dual simplex method that is lost on an unbounded problem, numerical trouble: settled
            // on the whole model, by the primal simplex method first.
            highs.clearSolver();
            settings.solver = "simplex";
            settings.simplex_strategy =
                attempt == 1 ? kSimplexStrategyPrimal : kSimplexStrategyDual;
            settings.presolve = false;
            settings.time_limit = time_left(monitor);
        }
        if (!run_once()) return outcome;
        const bool doubtful =
            session->status() == HighsStatus::kError ||
            status == HighsModelStatus::kUnboundedOrInfeasible ||
            status == HighsModelStatus::kUnknown ||
            (attempt < 0 && status != HighsModelStatus::kOptimal &&
             stop_reason(status, monitor) == NLRA_STOP_NONE) ||
            (status == HighsModelStatus::kInfeasible && presolved && attempt == 0 &&
             may_be_unbounded(model)) ||
            (interior && attempt == 0 &&
             is_doubtful_interior(highs, settings, stop_reason(status, monitor) != NLRA_STOP_NONE));
        if (!doubtful) break;
    }
    if (status == HighsModelStatus::kUnbounded && !presolved) {
        // From a basis, or by the user's wish, without presolve: it has to agree.
        with_presolve();
        if (!run_once()) return outcome;
        const bool other =
            status == HighsModelStatus::kOptimal || stop_reason(status, monitor) != NLRA_STOP_NONE;
        if (!other) status = HighsModelStatus::kUnbounded;
    }
    if (session->status() == HighsStatus::kError) {
        fail(NLRA_ERROR_SOLVER, "the linear solver failed (%s)",
             highs.modelStatusToString(status).c_str());
    }
    switch (status) {
        case HighsModelStatus::kOptimal:
            outcome.status = NLRA_LP_OPTIMAL;
            break;
        case HighsModelStatus::kInfeasible:
            outcome.status = NLRA_LP_INFEAS;
            return outcome;
        case HighsModelStatus::kUnbounded:
            outcome.status = NLRA_LP_UNBOUNDED;
            return outcome;
        case HighsModelStatus::kMemoryLimit:
            throw std::bad_alloc();
        default:
            outcome.stop = stop_reason(status, monitor);
            outcome.status = outcome.stop != NLRA_STOP_NONE ? NLRA_LP_UNFINISHED : NLRA_LP_UNSOLVED;
    }
    read_lp_solution(highs, model, outcome.solution);
    return outcome;
}

LinearSolver::LinearSolver() : impl_(std::make_unique<Impl>()) {}
LinearSolver::~LinearSolver() = default;

LpOutcome LinearSolver::solve_relaxation(const Model& model, const Params& params, LpMethod method,
                                         Monitor& monitor) {
    try {
        return impl_->solve_relaxation(model, params, method, monitor);
    } catch (...) {
        impl_->drop();  // nothing is known of an instance that failed
        throw;
    }
}

MipOutcome LinearSolver::solve_mip(const Model& model, const Params& params,
                                   const std::vector<double>& start, Monitor& monitor) {
    try {
        return impl_->solve_mip(model, params, start, monitor);
    } catch (...) {
        impl_->drop();
        throw;
    }
}

const char* linear_solver_version() { return highsVersion(); }

void linear_solver_after_fork() {
    workers_after_fork();
    sessions_after_fork();
}

}  // namespace nlra
