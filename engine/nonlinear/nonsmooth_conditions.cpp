// The second half of the builder: rows that hold where binaries say so.
#include <algorithm>

#include "nonlinear/nonsmooth_builder.hpp"

namespace nlra {

// The tighter one of what is known of the function and of its columns.
Range NonsmoothBuilder::range_of(int node, const NodeFacts& facts,
                                 const ColumnBounds& bounds) const {
    const Value& value = value_[node];
    RangeSum total{{value.constant, value.constant}};
    for (size_t k = value.begin; k < value.end; ++k) {
        const int col = pool_[k].col;
        total.add(pool_[k].value, range_of_bounds(bounds.lower[col], bounds.upper[col]));
    }
    const Range known = facts.range(node);
    return {std::max(total.sum.low, known.low), std::min(total.sum.high, known.high)};
}

void NonsmoothBuilder::tighten(const NodeFacts& facts, ColumnBounds& bounds) const {
    for (size_t node = 0; node < value_.size(); ++node) {
        const Value& value = value_[node];
        if (value.end - value.begin != 1 || value.constant != 0.0) continue;
        const LinearTerm& term = pool_[value.begin];
        if (term.value != 1.0) continue;
        const Range range = facts.range(static_cast<int>(node));
        bounds.lower[term.col] = std::max(bounds.lower[term.col], range.low);
        bounds.upper[term.col] = std::min(bounds.upper[term.col], range.high);
    }
    for (const Ends& ends : ends_) {
        const Range range = range_of(ends.argument, facts, bounds);
        double& before = bounds.upper[ends.before];
        double& behind = bounds.upper[ends.behind];
        before = std::min(before, std::max(0.0, ends.first - range.low));
        behind = std::min(behind, std::max(0.0, range.high - ends.last));
    }
}

// An outer column is as far as the argument lies outside, but two of them may grow together where
// rows do not choose between them.
void NonsmoothBuilder::limit_by_argument(Condition& condition) const {
    if (condition.terms.size() != 1 || condition.terms[0].value != 1.0) return;
    const int col = condition.terms[0].col;
    const auto ends = std::lower_bound(ends_.begin(), ends_.end(), col,
                                       [](const Ends& a, int b) { return a.behind < b; });
    if (ends == ends_.end() || (col != ends->before && col != ends->behind)) return;
    const double sign = col == ends->before ? -1.0 : 1.0;
    const Value& value = value_[ends->argument];
    condition.limit_constant =
        sign * (value.constant - (col == ends->before ? ends->first : ends->last));
    for (size_t k = value.begin; k < value.end; ++k) {
        condition.limit.push_back({pool_[k].col, sign * pool_[k].value});
    }
}

// What the rule says where it is in force.
Condition NonsmoothBuilder::condition_of(const Implication& rule) const {
    Condition condition{rule.condition_col, rule.active, rule.terms, rule.side};
    if (rule.condition_node >= 0) condition.col = pool_[value_[rule.condition_node].begin].col;
    if (rule.node < 0) {
        limit_by_argument(condition);
        return condition;
    }
    const Value& value = value_[rule.node];
    condition.side -= rule.node_factor * value.constant;
    for (size_t k = value.begin; k < value.end; ++k) {
        condition.terms.push_back({pool_[k].col, rule.node_factor * pool_[k].value});
    }
    return condition;
}

std::vector<Condition> NonsmoothBuilder::condition(const NodeFacts& facts,
                                                   const ColumnBounds& bounds,
                                                   RowBlock& rows) const {
    std::vector<Condition> open;
    for (const Implication& rule : implications_) {
        RangeSum most;
        for (const LinearTerm& term : rule.terms) {
            if (term.col == rule.zero_col) continue;
            most.add(term.value, range_of_bounds(bounds.lower[term.col], bounds.upper[term.col]));
        }
        if (rule.node >= 0) most.add(rule.node_factor, range_of(rule.node, facts, bounds));
        const double excess = most.sum.high - rule.side;
        if (!(excess <= kMaxExcess)) {
            open.push_back(condition_of(rule));
            continue;
        }
        if (excess <= 0.0 && rule.zero_col < 0) continue;
        const double factor = rule.active ? excess : -excess;
        rows.begin('L', rule.active ? rule.side + excess : rule.side);
        for (const LinearTerm& term : rule.terms) rows.add(term.col, term.value);
        if (rule.node >= 0) add_value(rule.node, rule.node_factor, rows);
        if (rule.condition_node >= 0) {
            add_value(rule.condition_node, factor, rows);
        } else {
            rows.add(rule.condition_col, factor);
        }
    }
    return open;
}

}  // namespace nlra
