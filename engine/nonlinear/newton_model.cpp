#include "nonlinear/newton_model.hpp"

#include <algorithm>
#include <cmath>

namespace nlra {

namespace {

constexpr size_t kMaxTerms = 500'000;
// A chain of many rows, as of a differential equation in small steps, takes the second: each row of
// it is missed by little only where columns run far from what the chain as a whole allows.
constexpr double kPenalties[] = {1e4, 1e10};
// The form counts as convex when it is, scaled to a unit diagonal, with this added to it.
constexpr double kTolerance = 1e-9;
constexpr double kFloor = 1e-12;

bool is_near(double value, double side, double size) {
    return std::fabs(side) < kInfinity && std::fabs(value - side) <= kActive * size;
}

}  // namespace

// A column is held where the objective pushes it against a bound that it is at, or does not push.
void NewtonModel::find_held() {
    constexpr double kPush = 1e-9;
    const NlpBounds bounds = functions_.bounds();
    const size_t n = result_.x.size();
    place_.assign(n, -1);
    free_.clear();
    for (size_t j = 0; j < n; ++j) {
        const double x = result_.x[j], low = bounds.lower[j], high = bounds.upper[j];
        const double size = std::max(1.0, std::fabs(x));
        const double push = point_->gradient[j], least = -kPush * point_->terms[j];
        const bool is_held = low == high || (is_near(x, low, size) && push >= least) ||
                             (is_near(x, high, size) && -push >= least);
        if (is_held) continue;
        place_[j] = static_cast<int>(free_.size());
        free_.push_back(static_cast<int>(j));
    }
}

bool NewtonModel::find_active_rows(Curvature curvature) {
    const NlpBounds bounds = functions_.bounds();
    const NlpStructure& structure = functions_.structure();
    const size_t m = static_cast<size_t>(structure.rows);
    std::vector<double> size(m, 1.0);
    for (size_t k = 0; k < point_->jacobian.size(); ++k) {
        double& own = size[structure.jacobian_row[k]];
        own = std::max(own, std::fabs(point_->jacobian[k] * result_.x[structure.jacobian_col[k]]));
    }
    active_.clear();
    std::vector<int> index(m, -1);
    for (size_t i = 0; i < m; ++i) {
        const double value = point_->activity[i], y = result_.multipliers[i];
        const double low = bounds.row_lower[i], high = bounds.row_upper[i];
        const bool at_low = low > -kInfinity && (is_near(value, low, size[i]) || value < low);
        const bool at_high = high < kInfinity && (is_near(value, high, size[i]) || value > high);
        if (!at_low && !at_high) continue;
        // Within its sides, a row that nothing pushes against them holds nothing.
        const bool is_known = curvature == Curvature::kLagrangian;
        if (is_known && y == 0.0 && value > low && value < high) continue;
        const bool takes_high = at_high && (!at_low || y > 0.0 || value > high);
        index[i] = static_cast<int>(active_.size());
        active_.push_back({static_cast<int>(i), takes_high ? high : low, {}, 0.0});
    }
    for (size_t k = 0; k < point_->jacobian.size(); ++k) {
        const int at = index[structure.jacobian_row[k]];
        if (at < 0 || place_of(k) < 0 || point_->jacobian[k] == 0.0) continue;
        active_[at].entries.push_back(k);
    }
    size_t terms = hessian_.size();
    for (const ActiveRow& row : active_) terms += row.entries.size() * row.entries.size();
    return terms <= kMaxTerms;
}

bool NewtonModel::add_hessian(Curvature curvature) {
    const NlpStructure& structure = functions_.structure();
    entries_.clear();
    if (curvature == Curvature::kUnit) {
        hessian_.assign(structure.hessian_row.size(), 0.0);
        for (int j = 0; j < static_cast<int>(free_.size()); ++j) entries_.push_back({j, j, 1.0});
        return true;
    }
    hessian_.resize(structure.hessian_row.size());
    if (!functions_.hessian(point_->inside.data(), 1.0, result_.multipliers.data(),
                            hessian_.data())) {
        return false;
    }
    for (size_t k = 0; k < hessian_.size(); ++k) {
        const int a = place_[structure.hessian_row[k]], b = place_[structure.hessian_col[k]];
        if (a >= 0 && b >= 0 && hessian_[k] != 0.0) entries_.push_back({a, b, hessian_[k]});
    }
    return true;
}

// Columns to a curvature of one, rows to a norm of one.
void NewtonModel::scale() {
    const size_t n = free_.size();
    std::vector<double> diagonal(n, 0.0), largest(n, 0.0);
    for (const auto& [a, b, value] : entries_) {
        if (a == b) {
            diagonal[a] += value;
        } else {
            largest[a] = std::max(largest[a], std::fabs(value));
            largest[b] = std::max(largest[b], std::fabs(value));
        }
    }
    scale_.resize(n);
    for (size_t j = 0; j < n; ++j) {
        const double curvature = diagonal[j] != 0.0 ? std::fabs(diagonal[j]) : largest[j];
        scale_[j] = curvature > 1e-200 ? 1.0 / std::sqrt(curvature)
                                       : std::max(1.0, std::fabs(result_.x[free_[j]]));
    }
    largest_ = 1.0;
    for (auto& [a, b, value] : entries_) {
        value *= scale_[a] * scale_[b];
        largest_ = std::max(largest_, std::fabs(value));
    }

    coefficient_.assign(point_->jacobian.size(), 0.0);
    miss_.clear();
    for (ActiveRow& row : active_) {
        double sum = 0.0;
        for (const size_t k : row.entries) {
            coefficient_[k] = point_->jacobian[k] * scale_[place_of(k)];
            sum += coefficient_[k] * coefficient_[k];
        }
        row.norm = std::sqrt(sum);
        for (const size_t k : row.entries) coefficient_[k] /= row.norm;
        miss_.push_back(row.norm > 0.0 ? (point_->activity[row.row] - row.side) / row.norm : 0.0);
    }
    slopes_.resize(n);
    for (size_t j = 0; j < n; ++j) slopes_[j] = scale_[j] * point_->gradient[free_[j]];
}

void NewtonModel::add_penalties() {
    for (const ActiveRow& row : active_) {
        for (size_t i = 0; i < row.entries.size(); ++i) {
            for (size_t j = 0; j <= i; ++j) {
                const size_t k = row.entries[i], l = row.entries[j];
                const int a = place_of(k);
                const int b = place_of(l);
                const double value = penalty_ * coefficient_[k] * coefficient_[l];
                // Of two entries of the same column both products count.
                entries_.push_back({a, b, a == b && i != j ? 2.0 * value : value});
            }
        }
    }
}

void NewtonModel::factor(const StopPoll& poll) {
    const int n = static_cast<int>(free_.size());
    factor_ = SparseLdlt(poll);
    for (int j = 0; j < n; ++j) entries_.push_back({j, j, kTolerance});
    factor_.analyze(n, entries_);
    is_convex_ = factor_.is_positive_definite(entries_);
    if (!is_convex_) return;
    for (int j = 0; j < n; ++j) entries_[entries_.size() - 1 - j].value = kFloor;
    factor_.factor(entries_, std::vector<signed char>(n, 1), kFloor);
}

// The minimum of the model with these changes of the active rows' multipliers, in scaled columns;
// sides: with a penalty for what the rows miss.
std::vector<double> NewtonModel::minimum(const std::vector<double>& changes, bool sides) const {
    std::vector<double> p(slopes_.size());
    for (size_t j = 0; j < p.size(); ++j) p[j] = -slopes_[j];
    for (size_t i = 0; i < active_.size(); ++i) {
        const double pull = changes[i] + (sides ? penalty_ * miss_[i] : 0.0);
        for (const size_t k : active_[i].entries) p[place_of(k)] -= pull * coefficient_[k];
    }
    factor_.solve(p);
    return p;
}

void NewtonModel::measure_gain() {
    const NlpBounds bounds = functions_.bounds();
    const NlpStructure& structure = functions_.structure();
    slope_ = gain_ = size_ = 0.0;
    const std::vector<double> none(active_.size());
    const std::vector<double> p =
        is_convex_ ? minimum(none, false) : std::vector<double>(free_.size());
    double largest = 0.0;
    for (size_t j = 0; j < free_.size(); ++j) {
        largest = std::max(largest, scale_[j] * point_->terms[free_[j]]);
    }
    multiplier_error_ = 0.0;
    for (const ActiveRow& row : active_) {
        double change = 0.0;
        for (const size_t k : row.entries) change += coefficient_[k] * p[place_of(k)];
        multiplier_error_ = std::max(multiplier_error_, std::fabs(penalty_ * change) / largest);
    }
    for (size_t j = 0; j < free_.size(); ++j) {
        gain_ -= 0.5 * slopes_[j] * p[j];
        slope_ += std::fabs(point_->gradient[free_[j]] * result_.x[free_[j]]);
    }
    for (size_t j = 0; j < result_.x.size(); ++j) {
        if (place_[j] >= 0 || bounds.lower[j] == bounds.upper[j]) continue;
        const double push = point_->gradient[j];
        const double side = push > 0.0 ? bounds.lower[j] : bounds.upper[j];
        // A column at one bound may be pushed towards the other by rounding.
        const double way =
            std::min(std::fabs(result_.x[j] - side), std::max(1.0, std::fabs(result_.x[j])));
        gain_ += std::fabs(push) * way;
    }
    for (int i = 0; i < structure.rows; ++i) {
        const double y = result_.multipliers[i], value = point_->activity[i];
        if (y == 0.0) continue;
        const double side = y > 0.0 ? bounds.row_upper[i] : bounds.row_lower[i];
        gain_ += std::fabs(y) * std::min(std::fabs(value - side), std::max(1.0, std::fabs(value)));
    }
    for (size_t k = 0; k < hessian_.size(); ++k) {
        const int a = structure.hessian_row[k], b = structure.hessian_col[k];
        size_ += std::fabs(hessian_[k] * result_.x[a] * result_.x[b]) * (a == b ? 0.5 : 1.0);
    }
    if (std::isnan(gain_)) gain_ = kInfinity;
}

bool NewtonModel::make(const JudgedPoint& point, const StopPoll& poll, Curvature curvature) {
    if (!functions_.structure().has_hessian) return false;
    point_ = &point;
    result_ = point.result;
    find_held();
    if (!add_hessian(curvature) || !find_active_rows(curvature)) return false;
    scale();
    const size_t own_entries = entries_.size();
    for (const double penalty : kPenalties) {
        entries_.resize(own_entries);
        penalty_ = penalty * largest_;
        add_penalties();
        factor(poll);
        if (is_convex_ || active_.empty()) break;
    }
    measure_gain();
    point_ = nullptr;
    return true;
}

NlpResult NewtonModel::step(double share) const {
    const NlpBounds bounds = functions_.bounds();
    // The method of multipliers: a round leaves a share of one over the penalty of what is missed.
    constexpr int kRounds = 4;
    std::vector<double> changes(active_.size()), p;
    for (int round = 0; round < kRounds; ++round) {
        p = minimum(changes, true);
        for (size_t i = 0; i < active_.size(); ++i) {
            double value = miss_[i];
            for (const size_t k : active_[i].entries) value += coefficient_[k] * p[place_of(k)];
            changes[i] += penalty_ * value;
        }
    }
    NlpResult out = result_;
    for (size_t j = 0; j < out.x.size(); ++j) {
        const double low = bounds.lower[j], high = bounds.upper[j];
        double target = out.x[j] - low < high - out.x[j] ? low : high;
        if (place_[j] >= 0) target = out.x[j] + p[place_[j]] * scale_[place_[j]];
        out.x[j] = std::clamp(out.x[j] + share * (target - out.x[j]), low, high);
    }
    // Rows that nothing holds at a side have no multiplier at the minimum.
    for (double& y : out.multipliers) y *= 1.0 - share;
    for (size_t i = 0; i < active_.size(); ++i) {
        const ActiveRow& row = active_[i];
        out.multipliers[row.row] = result_.multipliers[row.row];
        if (row.norm == 0.0) continue;
        double& y = out.multipliers[row.row];
        y += share * changes[i] / row.norm;
        if (bounds.row_lower[row.row] == bounds.row_upper[row.row]) continue;
        y = row.side == bounds.row_upper[row.row] ? std::max(y, 0.0) : std::min(y, 0.0);
    }
    return out;
}

}  // namespace nlra
