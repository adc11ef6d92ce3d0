#include "linear/session_pool.hpp"

#include <mutex>
#include <utility>
#include <vector>

namespace nlra {
namespace {

constexpr size_t kMostSessions = 8;
// Rows, columns and coefficients together. HiGHS keeps some hundreds of bytes for each.
constexpr int64_t kMostEntries = 5000;

struct SessionPool {
    std::mutex mutex;
    std::vector<std::shared_ptr<HighsSession>> idle;
};

// Never destroyed: problems may be freed while the process ends.
SessionPool*& pool_pointer() {
    static SessionPool* pool = new SessionPool;
    return pool;
}

}  // namespace

std::shared_ptr<HighsSession> take_session() {
    SessionPool& pool = *pool_pointer();
    {
        const std::lock_guard<std::mutex> lock(pool.mutex);
        if (!pool.idle.empty()) {
            std::shared_ptr<HighsSession> session = std::move(pool.idle.back());
            pool.idle.pop_back();
            return session;
        }
    }
    return std::make_shared<HighsSession>();
}

void return_session(std::shared_ptr<HighsSession> session) noexcept {
    if (session->most_entries() > kMostEntries) return;
    try {
        session->clear();
        SessionPool& pool = *pool_pointer();
        const std::lock_guard<std::mutex> lock(pool.mutex);
        if (pool.idle.size() < kMostSessions) pool.idle.push_back(std::move(session));
    } catch (...) {
        // No memory to keep it.
    }
}

void sessions_after_fork() { pool_pointer() = new SessionPool; }

}  // namespace nlra
