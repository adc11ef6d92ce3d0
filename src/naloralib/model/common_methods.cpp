#include "model/common_methods.hpp"

#include "support/boundary.hpp"

namespace nalora {

PyObject* copy_is_self(PyObject* self, PyObject*) noexcept { return Ref::borrow(self).release(); }

PyObject* refuse_pickling(PyObject* self, PyObject*) noexcept {
    PyErr_Format(PyExc_TypeError,
                 "cannot pickle '%s' object: modeling objects are identified within one process; "
                 "write the problem to a file instead",
                 Py_TYPE(self)->tp_name);
    return nullptr;
}

Py_hash_t identity_hash(PyObject* self) noexcept { return PyBaseObject_Type.tp_hash(self); }

void require_value(PyObject* value, const char* type, PyObject* name) {
    if (value == nullptr) {
        raise(PyExc_AttributeError, "attribute %S of type %s cannot be deleted", name, type);
    }
}

// May run Python code (__float__): read the object's fields afterwards, not before.
double float_value(PyObject* value) {
    const double result = PyFloat_AsDouble(value);
    if (result == -1.0 && PyErr_Occurred() != nullptr) throw PythonError();
    return result;
}

unsigned long long integer_bits(PyObject* value) {
    const Ref integer = take(PyNumber_Index(value));
    const unsigned long long result = PyLong_AsUnsignedLongLongMask(integer.get());
    if (result == static_cast<unsigned long long>(-1) && PyErr_Occurred() != nullptr) {
        throw PythonError();
    }
    return result;
}

}  // namespace nalora
