// Whether a point and its multipliers meet the optimality conditions of a model with formulas, as
// computed by us.
#pragma once

#include <vector>

#include "analysis/ldlt.hpp"
#include "nonlinear/nlp_functions.hpp"

namespace nlra {

// What the first-order conditions miss. Rows relative to their sides; gradients relative to the
// largest of the terms that they are the sum of; products of multipliers and distances relative to
// the objective's value.
struct NlpResiduals {
    double primal = 0.0;
    double dual = 0.0;
    double complementarity = 0.0;
    double violation = 0.0;  // of rows, the largest in absolute terms
};

// Relative to a side that is greater than 1. Infinite for a value that is no number, where there is
// a side at all.
double violation(double value, double low, double high);

class Judge {
  public:
    explicit Judge(ModelFunctions& functions)
        : functions_(functions), structure_(functions.structure()) {}

    // False where the functions are not defined. Moves x into its bounds, and makes the objective
    // and the multipliers of bounds follow from the rest.
    bool measure(NlpResult& result, NlpResiduals& residuals);
    // Values of the rows at the last point that was measured.
    const std::vector<double>& activity() const { return activity_; }
    // Whether the Lagrangian of the last point that was measured curves upwards along everything
    // that the active bounds and rows leave free: H + rho A'A is tested to be positive semidefinite
    // (the augmented Lagrangian's Hessian; Nocedal and Wright 2006, section 17.3). True too where
    // that is too much work to find out.
    bool is_second_order_optimal(const NlpResult& result, const StopPoll& poll);

  private:
    bool is_active(int row) const;

    ModelFunctions& functions_;
    const NlpStructure& structure_;
    std::vector<double> activity_, gradient_, jacobian_, term_;
};

}  // namespace nlra
