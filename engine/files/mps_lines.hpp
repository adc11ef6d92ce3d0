// The lines of an MPS file, split into fields: at blanks (free format), or at the columns that the
// fixed format gives to its six fields.
#pragma once

#include <string_view>

#include "files/source.hpp"

namespace nlra {

class MpsLines {
  public:
    static constexpr int kMaxFields = 6;

    MpsLines(const Source& source, bool fixed)
        : next_(source.begin()), end_(source.end()), source_(source), fixed_(fixed) {}

    // Go to the next line that is neither blank nor a comment; false at the end of the text.
    bool next();

    // Header lines start in the first column: a section's name and its arguments.
    bool is_header() const { return header_; }
    // Fields that are not empty; kMaxFields + 1 when there are more.
    int count() const { return count_; }
    std::string_view operator[](int i) const { return field_[i]; }
    // All behind the first field, for names that may hold blanks.
    std::string_view rest() const;
    // Blanks before the first field.
    int indent() const { return static_cast<int>(field_[0].data() - line_); }
    const char* begin() const { return line_; }

  private:
    void split_free(const char* from);
    void split_fixed(const char* line_end);

    const char* next_;
    const char* end_;
    const char* line_ = nullptr;
    const char* line_end_ = nullptr;
    const Source& source_;
    bool fixed_;
    bool header_ = false;
    int count_ = 0;
    std::string_view field_[kMaxFields];
};

}  // namespace nlra
