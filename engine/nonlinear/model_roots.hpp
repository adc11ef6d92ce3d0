// The objective and the rows of a model as functions over one graph, for analysis without
// evaluation.
#pragma once

#include <utility>
#include <vector>

#include "nonlinear/curvature.hpp"
#include "nonlinear/formula_roots.hpp"
#include "nonlinear/user_function.hpp"
#include "search/activity.hpp"
#include "store/model.hpp"

namespace nlra {

class ModelRoots {
  public:
    explicit ModelRoots(const Model& model);
    ModelRoots(const ModelRoots&) = delete;
    ModelRoots& operator=(const ModelRoots&) = delete;

    const Graph& graph() const { return formulas_.graph(); }
    const std::vector<OpaqueFunction*>& functions() const { return functions_.functions(); }
    // With all terms, but no constant of the model's.
    const RootParts& objective() const { return objective_; }
    // By row; empty for those without sides.
    const std::vector<RootParts>& rows() const { return rows_; }
    // What the formulas alone say, without what else the objective or a row has.
    const RootParts& objective_formula() const { return formulas_.parts(objective_root_); }
    std::vector<std::pair<int, const RootParts*>> row_formulas() const {
        std::vector<std::pair<int, const RootParts*>> out;
        for (const auto& [row, root] : row_roots_) out.emplace_back(row, &formulas_.parts(root));
        return out;
    }
    bool is_linear(int row) const {
        return rows_[row].quadratic.empty() && rows_[row].rest.empty();
    }

  private:
    int add(const Formula& formula);

    CalledFunctions functions_;
    FormulaRoots formulas_;
    int objective_root_;
    std::vector<std::pair<int, int>> row_roots_;  // of rows with formulas
    RootParts objective_;
    std::vector<RootParts> rows_;
};

// Bounds that every point within the columns' bounds and the rows of the model keeps, at least as
// tight as the columns' own: those that a row implies by the ranges of its other terms. `model`
// may differ from that of the roots in types and sides of rows.
ColumnBounds bounds_by_rows(const Model& model, const ModelRoots& roots);

// Whether a local optimum of the model, integrality relaxed, is a global one: objective and rows
// are proven convex within the bounds. A stop ends the proof as failed.
bool is_proven_convex(const Model& model, const ModelRoots& roots, const ColumnBounds& bounds,
                      const StopPoll& poll);

}  // namespace nlra
