#include "problem/walker.hpp"

#include <cstring>

#include "model/objects.hpp"
#include "module/state.hpp"
#include "support/boundary.hpp"
#include "support/numpy.hpp"

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

PyArrayObject* as_array(PyObject* object) noexcept {
    return reinterpret_cast<PyArrayObject*>(object);
}

Ref element(PyArrayObject* array, char* data) {
    if (PyArray_TYPE(array) != NPY_OBJECT) return take(PyArray_GETITEM(array, data));
    PyObject* item = nullptr;
    std::memcpy(&item, data, sizeof(void*));  // a field of a structured array may lie unaligned
    if (item == nullptr) raise_null_object();
    return Ref::borrow(item);
}

void walk_array(PyObject* object, Leaf leaf, int depth) {
    PyArrayObject* array = as_array(object);
    const int type = PyArray_TYPE(array);
    const bool objects = type == NPY_OBJECT;
    if (!objects && type != NPY_DOUBLE && type != NPY_INT && type != NPY_BOOL) {
        raise(model_error(), "Incorrect objects used in Sum, Dot, Prod, or aggregate functions");
    }
    const Ref iterator = take(PyArray_IterNew(object));
    auto* position = iterator.as<PyArrayIterObject>();
    while (PyArray_ITER_NOTDONE(position)) {
        const Ref item = element(array, static_cast<char*>(PyArray_ITER_DATA(position)));
        if (objects) {
            walk(item.get(), leaf, depth - 1);
        } else {
            leaf(take(PyNumber_Float(item.get())).get());
        }
        PyArray_ITER_NEXT(position);
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
        unwrapped = element(as_array(object), PyArray_BYTES(as_array(object)));
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

bool is_leaf(PyObject* object) noexcept { return classify(object) == Shape::leaf; }

}  // namespace nalora
