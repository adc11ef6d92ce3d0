// Modeling objects as operands of NumPy's universal functions.
#include <algorithm>

#include "model/operands.hpp"
#include "numpy/element_types.hpp"
#include "numpy/loops.hpp"
#include "support/boundary.hpp"
#include "support/small_array.hpp"

namespace nalora {

namespace {

bool is_modeling_object(PyObject* o) noexcept {
    const Kind kind = operand_kind(o);
    return kind != Kind::invalid && kind != Kind::number;
}

// An array of no dimension, which NumPy broadcasts.
Ref single_element(PyObject* object) {
    const bool is_variable = kind_of(object) == Kind::var;
    Ref array =
        new_element_array(is_variable ? ElementType::var : ElementType::expression, 0, nullptr);
    if (!array) throw PythonError();
    set_element(PyArray_BYTES(array.as<PyArrayObject>()), Ref::borrow(object));
    return array;
}

// NumPy puts its scalars into arrays of no dimension before it compares them.
Ref without_array(PyObject* operand) {
    const bool is_number = PyArray_CheckExact(operand) && PyArray_NDIM(as_array(operand)) == 0 &&
                           PyTypeNum_ISNUMBER(PyArray_TYPE(as_array(operand)));
    if (!is_number) return Ref::borrow(operand);
    return take(PyArray_ToScalar(PyArray_DATA(as_array(operand)), as_array(operand)));
}

Ref apply(PyObject* args, PyObject* keywords) {
    const Py_ssize_t count = PyTuple_GET_SIZE(args) - 2;
    if (count < 0) raise(PyExc_TypeError, "__array_ufunc__() needs a function and a method");
    PyObject* function = PyTuple_GET_ITEM(args, 0);
    PyObject* method = PyTuple_GET_ITEM(args, 1);
    SmallArray<Ref, 3> owned(static_cast<std::size_t>(count));
    SmallArray<PyObject*, 3> operands(static_cast<std::size_t>(count));
    bool all_single = keywords == nullptr || PyDict_GET_SIZE(keywords) == 0;
    for (Py_ssize_t i = 0; i < count; ++i) {
        owned[i] = without_array(PyTuple_GET_ITEM(args, i + 2));
        operands[i] = owned[i].get();
        all_single = all_single && operand_kind(operands[i]) != Kind::invalid;
    }
    if (all_single && PyUnicode_Check(method) &&
        PyUnicode_CompareWithASCIIString(method, "__call__") == 0) {
        Ref result = apply_function(function, operands.span());
        if (result) return result;
    }
    // Where no operand is one, `out` or `where` brought us here, and would again.
    const std::span<PyObject* const> all = operands.span();
    if (std::none_of(all.begin(), all.end(), is_modeling_object)) {
        raise(PyExc_TypeError, "A modeling object cannot take the result of %R or select from it",
              function);
    }
    const Ref inputs = take(PyTuple_New(count));
    for (Py_ssize_t i = 0; i < count; ++i) {
        Ref input = is_modeling_object(operands[i]) ? single_element(operands[i])
                                                    : Ref::borrow(operands[i]);
        PyTuple_SET_ITEM(inputs.get(), i, input.release());
    }
    const Ref bound = take(PyObject_GetAttr(function, method));
    return take(PyObject_Call(bound.get(), inputs.get(), keywords));
}

}  // namespace

PyObject* array_ufunc(PyObject*, PyObject* args, PyObject* keywords) noexcept {
    return guarded([&] { return apply(args, keywords); });
}

}  // namespace nalora
