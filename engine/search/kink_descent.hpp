// What subgradients leave open: whether a point at kinks is a local optimum.
#pragma once

#include "api/nonlinear_problem.hpp"
#include "nonlinear/nlp_solve.hpp"

namespace nlra {

// For the outcome of a local solve that took subgradients at kinks. A local optimum stays one when
// no direction leads to better points, which an exact model of the first derivatives along all
// directions tells; otherwise the search goes on from a better point. Where nothing is proven, and
// for a point called locally infeasible, the outcome is unfinished.
void settle_kinks(nslp_problem& problem, NlpOutcome& outcome, Monitor& monitor);

}  // namespace nlra
