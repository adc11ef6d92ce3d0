#include "nonlinear/qp_attempts.hpp"

#include <algorithm>
#include <cmath>

#include "nonlinear/qp_polish.hpp"
#include "nonlinear/qp_settle.hpp"

namespace nlra {

namespace {

// Polish an interior solution and settle whether it is the optimum.
bool finish(const QuadraticProgram& program, const InteriorResult& interior, QpRun& run,
            PrimalDual& point) {
    Residuals residuals;
    point = polish(program, interior, run, residuals);
    if (!(residuals.primal <= run.feasibility_tolerance)) return false;
    const Settled settled = settle(program, run, point);
    run.undetermined = settled == Settled::kUndetermined;
    return settled == Settled::kOptimal;
}

bool attempt(const QuadraticProgram& program, const NlpOptions& options, const double* start,
             QpRun& run, int log_level, PrimalDual& point) {
    const InteriorResult interior = solve_interior(program, options, start, run, log_level);
    if (run.over()) {
        point = interior.point;
        return false;
    }
    return finish(program, interior, run, point);
}

// Equations that may be violated at a price. The interior point solver wants no more equations
// than columns, and independent ones; here every equation brings columns of its own. With a price
// above all duals the optimum violates none.
QuadraticProgram with_elastic_equations(const QuadraticProgram& program, double price) {
    QuadraticProgram elastic = program;
    elastic.start.assign(1, 0);
    elastic.index.clear();
    elastic.value.clear();
    for (int i = 0; i < program.rows; ++i) {
        for (int64_t k = program.start[i]; k < program.start[i + 1]; ++k) {
            elastic.index.push_back(program.index[k]);
            elastic.value.push_back(program.value[k]);
        }
        if (program.row_lower[i] == program.row_upper[i]) {
            for (const double sign : {1.0, -1.0}) {
                elastic.index.push_back(elastic.add_column(price, 0.0, kInfinity));
                elastic.value.push_back(sign);
            }
        }
        elastic.start.push_back(static_cast<int64_t>(elastic.index.size()));
    }
    return elastic;
}

bool elastic_attempt(const QuadraticProgram& program, const double* start, QpRun& run,
                     int log_level, PrimalDual& point) {
    std::vector<double> origin(program.columns, 0.0), gradient;
    program.gradient(start != nullptr ? start : origin.data(), gradient);
    double price = 1.0;
    for (const double value : gradient) price = std::max(price, std::fabs(value));
    NlpOptions options;
    options.max_iterations = 500;
    for (int trial = 0; trial < 3 && !run.over(); ++trial) {
        price *= 100.0;
        const QuadraticProgram elastic = with_elastic_equations(program, price);
        std::vector<double> x;
        if (start != nullptr) {
            x.assign(start, start + program.columns);
            x.resize(elastic.columns, 0.0);
        }
        InteriorResult interior =
            solve_interior(elastic, options, x.empty() ? nullptr : x.data(), run, log_level);
        interior.point.x.resize(program.columns);
        interior.lower_multipliers.resize(program.columns);
        interior.upper_multipliers.resize(program.columns);
        if (run.over()) {
            point = interior.point;
            return false;
        }
        if (finish(program, interior, run, point)) return true;
        if (run.undetermined) return false;
    }
    return false;
}

// Rows that leave no room around a feasible point can have no duals: x^2 <= 0, minimize x. Such a
// program is solved with its inequalities moved out by part of the feasibility tolerance.
bool shifted_attempt(const QuadraticProgram& program, double share, const double* start, QpRun& run,
                     int log_level, PrimalDual& point) {
    QuadraticProgram shifted = program;
    for (int i = 0; i < program.rows; ++i) {
        double& low = shifted.row_lower[i];
        double& high = shifted.row_upper[i];
        if (low == high) continue;
        const double shift = share * run.feasibility_tolerance;
        if (low > -kInfinity) low -= shift * std::max(1.0, std::fabs(low));
        if (high < kInfinity) high += shift * std::max(1.0, std::fabs(high));
    }
    NlpOptions options;
    options.tolerance = 1e-9;
    options.bound_relaxation = 0.0;
    options.max_iterations = 500;
    return attempt(shifted, options, start, run, log_level, point) &&
           run.accepts(measure(program, point, true));
}

}  // namespace

bool find_optimum(const QuadraticProgram& program, Attempts attempts, const double* start,
                  QpRun& run, int log_level, PrimalDual& point) {
    const int equations = program.equations();
    const bool crowded = equations > program.columns;
    if (attempts == Attempts::kFirst) {
        if (crowded) return elastic_attempt(program, start, run, log_level, point);
        NlpOptions options;
        options.tolerance = 1e-10;
        options.bound_relaxation = 1e-9;
        options.adaptive_barrier = true;
        options.max_iterations = 200;
        options.divergence = 1e10;
        return attempt(program, options, start, run, log_level, point);
    }
    const auto settled = [&run] { return run.over() || run.undetermined; };
    if (!crowded) {
        NlpOptions options;
        options.max_iterations = 500;
        if (attempt(program, options, start, run, log_level, point)) return true;
        options = NlpOptions();
        options.scaling = false;
        options.adaptive_barrier = true;
        options.bound_relaxation = 0.0;
        if (!settled() && attempt(program, options, start, run, log_level, point)) return true;
        options = NlpOptions();
        options.initial_barrier = 1e3;
        if (!settled() && attempt(program, options, start, run, log_level, point)) return true;
        for (const double share : {0.01, 0.5}) {
            if (settled()) return false;
            if (shifted_attempt(program, share, start, run, log_level, point)) return true;
        }
    }
    return !settled() && equations > 0 && elastic_attempt(program, start, run, log_level, point);
}

}  // namespace nlra
