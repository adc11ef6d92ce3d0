// Memory for small objects of one size, which models make and drop by the million. Cells come from
// chunks of 2 MiB that the kernel may back by large pages: most of the time of building a large
// model in small pieces of memory goes into page faults. A chunk that is empty goes back, but for
// one. Guarded by the interpreter lock.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nalora {

// Objects that have memory of their own, in builds that use no slabs for them.
inline constinit uint64_t objects_outside_slabs = 0;

class SlabPool {
  public:
    explicit constexpr SlabPool(std::size_t cell_size) noexcept
        : size_(static_cast<uint32_t>(cell_size)) {}

    // Null when there is no memory.
    void* allocate() noexcept {
        Chunk* chunk = with_room_;
        if (chunk == nullptr) [[unlikely]] {
            chunk = add_chunk();
            if (chunk == nullptr) return nullptr;
        }
        void* cell = chunk->free;
        if (cell != nullptr) {
            chunk->free = *static_cast<void**>(cell);
        } else {
            cell = reinterpret_cast<char*>(chunk) + chunk->fresh;
            chunk->fresh += size_;
        }
        ++used_;
        if (chunk->used++ == 0) [[unlikely]]
            --empty_;
        if (is_full(chunk)) [[unlikely]]
            unlink(chunk);
        return cell;
    }

    void deallocate(void* cell) noexcept {
        auto* chunk = reinterpret_cast<Chunk*>(static_cast<char*>(cell) - offset_in_chunk(cell));
        const bool was_full = is_full(chunk);
        *static_cast<void**>(cell) = chunk->free;
        chunk->free = cell;
        --used_;
        --chunk->used;
        if (was_full) [[unlikely]]
            link(chunk);
        if (chunk->used == 0) [[unlikely]]
            drop_chunk(chunk);
    }

    // Cells in use in all pools, and objects outside of slabs.
    static uint64_t live_cells() noexcept;

  private:
    static constexpr uintptr_t kChunk = uintptr_t{1} << 21;

    struct Chunk {               // stands at the beginning of its memory
        void* free;              // dropped cells, each pointing to the next
        Chunk *previous, *next;  // among the chunks with room
        uint32_t used;           // cells
        uint32_t fresh;          // where the memory begins that was never handed out
    };

    static uintptr_t offset_in_chunk(const void* cell) noexcept {
        return reinterpret_cast<uintptr_t>(cell) & (kChunk - 1);
    }
    bool is_full(const Chunk* chunk) const noexcept {
        return chunk->free == nullptr && chunk->fresh + size_ > kChunk;
    }
    void link(Chunk* chunk) noexcept {
        chunk->previous = nullptr;
        chunk->next = with_room_;
        if (with_room_ != nullptr) with_room_->previous = chunk;
        with_room_ = chunk;
    }
    void unlink(Chunk* chunk) noexcept {
        (chunk->previous != nullptr ? chunk->previous->next : with_room_) = chunk->next;
        if (chunk->next != nullptr) chunk->next->previous = chunk->previous;
    }
    Chunk* add_chunk() noexcept;
    void drop_chunk(Chunk* chunk) noexcept;

    Chunk* with_room_ = nullptr;
    SlabPool* next_pool_ = nullptr;
    uint64_t used_ = 0;  // cells
    uint32_t size_;
    uint32_t chunks_ = 0;
    uint32_t empty_ = 0;  // chunks without cells in use
    bool known_ = false;  // to live_cells()
};

// The pool for objects of a size; sizes that round up to the same share it.
namespace slabs {
template <std::size_t Size>
inline constinit SlabPool pool{Size};
}
template <std::size_t Size>
SlabPool& slab_pool() noexcept {
    return slabs::pool<(Size + 7) / 8 * 8>;
}

}  // namespace nalora
