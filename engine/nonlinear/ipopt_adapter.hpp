// Ipopt behind plain structures. Only ipopt_adapter.cpp includes its header: everybody else
// describes a nonlinear program by NlpStructure and NlpFunctions and calls solve_nlp.
#pragma once

#include <vector>

namespace nlra {

// Sizes and sparsity. Pairs of rows and columns may repeat (their values are added up); the
// Hessian is given by one triangle.
struct NlpStructure {
    int columns = 0;
    int rows = 0;
    std::vector<int> jacobian_row, jacobian_col;
    std::vector<int> hessian_row, hessian_col;
    bool has_hessian = true;  // otherwise a limited-memory approximation is used
    bool linear_rows = false;
    bool constant_hessian = false;
};

// One iteration as it is reported.
struct NlpProgress {
    int iteration;
    bool restoration;  // the solver is looking for a feasible point
    double objective;
    double primal_infeasibility;
    double dual_infeasibility;
    double barrier;
};

// The functions at a point. Each fills its output in the order of NlpStructure; false means that
// the function is not defined there. Exceptions end the solve and come out of solve_nlp.
class NlpFunctions {
  public:
    virtual ~NlpFunctions() = default;
    virtual bool objective(const double* x, double& value) = 0;
    virtual bool gradient(const double* x, double* values) = 0;
    virtual bool rows(const double* x, double* values) = 0;
    virtual bool jacobian(const double* x, double* values) = 0;
    // Of objective_factor * objective + sum of multipliers[i] * row i.
    virtual bool hessian(const double* x, double objective_factor, const double* multipliers,
                         double* values) = 0;
    // Called once per iteration; false stops the solve.
    virtual bool progress(const NlpProgress&) { return true; }
};

// Lengths as in the structure; values at or beyond +-1e20 are infinite.
struct NlpBounds {
    const double* lower;
    const double* upper;
    const double* row_lower;
    const double* row_upper;
};

// A null pointer leaves the choice to the solver: x then starts at zero, moved into its bounds.
// Multipliers count only with NlpOptions::warm_start.
struct NlpStart {
    const double* x = nullptr;
    const double* multipliers = nullptr;
    const double* lower_multipliers = nullptr;
    const double* upper_multipliers = nullptr;
};

enum class PivotOrder { kBySize, kMinimumDegree, kMinimumFill, kQuasiDense };

// By what the solver multiplies objective, columns and rows; columns start and end in their own
// units.
struct NlpScaling {
    double objective = 1.0;
    std::vector<double> columns, rows;

    bool empty() const { return columns.empty(); }
};

struct NlpOptions {
    double tolerance = 1e-8;  // of the scaled optimality conditions
    int max_iterations = 3000;
    double bound_relaxation = 1e-8;  // relative; the result may violate bounds by as much
    bool warm_start = false;
    double initial_barrier = 0.0;  // 0: the solver's choice
    bool adaptive_barrier = false;
    bool scaling = true;  // by gradients at the start, unless given
    NlpScaling given_scaling;
    bool exact_hessian = true;  // where the structure has one
    double bound_push = 1e-2;   // relative distance from its bounds that a cold start gets
    PivotOrder pivot_order = PivotOrder::kBySize;
    double divergence = 1e20;  // a column beyond it ends the solve as diverging
};

enum class NlpStatus {
    kSolved,
    kAcceptable,  // solved to a looser tolerance
    kInfeasible,  // a local minimum of the infeasibility
    kDiverging,
    kIterationLimit,
    kStopped,        // progress() returned false
    kTooFewDegrees,  // more equations than columns that can move
    kFailed,
};

// Lagrangian: objective + sum multipliers * rows - lower_multipliers * x + upper_multipliers * x.
struct NlpResult {
    NlpStatus status = NlpStatus::kFailed;
    int iterations = 0;
    double objective = 0.0;
    std::vector<double> x, multipliers, lower_multipliers, upper_multipliers;
};

// Minimize. Several threads may solve at once. Throws std::bad_alloc, Error NLRA_ERROR_SOLVER for
// a program that Ipopt refuses to take, and what the functions threw.
NlpResult solve_nlp(const NlpStructure& structure, NlpFunctions& functions, const NlpBounds& bounds,
                    const NlpStart& start, const NlpOptions& options);

}  // namespace nlra
