// Convex mixed integer quadratic and nonlinear problems by outer approximation (Duran and Grossmann
// 1986, Fletcher and Leyffer 1994): a linear mixed integer problem made of tangents gives bounds
// and values of the integral columns in turn, for which a continuous convex problem gives the rest
// and the points of new tangents. Tangents at the linear problem's own solutions (Westerlund and
// Pettersson 1995) make it end whatever becomes of the continuous problems.
#pragma once

#include <vector>

#include "linear/linear_solver.hpp"
#include "nonlinear/nlp_functions.hpp"
#include "params/params.hpp"
#include "search/plain_form.hpp"

namespace nlra {

class Monitor;

// The functions are those of the form's model and proven convex. `start` is empty or has a value
// for each of its columns, NaN where unknown. The solution's x is that of the form's model, and
// comes without slacks.
MipOutcome approximate_outside(const PlainForm& form, ModelFunctions& functions,
                               const Params& params, const std::vector<double>& start,
                               Monitor& monitor);

}  // namespace nlra
