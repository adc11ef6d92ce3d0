#include "mirror/convert.hpp"

#include <climits>
#include <cstring>

#include "callbacks/handles.hpp"
#include "module/state.hpp"
#include "numpy/each_element.hpp"

namespace nalora {

namespace {

// ---- integers -------------------------------------------------------------------------------

bool is_integer_scalar(PyObject* object) noexcept {
    return PyArray_IsScalar(object, Int) || PyArray_IsScalar(object, Long);
}

int64_t long_value(PyObject* number) {
    int overflow = 0;
    const long long value = PyLong_AsLongLongAndOverflow(number, &overflow);
    if (overflow != 0) raise(PyExc_OverflowError, "integer does not fit into 64 bits");
    if (value == -1 && PyErr_Occurred() != nullptr) throw PythonError();
    return value;
}

int32_t narrow(int64_t value) {
    if (value < INT32_MIN || value > INT32_MAX) {
        raise(PyExc_OverflowError, "integer does not fit into 32 bits");
    }
    return static_cast<int32_t>(value);
}

// Where an integer is wanted and something else comes, the conversion has no text of its own.
int64_t required_integer(PyObject* item) {
    if (!is_integer(item)) {
        raise(PyExc_SystemError, "an argument's item must be an integer, not '%.200s'",
              Py_TYPE(item)->tp_name);
    }
    return integer_value(item);
}

// ---- text -----------------------------------------------------------------------------------

// UTF-8 of a str, the bytes of a bytes object; valid while the object lives.
const char* text_of(PyObject* object) {
    const char* text;
    Py_ssize_t length;
    if (PyBytes_Check(object)) {
        text = PyBytes_AS_STRING(object);
        length = PyBytes_GET_SIZE(object);
    } else {
        text = PyUnicode_AsUTF8AndSize(object, &length);
        if (text == nullptr) throw PythonError();
    }
    if (std::strlen(text) != static_cast<std::size_t>(length)) {
        raise(PyExc_ValueError, "embedded null character");
    }
    return text;
}

bool is_text(PyObject* object) noexcept { return PyUnicode_Check(object) || PyBytes_Check(object); }

int32_t index_of_name(PyObject* name, ProblemObject* problem, Conv kind) {
    int index = -1;
    const int type = kind == Conv::row ? NLRA_NAMES_ROW : NLRA_NAMES_COLUMN;
    check_library(NLRAgetindex(problem->prob, type, text_of(name), &index), as_object(problem));
    return index;
}

// ---- elements -------------------------------------------------------------------------------

void* handle_of(PyObject* item, PyTypeObject* type) {
    if (!PyObject_TypeCheck(item, type)) {
        raise(model_error(), "Invalid object %S: expected %s", item, type->tp_name);
    }
    return as_handle(item)->handle;
}

template <class T>
void store(Array& array, int64_t position, T value) noexcept {
    array.data<T>()[position] = value;
}

void conv_item(ProblemObject* problem, PyObject* item, Array& array, int64_t i, Conv kind) {
    switch (kind) {
        case Conv::row:
        case Conv::col:
        case Conv::set:
        case Conv::rowcol:
            store<int32_t>(array, i, conv_obj2index(item, problem, kind));
            return;
        case Conv::integer:
            store<int32_t>(array, i, narrow(required_integer(item)));
            return;
        case Conv::int64:
            store<int64_t>(array, i, required_integer(item));
            return;
        case Conv::real: {
            const double value = PyFloat_AsDouble(item);
            if (value == -1.0 && PyErr_Occurred() != nullptr) throw PythonError();
            store<double>(array, i, value);
            return;
        }
        case Conv::character:
            if (!PyUnicode_Check(item) || PyUnicode_GetLength(item) < 1) {
                raise(model_error(), "Invalid character %R: expected a str", item);
            }
            store<char>(array, i, static_cast<char>(PyUnicode_ReadChar(item, 0)));
            return;
        case Conv::charcode: {
            const Ref number = take(PyNumber_Index(item));
            const unsigned long value = PyLong_AsUnsignedLongMask(number.get());
            store<char>(array, i, static_cast<char>(value));
            return;
        }
        case Conv::string:
            if (!is_text(item)) raise(model_error(), "Invalid string %R", item);
            store<const char*>(array, i, text_of(item));
            array.keep(Ref::borrow(item));
            return;
        case Conv::cut:
            store<void*>(array, i, handle_of(item, &PoolcutType));
            return;
        case Conv::object:
            store<void*>(array, i, handle_of(item, &NlraobjectType));
            return;
    }
}

// ---- sequences ------------------------------------------------------------------------------

[[noreturn]] void raise_length(long long expected, long long found) {
    raise(model_error(), "Mismatched lengths in arguments: expected %lld, found %lld", expected,
          found);
}

void check_length(int64_t* count, int64_t length) {
    if (count == nullptr) return;
    if (*count >= 0 && *count != length) raise_length(*count, length);
    *count = length;
}

// One-dimensional arrays of the machine's usual numbers need no Python object per element.
template <class From, class To, class Convert>
Array copy_array(PyArrayObject* source, Convert convert) {
    const npy_intp length = PyArray_DIM(source, 0), stride = PyArray_STRIDE(source, 0);
    Array array(static_cast<std::size_t>(length) * sizeof(To));
    const char* data = PyArray_BYTES(source);
    for (npy_intp i = 0; i < length; ++i, data += stride) {
        From value;
        std::memcpy(&value, data, sizeof value);
        store<To>(array, i, convert(value));
    }
    return array;
}

bool holds_integers(Conv kind) noexcept {
    return kind == Conv::row || kind == Conv::col || kind == Conv::set || kind == Conv::integer ||
           kind == Conv::int64;
}

bool is_number_array(PyObject* object, Conv kind) noexcept {
    if (!PyArray_Check(object)) return false;
    PyArrayObject* array = as_array(object);
    if (PyArray_NDIM(array) != 1 || !PyArray_ISNOTSWAPPED(array)) return false;
    const int type = PyArray_TYPE(array);
    if (kind == Conv::real) return type == NPY_DOUBLE;
    return holds_integers(kind) && (type == NPY_INT || type == NPY_LONG);
}

bool is_integer_array(PyObject* object, Conv kind) noexcept {
    return PyArray_Check(object) && PyArray_NDIM(as_array(object)) == 1 && holds_integers(kind) &&
           PyTypeNum_ISINTEGER(PyArray_TYPE(as_array(object)));
}

Array conv_number_array(int64_t* count, PyObject* object, Conv kind) {
    PyArrayObject* source = as_array(object);
    check_length(count, PyArray_DIM(source, 0));
    const auto as_is = [](auto value) { return value; };
    const bool is_long = PyArray_TYPE(source) == NPY_LONG;
    if (kind == Conv::real) return copy_array<double, double>(source, as_is);
    if (kind == Conv::int64) {
        return is_long ? copy_array<long, int64_t>(source, as_is)
                       : copy_array<int, int64_t>(source, as_is);
    }
    return is_long ? copy_array<long, int32_t>(source, narrow)
                   : copy_array<int, int32_t>(source, as_is);
}

// A list or tuple. An item that is null (a hole that only C code can leave) makes the whole array
// null.
Array conv_items(ProblemObject* problem, int64_t* count, PyObject* items, Conv kind) {
    const Py_ssize_t length = PySequence_Fast_GET_SIZE(items);
    check_length(count, length);
    Array array(static_cast<std::size_t>(length) * conv_width(kind));
    for (Py_ssize_t i = 0; i < length; ++i) {
        // Converting an item may run Python code that shortens the list.
        if (i >= PySequence_Fast_GET_SIZE(items)) {
            raise_length(length, PySequence_Fast_GET_SIZE(items));
        }
        const Ref item = Ref::borrow(PySequence_Fast_GET_ITEM(items, i));
        if (!item) return Array();
        conv_item(problem, item.get(), array, i, kind);
    }
    return array;
}

// Objects in an array need no list in between.
bool is_object_array(PyObject* object) noexcept {
    return PyArray_Check(object) && PyArray_NDIM(as_array(object)) == 1 &&
           holds_objects(PyArray_TYPE(as_array(object)));
}

Array conv_object_array(ProblemObject* problem, int64_t* count, PyObject* object, Conv kind) {
    const npy_intp length = PyArray_SIZE(as_array(object));
    check_length(count, length);
    Array array(static_cast<std::size_t>(length) * conv_width(kind));
    npy_intp i = 0;
    for_each_address(object, [&](const char* element) {
        const Ref item = Ref::borrow(element_object(element));
        if (i < length) conv_item(problem, item.get(), array, i, kind);
        ++i;
    });
    // Converting an item may run Python code that resizes the array.
    if (i != length) raise_length(length, i);
    return array;
}

Array conv_iterator(ProblemObject* problem, int64_t* count, PyObject* iterator, Conv kind) {
    const std::size_t item_width = conv_width(kind);
    int64_t capacity = 256, length = 0;
    Array array(static_cast<std::size_t>(capacity) * item_width);
    while (PyObject* next = PyIter_Next(iterator)) {
        const Ref item = Ref::steal(next);
        if (length == capacity) {
            capacity *= 2;
            array.resize(static_cast<std::size_t>(capacity) * item_width);
        }
        conv_item(problem, item.get(), array, length++, kind);
    }
    if (PyErr_Occurred() != nullptr) throw PythonError();
    array.resize(static_cast<std::size_t>(length) * item_width);
    if (count != nullptr) *count = length;
    return array;
}

Array conv_sequence(ProblemObject* problem, int64_t* count, PyObject* sequence, Conv kind) {
    const Py_ssize_t length = PySequence_Size(sequence);
    if (length < 0) raise_chained(model_error(), "Invalid sequence of objects");
    check_length(count, length);
    PyObject* iterator = PyObject_GetIter(sequence);
    if (iterator == nullptr && PyErr_ExceptionMatches(PyExc_TypeError)) {
        raise_chained(model_error(), "Unable to scan sequence");
    }
    const Ref owner = take(iterator);
    return conv_items(problem, count, take(PySequence_List(owner.get())).get(), kind);
}

}  // namespace

int32_t first_column_index(ProblemObject* problem) {
    return int_attribute(problem, NLRA_ROWS) + int_attribute(problem, NLRA_SPAREROWS);
}

bool is_integer(PyObject* object) noexcept {
    return PyLong_Check(object) || is_integer_scalar(object);
}

int64_t integer_value(PyObject* integer) {
    if (PyLong_Check(integer)) return long_value(integer);
    return long_value(take(PyNumber_Index(integer)).get());
}

int32_t int32_value(PyObject* integer) { return narrow(integer_value(integer)); }

std::size_t conv_width(Conv kind) {
    switch (kind) {
        case Conv::row:
        case Conv::col:
        case Conv::set:
        case Conv::integer:
            return sizeof(int32_t);
        case Conv::int64:
        case Conv::real:
        case Conv::string:
        case Conv::cut:
        case Conv::object:
            return 8;
        case Conv::character:
        case Conv::charcode:
            return 1;
        case Conv::rowcol:
            break;
    }
    raise(model_error(), "Invalid sequence of objects");
}

int32_t conv_obj2index(PyObject* object, ProblemObject* problem, Conv kind) {
    if (object == nullptr) raise(model_error(), "Invalid sequence of objects");
    const bool rowcol = kind == Conv::rowcol;
    if (is_var(object) && (kind == Conv::col || rowcol)) {
        const int32_t index = problem->variable_index->find(var_serial(as_var(object)));
        if (index < 0) raise(model_error(), "Variable %S not in problem", object);
        // A variable becomes negative here; rowcol_to_obj numbers columns upwards behind the rows.
        return rowcol ? index - first_column_index(problem) : index;
    }
    if (is_constraint(object) && (kind == Conv::row || rowcol)) {
        const int32_t index =
            problem->constraint_index->find(constraint_serial(as_constraint(object)));
        if (index < 0) raise(model_error(), "Constraint %S not in problem", object);
        return index;
    }
    if (is_sos(object) && kind == Conv::set) {
        const int32_t index = problem->set_index->find(as_sos(object)->serial);
        if (index < 0) raise(model_error(), "SOS %S not in problem", object);
        return index;
    }
    if (is_integer(object)) return int32_value(object);
    if (is_text(object)) return index_of_name(object, problem, kind);
    switch (kind) {
        case Conv::col:
            raise(model_error(), "Invalid variable object %S", object);
        case Conv::row:
            raise(model_error(), "Invalid constraint object %S", object);
        case Conv::set:
            raise(model_error(), "Invalid SOS object %S", object);
        default:
            raise(model_error(), "Invalid object %S", object);
    }
}

Array conv_obj2arr(ProblemObject* problem, int64_t* count, PyObject* object, Conv kind) {
    if (object == nullptr || object == Py_None) return Array();
    if (kind == Conv::rowcol) raise(model_error(), "Invalid sequence of objects");
    if (PyList_Check(object) || PyTuple_Check(object)) {
        return conv_items(problem, count, object, kind);
    }
    if (PyIter_Check(object)) return conv_iterator(problem, count, object, kind);
    if (is_number_array(object, kind)) return conv_number_array(count, object, kind);
    if (is_integer_array(object, kind)) {
        return conv_items(problem, count, take(PyArray_ToList(as_array(object))).get(), kind);
    }
    if (is_object_array(object)) return conv_object_array(problem, count, object, kind);
    if (PySequence_Check(object)) return conv_sequence(problem, count, object, kind);
    raise(model_error(), "Invalid sequence of objects");
}

}  // namespace nalora
