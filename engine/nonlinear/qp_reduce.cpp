#include "nonlinear/qp_reduce.hpp"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "nlra.h"
#include "store/error.hpp"

namespace nlra {

namespace {

// Narrower than this, relative, an interval has no interior that arithmetic could tell.
constexpr double kNarrow = 1e-10;

std::string text(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string text(const char* format, ...) {
    char buffer[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    return buffer;
}

class Reduction {
  public:
    Reduction(const Model& model, double tolerance) : model_(model), tolerance_(tolerance) {}
    ReducedProgram run();

  private:
    void require_numbers() const;
    bool take_columns();
    void mark_used(std::vector<char>& used) const;
    void take_objective();
    bool take_rows();
    bool check_activity_bounds();
    // Splits a term: 2, 1 or 0 free columns left. A linear remainder is added to linear_.
    void add_term(const QuadTerm& term, double factor);
    void add_linear(int column, double value);

    const Model& model_;
    const double tolerance_;
    ReducedProgram out_;
    std::vector<int> local_;  // model column to program column, -1 for those left out
    // One row or the objective, being collected.
    std::vector<double> linear_;  // by program column
    std::vector<char> listed_;
    std::vector<int> list_;
    std::vector<QuadTerm> quadratic_;
    double constant_ = 0.0;
};

void Reduction::mark_used(std::vector<char>& used) const {
    for (const int column : model_.matrix.index()) used[column] = 1;
    for (const QuadTerm& term : model_.qobj) used[term.col1] = used[term.col2] = 1;
    for (const auto& [row, terms] : model_.qrows) {
        for (const QuadTerm& term : terms) used[term.col1] = used[term.col2] = 1;
    }
}

// The store lets NaN in when its checks are switched off; the solver would go on with it.
void Reduction::require_numbers() const {
    const auto check = [](const std::vector<double>& values, const char* what) {
        for (const double value : values) {
            if (std::isnan(value)) {
                fail(NLRA_ERROR_ARGUMENT, "the model cannot be solved: %s is not a number", what);
            }
        }
    };
    check(model_.obj, "an objective coefficient");
    check(model_.lower, "a lower bound");
    check(model_.upper, "an upper bound");
    check(model_.rhs, "a right-hand side");
    check(model_.range, "a range");
    check(model_.matrix.value(), "a coefficient");
}

bool Reduction::take_columns() {
    const int n = model_.cols();
    std::vector<char> used(n, 0);
    mark_used(used);
    local_.assign(n, -1);
    out_.x.assign(n, 0.0);
    for (int j = 0; j < n; ++j) {
        const double low = std::max(model_.lower[j], -kInfinity);
        const double high = std::min(model_.upper[j], kInfinity);
        if (low - high > tolerance_ || low >= kInfinity || high <= -kInfinity) {
            out_.infeasible = text("column %s has the bounds %g and %g",
                                   model_.colnames.get(j).c_str(), low, high);
            return false;
        }
        if (high - low <= kNarrow * std::max(1.0, std::fabs(low))) {
            out_.x[j] = low == high ? low : 0.5 * (low + high);
            continue;
        }
        const double cost = model_.sense * model_.obj[j];
        if (!used[j]) {
            const double wanted = cost > 0.0 ? low : cost < 0.0 ? high : std::clamp(0.0, low, high);
            if (std::fabs(wanted) < kInfinity) {
                out_.x[j] = wanted;
                continue;
            }
        }
        local_[j] = out_.program.add_column(0.0, low, high);
        out_.columns.push_back(j);
    }
    linear_.assign(out_.columns.size(), 0.0);
    listed_.assign(out_.columns.size(), 0);
    return true;
}

void Reduction::add_linear(int column, double value) {
    const int j = local_[column];
    if (j < 0) {
        constant_ += value * out_.x[column];
        return;
    }
    if (!listed_[j]) {
        listed_[j] = 1;
        list_.push_back(j);
    }
    linear_[j] += value;
}

void Reduction::add_term(const QuadTerm& term, double factor) {
    const double value = factor * term.value;
    if (value == 0.0) return;
    if (local_[term.col1] < 0) {
        add_linear(term.col2, value * out_.x[term.col1]);
    } else if (local_[term.col2] < 0) {
        add_linear(term.col1, value * out_.x[term.col2]);
    } else {
        quadratic_.push_back({local_[term.col1], local_[term.col2], value});
    }
}

void Reduction::take_objective() {
    constant_ = model_.sense * model_.constant;
    for (int j = 0; j < model_.cols(); ++j) add_linear(j, model_.sense * model_.obj[j]);
    for (const QuadTerm& term : model_.qobj) add_term(term, model_.sense);
    out_.program.constant = constant_;
    for (const int j : list_) {
        out_.program.cost[j] = linear_[j];
        linear_[j] = 0.0;
        listed_[j] = 0;
    }
    list_.clear();
    out_.program.objective_terms.swap(quadratic_);
}

bool Reduction::take_rows() {
    QuadraticProgram& program = out_.program;
    const auto& start = model_.matrix.start();
    const auto& index = model_.matrix.index();
    const auto& value = model_.matrix.value();
    auto form = model_.qrows.begin();
    for (int i = 0; i < model_.rows(); ++i) {
        const bool has_form = form != model_.qrows.end() && form->first == i;
        const std::vector<QuadTerm>* terms = has_form ? &(form++)->second : nullptr;
        const double low = model_.row_lower(i);
        const double high = model_.row_upper(i);
        if (low <= -kInfinity && high >= kInfinity) continue;

        constant_ = 0.0;
        for (int64_t k = start[i]; k < start[i + 1]; ++k) add_linear(index[k], value[k]);
        if (terms != nullptr) {
            for (const QuadTerm& term : *terms) add_term(term, 1.0);
        }
        const auto side = [&](double bound) {
            return std::fabs(bound) >= kInfinity ? bound : bound - constant_;
        };
        bool empty = quadratic_.empty();
        for (const int j : list_) empty = empty && linear_[j] == 0.0;
        const double slack = tolerance_ * std::max(1.0, std::fabs(constant_));
        const bool impossible = low >= kInfinity || high <= -kInfinity;
        if (impossible || (empty && (side(low) > slack || side(high) < -slack))) {
            out_.infeasible = text("row %s cannot be satisfied", model_.rownames.get(i).c_str());
            return false;
        }
        if (!empty) {
            program.add_row(side(low), side(high));
            out_.rows.push_back(i);
        }
        for (const int j : list_) {
            if (linear_[j] != 0.0) program.add_coefficient(j, linear_[j]);
            linear_[j] = 0.0;
            listed_[j] = 0;
        }
        list_.clear();
        if (!quadratic_.empty()) {
            program.add_form(quadratic_.data(), quadratic_.data() + quadratic_.size());
            quadratic_.clear();
        }
    }
    return true;
}

// Rows that no values within the bounds can satisfy.
bool Reduction::check_activity_bounds() {
    const QuadraticProgram& program = out_.program;
    size_t form = 0;
    for (int i = 0; i < program.rows; ++i) {
        if (form < program.forms.size() && program.forms[form].row == i) {
            ++form;
            continue;
        }
        double least = 0.0;
        double most = 0.0;
        double size = 1.0;
        for (int64_t k = program.start[i]; k < program.start[i + 1]; ++k) {
            const double a = program.value[k];
            const double low = program.lower[program.index[k]];
            const double high = program.upper[program.index[k]];
            const double at_least = a > 0.0 ? low : high;
            const double at_most = a > 0.0 ? high : low;
            least += std::fabs(at_least) >= kInfinity ? -kInfinity * kInfinity : a * at_least;
            most += std::fabs(at_most) >= kInfinity ? kInfinity * kInfinity : a * at_most;
            if (std::fabs(at_least) < kInfinity) size = std::max(size, std::fabs(a * at_least));
            if (std::fabs(at_most) < kInfinity) size = std::max(size, std::fabs(a * at_most));
        }
        const bool above =
            program.row_upper[i] < kInfinity && least > program.row_upper[i] + tolerance_ * size;
        const bool below =
            program.row_lower[i] > -kInfinity && most < program.row_lower[i] - tolerance_ * size;
        if (above || below) {
            out_.infeasible = text("row %s cannot be satisfied within the bounds of its columns",
                                   model_.rownames.get(out_.rows[i]).c_str());
            return false;
        }
    }
    return true;
}

ReducedProgram Reduction::run() {
    require_numbers();
    if (!take_columns()) return std::move(out_);
    take_objective();
    if (take_rows()) check_activity_bounds();
    return std::move(out_);
}

}  // namespace

ReducedProgram reduce(const Model& model, double tolerance) {
    return Reduction(model, tolerance).run();
}

Solution expand(const Model& model, const ReducedProgram& reduced, const PrimalDual& point,
                bool with_duals) {
    Solution solution;
    solution.x = reduced.x;
    for (size_t j = 0; j < reduced.columns.size(); ++j) {
        solution.x[reduced.columns[j]] = point.x[j] + 0.0;  // no negative zeros
    }
    evaluate(model, solution);
    if (!with_duals) return solution;

    solution.has_duals = true;
    solution.dual.assign(model.rows(), 0.0);
    for (size_t i = 0; i < reduced.rows.size(); ++i) {
        solution.dual[reduced.rows[i]] = model.sense * point.y[i] + 0.0;
    }
    const std::vector<double>& x = solution.x;
    std::vector<double>& dj = solution.dj;
    dj = model.obj;
    const auto add_gradient = [&](const std::vector<QuadTerm>& terms, double factor) {
        for (const QuadTerm& term : terms) {
            dj[term.col1] += factor * term.value * x[term.col2];
            dj[term.col2] += factor * term.value * x[term.col1];
        }
    };
    add_gradient(model.qobj, 1.0);
    const auto& start = model.matrix.start();
    const auto& index = model.matrix.index();
    const auto& value = model.matrix.value();
    for (int i = 0; i < model.rows(); ++i) {
        const double dual = solution.dual[i];
        if (dual == 0.0) continue;
        for (int64_t k = start[i]; k < start[i + 1]; ++k) dj[index[k]] -= dual * value[k];
    }
    for (const auto& [row, terms] : model.qrows) {
        if (solution.dual[row] != 0.0) add_gradient(terms, -solution.dual[row]);
    }
    for (double& entry : dj) entry += 0.0;
    return solution;
}

}  // namespace nlra
