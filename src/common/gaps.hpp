// Deleted objects whose places in an array have not been closed yet: where the others are, and
// which indices they have, as if it had been. Closing takes a pass over the array, so it is put off
// until there are many gaps or something needs the array as it should be.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace common {

class Gaps {
  public:
    // So many that closing costs little per gap, so few that they are found and inserted quickly.
    static constexpr int kMost = 4096;

    bool empty() const noexcept { return at_.empty(); }
    int size() const noexcept { return static_cast<int>(at_.size()); }
    // Ascending.
    const std::vector<int>& positions() const noexcept { return at_; }

    // Where in the array the object of an index is.
    int position(int index) const noexcept {
        // The object behind gap k has at least the index at_[k] - k.
        std::size_t low = 0, high = at_.size();
        while (low < high) {
            const std::size_t middle = (low + high) / 2;
            if (at_[middle] - static_cast<int>(middle) <= index) {
                low = middle + 1;
            } else {
                high = middle;
            }
        }
        return index + static_cast<int>(low);
    }
    // The index of the object at a position, -1 for a gap.
    int index(int position) const noexcept {
        const auto next = std::lower_bound(at_.begin(), at_.end(), position);
        if (next != at_.end() && *next == position) return -1;
        return position - static_cast<int>(next - at_.begin());
    }

    // The same for many positions, which mostly come in order: `hint` is 0 at first.
    int index(int position, std::size_t& hint) const noexcept {
        const bool known = (hint == 0 || at_[hint - 1] < position) &&
                           (hint == at_.size() || position <= at_[hint]);
        if (!known) {
            hint = static_cast<std::size_t>(std::lower_bound(at_.begin(), at_.end(), position) -
                                            at_.begin());
        }
        const bool is_gap = hint < at_.size() && at_[hint] == position;
        return is_gap ? -1 : position - static_cast<int>(hint);
    }

    // Make room, so that adding as many cannot fail.
    void reserve(std::size_t more) {
        if (at_.capacity() < at_.size() + more) at_.reserve(2 * at_.size() + more);
    }
    // The objects of these indices, ascending and without repeats, are gone.
    void add(const std::vector<int>& sorted) {
        reserve(sorted.size());
        // From the last one on, so that the gaps behind move once and earlier indices stay valid.
        std::size_t from = at_.size(), to = at_.size() + sorted.size();
        at_.resize(to);
        for (std::size_t k = sorted.size(); k-- > 0;) {
            while (from > 0 && at_[from - 1] - static_cast<int>(from - 1) > sorted[k]) {
                at_[--to] = at_[--from];
            }
            at_[--to] = sorted[k] + static_cast<int>(from);
        }
    }
    void clear() noexcept { at_.clear(); }

  private:
    std::vector<int> at_;
};

}  // namespace common
