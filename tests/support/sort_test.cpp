// Tests of tvx::sort and sortimpl::do_sort: comparison and exchange counts, the split of equal
// elements, the depth limit on adversarial input, and results equal to std::sort.
#include "support/sort.h"

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
};

int g_swaps = 0;
long g_compares = 0;

// Found by argument-dependent lookup, so every exchange the sort makes is counted.
void swap(Item& a, Item& b) noexcept {
  ++g_swaps;
  std::swap(a.key, b.key);
  std::swap(a.tag, b.tag);
}

bool counting_less(Item const& a, Item const& b) {
  ++g_compares;
  return a.key < b.key;
}

std::vector<Item> items(std::vector<int> const& keys) {
  std::vector<Item> out;
  for (int k : keys) {
    out.push_back(Item{k, static_cast<int>(out.size())});
  }
  g_swaps = 0;
  g_compares = 0;
  return out;
}

std::vector<int> keys_of(std::vector<Item> const& v) {
  std::vector<int> out;
  for (Item const& x : v) {
    out.push_back(x.key);
  }
  return out;
}

TEST(SortTest, SelectionCountsAndEqualElementsSplitInTheMiddle) {
  std::vector<Item> one = items({7});
  sort(one.data(), std::size_t{0}, &counting_less);
  sort(one.data(), one.size(), &counting_less);
  EXPECT_EQ(g_compares, 0);
  std::vector<Item> v = items({14, 2, 9, 0, 11, 5, 7, 13, 1, 3, 12, 6, 10, 4, 8});
  sort(v.data(), v.size(), &counting_less);
  EXPECT_EQ(g_compares, 105);
  EXPECT_EQ(g_swaps, 14);  // one per position but the last, even in place
  EXPECT_EQ(keys_of(v), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}));
  // 16 equal: pivot choice (3), then i and j meet at 8 after 8 exchanges (18); the halves are
  // left to the insertion pass. 32 equal: 16 exchanges, then 8 in each half of 16.
  std::vector<Item> e = items(std::vector<int>(16, 3));
  sortimpl::do_sort(e.data(), e.size(), &counting_less, 32);
  EXPECT_EQ(g_swaps, 8);
  EXPECT_EQ(g_compares, 21);
  for (int k = 0; k < 16; ++k) {
    EXPECT_EQ(e[static_cast<std::size_t>(k)].tag, 15 - k);
  }
  std::vector<Item> w = items(std::vector<int>(32, 3));
  sortimpl::do_sort(w.data(), w.size(), &counting_less, 32);
  EXPECT_EQ(g_swaps, 32);
}

// McIlroy's adversary: values are fixed lazily so that the pivot candidate always comes out
// small; replaying the values it fixed as plain keys partitions badly at every level.
struct Adversary {
  bool less(int x, int y) {
    if (value[x] == gas && value[y] == gas) {
      value[x == candidate ? x : y] = solid++;
    }
    if (value[x] == gas) {
      candidate = x;
    } else if (value[y] == gas) {
      candidate = y;
    }
    return value[x] < value[y];
  }
  int gas;
  std::vector<int> value = std::vector<int>(static_cast<std::size_t>(gas), gas);
  int solid = 0;
  int candidate = -1;
};

TEST(SortTest, AdversarialInputReachesTheDepthLimitAndIsStillSorted) {
  int const n = 3000;
  Adversary adversary{n};
  std::vector<Item> probe = items(std::vector<int>(n, 0));
  sort(probe.data(), probe.size(),
       [&](Item const& a, Item const& b) { return adversary.less(a.tag, b.tag); });
  std::vector<Item> v = items(adversary.value);
  sort(v.data(), v.size(), &counting_less);
  std::vector<int> expected = adversary.value;
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(keys_of(v), expected);
  // An unlimited quicksort would make about n^2 / 4 comparisons here.
  EXPECT_LT(g_compares, n * 200L);
}

TEST(SortTest, RandomInputsSortLikeStdSort) {
  std::mt19937 rng(20240611);
  for (int n : {2, 15, 16, 17, 33, 100, 1000, 4096}) {
    for (unsigned range : {3u, 1000000u}) {
      std::vector<int> keys;
      for (int k = 0; k < n; ++k) {
        keys.push_back(static_cast<int>(rng() % range));
      }
      std::vector<Item> v = items(keys);
      sort(v.data(), v.size(), &counting_less);
      std::sort(keys.begin(), keys.end());
      EXPECT_EQ(keys_of(v), keys) << n << " elements below " << range;
    }
  }
}

}  // namespace
}  // namespace tvx
