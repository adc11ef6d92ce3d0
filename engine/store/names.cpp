#include "store/names.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <functional>
#include <new>

#include "store/make_room.hpp"

namespace nlra {
namespace {

int digits(int64_t number) {
    int count = 1;
    for (; number >= 10; number /= 10) ++count;
    return count;
}

}  // namespace

void Names::resize(int count) {
    if (count < size()) {
        for (int i = count; i < size(); ++i) live_ -= text_bytes(entries_[i]);
        forget_slots();
    }
    entries_.resize(static_cast<size_t>(count));
}

void Names::reserve(int count) { make_room(entries_, count - size()); }

void Names::set(int index, std::string_view name) {
    make_room(arena_, static_cast<int64_t>(name.size() + 1));
    assign(index, make_entry(name));
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
        assign(first + i, make_entry(name));
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
        if (entries_[first + i] == 0 && slots_.empty()) {
            entries_[first + i] = numbers[i];
        } else {
            assign(first + i, numbers[i]);
        }
    }
    drop_waste();
    return found;
}

void Names::number_nameless() {
    const int64_t greatest_text = greatest_given_;
    int64_t free = size();
    for (int i = 0; i < size(); ++i) {
        if (entries_[i] != 0) continue;
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

void Names::assign(int index, Entry entry) {
    Entry& present = entries_[index];
    if (present != 0) {
        live_ -= text_bytes(present);
        forget_slots();
    }
    present = entry;
    live_ += text_bytes(entry);
    if (!slots_.empty() && entry != 0) {
        // A new name for a nameless object: the index can take it in, until it is half full.
        int32_t& slot = slots_[slot_of(index)];
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
    const Entry entry = entries_[index];
    if (entry < 0) return std::string(view(index));
    return letter_ + std::to_string(entry > 0 ? entry : int64_t{index} + 1);
}

std::string_view Names::view(int index) const { return arena_.data() + (-1 - entries_[index]); }

int64_t Names::text_bytes(Entry entry) const {
    return entry < 0 ? static_cast<int64_t>(std::strlen(arena_.data() + (-1 - entry))) + 1 : 0;
}

int Names::longest() const {
    int64_t longest = 0;
    for (int i = 0; i < size(); ++i) {
        const Entry entry = entries_[i];
        longest = std::max(longest, entry < 0   ? text_bytes(entry) - 1
                                    : entry > 0 ? 1 + digits(entry)
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
    return slots_[slot_of({}, number)];
}

int Names::find(std::string_view name) const {
    if (name.empty()) return -1;
    if (slots_.empty()) build_slots();
    const int64_t number = number_of(name);
    const int named = slots_[slot_of(name, number)];
    const bool is_default = number > 0 && number <= size() && entries_[number - 1] == 0;
    const int unnamed = is_default ? static_cast<int>(number - 1) : -1;
    return named < 0 || (unnamed >= 0 && unnamed < named) ? unnamed : named;
}

size_t Names::slot_of(int index) const {
    const Entry entry = entries_[index];
    return entry < 0 ? slot_of(view(index), 0) : slot_of({}, entry);
}

size_t Names::slot_of(std::string_view name, int64_t number) const {
    const size_t mask = slots_.size() - 1;
    size_t slot = number != 0 ? static_cast<size_t>(number) * 0x9E3779B97F4A7C15u >> 16
                              : std::hash<std::string_view>()(name);
    const auto differs = [&](int index) {
        if (number != 0) return entries_[index] != number;
        return !has_text(index) || view(index) != name;
    };
    for (slot &= mask; slots_[slot] >= 0 && differs(slots_[slot]);) slot = (slot + 1) & mask;
    return slot;
}

void Names::build_slots() const {
    const size_t named = entries_.size() - static_cast<size_t>(std::count(
                                               entries_.begin(), entries_.end(), Entry{0}));
    size_t size = 16;
    while (size < 4 * named) size *= 2;
    slots_.assign(size, -1);
    used_slots_ = 0;
    for (int i = 0; i < this->size(); ++i) {
        if (entries_[i] == 0) continue;
        int32_t& slot = slots_[slot_of(i)];
        if (slot >= 0) continue;
        slot = i;
        ++used_slots_;
    }
}

void Names::compact(const std::vector<int>& map) {
    forget_slots();
    size_t kept = 0;
    for (size_t i = 0; i < entries_.size(); ++i) {
        if (map[i] >= 0) {
            entries_[kept++] = entries_[i];
        } else {
            live_ -= text_bytes(entries_[i]);
        }
    }
    entries_.resize(kept);
}

void Names::clear() {
    entries_.clear();
    arena_.clear();
    live_ = 0;
    least_given_ = std::numeric_limits<int64_t>::max();
    greatest_given_ = 0;
    forget_slots();
}

}  // namespace nlra
