// The text of a model file in memory, and how errors in it are reported.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

namespace nlra {

class Source {
  public:
    // Load a file, decompressing it where its content is gzip's. Throws Error NLRA_ERROR_FILE, also
    // for text that this computer has no memory for, and as soon as a compressed file shows that it
    // is no model but made to fill the memory.
    static Source load(const std::string& filename);
    // The same from memory, for tests.
    static Source from_text(const std::string& filename, std::string_view text);

    // The text without a byte order mark, followed by a newline that is not part of it: a scan for
    // the end of a line always ends. It holds no NUL.
    const char* begin() const { return begin_; }
    const char* end() const { return end_; }
    const std::string& filename() const { return filename_; }

    // Throw Error NLRA_ERROR_FILE "file:line: ..." for the line that holds `where`.
    [[noreturn]] void fail_at(const char* where, const char* format, ...) const
        __attribute__((format(printf, 3, 4)));
    int64_t line_of(const char* where) const;
    // Where fail_at was last called, null for never.
    const char* failure() const { return failure_; }

  private:
    struct Free {
        void operator()(char* memory) const { std::free(memory); }
    };
    using Buffer = std::unique_ptr<char, Free>;

    // `buffer` has room for size + 1 bytes.
    Source(std::string filename, Buffer buffer, size_t size);
    static void grow(Buffer& buffer, size_t& capacity);

    std::string filename_;
    Buffer buffer_;
    const char* begin_;
    const char* end_;
    mutable const char* failure_ = nullptr;
};

}  // namespace nlra
