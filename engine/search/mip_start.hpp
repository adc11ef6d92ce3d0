// Which of the known points a mixed integer solve starts from.
#pragma once

#include <vector>

#include "params/params.hpp"
#include "store/model.hpp"

namespace nlra {

class Reformulation;

// Values by column, NaN where unknown.
using StartPoint = std::vector<double>;

// The best feasible one of the points and the last incumbent, else the first of the points, whose
// completion or repair the solver may try, else an empty one. `reformulation` is null for a plain
// model.
StartPoint choose_start(const Model& model, const Reformulation* reformulation,
                        const Params& params, std::vector<StartPoint> points, StartPoint incumbent);

}  // namespace nlra
