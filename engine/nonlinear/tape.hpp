// Values and derivatives of the functions of a problem, all of them at one point after another.
//
// Everything that a point has been asked for is kept: a Hessian after a Jacobian at the same point
// costs only what the Hessian adds. Where a function is not defined (or its derivative not finite)
// an evaluation returns false. Exceptions come from opaque functions only; the tape stays usable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "nonlinear/opaque_call.hpp"
#include "nonlinear/tape_plan.hpp"

namespace nlra {

class HessianPlan;

class Tape {
  public:
    // Copies what it needs. The parts are those that FormulaRoots gives, or the same with linear
    // and quadratic terms added (a row's others, so that one evaluation gives all of the row).
    Tape(const Graph& graph, const std::vector<const RootParts*>& parts,
         const std::vector<OpaqueFunction*>& functions);
    ~Tape();
    Tape(const Tape&) = delete;
    Tape& operator=(const Tape&) = delete;

    int roots() const { return plan_.root_count(); }
    // The Jacobian by rows (one per root), columns ascending. Fixed.
    const std::vector<int64_t>& jacobian_start() const { return jacobian_start_; }
    const std::vector<int>& jacobian_col() const { return jacobian_col_; }

    // Prepare Hessians. False, and hessian() may not be called, if that took more than max_steps
    // elementary steps for each, which take some 30 bytes and, to prepare, 50 ns.
    bool plan_hessian(size_t max_steps = 10'000'000);
    // Lower triangle, by rows and ascending columns. Fixed.
    const std::vector<int>& hessian_row() const;
    const std::vector<int>& hessian_col() const;

    // x holds at least the columns that occur. Outputs are in the order of the structures. After
    // false, values that are finite are right; other outputs mean nothing.
    bool values(const double* x, double* out);
    bool gradient(const double* x, int root, double* out);
    bool jacobian(const double* x, double* out);
    // Of the sum of weights[i] * root i. Roots of weight zero must be defined as well.
    bool hessian(const double* x, const double* weights, double* out);

  private:
    void plan_jacobian();
    void move_to(const double* x, int level);
    PiecewiseValue piecewise(double function, double x) const;
    void compute_values();
    void compute_first();
    void compute_second();
    bool root_value(int root, double& value) const;
    void root_gradient(int root, double* out);

    TapePlan plan_;
    std::vector<OpaqueCall> calls_;
    // Operations under each root, users first, and where its columns stand.
    std::vector<int> sweep_start_, sweep_;
    std::vector<int64_t> jacobian_start_;
    std::vector<int> jacobian_col_, jacobian_slot_;
    std::vector<double> jacobian_linear_;
    std::unique_ptr<HessianPlan> hessian_;

    // At the present point, as far as level_ says: 0 nothing, 1 values, 2 first and 3 second
    // derivatives.
    int level_ = 0;
    std::vector<double> value_;    // by slot
    std::vector<double> first_;    // by edge
    std::vector<double> second_;   // by number
    std::vector<double> adjoint_;  // by slot; zero between evaluations
    std::vector<double> args_;
};

}  // namespace nlra
