#include "nonlinear/definitions.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "nonlinear/directions.hpp"
#include "nonlinear/tape.hpp"

namespace nlra {

namespace {

// The row without the column that it defines.
RootParts others_of(const RootParts& row, int col) {
    RootParts out = row;
    std::erase_if(out.linear, [&](const LinearTerm& term) { return term.col == col; });
    std::erase_if(out.quadratic, [&](const QuadTerm& term) { return term.col1 == col; });
    return out;
}

class Relaxing {
  public:
    Relaxing(Model& model, const ModelRoots& roots, const ColumnBounds& bounds, bool strict,
             const StopPoll& poll)
        : model_(model),
          roots_(roots),
          bounds_(bounds),
          only_strict_(strict),
          poll_(poll),
          analysis_(roots.graph(), bounds.lower.data(), bounds.upper.data()),
          directions_(roots.graph(), analysis_, analysis_),
          uses_(model.lower.size()),
          may_move_(model.lower.size(), 1) {
        for (int j = 0; j < model.cols(); ++j) may_move_[j] = model.coltype[j] == 'C';
        for (const Set& set : model.sets) {
            for (const int col : set.cols) may_move_[col] = 0;
        }
    }

    std::vector<Definition> run() {
        collect();
        try_all();
        if (!only_strict_) {
            strict_ = false;
            // Columns with two bounds are rather what is decided on.
            for (int j = 0; j < model_.cols(); ++j) {
                if (model_.lower[j] > -kInfinity && model_.upper[j] < kInfinity) may_move_[j] = 0;
            }
            try_all();
        }
        restore_linear_rows();
        return std::move(definitions_);
    }

  private:
    enum Kind : uint8_t { kLinear = 1, kOwnSquare = 2, kOther = 4 };
    // How a function that should be low pulls one of its columns.
    struct Pull {
        int col;
        Direction direction;
        uint8_t kinds;
    };
    // How often objective and rows pull a column which way.
    struct Uses {
        int down = 0, up = 0, both = 0;
        int both_xor = 0;  // of the rows that pull it both ways: the row, where there is one
    };

    void collect();
    std::vector<Pull> pulls_of(const RootParts& parts);
    Direction pull_by(double coefficient, const Interval& range) const;
    Interval range_of(int col) const {
        RootParts parts;
        parts.linear.push_back({col, 1.0});
        return analysis_.range(parts);
    }
    void count(int row, int sign);
    Direction in_row(int row, Direction direction) const;
    void visit_later(int col) {
        if (may_move_[col] != 0 && uses_[col].both == 1) pending_.push_back(col);
    }
    void try_all() {
        pending_.clear();
        for (int j = 0; j < model_.cols(); ++j) visit_later(j);
        for (size_t k = 0; k < pending_.size(); ++k) try_column(pending_[k]);
    }
    void try_column(int col);
    char relaxed_type(const Definition& definition, const Interval& values) const;
    void relax(const Definition& definition, char type);
    void restore_linear_rows();

    Model& model_;
    const ModelRoots& roots_;
    const ColumnBounds& bounds_;
    const bool only_strict_;
    bool strict_ = true;
    const StopPoll& poll_;
    const CurvatureAnalysis analysis_;
    Directions directions_;
    std::vector<Uses> uses_;
    std::vector<char> may_move_;
    std::vector<std::vector<Pull>> pulls_;  // by row
    std::vector<int> pending_;
    std::vector<Definition> definitions_;
};

Direction Relaxing::pull_by(double coefficient, const Interval& range) const {
    if (range.low >= 0.0) return coefficient > 0.0 ? kDown : kUp;
    if (range.high <= 0.0) return coefficient > 0.0 ? kUp : kDown;
    return kBoth;
}

std::vector<Relaxing::Pull> Relaxing::pulls_of(const RootParts& parts) {
    std::vector<Pull> pulls;
    for (const LinearTerm& term : parts.linear) {
        pulls.push_back({term.col, term.value > 0.0 ? kDown : kUp, kLinear});
    }
    for (const QuadTerm& term : parts.quadratic) {
        if (term.value == 0.0) continue;
        const bool is_square = term.col1 == term.col2;
        const uint8_t kind = is_square ? kOwnSquare : kOther;
        pulls.push_back({term.col1, pull_by(term.value, range_of(term.col2)), kind});
        if (!is_square) {
            pulls.push_back({term.col2, pull_by(term.value, range_of(term.col1)), kind});
        }
    }
    for (const auto& [col, direction] : directions_.pulls_of(parts, kDown)) {
        pulls.push_back({col, direction, kOther});
    }
    std::sort(pulls.begin(), pulls.end(),
              [](const Pull& a, const Pull& b) { return a.col < b.col; });
    size_t kept = 0;
    for (const Pull& pull : pulls) {
        if (kept == 0 || pulls[kept - 1].col != pull.col) {
            pulls[kept++] = pull;
            continue;
        }
        Pull& present = pulls[kept - 1];
        present.direction = static_cast<Direction>(present.direction | pull.direction);
        present.kinds |= pull.kinds;
    }
    pulls.resize(kept);
    return pulls;
}

Direction Relaxing::in_row(int row, Direction direction) const {
    if (row == model_.rows()) return model_.sense < 0.0 ? reversed(direction) : direction;
    const bool has_upper = model_.row_upper(row) < kInfinity;
    const bool has_lower = model_.row_lower(row) > -kInfinity;
    if (!has_upper && !has_lower) return kUnused;
    return has_upper && has_lower ? kBoth : has_upper ? direction : reversed(direction);
}

void Relaxing::count(int row, int sign) {
    for (const Pull& pull : pulls_[row]) {
        Uses& uses = uses_[pull.col];
        switch (in_row(row, pull.direction)) {
            case kUnused:
                break;
            case kDown:
                uses.down += sign;
                break;
            case kUp:
                uses.up += sign;
                break;
            case kBoth:
                uses.both += sign;
                uses.both_xor ^= row;
                break;
        }
    }
}

void Relaxing::collect() {
    for (int i = 0; i < model_.rows(); ++i) pulls_.push_back(pulls_of(roots_.rows()[i]));
    pulls_.push_back(pulls_of(roots_.objective()));
    for (int i = 0; i <= model_.rows(); ++i) count(i, 1);
}

// Of a column that only one row pulls both ways: whether that row defines it.
void Relaxing::try_column(int col) {
    const Uses& uses = uses_[col];
    const int row = uses.both_xor;
    if (uses.both != 1 || row == model_.rows() || model_.indicators.count(row) != 0) return;
    if (model_.row_lower(row) != model_.row_upper(row)) return;
    const std::vector<Pull>& pulls = pulls_[row];
    const auto pull =
        std::lower_bound(pulls.begin(), pulls.end(), col,
                         [](const Pull& entry, int wanted) { return entry.col < wanted; });
    const RootParts& parts = roots_.rows()[row];
    Definition definition{row, col, 0.0, pull->kinds == kOwnSquare};
    if (pull->kinds == kLinear) {
        for (const LinearTerm& term : parts.linear) {
            if (term.col == col) definition.coefficient = term.value;
        }
    } else if (pull->kinds == kOwnSquare && bounds_.lower[col] >= 0.0) {
        for (const QuadTerm& term : parts.quadratic) {
            if (term.col1 == col) definition.coefficient = term.value;
        }
    }
    if (definition.coefficient == 0.0) return;
    Interval others = analysis_.range(others_of(parts, col));
    others = {(model_.rhs[row] - others.high) / definition.coefficient,
              (model_.rhs[row] - others.low) / definition.coefficient};
    if (definition.coefficient < 0.0) std::swap(others.low, others.high);
    const char type = relaxed_type(definition, others);
    if (type != 'E') relax(definition, type);
}

// `values` are those that the equality gives the column, or its square.
char Relaxing::relaxed_type(const Definition& definition, const Interval& values) const {
    constexpr double kRounding = 1e-12;
    const Uses& uses = uses_[definition.col];
    double low = bounds_.lower[definition.col], high = bounds_.upper[definition.col];
    const bool has_low = strict_ && low > -kInfinity, has_high = strict_ && high < kInfinity;
    if (definition.squared) {
        low *= low;
        high *= high;
    }
    const bool may_fall = !has_low || values.low >= low - kRounding * std::max(1.0, std::fabs(low));
    const bool may_rise =
        !has_high || values.high <= high + kRounding * std::max(1.0, std::fabs(high));
    const bool is_pushed_down = uses.up == 0 && may_fall, is_pushed_up = uses.down == 0 && may_rise;
    if (!is_pushed_down && !is_pushed_up) return 'E';
    const bool is_used = uses.up + uses.down > 0;
    const bool may_be_dropped = !is_used && may_fall && may_rise && !definition.squared;
    // Of a linear row neither side would keep functions defined, or push other columns for a use.
    if (may_be_dropped && roots_.is_linear(definition.row)) return 'N';
    // With a square of its own the row may be a cone, if the rest is what a cone has there.
    const RootParts& row = roots_.rows()[definition.row];
    const Shape shape =
        analysis_.shape(definition.squared ? others_of(row, definition.col) : row, poll_);
    // What is pushed down is held up: from below if the coefficient is positive.
    const bool positive = definition.coefficient > 0.0;
    if (shape.convex && (positive ? is_pushed_up : is_pushed_down)) return 'L';
    if (shape.concave && (positive ? is_pushed_down : is_pushed_up)) return 'G';
    return may_be_dropped ? 'N' : 'E';
}

void Relaxing::relax(const Definition& definition, char type) {
    const int row = definition.row;
    count(row, -1);
    model_.rowtype[row] = type;
    model_.range[row] = 0.0;
    count(row, 1);
    definitions_.push_back(definition);
    for (const Pull& pull : pulls_[row]) visit_later(pull.col);
}

// A column in a definition's row is defined by a later one if at all, or not by any that is left.
void Relaxing::restore_linear_rows() {
    std::vector<char> moves(model_.lower.size(), 0);
    std::vector<Definition> kept;
    for (size_t k = definitions_.size(); k-- > 0;) {
        const Definition& definition = definitions_[k];
        const std::vector<Pull>& pulls = pulls_[definition.row];
        const bool is_needed = !roots_.is_linear(definition.row) ||
                               std::any_of(pulls.begin(), pulls.end(),
                                           [&](const Pull& pull) { return moves[pull.col] != 0; });
        if (is_needed) {
            moves[definition.col] = 1;
            kept.push_back(definition);
        } else {
            model_.rowtype[definition.row] = 'E';
        }
    }
    definitions_.assign(kept.rbegin(), kept.rend());
}

}  // namespace

std::vector<Definition> relax_definitions(Model& model, const ModelRoots& roots,
                                          const ColumnBounds& bounds, bool strict,
                                          const StopPoll& poll) {
    try {
        return Relaxing(model, roots, bounds, strict, poll).run();
    } catch (const FactorizationStopped&) {
        return {};
    }
}

// All at once, as often as there are definitions that build on each other.
bool close_definitions(const Model& model, const ModelRoots& roots,
                       const std::vector<Definition>& definitions, std::vector<double>& x) {
    std::vector<RootParts> others;
    for (const Definition& d : definitions) others.push_back(others_of(roots.rows()[d.row], d.col));
    std::vector<const RootParts*> parts;
    for (const RootParts& root : others) parts.push_back(&root);
    Tape tape(roots.graph(), parts, roots.functions());
    std::vector<double> values(others.size());
    for (size_t pass = 0; pass <= definitions.size(); ++pass) {
        std::fill(values.begin(), values.end(), std::numeric_limits<double>::quiet_NaN());
        tape.values(x.data(), values.data());
        bool changed = false;
        for (size_t k = 0; k < definitions.size(); ++k) {
            const Definition& d = definitions[k];
            double value = (model.rhs[d.row] - values[k]) / d.coefficient;
            if (d.squared) value = std::sqrt(std::max(0.0, value));
            if (!std::isfinite(value)) return false;
            changed |= value != x[d.col];
            x[d.col] = value;
        }
        if (!changed) return true;
    }
    return true;
}

}  // namespace nlra
