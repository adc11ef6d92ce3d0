// One run of the interior point solver on a quadratic program, and what such runs share.
#pragma once

#include <vector>

#include "nonlinear/ipopt_adapter.hpp"
#include "nonlinear/quadratic_program.hpp"
#include "search/monitor.hpp"

namespace nlra {

// Limits and figures of one solve_convex_quadratic call, over all of its runs.
struct QpRun {
    Monitor& monitor;
    double feasibility_tolerance;
    double optimality_tolerance;
    long iteration_limit;
    long iterations = 0;
    bool stopped = false;    // by the monitor
    bool exhausted = false;  // by the iteration limit
    // The last point found is as good as the program's data let anybody tell, which is less than
    // the tolerance asks for.
    bool undetermined = false;

    bool over() const { return stopped || exhausted; }
    bool accepts(const Residuals& residuals) const {
        return residuals.primal <= feasibility_tolerance &&
               residuals.dual <= optimality_tolerance &&
               residuals.complementarity <= optimality_tolerance;
    }
};

struct InteriorResult {
    NlpStatus status = NlpStatus::kFailed;
    PrimalDual point;  // projected; after a stop the last iterate, or empty
    std::vector<double> lower_multipliers, upper_multipliers;
};

// `start` may be null. The caller decides by measure() what the point is worth. The options'
// iteration limit is cut to what `run` has left. Iterations are logged at `log_level`.
InteriorResult solve_interior(const QuadraticProgram& program, NlpOptions options,
                              const double* start, QpRun& run, int log_level);

}  // namespace nlra
