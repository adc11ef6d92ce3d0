// What composes to convex functions beyond the rules for shapes: logarithms of sums of
// exponentials, and norms.
#include <algorithm>
#include <cmath>
#include <limits>

#include "nonlinear/curvature.hpp"
#include "nonlinear/merge_equal.hpp"

namespace nlra {

bool CurvatureAnalysis::is_log_convex(int index) const {
    const Node& node = graph_.node(index);
    const auto known = [this](int argument) { return log_convex_[argument] != 0; };
    if (is_fixed(index)) return range_[index].low > 0.0;
    switch (node.op) {
        case Op::kExp:
            return shape_[node.first].convex;
        case Op::kSum: {
            const Entry* entries = graph_.entries(node);
            return node.param >= 0.0 && std::all_of(entries, entries + node.second, [&](Entry e) {
                       return e.value > 0.0 && known(e.node);
                   });
        }
        case Op::kMax: {
            const Entry* entries = graph_.entries(node);
            return std::all_of(entries, entries + node.second,
                               [&](Entry e) { return known(e.node); });
        }
        case Op::kProduct:
            return known(node.first) && known(node.second);
        case Op::kDivide:
            return known(node.first) && is_positive_concave(node.second);
        case Op::kGeneralPower: {
            const Interval& base = range_[node.first];
            if (!is_fixed(node.first) || !(base.low > 0.0)) return false;
            return base.low >= 1.0 ? shape_[node.second].convex : shape_[node.second].concave;
        }
        case Op::kReciprocal:
            return is_positive_concave(node.first);
        case Op::kPower:
            return node.param > 0.0 ? known(node.first) : is_positive_concave(node.first);
        case Op::kSquare:
        case Op::kCube:
        case Op::kSqrt:
            return known(node.first);
        default:
            return false;
    }
}

// f^p for p >= 2, where |f| is convex.
bool CurvatureAnalysis::is_convex_square(const Node& node) const {
    const double p = node.op == Op::kSquare ? 2.0 : node.op == Op::kPower ? node.param : 0.0;
    if (!(p >= 2.0)) return false;
    const Shape& shape = shape_[node.first];
    const Interval& range = range_[node.first];
    if (range.low >= 0.0) return shape.convex;
    if (std::fmod(p, 2.0) != 0.0) return false;
    return shape.linear() || (range.high <= 0.0 && shape.concave);
}

// The terms without functions make a quadratic form of the columns and of a further one that is 1.
bool CurvatureAnalysis::is_sum_of_squares(const RootParts& parts) const {
    constexpr int kOne = std::numeric_limits<int>::max();
    for (const Entry& term : parts.rest) {
        const bool is_square =
            log_convex_[term.node] != 0 || is_convex_square(graph_.node(term.node));
        if (!(term.value >= 0.0) || !is_square) return false;
    }
    std::vector<QuadTerm> form{{kOne, kOne, parts.constant}};
    const auto add = [&](int col1, int col2, double value) {
        for (int* const col : {&col1, &col2}) {
            if (*col == kOne || lower_[*col] != upper_[*col]) continue;
            value *= lower_[*col];
            *col = kOne;
        }
        form.push_back({std::min(col1, col2), std::max(col1, col2), value});
    };
    for (const LinearTerm& term : parts.linear) add(term.col, kOne, term.value);
    for (const QuadTerm& term : parts.quadratic) add(term.col1, term.col2, term.value);
    merge_equal(form, term_before);
    const auto is_finite = [](const QuadTerm& term) { return std::isfinite(term.value); };
    return std::all_of(form.begin(), form.end(), is_finite) && is_convex_form(form, 1.0);
}

bool CurvatureAnalysis::has_convex_root(int index) const {
    const Node& node = graph_.node(index);
    if (is_fixed(index)) return range_[index].low >= 0.0;
    if (log_convex_[index] != 0 || is_convex_square(node)) return true;
    if (node.op != Op::kSum && node.op != Op::kProduct) return false;
    return is_sum_of_squares(split(graph_, {0.0, {{1.0, index}}}));
}

bool CurvatureAnalysis::is_convex_by_argument(const Node& node) const {
    switch (node.op) {
        case Op::kLog:
        case Op::kLog10:
            return log_convex_[node.first] != 0;
        case Op::kSqrt:
            return has_convex_root(node.first);
        case Op::kPower:
            return node.param >= 0.5 && has_convex_root(node.first);
        default:
            return false;
    }
}

}  // namespace nlra
