#include "nonlinear/epigraph.hpp"

#include <algorithm>
#include <cmath>

#include "nonlinear/curvature.hpp"
#include "nonlinear/directions.hpp"
#include "nonlinear/formula_roots.hpp"
#include "nonlinear/formula_writer.hpp"
#include "nonlinear/tape.hpp"
#include "nonlinear/user_function.hpp"

namespace nlra {

namespace {

constexpr int kObjective = -1;

bool has_plain_columns(const Model& model) {
    return std::all_of(model.coltype.begin(), model.coltype.end(),
                       [](char type) { return type == 'C' || type == 'B' || type == 'I'; });
}

Direction direction_of_row(const Model& model, int row) {
    const bool down = model.row_upper(row)<kInfinity, up = model.row_lower(row)> - kInfinity;
    return static_cast<Direction>((down ? kDown : kUnused) | (up ? kUp : kUnused));
}

// Whether slopes change in one way only, and the function does not jump.
bool curves(const Pieces& pieces, bool upwards) {
    if (pieces.at.empty() || pieces.has_jumps()) return false;
    return upwards ? std::is_sorted(pieces.slope.begin(), pieces.slope.end())
                   : std::is_sorted(pieces.slope.rbegin(), pieces.slope.rend());
}

class EpigraphBuilder {
  public:
    EpigraphBuilder(const Model& model, double radius)
        : original_(model),
          radius_(radius),
          functions_(model.formulas),
          formulas_(parse()),
          analysis_(formulas_.graph(), model.lower.data(), model.upper.data()),
          lowest_(model.lower.size(), -kInfinity),
          highest_(model.upper.size(), kInfinity),
          anywhere_(formulas_.graph(), lowest_.data(), highest_.data()),
          directions_(formulas_.graph(), analysis_, anywhere_) {}

    std::optional<Model> build();

  private:
    FormulaRoots parse();
    bool is_replaceable(int node) const;
    void choose();
    void add_columns();
    void start_columns();
    void bound_by_parts(int node);
    void bound_by(int node, double factor, int part, double constant);
    void bound_by_rounded(int node);
    void put(int row, RootParts parts);
    void put_in_objective(const RootParts& parts);
    bool uses_column(const RootParts& parts) const {
        return std::any_of(parts.rest.begin(), parts.rest.end(),
                           [this](const Entry& term) { return changed_[term.node] != 0; });
    }

    const Model& original_;
    const double radius_;
    CalledFunctions functions_;
    std::vector<int> row_of_root_;
    FormulaRoots formulas_;
    CurvatureAnalysis analysis_;
    const std::vector<double> lowest_, highest_;
    CurvatureAnalysis anywhere_;  // without the columns' bounds
    Directions directions_;
    std::vector<int> replaced_;     // nodes
    std::vector<int> column_of_;    // by node, -1 for those that stay
    std::vector<uint8_t> changed_;  // by node: it is replaced, or uses one that is
    Model model_;
};

FormulaRoots EpigraphBuilder::parse() {
    FormulaRoots roots;
    for (OpaqueFunction* function : functions_.functions()) roots.add_function(function);
    roots.set_columns(original_.cols());
    const auto add = [&](int row, const Formula& formula) {
        std::vector<FormulaPiece> pieces;
        for (const Coefficient& coefficient : formula) pieces.push_back(piece_of(coefficient));
        roots.add(pieces);
        row_of_root_.push_back(row);
    };
    if (!original_.formulas.objective.empty()) add(kObjective, original_.formulas.objective);
    for (const auto& [row, formula] : original_.formulas.rows) add(row, formula);
    return roots;
}

bool EpigraphBuilder::is_replaceable(int index) const {
    const Node& node = formulas_.graph().node(index);
    const Direction direction = directions_.of(index);
    if (direction != kDown && direction != kUp) return false;
    const Interval range = analysis_.range(index);
    if (!(range.low < range.high)) return false;
    switch (node.op) {
        case Op::kMax:
            return direction == kDown;
        case Op::kMin:
            return direction == kUp;
        case Op::kAbs:
        case Op::kPiecewise:
            return has_pieces(formulas_.graph(), node) &&
                   curves(pieces_within_range(formulas_.graph(), analysis_, index),
                          direction == kDown);
        case Op::kSqrt: {
            if (radius_ == 0.0 || direction != kDown) return false;
            const Shape shape = analysis_.shape(split(formulas_.graph(), {0.0, {{1.0, index}}}));
            return shape.convex && !shape.linear();
        }
        default:
            return false;
    }
}

void EpigraphBuilder::choose() {
    const Graph& graph = formulas_.graph();
    for (size_t r = 0; r < row_of_root_.size(); ++r) {
        const int row = row_of_root_[r];
        const Direction direction = row != kObjective       ? direction_of_row(original_, row)
                                    : original_.sense < 0.0 ? kUp
                                                            : kDown;
        directions_.pull_root(formulas_.parts(static_cast<int>(r)), direction);
    }
    directions_.spread();
    column_of_.assign(graph.size(), -1);
    changed_.assign(graph.size(), 0);
    for (int i = 0; i < graph.size(); ++i) {
        if (is_replaceable(i)) {
            column_of_[i] = original_.cols() + static_cast<int>(replaced_.size());
            replaced_.push_back(i);
        }
        changed_[i] = column_of_[i] >= 0;
        graph.for_arguments(i, [&](int argument) { changed_[i] |= changed_[argument]; });
    }
}

void EpigraphBuilder::add_columns() {
    std::vector<double> lower, upper;
    for (const int node : replaced_) {
        const Interval range = directions_.range_to_keep(node);
        lower.push_back(range.low);
        upper.push_back(range.high);
    }
    const std::vector<double> costs(replaced_.size(), 0.0);
    model_.add_cols(static_cast<int>(replaced_.size()), 0, costs.data(), nullptr, nullptr, nullptr,
                    lower.data(), upper.data());
}

// Added columns begin with the value that the replaced function has where the others begin.
void EpigraphBuilder::start_columns() {
    std::vector<double> x(static_cast<size_t>(original_.cols()), 0.0);
    for (const auto& [column, value] : original_.formulas.start) x[column] = value;
    const std::vector<double>& last = original_.formulas.last.x;
    std::copy(last.begin(), last.end(), x.begin());
    for (int j = 0; j < original_.cols(); ++j) {
        x[j] = std::min(std::max(x[j], original_.lower[j]), original_.upper[j]);
    }
    std::vector<RootParts> parts(replaced_.size());
    std::vector<const RootParts*> roots;
    for (size_t i = 0; i < replaced_.size(); ++i) {
        parts[i].rest.push_back({1.0, replaced_[i]});
        roots.push_back(&parts[i]);
    }
    std::vector<double> values(replaced_.size(), kNotDefined);
    Tape(formulas_.graph(), roots, formulas_.functions()).values(x.data(), values.data());
    for (size_t i = 0; i < replaced_.size(); ++i) {
        const int column = column_of_[replaced_[i]];
        if (!std::isfinite(values[i])) continue;
        model_.formulas.start[column] =
            std::min(std::max(values[i], model_.lower[column]), model_.upper[column]);
    }
}

void EpigraphBuilder::put_in_objective(const RootParts& parts) {
    for (const LinearTerm& term : parts.linear) {
        model_.set_cost(term.col, model_.obj[term.col] + term.value);
    }
    std::vector<QuadTerm> terms = parts.quadratic;
    for (QuadTerm& term : terms) {
        const auto present =
            std::lower_bound(model_.qobj.begin(), model_.qobj.end(), term, term_before);
        const bool found = present != model_.qobj.end() && !term_before(term, *present);
        if (found) term.value += present->value;
    }
    model_.set_qobj(std::move(terms));
    model_.set_constant(model_.constant + parts.constant);
}

// Adds what is linear and quadratic to the row's own, and makes the rest its formula.
void EpigraphBuilder::put(int row, RootParts parts) {
    for (const Entry& term : parts.rest) {
        const int column = column_of_[term.node];
        if (column >= 0) parts.linear.push_back({column, term.value});
    }
    std::erase_if(parts.rest, [this](const Entry& term) { return column_of_[term.node] >= 0; });
    Formula formula;
    if (!parts.rest.empty()) {
        RootParts rest;
        rest.rest = parts.rest;
        formula.push_back(write_formula(formulas_.graph(), rest, column_of_));
    }
    if (row == kObjective) {
        put_in_objective(parts);
        model_.formulas.objective = std::move(formula);
        return;
    }
    for (const LinearTerm& term : parts.linear) {
        model_.set_coef(row, term.col, model_.matrix.get(row, term.col) + term.value);
    }
    if (!parts.quadratic.empty()) {
        const auto present = model_.qrows.find(row);
        if (present != model_.qrows.end()) {
            parts.quadratic.insert(parts.quadratic.end(), present->second.begin(),
                                   present->second.end());
        }
        model_.set_qrow(row, std::move(parts.quadratic));
    }
    model_.set_rhs(row, model_.rhs[row] - parts.constant);
    model_.formulas.rows.erase(row);
    if (!formula.empty()) model_.formulas.rows[row] = std::move(formula);
}

// A row between the column in a node's place and factor * part + constant.
void EpigraphBuilder::bound_by(int node, double factor, int part, double constant) {
    const bool below = directions_.of(node) == kDown;
    const int column = column_of_[node];
    const Node& bound = formulas_.graph().node(part);
    if (factor == 0.0 || bound.op == Op::kConstant) {
        if (factor != 0.0) constant += factor * bound.param;
        double& side = below ? model_.lower[column] : model_.upper[column];
        side = below ? std::max(side, constant) : std::min(side, constant);
        return;
    }
    RootParts parts = split(formulas_.graph(), {constant, {{factor, part}}});
    parts.linear.push_back({column, -1.0});
    const char type = below ? 'L' : 'G';
    model_.add_rows(1, 0, &type, nullptr, nullptr, nullptr, nullptr, nullptr);
    put(model_.rows() - 1, std::move(parts));
}

// sqrt(f) <= column as sqrt(radius^2 + f + column^2) - sqrt(2) column <= radius, which the column
// sqrt(f) meets: smooth wherever the column is not zero, however small f is.
void EpigraphBuilder::bound_by_rounded(int index) {
    RootParts parts;
    parts.constant = radius_ * radius_;
    parts.rest.push_back({1.0, formulas_.graph().node(index).first});
    const int column = column_of_[index];
    parts.quadratic.push_back({column, column, 1.0});
    Coefficient root = write_formula(formulas_.graph(), parts, column_of_);
    root.types.insert(root.types.begin(), NSLP_TOKEN_ARGUMENTS);
    root.values.insert(root.values.begin(), 0.0);
    root.types.push_back(NSLP_TOKEN_FUNCTION);
    root.values.push_back(kFunctionSqrt);
    const char type = 'L';
    model_.add_rows(1, 0, &type, &radius_, nullptr, nullptr, nullptr, nullptr);
    model_.set_coef(model_.rows() - 1, column, -std::sqrt(2.0));
    model_.formulas.rows[model_.rows() - 1] = {std::move(root)};
}

void EpigraphBuilder::bound_by_parts(int index) {
    const Graph& graph = formulas_.graph();
    const Node& node = graph.node(index);
    if (node.op == Op::kSqrt) return bound_by_rounded(index);
    if (node.op == Op::kMin || node.op == Op::kMax) {
        for (int k = 0; k < node.second; ++k) {
            bound_by(index, 1.0, graph.entries(node)[k].node, 0.0);
        }
        return;
    }
    const int argument = node.op == Op::kAbs ? node.first : graph.entries(node)->node;
    const Pieces pieces = pieces_within_range(graph, analysis_, index);
    double x = pieces.origin, y = pieces.value;
    for (size_t k = 0; k < pieces.slope.size(); ++k) {
        bound_by(index, pieces.slope[k], argument, y - pieces.slope[k] * x);
        if (k + 1 >= pieces.at.size()) continue;
        y += pieces.slope[k + 1] * (pieces.at[k + 1] - x);
        x = pieces.at[k + 1];
    }
}

std::optional<Model> EpigraphBuilder::build() {
    choose();
    if (replaced_.empty()) return std::nullopt;
    model_ = original_;
    add_columns();
    for (size_t r = 0; r < row_of_root_.size(); ++r) {
        const RootParts& parts = formulas_.parts(static_cast<int>(r));
        if (uses_column(parts)) put(row_of_root_[r], parts);
    }
    for (const int node : replaced_) bound_by_parts(node);
    start_columns();
    return std::move(model_);
}

}  // namespace

std::optional<Model> epigraph_form(const Model& model, double radius) {
    if (!has_plain_columns(model)) return std::nullopt;
    return EpigraphBuilder(model, radius).build();
}

}  // namespace nlra
