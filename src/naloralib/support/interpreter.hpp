// What differs between versions of the interpreter.
#pragma once

#include "support/python.hpp"

namespace nalora {

// Whether the interpreter is shutting down or gone. A daemon thread may still be solving then; its
// callbacks must not ask for the interpreter lock any more.
inline bool interpreter_is_finalizing() noexcept {
    if (Py_IsInitialized() == 0) return true;
#if PY_VERSION_HEX >= 0x030D0000
    return Py_IsFinalizing() != 0;
#else
    return _Py_IsFinalizing() != 0;
#endif
}

}  // namespace nalora
