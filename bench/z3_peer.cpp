// The peer z3, on the same formulas as tracer_bench: the cost of its API log (building and
// asserting with the log open, and without), and of its SMT-LIB 2 printer.
// Benchmark names are WORKLOAD/SINK/IMPLEMENTATION/N, as in tracer_bench.
#include <benchmark/benchmark.h>
#include <z3.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench_common.h"
#include "z3_dag.h"

namespace tvx {
namespace bench {
namespace {

int const kKeepMemory = keep_freed_memory();

using Clock = std::chrono::steady_clock;

struct Z3Dag {
  Z3_context ctx = nullptr;
  Z3_solver solver = nullptr;
  std::vector<Z3_ast> roots;
  std::vector<bool> scoped;

  ~Z3Dag() {
    if (ctx != nullptr) {
      if (solver != nullptr) {
        Z3_solver_dec_ref(ctx, solver);
      }
      Z3_del_context(ctx);
    }
  }
};

void make_context(Z3Dag& z) {
  Z3_config cfg = Z3_mk_config();
  z.ctx = Z3_mk_context(cfg);
  Z3_del_config(cfg);
}

// Builds the DAG's terms in z.ctx; with assert_roots, asserts the roots in a solver. The roots
// go in without the trace's pushes and pops: with the log open, each push/pop pair costs time
// that grows with the session (10^4 terms took minutes), which would hide the cost per term.
void build(Z3Dag& z, Dag const& d, bool assert_roots) {
  Z3_context c = z.ctx;
  std::vector<Z3_ast> t;
  build_z3(c, d, t);
  if (assert_roots) {
    z.solver = Z3_mk_simple_solver(c);
    Z3_solver_inc_ref(c, z.solver);
  }
  for (Root const& r : d.roots) {
    z.roots.push_back(t[r.node]);
    z.scoped.push_back(r.scoped);
    if (assert_roots) {
      Z3_solver_assert(c, z.solver, t[r.node]);
    }
  }
}

Dag const& dag(bool chain, std::size_t n) {
  static std::unique_ptr<Dag> d;
  static std::size_t dn = 0;
  static bool dchain = false;
  if (!d || dn != n || dchain != chain) {
    d = std::make_unique<Dag>(chain ? make_deep_chain(n) : make_shared_dag(n, 1));
    dn = n;
    dchain = chain;
  }
  return *d;
}

// Building and asserting the DAG, with the API log open to the sink (a file, or /dev/null
// for the discarding sink) or closed.
void bm_build(benchmark::State& state, bool log, bool file) {
  Dag const& d = dag(false, static_cast<std::size_t>(state.range(0)));
  std::uint64_t bytes = 0;
  for (auto _ : state) {
    std::string const path = file ? sink_path("z3log") : std::string("/dev/null");
    if (log) {
      Z3_open_log(path.c_str());
    }
    auto z = std::make_unique<Z3Dag>();
    make_context(*z);
    Clock::time_point const start = Clock::now();
    build(*z, d, true);
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    if (log) {
      Z3_close_log();
      if (file) {
        std::FILE* fp = std::fopen(path.c_str(), "rb");
        std::fseek(fp, 0, SEEK_END);
        bytes = static_cast<std::uint64_t>(std::ftell(fp));
        std::fclose(fp);
      }
    }
    z.reset();
  }
  state.counters["bytes"] = static_cast<double>(bytes);
}

// Printing every root with the SMT-LIB 2 printer (shared subterms let-bound) into the sink.
void bm_print(benchmark::State& state, bool file) {
  static std::unique_ptr<Z3Dag> z;
  static std::int64_t zn = -1;
  if (zn != state.range(0)) {
    z.reset();
    z = std::make_unique<Z3Dag>();
    make_context(*z);
    build(*z, dag(false, static_cast<std::size_t>(state.range(0))), false);
    Z3_set_ast_print_mode(z->ctx, Z3_PRINT_SMTLIB2_COMPLIANT);
    zn = state.range(0);
  }
  std::uint64_t bytes = 0;
  for (auto _ : state) {
    DiscardBuf discard;
    int fd = -1;
    if (file) {
      fd = ::open(sink_path("z3print").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    }
    bytes = 0;
    Clock::time_point const start = Clock::now();
    for (Z3_ast r : z->roots) {
      char const* s = Z3_ast_to_string(z->ctx, r);
      std::size_t const len = std::strlen(s);
      bytes += len + 1;
      if (file) {
        write_all(fd, s, len);
        write_all(fd, "\n", 1);
      } else {
        discard.sputn(s, static_cast<std::streamsize>(len));
        discard.sputn("\n", 1);
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
    std::string const sink = file ? "/file/" : "/discard/";
    register_sizes("dag_global" + sink + "z3log", 1000, top, 4, bm_build, true, file);
    register_sizes("dag_global" + sink + "z3nolog", 1000, top, 4, bm_build, false, file);
    register_sizes("dag_scoped" + sink + "z3print", 1000, top, 4, bm_print, file);
  }
  return 0;
}

int const kRegistered = register_all();

}  // namespace
}  // namespace bench
}  // namespace tvx
