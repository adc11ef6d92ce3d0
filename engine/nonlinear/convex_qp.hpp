// Convex quadratic programs and quadratically constrained programs by Ipopt. The only files that
// include Ipopt's header are in this folder.
#pragma once

#include "params/params.hpp"
#include "search/monitor.hpp"
#include "search/solution.hpp"
#include "store/model.hpp"

namespace nlra {

class QuadraticMemory;

// Solve min/max of a model with quadratic objective or rows whose convexity has been checked
// (analysis/convexity.hpp); types, sets and indicators are ignored. Called "optimal" only when the
// KKT residuals, computed here from the model's own data, are within tolerance; "infeasible" and
// "unbounded" only with a certificate checked the same way (the problem is convex). `start`, when
// not null, is a primal starting point by column. `memory`, when not null, is that of the problem:
// the solve begins where the last one ended, and the answer is judged no less.
LpOutcome solve_convex_quadratic(const Model& model, const Params& params, Monitor& monitor,
                                 const double* start, QuadraticMemory* memory = nullptr);

}  // namespace nlra
