#include "nonlinear/write_out.hpp"

#include <algorithm>
#include <map>
#include <vector>

#include "nonlinear/formula_writer.hpp"
#include "nonlinear/model_roots.hpp"

namespace nlra {

namespace {

constexpr size_t kMaxLinearTerms = 50;  // of an equality that is put in
constexpr int kMaxDepth = 50;           // of definitions within definitions
constexpr double kMaxSize = 5000.0;     // of a formula, in nodes

bool shows_more(const Node& node) {
    return node.op == Op::kLog || node.op == Op::kLog10 || node.op == Op::kSqrt ||
           (node.op == Op::kPower && node.param > 0.0 && node.param < 1.0);
}

class Writing {
  public:
    explicit Writing(Model& model) : model_(model), roots_(model), graph_(roots_.graph()) {}

    bool run();

  private:
    bool has_places() const;
    void index_equalities();
    bool uses(int row, int col) const;
    bool is_unbounded(int col) const {
        return model_.coltype[col] == 'C' &&
               (model_.lower[col] <= -kInfinity || model_.upper[col] >= kInfinity);
    }
    bool is_only_unbounded(int row, int col) const;
    int defining_row(int col, bool direct);
    template <class Get>
    Scaled rebuilt(int index, const Get& get);
    Scaled expanded(int index, int depth, bool direct);
    Scaled value_of(int col, int row, int depth, bool direct);
    Scaled product(const Scaled& a, const Scaled& b);
    bool rewrite(const RootParts& before, Formula& formula) const;

    Model& model_;
    const ModelRoots roots_;
    Graph graph_;  // grows
    // By column that is linear there: rows that are not linear in other columns, and rows that are.
    std::vector<std::vector<int>> equalities_, linear_equalities_;
    std::map<int, int> row_of_;   // defined column to row, -1 for none
    std::vector<char> is_taken_;  // rows that define a column
    std::vector<char> is_open_;   // columns that are being written out
    std::vector<Scaled> new_of_;  // by node of the roots
};

bool Writing::has_places() const {
    const Graph& graph = roots_.graph();
    for (int i = 0; i < graph.size(); ++i) {
        if (!shows_more(graph.node(i))) continue;
        const Node& argument = graph.node(graph.node(i).first);
        if (argument.op == Op::kColumn) return true;
        if (argument.op != Op::kSum) continue;
        for (int k = 0; k < argument.second; ++k) {
            if (graph.node(graph.entries(argument)[k].node).op == Op::kColumn) return true;
        }
    }
    return false;
}

void Writing::index_equalities() {
    equalities_.resize(model_.lower.size());
    linear_equalities_.resize(model_.lower.size());
    is_taken_.resize(static_cast<size_t>(model_.rows()), 0);
    is_open_.resize(model_.lower.size(), 0);
    for (int i = 0; i < model_.rows(); ++i) {
        const RootParts& parts = roots_.rows()[i];
        const bool is_equality = model_.row_lower(i) == model_.row_upper(i);
        if (!is_equality || parts.linear.size() > kMaxLinearTerms) continue;
        if (model_.indicators.count(i) != 0) continue;
        auto& lists = roots_.is_linear(i) ? linear_equalities_ : equalities_;
        for (const LinearTerm& term : parts.linear) lists[term.col].push_back(i);
    }
}

// Whether the column occurs in what is not linear in the row.
bool Writing::uses(int row, int col) const {
    const RootParts& parts = roots_.rows()[row];
    for (const QuadTerm& term : parts.quadratic) {
        if (term.col1 == col || term.col2 == col) return true;
    }
    const Graph& graph = roots_.graph();
    std::vector<int> pending;
    std::map<int, bool> seen;
    const auto reach = [&](int node) {
        if (!seen[node]) pending.push_back(node);
        seen[node] = true;
    };
    for (const Entry& term : parts.rest) reach(term.node);
    while (!pending.empty()) {
        const int node = pending.back();
        pending.pop_back();
        if (graph.node(node).op == Op::kColumn && graph.node(node).first == col) return true;
        graph.for_arguments(node, reach);
    }
    return false;
}

bool Writing::is_only_unbounded(int row, int col) const {
    const std::vector<LinearTerm>& terms = roots_.rows()[row].linear;
    return std::none_of(terms.begin(), terms.end(), [&](const LinearTerm& term) {
        return term.col != col && is_unbounded(term.col) && !uses(row, term.col);
    });
}

// The row that is taken to define the column, -1 for none. Columns with two bounds are rather what
// is decided on. One that stands in the function itself, or in a sum of columns that does
// (`direct`), may be any of a row's; others must be the only one there that could be meant.
int Writing::defining_row(int col, bool direct) {
    const auto known = row_of_.find(col);
    if (known != row_of_.end()) return known->second;
    if (!is_unbounded(col)) return -1;
    const auto is_free = [&](int row, int of) { return is_taken_[row] == 0 && !uses(row, of); };
    const auto leads_on = [&](const LinearTerm& term) {
        const std::vector<int>& rows = equalities_[term.col];
        return term.col != col && is_open_[term.col] == 0 &&
               std::any_of(rows.begin(), rows.end(),
                           [&](int row) { return is_free(row, term.col); });
    };
    int found = -1;
    for (const int row : equalities_[col]) {
        const bool is_usable = found < 0 && is_free(row, col);
        if (is_usable && (direct || is_only_unbounded(row, col))) found = row;
    }
    for (const int row : linear_equalities_[col]) {
        const std::vector<LinearTerm>& terms = roots_.rows()[row].linear;
        const bool is_usable = direct && found < 0 && is_taken_[row] == 0;
        if (is_usable && std::any_of(terms.begin(), terms.end(), leads_on)) found = row;
    }
    if (found < 0) return -1;
    is_taken_[found] = 1;
    return row_of_[col] = found;
}

// The node with `get` of its arguments in their places.
template <class Get>
Scaled Writing::rebuilt(int index, const Get& get) {
    const Node node = graph_.node(index);
    std::vector<Entry> entries;
    if (node.has_entries()) {
        entries.assign(graph_.entries(node), graph_.entries(node) + node.second);
    }
    std::vector<Scaled> args;
    switch (node.op) {
        case Op::kConstant:
        case Op::kColumn:
            return {1.0, index};
        case Op::kSum: {
            double constant = node.param;
            std::vector<Entry> terms;
            for (const Entry& entry : entries) {
                const Scaled term = get(entry.node);
                if (term.is_constant()) {
                    constant += entry.value * term.factor;
                } else {
                    terms.push_back({entry.value * term.factor, term.node});
                }
            }
            return graph_.sum(constant, terms);
        }
        case Op::kProduct: {
            const Scaled a = get(node.first), b = get(node.second);
            return product(a, b);
        }
        case Op::kDivide: {
            const Scaled a = get(node.first), b = get(node.second);
            return graph_.divide(a, b);
        }
        case Op::kGeneralPower: {
            const Scaled a = get(node.first), b = get(node.second);
            return graph_.power(a, b);
        }
        case Op::kMin:
        case Op::kMax:
        case Op::kCall:
            for (const Entry& entry : entries) args.push_back(get(entry.node));
            return node.op == Op::kCall ? graph_.call(static_cast<int>(node.param), args)
                                        : graph_.extreme(node.op, args);
        case Op::kPiecewise:
            for (size_t k = 1; k < entries.size(); ++k) args.push_back({entries[k].value, -1});
            return graph_.piecewise(get(entries[0].node), args);
        case Op::kPower:
            return graph_.power(get(node.first), {node.param, -1});
        default:
            return graph_.unary(node.op, get(node.first));
    }
}

Scaled Writing::product(const Scaled& a, const Scaled& b) {
    std::vector<Entry> factors;
    for (const Scaled& term : {a, b}) {
        if (!term.is_constant()) factors.push_back({1.0, term.node});
    }
    return graph_.product(a.factor * b.factor, factors);
}

// A column, or a sum of columns and others, with what the columns are defined to be. Columns within
// functions stay: where these are convex, so is the model in them.
Scaled Writing::expanded(int index, int depth, bool direct) {
    const Node node = graph_.node(index);
    if (node.op == Op::kSum) {
        return rebuilt(index, [&](int argument) {
            const bool is_column = graph_.node(argument).op == Op::kColumn;
            return is_column ? expanded(argument, depth, direct) : Scaled{1.0, argument};
        });
    }
    const int col = node.first;
    if (node.op != Op::kColumn || depth > kMaxDepth || is_open_[col] != 0) return {1.0, index};
    const int row = defining_row(col, direct);
    if (row < 0) return {1.0, index};
    is_open_[col] = 1;
    const Scaled out = value_of(col, row, depth + 1, direct && roots_.is_linear(row));
    is_open_[col] = 0;
    return out;
}

// What the row says that the column is.
Scaled Writing::value_of(int col, int row, int depth, bool direct) {
    const RootParts& parts = roots_.rows()[row];
    double own = 0.0;
    for (const LinearTerm& term : parts.linear) own += term.col == col ? term.value : 0.0;
    double constant = (model_.rhs[row] - parts.constant) / own;
    std::vector<Entry> terms;
    const auto add = [&](double factor, const Scaled& term) {
        if (term.is_constant()) {
            constant -= factor * term.factor / own;
        } else {
            terms.push_back({-factor * term.factor / own, term.node});
        }
    };
    for (const LinearTerm& term : parts.linear) {
        if (term.col != col) add(term.value, expanded(graph_.column(term.col).node, depth, direct));
    }
    for (const QuadTerm& term : parts.quadratic) {
        const Scaled a = graph_.column(term.col1), b = graph_.column(term.col2);
        add(term.value, product(a, b));
    }
    for (const Entry& term : parts.rest) add(term.value, {1.0, term.node});
    return graph_.sum(constant, terms);
}

// False when the formula would be too long.
bool Writing::rewrite(const RootParts& before, Formula& formula) const {
    Terms terms;
    terms.constant = before.constant;
    for (const Entry& term : before.rest) {
        const Scaled replaced = new_of_[term.node];
        if (replaced.is_constant()) {
            terms.constant += term.value * replaced.factor;
        } else {
            terms.terms.push_back({term.value * replaced.factor, replaced.node});
        }
    }
    std::map<int, double> size;
    const auto size_of = [&](const auto& self, int node) -> double {
        const auto known = size.find(node);
        if (known != size.end()) return known->second;
        double sum = 1.0;
        graph_.for_arguments(node, [&](int argument) { sum += self(self, argument); });
        return size[node] = sum;
    };
    double total = 0.0;
    for (const Entry& term : terms.terms) total += size_of(size_of, term.node);
    if (total > kMaxSize) return false;
    RootParts parts = split(graph_, terms);
    parts.linear.insert(parts.linear.end(), before.linear.begin(), before.linear.end());
    parts.quadratic.insert(parts.quadratic.end(), before.quadratic.begin(), before.quadratic.end());
    formula = {write_formula(graph_, parts)};
    return true;
}

bool Writing::run() {
    if (!has_places()) return false;
    index_equalities();
    const int count = graph_.size();
    std::vector<char> changed(static_cast<size_t>(count), 0);
    for (int i = 0; i < count; ++i) {
        const Node node = graph_.node(i);
        Scaled out{1.0, i};
        if (shows_more(node)) {
            const Scaled argument = expanded(node.first, 0, true);
            if (argument.factor != 1.0 || argument.node != node.first) {
                out = rebuilt(i, [&](int) { return argument; });
            }
        } else {
            bool is_affected = false;
            graph_.for_arguments(i, [&](int argument) { is_affected |= changed[argument] != 0; });
            if (is_affected) out = rebuilt(i, [&](int argument) { return new_of_[argument]; });
        }
        changed[i] = out.node != i || out.factor != 1.0;
        new_of_.push_back(out);
    }
    const auto is_changed = [&](const RootParts& parts) {
        return std::any_of(parts.rest.begin(), parts.rest.end(),
                           [&](const Entry& term) { return changed[term.node] != 0; });
    };
    std::map<int, Formula> formulas;
    bool any = false;
    if (is_changed(roots_.objective_formula())) {
        if (!rewrite(roots_.objective_formula(), formulas[-1])) return false;
        any = true;
    }
    for (const auto& [row, parts] : roots_.row_formulas()) {
        if (!is_changed(*parts)) continue;
        if (!rewrite(*parts, formulas[row])) return false;
        any = true;
    }
    for (auto& [row, formula] : formulas) {
        (row < 0 ? model_.formulas.objective : model_.formulas.rows[row]) = std::move(formula);
    }
    return any;
}

}  // namespace

bool has_places_to_write_out(const Formulas& formulas) {
    const auto has_place = [](const Formula& formula) {
        for (const Coefficient& coefficient : formula) {
            for (size_t k = 0; k < coefficient.types.size(); ++k) {
                const int type = coefficient.types[k];
                if (type != NSLP_TOKEN_OPERATOR && type != NSLP_TOKEN_FUNCTION) continue;
                const int value = static_cast<int>(coefficient.values[k]);
                if (type == NSLP_TOKEN_OPERATOR && value == NSLP_OPERATOR_POWER) return true;
                if (type != NSLP_TOKEN_FUNCTION) continue;
                if (value == kFunctionLog || value == kFunctionLog10 || value == kFunctionSqrt) {
                    return true;
                }
            }
        }
        return false;
    };
    return has_place(formulas.objective) ||
           std::any_of(formulas.rows.begin(), formulas.rows.end(),
                       [&](const auto& entry) { return has_place(entry.second); });
}

bool write_out_definitions(Model& model) { return Writing(model).run(); }

}  // namespace nlra
