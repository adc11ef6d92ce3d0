// Where an attempt to solve a model with formulas has ended, and what that is worth.
#pragma once

#include "nonlinear/nlp_judge.hpp"
#include "params/params.hpp"

namespace nlra {

class NlpEnd {
  public:
    // How far an end meets the conditions of an optimum: not at all, as far as derivatives in their
    // own units tell, or as far as what the objective can still gain.
    enum class Grade { kNone, kWeak, kStrong };

    NlpEnd(ModelFunctions& functions, const Params& controls, StopPoll poll);

    // Measures the point, and improves it where its objective can still gain. False, and the point
    // is worth nothing, where the functions are not defined.
    bool look_closer(bool is_start = false);
    Grade grade() const;
    bool is_feasible() const { return residuals.primal <= row_tolerance_; }
    double row_tolerance() const { return row_tolerance_; }
    // Whether the second-order conditions fail, as far as it takes reasonable work to know.
    bool may_be_saddle() const { return closer_ != nullptr && !closer_->is_convex(); }
    // The objective where the search began, which tells what is a small change of it.
    void begin_at(const double* x);
    // Values of the rows at the point.
    const std::vector<double>& activity() const { return judge_.activity(); }

    NlpResult result;
    NlpResiduals residuals;
    long steps = 0;  // of Newton's method, in all

  private:
    void try_other_multipliers();

    ModelFunctions& functions_;
    Judge judge_;
    const StopPoll poll_;
    const double row_tolerance_, tolerance_;  // what an interior point method can promise
    const NewtonModel* closer_ = nullptr;     // at the point
    double objective_at_start_ = 0.0;
};

}  // namespace nlra
