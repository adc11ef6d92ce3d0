#include "nonlinear/nonsmooth_facts.hpp"

#include <algorithm>
#include <cmath>

namespace nlra {

namespace {

constexpr Range kAnything{-HUGE_VAL, HUGE_VAL};

bool is_whole(double value) { return std::floor(value) == value; }

}  // namespace

NodeFacts::NodeFacts(const Graph& graph, const std::vector<char>& type,
                     const std::vector<double>& lower, const std::vector<double>& upper)
    : graph_(graph), type_(type), lower_(lower), upper_(upper) {
    range_.reserve(graph.size());
    integral_.reserve(graph.size());
    for (int i = 0; i < graph.size(); ++i) {
        range_.push_back(range_of(graph.node(i)));
        integral_.push_back(integral_of(i) ? 1 : 0);
    }
}

bool NodeFacts::is_binary(int node) const {
    return is_integral(node) && range_[node].low >= 0.0 && range_[node].high <= 1.0;
}

bool NodeFacts::is_supported(int index) const {
    const Node& node = graph_.node(index);
    switch (node.op) {
        case Op::kConstant:
            return std::isfinite(node.param);
        case Op::kColumn:
        case Op::kSum:
        case Op::kMin:
        case Op::kMax:
        case Op::kAbs:
        case Op::kSign:
            return true;
        case Op::kPiecewise:
            return has_pieces(graph_, node);
        case Op::kProduct:
            return is_binary(node.first) || is_binary(node.second);
        case Op::kSquare:
        case Op::kCube:
            return is_binary(node.first);
        case Op::kPower:
            return node.param > 0.0 && is_binary(node.first);
        default:
            return false;
    }
}

Range NodeFacts::range_of(const Node& node) const {
    switch (node.op) {
        case Op::kConstant:
            return {node.param, node.param};
        case Op::kColumn: {
            // A semi-continuous column may be zero as well.
            Range own = range_of_bounds(lower_[node.first], upper_[node.first]);
            const char type = type_[node.first];
            if (type == 'S' || type == 'R') {
                own = {std::min(own.low, 0.0), std::max(own.high, 0.0)};
            } else if (type == 'B' || type == 'I') {
                own = {std::ceil(own.low - 1e-9), std::floor(own.high + 1e-9)};
            }
            return own;
        }
        case Op::kSum: {
            RangeSum total{{node.param, node.param}};
            for (int i = 0; i < node.second; ++i) {
                const Entry& entry = graph_.entries(node)[i];
                total.add(entry.value, range_[entry.node]);
            }
            return total.sum;
        }
        case Op::kMin:
        case Op::kMax: {
            const Entry* entry = graph_.entries(node);
            Range out = range_[entry[0].node];
            for (int i = 1; i < node.second; ++i) {
                const Range& other = range_[entry[i].node];
                out.low = extreme_of(node.op, out.low, other.low);
                out.high = extreme_of(node.op, out.high, other.high);
            }
            return out;
        }
        case Op::kAbs:
        case Op::kPiecewise: {
            const int argument = node.op == Op::kAbs ? node.first : graph_.entries(node)[0].node;
            if (!has_pieces(graph_, node)) return kAnything;
            return pieces_of(graph_, node, range_[argument]).range(range_[argument]);
        }
        case Op::kSign:
            return {sign_of(range_[node.first].low), sign_of(range_[node.first].high)};
        case Op::kProduct: {
            const int factor = is_binary(node.first) ? node.second : node.first;
            if (!is_binary(node.first) && !is_binary(node.second)) return kAnything;
            return {std::min(0.0, range_[factor].low), std::max(0.0, range_[factor].high)};
        }
        case Op::kSquare:
        case Op::kCube:
        case Op::kPower:
            return is_binary(node.first) ? range_[node.first] : kAnything;
        default:
            return kAnything;
    }
}

bool NodeFacts::integral_of(int index) const {
    const Node& node = graph_.node(index);
    bool integral = true;
    switch (node.op) {
        case Op::kConstant:
            return is_whole(node.param);
        case Op::kColumn:
            return type_[node.first] == 'B' || type_[node.first] == 'I';
        case Op::kSign:
            return true;
        case Op::kSum:
            integral = is_whole(node.param);
            for (int i = 0; integral && i < node.second; ++i) {
                integral = is_whole(graph_.entries(node)[i].value);
            }
            [[fallthrough]];
        case Op::kMin:
        case Op::kMax:
        case Op::kAbs:
        case Op::kProduct:
        case Op::kSquare:
        case Op::kCube:
            graph_.for_arguments(
                index, [&](int argument) { integral = integral && is_integral(argument); });
            return integral;
        case Op::kPower:
            return is_binary(node.first);
        default:
            return false;
    }
}

}  // namespace nlra
