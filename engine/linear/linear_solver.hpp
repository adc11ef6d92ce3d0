// HiGHS behind one class. linear/ is the only folder that includes its headers; everybody else sees
// models, outcomes and this class. A problem owns one instance and keeps it between solves, so that
// a changed model is handed over by its edits and solved from the last basis.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "params/params.hpp"
#include "search/solution.hpp"
#include "store/model.hpp"

namespace nlra {

class Monitor;

enum class LpMethod { kAutomatic = 0, kDualSimplex = 1, kPrimalSimplex = 2, kInteriorPoint = 3 };

// Outcome of a mixed integer solve. `status` is a NLRA_MIP_... value.
struct MipOutcome {
    int status = 0;
    int stop = 0;        // NLRA_STOP_... that ended the search early
    Solution solution;   // the incumbent: objective, x and slack
    double bound = 0.0;  // best bound on the objective
    double gap = 0.0;    // relative, between objective and bound
    int64_t nodes = 0;
    int64_t iterations = 0;
    int improvements = 0;  // improving solutions found
};

// Bring bound and gap, and the stop reason that follows from them, in line with the solution's
// objective.
void update_gap(double sense, MipOutcome& outcome);
// Whether the gap is what the controls allow for an optimal solution.
bool within_gap(const MipOutcome& outcome, const Params& params);

class LinearSolver {
  public:
    LinearSolver();
    ~LinearSolver();
    LinearSolver(const LinearSolver&) = delete;
    LinearSolver& operator=(const LinearSolver&) = delete;

    // Solve the linear part of the model with all integrality relaxed: sets are ignored, rows with
    // an indicator are free, and a semi-continuous column may take any value between zero and its
    // bounds. Consumes the model's edits. The last basis is the starting point, except for the
    // interior point method. Throws Error NLRA_ERROR_SOLVER when HiGHS fails; the next call then
    // starts afresh.
    LpOutcome solve_relaxation(const Model& model, const Params& params, LpMethod method,
                               Monitor& monitor);

    // Solve a model whose columns are of the types C, B and I and that has no sets, indicators or
    // quadratic terms (search/reformulate.hpp makes it so). Consumes the model's edits. `start`,
    // when not empty, has a value for each column or NaN where it is to be completed.
    MipOutcome solve_mip(const Model& model, const Params& params, const std::vector<double>& start,
                         Monitor& monitor);

    // Incumbent of the problem's last mixed integer solve by column, for the next one to start
    // from. Only optimize_mip reads and writes it.
    std::vector<double> incumbent;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Version of HiGHS, for the log's header.
const char* linear_solver_version();

// In a child of fork(): give up what belongs to threads that only the parent has.
void linear_solver_after_fork();

}  // namespace nlra
