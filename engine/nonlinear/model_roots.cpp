#include "nonlinear/model_roots.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "linear/relaxation.hpp"
#include "nonlinear/merge_equal.hpp"

namespace nlra {

namespace {

constexpr double kUnbounded = std::numeric_limits<double>::infinity();
constexpr int kRounds = 4;

bool has_sides(const Model& model, int row) {
    return model.row_lower(row) > -kInfinity || model.row_upper(row) < kInfinity;
}

void add_quadratic(RootParts& parts, const std::vector<QuadTerm>& terms) {
    parts.quadratic.insert(parts.quadratic.end(), terms.begin(), terms.end());
    merge_equal(parts.quadratic, term_before);
}

// A sum of intervals, from which one can be taken out again as long as it is not all but lost in
// the others.
class IntervalSum {
  public:
    void add(const Interval& term) {
        terms_.push_back(term);
        low_infinite_ += std::isinf(term.low);
        high_infinite_ += std::isinf(term.high);
    }
    Interval without(size_t index) const {
        Interval out{0.0, 0.0};
        const Interval& own = terms_[index];
        if (low_infinite_ > static_cast<int>(std::isinf(own.low))) out.low = -kUnbounded;
        if (high_infinite_ > static_cast<int>(std::isinf(own.high))) out.high = kUnbounded;
        if (std::isinf(out.low) && std::isinf(out.high)) return out;
        for (size_t k = 0; k < terms_.size(); ++k) {
            if (k == index) continue;
            out.low += terms_[k].low;
            out.high += terms_[k].high;
        }
        return out;
    }
    bool is_of_use() const { return low_infinite_ <= 1 || high_infinite_ <= 1; }

  private:
    std::vector<Interval> terms_;
    int low_infinite_ = 0, high_infinite_ = 0;
};

// Rows with more terms are too much work for what they tell.
constexpr size_t kMaxTerms = 50;

class BoundsByRows {
  public:
    BoundsByRows(const Model& model, const ModelRoots& roots)
        : model_(model), roots_(roots), bounds_{model.lower, model.upper} {
        for (int j = 0; j < model.cols(); ++j) {
            const Bounds hull = relaxed_column(model, j);
            bounds_.lower[j] = hull.lower;
            bounds_.upper[j] = hull.upper;
        }
    }

    ColumnBounds run() {
        for (int round = 0; round < kRounds; ++round) {
            improved_ = false;
            const CurvatureAnalysis analysis(roots_.graph(), bounds_.lower.data(),
                                             bounds_.upper.data());
            for (int i = 0; i < model_.rows(); ++i) {
                if (has_sides(model_, i) && model_.indicators.count(i) == 0) visit(i, analysis);
            }
            if (!improved_) break;
        }
        return std::move(bounds_);
    }

  private:
    void visit(int row, const CurvatureAnalysis& analysis) {
        const RootParts& parts = roots_.rows()[row];
        if (parts.linear.size() + parts.quadratic.size() + parts.rest.size() > kMaxTerms) return;
        IntervalSum sum;
        RootParts single;
        const auto add = [&] {
            sum.add(analysis.range(single));
            single = RootParts();
        };
        for (const LinearTerm& term : parts.linear) {
            single.linear = {term};
            add();
        }
        for (const QuadTerm& term : parts.quadratic) {
            single.quadratic = {term};
            add();
        }
        for (const Entry& term : parts.rest) {
            single.rest = {term};
            add();
        }
        if (!sum.is_of_use()) return;
        const double low = model_.row_lower(row), high = model_.row_upper(row);
        for (size_t k = 0; k < parts.linear.size(); ++k) {
            const Interval others = sum.without(k);
            const double a = parts.linear[k].value;
            Interval own{-kUnbounded, kUnbounded};  // of a * the column
            if (low > -kInfinity) own.low = low - parts.constant - others.high;
            if (high < kInfinity) own.high = high - parts.constant - others.low;
            tighten(parts.linear[k].col, a > 0.0 ? own.low / a : own.high / a,
                    a > 0.0 ? own.high / a : own.low / a);
        }
    }

    // Bounds that cross prove the model infeasible, which is for the solver to say.
    void tighten(int col, double low, double high) {
        if (low > bounds_.lower[col] && low <= bounds_.upper[col]) {
            bounds_.lower[col] = low;
            improved_ = true;
        }
        if (high < bounds_.upper[col] && high >= bounds_.lower[col]) {
            bounds_.upper[col] = high;
            improved_ = true;
        }
    }

    const Model& model_;
    const ModelRoots& roots_;
    ColumnBounds bounds_;
    bool improved_ = false;
};

}  // namespace

ModelRoots::ModelRoots(const Model& model)
    : functions_(model.formulas), rows_(static_cast<size_t>(model.rows())) {
    for (OpaqueFunction* function : functions_.functions()) formulas_.add_function(function);
    formulas_.set_columns(model.cols());
    objective_root_ = add(model.formulas.objective);
    objective_ = formulas_.parts(objective_root_);
    add_quadratic(objective_, model.qobj);
    for (int j = 0; j < model.cols(); ++j) {
        if (model.obj[j] != 0.0) objective_.linear.push_back({j, model.obj[j]});
    }
    merge_equal(objective_.linear, column_before);
    const RowMatrix& matrix = model.matrix;
    for (int i = 0; i < model.rows(); ++i) {
        if (!has_sides(model, i)) continue;
        const auto formula = model.formulas.rows.find(i);
        if (formula != model.formulas.rows.end()) {
            row_roots_.emplace_back(i, add(formula->second));
            rows_[i] = formulas_.parts(row_roots_.back().second);
        }
        const auto quadratic = model.qrows.find(i);
        if (quadratic != model.qrows.end()) add_quadratic(rows_[i], quadratic->second);
        for (int64_t k = matrix.start()[i]; k < matrix.start()[i + 1]; ++k) {
            rows_[i].linear.push_back({matrix.index()[k], matrix.value()[k]});
        }
        merge_equal(rows_[i].linear, column_before);
        std::erase_if(rows_[i].linear, [](const LinearTerm& term) { return term.value == 0.0; });
    }
}

int ModelRoots::add(const Formula& formula) {
    std::vector<FormulaPiece> pieces;
    for (const Coefficient& coefficient : formula) pieces.push_back(piece_of(coefficient));
    return formulas_.add(pieces);
}

ColumnBounds bounds_by_rows(const Model& model, const ModelRoots& roots) {
    return BoundsByRows(model, roots).run();
}

bool is_proven_convex(const Model& model, const ModelRoots& roots, const ColumnBounds& bounds,
                      const StopPoll& poll) {
    const CurvatureAnalysis analysis(roots.graph(), bounds.lower.data(), bounds.upper.data());
    try {
        const Shape objective = analysis.shape(roots.objective(), poll);
        if (!(model.sense < 0.0 ? objective.concave : objective.convex)) return false;
        for (int i = 0; i < model.rows(); ++i) {
            if (!has_sides(model, i) || roots.is_linear(i)) continue;
            const Shape shape = analysis.shape(roots.rows()[i], poll);
            if (model.row_upper(i) < kInfinity && !shape.convex) return false;
            if (model.row_lower(i) > -kInfinity && !shape.concave) return false;
        }
    } catch (const FactorizationStopped&) {
        return false;
    }
    return true;
}

}  // namespace nlra
