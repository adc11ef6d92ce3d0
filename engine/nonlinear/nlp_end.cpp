#include "nonlinear/nlp_end.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace nlra {

NlpEnd::NlpEnd(ModelFunctions& functions, const Params& controls, StopPoll poll)
    : functions_(functions),
      judge_(functions),
      poll_(std::move(poll)),
      row_tolerance_(std::max(10.0 * controls.get_double(kFeasTol), 1e-6)),
      tolerance_(std::max(10.0 * controls.get_double(kOptTol), 1e-6)) {}

void NlpEnd::begin_at(const double* x) {
    if (!functions_.objective(x, objective_at_start_)) objective_at_start_ = 0.0;
}

// A start may miss rows that have been changed since it was an end.
bool NlpEnd::look_closer(bool is_start) {
    closer_ = nullptr;
    if (!judge_.measure(result, residuals)) return false;
    if (!(is_feasible() || is_start) || !std::isfinite(result.objective)) return true;
    closer_ = polish(judge_, result, residuals, poll_, steps);
    if (is_feasible() && functions_.structure().rows > 0 && grade() != Grade::kStrong) {
        try_other_multipliers();
    }
    return true;
}

void NlpEnd::try_other_multipliers() {
    const NlpResult kept = result;
    const Grade reached = grade();
    if (renew_multipliers(judge_, result, poll_) && judge_.measure(result, residuals)) {
        closer_ = polish(judge_, result, residuals, poll_, steps);
        if (grade() > reached) return;
    }
    result = kept;
    judge_.measure(result, residuals);
    closer_ = judge_.look_closer(result, poll_);
}

NlpEnd::Grade NlpEnd::grade() const {
    constexpr double kShare = 1e-7, kRounding = 1e-20, kSlope = 1e-6, kMultipliers = 1e-6;
    constexpr double kMostTerm = 1e9;  // the rest of what cancels is rounding
    if (!is_feasible()) return Grade::kNone;
    const double value = std::fabs(result.objective);
    if (closer_ != nullptr && closer_->is_convex()) {
        const double gain = closer_->gain() + residuals.penalty;
        if (gain <= std::max(kShare * value, kRounding * closer_->size()) &&
            closer_->multiplier_error() <= kMultipliers && residuals.term <= kMostTerm) {
            return Grade::kStrong;
        }
    }
    if (residuals.dual > tolerance_ || residuals.complementarity > tolerance_) return Grade::kNone;
    if (closer_ == nullptr) return Grade::kStrong;
    const double range = std::fabs(objective_at_start_ - result.objective);
    if (closer_->slope() > kSlope * std::max(value, range)) return Grade::kNone;
    return closer_->is_convex() ? Grade::kWeak : Grade::kStrong;
}

}  // namespace nlra
