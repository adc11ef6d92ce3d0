#include "api/duplicates.hpp"

#include <algorithm>

namespace nlra {

int64_t DuplicateFinder::find_marking(const int* index, int64_t begin, int64_t end, int size) {
    if (mark_.size() < static_cast<size_t>(size)) {
        mark_.resize(std::max(static_cast<size_t>(size), 2 * mark_.size()), 0);
    }
    if (++pass_ == 0) {
        std::fill(mark_.begin(), mark_.end(), 0);
        pass_ = 1;
    }
    for (int64_t k = begin; k < end; ++k) {
        uint32_t& mark = mark_[index[k]];
        if (mark == pass_) return k;
        mark = pass_;
    }
    return -1;
}

}  // namespace nlra
