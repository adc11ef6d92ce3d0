// Solving a model whose formulas are piecewise linear by its exact reformulation, and by a search
// over the pieces that its rows cannot tell apart.
#pragma once

#include <string>

#include "api/nonlinear_problem.hpp"
#include "search/monitor.hpp"

namespace nlra {

// Fills in the problem's result and returns an empty text. Otherwise it tells why there is no
// reformulation that a linear, mixed integer linear or convex quadratic solver takes.
//
// There are duals where the model itself is continuous; where binaries have been added they are
// those of the linear problem that is left once these are fixed.
std::string solve_nonsmooth(nslp_problem& problem, Monitor& monitor);

}  // namespace nlra
