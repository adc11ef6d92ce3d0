// Names of rows, columns or sets: one packed arena, and a hash index that is built on the first
// look-up only, since most models are never searched by name, and kept up from then on. Names that
// are the default letter and a number, which is what most objects are called, are kept as the
// number.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "common/gaps.hpp"

namespace nlra {

class Names {
  public:
    explicit Names(char default_letter) : letter_(default_letter) {}

    // Make room for `count` objects; new ones have no name. Shrinks as well.
    void resize(int count);
    void reserve(int count);
    int size() const { return static_cast<int>(entries_.size()) - gaps_.size(); }
    // An empty name takes the object's name away.
    void set(int index, std::string_view name);
    // Names of the objects first, first + 1, ..., each ended by a NUL. All or, when out of memory,
    // none.
    void set_packed(int first, int count, const char* names);
    // The same for names that are the default letter and a positive number, which the caller gives
    // out once each. Other objects may have some of them as names all the same, given as texts or
    // by number_nameless(): the places of these numbers go into `taken` (room for all; null: not
    // wanted), their count is returned. Cannot fail where no such number is within reach.
    int set_numbered(int first, int count, const int64_t* numbers, int* taken = nullptr);
    // Give objects without a name the default one for good, with another number where an object
    // has that name.
    void number_nameless();
    bool has_name(int index) const { return entry(index) != 0; }
    // Whether the name is kept as text; if not, there is none, or it is a number.
    bool has_text(int index) const { return entry(index) < 0; }
    // The name, or the default letter with index + 1 where there is none.
    std::string get(int index) const;
    // Bytes of the name without a NUL; never null. Only valid where has_text() holds.
    std::string_view view(int index) const;
    // Bytes of the longest name, default names counted.
    int longest() const;
    // The first object of this name, -1 when there is none. Default names are found as well.
    int find(std::string_view name) const;
    // Objects are gone, given by ascending indices without repeats; later ones move down. Cannot
    // fail once room was made for as many. A few at a time cost little.
    void reserve_removal(size_t count) { gaps_.reserve(count); }
    void remove(const std::vector<int>& sorted);
    void clear();

  private:
    // An object's name in one word: 0 for none; n > 0 for the letter and n; otherwise -1 - n for
    // the text, ended by a NUL, at n in the arena. A text that reads like a number never is one,
    // so that equal names have words of the same kind.
    using Entry = int64_t;

    // What the name is as a number, 0 when it must be kept as text.
    int64_t number_of(std::string_view name) const;
    // The first object that was given this number as its name, -1 for none.
    int find_numbered(int64_t number) const;
    int64_t text_bytes(Entry entry) const;  // in the arena, with the NUL
    Entry entry(int index) const { return entries_[gaps_.position(index)]; }
    std::string_view text(Entry entry) const { return arena_.data() + (-1 - entry); }
    Entry make_entry(std::string_view name);
    void note_given(int64_t number);
    // These take positions: places in entries_.
    void assign(int at, Entry entry);
    void drop(int at);
    void link(int at);
    void unlink(int at);
    void close_gaps();
    void drop_waste();
    void build_slots() const;
    // The slot that holds an object of this name, or the free one where it would go.
    size_t slot_of(int at) const;
    size_t slot_of(std::string_view name, int64_t number) const;
    void forget_slots() const { slots_.clear(), used_slots_ = 0, repeats_ = false; }

    char letter_;
    std::vector<Entry> entries_;  // by position
    common::Gaps gaps_;           // of entries_; without names there
    std::vector<char> arena_;
    int64_t live_ = 0;  // bytes of the arena that belong to names
    // The least and the greatest number given otherwise than by set_numbered, of all times.
    int64_t least_given_ = std::numeric_limits<int64_t>::max(), greatest_given_ = 0;
    // Open addressing: positions, -1 free, -2 free but to be searched beyond. Empty: not built.
    // Only the first object of equal names is in it.
    mutable std::vector<int32_t> slots_;
    mutable size_t used_slots_ = 0;  // those that are not -1
    mutable bool repeats_ = false;   // whether there were equal names since it was built
};

}  // namespace nlra
