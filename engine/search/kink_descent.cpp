#include "search/kink_descent.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>
#include <vector>

#include "api/problem.hpp"
#include "nonlinear/directional_model.hpp"
#include "nonlinear/nlp_options.hpp"
#include "search/nonsmooth_solve.hpp"

namespace nlra {

namespace {

double size_of(double value) { return std::max(1.0, std::fabs(value)); }

// A direction that leads to better points; empty where there is none, nothing where it is not
// known.
std::optional<std::vector<double>> direction_of_descent(const nlra_problem& problem,
                                                        const Solution& at, Monitor& monitor) {
    constexpr double kLeastSlope = 1e-5;
    constexpr int64_t kMaxNodes = 1000;
    std::optional<DirectionalModel> directional = directional_model(problem.model, at);
    if (!directional) return std::nullopt;
    if (directional->kinks == 0) return std::vector<double>();
    const DetailLog quiet(monitor);
    nlra_problem base;
    base.controls = problem.controls;
    base.controls.set_int(kNodeLimit, std::min(kMaxNodes, problem.controls.get_int(kNodeLimit)));
    base.model = std::move(directional->model);
    nslp_problem directions(base);
    if (!solve_nonsmooth(directions, monitor).empty()) return std::nullopt;
    if (directions.result.status != NSLP_GLOBALLY_OPTIMAL) return std::nullopt;
    const Solution& found = directions.result.solution;
    const double slope = base.model.sense * found.objective;
    if (slope >= -kLeastSlope * size_of(at.objective)) return std::vector<double>();
    return found.x;
}

bool is_optimum(const NlpOutcome& outcome) {
    return outcome.status == NSLP_LOCALLY_OPTIMAL || outcome.status == NSLP_GLOBALLY_OPTIMAL;
}

// Solves again from points along the direction. False when nothing better comes of it.
bool follow(nslp_problem& problem, const std::vector<double>& direction, NlpOutcome& outcome,
            Monitor& monitor) {
    Model& model = problem.base->model;
    const Params& controls = problem.base->controls;
    const double before = model.sense * outcome.solution.objective;
    for (const double step : {0.1, 1e-3}) {
        LastPoint from;
        from.x = outcome.solution.x;
        for (size_t j = 0; j < from.x.size(); ++j) from.x[j] += step * direction[j];
        model.formulas.last = std::move(from);
        NlpOutcome next =
            solve_nlp_locally(model, controls, nlp_options(problem.interior, controls), monitor);
        outcome.iterations += next.iterations;
        if (next.stop != NLRA_STOP_NONE) return false;
        if (!is_optimum(next)) continue;
        if (model.sense * next.solution.objective > before - 1e-9 * size_of(before)) continue;
        next.iterations = outcome.iterations;
        outcome = std::move(next);
        return true;
    }
    return false;
}

}  // namespace

void settle_kinks(nslp_problem& problem, NlpOutcome& outcome, Monitor& monitor) {
    constexpr int kMaxSteps = 20;
    if (outcome.status == NSLP_LOCALLY_INFEASIBLE) outcome.status = NSLP_UNFINISHED;
    for (int step = 0; outcome.status == NSLP_LOCALLY_OPTIMAL; ++step) {
        const std::optional<std::vector<double>> direction =
            direction_of_descent(*problem.base, outcome.solution, monitor);
        if (direction && direction->empty()) return;
        if (direction && step < kMaxSteps && follow(problem, *direction, outcome, monitor))
            continue;
        monitor.log(1, "A kink at the point found keeps it from being called an optimum");
        outcome.status = NSLP_UNFINISHED;
    }
}

}  // namespace nlra
