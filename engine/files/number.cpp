#include "files/number.hpp"

#include <charconv>
#include <limits>

#include "files/text.hpp"
#include "store/model.hpp"

namespace nlra {

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Fortran programs mark exponents with a d, which from_chars does not know.
bool parse_with_d_exponent(std::string_view digits, size_t marker, double& value) {
    char copy[64];
    if (digits.size() > sizeof(copy)) return false;
    digits.copy(copy, digits.size());
    copy[marker] = 'e';
    const char* end = copy + digits.size();
    return scan_number(copy, end, value) == end;
}

}  // namespace

const char* scan_number(const char* begin, const char* end, double& value) {
    // from_chars would take "inf" and "nan", which are names where numbers have no marks.
    const bool starts = begin < end && (is_digit(*begin) ||
                                        (*begin == '.' && begin + 1 < end && is_digit(begin[1])));
    if (!starts) return nullptr;
    const auto [stop, error] = std::from_chars(begin, end, value);
    if (error == std::errc::result_out_of_range) value = std::numeric_limits<double>::quiet_NaN();
    return stop;
}

NumberStatus parse_number(std::string_view field, double& value) {
    std::string_view digits = field;
    const bool negative = !digits.empty() && digits[0] == '-';
    if (negative || (!digits.empty() && digits[0] == '+')) digits.remove_prefix(1);
    const char* end = digits.data() + digits.size();
    const char* stop = scan_number(digits.data(), end, value);
    if (stop == nullptr) {
        if (equal_nocase(digits, "nan")) return NumberStatus::kNan;
        if (!equal_nocase(digits, "inf") && !equal_nocase(digits, "infinity")) {
            return NumberStatus::kMalformed;
        }
        value = kInfinity;
    } else if (stop != end) {
        const bool marked = *stop == 'd' || *stop == 'D';
        if (!marked || !parse_with_d_exponent(digits, stop - digits.data(), value)) {
            return NumberStatus::kMalformed;
        }
    }
    if (value != value) return NumberStatus::kOutOfRange;
    if (negative) value = -value;
    return NumberStatus::kOk;
}

char* format_number(char* out, double value) { return std::to_chars(out, out + 32, value).ptr; }

char* format_number_within(char* out, double value, int width) {
    char* end = format_number(out, value);
    for (int digits = width; end - out > width; --digits) {
        end = std::to_chars(out, out + 32, value, std::chars_format::general, digits).ptr;
    }
    return end;
}

}  // namespace nlra
