// What remains of a model when only linear rows and bounds are looked at: the view that
// LinearSolver hands over, and the domains that the reformulation (search/) builds on.
#pragma once

#include <algorithm>
#include <cmath>

#include "store/model.hpp"

namespace nlra {

struct Bounds {
    double lower;
    double upper;
};

// A semi-continuous or semi-integer column is zero or within this interval. Its lower end is the
// column's limit or lower bound, whichever is greater; a limit of zero leaves the lower bound. The
// interval may contain zero (the column is then an ordinary one) or be empty (it is then zero).
inline Bounds semi_interval(const Model& model, int col) {
    const double limit = model.limit[col];
    const double lower = model.lower[col];
    return {limit != 0.0 ? std::max(limit, lower) : lower, model.upper[col]};
}

inline bool is_semi(char type) { return type == 'S' || type == 'R'; }

// Bounds of a column with its type ignored: for a semi-continuous one the hull of its domain.
inline Bounds relaxed_column(const Model& model, int col) {
    if (!is_semi(model.coltype[col])) return {model.lower[col], model.upper[col]};
    const Bounds semi = semi_interval(model, col);
    if (semi.lower > semi.upper) return {0.0, 0.0};
    return {std::min(semi.lower, 0.0), std::max(semi.upper, 0.0)};
}

// Activity bounds of a row, none where it holds only under a condition.
inline Bounds relaxed_row(const Model& model, int row) {
    if (!model.indicators.empty() && model.indicators.count(row) != 0) {
        return {-kInfinity, kInfinity};
    }
    return {model.row_lower(row), model.row_upper(row)};
}

inline bool is_integral(char type) { return type == 'B' || type == 'I'; }

// Bounds of an integral column with no fractions: HiGHS is wrong about such models at times. Noise
// below the tolerance rounds to the integer that is meant.
inline Bounds rounded_interval(Bounds bounds) {
    constexpr double kNoise = 1e-9;
    return {std::ceil(bounds.lower - kNoise), std::floor(bounds.upper + kNoise)};
}

// Columns of type C, B and I only, with integral bounds where they must be, no sets, no indicators:
// what HiGHS's branch and bound takes.
inline bool is_plain(const Model& model) {
    if (!model.sets.empty() || !model.indicators.empty()) return false;
    for (int j = 0; j < model.cols(); ++j) {
        if (model.coltype[j] == 'C') continue;
        if (!is_integral(model.coltype[j])) return false;
        if (model.lower[j] != std::floor(model.lower[j])) return false;
        if (model.upper[j] != std::floor(model.upper[j])) return false;
    }
    return true;
}

}  // namespace nlra
