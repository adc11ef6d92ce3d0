// Solving a quadratic program that is expected to have an optimum: runs of the interior point
// solver with ever different settings, each polished and judged.
#pragma once

#include "nonlinear/qp_interior.hpp"

namespace nlra {

enum class Attempts {
    kFirst,  // one run with a short limit: enough for nearly every program that has an optimum
    kOthers  // the settings that are tried next
};

// True when `point` is optimal within the run's tolerances. Otherwise `point` is the last iterate
// (after a stop), or of no use. `start` may be null. Iterations are logged at `log_level`.
bool find_optimum(const QuadraticProgram& program, Attempts attempts, const double* start,
                  QpRun& run, int log_level, PrimalDual& point);

}  // namespace nlra
