#include "nonlinear/cone_forms.hpp"

#include <algorithm>
#include <cmath>

#include "analysis/convexity.hpp"
#include "nonlinear/merge_equal.hpp"

namespace nlra {

namespace {

// Relative to the largest eigenvalue of a matrix whose rows have been scaled.
constexpr double kZero = 1e-9;
constexpr size_t kMaxSize = 100;

// Eigenvalues and vectors of a symmetric matrix, by Jacobi's rotations. Vectors are the columns.
void diagonalize(size_t n, std::vector<double>& a, std::vector<double>& vectors) {
    vectors.assign(n * n, 0.0);
    for (size_t i = 0; i < n; ++i) vectors[i * n + i] = 1.0;
    constexpr int kMaxSweeps = 60;
    for (int sweep = 0; sweep < kMaxSweeps; ++sweep) {
        double outside = 0.0, size = 0.0;
        for (size_t i = 0; i < n; ++i) {
            for (size_t j = 0; j < n; ++j) {
                (i == j ? size : outside) += a[i * n + j] * a[i * n + j];
            }
        }
        if (outside <= 1e-30 * size) return;
        for (size_t p = 0; p + 1 < n; ++p) {
            for (size_t q = p + 1; q < n; ++q) {
                const double apq = a[p * n + q];
                if (apq == 0.0) continue;
                const double theta = (a[q * n + q] - a[p * n + p]) / (2.0 * apq);
                const double t =
                    (theta < 0.0 ? -1.0 : 1.0) / (std::fabs(theta) + std::hypot(theta, 1.0));
                const double c = 1.0 / std::hypot(t, 1.0), s = t * c;
                const auto rotate = [&](double& x, double& y) {
                    const double before = x;
                    x = c * before - s * y;
                    y = s * before + c * y;
                };
                for (size_t k = 0; k < n; ++k) rotate(a[k * n + p], a[k * n + q]);
                for (size_t k = 0; k < n; ++k) rotate(a[p * n + k], a[q * n + k]);
                for (size_t k = 0; k < n; ++k) rotate(vectors[k * n + p], vectors[k * n + q]);
            }
        }
    }
}

class ConeForms {
  public:
    ConeForms(const std::vector<QuadTerm>& q, const std::function<Interval(int)>& range,
              const std::vector<AffineForm>& positive, const StopPoll& poll)
        : q_(q), range_(range), positive_(positive), poll_(poll) {
        for (const QuadTerm& term : q) {
            columns_.push_back(term.col1);
            columns_.push_back(term.col2);
        }
        columns_.push_back(kOneColumn);
        std::sort(columns_.begin(), columns_.end());
        columns_.erase(std::unique(columns_.begin(), columns_.end()), columns_.end());
    }

    AffineForm find();

  private:
    size_t local(int column) const {
        return static_cast<size_t>(std::lower_bound(columns_.begin(), columns_.end(), column) -
                                   columns_.begin());
    }
    bool decompose();
    AffineForm form_of(const std::vector<double>& values) const;
    AffineForm from_bounds() const;
    double along_negative(const AffineForm& form, double& by_inverse) const;
    Interval range_of(const AffineForm& form) const;
    bool is_certificate(const AffineForm& form) const;

    const std::vector<QuadTerm>& q_;
    const std::function<Interval(int)>& range_;
    const std::vector<AffineForm>& positive_;
    const StopPoll& poll_;
    std::vector<int> columns_;
    // Scale * matrix of q * scale, its eigenvalues and vectors; the only negative one.
    std::vector<double> scale_, matrix_, values_, vectors_;
    size_t negative_ = 0;
    double largest_ = 0.0;
};

// Whether one eigenvalue is negative and no more.
bool ConeForms::decompose() {
    const size_t n = columns_.size();
    matrix_.assign(n * n, 0.0);
    for (const QuadTerm& term : q_) {
        matrix_[local(term.col1) * n + local(term.col2)] += 0.5 * term.value;
        matrix_[local(term.col2) * n + local(term.col1)] += 0.5 * term.value;
    }
    scale_.assign(n, 1.0);
    for (int round = 0; round < 3; ++round) {
        std::vector<double> factor(n, 1.0);
        for (size_t i = 0; i < n; ++i) {
            double largest = 0.0;
            for (size_t j = 0; j < n; ++j) {
                largest = std::max(largest, std::fabs(matrix_[i * n + j]));
            }
            if (largest > 0.0) factor[i] = 1.0 / std::sqrt(largest);
        }
        for (size_t i = 0; i < n; ++i) {
            scale_[i] *= factor[i];
            for (size_t j = 0; j < n; ++j) matrix_[i * n + j] *= factor[i] * factor[j];
        }
    }
    std::vector<double> diagonal = matrix_;
    diagonalize(n, diagonal, vectors_);
    values_.resize(n);
    for (size_t i = 0; i < n; ++i) {
        values_[i] = diagonal[i * n + i];
        largest_ = std::max(largest_, std::fabs(values_[i]));
    }
    int count = 0;
    for (size_t i = 0; i < n; ++i) {
        if (values_[i] >= -kZero * largest_) continue;
        ++count;
        negative_ = i;
    }
    return count == 1;
}

// From values in the scaled columns, with what is rounding noise left out.
AffineForm ConeForms::form_of(const std::vector<double>& values) const {
    double largest = 0.0;
    for (const double value : values) largest = std::max(largest, std::fabs(value));
    AffineForm form;
    for (size_t i = 0; i < values.size(); ++i) {
        if (std::fabs(values[i]) <= kZero * largest) continue;
        form.push_back({columns_[i], values[i] / scale_[i]});
    }
    return form;
}

// The form's share of the negative direction, and form' * inverse * form; NaN where the form is
// not one of the matrix's range. Forms for which the latter is not positive do not change their
// sign within one half of the double cone q <= 0.
double ConeForms::along_negative(const AffineForm& form, double& by_inverse) const {
    const size_t n = columns_.size();
    std::vector<double> scaled(n, 0.0);
    double size = 0.0;
    for (const LinearTerm& term : form) {
        scaled[local(term.col)] = term.value * scale_[local(term.col)];
    }
    for (const double value : scaled) size = std::max(size, std::fabs(value));
    by_inverse = 0.0;
    double share = 0.0;
    for (size_t k = 0; k < n; ++k) {
        double product = 0.0;
        for (size_t i = 0; i < n; ++i) product += vectors_[i * n + k] * scaled[i] / size;
        if (std::fabs(values_[k]) > kZero * largest_) {
            by_inverse += product * product / values_[k];
        } else if (std::fabs(product) > kZero) {
            by_inverse = kNotDefined;
        }
        if (k == negative_) share = product;
    }
    return share;
}

// A sum of forms that are not negative and do not change their sign within a half of the cone.
AffineForm ConeForms::from_bounds() const {
    std::vector<AffineForm> forms = positive_;
    for (const int col : columns_) {
        if (col == kOneColumn) continue;
        const Interval range = range_(col);
        if (std::isfinite(range.low)) forms.push_back({{col, 1.0}, {kOneColumn, -range.low}});
        if (std::isfinite(range.high)) forms.push_back({{col, -1.0}, {kOneColumn, range.high}});
    }
    // Those that are not negative without their constant either.
    for (size_t k = 0, count = forms.size(); k < count; ++k) {
        if (!(forms[k].back().value < 0.0)) continue;
        forms.push_back(forms[k]);
        forms.back().pop_back();
    }
    for (const double side : {1.0, -1.0}) {
        AffineForm sum;
        for (const AffineForm& form : forms) {
            double by_inverse = 0.0;
            const double share = along_negative(form, by_inverse);
            if (!(by_inverse <= kZero) || side * share <= 0.0) continue;
            double size = 0.0;
            for (const LinearTerm& term : form) {
                size = std::max(size, std::fabs(term.value) * scale_[local(term.col)]);
            }
            for (const LinearTerm& term : form) sum.push_back({term.col, term.value / size});
        }
        if (sum.empty()) continue;
        merge_equal(sum, column_before);
        double by_inverse = 0.0, size = 0.0;
        along_negative(sum, by_inverse);
        if (!(by_inverse < -kZero)) continue;
        for (const LinearTerm& term : sum) {
            size = std::max(size, std::fabs(term.value) * scale_[local(term.col)]);
        }
        const double factor = 1.0 / (size * std::sqrt(-by_inverse));
        for (LinearTerm& term : sum) term.value *= factor;
        if (is_certificate(sum)) return sum;
    }
    return {};
}

Interval ConeForms::range_of(const AffineForm& form) const {
    Interval sum{0.0, 0.0};
    for (const LinearTerm& term : form) {
        const Interval range = term.col == kOneColumn ? Interval{1.0, 1.0} : range_(term.col);
        sum.low += term.value * (term.value > 0.0 ? range.low : range.high);
        sum.high += term.value * (term.value > 0.0 ? range.high : range.low);
    }
    return sum;
}

bool ConeForms::is_certificate(const AffineForm& form) const {
    std::vector<QuadTerm> terms = q_;
    add_square(terms, 1.0, form);
    return is_convex_form(terms, 1.0, poll_);
}

AffineForm ConeForms::find() {
    const size_t n = columns_.size();
    if (n > kMaxSize || !decompose()) return {};
    std::vector<AffineForm> candidates;
    std::vector<double> values(n);
    // The square that is left when a column with a negative square is eliminated.
    for (size_t j = 0; j < n; ++j) {
        const double d = matrix_[j * n + j];
        if (columns_[j] == kOneColumn || d >= -kZero * largest_) continue;
        for (size_t i = 0; i < n; ++i) values[i] = matrix_[i * n + j] / std::sqrt(-d);
        candidates.push_back(form_of(values));
    }
    for (size_t i = 0; i < n; ++i) {
        values[i] = vectors_[i * n + negative_] * std::sqrt(-values_[negative_]);
    }
    candidates.push_back(form_of(values));
    constexpr double kRounding = 1e-12;
    for (AffineForm& form : candidates) {
        const Interval range = range_of(form);
        double size = 0.0;
        for (const LinearTerm& term : form) size = std::max(size, std::fabs(term.value));
        if (range.low < -kRounding * size && range.high > kRounding * size) continue;
        if (range.low < -kRounding * size) {
            for (LinearTerm& term : form) term.value = -term.value;
        }
        if (is_certificate(form)) return form;
    }
    return from_bounds();
}

}  // namespace

AffineForm find_cone_form(const std::vector<QuadTerm>& q,
                          const std::function<Interval(int)>& range_of_column,
                          const std::vector<AffineForm>& positive, const StopPoll& poll) {
    return ConeForms(q, range_of_column, positive, poll).find();
}

void add_square(std::vector<QuadTerm>& terms, double factor, const AffineForm& form) {
    for (size_t i = 0; i < form.size(); ++i) {
        for (size_t j = i; j < form.size(); ++j) {
            const double value = factor * form[i].value * form[j].value;
            terms.push_back({form[i].col, form[j].col, i == j ? value : 2.0 * value});
        }
    }
    merge_equal(terms, term_before);
}

}  // namespace nlra
