#include "nonlinear/nlp_functions.hpp"

#include <algorithm>
#include <cmath>

#include "nonlinear/merge_equal.hpp"

namespace nlra {

namespace {

constexpr int kObjective = -1;

bool same_formula(const Formula& a, const Formula& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const nlra::Coefficient& c, const nlra::Coefficient& d) {
                          return c.factor == d.factor && c.column == d.column &&
                                 c.types == d.types && c.values == d.values;
                      });
}

}  // namespace

ModelFunctions::Source::Source(const Model& model)
    : sense(model.sense),
      columns(model.cols()),
      start(model.matrix.start()),
      index(model.matrix.index()),
      value(model.matrix.value()),
      qobj(model.qobj),
      qrows(model.qrows),
      objective(model.formulas.objective),
      rows(model.formulas.rows),
      calls(!model.formulas.functions.empty()) {}

bool ModelFunctions::Source::matches(const Model& model) const {
    return sense == model.sense && columns == model.cols() && start == model.matrix.start() &&
           index == model.matrix.index() && value == model.matrix.value() && qobj == model.qobj &&
           qrows == model.qrows && same_formula(objective, model.formulas.objective) &&
           std::equal(rows.begin(), rows.end(), model.formulas.rows.begin(),
                      model.formulas.rows.end(),
                      [](const auto& a, const auto& b) {
                          return a.first == b.first && same_formula(a.second, b.second);
                      }) &&
           model.formulas.functions.empty();
}

ModelFunctions::ModelFunctions(const Model& model, Monitor& monitor)
    : source_(model),
      monitor_(&monitor),
      sense_(model.sense < 0.0 ? -1.0 : 1.0),
      lower_(model.lower),
      upper_(model.upper),
      functions_(model.formulas) {
    for (OpaqueFunction* function : functions_.functions()) formulas_.add_function(function);
    formulas_.set_columns(model.cols());
    objective_ = parts_of(model.formulas.objective, &model.qobj, sense_);
    merge_equal(objective_.linear, column_before);
    merge_equal(objective_.quadratic, term_before);
    roots_.push_back({kObjective, {}});
    add_costs(model);
    add_rows(model);
    plan();
}

bool ModelFunctions::renew(const Model& model, Monitor& monitor) {
    // Functions of the user's may be others behind the same address.
    if (source_.calls || !source_.matches(model)) return false;
    monitor_ = &monitor;
    std::vector<double> lower, upper;
    size_t at = 0, constant = 0;
    for (int i = 0; i < model.rows(); ++i) {
        const double low = model.row_lower(i), high = model.row_upper(i);
        const bool is_here = at < model_rows_.size() && model_rows_[at] == i;
        const bool is_constant =
            constant < constant_rows_.size() && constant_rows_[constant].model_row == i;
        if ((is_here || is_constant) == (low <= -kInfinity && high >= kInfinity)) return false;
        constant += is_constant;
        if (!is_here) continue;
        lower.push_back(low);
        upper.push_back(high);
        ++at;
    }
    add_costs(model);
    if (lower == row_lower_ && upper == row_upper_ && lower_ == model.lower &&
        upper_ == model.upper) {
        return true;
    }
    lower_ = model.lower;
    upper_ = model.upper;
    row_lower_ = std::move(lower);
    row_upper_ = std::move(upper);
    analysis_.reset();
    is_convex_.reset();
    return true;
}

// The costs are no part of the tape, so that others can take their place.
void ModelFunctions::add_costs(const Model& model) {
    costs_.clear();
    for (int j = 0; j < model.cols(); ++j) {
        if (model.obj[j] != 0.0) costs_.push_back({j, sense_ * model.obj[j]});
    }
    constant_ = sense_ * model.constant;
    RootParts& parts = roots_[0].parts;
    parts = objective_;
    parts.constant += constant_;
    parts.linear.insert(parts.linear.end(), costs_.begin(), costs_.end());
    merge_equal(parts.linear, column_before);
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
void ModelFunctions::add_rows(const Model& model) {
    static const Formula none;
    const RowMatrix& matrix = model.matrix;
    for (int i = 0; i < model.rows(); ++i) {
        const double low = model.row_lower(i), high = model.row_upper(i);
        if (low <= -kInfinity && high >= kInfinity) continue;
        const auto formula = model.formulas.rows.find(i);
        const auto quadratic = model.qrows.find(i);
        const bool has_formula = formula != model.formulas.rows.end();
        const bool is_linear = !has_formula && quadratic == model.qrows.end();
        const int64_t begin = matrix.start()[i], end = matrix.start()[i + 1];
        const int row = static_cast<int>(model_rows_.size());
        Root root{row, {}};
        if (!is_linear) {
            root.parts =
                parts_of(has_formula ? formula->second : none,
                         quadratic != model.qrows.end() ? &quadratic->second : nullptr, 1.0);
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
    std::vector<const RootParts*> parts{&objective_};
    for (size_t r = 1; r < roots_.size(); ++r) {
        merge_equal(roots_[r].parts.linear, column_before);
        merge_equal(roots_[r].parts.quadratic, term_before);
        parts.push_back(&roots_[r].parts);
    }
    tape_ = std::make_unique<Tape>(formulas_.graph(), parts, functions_.functions());
    structure_.has_hessian = tape_->plan_hessian();
    if (!structure_.has_hessian) {
        monitor_->log(1, "The Hessian takes too many steps: it is approximated from gradients");
    }
    structure_.columns = source_.columns;
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
    value = values_[0] + constant_;
    for (const auto& [col, cost] : costs_) value += cost * x[col];
    return true;
}

bool ModelFunctions::gradient(const double* x, double* values) {
    std::fill_n(values, structure_.columns, 0.0);
    const int64_t entries = tape_->jacobian_start()[1];
    if (!tape_->gradient(x, 0, jacobian_.data())) return false;
    for (int64_t k = 0; k < entries; ++k) values[tape_->jacobian_col()[k]] = jacobian_[k];
    for (const auto& [col, cost] : costs_) values[col] += cost;
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
        monitor_->log(1, "  Iter        Objective     Primal inf     Dual inf   Time");
    }
    monitor_->log(1, "%6d%c %16.9e  %13.3e  %11.3e %6.1f", progress.iteration,
                  progress.restoration ? 'r' : ' ', sense_ * progress.objective,
                  progress.primal_infeasibility, progress.dual_infeasibility, monitor_->elapsed());
    return !monitor_->should_stop();
}

const CurvatureAnalysis& ModelFunctions::analysis() const {
    if (!analysis_) {
        analysis_ =
            std::make_unique<CurvatureAnalysis>(formulas_.graph(), lower_.data(), upper_.data());
    }
    return *analysis_;
}

// A row needs a convex function below its upper side and a concave one above its lower side. A
// stop ends the proof as failed.
bool ModelFunctions::is_convex() const {
    const StopPoll poll = [this] { return monitor_->should_stop(); };
    if (is_convex_) return *is_convex_;
    try {
        is_convex_ = std::all_of(roots_.begin(), roots_.end(), [&](const Root& root) {
            const Shape shape = analysis().shape(root.parts, poll);
            if (root.row == kObjective) return shape.convex;
            return (row_upper_[root.row] >= kInfinity || shape.convex) &&
                   (row_lower_[root.row] <= -kInfinity || shape.concave);
        });
        return *is_convex_;
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
