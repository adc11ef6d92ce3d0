#include "api/last_error.hpp"

#include <new>

#include "api/text_out.hpp"

namespace nlra {
namespace {

// Threads that failed and went away leave their entries behind: the oldest ones go first.
constexpr size_t kMostEntries = 32;

}  // namespace

void ErrorSlot::set(int code, std::string_view text) noexcept {
    clear();
    const std::thread::id self = std::this_thread::get_id();
    const std::lock_guard lock(mutex_);
    any_.store(true, std::memory_order_relaxed);
    try {
        if (entries_.size() >= kMostEntries) entries_.erase(entries_.begin());
        entries_.push_back({self, code, std::string(text)});
    } catch (const std::bad_alloc&) {
        spare_.thread = self;
        spare_.code = code;
    }
}

void ErrorSlot::clear_own() noexcept {
    const std::thread::id self = std::this_thread::get_id();
    const std::lock_guard lock(mutex_);
    std::erase_if(entries_, [&](const Entry& entry) { return entry.thread == self; });
    if (spare_.thread == self) spare_.thread = std::thread::id();
    any_.store(!entries_.empty() || spare_.thread != std::thread::id(), std::memory_order_relaxed);
}

void ErrorSlot::read(int* code, char* text, int maxbytes, int* nbytes) const noexcept {
    const std::thread::id self = std::this_thread::get_id();
    const std::lock_guard lock(mutex_);
    int found_code = 0;
    std::string_view found_text;
    if (spare_.thread == self) {
        found_code = spare_.code;
        found_text = "out of memory";
    }
    for (const Entry& entry : entries_) {
        if (entry.thread != self) continue;
        found_code = entry.code;
        found_text = entry.text;
    }
    if (code != nullptr) *code = found_code;
    put_text(found_text, text, maxbytes, nbytes);
}

}  // namespace nlra
