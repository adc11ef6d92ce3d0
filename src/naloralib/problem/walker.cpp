#include "problem/walker.hpp"

#include <algorithm>
#include <cstring>

#include "model/objects.hpp"
#include "module/state.hpp"
#include "numpy/each_element.hpp"
#include "support/boundary.hpp"

namespace nalora {

namespace {

using Leaf = FunctionRef<void(PyObject*)>;

enum class Shape { leaf, tuple, list, array, sequence, dictionary, iterator };

// The leaves that models hold by the thousand; their subclasses may be collections.
bool is_plain_leaf(PyObject* object) noexcept {
    PyTypeObject* type = Py_TYPE(object);
    return type == &VarType || type == &ConstraintType || type == &SosType;
}

Shape classify(PyObject* object) noexcept {
    if (is_plain_leaf(object)) return Shape::leaf;
    if (PyTuple_Check(object)) return Shape::tuple;
    if (PyList_Check(object)) return Shape::list;
    if (PyArray_Check(object)) return Shape::array;
    if (PyUnicode_Check(object) || PyBytes_Check(object)) return Shape::leaf;
    if (PySequence_Check(object)) return Shape::sequence;
    if (PyDict_Check(object)) return Shape::dictionary;
    return PyIter_Check(object) ? Shape::iterator : Shape::leaf;
}

[[noreturn]] void raise_null_object() {
    raise(model_error(),
          "Incorrect (nested) array/list/sequence passed. Perhaps this is a NumPy array containing "
          "a tuple?");
}

[[noreturn]] void raise_depth() {
    raise(model_error(), "Maximum recursion (inclusion) level reached");
}

// An element of an array of objects.
Ref object_at(const char* data) {
    PyObject* item;
    std::memcpy(&item, data, sizeof(void*));  // a field of a structured array may lie unaligned
    if (item == nullptr) raise_null_object();
    return Ref::borrow(item);
}

Ref only_element(PyArrayObject* array) {
    if (holds_objects(PyArray_TYPE(array))) return object_at(PyArray_BYTES(array));
    return take(PyArray_GETITEM(array, PyArray_BYTES(array)));
}

void walk_array(PyObject* object, Leaf leaf, int depth) {
    const int type = PyArray_TYPE(as_array(object));
    if (type == NPY_OBJECT) {
        for_each_address(object,
                         [&](const char* data) { walk(object_at(data).get(), leaf, depth - 1); });
    } else if (holds_objects(type)) {
        for_each_address(object, [&](const char* data) { leaf(object_at(data).get()); });
    } else if (PyTypeNum_ISINTEGER(type)) {
        for_each_address(object, [&](const char* data) {
            leaf(take(PyArray_GETITEM(as_array(object), data)).get());
        });
    } else if (type == NPY_DOUBLE || type == NPY_BOOL) {
        for_each_address(object, [&](const char* data) {
            const Ref number = take(PyArray_GETITEM(as_array(object), data));
            leaf(take(PyNumber_Float(number.get())).get());
        });
    } else {
        raise(model_error(), "Incorrect objects used in Sum, Dot, Prod, or aggregate functions");
    }
}

// Lists may grow or shrink while their items are handed out: the length is read every time.
void walk_list(PyObject* list, Leaf leaf, int depth) {
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) {
        const Ref item = Ref::borrow(PyList_GET_ITEM(list, i));
        walk(item.get(), leaf, depth - 1);
    }
}

void walk_iterator(PyObject* iterator, Leaf leaf, int depth) {
    while (PyObject* next = PyIter_Next(iterator)) {
        const Ref item = Ref::steal(next);
        walk(item.get(), leaf, depth - 1);
    }
    if (PyErr_Occurred() != nullptr) throw PythonError();
}

void walk_sequence(PyObject* sequence, Leaf leaf, int depth) {
    PyObject* iterator = PyObject_GetIter(sequence);
    if (iterator == nullptr && PyErr_ExceptionMatches(PyExc_TypeError)) {
        PyErr_Clear();
        raise(model_error(), "Cannot iterate over sequence");
    }
    const Ref owner = take(iterator);
    // A copy, so that a sequence that its own items change ends.
    const Ref items = take(PySequence_List(owner.get()));
    walk_list(items.get(), leaf, depth);
}

}  // namespace

void walk(PyObject* object, FunctionRef<void(PyObject*)> leaf, int depth) {
    if (object == nullptr) raise_null_object();
    if (depth >= 0 && is_plain_leaf(object)) {
        leaf(object);
        return;
    }
    Ref unwrapped;
    for (int level = 0; PyArray_Check(object) && PyArray_SIZE(as_array(object)) == 1; ++level) {
        if (level > kWalkDepth) raise_depth();  // an array that holds itself
        unwrapped = only_element(as_array(object));
        object = unwrapped.get();
    }
    const Shape shape = classify(object);
    if (depth < 0) raise_depth();
    switch (shape) {
        case Shape::leaf:
            leaf(object);
            return;
        case Shape::tuple:
            for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(object); ++i) {
                walk(PyTuple_GET_ITEM(object, i), leaf, depth - 1);
            }
            return;
        case Shape::list:
            walk_list(object, leaf, depth);
            return;
        case Shape::array:
            walk_array(object, leaf, depth);
            return;
        case Shape::sequence:
            walk_sequence(object, leaf, depth);
            return;
        case Shape::dictionary:
            walk_list(take(PyDict_Values(object)).get(), leaf, depth);
            return;
        case Shape::iterator:
            walk_iterator(object, leaf, depth);
            return;
    }
}

constexpr Py_ssize_t kMostExpected = Py_ssize_t{1} << 24;

std::size_t leaf_count(std::span<PyObject* const> objects) noexcept {
    Py_ssize_t count = 0;
    for (PyObject* object : objects) {
        Py_ssize_t leaves = 1;
        if (PyArray_Check(object)) leaves = PyArray_SIZE(as_array(object));
        if (PyList_Check(object) || PyTuple_Check(object)) {
            leaves = PySequence_Fast_GET_SIZE(object);
        }
        count += leaves;
    }
    // Arrays may be larger than memory, and be refused at their second element.
    return static_cast<std::size_t>(std::min<Py_ssize_t>(count, kMostExpected));
}

bool is_plain_structure(std::span<PyObject* const> objects, int depth) noexcept {
    if (depth == 0) return false;
    return std::all_of(objects.begin(), objects.end(), [depth](PyObject* object) {
        if (!PyList_CheckExact(object) && !PyTuple_CheckExact(object)) return is_leaf(object);
        const auto size = static_cast<std::size_t>(PySequence_Fast_GET_SIZE(object));
        return is_plain_structure({PySequence_Fast_ITEMS(object), size}, depth - 1);
    });
}

bool is_leaf(PyObject* object) noexcept { return classify(object) == Shape::leaf; }

}  // namespace nalora
