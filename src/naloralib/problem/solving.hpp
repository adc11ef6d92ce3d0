// Running a solve of the library from Python. For problem/ and mirror/.
#pragma once

#include <chrono>

#include "problem/problem.hpp"

namespace nalora {

// While it lives, no other thread can change, solve or replace what the library holds of this
// problem, whoever has the interpreter lock. SolverError when somebody has it already.
class ProblemHold {
  public:
    explicit ProblemHold(ProblemObject* p);
    ~ProblemHold();
    ProblemHold(const ProblemHold&) = delete;
    ProblemHold& operator=(const ProblemHold&) = delete;

    NLRAprob prob() const noexcept { return prob_; }

  private:
    NLRAprob prob_;
};

// While it lives, the problem is held, and the library's solves on this problem look out for
// signals: when a handler of the interpreter raises (Ctrl-C), the solve is stopped and the
// exception stays set. Works with the interpreter lock held or released by the solving thread.
class SignalWatch {
  public:
    explicit SignalWatch(ProblemObject* p);
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

  private:
    using Clock = std::chrono::steady_clock;
    static int check(NLRAprob prob, void* data) noexcept;

    ProblemHold hold_;
    Clock::time_point next_check_;
};

}  // namespace nalora
