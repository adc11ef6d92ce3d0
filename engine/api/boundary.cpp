#include "api/boundary.hpp"

#include <exception>
#include <new>

namespace nlra {
namespace {

bool names_the_call(int code) {
    switch (code) {
        case NLRA_ERROR_MEMORY:
        case NLRA_ERROR_ARGUMENT:
        case NLRA_ERROR_BUSY:
        case NLRA_ERROR_NOTSTARTED:
        case NLRA_ERROR_CLOSED:
            return true;
        default:
            return false;
    }
}

}  // namespace

Hold::Hold(nlra_problem& problem, Access access) {
    if (access == Access::kPeek) return;
    if (!problem.busy.exchange(true, std::memory_order_acquire)) {
        problem.holder.store(std::this_thread::get_id(), std::memory_order_relaxed);
        held_ = &problem;
        return;
    }
    // A callback of this thread's own solve may share what the solve holds.
    if (access == Access::kShare &&
        problem.holder.load(std::memory_order_relaxed) == std::this_thread::get_id()) {
        return;
    }
    fail(NLRA_ERROR_BUSY, problem.solving.load() ? "the problem is being solved"
                                                 : "the problem is in use by another thread");
}

Hold::~Hold() {
    if (held_ == nullptr) return;
    held_->holder.store(std::thread::id(), std::memory_order_relaxed);
    held_->busy.store(false, std::memory_order_release);
}

void require_started() {
    if (!environment().started.load()) {
        fail(NLRA_ERROR_NOTSTARTED, "the library has not been started");
    }
}

void require_usable(const nlra_problem* problem) {
    if (problem == nullptr) fail(NLRA_ERROR_ARGUMENT, "the problem handle is null");
    if (!environment().started.load()) fail(NLRA_ERROR_CLOSED, "the library has been stopped");
}

void require_usable(const nslp_problem* problem) {
    if (problem == nullptr) fail(NLRA_ERROR_ARGUMENT, "the nonlinear problem handle is null");
    if (!environment().nonlinear_started.load()) {
        fail(NLRA_ERROR_CLOSED, "the nonlinear solver has been stopped");
    }
    if (problem->base == nullptr) {
        fail(NLRA_ERROR_STATE, "the problem beneath this nonlinear problem has been destroyed");
    }
}

int store_exception(ErrorSlot& slot, const char* function) noexcept {
    int code = NLRA_ERROR_SOLVER;
    try {
        try {
            throw;
        } catch (const Error& error) {
            code = error.code;
            slot.set(code, names_the_call(code) ? function + (": " + error.text) : error.text);
        } catch (const std::bad_alloc&) {
            code = NLRA_ERROR_MEMORY;
            slot.set(code, std::string(function) + ": out of memory");
        } catch (const std::exception& error) {
            slot.set(code, std::string(function) + ": unexpected failure: " + error.what());
        } catch (...) {
            slot.set(code, std::string(function) + ": unexpected failure");
        }
    } catch (...) {
        // No memory for the text.
        slot.set(code, {});
    }
    return code;
}

}  // namespace nlra
