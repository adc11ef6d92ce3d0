// One HiGHS instance and its runs. Internal to linear/: the only header that includes Highs.h.
//
// A run happens on the calling thread when it is short enough to poll well, otherwise on a worker
// thread: HiGHS does not look at its callbacks for seconds inside a factorization, presolve or a
// sub-MIP. The calling thread then forwards log lines, polls the monitor, and leaves an instance
// that ignores a stop to its worker, which frees it when it is done.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Highs.h"
#include "linear/highs_log.hpp"
#include "search/monitor.hpp"

namespace nlra {

// Options of a run; those that did not change since the last run are not set again.
struct HighsSettings {
    std::string solver = "simplex";
    int simplex_strategy = 1;
    bool presolve = true;
    bool crossover = true;
    bool relaxation = false;
    double time_limit = kHighsInf;
    double primal_tolerance = 1e-7;
    double dual_tolerance = 1e-7;
    double mip_tolerance = 1e-6;
    double rel_gap = 1e-4;
    double abs_gap = 1e-6;
    double heuristic_effort = 0.05;
    bool feasibility_jump = true;
    double objective_bound = kHighsInf;
    int iteration_limit = kHighsIInf;
    int node_limit = kHighsIInf;
    int solution_limit = kHighsIInf;
    int presolve_rules_off = 0;
    int threads = 1;
    int seed = 0;
    int log_level = 0;
};

// What is known of a mixed integer run while it is under way, in the model's own space.
struct MipProgress {
    bool has_solution = false;
    std::vector<double> x;
    int improvements = 0;
    double bound = 0.0;
    bool has_bound = false;
    int64_t nodes = 0;
    int64_t iterations = 0;
};

enum class RunEnd {
    kReturned,   // run() returned: ask the instance
    kAbandoned,  // the instance belongs to its worker now: only what `progress` says is known
};

class HighsSession : public std::enable_shared_from_this<HighsSession> {
  public:
    HighsSession();

    // Run HiGHS. With `on_worker` unset the callbacks poll the monitor directly. Exceptions of the
    // run are passed on; the session must be dropped after one, as after kAbandoned.
    RunEnd run(const HighsSettings& settings, bool on_worker, Monitor& monitor);

    HighsStatus status() const { return status_; }
    // Valid after run(), whatever its end.
    const MipProgress& progress() const { return progress_; }
    // Forget the model and all that came of it. Settings stay, as every run says what it wants.
    void clear();
    // The instance is about to get a model of this size, in rows, columns and coefficients.
    void note_size(int64_t entries) { most_entries_ = std::max(most_entries_, entries); }
    int64_t most_entries() const { return most_entries_; }

    // Set when the iteration limit stopped a mixed integer run.
    bool iteration_limit_hit() const { return iteration_limit_hit_; }

    Highs highs;

  private:
    struct LogLine {
        std::string text;
        int level;
        int type;
    };

    void apply(const HighsSettings& settings);
    template <class Value>
    void set(const char* name, Value& current, const Value& wanted);
    void execute();
    bool wait_for_worker(Monitor& monitor);
    void callback(int type, const std::string& message, const HighsCallbackOutput* out,
                  HighsCallbackInput* in);
    void note_progress(const HighsCallbackOutput& out);
    void take_message(const std::string& message, HighsLogType type);
    void emit(LogLine line);
    bool stop_requested();

    HighsSettings settings_;
    int64_t most_entries_ = 0;
    bool settings_known_ = false;
    Monitor* direct_ = nullptr;  // monitor of a run on the calling thread
    std::atomic<bool> stop_{false};
    std::string partial_line_;
    LogFilter log_filter_;
    HighsStatus status_ = HighsStatus::kOk;
    bool iteration_limit_hit_ = false;

    // Shared between the two threads of a run, under the mutex.
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<LogLine> lines_;
    MipProgress shared_progress_;
    bool finished_ = false;
    std::exception_ptr failure_;

    MipProgress progress_;
};

}  // namespace nlra
