// Terms of a sum put in order, with those of the same key added up.
#pragma once

#include <algorithm>
#include <vector>

namespace nlra {

// Terms have the same key when neither comes before the other. The order of what is added up stays,
// so that the sums do not depend on the sorting.
template <class Term, class Before>
void merge_equal(std::vector<Term>& terms, Before before) {
    if (!std::is_sorted(terms.begin(), terms.end(), before)) {
        std::stable_sort(terms.begin(), terms.end(), before);
    }
    size_t kept = 0;
    for (size_t i = 0; i < terms.size(); ++i) {
        if (kept > 0 && !before(terms[kept - 1], terms[i])) {
            terms[kept - 1].value += terms[i].value;
        } else {
            terms[kept++] = terms[i];
        }
    }
    terms.resize(kept);
}

}  // namespace nlra
