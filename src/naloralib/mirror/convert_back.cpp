// From the library's arrays and indices to Python objects.
#include "callbacks/handles.hpp"
#include "mirror/convert.hpp"
#include "module/state.hpp"
#include "problem/building.hpp"

namespace nalora {

namespace {

[[noreturn]] void raise_wrong_item(Conv kind) {
    raise(interface_error(), "Wrong item returned from API call, type %d", static_cast<int>(kind));
}

Ref list_item(ProblemObject* p, const Registry& registry, int32_t index, Conv kind) {
    if (index < 0) return take(PyLong_FromLong(-1));
    if (index >= PyList_GET_SIZE(p->*registry.list) - (p->*registry.index)->gaps().size()) {
        raise_wrong_item(kind);
    }
    return Ref::borrow(object_at(p, registry, index));
}

template <class T>
T load(const void* array, int64_t i) noexcept {
    return static_cast<const T*>(array)[i];
}

Ref make_item(ProblemObject* problem, const void* array, int64_t i, Conv kind) {
    switch (kind) {
        case Conv::row:
            return list_item(problem, kConstraints, load<int32_t>(array, i), kind);
        case Conv::col:
            return list_item(problem, kVariables, load<int32_t>(array, i), kind);
        case Conv::integer:
            return take(PyLong_FromLong(load<int32_t>(array, i)));
        case Conv::int64:
            return take(PyLong_FromLongLong(load<int64_t>(array, i)));
        case Conv::real:
            return take(PyFloat_FromDouble(load<double>(array, i)));
        case Conv::character:
            return take(PyUnicode_FromOrdinal(load<unsigned char>(array, i)));
        case Conv::charcode:
            return take(PyUnicode_FromFormat("%d", load<unsigned char>(array, i)));
        case Conv::string:
            return decode_text(load<const char*>(array, i));
        case Conv::cut:
            return new_handle(&PoolcutType, load<void*>(array, i));
        case Conv::object:
            return new_handle(&NlraobjectType, load<void*>(array, i));
        case Conv::rowcol:
            return rowcol_to_obj(problem, load<int32_t>(array, i));
        case Conv::set:
            break;
    }
    raise_wrong_item(kind);
}

}  // namespace

void conv_arr2obj(ProblemObject* problem, int64_t n, const void* array, PyObject* list, Conv kind) {
    if (array == nullptr || list == nullptr || list == Py_None) return;
    if (!PyList_Check(list)) raise(model_error(), "Unexpected argument to conv_arr2obj");
    if (n < 0) n = 0;
    const Ref items = take(PyList_New(n));
    for (int64_t i = 0; i < n; ++i) {
        PyList_SET_ITEM(items.get(), i, make_item(problem, array, i, kind).release());
    }
    // One step, so that nothing sees a half-filled list and old items go last.
    check_python(PyList_SetSlice(list, 0, PyList_GET_SIZE(list), items.get()));
}

Ref rowcol_to_obj(ProblemObject* problem, int32_t index) {
    const int32_t columns_from = first_column_index(problem);
    return index >= columns_from
               ? list_item(problem, kVariables, index - columns_from, Conv::rowcol)
               : list_item(problem, kConstraints, index, Conv::rowcol);
}

}  // namespace nalora
