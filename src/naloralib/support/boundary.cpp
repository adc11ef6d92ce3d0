#include "support/boundary.hpp"

#include <cstdarg>
#include <exception>
#include <new>

#include "library/library.hpp"

namespace nalora {

void raise(PyObject* type, const char* format, ...) {
    if (PyErr_Occurred() == nullptr) {
        // The module's exception classes do not exist before the end of its initialisation.
        std::va_list arguments;
        va_start(arguments, format);
        PyErr_FormatV(type != nullptr ? type : PyExc_RuntimeError, format, arguments);
        va_end(arguments);
    }
    throw PythonError();
}

void translate_exception() noexcept {
    const bool pending = PyErr_Occurred() != nullptr;
    try {
        throw;
    } catch (const PythonError&) {
        if (!pending) PyErr_SetString(PyExc_SystemError, "failure without an exception");
    } catch (const LibraryError& error) {
        set_library_error(error.owner);
    } catch (const std::bad_alloc&) {
        if (!pending) PyErr_NoMemory();
    } catch (const std::exception& error) {
        if (!pending) PyErr_SetString(PyExc_SystemError, error.what());
    } catch (...) {
        if (!pending) PyErr_SetString(PyExc_SystemError, "unknown internal error");
    }
}

}  // namespace nalora
