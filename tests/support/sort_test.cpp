// Tests of tvx::sort and sortimpl::do_sort: comparison and exchange counts of the selection
// path, pivot choice and split points of the partitioning, the heap-sort fallback at depth 0,
// and sorted results for many input shapes.
#include "support/sort.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <numeric>
#include <ostream>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace tvx {
namespace {

// An element ordered by `key`; `tag` tells elements with equal keys apart.
struct Item {
  int key;
  int tag;
};

int g_swaps = 0;

// Found by argument-dependent lookup, so every exchange the sort makes is counted.
void swap(Item& a, Item& b) noexcept {
  ++g_swaps;
  Item const t = a;
  a = b;
  b = t;
}

// One comparison: the array index of each operand, -1 for an operand outside the array (the
// pivot copy, the insertion pass's copy, a heap's held value), and that operand's tag.
struct Call {
  long a;
  long b;
  int tag_a;
  int tag_b;
};

using Pairs = std::vector<std::pair<long, long>>;

class Log {
 public:
  void watch(Item const* base, std::size_t n) {
    base_ = base;
    n_ = n;
  }
  long index(Item const* p) const {
    std::less<Item const*> lt;
    return !lt(p, base_) && lt(p, base_ + n_) ? static_cast<long>(p - base_) : -1;
  }
  void add(Item const& x, Item const& y) { calls.push_back({index(&x), index(&y), x.tag, y.tag}); }

  Pairs pairs() const {
    Pairs out;
    for (Call const& c : calls) {
      out.emplace_back(c.a, c.b);
    }
    return out;
  }
  // The comparisons between two elements of the array; all others involve a copy.
  Pairs in_array() const {
    Pairs out;
    for (Call const& c : calls) {
      if (c.a >= 0 && c.b >= 0) {
        out.emplace_back(c.a, c.b);
      }
    }
    return out;
  }

  std::vector<Call> calls;

 private:
  Item const* base_ = nullptr;
  std::size_t n_ = 0;
};

struct LoggingLess {
  Log* log;
  bool operator()(Item const& x, Item const& y) const {
    log->add(x, y);
    return x.key < y.key;
  }
};

std::vector<Item> items(std::vector<int> const& keys) {
  std::vector<Item> out;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    out.push_back(Item{keys[i], static_cast<int>(i)});
  }
  return out;
}

std::vector<int> keys_of(std::vector<Item> const& v) {
  std::vector<int> out;
  for (Item const& x : v) {
    out.push_back(x.key);
  }
  return out;
}

std::vector<int> tags_of(std::vector<Item> const& v) {
  std::vector<int> out;
  for (Item const& x : v) {
    out.push_back(x.tag);
  }
  return out;
}

std::vector<int> iota_keys(int n, int first = 0) {
  std::vector<int> out(static_cast<std::size_t>(n));
  std::iota(out.begin(), out.end(), first);
  return out;
}

// Partition comparisons of a range [0, n) against the pivot: the rising scan stops at index
// `i_stop`, the falling one at `j_stop`, with no exchange on the way.
Pairs scans(long i_from, long i_stop, long j_from, long j_stop) {
  Pairs out;
  for (long i = i_from; i <= i_stop; ++i) {
    out.emplace_back(i, -1);
  }
  for (long j = j_from; j >= j_stop; --j) {
    out.emplace_back(-1, j);
  }
  return out;
}

Pairs concat(std::initializer_list<Pairs> parts) {
  Pairs out;
  for (Pairs const& p : parts) {
    out.insert(out.end(), p.begin(), p.end());
  }
  return out;
}

class SortTest : public ::testing::Test {
 protected:
  void SetUp() override { g_swaps = 0; }

  LoggingLess less_for(std::vector<Item> const& v) {
    log_.watch(v.data(), v.size());
    return LoggingLess{&log_};
  }

  void run_sort(std::vector<Item>& v) { sort(v.data(), v.size(), less_for(v)); }
  void run_do_sort(std::vector<Item>& v, int depth) {
    sortimpl::do_sort(v.data(), v.size(), less_for(v), depth);
  }

  Log log_;
};

TEST_F(SortTest, EmptyAndSingleElementArraysMakeNoComparison) {
  std::vector<Item> none;
  sort(none.data(), std::size_t{0}, LoggingLess{&log_});
  sort(static_cast<Item*>(nullptr), std::size_t{0}, LoggingLess{&log_});
  std::vector<Item> one = items({7});
  run_sort(one);
  EXPECT_TRUE(log_.calls.empty());
  EXPECT_EQ(g_swaps, 0);
  EXPECT_EQ(keys_of(one), std::vector<int>{7});
}

class SelectionSortTest : public SortTest, public ::testing::WithParamInterface<int> {};

TEST_P(SelectionSortTest, MakesCountTimesCountMinusOneHalvesComparisons) {
  int const n = GetParam();
  std::mt19937 rng(static_cast<unsigned>(n));
  std::vector<int> keys;
  for (int i = 0; i < n; ++i) {
    keys.push_back(static_cast<int>(rng() % 5));
  }
  std::vector<Item> v = items(keys);
  run_sort(v);
  EXPECT_EQ(log_.calls.size(), static_cast<std::size_t>(n * (n - 1) / 2));
  // One exchange per position but the last, also where the element already stands.
  EXPECT_EQ(g_swaps, n - 1);
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(keys_of(v), keys);
}

INSTANTIATE_TEST_SUITE_P(TwoToFifteen, SelectionSortTest, ::testing::Range(2, 16));

TEST_F(SortTest, FifteenElementsTake105ComparisonsAndNoCopy) {
  std::vector<Item> v = items({14, 2, 9, 0, 11, 5, 7, 13, 1, 3, 12, 6, 10, 4, 8});
  run_sort(v);
  EXPECT_EQ(log_.calls.size(), 105u);
  // Selection compares array elements only: no pivot and no insertion copy.
  EXPECT_EQ(log_.in_array().size(), 105u);
  EXPECT_EQ(keys_of(v), iota_keys(15));
}

TEST_F(SortTest, SelectionTakesTheFirstOfEqualSmallestElements) {
  std::vector<Item> v = items({1, 0, 0, 1});
  run_sort(v);
  EXPECT_EQ(tags_of(v), (std::vector<int>{1, 2, 0, 3}));

  // Equal elements can change places: the exchange moves the first 1 behind the second.
  std::vector<Item> w = items({1, 1, 0});
  run_sort(w);
  EXPECT_EQ(keys_of(w), (std::vector<int>{0, 1, 1}));
  EXPECT_EQ(tags_of(w), (std::vector<int>{2, 1, 0}));
}

TEST_F(SortTest, SixteenSortedElementsPartitionOnceAroundTheMiddle) {
  std::vector<Item> v = items(iota_keys(16));
  run_do_sort(v, 32);
  // Pivot a[8]; the scans meet at 8 with nothing to exchange; both parts are under 16.
  Pairs const expected = concat({{{0, 8}, {8, 15}}, scans(0, 8, 15, 8)});
  EXPECT_EQ(log_.pairs(), expected);
  EXPECT_EQ(g_swaps, 0);
  EXPECT_EQ(keys_of(v), iota_keys(16));
}

TEST_F(SortTest, SortOfSixteenSortedElementsEndsWithOneComparisonPerInsertion) {
  std::vector<Item> v = items(iota_keys(16));
  run_sort(v);
  Pairs expected = concat({{{0, 8}, {8, 15}}, scans(0, 8, 15, 8)});
  for (long i = 1; i < 16; ++i) {
    expected.emplace_back(-1, i - 1);
  }
  EXPECT_EQ(log_.pairs(), expected);
  EXPECT_EQ(keys_of(v), iota_keys(16));
}

// Exchanges pair off i with n-1-i, two comparisons each, until the indices cross at n/2.
Pairs mirrored_partition(long n) {
  Pairs out;
  for (long i = 0; i < n / 2; ++i) {
    out.emplace_back(i, -1);
    out.emplace_back(-1, n - 1 - i);
  }
  out.emplace_back(n / 2, -1);
  out.emplace_back(-1, n / 2 - 1);
  return out;
}

TEST_F(SortTest, SixteenReverseSortedElementsSplitInHalvesAfterEightExchanges) {
  std::vector<int> keys = iota_keys(16);
  std::reverse(keys.begin(), keys.end());
  std::vector<Item> v = items(keys);
  run_do_sort(v, 32);
  Pairs const expected = concat({{{0, 8}, {0, 15}, {8, 15}}, mirrored_partition(16)});
  EXPECT_EQ(log_.pairs(), expected);
  EXPECT_EQ(g_swaps, 8);
  EXPECT_EQ(keys_of(v), iota_keys(16));
}

TEST_F(SortTest, SixteenEqualElementsSplitAtEightAfterEightExchanges) {
  std::vector<Item> v = items(std::vector<int>(16, 3));
  run_do_sort(v, 32);
  Pairs const expected = concat({{{0, 8}, {0, 15}, {8, 15}}, mirrored_partition(16)});
  EXPECT_EQ(log_.pairs(), expected);
  EXPECT_EQ(g_swaps, 8);
  std::vector<int> reversed = iota_keys(16);
  std::reverse(reversed.begin(), reversed.end());
  EXPECT_EQ(tags_of(v), reversed);
}

TEST_F(SortTest, ThirtyTwoEqualElementsSplitInTheMiddleAtEveryLevel) {
  std::vector<Item> v = items(std::vector<int>(32, 3));
  run_do_sort(v, 32);
  // Pivot choices of [0, 32), then of its halves [0, 16) and [16, 32).
  Pairs const expected = {{0, 16}, {0, 31},  {16, 31}, {0, 8},  {0, 15},
                          {8, 15}, {16, 24}, {16, 31}, {24, 31}};
  EXPECT_EQ(log_.in_array(), expected);
  EXPECT_EQ(g_swaps, 16 + 8 + 8);
}

TEST_F(SortTest, SortedAndReverseSortedArraysSplitInHalves) {
  std::vector<Item> sorted = items(iota_keys(32));
  run_do_sort(sorted, 32);
  Pairs const sorted_expected = {{0, 16}, {16, 31}, {0, 8}, {8, 15}, {16, 24}, {24, 31}};
  EXPECT_EQ(log_.in_array(), sorted_expected);
  EXPECT_EQ(g_swaps, 0);

  log_.calls.clear();
  std::vector<int> keys = iota_keys(32);
  std::reverse(keys.begin(), keys.end());
  std::vector<Item> reversed = items(keys);
  run_do_sort(reversed, 32);
  // The first step's 16 exchanges leave both halves sorted.
  Pairs const reversed_expected = {{0, 16}, {0, 31}, {16, 31}, {0, 8}, {8, 15}, {16, 24}, {24, 31}};
  EXPECT_EQ(log_.in_array(), reversed_expected);
  EXPECT_EQ(g_swaps, 16);
  EXPECT_EQ(keys_of(reversed), iota_keys(32));
}

struct PivotCase {
  int first;
  int middle;
  int last;
  int chosen;  // index of the element whose copy becomes the pivot
};

void PrintTo(PivotCase const& c, std::ostream* os) {
  *os << c.first << "," << c.middle << "," << c.last;
}

class PivotChoiceTest : public SortTest, public ::testing::WithParamInterface<PivotCase> {};

TEST_P(PivotChoiceTest, PivotIsTheMedianOfFirstMiddleAndLast) {
  PivotCase const c = GetParam();
  std::vector<int> keys(16, 50);
  keys[0] = c.first;
  keys[8] = c.middle;
  keys[15] = c.last;
  std::vector<Item> v = items(keys);
  run_do_sort(v, 32);
  // The partition's first comparison is the rising scan's: a[0] against the pivot copy.
  auto first_scan = std::find_if(log_.calls.begin(), log_.calls.end(),
                                 [](Call const& call) { return call.b == -1; });
  ASSERT_NE(first_scan, log_.calls.end());
  EXPECT_EQ(first_scan->a, 0);
  EXPECT_EQ(first_scan->tag_b, c.chosen);
}

INSTANTIATE_TEST_SUITE_P(DecisionTree, PivotChoiceTest,
                         ::testing::Values(PivotCase{1, 2, 3, 8}, PivotCase{1, 3, 2, 15},
                                           PivotCase{2, 3, 1, 0}, PivotCase{2, 1, 3, 0},
                                           PivotCase{3, 1, 2, 15}, PivotCase{3, 2, 1, 8},
                                           PivotCase{2, 2, 2, 8}, PivotCase{1, 1, 2, 0},
                                           PivotCase{2, 2, 1, 8}, PivotCase{1, 2, 2, 15},
                                           PivotCase{2, 1, 1, 8}, PivotCase{1, 2, 1, 0}));

// The comparisons and the result of the standard heap algorithms on a copy of `v`, indices
// shifted by `offset`.
std::pair<Pairs, std::vector<Item>> heap_sort_reference(std::vector<Item> v, long offset) {
  Log log;
  log.watch(v.data(), v.size());
  LoggingLess less{&log};
  std::make_heap(v.begin(), v.end(), less);
  std::sort_heap(v.begin(), v.end(), less);
  Pairs pairs = log.pairs();
  for (auto& [a, b] : pairs) {
    a = a >= 0 ? a + offset : a;
    b = b >= 0 ? b + offset : b;
  }
  return {pairs, v};
}

TEST_F(SortTest, DepthZeroHeapSortsTheRangeWithTheStandardHeapAlgorithms) {
  std::mt19937 rng(7);
  std::vector<int> keys;
  for (int i = 0; i < 40; ++i) {
    keys.push_back(static_cast<int>(rng() % 25));
  }
  std::vector<Item> v = items(keys);
  auto const [reference_calls, reference_result] = heap_sort_reference(v, 0);
  run_do_sort(v, 0);
  EXPECT_EQ(log_.pairs(), reference_calls);
  EXPECT_EQ(keys_of(v), keys_of(reference_result));
  EXPECT_EQ(tags_of(v), tags_of(reference_result));
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(keys_of(v), keys);
}

TEST_F(SortTest, RangesUnderSixteenAreLeftAloneEvenAtDepthZero) {
  std::vector<int> keys = iota_keys(15);
  std::reverse(keys.begin(), keys.end());
  std::vector<Item> v = items(keys);
  run_do_sort(v, 0);
  run_do_sort(v, 32);
  EXPECT_TRUE(log_.calls.empty());
  EXPECT_EQ(keys_of(v), keys);
}

TEST_F(SortTest, DepthOnePartitionsOnceThenHeapSortsBothHalves) {
  std::vector<Item> v = items(iota_keys(32));
  std::vector<Item> const left(v.begin(), v.begin() + 16);
  std::vector<Item> const right(v.begin() + 16, v.end());
  run_do_sort(v, 1);
  Pairs const expected = concat({{{0, 16}, {16, 31}},
                                 scans(0, 16, 31, 16),
                                 heap_sort_reference(left, 0).first,
                                 heap_sort_reference(right, 16).first});
  EXPECT_EQ(log_.pairs(), expected);
  EXPECT_EQ(keys_of(v), iota_keys(32));
}

// McIlroy's adversary: values are fixed lazily, the first time an element meets another
// undecided one, so that the pivot candidate always comes out small. Running a sort against it
// yields an input on which that sort partitions badly at every level; the values it fixes are
// consistent, so replaying them as plain keys takes the same path.
class Adversary {
 public:
  explicit Adversary(int n) : gas_(n), value_(static_cast<std::size_t>(n), n) {}

  bool less(int x, int y) {
    if (undecided(x) && undecided(y)) {
      freeze(x == candidate_ ? x : y);
    }
    if (undecided(x)) {
      candidate_ = x;
    } else if (undecided(y)) {
      candidate_ = y;
    }
    return value(x) < value(y);
  }

  std::vector<int> const& values() const { return value_; }

 private:
  bool undecided(int x) const { return value(x) == gas_; }
  int value(int x) const { return value_[static_cast<std::size_t>(x)]; }
  void freeze(int x) { value_[static_cast<std::size_t>(x)] = solid_++; }

  int gas_;
  int solid_ = 0;
  int candidate_ = -1;
  std::vector<int> value_;
};

struct AdversaryLess {
  Adversary* adversary;
  bool operator()(Item const& x, Item const& y) const { return adversary->less(x.tag, y.tag); }
};

// The partitioning steps in a comparison log, as nesting levels. A step on [s, e), n = e - s
// at least 16, shows as its pivot choice, two or three comparisons of array elements: a[s]
// against a[s + n/2], then one and perhaps the other of them against a[e - 1]; the rising
// scan's first comparison, of a[s] with the pivot copy, follows at once.
std::vector<int> partition_levels(Pairs const& calls) {
  struct Range {
    long begin;
    long end;
    int level;
  };
  auto in_array = [](std::pair<long, long> const& c) { return c.first >= 0 && c.second >= 0; };
  std::vector<Range> open;
  std::vector<int> levels;
  for (std::size_t k = 0; k + 2 < calls.size(); ++k) {
    if (!in_array(calls[k]) || !in_array(calls[k + 1])) {
      continue;
    }
    auto const [s, m] = calls[k];
    auto const [x, last] = calls[k + 1];
    long const e = last + 1;
    if (e - s < 16 || (e - s) / 2 != m - s || (x != s && x != m)) {
      continue;
    }
    std::pair<long, long> const scan_start(s, -1);
    bool const two = calls[k + 2] == scan_start;
    std::pair<long, long> const other(x == s ? m : s, last);
    bool const three = k + 3 < calls.size() && calls[k + 2] == other && calls[k + 3] == scan_start;
    if (!two && !three) {
      continue;
    }
    while (!open.empty() && !(open.back().begin <= s && e <= open.back().end)) {
      open.pop_back();
    }
    int const level = open.empty() ? 1 : open.back().level + 1;
    open.push_back(Range{s, e, level});
    levels.push_back(level);
  }
  return levels;
}

TEST_F(SortTest, UnbalancedPartitioningStopsAfter32LevelsAndStillSorts) {
  int const n = 3000;
  Adversary adversary(n);
  std::vector<Item> probe = items(iota_keys(n));
  sort(probe.data(), probe.size(), AdversaryLess{&adversary});
  std::vector<int> const killer = adversary.values();

  std::vector<Item> v = items(killer);
  run_sort(v);
  std::vector<int> expected = killer;
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(keys_of(v), expected);

  std::vector<int> levels = partition_levels(log_.pairs());
  ASSERT_FALSE(levels.empty());
  EXPECT_EQ(*std::max_element(levels.begin(), levels.end()), 32)
      << "the adversarial input should drive the partitioning to the depth limit";
  // Far fewer comparisons than the quadratic count an unlimited quicksort would make.
  EXPECT_LT(log_.calls.size(), static_cast<std::size_t>(n) * 200);
}

TEST_F(SortTest, BalancedInputsNeverReachTheDepthLimit) {
  std::vector<Item> v = items(iota_keys(3000));
  run_sort(v);
  std::vector<int> levels = partition_levels(log_.pairs());
  ASSERT_FALSE(levels.empty());
  EXPECT_LE(*std::max_element(levels.begin(), levels.end()), 9);
}

enum class Shape { kSorted, kReversed, kRandom, kFewDistinct, kAllEqual, kOrganPipe, kSawtooth };

void PrintTo(Shape shape, std::ostream* os) {
  char const* const names[] = {"sorted",    "reversed",   "random",  "few distinct",
                               "all equal", "organ pipe", "sawtooth"};
  *os << names[static_cast<int>(shape)];
}

std::vector<int> make_keys(Shape shape, int n) {
  std::mt19937 rng(static_cast<unsigned>(n) * 31u + static_cast<unsigned>(shape));
  std::vector<int> keys(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) {
    int& k = keys[static_cast<std::size_t>(i)];
    switch (shape) {
      case Shape::kSorted:
        k = i;
        break;
      case Shape::kReversed:
        k = n - i;
        break;
      case Shape::kRandom:
        k = static_cast<int>(rng() % 1000000);
        break;
      case Shape::kFewDistinct:
        k = static_cast<int>(rng() % 3);
        break;
      case Shape::kAllEqual:
        k = 42;
        break;
      case Shape::kOrganPipe:
        k = std::min(i, n - i);
        break;
      case Shape::kSawtooth:
        k = i % 17;
        break;
    }
  }
  return keys;
}

class SortShapeTest : public SortTest,
                      public ::testing::WithParamInterface<std::tuple<Shape, int>> {};

TEST_P(SortShapeTest, ResultMatchesStdSort) {
  auto const [shape, n] = GetParam();
  std::vector<int> keys = make_keys(shape, n);
  std::vector<Item> v = items(keys);
  run_sort(v);
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(keys_of(v), keys);
  // Nothing lost or duplicated: the tags are a permutation.
  std::vector<int> tags = tags_of(v);
  std::sort(tags.begin(), tags.end());
  EXPECT_EQ(tags, iota_keys(n));
}

INSTANTIATE_TEST_SUITE_P(
    ShapesAndSizes, SortShapeTest,
    ::testing::Combine(::testing::Values(Shape::kSorted, Shape::kReversed, Shape::kRandom,
                                         Shape::kFewDistinct, Shape::kAllEqual, Shape::kOrganPipe,
                                         Shape::kSawtooth),
                       ::testing::Values(2, 3, 15, 16, 17, 31, 32, 33, 100, 1000, 4096)));

// Stands in for a term, ordered by id like the definitions of one trace call.
struct FakeTerm {
  std::uint64_t id;
};

using Definition = std::pair<FakeTerm const*, std::string>;

bool definition_lt(Definition const& a, Definition const& b) {
  return a.first->id < b.first->id;
}

class DefinitionSortTest : public ::testing::TestWithParam<int> {};

TEST_P(DefinitionSortTest, SortsPairsThroughAFunctionPointer) {
  int const n = GetParam();
  std::vector<FakeTerm> terms;
  for (int i = 0; i < n; ++i) {
    terms.push_back(FakeTerm{static_cast<std::uint64_t>((i * 7919) % 10007)});
  }
  std::vector<Definition> defs;
  for (FakeTerm const& t : terms) {
    defs.emplace_back(&t, "(define-fun ." + std::to_string(t.id) + " () Bool true)");
  }
  bool (*less)(Definition const&, Definition const&) = &definition_lt;
  sort(defs.data(), defs.size(), less);
  for (std::size_t i = 0; i < defs.size(); ++i) {
    EXPECT_EQ(defs[i].second,
              "(define-fun ." + std::to_string(defs[i].first->id) + " () Bool true)");
    if (i > 0) {
      EXPECT_LT(defs[i - 1].first->id, defs[i].first->id);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(SelectionAndPartition, DefinitionSortTest,
                         ::testing::Values(0, 1, 2, 15, 16, 300));

TEST(DefinitionSwapTest, SelectionExchangesStringsWithoutCopying) {
  std::vector<FakeTerm> terms;
  for (std::uint64_t id : {9, 3, 14, 1, 7, 12, 5, 0, 11, 2, 13, 8, 4, 10, 6}) {
    terms.push_back(FakeTerm{id});
  }
  std::vector<Definition> defs;
  for (FakeTerm const& t : terms) {
    defs.emplace_back(&t, std::string(64, static_cast<char>('a' + t.id)));
  }
  std::vector<std::pair<FakeTerm const*, char const*>> buffers;
  for (Definition const& d : defs) {
    buffers.emplace_back(d.first, d.second.data());
  }
  sort(defs.data(), defs.size(), &definition_lt);
  for (Definition const& d : defs) {
    auto it = std::find_if(buffers.begin(), buffers.end(),
                           [&](auto const& b) { return b.first == d.first; });
    ASSERT_NE(it, buffers.end());
    EXPECT_EQ(d.second.data(), it->second) << "string of term " << d.first->id << " was copied";
  }
}

}  // namespace
}  // namespace tvx
