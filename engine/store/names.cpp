#include "store/names.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <functional>
#include <new>

namespace nlra {
namespace {

int default_length(int index) {
    int length = 2;
    for (int64_t number = int64_t{index} + 1; number >= 10; number /= 10) ++length;
    return length;
}

}  // namespace

void Names::resize(int count) {
    if (count < size()) {
        for (int i = count; i < size(); ++i) live_ -= std::max(spans_[i].length, 0);
        forget_slots();
    }
    spans_.resize(static_cast<size_t>(count));
}

void Names::reserve(int count) {
    const size_t needed = static_cast<size_t>(count);
    if (needed > spans_.capacity()) spans_.reserve(std::max(needed, 2 * spans_.capacity()));
}

void Names::set(int index, std::string_view name) {
    const int64_t offset = static_cast<int64_t>(arena_.size());
    arena_.insert(arena_.end(), name.begin(), name.end());
    assign(index, offset, static_cast<int32_t>(name.size()));
    drop_waste();
}

void Names::set_packed(int first, int count, const char* names) {
    const char* end = names;
    for (int i = 0; i < count; ++i) end += std::strlen(end) + 1;
    int64_t offset = static_cast<int64_t>(arena_.size());
    arena_.insert(arena_.end(), names, end);
    for (int i = 0; i < count; ++i) {
        const int32_t length = static_cast<int32_t>(std::strlen(arena_.data() + offset));
        assign(first + i, offset, length);
        offset += length + 1;
    }
    drop_waste();
}

void Names::assign(int index, int64_t offset, int32_t length) {
    Span& span = spans_[index];
    if (span.length >= 0) {
        live_ -= span.length;
        forget_slots();
    }
    span = length == 0 ? Span{} : Span{offset, length};
    live_ += length;
    if (!slots_.empty() && length > 0) {
        // A new name for a nameless object: the index can take it in, until it is half full.
        int32_t& slot = slots_[slot_of(view(index))];
        if (slot >= 0) {
            slot = std::min(slot, static_cast<int32_t>(index));
        } else {
            slot = index;
            if (++used_slots_ > slots_.size() / 2) forget_slots();
        }
    }
}

void Names::drop_waste() {
    const int64_t waste = static_cast<int64_t>(arena_.size()) - live_;
    if (waste <= 65536 || waste <= live_) return;
    std::vector<char> packed;
    try {
        packed.reserve(static_cast<size_t>(live_));
    } catch (const std::bad_alloc&) {
        return;  // the waste stays for now
    }
    for (Span& span : spans_) {
        if (span.length < 0) continue;
        const char* const from = arena_.data() + span.offset;
        span.offset = static_cast<int64_t>(packed.size());
        packed.insert(packed.end(), from, from + span.length);
    }
    arena_.swap(packed);
}

std::string Names::get(int index) const {
    if (has(index)) return std::string(view(index));
    return letter_ + std::to_string(int64_t{index} + 1);
}

std::string_view Names::view(int index) const {
    const Span& span = spans_[index];
    return {arena_.data() + span.offset, static_cast<size_t>(span.length)};
}

int Names::longest() const {
    int longest = 0;
    for (int i = 0; i < size(); ++i) {
        longest = std::max(longest, has(i) ? spans_[i].length : default_length(i));
    }
    return longest;
}

int Names::default_index(std::string_view name) const {
    if (name.size() < 2 || name[0] != letter_ || name[1] < '1' || name[1] > '9') return -1;
    int number = 0;
    const char* const end = name.data() + name.size();
    const auto [rest, error] = std::from_chars(name.data() + 1, end, number);
    if (error != std::errc() || rest != end || number > size() || has(number - 1)) return -1;
    return number - 1;
}

int Names::find(std::string_view name) const {
    if (name.empty()) return -1;
    if (slots_.empty()) build_slots();
    const int named = slots_[slot_of(name)];
    const int unnamed = default_index(name);
    return named < 0 || (unnamed >= 0 && unnamed < named) ? unnamed : named;
}

size_t Names::slot_of(std::string_view name) const {
    const size_t mask = slots_.size() - 1;
    size_t slot = std::hash<std::string_view>()(name) & mask;
    while (slots_[slot] >= 0 && view(slots_[slot]) != name) slot = (slot + 1) & mask;
    return slot;
}

void Names::build_slots() const {
    const size_t named = static_cast<size_t>(std::count_if(
        spans_.begin(), spans_.end(), [](const Span& span) { return span.length >= 0; }));
    size_t size = 16;
    while (size < 4 * named) size *= 2;
    slots_.assign(size, -1);
    used_slots_ = 0;
    for (int i = 0; i < this->size(); ++i) {
        if (!has(i)) continue;
        int32_t& slot = slots_[slot_of(view(i))];
        if (slot >= 0) continue;
        slot = i;
        ++used_slots_;
    }
}

void Names::compact(const std::vector<int>& map) {
    forget_slots();
    size_t kept = 0;
    for (size_t i = 0; i < spans_.size(); ++i) {
        if (map[i] >= 0) {
            spans_[kept++] = spans_[i];
        } else {
            live_ -= std::max(spans_[i].length, 0);
        }
    }
    spans_.resize(kept);
}

void Names::clear() {
    spans_.clear();
    arena_.clear();
    live_ = 0;
    forget_slots();
}

}  // namespace nlra
