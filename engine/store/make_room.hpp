// Room in a vector for what is about to be appended.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace nlra {

template <class T>
[[gnu::noinline]] void grow(std::vector<T>& vector, size_t needed) {
    vector.reserve(std::max(needed, 2 * vector.capacity()));
}

// Geometric growth, which reserve() alone would not give: many small appends would cost quadratic
// time. The vector is as it was when there is no memory.
template <class T>
void make_room(std::vector<T>& vector, int64_t more) {
    const size_t needed = vector.size() + static_cast<size_t>(more);
    if (needed > vector.capacity()) [[unlikely]]
        grow(vector, needed);
}

}  // namespace nlra
