// Tests of tvx::sort and sortimpl::do_sort: comparison and exchange counts, the split of equal
// elements, the depth limit on adversarial input, and results equal to std::sort.
#include <tvx/support/sort.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <vector>

namespace tvx {
namespace {

// An element ordered by `key`; `tag` tells elements with equal keys apart.
struct Item {
  int key;
  int tag;
  bool operator==(Item const& o) const { return key == o.key; }
};

int g_swaps = 0;
long g_compares = 0;

// Found by argument-dependent lookup, so every exchange the sort makes is counted.
void swap(Item& a, Item& b) noexcept {
  ++g_swaps;
  std::swap(a, b);  // the generic exchange, not this overload
}

bool counting_less(Item const& a, Item const& b) {
  return ++g_compares, a.key < b.key;
}

// Items with the given keys, tagged by position, and the counters reset.
std::vector<Item> items(std::vector<int> const& keys) {
  std::vector<Item> out;
  for (int k : keys) {
    out.push_back(Item{k, static_cast<int>(out.size())});
  }
  g_swaps = 0;
  g_compares = 0;
  return out;
}

TEST(SortTest, SelectionCountsAndEqualElementsSplitInTheMiddle) {
  std::vector<Item> v = items({14, 2, 9, 0, 11, 5, 7, 13, 1, 3, 12, 6, 10, 4, 8});
  sort(v.data(), v.size(), &counting_less);
  EXPECT_EQ(g_compares, 105);
  EXPECT_EQ(g_swaps, 14);  // one per position but the last, even in place
  EXPECT_EQ(v, items({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}));
  // 16 equal: pivot choice (3), then i and j meet at 8 after 8 exchanges (18); the halves are
  // left to the insertion pass.
  std::vector<Item> e = items(std::vector<int>(16, 3));
  sortimpl::do_sort(e.data(), e.size(), &counting_less, 32);
  EXPECT_EQ(g_swaps, 8);
  EXPECT_EQ(g_compares, 21);
  for (int k = 0; k < 16; ++k)
    EXPECT_EQ(e[static_cast<std::size_t>(k)].tag, 15 - k);
}

// McIlroy's adversary: values are fixed lazily so that the pivot candidate always comes out
// small; replaying the values it fixed as plain keys partitions badly at every level.
struct Adversary {
  bool less(int x, int y) {
    if (value[x] == gas && value[y] == gas)
      value[x == candidate ? x : y] = solid++;
    candidate = value[x] == gas ? x : value[y] == gas ? y : candidate;
    return value[x] < value[y];
  }
  int gas;
  std::vector<int> value = std::vector<int>(static_cast<std::size_t>(gas), gas);
  int solid = 0;
  int candidate = -1;
};

TEST(SortTest, AdversarialAndRandomInputsSortLikeStdSort) {
  Adversary adversary{3000};
  std::vector<Item> probe = items(std::vector<int>(3000, 0));
  sort(probe.data(), probe.size(),
       [&](Item const& a, Item const& b) { return adversary.less(a.tag, b.tag); });
  std::vector<std::vector<int>> inputs = {adversary.value};
  std::mt19937 rng(20240611);
  for (int n : {2, 15, 16, 17, 33, 100, 1000, 4096}) {
    for (unsigned range : {3u, 1000000u}) {
      inputs.emplace_back();
      for (int k = 0; k < n; ++k)
        inputs.back().push_back(static_cast<int>(rng() % range));
    }
  }
  for (std::vector<int>& keys : inputs) {
    std::vector<Item> v = items(keys);
    sort(v.data(), v.size(), &counting_less);
    // On the adversary's input an unlimited quicksort makes about n^2 / 4 comparisons.
    EXPECT_LT(g_compares, 200L * static_cast<long>(keys.size()));
    std::sort(keys.begin(), keys.end());
    EXPECT_TRUE(v == items(keys)) << keys.size() << " elements";
  }
}

}  // namespace
}  // namespace tvx
