// The initialisation slot of types that are made without arguments.
#pragma once

#include "support/python.hpp"

namespace nalora {

inline int init_without_arguments(PyObject* self, PyObject* args, PyObject* kwargs) noexcept {
    if (PyTuple_GET_SIZE(args) == 0 && (kwargs == nullptr || PyDict_Size(kwargs) == 0)) return 0;
    PyErr_Format(PyExc_TypeError, "%.200s() takes no arguments", Py_TYPE(self)->tp_name);
    return -1;
}

}  // namespace nalora
