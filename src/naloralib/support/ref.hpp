// Ownership of Python references, in types. The rules:
// - A parameter `PyObject*` is borrowed; the caller keeps it alive for the call.
// - A result that is owned is a `Ref`. Ref::steal takes over a new reference, Ref::borrow makes
//   one; neither throws, and an empty Ref means "no object" (take() turns a null result of the
//   interpreter, which has set an error, into PythonError).
// - release() hands the reference out, which only a slot's last line does.
// - Py_INCREF and Py_DECREF are written nowhere but here, in dealloc functions, in term buffers
//   and in free lists.
#pragma once

#include <utility>

#include "support/python.hpp"

namespace nalora {

// A Python error is set on this thread; unwinds to the boundary (support/boundary.hpp).
struct PythonError {};

class Ref {
  public:
    Ref() noexcept = default;
    Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Ref& operator=(Ref&& other) noexcept {
        PyObject* old = std::exchange(object_, std::exchange(other.object_, nullptr));
        Py_XDECREF(old);
        return *this;
    }
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    ~Ref() { Py_XDECREF(object_); }

    template <class T>
    static Ref steal(T* object) noexcept {
        return Ref(reinterpret_cast<PyObject*>(object));
    }
    template <class T>
    static Ref borrow(T* object) noexcept {
        Py_XINCREF(reinterpret_cast<PyObject*>(object));
        return Ref(reinterpret_cast<PyObject*>(object));
    }

    PyObject* get() const noexcept { return object_; }
    template <class T>
    T* as() const noexcept {
        return reinterpret_cast<T*>(object_);
    }
    [[nodiscard]] PyObject* release() noexcept { return std::exchange(object_, nullptr); }
    explicit operator bool() const noexcept { return object_ != nullptr; }

  private:
    explicit Ref(PyObject* object) noexcept : object_(object) {}
    PyObject* object_ = nullptr;
};

// Take over a new reference that an interpreter function returned; null means it set an error.
template <class T>
inline Ref take(T* object) {
    if (object == nullptr) throw PythonError();
    return Ref::steal(object);
}

// Check an interpreter function that returns -1 with an error set.
inline void check_python(int result) {
    if (result < 0) throw PythonError();
}

// Replace a field that owns a reference, in the order that re-entrant code needs: the field is
// changed before the old object is released.
inline void assign_field(PyObject*& field, Ref value) noexcept {
    PyObject* old = std::exchange(field, value.release());
    Py_XDECREF(old);
}

}  // namespace nalora
