// Where a model file's text goes. The formats append to a buffer; what is behind it gets large
// pieces.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>
#include <string_view>

#include "files/gzip.hpp"
#include "files/number.hpp"

namespace nlra {

class Output {
  public:
    // `filename` is for messages.
    explicit Output(std::string filename) : filename_(std::move(filename)) {}
    virtual ~Output() = default;
    const std::string& filename() const { return filename_; }

    void put(char c) {
        buffer_ += c;
        if (buffer_.size() >= kPiece) flush();
    }
    void put(std::string_view text) {
        buffer_ += text;
        if (buffer_.size() >= kPiece) flush();
    }
    void put_number(double value) {
        char text[32];
        put(std::string_view(text, format_number(text, value) - text));
    }
    // Hand over what is left. Must be called at the end.
    void flush() {
        write(buffer_.data(), buffer_.size());
        buffer_.clear();
    }

  protected:
    virtual void write(const char* data, size_t size) = 0;

  private:
    static constexpr size_t kPiece = size_t{1} << 18;
    std::string filename_;
    std::string buffer_;
};

// A file that appears under its name only when it is complete: until then the text is in another
// file beside it, which goes when an error comes. Devices and pipes are written to directly.
class FileOutput : public Output {
  public:
    FileOutput(const std::string& filename, bool compressed);
    ~FileOutput() override;
    FileOutput(const FileOutput&) = delete;
    FileOutput& operator=(const FileOutput&) = delete;

    // Throws Error NLRA_ERROR_FILE when anything did not arrive.
    void commit();

  protected:
    void write(const char* data, size_t size) override;

  private:
    void open_temporary(const struct stat* present);
    void remove_temporary();
    [[noreturn]] void fail_errno(const char* what) const;

    std::string target_;     // the file name with symbolic links resolved
    std::string temporary_;  // empty when the target itself is written to
    int descriptor_ = -1;
    std::unique_ptr<GzipFile> gzip_;
};

}  // namespace nlra
