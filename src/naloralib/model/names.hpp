// Names of variables, constraints and sets: any object may serve as one. For model/ only.
#pragma once

#include <string>

#include "support/ref.hpp"

namespace nalora {

// A name as str or repr must give it: a str. Anything but a str goes through str().
Ref name_text(Ref name);

// Append a stored name as UTF-8 and a NUL; see var_append_name. `kind` is "variable", "constraint".
void append_stored_name(PyObject* name, const char* kind, std::string& buffer,
                        std::size_t max_bytes);
Ref default_name(const char* letters, uint64_t serial);
// Append a default name, such as C12, and a NUL.
void append_default_name(char letter, uint64_t serial, std::string& buffer);

// Whether a str object equals an ASCII text; for attribute names.
inline bool is_text(PyObject* object, const char* text) noexcept {
    return PyUnicode_Check(object) && PyUnicode_CompareWithASCIIString(object, text) == 0;
}

}  // namespace nalora
