// The last error of a handle, kept for each thread: what one thread's call reports is there for
// that thread until its next call, whatever others do with the handle meanwhile.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace nlra {

struct LastError {
    int code = 0;
    std::string text;
};

class ErrorSlot {
  public:
    void set(int code, std::string_view text) noexcept;
    // The calling thread's last call has succeeded.
    void clear() noexcept {
        if (any_.load(std::memory_order_relaxed)) clear_own();
    }
    LastError get() const;

  private:
    struct Entry {
        std::thread::id thread;
        LastError error;
    };

    void clear_own() noexcept;

    std::atomic<bool> any_{false};
    mutable std::mutex mutex_;
    std::vector<Entry> entries_;
};

}  // namespace nlra
