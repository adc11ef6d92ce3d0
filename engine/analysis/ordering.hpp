// Fill-reducing elimination orders of sparse symmetric matrices. Pure graph code: no values.
#pragma once

#include <cstdint>
#include <vector>

namespace nlra {

// Approximate minimum degree order of a symmetric pattern: column j holds the rows
// index[start[j]] to index[start[j + 1] - 1], both triangles, no diagonal, no repeats. The result
// lists the columns in the order of elimination. Nearly dense columns come last.
std::vector<int> minimum_degree_order(int n, const std::vector<int64_t>& start,
                                      const std::vector<int>& index);

}  // namespace nlra
