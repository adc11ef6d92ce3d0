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

bool take(nlra_problem& problem, Access access) {
    const std::thread::id self = std::this_thread::get_id();
    if (!problem.busy.exchange(true, std::memory_order_acquire)) {
        problem.holder.store(self, std::memory_order_relaxed);
        return true;
    }
    const bool own = problem.holder.load(std::memory_order_relaxed) == self;
    // A callback of this thread's own solve may share what the solve holds, no more.
    if (own && (access == Access::kShare || !problem.changing)) return false;
    fail(NLRA_ERROR_BUSY, problem.solving.load() ? "the problem is being solved"
                                                 : "the problem is in use by another thread");
}

void give_back(nlra_problem& problem) {
    problem.holder.store(std::thread::id(), std::memory_order_relaxed);
    problem.busy.store(false, std::memory_order_release);
}

Hold::Hold(nlra_problem& problem, Access access) : problem_(problem), access_(access) {
    if (access == Access::kPeek) return;
    taken_ = take(problem, access);
    if (access == Access::kChange) problem.changing = true;
}

Hold::~Hold() {
    if (access_ == Access::kChange) problem_.changing = false;
    if (taken_ && !problem_.kept) give_back(problem_);
}

void require_started() {
    if (!environment().started.load()) {
        fail(NLRA_ERROR_NOTSTARTED, "the library has not been started");
    }
}

void require_handle(const nlra_problem* problem) {
    if (problem == nullptr) fail(NLRA_ERROR_ARGUMENT, "the problem handle is null");
}

void require_usable(const nlra_problem* problem) {
    require_handle(problem);
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
