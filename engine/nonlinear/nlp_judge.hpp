// Whether a point and its multipliers meet the optimality conditions of a model with formulas, as
// computed by us.
#pragma once

#include <vector>

#include "nonlinear/newton_model.hpp"

namespace nlra {

// What the first-order conditions miss. Rows relative to their sides and the terms that they are
// the sum of; gradients relative to the largest of the terms that they are the sum of; products of
// multipliers and distances relative to the objective's value.
struct NlpResiduals {
    double primal = 0.0;
    double dual = 0.0;
    double complementarity = 0.0;
    double violation = 0.0;  // of rows, the largest in absolute terms
    double term =
        0.0;  // the largest product of multiplier, slope and column, relative to the objective
    double penalty = 0.0;  // of rows, the sum in absolute terms times multipliers
};

// Relative to a side that is greater than 1. Infinite for a value that is no number, where there is
// a side at all.
double violation(double value, double low, double high);

class Judge {
  public:
    explicit Judge(ModelFunctions& functions)
        : functions_(functions), structure_(functions.structure()), model_(functions) {}

    // False where the functions are not defined. Moves x into its bounds, and makes the objective
    // and the multipliers of bounds follow from the rest.
    bool measure(NlpResult& result, NlpResiduals& residuals);
    // Values of the rows at the last point that was measured.
    const std::vector<double>& activity() const { return activity_; }
    // The quadratic model at the last point that was measured. Null where there is none.
    const NewtonModel* look_closer(const NlpResult& result, const StopPoll& poll,
                                   Curvature curvature = Curvature::kLagrangian);

  private:
    bool evaluate(const std::vector<double>& x, NlpResult& result);
    bool differentiate(const std::vector<double>& x);
    bool evaluate_on_edge(NlpResult& result);

    ModelFunctions& functions_;
    const NlpStructure& structure_;
    NewtonModel model_;
    std::vector<double> inside_;  // the point, or beside it where there are derivatives
    std::vector<double> activity_, gradient_, jacobian_, term_;
};

// Newton steps from a point that has been measured, as long as they come nearer to the optimality
// conditions, and how many. The model at the end, null where there is none.
const NewtonModel* polish(Judge& judge, NlpResult& result, NlpResiduals& residuals,
                          const StopPoll& poll, long& steps);

// The least multipliers that go with a point, in place of its own: those of rows that depend on
// each other grow without limit in an interior point method. False where there are none.
bool renew_multipliers(Judge& judge, NlpResult& result, const StopPoll& poll);

}  // namespace nlra
