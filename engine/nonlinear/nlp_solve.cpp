#include "nonlinear/nlp_solve.hpp"

#include <algorithm>
#include <cmath>

#include "api/problem.hpp"
#include "nonlinear/nlp_functions.hpp"

namespace nlra {

namespace {

// What the optimality conditions miss, each relative to the numbers that they are made of (the
// scaling is that of Wächter and Biegler 2006).
struct NlpResiduals {
    double primal = 0.0;
    double dual = 0.0;
    double complementarity = 0.0;
};

class Judge {
  public:
    explicit Judge(ModelFunctions& functions)
        : functions_(functions), structure_(functions.structure()) {}

    // False where the functions are not defined. Moves x into its bounds.
    bool measure(NlpResult& result, NlpResiduals& residuals);
    const std::vector<double>& activity() const { return activity_; }

  private:
    ModelFunctions& functions_;
    const NlpStructure& structure_;
    std::vector<double> activity_, gradient_, jacobian_;
};

double violation(double value, double low, double high) {
    const double below = low > -kInfinity ? (low - value) / std::max(1.0, std::fabs(low)) : 0.0;
    const double above = high < kInfinity ? (value - high) / std::max(1.0, std::fabs(high)) : 0.0;
    return std::max({0.0, below, above});
}

bool Judge::measure(NlpResult& result, NlpResiduals& residuals) {
    const NlpBounds bounds = functions_.bounds();
    const int n = structure_.columns, m = structure_.rows;
    for (int j = 0; j < n; ++j) {
        result.x[j] = std::clamp(result.x[j], bounds.lower[j], bounds.upper[j]);
    }
    const double* x = result.x.data();
    activity_.resize(m);
    gradient_.resize(n);
    jacobian_.resize(structure_.jacobian_row.size());
    if (!functions_.objective(x, result.objective) || !functions_.rows(x, activity_.data()) ||
        !functions_.gradient(x, gradient_.data()) || !functions_.jacobian(x, jacobian_.data())) {
        return false;
    }
    double sum = 0.0;
    for (const double value : result.multipliers) sum += std::fabs(value);
    for (int j = 0; j < n; ++j) {
        sum += std::fabs(result.lower_multipliers[j]) + std::fabs(result.upper_multipliers[j]);
    }
    const double scale = std::max(1.0, sum / std::max(1, m + 2 * n) / 100.0);
    // Products of multipliers and distances are parts of the objective's value.
    const double value_scale = std::max(scale, std::min(std::fabs(result.objective), 1e6));
    residuals = NlpResiduals();
    for (int i = 0; i < m; ++i) {
        residuals.primal = std::max(
            residuals.primal, violation(activity_[i], bounds.row_lower[i], bounds.row_upper[i]));
        const double y = result.multipliers[i];
        const double side = y > 0.0 ? bounds.row_upper[i] : bounds.row_lower[i];
        // A multiplier that pushes against a side that is not there counts in full.
        const double gap = std::fabs(side) < kInfinity ? std::fabs(y * (side - activity_[i])) /
                                                             std::max(1.0, std::fabs(side))
                                                       : std::fabs(y);
        residuals.complementarity = std::max(residuals.complementarity, gap / value_scale);
    }
    for (size_t k = 0; k < jacobian_.size(); ++k) {
        gradient_[structure_.jacobian_col[k]] +=
            jacobian_[k] * result.multipliers[structure_.jacobian_row[k]];
    }
    // Multipliers of bounds follow from the rest, which leaves their signs to be looked at.
    for (int j = 0; j < n; ++j) {
        const bool fixed = bounds.lower[j] == bounds.upper[j];
        const double r = gradient_[j];
        const double side = r > 0.0 ? bounds.lower[j] : bounds.upper[j];
        result.lower_multipliers[j] = std::max(r, 0.0);
        result.upper_multipliers[j] = std::max(-r, 0.0);
        if (fixed) continue;
        const double distance = std::fabs(side) < kInfinity
                                    ? std::fabs(x[j] - side) / std::max(1.0, std::fabs(side))
                                    : kInfinity;
        residuals.dual = std::max(
            residuals.dual, std::min(std::fabs(r) / scale, std::fabs(r) * distance / value_scale));
    }
    return std::isfinite(residuals.primal) && std::isfinite(residuals.dual) &&
           std::isfinite(residuals.complementarity);
}

std::vector<double> start_point(const Model& model, Monitor& monitor) {
    std::vector<double> x(static_cast<size_t>(model.cols()), 0.0);
    for (const auto& [column, value] : model.formulas.start) x[column] = value;
    int moved = 0;
    for (int j = 0; j < model.cols(); ++j) {
        const double inside = std::clamp(x[j], model.lower[j], model.upper[j]);
        moved += inside != x[j] && model.formulas.start.count(j) != 0;
        x[j] = inside;
    }
    if (moved > 0) monitor.log(1, "Moved %d starting values into their bounds", moved);
    return x;
}

// Points to begin at where the functions are not defined at the one that was wanted.
std::vector<double> other_start(const Model& model, std::vector<double> x, int trial) {
    constexpr double kFractions[] = {0.6, 0.8, 0.95, 0.3};
    for (int j = 0; j < model.cols(); ++j) {
        const double low = model.lower[j], high = model.upper[j];
        if (low > -kInfinity && high < kInfinity) {
            x[j] = low + (high - low) * kFractions[trial];
        } else {
            x[j] = std::clamp(x[j] + trial + 1.0, low, high);
        }
    }
    return x;
}

bool is_defined(ModelFunctions& functions, const std::vector<double>& x) {
    double value;
    const NlpStructure& structure = functions.structure();
    std::vector<double> out(std::max<size_t>(
        {x.size(), static_cast<size_t>(structure.rows), structure.jacobian_row.size()}));
    return functions.objective(x.data(), value) && functions.rows(x.data(), out.data()) &&
           functions.gradient(x.data(), out.data()) && functions.jacobian(x.data(), out.data()) &&
           std::all_of(out.begin(), out.begin() + functions.structure().jacobian_row.size(),
                       [](double v) { return std::isfinite(v); });
}

class NlpSolve {
  public:
    NlpSolve(nslp_problem& problem, Monitor& monitor)
        : problem_(problem),
          model_(problem.base->model),
          monitor_(monitor),
          functions_(model_, monitor),
          judge_(functions_),
          feasibility_tolerance_(problem.base->controls.get_double(kFeasTol)),
          optimality_tolerance_(problem.base->controls.get_double(kOptTol)) {}

    void run();

  private:
    NlpResult attempt(const NlpOptions& options, const std::vector<double>& start);
    bool is_feasible(const NlpResiduals& r) const {
        return r.primal <= std::max(10.0 * feasibility_tolerance_, 1e-6);
    }
    bool is_optimal(const NlpResiduals& r) const {
        const double tolerance = std::max(10.0 * optimality_tolerance_, 1e-6);
        return is_feasible(r) && r.dual <= tolerance && r.complementarity <= tolerance;
    }
    // A value that no objective has which is bounded, at a point far from everything.
    static bool runs_away(const NlpResult& result) {
        constexpr double kFar = 1e8;
        return result.objective < -kFar &&
               std::any_of(result.x.begin(), result.x.end(),
                           [](double v) { return std::fabs(v) > kFar; });
    }
    bool is_contradictory() const;
    void solve_without_columns();
    void finish(int status, int stop, const NlpResult* point);

    nslp_problem& problem_;
    const Model& model_;
    Monitor& monitor_;
    ModelFunctions functions_;
    Judge judge_;
    const double feasibility_tolerance_, optimality_tolerance_;
    long iterations_ = 0;
};

NlpResult NlpSolve::attempt(const NlpOptions& options, const std::vector<double>& start) {
    // More equations than columns: as inequalities of both sides they leave the method room.
    std::vector<double> low(functions_.bounds().row_lower,
                            functions_.bounds().row_lower + functions_.structure().rows);
    std::vector<double> high(functions_.bounds().row_upper,
                             functions_.bounds().row_upper + functions_.structure().rows);
    NlpBounds bounds = functions_.bounds();
    NlpStart from;
    from.x = start.data();
    NlpResult result = solve_nlp(functions_.structure(), functions_, bounds, from, options);
    if (result.status == NlpStatus::kTooFewDegrees) {
        for (size_t i = 0; i < low.size(); ++i) {
            if (low[i] != high[i]) continue;
            const double slack = 0.5 * feasibility_tolerance_ * std::max(1.0, std::fabs(low[i]));
            low[i] -= slack;
            high[i] += slack;
        }
        bounds.row_lower = low.data();
        bounds.row_upper = high.data();
        result = solve_nlp(functions_.structure(), functions_, bounds, from, options);
    }
    iterations_ += result.iterations;
    return result;
}

void NlpSolve::finish(int status, int stop, const NlpResult* point) {
    nslp_problem::Result& result = problem_.result;
    result.status = status;
    result.stop = stop;
    result.iterations = iterations_;
    if (point == nullptr) return;
    const double sense = functions_.sense();
    Solution& solution = result.solution;
    solution.x = point->x;
    evaluate(model_, solution);  // for the rows that the functions leave out
    solution.dual.assign(static_cast<size_t>(model_.rows()), 0.0);
    solution.dj.resize(point->x.size());
    const std::vector<int>& rows = functions_.model_rows();
    for (size_t i = 0; i < rows.size(); ++i) {
        solution.slack[rows[i]] = model_.rhs[rows[i]] - judge_.activity()[i] + 0.0;
        solution.dual[rows[i]] = -sense * point->multipliers[i] + 0.0;
    }
    for (const auto& [row, value] : functions_.constant_rows()) {
        solution.slack[row] = model_.rhs[row] - value + 0.0;
    }
    for (size_t j = 0; j < point->x.size(); ++j) {
        solution.dj[j] = sense * (point->lower_multipliers[j] - point->upper_multipliers[j]) + 0.0;
    }
    solution.objective = sense * point->objective + 0.0;
    solution.present = true;
    solution.has_duals = true;
}

// Whether bounds exclude each other, or a row that nothing can change misses its own.
bool NlpSolve::is_contradictory() const {
    for (int j = 0; j < model_.cols(); ++j) {
        if (model_.lower[j] > model_.upper[j] + feasibility_tolerance_) return true;
    }
    for (const auto& [row, value] : functions_.constant_rows()) {
        const double low = model_.row_lower(row), high = model_.row_upper(row);
        if (violation(value, low, high) > feasibility_tolerance_) return true;
    }
    return false;
}

void NlpSolve::solve_without_columns() {
    NlpResult result;
    NlpResiduals residuals;
    result.multipliers.assign(static_cast<size_t>(functions_.structure().rows), 0.0);
    if (!judge_.measure(result, residuals)) {
        finish(NSLP_UNFINISHED, NLRA_STOP_NONE, nullptr);
    } else if (!is_feasible(residuals)) {
        finish(NSLP_INFEASIBLE, NLRA_STOP_NONE, nullptr);
    } else {
        finish(NSLP_GLOBALLY_OPTIMAL, NLRA_STOP_NONE, &result);
    }
}

void NlpSolve::run() {
    monitor_.log(1, "Interior point method: %d columns, %d rows (%zu with nonlinear formulas)",
                 functions_.structure().columns, functions_.structure().rows,
                 model_.formulas.rows.size());
    if (is_contradictory()) return finish(NSLP_INFEASIBLE, NLRA_STOP_NONE, nullptr);
    if (model_.cols() == 0) return solve_without_columns();
    std::vector<double> start = start_point(model_, monitor_);
    const std::vector<double> wanted = start;
    for (int trial = 0; trial < 4 && !is_defined(functions_, start); ++trial) {
        if (trial == 0) monitor_.log(1, "The functions are not defined at the starting point");
        start = other_start(model_, wanted, trial);
    }
    const bool convex = functions_.is_convex();
    NlpOptions options;
    options.tolerance = std::min(1e-8, 0.1 * optimality_tolerance_);
    const int limit = problem_.base->controls.get_int(kIterLimit);
    NlpResult result;
    NlpResiduals residuals;
    bool measured = false;
    for (int trial = 0; trial < 3; ++trial) {
        options.adaptive_barrier = trial == 1;
        options.scaling = trial != 2;
        options.max_iterations =
            static_cast<int>(std::min<long>(3000, std::max<long>(0, limit - iterations_)));
        if (trial > 0) monitor_.log(1, "Trying again with other settings");
        result = attempt(options, start);
        measured = judge_.measure(result, residuals);
        if (monitor_.should_stop()) {
            return finish(NSLP_UNFINISHED, monitor_.reason(), measured ? &result : nullptr);
        }
        if (measured && runs_away(result)) {
            return finish(NSLP_UNBOUNDED, NLRA_STOP_NONE, nullptr);
        }
        if (measured && is_optimal(residuals)) {
            return finish(convex ? NSLP_GLOBALLY_OPTIMAL : NSLP_LOCALLY_OPTIMAL, NLRA_STOP_NONE,
                          &result);
        }
        if (result.status == NlpStatus::kInfeasible) {
            return finish(convex ? NSLP_INFEASIBLE : NSLP_LOCALLY_INFEASIBLE, NLRA_STOP_NONE,
                          measured ? &result : nullptr);
        }
        if (iterations_ >= limit) {
            return finish(NSLP_UNFINISHED, NLRA_STOP_ITERLIMIT, measured ? &result : nullptr);
        }
    }
    monitor_.log(1, "The optimality conditions are missed by %.1e (rows), %.1e (gradient), %.1e",
                 residuals.primal, residuals.dual, residuals.complementarity);
    finish(NSLP_UNFINISHED, NLRA_STOP_NONE, measured ? &result : nullptr);
}

}  // namespace

void solve_nlp_locally(nslp_problem& problem, Monitor& monitor) {
    NlpSolve(problem, monitor).run();
}

}  // namespace nlra
