// A model whose formulas are piecewise linear as one without formulas: exact, by linear rows where
// convexity allows it and by binaries elsewhere. What the binaries choose becomes rows where bounds
// limit the arguments, and is left to the search for solutions where they do not.
//
// abs, min, max, sign and piecewise linear functions may be nested, added up and scaled. Products
// may have one binary factor at least, where the model has discrete columns anyway. Conjunctions
// and disjunctions are minima and maxima.
//
// sign and functions with jumps are not closed: the best value may belong to an argument that only
// approaches the jump. An argument that is not integral therefore counts as being at the jump
// within the tolerance `kJumpTolerance`, and where the side matters it keeps `kJumpGap` from it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "nonlinear/condition.hpp"
#include "nonlinear/nonsmooth_formulas.hpp"
#include "search/solution.hpp"
#include "store/model.hpp"

namespace nlra {

class NonsmoothBuilder;
class NodeFacts;

class NonsmoothReformulation {
  public:
    static constexpr double kJumpTolerance = 1e-6;
    static constexpr double kJumpGap = 1e-5;

    // The formulas must call no functions of the user's. The model must outlive it.
    explicit NonsmoothReformulation(const Model& model);

    // Why there is no reformulation; empty where there is one.
    const std::string& obstacle() const { return obstacle_; }
    // The model without formulas. Its first columns and rows are those of the original model.
    Model& plain() { return plain_; }
    // What else must hold: conditions that no bounds limit, so that no rows can say them.
    const std::vector<Condition>& open_conditions() const { return open_; }

    // Sets objective and slack from the original columns' values. Returns the most by which a row
    // with a formula misses its sides, relative to the magnitudes that it is computed from.
    double evaluate(Solution& solution) const;

  private:
    std::vector<uint8_t> collect_needs(const NodeFacts& facts, std::vector<int>& uses);
    uint8_t needs_of_root(const NonsmoothFormulas::Root& root) const;
    RowBlock limit_conditions(const NonsmoothBuilder& builder);
    void assemble(const NonsmoothBuilder& builder);
    void add_original_rows(const NonsmoothBuilder& builder);
    double miss_of_row(int row, double value, double size) const;

    const Model& model_;
    const bool products_as_nodes_;
    NonsmoothFormulas formulas_;
    Model plain_;
    std::vector<Condition> open_;
    std::string obstacle_;
};

}  // namespace nlra
