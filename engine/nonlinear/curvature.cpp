#include "nonlinear/curvature.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace nlra {

namespace {

constexpr double kUnbounded = std::numeric_limits<double>::infinity();
constexpr double kPi = 3.14159265358979323846;
constexpr Interval kEverything{-kUnbounded, kUnbounded};
constexpr Shape kLinearShape{true, true};

// What is known of a function of one argument within the argument's range. Monotone: also as the
// function that is infinite outside of its domain, upwards if it is convex and downwards if it is
// concave.
struct Behaviour {
    Shape own;
    bool rising = false;
    bool falling = false;
};

Shape compose(const Behaviour& f, const Shape& inner) {
    const bool affine = inner.linear();
    return {
        f.own.convex && (affine || (f.rising && inner.convex) || (f.falling && inner.concave)),
        f.own.concave && (affine || (f.rising && inner.concave) || (f.falling && inner.convex))};
}

bool within(const Interval& x, double low, double high) { return x.low >= low && x.high <= high; }

Behaviour power_behaviour(double p, const Interval& x) {
    const bool positive = x.low >= 0.0;
    const bool negative = x.high <= 0.0;
    if (p != std::floor(p)) {
        if (p < 0.0) return {{true, false}, false, true};
        return p > 1.0 ? Behaviour{{true, false}, positive, false}
                       : Behaviour{{false, true}, true, false};
    }
    const bool even = std::fmod(p, 2.0) == 0.0;
    if (p > 0.0) {
        return even ? Behaviour{{true, false}, positive, negative}
                    : Behaviour{{positive, negative}, true, false};
    }
    // Two branches that must not both be in reach.
    if (!positive && !negative) return {};
    return even ? Behaviour{{true, false}, negative, positive}
                : Behaviour{{positive, negative}, false, true};
}

Behaviour behaviour(Op op, double p, const Interval& x) {
    const bool positive = x.low >= 0.0;
    const bool negative = x.high <= 0.0;
    switch (op) {
        case Op::kPower:
            return power_behaviour(p, x);
        case Op::kSquare:
            return power_behaviour(2.0, x);
        case Op::kCube:
            return power_behaviour(3.0, x);
        case Op::kReciprocal:
            return power_behaviour(-1.0, x);
        case Op::kSqrt:
        case Op::kLog:
        case Op::kLog10:
            return {{false, true}, true, false};
        case Op::kExp:
            return {{true, false}, true, false};
        case Op::kSin:
            return {
                {within(x, -kPi, 0.0), within(x, 0.0, kPi)}, within(x, -kPi / 2, kPi / 2), false};
        case Op::kCos:
            return {
                {false, within(x, -kPi / 2, kPi / 2)}, within(x, -kPi, 0.0), within(x, 0.0, kPi)};
        case Op::kTan:
            if (!within(x, -kPi / 2, kPi / 2)) return {};
            return {{positive, negative}, true, false};
        case Op::kAsin:
            return {{positive, negative}, true, false};
        case Op::kAcos:
            return {{negative, positive}, false, true};
        case Op::kAtan:
        case Op::kErf:
            return {{negative, positive}, true, false};
        case Op::kErfc:
            return {{positive, negative}, false, true};
        case Op::kAbs:
            return {{true, positive || negative}, positive, negative};
        default:  // kSign: constant where it is known
            if (x.low > 0.0 || x.high < 0.0) return {kLinearShape, true, true};
            return {};
    }
}

bool is_defined_within(Op op, double p, const Interval& x) {
    switch (op) {
        case Op::kPower:
            if (p < 0.0) return x.low > 0.0 || (x.high < 0.0 && p == std::floor(p));
            return p == std::floor(p) || x.low >= 0.0;
        case Op::kReciprocal:
            return x.low > 0.0 || x.high < 0.0;
        case Op::kSqrt:
            return x.low >= 0.0;
        case Op::kLog:
        case Op::kLog10:
            return x.low > 0.0;
        case Op::kAsin:
        case Op::kAcos:
            return within(x, -1.0, 1.0);
        default:
            return true;
    }
}

// Slopes that only grow or only fall, without jumps.
Behaviour piecewise_behaviour(const Entry* entries, int count) {
    Behaviour out{kLinearShape, true, true};
    double before = 0.0;
    for (int k = 3; k + 1 < count; k += 2) {
        const double width = entries[k].value - entries[k - 2].value;
        const double rise = entries[k + 1].value - entries[k - 1].value;
        if (width == 0.0) {
            if (rise != 0.0) return {};
            continue;
        }
        const double slope = rise / width;
        if (k > 3 && slope < before) out.own.convex = false;
        if (k > 3 && slope > before) out.own.concave = false;
        if (slope < 0.0) out.rising = false;
        if (slope > 0.0) out.falling = false;
        before = slope;
    }
    return out;
}

double times(double a, double b) { return a == 0.0 || b == 0.0 ? 0.0 : a * b; }

Interval multiply(const Interval& a, const Interval& b) {
    const auto [low, high] = std::minmax(
        {times(a.low, b.low), times(a.low, b.high), times(a.high, b.low), times(a.high, b.high)});
    return {low, high};
}

Interval invert(const Interval& x) {
    if (x.low >= 0.0) return {1.0 / x.high, x.low == 0.0 ? kUnbounded : 1.0 / x.low};
    if (x.high <= 0.0) return {x.high == 0.0 ? -kUnbounded : 1.0 / x.high, 1.0 / x.low};
    return kEverything;
}

// Of a function that is monotone where it is defined, domain_low <= x <= domain_high.
template <class F>
Interval monotone(const Interval& x, double domain_low, double domain_high, const F& f) {
    const double a = f(std::clamp(x.low, domain_low, domain_high));
    const double b = f(std::clamp(x.high, domain_low, domain_high));
    return {std::min(a, b), std::max(a, b)};
}

Interval power_range(double p, const Interval& x) {
    const auto f = [&](double t) { return std::pow(t, p); };
    if (p != std::floor(p)) return monotone(x, 0.0, kUnbounded, f);
    if (p < 0.0) return invert(power_range(-p, x));
    if (std::fmod(p, 2.0) != 0.0) return monotone(x, -kUnbounded, kUnbounded, f);
    const Interval ends = monotone(x, -kUnbounded, kUnbounded, f);
    return x.low < 0.0 && x.high > 0.0 ? Interval{0.0, ends.high} : ends;
}

Interval unary_range(Op op, double p, const Interval& x) {
    double low = -kUnbounded;
    double high = kUnbounded;
    switch (op) {
        case Op::kPower:
            return power_range(p, x);
        case Op::kSquare:
            return power_range(2.0, x);
        case Op::kCube:
            return power_range(3.0, x);
        case Op::kReciprocal:
            return invert(x);
        case Op::kSin:
            if (!within(x, -kPi / 2, kPi / 2)) return {-1.0, 1.0};
            break;
        case Op::kCos:
            if (!within(x, -kPi, 0.0) && !within(x, 0.0, kPi)) return {-1.0, 1.0};
            break;
        case Op::kTan:
            if (!(x.low > -kPi / 2 && x.high < kPi / 2)) return kEverything;
            break;
        case Op::kAbs:
            if (x.low < 0.0 && x.high > 0.0) return {0.0, std::max(-x.low, x.high)};
            break;
        case Op::kSqrt:
        case Op::kLog:
        case Op::kLog10:
            low = 0.0;
            break;
        case Op::kAsin:
        case Op::kAcos:
            low = -1.0;
            high = 1.0;
            break;
        default:
            break;
    }
    Interval out = kEverything;
    visit_unary(
        op, [&](auto f) { out = monotone(x, low, high, [&](double t) { return f.value(t, p); }); });
    return out;
}

}  // namespace

CurvatureAnalysis::CurvatureAnalysis(const Graph& graph, const double* lower, const double* upper)
    : graph_(graph),
      lower_(lower),
      upper_(upper),
      range_(graph.size()),
      shape_(graph.size()),
      log_convex_(graph.size(), 0) {
    for (int i = 0; i < graph.size(); ++i) {
        const Node& node = graph.node(i);
        range_[i] = range_of(node);
        if (std::isnan(range_[i].low) || std::isnan(range_[i].high)) range_[i] = kEverything;
        shape_[i] = is_fixed(i) ? kLinearShape : shape_of(node);
        log_convex_[i] = is_log_convex(i);
        shape_[i].convex |= log_convex_[i] != 0;
    }
}

Interval CurvatureAnalysis::range_of_column(int column) const {
    const double low = lower_[column], high = upper_[column];
    return {low <= -kInfinity ? -kUnbounded : low, high >= kInfinity ? kUnbounded : high};
}

Interval CurvatureAnalysis::range(const RootParts& parts) const {
    Interval sum{parts.constant, parts.constant};
    const auto add = [&](double factor, const Interval& range) {
        const Interval term = multiply({factor, factor}, range);
        sum = {sum.low + term.low, sum.high + term.high};
    };
    for (const LinearTerm& term : parts.linear) add(term.value, range_of_column(term.col));
    for (const QuadTerm& term : parts.quadratic) {
        const Interval first = range_of_column(term.col1);
        add(term.value, term.col1 == term.col2 ? power_range(2.0, first)
                                               : multiply(first, range_of_column(term.col2)));
    }
    for (const Entry& term : parts.rest) add(term.value, range_[term.node]);
    // Also where infinities have cancelled.
    return std::isnan(sum.low) || std::isnan(sum.high) ? kEverything : sum;
}

Interval CurvatureAnalysis::range_of(const Node& node) const {
    const Entry* entries = node.has_entries() ? graph_.entries(node) : nullptr;
    switch (node.op) {
        case Op::kConstant:
            return {node.param, node.param};
        case Op::kColumn:
            return range_of_column(node.first);
        case Op::kSum: {
            Interval sum{node.param, node.param};
            for (int k = 0; k < node.second; ++k) {
                const double factor = entries[k].value;
                const Interval term = multiply({factor, factor}, range_[entries[k].node]);
                sum = {sum.low + term.low, sum.high + term.high};
            }
            return sum;
        }
        case Op::kProduct:
            return multiply(range_[node.first], range_[node.second]);
        case Op::kDivide:
            return multiply(range_[node.first], invert(range_[node.second]));
        case Op::kGeneralPower:
            return {0.0, kUnbounded};
        case Op::kMin:
        case Op::kMax: {
            Interval out = range_[entries[0].node];
            for (int k = 1; k < node.second; ++k) {
                const Interval& other = range_[entries[k].node];
                out = node.op == Op::kMin
                          ? Interval{std::min(out.low, other.low), std::min(out.high, other.high)}
                          : Interval{std::max(out.low, other.low), std::max(out.high, other.high)};
            }
            return out;
        }
        case Op::kPiecewise:
        case Op::kCall:
            return kEverything;
        default:
            return unary_range(node.op, node.param, range_[node.first]);
    }
}

Shape CurvatureAnalysis::shape_of(const Node& node) const {
    const Entry* entries = node.has_entries() ? graph_.entries(node) : nullptr;
    Shape out = kLinearShape;
    switch (node.op) {
        case Op::kConstant:
        case Op::kColumn:
            return out;
        case Op::kSum:
        case Op::kMin:
        case Op::kMax:
            for (int k = 0; k < node.second; ++k) {
                const Shape& inner = shape_[entries[k].node];
                const bool flipped = node.op == Op::kSum && entries[k].value < 0.0;
                const Shape term = flipped ? inner.negated() : inner;
                out = {out.convex && term.convex, out.concave && term.concave};
            }
            return {out.convex && node.op != Op::kMin, out.concave && node.op != Op::kMax};
        case Op::kProduct:
            return shape_of_product(node);
        case Op::kDivide:
            return shape_of_quotient(node);
        case Op::kGeneralPower: {
            const Interval& base = range_[node.first];
            if (!is_fixed(node.first) || !(base.low > 0.0)) return {};
            return compose({{true, false}, base.low >= 1.0, base.low <= 1.0}, shape_[node.second]);
        }
        case Op::kPiecewise:
            return compose(piecewise_behaviour(entries, node.second), shape_[entries[0].node]);
        case Op::kCall:
            return {};
        default:
            out = compose(behaviour(node.op, node.param, range_[node.first]), shape_[node.first]);
            out.convex |= is_convex_by_argument(node);
            return out;
    }
}

Shape CurvatureAnalysis::shape_of_product(const Node& node) const {
    for (const auto& [fixed, other] :
         {std::pair(node.first, node.second), std::pair(node.second, node.first)}) {
        if (is_fixed(fixed)) {
            return range_[fixed].low < 0.0 ? shape_[other].negated() : shape_[other];
        }
        // y log y
        const Node& log = graph_.node(other);
        if ((log.op == Op::kLog || log.op == Op::kLog10) && log.first == fixed &&
            shape_[fixed].linear()) {
            return {true, false};
        }
    }
    return {};
}

Shape CurvatureAnalysis::shape_of_quotient(const Node& node) const {
    const Interval& divisor = range_[node.second];
    if (is_fixed(node.second)) {
        return divisor.low < 0.0 ? shape_[node.first].negated() : shape_[node.first];
    }
    // Squares over what is linear and keeps its sign.
    if (has_convex_root(node.first)) {
        if (is_positive_concave(node.second)) return {true, false};
        if (divisor.high <= 0.0 && shape_[node.second].convex) return {false, true};
    }
    if (is_fixed(node.first)) {
        const Shape inverse = compose(power_behaviour(-1.0, divisor), shape_[node.second]);
        return range_[node.first].low < 0.0 ? inverse.negated() : inverse;
    }
    return {};
}

Shape CurvatureAnalysis::shape(const RootParts& parts, const StopPoll& poll) const {
    Shape out = kLinearShape;
    for (const Entry& term : parts.rest) {
        const Shape inner = term.value < 0.0 ? shape_[term.node].negated() : shape_[term.node];
        out = {out.convex && inner.convex, out.concave && inner.concave};
    }
    // A product with a fixed column is linear.
    std::vector<QuadTerm> terms;
    const auto fixed = [&](int col) { return lower_[col] == upper_[col]; };
    for (const QuadTerm& term : parts.quadratic) {
        if (!fixed(term.col1) && !fixed(term.col2)) terms.push_back(term);
    }
    if (terms.empty()) return out;
    return {out.convex && is_convex_form(terms, 1.0, poll),
            out.concave && is_convex_form(terms, -1.0, poll)};
}

Trend CurvatureAnalysis::trend(int index, bool upwards) const {
    const Node& node = graph_.node(index);
    const Interval& argument = range_[node.first];
    const Behaviour f = behaviour(node.op, node.param, argument);
    const bool extends = upwards ? f.own.convex : f.own.concave;
    if (!extends && !is_defined_within(node.op, node.param, argument)) return {};
    return {f.rising, f.falling};
}

}  // namespace nlra
