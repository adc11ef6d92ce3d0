// A call to an opaque function at one place of a tape: called once per point, and what the
// function does not give is measured by differences.
#pragma once

#include <vector>

#include "nonlinear/formula.hpp"

namespace nlra {

class OpaqueCall {
  public:
    OpaqueCall(OpaqueFunction& function, int arguments);

    int arguments() const { return static_cast<int>(args_.size()); }
    // Results for the last arguments given, computed when they are first asked for. NaN where the
    // function is not defined. A partial derivative that could be measured on neither side is NaN;
    // a second one that could not is zero.
    double value(const double* args);
    const double* gradient();
    // Lower triangle by rows.
    const double* second();

  private:
    bool call(double* value, double* gradient);
    double step(int i, double relative) const;
    void measure_gradient();
    void second_from_gradients();
    void second_from_values();

    OpaqueFunction& function_;
    std::vector<double> args_, moved_, gradient_, other_, second_, scratch_;
    double value_ = 0.0;
    int known_ = 0;  // 1: value, 2: gradient too, 3: second derivatives too
};

}  // namespace nlra
