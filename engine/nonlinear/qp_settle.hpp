// Whether a point is the optimum, by what the objective can still gain; small residuals alone do
// not say that where the Hessian is nearly singular.
#pragma once

#include "nonlinear/qp_interior.hpp"

namespace nlra {

enum class Settled {
    kOptimal,      // nothing to gain beyond the tolerance
    kImprovable,   // there is, or may be, but no way to it was found
    kUndetermined  // more could be gained within the rounding of the program's data than tolerated
};

// Judge a point with small residuals, in extended precision; improve it first where it falls short:
// by active-set steps, each of which solves the optimality conditions of its active set. Gains are
// relative to max(1, |objective|). The result is never worse by measure() than tolerated.
Settled settle(const QuadraticProgram& program, QpRun& run, PrimalDual& point);

}  // namespace nlra
