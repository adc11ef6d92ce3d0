// A graph's expressions in the order in which they are evaluated: plain arrays, made once.
//
// Values live in slots: first the columns that occur, by ascending index, then constants, then
// operations, sorted so that arguments come first and equal operations stand together (a batch is
// one loop). An operation's arguments are its edges, numbered through; each edge has a partial
// derivative. Second derivatives are numbered through as well: one for a unary operation, the
// lower triangle by rows for a call, (a, b) for a product, (a, b), (b, b) for a quotient a / b and
// (a, a), (a, b), (b, b) for a power; none for sums and piecewise linear operations.
#pragma once

#include <cstdint>
#include <vector>

#include "nonlinear/formula_roots.hpp"
#include "nonlinear/graph.hpp"
#include "nonlinear/operations.hpp"

namespace nlra {

struct TapePlan {
    struct Batch {
        Op op;
        int begin;  // operations begin to end - 1
        int end;
    };
    // Ranges of the arrays below, as far as they begin; the next root's begins end them.
    struct Root {
        double constant;
        int linear;
        int quadratic;
        int rest;
    };
    struct LinearSlot {
        int slot;
        double value;
    };
    struct QuadSlots {
        int first, second;
        double value;
    };

    TapePlan(const Graph& graph, const std::vector<const RootParts*>& parts);

    int root_count() const { return static_cast<int>(roots.size()) - 1; }
    int slots() const { return first_op + operations; }
    bool is_constant_slot(int slot) const { return slot >= columns && slot < first_op; }

    int columns = 0;
    int first_op = 0;  // slot of operation 0
    int operations = 0;
    std::vector<int> column;       // by slot
    std::vector<double> constant;  // from slot `columns` on
    std::vector<Batch> batches;
    std::vector<Op> op;         // by operation, as the rest
    std::vector<double> param;  // constant of a sum, exponent, index of a function
    std::vector<int> edge_begin;
    std::vector<int> second_begin;
    std::vector<int> points_begin;  // by batch order of piecewise operations; see points_of
    std::vector<double> points;

    std::vector<int> edge_slot;       // the argument
    std::vector<double> edge_factor;  // coefficients of sums; others zero
    std::vector<int> calls;           // operations that are calls

    std::vector<Root> roots;  // and one more that ends the last
    std::vector<LinearSlot> linear;
    std::vector<QuadSlots> quadratic;
    std::vector<LinearSlot> rest;

  private:
    struct Order;
    void place_columns(const std::vector<const RootParts*>& parts, Order& order);
    void place_operations(const Graph& graph, Order& order);
    void emit(const Graph& graph, const Order& order);
    void emit_roots(const std::vector<const RootParts*>& parts, const Order& order);
};

}  // namespace nlra
