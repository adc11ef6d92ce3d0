#include "nonlinear/nlp_judge.hpp"

#include <algorithm>
#include <cmath>

namespace nlra {

double violation(double value, double low, double high) {
    const double below = low > -kInfinity ? (low - value) / std::max(1.0, std::fabs(low)) : 0.0;
    const double above = high < kInfinity ? (value - high) / std::max(1.0, std::fabs(high)) : 0.0;
    return std::isnan(below + above) ? kInfinity : std::max({0.0, below, above});
}

bool Judge::evaluate(const std::vector<double>& x, NlpResult& result) {
    return functions_.objective(x.data(), result.objective) &&
           functions_.rows(x.data(), activity_.data());
}

bool Judge::differentiate(const std::vector<double>& x) {
    return functions_.gradient(x.data(), gradient_.data()) &&
           functions_.jacobian(x.data(), jacobian_.data());
}

// On the edge of a function's domain, as zero is for a root, derivatives are those from within.
bool Judge::evaluate_on_edge(NlpResult& result) {
    constexpr double kInside = 1e-12;
    const NlpBounds bounds = functions_.bounds();
    for (int j = 0; j < structure_.columns; ++j) {
        const double low = bounds.lower[j], high = bounds.upper[j], x = result.x[j];
        const double step = std::min(kInside * std::max(1.0, std::fabs(x)), 0.5 * (high - low));
        if (x == low) inside_[j] = low + step;
        if (x == high) inside_[j] = high - step;
    }
    if (!differentiate(inside_)) return false;
    if (evaluate(result.x, result)) return true;
    result.x = inside_;
    return evaluate(result.x, result);
}

bool Judge::measure(NlpResult& result, NlpResiduals& residuals) {
    const NlpBounds bounds = functions_.bounds();
    const int n = structure_.columns, m = structure_.rows;
    for (int j = 0; j < n; ++j) {
        result.x[j] = std::clamp(result.x[j], bounds.lower[j], bounds.upper[j]);
    }
    activity_.resize(m);
    gradient_.resize(n);
    jacobian_.resize(structure_.jacobian_row.size());
    inside_ = result.x;
    if (!(evaluate(result.x, result) && differentiate(result.x)) && !evaluate_on_edge(result)) {
        return false;
    }
    const double* x = result.x.data();
    // The scaling of Wächter and Biegler 2006.
    double sum = 0.0;
    for (const double value : result.multipliers) sum += std::fabs(value);
    for (int j = 0; j < n; ++j) {
        sum += std::fabs(result.lower_multipliers[j]) + std::fabs(result.upper_multipliers[j]);
    }
    constexpr double kMostScale = 1e3;  // multipliers that have no limit tell nothing
    const double scale = std::clamp(sum / std::max(1, m + 2 * n) / 100.0, 1.0, kMostScale);
    // Products of multipliers and distances are parts of the objective's value.
    const double value_scale = std::max(scale, std::min(std::fabs(result.objective), 1e6));
    residuals = NlpResiduals();
    // Of what a row may miss its sides by, relative to them, a share is relative to its terms.
    constexpr double kPrecision = 1e-3;
    term_.assign(m, 0.0);
    for (size_t k = 0; k < jacobian_.size(); ++k) {
        double& term = term_[structure_.jacobian_row[k]];
        term = std::max(term, std::fabs(jacobian_[k] * x[structure_.jacobian_col[k]]));
    }
    for (int i = 0; i < m; ++i) {
        const double low = bounds.row_lower[i], high = bounds.row_upper[i];
        const double y = result.multipliers[i];
        const double miss = std::max({0.0, low > -kInfinity ? low - activity_[i] : 0.0,
                                      high < kInfinity ? activity_[i] - high : 0.0});
        residuals.primal =
            std::max(residuals.primal, std::min(violation(activity_[i], low, high),
                                                miss / std::max(1.0, kPrecision * term_[i])));
        residuals.violation = std::max(residuals.violation, miss);
        residuals.penalty += std::fabs(y) * miss;
        const double side = y > 0.0 ? high : low;
        // A multiplier that pushes against a side that is not there counts in full.
        const double gap = std::fabs(side) < kInfinity ? std::fabs(y * (side - activity_[i])) /
                                                             std::max(1.0, std::fabs(side))
                                                       : std::fabs(y);
        residuals.complementarity = std::max(residuals.complementarity, gap / value_scale);
    }
    term_.assign(n, 0.0);
    for (int j = 0; j < n; ++j) term_[j] = std::max(scale, std::fabs(gradient_[j]));
    for (size_t k = 0; k < jacobian_.size(); ++k) {
        const int j = structure_.jacobian_col[k];
        const double term = jacobian_[k] * result.multipliers[structure_.jacobian_row[k]];
        gradient_[j] += term;
        term_[j] = std::max(term_[j], std::fabs(term));
        residuals.term = std::max(residuals.term, std::fabs(term * x[j]));
    }
    residuals.term /= std::max(1.0, std::fabs(result.objective));
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

const NewtonModel* Judge::look_closer(const NlpResult& result, const StopPoll& poll,
                                      Curvature curvature) {
    try {
        const JudgedPoint point{result, inside_, activity_, jacobian_, gradient_, term_};
        return model_.make(point, poll, curvature) ? &model_ : nullptr;
    } catch (const FactorizationStopped&) {
        return nullptr;
    }
}

const NewtonModel* polish(Judge& judge, NlpResult& result, NlpResiduals& residuals,
                          const StopPoll& poll, long& steps) {
    constexpr int kMaxSteps = 40;
    constexpr double kRounding = 1e-15, kProgress = 1e-3, kFeasible = 1e-7;
    constexpr double kLeast = 1e-3;  // share of a step
    const NewtonModel* model = judge.look_closer(result, poll);
    for (int i = 0; i < kMaxSteps && model != nullptr && model->is_convex(); ++i) {
        const double missed = model->gain() + residuals.penalty;
        const double scale = std::fabs(result.objective);
        if (missed <= kRounding * scale && residuals.primal <= kFeasible) break;
        const NlpResult kept = result;
        ++steps;
        const double before = result.objective + 2.0 * residuals.penalty;
        const double primal = std::max(residuals.primal, kFeasible);
        bool better = false;
        for (double share = 1.0; share > kLeast && !better; share *= 0.3) {
            result = model->step(share);
            better = judge.measure(result, residuals) && residuals.primal <= primal &&
                     result.objective + 2.0 * residuals.penalty <= before + missed;
        }
        if (better) {
            const double gained = before - result.objective - 2.0 * residuals.penalty;
            model = judge.look_closer(result, poll);
            better =
                model != nullptr && model->is_convex() &&
                (model->gain() + residuals.penalty < 0.5 * missed || gained > kProgress * missed);
        }
        if (better) continue;
        result = kept;
        judge.measure(result, residuals);
        return judge.look_closer(result, poll);
    }
    return model;
}

bool renew_multipliers(Judge& judge, NlpResult& result, const StopPoll& poll) {
    NlpResiduals residuals;
    std::fill(result.multipliers.begin(), result.multipliers.end(), 0.0);
    if (!judge.measure(result, residuals)) return false;
    const NewtonModel* const model = judge.look_closer(result, poll, Curvature::kUnit);
    if (model == nullptr || !model->is_convex()) return false;
    result.multipliers = model->step(1.0).multipliers;
    return true;
}

}  // namespace nlra
