// Tests of MemoryPool: the chunk sizes it asks of malloc, where its blocks lie, free-list reuse
// and malloc failure. Linked with -Wl,--wrap=malloc, so the pool's mallocs come through here.
#include <tvx/support/memory_pool.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <vector>

extern "C" void* __real_malloc(std::size_t size);

namespace {

// Reserved before recording starts, so that recording itself never allocates.
bool g_recording = false;
int g_fail_next = 0;
std::vector<std::size_t> g_sizes;
std::vector<char*> g_results;  // null where the call was made to fail

}  // namespace

extern "C" void* __wrap_malloc(std::size_t size) {
  if (!g_recording)
    return __real_malloc(size);
  char* p = g_fail_next-- > 0 ? nullptr : static_cast<char*>(__real_malloc(size));
  g_sizes.push_back(size);
  g_results.push_back(p);
  return p;
}

namespace tvx {
namespace {

using Sizes = std::vector<std::size_t>;

class MemoryPoolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_sizes.clear();
    g_results.clear();
    g_sizes.reserve(64);
    g_results.reserve(64);
    g_recording = true;
  }
  void TearDown() override { g_recording = false; }

  MemoryPool<16, false> pool{16, 2.0f, 8192};  // the hash set's node pool
};

// Blocks follow the chunk's link word in ascending order; the block given back last is handed
// out first. A failed malloc throws and the next call asks for the same size again.
TEST_F(MemoryPoolTest, BlockLayoutFreeListAndFailedMalloc) {
  g_fail_next = 1;
  EXPECT_THROW(pool.allocate(), std::bad_alloc);
  char* blocks[17];
  for (std::size_t i = 0; i < 16; ++i)
    blocks[i] = static_cast<char*>(pool.allocate());
  g_fail_next = 1;
  EXPECT_THROW(pool.allocate(), std::bad_alloc);
  blocks[16] = static_cast<char*>(pool.allocate());
  ASSERT_EQ(g_sizes, (Sizes{264, 264, 520, 520}));
  EXPECT_EQ(g_results[0], nullptr);
  for (std::size_t i = 0; i < 16; ++i)
    EXPECT_EQ(blocks[i], g_results[1] + 8 + 16 * i) << i;
  EXPECT_EQ(blocks[16], g_results[3] + 8);
  pool.deallocate(blocks[3]);
  pool.deallocate(blocks[16]);
  EXPECT_EQ(pool.allocate(), blocks[16]);
  EXPECT_EQ(pool.allocate(), blocks[3]);
}

TEST_F(MemoryPoolTest, ChunksDoubleUpToTheCap) {
  // Ten chunks hold 16368 blocks; the eleventh holds 8192 again, or 16384 without a cap.
  for (std::size_t cap : {8192, 0}) {
    MemoryPool<16, false> p(16, 2.0f, cap);
    g_sizes.clear();
    for (int i = 0; i < 16368 + 1; ++i)
      p.allocate();
    EXPECT_EQ(g_sizes, (Sizes{264, 520, 1032, 2056, 4104, 8200, 16392, 32776, 65544, 131080,
                              cap == 0 ? 262152u : 131080u}));
  }
}

}  // namespace
}  // namespace tvx
