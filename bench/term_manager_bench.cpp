// Cost of making distinct terms through the term manager: hash-consing lookups, type checks
// and the term arena, per term.
#include <benchmark/benchmark.h>

#include <malloc.h>

#include <cstdint>
#include <vector>

#include <tvx/core/term_manager.h>

namespace {

// Fresh pages are very expensive on some virtualised machines (a page fault costs several
// microseconds), which would make every figure here a measure of the kernel. Keeping freed
// memory in the process lets repeated iterations measure the term manager itself.
int const kKeepMemory = [] {
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  return 0;
}();

// N distinct terms over uninterpreted functions: a layer of constants, then applications of a
// binary function to pairs of earlier terms chosen by a seeded generator (so terms share).
void BM_MakeDistinctUfTerms(benchmark::State& state) {
  std::size_t const n = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    tvx::TermManager mgr;
    tvx::DataType const* u = mgr.make_simple_type("U");
    tvx::Symbol const* f = mgr.make_symbol("f", mgr.get_function_type({u, u}, u));
    std::vector<tvx::Term const*> terms;
    terms.reserve(n);
    for (int i = 0; i < 64; ++i) {
      terms.push_back(mgr.make_constant(mgr.make_symbol("c" + std::to_string(i), u)));
    }
    std::uint64_t seed = 42;
    while (terms.size() < n) {
      seed = seed * 6364136223846793005ULL + 1442695040888963407ULL;
      tvx::Term const* args[2] = {terms[(seed >> 33) % terms.size()], terms.back()};
      terms.push_back(mgr.make_term(f, args, 2));
    }
    benchmark::DoNotOptimize(terms.back());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * n));
}
BENCHMARK(BM_MakeDistinctUfTerms)
    ->Arg(1000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);

// The same through make_builtin: bit-vector additions, the theory operators' path.
void BM_MakeDistinctBvTerms(benchmark::State& state) {
  std::size_t const n = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    tvx::TermManager mgr;
    tvx::DataType const* bv = mgr.get_bv_type(32);
    std::vector<tvx::Term const*> terms;
    terms.reserve(n);
    terms.push_back(mgr.make_constant(mgr.make_symbol("x", bv)));
    terms.push_back(mgr.make_constant(mgr.make_symbol("y", bv)));
    std::uint64_t seed = 7;
    while (terms.size() < n) {
      seed = seed * 6364136223846793005ULL + 1442695040888963407ULL;
      tvx::Term const* args[2] = {terms[(seed >> 33) % terms.size()], terms.back()};
      terms.push_back(mgr.make_builtin("bvadd", args, 2));
    }
    benchmark::DoNotOptimize(terms.back());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * n));
}
BENCHMARK(BM_MakeDistinctBvTerms)->Arg(1000)->Arg(1000000)->Unit(benchmark::kMillisecond);

// Looking up terms that exist: the hash-consing hit path.
void BM_MakeExistingTerm(benchmark::State& state) {
  tvx::TermManager mgr;
  tvx::DataType const* u = mgr.make_simple_type("U");
  tvx::Symbol const* f = mgr.make_symbol("f", mgr.get_function_type({u, u}, u));
  tvx::Term const* a = mgr.make_constant(mgr.make_symbol("a", u));
  tvx::Term const* b = mgr.make_constant(mgr.make_symbol("b", u));
  tvx::Term const* args[2] = {a, b};
  mgr.make_term(f, args, 2);
  for (auto _ : state) {
    benchmark::DoNotOptimize(mgr.make_term(f, args, 2));
  }
}
BENCHMARK(BM_MakeExistingTerm);

}  // namespace
