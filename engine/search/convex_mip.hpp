// Convex mixed integer problems with quadratic terms or formulas: from the model to its solution.
#pragma once

#include <optional>
#include <vector>

#include "linear/linear_solver.hpp"
#include "params/params.hpp"
#include "store/model.hpp"

struct nslp_problem;

namespace nlra {

class Monitor;

// A mixed integer model with quadratic terms or formulas; empty when it is not proven to be convex
// with all integrality relaxed. `start` is empty or has a value for each column, NaN where unknown.
// Throws Error NLRA_ERROR_UNSUPPORTED as PlainForm does.
std::optional<MipOutcome> solve_convex_mip(const Model& model, const Params& params,
                                           const std::vector<double>& start, Monitor& monitor);

// The same for a form of a nonlinear problem: fills in the problem's result with the solution of
// this model, or returns false with nothing changed.
bool solve_convex_mip(nslp_problem& problem, const Model& model, Monitor& monitor);

}  // namespace nlra
