// A model with formulas as seen from one of its points: first derivatives along a direction, which
// at kinks are piecewise linear functions of it.
#pragma once

#include <optional>

#include "search/solution.hpp"
#include "store/model.hpp"

namespace nlra {

struct DirectionalModel {
    // Columns are the direction, within a box and away from active bounds. The objective is its
    // derivative; rows with formulas or not hold as far as they are active. Its optimum is zero
    // where no direction leads from the point to better ones.
    Model model;
    int kinks = 0;  // at the point
};

// Nothing where derivatives are not known: at jumps, at the edge of a domain, of user functions.
// Throws what user functions threw.
std::optional<DirectionalModel> directional_model(const Model& model, const Solution& at);

}  // namespace nlra
