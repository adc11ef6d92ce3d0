#include "search/optimize.hpp"

#include <pthread.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <mutex>
#include <optional>
#include <utility>

#include "analysis/convexity.hpp"
#include "api/problem.hpp"
#include "linear/linear_solver.hpp"
#include "linear/relaxation.hpp"
#include "nonlinear/convex_qp.hpp"
#include "nonlinear/qp_memory.hpp"
#include "search/convex_mip.hpp"
#include "search/convex_relaxation.hpp"
#include "search/mip_start.hpp"
#include "search/monitor.hpp"
#include "search/reformulate.hpp"
#include "search/report.hpp"
#include "search/restated_solve.hpp"
#include "search/unused_columns.hpp"

namespace nlra {
namespace {

// How far a solution may miss a set, an indicator or a semi-continuous range by the integrality
// tolerance of the binaries that stand for it, before it is repaired.
constexpr double kMaxViolation = 1e-6;

LpMethod wanted_method(const Params& params, const char* flags) {
    if (std::strchr(flags, 'd') != nullptr) return LpMethod::kDualSimplex;
    if (std::strchr(flags, 'p') != nullptr) return LpMethod::kPrimalSimplex;
    if (std::strchr(flags, 'b') != nullptr) return LpMethod::kInteriorPoint;
    return static_cast<LpMethod>(params.get_int(kLpMethod));
}

LinearSolver& linear_solver(nlra_problem& problem) {
    if (!problem.linear) problem.linear = std::make_unique<LinearSolver>();
    return *problem.linear;
}

QuadraticMemory& quadratic_memory(nlra_problem& problem) {
    if (!problem.quadratic) problem.quadratic = std::make_unique<QuadraticMemory>();
    return *problem.quadratic;
}

// Fills in the time, however a solve ends.
class Clock {
  public:
    Clock(nlra_problem& problem, const Monitor& monitor) : problem_(problem), monitor_(monitor) {}
    ~Clock() { problem_.info.seconds = monitor_.elapsed(); }
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;

  private:
    nlra_problem& problem_;
    const Monitor& monitor_;
};

// Null where the problem is convex, else one in its place that is. A stop ends the test as passed;
// the solve after it ends at its first poll.
std::unique_ptr<StandIn> require_convex(nlra_problem& problem, Monitor& monitor, bool mip) {
    if (!problem.model.is_quadratic()) return nullptr;
    const std::string what = find_nonconvexity(
        problem.model, [&monitor] { return monitor.should_stop(); },
        &quadratic_memory(problem).proven);
    if (what.empty()) return nullptr;
    std::unique_ptr<StandIn> stand_in = convex_stand_in(problem, monitor);
    if (stand_in || monitor.should_stop()) return stand_in;
    problem.info.lp_status = NLRA_LP_NONCONVEX;
    if (mip) problem.info.mip_status = NLRA_MIP_NONCONVEX;
    fail(NLRA_ERROR_NONCONVEX, "the problem is not convex: %s", what.c_str());
}

// A quadratic model as a continuous one: conditional rows are dropped, types relaxed.
Model relaxed_copy(const Model& model) {
    Model copy = model;
    for (const auto& [row, indicator] : model.indicators) {
        copy.rowtype[row] = 'N';
        copy.qrows.erase(row);
    }
    for (int j = 0; j < model.cols(); ++j) {
        const Bounds bounds = relaxed_column(model, j);
        copy.set_bounds(j, bounds.lower, bounds.upper);
    }
    return copy;
}

LpOutcome solve_quadratic(nlra_problem& problem, Monitor& monitor) {
    const Model& model = problem.model;
    const bool plain = is_plain(model);
    const auto solve = [&](const Model& continuous) {
        return continuous.formulas.empty()
                   ? solve_convex_quadratic(continuous, problem.controls, monitor, nullptr,
                                            &quadratic_memory(problem))
                   : solve_convex_relaxation(continuous, problem.controls, monitor);
    };
    LpOutcome outcome = solve(plain ? model : relaxed_copy(model));
    outcome.barrier_iterations += outcome.iterations;
    outcome.iterations = 0;
    return outcome;
}

}  // namespace

// Solve the relaxation and store what comes out.
void solve_continuous(nlra_problem& problem, Monitor& monitor, const char* flags) {
    LpOutcome outcome =
        problem.model.is_quadratic() || !problem.model.formulas.empty()
            ? solve_quadratic(problem, monitor)
            : linear_solver(problem).solve_relaxation(
                  problem.model, problem.controls, wanted_method(problem.controls, flags), monitor);
    SolveInfo& info = problem.info;
    info.lp_status = outcome.status;
    info.stop = outcome.stop;
    info.simplex_iterations = outcome.iterations;
    info.barrier_iterations = outcome.barrier_iterations;
    info.lp_objective = outcome.solution.objective;
    problem.lp_solution = std::move(outcome.solution);
}

namespace {

// The status of a mixed integer problem that turned out to be a continuous one.
int mip_status_of(int lp_status) {
    switch (lp_status) {
        case NLRA_LP_OPTIMAL:
            return NLRA_MIP_OPTIMAL;
        case NLRA_LP_INFEAS:
            return NLRA_MIP_INFEAS;
        case NLRA_LP_UNBOUNDED:
            return NLRA_MIP_UNBOUNDED;
        default:
            // A point that a stopped simplex method leaves need not be feasible.
            return NLRA_MIP_NO_SOL_FOUND;
    }
}

// A continuous problem by way of the mixed integer call.
void solve_continuous_as_mip(nlra_problem& problem, Monitor& monitor, const char* flags) {
    solve_continuous(problem, monitor, flags);
    SolveInfo& info = problem.info;
    info.mip_status = mip_status_of(info.lp_status);
    info.best_bound = problem.model.sense < 0 ? kInfinity : -kInfinity;
    if (info.mip_status != NLRA_MIP_OPTIMAL) return;
    problem.mip_solution = problem.lp_solution;
    info.mip_objective = info.best_bound = info.lp_objective;
    info.mip_solutions = 1;
}

// Whether nothing is left to branch on; `integral` tells whether the fixed values are allowed.
bool all_entities_fixed(const Model& model, bool& integral) {
    integral = true;
    if (!model.sets.empty() || !model.indicators.empty()) return false;
    for (int j = 0; j < model.cols(); ++j) {
        const char type = model.coltype[j];
        if (type == 'C') continue;
        if (!is_integral(type) || model.lower[j] != model.upper[j]) return false;
        if (model.lower[j] != std::round(model.lower[j])) integral = false;
    }
    return true;
}

StartPoint start_point(nlra_problem& problem, const Reformulation* reformulation) {
    const Model& model = problem.model;
    std::vector<StartPoint> points;
    for (const MipStart& start : problem.mip_starts) {
        StartPoint point(static_cast<size_t>(model.cols()),
                         std::numeric_limits<double>::quiet_NaN());
        for (size_t k = 0; k < start.cols.size(); ++k) point[start.cols[k]] = start.values[k];
        points.push_back(std::move(point));
    }
    StartPoint incumbent = std::move(linear_solver(problem).incumbent);
    linear_solver(problem).incumbent.clear();
    return choose_start(model, reformulation, problem.controls, std::move(points),
                        std::move(incumbent));
}

// The binaries hold up to a tolerance only, which times a wide bound may be too much: settle the
// columns around the rounded binaries. False when that is not possible, with `solution` as it was.
bool repair(const Model& model, Reformulation& reformulation, const Params& params,
            Monitor& monitor, Solution& solution) {
    Model fixed = reformulation.plain();
    fixed.edits = Edits();
    for (int j = 0; j < fixed.cols(); ++j) {
        if (!is_integral(fixed.coltype[j])) continue;
        const double value = std::round(solution.x[j]);
        fixed.set_bounds(j, value, value);
    }
    LinearSolver solver;
    LpOutcome settled = solver.solve_relaxation(fixed, params, LpMethod::kDualSimplex, monitor);
    if (settled.status != NLRA_LP_OPTIMAL) return false;
    if (reformulation.violation(settled.solution.x) > kMaxViolation) return false;
    solution.x = std::move(settled.solution.x);
    solution.x.resize(static_cast<size_t>(model.cols()));
    evaluate(model, solution);
    return true;
}

MipOutcome solve_reformulated(nlra_problem& problem, Monitor& monitor) {
    const Model& model = problem.model;
    Reformulation reformulation(model);
    monitor.log(2, "Reformulated: %d rows, %d columns", reformulation.plain().rows(),
                reformulation.plain().cols());
    Params params = problem.controls;
    StartPoint start = start_point(problem, &reformulation);
    // The second time with the tightest tolerance, from the repaired solution of the first.
    for (bool again = false;; again = true) {
        LinearSolver solver;
        MipOutcome outcome =
            solver.solve_mip(reformulation.plain(), params,
                             start.empty() ? start : reformulation.extend(start), monitor);
        Solution& solution = outcome.solution;
        if (!solution.present) return outcome;
        const double violation = reformulation.violation(solution.x);
        if (violation <= kMaxViolation) {
            solution.x.resize(static_cast<size_t>(model.cols()));
            evaluate(model, solution);
            update_gap(model.sense, outcome);
            return outcome;
        }
        monitor.log(2, "A condition on a column or row is missed by %.1e within the tolerances",
                    violation);
        if (!repair(model, reformulation, params, monitor, solution)) {
            if (again || outcome.stop != NLRA_STOP_NONE) {
                fail(NLRA_ERROR_SOLVER,
                     "the bounds of columns in sets, of semi-continuous columns or in rows with "
                     "an indicator are too wide: within the tolerances the solution misses such a "
                     "condition by %.1e; tighten them",
                     violation);
            }
            start.clear();
        } else {
            update_gap(model.sense, outcome);
            if (outcome.status != NLRA_MIP_OPTIMAL || within_gap(outcome, params)) return outcome;
            if (again) {
                outcome.status = NLRA_MIP_SOLUTION;
                outcome.stop = NLRA_STOP_NONE;
                return outcome;
            }
            start = solution.x;
        }
        params.set_double(kMipTol, 1e-9);
    }
}

void store(nlra_problem& problem, MipOutcome outcome) {
    SolveInfo& info = problem.info;
    info.mip_status = outcome.status;
    info.stop = outcome.stop;
    info.mip_objective = outcome.solution.objective;
    info.best_bound = outcome.bound;
    info.rel_gap = outcome.gap;
    info.nodes = outcome.nodes;
    info.simplex_iterations = outcome.iterations;
    info.mip_solutions = outcome.improvements;
    if (outcome.solution.present) linear_solver(problem).incumbent = outcome.solution.x;
    problem.mip_solution = std::move(outcome.solution);
}

}  // namespace

void solve_linear_mip(nlra_problem& problem, Monitor& monitor) {
    const Model& model = problem.model;
    MipOutcome outcome;
    if (is_plain(model)) {
        const StartPoint start = start_point(problem, nullptr);
        outcome = linear_solver(problem).solve_mip(model, problem.controls, start, monitor);
    } else {
        outcome = solve_reformulated(problem, monitor);
    }
    store(problem, std::move(outcome));
}

namespace {

void solve_quadratic_mip(nlra_problem& problem, Monitor& monitor, const char* flags) {
    bool integral = true;
    if (!all_entities_fixed(problem.model, integral)) {
        std::optional<MipOutcome> outcome = solve_convex_mip(
            problem.model, problem.controls, start_point(problem, nullptr), monitor);
        if (!outcome) {
            problem.info.mip_status = NLRA_MIP_NONCONVEX;
            fail(NLRA_ERROR_NONCONVEX, "the problem is not convex with all integrality relaxed");
        }
        store(problem, std::move(*outcome));
        return;
    }
    if (!integral) {
        problem.info.mip_status = NLRA_MIP_INFEAS;
        return;
    }
    solve_continuous_as_mip(problem, monitor, flags);
}

}  // namespace

void optimize_lp(nlra_problem& problem, const char* flags) {
    Monitor monitor(problem);
    const Clock clock(problem, monitor);
    // What a mixed integer solve has found stays.
    SolveInfo fresh;
    fresh.mip_status = problem.info.mip_status;
    fresh.mip_objective = problem.info.mip_objective;
    fresh.best_bound = problem.info.best_bound;
    fresh.rel_gap = problem.info.rel_gap;
    fresh.mip_solutions = problem.info.mip_solutions;
    problem.info = fresh;
    problem.lp_solution.clear();
    log_header(problem, monitor);
    const std::unique_ptr<StandIn> stand_in = require_convex(problem, monitor, false);
    solve_continuous(stand_in ? stand_in->problem : problem, monitor, flags);
    if (stand_in) stand_in->hand_back(problem, monitor);
    settle_unused_columns(problem.model, problem.lp_solution);
    log_lp_result(problem, monitor);
}

void optimize_mip(nlra_problem& problem, const char* flags) {
    Monitor monitor(problem);
    const Clock clock(problem, monitor);
    problem.info = SolveInfo();
    problem.lp_solution.clear();
    problem.mip_solution.clear();
    log_header(problem, monitor);
    const Model& model = problem.model;
    const std::unique_ptr<StandIn> stand_in = require_convex(problem, monitor, true);
    nlra_problem& solved = stand_in ? stand_in->problem : problem;
    const bool is_relaxation = std::strchr(flags, 'l') != nullptr;
    if (is_relaxation) {
        solve_continuous(solved, monitor, flags);
    } else if (model.is_quadratic()) {
        solve_quadratic_mip(solved, monitor, flags);
    } else if (!model.is_mip()) {
        solve_continuous_as_mip(solved, monitor, flags);
    } else {
        solve_linear_mip(solved, monitor);
    }
    if (stand_in) stand_in->hand_back(problem, monitor);
    settle_unused_columns(model, problem.lp_solution);
    if (is_relaxation) {
        problem.info.mip_status = problem.info.lp_status == NLRA_LP_OPTIMAL
                                      ? NLRA_MIP_LP_OPTIMAL
                                      : NLRA_MIP_LP_NOT_OPTIMAL;
        log_lp_result(problem, monitor);
        return;
    }
    problem.mip_starts.clear();
    settle_unused_columns(model, problem.mip_solution);
    log_mip_result(problem, monitor);
}

void install_fork_handler() {
    static std::once_flag once;
    std::call_once(once, [] { pthread_atfork(nullptr, nullptr, linear_solver_after_fork); });
}

}  // namespace nlra
