// NumPy's C interface: include this instead of its headers. numpy/import.cpp imports it once and
// defines NALORA_IMPORTS_NUMPY.
#pragma once

#include "support/python.hpp"

#define NPY_NO_DEPRECATED_API NPY_1_7_API_VERSION
#define PY_ARRAY_UNIQUE_SYMBOL nalora_array_api
#define PY_UFUNC_UNIQUE_SYMBOL nalora_ufunc_api
#ifndef NALORA_IMPORTS_NUMPY
#define NO_IMPORT_ARRAY
#define NO_IMPORT_UFUNC
#endif
#include <numpy/arrayobject.h>
#include <numpy/arrayscalars.h>
#include <numpy/ufuncobject.h>

namespace nalora {

inline PyArrayObject* as_array(PyObject* object) noexcept {
    return reinterpret_cast<PyArrayObject*>(object);
}

}  // namespace nalora
