// Going through the elements of an array in C order, by their addresses.
#pragma once

#include "numpy/element_types.hpp"
#include "support/boundary.hpp"

namespace nalora {

// Hands the address of every element to `visit`, whose code may do anything to the array. One that
// lies in memory as it is walked may even be resized meanwhile: address and size are read again
// after each element. Any other one must stay where it is, RuntimeError.
template <class Visit>
void for_each_address(PyObject* object, Visit visit) {
    PyArrayObject* array = as_array(object);
    if (PyArray_IS_C_CONTIGUOUS(array)) {
        const npy_intp width = PyArray_ITEMSIZE(array);
        for (npy_intp i = 0; i < PyArray_SIZE(array); ++i) {
            visit(const_cast<const char*>(PyArray_BYTES(array) + i * width));
        }
        return;
    }
    const Ref iterator = take(PyArray_IterNew(object));
    auto* position = iterator.as<PyArrayIterObject>();
    const char* const data = PyArray_BYTES(array);
    const npy_intp size = PyArray_SIZE(array);
    while (PyArray_ITER_NOTDONE(position)) {
        visit(static_cast<const char*>(PyArray_ITER_DATA(position)));
        if (PyArray_BYTES(array) != data || PyArray_SIZE(array) != size) {
            raise(PyExc_RuntimeError, "array changed size during iteration");
        }
        PyArray_ITER_NEXT(position);
    }
}

// Whether an object is an array of npvar, npexpr or npconstraint.
inline bool is_element_array(PyObject* object) noexcept {
    return PyArray_Check(object) && PyArray_TYPE(as_array(object)) != NPY_OBJECT &&
           holds_objects(PyArray_TYPE(as_array(object)));
}

}  // namespace nalora
