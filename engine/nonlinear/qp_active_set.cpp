#include "nonlinear/qp_active_set.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "analysis/ldlt.hpp"

namespace nlra {

namespace {

constexpr double kRegularization = 1e-9;  // of the scaled system; refinement takes it out again
constexpr double kAccurate = 1e-14;       // nothing to gain beyond
constexpr double kFlopBudget = 2e10;      // of all factorizations together, a few seconds

// The system that the active constraints define: unknowns are the columns between their bounds and
// the duals of the active rows.
class ActiveSystem {
  public:
    ActiveSystem(const QuadraticProgram& program, const ActiveSet& active, StopPoll poll)
        : program_(program), active_(active), factorization_(std::move(poll)) {}

    // Solve from `point`, whose inactive duals become zero and active columns sit on their bounds.
    // False when the budget of operations does not allow it.
    bool solve(PrimalDual& point, double& flops_left);

  private:
    double side(int row) const {
        return active_.rows[row] == Active::kUpper ? program_.row_upper[row]
                                                   : program_.row_lower[row];
    }
    void number_unknowns();
    void assemble(const PrimalDual& point);
    void equilibrate();
    void fix_slopes(const PrimalDual& point);
    double linear_residual(const PrimalDual& point, std::vector<double>& out);
    double residual(const PrimalDual& point, std::vector<double>& out);
    void add_hessian(const QuadTerm& term, double weight);
    void add_jacobian(int row, int col, double coefficient);

    const QuadraticProgram& program_;
    const ActiveSet& active_;
    std::vector<int> column_unknown_, row_unknown_;
    int free_columns_ = 0;
    int unknowns_ = 0;
    std::vector<SymmetricEntry> entries_, scaled_;
    std::vector<double> scale_, gradient_, activity_;
    std::vector<double> fixed_slope_;  // of programs with linear rows: by unknown, without those
    std::vector<signed char> signs_;
    SparseLdlt factorization_;
};

void ActiveSystem::number_unknowns() {
    column_unknown_.assign(program_.columns, -1);
    row_unknown_.assign(program_.rows, -1);
    free_columns_ = 0;
    for (int j = 0; j < program_.columns; ++j) {
        if (active_.columns[j] == Active::kNone) column_unknown_[j] = free_columns_++;
    }
    unknowns_ = free_columns_;
    for (int i = 0; i < program_.rows; ++i) {
        if (active_.rows[i] != Active::kNone) row_unknown_[i] = unknowns_++;
    }
    signs_.assign(unknowns_, -1);
    std::fill_n(signs_.begin(), free_columns_, static_cast<signed char>(1));
}

void ActiveSystem::add_hessian(const QuadTerm& term, double weight) {
    const int a = column_unknown_[term.col1];
    const int b = column_unknown_[term.col2];
    if (a < 0 || b < 0) return;
    entries_.push_back({a, b, (a == b ? 2.0 : 1.0) * weight * term.value});
}

void ActiveSystem::add_jacobian(int row, int col, double coefficient) {
    const int a = row_unknown_[row];
    const int b = column_unknown_[col];
    if (a >= 0 && b >= 0) entries_.push_back({a, b, coefficient});
}

// Hessian of the Lagrangian and active Jacobian at the point. The pattern depends on the active
// sets only.
void ActiveSystem::assemble(const PrimalDual& point) {
    entries_.clear();
    for (const QuadTerm& term : program_.objective_terms) add_hessian(term, 1.0);
    for (int i = 0; i < program_.rows; ++i) {
        if (row_unknown_[i] < 0) continue;
        for (int64_t k = program_.start[i]; k < program_.start[i + 1]; ++k) {
            add_jacobian(i, program_.index[k], program_.value[k]);
        }
    }
    for (const QuadraticProgram::Form& form : program_.forms) {
        if (row_unknown_[form.row] < 0) continue;
        for (int64_t k = form.begin; k < form.end; ++k) {
            const QuadTerm& term = program_.form_terms[k];
            add_hessian(term, -point.y[form.row]);
            add_jacobian(form.row, term.col1, term.value * point.x[term.col2]);
            add_jacobian(form.row, term.col2, term.value * point.x[term.col1]);
        }
    }
    for (int k = 0; k < unknowns_; ++k) entries_.push_back({k, k, 0.0});
}

// Scale rows and columns alike towards a largest entry of one, then regularize.
void ActiveSystem::equilibrate() {
    scale_.assign(unknowns_, 1.0);
    std::vector<double> largest(unknowns_);
    for (int pass = 0; pass < 4; ++pass) {
        std::fill(largest.begin(), largest.end(), 0.0);
        for (const SymmetricEntry& entry : entries_) {
            const double size = std::fabs(entry.value) * scale_[entry.row] * scale_[entry.col];
            largest[entry.row] = std::max(largest[entry.row], size);
            largest[entry.col] = std::max(largest[entry.col], size);
        }
        for (int k = 0; k < unknowns_; ++k) {
            if (largest[k] > 0.0) scale_[k] /= std::sqrt(largest[k]);
        }
    }
    scaled_ = entries_;
    for (SymmetricEntry& entry : scaled_) entry.value *= scale_[entry.row] * scale_[entry.col];
    const size_t diagonal = scaled_.size() - static_cast<size_t>(unknowns_);
    for (int k = 0; k < unknowns_; ++k) {
        scaled_[diagonal + k].value += signs_[k] * kRegularization;
    }
}

// What of the optimality conditions' left-hand sides does not depend on the unknowns.
void ActiveSystem::fix_slopes(const PrimalDual& point) {
    PrimalDual rest = point;
    for (int j = 0; j < program_.columns; ++j) {
        if (column_unknown_[j] >= 0) rest.x[j] = 0.0;
    }
    program_.gradient(rest.x.data(), gradient_);
    program_.activity(rest.x.data(), activity_);
    fixed_slope_.resize(unknowns_);
    for (int j = 0; j < program_.columns; ++j) {
        if (column_unknown_[j] >= 0) fixed_slope_[column_unknown_[j]] = gradient_[j];
    }
    for (int i = 0; i < program_.rows; ++i) {
        if (row_unknown_[i] < 0) continue;
        fixed_slope_[row_unknown_[i]] = activity_[i] - side(i);
    }
}

// residual() of programs with linear rows, in time of the unknowns' own matrix.
double ActiveSystem::linear_residual(const PrimalDual& point, std::vector<double>& out) {
    std::vector<double> value(unknowns_);
    for (int j = 0; j < program_.columns; ++j) {
        if (column_unknown_[j] >= 0) value[column_unknown_[j]] = point.x[j];
    }
    for (int i = 0; i < program_.rows; ++i) {
        if (row_unknown_[i] >= 0) value[row_unknown_[i]] = -point.y[i];
    }
    out = fixed_slope_;
    for (const SymmetricEntry& entry : entries_) {
        out[entry.row] += entry.value * value[entry.col];
        if (entry.row != entry.col) out[entry.col] += entry.value * value[entry.row];
    }
    double largest = 0.0;
    for (int k = 0; k < unknowns_; ++k) {
        out[k] *= -scale_[k];
        largest = std::max(largest, std::fabs(out[k]));
        if (!std::isfinite(out[k])) largest = kInfinity;
    }
    return largest;
}

// Right-hand side of the Newton step, scaled; its largest entry is the result.
double ActiveSystem::residual(const PrimalDual& point, std::vector<double>& out) {
    program_.gradient(point.x.data(), gradient_);
    program_.add_transposed_jacobian(point.x.data(), point.y.data(), -1.0, gradient_);
    program_.activity(point.x.data(), activity_);
    out.resize(unknowns_);
    double largest = 0.0;
    const auto put = [&](int k, double value) {
        out[k] = value * scale_[k];
        largest = std::max(largest, std::fabs(out[k]));
        if (!std::isfinite(out[k])) largest = kInfinity;
    };
    for (int j = 0; j < program_.columns; ++j) {
        if (column_unknown_[j] >= 0) put(column_unknown_[j], -gradient_[j]);
    }
    for (int i = 0; i < program_.rows; ++i) {
        if (row_unknown_[i] < 0) continue;
        put(row_unknown_[i], side(i) - activity_[i]);
    }
    return largest;
}

bool ActiveSystem::solve(PrimalDual& point, double& flops_left) {
    for (int j = 0; j < program_.columns; ++j) {
        if (active_.columns[j] == Active::kLower) point.x[j] = program_.lower[j];
        if (active_.columns[j] == Active::kUpper) point.x[j] = program_.upper[j];
    }
    for (int i = 0; i < program_.rows; ++i) {
        if (active_.rows[i] == Active::kNone) point.y[i] = 0.0;
    }
    number_unknowns();
    if (unknowns_ == 0) return true;

    const bool linear = program_.forms.empty();
    std::vector<double> step;
    PrimalDual best = point;
    double best_residual = -1.0;
    for (int iteration = 0; iteration < 16; ++iteration) {
        if (iteration == 0 || !linear) {
            assemble(point);
            equilibrate();
            if (iteration == 0) factorization_.analyze(unknowns_, scaled_);
            if (factorization_.flops() > flops_left) return false;
            flops_left -= factorization_.flops();
            factorization_.factor(scaled_, signs_, kRegularization);
        }
        if (linear && iteration == 0) fix_slopes(point);
        const double size = linear ? linear_residual(point, step) : residual(point, step);
        if (best_residual < 0.0 || size < best_residual) {
            // Refinement that only creeps has met inconsistent equations.
            const bool creeping = iteration > 3 && size > 0.5 * best_residual;
            best_residual = size;
            best = point;
            if (creeping || size == 0.0) break;
        } else if (iteration > 1) {
            break;
        }
        factorization_.solve(step);
        for (int j = 0; j < program_.columns; ++j) {
            const int k = column_unknown_[j];
            if (k >= 0) point.x[j] += scale_[k] * step[k];
        }
        for (int i = 0; i < program_.rows; ++i) {
            const int k = row_unknown_[i];
            if (k >= 0) point.y[i] -= scale_[k] * step[k];
        }
    }
    point = std::move(best);
    return true;
}

// Let the solution of the present guess correct it: what is violated becomes active, what has a
// dual of the wrong sign is released. False when nothing contradicts the guess.
bool correct(const QuadraticProgram& program, const PrimalDual& point, ActiveSet& active) {
    constexpr double kSlack = 1e-11;
    std::vector<double> reduced, activity;
    program.gradient(point.x.data(), reduced);
    std::vector<double> magnitude(program.columns);
    for (int j = 0; j < program.columns; ++j) magnitude[j] = 1.0 + std::fabs(reduced[j]);
    program.add_transposed_jacobian(point.x.data(), point.y.data(), -1.0, reduced);
    program.activity(point.x.data(), activity);
    bool changed = false;
    const auto update = [&](Active& state, double value, double low, double high, double dual,
                            double dual_slack) {
        Active next = state;
        if (state == Active::kNone) {
            if (low > -kInfinity && value < low - kSlack * (1.0 + std::fabs(low))) {
                next = Active::kLower;
            } else if (high < kInfinity && value > high + kSlack * (1.0 + std::fabs(high))) {
                next = Active::kUpper;
            }
        } else if ((state == Active::kLower && dual < -dual_slack) ||
                   (state == Active::kUpper && dual > dual_slack)) {
            next = Active::kNone;
        }
        changed = changed || next != state;
        state = next;
    };
    for (int j = 0; j < program.columns; ++j) {
        update(active.columns[j], point.x[j], program.lower[j], program.upper[j], reduced[j],
               kSlack * magnitude[j]);
    }
    for (int i = 0; i < program.rows; ++i) {
        update(active.rows[i], activity[i], program.row_lower[i], program.row_upper[i], point.y[i],
               kSlack);
    }
    return changed;
}

}  // namespace

void pursue(const QuadraticProgram& program, ActiveSet& active, const PrimalDual& origin,
            int rounds, QpRun& run, PrimalDual& best, Residuals& residuals) {
    ActiveSystem system(program, active, [&run] { return run.monitor.should_stop(); });
    double flops_left = kFlopBudget;
    for (int round = 0; round < rounds && !run.monitor.should_stop(); ++round) {
        PrimalDual point = origin;
        try {
            if (!system.solve(point, flops_left)) break;
        } catch (const FactorizationStopped&) {
            break;
        }
        const bool changed = correct(program, point, active);
        project(program, point);
        const Residuals reached = measure(program, point);
        if (reached.worst() < residuals.worst()) {
            residuals = reached;
            best = std::move(point);
        }
        if (!changed || residuals.worst() <= kAccurate) break;
    }
}

}  // namespace nlra
