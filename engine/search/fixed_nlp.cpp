#include "search/fixed_nlp.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "linear/relaxation.hpp"
#include "nonlinear/nlp_judge.hpp"
#include "nonlinear/stoppable_nlp.hpp"

namespace nlra {
namespace {

constexpr int kMaxIterations = 500;
// Bounds that rows leave this close together hold one value.
constexpr double kSame = 1e-9;

}  // namespace

FixedNlp::FixedNlp(const Model& model, ModelFunctions& functions, Monitor& monitor)
    : model_(model), functions_(functions), monitor_(monitor) {
    const std::vector<int>& rows = functions.model_rows();
    for (size_t i = 0; i < rows.size(); ++i) {
        if (model.qrows.count(rows[i]) != 0 || model.formulas.rows.count(rows[i]) != 0) continue;
        linear_rows_.push_back({static_cast<int>(i), rows[i]});
    }
}

// Rows with one column left become bounds and those with none are dropped: the interior point
// method neither likes columns that rows fix nor equations without columns.
void FixedNlp::fix(const std::vector<double>& x) {
    lower_ = model_.lower;
    upper_ = model_.upper;
    for (int j = 0; j < model_.cols(); ++j) {
        if (is_integral(model_.coltype[j])) lower_[j] = upper_[j] = x[j];
    }
    const NlpBounds all = functions_.bounds();
    row_lower_.assign(all.row_lower, all.row_lower + functions_.structure().rows);
    row_upper_.assign(all.row_upper, all.row_upper + functions_.structure().rows);
    constexpr int kRounds = 10;
    bool changed = true;
    for (int round = 0; changed && round < kRounds; ++round) {
        changed = false;
        for (const LinearRow& row : linear_rows_) changed = settle(row) || changed;
    }
}

bool FixedNlp::settle(const LinearRow& row) {
    double& low = row_lower_[row.row];
    double& high = row_upper_[row.row];
    if (low <= -kInfinity && high >= kInfinity) return false;
    const RowMatrix& matrix = model_.matrix;
    int free = -1;
    double coefficient = 0.0, rest = 0.0;
    for (int64_t k = matrix.start()[row.model_row]; k < matrix.start()[row.model_row + 1]; ++k) {
        const int j = matrix.index()[k];
        if (is_fixed(j)) {
            rest += matrix.value()[k] * lower_[j];
        } else if (free >= 0) {
            return false;
        } else {
            free = j;
            coefficient = matrix.value()[k];
        }
    }
    if (free >= 0) {
        double from = low > -kInfinity ? (low - rest) / coefficient : -kInfinity;
        double to = high < kInfinity ? (high - rest) / coefficient : kInfinity;
        if (coefficient < 0.0) {
            from = high < kInfinity ? (high - rest) / coefficient : -kInfinity;
            to = low > -kInfinity ? (low - rest) / coefficient : kInfinity;
        }
        double& lower = lower_[free];
        double& upper = upper_[free];
        lower = std::max(lower, from);
        upper = std::min(upper, to);
        // Bounds that cross mean an infeasible problem: the point in the middle shows by how much.
        if (lower > upper - kSame * std::max(1.0, std::fabs(upper))) {
            lower = upper =
                std::clamp(0.5 * (lower + upper), model_.lower[free], model_.upper[free]);
        }
    }
    low = -kInfinity;
    high = kInfinity;
    return free >= 0;
}

bool FixedNlp::attempt(const std::vector<double>& start, bool warm) {
    const NlpBounds bounds{lower_.data(), upper_.data(), row_lower_.data(), row_upper_.data()};
    NlpStart from;
    from.x = start.data();
    NlpOptions options;
    options.max_iterations = kMaxIterations;
    if (warm) {
        from.multipliers = warm_.multipliers.data();
        from.lower_multipliers = warm_.lower_multipliers.data();
        from.upper_multipliers = warm_.upper_multipliers.data();
        options.warm_start = true;
        options.initial_barrier = 1e-3;
    }
    std::vector<double> iterate;
    std::optional<NlpResult> result = solve_nlp_stoppable(
        functions_.structure(), *this, bounds, from, options,
        [this] { return monitor_.should_stop(); }, iterate);
    if (!result) {
        last_ = NlpResult();
        return false;
    }
    last_ = std::move(*result);
    for (int j = 0; j < model_.cols(); ++j) {
        last_.x[j] = std::clamp(last_.x[j], lower_[j], upper_[j]);
    }
    return last_.status == NlpStatus::kSolved || last_.status == NlpStatus::kAcceptable;
}

FixedNlp::End FixedNlp::solve(std::vector<double>& x) {
    last_ = NlpResult();
    fix(x);
    int free = 0;
    for (int j = 0; j < model_.cols(); ++j) {
        x[j] = std::clamp(x[j], lower_[j], upper_[j]);
        free += !is_fixed(j);
    }
    if (free == 0) return End::kSolved;
    bool solved = false;
    if (!warm_.x.empty()) {
        std::vector<double> start = warm_.x;
        for (int j = 0; j < model_.cols(); ++j)
            start[j] = std::clamp(start[j], lower_[j], upper_[j]);
        solved = attempt(start, true);
    }
    if (!solved && !monitor_.should_stop()) solved = attempt(x, false);
    if (!solved && last_.status == NlpStatus::kTooFewDegrees && !monitor_.should_stop()) {
        // As inequalities the equations leave the method room.
        for (size_t i = 0; i < row_lower_.size(); ++i) {
            if (row_lower_[i] != row_upper_[i]) continue;
            const double room = 1e-8 * std::max(1.0, std::fabs(row_lower_[i]));
            row_lower_[i] -= room;
            row_upper_[i] += room;
        }
        solved = attempt(x, false);
    }
    if (last_.x.empty() ||
        !std::all_of(last_.x.begin(), last_.x.end(), [](double v) { return std::isfinite(v); })) {
        return End::kNone;
    }
    x = last_.x;
    if (solved) warm_ = last_;
    return solved ? End::kSolved : End::kPoint;
}

double FixedNlp::violation(const std::vector<double>& x) {
    double worst = 0.0;
    for (int j = 0; j < model_.cols(); ++j) {
        worst = std::max(worst, nlra::violation(x[j], model_.lower[j], model_.upper[j]));
    }
    const NlpBounds all = functions_.bounds();
    activity_.resize(functions_.structure().rows);
    double value = 0.0;
    if (!functions_.rows(x.data(), activity_.data()) || !functions_.objective(x.data(), value)) {
        return kInfinity;
    }
    for (size_t i = 0; i < activity_.size(); ++i) {
        worst = std::max(worst, nlra::violation(activity_[i], all.row_lower[i], all.row_upper[i]));
    }
    for (const auto& [row, constant] : functions_.constant_rows()) {
        worst = std::max(worst,
                         nlra::violation(constant, model_.row_lower(row), model_.row_upper(row)));
    }
    return worst;
}

}  // namespace nlra
