// What one quadratic solve leaves for the next on the same problem. All of it is a guess that the
// next solve checks, so nothing has to say what of the model changed in between.
#pragma once

#include <vector>

#include "analysis/convexity.hpp"
#include "nonlinear/qp_active_set.hpp"
#include "nonlinear/qp_reduce.hpp"

namespace nlra {

class QuadraticMemory {
  public:
    ProvenForms proven;

    bool empty() const { return x_.empty(); }
    void record(const ReducedProgram& reduced, const PrimalDual& point);
    // Begin at the recorded point: true when it, or what its active set leads to in some rounds,
    // is optimal for `reduced`, by the same judgement as any other point.
    bool resume(const ReducedProgram& reduced, QpRun& run, PrimalDual& point) const;

  private:
    PrimalDual recall(const ReducedProgram& reduced, ActiveSet& active) const;

    // By column and row of the model.
    std::vector<double> x_, y_;
    std::vector<Active> columns_, rows_;
};

}  // namespace nlra
