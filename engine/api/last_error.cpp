#include "api/last_error.hpp"

#include <algorithm>
#include <new>

#include "nlra.h"

namespace nlra {
namespace {

// Threads that failed and went away leave their entries behind: the oldest ones go first.
constexpr size_t kMostEntries = 32;

}  // namespace

void ErrorSlot::set(int code, std::string_view text) noexcept {
    const std::thread::id self = std::this_thread::get_id();
    const std::lock_guard lock(mutex_);
    try {
        std::erase_if(entries_, [&](const Entry& entry) { return entry.thread == self; });
        if (entries_.size() >= kMostEntries) entries_.erase(entries_.begin());
        // The entry first: its code alone is better than nothing when there is no memory left.
        entries_.push_back({self, {code, std::string()}});
        any_.store(true, std::memory_order_relaxed);
        entries_.back().error.text = text;
    } catch (const std::bad_alloc&) {
        // The status that the call returns still tells the code.
    }
}

void ErrorSlot::clear_own() noexcept {
    const std::thread::id self = std::this_thread::get_id();
    const std::lock_guard lock(mutex_);
    std::erase_if(entries_, [&](const Entry& entry) { return entry.thread == self; });
    any_.store(!entries_.empty(), std::memory_order_relaxed);
}

LastError ErrorSlot::get() const {
    const std::thread::id self = std::this_thread::get_id();
    const std::lock_guard lock(mutex_);
    for (const Entry& entry : entries_) {
        if (entry.thread != self) continue;
        LastError error = entry.error;
        if (error.text.empty() && error.code == NLRA_ERROR_MEMORY) error.text = "out of memory";
        return error;
    }
    return {};
}

}  // namespace nlra
