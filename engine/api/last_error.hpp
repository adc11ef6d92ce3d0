// The last error of a handle, kept for each thread: what one thread's call reports is there for
// that thread until its next call, whatever others do with the handle meanwhile.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace nlra {

class ErrorSlot {
  public:
    void set(int code, std::string_view text) noexcept;
    // The calling thread's last call has succeeded.
    void clear() noexcept {
        if (any_.load(std::memory_order_relaxed)) clear_own();
    }
    // The calling thread's error: its code (0: none); the text goes out as by put_text.
    void read(int* code, char* text, int maxbytes, int* nbytes) const noexcept;

  private:
    struct Entry {
        std::thread::id thread;
        int code = 0;
        std::string text;
    };

    void clear_own() noexcept;

    std::atomic<bool> any_{false};
    mutable std::mutex mutex_;
    std::vector<Entry> entries_;
    Entry spare_;  // for when there is no memory: without a text of its own
};

}  // namespace nlra
