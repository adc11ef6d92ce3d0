// The interpreter lock as scopes.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <optional>

#include "support/interpreter.hpp"
#include "support/python.hpp"

namespace nalora {

inline bool is_main_thread() noexcept { return syscall(SYS_gettid) == getpid(); }

// Call what asks for the interpreter lock. While the interpreter shuts down it ends every other
// thread that asks, by unwinding it, which C++ code in between does not survive. Such a thread (a
// daemon in the middle of a solve) sleeps instead until the process is gone.
template <class Ask>
auto ask_for_lock(Ask ask) noexcept {
    try {
        // The main thread shuts the interpreter down and may pass through here on its way.
        if (!interpreter_is_finalizing() || is_main_thread()) return ask();
    } catch (...) {
        // The unwinding of the thread. It stays in here: it may not be caught and then dropped.
        while (true) pause();
    }
    while (true) pause();
}

// Holds the interpreter lock, whatever thread this is (callbacks of the engine).
class GilHeld {
  public:
    GilHeld() noexcept : state_(ask_for_lock([] { return PyGILState_Ensure(); })) {}
    ~GilHeld() { PyGILState_Release(state_); }
    GilHeld(const GilHeld&) = delete;
    GilHeld& operator=(const GilHeld&) = delete;

  private:
    PyGILState_STATE state_;
};

// The same where the lock is mostly held already, which is then found out quickly.
class GilEnsured {
  public:
    GilEnsured() noexcept {
        if (PyGILState_Check() == 0) lock_.emplace();
    }

  private:
    std::optional<GilHeld> lock_;
};

// Lets other threads run while this one works without touching Python objects.
class GilReleased {
  public:
    GilReleased() noexcept : state_(PyEval_SaveThread()) {}
    ~GilReleased() {
        ask_for_lock([this] {
            PyEval_RestoreThread(state_);
            return true;
        });
    }
    GilReleased(const GilReleased&) = delete;
    GilReleased& operator=(const GilReleased&) = delete;

  private:
    PyThreadState* state_;
};

}  // namespace nalora
