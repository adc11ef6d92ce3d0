// Small mixed integer problems solved by going through each discrete choice, which leaves a linear
// problem each. Every column needs finite bounds.
#pragma once

#include <optional>

#include "store/model.hpp"

namespace brute_force {

// The best objective value; none when the problem is infeasible. Meant for up to six columns.
std::optional<double> optimum(const nlra::Model& model);

// Whether x keeps bounds, types, rows, sets and indicators.
bool is_feasible(const nlra::Model& model, const std::vector<double>& x, double tolerance);

}  // namespace brute_force
