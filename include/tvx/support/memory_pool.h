// MemoryPool: hands out fixed-size blocks carved from malloc'd chunks and keeps returned blocks
// on a LIFO free list. Invariant: memory goes back to the C library only when the pool dies.
#ifndef TVX_SUPPORT_MEMORY_POOL_H
#define TVX_SUPPORT_MEMORY_POOL_H

#include <cassert>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace tvx {

// A chunk is one malloc'd region: a link word to the chunk allocated before it, then
// `blocks` blocks of BlockSize bytes each. The chunk after one of n blocks holds
// size_t(float(n) * growth) blocks, capped at `max_blocks` when that is not 0.
//
// ClearBlocks selects whether allocate() zero-fills the block it returns (false: the block is
// handed out as it is, the normal case).
template <std::size_t BlockSize, bool ClearBlocks>
class MemoryPool {
  static_assert(BlockSize >= sizeof(void*), "a free block must be able to hold a link");

 public:
  MemoryPool(std::size_t first_chunk_blocks, float growth, std::size_t max_blocks)
      : next_blocks_(first_chunk_blocks), growth_(growth), max_blocks_(max_blocks) {
    assert(first_chunk_blocks > 0 && "a chunk holds at least one block");
  }

  MemoryPool(MemoryPool const&) = delete;
  MemoryPool& operator=(MemoryPool const&) = delete;

  ~MemoryPool() {
    while (chunks_ != nullptr) {
      void* previous = *static_cast<void**>(chunks_);
      std::free(chunks_);
      chunks_ = previous;
    }
  }

  // Returns an uninitialised block. Throws std::bad_alloc, leaving the pool unchanged, when
  // malloc fails; the next call asks for the same chunk size again.
  void* allocate() {
    if (free_ == nullptr) {
      add_chunk();
    }
    void* block = free_;
    free_ = *static_cast<void**>(block);
    if (ClearBlocks) {
      std::memset(block, 0, BlockSize);
    }
    return block;
  }

  // Gives a block back; it is the next one allocate() returns.
  void deallocate(void* block) {
    assert(block != nullptr && "only blocks of the pool go back to it");
    *static_cast<void**>(block) = free_;
    free_ = block;
  }

 private:
  static constexpr std::size_t kLinkSize = 8;
  static_assert(sizeof(void*) <= kLinkSize, "the chunk link word holds a pointer");

  void add_chunk() {
    std::size_t const blocks = next_blocks_;
    assert(blocks > 0 && "a chunk holds at least one block");
    char* chunk = static_cast<char*>(std::malloc(blocks * BlockSize + kLinkSize));
    if (chunk == nullptr) {
      throw std::bad_alloc();
    }
    *reinterpret_cast<void**>(chunk) = chunks_;
    chunks_ = chunk;

    std::size_t next = static_cast<std::size_t>(static_cast<float>(blocks) * growth_);
    if (max_blocks_ != 0 && next > max_blocks_) {
      next = max_blocks_;
    }
    next_blocks_ = next;

    // Link the blocks in ascending address order so that they are handed out that way.
    char* first = chunk + kLinkSize;
    for (std::size_t i = 0; i + 1 < blocks; ++i) {
      *reinterpret_cast<void**>(first + i * BlockSize) = first + (i + 1) * BlockSize;
    }
    *reinterpret_cast<void**>(first + (blocks - 1) * BlockSize) = nullptr;
    free_ = first;
  }

  std::size_t next_blocks_;
  float growth_;
  std::size_t max_blocks_;
  void* chunks_ = nullptr;
  void* free_ = nullptr;
};

}  // namespace tvx

#endif  // TVX_SUPPORT_MEMORY_POOL_H
