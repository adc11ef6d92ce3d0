#include "nonlinear/nlp_solve.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "nonlinear/model_values.hpp"
#include "nonlinear/nlp_end.hpp"
#include "nonlinear/nlp_scaling.hpp"
#include "nonlinear/nlp_start.hpp"
#include "nonlinear/nlp_verdicts.hpp"
#include "nonlinear/stoppable_nlp.hpp"

namespace nlra {

namespace {

class NlpSolve {
  public:
    NlpSolve(const Model& model, ModelFunctions& functions, const Params& controls,
             const NlpOptions& options, Monitor& monitor)
        : model_(model),
          controls_(controls),
          monitor_(monitor),
          functions_(functions),
          options_(options),
          feasibility_tolerance_(controls.get_double(kFeasTol)),
          iteration_limit_(controls.get_int(kIterLimit)),
          end_(functions, controls, poll()) {}

    NlpOutcome run();

  private:
    using Grade = NlpEnd::Grade;
    struct Verdict {
        int status;
        int stop = NLRA_STOP_NONE;
        bool has_point = false;  // end_ is at one
    };

    Verdict solve();
    Verdict solve_without_columns();
    // No trial takes more than `most` iterations.
    Verdict search(const NlpStart& start, bool is_warm, int most);
    Verdict improve(Verdict verdict);
    Verdict start_elsewhere(const Verdict& verdict, const std::vector<double>& x);
    void refine();
    bool solve_by_newton(const NlpStart& start);
    NlpResult attempt(const NlpOptions& options, const NlpStart& start);
    NlpResult call(const NlpBounds& bounds, const NlpStart& start, const NlpOptions& options);
    NlpOutcome finish(const Verdict& verdict);

    StopPoll poll() {
        return [this] { return monitor_.should_stop(); };
    }
    // By size, so that the time of all stays within bounds.
    int further_starts() const {
        constexpr size_t kWork = 400'000, kMost = 20;
        constexpr int kLeast = 3;
        const NlpStructure& structure = functions_.structure();
        const size_t size = structure.jacobian_row.size() + structure.hessian_row.size() + 1;
        if (is_convex_) return kLeast;  // every start leads to the same
        return static_cast<int>(std::clamp(kWork / size, size_t{kLeast}, kMost));
    }
    // A value that no objective has which is bounded, at a point far from everything.
    // Only points that are feasible for their size: all others prove nothing.
    bool runs_away() const {
        constexpr double kFar = 1e8, kFeasible = 1e-6;
        double size = 0.0;
        for (const double v : end_.result.x) size = std::max(size, std::fabs(v));
        return end_.result.objective < -kFar && size > kFar &&
               end_.residuals.violation <= kFeasible * size;
    }

    const Model& model_;
    const Params& controls_;
    Monitor& monitor_;
    ModelFunctions& functions_;
    const NlpOptions options_;
    const double feasibility_tolerance_;
    const long iteration_limit_;
    bool is_convex_ = false;
    long iterations_ = 0;
    NlpEnd end_;  // that the verdict is about
};

NlpResult NlpSolve::call(const NlpBounds& bounds, const NlpStart& start,
                         const NlpOptions& options) {
    const NlpStructure& structure = functions_.structure();
    std::vector<double> last;
    std::optional<NlpResult> result =
        solve_nlp_stoppable(structure, functions_, bounds, start, options, poll(), last);
    if (!result) {
        result.emplace();
        result->status = NlpStatus::kStopped;
        result->iterations = functions_.last_iteration();
        result->x = last.empty() ? std::vector<double>(start.x, start.x + structure.columns)
                                 : std::move(last);
        result->multipliers.resize(static_cast<size_t>(structure.rows));
        result->lower_multipliers.resize(static_cast<size_t>(structure.columns));
        result->upper_multipliers.resize(static_cast<size_t>(structure.columns));
    }
    iterations_ += result->iterations;
    return std::move(*result);
}

NlpResult NlpSolve::attempt(const NlpOptions& options, const NlpStart& start) {
    NlpBounds bounds = functions_.bounds();
    NlpResult result = call(bounds, start, options);
    if (result.status != NlpStatus::kTooFewDegrees) return result;
    // More equations than columns: as inequalities of both sides they leave the method room.
    const size_t rows = static_cast<size_t>(functions_.structure().rows);
    std::vector<double> low(bounds.row_lower, bounds.row_lower + rows);
    std::vector<double> high(bounds.row_upper, bounds.row_upper + rows);
    for (size_t i = 0; i < rows; ++i) {
        if (low[i] != high[i]) continue;
        const double slack = 0.5 * feasibility_tolerance_ * std::max(1.0, std::fabs(low[i]));
        low[i] -= slack;
        high[i] += slack;
    }
    bounds.row_lower = low.data();
    bounds.row_upper = high.data();
    return call(bounds, start, options);
}

NlpSolve::Verdict NlpSolve::solve_without_columns() {
    end_.result.multipliers.assign(static_cast<size_t>(functions_.structure().rows), 0.0);
    if (!end_.look_closer()) return {NSLP_UNFINISHED};
    if (!end_.is_feasible()) return {NSLP_INFEASIBLE};
    return {NSLP_GLOBALLY_OPTIMAL, NLRA_STOP_NONE, true};
}

// Newton's method, from an end of the last solve that has not become much worse.
bool NlpSolve::solve_by_newton(const NlpStart& start) {
    const NlpStructure& structure = functions_.structure();
    NlpResult& result = end_.result;
    result = NlpResult();
    result.x.assign(start.x, start.x + structure.columns);
    result.multipliers.assign(start.multipliers, start.multipliers + structure.rows);
    result.lower_multipliers.resize(result.x.size());
    result.upper_multipliers.resize(result.x.size());
    const long before = end_.steps;
    const bool solved =
        end_.look_closer(true) && end_.grade() == NlpEnd::Grade::kStrong && !end_.may_be_saddle();
    iterations_ += end_.steps - before;
    return solved;
}

// Several settings one after another, until one leads to an end that can be told.
NlpSolve::Verdict NlpSolve::search(const NlpStart& start, bool is_warm, int most) {
    const long begin = iterations_;
    bool measured = false;
    NlpOptions options = options_;
    constexpr int kMaxFurtherIterations = 1000;
    const Verdict optimum{is_convex_ ? NSLP_GLOBALLY_OPTIMAL : NSLP_LOCALLY_OPTIMAL, NLRA_STOP_NONE,
                          true};
    end_.begin_at(start.x);
    if (is_warm && solve_by_newton(start)) return optimum;
    std::optional<NlpResult> weak;
    for (int trial = is_warm ? -1 : 0; trial < 4; ++trial) {
        NlpStart from = start;
        options.warm_start = trial == -1;
        options.adaptive_barrier = options_.adaptive_barrier != (trial == 2);
        options.scaling = options_.scaling && trial != 3;
        options.given_scaling = NlpScaling();
        const std::vector<double> end = end_.result.x;
        if (trial == 1) {
            if (!measured) continue;
            options.given_scaling = scaling_at(functions_, end);
            from.x = end.data();
        }
        const long allowed = trial > 0 ? std::min(most, kMaxFurtherIterations) : most;
        options.max_iterations =
            static_cast<int>(std::clamp<long>(iteration_limit_ - iterations_, 0, allowed));
        if (iterations_ > begin) monitor_.log(1, "Trying again with other settings");
        end_.result = attempt(options, from);
        measured = end_.look_closer();
        if (monitor_.should_stop()) return {NSLP_UNFINISHED, monitor_.reason(), measured};
        const Grade reached = measured ? end_.grade() : Grade::kNone;
        if (measured && ((reached != Grade::kStrong && runs_away()) ||
                         improves_without_end(model_, functions_, end_.result))) {
            return {NSLP_UNBOUNDED};
        }
        if (reached == Grade::kStrong) return optimum;
        if (reached == Grade::kWeak && !weak) weak = end_.result;
        if (end_.result.status == NlpStatus::kInfeasible && !options.warm_start && !weak &&
            !end_.is_feasible()) {
            return {is_convex_ ? NSLP_INFEASIBLE : NSLP_LOCALLY_INFEASIBLE, NLRA_STOP_NONE,
                    measured};
        }
        if (iterations_ >= iteration_limit_) {
            return {NSLP_UNFINISHED, NLRA_STOP_ITERLIMIT, measured};
        }
    }
    if (weak) {
        end_.result = std::move(*weak);
        end_.look_closer();
        return optimum;
    }
    monitor_.log(1, "The optimality conditions are missed by %.1e (rows), %.1e (gradient), %.1e",
                 end_.residuals.primal, end_.residuals.dual, end_.residuals.complementarity);
    return {NSLP_UNFINISHED, NLRA_STOP_NONE, measured};
}

// Newton's method is drawn to any stationary point: where a solve began at one, or the second-order
// conditions fail, go on from near it.
NlpSolve::Verdict NlpSolve::improve(Verdict verdict) {
    constexpr int kTrials = 3;
    constexpr double kBetter = 1e-7;
    for (int trial = 0; trial < kTrials; ++trial) {
        if (!end_.may_be_saddle()) break;
        if (monitor_.should_stop() || iterations_ >= iteration_limit_) break;
        monitor_.log(1, "The point is stationary, but may be no minimum: going on from near it");
        NlpResult kept = end_.result;
        const std::vector<double> near = perturbed(model_, end_.result.x, trial);
        NlpStart start;
        start.x = near.data();
        const Verdict other = search(start, false, options_.max_iterations);
        if (other.status == NSLP_UNBOUNDED) return other;
        const double better = kept.objective - kBetter * std::max(1.0, std::fabs(kept.objective));
        if (other.status == NSLP_LOCALLY_OPTIMAL && end_.result.objective < better) {
            verdict = other;
        } else {
            end_.result = std::move(kept);
            end_.look_closer();
        }
    }
    return verdict;
}

// A minimum of the infeasibility may be one that only this start leads to, as zero does for
// x^2 >= 1.
NlpSolve::Verdict NlpSolve::start_elsewhere(const Verdict& verdict, const std::vector<double>& x) {
    constexpr int kNear = 2, kMaxIterations = 200;
    const NlpResult first = end_.result;
    const auto seed = static_cast<uint64_t>(controls_.get_int(kSeed));
    for (int trial = 0; trial < further_starts(); ++trial) {
        if (monitor_.should_stop() || iterations_ >= iteration_limit_) break;
        monitor_.log(1, "No %s was found: trying again from elsewhere",
                     verdict.status == NSLP_UNFINISHED ? "optimum" : "feasible point");
        const std::vector<double> other =
            trial < kNear ? perturbed(model_, x, trial) : scattered(model_, seed, trial - kNear);
        NlpStart start;
        start.x = other.data();
        const Verdict found = search(start, false, kMaxIterations);
        if (found.status != NSLP_LOCALLY_INFEASIBLE && found.status != NSLP_UNFINISHED) {
            return found;
        }
    }
    end_.result = first;
    Verdict last = verdict;
    last.has_point = end_.look_closer();
    return last;
}

// Tolerances hold for the functions as the solver scales them: rows with large coefficients can be
// missed by much more, which a few steps without scaling mend.
void NlpSolve::refine() {
    if (end_.residuals.violation <= feasibility_tolerance_) return;
    NlpResult kept = end_.result;
    const NlpResiduals before = end_.residuals;
    NlpOptions options = options_;
    options.warm_start = true;
    options.scaling = false;
    options.bound_relaxation = 0.0;
    options.max_iterations = 100;
    const NlpStart start{kept.x.data(), kept.multipliers.data(), kept.lower_multipliers.data(),
                         kept.upper_multipliers.data()};
    end_.result = attempt(options, start);
    if (end_.look_closer() && end_.grade() != Grade::kNone &&
        end_.residuals.violation < before.violation) {
        return;
    }
    end_.result = std::move(kept);
    end_.look_closer();
}

NlpSolve::Verdict NlpSolve::solve() {
    if (is_contradictory(model_, functions_, end_.row_tolerance())) return {NSLP_INFEASIBLE};
    if (model_.cols() == 0) return solve_without_columns();
    is_convex_ = functions_.is_convex();
    const std::vector<double> x = start_point(model_, functions_, monitor_);
    const bool is_warm = !model_.formulas.last.empty();
    const Multipliers multipliers = last_multipliers(model_, functions_);
    NlpStart start;
    start.x = x.data();
    if (is_warm) {
        monitor_.log(1, "Starting where the last solve ended");
        start.multipliers = multipliers.rows.data();
        start.lower_multipliers = multipliers.lower.data();
        start.upper_multipliers = multipliers.upper.data();
    }
    Verdict verdict = search(start, is_warm, options_.max_iterations);
    const bool is_open = verdict.status == NSLP_LOCALLY_INFEASIBLE ||
                         (verdict.status == NSLP_UNFINISHED && verdict.stop == NLRA_STOP_NONE);
    if (is_open && linear_part_is_infeasible(model_, controls_, monitor_)) {
        return {NSLP_INFEASIBLE};
    }
    if (is_open) verdict = start_elsewhere(verdict, x);
    if (verdict.status == NSLP_LOCALLY_OPTIMAL) verdict = improve(verdict);
    if (verdict.status == NSLP_LOCALLY_OPTIMAL || verdict.status == NSLP_GLOBALLY_OPTIMAL) refine();
    return verdict;
}

NlpOutcome NlpSolve::finish(const Verdict& verdict) {
    NlpOutcome outcome{verdict.status, verdict.stop, iterations_, {}};
    if (!verdict.has_point) return outcome;
    const double sense = functions_.sense();
    Solution& solution = outcome.solution;
    solution.x = end_.result.x;
    // For the rows that the functions leave out.
    evaluate(model_, solution);
    count_formulas_of_free_rows(model_, solution);
    solution.dual.assign(static_cast<size_t>(model_.rows()), 0.0);
    solution.dj.resize(end_.result.x.size());
    const std::vector<int>& rows = functions_.model_rows();
    for (size_t i = 0; i < rows.size(); ++i) {
        solution.slack[rows[i]] = model_.rhs[rows[i]] - end_.activity()[i] + 0.0;
        solution.dual[rows[i]] = -sense * end_.result.multipliers[i] + 0.0;
    }
    for (const auto& [row, value] : functions_.constant_rows()) {
        solution.slack[row] = model_.rhs[row] - value + 0.0;
    }
    for (size_t j = 0; j < end_.result.x.size(); ++j) {
        solution.dj[j] =
            sense * (end_.result.lower_multipliers[j] - end_.result.upper_multipliers[j]) + 0.0;
    }
    solution.objective = sense * end_.result.objective + 0.0;
    solution.present = true;
    solution.has_duals = true;
    return outcome;
}

NlpOutcome NlpSolve::run() {
    monitor_.log(1, "Interior point method: %d columns, %d rows (%zu with nonlinear formulas)",
                 functions_.structure().columns, functions_.structure().rows,
                 model_.formulas.rows.size());
    return finish(solve());
}

}  // namespace

NlpOutcome solve_nlp_locally(const Model& model, const Params& controls, const NlpOptions& options,
                             Monitor& monitor, NlpMemory* memory) {
    std::unique_ptr<ModelFunctions> own;
    std::unique_ptr<ModelFunctions>& functions = memory != nullptr ? memory->functions : own;
    if (!functions || !functions->renew(model, monitor)) {
        functions = std::make_unique<ModelFunctions>(model, monitor);
    }
    return NlpSolve(model, *functions, controls, options, monitor).run();
}

LastPoint end_of(const NlpOutcome& outcome) {
    const Solution& solution = outcome.solution;
    if (!solution.present || outcome.status == NSLP_LOCALLY_INFEASIBLE) return {};
    return {solution.x, solution.dj, solution.dual};
}

}  // namespace nlra
