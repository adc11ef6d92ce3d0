// The continuous relaxation of a convex model, by whichever solver it is for.
#pragma once

#include "params/params.hpp"
#include "search/monitor.hpp"
#include "search/solution.hpp"
#include "store/model.hpp"

namespace nlra {

// The model is proven convex, has columns of types C, B and I, and neither sets nor indicators.
// Status NLRA_LP_UNSOLVED when no solver knows what to make of it.
LpOutcome solve_convex_relaxation(const Model& model, const Params& params, Monitor& monitor);

}  // namespace nlra
