#include "nonlinear/nlp_judge.hpp"

#include <algorithm>
#include <cmath>

#include "analysis/convexity.hpp"
#include "nonlinear/merge_equal.hpp"

namespace nlra {

namespace {

// How close to a bound or a side counts as there, in relative terms.
constexpr double kActive = 1e-6;

}  // namespace

double violation(double value, double low, double high) {
    const double below = low > -kInfinity ? (low - value) / std::max(1.0, std::fabs(low)) : 0.0;
    const double above = high < kInfinity ? (value - high) / std::max(1.0, std::fabs(high)) : 0.0;
    return std::isnan(below + above) ? kInfinity : std::max({0.0, below, above});
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
    // The scaling of Wächter and Biegler 2006.
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
        const double low = bounds.row_lower[i], high = bounds.row_upper[i];
        residuals.primal = std::max(residuals.primal, violation(activity_[i], low, high));
        residuals.violation =
            std::max({residuals.violation, low > -kInfinity ? low - activity_[i] : 0.0,
                      high < kInfinity ? activity_[i] - high : 0.0});
        const double y = result.multipliers[i];
        const double side = y > 0.0 ? high : low;
        // A multiplier that pushes against a side that is not there counts in full.
        const double gap = std::fabs(side) < kInfinity ? std::fabs(y * (side - activity_[i])) /
                                                             std::max(1.0, std::fabs(side))
                                                       : std::fabs(y);
        residuals.complementarity = std::max(residuals.complementarity, gap / value_scale);
    }
    term_.resize(n);
    for (int j = 0; j < n; ++j) term_[j] = std::max(scale, std::fabs(gradient_[j]));
    for (size_t k = 0; k < jacobian_.size(); ++k) {
        const int j = structure_.jacobian_col[k];
        const double term = jacobian_[k] * result.multipliers[structure_.jacobian_row[k]];
        gradient_[j] += term;
        term_[j] = std::max(term_[j], std::fabs(term));
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
        residuals.dual = std::max(residuals.dual, std::min(std::fabs(r) / term_[j],
                                                           std::fabs(r) * distance / value_scale));
    }
    return std::isfinite(residuals.primal) && std::isfinite(residuals.dual) &&
           std::isfinite(residuals.complementarity);
}

bool Judge::is_active(int row) const {
    const NlpBounds bounds = functions_.bounds();
    const auto near = [&](double side) {
        return std::fabs(side) < kInfinity &&
               std::fabs(activity_[row] - side) <= kActive * std::max(1.0, std::fabs(side));
    };
    return near(bounds.row_lower[row]) || near(bounds.row_upper[row]);
}

bool Judge::is_second_order_optimal(const NlpResult& result, const StopPoll& poll) {
    constexpr size_t kMaxTerms = 500'000;
    constexpr double kPenalty = 1e4;
    if (!structure_.has_hessian) return true;
    const NlpBounds bounds = functions_.bounds();
    std::vector<double> hessian(structure_.hessian_row.size());
    const double* x = result.x.data();
    if (!functions_.hessian(x, 1.0, result.multipliers.data(), hessian.data())) return true;

    std::vector<char> is_free(structure_.columns);
    for (int j = 0; j < structure_.columns; ++j) {
        const double near = kActive * std::max(1.0, std::fabs(x[j]));
        is_free[j] = x[j] > bounds.lower[j] + near && x[j] < bounds.upper[j] - near;
    }
    std::vector<QuadTerm> terms;
    double largest = 0.0;
    for (size_t k = 0; k < hessian.size(); ++k) {
        const int a = structure_.hessian_row[k], b = structure_.hessian_col[k];
        if (!is_free[a] || !is_free[b] || hessian[k] == 0.0) continue;
        terms.push_back({std::min(a, b), std::max(a, b), a == b ? 0.5 * hessian[k] : hessian[k]});
        largest = std::max(largest, std::fabs(hessian[k]));
    }
    if (terms.empty()) return true;
    std::vector<std::vector<size_t>> entries(structure_.rows);
    for (size_t k = 0; k < jacobian_.size(); ++k) {
        const int row = structure_.jacobian_row[k];
        if (is_free[structure_.jacobian_col[k]] && is_active(row)) entries[row].push_back(k);
    }
    for (const std::vector<size_t>& row : entries) {
        if (row.size() * row.size() + terms.size() > kMaxTerms) return true;
        double norm = 0.0;
        for (const size_t k : row) norm += jacobian_[k] * jacobian_[k];
        if (norm == 0.0) continue;
        for (const size_t k : row) {
            for (const size_t l : row) {
                const int a = structure_.jacobian_col[k], b = structure_.jacobian_col[l];
                if (a > b) continue;
                const double value = kPenalty * largest * jacobian_[k] * jacobian_[l] / norm;
                if (a < b || k < l) terms.push_back({a, b, value});
                if (k == l) terms.push_back({a, b, 0.5 * value});
            }
        }
    }
    merge_equal(terms, term_before);
    try {
        return is_convex_form(terms, 1.0, poll);
    } catch (const FactorizationStopped&) {
        return true;
    }
}

}  // namespace nlra
