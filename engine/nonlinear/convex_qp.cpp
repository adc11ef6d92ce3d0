#include "nonlinear/convex_qp.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "nonlinear/qp_attempts.hpp"
#include "nonlinear/qp_certificates.hpp"
#include "nonlinear/qp_memory.hpp"
#include "nonlinear/qp_reduce.hpp"

namespace nlra {

namespace {

enum class Verdict { kOptimal, kInfeasible, kUnbounded, kStopped, kUndetermined, kUnsolved };

// First the run that nearly always ends it; then, since most programs that fail there have no
// optimum, the proofs of that; then all other settings, from a feasible point if one is known.
// `point` is what the verdict is about; after a stop the last iterate, or empty.
Verdict solve(const QuadraticProgram& program, const double* start, QpRun& run, PrimalDual& point) {
    if (find_optimum(program, Attempts::kFirst, start, run, 1, point)) return Verdict::kOptimal;
    if (run.over()) return Verdict::kStopped;
    if (run.undetermined) return Verdict::kUndetermined;

    run.monitor.log(1, "No optimum yet: checking whether there is one");
    std::vector<double> feasible;
    const Feasibility feasibility = check_feasibility(program, run, feasible);
    if (run.over()) return Verdict::kStopped;
    if (feasibility == Feasibility::kInfeasible) return Verdict::kInfeasible;
    if (feasibility == Feasibility::kFeasible) {
        if (has_improving_ray(program, run)) return Verdict::kUnbounded;
        if (run.over()) return Verdict::kStopped;
        start = feasible.data();
    }

    run.monitor.log(1, "Trying again with other settings");
    run.undetermined = false;
    if (find_optimum(program, Attempts::kOthers, start, run, 1, point)) return Verdict::kOptimal;
    if (run.undetermined) return Verdict::kUndetermined;
    return run.over() ? Verdict::kStopped : Verdict::kUnsolved;
}

}  // namespace

LpOutcome solve_convex_quadratic(const Model& model, const Params& params, Monitor& monitor,
                                 const double* start, QuadraticMemory* memory) {
    QpRun run{monitor, params.get_double(kFeasTol), params.get_double(kOptTol),
              static_cast<long>(params.get_int(kIterLimit))};
    LpOutcome outcome;
    if (monitor.should_stop()) {
        outcome.status = NLRA_LP_UNFINISHED;
        outcome.stop = monitor.reason();
        return outcome;
    }
    const ReducedProgram reduced = reduce(model, run.feasibility_tolerance);
    if (!reduced.infeasible.empty()) {
        monitor.log(1, "Infeasible: %s", reduced.infeasible.c_str());
        outcome.status = NLRA_LP_INFEAS;
        return outcome;
    }
    const QuadraticProgram& program = reduced.program;
    PrimalDual point;
    if (program.columns == 0) {
        // No row is left either: each has a column.
        outcome.status = NLRA_LP_OPTIMAL;
        outcome.solution = expand(model, reduced, point, true);
        return outcome;
    }
    const auto finish = [&] {
        outcome.status = NLRA_LP_OPTIMAL;
        outcome.solution = expand(model, reduced, point, true);
        if (memory != nullptr) memory->record(reduced, point);
    };
    if (memory != nullptr && !memory->empty() && memory->resume(reduced, run, point)) {
        monitor.log(1, "Optimal by the active set of the last solve");
        finish();
        return outcome;
    }
    monitor.log(1, "Interior point method: %d columns, %d rows (%zu quadratic)", program.columns,
                program.rows, program.forms.size());
    std::vector<double> first;
    if (start != nullptr) {
        for (size_t j = 0; j < reduced.columns.size(); ++j) {
            const double value = start[reduced.columns[j]];
            first.push_back(std::isfinite(value) ? value : 0.0);
        }
    }
    const Verdict verdict = solve(program, start != nullptr ? first.data() : nullptr, run, point);
    outcome.iterations = run.iterations;
    switch (verdict) {
        case Verdict::kOptimal:
            finish();
            break;
        case Verdict::kInfeasible:
            outcome.status = NLRA_LP_INFEAS;
            break;
        case Verdict::kUnbounded:
            outcome.status = NLRA_LP_UNBOUNDED;
            break;
        case Verdict::kStopped:
            outcome.status = NLRA_LP_UNFINISHED;
            outcome.stop = run.stopped ? monitor.reason() : NLRA_STOP_ITERLIMIT;
            if (!point.x.empty()) outcome.solution = expand(model, reduced, point, false);
            break;
        case Verdict::kUndetermined:
            monitor.log(1, "Rounding errors of the coefficients outweigh the optimality tolerance");
            outcome.status = NLRA_LP_UNFINISHED;
            outcome.solution = expand(model, reduced, point, true);
            break;
        case Verdict::kUnsolved:
            outcome.status = NLRA_LP_UNSOLVED;
            break;
    }
    return outcome;
}

}  // namespace nlra
