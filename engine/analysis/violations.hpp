// By how much a point misses the conditions of a model.
#pragma once

#include <string>

#include "search/solution.hpp"
#include "store/model.hpp"

namespace nlra {

// Of one kind of condition. Relative violations are divided by the side that is missed, where that
// is greater than 1.
struct Violations {
    double sum = 0.0;
    double largest = 0.0;
    double relative = 0.0;  // the largest
    int place = -1;         // row, column or set of the largest, -1 while there is none

    void add(int index, double violation, double side);
};

struct PointViolations {
    Violations rows;      // those whose indicator switches them off count as kept
    Violations bounds;    // of columns
    Violations integers;  // distance of columns from what their type allows
    Violations sets;      // what stands beside the columns that may be nonzero
};

// x and slack of the solution must be filled.
PointViolations measure_violations(const Model& model, const Solution& solution);

}  // namespace nlra
