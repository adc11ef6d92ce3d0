// Functions of one variable that are linear between breakpoints, as the exact reformulation takes
// them: with no breakpoint that changes nothing or lies outside of the argument's range.
#pragma once

#include <vector>

#include "nonlinear/graph.hpp"

namespace nlra {

// All values within it; infinite ends are infinities.
struct Range {
    double low;
    double high;
};

// Continuous from the right, as evaluation has it: at a breakpoint the jump is done.
struct Pieces {
    std::vector<double> at;     // breakpoints, ascending
    std::vector<double> jump;   // by breakpoint: the value right of it less that left of it
    std::vector<double> slope;  // one more than breakpoints: before, between and behind them
    // A point of the function; with breakpoints the first of them and the value left of it.
    double origin = 0.0;
    double value = 0.0;

    bool has_jumps() const;
    bool is_nondecreasing() const;
    bool is_nonincreasing() const;
    Range range(Range argument) const;
};

// Of a node of kind kAbs or kPiecewise. False when the function is not defined everywhere.
bool has_pieces(const Graph& graph, const Node& node);
Pieces pieces_of(const Graph& graph, const Node& node, Range argument);

}  // namespace nlra
