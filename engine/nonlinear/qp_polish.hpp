// From an interior point's approximate solution to the solution that its active constraints define.
#pragma once

#include "nonlinear/qp_interior.hpp"

namespace nlra {

// Guess the active bounds and rows from the interior solution, solve the optimality conditions for
// them to full accuracy, and correct the guess where signs or bounds contradict it. Returns the
// best point found by measure(), the given one if nothing is better; `residuals` are its. An
// interior solution is off by the root of the barrier where a bound and its multiplier both
// vanish: this is where it gains most.
PrimalDual polish(const QuadraticProgram& program, const InteriorResult& interior, QpRun& run,
                  Residuals& residuals);

}  // namespace nlra
