// What a model's formulas give at a point, without a solve.
#pragma once

#include "search/solution.hpp"
#include "store/model.hpp"

namespace nlra {

// The value of one formula. Throws Error NLRA_ERROR_STATE where it is not defined or a user
// function fails, NLRA_ERROR_ARGUMENT for tokens that are no formula.
double formula_value(const Model& model, const Formula& formula, const double* x);

// Fill objective and slack from x as evaluate() does, with the formulas' values. Throws as above,
// but not for a formula that is not defined in a row without bounds: its slack is NaN. After that
// the solution is not present.
void evaluate_with_formulas(const Model& model, Solution& solution);

// The slack of rows that have a formula but no bounds, which solvers leave out: in `slack` their
// formula is not counted before. NaN where it is not defined. Throws where a user function fails.
void count_formulas_of_free_rows(const Model& model, Solution& solution);

}  // namespace nlra
