// Side table from serial to value for the few objects that differ from the defaults. Plain C++:
// open addressing with linear probing; erasing moves entries back, so no tombstones build up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace nalora {

template <class T>
class SerialTable {
  public:
    // Null when there is none. Valid until the table changes.
    T* find(uint64_t serial) noexcept {
        if (count_ == 0) return nullptr;
        Slot& slot = slots_[locate(serial)];
        return slot.serial == serial ? &slot.value : nullptr;
    }

    // Insert, or overwrite the value there is.
    void set(uint64_t serial, T value) {
        if (4 * (count_ + 1) > 3 * capacity_) grow();
        Slot& slot = slots_[locate(serial)];
        if (slot.serial != serial) ++count_;
        slot = {serial, value};
    }

    void erase(uint64_t serial) noexcept {
        if (count_ == 0) return;
        std::size_t hole = locate(serial);
        if (slots_[hole].serial != serial) return;
        --count_;
        for (std::size_t i = next(hole); slots_[i].serial != kNone; i = next(i)) {
            // An entry may fill the hole unless its home lies cyclically behind it.
            const std::size_t home = home_of(slots_[i].serial);
            if (((i - home) & (capacity_ - 1)) >= ((i - hole) & (capacity_ - 1))) {
                slots_[hole] = slots_[i];
                hole = i;
            }
        }
        slots_[hole].serial = kNone;
    }

    template <class Visit>
    void for_each(Visit&& visit) const {
        for (std::size_t i = 0; i < capacity_; ++i) {
            if (slots_[i].serial != kNone) visit(slots_[i].value);
        }
    }

    std::size_t size() const noexcept { return count_; }

  private:
    static constexpr uint64_t kNone = ~uint64_t{0};  // serials have at most 57 bits
    struct Slot {
        uint64_t serial = kNone;
        T value{};
    };

    std::size_t home_of(uint64_t serial) const noexcept {
        return static_cast<std::size_t>(serial * 0x9E3779B97F4A7C15u >> shift_);
    }
    std::size_t next(std::size_t i) const noexcept { return (i + 1) & (capacity_ - 1); }

    // The slot of a serial, or the free slot where it belongs.
    std::size_t locate(uint64_t serial) const noexcept {
        std::size_t i = home_of(serial);
        while (slots_[i].serial != serial && slots_[i].serial != kNone) i = next(i);
        return i;
    }

    void grow() {
        SerialTable larger;
        larger.capacity_ = capacity_ != 0 ? 2 * capacity_ : 16;
        larger.shift_ = shift_ - (capacity_ != 0 ? 1 : 4);
        larger.slots_ = std::make_unique<Slot[]>(larger.capacity_);
        for (std::size_t i = 0; i < capacity_; ++i) {
            if (slots_[i].serial != kNone) larger.slots_[larger.locate(slots_[i].serial)] = slots_[i];
        }
        larger.count_ = count_;
        *this = std::move(larger);
    }

    std::unique_ptr<Slot[]> slots_;
    std::size_t capacity_ = 0;  // a power of two
    std::size_t count_ = 0;
    int shift_ = 64;
};

}  // namespace nalora
