// What is known of the expressions of a graph before they are reformulated: ranges, integrality,
// and whether their functions are all piecewise linear.
#pragma once

#include <cstdint>
#include <vector>

#include "nonlinear/graph.hpp"
#include "nonlinear/nonsmooth_pieces.hpp"
#include "store/model.hpp"

namespace nlra {

class NodeFacts {
  public:
    // Bounds by column, at or beyond +-kInfinity infinite. The graph must outlive it.
    NodeFacts(const Graph& graph, const std::vector<char>& type, const std::vector<double>& lower,
              const std::vector<double>& upper);

    Range range(int node) const { return range_[node]; }
    bool is_integral(int node) const { return integral_[node] != 0; }
    // Only zero and one are possible.
    bool is_binary(int node) const;
    // Whether the node's own operation is piecewise linear, or linear in all cases that remain when
    // a binary argument is fixed.
    bool is_supported(int node) const;

  private:
    Range range_of(const Node& node) const;
    bool integral_of(int index) const;

    const Graph& graph_;
    const std::vector<char>& type_;
    const std::vector<double>&lower_, &upper_;
    std::vector<Range> range_;
    std::vector<uint8_t> integral_;
};

// Sum of a constant and scaled ranges.
struct RangeSum {
    Range sum{0.0, 0.0};

    void add(double factor, Range range) {
        if (factor == 0.0) return;
        sum.low += factor * (factor > 0.0 ? range.low : range.high);
        sum.high += factor * (factor > 0.0 ? range.high : range.low);
    }
};

// Bounds as a range.
inline Range range_of_bounds(double lower, double upper) {
    return {lower <= -kInfinity ? -HUGE_VAL : lower, upper >= kInfinity ? HUGE_VAL : upper};
}

}  // namespace nlra
