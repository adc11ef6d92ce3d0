#include "nonlinear/nonsmooth_reformulation.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "nonlinear/merge_equal.hpp"
#include "nonlinear/nonsmooth_builder.hpp"
#include "search/activity.hpp"

namespace nlra {

NonsmoothReformulation::NonsmoothReformulation(const Model& model)
    : model_(model), products_as_nodes_(model.is_mip()), formulas_(model, products_as_nodes_) {
    if (!formulas_.is_finite()) {
        obstacle_ = "a formula's constants overflow";
        return;
    }
    const Graph& graph = formulas_.graph();
    const NodeFacts facts(graph, model.coltype, model.lower, model.upper);
    std::vector<int> uses;
    const std::vector<uint8_t> needs = collect_needs(facts, uses);
    if (!obstacle_.empty()) return;
    NonsmoothBuilder builder(graph, facts, model, kJumpGap);
    for (int i = 0; i < graph.size(); ++i) {
        if ((needs[i] & kExact) != 0) builder.build(i, needs[i], uses[i] > 1);
    }
    assemble(builder);
    if (!builder.has_conditions()) return;
    const RowBlock conditional = limit_conditions(builder);
    if (plain_.is_quadratic()) {
        obstacle_ = "the problem has quadratic terms and functions that are not convex";
        return;
    }
    conditional.append_to(plain_);
}

// Rows for the conditions that bounds limit; the others stay open. Bounds of functions imply some
// of their arguments, and the other way round.
RowBlock NonsmoothReformulation::limit_conditions(const NonsmoothBuilder& builder) {
    constexpr int kMaxRounds = 10;
    RowBlock conditional;
    for (int round = 0; round < kMaxRounds; ++round) {
        const size_t before = open_.size();
        ColumnBounds bounds = implied_bounds(plain_);
        const NodeFacts tight(formulas_.graph(), model_.coltype, bounds.lower, bounds.upper);
        builder.tighten(tight, bounds);
        conditional = RowBlock();
        open_ = builder.condition(tight, bounds, conditional);
        for (int j = model_.cols(); j < plain_.cols(); ++j) {
            // Bounds that cross by rounding only are the same.
            const double low = bounds.lower[j];
            const double high = bounds.upper[j];
            const bool same = low > high && low - high <= 1e-9 * std::max(1.0, std::fabs(low));
            plain_.set_bounds(j, low, same ? low : high);
        }
        if (open_.empty() || (round > 0 && open_.size() >= before)) break;
    }
    return conditional;
}

// Of terms with positive coefficients.
uint8_t NonsmoothReformulation::needs_of_root(const NonsmoothFormulas::Root& root) const {
    if (root.row < 0) return kUsed | (model_.sense < 0.0 ? kBelow : kAbove);
    switch (model_.rowtype[root.row]) {
        case 'L':
            return kUsed | kAbove;
        case 'G':
            return kUsed | kBelow;
        case 'N':
            return kUsed;
        default:
            return kUsed | kExact;
    }
}

// A sum within a sum counts as used often: nested ones would be copied again and again.
std::vector<uint8_t> NonsmoothReformulation::collect_needs(const NodeFacts& facts,
                                                           std::vector<int>& uses) {
    const Graph& graph = formulas_.graph();
    std::vector<uint8_t> needs(static_cast<size_t>(graph.size()), 0);
    uses.assign(needs.size(), 0);
    for (const NonsmoothFormulas::Root& root : formulas_.roots()) {
        const uint8_t wanted = needs_of_root(root);
        for (const std::vector<Entry>* entries : {&root.parts.rest, &root.products}) {
            for (const Entry& entry : *entries) {
                needs[entry.node] |= entry.value < 0.0 ? negated(wanted) : wanted;
                ++uses[entry.node];
            }
        }
    }
    for (int i = graph.size() - 1; i >= 0; --i) {
        if (needs[i] == 0) continue;
        if (!facts.is_supported(i)) {
            obstacle_ = "a formula is not piecewise linear";
            return needs;
        }
        const Node& node = graph.node(i);
        if (node.op == Op::kSum) {
            for (int k = 0; k < node.second; ++k) {
                const Entry& entry = graph.entries(node)[k];
                needs[entry.node] |= entry.value < 0.0 ? negated(needs[i]) : needs[i];
                uses[entry.node] += 2;
            }
            continue;
        }
        graph.for_arguments(i, [&](int argument) {
            needs[argument] |= needs_of_argument(graph, facts, i, argument, needs[i]);
            ++uses[argument];
        });
    }
    return needs;
}

void NonsmoothReformulation::assemble(const NonsmoothBuilder& builder) {
    const int cols = static_cast<int>(builder.type.size());
    std::vector<double> costs(model_.obj);
    costs.resize(static_cast<size_t>(cols), 0.0);
    const NonsmoothFormulas::Root& objective = formulas_.roots()[0];
    double constant = model_.constant + objective.parts.constant;
    for (const LinearTerm& term : objective.parts.linear) costs[term.col] += term.value;
    for (const std::vector<Entry>* entries : {&objective.parts.rest, &objective.products}) {
        for (const Entry& entry : *entries) {
            builder.add_value(entry.node, entry.value, costs, constant);
        }
    }
    plain_.sense = model_.sense;
    plain_.constant = constant;
    const std::vector<int64_t> no_entries(static_cast<size_t>(cols), 0);
    plain_.add_cols(cols, 0, costs.data(), no_entries.data(), nullptr, nullptr,
                    builder.lower.data(), builder.upper.data());
    for (int j = 0; j < cols; ++j) {
        if (builder.type[j] != 'C') plain_.set_type(j, builder.type[j]);
        if (j < model_.cols() && model_.limit[j] != 0.0) plain_.set_limit(j, model_.limit[j]);
    }
    plain_.colnames = model_.colnames;
    plain_.colnames.resize(cols);
    add_original_rows(builder);
    plain_.rownames = model_.rownames;
    builder.rows().append_to(plain_);
    plain_.add_sets(model_.sets);
    plain_.indicators = model_.indicators;
    if (products_as_nodes_) return;
    std::vector<QuadTerm> quadratic = model_.qobj;
    const std::vector<QuadTerm>& more = objective.parts.quadratic;
    quadratic.insert(quadratic.end(), more.begin(), more.end());
    merge_equal(quadratic, term_before);
    plain_.set_qobj(std::move(quadratic));
    plain_.qrows = model_.qrows;
    for (const NonsmoothFormulas::Root& root : formulas_.roots()) {
        if (root.row < 0 || root.parts.quadratic.empty()) continue;
        std::vector<QuadTerm> all = plain_.qrows[root.row];
        all.insert(all.end(), root.parts.quadratic.begin(), root.parts.quadratic.end());
        plain_.set_qrow(root.row, std::move(all));
    }
}

void NonsmoothReformulation::add_original_rows(const NonsmoothBuilder& builder) {
    const RowMatrix& matrix = model_.matrix;
    RowBlock rows;
    size_t next = 1;  // root
    for (int i = 0; i < model_.rows(); ++i) {
        rows.begin(model_.rowtype[i], model_.rhs[i], model_.range[i]);
        for (int64_t k = matrix.start()[i]; k < matrix.start()[i + 1]; ++k) {
            rows.add(matrix.index()[k], matrix.value()[k]);
        }
        if (next == formulas_.roots().size() || formulas_.roots()[next].row != i) continue;
        const NonsmoothFormulas::Root& root = formulas_.roots()[next++];
        if (model_.rowtype[i] == 'N') continue;
        const RootParts& parts = root.parts;
        rows.add(1.0, parts.constant, parts.linear.data(),
                 parts.linear.data() + parts.linear.size());
        for (const std::vector<Entry>* entries : {&parts.rest, &root.products}) {
            for (const Entry& entry : *entries) builder.add_value(entry.node, entry.value, rows);
        }
    }
    rows.append_to(plain_);
}

double NonsmoothReformulation::miss_of_row(int row, double value, double size) const {
    const double outside =
        std::max({0.0, model_.row_lower(row) - value, value - model_.row_upper(row)});
    return outside / std::max(size, std::fabs(model_.rhs[row]));
}

double NonsmoothReformulation::evaluate(Solution& solution) const {
    nlra::evaluate(model_, solution);
    const std::vector<double> node_values = formulas_.values(solution.x, kJumpTolerance);
    const std::vector<double>& x = solution.x;
    double worst = 0.0;
    for (const NonsmoothFormulas::Root& root : formulas_.roots()) {
        double value = root.parts.constant;
        double size = 1.0;
        const auto add = [&](double term) {
            value += term;
            size = std::max(size, std::fabs(term));
        };
        for (const LinearTerm& term : root.parts.linear) add(term.value * x[term.col]);
        for (const QuadTerm& term : root.parts.quadratic) {
            add(term.value * x[term.col1] * x[term.col2]);
        }
        for (const Entry& term : root.parts.rest) add(term.value * node_values[term.node]);
        if (root.row < 0) {
            solution.objective += value;
            continue;
        }
        solution.slack[root.row] -= value;
        const auto indicator = model_.indicators.find(root.row);
        const bool holds = indicator == model_.indicators.end() ||
                           (x[indicator->second.col] > 0.5) == (indicator->second.complement > 0);
        if (!holds) continue;
        const double total = model_.rhs[root.row] - solution.slack[root.row];
        const double miss = miss_of_row(root.row, total, size);
        worst = std::isnan(miss) ? HUGE_VAL : std::max(worst, miss);
    }
    return worst;
}

}  // namespace nlra
