// Solving a model with formulas by the interior point method: a local optimum, which is a global
// one where the model is proven convex.
#pragma once

#include "api/nonlinear_problem.hpp"
#include "search/monitor.hpp"

namespace nlra {

// Fills in the problem's result. Throws Error NLRA_ERROR_UNSUPPORTED for models with discrete
// parts, and what user functions threw.
void optimize_nonlinear(nslp_problem& problem, const char* flags);

}  // namespace nlra
