// Running a solve of the library from Python. For problem/ and mirror/.
#pragma once

#include <chrono>

#include "problem/problem.hpp"

namespace nalora {

// While it lives, the library's solves on this problem look out for signals: when a handler of the
// interpreter raises (Ctrl-C), the solve is stopped and the exception stays set. Works with the
// interpreter lock held or released by the solving thread.
class SignalWatch {
  public:
    explicit SignalWatch(ProblemObject* p);
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

  private:
    using Clock = std::chrono::steady_clock;
    static int check(NLRAprob prob, void* data) noexcept;

    NLRAprob prob_;
    Clock::time_point next_check_;
};

}  // namespace nalora
