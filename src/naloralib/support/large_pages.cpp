#include "support/large_pages.hpp"

#include <sys/mman.h>

#include <cstdint>

namespace nalora {

void* request_large_pages([[maybe_unused]] void* memory,
                          [[maybe_unused]] std::size_t bytes) noexcept {
#ifdef MADV_HUGEPAGE
    constexpr uintptr_t kPage = uintptr_t{1} << 21;
    const uintptr_t before = (kPage - (reinterpret_cast<uintptr_t>(memory) & (kPage - 1))) % kPage;
    if (before < bytes) {
        const std::size_t whole = (bytes - before) / kPage * kPage;
        if (whole > 0) madvise(static_cast<char*>(memory) + before, whole, MADV_HUGEPAGE);
    }
#endif
    return memory;
}

}  // namespace nalora
