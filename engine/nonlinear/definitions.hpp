// Equalities that do no more than define a column. Where objective and all other rows push the
// column one way only, the side of the equality that holds it back is enough: from a point that
// keeps that side one that keeps the equality follows, no worse, by moving the column. What is
// convex in such a model shows once the equality is an inequality.
#pragma once

#include <vector>

#include "nonlinear/model_roots.hpp"

namespace nlra {

struct Definition {
    int row;
    int col;             // linear in the row, or its square is
    double coefficient;  // in the row
    bool squared;
};

// Changes the type of rows of `model`, of which the roots are, from equalities to inequalities, as
// far as these are convex; a row whose column is used nowhere else may lose both sides. Linear rows
// change only where that lets a nonlinear one change. Every point of the model is within `bounds`.
// Unless `strict`, a column's bounds count as met where its equality puts it: whether they are, the
// point tells.
//
// A definition's other columns are defined by none before it.
std::vector<Definition> relax_definitions(Model& model, const ModelRoots& roots,
                                          const ColumnBounds& bounds, bool strict,
                                          const StopPoll& poll);

// Moves the defined columns of x to where the rows' equalities hold. False where a row is not
// defined.
bool close_definitions(const Model& model, const ModelRoots& roots,
                       const std::vector<Definition>& definitions, std::vector<double>& x);

}  // namespace nlra
