#include "search/square_sum.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>

namespace nlra {
namespace {

constexpr int kMaxDense = 300;
// Of a matrix with a unit diagonal: below it a pivot is zero, and negative below the other sign.
constexpr double kZeroPivot = 1e-11;
constexpr double kNegativePivot = -1e-8;

// A symmetric matrix over some columns, scaled to a unit diagonal.
class DenseForm {
  public:
    DenseForm(std::vector<int> columns, const std::vector<QuadTerm>& terms);

    int size() const { return static_cast<int>(columns_.size()); }
    // Diagonal entries become 1 - share[i]. Squares of the form that is left, by Cholesky with
    // diagonal pivoting. False when it is not convex.
    bool factor(const std::vector<double>& share, std::vector<Square>* squares) const;
    Square own_square(int i, double share) const {
        return {share * scale_[i] * scale_[i], {{columns_[i], 1.0}}};
    }
    std::vector<double> single_shares() const;
    const std::vector<int>& columns() const { return columns_; }

  private:
    std::vector<int> columns_;
    std::vector<double> scale_, matrix_;
};

DenseForm::DenseForm(std::vector<int> columns, const std::vector<QuadTerm>& terms)
    : columns_(std::move(columns)) {
    const size_t n = columns_.size();
    scale_.assign(n, 0.0);
    matrix_.assign(n * n, 0.0);
    const auto local = [&](int column) {
        return static_cast<size_t>(std::lower_bound(columns_.begin(), columns_.end(), column) -
                                   columns_.begin());
    };
    for (const QuadTerm& term : terms) {
        const size_t i = local(term.col1), j = local(term.col2);
        matrix_[i * n + j] += 0.5 * term.value;
        matrix_[j * n + i] += 0.5 * term.value;
    }
    for (size_t i = 0; i < n; ++i) scale_[i] = std::sqrt(std::max(0.0, matrix_[i * n + i]));
    for (size_t i = 0; i < n; ++i) {
        for (size_t j = 0; j < n; ++j) {
            const double scale = scale_[i] * scale_[j];
            matrix_[i * n + j] = scale > 0.0 ? matrix_[i * n + j] / scale : 0.0;
        }
    }
}

bool DenseForm::factor(const std::vector<double>& share, std::vector<Square>* squares) const {
    const size_t n = columns_.size();
    std::vector<double> a = matrix_;
    for (size_t i = 0; i < n; ++i) a[i * n + i] -= share[i];
    std::vector<char> done(n, 0);
    for (size_t step = 0; step < n; ++step) {
        size_t pivot = n;
        for (size_t i = 0; i < n; ++i) {
            if (done[i]) continue;
            if (a[i * n + i] < kNegativePivot) return false;
            if (pivot == n || a[i * n + i] > a[pivot * n + pivot]) pivot = i;
        }
        const double d = a[pivot * n + pivot];
        if (d <= kZeroPivot) {
            // What is left of a convex form is zero with its diagonal.
            for (size_t i = 0; i < n; ++i) {
                for (size_t j = 0; j < n; ++j) {
                    if (!done[i] && !done[j] && std::fabs(a[i * n + j]) > -kNegativePivot) {
                        return false;
                    }
                }
            }
            return true;
        }
        done[pivot] = 1;
        Square square{d, {{columns_[pivot], scale_[pivot]}}};
        for (size_t i = 0; i < n; ++i) {
            const double factor = a[i * n + pivot] / d;
            if (done[i] || factor == 0.0) continue;
            square.form.push_back({columns_[i], factor * scale_[i]});
            for (size_t j = 0; j < n; ++j) {
                if (!done[j]) a[i * n + j] -= factor * a[pivot * n + j];
            }
        }
        if (squares == nullptr) continue;
        double largest = 0.0;
        for (const LinearTerm& term : square.form) {
            largest = std::max(largest, std::fabs(term.value));
        }
        for (LinearTerm& term : square.form) term.value /= largest;
        square.weight *= largest * largest;
        squares->push_back(std::move(square));
    }
    return true;
}

// What each column's own square may have at most if it is the only one: 1 over the diagonal entry
// of the inverse. Nearly singular matrices are moved away from that.
std::vector<double> DenseForm::single_shares() const {
    constexpr double kRegular = 1e-6;
    const size_t n = columns_.size();
    std::vector<double> a = matrix_;
    for (size_t i = 0; i < n; ++i) a[i * n + i] += kRegular;
    // Gauss and Jordan's inversion in place; positive definite matrices need no pivoting.
    for (size_t k = 0; k < n; ++k) {
        const double inverse = 1.0 / a[k * n + k];
        a[k * n + k] = 1.0;
        for (size_t j = 0; j < n; ++j) a[k * n + j] *= inverse;
        for (size_t i = 0; i < n; ++i) {
            const double factor = a[i * n + k];
            if (i == k || factor == 0.0) continue;
            a[i * n + k] = 0.0;
            for (size_t j = 0; j < n; ++j) a[i * n + j] -= factor * a[k * n + j];
        }
    }
    std::vector<double> shares(n);
    for (size_t i = 0; i < n; ++i) shares[i] = std::clamp(1.0 / a[i * n + i] - kRegular, 0.0, 1.0);
    return shares;
}

// Shares of the columns' own squares that leave a convex form: those of single columns times as
// much as possible, by bisection, and a step back from rounding.
std::vector<double> own_shares(const DenseForm& form, const std::vector<char>& own) {
    const std::vector<double> single = form.single_shares();
    std::vector<double> share(own.size(), 0.0);
    const auto set = [&](double factor) {
        for (size_t i = 0; i < own.size(); ++i) share[i] = own[i] != 0 ? factor * single[i] : 0.0;
    };
    double low = 0.0, high = 1.0;
    for (int step = 0; step < 12; ++step) {
        const double middle = 0.5 * (low + high);
        set(middle);
        (form.factor(share, nullptr) ? low : high) = middle;
    }
    set(0.999 * low);
    return share;
}

void add_component(std::vector<int> columns, const std::vector<QuadTerm>& terms,
                   const std::function<bool(int)>& wants_own, SquareSum& sum) {
    if (columns.size() > kMaxDense) {
        sum.rest.insert(sum.rest.end(), terms.begin(), terms.end());
        return;
    }
    const DenseForm form(std::move(columns), terms);
    std::vector<char> own;
    for (const int column : form.columns()) own.push_back(wants_own(column));
    std::vector<double> share(own.size(), 0.0);
    if (form.size() > 1 && std::count(own.begin(), own.end(), 1) > 0) share = own_shares(form, own);
    std::vector<Square> squares;
    if (!form.factor(share, &squares)) {
        sum.rest.insert(sum.rest.end(), terms.begin(), terms.end());
        return;
    }
    for (int i = 0; i < form.size(); ++i) {
        if (share[i] > 0.0) squares.push_back(form.own_square(i, share[i]));
    }
    sum.squares.insert(sum.squares.end(), squares.begin(), squares.end());
}

}  // namespace

SquareSum sum_of_squares(const std::vector<QuadTerm>& terms,
                         const std::function<bool(int)>& wants_own) {
    std::vector<int> columns;
    for (const QuadTerm& term : terms) columns.insert(columns.end(), {term.col1, term.col2});
    std::sort(columns.begin(), columns.end());
    columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
    const auto local = [&](int column) {
        return std::lower_bound(columns.begin(), columns.end(), column) - columns.begin();
    };
    // Columns that products connect have one leader.
    std::vector<int64_t> leader(columns.size());
    std::iota(leader.begin(), leader.end(), 0);
    const auto find = [&](int64_t i) {
        while (leader[i] != i) i = leader[i] = leader[leader[i]];
        return i;
    };
    for (const QuadTerm& term : terms) leader[find(local(term.col1))] = find(local(term.col2));

    struct Component {
        std::vector<int> columns;
        std::vector<QuadTerm> terms;
    };
    std::map<int64_t, Component> components;
    for (size_t i = 0; i < columns.size(); ++i) {
        components[find(static_cast<int64_t>(i))].columns.push_back(columns[i]);
    }
    for (const QuadTerm& term : terms) components[find(local(term.col1))].terms.push_back(term);
    SquareSum sum;
    for (auto& [first, component] : components) {
        add_component(std::move(component.columns), component.terms, wants_own, sum);
    }
    return sum;
}

}  // namespace nlra
