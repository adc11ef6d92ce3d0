#include "nonlinear/nlp_solve.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "nonlinear/model_values.hpp"
#include "nonlinear/nlp_functions.hpp"
#include "nonlinear/nlp_judge.hpp"
#include "nonlinear/nlp_scaling.hpp"
#include "nonlinear/nlp_start.hpp"
#include "nonlinear/nlp_verdicts.hpp"
#include "nonlinear/stoppable_nlp.hpp"

namespace nlra {

namespace {

class NlpSolve {
  public:
    NlpSolve(const Model& model, const Params& controls, const NlpOptions& options,
             Monitor& monitor)
        : model_(model),
          controls_(controls),
          monitor_(monitor),
          functions_(model, monitor),
          judge_(functions_),
          options_(options),
          feasibility_tolerance_(controls.get_double(kFeasTol)),
          optimality_tolerance_(controls.get_double(kOptTol)),
          iteration_limit_(controls.get_int(kIterLimit)) {}

    NlpOutcome run();

  private:
    struct Verdict {
        int status;
        int stop = NLRA_STOP_NONE;
        bool has_point = false;  // result_ is one
    };

    Verdict solve();
    Verdict solve_without_columns();
    // No trial takes more than `most` iterations.
    Verdict search(const NlpStart& start, bool is_warm, int most);
    Verdict improve(Verdict verdict);
    Verdict start_elsewhere(const Verdict& verdict, const std::vector<double>& x);
    void refine();
    NlpResult attempt(const NlpOptions& options, const NlpStart& start);
    NlpResult call(const NlpBounds& bounds, const NlpStart& start, const NlpOptions& options);
    NlpOutcome finish(const Verdict& verdict);

    StopPoll poll() {
        return [this] { return monitor_.should_stop(); };
    }
    // What an interior point method can promise.
    double row_tolerance() const { return std::max(10.0 * feasibility_tolerance_, 1e-6); }
    bool is_feasible() const { return residuals_.primal <= row_tolerance(); }
    // How far an end meets the conditions of an optimum: not at all, as far as derivatives in their
    // own units tell, or as far as what the objective can still gain.
    enum class Grade { kNone, kWeak, kStrong };
    Grade grade() const;
    bool look_closer();
    void try_other_multipliers();
    // By size, so that the time of all stays within bounds.
    int further_starts() const {
        constexpr size_t kWork = 400'000, kMost = 20, kLeast = 3;
        const NlpStructure& structure = functions_.structure();
        const size_t size = structure.jacobian_row.size() + structure.hessian_row.size() + 1;
        return static_cast<int>(std::clamp(kWork / size, kLeast, kMost));
    }
    // A value that no objective has which is bounded, at a point far from everything.
    // Only points that are feasible for their size: all others prove nothing.
    bool runs_away() const {
        constexpr double kFar = 1e8, kFeasible = 1e-6;
        double size = 0.0;
        for (const double v : result_.x) size = std::max(size, std::fabs(v));
        return result_.objective < -kFar && size > kFar && residuals_.violation <= kFeasible * size;
    }

    const Model& model_;
    const Params& controls_;
    Monitor& monitor_;
    ModelFunctions functions_;
    Judge judge_;
    const NlpOptions options_;
    const double feasibility_tolerance_, optimality_tolerance_;
    const long iteration_limit_;
    bool is_convex_ = false;
    long iterations_ = 0;
    // The point that the verdict is about.
    NlpResult result_;
    NlpResiduals residuals_;
    const NewtonModel* closer_ = nullptr;  // at it
    double objective_at_start_ = 0.0;
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
    result_.multipliers.assign(static_cast<size_t>(functions_.structure().rows), 0.0);
    if (!judge_.measure(result_, residuals_)) return {NSLP_UNFINISHED};
    if (!is_feasible()) return {NSLP_INFEASIBLE};
    return {NSLP_GLOBALLY_OPTIMAL, NLRA_STOP_NONE, true};
}

// Measures the point, and improves it where its objective can still gain.
bool NlpSolve::look_closer() {
    closer_ = nullptr;
    if (!judge_.measure(result_, residuals_)) return false;
    if (is_feasible() && std::isfinite(result_.objective)) {
        closer_ = polish(judge_, result_, residuals_, poll());
        if (functions_.structure().rows > 0 && grade() != Grade::kStrong) try_other_multipliers();
    }
    return true;
}

void NlpSolve::try_other_multipliers() {
    const NlpResult kept = result_;
    const Grade reached = grade();
    if (renew_multipliers(judge_, result_, poll()) && judge_.measure(result_, residuals_)) {
        closer_ = polish(judge_, result_, residuals_, poll());
        if (grade() > reached) return;
    }
    result_ = kept;
    judge_.measure(result_, residuals_);
    closer_ = judge_.look_closer(result_, poll());
}

NlpSolve::Grade NlpSolve::grade() const {
    constexpr double kShare = 1e-7, kRounding = 1e-20, kSlope = 1e-6, kMultipliers = 1e-6;
    constexpr double kMostTerm = 1e9;  // the rest of what cancels is rounding
    if (!is_feasible()) return Grade::kNone;
    const double value = std::fabs(result_.objective);
    if (closer_ != nullptr && closer_->is_convex()) {
        const double gain = closer_->gain() + residuals_.penalty;
        if (gain <= std::max(kShare * value, kRounding * closer_->size()) &&
            closer_->multiplier_error() <= kMultipliers && residuals_.term <= kMostTerm) {
            return Grade::kStrong;
        }
    }
    const double tolerance = std::max(10.0 * optimality_tolerance_, 1e-6);
    if (residuals_.dual > tolerance || residuals_.complementarity > tolerance) return Grade::kNone;
    if (closer_ == nullptr) return Grade::kStrong;
    const double range = std::fabs(objective_at_start_ - result_.objective);
    if (closer_->slope() > kSlope * std::max(value, range)) return Grade::kNone;
    return closer_->is_convex() ? Grade::kWeak : Grade::kStrong;
}

// Several settings one after another, until one leads to an end that can be told.
NlpSolve::Verdict NlpSolve::search(const NlpStart& start, bool is_warm, int most) {
    const long begin = iterations_;
    bool measured = false;
    NlpOptions options = options_;
    constexpr int kMaxFurtherIterations = 1000;
    const Verdict optimum{is_convex_ ? NSLP_GLOBALLY_OPTIMAL : NSLP_LOCALLY_OPTIMAL, NLRA_STOP_NONE,
                          true};
    if (!functions_.objective(start.x, objective_at_start_)) objective_at_start_ = 0.0;
    std::optional<NlpResult> weak;
    for (int trial = is_warm ? -1 : 0; trial < 4; ++trial) {
        NlpStart from = start;
        options.warm_start = trial == -1;
        options.adaptive_barrier = options_.adaptive_barrier != (trial == 2);
        options.scaling = options_.scaling && trial != 3;
        options.given_scaling = NlpScaling();
        const std::vector<double> end = result_.x;
        if (trial == 1) {
            if (!measured) continue;
            options.given_scaling = scaling_at(functions_, end);
            from.x = end.data();
        }
        const long allowed = trial > 0 ? std::min(most, kMaxFurtherIterations) : most;
        options.max_iterations =
            static_cast<int>(std::clamp<long>(iteration_limit_ - iterations_, 0, allowed));
        if (iterations_ > begin) monitor_.log(1, "Trying again with other settings");
        result_ = attempt(options, from);
        measured = look_closer();
        if (monitor_.should_stop()) return {NSLP_UNFINISHED, monitor_.reason(), measured};
        if (measured && (runs_away() || improves_without_end(model_, functions_, result_))) {
            return {NSLP_UNBOUNDED};
        }
        const Grade reached = measured ? grade() : Grade::kNone;
        if (reached == Grade::kStrong) return optimum;
        if (reached == Grade::kWeak && !weak) weak = result_;
        if (result_.status == NlpStatus::kInfeasible && !options.warm_start && !weak &&
            !is_feasible()) {
            return {is_convex_ ? NSLP_INFEASIBLE : NSLP_LOCALLY_INFEASIBLE, NLRA_STOP_NONE,
                    measured};
        }
        if (iterations_ >= iteration_limit_) {
            return {NSLP_UNFINISHED, NLRA_STOP_ITERLIMIT, measured};
        }
    }
    if (weak) {
        result_ = std::move(*weak);
        look_closer();
        return optimum;
    }
    monitor_.log(1, "The optimality conditions are missed by %.1e (rows), %.1e (gradient), %.1e",
                 residuals_.primal, residuals_.dual, residuals_.complementarity);
    return {NSLP_UNFINISHED, NLRA_STOP_NONE, measured};
}

// Newton's method is drawn to any stationary point: where a solve began at one, or the second-order
// conditions fail, go on from near it.
NlpSolve::Verdict NlpSolve::improve(Verdict verdict) {
    constexpr int kTrials = 3;
    constexpr double kBetter = 1e-7;
    for (int trial = 0; trial < kTrials; ++trial) {
        if (closer_ == nullptr || closer_->is_convex()) break;
        if (monitor_.should_stop() || iterations_ >= iteration_limit_) break;
        monitor_.log(1, "The point is stationary, but may be no minimum: going on from near it");
        NlpResult kept = result_;
        const std::vector<double> near = perturbed(model_, result_.x, trial);
        NlpStart start;
        start.x = near.data();
        const Verdict other = search(start, false, options_.max_iterations);
        if (other.status == NSLP_UNBOUNDED) return other;
        const double better = kept.objective - kBetter * std::max(1.0, std::fabs(kept.objective));
        if (other.status == NSLP_LOCALLY_OPTIMAL && result_.objective < better) {
            verdict = other;
        } else {
            result_ = std::move(kept);
            look_closer();
        }
    }
    return verdict;
}

// A minimum of the infeasibility may be one that only this start leads to, as zero does for
// x^2 >= 1.
NlpSolve::Verdict NlpSolve::start_elsewhere(const Verdict& verdict, const std::vector<double>& x) {
    constexpr int kNear = 2, kMaxIterations = 200;
    const NlpResult first = result_;
    const auto seed = static_cast<uint64_t>(controls_.get_int(kSeed));
    for (int trial = 0; trial < further_starts(); ++trial) {
        if (monitor_.should_stop() || iterations_ >= iteration_limit_) break;
        monitor_.log(1, "No feasible point was found: trying again from elsewhere");
        const std::vector<double> other =
            trial < kNear ? perturbed(model_, x, trial) : scattered(model_, seed, trial - kNear);
        NlpStart start;
        start.x = other.data();
        const Verdict found = search(start, false, kMaxIterations);
        if (found.status != NSLP_LOCALLY_INFEASIBLE && found.status != NSLP_UNFINISHED) {
            return found;
        }
    }
    result_ = first;
    Verdict last = verdict;
    last.has_point = look_closer();
    return last;
}

// Tolerances hold for the functions as the solver scales them: rows with large coefficients can be
// missed by much more, which a few steps without scaling mend.
void NlpSolve::refine() {
    if (residuals_.violation <= feasibility_tolerance_) return;
    NlpResult kept = result_;
    const NlpResiduals before = residuals_;
    NlpOptions options = options_;
    options.warm_start = true;
    options.scaling = false;
    options.bound_relaxation = 0.0;
    options.max_iterations = 100;
    const NlpStart start{kept.x.data(), kept.multipliers.data(), kept.lower_multipliers.data(),
                         kept.upper_multipliers.data()};
    result_ = attempt(options, start);
    if (look_closer() && grade() != Grade::kNone && residuals_.violation < before.violation) {
        return;
    }
    result_ = std::move(kept);
    look_closer();
}

NlpSolve::Verdict NlpSolve::solve() {
    if (is_contradictory(model_, functions_, row_tolerance())) return {NSLP_INFEASIBLE};
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
    solution.x = result_.x;
    // For the rows that the functions leave out.
    evaluate(model_, solution);
    count_formulas_of_free_rows(model_, solution);
    solution.dual.assign(static_cast<size_t>(model_.rows()), 0.0);
    solution.dj.resize(result_.x.size());
    const std::vector<int>& rows = functions_.model_rows();
    for (size_t i = 0; i < rows.size(); ++i) {
        solution.slack[rows[i]] = model_.rhs[rows[i]] - judge_.activity()[i] + 0.0;
        solution.dual[rows[i]] = -sense * result_.multipliers[i] + 0.0;
    }
    for (const auto& [row, value] : functions_.constant_rows()) {
        solution.slack[row] = model_.rhs[row] - value + 0.0;
    }
    for (size_t j = 0; j < result_.x.size(); ++j) {
        solution.dj[j] =
            sense * (result_.lower_multipliers[j] - result_.upper_multipliers[j]) + 0.0;
    }
    solution.objective = sense * result_.objective + 0.0;
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
                             Monitor& monitor) {
    return NlpSolve(model, controls, options, monitor).run();
}

LastPoint end_of(const NlpOutcome& outcome) {
    const Solution& solution = outcome.solution;
    if (!solution.present || outcome.status == NSLP_LOCALLY_INFEASIBLE) return {};
    return {solution.x, solution.dj, solution.dual};
}

}  // namespace nlra
