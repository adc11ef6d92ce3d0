#include "nonlinear/stoppable_nlp.hpp"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <system_error>
#include <utility>

#include "linear/worker.hpp"
#include "nlra.h"
#include "store/error.hpp"

namespace nlra {

namespace {

// Below this many numbers an iteration is over long before anybody waits for a stop.
constexpr size_t kMaxDirectSize = 20000;
constexpr auto kPollInterval = std::chrono::milliseconds(20);
constexpr auto kStopPatience = std::chrono::milliseconds(250);

bool runs_directly(const NlpStructure& structure) {
    return static_cast<size_t>(structure.columns) + structure.jacobian_row.size() +
               structure.hessian_row.size() <=
           kMaxDirectSize;
}

// Ends a solver that was left to its worker.
struct Left {};

std::vector<double> copy(const double* values, int count) {
    return values != nullptr ? std::vector<double>(values, values + count) : std::vector<double>();
}

const double* pointer(const std::vector<double>& values) {
    return values.empty() ? nullptr : values.data();
}

// A run on a worker, with its own copy of what the solver may touch after it was left. Evaluations
// are handed to the calling thread one by one; the worker sleeps meanwhile.
class BackgroundRun : public NlpFunctions {
  public:
    BackgroundRun(const NlpStructure& structure, NlpFunctions& functions, const NlpBounds& bounds,
                  const NlpStart& start, const NlpOptions& options)
        : structure_(structure),
          functions_(functions),
          lower_(copy(bounds.lower, structure.columns)),
          upper_(copy(bounds.upper, structure.columns)),
          row_lower_(copy(bounds.row_lower, structure.rows)),
          row_upper_(copy(bounds.row_upper, structure.rows)),
          x_(copy(start.x, structure.columns)),
          multipliers_(copy(start.multipliers, structure.rows)),
          lower_multipliers_(copy(start.lower_multipliers, structure.columns)),
          upper_multipliers_(copy(start.upper_multipliers, structure.columns)),
          options_(options) {}

    // On the worker.
    bool objective(const double* x, double& value) override {
        return ask([&] { return functions_.objective(x, value); });
    }
    bool gradient(const double* x, double* values) override {
        return ask([&] {
            iterate_.assign(x, x + structure_.columns);
            return functions_.gradient(x, values);
        });
    }
    bool rows(const double* x, double* values) override {
        return ask([&] { return functions_.rows(x, values); });
    }
    bool jacobian(const double* x, double* values) override {
        return ask([&] { return functions_.jacobian(x, values); });
    }
    bool hessian(const double* x, double factor, const double* multipliers,
                 double* values) override {
        return ask([&] { return functions_.hessian(x, factor, multipliers, values); });
    }
    bool progress(const NlpProgress& progress) override {
        return ask([&] { return functions_.progress(progress) && !stop_; });
    }
    void execute();

    // On the calling thread.
    std::optional<NlpResult> wait(const std::function<bool()>& should_stop);
    void leave();
    std::vector<double>& iterate() { return iterate_; }

  private:
    bool ask(const std::function<bool()>& evaluation);
    void answer(const std::function<bool()>& evaluation);

    const NlpStructure structure_;
    NlpFunctions& functions_;
    const std::vector<double> lower_, upper_, row_lower_, row_upper_;
    const std::vector<double> x_, multipliers_, lower_multipliers_, upper_multipliers_;
    const NlpOptions options_;
    // The calling thread's.
    std::vector<double> iterate_;
    bool stop_ = false;
    // The worker's until it has finished.
    NlpResult result_;
    std::exception_ptr failure_;
    // Under the mutex.
    std::mutex mutex_;
    std::condition_variable asked_, answered_;
    const std::function<bool()>* question_ = nullptr;
    bool answer_ = false;
    std::exception_ptr exception_;  // of the evaluation
    bool finished_ = false;
    bool left_ = false;
};

void BackgroundRun::execute() {
    const NlpBounds bounds{lower_.data(), upper_.data(), row_lower_.data(), row_upper_.data()};
    const NlpStart start{pointer(x_), pointer(multipliers_), pointer(lower_multipliers_),
                         pointer(upper_multipliers_)};
    try {
        result_ = solve_nlp(structure_, *this, bounds, start, options_);
    } catch (...) {
        failure_ = std::current_exception();
    }
    {
        const std::lock_guard lock(mutex_);
        finished_ = true;
    }
    asked_.notify_one();
}

bool BackgroundRun::ask(const std::function<bool()>& evaluation) {
    while (process_exiting()) pause();
    std::unique_lock lock(mutex_);
    if (left_) throw Left();
    question_ = &evaluation;
    asked_.notify_one();
    answered_.wait(lock, [this] { return question_ == nullptr || left_; });
    if (question_ != nullptr) {
        question_ = nullptr;
        throw Left();
    }
    if (exception_) std::rethrow_exception(std::exchange(exception_, nullptr));
    return answer_;
}

void BackgroundRun::answer(const std::function<bool()>& evaluation) {
    bool result = false;
    std::exception_ptr exception;
    try {
        result = evaluation();
    } catch (...) {
        exception = std::current_exception();
    }
    {
        const std::lock_guard lock(mutex_);
        answer_ = result;
        exception_ = exception;
        question_ = nullptr;
    }
    answered_.notify_one();
}

std::optional<NlpResult> BackgroundRun::wait(const std::function<bool()>& should_stop) {
    using Clock = std::chrono::steady_clock;
    const unsigned generation = fork_generation();
    Clock::time_point deadline = Clock::time_point::max();
    while (true) {
        const std::function<bool()>* question = nullptr;
        {
            std::unique_lock lock(mutex_);
            asked_.wait_for(lock, kPollInterval,
                            [this] { return finished_ || question_ != nullptr; });
            if (finished_) break;
            question = question_;
        }
        if (question != nullptr) answer(*question);
        // A callback may have forked, and this be the child.
        if (generation != fork_generation()) {
            fail(NLRA_ERROR_STATE, "a solve does not go on in a forked child");
        }
        if (Clock::now() >= deadline) return std::nullopt;
        if (deadline == Clock::time_point::max() && should_stop()) {
            stop_ = true;
            deadline = Clock::now() + kStopPatience;
        }
    }
    if (failure_) std::rethrow_exception(failure_);
    return std::move(result_);
}

void BackgroundRun::leave() {
    {
        const std::lock_guard lock(mutex_);
        left_ = true;
    }
    answered_.notify_one();
}

}  // namespace

std::optional<NlpResult> solve_nlp_stoppable(const NlpStructure& structure, NlpFunctions& functions,
                                             const NlpBounds& bounds, const NlpStart& start,
                                             const NlpOptions& options,
                                             const std::function<bool()>& should_stop,
                                             std::vector<double>& last_iterate) {
    if (!runs_directly(structure)) {
        const auto background =
            std::make_shared<BackgroundRun>(structure, functions, bounds, start, options);
        // However this ends, the functions are out of the worker's reach then.
        const struct Leave {
            BackgroundRun& run;
            ~Leave() { run.leave(); }
        } leave{*background};
        try {
            run_on_worker([background] { background->execute(); });
            std::optional<NlpResult> result = background->wait(should_stop);
            if (!result) last_iterate = std::move(background->iterate());
            return result;
        } catch (const std::system_error&) {
            // No thread to be had: stops are served late, but the solve works.
        }
    }
    return solve_nlp(structure, functions, bounds, start, options);
}

}  // namespace nlra
