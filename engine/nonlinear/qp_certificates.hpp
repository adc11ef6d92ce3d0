// Proofs that a convex quadratic program has no optimum. Both come from auxiliary programs that
// have one, solved like any other and judged by the same residuals.
#pragma once

#include <vector>

#include "nonlinear/qp_interior.hpp"

namespace nlra {

enum class Feasibility { kFeasible, kInfeasible, kUnknown };

// Minimize the sum of violations (rows scaled to coefficients of at most one). Infeasible when its
// optimum, up to the gap that its residuals leave, is more than the tolerance allows; feasible when
// `x`, the minimizer, is.
Feasibility check_feasibility(const QuadraticProgram& program, QpRun& run, std::vector<double>& x);

// Whether the objective falls without end from every feasible point: a direction that no bound,
// row or square opposes and along which the objective falls, after leaving out the rows that other
// such directions satisfy at no cost. False also when none was found.
bool has_improving_ray(const QuadraticProgram& program, QpRun& run);

}  // namespace nlra
