#include "files/output.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <system_error>

#include "files/gzip.hpp"
#include "nlra.h"
#include "store/error.hpp"

namespace nlra {

FileOutput::FileOutput(const std::string& filename, bool compressed)
    : Output(filename), target_(filename) {
    struct stat status;
    const bool present = ::stat(filename.c_str(), &status) == 0;
    if (present && S_ISDIR(status.st_mode)) {
        fail(NLRA_ERROR_FILE, "%s: is a directory", filename.c_str());
    }
    if (present && !S_ISREG(status.st_mode)) {
        // A device or pipe: renaming a file over it would destroy it.
        descriptor_ = ::open(filename.c_str(), O_WRONLY | O_CLOEXEC);
        if (descriptor_ < 0) fail_errno("cannot write");
    } else {
        open_temporary(present ? &status : nullptr);
    }
    if (compressed) {
        const int descriptor = descriptor_;
        descriptor_ = -1;
        try {
            gzip_ = std::make_unique<GzipFile>(descriptor, true, filename);
        } catch (...) {
            remove_temporary();
            throw;
        }
    }
}

FileOutput::~FileOutput() {
    gzip_.reset();
    if (descriptor_ >= 0) ::close(descriptor_);
    remove_temporary();
}

void FileOutput::open_temporary(const struct stat* present) {
    if (present != nullptr) {
        // A file that may not be written must not be replaced either.
        if (::access(filename().c_str(), W_OK) != 0) fail_errno("cannot write");
        char* resolved = ::realpath(filename().c_str(), nullptr);
        if (resolved == nullptr) fail_errno("cannot write");
        const std::unique_ptr<char, decltype(&std::free)> owner(resolved, &std::free);
        target_ = resolved;
    }
    // In the same folder, since a rename works only within a file system. Several threads may
    // write at once, and other processes too.
    static std::atomic<unsigned> counter{0};
    const std::string folder = target_.substr(0, target_.rfind('/') + 1);
    do {
        temporary_ = folder + "nalora-" + std::to_string(::getpid()) + '-' +
                     std::to_string(++counter) + ".tmp";
        descriptor_ = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    } while (descriptor_ < 0 && errno == EEXIST);
    if (descriptor_ < 0) fail_errno("cannot write");
    if (present != nullptr && ::fchmod(descriptor_, present->st_mode & 07777) != 0) {
        errno = 0;  // not every file system keeps rights, and the text matters more
    }
}

void FileOutput::remove_temporary() {
    if (!temporary_.empty()) ::unlink(temporary_.c_str());
    temporary_.clear();
}

void FileOutput::write(const char* data, size_t size) {
    if (gzip_) return gzip_->write(data, size);
    while (size > 0) {
        const ssize_t count = ::write(descriptor_, data, size);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail_errno("cannot write");
        data += count;
        size -= static_cast<size_t>(count);
    }
}

void FileOutput::commit() {
    flush();
    if (gzip_) {
        gzip_->close();
    } else {
        const int descriptor = descriptor_;
        descriptor_ = -1;
        if (::close(descriptor) != 0) fail_errno("cannot write");
    }
    if (temporary_.empty()) return;
    if (std::rename(temporary_.c_str(), target_.c_str()) != 0) fail_errno("cannot write");
    temporary_.clear();
}

void FileOutput::fail_errno(const char* what) const {
    fail(NLRA_ERROR_FILE, "%s: %s: %s", filename().c_str(), what,
         std::generic_category().message(errno).c_str());
}

}  // namespace nlra
