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

// constant + linear + quadratic + sum of rest, where no term of the rest is linear, a square of a
// column or a product of two.
struct RootParts {
    double constant = 0.0;
    std::vector<LinearTerm> linear;   // by ascending column, each once
    std::vector<QuadTerm> quadratic;  // as a model keeps them, each pair once
    std::vector<Entry> rest;          // by ascending node, each once
};

// Each function ("root") has a number that stays with it until it is removed. Formulas are
// checked before anything changes.
class FormulaRoots {
  public:
    // The function must outlive this. Returns its index.
    int add_function(OpaqueFunction* function);
    const std::vector<OpaqueFunction*>& functions() const { return functions_; }
    void set_columns(int columns) { columns_ = columns; }
    FormulaScope scope() const { return {columns_, &functions_}; }

    // Throw Error NLRA_ERROR_ARGUMENT.
    int add(const std::vector<FormulaPiece>& pieces);
    void replace(int root, const std::vector<FormulaPiece>& pieces);
    void remove(int root);

    // Old index to new one; -1: deleted, and zero in its place from now on (which can leave a
    // function that is defined nowhere, like 1/x).
    void renumber_columns(const std::vector<int>& map, int columns);

    const Graph& graph() const { return graph_; }
    const RootParts& parts(int root) const { return roots_[root]; }

  private:
    RootParts parse(const std::vector<FormulaPiece>& pieces);
    void drop(int root);
    void rebuild(const std::vector<int>* map);

    int columns_ = 0;
    Graph graph_;
    std::vector<OpaqueFunction*> functions_;
    std::vector<RootParts> roots_;
    std::vector<int> free_;         // numbers of removed roots
    std::vector<int> nodes_added_;  // by root
    int garbage_ = 0;               // at most so many nodes are unused
};

// The sum of linear and quadratic terms and others that it is, with sums inside of it unfolded.
RootParts split(const Graph& graph, const Terms& sum);

}  // namespace nlra
