#include "store/names.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <functional>
#include <new>

#include "store/make_room.hpp"

namespace nlra {
namespace {

// What slots hold besides positions.
constexpr int32_t kFree = -1, kLeft = -2;

int digits(int64_t number) {
    int count = 1;
    for (; number >= 10; number /= 10) ++count;
    return count;
}

}  // namespace

void Names::resize(int count) {
    if (count < size()) {
        close_gaps();
        for (int i = count; i < size(); ++i) live_ -= text_bytes(entries_[i]);
        forget_slots();
    }
    entries_.resize(static_cast<size_t>(count) + static_cast<size_t>(gaps_.size()));
}

void Names::reserve(int count) { make_room(entries_, count - size()); }

void Names::set(int index, std::string_view name) {
    make_room(arena_, static_cast<int64_t>(name.size() + 1));
    assign(gaps_.position(index), make_entry(name));
    drop_waste();
}

void Names::set_packed(int first, int count, const char* names) {
    int64_t bytes = 0;
    const char* end = names;
    for (int i = 0; i < count; ++i) {
        const std::string_view name = end;
        end += name.size() + 1;
        if (number_of(name) == 0) bytes += static_cast<int64_t>(name.size() + 1);
    }
    make_room(arena_, bytes);
    for (int i = 0; i < count; ++i) {
        const std::string_view name = names;
        names += name.size() + 1;
        assign(gaps_.position(first + i), make_entry(name));
    }
    drop_waste();
}

int Names::set_numbered(int first, int count, const int64_t* numbers, int* taken) {
    int found = 0;
    for (int i = 0; i < count && taken != nullptr && greatest_given_ != 0; ++i) {
        if (numbers[i] < least_given_ || numbers[i] > greatest_given_) continue;
        const int other = find_numbered(numbers[i]);
        if (other >= 0 && (other < first || other >= first + count)) taken[found++] = i;
    }
    for (int i = 0; i < count; ++i) {
        const int at = gaps_.position(first + i);
        if (entries_[at] == 0 && slots_.empty()) {
            entries_[at] = numbers[i];
        } else {
            assign(at, numbers[i]);
        }
    }
    drop_waste();
    return found;
}

void Names::number_nameless() {
    const int64_t greatest_text = greatest_given_;
    int64_t free = size();
    for (int i = 0; i < size(); ++i) {
        if (has_name(i)) continue;
        int64_t number = int64_t{i} + 1;
        while (number <= greatest_text && find_numbered(number) >= 0) number = ++free;
        set_numbered(i, 1, &number);
        note_given(number);
    }
}

void Names::note_given(int64_t number) {
    least_given_ = std::min(least_given_, number);
    greatest_given_ = std::max(greatest_given_, number);
}

// Room for the text has been made.
Names::Entry Names::make_entry(std::string_view name) {
    const int64_t number = number_of(name);
    if (number != 0) note_given(number);
    if (number != 0 || name.empty()) return number;
    const auto offset = static_cast<int64_t>(arena_.size());
    arena_.insert(arena_.end(), name.begin(), name.end());
    arena_.push_back('\0');
    return -1 - offset;
}

void Names::assign(int at, Entry entry) {
    drop(at);
    entries_[at] = entry;
    live_ += text_bytes(entry);
    if (!slots_.empty() && entry != 0) link(at);
}

void Names::drop(int at) {
    if (entries_[at] == 0) return;
    if (!slots_.empty()) unlink(at);
    live_ -= text_bytes(entries_[at]);
    entries_[at] = 0;
}

// The index takes in names until it is half full.
void Names::link(int at) {
    int32_t& slot = slots_[slot_of(at)];
    if (slot >= 0) {
        repeats_ = true;
        slot = std::min(slot, static_cast<int32_t>(at));
    } else {
        slot = at;
        if (++used_slots_ > slots_.size() / 2) forget_slots();
    }
}

void Names::unlink(int at) {
    int32_t& slot = slots_[slot_of(at)];
    if (slot != at) return;  // a later one of equal names
    if (repeats_) {
        forget_slots();  // the next one of equal names, if any, comes in its place
    } else {
        slot = kLeft;
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
    for (Entry& entry : entries_) {
        if (entry >= 0) continue;
        const char* const from = arena_.data() + (-1 - entry);
        const int64_t bytes = text_bytes(entry);
        entry = -1 - static_cast<int64_t>(packed.size());
        packed.insert(packed.end(), from, from + bytes);
    }
    arena_.swap(packed);
}

std::string Names::get(int index) const {
    const Entry found = entry(index);
    if (found < 0) return std::string(text(found));
    return letter_ + std::to_string(found > 0 ? found : int64_t{index} + 1);
}

std::string_view Names::view(int index) const { return text(entry(index)); }

int64_t Names::text_bytes(Entry entry) const {
    return entry < 0 ? static_cast<int64_t>(std::strlen(arena_.data() + (-1 - entry))) + 1 : 0;
}

int Names::longest() const {
    int64_t longest = 0;
    for (int i = 0; i < size(); ++i) {
        const Entry found = entry(i);
        longest = std::max(longest, found < 0   ? text_bytes(found) - 1
                                    : found > 0 ? 1 + digits(found)
                                                : 1 + digits(int64_t{i} + 1));
    }
    return static_cast<int>(longest);
}

int64_t Names::number_of(std::string_view name) const {
    if (name.size() < 2 || name[0] != letter_ || name[1] < '1' || name[1] > '9') return 0;
    int64_t number = 0;
    const char* const end = name.data() + name.size();
    const auto [rest, error] = std::from_chars(name.data() + 1, end, number);
    return error == std::errc() && rest == end ? number : 0;
}

int Names::find_numbered(int64_t number) const {
    if (slots_.empty()) build_slots();
    const int at = slots_[slot_of({}, number)];
    return at < 0 ? -1 : gaps_.index(at);
}

int Names::find(std::string_view name) const {
    if (name.empty()) return -1;
    if (slots_.empty()) build_slots();
    const int64_t number = number_of(name);
    const int at = slots_[slot_of(name, number)];
    const int named = at < 0 ? -1 : gaps_.index(at);
    const bool is_default =
        number > 0 && number <= size() && !has_name(static_cast<int>(number - 1));
    const int unnamed = is_default ? static_cast<int>(number - 1) : -1;
    return named < 0 || (unnamed >= 0 && unnamed < named) ? unnamed : named;
}

size_t Names::slot_of(int at) const {
    const Entry entry = entries_[at];
    return entry < 0 ? slot_of(text(entry), 0) : slot_of({}, entry);
}

size_t Names::slot_of(std::string_view name, int64_t number) const {
    const size_t mask = slots_.size() - 1;
    size_t slot = number != 0 ? static_cast<size_t>(number) * 0x9E3779B97F4A7C15u >> 16
                              : std::hash<std::string_view>()(name);
    const auto is_other = [&](int at) {
        if (at < 0) return at == kLeft;
        const Entry entry = entries_[at];
        return number != 0 ? entry != number : entry >= 0 || text(entry) != name;
    };
    for (slot &= mask; is_other(slots_[slot]);) slot = (slot + 1) & mask;
    return slot;
}

void Names::build_slots() const {
    const size_t named = entries_.size() - static_cast<size_t>(std::count(
                                               entries_.begin(), entries_.end(), Entry{0}));
    size_t size = 16;
    while (size < 4 * named) size *= 2;
    slots_.assign(size, kFree);
    used_slots_ = 0;
    repeats_ = false;
    for (int at = 0; at < static_cast<int>(entries_.size()); ++at) {
        if (entries_[at] == 0) continue;
        int32_t& slot = slots_[slot_of(at)];
        if (slot >= 0) {
            repeats_ = true;
            continue;
        }
        slot = at;
        ++used_slots_;
    }
}

void Names::remove(const std::vector<int>& sorted) {
    gaps_.reserve(sorted.size());
    for (const int index : sorted) drop(gaps_.position(index));
    gaps_.add(sorted);
    if (gaps_.size() > common::Gaps::kMost) close_gaps();
}

void Names::close_gaps() {
    if (gaps_.empty()) return;
    try {
        // The index keeps its shape; only the positions in it change.
        std::vector<int32_t> index(slots_.empty() ? 0 : entries_.size());
        for (size_t at = 0, next = 0, gap = 0; at < index.size(); ++at) {
            const bool is_gap =
                gap < gaps_.positions().size() && gaps_.positions()[gap] == static_cast<int>(at);
            index[at] = is_gap ? kLeft : static_cast<int32_t>(next++);
            gap += is_gap;
        }
        for (int32_t& slot : slots_) {
            if (slot >= 0) slot = index[slot];
        }
    } catch (const std::bad_alloc&) {
        forget_slots();
    }
    auto gap = gaps_.positions().begin();
    size_t kept = 0;
    for (size_t at = 0; at < entries_.size(); ++at) {
        if (gap != gaps_.positions().end() && *gap == static_cast<int>(at)) {
            ++gap;
        } else {
            entries_[kept++] = entries_[at];
        }
    }
    entries_.resize(kept);
    gaps_.clear();
}

void Names::clear() {
    entries_.clear();
    gaps_.clear();
    arena_.clear();
    live_ = 0;
    least_given_ = std::numeric_limits<int64_t>::max();
    greatest_given_ = 0;
    forget_slots();
}

}  // namespace nlra
