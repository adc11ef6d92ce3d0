// Threads that run a solver while the thread that called optimize waits, polls and can walk away
// from a solver that does not stop in time. Knows no solver.
#pragma once

#include <functional>

namespace nlra {

// Run `job` on an idle thread of the process-wide pool, or on a new one. Returns at once; the job
// must tell its end itself and must not throw. Pool threads receive no signals and live until the
// process ends, since a job may never end.
void run_on_worker(std::function<void()> job);

// Incremented in every child of fork(). A wait for a job of the parent would never end there.
unsigned fork_generation();

// In a child of fork(): forget the parent's threads.
void workers_after_fork();

// True once the process is exiting. A job that polls this should then never return to a solver,
// whose library may be torn down around it.
bool process_exiting();

}  // namespace nlra
