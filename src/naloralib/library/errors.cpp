#include <cstdarg>
#include <cstring>

#include "library/library.hpp"
#include "module/state.hpp"
#include "problem/problem.hpp"

namespace nalora {

namespace {

// The last error of a handle; texts that are longer are cut.
struct LastError {
    int code = 0;
    char text[2048] = {};

    bool exists() const noexcept { return code != 0 || text[0] != '\0'; }
};

void read_global_error(LastError& error) noexcept {
    int needed = 0;
    NLRA_ge_getlasterror(&error.code, error.text, sizeof(error.text), &needed);
}

const char* global_text(LastError& error) noexcept {
    read_global_error(error);
    return error.exists() ? error.text
                          : "Unidentified error associated with the global environment";
}

// The optimizer's text; the nonlinear solver's where only that one failed.
const char* problem_text(const ProblemObject* p, LastError& error) noexcept {
    int needed = 0;
    if (p->prob == nullptr) {
        // It could not be created: the reason is the environment's.
        read_global_error(error);
    } else {
        NLRAgetlasterror(p->prob, &error.code, error.text, sizeof(error.text), &needed);
    }
    if (!error.exists() && p->nonlinear != nullptr) {
        NSLPgetlasterror(p->nonlinear, &error.code, error.text, sizeof(error.text), &needed);
    }
    return error.exists() ? error.text : "Unidentified error associated with optimization problem";
}

void set_error_text(PyObject* type, const char* text) noexcept {
    const Ref message = Ref::steal(
        PyUnicode_DecodeUTF8(text, static_cast<Py_ssize_t>(std::strlen(text)), "replace"));
    // The exception classes do not exist yet while the module is being initialised.
    if (message) PyErr_SetObject(type != nullptr ? type : PyExc_RuntimeError, message.get());
}

}  // namespace

void set_library_error(PyObject* owner) noexcept {
    if (PyErr_Occurred() != nullptr) return;
    LastError error;
    if (owner == nullptr) {
        set_error_text(interface_error(), global_text(error));
    } else if (is_problem(owner)) {
        set_error_text(solver_error(), problem_text(as_problem(owner), error));
    } else {
        set_error_text(interface_error(), "");
    }
}

void raise_library_error(PyObject* owner) {
    set_library_error(owner);
    throw PythonError{};
}

// What the interpreter's own `raise ... from ...` does, which has no public C function.
void raise_chained(PyObject* type, const char* format, ...) {
    if (PyErr_Occurred() != nullptr && !PyErr_ExceptionMatches(PyExc_Exception)) {
        throw PythonError{};
    }
    PyObject *cause_type, *cause, *traceback;
    PyErr_Fetch(&cause_type, &cause, &traceback);
    if (cause_type != nullptr) {
        PyErr_NormalizeException(&cause_type, &cause, &traceback);
        if (traceback != nullptr) PyException_SetTraceback(cause, traceback);
    }
    const Ref first_type = Ref::steal(cause_type);
    Ref first = Ref::steal(cause);
    const Ref first_traceback = Ref::steal(traceback);

    va_list arguments;
    va_start(arguments, format);
    PyErr_FormatV(type, format, arguments);
    va_end(arguments);
    if (!first) throw PythonError{};

    PyObject *new_type, *value, *new_traceback;
    PyErr_Fetch(&new_type, &value, &new_traceback);
    PyErr_NormalizeException(&new_type, &value, &new_traceback);
    PyException_SetContext(value, Ref::borrow(first.get()).release());
    PyException_SetCause(value, first.release());
    PyErr_Restore(new_type, value, new_traceback);
    throw PythonError{};
}

Ref decode_text(const char* text) {
    return take(PyUnicode_DecodeUTF8(text, static_cast<Py_ssize_t>(std::strlen(text)), "replace"));
}

}  // namespace nalora
