// What differs between versions of the interpreter.
#pragma once

#include "support/python.hpp"

namespace nalora {

// Whether the interpreter is shutting down.
inline bool interpreter_is_finalizing() noexcept {
#if PY_VERSION_HEX >= 0x030D0000
    return Py_IsFinalizing() != 0;
#else
    return _Py_IsFinalizing() != 0;
#endif
}

}  // namespace nalora
