// What a running solve shares with the outside: log lines out, requests to stop in. Adapters call
// it on the thread that called optimize only.
#pragma once

#include <chrono>
#include <string_view>

struct nlra_problem;

namespace nlra {

class Monitor {
  public:
    // The solve begins now. Its caller has cleared the stop request of an earlier one.
    explicit Monitor(nlra_problem& problem);

    // One log line (no newline) through the problem's message callbacks; dropped unless the log
    // level reaches `level` (1 normal, 2 detailed).
    void log(int level, const char* format, ...) __attribute__((format(printf, 3, 4)));
    void log_line(int level, std::string_view line, int msgtype = 1);
    // Lines above this level need not be made at all. 0 also where nobody listens.
    int log_level() const { return log_level_; }

    // Poll: runs the check-time callbacks at most every 20 ms, looks at the time limit, at
    // NLRAinterrupt and at whether the library was stopped. True once the solve must stop; cheap
    // enough for every iteration.
    bool should_stop();
    // Make the solve stop for this reason (the first one counts).
    void stop(int reason);
    int reason() const;        // NLRA_STOP_..., 0 while none
    double elapsed() const;    // seconds since the solve began
    double remaining() const;  // seconds of the time limit left, at least 0; kInfinity without one

  private:
    friend class DetailLog;
    using Clock = std::chrono::steady_clock;

    nlra_problem& problem_;
    Clock::time_point begin_;
    Clock::time_point last_poll_;
    double time_limit_;
    int log_level_;
    unsigned stops_;  // of the library, when the solve began
};

// While it lives, the lines of a solver that does part of the work count as details.
class DetailLog {
  public:
    explicit DetailLog(Monitor& monitor) : monitor_(monitor), level_(monitor.log_level_) {
        monitor.log_level_ = level_ > 0 ? level_ - 1 : 0;
    }
    ~DetailLog() { monitor_.log_level_ = level_; }
    DetailLog(const DetailLog&) = delete;
    DetailLog& operator=(const DetailLog&) = delete;

  private:
    Monitor& monitor_;
    const int level_;
};

}  // namespace nlra
