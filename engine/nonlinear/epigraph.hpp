// Kinks taken out of models where their position is convex. Where a maximum, an absolute value or a
// convex piecewise linear function should only be low, as in a minimized objective or in a row with
// an upper side, a column that is at least as high as each of its parts takes its place: smooth
// parts leave a smooth model. Likewise minima and concave functions that should be high, and, on
// demand, norms that should be low: rounded where they are zero, which leaves them too low by less
// than the radius.
#pragma once

#include <optional>

#include "store/model.hpp"

namespace nlra {

// Nothing when there is no such function, or columns are of other types than C, B and I. Otherwise
// the model's columns and rows with their places, then those added. What belongs to an optimum of
// the new model, dual values included, belongs to one of the old. The new model begins where the
// old one would, with the added columns' values from there. radius: of norms, 0 leaves them as they
// are. Throws what user functions threw.
std::optional<Model> epigraph_form(const Model& model, double radius = 0.0);

}  // namespace nlra
