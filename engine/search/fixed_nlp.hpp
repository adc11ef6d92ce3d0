// The continuous problem that is left of a mixed integer one when the integral columns are fixed.
#pragma once

#include <vector>

#include "nonlinear/ipopt_adapter.hpp"
#include "nonlinear/nlp_functions.hpp"
#include "search/monitor.hpp"
#include "store/model.hpp"

namespace nlra {

// Solves many of them with one set of functions, each from the end of the one before. The model's
// columns are of types C, B and I.
class FixedNlp : public NlpFunctions {
  public:
    FixedNlp(const Model& model, ModelFunctions& functions, Monitor& monitor);

    enum class End {
        kSolved,  // to the interior point method's tolerances
        kPoint,   // of unknown value: the last iterate, or one that misses rows as little as can be
        kNone     // nothing is known
    };
    // Integral columns of x hold the values to fix; the others are where to begin, and the outcome.
    End solve(std::vector<double>& x);

    // How much x misses rows and bounds by, relative to sides beyond 1; infinite where a function
    // is not defined.
    double violation(const std::vector<double>& x);

    bool objective(const double* x, double& value) override {
        return functions_.objective(x, value);
    }
    bool gradient(const double* x, double* values) override {
        return functions_.gradient(x, values);
    }
    bool rows(const double* x, double* values) override { return functions_.rows(x, values); }
    bool jacobian(const double* x, double* values) override {
        return functions_.jacobian(x, values);
    }
    bool hessian(const double* x, double factor, const double* multipliers,
                 double* values) override {
        return functions_.hessian(x, factor, multipliers, values);
    }
    // Its iterations are not worth a line each.
    bool progress(const NlpProgress&) override { return !monitor_.should_stop(); }

  private:
    struct LinearRow {
        int row;  // of the functions
        int model_row;
    };

    void fix(const std::vector<double>& x);
    bool settle(const LinearRow& row);
    bool attempt(const std::vector<double>& start, bool warm);
    bool is_fixed(int col) const { return lower_[col] == upper_[col]; }

    const Model& model_;
    ModelFunctions& functions_;
    Monitor& monitor_;
    std::vector<LinearRow> linear_rows_;
    std::vector<double> lower_, upper_, row_lower_, row_upper_;
    std::vector<double> activity_;
    NlpResult last_;  // of the last attempt
    NlpResult warm_;  // of the last solve that succeeded
};

}  // namespace nlra
