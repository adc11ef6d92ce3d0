#include "search/nonsmooth_solve.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "analysis/convexity.hpp"
#include "api/problem.hpp"
#include "linear/linear_solver.hpp"
#include "linear/relaxation.hpp"
#include "nonlinear/nonsmooth_reformulation.hpp"
#include "search/condition_bounds.hpp"
#include "search/convex_mip.hpp"
#include "search/optimize.hpp"
#include "search/piece_search.hpp"
#include "search/statuses.hpp"

namespace nlra {

namespace {

// The most by which a solution may miss the formulas, relative to what they are computed from.
constexpr double kMaxMiss = 1e-6;

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
    void run_with_open_conditions();
    Solution search_in_box(const Model& relaxation, const std::vector<Condition>& open);
    PieceOutcome search_pieces(const Model& relaxation, const std::vector<Condition>& open,
                               Solution best, int64_t max_nodes);
    Solution own_solution(const Solution& found, double& miss) const;
    std::optional<Solution> confirm(const nlra_problem& problem, const Solution& found) const;
    bool take(const Solution& found, double claimed);
    std::optional<Solution> settled(const Model& model, const std::vector<double>& x) const;
    bool is_within_gap();

    nslp_problem::Result& result_;
    nlra_problem& base_;
    NonsmoothReformulation& reformulation_;
    Monitor& monitor_;
    nlra_problem inner_;
    Solution solution_;  // of the original model
    double miss_ = 0.0;
};

// The solution in the original columns, as the formulas see it, and by how much it misses them.
Solution NonsmoothSolve::own_solution(const Solution& found, double& miss) const {
    const Model& model = base_.model;
    Solution own;
    own.x.assign(found.x.begin(), found.x.begin() + model.cols());
    miss = reformulation_.evaluate(own);
    if (!std::isfinite(own.objective)) miss = HUGE_VAL;
    if (found.has_duals) {
        own.dual.assign(found.dual.begin(), found.dual.begin() + model.rows());
        own.dj.assign(found.dj.begin(), found.dj.begin() + model.cols());
        own.has_duals = true;
    }
    return own;
}

// False when the formulas do not agree with the reformulation that it is a solution, or that its
// objective is no worse than claimed.
bool NonsmoothSolve::take(const Solution& found, double claimed) {
    solution_ = own_solution(found, miss_);
    const double worse = base_.model.sense * (solution_.objective - claimed);
    miss_ = std::max(miss_, worse / std::max(1.0, std::fabs(claimed)));
    return miss_ <= kMaxMiss;
}

// Of a problem that relaxes the reformulation.
std::optional<Solution> NonsmoothSolve::confirm(const nlra_problem& problem,
                                                const Solution& found) const {
    if (!found.present) return {};
    std::optional<Solution> around;
    if (problem.model.is_mip()) around = settled(problem.model, found.x);
    double miss = 0.0;
    Solution own = own_solution(around ? *around : found, miss);
    if (!(miss <= kMaxMiss)) return {};
    return own;
}

bool NonsmoothSolve::run_continuous() {
    solve_continuous(inner_, monitor_, "");
    const SolveInfo& info = inner_.info;
    const bool undecided = info.lp_status != NLRA_LP_OPTIMAL && info.lp_status != NLRA_LP_INFEAS &&
                           info.lp_status != NLRA_LP_UNBOUNDED;
    if (undecided && info.stop == NLRA_STOP_NONE && inner_.model.is_quadratic()) return false;
    result_.status = nonlinear_status_of_lp(info.lp_status);
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
std::optional<Solution> NonsmoothSolve::settled(const Model& model,
                                                const std::vector<double>& x) const {
    if (!is_plain(model)) return {};
    Model fixed = model;
    fixed.touch_structure();
    for (int j = 0; j < fixed.cols(); ++j) {
        if (!is_integral(fixed.coltype[j])) continue;
        const double value = std::clamp(std::round(x[j]), fixed.lower[j], fixed.upper[j]);
        fixed.set_bounds(j, value, value);
    }
    LinearSolver solver;
    LpOutcome outcome =
        solver.solve_relaxation(fixed, base_.controls, LpMethod::kDualSimplex, monitor_);
    if (outcome.status != NLRA_LP_OPTIMAL) return {};
    // The multipliers of a problem whose own columns are fixed tell nothing of it.
    if (base_.model.is_mip()) outcome.solution.has_duals = false;
    return std::move(outcome.solution);
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
        const std::optional<Solution> around = settled(inner_.model, found.x);
        const bool agrees =
            (around && take(*around, around->objective)) || take(found, found.objective);
        if (agrees && (result_.status != NSLP_GLOBALLY_OPTIMAL || is_within_gap())) return;
        if (result_.status != NSLP_GLOBALLY_OPTIMAL) return;
        if (again) {
            result_.status = NSLP_UNFINISHED;
            return;
        }
        inner_.controls.set_double(kMipTol, 1e-9);
    }
}

PieceOutcome NonsmoothSolve::search_pieces(const Model& relaxation,
                                           const std::vector<Condition>& open, Solution best,
                                           int64_t max_nodes) {
    nlra_problem problem;
    problem.model = relaxation;
    problem.controls = base_.controls;
    problem.mip_starts = inner_.mip_starts;
    const auto confirmed = [&](const Solution& found) { return confirm(problem, found); };
    PieceSearch search(problem, open, confirmed, monitor_);
    const int64_t limit = base_.controls.get_int(kNodeLimit);
    PieceOutcome outcome = search.run(std::move(best), std::min(max_nodes, limit));
    inner_.info.nodes += outcome.nodes;
    inner_.info.simplex_iterations += outcome.iterations;
    inner_.info.best_bound = outcome.bound;
    inner_.info.stop = outcome.stop;
    return outcome;
}

// A solution, if not the best one, from within bounds that nothing implies.
Solution NonsmoothSolve::search_in_box(const Model& relaxation,
                                       const std::vector<Condition>& open) {
    nlra_problem problem;
    problem.model = relaxation;
    problem.controls = base_.controls;
    problem.mip_starts = inner_.mip_starts;
    put_in_box(problem.model, open);
    solve_linear_mip(problem, monitor_);
    inner_.info.nodes += problem.info.nodes;
    inner_.info.simplex_iterations += problem.info.simplex_iterations;
    std::optional<Solution> found = confirm(problem, problem.mip_solution);
    return found ? std::move(*found) : Solution();
}

// A short search over the pieces settles easy models and finds solutions. Those no worse keep
// bounds that linear programs tell, which makes rows of conditions; what is left then is searched
// to the end.
void NonsmoothSolve::run_with_open_conditions() {
    const int64_t first_nodes = 100, most_nodes = 5000;
    std::vector<Condition> open = reformulation_.open_conditions();
    const Model relaxation = inner_.model;
    monitor_.log(1, "No bounds limit %d conditions of pieces: branching on them",
                 static_cast<int>(open.size()));
    PieceOutcome outcome = search_pieces(relaxation, open, {}, first_nodes);
    if (outcome.status == NSLP_UNFINISHED && !monitor_.should_stop()) {
        if (!outcome.best.present) outcome.best = search_in_box(relaxation, open);
        std::optional<double> cutoff;
        if (outcome.best.present) cutoff = outcome.best.objective;
        open = limit_by_linear_programs(inner_.model, open, cutoff, base_.controls, monitor_);
        monitor_.log(1, "After bounds by linear programs %d of them are left",
                     static_cast<int>(open.size()));
        if (open.empty()) {
            run_mixed_integer();
            const double sense = base_.model.sense;
            if (!outcome.best.present || result_.status == NSLP_UNBOUNDED) return;
            // All else is worse than the solution that is known.
            const bool is_lost = !solution_.present || result_.status == NSLP_INFEASIBLE;
            if (is_lost || sense * outcome.best.objective < sense * solution_.objective) {
                solution_ = std::move(outcome.best);
                miss_ = 0.0;
            }
            if (is_lost) result_.status = NSLP_UNFINISHED;
            return;
        }
        outcome = search_pieces(inner_.model, open, std::move(outcome.best), most_nodes);
    }
    result_.status = outcome.status;
    solution_ = std::move(outcome.best);
    if (result_.status == NSLP_GLOBALLY_OPTIMAL) is_within_gap();
}

bool NonsmoothSolve::run() {
    if (!reformulation_.open_conditions().empty()) {
        run_with_open_conditions();
    } else if (!inner_.model.is_mip()) {
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
