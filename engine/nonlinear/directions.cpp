#include "nonlinear/directions.hpp"

#include <algorithm>
#include <functional>
#include <utility>

namespace nlra {

namespace {

Direction along(const Trend& trend, Direction direction) {
    if (trend.rising) return direction;
    return trend.falling ? reversed(direction) : kBoth;
}

// How factor * argument changes with the argument.
Trend trend_of_product(const Interval& factor) { return {factor.low >= 0.0, factor.high <= 0.0}; }

}  // namespace

Pieces pieces_within_range(const Graph& graph, const CurvatureAnalysis& analysis, int index) {
    const Node& node = graph.node(index);
    const int argument = node.op == Op::kAbs ? node.first : graph.entries(node)->node;
    const Interval range = analysis.range(argument);
    return pieces_of(graph, node, {range.low, range.high});
}

void Directions::pull_root(const RootParts& parts, Direction direction) {
    for (const Entry& term : parts.rest) {
        pull(term.node, term.value < 0.0 ? reversed(direction) : direction);
    }
}

// What a rule says by the ranges. Those that depend on the columns' bounds come second: a column
// that has to keep to them takes over part of the dual values of these bounds.
template <class Rule>
Direction Directions::by_ranges(int node, const Rule& rule) {
    Direction out = rule(anywhere_);
    if (out != kBoth) return out;
    out = rule(within_);
    if (out != kBoth) bounded_[node] = 1;
    return out;
}

void Directions::spread() {
    for (int i = graph_.size() - 1; i >= 0; --i) {
        if (direction_[i] != kUnused) spread_from(i);
    }
}

std::vector<Directions::Pull> Directions::pulls_of(const RootParts& parts, Direction direction) {
    std::vector<int> reached;
    const auto reach = [&](int node) {
        if (direction_[node] != kUnused) return;
        direction_[node] = kBoth;
        reached.push_back(node);
    };
    for (const Entry& term : parts.rest) reach(term.node);
    for (size_t k = 0; k < reached.size(); ++k) graph_.for_arguments(reached[k], reach);
    for (const int node : reached) direction_[node] = kUnused;
    std::sort(reached.begin(), reached.end(), std::greater<>());
    pull_root(parts, direction);
    std::vector<Pull> pulls;
    for (const int node : reached) {
        spread_from(node);
        if (graph_.node(node).op == Op::kColumn) {
            pulls.push_back({graph_.node(node).first, direction_[node]});
        }
    }
    for (const int node : reached) {
        direction_[node] = kUnused;
        bounded_[node] = 0;
    }
    return pulls;
}

void Directions::spread_from(int index) {
    const Node& node = graph_.node(index);
    const Direction direction = direction_[index];
    const Entry* const entries = node.has_entries() ? graph_.entries(node) : nullptr;
    graph_.for_arguments(index, [&](int argument) { bounded_[argument] |= bounded_[index]; });
    if (direction == kBoth) {
        graph_.for_arguments(index, [this](int argument) { pull(argument, kBoth); });
        return;
    }
    switch (node.op) {
        case Op::kConstant:
        case Op::kColumn:
            return;
        case Op::kSum:
        case Op::kMin:
        case Op::kMax:
            for (int k = 0; k < node.second; ++k) {
                const bool falls = node.op == Op::kSum && entries[k].value < 0.0;
                pull(entries[k].node, falls ? reversed(direction) : direction);
            }
            return;
        case Op::kProduct:
            for (const auto& [factor, other] :
                 {std::pair(node.first, node.second), std::pair(node.second, node.first)}) {
                pull(factor, by_ranges(other, [&, by = other](const CurvatureAnalysis& analysis) {
                         return along(trend_of_product(analysis.range(by)), direction);
                     }));
            }
            return;
        case Op::kDivide:
            return spread_from_quotient(node, direction);
        case Op::kGeneralPower:
        case Op::kCall:
            graph_.for_arguments(index, [this](int argument) { pull(argument, kBoth); });
            return;
        default:
            spread_from_unary(index);
    }
}

// A divisor that is replaced by a bound must not be led away from zero, where nothing is defined.
void Directions::spread_from_quotient(const Node& node, Direction direction) {
    pull(node.first, by_ranges(node.second, [&](const CurvatureAnalysis& analysis) {
             return along(trend_of_product(analysis.range(node.second)), direction);
         }));
    const auto rule = [&](const CurvatureAnalysis& analysis) {
        const Interval divisor = analysis.range(node.second);
        if (divisor.low < 0.0 && divisor.high > 0.0) return kBoth;
        const Trend above = trend_of_product(analysis.range(node.first));
        const Direction out = along({above.falling, above.rising}, direction);
        const bool leaves_zero =
            (divisor.low == 0.0 && out == kDown) || (divisor.high == 0.0 && out == kUp);
        return leaves_zero ? kBoth : out;
    };
    pull(node.second, by_ranges(node.second, rule));
    bounded_[node.first] |= bounded_[node.second];
}

void Directions::spread_from_unary(int index) {
    const Node& node = graph_.node(index);
    const Direction direction = direction_[index];
    const bool has_points = node.op == Op::kAbs || node.op == Op::kPiecewise;
    const int argument = node.op == Op::kPiecewise ? graph_.entries(node)->node : node.first;
    if (has_points && !has_pieces(graph_, node)) return pull(argument, kBoth);
    pull(argument, by_ranges(argument, [&](const CurvatureAnalysis& analysis) {
             if (!has_points) return along(analysis.trend(index, direction == kDown), direction);
             const Pieces pieces = pieces_within_range(graph_, analysis, index);
             return along({pieces.is_nondecreasing(), pieces.is_nonincreasing()}, direction);
         }));
}

}  // namespace nlra
