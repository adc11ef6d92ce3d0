// Formulas as arguments of C functions. No length is told: a formula ends at its end token, and
// whoever calls must see to it that there is one.
#pragma once

#include <limits>

#include "api/checks.hpp"
#include "nonlinear/formula_parser.hpp"
#include "store/error.hpp"

namespace nlra {

inline constexpr int kObjectiveRow = -1;

inline void check_formula_row(const char* name, int index, const Model& model) {
    if (index != kObjectiveRow) check_index(name, index, model.rows(), Kind::kRow);
}

inline void check_parsed(int parsed) {
    if (parsed != 1) {
        fail(NLRA_ERROR_ARGUMENT, "parsed = %d: only parsed formulas (1) are read", parsed);
    }
}

// The tokens before the end token, checked, with the factor 1 and no column.
inline Coefficient read_coefficient(const int* type, const double* value,
                                    const FormulaScope& scope) {
    const size_t tokens =
        check_formula(type, value, static_cast<size_t>(std::numeric_limits<int>::max()), scope);
    Coefficient result;
    result.types.assign(type, type + tokens);
    result.values.assign(value, value + tokens);
    return result;
}

}  // namespace nlra
