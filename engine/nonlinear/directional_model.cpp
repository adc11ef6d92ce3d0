#include "nonlinear/directional_model.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "nonlinear/formula_roots.hpp"
#include "nonlinear/formula_writer.hpp"
#include "nonlinear/row_block.hpp"
#include "nonlinear/tape.hpp"
#include "nonlinear/user_function.hpp"

namespace nlra {

namespace {

// Relative: what is closer to a kink, a bound or a side is at it.
constexpr double kNear = 1e-5;

double size_of(double value) { return std::max(1.0, std::fabs(value)); }
bool is_near(double a, double b) { return std::fabs(a - b) <= kNear * size_of(b); }

constexpr Scaled kZero{0.0, -1};

class Differentiation {
  public:
    Differentiation(const Model& model, const std::vector<double>& x)
        : functions_(model.formulas), x_(x) {
        for (OpaqueFunction* function : functions_.functions()) roots_.add_function(function);
        roots_.set_columns(model.cols());
    }

    int add(const Formula& formula) {
        std::vector<FormulaPiece> pieces;
        for (const Coefficient& coefficient : formula) pieces.push_back(piece_of(coefficient));
        return roots_.add(pieces);
    }
    // Once all formulas have been added. False where a derivative is not known.
    bool run();
    int kinks() const { return kinks_; }
    // The linear part of a formula's derivative is added, the rest returned.
    Formula derivative(int root, std::vector<LinearTerm>& linear);

  private:
    bool is_known(const Scaled& derivative) const { return std::isfinite(derivative.factor); }
    Scaled combine(const std::vector<std::pair<double, Scaled>>& parts);
    Scaled of_extreme(const Node& node);
    Scaled of_piecewise(const Node& node);
    Scaled of_abs(const Node& node);
    Scaled of_call(int index);
    bool is_linear(Scaled derivative) const;
    Scaled of_node(int index);

    CalledFunctions functions_;
    const std::vector<double>& x_;
    FormulaRoots roots_;
    std::optional<Tape> tape_;        // a root for each node
    std::vector<double> value_;       // by node
    std::vector<Scaled> derivative_;  // by node, over graph_
    Graph graph_;
    int kinks_ = 0;
};

Scaled Differentiation::combine(const std::vector<std::pair<double, Scaled>>& parts) {
    std::vector<Entry> terms;
    for (const auto& [factor, part] : parts) {
        // An argument that does not move has no say, whatever the slope.
        if (part.factor == 0.0) continue;
        const double coefficient = factor * part.factor;
        if (!std::isfinite(coefficient)) return {kNotDefined, -1};
        if (coefficient != 0.0) terms.push_back({coefficient, part.node});
    }
    if (terms.empty()) return kZero;
    return graph_.sum(0.0, terms);
}

Scaled Differentiation::of_extreme(const Node& node) {
    const Entry* const entry = roots_.graph().entries(node);
    double extreme = value_[entry[0].node];
    for (int i = 1; i < node.second; ++i) {
        extreme = extreme_of(node.op, extreme, value_[entry[i].node]);
    }
    std::vector<Scaled> tied;
    for (int i = 0; i < node.second; ++i) {
        if (is_near(value_[entry[i].node], extreme)) tied.push_back(derivative_[entry[i].node]);
    }
    if (tied.size() == 1) return tied[0];
    ++kinks_;
    return graph_.extreme(node.op, tied);
}

Scaled Differentiation::of_abs(const Node& node) {
    const double argument = value_[node.first];
    if (!is_near(argument, 0.0)) return combine({{sign_of(argument), derivative_[node.first]}});
    ++kinks_;
    return graph_.unary(Op::kAbs, derivative_[node.first]);
}

Scaled Differentiation::of_piecewise(const Node& node) {
    const Entry* const entry = roots_.graph().entries(node);
    const Scaled argument = derivative_[entry[0].node];
    const double x = value_[entry[0].node];
    std::vector<double> points;
    for (int i = 1; i < node.second; ++i) points.push_back(entry[i].value);
    const int count = static_cast<int>(points.size());
    for (int i = 0; i + 1 < count; i += 2) {
        if (!is_near(points[i], x)) continue;
        if (i > 0 && points[i] == points[i - 2]) return {kNotDefined, -1};
        if (i == 0 || i + 2 >= count) break;  // the outer pieces go on
        if (points[i + 2] == points[i]) return {kNotDefined, -1};
        const double left = (points[i + 1] - points[i - 1]) / (points[i] - points[i - 2]);
        const double right = (points[i + 3] - points[i + 1]) / (points[i + 2] - points[i]);
        ++kinks_;
        return graph_.piecewise(
            argument, {{-1.0, -1}, {-left, -1}, {0.0, -1}, {0.0, -1}, {1.0, -1}, {right, -1}});
    }
    return combine({{piecewise_at(points.data(), count, x).slope, argument}});
}

bool Differentiation::is_linear(Scaled derivative) const {
    if (derivative.is_constant()) return true;
    const Node& node = graph_.node(derivative.node);
    if (node.op == Op::kColumn) return true;
    if (node.op != Op::kSum) return false;
    const Entry* const entry = graph_.entries(node);
    return std::all_of(entry, entry + node.second, [this](const Entry& term) {
        return graph_.node(term.node).op == Op::kColumn;
    });
}

// A user function is known by its derivatives by columns only.
Scaled Differentiation::of_call(int index) {
    bool is_smooth = true;
    roots_.graph().for_arguments(
        index, [&](int argument) { is_smooth = is_smooth && is_linear(derivative_[argument]); });
    const auto begin = tape_->jacobian_start()[index], end = tape_->jacobian_start()[index + 1];
    std::vector<double> gradient(static_cast<size_t>(end - begin));
    if (!is_smooth || !tape_->gradient(x_.data(), index, gradient.data())) {
        return {kNotDefined, -1};
    }
    std::vector<std::pair<double, Scaled>> parts;
    for (auto k = begin; k < end; ++k) {
        parts.emplace_back(gradient[k - begin], graph_.column(tape_->jacobian_col()[k]));
    }
    return combine(parts);
}

Scaled Differentiation::of_node(int index) {
    const Graph& graph = roots_.graph();
    const Node& node = graph.node(index);
    const double value = value_[index];
    switch (node.op) {
        case Op::kConstant:
            return kZero;
        case Op::kColumn:
            return graph_.column(node.first);
        case Op::kSum: {
            std::vector<std::pair<double, Scaled>> parts;
            for (int i = 0; i < node.second; ++i) {
                const Entry& entry = graph.entries(node)[i];
                parts.emplace_back(entry.value, derivative_[entry.node]);
            }
            return combine(parts);
        }
        case Op::kProduct:
            return combine({{value_[node.second], derivative_[node.first]},
                            {value_[node.first], derivative_[node.second]}});
        case Op::kDivide:
            return combine({{1.0 / value_[node.second], derivative_[node.first]},
                            {-value / value_[node.second], derivative_[node.second]}});
        case Op::kGeneralPower:
            return combine(
                {{value * value_[node.second] / value_[node.first], derivative_[node.first]},
                 {value * std::log(value_[node.first]), derivative_[node.second]}});
        case Op::kMin:
        case Op::kMax:
            return of_extreme(node);
        case Op::kAbs:
            return of_abs(node);
        case Op::kPiecewise:
            return of_piecewise(node);
        case Op::kCall:
            return of_call(index);
        case Op::kSign:
            return {is_near(value_[node.first], 0.0) ? kNotDefined : 0.0, -1};
        default: {
            double first = kNotDefined;
            visit_unary(node.op,
                        [&](auto f) { first = f.first(value_[node.first], value, node.param); });
            return combine({{first, derivative_[node.first]}});
        }
    }
}

bool Differentiation::run() {
    const Graph& graph = roots_.graph();
    std::vector<RootParts> parts(static_cast<size_t>(graph.size()));
    std::vector<const RootParts*> roots;
    for (int i = 0; i < graph.size(); ++i) {
        parts[i].rest.push_back({1.0, i});
        roots.push_back(&parts[i]);
    }
    value_.assign(parts.size(), kNotDefined);
    tape_.emplace(graph, roots, roots_.functions());
    if (!tape_->values(x_.data(), value_.data())) return false;
    for (int i = 0; i < graph.size(); ++i) {
        derivative_.push_back(of_node(i));
        if (!is_known(derivative_.back())) return false;
    }
    return true;
}

void add_quadratic(const std::vector<QuadTerm>& terms, const std::vector<double>& x,
                   std::vector<LinearTerm>& gradient) {
    for (const QuadTerm& term : terms) {
        gradient.push_back({term.col1, term.value * x[term.col2]});
        gradient.push_back({term.col2, term.value * x[term.col1]});
    }
}

Formula Differentiation::derivative(int root, std::vector<LinearTerm>& linear) {
    const RootParts& parts = roots_.parts(root);
    linear.insert(linear.end(), parts.linear.begin(), parts.linear.end());
    add_quadratic(parts.quadratic, x_, linear);
    std::vector<std::pair<double, Scaled>> rest;
    for (const Entry& entry : parts.rest) rest.emplace_back(entry.value, derivative_[entry.node]);
    const Scaled sum = combine(rest);
    if (sum.factor == 0.0) return {};
    RootParts out = split(graph_, {0.0, {{sum.factor, sum.node}}});
    linear.insert(linear.end(), out.linear.begin(), out.linear.end());
    out.linear.clear();
    if (out.rest.empty()) return {};
    return {write_formula(graph_, out)};
}

class Builder {
  public:
    Builder(const Model& model, const Solution& at) : model_(model), at_(at) {}
    std::optional<DirectionalModel> build();

  private:
    void add_columns(const std::vector<double>& gradient);
    // 'N' for a row that a short step cannot miss.
    char active_sides(int row) const;

    const Model& model_;
    const Solution& at_;
    DirectionalModel out_;
};

void Builder::add_columns(const std::vector<double>& gradient) {
    const std::vector<double>& x = at_.x;
    std::vector<double> lower, upper;
    for (int j = 0; j < model_.cols(); ++j) {
        const double size = size_of(x[j]);
        const bool is_low = x[j] <= model_.lower[j] + kNear * size;
        const bool is_high = x[j] >= model_.upper[j] - kNear * size;
        lower.push_back(is_low ? 0.0 : -size);
        upper.push_back(is_high ? 0.0 : size);
    }
    out_.model.sense = model_.sense;
    out_.model.add_cols(model_.cols(), 0, gradient.data(), nullptr, nullptr, nullptr, lower.data(),
                        upper.data());
}

char Builder::active_sides(int row) const {
    const double value = model_.rhs[row] - at_.slack[row];
    const bool is_low = is_near(value, model_.row_lower(row)) || value < model_.row_lower(row);
    const bool is_high = is_near(value, model_.row_upper(row)) || value > model_.row_upper(row);
    if (is_low && is_high) return 'E';
    return is_low ? 'G' : is_high ? 'L' : 'N';
}

std::optional<DirectionalModel> Builder::build() {
    Differentiation differentiation(model_, at_.x);
    const bool has_objective = !model_.formulas.objective.empty();
    const int objective = has_objective ? differentiation.add(model_.formulas.objective) : -1;
    std::vector<std::pair<int, int>> row_roots;
    for (const auto& [row, formula] : model_.formulas.rows) {
        if (active_sides(row) != 'N') row_roots.emplace_back(row, differentiation.add(formula));
    }
    if (!differentiation.run()) return std::nullopt;
    std::vector<LinearTerm> linear;
    add_quadratic(model_.qobj, at_.x, linear);
    if (has_objective) {
        Formula rest = differentiation.derivative(objective, linear);
        if (!rest.empty()) out_.model.formulas.objective = std::move(rest);
    }
    std::vector<double> gradient(model_.obj);
    for (const LinearTerm& term : linear) gradient[term.col] += term.value;
    add_columns(gradient);
    RowBlock rows;
    size_t next = 0;
    for (int i = 0; i < model_.rows(); ++i) {
        const char type = active_sides(i);
        if (type == 'N') continue;
        linear.clear();
        for (int64_t k = model_.matrix.start()[i]; k < model_.matrix.start()[i + 1]; ++k) {
            linear.push_back({model_.matrix.index()[k], model_.matrix.value()[k]});
        }
        const auto quadratic = model_.qrows.find(i);
        if (quadratic != model_.qrows.end()) add_quadratic(quadratic->second, at_.x, linear);
        if (next < row_roots.size() && row_roots[next].first == i) {
            Formula rest = differentiation.derivative(row_roots[next++].second, linear);
            if (!rest.empty()) out_.model.formulas.rows[rows.rows()] = std::move(rest);
        }
        rows.begin(type, 0.0);
        rows.add(1.0, 0.0, linear.data(), linear.data() + linear.size());
    }
    rows.append_to(out_.model);
    out_.kinks = differentiation.kinks();
    return std::move(out_);
}

}  // namespace

std::optional<DirectionalModel> directional_model(const Model& model, const Solution& at) {
    return Builder(model, at).build();
}

}  // namespace nlra
