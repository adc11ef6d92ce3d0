// Newton steps of small, possibly very ill-conditioned quadratic programs with equations, in
// extended precision and with a statement about what the data determine at all.
#pragma once

#include <cstddef>
#include <vector>

namespace nlra {

// Minimize 1/2 p'Hp + g'p subject to J p = s, for a positive semidefinite H. Rows that depend on
// others are left out. Curvature below the rounding error of the matrix counts as none: along such
// directions the step is zero, and when the gradient there is more than rounding, `ray` is one of
// them, downhill.
class DenseNewton {
  public:
    using Real = long double;

    DenseNewton(int columns, int rows);

    int columns() const { return n_; }
    int rows() const { return m_; }
    Real& hessian(int i, int j) {
        return hessian_[static_cast<size_t>(i) * n_ + j];
    }  // both halves
    Real& jacobian(int i, int j) { return jacobian_[static_cast<size_t>(i) * n_ + j]; }
    std::vector<Real> gradient, side;
    std::vector<double> noise;  // what rounding of the data can change about the gradient

    // Consumes the matrices.
    void solve();

    std::vector<Real> step;
    std::vector<Real> duals;     // J'duals = g + Hp
    double gain = 0.0;           // by which the step improves the quadratic
    double noise_gain = 0.0;     // the same for a gradient that consists of the noise alone
    double flat_gain = 0.0;      // what gradients along flat directions may gain, by their size
    std::vector<Real> ray;       // empty: none
    bool ray_is_linear = false;  // no quadratic term at all bends the ray

  private:
    void scale();
    void eliminate_rows();
    void reduce_hessian();
    void factor();
    std::vector<Real> reduced(const std::vector<Real>& full) const;
    // L^-1 of the pivots' part in place; the rest becomes what the pivots cannot explain.
    void forward(std::vector<Real>& v) const;
    void backward(std::vector<Real>& v) const;
    void expand(const std::vector<Real>& reduced_step, bool with_side,
                std::vector<Real>& out) const;
    void judge_noise();
    void find_ray(const std::vector<Real>& explained);

    int n_, m_;
    std::vector<Real> hessian_, jacobian_, row_transform_;
    std::vector<Real> scale_, row_side_;
    std::vector<char> curved_;
    std::vector<int> basic_, basic_row_;  // column and row of each pivot of the equations
    std::vector<int> other_;              // the columns left
    std::vector<Real> matrix_;            // reduced Hessian, then its factor
    std::vector<Real> magnitude_;         // of its diagonal, before anything cancels
    std::vector<int> order_;              // elimination order of the reduced columns
    int rank_ = 0;
    std::vector<Real> noise_left_;
};

}  // namespace nlra
