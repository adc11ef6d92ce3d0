// Bounds and flags in the descriptor words of variables and constraints. For model/ only.
//
// A bound is two bits of code and one bit that tells whether the side table holds a value: codes 0
// to 2 stand for the three common values, 3 for the value in the table.
#pragma once

#include <limits>

#include "model/side_tables.hpp"

namespace nalora {

struct BoundField {
    int shift;   // of the code; the flag is the bit behind it
    bool lower;  // infinite at or below the first, otherwise at or above it
    double infinite;
    double common[3];  // the infinite value among them
    NumberTable table;

    constexpr uint64_t code_mask() const noexcept { return uint64_t{3} << shift; }
    constexpr uint64_t flag() const noexcept { return uint64_t{1} << (shift + 2); }
};

// `serial` is the one in the word.
inline double read_bound(const BoundField& field, uint64_t word, uint64_t serial) noexcept {
    const uint64_t code = word >> field.shift & 3;
    if (code != 3) return field.common[code];
    // The table is gone when the module was released before the object.
    double value = std::numeric_limits<double>::quiet_NaN();
    find_number(field.table, serial, value);
    return value;
}

// The bound as it is stored (infinite values become the infinite value), and its code.
inline uint64_t bound_code(const BoundField& field, double& bound) noexcept {
    if (field.lower ? bound <= field.infinite : bound >= field.infinite) bound = field.infinite;
    uint64_t code = 0;
    while (code < 3 && bound != field.common[code]) ++code;  // NaN is kept in the table too
    return code;
}

inline void write_bound(const BoundField& field, uint64_t& word, uint64_t serial, double bound) {
    const uint64_t code = bound_code(field, bound);
    if (code == 3) {
        store_number(field.table, serial, bound);
        word |= field.flag();
    } else if ((word & field.flag()) != 0) {
        erase_number(field.table, serial);
        word &= ~field.flag();
    }
    word = (word & ~field.code_mask()) | code << field.shift;
}

}  // namespace nalora
