// gzip-compressed files through the system's zlib. It is loaded when first needed, so that neither
// building nor using the engine without compressed files takes zlib.
#pragma once

#include <cstddef>
#include <string>

namespace nlra {

// A compressed file that is being read or written.
class GzipFile {
  public:
    // Takes over the open file `descriptor` in any case. `filename` is for messages.
    GzipFile(int descriptor, bool writing, const std::string& filename);
    ~GzipFile();
    GzipFile(const GzipFile&) = delete;
    GzipFile& operator=(const GzipFile&) = delete;

    // Returns 0 at the end. A damaged or truncated file throws Error NLRA_ERROR_FILE.
    size_t read(char* buffer, size_t size);
    // How much of the compressed file has been read so far.
    size_t consumed() const;
    void write(const char* data, size_t size);
    // Write what is still buffered and close; only this tells that all of it arrived.
    void close();

  private:
    [[noreturn]] void fail_io(const char* what);

    void* file_ = nullptr;
    std::string filename_;
};

}  // namespace nlra
