#include "search/piece_search.hpp"

#include <algorithm>
#include <cmath>
#include <map>

#include "linear/linear_solver.hpp"
#include "nlra.h"
#include "nslp.h"
#include "search/condition_bounds.hpp"
#include "search/optimize.hpp"
#include "store/error.hpp"

namespace nlra {

namespace {

// Relative: conditions that are missed by less count as met, and bounds that differ by less are
// the same.
constexpr double kTolerance = 1e-7;

double size_of(double value) { return std::max(1.0, std::fabs(value)); }

}  // namespace

PieceSearch::PieceSearch(nlra_problem& relaxation, std::vector<Condition> conditions,
                         Confirm confirm, Monitor& monitor)
    : relaxation_(relaxation),
      model_(relaxation.model),
      conditions_(std::move(conditions)),
      first_row_(relaxation.model.rows()),
      box_(wide_box(relaxation.model)),
      confirm_(std::move(confirm)),
      monitor_(monitor) {
    std::vector<char> is_used(static_cast<size_t>(model_.cols()));
    for (int j = 0; j < model_.cols(); ++j) is_used[j] = model_.obj[j] != 0.0;
    for (const int j : model_.matrix.index()) is_used[j] = 1;
    std::map<int, int> place;
    RowBlock rows;
    for (size_t k = 0; k < conditions_.size(); ++k) {
        const Condition& condition = conditions_[k];
        const auto [at, is_new] = place.emplace(condition.col, binaries_.size());
        if (is_new) {
            const int col = condition.col;
            binaries_.push_back({col, model_.lower[col], model_.upper[col], is_used[col] != 0, {}});
        }
        binaries_[at->second].conditions[condition.active ? 1 : 0].push_back(static_cast<int>(k));
        rows.begin('L', kInfinity);
        for (const LinearTerm& term : condition.terms) rows.add(term.col, term.value);
    }
    rows.append_to(model_);
    for (size_t b = 0; b < binaries_.size(); ++b) {
        const Binary& binary = binaries_[b];
        // Its value is chosen here, or does not matter.
        model_.set_type(binary.col, 'C');
        if (binary.lower == binary.upper) fix(static_cast<int>(b), binary.lower > 0.5 ? 1 : 0);
    }
    for (int j = 0; j < model_.cols(); ++j) {
        const Bounds own{model_.lower[j], model_.upper[j]};
        if (own.lower <= -kInfinity || own.upper >= kInfinity) unlimited_.emplace_back(j, own);
    }
}

void PieceSearch::fix(int b, int value) {
    Binary& binary = binaries_[b];
    binary.is_fixed = true;
    model_.set_bounds(binary.col, value, value);
    for (const int k : binary.conditions[value]) {
        model_.set_rhs(first_row_ + k, conditions_[k].side);
    }
}

void PieceSearch::release(int b) {
    Binary& binary = binaries_[b];
    binary.is_fixed = false;
    model_.set_bounds(binary.col, binary.lower, binary.upper);
    for (const std::vector<int>& conditions : binary.conditions) {
        for (const int k : conditions) model_.set_rhs(first_row_ + k, kInfinity);
    }
}

void PieceSearch::apply(const std::vector<Choice>& choices) {
    for (const int b : chosen_) release(b);
    chosen_.clear();
    for (const auto& [b, value] : choices) {
        fix(b, value);
        chosen_.push_back(b);
    }
}

void PieceSearch::set_box(bool on) {
    for (const auto& [col, own] : unlimited_) {
        const Bounds bounds = on ? boxed(own, box_) : own;
        model_.set_bounds(col, bounds.lower, bounds.upper);
    }
}

PieceSearch::End PieceSearch::solve() {
    ++outcome_.nodes;
    SolveInfo& info = relaxation_.info;
    info = SolveInfo();
    if (model_.is_mip()) {
        solve_linear_mip(relaxation_, monitor_);
    } else {
        solve_continuous(relaxation_, monitor_, "d");
        // The statuses that a mixed integer solve has for the same.
        info.mip_status = info.lp_status == NLRA_LP_OPTIMAL     ? NLRA_MIP_OPTIMAL
                          : info.lp_status == NLRA_LP_INFEAS    ? NLRA_MIP_INFEAS
                          : info.lp_status == NLRA_LP_UNBOUNDED ? NLRA_MIP_UNBOUNDED
                                                                : NLRA_MIP_NO_SOL_FOUND;
    }
    outcome_.iterations += info.simplex_iterations;
    switch (info.mip_status) {
        case NLRA_MIP_OPTIMAL:
            return End::kOptimal;
        case NLRA_MIP_INFEAS:
            return End::kInfeasible;
        case NLRA_MIP_UNBOUNDED:
            return End::kUnbounded;
        default:
            outcome_.stop = info.stop;
            return End::kUndecided;
    }
}

const Solution& PieceSearch::relaxed() const {
    return model_.is_mip() ? relaxation_.mip_solution : relaxation_.lp_solution;
}

double PieceSearch::miss(const Condition& condition) const {
    const std::vector<double>& x = relaxed().x;
    double value = -condition.side;
    double size = size_of(condition.side);
    for (const LinearTerm& term : condition.terms) {
        const double part = term.value * x[term.col];
        value += part;
        size = std::max(size, std::fabs(part));
    }
    return std::max(0.0, value / size);
}

double PieceSearch::miss(const Binary& binary, int value) const {
    double most = binary.is_used ? std::fabs(relaxed().x[binary.col] - value) : 0.0;
    for (const int k : binary.conditions[value]) most = std::max(most, miss(conditions_[k]));
    return most;
}

PieceSearch::Selection PieceSearch::select() const {
    Selection out;
    for (size_t b = 0; b < binaries_.size(); ++b) {
        if (binaries_[b].is_fixed) continue;
        const double zero = miss(binaries_[b], 0);
        const double one = miss(binaries_[b], 1);
        out.nearest.emplace_back(static_cast<int>(b), one < zero ? 1 : 0);
        const double least = std::min(zero, one);
        if (out.binary >= 0 && least <= out.miss) continue;
        out.binary = static_cast<int>(out.nearest.size()) - 1;
        out.miss = least;
    }
    return out;
}

// Keeps it when it is better.
void PieceSearch::take(std::optional<Solution> found) {
    const Solution& best = outcome_.best;
    const double sense = model_.sense;
    if (found && (!best.present || sense * found->objective < sense * best.objective)) {
        outcome_.best = std::move(*found);
    }
}

bool PieceSearch::is_pruned(double bound) const {
    if (!outcome_.best.present) return false;
    const double best = model_.sense * outcome_.best.objective;
    return bound >= best - 1e-2 * kTolerance * size_of(best);
}

void PieceSearch::branch(const Node& node, Choice first, double bound) {
    Node child{bound, node.choices};
    child.choices.push_back(first);
    next_ = child;
    child.choices.back().second = 1 - first.second;
    open_.push(std::move(child));
}

void PieceSearch::visit(const Node& node) {
    apply(node.choices);
    switch (solve()) {
        case End::kInfeasible:
            return;
        case End::kUnbounded:
            return visit_unbounded(node);
        case End::kUndecided:
            doubtful_ = std::min(doubtful_, node.bound);
            return;
        case End::kOptimal:
            break;
    }
    const double claimed = relaxed().objective;
    const double proven = model_.is_mip() ? relaxation_.info.best_bound : claimed;
    const double bound = std::max(node.bound, model_.sense * proven);
    std::optional<Solution> found = confirm_(relaxed());
    const bool is_exact =
        found && model_.sense * (found->objective - claimed) <= kTolerance * size_of(claimed);
    take(std::move(found));
    if (is_exact || is_pruned(bound)) {
        closed_ = std::min(closed_, bound);
        return;
    }
    const Selection selection = select();
    if (selection.binary < 0) {
        doubtful_ = std::min(doubtful_, bound);
    } else {
        branch(node, selection.nearest[selection.binary], bound);
    }
}

// What is missed far out on the way of improvement decides what to branch on.
void PieceSearch::visit_unbounded(const Node& node) {
    set_box(true);
    const End end = solve();
    if (end == End::kOptimal) take(confirm_(relaxed()));
    Selection selection;
    if (end == End::kOptimal) selection = select();
    set_box(false);
    if (outcome_.stop != NLRA_STOP_NONE) {
        doubtful_ = std::min(doubtful_, node.bound);
        return;
    }
    if (end == End::kOptimal && selection.miss <= kTolerance) {
        std::vector<Choice> all = node.choices;
        all.insert(all.end(), selection.nearest.begin(), selection.nearest.end());
        apply(all);
        is_unbounded_ = solve() == End::kUnbounded;
        if (is_unbounded_) return;
    }
    const auto is_free = [](const Binary& binary) { return !binary.is_fixed; };
    apply(node.choices);
    if (selection.binary >= 0) {
        branch(node, selection.nearest[selection.binary], node.bound);
        return;
    }
    const auto free = std::find_if(binaries_.begin(), binaries_.end(), is_free);
    if (free == binaries_.end()) {
        is_unbounded_ = true;
    } else {
        branch(node, {static_cast<int>(free - binaries_.begin()), 0}, node.bound);
    }
}

void PieceSearch::conclude() {
    const double sense = model_.sense;
    double bound = std::min(closed_, doubtful_);
    if (next_) bound = std::min(bound, next_->bound);
    if (!open_.empty()) bound = std::min(bound, open_.top().bound);
    const bool is_finished = !next_ && open_.empty() && doubtful_ == HUGE_VAL;
    MipOutcome judged;
    judged.solution = outcome_.best;
    judged.bound = sense * std::clamp(bound, -kInfinity, kInfinity);
    update_gap(sense, judged);
    outcome_.bound = judged.bound;
    if (is_unbounded_) {
        outcome_.status = NSLP_UNBOUNDED;
        outcome_.bound = -sense * kInfinity;
        outcome_.best.clear();
    } else if (outcome_.best.present && within_gap(judged, relaxation_.controls)) {
        outcome_.status = NSLP_GLOBALLY_OPTIMAL;
    } else if (!outcome_.best.present && is_finished) {
        outcome_.status = NSLP_INFEASIBLE;
    } else {
        outcome_.status = NSLP_UNFINISHED;
    }
}

PieceOutcome PieceSearch::run(Solution best, int64_t max_nodes) {
    outcome_ = PieceOutcome();
    outcome_.best = std::move(best);
    const DetailLog quiet(monitor_);
    next_ = Node{-HUGE_VAL, {}};
    while (next_ || !open_.empty()) {
        if (outcome_.nodes >= max_nodes) {
            outcome_.stop = NLRA_STOP_NODELIMIT;
        } else if (monitor_.should_stop()) {
            outcome_.stop = monitor_.reason();
        }
        if (outcome_.stop != NLRA_STOP_NONE) break;
        if (!next_) {
            next_ = open_.top();
            open_.pop();
        }
        const Node node = std::move(*next_);
        next_.reset();
        if (is_pruned(node.bound)) {
            closed_ = std::min(closed_, node.bound);
            continue;
        }
        visit(node);
        if (is_unbounded_) break;
    }
    conclude();
    return std::move(outcome_);
}

}  // namespace nlra
