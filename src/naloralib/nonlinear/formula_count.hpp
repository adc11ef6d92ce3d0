// The size of formulas, and what writing one must know about nodes too. For the formula files only.
#pragma once

#include <cstdint>

#include "model/operands.hpp"
#include "nonlinear/node.hpp"

namespace nalora {

// Nodes below each other, from the root on.
inline constexpr int kFormulaDepth = 64;
// Raise ModelError when a node finds no level left.
void require_levels(int depth);

// The number of tokens that the formula of an object takes at most, without its end. In time that
// grows with the tree as it is stored, not as it is written. ModelError for more than `limit`.
uint64_t count_tokens(PyObject* object, uint64_t limit);

// Written as pairs of pairs of operands, so that any number of them is one level.
inline bool is_series(Op op) noexcept { return op == Op::sum || op == Op::product; }
inline bool is_operator(Op op) noexcept { return op <= Op::power; }

inline Kind argument_kind(PyObject* object) noexcept {
    return Py_TYPE(object) == &NonlinearType ? Kind::nonlinear : operand_kind(object);
}

}  // namespace nalora
