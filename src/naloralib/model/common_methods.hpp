// Methods that the modeling types share. For model/ and nonlinear/ only.
#pragma once

#include "support/ref.hpp"

namespace nalora {

// __copy__ and __deepcopy__ of values: what never changes is its own copy.
PyObject* copy_is_self(PyObject* self, PyObject* unused) noexcept;
// __reduce__ and __reduce_ex__: TypeError. A serial number means nothing in another process.
PyObject* refuse_pickling(PyObject* self, PyObject* unused) noexcept;
// tp_hash of types that define comparison: the interpreter's default, by identity.
Py_hash_t identity_hash(PyObject* self) noexcept;

// A setter's value, null when the attribute is being deleted, which raises AttributeError.
void require_value(PyObject* value, const char* type, PyObject* name);
// float(value), int(value) as attributes are converted.
double float_value(PyObject* value);
// The low bits of an integer of any size.
unsigned long long integer_bits(PyObject* value);

// Rows of a method table that every modeling type has.
#define NALORA_VALUE_METHODS                                                                \
    {"__copy__", copy_is_self, METH_NOARGS, "__copy__($self)\n--\n\nThe object itself."}, { \
        "__deepcopy__", copy_is_self, METH_O,                                               \
            "__deepcopy__($self, memo, /)\n--\n\nThe object itself."                        \
    }
#define NALORA_NO_PICKLING                                                                        \
    {"__reduce__", refuse_pickling, METH_NOARGS,                                                  \
     "__reduce__($self)\n--\n\nRaises TypeError: modeling objects cannot be pickled."},           \
    {                                                                                             \
        "__reduce_ex__", refuse_pickling, METH_O,                                                 \
            "__reduce_ex__($self, protocol, /)\n--\n\nRaises TypeError: modeling objects cannot " \
            "be pickled."                                                                         \
    }

}  // namespace nalora
