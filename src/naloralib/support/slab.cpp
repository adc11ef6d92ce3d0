#include "support/slab.hpp"

#include <sys/mman.h>

#include <utility>

#include "support/large_pages.hpp"

namespace nalora {

namespace {
SlabPool* pools = nullptr;  // those that ever had a chunk
}

uint64_t SlabPool::live_cells() noexcept {
    uint64_t total = objects_outside_slabs;
    for (const SlabPool* pool = pools; pool != nullptr; pool = pool->next_pool_) {
        total += pool->used_;
    }
    return total;
}

SlabPool::Chunk* SlabPool::add_chunk() noexcept {
    void* memory =
        mmap(nullptr, 2 * kChunk, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return nullptr;
    // Keep the aligned half.
    auto* begin = static_cast<char*>(memory);
    const uintptr_t before = (kChunk - offset_in_chunk(begin)) & (kChunk - 1);
    if (before > 0) munmap(begin, before);
    munmap(begin + before + kChunk, kChunk - before);
    auto* chunk = reinterpret_cast<Chunk*>(begin + before);
    // Small models take small pages, as many as they touch.
    if (chunks_++ > 0) request_large_pages(chunk, kChunk);
    // Cells as aligned as the interpreter's own memory.
    chunk->fresh = (sizeof(Chunk) + 15) / 16 * 16;
    link(chunk);
    ++empty_;
    if (!std::exchange(known_, true)) next_pool_ = std::exchange(pools, this);
    return chunk;
}

void SlabPool::drop_chunk(Chunk* chunk) noexcept {
    if (++empty_ == 1) return;
    unlink(chunk);
    --empty_;
    --chunks_;
    munmap(chunk, kChunk);
}

}  // namespace nalora
