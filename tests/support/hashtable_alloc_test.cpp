// Tests of hsh::Hashtable's use of memory: the bucket array and node chunks it asks for, and
// its state after an allocation fails. Linked with the malloc wrapper of malloc_hook.h, which
// also sees the bucket vectors because global operator new goes through malloc.
#include "support/hashtable.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <new>
#include <vector>

#include "malloc_hook.h"

namespace tvx {
namespace {

using test::MallocCall;
using test::MallocRecording;

// Stands in for a term: the set's key is the pointer, its hash the id.
struct Node {
  std::uint64_t id;
};

struct IdHash {
  std::uint64_t operator()(Node const* n) const { return n->id; }
};

using NodeSet = hsh::Hashtable<Node const*, hsh::GetKey_identity<Node const*>, Node const*, IdHash,
                               std::equal_to<Node const*>>;

class HashtableAllocTest : public ::testing::Test {
 protected:
  Node const* node(std::uint64_t id) {
    nodes_.push_back(Node{id});
    return &nodes_.back();
  }

  std::deque<Node> nodes_;
};

TEST_F(HashtableAllocTest, ConstructionAllocatesOnlyTheBucketArray) {
  MallocRecording rec;
  {
    NodeSet set;
    rec.stop();
    EXPECT_EQ(set.bucket_count(), 31u);
  }
  std::vector<std::size_t> const expected = {31 * sizeof(void*)};
  EXPECT_EQ(rec.malloc_sizes(), expected);
}

TEST_F(HashtableAllocTest, NodesComeFromPoolChunksOfSixteenByteBlocks) {
  static_assert(sizeof(void*) == 8, "the node layout below assumes 64-bit pointers");
  std::vector<Node const*> keys;
  for (std::uint64_t i = 0; i < 17; ++i) {
    keys.push_back(node(i));
  }
  NodeSet set;
  MallocRecording rec;
  auto first = set.insert(keys[0]);
  rec.stop();
  std::vector<MallocCall> calls = rec.mallocs();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].size, 264u);
  // A node is a link word followed by the value; the first node is the chunk's first block.
  char* const first_block = static_cast<char*>(calls[0].result) + 8;
  EXPECT_EQ(reinterpret_cast<char*>(&*first.first) - sizeof(void*), first_block);

  MallocRecording more;
  for (std::size_t i = 1; i < 16; ++i) {
    auto r = set.insert(keys[i]);
    EXPECT_EQ(reinterpret_cast<char*>(&*r.first) - sizeof(void*), first_block + 16 * i);
  }
  EXPECT_TRUE(more.mallocs().empty());
  set.insert(keys[16]);
  more.stop();
  std::vector<std::size_t> const expected = {520};
  EXPECT_EQ(more.malloc_sizes(), expected);
}

TEST_F(HashtableAllocTest, FailedNodeAllocationLeavesTheTableUnchanged) {
  Node const* a = node(1);
  Node const* b = node(2);
  NodeSet set;
  {
    MallocRecording rec;
    rec.fail_next(1);
    EXPECT_THROW(set.insert(a), std::bad_alloc);
  }
  EXPECT_EQ(set.size(), 0u);
  EXPECT_TRUE(set.find(a) == set.end());
  EXPECT_TRUE(set.begin() == set.end());

  EXPECT_TRUE(set.insert(a).second);
  EXPECT_TRUE(set.insert(b).second);
  EXPECT_EQ(set.size(), 2u);
  EXPECT_EQ(*set.find(a), a);
}

TEST_F(HashtableAllocTest, FailedBucketArrayGrowthPassesOutAndKeepsTheTableUsable) {
  std::vector<Node const*> keys;
  for (std::uint64_t i = 0; i < 23; ++i) {
    keys.push_back(node(i * 5));
  }
  NodeSet set;
  for (std::size_t i = 0; i < 22; ++i) {
    set.insert(keys[i]);
  }
  {
    MallocRecording rec;
    rec.fail_next(1);
    EXPECT_THROW(set.insert(keys[22]), std::bad_alloc);
    rec.stop();
    std::vector<std::size_t> const expected = {73 * sizeof(void*)};
    EXPECT_EQ(rec.malloc_sizes(), expected);
  }
  EXPECT_EQ(set.size(), 22u);
  for (std::size_t i = 0; i < 22; ++i) {
    ASSERT_TRUE(set.find(keys[i]) != set.end()) << i;
  }
  EXPECT_TRUE(set.insert(keys[22]).second);
  EXPECT_EQ(set.bucket_count(), 73u);
}

TEST_F(HashtableAllocTest, RehashBeyondTheLastPrimeAsksForTheLastPrime) {
  // Allocating 4294867387 heads is not possible here; the request is refused by the wrapper
  // and its size shows which bucket count was chosen.
  NodeSet set;
  Node const* a = node(7);
  set.insert(a);
  for (std::uint64_t n : {std::uint64_t{4294867387}, std::uint64_t{4294867388},
                          std::uint64_t{1} << 40, ~std::uint64_t{0}}) {
    MallocRecording rec;
    rec.fail_above(std::size_t{1} << 30);
    EXPECT_THROW(set.rehash(static_cast<std::size_t>(n)), std::bad_alloc) << n;
    rec.stop();
    std::vector<std::size_t> const expected = {std::size_t{4294867387} * sizeof(void*)};
    EXPECT_EQ(rec.malloc_sizes(), expected) << n;
  }
  EXPECT_EQ(set.bucket_count(), 31u);
  EXPECT_EQ(*set.find(a), a);
}

TEST_F(HashtableAllocTest, RehashToTheLargestPrimeBelowTheLastAsksForIt) {
  NodeSet set;
  MallocRecording rec;
  rec.fail_above(std::size_t{1} << 30);
  EXPECT_THROW(set.rehash(2764405229u), std::bad_alloc);
  EXPECT_THROW(set.rehash(1382202560u), std::bad_alloc);
  rec.stop();
  std::vector<std::size_t> const expected = {std::size_t{2764405229} * sizeof(void*),
                                             std::size_t{2764405229} * sizeof(void*)};
  EXPECT_EQ(rec.malloc_sizes(), expected);
}

}  // namespace
}  // namespace tvx
