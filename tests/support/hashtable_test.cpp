// Tests of hsh::Hashtable and hsh::HashMap: growth through the prime bucket counts, chain order
// before and after relinking, lookups, iteration and the lifetime of stored values.
#include "support/hashtable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <iterator>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace tvx {
namespace {

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
  void SetUp() override { CountingIdHash::calls = 0; }

  Node const* node(std::uint64_t id) {
    nodes_.push_back(Node{id});
    return &nodes_.back();
  }

  std::vector<Node const*> nodes(std::vector<std::uint64_t> const& ids) {
    std::vector<Node const*> out;
    for (std::uint64_t id : ids) {
      out.push_back(node(id));
    }
    return out;
  }

  // The ids in iteration order: buckets by index, each chain from its head.
  static std::vector<std::uint64_t> ids_in_order(NodeSet const& set) {
    std::vector<std::uint64_t> out;
    for (auto it = set.begin(); it != set.end(); ++it) {
      out.push_back((*it)->id);
    }
    return out;
  }

  std::deque<Node> nodes_;
};

TEST_F(HashtableTest, NewTableHas31BucketsAndFindsNothingWithoutHashing) {
  NodeSet set;
  EXPECT_EQ(set.bucket_count(), 31u);
  EXPECT_EQ(set.size(), 0u);
  EXPECT_TRUE(set.begin() == set.end());
  EXPECT_TRUE(set.find(node(5)) == set.end());
  EXPECT_TRUE(set.find(node(0)) == set.end());
  EXPECT_EQ(CountingIdHash::calls, 0);
}

TEST_F(HashtableTest, InsertingTheSamePointerTwiceYieldsTheSameNode) {
  NodeSet set;
  Node const* a = node(42);
  auto first = set.insert(a);
  auto second = set.insert(a);
  EXPECT_TRUE(first.second);
  EXPECT_FALSE(second.second);
  EXPECT_EQ(&*first.first, &*second.first);
  EXPECT_EQ(*second.first, a);
  EXPECT_EQ(set.size(), 1u);
  EXPECT_EQ(&*set.find(a), &*first.first);
}

TEST_F(HashtableTest, KeysArePointersNotIds) {
  NodeSet set;
  Node const* a = node(9);
  Node const* twin = node(9);
  set.insert(a);
  EXPECT_TRUE(set.find(twin) == set.end());
  EXPECT_TRUE(set.insert(twin).second);
  EXPECT_EQ(set.size(), 2u);
  EXPECT_EQ(*set.find(a), a);
  EXPECT_EQ(*set.find(twin), twin);
}

TEST_F(HashtableTest, GrowthHappensAtTheInsertionThatFindsTheTableFull) {
  // Insertion number -> bucket count it grows to; the table holds at most 22 values in 31
  // buckets, 52 in 73, 106 in 151, 220 in 313, 451 in 643 and 904 in 1291.
  std::vector<std::pair<std::size_t, std::size_t>> const expected = {
      {23, 73}, {53, 151}, {107, 313}, {221, 643}, {452, 1291}, {905, 2593}};
  NodeSet set;
  std::vector<std::pair<std::size_t, std::size_t>> growths;
  for (std::size_t k = 1; k <= 1000; ++k) {
    std::size_t const before = set.bucket_count();
    ASSERT_TRUE(set.insert(node(k * 7919)).second);
    if (set.bucket_count() != before) {
      growths.emplace_back(k, set.bucket_count());
    }
    ASSERT_EQ(set.size(), k);
  }
  EXPECT_EQ(growths, expected);
}

TEST_F(HashtableTest, PresentValueInsertedIntoAFullTableStillGrowsIt) {
  NodeSet set;
  std::vector<Node const*> keys;
  for (std::uint64_t i = 0; i < 22; ++i) {
    keys.push_back(node(i));
    set.insert(keys.back());
  }
  ASSERT_EQ(set.bucket_count(), 31u);
  auto r = set.insert(keys[3]);
  EXPECT_FALSE(r.second);
  EXPECT_EQ(*r.first, keys[3]);
  EXPECT_EQ(set.bucket_count(), 73u);
  EXPECT_EQ(set.size(), 22u);
}

TEST_F(HashtableTest, PresentValueInsertedBelowTheThresholdDoesNotGrow) {
  NodeSet set;
  std::vector<Node const*> keys;
  for (std::uint64_t i = 0; i < 21; ++i) {
    keys.push_back(node(i));
    set.insert(keys.back());
  }
  EXPECT_FALSE(set.insert(keys[0]).second);
  EXPECT_EQ(set.bucket_count(), 31u);
  EXPECT_TRUE(set.insert(node(100)).second);  // 21 / 31 is not above 0.7 either
  EXPECT_EQ(set.bucket_count(), 31u);
}

struct RehashCase {
  std::size_t n;
  std::size_t buckets;
};

void PrintTo(RehashCase const& c, std::ostream* os) {
  *os << "rehash(" << c.n << ")";
}

class HashtableRehashTest : public HashtableTest,
                            public ::testing::WithParamInterface<RehashCase> {};

TEST_P(HashtableRehashTest, ChoosesTheFirstPrimeNotBelowN) {
  NodeSet set;
  std::vector<Node const*> keys;
  for (std::uint64_t i = 0; i < 20; ++i) {
    keys.push_back(node(i * 1000003));
    set.insert(keys.back());
  }
  set.rehash(GetParam().n);
  EXPECT_EQ(set.bucket_count(), GetParam().buckets);
  EXPECT_EQ(set.size(), keys.size());
  for (Node const* k : keys) {
    ASSERT_TRUE(set.find(k) != set.end()) << k->id;
    EXPECT_EQ(*set.find(k), k);
  }
}

INSTANTIATE_TEST_SUITE_P(FromFreshTable, HashtableRehashTest,
                         ::testing::Values(RehashCase{0, 31}, RehashCase{1, 31}, RehashCase{31, 31},
                                           RehashCase{32, 73}, RehashCase{73, 73},
                                           RehashCase{74, 151}, RehashCase{5000, 5233},
                                           RehashCase{5233, 5233}, RehashCase{5234, 10501}));

TEST_F(HashtableTest, RehashNeverShrinks) {
  NodeSet set;
  for (std::uint64_t i = 0; i < 53; ++i) {
    set.insert(node(i));
  }
  ASSERT_EQ(set.bucket_count(), 151u);
  set.rehash(32);
  EXPECT_EQ(set.bucket_count(), 151u);
  set.rehash(151);
  EXPECT_EQ(set.bucket_count(), 151u);
  set.rehash(152);
  EXPECT_EQ(set.bucket_count(), 313u);
}

TEST_F(HashtableTest, PrimeTableIsAscendingAndEndsAtTheLargestPrime) {
  EXPECT_EQ(std::size(hsh::primes), 28u);
  EXPECT_EQ(hsh::primes[0], 31u);
  EXPECT_EQ(hsh::primes[7], 5233u);
  EXPECT_EQ(hsh::primes[26], 2764405229u);
  EXPECT_EQ(hsh::primes[27], 4294867387u);
  EXPECT_TRUE(std::is_sorted(std::begin(hsh::primes), std::end(hsh::primes)));
}

TEST_F(HashtableTest, SameChainHoldsTheLaterValueFirst) {
  NodeSet set;
  // 5, 36 and 67 share bucket 5 of 31; 4 and 6 sit in the buckets around it.
  for (Node const* n : nodes({5, 4, 36, 6, 67})) {
    set.insert(n);
  }
  std::vector<std::uint64_t> const expected = {4, 67, 36, 5, 6};
  EXPECT_EQ(ids_in_order(set), expected);
}

TEST_F(HashtableTest, BucketIndexUsesTheFull64BitHash) {
  NodeSet set;
  // 2^64 - 1 is 15 modulo 31 (its low 32 bits alone would give 3).
  std::uint64_t const big = ~std::uint64_t{0};
  for (Node const* n : nodes({16, big, 14, 4})) {
    set.insert(n);
  }
  std::vector<std::uint64_t> const expected = {4, 14, big, 16};
  EXPECT_EQ(ids_in_order(set), expected);
}

TEST_F(HashtableTest, RelinkingReversesNodesThatStayTogether) {
  NodeSet set;
  // 5 and 5 + 31 * 73 share a bucket both in 31 and in 73 buckets.
  for (Node const* n : nodes({5, 5 + 31 * 73})) {
    set.insert(n);
  }
  std::vector<std::uint64_t> const before = {5 + 31 * 73, 5};
  EXPECT_EQ(ids_in_order(set), before);
  set.rehash(32);
  ASSERT_EQ(set.bucket_count(), 73u);
  std::vector<std::uint64_t> const after = {5, 5 + 31 * 73};
  EXPECT_EQ(ids_in_order(set), after);
}

class HashtableRelinkOrderTest : public HashtableTest,
                                 public ::testing::WithParamInterface<bool> {};

TEST_P(HashtableRelinkOrderTest, NodesMeetingInANewBucketArriveInOldBucketOrder) {
  // 1 and 74 lie in buckets 1 and 12 of 31 and meet in bucket 1 of 73. The old buckets are
  // visited in index order, each node linked at the new head, whatever the insertion order.
  NodeSet set;
  std::vector<std::uint64_t> ids = {1, 74};
  if (GetParam()) {
    std::reverse(ids.begin(), ids.end());
  }
  for (Node const* n : nodes(ids)) {
    set.insert(n);
  }
  std::vector<std::uint64_t> const before = {1, 74};
  EXPECT_EQ(ids_in_order(set), before);
  set.rehash(32);
  std::vector<std::uint64_t> const after = {74, 1};
  EXPECT_EQ(ids_in_order(set), after);
}

INSTANTIATE_TEST_SUITE_P(BothInsertionOrders, HashtableRelinkOrderTest, ::testing::Bool());

TEST_F(HashtableTest, GrowthDuringInsertRelinksBeforeTheNewValueIsLinked) {
  NodeSet set;
  // 20 fillers in distinct buckets of both sizes, then 5 and 5 + 31 * 73; the 23rd value,
  // 5 + 2 * 31 * 73, goes in after the growth and so heads the relinked chain.
  for (std::uint64_t i = 10; i < 30; ++i) {
    set.insert(node(i));
  }
  set.insert(node(5));
  set.insert(node(5 + 31 * 73));
  ASSERT_EQ(set.bucket_count(), 31u);
  set.insert(node(5 + 2 * 31 * 73));
  ASSERT_EQ(set.bucket_count(), 73u);
  std::vector<std::uint64_t> order = ids_in_order(set);
  std::vector<std::uint64_t> const chain = {5 + 2 * 31 * 73, 5, 5 + 31 * 73};
  ASSERT_EQ(order.size(), 23u);
  EXPECT_EQ(std::vector<std::uint64_t>(order.begin(), order.begin() + 3), chain);
}

TEST_F(HashtableTest, IterationVisitsEveryValueOnce) {
  std::mt19937_64 rng(20240611);
  NodeSet set;
  std::multiset<Node const*> inserted;
  for (int i = 0; i < 1000; ++i) {
    Node const* n = node(rng() % 5000);  // repeated ids, distinct pointers
    set.insert(n);
    inserted.insert(n);
    if (i % 3 == 0) {
      set.insert(n);  // repeats do not add
    }
  }
  std::multiset<Node const*> visited;
  for (auto it = set.begin(); it != set.end(); ++it) {
    visited.insert(*it);
  }
  EXPECT_EQ(set.size(), 1000u);
  EXPECT_EQ(visited, inserted);
}

TEST_F(HashtableTest, FindsEveryValueAndNodesNeverMove) {
  NodeSet set;
  std::vector<std::pair<Node const*, Node const* const*>> where;
  for (std::uint64_t i = 0; i < 2000; ++i) {
    Node const* n = node(i * i);
    auto r = set.insert(n);
    ASSERT_TRUE(r.second);
    where.emplace_back(n, &*r.first);
  }
  EXPECT_EQ(set.bucket_count(), 5233u);
  for (auto const& [n, address] : where) {
    auto it = set.find(n);
    ASSERT_TRUE(it != set.end()) << n->id;
    EXPECT_EQ(&*it, address) << n->id;
  }
  for (std::uint64_t i = 0; i < 100; ++i) {
    EXPECT_TRUE(set.find(node(i * i)) == set.end());
  }
}

// A value type that keeps a registry of its live objects, so that a value destroyed twice, never
// destroyed, or destroyed without having been made is caught.
class Tracked {
 public:
  explicit Tracked(std::string text) : text_(std::move(text)) { enter(); }
  Tracked(Tracked const& other) : text_(other.text_) { enter(); }
  Tracked& operator=(Tracked const& other) {
    EXPECT_EQ(live().count(this), 1u) << "assignment to a dead object";
    text_ = other.text_;
    return *this;
  }
  ~Tracked() { EXPECT_EQ(live().erase(this), 1u) << "destroyed twice or never made"; }

  std::string const& text() const { return text_; }
  static std::set<Tracked const*>& live() {
    static std::set<Tracked const*> objects;
    return objects;
  }

 private:
  void enter() { EXPECT_TRUE(live().insert(this).second) << "made twice"; }
  std::string text_;
};

class HashMapTest : public ::testing::Test {
 protected:
  void SetUp() override { Tracked::live().clear(); }
  void TearDown() override { EXPECT_TRUE(Tracked::live().empty()) << "values leaked"; }
};

TEST_F(HashMapTest, DestroysEveryStoredValueExactlyOnce) {
  {
    hsh::HashMap<std::uint64_t, Tracked> map;
    for (std::uint64_t k = 0; k < 300; ++k) {
      map.insert({k, Tracked("value number " + std::to_string(k) + " with a long tail")});
    }
    // Growth relinks nodes but neither copies nor destroys values.
    EXPECT_EQ(map.bucket_count(), 643u);
    EXPECT_EQ(Tracked::live().size(), 300u);
    for (std::uint64_t k = 0; k < 300; k += 7) {
      auto it = map.find(k);
      ASSERT_TRUE(it != map.end());
      EXPECT_EQ(it->second.text(), "value number " + std::to_string(k) + " with a long tail");
    }
  }
  EXPECT_TRUE(Tracked::live().empty());
}

TEST_F(HashMapTest, DuplicateKeyKeepsTheFirstValueAndNoCopy) {
  hsh::HashMap<std::uint64_t, Tracked> map;
  EXPECT_TRUE(map.insert({1, Tracked("first")}).second);
  auto r = map.insert({1, Tracked("second")});
  EXPECT_FALSE(r.second);
  EXPECT_EQ(r.first->second.text(), "first");
  EXPECT_EQ(Tracked::live().size(), 1u);
  EXPECT_EQ(map.size(), 1u);
}

TEST_F(HashMapTest, EmptyMapDestroysNothing) {
  { hsh::HashMap<std::uint64_t, Tracked> map; }
  EXPECT_TRUE(Tracked::live().empty());
}

TEST(HashMapStringTest, StoresAndFindsStrings) {
  hsh::HashMap<std::uint64_t, std::string> map;
  for (std::uint64_t k = 0; k < 100; ++k) {
    map.insert({k * 31, std::string(40 + k, static_cast<char>('a' + k % 26))});
  }
  EXPECT_EQ(map.size(), 100u);
  for (std::uint64_t k = 0; k < 100; ++k) {
    auto it = map.find(k * 31);
    ASSERT_TRUE(it != map.end()) << k;
    EXPECT_EQ(it->second, std::string(40 + k, static_cast<char>('a' + k % 26)));
  }
  EXPECT_TRUE(map.find(1) == map.end());
}

TEST(HashMapStringTest, StringKeysCompareByContent) {
  hsh::HashMap<std::string, int> map;
  map.insert({"alpha", 1});
  map.insert({std::string("be") + "ta", 2});
  EXPECT_FALSE(map.insert({std::string("alp") + "ha", 3}).second);
  EXPECT_EQ(map.find("alpha")->second, 1);
  EXPECT_EQ(map.find("beta")->second, 2);
  EXPECT_TRUE(map.find("gamma") == map.end());
}

}  // namespace
}  // namespace tvx
