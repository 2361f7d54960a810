// Tests of MemoryPool: chunk sizes asked of malloc, block layout inside a chunk, free-list
// reuse, malloc failure and the release of chunks. The C allocator is observed through the
// link-time malloc/free wrapper of malloc_hook.h.
#include "support/memory_pool.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <optional>
#include <vector>

#include "malloc_hook.h"

namespace tvx {
namespace {

using test::MallocCall;
using test::MallocRecording;

// The settings of the hash set's node pool.
using NodePool = MemoryPool<16, false>;
NodePool make_node_pool() {
  return NodePool(16, 2.0f, 8192);
}

char* as_bytes(void* p) {
  return static_cast<char*>(p);
}

TEST(MemoryPoolTest, ConstructionTakesNoMemory) {
  MallocRecording rec;
  {
    NodePool pool(16, 2.0f, 8192);
    rec.stop();
  }
  EXPECT_TRUE(rec.mallocs().empty());
}

TEST(MemoryPoolTest, FirstBlockFollowsLinkWordOfFirstChunk) {
  NodePool pool(16, 2.0f, 8192);
  MallocRecording rec;
  void* block = pool.allocate();
  rec.stop();
  std::vector<MallocCall> calls = rec.mallocs();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].size, 264u);
  EXPECT_EQ(as_bytes(block), as_bytes(calls[0].result) + 8);
  // The first chunk's link word is null: there is no chunk before it.
  EXPECT_EQ(*static_cast<void**>(calls[0].result), nullptr);
}

TEST(MemoryPoolTest, BlocksOfOneChunkAreHandedOutInAscendingOrder) {
  NodePool pool(16, 2.0f, 8192);
  std::vector<void*> blocks;
  blocks.reserve(16);
  MallocRecording rec;
  for (int i = 0; i < 16; ++i) {
    blocks.push_back(pool.allocate());
  }
  EXPECT_EQ(rec.mallocs().size(), 1u) << "16 blocks fit in the first chunk";
  void* seventeenth = pool.allocate();
  rec.stop();

  std::vector<MallocCall> calls = rec.mallocs();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[1].size, 520u);
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    EXPECT_EQ(as_bytes(blocks[i]), as_bytes(calls[0].result) + 8 + 16 * i) << "block " << i;
  }
  EXPECT_EQ(as_bytes(seventeenth), as_bytes(calls[1].result) + 8);
  // A chunk's link word points to the chunk allocated before it.
  EXPECT_EQ(*static_cast<void**>(calls[1].result), calls[0].result);
}

TEST(MemoryPoolTest, GivenBackBlockIsReusedFirst) {
  NodePool pool = make_node_pool();
  void* a = pool.allocate();
  void* b = pool.allocate();
  void* c = pool.allocate();
  pool.deallocate(b);
  pool.deallocate(c);
  MallocRecording rec;
  EXPECT_EQ(pool.allocate(), c);
  EXPECT_EQ(pool.allocate(), b);
  // With the free list drained, the chunk's untouched blocks follow where they left off.
  EXPECT_EQ(as_bytes(pool.allocate()), as_bytes(c) + 16);
  rec.stop();
  EXPECT_TRUE(rec.mallocs().empty());
  pool.deallocate(a);
  EXPECT_EQ(pool.allocate(), a);
}

TEST(MemoryPoolTest, ReuseAfterChunkIsExhaustedTakesNoNewChunk) {
  NodePool pool = make_node_pool();
  std::vector<void*> blocks;
  for (int i = 0; i < 16; ++i) {
    blocks.push_back(pool.allocate());
  }
  MallocRecording rec;
  pool.deallocate(blocks[3]);
  EXPECT_EQ(pool.allocate(), blocks[3]);
  rec.stop();
  EXPECT_TRUE(rec.mallocs().empty());
}

TEST(MemoryPoolTest, ChunksDoubleUpToTheCapThenStay) {
  std::vector<std::size_t> const ten = {264,  520,   1032,  2056,  4104,
                                        8200, 16392, 32776, 65544, 131080};
  std::vector<std::size_t> expected = ten;
  expected.insert(expected.end(), 4, 131080);
  NodePool pool = make_node_pool();
  MallocRecording rec;
  // Ten chunks hold 16 + 32 + ... + 8192 = 16368 blocks.
  for (int i = 0; i < 16368; ++i) {
    pool.allocate();
  }
  rec.stop();
  EXPECT_EQ(rec.malloc_sizes(), ten);
  MallocRecording more;
  for (int i = 0; i < 3 * 8192 + 1; ++i) {
    pool.allocate();
  }
  more.stop();
  expected.erase(expected.begin(), expected.begin() + 10);
  EXPECT_EQ(more.malloc_sizes(), expected);
}

TEST(MemoryPoolTest, WithoutCapChunksKeepDoubling) {
  MemoryPool<16, false> pool(16, 2.0f, 0);
  std::size_t total = 0;
  std::vector<std::size_t> expected;
  for (std::size_t blocks = 16; blocks <= (std::size_t{1} << 16); blocks *= 2) {
    expected.push_back(blocks * 16 + 8);
    total += blocks;
  }
  MallocRecording rec;
  for (std::size_t i = 0; i < total; ++i) {
    pool.allocate();
  }
  rec.stop();
  EXPECT_EQ(rec.malloc_sizes(), expected);
}

TEST(MemoryPoolTest, ChunkGrowthTruncatesTheSinglePrecisionProduct) {
  // 10 blocks, then 10 * 1.5 = 15, 22.5 -> 22, 33, 49.5 -> 49, 73.5 -> 73, 109.5 -> 109.
  MemoryPool<24, false> pool(10, 1.5f, 0);
  std::vector<std::size_t> const blocks = {10, 15, 22, 33, 49, 73, 109};
  std::size_t total = 0;
  std::vector<std::size_t> expected;
  for (std::size_t n : blocks) {
    expected.push_back(n * 24 + 8);
    total += n;
  }
  std::vector<void*> handed;
  handed.reserve(total);
  MallocRecording rec;
  for (std::size_t i = 0; i < total; ++i) {
    handed.push_back(pool.allocate());
  }
  rec.stop();
  EXPECT_EQ(rec.malloc_sizes(), expected);
  std::vector<MallocCall> calls = rec.mallocs();
  ASSERT_EQ(calls.size(), blocks.size());
  std::size_t k = 0;
  for (std::size_t c = 0; c < blocks.size(); ++c) {
    for (std::size_t i = 0; i < blocks[c]; ++i, ++k) {
      ASSERT_EQ(as_bytes(handed[k]), as_bytes(calls[c].result) + 8 + 24 * i)
          << "chunk " << c << " block " << i;
    }
  }
}

TEST(MemoryPoolTest, CapLimitsTheGrownChunk) {
  // 16 * 2 = 32 exceeds the cap of 20, so the second and later chunks hold 20 blocks.
  MemoryPool<8, false> pool(16, 2.0f, 20);
  MallocRecording rec;
  for (int i = 0; i < 16 + 20 + 20 + 1; ++i) {
    pool.allocate();
  }
  rec.stop();
  std::vector<std::size_t> const expected = {16 * 8 + 8, 20 * 8 + 8, 20 * 8 + 8, 20 * 8 + 8};
  EXPECT_EQ(rec.malloc_sizes(), expected);
}

TEST(MemoryPoolTest, FailedMallocThrowsAndTheNextCallAsksForTheSameSize) {
  NodePool pool = make_node_pool();
  MallocRecording rec;
  rec.fail_next(1);
  EXPECT_THROW(pool.allocate(), std::bad_alloc);
  void* block = pool.allocate();
  rec.stop();
  std::vector<MallocCall> calls = rec.mallocs();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0].size, 264u);
  EXPECT_EQ(calls[0].result, nullptr);
  EXPECT_EQ(calls[1].size, 264u);
  EXPECT_EQ(as_bytes(block), as_bytes(calls[1].result) + 8);
  // The failure left the chunk list empty: the chunk made afterwards is the first one.
  EXPECT_EQ(*static_cast<void**>(calls[1].result), nullptr);
}

TEST(MemoryPoolTest, FailureWhenGrowingKeepsTheNextChunkSize) {
  NodePool pool = make_node_pool();
  for (int i = 0; i < 16; ++i) {
    pool.allocate();
  }
  MallocRecording rec;
  rec.fail_next(2);
  EXPECT_THROW(pool.allocate(), std::bad_alloc);
  EXPECT_THROW(pool.allocate(), std::bad_alloc);
  pool.allocate();
  pool.allocate();
  rec.stop();
  std::vector<std::size_t> const expected = {520, 520, 520};
  EXPECT_EQ(rec.malloc_sizes(), expected);
}

TEST(MemoryPoolTest, DestructionFreesEveryChunkLastFirst) {
  std::optional<NodePool> pool;
  pool.emplace(16, 2.0f, 8192);
  MallocRecording rec;
  void* given_back[38];  // every third of the 113 blocks
  for (int i = 0; i < 16 + 32 + 64 + 1; ++i) {
    void* p = pool->allocate();
    if (i % 3 == 0) {
      given_back[i / 3] = p;
    }
  }
  for (void* p : given_back) {
    pool->deallocate(p);  // given-back blocks do not make chunks go back early
  }
  EXPECT_TRUE(rec.frees().empty());
  pool.reset();
  rec.stop();
  std::vector<MallocCall> calls = rec.mallocs();
  ASSERT_EQ(calls.size(), 4u);
  std::vector<void*> const expected = {calls[3].result, calls[2].result, calls[1].result,
                                       calls[0].result};
  EXPECT_EQ(rec.frees(), expected);
}

TEST(MemoryPoolTest, EmptyPoolFreesNothing) {
  MallocRecording rec;
  { NodePool pool = make_node_pool(); }
  rec.stop();
  EXPECT_TRUE(rec.frees().empty());
  EXPECT_TRUE(rec.mallocs().empty());
}

}  // namespace
}  // namespace tvx
