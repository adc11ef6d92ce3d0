#include "nonlinear/tape_plan.hpp"

#include <algorithm>

namespace nlra {

// Where nodes and columns go.
struct TapePlan::Order {
    std::vector<int> level;        // by node: 0 unused, constants and columns 1
    std::vector<int> slot;         // by node
    std::vector<int> column_slot;  // by column
    std::vector<int> operations;   // nodes
};

TapePlan::TapePlan(const Graph& graph, const std::vector<const RootParts*>& parts) {
    Order order;
    order.level.assign(graph.size(), 0);
    order.slot.assign(graph.size(), -1);
    for (const RootParts* root : parts) {
        for (const Entry& term : root->rest) order.level[term.node] = 1;
    }
    for (int i = graph.size() - 1; i >= 0; --i) {
        if (order.level[i] == 0) continue;
        graph.for_arguments(i, [&](int argument) { order.level[argument] = 1; });
        if (graph.node(i).op == Op::kColumn) {
            const size_t needed = graph.node(i).first + size_t{1};
            if (order.column_slot.size() < needed) order.column_slot.resize(needed, -1);
            order.column_slot[graph.node(i).first] = 0;
        }
    }
    place_columns(parts, order);
    place_operations(graph, order);
    emit(graph, order);
    emit_roots(parts, order);
}

void TapePlan::place_columns(const std::vector<const RootParts*>& parts, Order& order) {
    auto& slot = order.column_slot;
    const auto use = [&](int col) {
        if (slot.size() <= static_cast<size_t>(col)) slot.resize(col + size_t{1}, -1);
        slot[col] = 0;
    };
    for (const RootParts* root : parts) {
        for (const LinearTerm& term : root->linear) use(term.col);
        for (const QuadTerm& term : root->quadratic) {
            use(term.col1);
            use(term.col2);
        }
    }
    for (size_t col = 0; col < slot.size(); ++col) {
        if (slot[col] < 0) continue;
        slot[col] = columns++;
        column.push_back(static_cast<int>(col));
    }
}

void TapePlan::place_operations(const Graph& graph, Order& order) {
    // Levels, and how many operations there are of each kind on each level.
    int levels = 1;
    for (int i = 0; i < graph.size(); ++i) {
        if (order.level[i] == 0) continue;
        const Op op = graph.node(i).op;
        if (op == Op::kColumn) {
            order.slot[i] = order.column_slot[graph.node(i).first];
        } else if (op == Op::kConstant) {
            order.slot[i] = columns + static_cast<int>(constant.size());
            constant.push_back(graph.node(i).param);
        } else {
            int level = 0;
            graph.for_arguments(
                i, [&](int argument) { level = std::max(level, order.level[argument]); });
            order.level[i] = level + 1;
            levels = std::max(levels, level + 1);
            ++operations;
        }
    }
    first_op = columns + static_cast<int>(constant.size());

    // Two stable counting sorts: by operation, then by level.
    std::vector<int> by_op(operations);
    order.operations.resize(operations);
    std::vector<int> next(std::max(kOps, levels + 1) + 1, 0);
    const auto is_operation = [&](int i) {
        return order.level[i] != 0 && graph.node(i).op > Op::kColumn;
    };
    const auto key = [&](int i) { return static_cast<int>(graph.node(i).op); };
    for (int i = 0; i < graph.size(); ++i) {
        if (is_operation(i)) ++next[key(i) + 1];
    }
    for (int k = 0; k < kOps; ++k) next[k + 1] += next[k];
    for (int i = 0; i < graph.size(); ++i) {
        if (is_operation(i)) by_op[next[key(i)]++] = i;
    }
    std::fill(next.begin(), next.end(), 0);
    for (const int i : by_op) ++next[order.level[i] + 1];
    for (int k = 0; k <= levels; ++k) next[k + 1] += next[k];
    for (const int i : by_op) {
        const int place = next[order.level[i]]++;
        order.operations[place] = i;
        order.slot[i] = first_op + place;
    }
}

void TapePlan::emit(const Graph& graph, const Order& order) {
    op.reserve(operations);
    param.reserve(operations);
    edge_begin.reserve(operations + 1);
    second_begin.reserve(operations + 1);
    edge_slot.reserve(2 * static_cast<size_t>(operations));
    edge_factor.reserve(2 * static_cast<size_t>(operations));
    points_begin.push_back(0);
    int seconds = 0;
    int level = 0;
    for (int i = 0; i < operations; ++i) {
        const int index = order.operations[i];
        const Node& node = graph.node(index);
        if (batches.empty() || batches.back().op != node.op || order.level[index] != level) {
            batches.push_back({node.op, i, i});
            level = order.level[index];
        }
        batches.back().end = i + 1;
        op.push_back(node.op);
        param.push_back(node.param);
        edge_begin.push_back(static_cast<int>(edge_slot.size()));
        second_begin.push_back(seconds);
        if (node.has_entries()) {
            const Entry* entries = graph.entries(node);
            for (int k = 0; k < node.second; ++k) {
                if (entries[k].node >= 0) {
                    edge_slot.push_back(order.slot[entries[k].node]);
                    edge_factor.push_back(entries[k].value);
                } else {
                    points.push_back(entries[k].value);
                }
            }
        } else {
            edge_slot.push_back(order.slot[node.first]);
            edge_factor.push_back(0.0);
            if (!is_unary(node.op)) {
                edge_slot.push_back(order.slot[node.second]);
                edge_factor.push_back(0.0);
            }
        }
        switch (node.op) {
            case Op::kPiecewise:
                param.back() = static_cast<double>(points_begin.size() - 1);
                points_begin.push_back(static_cast<int>(points.size()));
                break;
            case Op::kCall:
                calls.push_back(i);
                seconds += node.second * (node.second + 1) / 2;
                break;
            case Op::kProduct:
                seconds += 1;
                break;
            case Op::kDivide:
                seconds += 2;
                break;
            case Op::kGeneralPower:
                seconds += 3;
                break;
            default:
                seconds += is_unary(node.op) ? 1 : 0;
        }
    }
    edge_begin.push_back(static_cast<int>(edge_slot.size()));
    second_begin.push_back(seconds);
}

void TapePlan::emit_roots(const std::vector<const RootParts*>& parts, const Order& order) {
    const auto mark = [&](double value) {
        roots.push_back({value, static_cast<int>(linear.size()), static_cast<int>(quadratic.size()),
                         static_cast<int>(rest.size())});
    };
    for (const RootParts* root : parts) {
        mark(root->constant);
        for (const LinearTerm& term : root->linear) {
            linear.push_back({order.column_slot[term.col], term.value});
        }
        for (const QuadTerm& term : root->quadratic) {
            quadratic.push_back(
                {order.column_slot[term.col1], order.column_slot[term.col2], term.value});
        }
        for (const Entry& term : root->rest) rest.push_back({order.slot[term.node], term.value});
    }
    mark(0.0);
}

}  // namespace nlra
