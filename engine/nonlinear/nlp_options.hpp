// The interior point method's options as a problem's controls want them.
#pragma once

#include "nonlinear/ipopt_adapter.hpp"
#include "params/params.hpp"

namespace nlra {

// Those of the first attempt at a problem. The limit of iterations is that of one attempt; what is
// left of the whole solve's limit may be less. The controls are the interior point method's and the
// optimizer's.
NlpOptions nlp_options(const Params& interior, const Params& controls);

}  // namespace nlra
