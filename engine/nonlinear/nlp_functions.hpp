// A model with formulas as the interior point solver evaluates it: linear rows are constant, all
// else is on one tape.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "nonlinear/curvature.hpp"
#include "nonlinear/formula_roots.hpp"
#include "nonlinear/ipopt_adapter.hpp"
#include "nonlinear/tape.hpp"
#include "nonlinear/user_function.hpp"
#include "search/monitor.hpp"
#include "store/model.hpp"

namespace nlra {

// Minimizes: the objective of a model that maximizes changes its sign. Rows without bounds or
// without terms are left out. The monitor must outlive its use.
class ModelFunctions : public NlpFunctions {
  public:
    ModelFunctions(const Model& model, Monitor& monitor);

    // Go over to another model, or to what this one has become. False, and the functions are of no
    // more use, unless the two differ only in bounds, linear costs and sides.
    bool renew(const Model& model, Monitor& monitor);
    void attach(Monitor& monitor) { monitor_ = &monitor; }

    const NlpStructure& structure() const { return structure_; }
    NlpBounds bounds() const {
        return {lower_.data(), upper_.data(), row_lower_.data(), row_upper_.data()};
    }
    // The model's row behind each row here.
    const std::vector<int>& model_rows() const { return model_rows_; }
    // A row without terms: its value is the constant of its formula.
    struct ConstantRow {
        int model_row;
        double value;
    };
    const std::vector<ConstantRow>& constant_rows() const { return constant_rows_; }
    // The objective, and the rows that are not linear, in this order; with all of their terms.
    struct Root {
        int row;  // here; -1 for the objective
        RootParts parts;
    };
    const std::vector<Root>& roots() const { return roots_; }
    const FormulaRoots& formulas() const { return formulas_; }
    double sense() const { return sense_; }
    // Whether the problem is proven to be convex, so that a local optimum is a global one.
    bool is_convex() const;
    // Whether a row misses its bounds by more than a tolerance wherever the columns are within
    // theirs.
    bool range_is_contradictory(double tolerance) const;
    int last_iteration() const { return last_iteration_; }

    bool objective(const double* x, double& value) override;
    bool gradient(const double* x, double* values) override;
    bool rows(const double* x, double* values) override;
    bool jacobian(const double* x, double* values) override;
    bool hessian(const double* x, double objective_factor, const double* multipliers,
                 double* values) override;
    bool progress(const NlpProgress& progress) override;

  private:
    struct Coefficient {
        int row, col;
        double value;
    };

    // What the functions are made of beside bounds, linear costs and sides.
    struct Source {
        double sense;
        int columns;
        std::vector<int64_t> start;
        std::vector<int> index;
        std::vector<double> value;
        std::vector<QuadTerm> qobj;
        std::map<int, std::vector<QuadTerm>> qrows;
        Formula objective;
        std::map<int, Formula> rows;
        bool calls;

        explicit Source(const Model& model);
        bool matches(const Model& model) const;
    };

    void add_rows(const Model& model);
    void add_costs(const Model& model);
    RootParts parts_of(const Formula& formula, const std::vector<QuadTerm>* quadratic,
                       double factor);
    void plan();
    const CurvatureAnalysis& analysis() const;

    const Source source_;
    Monitor* monitor_;
    const double sense_;
    std::vector<double> lower_, upper_, row_lower_, row_upper_;
    std::vector<int> model_rows_;
    std::vector<ConstantRow> constant_rows_;

    CalledFunctions functions_;
    FormulaRoots formulas_;
    std::vector<Root> roots_;
    RootParts objective_;              // without the linear costs
    std::vector<LinearTerm> costs_;    // linear, of columns
    double constant_ = 0.0;            // the objective's beside its formula's
    std::vector<Coefficient> linear_;  // of linear rows
    std::unique_ptr<Tape> tape_;
    // Made when it is first asked for, as is the proof.
    mutable std::unique_ptr<CurvatureAnalysis> analysis_;
    mutable std::optional<bool> is_convex_;

    NlpStructure structure_;
    int last_iteration_ = 0;
    std::vector<double> values_, jacobian_, weights_;  // by root; by the tape's entries; by root
};

}  // namespace nlra
