// From tokens to nodes of the graph.
#pragma once

#include <cstddef>
#include <vector>

#include "nonlinear/formula.hpp"
#include "nonlinear/graph.hpp"

namespace nlra {

// What the tokens may refer to.
struct FormulaScope {
    int columns;
    const std::vector<OpaqueFunction*>* functions;  // user functions by index
};

// Checks a formula that closes with an end token among the first `available` tokens, and returns
// the number of tokens before that one. Throws Error NLRA_ERROR_ARGUMENT that tells what is wrong
// and where.
size_t check_formula(const int* types, const double* values, size_t available,
                     const FormulaScope& scope);

// The same for pieces, whose end token may be missing, with their factors and columns.
void check_pieces(const std::vector<FormulaPiece>& pieces, const FormulaScope& scope);

// A sum; node is that of each term.
struct Terms {
    double constant = 0.0;
    std::vector<Entry> terms;
};

// The sum of the pieces. Throws Error NLRA_ERROR_ARGUMENT; the graph then has no new nodes, save
// unused ones when a constant subexpression overflowed.
Terms parse_formula(Graph& graph, const std::vector<FormulaPiece>& pieces,
                    const FormulaScope& scope);

}  // namespace nlra
