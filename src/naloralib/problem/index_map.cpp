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
    if (!page) page = std::make_unique<int32_t[]>(kPage);
    return page.get();
}

void IndexMap::erase(uint64_t serial) noexcept {
    if (contains(serial)) pages_[serial / kPage - first_page_][serial % kPage] = 0;
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
        for (uint64_t i = 0; i < kPage; ++i) {
            if (page[i] != 0) page[i] = gaps_.index(page[i] - 1, hint) + 1;
        }
    }
    gaps_.clear();
}

IndexMap IndexMap::copy() const {
    IndexMap result;
    result.first_page_ = first_page_;
    result.gaps_ = gaps_;
    result.pages_.resize(pages_.size());
    for (std::size_t i = 0; i < pages_.size(); ++i) {
        if (!pages_[i]) continue;
        result.pages_[i] = std::make_unique<int32_t[]>(kPage);
        std::copy_n(pages_[i].get(), kPage, result.pages_[i].get());
    }
    return result;
}

}  // namespace nalora
