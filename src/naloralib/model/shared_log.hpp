// Growing logs that several immutable objects share. Plain C++ that knows no Python.
//
// A SharedLog is a view (block, length) of a log of entries. Appending to a view never changes what
// another view sees: the view that ends where the log ends appends in place, any other one copies
// its part first. So a chain v1 = v0 + e1, v2 = v1 + e2, ... costs amortised constant time per
// entry although every v keeps its value.
//
// Entry: trivially copyable, with retain<Owner>() and release<Owner>(). Owner: static functions
// allocate (null on failure), reallocate, deallocate (told the size), and what the entries call.
// Releasing an entry may run any code, also such that uses other views of the same log; everything
// else runs none.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>
#include <type_traits>
#include <utility>

namespace nalora {

template <class Entry, class Owner>
class SharedLog {
    static_assert(std::is_trivially_copyable_v<Entry>);

  public:
    // Zero-filled memory is a valid empty view.
    SharedLog() noexcept = default;
    SharedLog(SharedLog&& o) noexcept
        : block_(std::exchange(o.block_, nullptr)), length_(std::exchange(o.length_, 0)) {}
    SharedLog& operator=(SharedLog&& o) noexcept {
        const SharedLog old(std::move(*this));
        block_ = std::exchange(o.block_, nullptr);
        length_ = std::exchange(o.length_, 0);
        return *this;
    }
    SharedLog(const SharedLog&) = delete;
    SharedLog& operator=(const SharedLog&) = delete;
    ~SharedLog() { clear(); }

    // Whether there is a log at all; it may be empty.
    bool exists() const noexcept { return block_ != nullptr; }
    uint32_t size() const noexcept { return length_; }
    // Whether other views of the log exist, and whether another one is of the same log.
    bool is_shared() const noexcept { return block_ != nullptr && block_->views > 1; }
    bool shares_with(const SharedLog& o) const noexcept { return block_ == o.block_; }

    // One entry. The reference is valid until anything is appended to any view of the log.
    const Entry& operator[](uint32_t index) const noexcept { return block_->entries[index]; }

    // Another view of the same entries; none is copied.
    SharedLog share() const noexcept {
        if (block_ == nullptr) return SharedLog();
        Block& b = *block_;
        ++b.views;
        if (length_ == b.size) {
            b.views_at_end = b.views_at_end == 1 ? 2 : 0;
        } else if (length_ == b.previous) {
            b.previous_is_single = false;
        }
        return SharedLog(block_, length_);
    }

    // Make room for `extra` more entries, so that as many calls of append() cannot fail. Afterwards
    // exists() holds.
    void reserve(std::size_t extra) {
        const std::size_t needed = length_ + extra;
        if (needed > kMaxSize) throw std::bad_alloc();
        if (block_ == nullptr) {
            block_ = make(std::max<std::size_t>(needed, 1));
            return;
        }
        if (block_->size != length_) {
            if (block_->views > 1) return replace(larger(needed));
            truncate(length_);
        }
        if (needed > block_->capacity) grow(larger(needed));
    }

    void append(const Entry& entry) {
        if (!has_room()) reserve(1);
        push(entry);
    }

    // The entries stay where they are as long as this view lives and is not appended to.
    std::span<const Entry> entries() const noexcept {
        if (block_ == nullptr) return {};
        block_->pinned = true;
        return {block_->entries, length_};
    }

    void clear() noexcept {
        if (block_ == nullptr) return;
        Block* block = std::exchange(block_, nullptr);
        drop(block, std::exchange(length_, 0));
    }

  protected:
    struct Block {
        Entry* entries;  // behind this header, or in memory of its own once there are many
        uint32_t views;
        uint32_t size;
        uint32_t capacity;
        // What the end of the log may be cut back to when the last view that needs it goes, so that
        // temporary results (e + x while e lives on) leave nothing behind: the number of views that
        // end at `size` if it is 1 or 2, otherwise 0; the size that the other views do not exceed;
        // and, if only one view ends there, the size that those besides it do not exceed.
        uint32_t previous;
        uint32_t before_previous;
        uint8_t views_at_end : 2;
        bool previous_is_single : 1;
        bool ascending : 1;  // for the derived class, as the next; kept when entries are copied
        bool zeros : 1;
        bool pinned : 1;          // spans of the entries may be in use
        uint8_t inline_capacity;  // entries that fit behind this header, whether used or not

        Entry* inline_entries() noexcept { return reinterpret_cast<Entry*>(this + 1); }
    };
    static_assert(sizeof(Block) % alignof(Entry) == 0);

    static constexpr std::size_t kMaxSize = std::size_t{1} << 31;
    static constexpr std::size_t kFirstCapacity = 4;
    // Blocks up to this capacity are one piece of memory; when a shared one grows its entries are
    // copied. Larger ones keep the entries apart, so that growing moves them without touching what
    // they refer to.
    static constexpr std::size_t kInlineCapacity = 16;
    static constexpr std::size_t inline_bytes(std::size_t capacity) noexcept {
        return sizeof(Block) + capacity * sizeof(Entry);
    }

    SharedLog(Block* block, uint32_t length) noexcept : block_(block), length_(length) {}

    bool has_room() const noexcept {
        return block_ != nullptr && length_ == block_->size && length_ < block_->capacity;
    }

    // Append where there is room.
    void push(const Entry& entry) noexcept {
        Block& b = *block_;
        entry.template retain<Owner>();
        b.entries[length_] = entry;
        if (b.views_at_end != 1) {
            b.before_previous = b.previous;
            b.previous = length_;
            b.previous_is_single = b.views_at_end == 2;
            b.views_at_end = 1;
        }
        b.size = ++length_;
    }

    // A log of this view alone, without entries.
    static Block* make(std::size_t capacity) {
        const bool apart = capacity > kInlineCapacity;
        const std::size_t inline_capacity = apart ? 0 : capacity;
        void* memory = Owner::allocate(inline_bytes(inline_capacity));
        if (memory == nullptr) throw std::bad_alloc();
        Block* block = ::new (memory) Block{};
        block->entries = block->inline_entries();
        if (apart) {
            block->entries = static_cast<Entry*>(Owner::allocate(capacity * sizeof(Entry)));
            if (block->entries == nullptr) {
                Owner::deallocate(block, inline_bytes(0));
                throw std::bad_alloc();
            }
        }
        block->views = 1;
        block->inline_capacity = static_cast<uint8_t>(inline_capacity);
        block->capacity = static_cast<uint32_t>(capacity);
        block->views_at_end = 1;
        block->ascending = true;
        return block;
    }

    // Let this view go over to a new block that nobody else sees, then drop the old one.
    void adopt(Block* block) noexcept {
        SharedLog old(std::exchange(block_, block), length_);
        length_ = block->size;
    }

    Block* block_ = nullptr;
    uint32_t length_ = 0;

  private:
    std::size_t larger(std::size_t needed) const noexcept {
        const std::size_t doubled = 2 * std::size_t{block_->capacity};
        return std::min(std::max({needed, doubled, kFirstCapacity}), kMaxSize);
    }

    void grow(std::size_t capacity) {
        Block& b = *block_;
        const bool apart = b.entries != b.inline_entries();
        const bool alone = b.views == 1;
        if (b.pinned && !alone) return replace(capacity);
        void* memory;
        if (apart) {
            memory =
                Owner::reallocate(b.entries, b.capacity * sizeof(Entry), capacity * sizeof(Entry));
            if (memory == nullptr) throw std::bad_alloc();
            b.entries = static_cast<Entry*>(memory);
        } else if (capacity > kInlineCapacity) {
            memory = Owner::allocate(capacity * sizeof(Entry));
            if (memory == nullptr) throw std::bad_alloc();
            std::memcpy(memory, b.entries, b.size * sizeof(Entry));
            b.entries = static_cast<Entry*>(memory);
        } else if (alone) {
            memory = Owner::reallocate(&b, inline_bytes(b.inline_capacity), inline_bytes(capacity));
            if (memory == nullptr) throw std::bad_alloc();
            block_ = static_cast<Block*>(memory);
            block_->entries = block_->inline_entries();
            block_->inline_capacity = static_cast<uint8_t>(capacity);
        } else {
            return replace(capacity);
        }
        block_->capacity = static_cast<uint32_t>(capacity);
    }

    // Copy this view's entries to a block of its own.
    void replace(std::size_t capacity) {
        Block* block = make(capacity);
        std::memcpy(block->entries, block_->entries, length_ * sizeof(Entry));
        for (uint32_t i = 0; i < length_; ++i) block->entries[i].template retain<Owner>();
        block->size = length_;
        block->ascending = block_->ascending;
        block->zeros = block_->zeros;
        adopt(block);
    }

    // Cut a log of which this is the only view.
    void truncate(uint32_t size) noexcept {
        Block& b = *block_;
        const uint32_t end = b.size;
        b.size = size;
        b.views_at_end = 1;
        b.previous = 0;
        b.previous_is_single = false;
        // Nobody else can see the entries behind the new end, and this view is being appended to.
        for (uint32_t i = end; i > size; --i) b.entries[i - 1].template release<Owner>();
    }

    [[gnu::noinline]] static void drop(Block* block, uint32_t length) noexcept {
        Block& b = *block;
        if (b.views == 1) return destroy(block);
        if (length == b.size) {
            if (b.views_at_end == 2) {
                b.views_at_end = 1;
            } else if (b.views_at_end == 1) {
                cut_back(b);
            }
        } else if (length == b.previous && b.previous_is_single) {
            b.previous = b.before_previous;
            b.previous_is_single = false;
        }
        // Releasing entries may have dropped the other views.
        if (b.views == 1) return destroy(block);
        --b.views;
    }

    // The only view at the end goes: release what no other view sees.
    static void cut_back(Block& b) noexcept {
        constexpr uint32_t kFew = 4;
        const uint32_t end = b.size, start = b.previous;
        if (end - start > kFew) {
            // What follows `size` must stay unused until it is released, so that the loop reaches
            // it whatever the released objects do to the log: nobody may know it as the end.
            b.views_at_end = 0;
            for (uint32_t i = end; i > start && b.size == i; --i) {
                const Entry entry = b.entries[i - 1];
                b.size = i - 1;
                entry.template release<Owner>();
            }
            return;
        }
        Entry cut[kFew];
        for (uint32_t i = start; i < end; ++i) cut[i - start] = b.entries[i];
        b.size = start;
        b.views_at_end = b.previous_is_single ? 1 : 0;
        if (b.previous_is_single) b.previous = b.before_previous;
        b.previous_is_single = false;
        for (uint32_t i = 0; i < end - start; ++i) cut[i].template release<Owner>();
    }

    static void destroy(Block* block) noexcept {
        for (uint32_t i = 0; i < block->size; ++i) block->entries[i].template release<Owner>();
        if (block->entries != block->inline_entries()) {
            Owner::deallocate(block->entries, block->capacity * sizeof(Entry));
        }
        Owner::deallocate(block, inline_bytes(block->inline_capacity));
    }
};

}  // namespace nalora
