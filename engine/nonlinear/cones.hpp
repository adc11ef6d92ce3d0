// Quadratic rows that are second-order cones: not convex as functions, but with a convex set of
// points, as a^2 + b^2 <= t^2 for t >= 0, or x^2 <= y z for y, z >= 0.
#pragma once

#include <vector>

#include "nonlinear/model_roots.hpp"

namespace nlra {

// A row whose function, turned so that it has to be at most zero, is q. There is an affine form l
// that is nowhere negative such that q + l^2 is a sum of squares: sqrt(q + 2 l^2) <= sqrt(2) l says
// the same, of convex functions that are smooth where l is positive.
struct Cone {
    int row;
    double factor;                 // turns the row
    std::vector<LinearTerm> form;  // sqrt(2) l, as the new row has it
    double constant;
    double scale;  // of the new row, next to sqrt(q + 2 l^2) - sqrt(2) l
};

// Replaces such rows of `model`, of which the roots are, by their convex form. Every point of the
// model is within `bounds`. Rows that are convex as they are stay. With a radius the apex, where
// the root has no derivative, is rounded: points that miss the row by up to that much pass as well.
std::vector<Cone> replace_cones(Model& model, const ModelRoots& roots, const ColumnBounds& bounds,
                                double radius, const StopPoll& poll);

// sqrt(2) l at x, as the new row has it.
double value_of_form(const Cone& cone, const std::vector<double>& x);

// The dual value of the cone's row from that of the row in its place, at x.
double dual_of_cone(const Cone& cone, double dual, const std::vector<double>& x);

}  // namespace nlra
