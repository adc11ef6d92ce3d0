// The opaque handle types: Python objects that hold one pointer of the library and hand it back to
// library calls. They own nothing: dropping one does nothing to what it points to.
#pragma once

#include "module/parts.hpp"
#include "support/ref.hpp"

namespace nalora {

struct HandleObject {
    PyObject_HEAD void* handle;  // null in an object made by calling the type
};

// A new object of one of PoolcutType, NlraobjectType, GenericType, BranchobjType.
Ref new_handle(PyTypeObject* type, void* handle);

inline HandleObject* as_handle(PyObject* o) noexcept { return reinterpret_cast<HandleObject*>(o); }

}  // namespace nalora
