// Registry from an object's serial to its library index: pages of 512 positions, found by a
// directory, so that a look-up costs nanoseconds and an entry four bytes. Positions are indices
// but for the gaps that deletions left, which are closed once there are many. Pages without an
// entry go, so that objects that come and go leave nothing behind. Plain C++.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "common/gaps.hpp"

namespace nalora {

class IndexMap {
  public:
    // Index of a serial, -1 when it is not registered.
    int32_t find(uint64_t serial) const noexcept {
        const int32_t* page = page_of(serial);
        const int32_t position = page != nullptr ? page[serial % kPage] - 1 : -1;
        return gaps_.empty() || position < 0 ? position : gaps_.index(position);
    }
    bool contains(uint64_t serial) const noexcept { return find(serial) >= 0; }
    void set(uint64_t serial, int32_t index) {
        int32_t* page = page_of(serial);
        if (page == nullptr) page = make_page(serial);
        int32_t& entry = page[serial % kPage];
        if (entry == 0) ++page[kPage];
        entry = gaps_.position(index) + 1;
    }
    void erase(uint64_t serial) noexcept;
    void clear() noexcept;
    // The objects of these indices, ascending and without repeats, are gone, whatever their
    // serials; later ones move down. Cannot fail once room was made for as many.
    void reserve_removal(std::size_t count) { gaps_.reserve(count); }
    void remove(const std::vector<int32_t>& sorted) { gaps_.add(sorted); }
    // A list beside the registry keeps the same gaps: the item of index i is at position(i).
    const common::Gaps& gaps() const noexcept { return gaps_; }
    void close_gaps() noexcept;
    // What is held in memory, for tests.
    std::size_t page_count() const noexcept;
    // Entries as they are, for copying a problem.
    IndexMap copy() const;

  private:
    static constexpr uint64_t kPage = 512;
    using Page = std::unique_ptr<int32_t[]>;  // position + 1, 0 for none; then how many there are

    // Null where nothing was ever registered.
    int32_t* page_of(uint64_t serial) const noexcept {
        // Wraps around, to a number beyond all pages, for a serial before the first one.
        const uint64_t page = serial / kPage - first_page_;
        return page < pages_.size() ? pages_[page].get() : nullptr;
    }
    int32_t* make_page(uint64_t serial);
    // The page has no entries any more.
    void drop_page(Page& page) noexcept;
    void trim() noexcept;

    uint64_t first_page_ = 0;
    std::vector<Page> pages_;
    Page spare_;  // empty: the next page
    common::Gaps gaps_;
};

}  // namespace nalora
