#include "files/gzip.hpp"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "nlra.h"
#include "store/error.hpp"

namespace nlra {

namespace {

// What is used of zlib; its binary interface has been stable since version 1.2.4.
struct Zlib {
    void* (*dopen)(int, const char*) = nullptr;
    int (*buffer)(void*, unsigned) = nullptr;
    int (*read)(void*, void*, unsigned) = nullptr;
    int (*write)(void*, const void*, unsigned) = nullptr;
    int (*close)(void*) = nullptr;
    const char* (*error)(void*, int*) = nullptr;
    off_t (*offset)(void*) = nullptr;
    bool loaded = false;

    Zlib() {
        // Never unloaded: open files may outlive any scope here.
        void* library = dlopen("libz.so.1", RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) library = dlopen("libz.so", RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) return;
        loaded = bind(library, "gzdopen", dopen) && bind(library, "gzbuffer", buffer) &&
                 bind(library, "gzread", read) && bind(library, "gzwrite", write) &&
                 bind(library, "gzclose", close) && bind(library, "gzerror", error) &&
                 bind(library, "gzoffset64", offset);
    }

    template <class Function>
    static bool bind(void* library, const char* name, Function& function) {
        function = reinterpret_cast<Function>(dlsym(library, name));
        return function != nullptr;
    }
};

const Zlib& zlib() {
    static const Zlib library;
    return library;
}

constexpr int kErrno = -1;  // zlib's code for "see errno"

}  // namespace

GzipFile::GzipFile(int descriptor, bool writing, const std::string& filename)
    : filename_(filename) {
    if (!zlib().loaded) {
        ::close(descriptor);
        fail(NLRA_ERROR_FILE,
             "%s: compressed files need the zlib library (libz.so.1), which was not found",
             filename.c_str());
    }
    file_ = zlib().dopen(descriptor, writing ? "wb" : "rb");
    if (file_ == nullptr) {
        ::close(descriptor);
        fail(NLRA_ERROR_MEMORY, "%s: out of memory", filename.c_str());
    }
    zlib().buffer(file_, 1u << 18);
}

GzipFile::~GzipFile() {
    if (file_ != nullptr) zlib().close(file_);
}

void GzipFile::fail_io(const char* what) {
    const int saved = errno;
    int code = 0;
    std::string text = zlib().error(file_, &code);
    if (code == kErrno) text = std::generic_category().message(saved);
    fail(NLRA_ERROR_FILE, "%s: %s: %s", filename_.c_str(), what, text.c_str());
}

size_t GzipFile::read(char* buffer, size_t size) {
    const unsigned chunk = static_cast<unsigned>(std::min<size_t>(size, 1u << 30));
    const int count = zlib().read(file_, buffer, chunk);
    if (count < 0) fail_io("cannot decompress");
    if (count == 0) {
        // A file that stops in the middle reads as if it ended; only the state tells.
        int code = 0;
        zlib().error(file_, &code);
        if (code != 0) fail_io("cannot decompress");
    }
    return static_cast<size_t>(count);
}

size_t GzipFile::consumed() const {
    return static_cast<size_t>(std::max<off_t>(zlib().offset(file_), 0));
}

void GzipFile::write(const char* data, size_t size) {
    while (size > 0) {
        const unsigned chunk = static_cast<unsigned>(std::min<size_t>(size, 1u << 30));
        const int count = zlib().write(file_, data, chunk);
        if (count <= 0) fail_io("cannot write");
        data += count;
        size -= static_cast<size_t>(count);
    }
}

void GzipFile::close() {
    void* file = file_;
    file_ = nullptr;
    const int status = zlib().close(file);
    if (status != 0) {
        const std::string text = status == kErrno ? std::generic_category().message(errno)
                                                  : "error " + std::to_string(status);
        fail(NLRA_ERROR_FILE, "%s: cannot write: %s", filename_.c_str(), text.c_str());
    }
}

}  // namespace nlra
