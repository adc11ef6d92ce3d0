// One solve of a model with formulas: by the method that its functions and columns allow.
#pragma once

#include "api/nonlinear_problem.hpp"

namespace nlra {

// Fills in the problem's result. Throws Error NLRA_ERROR_UNSUPPORTED for models with discrete parts
// that no method takes, NLRA_ERROR_STATE after a user function failed.
void optimize_nonlinear(nslp_problem& problem);

}  // namespace nlra
