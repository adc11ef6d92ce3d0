#include "files/nonlinear_lines.hpp"

#include <charconv>
#include <cmath>
#include <cstring>

#include "files/number.hpp"
#include "files/text.hpp"
#include "store/model.hpp"

namespace nlra {

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

bool begins_name(char c) {
    const char lower = lower_case(c);
    return (lower >= 'a' && lower <= 'z') || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}

bool continues_name(char c) {
    return begins_name(c) || is_digit(c) || c == '.' || c == '[' || c == ']';
}

bool is_bare(std::string_view name) {
    if (name.empty() || !begins_name(name[0])) return false;
    for (char c : name) {
        if (!continues_name(c)) return false;
    }
    return true;
}

bool is_control(char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }

}  // namespace

// ---- reading -----------------------------------------------------------------------------------

bool ModelLines::next() {
    while (at_ < end_) {
        if (*at_ == '#') {
            at_ = static_cast<const char*>(std::memchr(at_, '\n', end_ - at_ + 1));
        } else if (!is_blank(*at_)) {
            return true;
        } else {
            ++at_;
        }
    }
    return false;
}

char ModelLines::peek() {
    while (true) {
        while (is_blank(*at_) && *at_ != '\n') ++at_;
        if (*at_ != '\n' || at_ >= end_) return *at_;
        const char* next = at_ + 1;
        while (next < end_ && is_blank(*next) && *next != '\n') ++next;
        if (next >= end_ || *next != '&') return '\n';
        at_ = next + 1;
    }
}

bool ModelLines::take(char c) {
    if (peek() != c) return false;
    ++at_;
    return true;
}

std::string_view ModelLines::word(const char* expected) {
    if (!begins_name(peek())) fail_expected(expected);
    const char* begin = at_;
    while (continues_name(*at_)) ++at_;
    return {begin, static_cast<size_t>(at_ - begin)};
}

std::string_view ModelLines::name() { return peek() == '"' ? quoted() : word("a name"); }

std::string_view ModelLines::quoted() {
    const char* begin = ++at_;
    bool has_escapes = false;
    for (; *at_ != '"'; ++at_) {
        if (*at_ == '\\') {
            has_escapes = true;
            ++at_;
        }
        if (*at_ == '\n') source_.fail_at(begin, "the closing quote is missing");
    }
    const std::string_view text(begin, at_++ - begin);
    if (text.empty()) source_.fail_at(begin, "the name is empty; what has none is written as -");
    if (!has_escapes) return text;
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool escape = text[i] == '\\';
        if (escape) ++i;
        if (escape && text[i] == 'x') {
            plain += escaped(text.data() + i + 1);
            i += 2;
        } else {
            if (escape && text[i] != '"' && text[i] != '\\') {
                source_.fail_at(begin, "unknown escape \\%c in a name", text[i]);
            }
            plain += text[i];
        }
    }
    return texts_.emplace_back(std::move(plain));
}

// The byte that two hexadecimal digits stand for; the closing quote is behind `at` or there.
char ModelLines::escaped(const char* at) const {
    int value = 0;
    const bool two = at[0] != '"' && at[1] != '"';
    if (!two || std::from_chars(at, at + 2, value, 16).ptr != at + 2 || value <= 0) {
        source_.fail_at(at, "\\x in a name must be followed by two hexadecimal digits, not 00");
    }
    return static_cast<char>(value);
}

double ModelLines::number(bool infinite) {
    const bool negative = peek() == '-';
    if (negative || *at_ == '+') ++at_;
    double value = 0.0;
    if (begins_name(*at_)) {
        const char* begin = at_;
        const std::string_view text = word("a number");
        if (!equal_nocase(text, "inf") && !equal_nocase(text, "infinity")) {
            source_.fail_at(begin, "%s is not a number", quote(text).c_str());
        }
        value = kInfinity;
    } else {
        value = constant();
    }
    if (value >= kInfinity && !infinite) source_.fail_at(at_, "the number must be finite");
    if (value > kInfinity) value = kInfinity;
    return negative ? -value : value;
}

double ModelLines::constant() {
    peek();
    double value = 0.0;
    const char* stop = scan_number(at_, end_, value);
    if (stop == nullptr) fail_expected("a number");
    if (std::isnan(value)) source_.fail_at(at_, "the number is out of range");
    at_ = stop;
    return value;
}

int ModelLines::count(const char* expected) {
    peek();
    int value = 0;
    const auto [stop, error] = std::from_chars(at_, end_, value);
    if (error != std::errc() || value < 0) fail_expected(expected);
    at_ = stop;
    return value;
}

void ModelLines::fail_expected(const char* what) {
    if (at_end()) source_.fail_at(at_, "expected %s at the end of the line", what);
    const char* stop = at_;
    while (!is_blank(*stop) && stop - at_ < 40) ++stop;
    const std::string_view found(at_, stop - at_);
    source_.fail_at(at_, "expected %s, not %s", what, quote(found).c_str());
}

int ColumnReader::read(ModelLines& lines) const {
    const Source& source = lines.source();
    if (lines.take('@')) {
        const char* begin = lines.position();
        const int number = lines.count("the number of a column");
        if (number < 1 || number > names_.size()) {
            source.fail_at(begin, "there is no column @%d; %d are declared before", number,
                           names_.size());
        }
        return number - 1;
    }
    return find(lines, lines.name());
}

int ColumnReader::find(const ModelLines& lines, std::string_view name) const {
    const int col = names_.find(name);
    const Source& source = lines.source();
    if (col < 0) {
        source.fail_at(lines.position(), "unknown column %s", quote(name).c_str());
    }
    if (!shared_.empty() && shared_.count(col) > 0) {
        source.fail_at(lines.position(),
                       "several columns are called %s; write @ and the column's number",
                       quote(name).c_str());
    }
    return col;
}

// ---- writing -----------------------------------------------------------------------------------

void LineOutput::put(std::string_view text) {
    output_.put(text);
    width_ += text.size();
}

void LineOutput::end() {
    output_.put('\n');
    width_ = 0;
    blank_ = false;
}

void LineOutput::piece(std::string_view text) {
    constexpr size_t kWidth = 100;
    if (width_ + text.size() >= kWidth) {
        end();
        put("    & ");
    } else if (blank_) {
        put(" ");
    }
    blank_ = false;
    put(text);
}

void LineOutput::number(double value) {
    char text[32];
    piece(std::string_view(text, format_number(text, value) - text));
}

void LineOutput::field(double value) {
    blank();
    if (value >= kInfinity) return piece("inf");
    if (value <= -kInfinity) return piece("-inf");
    number(value);
}

std::string name_text(std::string_view name) {
    if (is_bare(name)) return std::string(name);
    std::string text = "\"";
    for (char c : name) {
        if (is_control(c)) {
            constexpr const char* kDigits = "0123456789abcdef";
            text += "\\x";
            text += kDigits[static_cast<unsigned char>(c) >> 4];
            text += kDigits[c & 15];
        } else {
            if (c == '"' || c == '\\') text += '\\';
            text += c;
        }
    }
    return text + '"';
}

}  // namespace nlra
