// Solving a nonlinear program so that a stop is heeded in time even within a long factorization.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "nonlinear/ipopt_adapter.hpp"

namespace nlra {

// As solve_nlp. A large program's solver runs on a worker, while all functions are evaluated on the
// calling thread, which polls `should_stop` in between. A solver that does not end within 250 ms
// after that has become true is left to its worker: the result is empty then, and `last_iterate`
// holds the last point at which the gradient was asked for, if any. The functions are not called
// any more after the return.
std::optional<NlpResult> solve_nlp_stoppable(const NlpStructure& structure, NlpFunctions& functions,
                                             const NlpBounds& bounds, const NlpStart& start,
                                             const NlpOptions& options,
                                             const std::function<bool()>& should_stop,
                                             std::vector<double>& last_iterate);

}  // namespace nlra
