// Where a solve of a model with formulas begins.
#pragma once

#include <cstdint>
#include <vector>

#include "nonlinear/nlp_functions.hpp"

namespace nlra {

// The last solve's end, else the starting values, else zero; moved into the bounds, and to a point
// where all functions are defined if one is found. What is moved is logged.
std::vector<double> start_point(const Model& model, ModelFunctions& functions, Monitor& monitor);

// Multipliers where the last solve ended; zero for what has been added since then.
struct Multipliers {
    std::vector<double> rows, lower, upper;
};
Multipliers last_multipliers(const Model& model, const ModelFunctions& functions);

// A point near x, within the bounds, that differs from it in every column that can move. `trial`
// chooses among several.
std::vector<double> perturbed(const Model& model, std::vector<double> x, int trial);

// A point within the bounds, or near zero where there are none, as if by chance.
std::vector<double> scattered(const Model& model, uint64_t seed, int trial);

}  // namespace nlra
