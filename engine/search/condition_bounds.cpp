#include "search/condition_bounds.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "linear/linear_solver.hpp"
#include "nlra.h"

namespace nlra {

namespace {

// Of what a linear program says, and of the cutoff: solutions must not be lost by rounding.
constexpr double kMargin = 1e-6;

double margin_of(double value) { return kMargin * std::max(1.0, std::fabs(value)); }

class TermBounds {
  public:
    TermBounds(const Model& model, std::optional<double> cutoff, const Params& params,
               Monitor& monitor)
        : model_(model), params_(params), monitor_(monitor) {
        if (cutoff) add_cutoff(*cutoff);
        for (int j = 0; j < model_.cols(); ++j) model_.set_cost(j, 0.0);
        model_.set_constant(0.0);
        model_.set_sense(-1.0);
    }

    // The most that the terms add up to; infinite where it is not known.
    double most(const std::vector<LinearTerm>& terms) {
        for (const LinearTerm& term : terms) {
            model_.set_cost(term.col, model_.obj[term.col] + term.value);
        }
        // A change of costs leaves the last point feasible, which the primal method needs.
        const LpOutcome outcome =
            solver_.solve_relaxation(model_, params_, LpMethod::kPrimalSimplex, monitor_);
        for (const LinearTerm& term : terms) model_.set_cost(term.col, 0.0);
        if (outcome.status != NLRA_LP_OPTIMAL) return HUGE_VAL;
        return outcome.solution.objective + margin_of(outcome.solution.objective);
    }

  private:
    void add_cutoff(double cutoff) {
        RowBlock row;
        row.begin(model_.sense < 0.0 ? 'G' : 'L',
                  cutoff - model_.constant + model_.sense * margin_of(cutoff));
        for (int j = 0; j < model_.cols(); ++j) {
            if (model_.obj[j] != 0.0) row.add(j, model_.obj[j]);
        }
        row.append_to(model_);
    }

    Model model_;
    const Params& params_;
    Monitor& monitor_;
    LinearSolver solver_;
};

}  // namespace

std::vector<Condition> limit_by_linear_programs(Model& model,
                                                const std::vector<Condition>& conditions,
                                                std::optional<double> cutoff, const Params& params,
                                                Monitor& monitor) {
    const DetailLog quiet(monitor);
    TermBounds bounds(model, cutoff, params, monitor);
    std::vector<Condition> open;
    RowBlock rows;
    for (const Condition& condition : conditions) {
        double most = HUGE_VAL;
        if (monitor.should_stop()) {
            // Bounds that are not known are infinite.
        } else if (condition.limit.empty()) {
            most = bounds.most(condition.terms);
        } else {
            most = std::max(0.0, bounds.most(condition.limit) + condition.limit_constant);
        }
        const double excess = most - condition.side;
        if (!(excess <= kMaxExcess)) {
            open.push_back(condition);
            continue;
        }
        if (excess > 0.0) add_row(condition, excess, rows);
        if (condition.limit.empty()) continue;
        const int col = condition.terms[0].col;
        model.set_bounds(col, model.lower[col], std::min(model.upper[col], most));
    }
    rows.append_to(model);
    return open;
}

double wide_box(const Model& model) {
    constexpr double kLeast = 1e3, kMost = 1e7;
    double scale = 1.0;
    const auto include = [&](double value) {
        if (std::fabs(value) < kInfinity) scale = std::max(scale, std::fabs(value));
    };
    for (const double value : model.rhs) include(value);
    for (const double value : model.lower) include(value);
    for (const double value : model.upper) include(value);
    return std::min(kLeast * scale, kMost);
}

Bounds boxed(Bounds bounds, double size) {
    Bounds out = bounds;
    if (bounds.lower <= -kInfinity) out.lower = std::min(-size, bounds.upper - size);
    if (bounds.upper >= kInfinity) out.upper = std::max(size, bounds.lower + size);
    return out;
}

void put_in_box(Model& model, const std::vector<Condition>& conditions) {
    const double size = wide_box(model);
    for (int j = 0; j < model.cols(); ++j) {
        const Bounds bounds = boxed({model.lower[j], model.upper[j]}, size);
        model.set_bounds(j, bounds.lower, bounds.upper);
    }
    RowBlock rows;
    for (const Condition& condition : conditions) {
        double most = 0.0;
        for (const LinearTerm& term : condition.terms) {
            const Bounds range = relaxed_column(model, term.col);
            most += std::max(term.value * range.lower, term.value * range.upper);
        }
        if (most > condition.side) add_row(condition, most - condition.side, rows);
    }
    rows.append_to(model);
}

}  // namespace nlra
