// What can be said of a model with formulas beyond the optimality of a point.
#pragma once

#include "nonlinear/nlp_judge.hpp"
#include "params/params.hpp"

namespace nlra {

// Whether bounds exclude each other, a row that nothing can change misses its own, or a row's range
// over the columns' bounds (by interval arithmetic) does.
bool is_contradictory(const Model& model, const ModelFunctions& functions, double tolerance);

// Whether the linear rows and bounds alone leave no point, as the linear solver finds out.
bool linear_part_is_infeasible(const Model& model, const Params& params, Monitor& monitor);

// Whether a point far out goes on to improve and to satisfy the rows at ten and a hundred times the
// distance, along columns without a bound on that side.
bool improves_without_end(const Model& model, ModelFunctions& functions, const NlpResult& result);

}  // namespace nlra
