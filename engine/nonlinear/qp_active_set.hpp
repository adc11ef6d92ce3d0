// Active sets of quadratic programs: solving the optimality conditions that a set defines, and
// correcting the set by what its solution contradicts.
#pragma once

#include <vector>

#include "nonlinear/qp_interior.hpp"

namespace nlra {

enum class Active : signed char { kNone, kLower, kUpper, kBoth };

struct ActiveSet {
    std::vector<Active> columns, rows;
};

// For some rounds, solve the optimality conditions of `active` to full accuracy, each time from
// `origin`, and let the solution correct the set where signs or bounds contradict it: what is
// violated becomes active, what has a dual of the wrong sign is released. `best` becomes the best
// of its own and the solutions by measure(); `residuals` are its.
void pursue(const QuadraticProgram& program, ActiveSet& active, const PrimalDual& origin,
            int rounds, QpRun& run, PrimalDual& best, Residuals& residuals);

}  // namespace nlra
