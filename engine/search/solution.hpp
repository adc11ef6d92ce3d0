// Results of a solve as the solvers deliver them and the C functions read them.
#pragma once

#include <vector>

namespace nlra {

class Model;

struct Solution {
    bool present = false;    // x and slack are filled
    bool has_duals = false;  // dual and dj are filled
    double objective = 0.0;
    std::vector<double> x;      // by column
    std::vector<double> slack;  // by row: rhs - row value (quadratic terms included)
    std::vector<double> dual;   // by row: derivative of the objective by the right-hand side
    std::vector<double> dj;     // by column: reduced cost, cost - sum of dual * coefficient
                                // (gradient of the objective for quadratic ones)
    void clear() { *this = Solution(); }
};

// Outcome of a continuous solve. `status` is a NLRA_LP_... value.
struct LpOutcome {
    int status = 0;
    int stop = 0;                 // NLRA_STOP_... when the status is NLRA_LP_UNFINISHED
    Solution solution;            // present also after a stop when a point is known
    long iterations = 0;          // of the simplex method, or of another solver of its own kind
    long barrier_iterations = 0;  // of an interior point method before crossover
};

// Fill objective and slack from x; the solution is then present.
void evaluate(const Model& model, Solution& solution);

}  // namespace nlra
