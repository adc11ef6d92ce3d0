// Piecewise linear functions as columns and rows, one node of a graph after the other.
//
// A function needs its value kept from one side only where the model pushes it against that side:
// a maximum that is minimized is a column above all arguments. Where that is not enough, binaries
// choose among the linear pieces. Their rows are conditional, x <= y + M (1 - b), with M from
// bounds that are known only when all other rows are.
#pragma once

#include <cstdint>
#include <vector>

#include "nonlinear/condition.hpp"
#include "nonlinear/nonsmooth_facts.hpp"
#include "nonlinear/row_block.hpp"
#include "search/activity.hpp"

namespace nlra {

// What a node's value is needed for.
enum Need : uint8_t {
    kAbove = 1,  // its columns may not lie below the function
    kBelow = 2,  // they may not lie above it
    kExact = kAbove | kBelow,
    kUsed = 4,
};
inline uint8_t negated(uint8_t needs) {
    return static_cast<uint8_t>((needs & kUsed) | (needs & kAbove) << 1 | (needs & kBelow) >> 1);
}
// Of `argument` where a function of it has these needs.
uint8_t needs_of_argument(const Graph& graph, const NodeFacts& facts, int node, int argument,
                          uint8_t needs);

class NonsmoothBuilder {
  public:
    // `gap`: how far from a jump the values before it end, where the jump's side matters and the
    // argument is not integral.
    NonsmoothBuilder(const Graph& graph, const NodeFacts& facts, const Model& model, double gap);

    // Arguments come first. `shared`: the value is used more than once.
    void build(int node, uint8_t needs, bool shared);
    // Adds factor * the value of a node to the last row of the block, or to costs.
    void add_value(int node, double factor, RowBlock& rows) const;
    void add_value(int node, double factor, std::vector<double>& costs, double& constant) const;

    // Columns: the model's and those added.
    std::vector<double> lower, upper;
    std::vector<char> type;
    const RowBlock& rows() const { return rows_; }
    bool has_conditions() const { return !implications_.empty(); }

    // Tighten bounds by column by what follows from them for the nodes. Exact values of all
    // functions keep these bounds, but rows may not: they are needed beside the conditional rows.
    void tighten(const NodeFacts& facts, ColumnBounds& bounds) const;
    // The conditional rows. Those that no bounds limit come back as they are.
    std::vector<Condition> condition(const NodeFacts& facts, const ColumnBounds& bounds,
                                     RowBlock& rows) const;

  private:
    // constant + terms
    struct Value {
        double constant = 0.0;
        size_t begin = 0;
        size_t end = 0;
    };
    // Where the condition (a column, or a node of values 0 and 1) is `active`, terms +
    // node_factor * node <= side. Where it is not, `zero_col` is zero.
    struct Implication {
        int condition_col;
        int condition_node;
        bool active;
        std::vector<LinearTerm> terms;
        double side = 0.0;
        int node = -1;
        double node_factor = 0.0;
        int zero_col = -1;
    };

    // The outer columns of a function of pieces: what the argument lies before the first
    // breakpoint, and behind the last.
    struct Ends {
        int argument;
        int before, behind;
        double first, last;
    };

    int add_column(char kind, Range range);
    int add_binary() { return add_column('B', {0.0, 1.0}); }
    void begin_value(int node, double constant);
    void end_value(int node) { value_[node].end = pool_.size(); }
    void add_term(int col, double coefficient);
    void add_terms(int node, double factor);
    void move_to_column(int node, char kind = 'C');
    Range range_of(int node, const NodeFacts& facts, const ColumnBounds& bounds) const;
    void limit_by_argument(Condition& condition) const;
    Condition condition_of(const Implication& rule) const;
    void imply(int binary, bool active, int node, double node_factor, double side,
               std::vector<LinearTerm> terms = {});

    void build_sum(int node, bool shared);
    void build_pieces(int node, int argument, uint8_t needs);
    void order_pieces(int argument, uint8_t needs, const Pieces& pieces, int first_col);
    void end_before_jump(int argument, int binary, const Pieces& pieces, int first_col,
                         size_t first, size_t last);
    void build_extreme(int node, uint8_t needs);
    void choose_argument(int node, bool is_max, int col);
    void build_sign(int node, uint8_t needs);
    void build_product(int node, uint8_t needs);

    const Graph& graph_;
    const NodeFacts& facts_;
    const double gap_;
    std::vector<Value> value_;  // by node
    std::vector<LinearTerm> pool_;
    RowBlock rows_;
    std::vector<Ends> ends_;
    std::vector<Implication> implications_;
};

}  // namespace nlra
