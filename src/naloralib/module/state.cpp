#include "module/state.hpp"

#include <pthread.h>

#include <new>

namespace nalora {

namespace {

// Raw storage: the locks are never destroyed, since objects may die after the module.
alignas(Locks) unsigned char lock_storage[sizeof(Locks)];
constinit ModuleState module_state;

void renew_locks() noexcept { ::new (static_cast<void*>(lock_storage)) Locks; }

}  // namespace

Locks& locks() noexcept { return *std::launder(reinterpret_cast<Locks*>(lock_storage)); }

ModuleState& state() noexcept { return module_state; }

void make_locks() {
    renew_locks();
    // Another thread may hold a lock at the moment of a fork; in the child it would never let go.
    if (pthread_atfork(nullptr, nullptr, renew_locks) != 0) throw std::bad_alloc();
}

}  // namespace nalora
