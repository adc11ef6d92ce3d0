// Units for a model whose numbers span many orders of magnitude.
#pragma once

#include "nonlinear/nlp_functions.hpp"

namespace nlra {

// Columns in units of their values at x; objective and rows such that their first and second
// derivatives there are at most one. Empty where the functions are not defined.
NlpScaling scaling_at(ModelFunctions& functions, const std::vector<double>& x);

}  // namespace nlra
