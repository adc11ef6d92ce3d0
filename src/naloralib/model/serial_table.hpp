// Side tables from serial number to value for the objects that differ from the defaults. Plain C++.
//
// Serials are consecutive numbers, so objects made one after the other share a page of values: an
// access costs a bit test while it stays on the page of the last one, and a dense table little more
// than the values. Pages are found by hashing, as serials may be far apart in a long-lived process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace nalora {

// Open addressing with linear probing; erasing moves entries back, so no tombstones build up.
template <class T>
class FlatMap {
  public:
    // Null when there is none. Valid until the map changes.
    T* find(uint64_t key) noexcept {
        if (count_ == 0) return nullptr;
        Slot& slot = slots_[locate(key)];
        return slot.key == key ? &slot.value : nullptr;
    }

    // For a key that is not in the map; ~0 is no key.
    void insert(uint64_t key, T value) {
        if (4 * (count_ + 1) > 3 * capacity_) grow();
        slots_[locate(key)] = {key, std::move(value)};
        ++count_;
    }

    void erase(uint64_t key) noexcept {
        if (count_ == 0) return;
        std::size_t hole = locate(key);
        if (slots_[hole].key != key) return;
        --count_;
        for (std::size_t i = next(hole); slots_[i].key != kNone; i = next(i)) {
            // An entry may fill the hole unless its home lies cyclically behind it.
            const std::size_t home = home_of(slots_[i].key);
            if (((i - home) & (capacity_ - 1)) >= ((i - hole) & (capacity_ - 1))) {
                slots_[hole] = std::move(slots_[i]);
                hole = i;
            }
        }
        slots_[hole] = Slot();
    }

    template <class Visit>
    void for_each(Visit&& visit) const {
        for (std::size_t i = 0; i < capacity_; ++i) {
            if (slots_[i].key != kNone) visit(slots_[i].value);
        }
    }

  private:
    static constexpr uint64_t kNone = ~uint64_t{0};
    struct Slot {
        uint64_t key = kNone;
        T value{};
    };

    std::size_t home_of(uint64_t key) const noexcept {
        return static_cast<std::size_t>(key * 0x9E3779B97F4A7C15u >> shift_);
    }
    std::size_t next(std::size_t i) const noexcept { return (i + 1) & (capacity_ - 1); }

    // The slot of a key, or the free slot where it belongs.
    std::size_t locate(uint64_t key) const noexcept {
        std::size_t i = home_of(key);
        while (slots_[i].key != key && slots_[i].key != kNone) i = next(i);
        return i;
    }

    void grow() {
        FlatMap larger;
        larger.capacity_ = capacity_ != 0 ? 2 * capacity_ : 16;
        larger.shift_ = shift_ - (capacity_ != 0 ? 1 : 4);
        larger.slots_ = std::make_unique<Slot[]>(larger.capacity_);
        for (std::size_t i = 0; i < capacity_; ++i) {
            const uint64_t key = slots_[i].key;
            if (key != kNone) larger.slots_[larger.locate(key)] = std::move(slots_[i]);
        }
        larger.count_ = count_;
        *this = std::move(larger);
    }

    std::unique_ptr<Slot[]> slots_;
    std::size_t capacity_ = 0;  // a power of two
    std::size_t count_ = 0;
    int shift_ = 64;
};

template <class T>
class SerialTable {
  public:
    // Null when there is none. Valid until the table changes.
    T* find(uint64_t serial) noexcept {
        Page* page = look_up(serial / kPageSize);
        return page != nullptr && (page->used & bit(serial)) != 0
                   ? &page->values[serial % kPageSize]
                   : nullptr;
    }

    // Insert, or overwrite the value there is.
    void set(uint64_t serial, T value) {
        const uint64_t number = serial / kPageSize;
        Page* page = look_up(number);
        if (page == nullptr) {
            auto made = std::make_unique<Page>();
            page = made.get();
            pages_.insert(number, std::move(made));
            visit(number, page);
        }
        page->values[serial % kPageSize] = value;
        page->used |= bit(serial);
    }

    void erase(uint64_t serial) noexcept {
        Page* page = look_up(serial / kPageSize);
        if (page != nullptr) page->used &= ~bit(serial);
    }

    template <class Visit>
    void for_each(Visit&& visit) const {
        pages_.for_each([&](const std::unique_ptr<Page>& page) {
            for (unsigned i = 0; i < kPageSize; ++i) {
                if ((page->used & bit(i)) != 0) visit(page->values[i]);
            }
        });
    }

  private:
    static constexpr unsigned kPageSize = 32;
    struct Page {
        uint32_t used = 0;
        T values[kPageSize];
    };
    static constexpr uint32_t bit(uint64_t serial) noexcept {
        return uint32_t{1} << (serial % kPageSize);
    }

    Page* look_up(uint64_t number) noexcept {
        if (number == last_number_) return last_;
        const std::unique_ptr<Page>* found = pages_.find(number);
        if (found == nullptr) return nullptr;
        Page* page = found->get();
        visit(number, page);
        return page;
    }

    // The page last visited is the only one that may be empty, so that objects which come and go
    // do not make and drop a page each.
    void visit(uint64_t number, Page* page) noexcept {
        if (last_ != nullptr && last_->used == 0) pages_.erase(last_number_);
        last_number_ = number;
        last_ = page;
    }

    FlatMap<std::unique_ptr<Page>> pages_;
    uint64_t last_number_ = ~uint64_t{0};
    Page* last_ = nullptr;
};

}  // namespace nalora
