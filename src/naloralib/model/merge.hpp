// Merging of repeated terms. Plain C++ that knows no Python.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
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

template <class Entry>
std::vector<Entry> merge_by_sorting(std::span<const Entry> log) {
    std::vector<Entry> terms(log.begin(), log.end());
    std::stable_sort(terms.begin(), terms.end(),
                     [](const Entry& a, const Entry& b) { return a.before(b); });
    std::size_t kept = 0;
    for (std::size_t i = 0; i < terms.size();) {
        Group<Entry> group(terms[i]);
        for (++i; i < terms.size() && terms[i].same(group.total()); ++i) group.add(terms[i]);
        if (!group.cancelled()) terms[kept++] = group.total();
    }
    terms.erase(terms.begin() + static_cast<std::ptrdiff_t>(kept), terms.end());
    return terms;
}

// Linear time where the serials lie in a range not much wider than their number: the position of
// each serial's group is looked up in an array over the range.
template <class Entry>
std::vector<Entry> merge_by_position(std::span<const Entry> log, uint64_t first, uint64_t range) {
    std::vector<uint32_t> positions(range, 0);  // group index + 1
    std::vector<Group<Entry>> groups;
    for (const Entry& entry : log) {
        uint32_t& position = positions[entry.serial - first];
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

}  // namespace merging

// The terms of a log ordered by key, repeats added up.
template <class Entry>
std::vector<Entry> merge_terms(std::span<const Entry> log) {
    if constexpr (requires(const Entry& e) { e.serial; }) {
        constexpr std::size_t kWorthwhile = 64;
        if (log.size() >= kWorthwhile) {
            const auto [low, high] = std::minmax_element(
                log.begin(), log.end(),
                [](const Entry& a, const Entry& b) { return a.serial < b.serial; });
            const uint64_t range = high->serial - low->serial + 1;
            if (range <= 8 * log.size()) {
                return merging::merge_by_position(log, low->serial, range);
            }
        }
    }
    return merging::merge_by_sorting(log);
}

}  // namespace nalora
