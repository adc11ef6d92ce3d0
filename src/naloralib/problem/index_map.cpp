#include "problem/index_map.hpp"

#include <algorithm>

namespace nalora {

int32_t* IndexMap::make_page(uint64_t serial) {
    const uint64_t number = serial / kPage;
    if (pages_.empty()) {
        pages_.resize(1);
        first_page_ = number;
    } else if (number < first_page_) {
        // Room for as many pages again, so that falling serials cost no more than rising ones.
        const uint64_t room = std::min<uint64_t>(
            first_page_, std::max<uint64_t>(first_page_ - number, pages_.size()));
        std::vector<Page> moved(pages_.size() + room);
        std::move(pages_.begin(), pages_.end(), moved.begin() + static_cast<std::ptrdiff_t>(room));
        pages_ = std::move(moved);
        first_page_ -= room;
    } else if (number - first_page_ >= pages_.size()) {
        pages_.resize(number - first_page_ + 1);
    }
    Page& page = pages_[number - first_page_];
    if (!page) page = spare_ ? std::move(spare_) : std::make_unique<int32_t[]>(kPage + 1);
    return page.get();
}

void IndexMap::drop_page(Page& page) noexcept {
    if (spare_) {
        page.reset();
    } else {
        spare_ = std::move(page);
    }
}

// The front is cut off only where that halves the directory: its entries have to be moved.
void IndexMap::trim() noexcept {
    while (!pages_.empty() && !pages_.back()) pages_.pop_back();
    const auto front =
        std::find_if(pages_.begin(), pages_.end(), [](const Page& p) { return !!p; });
    const auto gap = static_cast<std::size_t>(front - pages_.begin());
    if (2 * gap < pages_.size() || gap == 0) return;
    pages_.erase(pages_.begin(), front);
    first_page_ += gap;
}

void IndexMap::erase(uint64_t serial) noexcept {
    if (!contains(serial)) return;
    Page& page = pages_[serial / kPage - first_page_];
    page[serial % kPage] = 0;
    if (--page[kPage] > 0) return;
    drop_page(page);
    trim();
}

void IndexMap::clear() noexcept {
    pages_.clear();
    pages_.shrink_to_fit();
    first_page_ = 0;
    gaps_.clear();
}

void IndexMap::close_gaps() noexcept {
    if (gaps_.empty()) return;
    std::size_t hint = 0;
    for (Page& page : pages_) {
        if (!page) continue;
        int32_t count = 0;
        for (uint64_t i = 0; i < kPage; ++i) {
            if (page[i] == 0) continue;
            page[i] = gaps_.index(page[i] - 1, hint) + 1;
            count += page[i] != 0;
        }
        page[kPage] = count;
        if (count == 0) drop_page(page);
    }
    gaps_.clear();
    trim();
}

std::size_t IndexMap::page_count() const noexcept {
    return static_cast<std::size_t>(
        std::count_if(pages_.begin(), pages_.end(), [](const Page& page) { return !!page; }));
}

IndexMap IndexMap::copy() const {
    IndexMap result;
    result.first_page_ = first_page_;
    result.gaps_ = gaps_;
    result.pages_.resize(pages_.size());
    for (std::size_t i = 0; i < pages_.size(); ++i) {
        if (!pages_[i]) continue;
        result.pages_[i] = std::make_unique<int32_t[]>(kPage + 1);
        std::copy_n(pages_[i].get(), kPage + 1, result.pages_[i].get());
    }
    return result;
}

}  // namespace nalora
