// Small helpers for the text of model files: comparing words, quoting what a user wrote.
#pragma once

#include <string>
#include <string_view>

namespace nlra {

inline char lower_case(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

// `lower` is in lower case.
inline bool equal_nocase(std::string_view text, std::string_view lower) {
    if (text.size() != lower.size()) return false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (lower_case(text[i]) != lower[i]) return false;
    }
    return true;
}

// Blanks, tabs, line ends and other control characters separate fields.
inline bool is_blank(char c) { return static_cast<unsigned char>(c) <= ' '; }

inline std::string_view trim(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

// For messages: in single quotes, long text cut short, unprintable bytes as question marks.
std::string quote(std::string_view text);

}  // namespace nlra
