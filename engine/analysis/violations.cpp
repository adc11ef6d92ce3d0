#include "analysis/violations.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "linear/relaxation.hpp"

namespace nlra {

namespace {

void add_interval(Violations& violations, int index, double value, Bounds allowed) {
    if (allowed.lower > -kInfinity) {
        violations.add(index, allowed.lower - value, allowed.lower);
    }
    if (allowed.upper < kInfinity) {
        violations.add(index, value - allowed.upper, allowed.upper);
    }
}

bool is_switched_off(const Model& model, int row, const std::vector<double>& x) {
    const auto found = model.indicators.find(row);
    if (found == model.indicators.end()) return false;
    const Indicator& indicator = found->second;
    return (x[indicator.col] > 0.5) != (indicator.complement > 0);
}

double distance_from_integer(double x) { return std::fabs(x - std::round(x)); }

double distance(double x, Bounds domain) {
    return std::max({0.0, domain.lower - x, x - domain.upper});
}

// From zero and the range beside it.
double distance_from_domain(const Model& model, int col, double x) {
    const Bounds semi = semi_interval(model, col);
    double nonzero = semi.lower > semi.upper ? kInfinity : distance(x, semi);
    if (model.coltype[col] == 'R') nonzero = std::max(nonzero, distance_from_integer(x));
    return std::min(std::fabs(x), nonzero);
}

void add_column(PointViolations& all, const Model& model, int col, double x) {
    const char type = model.coltype[col];
    if (is_semi(type)) {
        all.integers.add(col, distance_from_domain(model, col, x), 0.0);
        return;
    }
    add_interval(all.bounds, col, x, {model.lower[col], model.upper[col]});
    if (is_integral(type)) {
        all.integers.add(col, distance_from_integer(x), 0.0);
    } else if (type == 'P') {
        all.integers.add(col, std::min(distance_from_integer(x), model.limit[col] - x), 0.0);
    }
}

// The sum of what stands outside of the best one column (type 1), or two neighbours (type 2).
double set_violation(const Set& set, const std::vector<double>& x) {
    std::vector<size_t> order(set.cols.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::sort(order.begin(), order.end(),
              [&](size_t a, size_t b) { return set.weights[a] < set.weights[b]; });
    double total = 0.0, best = 0.0, before = 0.0;
    for (const size_t k : order) {
        const double size = std::fabs(x[set.cols[k]]);
        total += size;
        best = std::max(best, size + (set.type == '2' ? before : 0.0));
        before = size;
    }
    return total - best;
}

}  // namespace

void Violations::add(int index, double violation, double side) {
    if (!(violation > 0.0)) return;
    sum += violation;
    relative = std::max(relative, violation / std::max(1.0, std::fabs(side)));
    if (violation <= largest) return;
    largest = violation;
    place = index;
}

PointViolations measure_violations(const Model& model, const Solution& solution) {
    PointViolations all;
    for (int i = 0; i < model.rows(); ++i) {
        if (is_switched_off(model, i, solution.x)) continue;
        add_interval(all.rows, i, model.rhs[i] - solution.slack[i],
                     {model.row_lower(i), model.row_upper(i)});
    }
    for (int j = 0; j < model.cols(); ++j) add_column(all, model, j, solution.x[j]);
    for (size_t s = 0; s < model.sets.size(); ++s) {
        all.sets.add(static_cast<int>(s), set_violation(model.sets[s], solution.x), 0.0);
    }
    return all;
}

}  // namespace nlra
