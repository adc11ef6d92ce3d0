// Defined columns written out where that shows more: a logarithm of a column that is a sum of
// exponentials, or the root of one that is a sum of squares, is convex in what the column stands
// for, but not in the column.
#pragma once

#include "store/model.hpp"

namespace nlra {

// Within logarithms, roots and powers below 1, puts for columns what the nonlinear equalities say
// that define them. All points that meet the equalities have the same values in both models. False,
// with nothing changed, where there is no such place or the formulas would get too long.
bool write_out_definitions(Model& model);

// Whether there are such functions at all.
bool has_places_to_write_out(const Formulas& formulas);

}  // namespace nlra
