// The nested-sequence walker: hands every leaf of an object, or of tuples, lists, dictionaries
// (values), iterators, other sequences and NumPy arrays of objects to a function, in order.
#pragma once

#include <cstddef>
#include <span>

#include "support/function_ref.hpp"
#include "support/ref.hpp"

namespace nalora {

inline constexpr int kWalkDepth = 32;

// Leaves are borrowed for the call. Collections may change under the walk (a leaf's own code may
// run): lengths are read again after every item. The first exception ends the walk.
void walk(PyObject* object, FunctionRef<void(PyObject*)> leaf, int depth = kWalkDepth);

// True for what is handed to the leaf function as it is: no collection of any kind.
bool is_leaf(PyObject* object) noexcept;

// True when walking the objects runs no Python code as far as shows at once: leaves, and lists and
// tuples of them.
bool is_plain_structure(std::span<PyObject* const> objects, int depth = 4) noexcept;

// How many leaves there are in all, where that shows without walking: in arrays, lists and tuples
// that do not nest. A guess, as a reserve of memory.
std::size_t leaf_count(std::span<PyObject* const> objects) noexcept;

}  // namespace nalora
