#include "nonlinear/nonsmooth_builder.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace nlra {

namespace {

// Longer values get a column of their own before they are used in many places.
constexpr size_t kCopiedTerms = 8;

uint8_t by_monotonicity(bool increasing, bool decreasing, uint8_t needs) {
    if (increasing) return needs;
    if (decreasing) return negated(needs);
    return needs | kExact;
}

}  // namespace

uint8_t needs_of_argument(const Graph& graph, const NodeFacts& facts, int node, int argument,
                          uint8_t needs) {
    const Node& of = graph.node(node);
    if ((needs & kExact) == 0) return needs;
    if (of.op == Op::kAbs || of.op == Op::kPiecewise) {
        const Pieces pieces = pieces_of(graph, of, facts.range(argument));
        return by_monotonicity(pieces.is_nondecreasing(), pieces.is_nonincreasing(), needs);
    }
    if (of.op == Op::kProduct) {
        const Range other = facts.range(argument == of.first ? of.second : of.first);
        return by_monotonicity(other.low >= 0.0, other.high <= 0.0, needs);
    }
    return needs;
}

NonsmoothBuilder::NonsmoothBuilder(const Graph& graph, const NodeFacts& facts, const Model& model,
                                   double gap)
    : lower(model.lower),
      upper(model.upper),
      type(model.coltype),
      graph_(graph),
      facts_(facts),
      gap_(gap),
      value_(static_cast<size_t>(graph.size())) {}

int NonsmoothBuilder::add_column(char kind, Range range) {
    lower.push_back(range.low);
    upper.push_back(range.high);
    type.push_back(kind);
    return static_cast<int>(type.size()) - 1;
}

void NonsmoothBuilder::begin_value(int node, double constant) {
    value_[node] = {constant, pool_.size(), pool_.size()};
}

void NonsmoothBuilder::add_term(int col, double coefficient) {
    if (coefficient != 0.0) pool_.push_back({col, coefficient});
}

// To the value that has been begun last, which is not this node's.
void NonsmoothBuilder::add_terms(int node, double factor) {
    const Value from = value_[node];
    for (size_t k = from.begin; k < from.end; ++k) {
        add_term(pool_[k].col, factor * pool_[k].value);
    }
}

void NonsmoothBuilder::add_value(int node, double factor, RowBlock& rows) const {
    const Value& value = value_[node];
    rows.add(factor, value.constant, pool_.data() + value.begin, pool_.data() + value.end);
}

void NonsmoothBuilder::add_value(int node, double factor, std::vector<double>& costs,
                                 double& constant) const {
    const Value& value = value_[node];
    constant += factor * value.constant;
    for (size_t k = value.begin; k < value.end; ++k) {
        costs[pool_[k].col] += factor * pool_[k].value;
    }
}

// The value becomes that of a column which a row defines.
void NonsmoothBuilder::move_to_column(int node, char kind) {
    rows_.begin('E', 0.0);
    add_value(node, -1.0, rows_);
    const int col = add_column(kind, facts_.range(node));
    rows_.add(col, 1.0);
    begin_value(node, 0.0);
    add_term(col, 1.0);
    end_value(node);
}

void NonsmoothBuilder::imply(int binary, bool active, int node, double node_factor, double side,
                             std::vector<LinearTerm> terms) {
    implications_.push_back({binary, -1, active, std::move(terms), side, node, node_factor, -1});
}

void NonsmoothBuilder::build(int index, uint8_t needs, bool shared) {
    const Node& node = graph_.node(index);
    switch (node.op) {
        case Op::kConstant:
            begin_value(index, node.param);
            return end_value(index);
        case Op::kColumn:
            begin_value(index, 0.0);
            add_term(node.first, 1.0);
            return end_value(index);
        case Op::kSum:
            return build_sum(index, shared);
        case Op::kAbs:
            return build_pieces(index, node.first, needs);
        case Op::kPiecewise:
            return build_pieces(index, graph_.entries(node)[0].node, needs);
        case Op::kMin:
        case Op::kMax:
            return build_extreme(index, needs);
        case Op::kSign:
            return build_sign(index, needs);
        case Op::kProduct:
            return build_product(index, needs);
        default:  // a power of zero or one
            value_[index] = value_[node.first];
    }
}

void NonsmoothBuilder::build_sum(int index, bool shared) {
    const Node& node = graph_.node(index);
    double constant = node.param;
    for (int i = 0; i < node.second; ++i) {
        const Entry& entry = graph_.entries(node)[i];
        constant += entry.value * value_[entry.node].constant;
    }
    begin_value(index, constant);
    for (int i = 0; i < node.second; ++i) {
        add_terms(graph_.entries(node)[i].node, graph_.entries(node)[i].value);
    }
    end_value(index);
    if (shared && value_[index].end - value_[index].begin > kCopiedTerms) move_to_column(index);
}

// The argument is the first breakpoint, less a column that reaches down from there, plus columns
// that reach from each breakpoint to the next and fill up one after the other.
void NonsmoothBuilder::build_pieces(int index, int argument, uint8_t needs) {
    const Range range = facts_.range(argument);
    const Pieces pieces = pieces_of(graph_, graph_.node(index), range);
    if (pieces.at.empty()) {
        const double slope = pieces.slope[0];
        const double offset = value_[argument].constant - pieces.origin;
        begin_value(index, pieces.value + slope * offset);
        add_terms(argument, slope);
        return end_value(index);
    }
    const size_t last = pieces.at.size();
    const int first_col = add_column('C', {0.0, pieces.at[0] - range.low});
    for (size_t k = 1; k < last; ++k) add_column('C', {0.0, pieces.at[k] - pieces.at[k - 1]});
    add_column('C', {0.0, std::max(0.0, range.high - pieces.at[last - 1])});
    ends_.push_back({argument, first_col, first_col + static_cast<int>(last), pieces.at[0],
                     pieces.at[last - 1]});
    rows_.begin('E', pieces.at[0]);
    add_value(argument, 1.0, rows_);
    begin_value(index, pieces.value);
    for (size_t k = 0; k <= last; ++k) {
        const double direction = k == 0 ? -1.0 : 1.0;
        const int col = first_col + static_cast<int>(k);
        rows_.add(col, -direction);
        add_term(col, direction * pieces.slope[k]);
    }
    order_pieces(argument, needs, pieces, first_col);
    end_value(index);
    if (value_[index].end - value_[index].begin > kCopiedTerms / 2) move_to_column(index);
}

// Between pieces that would not fill up in their order by themselves stands a binary: those before
// it are full where it is one, those behind it empty where it is zero.
void NonsmoothBuilder::order_pieces(int argument, uint8_t needs, const Pieces& pieces,
                                    int first_col) {
    const size_t count = pieces.at.size();
    size_t run = 0;  // the first piece behind the last binary
    int before = -1;
    const auto close_run = [&](size_t end) {
        for (size_t k = run; before >= 0 && k < end; ++k) {
            imply(before, false, -1, 0.0, 0.0, {{first_col + static_cast<int>(k), 1.0}});
        }
    };
    for (size_t k = 0; k < count; ++k) {
        const double jump = pieces.jump[k];
        const double bend = pieces.slope[k + 1] - pieces.slope[k];
        const bool in_order = jump == 0.0 && !((needs & kAbove) != 0 && bend < 0.0) &&
                              !((needs & kBelow) != 0 && bend > 0.0);
        if (in_order) continue;
        const int binary = add_binary();
        add_term(binary, jump);
        close_run(k + 1);
        for (size_t i = run; i <= k; ++i) {
            const int col = first_col + static_cast<int>(i);
            if (i == 0) {
                imply(binary, true, -1, 0.0, 0.0, {{col, 1.0}});
            } else {
                imply(binary, true, -1, 0.0, -upper[col], {{col, -1.0}});
            }
        }
        const bool side_matters =
            ((needs & kAbove) != 0 && jump > 0.0) || ((needs & kBelow) != 0 && jump < 0.0);
        if (side_matters) end_before_jump(argument, binary, pieces, first_col, run, k);
        run = k + 1;
        before = binary;
    }
    close_run(count + 1);
}

// The value before a jump is that of the function only before it.
void NonsmoothBuilder::end_before_jump(int argument, int binary, const Pieces& pieces,
                                       int first_col, size_t first, size_t last) {
    double width = 0.0;
    double reach = 0.0;  // beyond the first breakpoint
    std::vector<LinearTerm> terms;
    for (size_t k = first; k <= last; ++k) {
        const int col = first_col + static_cast<int>(k);
        width += upper[col];
        if (k > 0) reach += upper[col];
        terms.push_back({col, k == 0 ? -1.0 : 1.0});
    }
    double distance = std::min(gap_, 0.5 * width);
    if (facts_.is_integral(argument)) {
        const double at = pieces.at[last];
        distance = at == std::floor(at) ? std::min(1.0, width) : 0.0;
    }
    if (distance == 0.0) return;
    imply(binary, false, -1, 0.0, reach - distance, std::move(terms));
}

void NonsmoothBuilder::build_extreme(int index, uint8_t needs) {
    const Node& node = graph_.node(index);
    const bool is_max = node.op == Op::kMax;
    const int col = add_column('C', facts_.range(index));
    begin_value(index, 0.0);
    add_term(col, 1.0);
    end_value(index);
    const Entry* const entry = graph_.entries(node);
    bool binary = true;
    for (int i = 0; i < node.second; ++i) {
        binary = binary && facts_.is_binary(entry[i].node);
        const bool is_constant = graph_.node(entry[i].node).op == Op::kConstant;
        // The column's bounds keep it on the right side of constants.
        if ((needs & (is_max ? kAbove : kBelow)) == 0 || is_constant) continue;
        rows_.begin(is_max ? 'G' : 'L', 0.0);
        rows_.add(col, 1.0);
        add_value(entry[i].node, -1.0, rows_);
    }
    if ((needs & (is_max ? kBelow : kAbove)) == 0) return;
    if (!binary) return choose_argument(index, is_max, col);
    // At most the sum of zeros and ones; for minima the same with zeros and ones exchanged.
    rows_.begin(is_max ? 'L' : 'G', is_max ? 0.0 : 1.0 - node.second);
    rows_.add(col, 1.0);
    for (int i = 0; i < node.second; ++i) add_value(entry[i].node, -1.0, rows_);
}

// The column is no greater than a maximum's chosen argument, no less than a minimum's.
void NonsmoothBuilder::choose_argument(int index, bool is_max, int col) {
    const Node& node = graph_.node(index);
    const Entry* const entry = graph_.entries(node);
    // Arguments that never attain the extreme are no choice.
    const auto worst = [&](int i) {
        const Range range = facts_.range(entry[i].node);
        return is_max ? range.low : -range.high;
    };
    const auto best = [&](int i) {
        const Range range = facts_.range(entry[i].node);
        return is_max ? range.high : -range.low;
    };
    int leader = 0;
    for (int i = 1; i < node.second; ++i) {
        if (worst(i) > worst(leader)) leader = i;
    }
    std::vector<int> chosen;
    for (int i = 0; i < node.second; ++i) {
        if (i == leader || best(i) > worst(leader)) chosen.push_back(entry[i].node);
    }
    const double side = is_max ? 1.0 : -1.0;
    if (chosen.size() == 1) {
        rows_.begin(is_max ? 'L' : 'G', 0.0);
        rows_.add(col, 1.0);
        return add_value(chosen[0], -1.0, rows_);
    }
    if (chosen.size() == 2) {
        const int second = add_binary();
        imply(second, false, chosen[0], -side, 0.0, {{col, side}});
        return imply(second, true, chosen[1], -side, 0.0, {{col, side}});
    }
    rows_.begin('E', 1.0);
    for (const int argument : chosen) {
        const int binary = add_binary();
        rows_.add(binary, 1.0);
        imply(binary, true, argument, -side, 0.0, {{col, side}});
    }
}

// One binary for the positive and one for the negative side; zero is neither.
void NonsmoothBuilder::build_sign(int index, uint8_t needs) {
    const int argument = graph_.node(index).first;
    const Range range = facts_.range(argument);
    if (range.low > 0.0 || range.high < 0.0) {
        begin_value(index, range.low > 0.0 ? 1.0 : -1.0);
        return end_value(index);
    }
    const double distance = facts_.is_integral(argument) ? 1.0 : gap_;
    const bool above = (needs & kAbove) != 0;
    const bool below = (needs & kBelow) != 0;
    begin_value(index, 0.0);
    if (range.high > 0.0) {
        const int positive = add_binary();
        add_term(positive, 1.0);
        if (above) imply(positive, false, argument, 1.0, 0.0);
        if (below) imply(positive, true, argument, -1.0, -distance);
    }
    if (range.low < 0.0) {
        const int negative = add_binary();
        add_term(negative, -1.0);
        if (above) imply(negative, true, argument, 1.0, -distance);
        if (below) imply(negative, false, argument, -1.0, 0.0);
    }
    end_value(index);
    if (range.low >= 0.0 || range.high <= 0.0) return;
    rows_.begin('L', 1.0);
    for (size_t k = value_[index].begin; k < value_[index].end; ++k) rows_.add(pool_[k].col, 1.0);
}

// The other factor where the binary one is one, otherwise zero.
void NonsmoothBuilder::build_product(int index, uint8_t needs) {
    const Node& node = graph_.node(index);
    const bool first = facts_.is_binary(node.first);
    const int binary = first ? node.first : node.second;
    const int factor = first ? node.second : node.first;
    // A condition that no bounds limit is one on a column.
    const Range range = facts_.range(index);
    const Value& condition = value_[binary];
    const bool is_column = condition.constant == 0.0 && condition.end - condition.begin == 1 &&
                           pool_[condition.begin].value == 1.0;
    if (!is_column && !(range.high - range.low <= kMaxExcess)) move_to_column(binary, 'B');
    const int col = add_column('C', range);
    begin_value(index, 0.0);
    add_term(col, 1.0);
    end_value(index);
    for (const double side : {1.0, -1.0}) {
        if ((needs & (side > 0.0 ? kBelow : kAbove)) == 0) continue;
        implications_.push_back({-1, binary, true, {{col, side}}, 0.0, factor, -side, col});
        implications_.push_back({-1, binary, false, {{col, side}}, 0.0, -1, 0.0, -1});
    }
}

}  // namespace nlra
