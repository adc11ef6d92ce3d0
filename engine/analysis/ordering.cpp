#include "analysis/ordering.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace nlra {

namespace {

// Minimum degree on the quotient graph (Amestoy, Davis and Duff 1996). Eliminating a variable p
// turns it into an element: the clique of its remaining neighbours, kept as one list. A variable's
// neighbourhood is a list of elements and a list of variables; both only shrink, so they live in
// one array that is never reallocated. Variables with equal neighbourhoods are merged and
// eliminated together.
class MinimumDegree {
  public:
    MinimumDegree(int n, const std::vector<int64_t>& start, const std::vector<int>& index);
    std::vector<int> run();

  private:
    void link(int variable);
    void unlink(int variable);
    int take_minimum();
    void make_element(int pivot);
    void measure_overlaps(int pivot);
    void update_variables(int pivot);
    void merge_equal();
    void append_to(int group, int variable);
    bool same_lists(int first, int second);

    const int n_;
    // Lists of variable i: elements at lists_[begin_[i]], nelements_[i] of them, then variables.
    std::vector<int64_t> begin_;
    std::vector<int> nelements_, nvariables_;
    std::vector<int> lists_;
    // Element p: its variables from pool_[element_begin_[p]] on.
    std::vector<int64_t> element_begin_;
    std::vector<int> element_size_, element_weight_;
    std::vector<char> element_alive_;
    std::vector<int> pool_;

    std::vector<int> weight_;  // merged variables that one stands for; 0 once it is gone
    std::vector<int> member_next_, member_last_;  // chains of variables eliminated together
    std::vector<int> degree_, bucket_, next_, previous_;
    std::vector<int64_t> mark_;
    int64_t stamp_ = 0;
    std::vector<int64_t> overlap_mark_;
    std::vector<int> outside_;  // weight of an element outside of the newest one
    std::vector<int> scratch_;
    std::vector<std::pair<uint64_t, int>> hashes_;
    std::vector<int> dense_;
    int lowest_ = 0;
    int remaining_ = 0;
    int newest_weight_ = 0;
};

MinimumDegree::MinimumDegree(int n, const std::vector<int64_t>& start,
                             const std::vector<int>& index)
    : n_(n),
      begin_(n),
      nelements_(n, 0),
      nvariables_(n, 0),
      element_begin_(n, 0),
      element_size_(n, 0),
      element_weight_(n, 0),
      element_alive_(n, 0),
      weight_(n, 1),
      member_next_(n, -1),
      member_last_(n),
      degree_(n, 0),
      bucket_(n + 1, -1),
      next_(n, -1),
      previous_(n, -1),
      mark_(n, 0),
      overlap_mark_(n, 0),
      outside_(n, 0) {
    // A column linked to nearly everything would be rescanned at every step, and comes last anyhow.
    const double limit = std::max(16.0, 10.0 * std::sqrt(static_cast<double>(n)));
    for (int i = 0; i < n; ++i) {
        member_last_[i] = i;
        if (static_cast<double>(start[i + 1] - start[i]) > limit) {
            weight_[i] = 0;
            dense_.push_back(i);
        }
    }
    lists_.reserve(index.size());
    for (int i = 0; i < n; ++i) {
        begin_[i] = static_cast<int64_t>(lists_.size());
        if (weight_[i] == 0) continue;
        for (int64_t k = start[i]; k < start[i + 1]; ++k) {
            if (weight_[index[k]] > 0) lists_.push_back(index[k]);
        }
        nvariables_[i] = static_cast<int>(static_cast<int64_t>(lists_.size()) - begin_[i]);
        degree_[i] = nvariables_[i];
        link(i);
        ++remaining_;
    }
}

void MinimumDegree::link(int variable) {
    const int degree = degree_[variable];
    next_[variable] = bucket_[degree];
    previous_[variable] = -1;
    if (bucket_[degree] >= 0) previous_[bucket_[degree]] = variable;
    bucket_[degree] = variable;
    lowest_ = std::min(lowest_, degree);
}

void MinimumDegree::unlink(int variable) {
    const int next = next_[variable];
    const int previous = previous_[variable];
    if (next >= 0) previous_[next] = previous;
    if (previous >= 0) {
        next_[previous] = next;
    } else {
        bucket_[degree_[variable]] = next;
    }
}

int MinimumDegree::take_minimum() {
    while (bucket_[lowest_] < 0) ++lowest_;
    const int variable = bucket_[lowest_];
    unlink(variable);
    return variable;
}

// `variable` leaves the graph and is eliminated together with `group`.
void MinimumDegree::append_to(int group, int variable) {
    member_next_[member_last_[group]] = variable;
    member_last_[group] = member_last_[variable];
    weight_[variable] = 0;
}

// The pivot's neighbours become its element; the elements that it knew are covered by it.
void MinimumDegree::make_element(int pivot) {
    ++stamp_;
    mark_[pivot] = stamp_;
    element_begin_[pivot] = static_cast<int64_t>(pool_.size());
    newest_weight_ = 0;
    const auto collect = [&](int variable) {
        if (weight_[variable] == 0 || mark_[variable] == stamp_) return;
        mark_[variable] = stamp_;
        newest_weight_ += weight_[variable];
        pool_.push_back(variable);
    };
    const int64_t begin = begin_[pivot];
    for (int k = 0; k < nelements_[pivot]; ++k) {
        const int element = lists_[begin + k];
        if (!element_alive_[element]) continue;
        for (int t = 0; t < element_size_[element]; ++t) {
            collect(pool_[element_begin_[element] + t]);
        }
        element_alive_[element] = 0;
    }
    for (int k = 0; k < nvariables_[pivot]; ++k) collect(lists_[begin + nelements_[pivot] + k]);
    element_size_[pivot] =
        static_cast<int>(static_cast<int64_t>(pool_.size()) - element_begin_[pivot]);
    element_alive_[pivot] = 1;
    remaining_ -= weight_[pivot];
    weight_[pivot] = 0;
}

// For every element met from the newest one: how much of it lies outside.
void MinimumDegree::measure_overlaps(int pivot) {
    for (int t = 0; t < element_size_[pivot]; ++t) {
        const int i = pool_[element_begin_[pivot] + t];
        for (int k = 0; k < nelements_[i]; ++k) {
            const int element = lists_[begin_[i] + k];
            if (!element_alive_[element]) continue;
            if (overlap_mark_[element] != stamp_) {
                overlap_mark_[element] = stamp_;
                outside_[element] = element_weight_[element];
            }
            outside_[element] -= weight_[i];
        }
    }
}

// Rewrite the lists of the newest element's variables and bound their degrees.
void MinimumDegree::update_variables(int pivot) {
    hashes_.clear();
    for (int t = 0; t < element_size_[pivot]; ++t) {
        const int i = pool_[element_begin_[pivot] + t];
        unlink(i);
        const int64_t begin = begin_[i];
        int64_t outside = 0;
        uint64_t hash = static_cast<uint64_t>(pivot);
        scratch_.clear();
        for (int k = 0; k < nelements_[i]; ++k) {
            const int element = lists_[begin + k];
            if (!element_alive_[element]) continue;
            if (outside_[element] == 0) {
                element_alive_[element] = 0;  // contained in the newest one
                continue;
            }
            scratch_.push_back(element);
            outside += outside_[element];
            hash += static_cast<uint64_t>(element);
        }
        scratch_.push_back(pivot);
        const int nelements = static_cast<int>(scratch_.size());
        for (int k = 0; k < nvariables_[i]; ++k) {
            const int variable = lists_[begin + nelements_[i] + k];
            if (weight_[variable] == 0 || mark_[variable] == stamp_) continue;
            scratch_.push_back(variable);
            outside += weight_[variable];
            hash += static_cast<uint64_t>(variable);
        }
        // The pivot, or an element that it absorbed, was in a list: the new ones fit.
        std::copy(scratch_.begin(), scratch_.end(), lists_.begin() + begin);
        nelements_[i] = nelements;
        nvariables_[i] = static_cast<int>(scratch_.size()) - nelements;
        if (scratch_.size() == 1) {
            // Nothing outside: eliminated with the pivot without any fill.
            newest_weight_ -= weight_[i];
            remaining_ -= weight_[i];
            append_to(pivot, i);
            continue;
        }
        degree_[i] = static_cast<int>(std::min<int64_t>(outside, static_cast<int64_t>(degree_[i])));
        hashes_.emplace_back(hash, i);
    }
    element_weight_[pivot] = newest_weight_;
}

bool MinimumDegree::same_lists(int first, int second) {
    if (nelements_[first] != nelements_[second] || nvariables_[first] != nvariables_[second]) {
        return false;
    }
    const int length = nelements_[second] + nvariables_[second];
    for (int k = 0; k < length; ++k) {
        const int entry = lists_[begin_[second] + k];
        if (mark_[entry] != stamp_) return false;
    }
    return true;
}

void MinimumDegree::merge_equal() {
    std::sort(hashes_.begin(), hashes_.end());
    for (size_t a = 0; a < hashes_.size(); ++a) {
        const int first = hashes_[a].second;
        if (weight_[first] == 0) continue;
        bool marked = false;
        for (size_t b = a + 1; b < hashes_.size() && hashes_[b].first == hashes_[a].first; ++b) {
            const int second = hashes_[b].second;
            if (weight_[second] == 0) continue;
            if (!marked) {
                marked = true;
                ++stamp_;
                const int length = nelements_[first] + nvariables_[first];
                for (int k = 0; k < length; ++k) mark_[lists_[begin_[first] + k]] = stamp_;
            }
            if (!same_lists(first, second)) continue;
            weight_[first] += weight_[second];
            append_to(first, second);
        }
    }
}

std::vector<int> MinimumDegree::run() {
    std::vector<int> pivots;
    while (remaining_ > 0) {
        const int pivot = take_minimum();
        pivots.push_back(pivot);
        make_element(pivot);
        measure_overlaps(pivot);
        update_variables(pivot);
        merge_equal();
        // Keep the representatives only, with degrees that count the newest element.
        int kept = 0;
        for (int t = 0; t < element_size_[pivot]; ++t) {
            const int i = pool_[element_begin_[pivot] + t];
            if (weight_[i] == 0) continue;
            pool_[element_begin_[pivot] + kept++] = i;
            const int64_t bound = static_cast<int64_t>(degree_[i]) + newest_weight_ - weight_[i];
            degree_[i] = static_cast<int>(
                std::clamp<int64_t>(bound, 0, std::max(0, remaining_ - weight_[i])));
            link(i);
        }
        element_size_[pivot] = kept;
        pool_.resize(static_cast<size_t>(element_begin_[pivot] + kept));
    }
    std::vector<int> order;
    order.reserve(n_);
    for (const int pivot : pivots) {
        for (int i = pivot; i >= 0; i = member_next_[i]) order.push_back(i);
    }
    order.insert(order.end(), dense_.begin(), dense_.end());
    return order;
}

}  // namespace

std::vector<int> minimum_degree_order(int n, const std::vector<int64_t>& start,
                                      const std::vector<int>& index) {
    return MinimumDegree(n, start, index).run();
}

}  // namespace nlra
