#include "nonlinear/dense_newton.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace nlra {

namespace {

using Real = DenseNewton::Real;

constexpr Real kDependent = 1e-12;  // of rows scaled to largest entries of one
// Of a Hessian with a unit diagonal. Its entries are rounded sums: a curvature below cannot be told
// from zero.
constexpr Real kFlat = 2e-15;
// The least curvature that a direction which looks flat is presumed to have: what its gradient
// could gain by it is what cannot be excluded.
constexpr Real kPresumed = 1e-18;
constexpr int kSamples = 4;

}  // namespace

DenseNewton::DenseNewton(int columns, int rows)
    : gradient(columns, 0.0),
      side(rows, 0.0),
      noise(columns, 0.0),
      n_(columns),
      m_(rows),
      hessian_(static_cast<size_t>(columns) * columns, 0.0),
      jacobian_(static_cast<size_t>(columns) * rows, 0.0) {}

void DenseNewton::scale() {
    scale_.assign(n_, 1.0);
    curved_.assign(n_, 0);
    for (int j = 0; j < n_; ++j) {
        curved_[j] = hessian(j, j) > 0.0;
        if (curved_[j]) scale_[j] = 1.0L / std::sqrt(hessian(j, j));
    }
    for (int i = 0; i < n_; ++i) {
        for (int j = 0; j < n_; ++j) hessian(i, j) *= scale_[i] * scale_[j];
    }
    row_side_ = side;
    row_transform_.assign(static_cast<size_t>(m_) * m_, 0.0);
    for (int i = 0; i < m_; ++i) {
        Real largest = 0.0;
        for (int j = 0; j < n_; ++j) {
            jacobian(i, j) *= scale_[j];
            largest = std::max(largest, std::fabs(jacobian(i, j)));
        }
        const Real factor = largest > 0.0 ? 1.0L / largest : 1.0L;
        for (int j = 0; j < n_; ++j) jacobian(i, j) *= factor;
        row_side_[i] *= factor;
        row_transform_[static_cast<size_t>(i) * m_ + i] = factor;
    }
}

// Gauss and Jordan with complete pivoting: basic columns become those of an identity.
void DenseNewton::eliminate_rows() {
    std::vector<char> row_done(m_, 0), basic(n_, 0);
    const auto transform = [&](int i) {
        return row_transform_.data() + static_cast<size_t>(i) * m_;
    };
    for (int step_count = 0; step_count < std::min(m_, n_); ++step_count) {
        int row = -1, col = -1;
        Real largest = kDependent;
        for (int i = 0; i < m_; ++i) {
            if (row_done[i]) continue;
            for (int j = 0; j < n_; ++j) {
                if (std::fabs(jacobian(i, j)) <= largest) continue;
                largest = std::fabs(jacobian(i, j));
                row = i;
                col = j;
            }
        }
        if (row < 0) break;
        row_done[row] = basic[col] = 1;
        basic_.push_back(col);
        basic_row_.push_back(row);
        const Real inverse = 1.0L / jacobian(row, col);
        for (int j = 0; j < n_; ++j) jacobian(row, j) *= inverse;
        for (int k = 0; k < m_; ++k) transform(row)[k] *= inverse;
        row_side_[row] *= inverse;
        for (int i = 0; i < m_; ++i) {
            const Real factor = jacobian(i, col);
            if (i == row || factor == 0.0) continue;
            for (int j = 0; j < n_; ++j) jacobian(i, j) -= factor * jacobian(row, j);
            for (int k = 0; k < m_; ++k) transform(i)[k] -= factor * transform(row)[k];
            row_side_[i] -= factor * row_side_[row];
            jacobian(i, col) = 0.0;
        }
    }
    for (int j = 0; j < n_; ++j) {
        if (!basic[j]) other_.push_back(j);
    }
}

// Z'HZ for p_basic = side - W p_other, column by column.
void DenseNewton::reduce_hessian() {
    const size_t free = other_.size();
    matrix_.assign(free * free, 0.0);
    magnitude_.assign(free, 0.0);
    std::vector<Real> product(n_);
    for (size_t b = 0; b < free; ++b) {
        const int col = other_[b];
        Real size = curved_[col] ? 1.0 : 0.0;
        for (int i = 0; i < n_; ++i) product[i] = hessian(i, col);
        for (size_t t = 0; t < basic_.size(); ++t) {
            const Real w = jacobian(basic_row_[t], col);
            if (w == 0.0) continue;
            if (curved_[basic_[t]]) size += std::fabs(w);
            for (int i = 0; i < n_; ++i) product[i] -= w * hessian(i, basic_[t]);
        }
        magnitude_[b] = size * size;
        for (size_t a = b; a < free; ++a) matrix_[a * free + b] = product[other_[a]];
        for (size_t t = 0; t < basic_.size(); ++t) {
            const Real value = product[basic_[t]];
            if (value == 0.0) continue;
            const int row = basic_row_[t];
            for (size_t a = b; a < free; ++a) {
                matrix_[a * free + b] -= jacobian(row, other_[a]) * value;
            }
        }
    }
}

// LDL' with diagonal pivoting, on the lower half: the column of pivot k holds L below D.
void DenseNewton::factor() {
    const int free = static_cast<int>(other_.size());
    const auto at = [&](int i, int j) -> Real& {
        return matrix_[static_cast<size_t>(std::max(i, j)) * free + std::min(i, j)];
    };
    order_.resize(free);
    std::iota(order_.begin(), order_.end(), 0);
    std::vector<Real> column(free);
    for (rank_ = 0; rank_ < free; ++rank_) {
        int best = -1;
        Real largest = kFlat;
        for (int k = rank_; k < free; ++k) {
            const int j = order_[k];
            if (magnitude_[j] == 0.0 || at(j, j) <= largest * magnitude_[j]) continue;
            largest = at(j, j) / magnitude_[j];
            best = k;
        }
        if (best < 0) break;
        std::swap(order_[rank_], order_[best]);
        const int pivot = order_[rank_];
        const Real d = at(pivot, pivot);
        for (int k = rank_ + 1; k < free; ++k) column[k] = at(order_[k], pivot);
        for (int k = rank_ + 1; k < free; ++k) {
            const Real l = column[k] / d;
            if (l == 0.0) continue;
            at(order_[k], pivot) = l;
            for (int t = rank_ + 1; t <= k; ++t) at(order_[k], order_[t]) -= l * column[t];
        }
    }
}

std::vector<Real> DenseNewton::reduced(const std::vector<Real>& full) const {
    std::vector<Real> out(other_.size());
    for (size_t a = 0; a < other_.size(); ++a) out[a] = full[other_[a]];
    for (size_t t = 0; t < basic_.size(); ++t) {
        const Real* row = jacobian_.data() + static_cast<size_t>(basic_row_[t]) * n_;
        for (size_t a = 0; a < other_.size(); ++a) out[a] -= row[other_[a]] * full[basic_[t]];
    }
    return out;
}

void DenseNewton::forward(std::vector<Real>& v) const {
    const int free = static_cast<int>(other_.size());
    for (int k = 0; k < rank_; ++k) {
        const int pivot = order_[k];
        for (int t = k + 1; t < free; ++t) {
            const int i = order_[t];
            v[i] -= matrix_[static_cast<size_t>(std::max(i, pivot)) * free + std::min(i, pivot)] *
                    v[pivot];
        }
    }
}

void DenseNewton::backward(std::vector<Real>& v) const {
    const int free = static_cast<int>(other_.size());
    for (int k = rank_; k-- > 0;) {
        const int pivot = order_[k];
        for (int t = k + 1; t < free; ++t) {
            const int i = order_[t];
            v[pivot] -=
                matrix_[static_cast<size_t>(std::max(i, pivot)) * free + std::min(i, pivot)] * v[i];
        }
    }
}

void DenseNewton::expand(const std::vector<Real>& reduced_step, bool with_side,
                         std::vector<Real>& out) const {
    out.assign(n_, 0.0);
    for (size_t a = 0; a < other_.size(); ++a) out[other_[a]] = reduced_step[a];
    for (size_t t = 0; t < basic_.size(); ++t) {
        const Real* row = jacobian_.data() + static_cast<size_t>(basic_row_[t]) * n_;
        Real value = with_side ? row_side_[basic_row_[t]] : 0.0L;
        for (size_t a = 0; a < other_.size(); ++a) value -= row[other_[a]] * reduced_step[a];
        out[basic_[t]] = value;
    }
}

// Some vectors of noise with signs at random tell what its gain is and how much of it the flat
// directions get.
void DenseNewton::judge_noise() {
    const size_t free = other_.size();
    noise_left_.assign(free, 0.0);
    noise_gain = 0.0;
    unsigned state = 12345;
    std::vector<Real> sample(n_);
    for (int s = 0; s < kSamples; ++s) {
        for (int j = 0; j < n_; ++j) {
            state = state * 1664525u + 1013904223u;
            sample[j] = (state >> 31) != 0 ? noise[j] * scale_[j] : -noise[j] * scale_[j];
        }
        std::vector<Real> v = reduced(sample);
        forward(v);
        Real sum = 0.0;
        for (int k = 0; k < rank_; ++k) {
            const int pivot = order_[k];
            sum += v[pivot] * v[pivot] / matrix_[static_cast<size_t>(pivot) * free + pivot];
        }
        noise_gain = std::max(noise_gain, static_cast<double>(0.5L * sum));
        for (size_t k = rank_; k < free; ++k) {
            Real& left = noise_left_[order_[k]];
            left = std::max(left, std::fabs(v[order_[k]]));
        }
    }
    for (size_t a = 0; a < free; ++a) noise_left_[a] += noise[other_[a]] * scale_[other_[a]];
}

void DenseNewton::find_ray(const std::vector<Real>& explained) {
    const size_t free = other_.size();
    Real worst = 1.0;
    int chosen = -1;
    Real possible = 0.0;
    for (size_t k = rank_; k < free; ++k) {
        const int j = order_[k];
        const Real left = std::fabs(explained[j]);
        if (magnitude_[j] > 0.0) possible += 0.5L * left * left / (kPresumed * magnitude_[j]);
        if (left <= worst * noise_left_[j]) continue;
        chosen = j;
        worst = noise_left_[j] > 0.0 ? left / noise_left_[j] : left * 1e300L;
    }
    flat_gain = static_cast<double>(possible);
    if (chosen < 0) return;
    // The column itself and the pivots that follow it.
    std::vector<Real> direction(free, 0.0);
    direction[chosen] = explained[chosen] > 0.0 ? -1.0 : 1.0;
    backward(direction);
    expand(direction, false, ray);
    ray_is_linear = magnitude_[chosen] == 0.0;
    for (int j = 0; j < n_; ++j) {
        if (ray[j] != 0.0 && curved_[j]) ray_is_linear = false;
        ray[j] *= scale_[j];
    }
}

void DenseNewton::solve() {
    scale();
    eliminate_rows();
    reduce_hessian();
    factor();

    // Gradient at the particular step that the equations ask for.
    std::vector<Real> particular, at_particular(n_);
    expand(std::vector<Real>(other_.size(), 0.0), true, particular);
    const auto slope = [&](const std::vector<Real>& p, std::vector<Real>& out) {
        for (int i = 0; i < n_; ++i) {
            Real sum = gradient[i] * scale_[i];
            for (int j = 0; j < n_; ++j) sum += hessian(i, j) * p[j];
            out[i] = sum;
        }
    };
    slope(particular, at_particular);
    std::vector<Real> v = reduced(at_particular);
    forward(v);
    judge_noise();
    find_ray(v);
    const size_t free = other_.size();
    Real sum = 0.0;
    for (int k = 0; k < rank_; ++k) {
        const int pivot = order_[k];
        const Real d = matrix_[static_cast<size_t>(pivot) * free + pivot];
        sum += v[pivot] * v[pivot] / d;
        v[pivot] = -v[pivot] / d;
    }
    gain = static_cast<double>(0.5L * sum);
    for (size_t k = rank_; k < free; ++k) v[order_[k]] = 0.0;
    backward(v);
    expand(v, true, step);
    std::vector<Real> left(n_);
    slope(step, left);
    duals.assign(m_, 0.0);
    for (size_t t = 0; t < basic_.size(); ++t) {
        const Real* row = row_transform_.data() + static_cast<size_t>(basic_row_[t]) * m_;
        for (int i = 0; i < m_; ++i) duals[i] += row[i] * left[basic_[t]];
    }
    for (int j = 0; j < n_; ++j) step[j] *= scale_[j];
}

}  // namespace nlra
