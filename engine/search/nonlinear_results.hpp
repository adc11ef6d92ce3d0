// What a nonlinear solve leaves: for attributes of the problem beneath, and for the next solve.
#pragma once

#include "api/nonlinear_problem.hpp"
#include "search/monitor.hpp"

namespace nlra {

inline bool is_optimum(int status) {
    return status == NSLP_LOCALLY_OPTIMAL || status == NSLP_GLOBALLY_OPTIMAL;
}

// Whether the last solve's optimum still is one: nothing has changed since then, and the functions
// have the same values there.
bool stands(nslp_problem& problem, Monitor& monitor);

// The last solve's result as that of this one, which took no iterations.
void keep_optimum(nslp_problem& problem, Monitor& monitor);

// Where the model has no formulas, the problem beneath gets solution and status of its own.
void tell_problem_beneath(nslp_problem& problem);

}  // namespace nlra
