// The quadratic model of a Lagrangian at a point, along what active bounds and rows leave free:
// whether it curves upwards, what its minimum promises, and the step there. All of it is the same
// in whatever units columns, rows and objective are given.
#pragma once

#include <vector>

#include "analysis/ldlt.hpp"
#include "nonlinear/nlp_functions.hpp"

namespace nlra {

// How close to a bound or a side counts as there, in relative terms.
inline constexpr double kActive = 1e-6;

// What the judge knows of a point.
struct JudgedPoint {
    const NlpResult& result;
    const std::vector<double>& inside;    // where derivatives are taken
    const std::vector<double>& activity;  // by row
    const std::vector<double>& jacobian;
    const std::vector<double>& gradient;  // of the Lagrangian without the bounds' multipliers
    const std::vector<double>& terms;     // by column: the largest that the gradient is the sum of
};

// With a curvature of one everywhere, the multipliers after a step are those that make the gradient
// least.
enum class Curvature { kLagrangian, kUnit };

class NewtonModel {
  public:
    explicit NewtonModel(ModelFunctions& functions) : functions_(functions) {}

    // False, and nothing else may be called, where there are no second derivatives or where it
    // takes too much work. H + rho A'A is factored (the augmented Lagrangian's Hessian; Nocedal and
    // Wright 2006, section 17.3). Throws FactorizationStopped.
    bool make(const JudgedPoint& point, const StopPoll& poll,
              Curvature curvature = Curvature::kLagrangian);
    bool is_convex() const { return is_convex_; }
    // What the objective can still gain, in first order along bounds and sides, in second order
    // (half of the Newton decrement) elsewhere. Only where the model is convex.
    double gain() const { return gain_; }
    // The least change of multipliers that the gradient asks for, relative to its terms.
    double multiplier_error() const { return multiplier_error_; }
    // What the gradient would gain if every free column became zero.
    double slope() const { return slope_; }
    // The size of what objective and curvature are the sum of: much below, there is only rounding.
    double size() const { return size_; }
    // A share of the step to the model's minimum, kept within the bounds.
    NlpResult step(double share) const;

  private:
    struct ActiveRow {
        int row;
        double side;
        std::vector<size_t> entries;  // of the Jacobian, those of free columns
        double norm = 0.0;
    };

    void find_held();
    bool find_active_rows(Curvature curvature);
    bool add_hessian(Curvature curvature);
    void scale();
    void add_penalties();
    void factor(const StopPoll& poll);
    void measure_gain();
    // Of an entry of the Jacobian.
    int place_of(size_t entry) const { return place_[functions_.structure().jacobian_col[entry]]; }
    std::vector<double> minimum(const std::vector<double>& changes, bool sides) const;

    ModelFunctions& functions_;
    const JudgedPoint* point_ = nullptr;
    NlpResult result_;
    std::vector<double> hessian_;
    std::vector<int> place_;  // among the free columns, -1 for those held at a bound
    std::vector<int> free_;
    std::vector<double> scale_;  // by free column
    std::vector<ActiveRow> active_;
    std::vector<double> coefficient_;  // by entry of the Jacobian: scaled and of norm 1 by rows
    std::vector<double> miss_;         // by active row, in its norm
    std::vector<double> slopes_;       // by free column, scaled
    std::vector<SymmetricEntry> entries_;
    SparseLdlt factor_;
    double largest_ = 1.0;  // of the scaled Hessian's entries
    double penalty_ = 0.0;
    bool is_convex_ = false;
    double multiplier_error_ = 0.0, gain_ = 0.0, slope_ = 0.0, size_ = 0.0;
};

}  // namespace nlra
