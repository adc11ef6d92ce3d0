// Which way the roots of a graph pull its nodes: where a lower value can do no harm but a higher
// one can, or the reverse, an expression may be replaced by a bound on it.
#pragma once

#include <cstdint>
#include <vector>

#include "nonlinear/curvature.hpp"
#include "nonlinear/formula_roots.hpp"
#include "nonlinear/nonsmooth_pieces.hpp"

namespace nlra {

enum Direction : uint8_t { kUnused = 0, kDown = 1, kUp = 2, kBoth = 3 };

constexpr Direction reversed(Direction direction) {
    return direction == kDown ? kUp : direction == kUp ? kDown : direction;
}

class Directions {
  public:
    // Ranges of the graph's nodes over the columns' bounds, and wherever the columns are.
    Directions(const Graph& graph, const CurvatureAnalysis& within,
               const CurvatureAnalysis& anywhere)
        : graph_(graph),
          within_(within),
          anywhere_(anywhere),
          direction_(graph.size(), kUnused),
          bounded_(graph.size(), 0) {}

    // A root that should become lower (a minimized objective, a row with an upper side), higher, or
    // neither.
    void pull_root(const RootParts& parts, Direction direction);
    // From the roots, of which all have been given, to everything beneath.
    void spread();

    // Of one root alone, as long as no others have been given: the columns within its functions,
    // each with the way it is pulled. Leaves no trace.
    struct Pull {
        int col;
        Direction direction;
    };
    std::vector<Pull> pulls_of(const RootParts& parts, Direction direction);

    Direction of(int node) const { return direction_[node]; }
    // What this says of nodes holds as long as each of them keeps to this range.
    Interval range_to_keep(int node) const {
        return (bounded_[node] != 0 ? within_ : anywhere_).range(node);
    }

  private:
    void pull(int node, Direction direction) {
        direction_[node] = static_cast<Direction>(direction_[node] | direction);
    }
    void spread_from(int index);
    void spread_from_unary(int index);
    void spread_from_quotient(const Node& node, Direction direction);
    template <class Rule>
    Direction by_ranges(int node, const Rule& rule);

    const Graph& graph_;
    const CurvatureAnalysis& within_;
    const CurvatureAnalysis& anywhere_;
    std::vector<Direction> direction_;
    std::vector<uint8_t> bounded_;  // its range over the columns' bounds has been relied on
};

// The pieces that are within reach of a node of kind kAbs or kPiecewise that has pieces.
Pieces pieces_within_range(const Graph& graph, const CurvatureAnalysis& analysis, int node);

}  // namespace nlra
