// The structured evaluator: values in the nesting of what is asked for.
#include "model/operands.hpp"
#include "nonlinear/evaluate.hpp"
#include "nonlinear/tree_value.hpp"
#include "numpy/each_element.hpp"
#include "problem/solution_values.hpp"

namespace nalora {

namespace {

// The columns of a solution by index, name or object are one thing to getSolution.
double value_at(const EvaluationContext& context, int64_t column) {
    if (column < 0 || column >= context.values->count()) {
        raise(interface_error(),
              "Call to nalora.problem.getSolution() contains an out-of-range index");
    }
    return (*context.values)[column];
}

bool is_integer(PyObject* o) noexcept { return PyLong_Check(o) || PyArray_IsScalar(o, Integer); }

int64_t integer_value(PyObject* o) {
    const Ref integer = take(PyNumber_Index(o));
    int overflow;
    const long long value = PyLong_AsLongLongAndOverflow(integer.get(), &overflow);
    if (value == -1 && PyErr_Occurred() != nullptr) throw PythonError();
    return overflow != 0 ? -1 : value;
}

bool is_text(PyObject* o) noexcept { return PyUnicode_Check(o) || PyBytes_Check(o); }

double named_value(const EvaluationContext& context, PyObject* name) {
    const char* text = PyBytes_Check(name) ? PyBytes_AsString(name) : PyUnicode_AsUTF8(name);
    if (text == nullptr) throw PythonError();
    int column;
    check_library(NLRAgetindex(context.problem->prob, NLRA_NAMES_COLUMN, text, &column),
                  as_object(context.problem));
    return value_at(context, column);
}

// One item that is no collection.
double single_value(PyObject* o, const EvaluationContext& context, int depth) {
    if (context.from_getsolution) {
        if (is_integer(o)) return value_at(context, integer_value(o));
        if (is_text(o)) return named_value(context, o);
    }
    return evaluate_object(o, context, depth);
}

Ref tuple_values(PyObject* tuple, const EvaluationContext& context, int depth) {
    const Py_ssize_t size = PyTuple_GET_SIZE(tuple);
    Ref result = take(PyTuple_New(size));
    for (Py_ssize_t i = 0; i < size; ++i) {
        Ref value = evaluate_structured(PyTuple_GET_ITEM(tuple, i), context, depth);
        PyTuple_SET_ITEM(result.get(), i, value.release());
    }
    return result;
}

// The evaluation may change the dictionary, and keys that are variables are best not compared: the
// values are evaluated over a copy.
Ref dictionary_values(PyObject* dictionary, const EvaluationContext& context, int depth) {
    const Ref source = take(PyDict_Copy(dictionary));
    Ref result = take(PyDict_Copy(dictionary));
    PyObject *key, *value;
    for (Py_ssize_t position = 0; PyDict_Next(source.get(), &position, &key, &value) != 0;) {
        check_python(
            PyDict_SetItem(result.get(), key, evaluate_structured(value, context, depth).get()));
    }
    return result;
}

// Arrays of variables are read whole, so these are looked up here.
double element_value(PyObject* object, const EvaluationContext& context, int depth) {
    if (Py_TYPE(object) == &VarType && context.dictionary == nullptr) {
        const int32_t column = context.problem->variable_index->find(var_serial(as_var(object)));
        if (column >= 0 && column < context.values->count()) return (*context.values)[column];
    }
    return single_value(object, context, depth);
}

// An array of floats. To getSolution the elements may be of any type: objects, columns or numbers.
Ref array_values(PyObject* object, const EvaluationContext& context, int depth) {
    if (!context.from_getsolution && !is_element_array(object)) {
        raise(interface_error(),
              "nalora.evaluate() requires one or more Python objects;\nNumPy arrays must be of "
              "dtype nalora.npvar, nalora.npexpr, or nalora.npconstraint.");
    }
    PyArrayObject* array = as_array(object);
    PyObject* made = PyArray_SimpleNew(PyArray_NDIM(array), PyArray_DIMS(array), NPY_DOUBLE);
    if (made == nullptr) {
        raise_chained(model_error(),
                      "Could not initialize result of the evaluation of a NumPy array");
    }
    Ref result = Ref::steal(made);
    auto* value = static_cast<double*>(PyArray_DATA(as_array(made)));
    const double* const end = value + PyArray_SIZE(as_array(made));
    const bool objects = holds_objects(PyArray_TYPE(array));
    for_each_address(object, [&](const char* element) {
        // Only an evaluation that resizes the array leads beyond the result.
        if (value == end) raise(PyExc_RuntimeError, "array changed size during evaluation");
        const Ref item =
            objects ? Ref::borrow(element_object(element)) : take(PyArray_GETITEM(array, element));
        *value++ = element_value(item.get(), context, depth);
    });
    if (value != end) raise(PyExc_RuntimeError, "array changed size during evaluation");
    return result;
}

Ref sequence_values(PyObject* object, const EvaluationContext& context, int depth) {
    const Ref items = take(PySequence_Fast(object, "Cannot evaluate type of sequence"));
    Ref result = take(PyList_New(0));
    // The length is read again each time: the evaluation may change a list.
    for (Py_ssize_t i = 0; i < PySequence_Fast_GET_SIZE(items.get()); ++i) {
        const Ref item = Ref::borrow(PySequence_Fast_GET_ITEM(items.get(), i));
        check_python(
            PyList_Append(result.get(), evaluate_structured(item.get(), context, depth).get()));
    }
    return result;
}

}  // namespace

// Modeling objects come first: a subclass of theirs may have items of its own.
Ref evaluate_structured(PyObject* o, const EvaluationContext& context, int depth) {
    require_depth(depth);
    if (context.from_getsolution && PyUnicode_CheckExact(o)) {
        return make_float(named_value(context, o));
    }
    if (kind_of(o) != Kind::invalid) return make_float(single_value(o, context, depth));
    if (PyTuple_Check(o)) return tuple_values(o, context, depth - 1);
    if (PyDict_Check(o)) return dictionary_values(o, context, depth - 1);
    if (PyArray_Check(o)) return array_values(o, context, depth - 1);
    if (context.from_getsolution && is_text(o)) return make_float(named_value(context, o));
    if (PySequence_Check(o)) return sequence_values(o, context, depth - 1);
    return make_float(single_value(o, context, depth));
}

}  // namespace nalora
