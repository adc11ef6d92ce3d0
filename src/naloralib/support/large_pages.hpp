// Large pieces of memory ask for large pages: the first touch of every small page costs more than
// what is written there.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>
#include <vector>

namespace nalora {

// Ask for large pages behind what lies in whole ones of this memory; no more than a wish. Returns
// the memory, which may be null.
void* request_large_pages(void* memory, std::size_t bytes) noexcept;
inline void* with_large_pages(void* memory, std::size_t bytes) noexcept {
    constexpr std::size_t kLarge = std::size_t{1} << 22;
    return bytes < kLarge || memory == nullptr ? memory : request_large_pages(memory, bytes);
}

template <class T>
struct LargePages {
    using value_type = T;

    LargePages() noexcept = default;
    template <class U>
    LargePages(const LargePages<U>&) noexcept {}

    T* allocate(std::size_t count) {
        if (count > static_cast<std::size_t>(-1) / 2 / sizeof(T)) throw std::bad_alloc();
        const std::size_t bytes = count * sizeof(T);
        void* memory = with_large_pages(std::malloc(bytes), bytes);
        if (memory == nullptr) throw std::bad_alloc();
        return static_cast<T*>(memory);
    }
    void deallocate(T* memory, std::size_t /*count*/) noexcept { std::free(memory); }

    template <class U>
    bool operator==(const LargePages<U>&) const noexcept {
        return true;
    }
};

// Vectors that may become very large, for a short time.
template <class T>
using LargeVector = std::vector<T, LargePages<T>>;

}  // namespace nalora
