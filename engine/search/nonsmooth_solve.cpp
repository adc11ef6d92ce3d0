#include "search/nonsmooth_solve.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "analysis/convexity.hpp"
#include "api/problem.hpp"
#include "linear/linear_solver.hpp"
#include "linear/relaxation.hpp"
#include "nonlinear/nonsmooth_reformulation.hpp"
#include "search/convex_mip.hpp"
#include "search/optimize.hpp"

namespace nlra {

namespace {

// The most by which a solution may miss the formulas, relative to what they are computed from.
constexpr double kMaxMiss = 1e-6;

int status_of_lp(int status) {
    switch (status) {
        case NLRA_LP_OPTIMAL:
            return NSLP_GLOBALLY_OPTIMAL;
        case NLRA_LP_INFEAS:
            return NSLP_INFEASIBLE;
        case NLRA_LP_UNBOUNDED:
            return NSLP_UNBOUNDED;
        default:
            return NSLP_UNFINISHED;
    }
}

class NonsmoothSolve {
  public:
    NonsmoothSolve(nslp_problem& problem, NonsmoothReformulation& reformulation, Monitor& monitor)
        : result_(problem.result),
          base_(*problem.base),
          reformulation_(reformulation),
          monitor_(monitor) {
        inner_.model = std::move(reformulation.plain());
        inner_.controls = base_.controls;
        inner_.mip_starts = std::move(base_.mip_starts);
        base_.mip_starts.clear();
    }

    // False when the solver for convex quadratic problems gives up.
    bool run();

  private:
    bool run_continuous();
    void run_mixed_integer();
    bool take(const Solution& found, double claimed);
    bool settle(std::vector<double> x);
    bool is_within_gap();

    nslp_problem::Result& result_;
    nlra_problem& base_;
    NonsmoothReformulation& reformulation_;
    Monitor& monitor_;
    nlra_problem inner_;
    Solution solution_;  // of the original model
    double miss_ = 0.0;
};

// The solution in the original columns, as the formulas see it. False when they do not agree with
// the reformulation that it is a solution, or that its objective is no worse than claimed.
bool NonsmoothSolve::take(const Solution& found, double claimed) {
    const Model& model = base_.model;
    solution_ = Solution();
    solution_.x.assign(found.x.begin(), found.x.begin() + model.cols());
    miss_ = reformulation_.evaluate(solution_);
    const double worse = model.sense * (solution_.objective - claimed);
    miss_ = std::max(miss_, worse / std::max(1.0, std::fabs(claimed)));
    if (std::isnan(solution_.objective)) miss_ = HUGE_VAL;
    if (found.has_duals) {
        solution_.dual.assign(found.dual.begin(), found.dual.begin() + model.rows());
        solution_.dj.assign(found.dj.begin(), found.dj.begin() + model.cols());
        solution_.has_duals = true;
    }
    return miss_ <= kMaxMiss;
}

bool NonsmoothSolve::run_continuous() {
    solve_continuous(inner_, monitor_, "");
    const SolveInfo& info = inner_.info;
    const bool undecided = info.lp_status != NLRA_LP_OPTIMAL && info.lp_status != NLRA_LP_INFEAS &&
                           info.lp_status != NLRA_LP_UNBOUNDED;
    if (undecided && info.stop == NLRA_STOP_NONE && inner_.model.is_quadratic()) return false;
    result_.status = status_of_lp(info.lp_status);
    const Solution& found = inner_.lp_solution;
    if (!found.present || info.lp_status == NLRA_LP_INFEAS || info.lp_status == NLRA_LP_UNBOUNDED) {
        return true;
    }
    const bool agrees = take(found, found.objective);
    if (result_.status == NSLP_GLOBALLY_OPTIMAL && !agrees) result_.status = NSLP_UNFINISHED;
    return true;
}

// Integral columns hold up to a tolerance only, which times a wide range may be too much: round
// them, and let the others find their places around them. This also is where duals come from.
bool NonsmoothSolve::settle(std::vector<double> x) {
    if (!is_plain(inner_.model)) return false;
    Model fixed = inner_.model;
    fixed.touch_structure();
    for (int j = 0; j < fixed.cols(); ++j) {
        if (!is_integral(fixed.coltype[j])) continue;
        const double value = std::clamp(std::round(x[j]), fixed.lower[j], fixed.upper[j]);
        fixed.set_bounds(j, value, value);
    }
    LinearSolver solver;
    LpOutcome outcome =
        solver.solve_relaxation(fixed, base_.controls, LpMethod::kDualSimplex, monitor_);
    if (outcome.status != NLRA_LP_OPTIMAL) return false;
    // The multipliers of a problem whose own columns are fixed tell nothing of it.
    if (base_.model.is_mip()) outcome.solution.has_duals = false;
    return take(outcome.solution, outcome.solution.objective);
}

// The objective may have changed since the search ended.
bool NonsmoothSolve::is_within_gap() {
    MipOutcome outcome;
    outcome.status = NLRA_MIP_OPTIMAL;
    outcome.bound = inner_.info.best_bound;
    outcome.solution = solution_;
    update_gap(base_.model.sense, outcome);
    inner_.info.best_bound = outcome.bound;
    inner_.info.rel_gap = outcome.gap;
    return within_gap(outcome, base_.controls);
}

void NonsmoothSolve::run_mixed_integer() {
    for (bool again = false;; again = true) {
        solve_linear_mip(inner_, monitor_);
        SolveInfo& info = inner_.info;
        const Solution& found = inner_.mip_solution;
        result_.status = nonlinear_status_of_mip(info.mip_status);
        if (!found.present) return;
        const bool agrees = settle(found.x) || take(found, found.objective);
        if (agrees && (result_.status != NSLP_GLOBALLY_OPTIMAL || is_within_gap())) return;
        if (result_.status != NSLP_GLOBALLY_OPTIMAL) return;
        if (again) {
            result_.status = NSLP_UNFINISHED;
            return;
        }
        inner_.controls.set_double(kMipTol, 1e-9);
    }
}

bool NonsmoothSolve::run() {
    if (!inner_.model.is_mip()) {
        if (!run_continuous()) return false;
    } else {
        run_mixed_integer();
    }
    const SolveInfo& info = inner_.info;
    result_.stop = result_.status == NSLP_UNFINISHED ? info.stop : NLRA_STOP_NONE;
    result_.iterations = static_cast<long>(info.simplex_iterations + info.barrier_iterations);
    base_.info.simplex_iterations = info.simplex_iterations;
    base_.info.barrier_iterations = info.barrier_iterations;
    base_.info.nodes = info.nodes;
    base_.info.best_bound = info.best_bound;
    base_.info.rel_gap = info.rel_gap;
    if (miss_ > kMaxMiss) {
        monitor_.log(1, "The solution misses the formulas by %.1e within the tolerances", miss_);
    }
    result_.solution = std::move(solution_);
    return true;
}

bool is_convex(Model& plain, Monitor& monitor) {
    return !plain.is_quadratic() ||
           find_nonconvexity(plain, [&monitor] { return monitor.should_stop(); }).empty();
}

}  // namespace

std::string solve_nonsmooth(nslp_problem& problem, Monitor& monitor) {
    const Model& model = problem.base->model;
    const FunctionKinds kinds = function_kinds(model.formulas);
    if (kinds.smooth) return "other functions are smooth or the user's own";
    NonsmoothReformulation reformulation(model);
    if (!reformulation.obstacle().empty()) return reformulation.obstacle();
    Model& plain = reformulation.plain();
    if (plain.is_quadratic()) {
        // Without functions that have kinks the nonlinear solver is as good.
        if (!kinds.nonsmooth || plain.is_mip()) return "the problem has quadratic terms";
        if (!is_convex(plain, monitor)) return "the quadratic terms are not convex";
    }
    monitor.log(1, "Reformulated without formulas: %d columns, %d of them discrete, %d rows",
                plain.cols(), plain.mip_entities(), plain.rows());
    if (NonsmoothSolve(problem, reformulation, monitor).run()) return {};
    return "the solver for convex quadratic problems gave up";
}

}  // namespace nlra
