// The interior point method's options as a problem's controls want them.
#pragma once

#include "api/nonlinear_problem.hpp"
#include "nonlinear/ipopt_adapter.hpp"

namespace nlra {

// Those of the first attempt at a problem. The limit of iterations is that of one attempt; what is
// left of the whole solve's limit may be less.
NlpOptions nlp_options(const nslp_problem& problem);

}  // namespace nlra
