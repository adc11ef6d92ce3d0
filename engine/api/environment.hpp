// The process-wide state of the library: whether it is started, checked mode, the handlers of
// global messages, and which problem handles are alive. Only api/ uses it.
#pragma once

#include <atomic>
#include <mutex>
#include <unordered_set>
#include <vector>

#include "api/last_error.hpp"
#include "api/problem.hpp"
#include "nlra.h"

namespace nlra {

struct Environment {
    std::atomic<bool> started{false};
    std::atomic<unsigned> stops{0};  // how often the library was stopped
    std::atomic<bool> nonlinear_started{false};
    std::atomic<bool> checked{true};
    std::atomic<bool> consistent{false};  // recorded only: there is one execution path
    ErrorSlot error;

    std::mutex mutex;  // guards what follows; never held while a handler runs
    std::vector<CallbackEntry<NLRAgemessagecb>> handlers;  // by falling priority
    std::unordered_set<void*> problems;                    // live handles
};

// Lives for ever, so that handles can be freed while the process ends.
Environment& environment();

inline bool checked_mode() { return environment().checked.load(std::memory_order_relaxed); }

}  // namespace nlra
