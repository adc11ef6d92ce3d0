// The affine forms that show a quadratic to be that of a cone.
#pragma once

#include <functional>
#include <limits>
#include <vector>

#include "nonlinear/curvature.hpp"
#include "nonlinear/formula_roots.hpp"

namespace nlra {

// Stands for the column that is always 1: a quadratic function of columns is a form with it. Behind
// all other columns.
inline constexpr int kOneColumn = std::numeric_limits<int>::max();

using AffineForm = std::vector<LinearTerm>;  // by ascending column, the constant last

// A form l with q + l^2 convex in the columns and the one that is 1, and l at least zero wherever
// the columns are within their ranges and the forms in `positive` are; empty if none is found.
// The terms of q are merged and have one column at least that is not kOneColumn.
AffineForm find_cone_form(const std::vector<QuadTerm>& q,
                          const std::function<Interval(int)>& range_of_column,
                          const std::vector<AffineForm>& positive, const StopPoll& poll);

// form^2, added to the terms.
void add_square(std::vector<QuadTerm>& terms, double factor, const AffineForm& form);

}  // namespace nlra
