// Linear rows that hold where a binary column says so.
#pragma once

#include <vector>

#include "nonlinear/row_block.hpp"

namespace nlra {

// Where the column has the value `active`, terms <= side. Terms may repeat a column.
struct Condition {
    int col;
    bool active;
    std::vector<LinearTerm> terms;
    double side;
    // Unless empty: in solutions the terms, of one column, are no greater than these and a
    // constant, or than zero.
    std::vector<LinearTerm> limit = {};
    double limit_constant = 0.0;
};

// The condition as a row, for points where the terms are no greater than side + excess.
inline void add_row(const Condition& condition, double excess, RowBlock& rows) {
    rows.begin('L', condition.active ? condition.side + excess : condition.side);
    for (const LinearTerm& term : condition.terms) rows.add(term.col, term.value);
    rows.add(condition.col, condition.active ? excess : -excess);
}

// Rows that give way by more than this hide the smallest tolerance of the search for binaries.
constexpr double kMaxExcess = 1e9;

}  // namespace nlra
