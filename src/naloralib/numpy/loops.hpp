// NumPy's universal functions on arrays of modeling objects.
#pragma once

#include <span>

#include "support/ref.hpp"

namespace nalora {

// Register the element loops of all functions that have one; at initialisation, after the element
// types.
void register_loops();
// The part of it for matrix products (numpy.matmul, the operator @).
void register_matmul_loops();

// What a universal function with element loops gives for single objects: no array is made. Empty
// for any other function or number of operands.
Ref apply_function(PyObject* function, std::span<PyObject* const> operands);

// __array_ufunc__ of the modeling types: NumPy calls it where one of them is an operand of a
// universal function. Single objects are combined at once (np.float64(2) * x), arrays with objects
// go through the element loops, so that the result is an array of expressions or constraints.
PyObject* array_ufunc(PyObject* self, PyObject* args, PyObject* keywords) noexcept;

// Its row in the method tables.
#define NALORA_ARRAY_UFUNC                                                              \
    {                                                                                   \
        "__array_ufunc__", keyword_function(array_ufunc), METH_VARARGS | METH_KEYWORDS, \
            "__array_ufunc__($self, ufunc, method, /, *inputs, **kwargs)\n--\n\n"       \
            "Apply a NumPy universal function with this object among its operands."     \
    }

}  // namespace nalora
