#include "nonlinear/qp_functions.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace nlra {

namespace {

// Added to the Hessian's diagonal, relative to its largest entry. Where the Hessian is singular,
// the factorization of a matrix that is so only up to rounding would send a step far along its null
// space. Gradients are exact, so that the optimum stays what it is.
constexpr double kRegularization = 1e-10;

double second_derivative(const QuadTerm& term) {
    return term.col1 == term.col2 ? 2.0 * term.value : term.value;
}

}  // namespace

ProgramFunctions::ProgramFunctions(const QuadraticProgram& program) : program_(program) {
    structure_.columns = program.columns;
    structure_.rows = program.rows;
    structure_.linear_rows = program.forms.empty();
    structure_.constant_hessian = program.forms.empty();
    plan_jacobian();
    plan_hessian();
}

void ProgramFunctions::plan_jacobian() {
    auto& row = structure_.jacobian_row;
    auto& col = structure_.jacobian_col;
    for (int i = 0; i < program_.rows; ++i) {
        row.insert(row.end(), static_cast<size_t>(program_.start[i + 1] - program_.start[i]), i);
    }
    col.assign(program_.index.begin(), program_.index.end());

    std::vector<int64_t> entry(program_.forms.empty() ? 0 : program_.columns, -1);
    for (const QuadraticProgram::Form& form : program_.forms) {
        for (int64_t k = program_.start[form.row]; k < program_.start[form.row + 1]; ++k) {
            entry[program_.index[k]] = k;
        }
        const auto entry_of = [&](int column) {
            if (entry[column] < 0) {
                entry[column] = static_cast<int64_t>(col.size());
                row.push_back(form.row);
                col.push_back(column);
            }
            return entry[column];
        };
        for (int64_t k = form.begin; k < form.end; ++k) {
            jacobian_first_.push_back(entry_of(program_.form_terms[k].col1));
            jacobian_second_.push_back(entry_of(program_.form_terms[k].col2));
        }
        for (int64_t k = program_.start[form.row]; k < program_.start[form.row + 1]; ++k) {
            entry[program_.index[k]] = -1;
        }
        for (int64_t k = form.begin; k < form.end; ++k) {
            entry[program_.form_terms[k].col1] = entry[program_.form_terms[k].col2] = -1;
        }
    }
}

// Terms of the objective and of several rows that share a pair of columns share an entry.
void ProgramFunctions::plan_hessian() {
    struct Pair {
        int col1, col2;
        int64_t* entry;
    };
    hessian_objective_.resize(program_.objective_terms.size());
    hessian_form_.resize(program_.form_terms.size());
    std::vector<Pair> pairs;
    pairs.reserve(hessian_objective_.size() + hessian_form_.size());
    const auto collect = [&](const std::vector<QuadTerm>& terms, std::vector<int64_t>& entries) {
        for (size_t k = 0; k < terms.size(); ++k) {
            const auto [low, high] = std::minmax(terms[k].col1, terms[k].col2);
            pairs.push_back({low, high, &entries[k]});
        }
    };
    collect(program_.objective_terms, hessian_objective_);
    collect(program_.form_terms, hessian_form_);
    const auto before = [](const Pair& a, const Pair& b) {
        return a.col1 != b.col1 ? a.col1 < b.col1 : a.col2 < b.col2;
    };
    if (!std::is_sorted(pairs.begin(), pairs.end(), before)) {
        std::sort(pairs.begin(), pairs.end(), before);
    }
    auto& row = structure_.hessian_row;
    auto& col = structure_.hessian_col;
    for (const Pair& pair : pairs) {
        if (row.empty() || row.back() != pair.col1 || col.back() != pair.col2) {
            row.push_back(pair.col1);
            col.push_back(pair.col2);
        }
        *pair.entry = static_cast<int64_t>(row.size()) - 1;
    }
    double largest = 1.0;
    for (const QuadTerm& term : program_.objective_terms) {
        largest = std::max(largest, std::fabs(term.value));
    }
    regularization_ = kRegularization * largest;
    for (int j = 0; j < program_.columns; ++j) {
        row.push_back(j);
        col.push_back(j);
    }
}

bool ProgramFunctions::objective(const double* x, double& value) {
    value = program_.objective(x);
    return std::isfinite(value);
}

bool ProgramFunctions::gradient(const double* x, double* values) {
    program_.gradient(x, scratch_);
    std::copy(scratch_.begin(), scratch_.end(), values);
    return true;
}

bool ProgramFunctions::rows(const double* x, double* values) {
    program_.activity(x, scratch_);
    std::copy(scratch_.begin(), scratch_.end(), values);
    return true;
}

bool ProgramFunctions::jacobian(const double* x, double* values) {
    std::copy(program_.value.begin(), program_.value.end(), values);
    std::fill(values + program_.value.size(), values + structure_.jacobian_row.size(), 0.0);
    for (size_t k = 0; k < program_.form_terms.size(); ++k) {
        const QuadTerm& term = program_.form_terms[k];
        values[jacobian_first_[k]] += term.value * x[term.col2];
        values[jacobian_second_[k]] += term.value * x[term.col1];
    }
    return true;
}

bool ProgramFunctions::hessian(const double*, double objective_factor, const double* multipliers,
                               double* values) {
    const size_t entries = structure_.hessian_row.size() - static_cast<size_t>(program_.columns);
    std::fill_n(values, entries, 0.0);
    std::fill_n(values + entries, program_.columns, objective_factor * regularization_);
    for (size_t k = 0; k < hessian_objective_.size(); ++k) {
        values[hessian_objective_[k]] +=
            objective_factor * second_derivative(program_.objective_terms[k]);
    }
    for (const QuadraticProgram::Form& form : program_.forms) {
        const double weight = multipliers[form.row];
        if (weight == 0.0) continue;
        for (int64_t k = form.begin; k < form.end; ++k) {
            values[hessian_form_[k]] += weight * second_derivative(program_.form_terms[k]);
        }
    }
    return true;
}

}  // namespace nlra
