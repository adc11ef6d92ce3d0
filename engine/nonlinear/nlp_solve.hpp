// Solving a continuous model with formulas by the interior point method: a local optimum, which is
// a global one where the model is proven convex.
#pragma once

#include "api/nonlinear_problem.hpp"
#include "search/monitor.hpp"

namespace nlra {

// Fills in the problem's result. Throws what user functions threw.
void solve_nlp_locally(nslp_problem& problem, Monitor& monitor);

}  // namespace nlra
