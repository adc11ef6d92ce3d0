// Names seen while a file is read, with their indices: a hash table with open addressing over
// views into the file's text. It does not own the names.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace nlra {

class NameTable {
  public:
    int size() const { return static_cast<int>(names_.size()); }
    std::string_view name(int index) const { return names_[index]; }

    // Index of a name, -1 when it is not there.
    int find(std::string_view name) const {
        if (slots_.empty()) return -1;
        const Key key = key_of(name);
        return slots_[probe(name, key)].index;
    }

    // Append a name; false when it is there already.
    bool add(std::string_view name) {
        if (2 * (names_.size() + 1) > slots_.size()) grow();
        const Key key = key_of(name);
        Slot& slot = slots_[probe(name, key)];
        if (slot.index >= 0) return false;
        slot = {key.prefix, key.code, size()};
        names_.push_back(name);
        return true;
    }

    // Append an object without a name: its name reads as empty and is never found.
    void add_unnamed() { names_.emplace_back(); }

  private:
    // A look-up in a large table waits for memory and little else. With the first bytes in the
    // slot a short name takes one access; a longer one also its view and its text.
    struct Slot {
        uint64_t prefix = 0;
        uint32_t code = 0;
        int index = -1;
    };
    struct Key {
        uint64_t prefix;  // the first 8 bytes, filled up with zeros
        uint32_t code;
    };

    static Key key_of(std::string_view name) {
        constexpr uint64_t kMultiplier = 0x9e3779b97f4a7c15u;
        const char* text = name.data();
        size_t left = name.size();
        uint64_t prefix = 0;
        if (left < 8) {
            if (left > 0) std::memcpy(&prefix, text, left);
            return {prefix, static_cast<uint32_t>(mix(prefix * kMultiplier))};
        }
        std::memcpy(&prefix, text, 8);
        uint64_t code = prefix * kMultiplier;
        for (text += 8, left -= 8; left > 0;) {
            const size_t size = left < 8 ? left : 8;
            uint64_t word = 0;
            std::memcpy(&word, text, size);
            code = mix((code ^ word) * kMultiplier);
            text += size;
            left -= size;
        }
        return {prefix, static_cast<uint32_t>(mix(code * kMultiplier))};
    }

    static uint64_t mix(uint64_t code) { return code ^ (code >> 32); }

    // The slot of a name, or the free one where it belongs. Names hold no NUL, so that a prefix
    // tells a name of less than 8 bytes from all others.
    size_t probe(std::string_view name, const Key& key) const {
        const size_t mask = slots_.size() - 1;
        size_t at = key.code & mask;
        while (slots_[at].index >= 0) {
            const Slot& slot = slots_[at];
            if (slot.prefix == key.prefix && slot.code == key.code &&
                (name.size() < 8 || names_[slot.index] == name)) {
                break;
            }
            at = (at + 1) & mask;
        }
        return at;
    }

    void grow() {
        std::vector<Slot> old(slots_.empty() ? 64 : 2 * slots_.size());
        old.swap(slots_);
        const size_t mask = slots_.size() - 1;
        for (const Slot& slot : old) {
            if (slot.index < 0) continue;
            size_t at = slot.code & mask;
            while (slots_[at].index >= 0) at = (at + 1) & mask;
            slots_[at] = slot;
        }
    }

    std::vector<std::string_view> names_;
    std::vector<Slot> slots_;  // a power of two, at most half full of named objects
};

}  // namespace nlra
