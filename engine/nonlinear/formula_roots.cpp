#include "nonlinear/formula_roots.hpp"

#include <algorithm>
#include <cmath>

#include "nlra.h"
#include "store/error.hpp"

namespace nlra {

namespace {

// Sort and add up what has the same key; zeros go.
template <class Term, class Before, class Same>
void merge_terms(std::vector<Term>& terms, const Before& before, const Same& same) {
    sort_terms(terms, before);
    size_t kept = 0;
    for (size_t i = 0; i < terms.size();) {
        Term merged = terms[i++];
        while (i < terms.size() && same(terms[i], merged)) merged.value += terms[i++].value;
        if (merged.value != 0.0) terms[kept++] = merged;
    }
    terms.resize(kept);
}

void normalize(RootParts& parts) {
    merge_terms(
        parts.linear, [](const LinearTerm& a, const LinearTerm& b) { return a.col < b.col; },
        [](const LinearTerm& a, const LinearTerm& b) { return a.col == b.col; });
    merge_terms(parts.quadratic, term_before, [](const QuadTerm& a, const QuadTerm& b) {
        return a.col1 == b.col1 && a.col2 == b.col2;
    });
    merge_terms(
        parts.rest, [](const Entry& a, const Entry& b) { return a.node < b.node; },
        [](const Entry& a, const Entry& b) { return a.node == b.node; });
}

QuadTerm quad_term(int a, int b, double value) { return {std::min(a, b), std::max(a, b), value}; }

// Whether all numbers of the parts are.
bool is_finite(const RootParts& parts) {
    double probe = parts.constant * 0.0;
    for (const LinearTerm& term : parts.linear) probe += term.value * 0.0;
    for (const QuadTerm& term : parts.quadratic) probe += term.value * 0.0;
    for (const Entry& term : parts.rest) probe += term.value * 0.0;
    return probe == 0.0;
}

}  // namespace

RootParts split(const Graph& graph, const Terms& sum) {
    RootParts parts;
    parts.constant = sum.constant;
    parts.rest.reserve(sum.terms.size());
    std::vector<Entry> pending;
    const auto column_of = [&](int node) { return graph.node(node).first; };
    const auto is_column = [&](int node) { return graph.node(node).op == Op::kColumn; };
    const auto place = [&](Entry term) {
        const Node& node = graph.node(term.node);
        switch (node.op) {
            case Op::kColumn:
                parts.linear.push_back({node.first, term.value});
                return;
            case Op::kSum:
                pending.push_back(term);
                return;
            case Op::kSquare:
                if (!is_column(node.first)) break;
                parts.quadratic.push_back(
                    quad_term(column_of(node.first), column_of(node.first), term.value));
                return;
            case Op::kProduct:
                if (!is_column(node.first) || !is_column(node.second)) break;
                parts.quadratic.push_back(
                    quad_term(column_of(node.first), column_of(node.second), term.value));
                return;
            default:
                break;
        }
        parts.rest.push_back(term);
    };
    for (const Entry& term : sum.terms) place(term);
    while (!pending.empty()) {
        const Entry outer = pending.back();
        pending.pop_back();
        const Node& node = graph.node(outer.node);
        parts.constant += outer.value * node.param;
        for (int i = 0; i < node.second; ++i) {
            const Entry& inner = graph.entries(node)[i];
            place({outer.value * inner.value, inner.node});
        }
    }
    normalize(parts);
    return parts;
}

int FormulaRoots::add_function(OpaqueFunction* function) {
    functions_.push_back(function);
    return static_cast<int>(functions_.size()) - 1;
}

RootParts FormulaRoots::parse(const std::vector<FormulaPiece>& pieces) {
    RootParts parts = split(graph_, parse_formula(graph_, pieces, scope()));
    if (!is_finite(parts)) {
        fail(NLRA_ERROR_ARGUMENT, "formula: its constants overflow when they are put together");
    }
    return parts;
}

int FormulaRoots::add(const std::vector<FormulaPiece>& pieces) {
    const int before = graph_.size();
    RootParts parts = parse(pieces);
    if (free_.empty()) {
        free_.reserve(roots_.size() + 1);  // remove() needs no memory
        nodes_added_.reserve(roots_.size() + 1);
        roots_.emplace_back();
        nodes_added_.push_back(0);
        free_.push_back(static_cast<int>(roots_.size()) - 1);
    }
    const int root = free_.back();
    free_.pop_back();
    roots_[root] = std::move(parts);
    nodes_added_[root] = graph_.size() - before;
    return root;
}

void FormulaRoots::replace(int root, const std::vector<FormulaPiece>& pieces) {
    const int before = graph_.size();
    RootParts parts = parse(pieces);
    const int added = graph_.size() - before;
    drop(root);
    roots_[root] = std::move(parts);
    nodes_added_[root] = added;
    if (garbage_ > 1000 + graph_.size() / 2) rebuild(nullptr);
}

void FormulaRoots::remove(int root) {
    drop(root);
    free_.push_back(root);
    if (garbage_ > 1000 + graph_.size() / 2) rebuild(nullptr);
}

void FormulaRoots::drop(int root) {
    roots_[root] = RootParts();
    garbage_ += nodes_added_[root];
    nodes_added_[root] = 0;
}

void FormulaRoots::renumber_columns(const std::vector<int>& map, int columns) {
    rebuild(&map);
    columns_ = columns;
}

// Copy what the roots use into a new graph, columns renumbered. All or nothing: memory can run out.
void FormulaRoots::rebuild(const std::vector<int>* map) {
    const auto renumbered = [&](int column) { return map == nullptr ? column : (*map)[column]; };
    std::vector<uint8_t> used(graph_.size(), 0);
    for (const RootParts& root : roots_) {
        for (const Entry& term : root.rest) used[term.node] = 1;
    }
    for (int i = graph_.size() - 1; i >= 0; --i) {
        if (used[i] != 0) graph_.for_arguments(i, [&](int argument) { used[argument] = 1; });
    }

    Graph graph;
    std::vector<Scaled> image(graph_.size(), Scaled{0.0, -1});
    std::vector<Entry> terms;
    std::vector<Scaled> args;
    const auto add_term = [&](Entry term, double& constant) {
        const Scaled a = image[term.node];
        if (a.is_constant())
            constant += term.value * a.factor;
        else
            terms.push_back({term.value * a.factor, a.node});
    };
    const auto copy = [&](const Node& node) -> Scaled {
        const Entry* entries = node.has_entries() ? graph_.entries(node) : nullptr;
        args.clear();
        terms.clear();
        switch (node.op) {
            case Op::kConstant:
                return {1.0, graph.materialize({node.param, -1})};
            case Op::kColumn:
                return renumbered(node.first) < 0 ? Scaled{0.0, -1}
                                                  : graph.column(renumbered(node.first));
            case Op::kSum: {
                double constant = node.param;
                for (int i = 0; i < node.second; ++i) add_term(entries[i], constant);
                return graph.sum(constant, terms);
            }
            case Op::kProduct: {
                double factor = 1.0;
                for (const int argument : {node.first, node.second}) {
                    const Scaled a = image[argument];
                    factor *= a.factor;
                    if (!a.is_constant()) terms.push_back({1.0, a.node});
                }
                return graph.product(factor, terms);
            }
            case Op::kDivide:
                return graph.divide(image[node.first], image[node.second]);
            case Op::kGeneralPower:
                return graph.power(image[node.first], image[node.second]);
            case Op::kMin:
            case Op::kMax:
                for (int i = 0; i < node.second; ++i) args.push_back(image[entries[i].node]);
                return graph.extreme(node.op, args);
            case Op::kCall:
                for (int i = 0; i < node.second; ++i) args.push_back(image[entries[i].node]);
                return graph.call(static_cast<int>(node.param), args);
            case Op::kPiecewise:
                for (int i = 1; i < node.second; ++i) args.push_back({entries[i].value, -1});
                return graph.piecewise(image[entries[0].node], args);
            case Op::kPower:
                return graph.power(image[node.first], {node.param, -1});
            case Op::kSquare:
                return graph.power(image[node.first], {2.0, -1});
            case Op::kCube:
                return graph.power(image[node.first], {3.0, -1});
            case Op::kReciprocal:
                return graph.power(image[node.first], {-1.0, -1});
            default:
                return graph.unary(node.op, image[node.first]);
        }
    };
    int live = 0;
    for (int i = 0; i < graph_.size(); ++i) {
        if (used[i] == 0) continue;
        image[i] = copy(graph_.node(i));
        ++live;
    }

    std::vector<RootParts> roots(roots_.size());
    for (size_t r = 0; r < roots.size(); ++r) {
        Terms sum;
        sum.constant = roots_[r].constant;
        terms.clear();
        for (const Entry& term : roots_[r].rest) add_term(term, sum.constant);
        sum.terms.swap(terms);
        roots[r] = split(graph, sum);
        for (const LinearTerm& term : roots_[r].linear) {
            const int column = renumbered(term.col);
            if (column >= 0) roots[r].linear.push_back({column, term.value});
        }
        for (const QuadTerm& term : roots_[r].quadratic) {
            const int first = renumbered(term.col1);
            const int second = renumbered(term.col2);
            if (first < 0 || second < 0) continue;
            roots[r].quadratic.push_back(quad_term(first, second, term.value));
        }
        normalize(roots[r]);
    }
    // From here on nobody knows which root brought which node; the share of each is an estimate.
    std::vector<int> added(roots.size(), 0);
    const int in_use = static_cast<int>(roots.size() - free_.size());
    if (in_use > 0) std::fill(added.begin(), added.end(), live / in_use);
    for (const int removed : free_) added[removed] = 0;

    graph_ = std::move(graph);
    roots_ = std::move(roots);
    nodes_added_ = std::move(added);
    garbage_ = 0;
}

}  // namespace nlra
