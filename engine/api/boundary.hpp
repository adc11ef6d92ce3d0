// The one wrapper that every C function goes through: it checks the handle, guards the problem
// against being used twice at a time, runs the body, and turns exceptions into a status and a last
// error. No C function has a try of its own.
#pragma once

#include "api/environment.hpp"
#include "api/nonlinear_problem.hpp"
#include "api/problem.hpp"

namespace nlra {

// What a call does to its problem, and hence when it is refused.
enum class Access {
    kPeek,    // reads figures that a solve never moves under a reader, or is made for any thread
    kShare,   // reads or writes what only the thread that solves may touch meanwhile
    kChange,  // changes, solves or frees: refused while anything else goes on
};

// Take the problem for this thread; throws Error NLRA_ERROR_BUSY when that cannot be. True when it
// was free before, and so has to be given back; false when this thread had it already.
bool take(nlra_problem& problem, Access access);
void give_back(nlra_problem& problem);

// Holds the problem for the time of one call; throws Error NLRA_ERROR_BUSY when it cannot.
class Hold {
  public:
    Hold(nlra_problem& problem, Access access);
    ~Hold();
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

  private:
    nlra_problem& problem_;
    const Access access_;
    bool taken_ = false;
};

void require_handle(const nlra_problem* problem);
// Throw unless the handle is not null and the library is started.
void require_usable(const nlra_problem* problem);
// The same for the nonlinear solver; the problem beneath must still be there.
void require_usable(const nslp_problem* problem);
void require_started();

// Inside a catch block: store the exception as the last error, return its code. Errors that stem
// from the way a function was called get the function's name in front.
int store_exception(ErrorSlot& slot, const char* function) noexcept;

// Run the body; what it throws becomes the slot's error and the status.
template <class Body>
int guarded(ErrorSlot& slot, const char* function, Body&& body) noexcept {
    try {
        body();
    } catch (...) {
        return store_exception(slot, function);
    }
    slot.clear();
    return 0;
}

// Calls that concern the environment.
template <class Body>
int call_environment(const char* function, Body&& body) noexcept {
    return guarded(environment().error, function, body);
}

// Calls on a problem whose model need not be settled. The error of a null handle goes to the
// environment.
template <class Body>
int call_unsettled(nlra_problem* problem, const char* function, Access access,
                   Body&& body) noexcept {
    return guarded(problem != nullptr ? problem->error : environment().error, function, [&] {
        require_usable(problem);
        const Hold hold(*problem, access);
        body(*problem);
    });
}

// All other calls on a problem.
template <class Body>
int call(nlra_problem* problem, const char* function, Access access, Body&& body) noexcept {
    return call_unsettled(problem, function, access, [&](nlra_problem& settled) {
        settled.settle();
        body(settled);
    });
}

// Calls on a problem that take something back, which must not depend on the library running: what
// was registered may not live longer than its owner.
template <class Body>
int call_to_undo(nlra_problem* problem, const char* function, Body&& body) noexcept {
    return guarded(problem != nullptr ? problem->error : environment().error, function, [&] {
        require_handle(problem);
        const Hold hold(*problem, Access::kShare);
        body(*problem);
    });
}

// Calls on a nonlinear problem: the guard is that of the problem beneath. The last error of both is
// that of the later call.
template <class Body>
int call(nslp_problem* problem, const char* function, Access access, Body&& body) noexcept {
    if (problem != nullptr && problem->base != nullptr) problem->base->error.clear();
    return guarded(problem != nullptr ? problem->error : environment().error, function, [&] {
        require_usable(problem);
        const Hold hold(*problem->base, access);
        problem->base->settle();
        body(*problem);
    });
}

}  // namespace nlra
