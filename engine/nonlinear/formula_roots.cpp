#include "nonlinear/formula_roots.hpp"

#include <algorithm>
#include <cmath>

#include "nlra.h"
#include "nonlinear/merge_equal.hpp"
#include "store/error.hpp"

namespace nlra {

namespace {

// Zeros go.
template <class Term, class Before>
void merge_terms(std::vector<Term>& terms, Before before) {
    merge_equal(terms, before);
    std::erase_if(terms, [](const Term& term) { return term.value == 0.0; });
}

void normalize(RootParts& parts) {
    merge_terms(parts.linear, column_before);
    merge_terms(parts.quadratic, term_before);
    merge_terms(parts.rest, [](const Entry& a, const Entry& b) { return a.node < b.node; });
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
    roots_.push_back(parse(pieces));
    return static_cast<int>(roots_.size()) - 1;
}

}  // namespace nlra
