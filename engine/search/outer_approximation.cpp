#include "search/outer_approximation.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <utility>

#include "nlra.h"
#include "search/convex_mip.hpp"
#include "search/convex_relaxation.hpp"
#include "search/fixed_nlp.hpp"
#include "search/monitor.hpp"
#include "search/tangents.hpp"

namespace nlra {
namespace {

// Rounds of tangents for the linear relaxation before the first search, and for how many of them
// the bound may stand still.
constexpr int kMaxRelaxations = 60;
constexpr int kPatience = 4;
// How often the same integral values may come back before they are excluded where the continuous
// problem has been solved for them, and where it has not or exclusion is impossible.
constexpr int kMaxReturns = 10;
constexpr int kMaxSlowReturns = 300;

class OuterApproximation {
  public:
    OuterApproximation(const PlainForm& form, ModelFunctions& functions, const Params& params,
                       Monitor& monitor)
        : form_(form),
          model_(form.model()),
          params_(params),
          monitor_(monitor),
          tangents_(model_, functions),
          nlp_(model_, functions, monitor),
          sense_(functions.sense()),
          tolerance_(std::max(10.0 * params.get_double(kFeasTol), 1e-6)) {
        outcome_.bound = -sense_ * kInfinity;
    }

    // The solution's x is that of the plain model.
    MipOutcome run(const std::vector<double>& start);

  private:
    enum class Step { kGoOn, kEnd };

    Step relax();
    void decide_unbounded();
    void try_start(std::vector<double> start);
    void tighten();
    bool boxed_solution(std::vector<double>& x);
    Step search();
    MipOutcome solve_master();
    bool can_go_on(const std::vector<double>& x);
    void explore(const std::vector<double>& x);
    void take(const std::vector<double>& point);
    Params master_params() const;
    std::vector<double> rounded(std::vector<double> x) const;
    Step end(int status, int stop);
    Step stopped(int stop) {
        return end(outcome_.solution.present ? NLRA_MIP_SOLUTION : NLRA_MIP_NO_SOL_FOUND, stop);
    }
    bool limit_reached() const { return outcome_.improvements >= params_.get_int(kSolLimit); }
    void log_round();

    const PlainForm& form_;
    const Model& model_;
    const Params& params_;
    Monitor& monitor_;
    TangentModel tangents_;
    FixedNlp nlp_;
    LinearSolver solver_;
    const double sense_, tolerance_;

    MipOutcome outcome_;
    std::vector<double> inside_;  // a point at which the functions are defined, as far as known
    // Integral values tried, and whether the continuous problem has been solved for them.
    std::map<std::vector<double>, bool> explored_;
    bool settled_ = false;  // the last ones
    bool tight_ = false;    // the next search runs to the end
    bool give_incumbent_ = true;
    int rounds_ = 0, returns_ = 0, added_ = 0;
};

MipOutcome OuterApproximation::run(const std::vector<double>& start) {
    if (relax() == Step::kEnd) return std::move(outcome_);
    try_start(start);
    try_start(inside_);
    tighten();
    while (search() == Step::kGoOn) {
    }
    return std::move(outcome_);
}

OuterApproximation::Step OuterApproximation::end(int status, int stop) {
    outcome_.status = status;
    outcome_.stop = stop;
    if (status == NLRA_MIP_INFEAS) outcome_.bound = sense_ * kInfinity;
    update_gap(sense_, outcome_);
    return Step::kEnd;
}

OuterApproximation::Step OuterApproximation::relax() {
    LpOutcome relaxed = solve_convex_relaxation(model_, params_, monitor_);
    switch (relaxed.status) {
        case NLRA_LP_INFEAS:
            return end(NLRA_MIP_INFEAS, NLRA_STOP_NONE);
        case NLRA_LP_UNBOUNDED:
            decide_unbounded();
            return Step::kEnd;
        case NLRA_LP_UNFINISHED:
            return stopped(relaxed.stop);
        default:
            break;
    }
    if (relaxed.solution.present) {
        monitor_.log(1, "Relaxation: objective %.10g", relaxed.solution.objective);
        inside_ = std::move(relaxed.solution.x);
    } else {
        for (int j = 0; j < model_.cols(); ++j) {
            inside_.push_back(std::clamp(0.0, model_.lower[j], model_.upper[j]));
        }
    }
    tangents_.cut(inside_, inside_);
    return Step::kGoOn;
}

// With rational data, which all data is, a problem whose relaxation is unbounded is so when it has
// a solution at all.
void OuterApproximation::decide_unbounded() {
    Model feasibility = model_;
    std::fill(feasibility.obj.begin(), feasibility.obj.end(), 0.0);
    feasibility.qobj.clear();
    feasibility.formulas.objective.clear();
    Params params = params_;
    params.set_double(kCutoff, kInfinity);
    monitor_.log(1, "The relaxation is unbounded: looking for any solution");
    const std::optional<MipOutcome> any = solve_convex_mip(feasibility, params, {}, monitor_);
    const int status = any ? any->status : NLRA_MIP_NO_SOL_FOUND;
    if (any) outcome_.nodes = any->nodes;
    if (any && any->solution.present) {
        end(NLRA_MIP_UNBOUNDED, NLRA_STOP_NONE);
    } else {
        end(status, any ? any->stop : NLRA_STOP_NONE);
    }
}

void OuterApproximation::try_start(std::vector<double> start) {
    if (start.size() < static_cast<size_t>(model_.cols()) || monitor_.should_stop()) return;
    if (!std::all_of(start.begin(), start.end(), [](double v) { return std::isfinite(v); })) return;
    start = rounded(std::move(start));
    explore(start);
}

std::vector<double> OuterApproximation::rounded(std::vector<double> x) const {
    x.resize(static_cast<size_t>(model_.cols()));
    for (int j = 0; j < model_.cols(); ++j) {
        if (model_.coltype[j] != 'C') x[j] = std::round(x[j]) + 0.0;
        x[j] = std::clamp(x[j], model_.lower[j], model_.upper[j]);
    }
    return x;
}

// Tangents at the solutions of the linear relaxation: much cheaper than in a search.
void OuterApproximation::tighten() {
    const DetailLog detail(monitor_);
    double best = -kInfinity;
    int standing = 0;
    for (int round = 0; round < kMaxRelaxations && standing < kPatience; ++round) {
        const LpOutcome relaxed =
            solver_.solve_relaxation(tangents_.linear(), params_, LpMethod::kDualSimplex, monitor_);
        outcome_.iterations += relaxed.iterations;
        std::vector<double> x;
        if (relaxed.status == NLRA_LP_OPTIMAL) {
            x = relaxed.solution.x;
            const double bound = sense_ * relaxed.solution.objective;
            const bool gains = bound > best + 1e-4 * std::fabs(best);
            standing = gains ? 0 : standing + 1;
            best = std::max(best, bound);
            outcome_.bound = sense_ * best;
        } else if (relaxed.status != NLRA_LP_UNBOUNDED || !boxed_solution(x)) {
            return;
        }
        x.resize(static_cast<size_t>(model_.cols()));
        if (tangents_.cut(x, inside_) == 0 || monitor_.should_stop()) return;
    }
}

// A solution within bounds for all columns, where there is none without.
bool OuterApproximation::boxed_solution(std::vector<double>& x) {
    constexpr double kBox = 1e4;
    Model boxed = tangents_.linear();
    boxed.edits = Edits();
    for (int j = 0; j < boxed.cols(); ++j) {
        double low = boxed.lower[j], high = boxed.upper[j];
        if (low <= -kInfinity) low = high >= kInfinity ? -kBox : std::min(high, 0.0) - kBox;
        if (high >= kInfinity) high = std::max(low, 0.0) + kBox;
        boxed.set_bounds(j, low, high);
    }
    LinearSolver solver;
    LpOutcome relaxed = solver.solve_relaxation(boxed, params_, LpMethod::kDualSimplex, monitor_);
    x = std::move(relaxed.solution.x);
    return relaxed.status == NLRA_LP_OPTIMAL;
}

// While much is open there is no point in solving the linear problem to the end.
Params OuterApproximation::master_params() const {
    Params params = params_;
    const double last = 0.1 * params_.get_double(kRelGap);
    const double open = outcome_.solution.present ? outcome_.gap : 1.0;
    params.set_double(kRelGap, tight_ ? last : std::clamp(0.2 * open, last, std::max(last, 0.02)));
    params.set_double(kAbsGap, 0.1 * params_.get_double(kAbsGap));
    params.set_int(kSolLimit, std::numeric_limits<int>::max());
    params.set_int(kNodeLimit, std::max<int64_t>(0, params_.get_int(kNodeLimit) - outcome_.nodes));
    return params;
}

MipOutcome OuterApproximation::solve_master() {
    std::vector<double> start;
    if (outcome_.solution.present && give_incumbent_) {
        start = tangents_.extend(outcome_.solution.x);
    }
    const DetailLog detail(monitor_);
    MipOutcome master = solver_.solve_mip(tangents_.linear(), master_params(), start, monitor_);
    outcome_.nodes += master.nodes;
    outcome_.iterations += master.iterations;
    return master;
}

// One round: the linear problem, then the continuous one for the integral values that it proposes.
OuterApproximation::Step OuterApproximation::search() {
    if (monitor_.should_stop()) return stopped(monitor_.reason());
    if (limit_reached()) return stopped(NLRA_STOP_SOLLIMIT);
    const MipOutcome master = solve_master();
    if (master.status == NLRA_MIP_INFEAS) {
        if (!outcome_.solution.present) return end(NLRA_MIP_INFEAS, NLRA_STOP_NONE);
        outcome_.bound = outcome_.solution.objective;
        return end(NLRA_MIP_OPTIMAL, NLRA_STOP_NONE);
    }
    if (master.status == NLRA_MIP_UNBOUNDED) {
        monitor_.log(1, "The tangents do not bound the objective");
        return stopped(NLRA_STOP_NONE);
    }
    outcome_.bound = sense_ * std::max(sense_ * outcome_.bound, sense_ * master.bound);
    std::vector<double> x;
    added_ = 0;
    if (master.solution.present && !monitor_.should_stop()) {
        x = rounded(master.solution.x);
        added_ = tangents_.cut(x, inside_);
        explore(x);
    }
    update_gap(sense_, outcome_);
    log_round();
    if (outcome_.solution.present && within_gap(outcome_, params_)) {
        return end(NLRA_MIP_OPTIMAL, NLRA_STOP_NONE);
    }
    if (master.stop != NLRA_STOP_NONE && master.stop != NLRA_STOP_MIPGAP) {
        return stopped(master.stop);
    }
    if (monitor_.should_stop()) return stopped(monitor_.reason());
    return can_go_on(x) ? Step::kGoOn : stopped(NLRA_STOP_NONE);
}

// Whether the next round will be another one. Integral values that come back again and again, or
// have no tangents left, are excluded: no better solution has them.
bool OuterApproximation::can_go_on(const std::vector<double>& x) {
    const bool returns = settled_ && returns_ >= kMaxReturns;
    if (added_ > 0 && !returns) return returns_ < kMaxSlowReturns;
    if (!tight_) {
        tight_ = true;
        return true;
    }
    if (tangents_.exclude(x)) {
        // The incumbent may be what has been excluded.
        give_incumbent_ = false;
        returns_ = 0;
        return true;
    }
    if (added_ > 0 && returns_ < kMaxSlowReturns) return true;
    monitor_.log(1, "No further progress within the tolerances");
    return false;
}

// The continuous problem for these integral values, unless it has been solved before.
void OuterApproximation::explore(const std::vector<double>& x) {
    std::vector<double> values;
    for (int j = 0; j < model_.cols(); ++j) {
        if (model_.coltype[j] != 'C') values.push_back(x[j]);
    }
    take(x);
    const auto [known, is_new] = explored_.try_emplace(std::move(values), false);
    if (is_new) {
        std::vector<double> point = x;
        const FixedNlp::End end = nlp_.solve(point);
        if (end != FixedNlp::End::kNone) added_ += tangents_.cut(point, inside_);
        if (end == FixedNlp::End::kSolved && nlp_.violation(point) <= tolerance_) {
            known->second = true;
            inside_ = point;
        }
        take(point);
    }
    returns_ = is_new ? 0 : returns_ + 1;
    settled_ = known->second;
}

// The incumbent, if it is one.
void OuterApproximation::take(const std::vector<double>& point) {
    if (limit_reached()) return;
    if (nlp_.violation(point) > tolerance_ || form_.violation(point) > tolerance_) return;
    double objective = 0.0;
    if (!nlp_.objective(point.data(), objective)) return;
    const double cutoff = params_.get_double(kCutoff);
    if (std::fabs(cutoff) < kInfinity && objective >= sense_ * cutoff) return;
    Solution& best = outcome_.solution;
    const double margin = 1e-9 * std::max(1.0, std::fabs(objective));
    if (best.present && objective > sense_ * best.objective - margin) return;
    best.x = point;
    best.objective = sense_ * objective + 0.0;
    best.present = true;
    ++outcome_.improvements;
    update_gap(sense_, outcome_);
}

void OuterApproximation::log_round() {
    if (rounds_++ % 20 == 0) {
        monitor_.log(1,
                     " Round           Bound        Solution      Gap   Tangents    Nodes   Time");
    }
    char solution[32] = "-", gap[32] = "-";
    if (outcome_.solution.present) {
        std::snprintf(solution, sizeof solution, "%.8g", outcome_.solution.objective);
        std::snprintf(gap, sizeof gap, "%.3g %%", 100.0 * std::min(outcome_.gap, 9.99));
    }
    monitor_.log(1, "%6d %15.8g %15s %8s %10d %8lld %6.1f", rounds_, outcome_.bound, solution, gap,
                 tangents_.cuts(), static_cast<long long>(outcome_.nodes), monitor_.elapsed());
}

}  // namespace

MipOutcome approximate_outside(const PlainForm& form, ModelFunctions& functions,
                               const Params& params, const std::vector<double>& start,
                               Monitor& monitor) {
    return OuterApproximation(form, functions, params, monitor).run(start);
}

}  // namespace nlra
