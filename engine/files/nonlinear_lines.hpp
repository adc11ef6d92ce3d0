// The parts of lines of nonlinear model files: reading them from a source, writing them to an
// output. What may continue on a further line is decided here only.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <unordered_set>

#include "files/name_table.hpp"
#include "files/output.hpp"
#include "files/source.hpp"

namespace nlra {

class ModelLines {
  public:
    explicit ModelLines(const Source& source)
        : source_(source), at_(source.begin()), end_(source.end()) {}

    // Go to the next line that is neither blank nor a comment; false at the end of the text.
    bool next();
    // The next character that is not blank, a newline at the end of the statement.
    char peek();
    bool take(char c);
    bool at_end() { return peek() == '\n'; }

    // Each reads one part or fails. Names may be quoted; their texts live as long as this.
    std::string_view word(const char* expected);
    std::string_view name();
    // A finite number with an optional sign; or +-kInfinity, where `infinite`.
    double number(bool infinite = false);
    // A number from a formula: without sign, finite, of any size.
    double constant();
    int count(const char* expected);

    const char* position() const { return at_; }
    const Source& source() const { return source_; }
    [[noreturn]] void fail_expected(const char* what);

  private:
    std::string_view quoted();
    char escaped(const char* at) const;

    const Source& source_;
    const char* at_;
    const char* end_;
    std::deque<std::string> texts_;  // of names with escapes
};

// Columns as statements refer to them.
class ColumnReader {
  public:
    explicit ColumnReader(const NameTable& names) : names_(names) {}
    void mark_shared(int col) { shared_.insert(col); }
    int read(ModelLines& lines) const;
    // The column of a name that the lines have given already.
    int find(const ModelLines& lines, std::string_view name) const;

  private:
    const NameTable& names_;  // of all columns; of those that share a name the first one has it
    std::unordered_set<int> shared_;
};

// Writes statements, wrapped where they get long.
class LineOutput {
  public:
    explicit LineOutput(Output& output) : output_(output) {}

    void begin(std::string_view keyword) { put(keyword); }
    void end();
    // The line may be broken before each piece. A blank is dropped where it is.
    void blank() { blank_ = true; }
    void piece(std::string_view text);
    void field(std::string_view text) { blank(), piece(text); }
    void field(double value);
    void number(double value);

    Output& output() { return output_; }

  private:
    void put(std::string_view text);

    Output& output_;
    size_t width_ = 0;
    bool blank_ = false;
};

// A name as it stands in a file: bare, or in quotes.
std::string name_text(std::string_view name);

}  // namespace nlra
