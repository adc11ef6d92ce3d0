// Small mixed integer problems solved by going through everything: each discrete choice, and for
// the columns that stay continuous each vertex. Shares no code with the solvers. Every column needs
// finite bounds.
#pragma once

#include <optional>

#include "store/model.hpp"

namespace brute_force {

// The best objective value; none when the problem is infeasible. Meant for up to six columns.
std::optional<double> optimum(const nlra::Model& model);

// Whether x keeps bounds, types, rows, sets and indicators.
bool is_feasible(const nlra::Model& model, const std::vector<double>& x, double tolerance);

}  // namespace brute_force
