#include "files/mps_lines.hpp"

#include <cstring>

#include "files/text.hpp"

namespace nlra {

bool MpsLines::next() {
    while (next_ < end_) {
        line_ = next_;
        if (*line_ == '*') {
            next_ = static_cast<const char*>(std::memchr(line_, '\n', end_ - line_ + 1)) + 1;
            continue;
        }
        header_ = !is_blank(*line_);
        if (fixed_ && !header_) {
            line_end_ = static_cast<const char*>(std::memchr(line_, '\n', end_ - line_ + 1));
            split_fixed(line_end_);
        } else {
            split_free(line_);
        }
        next_ = line_end_ + 1;
        if (count_ > 0) return true;
    }
    line_ = end_;
    return false;
}

std::string_view MpsLines::rest() const {
    const char* from = field_[0].data() + field_[0].size();
    return trim({from, static_cast<size_t>(line_end_ - from)});
}

void MpsLines::split_free(const char* at) {
    // No check for the end of the text is needed: the newline behind it ends the last line.
    count_ = 0;
    while (true) {
        while (is_blank(*at) && *at != '\n') ++at;
        if (*at == '\n') break;
        const char* from = at;
        while (!is_blank(*at)) ++at;
        if (count_ == kMaxFields) {
            ++count_;
            at = static_cast<const char*>(std::memchr(at, '\n', end_ - at + 1));
            break;
        }
        field_[count_++] = {from, static_cast<size_t>(at - from)};
    }
    line_end_ = at;
}

void MpsLines::split_fixed(const char* line_end) {
    struct Span {
        int from, to;
    };
    static constexpr Span kSpans[kMaxFields] = {{1, 3},   {4, 12},  {14, 22},
                                                {24, 36}, {39, 47}, {49, 61}};
    std::string_view line(line_, line_end - line_);
    while (!line.empty() && is_blank(line.back())) line.remove_suffix(1);
    // Numbers or names that run over the edge of a field must not be cut in two unnoticed.
    count_ = 0;
    int past = 0;  // what lies between the fields must be blank
    for (const Span& span : kSpans) {
        for (; past < span.from && past < static_cast<int>(line.size()); ++past) {
            if (!is_blank(line[past])) {
                source_.fail_at(line_, "column %d lies between the fields of the fixed format",
                                past + 1);
            }
        }
        if (past >= static_cast<int>(line.size())) break;
        const std::string_view field = trim(line.substr(span.from, span.to - span.from));
        if (!field.empty()) field_[count_++] = field;
        past = span.to;
    }
}

}  // namespace nlra
