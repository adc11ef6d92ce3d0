// Bounds of columns as the rows imply them, and of rows as the columns imply them: what big-M
// constants are made of.
#pragma once

#include <vector>

#include "linear/relaxation.hpp"
#include "store/model.hpp"

namespace nlra {

struct ColumnBounds {
    std::vector<double> lower;
    std::vector<double> upper;
};

// Bounds that every point within the model's column bounds and unconditional linear rows keeps, at
// least as tight as the columns' own (semi-continuous ones with zero in their range). Infinite
// where nothing is implied.
ColumnBounds implied_bounds(const Model& model);

// Range of a row's linear part within the bounds, with `fixed_col` (-1: none) at `fixed_value`.
Bounds activity_range(const Model& model, int row, const ColumnBounds& bounds, int fixed_col,
                      double fixed_value);

}  // namespace nlra
