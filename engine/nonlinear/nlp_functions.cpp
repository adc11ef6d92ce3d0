#include "nonlinear/nlp_functions.hpp"

#include <algorithm>
#include <cmath>

#include "nonlinear/merge_equal.hpp"

namespace nlra {

namespace {

constexpr int kObjective = -1;

}  // namespace

ModelFunctions::ModelFunctions(const Model& model, Monitor& monitor)
    : model_(model),
      monitor_(monitor),
      sense_(model.sense < 0.0 ? -1.0 : 1.0),
      functions_(model.formulas) {
    for (OpaqueFunction* function : functions_.functions()) formulas_.add_function(function);
    formulas_.set_columns(model.cols());
    Root objective{kObjective, parts_of(model.formulas.objective, &model.qobj, sense_)};
    objective.parts.constant += sense_ * model.constant;
    for (int j = 0; j < model.cols(); ++j) {
        if (model.obj[j] != 0.0) objective.parts.linear.push_back({j, sense_ * model.obj[j]});
    }
    roots_.push_back(std::move(objective));
    add_rows();
    plan();
}

// What is linear and quadratic in a formula is taken out of it, to join the row's other terms.
RootParts ModelFunctions::parts_of(const Formula& formula, const std::vector<QuadTerm>* quadratic,
                                   double factor) {
    RootParts parts;
    if (!formula.empty()) {
        std::vector<FormulaPiece> pieces;
        for (const nlra::Coefficient& coefficient : formula) {
            pieces.push_back(piece_of(coefficient));
            pieces.back().factor *= factor;
        }
        parts = formulas_.parts(formulas_.add(pieces));
    }
    if (quadratic != nullptr) {
        for (const QuadTerm& term : *quadratic) {
            parts.quadratic.push_back({term.col1, term.col2, factor * term.value});
        }
    }
    return parts;
}

// Ipopt wants no rows that nothing can change.
void ModelFunctions::add_rows() {
    static const Formula none;
    const RowMatrix& matrix = model_.matrix;
    for (int i = 0; i < model_.rows(); ++i) {
        const double low = model_.row_lower(i), high = model_.row_upper(i);
        if (low <= -kInfinity && high >= kInfinity) continue;
        const auto formula = model_.formulas.rows.find(i);
        const auto quadratic = model_.qrows.find(i);
        const bool has_formula = formula != model_.formulas.rows.end();
        const bool is_linear = !has_formula && quadratic == model_.qrows.end();
        const int64_t begin = matrix.start()[i], end = matrix.start()[i + 1];
        const int row = static_cast<int>(model_rows_.size());
        Root root{row, {}};
        if (!is_linear) {
            root.parts =
                parts_of(has_formula ? formula->second : none,
                         quadratic != model_.qrows.end() ? &quadratic->second : nullptr, 1.0);
        }
        const RootParts& parts = root.parts;
        if (begin == end && parts.linear.empty() && parts.quadratic.empty() && parts.rest.empty()) {
            constant_rows_.push_back({i, parts.constant});
            continue;
        }
        model_rows_.push_back(i);
        row_lower_.push_back(low);
        row_upper_.push_back(high);
        for (int64_t k = begin; k < end; ++k) {
            if (is_linear) {
                linear_.push_back({row, matrix.index()[k], matrix.value()[k]});
            } else {
                root.parts.linear.push_back({matrix.index()[k], matrix.value()[k]});
            }
        }
        if (!is_linear) roots_.push_back(std::move(root));
    }
}

// Jacobian: the linear rows' coefficients, then the tape's entries without the objective's, which
// come first there.
void ModelFunctions::plan() {
    std::vector<const RootParts*> parts;
    for (Root& root : roots_) {
        merge_equal(root.parts.linear, column_before);
        merge_equal(root.parts.quadratic, term_before);
        parts.push_back(&root.parts);
    }
    tape_ = std::make_unique<Tape>(formulas_.graph(), parts, functions_.functions());
    structure_.has_hessian = tape_->plan_hessian();
    if (!structure_.has_hessian) {
        monitor_.log(1, "The Hessian takes too many steps: it is approximated from gradients");
    }
    structure_.columns = model_.cols();
    structure_.rows = static_cast<int>(model_rows_.size());
    for (const Coefficient& c : linear_) {
        structure_.jacobian_row.push_back(c.row);
        structure_.jacobian_col.push_back(c.col);
    }
    const std::vector<int64_t>& start = tape_->jacobian_start();
    for (size_t r = 1; r < roots_.size(); ++r) {
        for (int64_t k = start[r]; k < start[r + 1]; ++k) {
            structure_.jacobian_row.push_back(roots_[r].row);
            structure_.jacobian_col.push_back(tape_->jacobian_col()[k]);
        }
    }
    // What is left without a column are functions of the user's with constant arguments.
    if (structure_.jacobian_row.empty() && structure_.rows > 0 && structure_.columns > 0) {
        linear_.push_back({0, 0, 0.0});
        structure_.jacobian_row.push_back(0);
        structure_.jacobian_col.push_back(0);
    }
    if (structure_.has_hessian) {
        structure_.hessian_row = tape_->hessian_row();
        structure_.hessian_col = tape_->hessian_col();
    }
    structure_.linear_rows = roots_.size() == 1;
    structure_.constant_hessian = structure_.linear_rows && roots_[0].parts.rest.empty();
    values_.resize(roots_.size());
    weights_.resize(roots_.size());
    jacobian_.resize(tape_->jacobian_col().size());
}

bool ModelFunctions::objective(const double* x, double& value) {
    if (!tape_->values(x, values_.data())) return false;
    value = values_[0];
    return true;
}

bool ModelFunctions::gradient(const double* x, double* values) {
    std::fill_n(values, structure_.columns, 0.0);
    const int64_t entries = tape_->jacobian_start()[1];
    if (!tape_->gradient(x, 0, jacobian_.data())) return false;
    for (int64_t k = 0; k < entries; ++k) values[tape_->jacobian_col()[k]] = jacobian_[k];
    return true;
}

bool ModelFunctions::rows(const double* x, double* values) {
    std::fill_n(values, structure_.rows, 0.0);
    for (const Coefficient& c : linear_) values[c.row] += c.value * x[c.col];
    if (roots_.size() == 1) return true;
    if (!tape_->values(x, values_.data())) return false;
    for (size_t r = 1; r < roots_.size(); ++r) values[roots_[r].row] = values_[r];
    return true;
}

bool ModelFunctions::jacobian(const double* x, double* values) {
    for (const Coefficient& c : linear_) *values++ = c.value;
    if (roots_.size() == 1) return true;
    if (!tape_->jacobian(x, jacobian_.data())) return false;
    std::copy(jacobian_.begin() + tape_->jacobian_start()[1], jacobian_.end(), values);
    return true;
}

bool ModelFunctions::hessian(const double* x, double objective_factor, const double* multipliers,
                             double* values) {
    weights_[0] = objective_factor;
    for (size_t r = 1; r < roots_.size(); ++r) weights_[r] = multipliers[roots_[r].row];
    return tape_->hessian(x, weights_.data(), values);
}

bool ModelFunctions::progress(const NlpProgress& progress) {
    last_iteration_ = progress.iteration;
    if (progress.iteration % 20 == 0) {
        monitor_.log(1, "  Iter        Objective     Primal inf     Dual inf   Time");
    }
    monitor_.log(1, "%6d%c %16.9e  %13.3e  %11.3e %6.1f", progress.iteration,
                 progress.restoration ? 'r' : ' ', sense_ * progress.objective,
                 progress.primal_infeasibility, progress.dual_infeasibility, monitor_.elapsed());
    return !monitor_.should_stop();
}

const CurvatureAnalysis& ModelFunctions::analysis() const {
    if (!analysis_) {
        analysis_ = std::make_unique<CurvatureAnalysis>(formulas_.graph(), model_.lower.data(),
                                                        model_.upper.data());
    }
    return *analysis_;
}

// A row needs a convex function below its upper side and a concave one above its lower side. A
// stop ends the proof as failed.
bool ModelFunctions::is_convex() const {
    const StopPoll poll = [this] { return monitor_.should_stop(); };
    try {
        return std::all_of(roots_.begin(), roots_.end(), [&](const Root& root) {
            const Shape shape = analysis().shape(root.parts, poll);
            if (root.row == kObjective) return shape.convex;
            return (row_upper_[root.row] >= kInfinity || shape.convex) &&
                   (row_lower_[root.row] <= -kInfinity || shape.concave);
        });
    } catch (const FactorizationStopped&) {
        return false;
    }
}

bool ModelFunctions::range_is_contradictory(double tolerance) const {
    return std::any_of(roots_.begin() + 1, roots_.end(), [&](const Root& root) {
        const Interval range = analysis().range(root.parts);
        const double low = row_lower_[root.row], high = row_upper_[root.row];
        return range.high < low - tolerance * std::max(1.0, std::fabs(low)) ||
               range.low > high + tolerance * std::max(1.0, std::fabs(high));
    });
}

}  // namespace nlra
