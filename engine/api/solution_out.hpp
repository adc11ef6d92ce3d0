// Handing a solution's values out, all of them or those of one column and one row. A null pointer
// is not wanted.
#pragma once

#include <algorithm>
#include <vector>

#include "api/checks.hpp"
#include "search/solution.hpp"

namespace nlra {

inline void copy_solution(const Solution& solution, double* x, double* slack, double* dual,
                          double* dj) {
    const auto copy = [](const std::vector<double>& values, double* out) {
        if (out != nullptr) std::copy(values.begin(), values.end(), out);
    };
    copy(solution.x, x);
    copy(solution.slack, slack);
    copy(solution.dual, dual);
    copy(solution.dj, dj);
}

// An index is looked at where one of its values is wanted; both are checked before the first value
// goes out.
inline void copy_one(const Solution& solution, int col, int row, double* x, double* slack,
                     double* dual, double* dj) {
    if (x != nullptr || dj != nullptr) {
        check_index("col", col, static_cast<int>(solution.x.size()), Kind::kColumn);
    }
    if (slack != nullptr || dual != nullptr) {
        check_index("row", row, static_cast<int>(solution.slack.size()), Kind::kRow);
    }
    if (x != nullptr) *x = solution.x[col];
    if (slack != nullptr) *slack = solution.slack[row];
    if (dual != nullptr) *dual = solution.dual[row];
    if (dj != nullptr) *dj = solution.dj[col];
}

}  // namespace nlra
