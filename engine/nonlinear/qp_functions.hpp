// A quadratic program's functions as the interior point solver evaluates them.
#pragma once

#include <cstdint>
#include <vector>

#include "nonlinear/ipopt_adapter.hpp"
#include "nonlinear/quadratic_program.hpp"

namespace nlra {

// Knows for every quadratic term its entries of Jacobian and Hessian, so that an evaluation is one
// pass. The program must outlive it.
class ProgramFunctions : public NlpFunctions {
  public:
    explicit ProgramFunctions(const QuadraticProgram& program);

    const NlpStructure& structure() const { return structure_; }

    bool objective(const double* x, double& value) override;
    bool gradient(const double* x, double* values) override;
    bool rows(const double* x, double* values) override;
    bool jacobian(const double* x, double* values) override;
    bool hessian(const double* x, double objective_factor, const double* multipliers,
                 double* values) override;

  private:
    void plan_jacobian();
    void plan_hessian();

    const QuadraticProgram& program_;
    NlpStructure structure_;
    std::vector<double> scratch_;
    // Entries by term. The Jacobian's begin with the linear coefficients; the Hessian's end with
    // the regularized diagonal.
    std::vector<int64_t> jacobian_first_, jacobian_second_;
    std::vector<int64_t> hessian_objective_, hessian_form_;
    double regularization_ = 0.0;
};

}  // namespace nlra
