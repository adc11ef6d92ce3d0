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
    // Whether the function is positive and its logarithm convex: exp(f) for a convex f, and what
    // sums, products and powers make of such. It then is convex itself.
    bool is_log_convex(int index) const;
    // Whether the function is nowhere negative and its square root convex: squares, and sums of
    // them, a norm's argument. It then is convex itself.
    bool has_convex_root(int index) const;
    bool is_convex_square(const Node& node) const;
    bool is_sum_of_squares(const RootParts& parts) const;
    // By what is known of a unary operation's argument beyond its shape.
    bool is_convex_by_argument(const Node& node) const;
    bool is_positive_concave(int node) const {
        return range_[node].low >= 0.0 && shape_[node].concave;
    }
    Interval range_of_column(int column) const;
    bool is_fixed(int node) const { return range_[node].low == range_[node].high; }

    const Graph& graph_;
    const double* lower_;
    const double* upper_;
    std::vector<Interval> range_;
    std::vector<Shape> shape_;
    std::vector<char> log_convex_;
};

}  // namespace nlra
