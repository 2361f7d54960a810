// Tests of hsh::Hashtable: growth through the prime bucket counts, chain order before and after
// relinking, and lookups.
#include <tvx/support/hashtable.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace tvx {
namespace {

using Ids = std::vector<std::uint64_t>;
using Growths = std::vector<std::pair<std::size_t, std::size_t>>;

// The hash of an id is the id itself; the calls are counted to see which operations hash.
struct CountingIdHash {
  static inline int calls = 0;
  std::uint64_t operator()(std::uint64_t id) const { return ++calls, id; }
};

using IdSet = hsh::Hashtable<std::uint64_t, hsh::GetKey_identity<std::uint64_t>, std::uint64_t,
                             CountingIdHash, std::equal_to<std::uint64_t>>;

TEST(HashtableTest, GrowsAtTheInsertionThatFindsTheTableFull) {
  IdSet set;
  CountingIdHash::calls = 0;
  EXPECT_TRUE(set.find(5) == set.end());
  EXPECT_EQ(CountingIdHash::calls, 0) << "find on an empty table computes no hash";
  Growths growths = {{0, 31}};  // insertion number -> bucket count it grows to
  for (std::size_t k = 1; k <= 1000; ++k) {
    std::size_t const before = set.bucket_count();
    ASSERT_TRUE(set.insert(k * 7919).second);
    if (set.bucket_count() != before)
      growths.emplace_back(k, set.bucket_count());
  }
  EXPECT_EQ(
      growths,
      (Growths{{0, 31}, {23, 73}, {53, 151}, {107, 313}, {221, 643}, {452, 1291}, {905, 2593}}));
  IdSet full;  // a present value inserted into a full table grows it and yields false
  for (std::uint64_t i = 0; i < 22; ++i)
    full.insert(i);
  EXPECT_FALSE(full.insert(18).second);
  EXPECT_TRUE(full.bucket_count() == 73 && full.size() == 22);
}

TEST(HashtableTest, RehashTakesTheFirstPrimeNotBelowAndNeverShrinks) {
  for (auto const& [n, buckets] : Growths{{32, 73}, {5000, 5233}, {5234, 10501}, {1, 31}}) {
    IdSet set;
    set.insert(n);
    set.rehash(n);
    EXPECT_EQ(set.bucket_count(), buckets) << n;
    set.rehash(32);
    EXPECT_EQ(set.bucket_count(), buckets == 31 ? 73 : buckets) << n;
    EXPECT_EQ(*set.find(n), n);
  }
}

TEST(HashtableTest, ChainsHoldTheLaterValueFirstAndRelinkingReversesThem) {
  std::uint64_t const big = ~std::uint64_t{0};  // 15 modulo 31 over all 64 bits
  // Inserted ids, then the iteration order in 31 buckets and after rehash(32).
  for (auto const& row :
       std::vector<std::vector<Ids>>{{{5, 4, 36, 6, 67}, {4, 67, 36, 5, 6}, {4, 5, 6, 36, 67}},
                                     {{16, big, 14, 4}, {4, 14, big, 16}, {big, 4, 14, 16}}}) {
    IdSet set;
    for (std::uint64_t id : row[0])
      set.insert(id);
    for (std::size_t k : {1, 2}) {
      EXPECT_EQ(Ids(set.begin(), set.end()), row[k]);
      set.rehash(32);
    }
  }
}

}  // namespace
}  // namespace tvx
