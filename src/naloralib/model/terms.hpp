// The term containers of an expression: plain C++ that knows no Python. `Owner` tells how a
// variable handle is retained and released, and where memory comes from (see shared_log.hpp).
//
// A container is a view of a log of terms that several expressions may share, so that growing one
// expression term by term costs amortised constant time per term although no expression changes.
// A log may hold a variable several times; canonical() sorts by serial, adds up in the order of
// insertion and drops sums that became exactly zero, which is what an ordered map updated term by
// term would hold. Zeros that come from scaling stay where they arose, as they would in a map, but
// are not added to other terms.
//
// A default-made container has no log: the expression never had such a term. One whose terms all
// cancelled keeps its log; callers distinguish the two by exists().
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "model/merge.hpp"
#include "model/shared_log.hpp"

namespace nalora {

struct LinearEntry {
    uint64_t serial;  // key: the variable's serial when the term was added
    void* var;
    double coef;

    bool before(const LinearEntry& o) const noexcept { return serial < o.serial; }
    bool same(const LinearEntry& o) const noexcept { return serial == o.serial; }
    template <class Owner>
    void retain() const noexcept {
        Owner::retain(var);
    }
    template <class Owner>
    void release() const noexcept {
        Owner::release(var);
    }
};

struct QuadraticEntry {  // serial1 <= serial2
    uint64_t serial1, serial2;
    void *var1, *var2;
    double coef;

    bool before(const QuadraticEntry& o) const noexcept {
        return serial1 != o.serial1 ? serial1 < o.serial1 : serial2 < o.serial2;
    }
    bool same(const QuadraticEntry& o) const noexcept {
        return serial1 == o.serial1 && serial2 == o.serial2;
    }
    template <class Owner>
    void retain() const noexcept {
        Owner::retain(var1), Owner::retain(var2);
    }
    template <class Owner>
    void release() const noexcept {
        Owner::release(var1), Owner::release(var2);
    }
};

template <class Entry, class Owner>
class Terms : private SharedLog<Entry, Owner> {
    using Log = SharedLog<Entry, Owner>;
    using Block = typename Log::Block;

  public:
    Terms() noexcept = default;
    Terms(Terms&&) noexcept = default;
    Terms& operator=(Terms&&) noexcept = default;

    using Log::clear;
    using Log::exists;

    // Another view of the same terms; no term is copied.
    Terms share() const noexcept { return Terms(Log::share()); }

    // A copy with every coefficient multiplied by factor, its capacity at least extra more.
    Terms scaled(double factor, std::size_t extra = 0) const {
        Terms result;
        if (!exists()) return result;
        const std::span<const Entry> terms = canonical();
        result.reserve(terms.size() + extra);
        for (Entry entry : terms) {
            entry.coef *= factor;
            if (entry.coef == 0.0) [[unlikely]]
                result.block_->zeros = true;
            result.push(entry);
        }
        return result;
    }

    // False when no term has the coefficient zero.
    bool may_hold_zeros() const noexcept { return exists() && block_->zeros; }

    // Create the log if there is none, so that exists() holds, with room for so many more terms.
    void ensure(std::size_t capacity) { Log::reserve(capacity); }

    // Add coef to the entry's coefficient. A zero coefficient adds nothing, but see ensure().
    void add(const Entry& entry) {
        if (entry.coef == 0.0) [[unlikely]]
            return add_zero(entry);
        if (!Log::has_room()) [[unlikely]]
            make_room(1);
        push_term(entry);
    }

    // Add factor times every term of another container (which may be this one).
    void add_scaled(const Terms& other, double factor) {
        if (this == &other) {
            const Terms copy = share();
            add_scaled(copy, factor);
            return;
        }
        const std::span<const Entry> terms = other.canonical();
        for (std::size_t i = 0; i < terms.size(); ++i) {
            Entry entry = terms[i];
            entry.coef *= factor;
            if (entry.coef == 0.0) [[unlikely]] {
                add_zero(entry);
                continue;
            }
            if (!Log::has_room()) make_room(terms.size() - i);
            push_term(entry);
        }
    }

    // The terms ordered by serial, without repeats. Normalises this view at first use; the span is
    // valid as long as this container lives unchanged, whatever is appended to others.
    std::span<const Entry> canonical() const {
        if (!exists() || is_ascending()) return Log::entries();
        std::vector<Entry> merged = merge_terms(std::span<const Entry>(block_->entries, length_));
        const_cast<Terms*>(this)->hold(merged, merged.size());
        return Log::entries();
    }

    // The number of terms as an upper bound: repeats count.
    std::size_t raw_size() const noexcept { return length_; }

  private:
    using Log::block_;
    using Log::length_;

    explicit Terms(Log&& log) noexcept : Log(std::move(log)) {}

    // A log of at least so many terms is compacted before it grows, if that halves it.
    static constexpr std::size_t kCompactionSize = 1024;

    // A quadratic coefficient that is zero already goes when zero is added to it: an entry that
    // comes up repeatedly with the sum zero is no term, one that comes up twice here neither.
    [[gnu::noinline]] void add_zero(const Entry& entry) {
        if constexpr (requires { entry.serial2; }) {
            if (!may_hold_zeros()) return;
            for (int i = 0; i < 2; ++i) {
                if (!Log::has_room()) make_room(1);
                push_term(entry);
            }
        }
    }

    [[gnu::noinline]] void make_room(std::size_t extra) {
        if (!exists()) return Log::reserve(std::max(extra, Log::kFirstCapacity));
        const bool full = length_ + extra > block_->capacity;
        if (full && length_ >= kCompactionSize && !block_->ascending) {
            std::vector<Entry> merged =
                merge_terms(std::span<const Entry>(block_->entries, length_));
            if (merged.size() <= length_ / 2) {
                return hold(merged, std::max(2 * merged.size(), merged.size() + extra));
            }
        }
        Log::reserve(extra);
    }

    void push_term(const Entry& entry) noexcept {
        Block& b = *block_;
        if (length_ > 0 && !b.entries[length_ - 1].before(entry)) b.ascending = false;
        Log::push(entry);
    }

    bool is_ascending() const noexcept {
        if (block_->ascending) return true;
        const Entry* entries = block_->entries;
        for (uint32_t i = 1; i < length_; ++i) {
            if (!entries[i - 1].before(entries[i])) return false;
        }
        // The end of the log may have been cut back to an ascending part.
        if (length_ == block_->size) block_->ascending = true;
        return true;
    }

    // Take the merged terms in place of this view's own.
    void hold(const std::vector<Entry>& merged, std::size_t capacity) {
        Block* block = Log::make(std::max<std::size_t>(capacity, 1));
        for (const Entry& entry : merged) entry.template retain<Owner>();
        std::copy(merged.begin(), merged.end(), block->entries);
        block->size = static_cast<uint32_t>(merged.size());
        block->zeros = block_->zeros;
        Log::adopt(block);
    }
};

}  // namespace nalora
