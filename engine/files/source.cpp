#include "files/source.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <system_error>

#include "files/gzip.hpp"
#include "files/text.hpp"
#include "nlra.h"
#include "store/error.hpp"

namespace nlra {

namespace {

[[noreturn]] void fail_errno(const std::string& filename, const char* what) {
    fail(NLRA_ERROR_FILE, "%s: %s: %s", filename.c_str(), what,
         std::generic_category().message(errno).c_str());
}

struct Descriptor {
    int value;
    ~Descriptor() {
        if (value >= 0) ::close(value);
    }
    int release() {
        const int result = value;
        value = -1;
        return result;
    }
};

size_t read_some(int descriptor, char* buffer, size_t size, const std::string& filename) {
    ssize_t count;
    do {
        count = ::read(descriptor, buffer, size);
    } while (count < 0 && errno == EINTR);
    if (count < 0) fail_errno(filename, "cannot read");
    return static_cast<size_t>(count);
}

// Text that is held to no limit: reading it costs little, whatever it may turn out to be.
constexpr size_t kSmall = size_t{1} << 25;
// Large models become five to ten times smaller when they are compressed; what becomes smaller by
// more than this is the same text again and again, made to fill the memory.
constexpr size_t kMostExpansion = 100;

// What the text of a model may take, which takes more memory than its text.
size_t memory_limit() {
    const long pages = ::sysconf(_SC_PHYS_PAGES), bytes = ::sysconf(_SC_PAGESIZE);
    if (pages <= 0 || bytes <= 0) return std::numeric_limits<size_t>::max() / 4;
    return std::max(kSmall, static_cast<size_t>(pages) / 2 * static_cast<size_t>(bytes));
}

bool is_gzip(const char* data, size_t size) {
    return size >= 2 && data[0] == '\x1f' && data[1] == '\x8b';
}

}  // namespace

std::string quote(std::string_view text) {
    constexpr size_t kLongest = 80;
    std::string result = "'";
    for (char c : text.substr(0, kLongest)) result += is_blank(c) && c != ' ' ? '?' : c;
    if (text.size() > kLongest) result += "...";
    return result += "'";
}

Source::Source(std::string filename, Buffer buffer, size_t size)
    : filename_(std::move(filename)),
      buffer_(std::move(buffer)),
      begin_(buffer_.get()),
      end_(begin_ + size) {
    buffer_.get()[size] = '\n';
    if (size >= 3 && std::memcmp(begin_, "\xef\xbb\xbf", 3) == 0) begin_ += 3;
    // Compressed by something else, UTF-16, a program: say so instead of a puzzling line error.
    const void* nul = std::memchr(begin_, 0, end_ - begin_);
    if (nul != nullptr) fail_at(static_cast<const char*>(nul), "NUL byte: this is not a text file");
}

void Source::grow(Buffer& buffer, size_t& capacity) {
    capacity *= 2;
    char* memory = static_cast<char*>(std::realloc(buffer.get(), capacity + 1));
    if (memory == nullptr) throw std::bad_alloc();
    static_cast<void>(buffer.release());
    buffer.reset(memory);
}

Source Source::from_text(const std::string& filename, std::string_view text) {
    Buffer buffer(static_cast<char*>(std::malloc(text.size() + 1)));
    if (!buffer) throw std::bad_alloc();
    if (!text.empty()) std::memcpy(buffer.get(), text.data(), text.size());
    return Source(filename, std::move(buffer), text.size());
}

Source Source::load(const std::string& filename) {
    Descriptor file{::open(filename.c_str(), O_RDONLY | O_CLOEXEC)};
    if (file.value < 0) fail_errno(filename, "cannot open");
    struct stat status;
    if (::fstat(file.value, &status) != 0) fail_errno(filename, "cannot read");
    if (S_ISDIR(status.st_mode)) {
        fail(NLRA_ERROR_FILE, "%s: is a directory", filename.c_str());
    }
    if (!S_ISREG(status.st_mode) && !S_ISFIFO(status.st_mode)) {
        fail(NLRA_ERROR_FILE, "%s: is not a regular file", filename.c_str());
    }

    const auto file_size = static_cast<size_t>(status.st_size);
    const size_t limit = memory_limit();
    const auto check_size = [&](size_t size) {
        if (size <= limit) return;
        fail(NLRA_ERROR_FILE,
             "%s: the text of the model takes more than half of this computer's memory (%zu MB)",
             filename.c_str(), limit >> 20);
    };
    check_size(file_size);

    // One byte more than the size, so that the read that finds the end needs no growth.
    size_t capacity = std::max<size_t>(file_size + 1, 1u << 16);
    Buffer buffer(static_cast<char*>(std::malloc(capacity + 1)));
    if (!buffer) throw std::bad_alloc();
    size_t size = 0;
    const auto read_all = [&](auto&& read) {
        while (const size_t count = read(buffer.get() + size, capacity - size)) {
            size += count;
            check_size(size);
            if (size == capacity) grow(buffer, capacity);
        }
    };
    const auto read_plain = [&](char* to, size_t room) {
        return read_some(file.value, to, room, filename);
    };
    read_all(read_plain);
    if (is_gzip(buffer.get(), size)) {
        // zlib reads from the file itself, from its beginning.
        if (::lseek(file.value, 0, SEEK_SET) != 0) {
            fail(NLRA_ERROR_FILE, "%s: a compressed model must be a regular file",
                 filename.c_str());
        }
        size = 0;
        GzipFile gzip(file.release(), false, filename);
        read_all([&](char* to, size_t room) {
            if (size > std::max(kSmall, kMostExpansion * gzip.consumed())) {
                fail(NLRA_ERROR_FILE,
                     "%s: unpacks to more than %zu times as much, which no model does",
                     filename.c_str(), kMostExpansion);
            }
            return gzip.read(to, room);
        });
    }
    return Source(filename, std::move(buffer), size);
}

int64_t Source::line_of(const char* where) const {
    return 1 + std::count(begin_, std::min(where, end_), '\n');
}

void Source::fail_at(const char* where, const char* format, ...) const {
    failure_ = where;
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    fail(NLRA_ERROR_FILE, "%s:%lld: %s", filename_.c_str(), static_cast<long long>(line_of(where)),
         text);
}

}  // namespace nlra
