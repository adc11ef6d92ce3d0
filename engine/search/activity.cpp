#include "search/activity.hpp"

#include <algorithm>
#include <cmath>

namespace nlra {
namespace {

constexpr int kMaxRounds = 10;
// An implied bound must gain this share of the range (or of its size) to start another round: rows
// that feed each other may otherwise go on without end.
constexpr double kMinGain = 1e-2;
// Implied bounds beyond this have lost too many digits to be of any use.
constexpr double kMaxImplied = 1e15;
constexpr double kIntegralityMargin = 1e-6;
constexpr double kRoundingMargin = 1e-14;

// A sum of bounds, the infinite ones counted apart.
struct Sum {
    double finite = 0.0;
    double size = 0.0;  // of the terms: what rounding errors are measured by
    int infinite = 0;

    void add(double coefficient, double bound) {
        if (std::abs(bound) >= kInfinity) {
            ++infinite;
        } else {
            finite += coefficient * bound;
            size += std::abs(coefficient * bound);
        }
    }
    // Whether the sum is finite without the term of this bound, and its value then.
    bool without(double coefficient, double bound, double& value) const {
        const bool own = std::abs(bound) >= kInfinity;
        if (infinite > (own ? 1 : 0)) return false;
        value = own ? finite : finite - coefficient * bound;
        return true;
    }
};

class Tightening {
  public:
    explicit Tightening(const Model& model) : model_(model) {
        bounds_.lower.resize(model.cols());
        bounds_.upper.resize(model.cols());
        for (int j = 0; j < model.cols(); ++j) {
            Bounds own = relaxed_column(model, j);
            if (is_integral(model.coltype[j])) own = rounded_interval(own);
            bounds_.lower[j] = own.lower;
            bounds_.upper[j] = own.upper;
        }
    }

    ColumnBounds run() {
        for (int round = 0; round < kMaxRounds; ++round) {
            gained_ = false;
            for (int i = 0; i < model_.rows(); ++i) {
                if (model_.qrows.count(i) != 0) continue;
                const Bounds sides = relaxed_row(model_, i);
                if (sides.lower > -kInfinity || sides.upper < kInfinity) propagate(i, sides);
            }
            if (!gained_) break;
        }
        return std::move(bounds_);
    }

  private:
    void propagate(int row, Bounds sides) {
        const int64_t begin = model_.matrix.start()[row];
        const int64_t end = model_.matrix.start()[row + 1];
        const int* index = model_.matrix.index().data();
        const double* value = model_.matrix.value().data();
        Sum least;
        Sum most;
        for (int64_t k = begin; k < end; ++k) {
            const int j = index[k];
            const bool positive = value[k] > 0.0;
            least.add(value[k], positive ? bounds_.lower[j] : bounds_.upper[j]);
            most.add(value[k], positive ? bounds_.upper[j] : bounds_.lower[j]);
        }
        for (int64_t k = begin; k < end; ++k) {
            const int j = index[k];
            const double a = value[k];
            // Both sums stay what they were at the start of the row: weaker bounds, still valid.
            const double low = bounds_.lower[j];
            const double high = bounds_.upper[j];
            double rest = 0.0;
            if (sides.upper < kInfinity && least.without(a, a > 0.0 ? low : high, rest)) {
                improve(j, (sides.upper - rest + kRoundingMargin * least.size) / a, a > 0.0);
            }
            if (sides.lower > -kInfinity && most.without(a, a > 0.0 ? high : low, rest)) {
                improve(j, (sides.lower - rest - kRoundingMargin * most.size) / a, a < 0.0);
            }
        }
    }

    void improve(int col, double bound, bool is_upper) {
        if (!(std::abs(bound) <= kMaxImplied)) return;
        const char type = model_.coltype[col];
        if (is_integral(type) || type == 'R') {
            bound = is_upper ? std::floor(bound + kIntegralityMargin)
                             : std::ceil(bound - kIntegralityMargin);
        }
        double& lower = bounds_.lower[col];
        double& upper = bounds_.upper[col];
        // Crossing bounds prove the model infeasible, which is for the solver to say.
        if (is_upper ? bound >= upper || bound < lower : bound <= lower || bound > upper) return;
        double& own = is_upper ? upper : lower;
        const double before = own;
        own = bound;
        const double scale = std::abs(before) >= kInfinity ? 0.0 : std::max(1.0, std::abs(before));
        if (std::abs(before - bound) > kMinGain * scale) gained_ = true;
    }

    const Model& model_;
    ColumnBounds bounds_;
    bool gained_ = false;
};

}  // namespace

ColumnBounds implied_bounds(const Model& model) { return Tightening(model).run(); }

Bounds activity_range(const Model& model, int row, const ColumnBounds& bounds, int fixed_col,
                      double fixed_value) {
    Sum least;
    Sum most;
    for (int64_t k = model.matrix.start()[row]; k < model.matrix.start()[row + 1]; ++k) {
        const int j = model.matrix.index()[k];
        const double a = model.matrix.value()[k];
        const double low = j == fixed_col ? fixed_value : bounds.lower[j];
        const double high = j == fixed_col ? fixed_value : bounds.upper[j];
        least.add(a, a > 0.0 ? low : high);
        most.add(a, a > 0.0 ? high : low);
    }
    return {least.infinite > 0 ? -kInfinity : least.finite,
            most.infinite > 0 ? kInfinity : most.finite};
}

}  // namespace nlra
