// The engine's one exception. Everything inside throws it; the C functions (api/) catch it, keep
// code and text as the handle's last error and return the code.
#pragma once

#include <cstdarg>
#include <string>

namespace nlra {

struct Error {
    int code;          // NLRA_ERROR_...
    std::string text;  // a sentence for the user; names the argument that is wrong
};

// Throw an Error with a printf-formatted text.
[[noreturn]] void fail(int code, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace nlra
