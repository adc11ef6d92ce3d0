#include "callbacks/handles.hpp"

#include "support/boundary.hpp"
#include "support/no_arguments.hpp"

namespace nalora {

namespace {

PyObject* handle_repr(PyObject* self) noexcept {
    return guarded([&] {
        const char* name = Py_TYPE(self)->tp_name;
        void* handle = as_handle(self)->handle;
        return take(handle != nullptr ? PyUnicode_FromFormat("<%s %p>", name, handle)
                                      : PyUnicode_FromFormat("<%s without a handle>", name));
    });
}

void handle_dealloc(PyObject* self) noexcept { Py_TYPE(self)->tp_free(self); }

PyTypeObject handle_type(const char* name, const char* doc) {
    PyTypeObject type = {PyVarObject_HEAD_INIT(nullptr, 0)};
    type.tp_name = name;
    type.tp_doc = doc;
    type.tp_basicsize = sizeof(HandleObject);
    type.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE;
    type.tp_init = init_without_arguments;
    type.tp_dealloc = handle_dealloc;
    type.tp_repr = handle_repr;
    return type;
}

}  // namespace

PyTypeObject BranchobjType =
    handle_type("nalora.branchobj", "branchobj()\n--\n\nAn opaque handle of a branching object.");
PyTypeObject PoolcutType =
    handle_type("nalora.poolcut", "poolcut()\n--\n\nAn opaque handle of a cut in the cut pool.");
PyTypeObject NlraobjectType = handle_type(
    "nalora.nlraobject", "nlraobject()\n--\n\nAn opaque handle of an object of the library.");
PyTypeObject GenericType =
    handle_type("nalora.generic", "generic()\n--\n\nAn opaque handle of the library.");

Ref new_handle(PyTypeObject* type, void* handle) {
    Ref object = take(type->tp_alloc(type, 0));
    object.as<HandleObject>()->handle = handle;
    return object;
}

}  // namespace nalora
