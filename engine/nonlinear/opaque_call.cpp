#include "nonlinear/opaque_call.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "nonlinear/operations.hpp"

namespace nlra {

namespace {

// Central differences lose least with steps near the third root of the precision, second
// differences of values near the fourth.
constexpr double kThirdRoot = 6.0e-6;
constexpr double kFourthRoot = 1.2e-4;

}  // namespace

OpaqueCall::OpaqueCall(OpaqueFunction& function, int arguments)
    : function_(function),
      args_(arguments),
      moved_(arguments),
      gradient_(arguments),
      other_(2 * static_cast<size_t>(arguments)),
      second_(static_cast<size_t>(arguments) * (arguments + 1) / 2),
      scratch_(static_cast<size_t>(arguments) * arguments) {}

bool OpaqueCall::call(double* value, double* gradient) {
    return function_.call(moved_.data(), arguments(), value, gradient) && std::isfinite(*value);
}

// A step that is exact in floating point.
double OpaqueCall::step(int i, double relative) const {
    const volatile double moved = args_[i] + relative * std::max(1.0, std::fabs(args_[i]));
    return moved - args_[i];
}

double OpaqueCall::value(const double* args) {
    const size_t bytes = args_.size() * sizeof(double);
    if (known_ > 0 && (bytes == 0 || std::memcmp(args, args_.data(), bytes) == 0)) return value_;
    known_ = 0;
    std::copy(args, args + args_.size(), args_.begin());
    std::copy(args, args + args_.size(), moved_.begin());
    const bool with_gradient = function_.gives_derivatives;
    if (!call(&value_, with_gradient ? gradient_.data() : nullptr)) {
        value_ = kNotDefined;
        std::fill(gradient_.begin(), gradient_.end(), kNotDefined);
    }
    known_ = with_gradient ? 2 : 1;
    return value_;
}

const double* OpaqueCall::gradient() {
    if (known_ < 2) {
        if (std::isnan(value_))
            std::fill(gradient_.begin(), gradient_.end(), kNotDefined);
        else
            measure_gradient();
        known_ = 2;
    }
    return gradient_.data();
}

void OpaqueCall::measure_gradient() {
    for (int i = 0; i < arguments(); ++i) {
        const double h = step(i, kThirdRoot);
        double above = 0.0;
        double below = 0.0;
        moved_ = args_;
        moved_[i] = args_[i] + h;
        const bool has_above = call(&above, nullptr);
        moved_[i] = args_[i] - h;
        const bool has_below = call(&below, nullptr);
        gradient_[i] = has_above && has_below ? (above - below) / (2.0 * h)
                       : has_above            ? (above - value_) / h
                       : has_below            ? (value_ - below) / h
                                              : kNotDefined;
    }
    moved_ = args_;
}

const double* OpaqueCall::second() {
    gradient();
    if (known_ < 3) {
        std::fill(second_.begin(), second_.end(), 0.0);
        if (!std::isnan(value_)) {
            if (function_.gives_derivatives)
                second_from_gradients();
            else
                second_from_values();
            for (double& entry : second_) {
                if (!std::isfinite(entry)) entry = 0.0;
            }
        }
        moved_ = args_;
        known_ = 3;
    }
    return second_.data();
}

void OpaqueCall::second_from_gradients() {
    const int n = arguments();
    double* above = other_.data();
    double* below = above + n;
    double ignored = 0.0;
    for (int i = 0; i < n; ++i) {
        const double h = step(i, kThirdRoot);
        moved_ = args_;
        moved_[i] = args_[i] + h;
        const bool has_above = call(&ignored, above);
        moved_[i] = args_[i] - h;
        const bool has_below = call(&ignored, below);
        const double width = (has_above ? h : 0.0) + (has_below ? h : 0.0);
        for (int j = 0; j < n; ++j) {
            const double high = has_above ? above[j] : gradient_[j];
            const double low = has_below ? below[j] : gradient_[j];
            scratch_[static_cast<size_t>(i) * n + j] = width == 0.0 ? 0.0 : (high - low) / width;
        }
    }
    double* entry = second_.data();
    for (size_t i = 0; i < static_cast<size_t>(n); ++i) {
        for (size_t j = 0; j <= i; ++j)
            *entry++ = 0.5 * (scratch_[i * n + j] + scratch_[j * n + i]);
    }
}

void OpaqueCall::second_from_values() {
    const int n = arguments();
    double* above = other_.data();
    double* below = above + n;
    const auto at = [&](int i, int j, double direction) {
        moved_ = args_;
        moved_[i] = args_[i] + direction * step(i, kFourthRoot);
        if (j != i) moved_[j] = args_[j] + direction * step(j, kFourthRoot);
        double result = 0.0;
        return call(&result, nullptr) ? result : kNotDefined;
    };
    double* entry = second_.data();
    for (int i = 0; i < n; ++i) {
        above[i] = at(i, i, 1.0);
        below[i] = at(i, i, -1.0);
        const double hi = step(i, kFourthRoot);
        for (int j = 0; j < i; ++j) {
            const double both = at(i, j, 1.0) + at(i, j, -1.0);
            *entry++ = (both - above[i] - above[j] - below[i] - below[j] + 2.0 * value_) /
                       (2.0 * hi * step(j, kFourthRoot));
        }
        *entry++ = (above[i] - 2.0 * value_ + below[i]) / (hi * hi);
    }
}

}  // namespace nlra
