// Memory for argument arrays: one allocator interface (allocate, resize, release, each 0 or -1) and
// the move-only owner of one array.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "support/ref.hpp"

namespace nalora {

struct MemoryInterface {
    int (*allocate)(void* context, std::size_t size, void** pointer);
    int (*resize)(void* context, void** pointer, std::size_t size);
    int (*release)(void* context, void** pointer);
    void* context;
};
// The module's memory; tests may count or fail its allocations.
MemoryInterface& memory() noexcept;

// One C array and the Python objects whose memory its elements point into.
class Array {
  public:
    Array() noexcept = default;
    explicit Array(std::size_t bytes);  // throws std::bad_alloc; zero bytes give a non-null array
    Array(Array&& o) noexcept : data_(std::exchange(o.data_, nullptr)), keep_(std::move(o.keep_)) {}
    Array& operator=(Array&& o) noexcept {
        std::swap(data_, o.data_);
        std::swap(keep_, o.keep_);
        return *this;
    }
    ~Array();

    bool exists() const noexcept { return data_ != nullptr; }
    template <class T>
    T* data() const noexcept {
        return static_cast<T*>(data_);
    }
    void resize(std::size_t bytes);
    void keep(Ref object) { keep_.push_back(std::move(object)); }

  private:
    void* data_ = nullptr;
    std::vector<Ref> keep_;
};

}  // namespace nalora
