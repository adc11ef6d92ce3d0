// Columns that neither the objective nor a row with a side depends on: solvers leave them anywhere.
#pragma once

#include "search/solution.hpp"
#include "store/model.hpp"

namespace nlra {

// Gives each of them its starting value as far as bounds and type allow it, without one the value
// nearest to zero. Terms with coefficient zero do not count. The slack of rows without sides
// follows. Nothing happens where no solution is present.
void settle_unused_columns(const Model& model, Solution& solution);

}  // namespace nlra
