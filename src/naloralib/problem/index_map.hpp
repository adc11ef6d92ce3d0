// Registry from an object's serial to its library index: pages of 512 indices, found by a
// directory, so that a look-up costs nanoseconds and an entry four bytes. Plain C++.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace nalora {

class IndexMap {
  public:
    // Index of a serial, -1 when it is not registered.
    int32_t find(uint64_t serial) const noexcept {
        const int32_t* page = page_of(serial);
        return page != nullptr ? page[serial % kPage] - 1 : -1;
    }
    bool contains(uint64_t serial) const noexcept { return find(serial) >= 0; }
    void set(uint64_t serial, int32_t index) {
        int32_t* page = page_of(serial);
        if (page == nullptr) page = make_page(serial);
        page[serial % kPage] = index + 1;
    }
    void erase(uint64_t serial) noexcept;
    void clear() noexcept;
    // Index i becomes new_index[i]; entries that get -1 or lie beyond new_index are removed. Keys
    // stay as they were inserted, whatever happened to the objects since.
    void renumber(std::span<const int32_t> new_index) noexcept {
        for (Page& page : pages_) {
            if (!page) continue;
            for (uint64_t i = 0; i < kPage; ++i) {
                if (page[i] == 0) continue;
                const auto index = static_cast<std::size_t>(page[i] - 1);
                page[i] = index < new_index.size() ? new_index[index] + 1 : 0;
            }
        }
    }
    // Entries as they are, for copying a problem.
    IndexMap copy() const;

  private:
    static constexpr uint64_t kPage = 512;
    using Page = std::unique_ptr<int32_t[]>;  // index + 1, 0 for none

    // Null where nothing was ever registered.
    int32_t* page_of(uint64_t serial) const noexcept {
        // Wraps around, to a number beyond all pages, for a serial before the first one.
        const uint64_t page = serial / kPage - first_page_;
        return page < pages_.size() ? pages_[page].get() : nullptr;
    }
    int32_t* make_page(uint64_t serial);

    uint64_t first_page_ = 0;
    std::vector<Page> pages_;
};

}  // namespace nalora
