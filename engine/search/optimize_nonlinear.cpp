#include "search/optimize_nonlinear.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <utility>

#include "api/problem.hpp"
#include "nonlinear/epigraph.hpp"
#include "nonlinear/model_values.hpp"
#include "nonlinear/nlp_functions.hpp"
#include "nonlinear/nlp_judge.hpp"
#include "nonlinear/nlp_options.hpp"
#include "nonlinear/nlp_solve.hpp"
#include "nonlinear/nonsmooth_formulas.hpp"
#include "nonlinear/user_function.hpp"
#include "search/convex_mip.hpp"
#include "search/kink_descent.hpp"
#include "search/monitor.hpp"
#include "search/nonlinear_results.hpp"
#include "search/nonsmooth_solve.hpp"
#include "search/report.hpp"
#include "search/restated_solve.hpp"
#include "search/unused_columns.hpp"
#include "store/error.hpp"

namespace nlra {

namespace {

bool is_continuous(const Model& model) {
    if (!model.is_mip()) return true;
    bool fixed = model.sets.empty() && model.indicators.empty();
    for (int j = 0; fixed && j < model.cols(); ++j) {
        const bool integral = model.coltype[j] == 'B' || model.coltype[j] == 'I';
        fixed = model.coltype[j] == 'C' || (integral && model.lower[j] == model.upper[j] &&
                                            model.lower[j] == std::round(model.lower[j]));
    }
    return fixed;
}

// Cuts the solution of a model that columns and rows have been added to down to the model's own,
// with objective and slacks by the model's formulas. False, and no solution, where they are not
// defined.
bool cut_down(const Model& model, Solution& solution) {
    solution.x.resize(static_cast<size_t>(model.cols()));
    if (solution.has_duals) {
        solution.dj.resize(static_cast<size_t>(model.cols()));
        solution.dual.resize(static_cast<size_t>(model.rows()));
    }
    try {
        evaluate_with_formulas(model, solution);
    } catch (const Error&) {
        solution.clear();
    }
    return solution.present;
}

// A column that bounds a function may be far from it where nothing holds it there, as where the
// slope is too flat to be told from none.
bool is_tight(double objective, const Solution& solution) {
    constexpr double kTolerance = 1e-5;
    return std::fabs(objective - solution.objective) <=
           kTolerance * std::max(1.0, std::fabs(objective));
}

bool meets_rows(const Model& model, const Solution& solution, double tolerance) {
    for (int i = 0; i < model.rows(); ++i) {
        const double value = model.rhs[i] - solution.slack[i];
        const double miss = violation(value, model.row_lower(i), model.row_upper(i));
        if (!(miss <= tolerance)) return false;
    }
    return true;
}

// A local end of one form is a global one where another form is proven to be convex.
void judge_globally(const Model& model, NlpOutcome& outcome, Monitor& monitor) {
    const bool is_optimum = outcome.status == NSLP_LOCALLY_OPTIMAL;
    if (!is_optimum && outcome.status != NSLP_LOCALLY_INFEASIBLE) return;
    if (!ModelFunctions(model, monitor).is_convex()) return;
    outcome.status = is_optimum ? NSLP_GLOBALLY_OPTIMAL : NSLP_INFEASIBLE;
}

// Nothing when the smooth form's end says nothing about the model.
std::optional<NlpOutcome> solve_smooth_form(nslp_problem& problem, const Model& smooth,
                                            Monitor& monitor) {
    const Model& model = problem.base->model;
    const Params& controls = problem.base->controls;
    const NlpOptions options = nlp_options(problem.interior, controls);
    NlpOutcome outcome = solve_nlp_locally(smooth, controls, options, monitor, problem.nlp.get());
    if (outcome.status == NSLP_UNFINISHED && outcome.stop == NLRA_STOP_NONE) return {};
    judge_globally(model, outcome, monitor);
    if (!outcome.solution.present) return outcome;
    const double objective = outcome.solution.objective;
    if (!cut_down(model, outcome.solution)) return {};
    constexpr double kLoosest = 1e-6;
    const double tolerance = std::max(10.0 * controls.get_double(kFeasTol), kLoosest);
    if (is_optimum(outcome.status) && !(is_tight(objective, outcome.solution) &&
                                        meets_rows(model, outcome.solution, tolerance))) {
        return {};
    }
    return outcome;
}

// Norms have no derivative where they are zero, which is where many an optimum is: that of a sum of
// distances, say. True when the model with rounded norms tells the end.
bool settle_norms(nslp_problem& problem, NlpOutcome& outcome, Monitor& monitor) {
    constexpr double kRadius = 1e-6;  // smaller ones leave the method too steep a turn
    const std::optional<Model> rounded = epigraph_form(problem.base->model, kRadius);
    if (!rounded) return false;
    monitor.log(1, "Trying again with norms rounded where they are zero");
    std::optional<NlpOutcome> settled = solve_smooth_form(problem, *rounded, monitor);
    if (!settled) return false;
    settled->iterations += outcome.iterations;
    outcome = std::move(*settled);
    return true;
}

void solve_continuous(nslp_problem& problem, const std::optional<Model>& smooth, Monitor& monitor) {
    Model& model = problem.base->model;
    std::optional<NlpOutcome> outcome;
    bool has_kinks = function_kinds(model.formulas).nonsmooth;
    bool is_smooth_form = smooth.has_value();
    if (!problem.nlp) problem.nlp = std::make_shared<NlpMemory>();
    if (smooth) {
        outcome = solve_smooth_form(problem, *smooth, monitor);
        if (outcome) has_kinks = function_kinds(smooth->formulas).nonsmooth;
        if (!outcome) monitor.log(1, "Trying again with subgradients at all kinks");
    }
    const Params& controls = problem.base->controls;
    if (!outcome) {
        is_smooth_form = false;
        outcome = solve_nlp_locally(model, controls, nlp_options(problem.interior, controls),
                                    monitor, problem.nlp.get());
    }
    if (outcome->status == NSLP_UNFINISHED && outcome->stop == NLRA_STOP_NONE) {
        is_smooth_form |= settle_norms(problem, *outcome, monitor);
    }
    if (has_kinks) settle_kinks(problem, *outcome, monitor);
    // Functions of the user's do not outlive the solve.
    if (!model.formulas.functions.empty()) problem.nlp.reset();
    if (is_optimum(outcome->status)) {
        problem.memory.emplace(nslp_problem::Memory{controls, problem.interior, is_smooth_form});
    }
    SolveInfo& info = problem.base->info;
    info.barrier_iterations = outcome->iterations;
    info.rel_gap = std::numeric_limits<double>::infinity();
    if (outcome->status == NSLP_GLOBALLY_OPTIMAL) {
        info.best_bound = outcome->solution.objective;
        info.rel_gap = 0.0;
    }
    model.formulas.last = end_of(*outcome);
    problem.result.status = outcome->status;
    problem.result.stop = outcome->stop;
    problem.result.iterations = outcome->iterations;
    problem.result.solution = std::move(outcome->solution);
}

bool solve_discrete(nslp_problem& problem, const std::optional<Model>& smooth, Monitor& monitor) {
    const Model& model = problem.base->model;
    if (!smooth || !solve_convex_mip(problem, *smooth, monitor)) {
        return solve_convex_mip(problem, model, monitor);
    }
    Solution& solution = problem.result.solution;
    if (solution.present && !cut_down(model, solution)) problem.result.status = NSLP_UNFINISHED;
    return true;
}

// The first method that takes the model.
void solve(nslp_problem& problem, Monitor& monitor) {
    const Model& model = problem.base->model;
    if (solve_restated(problem, is_continuous(model), monitor)) return;
    const std::string obstacle = solve_nonsmooth(problem, monitor);
    if (obstacle.empty()) return;
    const bool has_kinks = function_kinds(model.formulas).nonsmooth;
    std::optional<Model> smooth;
    if (has_kinks) smooth = epigraph_form(model);
    if (smooth) {
        monitor.log(1, "Functions with kinks are bounded from one side: %d columns, %d rows added",
                    smooth->cols() - model.cols(), smooth->rows() - model.rows());
    }
    if (has_kinks && (!smooth || function_kinds(smooth->formulas).nonsmooth)) {
        monitor.log(1, "Functions with kinks are not reformulated (%s): subgradients are used",
                    obstacle.c_str());
    }
    if (is_continuous(model)) return solve_continuous(problem, smooth, monitor);
    if (solve_discrete(problem, smooth, monitor)) return;
    const std::string kinks = " (functions with kinks are not reformulated: " + obstacle + ")";
    fail(NLRA_ERROR_UNSUPPORTED,
         "a problem with nonlinear formulas that is not convex cannot have integer or "
         "semi-continuous columns, sets or indicators: the nonlinear solver has no search for such "
         "problems%s",
         has_kinks ? kinks.c_str() : "");
}

const char* status_text(int status) {
    static const char* const texts[] = {"not started",        "locally optimal", "globally optimal",
                                        "locally infeasible", "infeasible",      "unbounded",
                                        "unfinished"};
    return texts[status];
}

}  // namespace

void optimize_nonlinear(nslp_problem& problem) {
    Monitor monitor(*problem.base);
    log_header(*problem.base, monitor);
    const Model& model = problem.base->model;
    Solution& solution = problem.result.solution;
    if (stands(problem, monitor)) {
        keep_optimum(problem, monitor);
    } else {
        problem.memory.reset();
        problem.base->drop_solutions();
        try {
            solve(problem, monitor);
        } catch (const UserFunctionFailed&) {
            problem.result = {};
            problem.result.status = NSLP_UNFINISHED;
            problem.result.stop = NLRA_STOP_USER;
            fail(NLRA_ERROR_STATE, "a user function failed");
        }
        if (problem.result.status == NSLP_INFEASIBLE) solution.clear();
        settle_unused_columns(model, solution);
        tell_problem_beneath(problem);
    }
    problem.base->info.seconds = monitor.elapsed();
    monitor.log(1, "Nonlinear problem: %s, objective %.10g, %ld iterations, %.2f s",
                status_text(problem.result.status), solution.objective, problem.result.iterations,
                monitor.elapsed());
}

}  // namespace nlra
