// Which objects are numbers, and what kind of operand an object is.
#include "model/operands.hpp"
#include "support/numpy.hpp"

namespace nalora {

bool is_array(PyObject* o) noexcept { return PyArray_Check(o); }

// NumPy's other scalar types (small and unsigned integers, half and extended precision, bool) are
// no numbers to the operators.
bool is_number(PyObject* o) noexcept {
    return PyLong_Check(o) || PyFloat_Check(o) || PyArray_IsScalar(o, Float) ||
           PyArray_IsScalar(o, Int) || PyArray_IsScalar(o, Long) || PyArray_IsScalar(o, LongLong);
    // NumPy's double precision scalar needs no test: it is a Python float.
}

double number_value(PyObject* o) {
    if (PyLong_Check(o)) {
        const double value = PyLong_AsDouble(o);
        if (value == -1.0 && PyErr_Occurred() != nullptr) throw PythonError();
        return value;
    }
    if (PyFloat_Check(o)) return PyFloat_AS_DOUBLE(o);
    if (PyArray_IsScalar(o, Float)) return PyArrayScalar_VAL(o, Float);
    if (PyArray_IsScalar(o, Int)) return PyArrayScalar_VAL(o, Int);
    if (PyArray_IsScalar(o, Long)) return static_cast<double>(PyArrayScalar_VAL(o, Long));
    return static_cast<double>(PyArrayScalar_VAL(o, LongLong));
}

namespace {

template <class Is>
Kind modeling_kind(PyObject* o, Is is) noexcept {
    if (is(ExpressionType)) return Kind::expression;
    if (is(LintermType)) return as_linterm(o)->var != nullptr ? Kind::linterm : Kind::invalid;
    if (is(VarType)) return var_serial(as_var(o)) != 0 ? Kind::var : Kind::invalid;
    if (is(NonlinearType)) return Kind::nonlinear;
    if (is(QuadtermType)) return as_quadterm(o)->var1 != nullptr ? Kind::quadterm : Kind::invalid;
    return Kind::invalid;
}

}  // namespace

// Subclasses come last: each test for one is a walk through the bases.
Kind kind_of(PyObject* o) noexcept {
    if (PyLong_Check(o) || PyFloat_Check(o)) return Kind::number;
    const PyTypeObject* type = Py_TYPE(o);
    const Kind kind = modeling_kind(o, [=](PyTypeObject& base) { return type == &base; });
    if (kind != Kind::invalid) return kind;
    if (is_number(o)) return Kind::number;
    return modeling_kind(
        o, [=](PyTypeObject& base) { return PyType_IsSubtype(Py_TYPE(o), &base) != 0; });
}

Kind require_kind(PyObject* o) {
    const Kind kind = kind_of(o);
    if (kind == Kind::invalid) raise(model_error(), "Invalid object in operation: <%S>", o);
    return kind;
}

}  // namespace nalora
