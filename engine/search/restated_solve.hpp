// Solving models whose convexity only shows when they are restated.
#pragma once

#include <memory>
#include <string>

#include "api/nonlinear_problem.hpp"
#include "api/problem.hpp"
#include "search/monitor.hpp"
#include "search/restatement.hpp"

namespace nlra {

// Fills in the problem's result where a restatement of the model can be solved to a global end;
// false otherwise, with nothing changed. `continuous`: no column is discrete.
bool solve_restated(nslp_problem& problem, bool continuous, Monitor& monitor);

// A problem in the place of one with quadratic terms that is not convex.
struct StandIn {
    std::unique_ptr<Restatement> restatement;
    nlra_problem problem;

    // Results of the problem in its place.
    void hand_back(nlra_problem& original, Monitor& monitor);
};

// Null where no restatement is proven to be convex.
std::unique_ptr<StandIn> convex_stand_in(const nlra_problem& problem, Monitor& monitor);

}  // namespace nlra
