// Memory for objects of one exact type: made and dropped by the million while a model is built,
// they live in slabs instead of the interpreter's allocator. Objects of subclasses take the
// ordinary way. Guarded by the interpreter lock.
#pragma once

#include <cstring>

#include "support/ref.hpp"
#include "support/slab.hpp"

namespace nalora {

template <class Object, PyTypeObject& Type>
class FreeList {
  public:
    // A new object whose fields are not set yet; the caller sets every one before anything else.
    static Ref make() {
#ifndef NALORA_NO_FREELIST
        return take(in_slab());
#else
        Ref object = take(PyObject_New(Object, &Type));
        ++objects_outside_slabs;
        return object;
#endif
    }

    // For tp_alloc: a zero-filled object of the type or a subclass.
    static PyObject* allocate(PyTypeObject* type, Py_ssize_t items) noexcept {
#ifndef NALORA_NO_FREELIST
        if (type == &Type) {
            PyObject* object = in_slab();
            if (object != nullptr) {
                std::memset(static_cast<void*>(object + 1), 0, sizeof(Object) - sizeof(PyObject));
            }
            return object;
        }
        return PyType_GenericAlloc(type, items);
#else
        PyObject* object = PyType_GenericAlloc(type, items);
        if (object != nullptr && type == &Type) ++objects_outside_slabs;
        return object;
#endif
    }

    // For tp_dealloc, after the fields were released.
    static void recycle(PyObject* object) noexcept {
#ifndef NALORA_NO_FREELIST
        if (Py_TYPE(object) == &Type) {
            slab_pool<sizeof(Object)>().deallocate(object);
            return;
        }
#else
        if (Py_TYPE(object) == &Type) --objects_outside_slabs;
#endif
        Py_TYPE(object)->tp_free(object);
    }

#ifndef NALORA_NO_FREELIST
  private:
    static PyObject* in_slab() noexcept {
        void* memory = slab_pool<sizeof(Object)>().allocate();
        if (memory == nullptr) return PyErr_NoMemory();
        return PyObject_Init(static_cast<PyObject*>(memory), &Type);
    }
#endif
};

}  // namespace nalora
