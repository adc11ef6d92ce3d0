// The mixed integer half of LinearSolver.
#include <cmath>
#include <new>
#include <thread>
#include <utility>

#include "linear/relaxation.hpp"
#include "linear/solver_impl.hpp"
#include "nlra.h"
#include "store/error.hpp"

namespace nlra {
namespace {

double to_boundary(double value) { return std::clamp(value, -kInfinity, kInfinity); }

// As many as HiGHS takes by itself: its scheduler is faster on real cores only.
int default_thread_count() {
    return static_cast<int>((std::max(1U, std::thread::hardware_concurrency()) + 1) / 2);
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

// As HiGHS measures it for its own limit.
double relative_gap(double objective, double bound) {
    const double difference = std::abs(objective - bound);
    if (difference == 0.0) return 0.0;
    return std::min(kInfinity, difference / std::abs(objective));
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

bool is_free(const Model& model, int col) {
    return model.lower[col] <= -kInfinity && model.upper[col] >= kInfinity;
}

bool has_free_column(const Model& model, bool integral_only) {
    for (int j = 0; j < model.cols(); ++j) {
        if (is_free(model, j) && (!integral_only || is_integral(model.coltype[j]))) return true;
    }
    return false;
}

// With free integral columns near a point, or near zero.
Model with_limits(const Model& model, const std::vector<double>& around) {
    constexpr double kReach = 1e6;
    Model limited = model;
    limited.touch_structure();
    for (int j = 0; j < model.cols(); ++j) {
        if (!is_free(model, j) || !is_integral(model.coltype[j])) continue;
        const double center = around.empty() ? 0.0 : std::round(around[j]);
        limited.set_bounds(j, center - kReach, center + kReach);
    }
    return limited;
}

// Whether the first solution is better, by more than solvers are allowed to miss the optimum by.
bool is_better(double sense, const MipOutcome& first, const MipOutcome& second,
               const Params& params) {
    if (!first.solution.present || !second.solution.present) return first.solution.present;
    if (sense * first.solution.objective >= sense * second.solution.objective) return false;
    MipOutcome gap = second;
    gap.bound = first.solution.objective;
    gap.gap = relative_gap(gap.solution.objective, gap.bound);
    return !within_gap(gap, params);
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

bool within_gap(const MipOutcome& outcome, const Params& params) {
    constexpr double kNoise = 1e-6;
    return outcome.gap <= params.get_double(kRelGap) + kNoise ||
           std::abs(outcome.solution.objective - outcome.bound) <=
               params.get_double(kAbsGap) + kNoise;
}

// One run of the search. Fills all but the status of the outcome.
HighsModelStatus LinearSolver::Impl::run_search(const Model& model, const HighsSettings& settings,
                                                const std::vector<double>& start, Monitor& monitor,
                                                MipOutcome& outcome) {
    Highs& highs = session->highs;
    highs.clearSolver();
    // The bounds of a restricted problem must not be taken for the problem's own.
    const bool own_bounds = give_start(highs, start);
    const RunEnd end = session->run(settings, true, monitor);
    const MipProgress& progress = session->progress();
    outcome.improvements += progress.improvements;
    if (end == RunEnd::kAbandoned) {
        outcome.nodes += progress.nodes;
        outcome.iterations += progress.iterations;
        outcome.bound = progress.has_bound && own_bounds
                            ? to_boundary(progress.bound)
                            : (model.sense < 0 ? kInfinity : -kInfinity);
        if (progress.has_solution) read_mip_solution(model, progress.x, outcome.solution);
        outcome.stop = monitor.reason();
        drop();
        return HighsModelStatus::kInterrupt;
    }
    const HighsModelStatus status = highs.getModelStatus();
    if (session->status() == HighsStatus::kError) {
        fail(NLRA_ERROR_SOLVER, "the mixed integer solver failed (%s)",
             highs.modelStatusToString(status).c_str());
    }
    if (status == HighsModelStatus::kMemoryLimit) throw std::bad_alloc();
    const HighsInfo& info = highs.getInfo();
    outcome.nodes += std::max<int64_t>(0, info.mip_node_count);
    outcome.iterations += std::max(0, info.simplex_iteration_count);
    outcome.bound = to_boundary(info.mip_dual_bound);
    if (highs.getSolution().value_valid && info.primal_solution_status == kSolutionStatusFeasible) {
        read_mip_solution(model, highs.getSolution().col_value, outcome.solution);
        // A model without integer columns has been solved as a linear one.
        if (!highs.getLp().isMip()) outcome.bound = outcome.solution.objective;
    }
    outcome.stop = stop_reason(status, monitor);
    if (session->iteration_limit_hit()) outcome.stop = NLRA_STOP_ITERLIMIT;
    if (outcome.stop == NLRA_STOP_SOLLIMIT && progress.improvements < settings.solution_limit) {
        outcome.stop = NLRA_STOP_NODELIMIT;
    }
    return status;
}

// Whether there is a direction of endless improvement within bounds and rows: HiGHS takes an
// unbounded problem for infeasible or solved at times, mostly when presolve solves all of it.
bool LinearSolver::Impl::has_improving_ray(HighsSettings settings, Monitor& monitor) {
    Highs& highs = session->highs;
    handover.forget();
    HighsLp lp = highs.getLp();
    lp.integrality_.clear();
    lp.offset_ = 0.0;
    double scale = 0.0;
    for (HighsInt j = 0; j < lp.num_col_; ++j) {
        lp.col_lower_[j] = lp.col_lower_[j] <= -kHighsInf ? -1.0 : 0.0;
        lp.col_upper_[j] = lp.col_upper_[j] >= kHighsInf ? 1.0 : 0.0;
        scale = std::max(scale, std::abs(lp.col_cost_[j]));
    }
    for (HighsInt i = 0; i < lp.num_row_; ++i) {
        if (lp.row_lower_[i] > -kHighsInf) lp.row_lower_[i] = 0.0;
        if (lp.row_upper_[i] < kHighsInf) lp.row_upper_[i] = 0.0;
    }
    const double sense = lp.sense_ == ObjSense::kMaximize ? -1.0 : 1.0;
    if (highs.passModel(std::move(lp)) == HighsStatus::kError) return false;
    settings.solver = "simplex";
    settings.objective_bound = kHighsInf;
    settings.time_limit = time_left(monitor);
    if (session->run(settings, true, monitor) == RunEnd::kAbandoned) {
        drop();
        return false;
    }
    return highs.getModelStatus() == HighsModelStatus::kOptimal &&
           sense * highs.getInfo().objective_function_value < -1e-6 * scale;
}

// A problem with a ray of improvement and rational data is unbounded when it has any solution at
// all, which a search without objective finds out.
void LinearSolver::Impl::decide_unbounded(const Model& model, HighsSettings settings,
                                          Monitor& monitor, MipOutcome& outcome) {
    const bool feasible = outcome.solution.present;
    outcome.solution.clear();
    outcome.bound = model.sense < 0 ? kInfinity : -kInfinity;
    if (feasible) {
        outcome.status = NLRA_MIP_UNBOUNDED;
        return;
    }
    Highs& highs = open(model);
    handover.forget();  // the costs are going
    const std::vector<double> zeros(highs.getNumCol(), 0.0);
    highs.changeColsCost(0, highs.getNumCol() - 1, zeros.data());
    settings.objective_bound = kHighsInf;
    settings.solution_limit = kHighsIInf;
    settings.time_limit = time_left(monitor);
    MipOutcome feasibility;
    const HighsModelStatus status = run_search(model, settings, {}, monitor, feasibility);
    outcome.nodes += feasibility.nodes;
    if (feasibility.solution.present) {
        outcome.status = NLRA_MIP_UNBOUNDED;
    } else if (status == HighsModelStatus::kInfeasible) {
        outcome.status = NLRA_MIP_INFEAS;
        outcome.bound = -outcome.bound;
    } else if (feasibility.stop != NLRA_STOP_NONE) {
        outcome.status = NLRA_MIP_NO_SOL_FOUND;
        outcome.stop = feasibility.stop;
    } else {
        fail(NLRA_ERROR_SOLVER, "the solver cannot tell whether the problem is unbounded");
    }
}

// HiGHS errs at times about models with free integral columns, which it calls solved at a point
// that is not the best, but not with any bounds. What it says of the model must therefore be what
// it says of a part of it.
MipOutcome LinearSolver::Impl::solve_mip(const Model& model, const Params& params,
                                         const std::vector<double>& start, Monitor& monitor) {
    MipOutcome outcome = search(model, params, start, monitor);
    if (!has_free_column(model, true)) return outcome;
    constexpr int kMaxAttempts = 3;
    for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
        if (outcome.status != NLRA_MIP_OPTIMAL && outcome.status != NLRA_MIP_INFEAS) return outcome;
        const Model part = with_limits(model, outcome.solution.x);
        MipOutcome check = search(part, params, outcome.solution.x, monitor);
        handover.forget();
        check.nodes += outcome.nodes;
        check.iterations += outcome.iterations;
        check.improvements += outcome.improvements;
        if (!is_better(model.sense, check, outcome, params)) {
            outcome.nodes = check.nodes;
            outcome.iterations = check.iterations;
            return outcome;
        }
        outcome = search(model, params, check.solution.x, monitor);
        outcome.nodes += check.nodes;
        outcome.iterations += check.iterations;
        if (!is_better(model.sense, check, outcome, params)) continue;
        check.status = NLRA_MIP_SOLUTION;
        check.bound = -model.sense * kInfinity;
        update_gap(model.sense, check);
        return check;
    }
    return outcome;
}

MipOutcome LinearSolver::Impl::search(const Model& model, const Params& params,
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
    HighsSettings settings = mip_settings(params, model.sense, monitor);
    settings.presolve_rules_off = rules_to_avoid(highs);
    // The jumps of free columns grow without end, until HiGHS sorts values that are no numbers and
    // crashes; those of tiny models take several times as long as the search.
    settings.feasibility_jump = !is_tiny(model) && !has_free_column(model, false);
    HighsModelStatus status = run_search(model, settings, start, monitor, outcome);
    update_gap(model.sense, outcome);
    if (status == HighsModelStatus::kOptimal && outcome.solution.present &&
        !within_gap(outcome, params)) {
        // What presolve promised is more than what undoing it has given: search without it.
        settings.presolve = false;
        settings.time_limit = time_left(monitor);
        const std::vector<double> from = std::move(outcome.solution.x);
        outcome.solution.clear();
        status = run_search(model, settings, from, monitor, outcome);
        update_gap(model.sense, outcome);
    }

    const bool decided =
        status == HighsModelStatus::kOptimal || status == HighsModelStatus::kInfeasible;
    if (decided && outcome.nodes <= 1 && may_be_unbounded(model) &&
        has_improving_ray(settings, monitor)) {
        status = HighsModelStatus::kUnbounded;
    }
    switch (status) {
        case HighsModelStatus::kOptimal:
            if (!outcome.solution.present) {
                fail(NLRA_ERROR_SOLVER, "the mixed integer solver lost its solution");
            }
            outcome.status = within_gap(outcome, params) ? NLRA_MIP_OPTIMAL : NLRA_MIP_SOLUTION;
            break;
        case HighsModelStatus::kInfeasible:
            outcome.status = NLRA_MIP_INFEAS;
            outcome.bound = model.sense < 0 ? -kInfinity : kInfinity;
            outcome.solution.clear();
            break;
        case HighsModelStatus::kUnbounded:
        case HighsModelStatus::kUnboundedOrInfeasible:
            decide_unbounded(model, settings, monitor, outcome);
            return outcome;
        default:
            if (outcome.stop == NLRA_STOP_NONE) {
                fail(NLRA_ERROR_SOLVER, "the mixed integer solver stopped without a result");
            }
            outcome.status = outcome.solution.present ? NLRA_MIP_SOLUTION : NLRA_MIP_NO_SOL_FOUND;
    }
    apply_cutoff(model.sense, settings, outcome);
    update_gap(model.sense, outcome);
    return outcome;
}

}  // namespace nlra
