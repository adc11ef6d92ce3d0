// Vectors that may become very large, for a short time: their memory asks for large pages, as the
// first touch of every small page costs more than what is written there.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <vector>

namespace nalora {

template <class T>
struct LargePages {
    using value_type = T;

    LargePages() noexcept = default;
    template <class U>
    LargePages(const LargePages<U>&) noexcept {}

    T* allocate(std::size_t count) {
        constexpr std::size_t kPage = std::size_t{1} << 21;
        if (count > static_cast<std::size_t>(-1) / 2 / sizeof(T)) throw std::bad_alloc();
        const std::size_t bytes = count * sizeof(T);
        void* memory = bytes < 2 * kPage
                           ? std::malloc(bytes)
                           : std::aligned_alloc(kPage, (bytes + kPage - 1) / kPage * kPage);
        if (memory == nullptr) throw std::bad_alloc();
#ifdef MADV_HUGEPAGE
        if (bytes >= 2 * kPage) madvise(memory, bytes, MADV_HUGEPAGE);  // a wish
#endif
        return static_cast<T*>(memory);
    }
    void deallocate(T* memory, std::size_t /*count*/) noexcept { std::free(memory); }

    template <class U>
    bool operator==(const LargePages<U>&) const noexcept {
        return true;
    }
};

template <class T>
using LargeVector = std::vector<T, LargePages<T>>;

}  // namespace nalora
