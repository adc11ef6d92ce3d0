// Constants for conditional rows where column bounds give none.
#pragma once

#include <optional>
#include <vector>

#include "linear/relaxation.hpp"
#include "nonlinear/condition.hpp"
#include "params/params.hpp"
#include "search/monitor.hpp"
#include "store/model.hpp"

namespace nlra {

// Adds the conditions as rows where linear programs limit their terms over all points of the model
// whose objective is no worse than `cutoff`: those points, and all solutions among them, are kept.
// Returns the other conditions.
std::vector<Condition> limit_by_linear_programs(Model& model,
                                                const std::vector<Condition>& conditions,
                                                std::optional<double> cutoff, const Params& params,
                                                Monitor& monitor);

// A distance far beyond what the model's own numbers suggest.
double wide_box(const Model& model);
// The finite bound in an infinite one's place.
Bounds boxed(Bounds bounds, double size);
// Infinite bounds are replaced, and with them all conditions become rows: solutions may be lost.
void put_in_box(Model& model, const std::vector<Condition>& conditions);

}  // namespace nlra
