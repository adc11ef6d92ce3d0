#include "support/buffer.hpp"

#include <cstdlib>
#include <new>

namespace nalora {

namespace {

int allocate(void*, std::size_t size, void** pointer) {
    *pointer = std::malloc(size);
    return *pointer != nullptr ? 0 : -1;
}

int resize(void*, void** pointer, std::size_t size) {
    void* resized = std::realloc(*pointer, size);
    if (resized == nullptr) return -1;  // the old block stays valid
    *pointer = resized;
    return 0;
}

int release(void*, void** pointer) {
    std::free(*pointer);
    *pointer = nullptr;
    return 0;
}

MemoryInterface interface { allocate, resize, release, nullptr };

// An array of no elements is not the same as no array, so it has an address too.
std::size_t nonzero(std::size_t bytes) noexcept { return bytes != 0 ? bytes : 1; }

}  // namespace

MemoryInterface& memory() noexcept { return interface; }

Array::Array(std::size_t bytes) {
    MemoryInterface& m = memory();
    if (m.allocate(m.context, nonzero(bytes), &data_) != 0) throw std::bad_alloc();
}

Array::~Array() {
    MemoryInterface& m = memory();
    if (data_ != nullptr) m.release(m.context, &data_);
}

void Array::resize(std::size_t bytes) {
    MemoryInterface& m = memory();
    const int failed = data_ == nullptr ? m.allocate(m.context, nonzero(bytes), &data_)
                                        : m.resize(m.context, &data_, nonzero(bytes));
    if (failed != 0) throw std::bad_alloc();
}

}  // namespace nalora
