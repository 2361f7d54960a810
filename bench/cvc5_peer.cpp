// The peer cvc5, on the same formulas as tracer_bench: the cost of its printer
// (Term::toString, which let-binds shared subterms) on every root.
// Benchmark names are WORKLOAD/SINK/IMPLEMENTATION/N, as in tracer_bench.
#include <benchmark/benchmark.h>
#include <cvc5/cvc5.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench_common.h"

namespace tvx {
namespace bench {
namespace {

int const kKeepMemory = keep_freed_memory();

using Clock = std::chrono::steady_clock;

struct Cvc5Dag {
  cvc5::Solver solver;
  std::vector<cvc5::Term> roots;
};

void build(Cvc5Dag& z, Dag const& d) {
  cvc5::Solver& s = z.solver;
  cvc5::Sort u = s.mkUninterpretedSort("U");
  cvc5::Sort i = s.getIntegerSort();
  cvc5::Sort bv = s.mkBitVectorSort(32);
  cvc5::Term f = s.mkConst(s.mkFunctionSort({u, u}, u), "f");
  cvc5::Term g = s.mkConst(s.mkFunctionSort({u}, i), "g");
  cvc5::Term h = s.mkConst(s.mkFunctionSort({i}, u), "h");
  std::vector<cvc5::Term> t(d.nodes.size());
  for (std::size_t k = 0; k < d.nodes.size(); ++k) {
    Node const& n = d.nodes[k];
    cvc5::Term const a = n.a < k ? t[n.a] : cvc5::Term();
    cvc5::Term const b = n.b < k ? t[n.b] : cvc5::Term();
    using cvc5::Kind;
    switch (n.op) {
      case Op::UConst:
        t[k] = s.mkConst(u, "u" + std::to_string(n.value));
        break;
      case Op::IntConst:
        t[k] = s.mkConst(i, "x" + std::to_string(n.value));
        break;
      case Op::BvConst:
        t[k] = s.mkConst(bv, "b" + std::to_string(n.value));
        break;
      case Op::IntNum:
        t[k] = s.mkInteger(static_cast<std::int64_t>(n.value));
        break;
      case Op::BvNum:
        t[k] = s.mkBitVector(32, n.value);
        break;
      case Op::F:
        t[k] = s.mkTerm(Kind::APPLY_UF, {f, a, b});
        break;
      case Op::G:
        t[k] = s.mkTerm(Kind::APPLY_UF, {g, a});
        break;
      case Op::H:
        t[k] = s.mkTerm(Kind::APPLY_UF, {h, a});
        break;
      case Op::Add:
        t[k] = s.mkTerm(Kind::ADD, {a, b});
        break;
      case Op::MulC:
        t[k] = s.mkTerm(Kind::MULT, {a, b});
        break;
      case Op::BvAdd:
        t[k] = s.mkTerm(Kind::BITVECTOR_ADD, {a, b});
        break;
      case Op::BvMul:
        t[k] = s.mkTerm(Kind::BITVECTOR_MULT, {a, b});
        break;
      case Op::BvAnd:
        t[k] = s.mkTerm(Kind::BITVECTOR_AND, {a, b});
        break;
      case Op::EqU:
        t[k] = s.mkTerm(Kind::EQUAL, {a, b});
        break;
      case Op::LeInt:
        t[k] = s.mkTerm(Kind::LEQ, {a, b});
        break;
      case Op::BvUlt:
        t[k] = s.mkTerm(Kind::BITVECTOR_ULT, {a, b});
        break;
      case Op::And:
        t[k] = s.mkTerm(Kind::AND, {a, b});
        break;
      case Op::Not:
        t[k] = s.mkTerm(Kind::NOT, {a});
        break;
    }
  }
  for (Root const& r : d.roots) {
    z.roots.push_back(t[r.node]);
  }
}

// Printing every root into the sink.
void bm_print(benchmark::State& state, bool file) {
  // Released only when the size changes, never at exit: destroying terms after cvc5's own
  // static state is gone crashes.
  static Cvc5Dag* z = nullptr;
  static std::int64_t zn = -1;
  if (zn != state.range(0)) {
    delete z;
    z = new Cvc5Dag();
    build(*z, make_shared_dag(static_cast<std::size_t>(state.range(0)), 1));
    zn = state.range(0);
  }
  std::uint64_t bytes = 0;
  for (auto _ : state) {
    DiscardBuf discard;
    int fd = -1;
    if (file) {
      fd = ::open(sink_path("cvc5print").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    }
    bytes = 0;
    Clock::time_point const start = Clock::now();
    for (cvc5::Term const& r : z->roots) {
      std::string const s = r.toString() + "\n";
      bytes += s.size();
      if (file) {
        write_all(fd, s.data(), s.size());
      } else {
        discard.sputn(s.data(), static_cast<std::streamsize>(s.size()));
      }
    }
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    if (fd >= 0) {
      ::close(fd);
    }
  }
  state.counters["bytes"] = static_cast<double>(bytes);
}

int register_all() {
  std::int64_t const top = max_n();
  for (bool file : {false, true}) {
    std::string const name =
        std::string("dag_scoped") + (file ? "/file/" : "/discard/") + "cvc5print";
    register_sizes(name, 1000, top, 4, bm_print, file);
  }
  return 0;
}

int const kRegistered = register_all();

}  // namespace
}  // namespace bench
}  // namespace tvx
