#include "nonlinear/qp_interior.hpp"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

#include "linear/worker.hpp"
#include "nlra.h"
#include "nonlinear/qp_functions.hpp"
#include "store/error.hpp"

namespace nlra {

namespace {

// Below this many numbers an iteration is over long before anybody waits for a stop.
constexpr size_t kMaxDirectSize = 20000;
constexpr auto kPollInterval = std::chrono::milliseconds(20);
constexpr auto kStopPatience = std::chrono::milliseconds(250);

bool runs_directly(const QuadraticProgram& program) {
    return static_cast<size_t>(program.columns) + program.value.size() +
               program.objective_terms.size() + program.form_terms.size() <=
           kMaxDirectSize;
}

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

class DirectFunctions : public ProgramFunctions {
  public:
    DirectFunctions(const QuadraticProgram& program, Reporter& reporter)
        : ProgramFunctions(program), reporter_(reporter) {}

    bool progress(const NlpProgress& progress) override {
        reporter_.report(progress);
        return !reporter_.should_stop();
    }

  private:
    Reporter& reporter_;
};

NlpBounds bounds_of(const QuadraticProgram& program) {
    return {program.lower.data(), program.upper.data(), program.row_lower.data(),
            program.row_upper.data()};
}

// A run on a worker with all that it touches: when it does not heed a stop in time, as within a
// long factorization, it is left to the worker and outlives the call that began it.
class BackgroundRun : public ProgramFunctions {
  public:
    BackgroundRun(std::unique_ptr<const QuadraticProgram> program, const NlpOptions& options,
                  const double* start)
        : ProgramFunctions(*program),
          program_(std::move(program)),
          options_(options),
          start_(start, start + program_->columns) {}

    // On the worker. Its iterate is kept for a caller who may not get another one.
    bool gradient(const double* x, double* values) override {
        {
            const std::lock_guard lock(mutex_);
            iterate_.assign(x, x + program_->columns);
        }
        return ProgramFunctions::gradient(x, values);
    }
    bool progress(const NlpProgress& progress) override {
        while (process_exiting()) pause();
        {
            const std::lock_guard lock(mutex_);
            reports_.push_back(progress);
        }
        changed_.notify_one();
        return !stop_;
    }
    void execute() {
        NlpStart start;
        start.x = start_.data();
        try {
            result_ = solve_nlp(structure(), *this, bounds_of(*program_), start, options_);
        } catch (...) {
            failure_ = std::current_exception();
        }
        {
            const std::lock_guard lock(mutex_);
            finished_ = true;
        }
        changed_.notify_one();
    }

    // On the thread that called optimize: report and poll until the end. Nothing when the run was
    // left to its worker.
    std::optional<NlpResult> wait(Reporter& reporter);
    std::vector<double> iterate() {
        const std::lock_guard lock(mutex_);
        return iterate_;
    }

  private:
    const std::unique_ptr<const QuadraticProgram> program_;
    const NlpOptions options_;
    const std::vector<double> start_;
    std::atomic<bool> stop_{false};
    // The worker's until it has finished.
    NlpResult result_;
    std::exception_ptr failure_;
    // Under the mutex.
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<NlpProgress> reports_;
    std::vector<double> iterate_;
    bool finished_ = false;
};

std::optional<NlpResult> BackgroundRun::wait(Reporter& reporter) {
    using Clock = std::chrono::steady_clock;
    const unsigned generation = fork_generation();
    Clock::time_point deadline = Clock::time_point::max();
    std::vector<NlpProgress> reports;
    while (true) {
        bool ended = false;
        {
            std::unique_lock lock(mutex_);
            changed_.wait_for(lock, kPollInterval,
                              [this] { return finished_ || !reports_.empty(); });
            reports.swap(reports_);
            ended = finished_;
        }
        for (const NlpProgress& progress : reports) reporter.report(progress);
        reports.clear();
        // A callback may have forked, and this be the child.
        if (generation != fork_generation()) {
            fail(NLRA_ERROR_STATE, "a solve does not go on in a forked child");
        }
        if (ended) break;
        if (Clock::now() >= deadline) return std::nullopt;
        if (reporter.should_stop() && deadline == Clock::time_point::max()) {
            stop_ = true;
            deadline = Clock::now() + kStopPatience;
        }
    }
    if (failure_) std::rethrow_exception(failure_);
    return std::move(result_);
}

std::optional<NlpResult> run_interior(const QuadraticProgram& program, const NlpOptions& options,
                                      const double* start, Reporter& reporter,
                                      std::vector<double>& last_iterate) {
    if (!runs_directly(program)) {
        const auto background = std::make_shared<BackgroundRun>(
            std::make_unique<const QuadraticProgram>(program), options, start);
        try {
            run_on_worker([background] { background->execute(); });
            std::optional<NlpResult> result = background->wait(reporter);
            if (!result) last_iterate = background->iterate();
            return result;
        } catch (const std::system_error&) {
            // No thread to be had: stops are served late, but the solve works.
        }
    }
    DirectFunctions functions(program, reporter);
    NlpStart nlp_start;
    nlp_start.x = start;
    return solve_nlp(functions.structure(), functions, bounds_of(program), nlp_start, options);
}

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
    std::optional<NlpResult> nlp = run_interior(
        program, options, start != nullptr ? start : origin.data(), reporter, result.point.x);
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
