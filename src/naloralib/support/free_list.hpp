// Recycling of objects of one exact type: made and dropped by the million while a model is built,
// they go through a short list instead of the interpreter's allocator. Objects of subclasses take
// the ordinary way. The list is guarded by the interpreter lock.
#pragma once

#include <cstring>

#include "support/ref.hpp"

namespace nalora {

template <class Object, PyTypeObject& Type>
class FreeList {
  public:
    // A new object whose fields are not set yet; the caller sets every one before anything else.
    static Ref make() {
#ifndef NALORA_NO_FREELIST
        if (count_ > 0) return Ref::steal(PyObject_Init(items_[--count_], &Type));
#endif
        return take(PyObject_New(Object, &Type));
    }

    // For tp_alloc: a zero-filled object of the type or a subclass.
    static PyObject* allocate(PyTypeObject* type, Py_ssize_t items) noexcept {
#ifndef NALORA_NO_FREELIST
        if (type == &Type && count_ > 0) {
            PyObject* object = items_[--count_];
            std::memset(static_cast<void*>(object + 1), 0, sizeof(Object) - sizeof(PyObject));
            return PyObject_Init(object, type);
        }
#endif
        return PyType_GenericAlloc(type, items);
    }

    // For tp_dealloc, after the fields were released.
    static void recycle(PyObject* object) noexcept {
#ifndef NALORA_NO_FREELIST
        if (Py_TYPE(object) == &Type && count_ < kCapacity) {
            items_[count_++] = object;
            return;
        }
#endif
        Py_TYPE(object)->tp_free(object);
    }

  private:
    static constexpr int kCapacity = 256;
    static inline PyObject* items_[kCapacity];
    static inline int count_ = 0;
};

}  // namespace nalora
