// Tests of hsh::Hashtable and hsh::HashMap: growth through the prime bucket counts, chain order
// before and after relinking, lookups and the lifetime of stored values.
#include "support/hashtable.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace tvx {
namespace {

using Ids = std::vector<std::uint64_t>;

// Stands in for a term: the set's key is the pointer, its hash the id.
struct Node {
  std::uint64_t id;
};

// The hash of a node is its id; the calls are counted to see which operations hash.
struct CountingIdHash {
  static inline int calls = 0;
  std::uint64_t operator()(Node const* n) const {
    ++calls;
    return n->id;
  }
};

using NodeSet = hsh::Hashtable<Node const*, hsh::GetKey_identity<Node const*>, Node const*,
                               CountingIdHash, std::equal_to<Node const*>>;

class HashtableTest : public ::testing::Test {
 protected:
  Node const* node(std::uint64_t id) { return &nodes_.emplace_back(Node{id}); }
  std::deque<Node> nodes_;
};

TEST_F(HashtableTest, GrowsAtTheInsertionThatFindsTheTableFull) {
  NodeSet set;
  CountingIdHash::calls = 0;
  EXPECT_TRUE(set.find(node(5)) == set.end());
  EXPECT_EQ(CountingIdHash::calls, 0) << "find on an empty table computes no hash";
  // Insertion number -> bucket count it grows to.
  std::vector<std::pair<std::size_t, std::size_t>> growths = {{0, 31}};
  for (std::size_t k = 1; k <= 1000; ++k) {
    std::size_t const before = set.bucket_count();
    ASSERT_TRUE(set.insert(node(k * 7919)).second);
    if (set.bucket_count() != before) {
      growths.emplace_back(k, set.bucket_count());
    }
  }
  EXPECT_EQ(growths,
            (std::vector<std::pair<std::size_t, std::size_t>>{
                {0, 31}, {23, 73}, {53, 151}, {107, 313}, {221, 643}, {452, 1291}, {905, 2593}}));
  EXPECT_EQ(set.size(), 1000u);
  NodeSet full;  // a present value inserted into a full table grows it and yields false
  for (std::uint64_t i = 0; i < 22; ++i) {
    full.insert(node(i));
  }
  EXPECT_FALSE(full.insert(&nodes_[nodes_.size() - 4]).second);
  EXPECT_TRUE(full.bucket_count() == 73 && full.size() == 22);
}

TEST_F(HashtableTest, RehashTakesTheFirstPrimeNotBelowAndNeverShrinks) {
  for (auto const& [n, buckets] : std::vector<std::pair<std::size_t, std::size_t>>{
           {32, 73}, {5000, 5233}, {5233, 5233}, {5234, 10501}, {1, 31}}) {
    NodeSet set;
    set.insert(node(n));
    set.rehash(n);
    EXPECT_EQ(set.bucket_count(), buckets) << n;
    set.rehash(32);
    EXPECT_EQ(set.bucket_count(), buckets == 31 ? 73 : buckets) << n;
    EXPECT_EQ(*set.find(&nodes_.back()), &nodes_.back());
  }
}

TEST_F(HashtableTest, ChainsHoldTheLaterValueFirstAndRelinkingReversesThem) {
  std::uint64_t const big = ~std::uint64_t{0};  // 15 modulo 31 over all 64 bits
  struct Row {
    Ids inserted;
    Ids in31;  // iteration order in 31 buckets
    Ids in73;  // and after rehash(32)
  };
  for (Row const& row : {Row{{5, 4, 36, 6, 67}, {4, 67, 36, 5, 6}, {4, 5, 6, 36, 67}},
                         Row{{74, 1}, {1, 74}, {74, 1}},
                         Row{{16, big, 14, 4}, {4, 14, big, 16}, {big, 4, 14, 16}}}) {
    NodeSet set;
    for (std::uint64_t id : row.inserted) {
      set.insert(node(id));
    }
    for (Ids const* expected : {&row.in31, &row.in73}) {
      Ids order;
      for (auto it = set.begin(); it != set.end(); ++it) {
        order.push_back((*it)->id);
      }
      EXPECT_EQ(order, *expected);
      set.rehash(32);
    }
  }
}

TEST(HashMapTest, DestroysEveryStoredValueOnceAndKeepsTheFirstOfAKey) {
  auto const value = std::make_shared<int>(1);  // its use count is the number of live copies
  auto const other = std::make_shared<int>(2);
  {
    hsh::HashMap<std::uint64_t, std::shared_ptr<int>> map;
    for (std::uint64_t k = 0; k < 300; ++k) {
      map.insert({k, value});
    }
    EXPECT_FALSE(map.insert({7, other}).second);
    EXPECT_EQ(map.find(7)->second, value);
    EXPECT_EQ(map.bucket_count(), 643u);
    EXPECT_EQ(value.use_count(), 301);
    EXPECT_EQ(other.use_count(), 1);
  }
  EXPECT_EQ(value.use_count(), 1);
}

}  // namespace
}  // namespace tvx
