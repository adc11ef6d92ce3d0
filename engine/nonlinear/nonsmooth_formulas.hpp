// The formulas of a model whose functions may all be piecewise linear, as roots over one graph.
#pragma once

#include <vector>

#include "nonlinear/formula_roots.hpp"
#include "nonlinear/graph.hpp"
#include "store/model.hpp"

namespace nlra {

// Whether formulas hold functions with kinks, and others (users' ones among them).
struct FunctionKinds {
    bool nonsmooth = false;
    bool smooth = false;
};
FunctionKinds function_kinds(const Formulas& formulas);

class NonsmoothFormulas {
  public:
    // A row's or the objective's formula. `products` are those of the model's own quadratic terms,
    // for models whose products are to be linearized; the formula's are among its rest then.
    struct Root {
        int row;  // -1 for the objective
        RootParts parts;
        std::vector<Entry> products;
    };

    // No formula may call functions of the user's.
    NonsmoothFormulas(const Model& model, bool products_as_nodes);

    const Graph& graph() const { return graph_; }
    // The objective, then rows by index.
    const std::vector<Root>& roots() const { return roots_; }
    // Whether all constants are finite numbers.
    bool is_finite() const { return finite_; }

    // Values of all nodes that evaluate to something at x. Within `tolerance` of the point where
    // sign or a piecewise function jumps, an argument counts as that point.
    std::vector<double> values(const std::vector<double>& x, double tolerance) const;

  private:
    void add_root(int row, const Formula* formula, const std::vector<QuadTerm>* quadratic,
                  bool products_as_nodes);
    Entry product(const QuadTerm& term);
    double value_of(const Node& node, const std::vector<double>& value,
                    const std::vector<double>& x, double tolerance) const;

    const int columns_;
    Graph graph_;
    std::vector<Root> roots_;
    bool finite_ = true;
};

}  // namespace nlra
