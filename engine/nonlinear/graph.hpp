// Expression graph with shared subexpressions: equal expressions are the same node.
//
// Nodes are numbered so that arguments come before what uses them. Constants are folded, unless
// the result is not finite: an expression like 1/0 stays, and is not defined wherever it is
// evaluated. Factors are collected outside of products, quotients and powers, and small sums are
// merged into larger ones; values differ from the formula's own by rounding only.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "nonlinear/operations.hpp"

namespace nlra {

// What an operation refers to beyond two nodes.
struct Entry {
    double value;  // coefficient of a sum's term; coordinate of a piecewise function's point
    int node;
};

// factor * node, or the constant `factor` where node is -1.
struct Scaled {
    double factor;
    int node;

    bool is_constant() const { return node < 0; }
};

struct Node {
    double param;  // constant, constant part of a sum, exponent, index of the called function
    int first;     // column; argument; begin of the entries of kSum, kMin, kMax, kPiecewise, kCall
    int second;    // second argument; number of entries
    Op op;

    bool has_entries() const { return op == Op::kSum || (op >= Op::kMin && op <= Op::kCall); }
};

class Graph {
  public:
    int size() const { return static_cast<int>(nodes_.size()); }
    const Node& node(int index) const { return nodes_[index]; }
    // The entries of a node that has them. A piecewise function's first is its argument, then come
    // x1, y1, x2, y2, ... with node -1.
    const Entry* entries(const Node& node) const { return pool_.data() + node.first; }
    template <class Visitor>
    void for_arguments(int index, Visitor&& visit) const;

    void reserve(size_t more_nodes);

    // Vectors are scratch space of the caller: their contents are lost.
    Scaled column(int index);
    Scaled sum(double constant, std::vector<Entry>& terms);
    Scaled product(double factor, std::vector<Entry>& factors);
    Scaled divide(Scaled a, Scaled b);
    Scaled power(Scaled base, Scaled exponent);
    Scaled unary(Op op, Scaled a);
    Scaled extreme(Op op, const std::vector<Scaled>& args);
    // At least two points by ascending x, two at most at the same; not at the first.
    Scaled piecewise(Scaled x, const std::vector<Scaled>& points);
    Scaled call(int function, const std::vector<Scaled>& args);
    int materialize(Scaled a);

  private:
    int intern(Op op, double param, int first, int second = -1);
    // The entries are in scratch_.
    int intern_entries(Op op, double param);
    uint64_t place_of(const Node& node, const Entry* entries) const;
    template <class Equal, class Create>
    int find_or_create(uint64_t place, const Equal& equal, const Create& create);
    void rehash(size_t slots);

    std::vector<Node> nodes_;
    std::vector<Entry> pool_;
    std::vector<int> table_;        // open addressing: nodes, -1 where empty; a power of two
    std::vector<int> column_node_;  // by column, -1 where there is none
    std::vector<Entry> scratch_;
};

template <class Visitor>
void Graph::for_arguments(int index, Visitor&& visit) const {
    const Node& node = nodes_[index];
    if (node.op <= Op::kColumn) return;
    if (node.has_entries()) {
        const Entry* entry = entries(node);
        for (int i = 0; i < node.second; ++i) {
            if (entry[i].node >= 0) visit(entry[i].node);
        }
        return;
    }
    visit(node.first);
    if (!is_unary(node.op)) visit(node.second);
}

// Sort what is almost in order, as terms of formulas are.
template <class Term, class Before>
void sort_terms(std::vector<Term>& terms, const Before& before) {
    size_t moves = 8 * terms.size();
    for (size_t i = 1; i < terms.size(); ++i) {
        if (!before(terms[i], terms[i - 1])) continue;
        const Term term = terms[i];
        size_t at = i;
        for (; at > 0 && before(term, terms[at - 1]) && moves > 0; --at, --moves) {
            terms[at] = terms[at - 1];
        }
        terms[at] = term;
        if (moves == 0) return std::sort(terms.begin(), terms.end(), before);
    }
}

// The y of a piecewise function's point list (x1, y1, x2, y2, ... as in a node's entries) at x, and
// the slope to the right. NaN before a first jump.
struct PiecewiseValue {
    double value;
    double slope;
};
PiecewiseValue piecewise_at(const double* points, int count, double x);

}  // namespace nlra
