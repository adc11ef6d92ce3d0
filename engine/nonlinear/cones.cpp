#include "nonlinear/cones.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

#include "analysis/convexity.hpp"
#include "nonlinear/cone_forms.hpp"
#include "nonlinear/formula_writer.hpp"
#include "nonlinear/merge_equal.hpp"
#include "search/square_sum.hpp"

namespace nlra {

namespace {

// What does not take part in a cone's shape: squares that no product ties to other columns.
struct Apart {
    std::vector<QuadTerm> terms;
    std::vector<Square> squares;  // of forms with kOneColumn
};

class ConeRows {
  public:
    ConeRows(Model& model, const ModelRoots& roots, const ColumnBounds& bounds, double radius,
             const StopPoll& poll)
        : model_(model),
          roots_(roots),
          bounds_(bounds),
          radius_(radius),
          poll_(poll),
          analysis_(roots.graph(), model.lower.data(), model.upper.data()) {}

    std::vector<Cone> run();

  private:
    std::vector<QuadTerm> turned(int row, double factor) const;
    Apart take_apart(std::vector<QuadTerm>& q) const;
    std::vector<AffineForm> positive_forms(const std::vector<QuadTerm>& q);
    bool is_convex(int row) const;
    bool try_row(int row);
    void write(const Cone& cone, const Apart& apart, const std::vector<Square>& squares);

    Interval range_of(int col) const {
        const double low = bounds_.lower[col], high = bounds_.upper[col];
        return {low <= -kInfinity ? -HUGE_VAL : low, high >= kInfinity ? HUGE_VAL : high};
    }

    Model& model_;
    const ModelRoots& roots_;
    const ColumnBounds& bounds_;
    const double radius_;
    const StopPoll& poll_;
    const CurvatureAnalysis analysis_;
    std::vector<std::vector<int>> linear_rows_;  // short ones, by column; made when first needed
    std::vector<Cone> cones_;
};

// factor * the row minus its side, as a form with kOneColumn.
std::vector<QuadTerm> ConeRows::turned(int row, double factor) const {
    const RootParts& parts = roots_.rows()[row];
    const double side = factor > 0.0 ? model_.row_upper(row) : model_.row_lower(row);
    std::vector<QuadTerm> q{{kOneColumn, kOneColumn, factor * (parts.constant - side)}};
    const auto add = [&](int col1, int col2, double value) {
        for (int* const col : {&col1, &col2}) {
            if (*col == kOneColumn || model_.lower[*col] != model_.upper[*col]) continue;
            value *= model_.lower[*col];
            *col = kOneColumn;
        }
        q.push_back({std::min(col1, col2), std::max(col1, col2), factor * value});
    };
    for (const LinearTerm& term : parts.linear) add(term.col, kOneColumn, term.value);
    for (const QuadTerm& term : parts.quadratic) add(term.col1, term.col2, term.value);
    merge_equal(q, term_before);
    std::erase_if(q, [](const QuadTerm& term) { return term.value == 0.0; });
    return q;
}

// Moves terms out of q, leaving their part of the constant.
Apart ConeRows::take_apart(std::vector<QuadTerm>& q) const {
    struct Group {
        std::vector<QuadTerm> terms;
        double linear = 0.0;
        bool has_linear = false;
        int columns = 1;
    };
    std::map<int, int> leader;
    const auto find = [&](int col) {
        leader.emplace(col, col);
        while (leader[col] != col) col = leader[col] = leader[leader[col]];
        return col;
    };
    std::map<int, Group> groups;
    for (const QuadTerm& term : q) {
        if (term.col2 != kOneColumn) leader[find(term.col1)] = find(term.col2);
    }
    for (const QuadTerm& term : q) {
        if (term.col1 == kOneColumn) continue;
        Group& group = groups[find(term.col1)];
        group.terms.push_back(term);
        if (term.col2 == kOneColumn) {
            group.linear = term.value;
            group.has_linear = true;
        }
    }
    Apart apart;
    double constant = !q.empty() && q.back().col1 == kOneColumn ? q.back().value : 0.0;
    double size = std::fabs(constant);
    std::vector<QuadTerm> core;
    for (auto& [col, group] : groups) {
        std::vector<QuadTerm> squares = group.terms;
        std::erase_if(squares, [](const QuadTerm& term) { return term.col2 == kOneColumn; });
        const bool is_single = squares.size() == 1 && squares[0].col1 == squares[0].col2;
        const bool may_go = !squares.empty() && (is_single || !group.has_linear);
        if (!may_go || !is_convex_form(squares, 1.0, poll_)) {
            core.insert(core.end(), group.terms.begin(), group.terms.end());
        } else if (group.has_linear) {
            const double a = squares[0].value, shift = group.linear / (2.0 * a);
            apart.squares.push_back({a, {{squares[0].col1, 1.0}, {kOneColumn, shift}}});
            constant -= a * shift * shift;
            size += a * shift * shift;
        } else {
            apart.terms.insert(apart.terms.end(), squares.begin(), squares.end());
        }
    }
    // What completed squares leave of a constant that was theirs.
    constexpr double kRounding = 1e-13;
    if (std::fabs(constant) <= kRounding * size) constant = 0.0;
    core.push_back({kOneColumn, kOneColumn, constant});
    merge_equal(core, term_before);
    q = std::move(core);
    return apart;
}

// Linear rows over the columns of q, as forms that are not negative.
std::vector<AffineForm> ConeRows::positive_forms(const std::vector<QuadTerm>& q) {
    constexpr size_t kMaxTerms = 10, kMaxForms = 50;
    if (linear_rows_.empty()) {
        linear_rows_.resize(model_.lower.size());
        for (int i = 0; i < model_.rows(); ++i) {
            const std::vector<LinearTerm>& terms = roots_.rows()[i].linear;
            const bool is_short = terms.size() > 1 && terms.size() <= kMaxTerms;
            if (!is_short || !roots_.is_linear(i) || model_.indicators.count(i) != 0) continue;
            for (const LinearTerm& term : terms) linear_rows_[term.col].push_back(i);
        }
    }
    std::vector<int> columns;
    for (const QuadTerm& term : q) {
        for (const int col : {term.col1, term.col2}) {
            if (col != kOneColumn) columns.push_back(col);
        }
    }
    std::sort(columns.begin(), columns.end());
    columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
    std::vector<AffineForm> forms;
    for (const int col : columns) {
        for (const int row : linear_rows_[col]) {
            const RootParts& parts = roots_.rows()[row];
            const bool is_within =
                parts.linear[0].col == col &&
                std::all_of(parts.linear.begin(), parts.linear.end(), [&](const LinearTerm& term) {
                    return std::binary_search(columns.begin(), columns.end(), term.col);
                });
            if (!is_within || forms.size() >= kMaxForms) continue;
            const auto add = [&](double factor, double constant) {
                AffineForm form = parts.linear;
                for (LinearTerm& term : form) term.value *= factor;
                form.push_back({kOneColumn, constant});
                forms.push_back(std::move(form));
            };
            const double low = model_.row_lower(row) - parts.constant;
            const double high = model_.row_upper(row) - parts.constant;
            if (model_.row_lower(row) > -kInfinity) add(1.0, -low);
            if (model_.row_upper(row) < kInfinity) add(-1.0, high);
        }
    }
    return forms;
}

bool ConeRows::is_convex(int row) const {
    const Shape shape = analysis_.shape(roots_.rows()[row], poll_);
    return model_.row_upper(row) < kInfinity ? shape.convex : shape.concave;
}

// sqrt(apart + squares) - form <= constant
void ConeRows::write(const Cone& cone, const Apart& apart, const std::vector<Square>& squares) {
    Graph graph;
    const double weight = cone.scale * cone.scale;
    double constant = radius_ * radius_;
    std::vector<Entry> sum;
    const auto add = [&](double factor, const Scaled& term) {
        if (term.is_constant()) {
            constant += factor * term.factor;
        } else {
            sum.push_back({factor * term.factor, term.node});
        }
    };
    for (const QuadTerm& term : apart.terms) {
        std::vector<Entry> factors{{1.0, graph.column(term.col1).node},
                                   {1.0, graph.column(term.col2).node}};
        add(weight * term.value, graph.product(1.0, factors));
    }
    for (const std::vector<Square>* list : {&apart.squares, &squares}) {
        for (const Square& square : *list) {
            double shift = 0.0;
            std::vector<Entry> terms;
            for (const LinearTerm& term : square.form) {
                if (term.col == kOneColumn) {
                    shift = term.value;
                } else {
                    terms.push_back({term.value, graph.column(term.col).node});
                }
            }
            add(weight * square.weight, graph.power(graph.sum(shift, terms), {2.0, -1}));
        }
    }
    RootParts parts;
    parts.rest.push_back({1.0, graph.unary(Op::kSqrt, graph.sum(constant, sum)).node});
    const int row = cone.row;
    for (const LinearTerm& term : roots_.rows()[row].linear) model_.set_coef(row, term.col, 0.0);
    for (const LinearTerm& term : cone.form) model_.set_coef(row, term.col, -term.value);
    model_.rowtype[row] = 'L';
    model_.range[row] = 0.0;
    model_.rhs[row] = cone.constant + radius_;
    model_.qrows.erase(row);
    model_.formulas.rows[row] = {write_formula(graph, parts)};
}

bool ConeRows::try_row(int row) {
    const double factor = model_.row_upper(row) < kInfinity ? 1.0 : -1.0;
    std::vector<QuadTerm> q = turned(row, factor);
    if (!std::all_of(q.begin(), q.end(), [](const QuadTerm& t) { return std::isfinite(t.value); }))
        return false;
    const Apart apart = take_apart(q);
    if (q.front().col1 == kOneColumn) return false;
    const AffineForm form = find_cone_form(
        q, [this](int col) { return range_of(col); }, positive_forms(q), poll_);
    if (form.empty() || form[0].col == kOneColumn) return false;
    add_square(q, 2.0, form);
    const SquareSum sum = sum_of_squares(q, [](int) { return false; });
    if (!sum.rest.empty()) return false;
    Cone cone{row, factor, {}, 0.0, 1.0};
    double largest = 0.0;
    for (const LinearTerm& term : form) {
        if (term.col != kOneColumn) largest = std::max(largest, std::fabs(term.value));
    }
    cone.scale = 1.0 / (std::sqrt(2.0) * largest);
    for (const LinearTerm& term : form) {
        const double value = term.value / largest;
        if (term.col == kOneColumn) {
            cone.constant = value;
        } else {
            cone.form.push_back({term.col, value});
        }
    }
    write(cone, apart, sum.squares);
    cones_.push_back(std::move(cone));
    return true;
}

std::vector<Cone> ConeRows::run() {
    for (int i = 0; i < model_.rows(); ++i) {
        const RootParts& parts = roots_.rows()[i];
        const bool has_upper = model_.row_upper(i) < kInfinity;
        const bool has_lower = model_.row_lower(i) > -kInfinity;
        const bool is_candidate =
            !parts.quadratic.empty() && parts.rest.empty() && has_upper != has_lower;
        if (is_candidate && model_.indicators.count(i) == 0 && !is_convex(i)) try_row(i);
    }
    return std::move(cones_);
}

}  // namespace

std::vector<Cone> replace_cones(Model& model, const ModelRoots& roots, const ColumnBounds& bounds,
                                double radius, const StopPoll& poll) {
    try {
        return ConeRows(model, roots, bounds, radius, poll).run();
    } catch (const FactorizationStopped&) {
        return {};
    }
}

double value_of_form(const Cone& cone, const std::vector<double>& x) {
    double value = cone.constant;
    for (const LinearTerm& term : cone.form) value += term.value * x[term.col];
    return value;
}

// Moving the row's side by 1 moves that of the row in its place by scale / (2 sqrt(q + 2 l^2)), and
// where the row holds with equality the root is sqrt(2) l. At the apex there is no multiplier.
double dual_of_cone(const Cone& cone, double dual, const std::vector<double>& x) {
    constexpr double kApex = 1e-8;
    return cone.factor * dual * cone.scale * cone.scale /
           (2.0 * std::max(value_of_form(cone, x), kApex));
}

}  // namespace nlra
