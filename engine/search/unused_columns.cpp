#include "search/unused_columns.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include "linear/relaxation.hpp"
#include "nonlinear/formula_roots.hpp"
#include "nonlinear/model_values.hpp"
#include "nonlinear/user_function.hpp"

namespace nlra {
namespace {

bool has_sides(const Model& model, int row) {
    return model.row_lower(row) > -kInfinity || model.row_upper(row) < kInfinity;
}

void mark(const std::vector<QuadTerm>& terms, std::vector<char>& used) {
    for (const QuadTerm& term : terms) {
        if (term.value != 0.0) used[term.col1] = used[term.col2] = 1;
    }
}

void mark_outside_formulas(const Model& model, std::vector<char>& used) {
    for (int j = 0; j < model.cols(); ++j) used[j] = model.obj[j] != 0.0;
    const RowMatrix& matrix = model.matrix;
    for (int i = 0; i < model.rows(); ++i) {
        if (!has_sides(model, i)) continue;
        for (int64_t k = matrix.start()[i]; k < matrix.start()[i + 1]; ++k) {
            if (matrix.value()[k] != 0.0) used[matrix.index()[k]] = 1;
        }
    }
    mark(model.qobj, used);
    for (const auto& [row, terms] : model.qrows) {
        if (has_sides(model, row)) mark(terms, used);
    }
    for (const Set& set : model.sets) {
        for (const int column : set.cols) used[column] = 1;
    }
    for (const auto& [row, indicator] : model.indicators) used[indicator.col] = 1;
}

// What is multiplied by zero is no longer there once a formula has been parsed.
void mark_in_formulas(const Model& model, std::vector<char>& used) {
    const CalledFunctions called(model.formulas);
    FormulaRoots roots;
    for (OpaqueFunction* function : called.functions()) roots.add_function(function);
    roots.set_columns(model.cols());
    std::vector<char> reached;
    const auto add = [&](const Formula& formula) {
        std::vector<FormulaPiece> pieces;
        for (const Coefficient& coefficient : formula) pieces.push_back(piece_of(coefficient));
        const RootParts& parts = roots.parts(roots.add(pieces));
        for (const LinearTerm& term : parts.linear) used[term.col] = 1;
        mark(parts.quadratic, used);
        reached.resize(static_cast<size_t>(roots.graph().size()), 0);
        for (const Entry& term : parts.rest) reached[term.node] = 1;
    };
    add(model.formulas.objective);
    for (const auto& [row, formula] : model.formulas.rows) {
        if (has_sides(model, row)) add(formula);
    }
    const Graph& graph = roots.graph();
    for (int i = graph.size() - 1; i >= 0; --i) {
        if (reached[i] == 0) continue;
        if (graph.node(i).op == Op::kColumn) used[graph.node(i).first] = 1;
        graph.for_arguments(i, [&](int argument) { reached[argument] = 1; });
    }
}

// The nearest value to this one that the column can have.
double nearest_value(const Model& model, int column, double value) {
    const char type = model.coltype[column];
    double low = model.lower[column], high = model.upper[column];
    if (is_semi(type)) {
        const Bounds semi = semi_interval(model, column);
        if (semi.lower > semi.upper) return 0.0;
        const double inside = std::clamp(value, semi.lower, semi.upper);
        if (std::fabs(value) <= std::fabs(inside - value)) return 0.0;
        low = semi.lower;
        high = semi.upper;
    }
    const double inside = std::clamp(value, low, high);
    if (type == 'P' && inside >= model.limit[column]) return inside;
    if (type == 'C' || type == 'S') return inside;
    // No integer between the bounds: then there is no solution that this would be for.
    const double lowest = std::ceil(low), highest = std::floor(high);
    if (lowest > highest) return inside;
    const double rounded = std::clamp(std::round(inside), lowest, highest);
    return type == 'P' ? std::min(rounded, std::max(model.limit[column], low)) : rounded;
}

}  // namespace

void settle_unused_columns(const Model& model, Solution& solution) {
    if (!solution.present) return;
    std::vector<char> used(model.lower.size(), 0);
    mark_outside_formulas(model, used);
    if (std::find(used.begin(), used.end(), 0) == used.end()) return;
    if (!model.formulas.empty()) mark_in_formulas(model, used);
    bool changed = false;
    for (int j = 0; j < model.cols(); ++j) {
        if (used[j] != 0) continue;
        const auto start = model.formulas.start.find(j);
        const double wanted = start != model.formulas.start.end() ? start->second : 0.0;
        const double value = nearest_value(model, j, wanted) + 0.0;
        changed |= solution.x[j] != value;
        solution.x[j] = value;
    }
    if (!changed) return;
    Solution fresh;
    fresh.x = solution.x;
    evaluate(model, fresh);
    count_formulas_of_free_rows(model, fresh);
    for (int i = 0; i < model.rows(); ++i) {
        if (!has_sides(model, i)) solution.slack[i] = fresh.slack[i];
    }
}

}  // namespace nlra
