#include "brute_force.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "solve_support.hpp"

namespace brute_force {
namespace {

using nlra::Model;

constexpr double kTolerance = 1e-9;

class Search {
  public:
    explicit Search(const Model& model) : model_(model), low_(model.cols()), high_(model.cols()) {}

    std::optional<double> run() {
        choose(0);
        return best_;
    }

  private:
    void choose_interval(int col, double low, double high) {
        if (low > high + kTolerance) return;
        low_[col] = low;
        high_[col] = high;
        choose(col + 1);
    }
    void choose_integers(int col, double low, double high) {
        for (double v = std::ceil(low - kTolerance); v <= high + kTolerance; v += 1.0) {
            choose_interval(col, v, v);
        }
    }

    void choose(int col) {
        if (col == model_.cols()) return choose_support(0);
        const double low = model_.lower[col];
        const double high = model_.upper[col];
        const double limit = model_.limit[col];
        const double from = limit != 0.0 ? std::max(limit, low) : low;
        switch (model_.coltype[col]) {
            case 'B':
            case 'I':
                return choose_integers(col, low, high);
            case 'S':
                choose_interval(col, from, high);
                return choose_interval(col, 0.0, 0.0);
            case 'R':
                choose_integers(col, from, high);
                return choose_interval(col, 0.0, 0.0);
            case 'P':
                choose_integers(col, low, std::min(limit, high));
                return choose_interval(col, std::max(low, limit), high);
            default:
                return choose_interval(col, low, high);
        }
    }

    // For each set the columns that need not be zero.
    void choose_support(size_t set) {
        if (set == model_.sets.size()) return leaf();
        const nlra::Set& now = model_.sets[set];
        const size_t count = now.cols.size();
        const size_t width = now.type == '1' ? 1 : 2;
        if (count <= width) return choose_support(set + 1);
        std::vector<size_t> order(count);
        std::iota(order.begin(), order.end(), 0);
        std::sort(order.begin(), order.end(),
                  [&](size_t a, size_t b) { return now.weights[a] < now.weights[b]; });
        const std::vector<double> low = low_;
        const std::vector<double> high = high_;
        for (size_t first = 0; first + width <= count; ++first) {
            bool possible = true;
            for (size_t k = 0; k < count; ++k) {
                if (k >= first && k < first + width) continue;
                const int col = now.cols[order[k]];
                possible = possible && low_[col] <= kTolerance && high_[col] >= -kTolerance;
                low_[col] = high_[col] = 0.0;
            }
            if (possible) choose_support(set + 1);
            low_ = low;
            high_ = high;
        }
    }

    // What is left when all is chosen is a linear problem.
    void leaf() {
        nlra::Model box = model_;
        box.edits = nlra::Edits();
        box.sets.clear();
        box.indicators.clear();
        for (const auto& [row, indicator] : model_.indicators) {
            const bool one = low_[indicator.col] > 0.5;
            if (one != (indicator.complement > 0)) box.rowtype[row] = 'N';
        }
        for (int j = 0; j < box.cols(); ++j) {
            box.set_type(j, 'C');
            box.set_bounds(j, low_[j], high_[j]);
        }
        solve_support::TestProblem test;
        test.model = std::move(box);
        if (test.lp("d") != NLRA_LP_OPTIMAL) return;
        const double value = test.objective();
        if (!best_ || model_.sense * value < model_.sense * *best_) best_ = value;
    }

    const Model& model_;
    std::vector<double> low_, high_;
    std::optional<double> best_;
};

}  // namespace

std::optional<double> optimum(const Model& model) { return Search(model).run(); }

bool is_feasible(const Model& model, const std::vector<double>& x, double tolerance) {
    const auto integral = [&](double v) { return std::abs(v - std::round(v)) <= tolerance; };
    for (int j = 0; j < model.cols(); ++j) {
        const bool zero = std::abs(x[j]) <= tolerance;
        const char type = model.coltype[j];
        const bool semi = type == 'S' || type == 'R';
        const double limit = model.limit[j];
        const double low = semi && limit != 0.0 ? std::max(limit, model.lower[j]) : model.lower[j];
        const bool inside = x[j] >= low - tolerance && x[j] <= model.upper[j] + tolerance;
        if (!inside && !(semi && zero)) return false;
        if ((type == 'B' || type == 'I' || type == 'R') && !integral(x[j])) return false;
        if (type == 'P' && x[j] < limit - tolerance && !integral(x[j])) return false;
    }
    for (const nlra::Set& set : model.sets) {
        std::vector<double> weights;
        for (size_t k = 0; k < set.cols.size(); ++k) {
            if (std::abs(x[set.cols[k]]) > tolerance) weights.push_back(set.weights[k]);
        }
        std::sort(weights.begin(), weights.end());
        if (weights.size() > (set.type == '1' ? 1U : 2U)) return false;
        if (weights.size() < 2) continue;
        for (const double weight : set.weights) {
            if (weight > weights[0] && weight < weights[1]) return false;
        }
    }
    for (int i = 0; i < model.rows(); ++i) {
        const auto indicator = model.indicators.find(i);
        if (indicator != model.indicators.end()) {
            const bool one = x[indicator->second.col] > 0.5;
            if (one != (indicator->second.complement > 0)) continue;
        }
        double sum = 0.0;
        for (int64_t k = model.matrix.start()[i]; k < model.matrix.start()[i + 1]; ++k) {
            sum += model.matrix.value()[k] * x[model.matrix.index()[k]];
        }
        if (sum < model.row_lower(i) - tolerance || sum > model.row_upper(i) + tolerance) {
            return false;
        }
    }
    return true;
}

}  // namespace brute_force
