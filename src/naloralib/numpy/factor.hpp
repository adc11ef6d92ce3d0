// Arrays as the factors of matrix products.
#pragma once

#include "support/numpy.hpp"
#include "support/ref.hpp"

namespace nalora {

// A factor as the products read it: an array of NumPy's own class, aligned, in C order, of doubles
// or of references to objects.
struct Factor {
    Ref array;
    bool is_double;

    PyArrayObject* get() const noexcept { return array.as<PyArrayObject>(); }
    const char* data() const noexcept { return PyArray_BYTES(get()); }
    int dimensions() const noexcept { return PyArray_NDIM(get()); }
    const npy_intp* sizes() const noexcept { return PyArray_DIMS(get()); }
};
inline constexpr npy_intp kFactorItem = 8;  // bytes of a double or a reference
static_assert(sizeof(double) == kFactorItem && sizeof(PyObject*) == kFactorItem);

// The array itself where it is fit for it, otherwise a copy. Doubles are made of numbers of any
// NumPy type, and of arrays of objects that are all numbers. ModelError "Dot product must be
// between long, double, and expressions/variables" for an array of anything else; objects are
// looked at when they are multiplied.
Factor factor_of(PyArrayObject* array);

// An array of a NumPy type that every element is converted to where necessary, in C order.
Ref in_c_order(PyArrayObject* array, int type);

[[noreturn]] void refuse_elements();  // with the message above

}  // namespace nalora
