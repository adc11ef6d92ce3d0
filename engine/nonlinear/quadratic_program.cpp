#include "nonlinear/quadratic_program.hpp"

#include <algorithm>
#include <cmath>

namespace nlra {

namespace {

constexpr double kEpsilon = 2.3e-16;

double evaluate(const QuadTerm* first, const QuadTerm* last, const double* x) {
    double sum = 0.0;
    for (const QuadTerm* term = first; term != last; ++term) {
        sum += term->value * x[term->col1] * x[term->col2];
    }
    return sum;
}

void add_gradient(const QuadTerm* first, const QuadTerm* last, double factor, const double* x,
                  double* out) {
    for (const QuadTerm* term = first; term != last; ++term) {
        out[term->col1] += factor * term->value * x[term->col2];
        out[term->col2] += factor * term->value * x[term->col1];
    }
}

// Violation of each row relative to its side, and to its largest term once these are so large that
// the side says nothing about the attainable accuracy.
struct RowCheck {
    std::vector<double> activity;
    std::vector<double> largest_term;

    RowCheck(const QuadraticProgram& program, const double* x) : largest_term(program.rows, 0.0) {
        program.activity(x, activity);
        for (int i = 0; i < program.rows; ++i) {
            for (int64_t k = program.start[i]; k < program.start[i + 1]; ++k) {
                const double term = std::fabs(program.value[k] * x[program.index[k]]);
                largest_term[i] = std::max(largest_term[i], term);
            }
        }
        for (const QuadraticProgram::Form& form : program.forms) {
            for (int64_t k = form.begin; k < form.end; ++k) {
                const QuadTerm& term = program.form_terms[k];
                const double size = std::fabs(term.value * x[term.col1] * x[term.col2]);
                largest_term[form.row] = std::max(largest_term[form.row], size);
            }
        }
    }

    double relative_violation(const QuadraticProgram& program, int i) const {
        const double low = program.row_lower[i];
        const double high = program.row_upper[i];
        const double terms = 1e-4 * largest_term[i];
        if (activity[i] < low) {
            return (low - activity[i]) / std::max({1.0, std::fabs(low), terms});
        }
        if (activity[i] > high) {
            return (activity[i] - high) / std::max({1.0, std::fabs(high), terms});
        }
        return activity[i] == activity[i] ? 0.0 : kInfinity;
    }
};

}  // namespace

int QuadraticProgram::add_column(double cost_value, double lower_bound, double upper_bound) {
    cost.push_back(cost_value);
    lower.push_back(lower_bound);
    upper.push_back(upper_bound);
    return columns++;
}

int QuadraticProgram::add_row(double low, double high) {
    row_lower.push_back(low);
    row_upper.push_back(high);
    start.push_back(start.back());
    return rows++;
}

void QuadraticProgram::add_coefficient(int col, double coefficient) {
    index.push_back(col);
    value.push_back(coefficient);
    ++start.back();
}

void QuadraticProgram::add_form(const QuadTerm* first, const QuadTerm* last) {
    const int64_t begin = static_cast<int64_t>(form_terms.size());
    form_terms.insert(form_terms.end(), first, last);
    forms.push_back({rows - 1, begin, static_cast<int64_t>(form_terms.size())});
}

double QuadraticProgram::objective(const double* x) const {
    long double sum = constant;
    for (int j = 0; j < columns; ++j) sum += 1.0L * cost[j] * x[j];
    for (const QuadTerm& term : objective_terms) {
        sum += 1.0L * term.value * x[term.col1] * x[term.col2];
    }
    return static_cast<double>(sum);
}

void QuadraticProgram::gradient(const double* x, std::vector<double>& out) const {
    out.assign(cost.begin(), cost.end());
    add_gradient(objective_terms.data(), objective_terms.data() + objective_terms.size(), 1.0, x,
                 out.data());
}

void QuadraticProgram::activity(const double* x, std::vector<double>& out) const {
    out.assign(rows, 0.0);
    for (int i = 0; i < rows; ++i) {
        double sum = 0.0;
        for (int64_t k = start[i]; k < start[i + 1]; ++k) sum += value[k] * x[index[k]];
        out[i] = sum;
    }
    for (const Form& form : forms) {
        out[form.row] += evaluate(form_terms.data() + form.begin, form_terms.data() + form.end, x);
    }
}

void QuadraticProgram::add_transposed_jacobian(const double* x, const double* y, double factor,
                                               std::vector<double>& out) const {
    for (int i = 0; i < rows; ++i) {
        const double weight = factor * y[i];
        if (weight == 0.0) continue;
        for (int64_t k = start[i]; k < start[i + 1]; ++k) out[index[k]] += weight * value[k];
    }
    for (const Form& form : forms) {
        if (y[form.row] == 0.0) continue;
        add_gradient(form_terms.data() + form.begin, form_terms.data() + form.end,
                     factor * y[form.row], x, out.data());
    }
}

std::vector<double> QuadraticProgram::row_norms() const {
    std::vector<double> norms(rows, 0.0);
    for (int i = 0; i < rows; ++i) {
        for (int64_t k = start[i]; k < start[i + 1]; ++k) {
            norms[i] = std::max(norms[i], std::fabs(value[k]));
        }
    }
    for (const Form& form : forms) {
        for (int64_t k = form.begin; k < form.end; ++k) {
            norms[form.row] = std::max(norms[form.row], std::fabs(form_terms[k].value));
        }
    }
    return norms;
}

int QuadraticProgram::equations() const {
    int count = 0;
    for (int i = 0; i < rows; ++i) count += row_lower[i] == row_upper[i];
    return count;
}

double Residuals::worst() const { return std::max({primal, dual, complementarity}); }

void project(const QuadraticProgram& program, PrimalDual& point) {
    for (int j = 0; j < program.columns; ++j) {
        point.x[j] = std::clamp(point.x[j], program.lower[j], program.upper[j]);
    }
    for (int i = 0; i < program.rows; ++i) {
        if (point.y[i] > 0.0 && program.row_lower[i] <= -kInfinity) point.y[i] = 0.0;
        if (point.y[i] < 0.0 && program.row_upper[i] >= kInfinity) point.y[i] = 0.0;
    }
}

double row_violation(const QuadraticProgram& program, const std::vector<double>& x) {
    const RowCheck check(program, x.data());
    double worst = 0.0;
    for (int i = 0; i < program.rows; ++i) {
        worst = std::max(worst, check.relative_violation(program, i));
    }
    return worst;
}

Residuals measure(const QuadraticProgram& program, const PrimalDual& point, bool shifted_sides) {
    const double* x = point.x.data();
    Residuals result;
    const RowCheck check(program, x);
    std::vector<double> reduced;
    program.gradient(x, reduced);
    std::vector<double> magnitude(program.columns);
    double steepest = 1.0;
    for (int j = 0; j < program.columns; ++j) {
        magnitude[j] = std::max({1.0, std::fabs(program.cost[j]), std::fabs(reduced[j])});
        steepest = std::max(steepest, magnitude[j]);
    }
    // Where rows depend on each other their duals can be arbitrarily large and cancel. Residuals
    // are not relative to them, and what cancels counts with its rounding error.
    std::vector<double> rounding(program.columns, 0.0);
    for (int i = 0; i < program.rows; ++i) {
        for (int64_t k = program.start[i]; k < program.start[i + 1]; ++k) {
            double& size = rounding[program.index[k]];
            size = std::max(size, kEpsilon * std::fabs(program.value[k] * point.y[i]));
        }
    }
    program.add_transposed_jacobian(x, point.y.data(), -1.0, reduced);

    // Each multiplier must vanish or its constraint be active; what counts is the smaller of the
    // two failures, and the products of those that pass by their product add up to the gap.
    const double value_scale = std::max(1.0, std::fabs(program.objective(x)));
    double gap = 0.0;
    const auto pair = [&](double multiplier_ratio, double product) {
        const double product_ratio = std::fabs(product) / value_scale;
        // Written so that NaN counts as a failure.
        if (multiplier_ratio <= product_ratio) {
            result.dual = std::max(result.dual, multiplier_ratio);
        } else if (product_ratio <= kInfinity) {
            gap += product_ratio;
        } else {
            result.dual = kInfinity;
        }
    };
    for (int j = 0; j < program.columns; ++j) {
        const double side = reduced[j] > 0.0 ? program.lower[j] : program.upper[j];
        const double ratio = std::fabs(reduced[j]) / magnitude[j];
        result.dual = std::max(result.dual, rounding[j] / magnitude[j]);
        pair(ratio, std::fabs(side) >= kInfinity ? kInfinity : reduced[j] * (x[j] - side));
        const double outside = std::max(program.lower[j] - x[j], x[j] - program.upper[j]);
        if (outside > 0.0) result.primal = std::max(result.primal, outside);
    }
    const std::vector<double> norms = program.row_norms();
    for (int i = 0; i < program.rows; ++i) {
        const double violation = check.relative_violation(program, i);
        result.primal = std::max(result.primal, violation);
        if (point.y[i] == 0.0) continue;
        const double side = point.y[i] > 0.0 ? program.row_lower[i] : program.row_upper[i];
        double product = point.y[i] * (check.activity[i] - side);
        if (shifted_sides && violation > 0.0) product = std::max(product, 0.0);
        pair(std::fabs(point.y[i]) * norms[i] / steepest, product);
    }
    result.complementarity = gap;
    return result;
}

}  // namespace nlra
