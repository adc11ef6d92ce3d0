// The walk over containers. User code that runs between two elements may change the container, so
// every element is held while it is visited.
#include "model/aggregate.hpp"

#include <cstring>
#include <memory>

#include "model/operands.hpp"
#include "numpy/element_types.hpp"

namespace nalora {

namespace {

using Visit = FunctionRef<void(PyObject* element, bool last)>;

void hand_over(PyObject* element, bool last, Visit visit) {
    if (element != Py_None) visit(element, last);
}

void walk_tuple(PyObject* tuple, Visit visit) {
    const Py_ssize_t size = PyTuple_GET_SIZE(tuple);
    for (Py_ssize_t i = 0; i < size; ++i) {
        hand_over(PyTuple_GET_ITEM(tuple, i), i + 1 == size, visit);
    }
}

// The length is read anew each time: a visit may have changed it.
void walk_list(PyObject* list, Visit visit) {
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) {
        const Ref item = Ref::borrow(PyList_GET_ITEM(list, i));
        hand_over(item.get(), i + 1 == PyList_GET_SIZE(list), visit);
    }
}

// ---- arrays ---------------------------------------------------------------------------------

// Elements may lie unaligned (fields of a structured array).
template <class T>
T load(const char* element) noexcept {
    T value;
    std::memcpy(&value, element, sizeof value);
    return value;
}

template <class T>
Ref number_at(const char* element) {
    return make_float(static_cast<double>(load<T>(element)));
}
Ref truth_at(const char* element) { return make_float(*element != 0 ? 1.0 : 0.0); }
Ref object_at(const char* element) { return Ref::borrow(element_object(element)); }

// A part of an array: `count` elements, `stride` bytes apart.
struct Run {
    const char* data;
    npy_intp stride;
    npy_intp count;
    bool last;  // no other run follows
};

template <Ref (*ElementAt)(const char*)>
void walk_run(const Run& run, Visit visit) {
    const char* data = run.data;
    for (npy_intp left = run.count; left > 0; data += run.stride) {
        const Ref element = ElementAt(data);
        --left;
        hand_over(element.get(), run.last && left == 0, visit);
    }
}

using WalkRun = void (*)(const Run&, Visit);

WalkRun run_walker(int type) {
    if (holds_objects(type)) return walk_run<object_at>;
    switch (type) {
        case NPY_DOUBLE:
            return walk_run<number_at<double>>;
        case NPY_INT:
            return walk_run<number_at<int>>;
        case NPY_BOOL:
            return walk_run<truth_at>;
        default:
            raise(model_error(),
                  "Incorrect objects used in Sum, Dot, Prod, or aggregate functions");
    }
}

// The array itself, or a copy of it where its numbers are stored in the other byte order.
Ref in_native_order(PyArrayObject* array) {
    if (!PyArray_ISBYTESWAPPED(array)) return Ref::borrow(array);
    return take(PyArray_FromArray(array, PyArray_DescrFromType(PyArray_TYPE(array)),
                                  NPY_ARRAY_ENSUREARRAY));
}

struct IteratorDeleter {
    void operator()(NpyIter* iterator) const noexcept { NpyIter_Deallocate(iterator); }
};

void walk_array(PyObject* object, Visit visit) {
    const WalkRun walk = run_walker(PyArray_TYPE(as_array(object)));
    const Ref owner = in_native_order(as_array(object));
    PyArrayObject* array = as_array(owner.get());
    npy_intp left = PyArray_SIZE(array);
    if (left == 0) return;
    if (PyArray_IS_C_CONTIGUOUS(array) || PyArray_IS_F_CONTIGUOUS(array)) {
        return walk({PyArray_BYTES(array), PyArray_ITEMSIZE(array), left, true}, visit);
    }
    constexpr npy_uint32 kFlags = NPY_ITER_READONLY | NPY_ITER_EXTERNAL_LOOP | NPY_ITER_REFS_OK;
    const std::unique_ptr<NpyIter, IteratorDeleter> iterator(
        NpyIter_New(array, kFlags, NPY_KEEPORDER, NPY_NO_CASTING, nullptr));
    if (iterator == nullptr) throw PythonError();
    NpyIter_IterNextFunc* const next = NpyIter_GetIterNext(iterator.get(), nullptr);
    if (next == nullptr) throw PythonError();
    char** const data = NpyIter_GetDataPtrArray(iterator.get());
    const npy_intp* const stride = NpyIter_GetInnerStrideArray(iterator.get());
    const npy_intp* const count = NpyIter_GetInnerLoopSizePtr(iterator.get());
    do {
        left -= *count;
        walk({*data, *stride, *count, left == 0}, visit);
    } while (next(iterator.get()) != 0);
}

// ---- other containers -----------------------------------------------------------------------

// A length that no container has shows as ValueError here.
void check_length(PyObject* sequence) {
    const PySequenceMethods* methods = Py_TYPE(sequence)->tp_as_sequence;
    if (methods == nullptr || methods->sq_length == nullptr) return;
    if (PySequence_Size(sequence) >= 0) return;
    if (PyErr_ExceptionMatches(PyExc_ValueError)) {
        PyErr_Clear();
        raise(model_error(), "Invalid sequence of objects");
    }
    throw PythonError();
}

void walk_sequence(PyObject* sequence, Visit visit) {
    check_length(sequence);
    const Ref iterator = Ref::steal(PyObject_GetIter(sequence));
    if (!iterator) {
        if (!PyErr_ExceptionMatches(PyExc_TypeError)) throw PythonError();
        PyErr_Clear();
        raise(model_error(), "Cannot iterate over sequence");
    }
    walk_list(take(PySequence_List(iterator.get())).get(), visit);
}

// An element is visited once it is known whether there is another one.
void walk_iterator(PyObject* iterator, Visit visit) {
    Ref element = Ref::steal(PyIter_Next(iterator));
    while (element) {
        Ref next = Ref::steal(PyIter_Next(iterator));
        if (!next && PyErr_Occurred() != nullptr) break;
        hand_over(element.get(), !next, visit);
        element = std::move(next);
    }
    if (PyErr_Occurred() != nullptr) throw PythonError();
}

void walk_container(PyObject* object, Visit visit) {
    if (PyTuple_Check(object)) return walk_tuple(object, visit);
    if (PyList_Check(object)) return walk_list(object, visit);
    if (PyArray_Check(object)) return walk_array(object, visit);
    if (PySequence_Check(object)) return walk_sequence(object, visit);
    if (PyIter_Check(object)) return walk_iterator(object, visit);
    if (PyDict_Check(object)) return walk_list(take(PyDict_Values(object)).get(), visit);
    if (kind_of(object) == Kind::invalid) {
        raise(model_error(), "Invalid object in Sum or Prod operators");
    }
    visit(object, true);
}

}  // namespace

void for_each_element(PyObject* args, FunctionRef<void(PyObject* element, bool last)> visit) {
    if (PyTuple_GET_SIZE(args) == 1) return walk_container(PyTuple_GET_ITEM(args, 0), visit);
    walk_tuple(args, visit);
}

}  // namespace nalora
