#include "support/large_pages.hpp"

#include <sys/mman.h>

#include <cstdint>

namespace nalora {

void* request_large_pages([[maybe_unused]] void* memory,
                          [[maybe_unused]] std::size_t bytes) noexcept {
#ifdef MADV_HUGEPAGE
    constexpr uintptr_t kPage = uintptr_t{1} << 21;
    const auto address = reinterpret_cast<uintptr_t>(memory);
    const uintptr_t begin = (address + kPage - 1) & ~(kPage - 1);
    const uintptr_t end = (address + bytes) & ~(kPage - 1);
    if (begin < end) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#endif
    return memory;
}

}  // namespace nalora
