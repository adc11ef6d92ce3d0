// The nonlinear functions of one problem: a graph that they share, and what stands outside of it.
#pragma once

#include <vector>

#include "nonlinear/formula_parser.hpp"
#include "nonlinear/graph.hpp"
#include "store/model.hpp"

namespace nlra {

struct LinearTerm {
    int col;
    double value;

    bool operator==(const LinearTerm&) const = default;
};
inline bool column_before(const LinearTerm& a, const LinearTerm& b) { return a.col < b.col; }

// constant + linear + quadratic + sum of rest, where no term of the rest is linear, a square of a
// column or a product of two.
struct RootParts {
    double constant = 0.0;
    std::vector<LinearTerm> linear;   // by ascending column, each once
    std::vector<QuadTerm> quadratic;  // as a model keeps them, each pair once
    std::vector<Entry> rest;          // by ascending node, each once
};

// Formulas are checked before anything changes.
class FormulaRoots {
  public:
    // The function must outlive this. Returns its index.
    int add_function(OpaqueFunction* function);
    const std::vector<OpaqueFunction*>& functions() const { return functions_; }
    void set_columns(int columns) { columns_ = columns; }
    FormulaScope scope() const { return {columns_, &functions_}; }

    // Returns the function's number ("root"). Throws Error NLRA_ERROR_ARGUMENT.
    int add(const std::vector<FormulaPiece>& pieces);

    const Graph& graph() const { return graph_; }
    const RootParts& parts(int root) const { return roots_[root]; }

  private:
    RootParts parse(const std::vector<FormulaPiece>& pieces);

    int columns_ = 0;
    Graph graph_;
    std::vector<OpaqueFunction*> functions_;
    std::vector<RootParts> roots_;
};

// The sum of linear and quadratic terms and others that it is, with sums inside of it unfolded.
RootParts split(const Graph& graph, const Terms& sum);

}  // namespace nlra
