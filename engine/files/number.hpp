// Decimal numbers in model files: read and written without regard to the locale, and written with
// the fewest digits that read back as the same double.
#pragma once

#include <string_view>

namespace nlra {

enum class NumberStatus { kOk, kMalformed, kNan, kOutOfRange };

// Read an unsigned decimal number at `begin`. Returns the position behind it, or null when none
// starts there. A number that no double can hold gives NaN.
const char* scan_number(const char* begin, const char* end, double& value);

// Read a whole field: an optional sign, then a number (exponents may be marked d or D as well) or
// "inf" or "infinity" in any case, which give +-kInfinity.
NumberStatus parse_number(std::string_view field, double& value);

inline bool is_number(std::string_view field) {
    double value;
    return parse_number(field, value) == NumberStatus::kOk;
}

// Text of a number at `out` (32 bytes are enough); returns the position behind it.
char* format_number(char* out, double value);

// The same in at most `width` characters, rounded where it takes more; `width` is 12 or more.
char* format_number_within(char* out, double value, int width);

}  // namespace nlra
