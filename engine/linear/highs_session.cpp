#include "linear/highs_session.hpp"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <system_error>
#include <thread>
#include <utility>

#include "linear/highs_log.hpp"
#include "linear/worker.hpp"
#include "nlra.h"
#include "store/error.hpp"

namespace nlra {
namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(20);
// How long a stop may take before the instance is left to its worker. HiGHS keeps its own time
// limit well, but needs a moment to bring its result back to the original model.
constexpr auto kStopPatience = std::chrono::milliseconds(250);
constexpr auto kTimeLimitPatience = std::chrono::milliseconds(1000);
// An interior point method that needs more makes no progress.
constexpr HighsInt kMaxInteriorIterations = 500;

// HiGHS keeps one task scheduler per thread, whose size is fixed by the first run there.
void prepare_scheduler(int threads) {
    thread_local int current = 0;
    if (current == threads) return;
    if (current != 0) Highs::resetGlobalScheduler(true);
    current = threads;
}

[[noreturn]] void park() {
    while (true) pause();
}

}  // namespace

HighsSession::HighsSession() {
    // Before anything else, so that nothing is ever printed.
    highs.setOptionValue("log_to_console", false);
    highs.setOptionValue("output_flag", false);
    // The interior point methods of HiGHS that need further libraries are never chosen.
    highs.setOptionValue("mip_ipm_solver", "ipx");
    highs.setOptionValue("large_matrix_value", kHighsInf);
    highs.setCallback([this](int type, const std::string& message, const HighsCallbackOutput* out,
                             HighsCallbackInput* in, void*) { callback(type, message, out, in); },
                      nullptr);
    highs.startCallback(kCallbackSimplexInterrupt);
    highs.startCallback(kCallbackIpmInterrupt);
    highs.startCallback(kCallbackMipInterrupt);
    highs.startCallback(kCallbackMipImprovingSolution);
}

// Setting an option costs HiGHS a search by name through all of them: in a series of short solves
// that would show, so only what changed is set.
template <class Value>
void HighsSession::set(const char* name, Value& current, const Value& wanted) {
    if (settings_known_ && current == wanted) return;
    if (highs.setOptionValue(name, wanted) != HighsStatus::kOk) {
        fail(NLRA_ERROR_SOLVER, "the solver refused a value for its option %s", name);
    }
    current = wanted;
}

void HighsSession::apply(const HighsSettings& wanted) {
    HighsSettings& now = settings_;
    set("solver", now.solver, wanted.solver);
    set("simplex_strategy", now.simplex_strategy, wanted.simplex_strategy);
    if (!settings_known_ || now.presolve != wanted.presolve) {
        highs.setOptionValue("presolve", wanted.presolve ? "choose" : "off");
        now.presolve = wanted.presolve;
    }
    if (!settings_known_ || now.crossover != wanted.crossover) {
        highs.setOptionValue("run_crossover", wanted.crossover ? "on" : "off");
        now.crossover = wanted.crossover;
    }
    set("solve_relaxation", now.relaxation, wanted.relaxation);
    set("time_limit", now.time_limit, wanted.time_limit);
    set("primal_feasibility_tolerance", now.primal_tolerance, wanted.primal_tolerance);
    set("dual_feasibility_tolerance", now.dual_tolerance, wanted.dual_tolerance);
    set("mip_feasibility_tolerance", now.mip_tolerance, wanted.mip_tolerance);
    set("mip_rel_gap", now.rel_gap, wanted.rel_gap);
    set("mip_abs_gap", now.abs_gap, wanted.abs_gap);
    set("mip_heuristic_effort", now.heuristic_effort, wanted.heuristic_effort);
    set("mip_heuristic_run_feasibility_jump", now.feasibility_jump, wanted.feasibility_jump);
    set("objective_bound", now.objective_bound, wanted.objective_bound);
    if (!settings_known_ || now.iteration_limit != wanted.iteration_limit) {
        highs.setOptionValue("simplex_iteration_limit", wanted.iteration_limit);
        highs.setOptionValue("ipm_iteration_limit",
                             std::min(wanted.iteration_limit, kMaxInteriorIterations));
        now.iteration_limit = wanted.iteration_limit;
    }
    set("mip_max_nodes", now.node_limit, wanted.node_limit);
    set("mip_max_improving_sols", now.solution_limit, wanted.solution_limit);
    set("presolve_rule_off", now.presolve_rules_off, wanted.presolve_rules_off);
    set("threads", now.threads, wanted.threads);
    set("random_seed", now.seed, wanted.seed);
    if (!settings_known_ || now.log_level != wanted.log_level) {
        highs.setOptionValue("output_flag", wanted.log_level > 0);
        if (wanted.log_level > 0) {
            highs.startCallback(kCallbackLogging);
        } else {
            highs.stopCallback(kCallbackLogging);
        }
        now.log_level = wanted.log_level;
    }
    settings_known_ = true;
}

void HighsSession::clear() {
    if (highs.clearModel() == HighsStatus::kError) {
        fail(NLRA_ERROR_SOLVER, "the solver does not let go of its model");
    }
    progress_ = MipProgress();
    shared_progress_ = MipProgress();
}

RunEnd HighsSession::run(const HighsSettings& settings, bool on_worker, Monitor& monitor) {
    apply(settings);
    stop_ = false;
    finished_ = false;
    failure_ = nullptr;
    iteration_limit_hit_ = false;
    partial_line_.clear();
    log_filter_ = LogFilter();
    shared_progress_ = MipProgress();
    if (on_worker) {
        const std::shared_ptr<HighsSession> self = shared_from_this();
        try {
            run_on_worker([self] { self->execute(); });
        } catch (const std::system_error&) {
            // No thread to be had: stops are served late, but the solve works.
            on_worker = false;
            set("threads", settings_.threads, 1);
        }
    }
    if (on_worker) {
        if (!wait_for_worker(monitor)) return RunEnd::kAbandoned;
    } else {
        direct_ = &monitor;
        execute();
        direct_ = nullptr;
        progress_ = std::move(shared_progress_);
    }
    if (failure_) std::rethrow_exception(failure_);
    return RunEnd::kReturned;
}

// On the thread of the run.
void HighsSession::execute() {
    HighsStatus status = HighsStatus::kError;
    try {
        prepare_scheduler(settings_.threads);
        highs.zeroAllClocks();  // the time limit counts over an instance's life otherwise
        status = highs.run();
    } catch (...) {
        std::lock_guard<std::mutex> lock(mutex_);
        failure_ = std::current_exception();
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        status_ = status;
        finished_ = true;
    }
    changed_.notify_one();
}

// Forward log lines and poll until the run ends. False when it was left to its worker.
bool HighsSession::wait_for_worker(Monitor& monitor) {
    using Clock = std::chrono::steady_clock;
    const unsigned generation = fork_generation();
    Clock::time_point deadline = Clock::time_point::max();
    std::vector<LogLine> lines;
    bool ended = false;
    while (!ended) {
        bool left = false;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            changed_.wait_for(lock, kPollInterval, [this] { return finished_ || !lines_.empty(); });
            lines.swap(lines_);
            ended = finished_;
            left = !ended && Clock::now() >= deadline;
            if (ended || left) progress_ = std::move(shared_progress_);
        }
        for (const LogLine& line : lines) monitor.log_line(line.level, line.text, line.type);
        lines.clear();
        if (ended) break;
        // A callback may have forked, and this be the child.
        if (generation != fork_generation()) {
            fail(NLRA_ERROR_STATE, "a solve does not go on in a forked child");
        }
        if (left) return false;
        if (monitor.should_stop() && deadline == Clock::time_point::max()) {
            stop_ = true;
            deadline = Clock::now() + (monitor.reason() == NLRA_STOP_TIMELIMIT ? kTimeLimitPatience
                                                                               : kStopPatience);
        }
    }
    return true;
}

bool HighsSession::stop_requested() {
    if (direct_ != nullptr) return stop_ || direct_->should_stop();
    if (process_exiting()) park();
    return stop_.load(std::memory_order_relaxed);
}

// On the thread of the run, within HiGHS: nothing may be thrown from here.
void HighsSession::callback(int type, const std::string& message, const HighsCallbackOutput* out,
                            HighsCallbackInput* in) {
    bool interrupt = stop_.load(std::memory_order_relaxed);
    try {
        switch (type) {
            case kCallbackLogging:
                take_message(message, out->log_type);
                break;
            case kCallbackSimplexInterrupt:
            case kCallbackIpmInterrupt:
                interrupt = stop_requested();
                break;
            case kCallbackMipInterrupt:
                note_progress(*out);
                interrupt = stop_requested() || iteration_limit_hit_;
                break;
            case kCallbackMipImprovingSolution: {
                std::lock_guard<std::mutex> lock(mutex_);
                shared_progress_.has_solution = true;
                shared_progress_.x = out->mip_solution;
                ++shared_progress_.improvements;
                break;
            }
            default:
                break;
        }
    } catch (...) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!failure_) failure_ = std::current_exception();
        stop_ = interrupt = true;
    }
    // HiGHS never takes an interrupt back by itself, not even for the next run.
    if (in != nullptr) in->user_interrupt = interrupt;
}

void HighsSession::note_progress(const HighsCallbackOutput& out) {
    std::lock_guard<std::mutex> lock(mutex_);
    shared_progress_.bound = out.mip_dual_bound;
    shared_progress_.has_bound = true;
    shared_progress_.nodes = out.mip_node_count;
    shared_progress_.iterations = out.mip_total_lp_iterations;
    iteration_limit_hit_ = out.mip_total_lp_iterations >= settings_.iteration_limit;
}

// HiGHS sends pieces of lines as well as several lines at once.
void HighsSession::take_message(const std::string& message, HighsLogType type) {
    const int message_type = type == HighsLogType::kError     ? NLRA_MSG_ERROR
                             : type == HighsLogType::kWarning ? NLRA_MSG_WARNING
                                                              : NLRA_MSG_INFO;
    const int warning_level = LogFilter::warning_level(message);
    partial_line_ += message;
    size_t begin = 0;
    for (size_t end; (end = partial_line_.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
        std::string_view line(partial_line_.data() + begin, end - begin);
        while (!line.empty() && line.back() == ' ') line.remove_suffix(1);
        const int level = message_type == NLRA_MSG_INFO ? log_filter_.level(line) : warning_level;
        if (level == 0 || level > settings_.log_level) continue;
        emit({std::string(line), level, message_type});
    }
    partial_line_.erase(0, begin);
}

void HighsSession::emit(LogLine line) {
    if (direct_ != nullptr) {
        direct_->log_line(line.level, line.text, line.type);
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(std::move(line));
    }
    changed_.notify_one();
}

}  // namespace nlra
