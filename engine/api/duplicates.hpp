// Finding repeated indices within a row, a column or a set. Part of the argument checks; an object
// of this class is scratch memory that a problem keeps between calls.
#pragma once

#include <cstdint>
#include <vector>

namespace nlra {

class DuplicateFinder {
  public:
    // Position of the first index in [begin, end) that occurred before in that range, -1 for none.
    // Indices lie in [0, size). Costs one pass; ascending indices need no memory.
    int64_t find(const int* index, int64_t begin, int64_t end, int size) {
        int64_t k = begin + 1;
        while (k < end && index[k - 1] < index[k]) ++k;
        return k >= end ? -1 : find_marking(index, begin, end, size);
    }

  private:
    int64_t find_marking(const int* index, int64_t begin, int64_t end, int size);

    std::vector<uint32_t> mark_;  // by index: the last pass that met it
    uint32_t pass_ = 0;
};

}  // namespace nlra
