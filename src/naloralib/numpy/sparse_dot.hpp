// Products of sparse matrices with arrays: what nalora.sparse is made of.
#pragma once

#include "support/python.hpp"

namespace nalora {

// _sparse_dot(data, indices, indptr, x): the matrix by its rows times an array of one or two
// dimensions, in time that grows with the non-zeros (and the size of the result) only.
PyObject* sparse_dot(PyObject* module, PyObject* args) noexcept;
extern const char* const kSparseDotDoc;

}  // namespace nalora
