#include "store/error.hpp"

#include <cstdio>

namespace nlra {

void fail(int code, const char* format, ...) {
    // Long enough for any sentence; only file names could make it longer, and are cut then.
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    throw Error{code, text};
}

}  // namespace nlra
