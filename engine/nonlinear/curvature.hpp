// Proofs of convexity by structure: ranges of all subexpressions over the columns' bounds, and the
// rules by which convex functions compose. Rounding is neglected.
#pragma once

#include <vector>

#include "analysis/convexity.hpp"
#include "nonlinear/formula_roots.hpp"
#include "nonlinear/graph.hpp"

namespace nlra {

struct Interval {
    double low;
    double high;
};

// What is proven, wherever a function is defined within the bounds. Both: linear. Neither: nothing
// is known.
struct Shape {
    bool convex = false;
    bool concave = false;

    bool linear() const { return convex && concave; }
    Shape negated() const { return {concave, convex}; }
};

// How a function changes with its argument. Neither: nothing is known.
struct Trend {
    bool rising = false;
    bool falling = false;
};

class CurvatureAnalysis {
  public:
    // Bounds by column, at or beyond +-kInfinity infinite. The graph must outlive it.
    CurvatureAnalysis(const Graph& graph, const double* lower, const double* upper);

    // Of a function over this graph; its parts may have been added to. Throws
    // FactorizationStopped when the poll says so.
    Shape shape(const RootParts& parts, const StopPoll& poll = {}) const;
    // Contains all values within the bounds.
    Interval range(int node) const { return range_[node]; }
    Interval range(const RootParts& parts) const;
    // Of a unary operation, over its argument's range: as the function that is infinite outside of
    // its domain, upwards or downwards.
    Trend trend(int node, bool upwards) const;

  private:
    Interval range_of(const Node& node) const;
    Shape shape_of(const Node& node) const;
    Shape shape_of_product(const Node& node) const;
    Shape shape_of_quotient(const Node& node) const;
    Interval range_of_column(int column) const;
    bool is_fixed(int node) const { return range_[node].low == range_[node].high; }

    const Graph& graph_;
    const double* lower_;
    const double* upper_;
    std::vector<Interval> range_;
    std::vector<Shape> shape_;
};

}  // namespace nlra
