#include "linear/worker.hpp"

#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace nlra {
namespace {

struct Worker {
    std::mutex mutex;
    std::condition_variable wake;
    std::function<void()> job;
};

struct Pool {
    std::mutex mutex;
    std::vector<Worker*> idle;
};

std::atomic<unsigned> generation{0};
std::atomic<bool> exiting{false};
std::atomic<int> busy{0};

// Destructors of the solvers' libraries would pull the ground from under a worker that is still in
// there, such as one that was walked away from. Then the process ends without them.
void at_exit(int status, void*) {
    exiting.store(true);
    if (busy.load() == 0) return;
    std::fflush(nullptr);
    _exit(status);
}

// Never destroyed: workers outlive main().
Pool*& pool_pointer() {
    static Pool* pool = [] {
        on_exit(at_exit, nullptr);
        return new Pool;
    }();
    return pool;
}

void work(Pool* pool, Worker* self) {
    while (true) {
        std::function<void()> job;
        {
            std::unique_lock<std::mutex> lock(self->mutex);
            self->wake.wait(lock, [self] { return static_cast<bool>(self->job); });
            job.swap(self->job);
        }
        job();
        job = nullptr;
        busy.fetch_sub(1);
        std::lock_guard<std::mutex> lock(pool->mutex);
        pool->idle.push_back(self);
    }
}

// Signals must reach the program's own threads: an interpreter acts on them in its main thread.
class BlockedSignals {
  public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  private:
    sigset_t before_;
};

}  // namespace

void run_on_worker(std::function<void()> job) {
    Pool* pool = pool_pointer();
    Worker* worker = nullptr;
    {
        std::lock_guard<std::mutex> lock(pool->mutex);
        if (!pool->idle.empty()) {
            worker = pool->idle.back();
            pool->idle.pop_back();
        } else {
            // Room for its return, which must not fail.
            pool->idle.reserve(pool->idle.capacity() + 1);
        }
    }
    if (worker == nullptr) {
        auto fresh = std::make_unique<Worker>();
        fresh->job = std::move(job);
        BlockedSignals blocked;
        std::thread(work, pool, fresh.get()).detach();
        busy.fetch_add(1);
        static_cast<void>(fresh.release());
        return;
    }
    busy.fetch_add(1);
    {
        std::lock_guard<std::mutex> lock(worker->mutex);
        worker->job = std::move(job);
    }
    worker->wake.notify_one();
}

unsigned fork_generation() { return generation.load(std::memory_order_relaxed); }

void workers_after_fork() {
    generation.fetch_add(1, std::memory_order_relaxed);
    busy.store(0);
    // The parent's pool may be locked by a thread that does not exist here.
    pool_pointer() = new Pool;
}

bool process_exiting() { return exiting.load(std::memory_order_relaxed); }

}  // namespace nlra
