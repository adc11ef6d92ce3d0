#include "search/mip_start.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "linear/relaxation.hpp"
#include "search/reformulate.hpp"
#include "search/solution.hpp"

namespace nlra {
namespace {

bool is_complete(const StartPoint& point) {
    return std::none_of(point.begin(), point.end(), [](double value) { return std::isnan(value); });
}

// Feasible by a margin that the solver will agree with.
bool is_feasible(const Model& model, const Reformulation* reformulation, const Params& params,
                 const Solution& solution) {
    const double tolerance = params.get_double(kFeasTol);
    for (int j = 0; j < model.cols(); ++j) {
        const double value = solution.x[j];
        const Bounds bounds = relaxed_column(model, j);
        if (value < bounds.lower - tolerance || value > bounds.upper + tolerance) return false;
        if (model.coltype[j] == 'C' || model.coltype[j] == 'S' || model.coltype[j] == 'P') continue;
        if (std::abs(value - std::round(value)) > tolerance) return false;
    }
    for (int i = 0; i < model.rows(); ++i) {
        const Bounds sides = relaxed_row(model, i);
        const double activity = model.rhs[i] - solution.slack[i];
        const double margin = tolerance * std::max(1.0, std::abs(model.rhs[i]));
        if (activity < sides.lower - margin || activity > sides.upper + margin) return false;
    }
    return reformulation == nullptr || reformulation->violation(solution.x) <= tolerance;
}

}  // namespace

StartPoint choose_start(const Model& model, const Reformulation* reformulation,
                        const Params& params, std::vector<StartPoint> points,
                        StartPoint incumbent) {
    const size_t given = points.size();
    if (incumbent.size() == static_cast<size_t>(model.cols())) {
        points.push_back(std::move(incumbent));
    }
    size_t best = points.size();
    double best_objective = 0.0;
    for (size_t k = 0; k < points.size(); ++k) {
        if (!is_complete(points[k])) continue;
        Solution solution;
        solution.x = points[k];
        evaluate(model, solution);
        const double objective = model.sense * solution.objective;
        if (best < points.size() && objective >= best_objective) continue;
        if (!is_feasible(model, reformulation, params, solution)) continue;
        best = k;
        best_objective = objective;
    }
    if (best < points.size()) return std::move(points[best]);
    return given > 0 ? std::move(points[0]) : StartPoint();
}

}  // namespace nlra
