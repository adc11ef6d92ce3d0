#include "search/monitor.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "api/environment.hpp"
#include "api/messages.hpp"
#include "api/problem.hpp"

namespace nlra {
namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(20);

}  // namespace

Monitor::Monitor(nlra_problem& problem)
    : problem_(problem),
      begin_(Clock::now()),
      last_poll_(begin_),
      time_limit_(problem.controls.get_double(kTimeLimit)),
      log_level_(static_cast<int>(problem.controls.get_int(kLogLevel))),
      stops_(environment().stops.load()) {
    if (!has_listeners(problem)) log_level_ = 0;
}

void Monitor::log(int level, const char* format, ...) {
    if (level > log_level_) return;
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (length < 0) return;
    log_line(level, {line, std::min(static_cast<size_t>(length), sizeof line - 1)});
}

void Monitor::log_line(int level, std::string_view line, int msgtype) {
    if (level <= log_level_) send_message(problem_, line, msgtype);
}

bool Monitor::should_stop() {
    if (reason() != NLRA_STOP_NONE) return true;
    const Clock::time_point now = Clock::now();
    if (now - last_poll_ < kPollInterval) return false;
    last_poll_ = now;
    if (environment().stops.load(std::memory_order_relaxed) != stops_) stop(NLRA_STOP_USER);
    if (remaining() <= 0.0) stop(NLRA_STOP_TIMELIMIT);
    // A callback may add or remove callbacks.
    const auto callbacks = problem_.checktime_callbacks;
    for (const auto& entry : callbacks) {
        if (entry.function(&problem_, entry.data) != 0) stop(NLRA_STOP_USER);
    }
    return reason() != NLRA_STOP_NONE;
}

void Monitor::stop(int reason) {
    int none = NLRA_STOP_NONE;
    problem_.stop_request.compare_exchange_strong(none, reason);
}

int Monitor::reason() const { return problem_.stop_request.load(std::memory_order_relaxed); }

double Monitor::elapsed() const {
    return std::chrono::duration<double>(Clock::now() - begin_).count();
}

double Monitor::remaining() const {
    if (time_limit_ >= kInfinity) return kInfinity;
    return std::max(0.0, time_limit_ - elapsed());
}

}  // namespace nlra
