#include "nonlinear/nonsmooth_formulas.hpp"

#include <cmath>

#include "nonlinear/formula_parser.hpp"
#include "nonlinear/user_function.hpp"

namespace nlra {

namespace {

void look_at(const Formula& formula, FunctionKinds& kinds) {
    for (const Coefficient& coefficient : formula) {
        for (size_t k = 0; k < coefficient.types.size(); ++k) {
            if (coefficient.types[k] == NSLP_TOKEN_USERFUNCTION) kinds.smooth = true;
            if (coefficient.types[k] != NSLP_TOKEN_FUNCTION) continue;
            switch (static_cast<int>(coefficient.values[k])) {
                case kFunctionAbs:
                case kFunctionMin:
                case kFunctionMax:
                case kFunctionSign:
                case kFunctionPiecewise:
                    kinds.nonsmooth = true;
                    break;
                default:
                    kinds.smooth = true;
            }
        }
    }
}

double piecewise_value(const Graph& graph, const Node& node, double x, double tolerance) {
    const Entry* const entry = graph.entries(node);
    std::vector<double> points;
    points.reserve(static_cast<size_t>(node.second));
    for (int i = 1; i < node.second; ++i) points.push_back(entry[i].value);
    for (size_t i = 2; i < points.size(); i += 2) {
        const bool jumps = points[i] == points[i - 2];
        if (jumps && std::fabs(points[i] - x) <= tolerance) x = points[i];
    }
    return piecewise_at(points.data(), static_cast<int>(points.size()), x).value;
}

}  // namespace

FunctionKinds function_kinds(const Formulas& formulas) {
    FunctionKinds kinds;
    look_at(formulas.objective, kinds);
    for (const auto& [row, formula] : formulas.rows) look_at(formula, kinds);
    return kinds;
}

NonsmoothFormulas::NonsmoothFormulas(const Model& model, bool products_as_nodes)
    : columns_(model.cols()) {
    const auto terms_of = [](const auto& map, int row) {
        const auto found = map.find(row);
        return found == map.end() ? nullptr : &found->second;
    };
    add_root(-1, &model.formulas.objective, &model.qobj, products_as_nodes);
    for (int i = 0; i < model.rows(); ++i) {
        const Formula* formula = terms_of(model.formulas.rows, i);
        const std::vector<QuadTerm>* quadratic = terms_of(model.qrows, i);
        if (formula == nullptr && (quadratic == nullptr || !products_as_nodes)) continue;
        add_root(i, formula, quadratic, products_as_nodes);
    }
    double probe = 0.0;
    for (const Root& root : roots_) {
        probe += root.parts.constant * 0.0;
        for (const LinearTerm& term : root.parts.linear) probe += term.value * 0.0;
        for (const QuadTerm& term : root.parts.quadratic) probe += term.value * 0.0;
        for (const Entry& term : root.parts.rest) probe += term.value * 0.0;
    }
    finite_ = probe == 0.0;
}

Entry NonsmoothFormulas::product(const QuadTerm& term) {
    std::vector<Entry> factors{{1.0, graph_.column(term.col1).node},
                               {1.0, graph_.column(term.col2).node}};
    const Scaled made = graph_.product(term.value, factors);
    return {made.factor, made.node};
}

void NonsmoothFormulas::add_root(int row, const Formula* formula,
                                 const std::vector<QuadTerm>* quadratic, bool products_as_nodes) {
    Root root{row, {}, {}};
    if (formula != nullptr && !formula->empty()) {
        std::vector<FormulaPiece> pieces;
        for (const Coefficient& coefficient : *formula) pieces.push_back(piece_of(coefficient));
        static const std::vector<OpaqueFunction*> no_functions;
        root.parts = split(graph_, parse_formula(graph_, pieces, {columns_, &no_functions}));
    }
    if (products_as_nodes) {
        for (const QuadTerm& term : root.parts.quadratic) root.parts.rest.push_back(product(term));
        root.parts.quadratic.clear();
        if (quadratic != nullptr) {
            for (const QuadTerm& term : *quadratic) root.products.push_back(product(term));
        }
    }
    roots_.push_back(std::move(root));
}

double NonsmoothFormulas::value_of(const Node& node, const std::vector<double>& value,
                                   const std::vector<double>& x, double tolerance) const {
    switch (node.op) {
        case Op::kConstant:
            return node.param;
        case Op::kColumn:
            return x[node.first];
        case Op::kSum: {
            double sum = node.param;
            for (int i = 0; i < node.second; ++i) {
                const Entry& entry = graph_.entries(node)[i];
                sum += entry.value * value[entry.node];
            }
            return sum;
        }
        case Op::kMin:
        case Op::kMax: {
            const Entry* const entry = graph_.entries(node);
            double extreme = value[entry[0].node];
            for (int i = 1; i < node.second; ++i) {
                extreme = extreme_of(node.op, extreme, value[entry[i].node]);
            }
            return extreme;
        }
        case Op::kSign:
            return std::fabs(value[node.first]) <= tolerance ? 0.0 : sign_of(value[node.first]);
        case Op::kPiecewise:
            return piecewise_value(graph_, node, value[graph_.entries(node)[0].node], tolerance);
        case Op::kProduct:
            return value[node.first] * value[node.second];
        default: {
            double out = kNotDefined;
            visit_unary(node.op, [&](auto f) { out = f.value(value[node.first], node.param); });
            return out;
        }
    }
}

std::vector<double> NonsmoothFormulas::values(const std::vector<double>& x,
                                              double tolerance) const {
    std::vector<double> value;
    value.reserve(static_cast<size_t>(graph_.size()));
    for (int i = 0; i < graph_.size(); ++i) {
        value.push_back(value_of(graph_.node(i), value, x, tolerance));
    }
    return value;
}

}  // namespace nlra
