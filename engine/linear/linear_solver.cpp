#include "linear/linear_solver.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <thread>
#include <utility>

#include "linear/handover.hpp"
#include "linear/highs_session.hpp"
#include "linear/relaxation.hpp"
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

int clamp_to_int(int64_t value) { return static_cast<int>(std::min<int64_t>(value, kHighsIInf)); }

double to_boundary(double value) { return std::clamp(value, -kInfinity, kInfinity); }

// As many as HiGHS takes by itself: its scheduler is faster on real cores only.
int default_thread_count() {
    return static_cast<int>((std::max(1U, std::thread::hardware_concurrency()) + 1) / 2);
}

HighsSettings common_settings(const Params& params, const Monitor& monitor) {
    HighsSettings settings;
    settings.presolve = params.get_int(kPresolve) != 0;
    const double remaining = monitor.remaining();
    settings.time_limit = remaining >= kInfinity ? kHighsInf : remaining;
    settings.primal_tolerance = params.get_double(kFeasTol);
    settings.dual_tolerance = params.get_double(kOptTol);
    settings.iteration_limit = clamp_to_int(params.get_int(kIterLimit));
    settings.seed = clamp_to_int(params.get_int(kSeed));
    settings.log_level = monitor.log_level();
    return settings;
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

HighsSettings mip_settings(const Params& params, double sense, const Monitor& monitor) {
    HighsSettings settings = common_settings(params, monitor);
    settings.solver = "choose";
    // HiGHS has one tolerance for rows and integrality in a tree search. Its own default is the
    // most that rows are given away for a laxer integrality tolerance.
    settings.mip_tolerance =
        std::min(params.get_double(kMipTol), std::max(params.get_double(kFeasTol), 1e-6));
    settings.rel_gap = params.get_double(kRelGap);
    settings.abs_gap = params.get_double(kAbsGap);
    settings.heuristic_effort = params.get_double(kHeurEffort);
    const double cutoff = params.get_double(kCutoff);
    if (std::abs(cutoff) < kInfinity) settings.objective_bound = sense * cutoff;
    settings.node_limit = clamp_to_int(params.get_int(kNodeLimit));
    settings.solution_limit = clamp_to_int(params.get_int(kSolLimit));
    const int64_t threads = params.get_int(kThreads);
    settings.threads = threads > 0 ? clamp_to_int(threads) : default_thread_count();
    return settings;
}

// Without columns every row's value is zero; HiGHS calls such a model empty, whatever its rows.
bool zero_is_feasible(const Model& model, double tolerance) {
    for (int i = 0; i < model.rows(); ++i) {
        const Interval bounds = relaxed_row(model, i);
        if (bounds.lower > tolerance || bounds.upper < -tolerance) return false;
    }
    return true;
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

// As HiGHS measures it for its own limit.
double relative_gap(double objective, double bound) {
    const double difference = std::abs(objective - bound);
    if (difference == 0.0) return 0.0;
    return std::min(kInfinity, difference / std::abs(objective));
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

// Values that HiGHS holds for integral up to rounding noise are made so. What its tolerance lets
// pass beyond that stays, as rows may depend on it.
void read_mip_solution(const Model& model, const std::vector<double>& x, Solution& solution) {
    copy_values(solution.x, x);
    for (int j = 0; j < model.cols(); ++j) {
        if (!is_integral(model.coltype[j])) continue;
        const double rounded = std::round(solution.x[j]);
        if (std::abs(solution.x[j] - rounded) <= 1e-9) solution.x[j] = rounded + 0.0;
    }
    evaluate(model, solution);
}

// False when HiGHS will first solve a restricted problem to complete the start.
bool give_start(Highs& highs, const std::vector<double>& start) {
    std::vector<HighsInt> index;
    std::vector<double> value;
    for (size_t j = 0; j < start.size(); ++j) {
        if (std::isnan(start[j])) continue;
        index.push_back(static_cast<HighsInt>(j));
        value.push_back(start[j]);
    }
    if (index.empty()) return true;
    if (index.size() < start.size()) {
        highs.setSolution(static_cast<HighsInt>(index.size()), index.data(), value.data());
        return false;
    }
    HighsSolution solution;
    solution.col_value = std::move(value);
    solution.value_valid = true;
    highs.setSolution(solution);
    return true;
}

// HiGHS lets a solution attain the cutoff.
void apply_cutoff(double sense, const HighsSettings& settings, MipOutcome& outcome) {
    if (!outcome.solution.present) return;
    if (sense * outcome.solution.objective < settings.objective_bound) return;
    outcome.solution.clear();
    outcome.status = outcome.stop == NLRA_STOP_NONE ? NLRA_MIP_INFEAS : NLRA_MIP_NO_SOL_FOUND;
}

}  // namespace

struct LinearSolver::Impl {
    std::shared_ptr<HighsSession> session;
    Handover handover;

    void drop() {
        session.reset();
        handover.forget();
    }

    Highs& open(const Model& model) {
        if (!session) {
            session = std::make_shared<HighsSession>();
            handover.forget();
        }
        handover.sync(session->highs, model);
        return session->highs;
    }

    LpOutcome solve_relaxation(const Model& model, const Params& params, LpMethod method,
                               Monitor& monitor);
    MipOutcome solve_mip(const Model& model, const Params& params, const std::vector<double>& start,
                         Monitor& monitor);
    void decide_unbounded(HighsSettings settings, Monitor& monitor, MipOutcome& outcome);
};

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
    // The interior point method gains nothing from a basis, but loses presolve by it.
    if (method == LpMethod::kInteriorPoint) highs.clearSolver();

    HighsModelStatus status = HighsModelStatus::kNotset;
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (attempt > 0) {
            // Presolve that cannot tell unbounded from infeasible, a dual simplex method that is
            // lost on an unbounded problem, numerical trouble: settled on the whole model, by the
            // primal simplex method first.
            highs.clearSolver();
            settings.solver = "simplex";
            settings.simplex_strategy =
                attempt == 1 ? kSimplexStrategyPrimal : kSimplexStrategyDual;
            settings.presolve = false;
            const double remaining = monitor.remaining();
            settings.time_limit = remaining >= kInfinity ? kHighsInf : remaining;
        }
        if (session->run(settings, on_worker, monitor) == RunEnd::kAbandoned) {
            outcome.status = NLRA_LP_UNFINISHED;
            outcome.stop = monitor.reason();
            drop();
            return outcome;
        }
        const HighsInfo& info = highs.getInfo();
        outcome.iterations += std::max<long>(0, info.simplex_iteration_count) +
                              std::max<long>(0, info.crossover_iteration_count);
        outcome.barrier_iterations += std::max<long>(0, info.ipm_iteration_count);
        status = highs.getModelStatus();
        if (session->status() != HighsStatus::kError &&
            status != HighsModelStatus::kUnboundedOrInfeasible &&
            status != HighsModelStatus::kUnknown) {
            break;
        }
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

// HiGHS may know no more than that a model has no finite optimum. One with rational data is
// unbounded when it has any solution at all, which a solve without objective finds out.
void LinearSolver::Impl::decide_unbounded(HighsSettings settings, Monitor& monitor,
                                          MipOutcome& outcome) {
    Highs& highs = session->highs;
    handover.forget();  // the costs are gone
    const std::vector<double> zeros(highs.getNumCol(), 0.0);
    highs.changeColsCost(0, highs.getNumCol() - 1, zeros.data());
    settings.objective_bound = kHighsInf;
    settings.solution_limit = kHighsIInf;
    const double remaining = monitor.remaining();
    settings.time_limit = remaining >= kInfinity ? kHighsInf : remaining;
    const RunEnd end = session->run(settings, true, monitor);
    outcome.nodes += session->progress().nodes;
    const HighsModelStatus status =
        end == RunEnd::kAbandoned ? HighsModelStatus::kInterrupt : highs.getModelStatus();
    if (session->progress().has_solution || status == HighsModelStatus::kOptimal) {
        outcome.status = NLRA_MIP_UNBOUNDED;
    } else if (status == HighsModelStatus::kInfeasible) {
        outcome.status = NLRA_MIP_INFEAS;
    } else {
        outcome.status = NLRA_MIP_NO_SOL_FOUND;
        outcome.stop = stop_reason(status, monitor);
        if (outcome.stop == NLRA_STOP_NONE) {
            fail(NLRA_ERROR_SOLVER, "the solver cannot tell whether the problem is unbounded");
        }
    }
    if (end == RunEnd::kAbandoned) drop();
}

MipOutcome LinearSolver::Impl::solve_mip(const Model& model, const Params& params,
                                         const std::vector<double>& start, Monitor& monitor) {
    MipOutcome outcome;
    if (model.cols() == 0) {
        const bool feasible = zero_is_feasible(model, params.get_double(kFeasTol));
        outcome.status = feasible ? NLRA_MIP_OPTIMAL : NLRA_MIP_INFEAS;
        outcome.bound = model.constant;
        if (feasible) read_mip_solution(model, {}, outcome.solution);
        return outcome;
    }
    Highs& highs = open(model);
    const HighsSettings settings = mip_settings(params, model.sense, monitor);
    highs.clearSolver();
    // The bounds of a restricted problem must not be taken for the problem's own.
    const bool own_bounds = give_start(highs, start);

    const RunEnd end = session->run(settings, true, monitor);
    const MipProgress& progress = session->progress();
    const double no_bound = model.sense < 0 ? kInfinity : -kInfinity;
    const bool abandoned = end == RunEnd::kAbandoned;
    const HighsModelStatus status =
        abandoned ? HighsModelStatus::kInterrupt : highs.getModelStatus();
    outcome.improvements = progress.improvements;
    outcome.nodes = progress.nodes;
    outcome.iterations = progress.iterations;
    outcome.bound = progress.has_bound && own_bounds ? to_boundary(progress.bound) : no_bound;
    bool found = progress.has_solution;
    if (abandoned) {
        if (found) read_mip_solution(model, progress.x, outcome.solution);
    } else {
        if (session->status() == HighsStatus::kError) {
            fail(NLRA_ERROR_SOLVER, "the mixed integer solver failed (%s)",
                 highs.modelStatusToString(status).c_str());
        }
        const HighsInfo& info = highs.getInfo();
        found = highs.getSolution().value_valid &&
                info.primal_solution_status == kSolutionStatusFeasible;
        if (found) read_mip_solution(model, highs.getSolution().col_value, outcome.solution);
        outcome.nodes = std::max<int64_t>(0, info.mip_node_count);
        outcome.iterations = std::max(0, info.simplex_iteration_count);
        outcome.bound = to_boundary(info.mip_dual_bound);
        if (!highs.getLp().isMip()) outcome.bound = outcome.solution.objective;
    }
    switch (status) {
        case HighsModelStatus::kOptimal:
            if (!found) fail(NLRA_ERROR_SOLVER, "the mixed integer solver lost its solution");
            outcome.status = NLRA_MIP_OPTIMAL;
            break;
        case HighsModelStatus::kInfeasible:
            outcome.status = NLRA_MIP_INFEAS;
            outcome.bound = -no_bound;
            outcome.solution.clear();
            break;
        case HighsModelStatus::kUnbounded:
        case HighsModelStatus::kUnboundedOrInfeasible:
            outcome.bound = no_bound;
            outcome.solution.clear();
            if (status == HighsModelStatus::kUnbounded && found) {
                outcome.status = NLRA_MIP_UNBOUNDED;
            } else {
                decide_unbounded(settings, monitor, outcome);
            }
            return outcome;
        case HighsModelStatus::kMemoryLimit:
            throw std::bad_alloc();
        default:
            outcome.stop = stop_reason(status, monitor);
            if (outcome.stop == NLRA_STOP_NONE) {
                fail(NLRA_ERROR_SOLVER, "the mixed integer solver stopped without a result (%s)",
                     highs.modelStatusToString(status).c_str());
            }
            if (!abandoned && session->iteration_limit_hit()) outcome.stop = NLRA_STOP_ITERLIMIT;
            if (outcome.stop == NLRA_STOP_SOLLIMIT &&
                outcome.improvements < settings.solution_limit) {
                outcome.stop = NLRA_STOP_NODELIMIT;
            }
            outcome.status = found ? NLRA_MIP_SOLUTION : NLRA_MIP_NO_SOL_FOUND;
    }
    if (abandoned) drop();
    apply_cutoff(model.sense, settings, outcome);
    update_gap(model.sense, outcome);
    return outcome;
}

void update_gap(double sense, MipOutcome& outcome) {
    if (!outcome.solution.present) return;
    const double objective = outcome.solution.objective;
    // A bound on the wrong side of a solution is noise.
    if (sense * outcome.bound > sense * objective) outcome.bound = objective;
    outcome.gap = relative_gap(objective, outcome.bound);
    if (outcome.status == NLRA_MIP_OPTIMAL) {
        outcome.stop = outcome.gap > 1e-9 ? NLRA_STOP_MIPGAP : NLRA_STOP_NONE;
    }
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

void linear_solver_after_fork() { workers_after_fork(); }

}  // namespace nlra
