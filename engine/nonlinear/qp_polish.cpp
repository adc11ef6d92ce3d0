#include "nonlinear/qp_polish.hpp"

#include <algorithm>
#include <cmath>

#include "nonlinear/qp_active_set.hpp"

namespace nlra {

namespace {

constexpr int kRounds = 8;

// Active where the multiplier outweighs the distance, both in their own units. After an interior
// solve their product is the barrier, so that one of them is small unless both are.
class ActiveGuess {
  public:
    ActiveGuess(const QuadraticProgram& program, const InteriorResult& interior)
        : program_(program), norms_(program.row_norms()) {
        const PrimalDual& point = interior.point;
        program.gradient(point.x.data(), gradient_);
        program.activity(point.x.data(), activity_);
        for (const double value : gradient_) steepest_ = std::max(steepest_, std::fabs(value));
        for (const double value : point.x) largest_ = std::max(largest_, std::fabs(value));
    }

    Active column(int j, const InteriorResult& interior) const {
        const double x = interior.point.x[j];
        const double to_lower = interior.lower_multipliers[j];
        const double to_upper = interior.upper_multipliers[j];
        const bool lower = to_lower >= to_upper;
        const double multiplier = lower ? to_lower : to_upper;
        const double distance = lower ? x - program_.lower[j] : program_.upper[j] - x;
        const bool active = multiplier / std::max(1.0, std::fabs(gradient_[j])) >
                            distance / std::max(1.0, std::fabs(x));
        return !active ? Active::kNone : lower ? Active::kLower : Active::kUpper;
    }

    Active row(int i, const InteriorResult& interior) const {
        if (program_.row_lower[i] == program_.row_upper[i]) return Active::kBoth;
        const double y = interior.point.y[i];
        const double distance =
            y > 0.0 ? activity_[i] - program_.row_lower[i] : program_.row_upper[i] - activity_[i];
        const double norm = std::max(norms_[i], 1e-12);
        const bool active = std::fabs(y) * norm / steepest_ > distance / (norm * largest_);
        return !active || y == 0.0 ? Active::kNone : y > 0.0 ? Active::kLower : Active::kUpper;
    }

    void drop_runaways(std::vector<double>& y) const {
        for (int i = 0; i < program_.rows; ++i) {
            if (!(std::fabs(y[i]) * norms_[i] <= 1e4 * steepest_)) y[i] = 0.0;
        }
    }

  private:
    const QuadraticProgram& program_;
    const std::vector<double> norms_;
    std::vector<double> gradient_, activity_;
    double steepest_ = 1.0;
    double largest_ = 1.0;
};

}  // namespace

PrimalDual polish(const QuadraticProgram& program, const InteriorResult& interior, QpRun& run,
                  Residuals& residuals) {
    PrimalDual best = interior.point;
    residuals = measure(program, best);
    const ActiveGuess guess(program, interior);
    ActiveSet active;
    for (int j = 0; j < program.columns; ++j) active.columns.push_back(guess.column(j, interior));
    for (int i = 0; i < program.rows; ++i) active.rows.push_back(guess.row(i, interior));

    // Duals of rows that depend on each other may have run away from the solver.
    PrimalDual origin = interior.point;
    guess.drop_runaways(origin.y);
    pursue(program, active, origin, kRounds, run, best, residuals);
    return best;
}

}  // namespace nlra
