#include "nonlinear/qp_interior.hpp"

#include <algorithm>
#include <optional>
#include <utility>

#include "nonlinear/qp_functions.hpp"
#include "nonlinear/stoppable_nlp.hpp"

namespace nlra {

namespace {

// Log lines and counts of one run, on the thread that called optimize.
class Reporter {
  public:
    Reporter(QpRun& run, int log_level)
        : run_(run), log_level_(log_level), first_iteration_(run.iterations) {}

    void report(const NlpProgress& progress) {
        run_.iterations = first_iteration_ + progress.iteration;
        if (progress.iteration == 0) {
            run_.monitor.log(log_level_,
                             "  Iter        Objective     Primal inf     Dual inf   Time");
        }
        run_.monitor.log(log_level_, "%6d%c %16.9e  %13.3e  %11.3e %6.1f", progress.iteration,
                         progress.restoration ? 'r' : ' ', progress.objective,
                         progress.primal_infeasibility, progress.dual_infeasibility,
                         run_.monitor.elapsed());
    }

    bool should_stop() {
        if (run_.monitor.should_stop()) run_.stopped = true;
        return run_.stopped;
    }

  private:
    QpRun& run_;
    const int log_level_;
    const long first_iteration_;
};

class ReportedFunctions : public ProgramFunctions {
  public:
    ReportedFunctions(const QuadraticProgram& program, Reporter& reporter)
        : ProgramFunctions(program), reporter_(reporter) {}

    bool progress(const NlpProgress& progress) override {
        reporter_.report(progress);
        return !reporter_.should_stop();
    }

  private:
    Reporter& reporter_;
};

}  // namespace

InteriorResult solve_interior(const QuadraticProgram& program, NlpOptions options,
                              const double* start, QpRun& run, int log_level) {
    const long left = std::max(0L, run.iteration_limit - run.iterations);
    const bool limited = left < options.max_iterations;
    if (limited) options.max_iterations = static_cast<int>(left);

    // Zero is the natural start; the solver moves it into the bounds.
    const std::vector<double> origin(start != nullptr ? 0 : program.columns, 0.0);
    Reporter reporter(run, log_level);
    InteriorResult result;
    ReportedFunctions functions(program, reporter);
    NlpStart from;
    from.x = start != nullptr ? start : origin.data();
    std::optional<NlpResult> nlp = solve_nlp_stoppable(
        functions.structure(), functions,
        {program.lower.data(), program.upper.data(), program.row_lower.data(),
         program.row_upper.data()},
        from, options, [&] { return reporter.should_stop(); }, result.point.x);
    if (!nlp) {
        result.status = NlpStatus::kStopped;
        result.point.y.assign(program.rows, 0.0);
        if (!result.point.x.empty()) project(program, result.point);
        return result;
    }
    if (nlp->status == NlpStatus::kIterationLimit && limited) run.exhausted = true;
    result.status = nlp->status;
    result.point.x = std::move(nlp->x);
    result.point.y = std::move(nlp->multipliers);
    for (double& dual : result.point.y) dual = -dual;
    result.lower_multipliers = std::move(nlp->lower_multipliers);
    result.upper_multipliers = std::move(nlp->upper_multipliers);
    project(program, result.point);
    return result;
}

}  // namespace nlra
