// The one boundary between C++ and the interpreter. Every slot, method, getter and trampoline is
// noexcept and runs its body through guarded(): the only `try` of the module. Inside, functions
// throw PythonError (a Python error is set), LibraryError (an engine call on `owner` failed; the
// boundary fetches the text) or std::bad_alloc. An error that is already set is never overwritten.
#pragma once

#include <type_traits>

#include "support/ref.hpp"

namespace nalora {

// An engine call failed. `owner` (borrowed, outlives the throw) is the problem or branching object
// whose handle failed, null the global environment.
struct LibraryError {
    PyObject* owner;
};

// Set a Python error with a PyErr_Format text (%S, %R, %d, ... of the interpreter) and unwind.
[[noreturn]] void raise(PyObject* type, const char* format, ...);

// Turn the C++ exception in flight into a Python error. Called in catch blocks only.
void translate_exception() noexcept;

// Run `body`; its result (Ref, int, Py_ssize_t, Py_hash_t) becomes the slot's result. On an
// exception: null for Ref, -1 for the others, with a Python error set.
template <class Body>
auto guarded(Body&& body) noexcept {
    using Result = decltype(body());
    if constexpr (std::is_same_v<Result, Ref>) {
        try {
            return body().release();
        } catch (...) {
            translate_exception();
            return static_cast<PyObject*>(nullptr);
        }
    } else if constexpr (std::is_void_v<Result>) {
        try {
            body();
            return 0;
        } catch (...) {
            translate_exception();
            return -1;
        }
    } else {
        try {
            return body();
        } catch (...) {
            translate_exception();
            return static_cast<Result>(-1);
        }
    }
}

// For code that must not fail (dealloc): saves the pending error, runs `body`, reports an error of
// its own as unraisable, restores the saved one.
template <class Body>
void guarded_release(PyObject* context, Body&& body) noexcept {
    PyObject *type, *value, *traceback;
    PyErr_Fetch(&type, &value, &traceback);
    if (guarded([&] { body(); }) < 0) PyErr_WriteUnraisable(context);
    PyErr_Restore(type, value, traceback);
}

inline Ref none() noexcept { return Ref::borrow(Py_None); }

}  // namespace nalora
