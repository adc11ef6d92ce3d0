// Conversions between Python objects and the library's arrays and indices.
#pragma once

#include <cstddef>
#include <cstdint>

#include "problem/problem.hpp"
#include "support/buffer.hpp"

namespace nalora {

enum class Conv : int {
    row = 0,
    col = 1,
    set = 2,
    integer = 3,
    int64 = 4,
    real = 5,
    character = 6,
    charcode = 7,
    string = 8,
    cut = 9,
    object = 10,
    rowcol = 11
};

// An integer where one is required: an int (or subclass) or a numpy.intc or numpy.int_ scalar.
bool is_integer(PyObject* object) noexcept;
// The value of what is_integer accepted; OverflowError beyond 64 (32) bits.
int64_t integer_value(PyObject* integer);
int32_t int32_value(PyObject* integer);

// Index of a modeling object, name or integer (not range-checked) for kinds row, col, set, rowcol.
int32_t conv_obj2index(PyObject* object, ProblemObject* problem, Conv kind);

// What a column's index is added to where rows and columns are numbered together (rowcol).
int32_t first_column_index(ProblemObject* problem);

// Bytes per element of an array of this kind; ModelError for rowcol, which has no arrays.
std::size_t conv_width(Conv kind);

// A C array filled from a Python sequence or iterator; owns the memory and the objects whose
// memory it points into (strings). `count`: negative is filled with the length; otherwise the
// length must agree. Null or None gives a null array and leaves count alone.
Array conv_obj2arr(ProblemObject* problem, int64_t* count, PyObject* object, Conv kind);

// Write the first n elements of `array` into `list` in place (a list; null or None: nothing).
void conv_arr2obj(ProblemObject* problem, int64_t n, const void* array, PyObject* list, Conv kind);

Ref rowcol_to_obj(ProblemObject* problem, int32_t index);

}  // namespace nalora
