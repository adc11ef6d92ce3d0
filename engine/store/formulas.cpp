#include "store/formulas.hpp"

#include <utility>

namespace nlra {
namespace {

// False when the coefficient has become zero.
bool renumber(Coefficient& coefficient, const std::vector<int>& map) {
    if (coefficient.column >= 0) {
        coefficient.column = map[coefficient.column];
        if (coefficient.column < 0) return false;
    }
    for (size_t k = 0; k < coefficient.types.size(); ++k) {
        if (coefficient.types[k] != NSLP_TOKEN_COLUMN) continue;
        const int column = map[static_cast<int>(coefficient.values[k])];
        if (column < 0) coefficient.types[k] = NSLP_TOKEN_CONSTANT;
        coefficient.values[k] = column < 0 ? 0.0 : column;
    }
    return true;
}

void renumber(Formula& formula, const std::vector<int>& map, UserFunctions& functions) {
    std::erase_if(formula, [&](Coefficient& c) {
        if (renumber(c, map)) return false;
        functions.count_calls(c.types, c.values, -1);
        return true;
    });
}

}  // namespace

void Formulas::renumber_columns(const std::vector<int>& map) {
    renumber(objective, map, functions);
    for (auto& [row, formula] : rows) renumber(formula, map, functions);
    std::erase_if(rows, [](const auto& entry) { return entry.second.empty(); });
    std::map<int, double> kept;
    for (const auto& [column, value] : start) {
        if (map[column] >= 0) kept.emplace_hint(kept.end(), map[column], value);
    }
    start.swap(kept);
}

}  // namespace nlra
