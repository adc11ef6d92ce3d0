#include "model/names.hpp"

#include <cstring>

#include "library/library.hpp"
#include "module/state.hpp"
#include "support/boundary.hpp"

namespace nalora {

Ref name_text(Ref name) {
    if (PyUnicode_CheckExact(name.get())) return name;
    return take(PyObject_Str(name.get()));
}

void append_stored_name(PyObject* name, const char* kind, std::string& buffer,
                        std::size_t max_bytes) {
    const char* text;
    Py_ssize_t length;
    if (PyUnicode_Check(name)) {
        text = PyUnicode_AsUTF8AndSize(name, &length);
        if (text == nullptr) {
            if (!PyErr_ExceptionMatches(PyExc_UnicodeError)) throw PythonError();
            raise_chained(model_error(), "Invalid %s name (must have a UTF-8 form)", kind);
        }
    } else if (PyBytes_Check(name)) {
        text = PyBytes_AS_STRING(name);
        length = PyBytes_GET_SIZE(name);
    } else {
        raise(model_error(), "Invalid %s name (must be a string)", kind);
    }
    auto bytes = static_cast<std::size_t>(length);
    if (std::memchr(text, '\0', bytes) != nullptr) {
        raise(model_error(), "Invalid %s name (must not contain null characters)", kind);
    }
    if (bytes > max_bytes) {
        bytes = max_bytes;
        while (bytes > 0 && (text[bytes] & 0xC0) == 0x80) --bytes;  // within a UTF-8 character
    }
    buffer.append(text, bytes).push_back('\0');
}

Ref default_name(const char* letters, uint64_t serial) {
    return take(PyUnicode_FromFormat("%s%llu", letters, static_cast<unsigned long long>(serial)));
}

void append_default_name(char letter, uint64_t serial, std::string& buffer) {
    char digits[20];
    char* end = digits + sizeof digits;
    char* begin = end;
    do {
        *--begin = static_cast<char>('0' + serial % 10);
        serial /= 10;
    } while (serial != 0);
    buffer.push_back(letter);
    buffer.append(begin, end).push_back('\0');
}

}  // namespace nalora
