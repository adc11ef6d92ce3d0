// Merging of repeated terms. Plain C++ that knows no Python.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <span>
#include <vector>

namespace nalora {

namespace merging {

// Adds entries of the same key in their order of insertion.
template <class Entry>
class Group {
  public:
    explicit Group(const Entry& first) noexcept : total_(first) {}

    const Entry& total() const noexcept { return total_; }
    void add(const Entry& entry) noexcept {
        total_.coef += entry.coef;
        repeated_ = true;
    }
    // A sum that became zero is no term; a single zero was put there on purpose.
    bool cancelled() const noexcept { return repeated_ && total_.coef == 0.0; }

  private:
    Entry total_;
    bool repeated_ = false;
};

// The terms of a log, of which `order` tells the positions: by key, and equal keys as inserted.
template <class Entry>
std::vector<Entry> merge_in_order(std::span<const Entry> log, std::span<const uint32_t> order) {
    std::vector<Entry> terms;
    terms.reserve(order.size());
    for (std::size_t i = 0; i < order.size();) {
        Group<Entry> group(log[order[i]]);
        for (++i; i < order.size() && log[order[i]].same(group.total()); ++i) {
            group.add(log[order[i]]);
        }
        if (!group.cancelled()) terms.push_back(group.total());
    }
    return terms;
}

template <class Entry>
std::vector<Entry> merge_by_sorting(std::span<const Entry> log) {
    std::vector<uint32_t> order(log.size());
    std::iota(order.begin(), order.end(), uint32_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](uint32_t a, uint32_t b) { return log[a].before(log[b]); });
    return merge_in_order<Entry>(log, order);
}

// What lies between the smallest and the largest value of one of the keys.
struct Range {
    uint64_t first = 0, size = 0;

    // Not much wider than the number of terms, so that an array over it costs no more than they do.
    bool is_dense(std::size_t terms) const noexcept { return size <= 8 * uint64_t{terms}; }
};

template <auto Key, class Entry>
Range range_of(std::span<const Entry> log) noexcept {
    uint64_t low = log[0].*Key, high = low;
    for (const Entry& entry : log) {
        low = std::min(low, entry.*Key);
        high = std::max(high, entry.*Key);
    }
    return {low, high - low + 1};
}

// The position of each key's group is looked up in an array over the range.
template <class Entry>
std::vector<Entry> merge_by_position(std::span<const Entry> log, Range range) {
    std::vector<uint32_t> positions(range.size, 0);  // group index + 1
    std::vector<Group<Entry>> groups;
    groups.reserve(std::min<uint64_t>(range.size, log.size()));
    for (const Entry& entry : log) {
        uint32_t& position = positions[entry.serial - range.first];
        if (position == 0) {
            groups.emplace_back(entry);
            position = static_cast<uint32_t>(groups.size());
        } else {
            groups[position - 1].add(entry);
        }
    }
    std::vector<Entry> terms;
    terms.reserve(groups.size());
    for (const uint32_t position : positions) {
        if (position != 0 && !groups[position - 1].cancelled()) {
            terms.push_back(groups[position - 1].total());
        }
    }
    return terms;
}

// One pass of a counting sort: the positions in `order` by a key, equal ones as they were.
template <auto Key, class Entry>
std::vector<uint32_t> order_by(std::span<const Entry> log, Range range,
                               std::span<const uint32_t> order) {
    std::vector<uint32_t> next(range.size + 1, 0);
    for (const Entry& entry : log) ++next[entry.*Key - range.first + 1];
    for (uint64_t i = 0; i < range.size; ++i) next[i + 1] += next[i];
    std::vector<uint32_t> result(order.size());
    for (const uint32_t position : order) {
        result[next[log[position].*Key - range.first]++] = position;
    }
    return result;
}

}  // namespace merging

// The terms of a log ordered by key, repeats added up. Linear time where the serials lie in ranges
// not much wider than their number.
template <class Entry>
std::vector<Entry> merge_terms(std::span<const Entry> log) {
    using namespace merging;
    constexpr std::size_t kWorthwhile = 64;
    if (log.size() < kWorthwhile) return merge_by_sorting(log);
    if constexpr (requires(const Entry& e) { e.serial; }) {
        const Range range = range_of<&Entry::serial>(log);
        if (range.is_dense(log.size())) return merge_by_position(log, range);
    } else {
        const Range first = range_of<&Entry::serial1>(log), second = range_of<&Entry::serial2>(log);
        if (first.is_dense(log.size()) && second.is_dense(log.size())) {
            std::vector<uint32_t> order(log.size());
            std::iota(order.begin(), order.end(), uint32_t{0});
            order = order_by<&Entry::serial2>(log, second, order);
            order = order_by<&Entry::serial1>(log, first, order);
            return merge_in_order<Entry>(log, order);
        }
    }
    return merge_by_sorting(log);
}

}  // namespace nalora
