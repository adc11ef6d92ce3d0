#include "brute_force.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

namespace brute_force {
namespace {

using nlra::Model;

constexpr double kTolerance = 1e-9;

struct HalfSpace {  // a'x <= side
    std::vector<double> a;
    double side;
};

// Solves the square system in place; false when it is singular.
bool solve(std::vector<std::vector<double>> a, std::vector<double>& b) {
    const size_t n = b.size();
    for (size_t k = 0; k < n; ++k) {
        size_t pivot = k;
        for (size_t i = k + 1; i < n; ++i) {
            if (std::abs(a[i][k]) > std::abs(a[pivot][k])) pivot = i;
        }
        if (std::abs(a[pivot][k]) < 1e-9) return false;
        std::swap(a[k], a[pivot]);
        std::swap(b[k], b[pivot]);
        for (size_t i = 0; i < n; ++i) {
            if (i == k) continue;
            const double factor = a[i][k] / a[k][k];
            for (size_t j = k; j < n; ++j) a[i][j] -= factor * a[k][j];
            b[i] -= factor * b[k];
        }
    }
    for (size_t k = 0; k < n; ++k) b[k] /= a[k][k];
    return true;
}

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

    // All vertices of the box cut by the rows that hold.
    void leaf() {
        std::vector<int> free_cols;
        for (int j = 0; j < model_.cols(); ++j) {
            if (low_[j] < high_[j]) free_cols.push_back(j);
        }
        const size_t n = free_cols.size();
        std::vector<HalfSpace> spaces;
        for (int i = 0; i < model_.rows(); ++i) {
            const auto indicator = model_.indicators.find(i);
            if (indicator != model_.indicators.end()) {
                const bool one = low_[indicator->second.col] > 0.5;
                if (one != (indicator->second.complement > 0)) continue;
            }
            std::vector<double> a(n, 0.0);
            double fixed = 0.0;
            for (int64_t k = model_.matrix.start()[i]; k < model_.matrix.start()[i + 1]; ++k) {
                const int j = model_.matrix.index()[k];
                const auto place = std::find(free_cols.begin(), free_cols.end(), j);
                if (place == free_cols.end()) {
                    fixed += model_.matrix.value()[k] * low_[j];
                } else {
                    a[place - free_cols.begin()] = model_.matrix.value()[k];
                }
            }
            std::vector<double> minus(a);
            for (double& entry : minus) entry = -entry;
            if (model_.row_upper(i) < nlra::kInfinity) {
                spaces.push_back({a, model_.row_upper(i) - fixed});
            }
            if (model_.row_lower(i) > -nlra::kInfinity) {
                spaces.push_back({minus, fixed - model_.row_lower(i)});
            }
        }
        for (size_t k = 0; k < n; ++k) {
            std::vector<double> unit(n, 0.0);
            unit[k] = 1.0;
            spaces.push_back({unit, high_[free_cols[k]]});
            unit[k] = -1.0;
            spaces.push_back({unit, -low_[free_cols[k]]});
        }
        std::vector<size_t> chosen;
        vertices(spaces, free_cols, chosen, 0);
    }

    void vertices(const std::vector<HalfSpace>& spaces, const std::vector<int>& free_cols,
                  std::vector<size_t>& chosen, size_t next) {
        if (chosen.size() == free_cols.size()) return vertex(spaces, free_cols, chosen);
        for (size_t k = next; k < spaces.size(); ++k) {
            chosen.push_back(k);
            vertices(spaces, free_cols, chosen, k + 1);
            chosen.pop_back();
        }
    }

    void vertex(const std::vector<HalfSpace>& spaces, const std::vector<int>& free_cols,
                const std::vector<size_t>& chosen) {
        std::vector<std::vector<double>> a;
        std::vector<double> x;
        for (const size_t k : chosen) {
            a.push_back(spaces[k].a);
            x.push_back(spaces[k].side);
        }
        if (!solve(std::move(a), x)) return;
        for (const HalfSpace& space : spaces) {
            double sum = 0.0;
            for (size_t k = 0; k < x.size(); ++k) sum += space.a[k] * x[k];
            if (sum > space.side + 1e-7) return;
        }
        double value = model_.constant;
        for (int j = 0; j < model_.cols(); ++j) value += model_.obj[j] * low_[j];
        for (size_t k = 0; k < x.size(); ++k) {
            value += model_.obj[free_cols[k]] * (x[k] - low_[free_cols[k]]);
        }
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
