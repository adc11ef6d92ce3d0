#include "search/restated_solve.hpp"

#include <algorithm>
#include <optional>
#include <utility>

#include "analysis/convexity.hpp"
#include "nonlinear/epigraph.hpp"
#include "nonlinear/nlp_options.hpp"
#include "nonlinear/nlp_solve.hpp"
#include "nonlinear/nonsmooth_formulas.hpp"
#include "search/convex_mip.hpp"
#include "search/nonsmooth_solve.hpp"

namespace nlra {
namespace {

double closing_tolerance(const Params& controls) {
    return std::max(10.0 * controls.get_double(kFeasTol), 1e-6);
}

// Smaller ones leave the interior point method too steep a turn.
constexpr double kApexRadius = 1e-7;

StopPoll poll_of(Monitor& monitor) {
    return [&monitor] { return monitor.should_stop(); };
}

// The solution without the columns and rows that have been added to the model.
void cut(const Model& model, Solution& solution) {
    solution.x.resize(static_cast<size_t>(model.cols()));
    if (!solution.has_duals) return;
    solution.dj.resize(static_cast<size_t>(model.cols()));
    solution.dual.resize(static_cast<size_t>(model.rows()));
}

// Away from the apex of all cones nothing has to be rounded there: the solution of the restated
// model as it is, from the rounded one's. Returns the iterations that it took.
long sharpen(const Model& original, const Restatement& restatement, const Params& controls,
             const Params& interior, Monitor& monitor, Solution& solution) {
    if (!restatement.is_off_apex(solution)) return 0;
    const std::unique_ptr<Restatement> exact =
        Restatement::make(original, 0.0, restatement.is_written(), poll_of(monitor));
    if (!exact) return 0;
    Model model = exact->model();
    model.formulas.last = {solution.x, solution.dj, solution.dual};
    const DetailLog detail(monitor);
    NlpOutcome outcome =
        solve_nlp_locally(model, controls, nlp_options(interior, controls), monitor);
    if (outcome.status == NSLP_GLOBALLY_OPTIMAL || outcome.status == NSLP_LOCALLY_OPTIMAL) {
        solution = std::move(outcome.solution);
    }
    return outcome.iterations;
}

// Columns that nobody gave a starting value begin within the bounds that rows imply, and not where
// zero would be moved to their edge: there a function need not be defined.
void start_within(Model& model, const ColumnBounds& bounds) {
    if (!model.formulas.last.empty()) return;
    for (int j = 0; j < model.cols(); ++j) {
        const double low = bounds.lower[j], high = bounds.upper[j];
        const bool is_cut_off =
            (low >= 0.0 && low > model.lower[j]) || (high <= 0.0 && high < model.upper[j]);
        if (!is_cut_off) continue;
        const double room = std::min(high - low, 2.0);
        const double inside = low >= 0.0 ? low + 0.5 * room : high - 0.5 * room;
        model.formulas.start.emplace(j, std::clamp(inside, model.lower[j], model.upper[j]));
    }
}

class RestatedSolve {
  public:
    RestatedSolve(nslp_problem& problem, const Restatement& restatement, Monitor& monitor)
        : problem_(problem),
          base_(*problem.base),
          restatement_(restatement),
          monitor_(monitor),
          inner_(stand_in_) {
        stand_in_.model = restatement.model();
        stand_in_.controls = base_.controls;
        stand_in_.mip_starts = base_.mip_starts;
        inner_.controls = problem.controls;
        inner_.interior = problem.interior;
    }

    bool run(bool continuous);

  private:
    bool solve_smooth(bool continuous);
    void solve_continuous(const Model& form);
    bool accept();

    nslp_problem& problem_;
    nlra_problem& base_;
    const Restatement& restatement_;
    Monitor& monitor_;
    nlra_problem stand_in_;
    nslp_problem inner_;
    LastPoint last_;
};

void RestatedSolve::solve_continuous(const Model& form) {
    const Params& controls = base_.controls;
    NlpOutcome outcome =
        solve_nlp_locally(form, controls, nlp_options(problem_.interior, controls), monitor_);
    if (outcome.status == NSLP_LOCALLY_OPTIMAL) outcome.status = NSLP_GLOBALLY_OPTIMAL;
    if (outcome.status == NSLP_LOCALLY_INFEASIBLE) outcome.status = NSLP_INFEASIBLE;
    if (outcome.status == NSLP_GLOBALLY_OPTIMAL && form.cols() == base_.model.cols()) {
        outcome.iterations += sharpen(base_.model, restatement_, controls, problem_.interior,
                                      monitor_, outcome.solution);
    }
    last_ = end_of(outcome);
    inner_.result.status = outcome.status;
    inner_.result.stop = outcome.stop;
    inner_.result.iterations = outcome.iterations;
    inner_.result.solution = std::move(outcome.solution);
}

// The model that is left when kinks are out of it must be proven convex.
bool RestatedSolve::solve_smooth(bool continuous) {
    Model form = stand_in_.model;
    if (function_kinds(form.formulas).nonsmooth) {
        std::optional<Model> smooth = epigraph_form(form);
        if (!smooth || function_kinds(smooth->formulas).nonsmooth) return false;
        form = std::move(*smooth);
    }
    ColumnBounds bounds;
    if (!is_convex_within_rows(form, bounds, poll_of(monitor_))) return false;
    monitor_.log(1, "Restated as a convex problem");
    if (continuous) {
        start_within(form, bounds);
        solve_continuous(form);
        return true;
    }
    for (int j = 0; j < form.cols(); ++j) {
        if (form.coltype[j] == 'C') form.set_bounds(j, bounds.lower[j], bounds.upper[j]);
    }
    return solve_convex_mip(inner_, form, monitor_);
}

// Whether what has been found out holds for the problem itself.
bool RestatedSolve::accept() {
    nslp_problem::Result& result = inner_.result;
    cut(base_.model, result.solution);
    const bool closes = result.solution.present &&
                        restatement_.close(result.solution, closing_tolerance(base_.controls));
    switch (result.status) {
        case NSLP_GLOBALLY_OPTIMAL:
            return closes;
        case NSLP_INFEASIBLE:
            result.solution.clear();
            return true;
        case NSLP_UNBOUNDED:
            result.solution.clear();
            return restatement_.is_equivalent(poll_of(monitor_));
        default:
            if (!closes) result.solution.clear();
            return result.stop != NLRA_STOP_NONE;
    }
}

bool RestatedSolve::run(bool continuous) {
    const std::string obstacle = solve_nonsmooth(inner_, monitor_);
    if (!obstacle.empty() && !solve_smooth(continuous)) return false;
    if (!accept()) {
        monitor_.log(1, "The restated problem has not settled it: trying the problem itself");
        return false;
    }
    SolveInfo& info = base_.info;
    info.best_bound = stand_in_.info.best_bound;
    info.rel_gap = stand_in_.info.rel_gap;
    info.nodes = stand_in_.info.nodes;
    info.simplex_iterations = stand_in_.info.simplex_iterations;
    info.barrier_iterations = stand_in_.info.barrier_iterations;
    base_.mip_starts.clear();
    base_.model.formulas.last = std::move(last_);
    problem_.result = std::move(inner_.result);
    return true;
}

}  // namespace

bool solve_restated(nslp_problem& problem, bool continuous, Monitor& monitor) {
    for (const bool write_out : {false, true}) {
        const std::unique_ptr<Restatement> restatement =
            Restatement::make(problem.base->model, kApexRadius, write_out, poll_of(monitor));
        if (restatement && RestatedSolve(problem, *restatement, monitor).run(continuous)) {
            return true;
        }
    }
    return false;
}

std::unique_ptr<StandIn> convex_stand_in(const nlra_problem& problem, Monitor& monitor) {
    auto out = std::make_unique<StandIn>();
    out->restatement = Restatement::make(problem.model, kApexRadius, false, poll_of(monitor));
    if (!out->restatement) return nullptr;
    const Model& model = out->restatement->model();
    ColumnBounds bounds;
    const bool is_convex = model.formulas.empty()
                               ? find_nonconvexity(model, poll_of(monitor)).empty()
                               : is_convex_within_rows(model, bounds, poll_of(monitor));
    if (!is_convex || monitor.should_stop()) return nullptr;
    monitor.log(1, "Restated as a convex problem");
    out->problem.model = model;
    out->problem.controls = problem.controls;
    out->problem.info = problem.info;
    out->problem.mip_starts = problem.mip_starts;
    return out;
}

void StandIn::hand_back(nlra_problem& original, Monitor& monitor) {
    const double tolerance = closing_tolerance(original.controls);
    original.info = problem.info;
    SolveInfo& info = original.info;
    const auto take = [&](Solution& from, Solution& to) {
        if (!from.present) return true;
        to = std::move(from);
        if (restatement->close(to, tolerance)) return true;
        monitor.log(1, "The restated problem's solution is none of the problem itself");
        to.clear();
        return false;
    };
    // Where there is no optimum the point is none of interest.
    if (info.lp_status == NLRA_LP_INFEAS || info.lp_status == NLRA_LP_UNBOUNDED) {
        problem.lp_solution.clear();
    }
    if (info.lp_status == NLRA_LP_OPTIMAL && !original.model.is_mip()) {
        const Params interior(interior_control_table());
        info.barrier_iterations += sharpen(original.model, *restatement, original.controls,
                                           interior, monitor, problem.lp_solution);
        if (info.mip_status == NLRA_MIP_OPTIMAL) problem.mip_solution = problem.lp_solution;
    }
    const bool is_unbounded =
        info.lp_status == NLRA_LP_UNBOUNDED || info.mip_status == NLRA_MIP_UNBOUNDED;
    const bool holds = !is_unbounded || restatement->is_equivalent(poll_of(monitor));
    if (!take(problem.lp_solution, original.lp_solution) || !holds) {
        info.lp_status = NLRA_LP_UNSOLVED;
    }
    info.lp_objective = original.lp_solution.objective;
    if (!take(problem.mip_solution, original.mip_solution) || !holds) {
        info.mip_status = NLRA_MIP_NO_SOL_FOUND;
    }
    info.mip_objective = original.mip_solution.objective;
}

}  // namespace nlra
