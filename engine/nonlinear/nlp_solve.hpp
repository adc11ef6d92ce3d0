// Solving a continuous model with formulas by the interior point method: a local optimum, which is
// a global one where the model is proven convex.
#pragma once

#include <memory>

#include "nonlinear/nlp_functions.hpp"
#include "params/params.hpp"
#include "search/monitor.hpp"
#include "search/solution.hpp"
#include "store/model.hpp"

namespace nlra {

struct NlpOutcome {
    int status = 0;  // NSLP_STATUS
    int stop = 0;    // NLRA_STOP_...
    long iterations = 0;
    Solution solution;  // not present where no point is known
};

// What a solve leaves for the next one of a model with the same formulas.
struct NlpMemory {
    std::unique_ptr<ModelFunctions> functions;
};

// Column types, sets and indicators are not looked at. `controls` are the optimizer's. Throws what
// user functions threw.
NlpOutcome solve_nlp_locally(const Model& model, const Params& controls, const NlpOptions& options,
                             Monitor& monitor, NlpMemory* memory = nullptr);

// Where the next solve of the model can begin after this one.
LastPoint end_of(const NlpOutcome& outcome);

}  // namespace nlra
