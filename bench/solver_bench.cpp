// Cost of the solver environment: the workloads of tracer_bench driven through tvx::Solver with
// the z3 engine, tracing on (global-declarations mode, to a file) and off, against z3's own C
// API making and asserting the same terms in the same order; and the small-call workload
// through the process engine (z3 as a child process) against z3 reading a script of the same
// commands.
// Benchmark names are WORKLOAD/SINK/IMPLEMENTATION/N, as in tracer_bench: SINK "file" is tvx
// tracing to a file, "off" tvx without tracing; z3's own runs are named "off" too.
#include <benchmark/benchmark.h>
#include <z3.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/solver/engine.h>
#include <tvx/solver/solver.h>
#include "bench_common.h"
#include "tvx_dag.h"
#include "z3_dag.h"

namespace tvx {
namespace bench {
namespace {

int const kKeepMemory = keep_freed_memory();

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// A z3 context and solver as the z3 engine makes them: model generation as configured, the
// general solver. The context is z3's plain one, whose terms live as long as it does, so the
// application keeps no reference counts: the cheapest way to use z3 directly.
struct Z3Session {
  Z3_context ctx = nullptr;
  Z3_solver solver = nullptr;

  explicit Z3Session(bool models) {
    Z3_config cfg = Z3_mk_config();
    Z3_set_param_value(cfg, "model", models ? "true" : "false");
    ctx = Z3_mk_context(cfg);
    Z3_del_config(cfg);
    solver = Z3_mk_solver(ctx);
    Z3_solver_inc_ref(ctx, solver);
  }
  ~Z3Session() {
    Z3_solver_dec_ref(ctx, solver);
    Z3_del_context(ctx);
  }
  Z3Session(Z3Session const&) = delete;
  Z3Session& operator=(Z3Session const&) = delete;
};

Dag const& shared_dag(std::size_t n) {
  static std::unique_ptr<Dag> d;
  static std::size_t made_for = 0;
  if (!d || made_for != n) {
    d.reset();
    d = std::make_unique<Dag>(make_shared_dag(n, 1));
    made_for = n;
  }
  return *d;
}

// A solver over a fresh term manager, tracing in global-declarations mode to a file or not
// tracing at all.
struct TvxSession {
  TermManager mgr;
  Configuration config;
  std::ofstream trace;
  std::unique_ptr<Solver> solver;

  TvxSession(bool traced, bool models, std::string const& engine_name = "z3") {
    config.model_generation = models;
    std::unique_ptr<Engine> engine = make_engine(engine_name, mgr, config);
    if (traced) {
      trace.open(sink_path("solver"), std::ios::binary | std::ios::trunc);
      solver = std::make_unique<Solver>(mgr, config, std::move(engine), trace, true, false);
    } else {
      solver = std::make_unique<Solver>(mgr, config, std::move(engine));
    }
  }
};

void set_term_counters(benchmark::State& state, double terms) {
  state.counters["terms"] = terms;
  state.counters["ns_per_term"] = benchmark::Counter(
      terms * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// The shared DAG made and asserted through the environment. The roots go in without the
// workload's pushes and pops, on both sides: at a push z3 internalises everything asserted so
// far (bit-blasting the vector multiplications), which takes about a minute at 10^4 terms
// whoever asks for it and would hide the cost of the calls.
void bm_dag_tvx(benchmark::State& state, bool traced) {
  Dag const& d = shared_dag(static_cast<std::size_t>(state.range(0)));
  std::vector<Term const*> t;
  double terms = 0;
  for (auto _ : state) {
    auto s = std::make_unique<TvxSession>(traced, false);
    Clock::time_point const start = Clock::now();
    build_terms(s->mgr, d, t);
    Solver& solver = *s->solver;
    for (Root const& r : d.roots) {
      solver.assert_formula(t[r.node]);
    }
    state.SetIterationTime(seconds_since(start));
    terms = static_cast<double>(s->mgr.num_terms());
    s.reset();
  }
  set_term_counters(state, terms);
}

// The same DAG made and asserted through z3's C API.
void bm_dag_z3(benchmark::State& state) {
  Dag const& d = shared_dag(static_cast<std::size_t>(state.range(0)));
  std::vector<Z3_ast> t;
  // Costs are per term of tvx's manager, as in every row of the table.
  TermManager counted;
  std::vector<Term const*> counted_terms;
  build_terms(counted, d, counted_terms);
  for (auto _ : state) {
    auto z = std::make_unique<Z3Session>(false);
    Clock::time_point const start = Clock::now();
    build_z3(z->ctx, d, t);
    for (Root const& r : d.roots) {
      Z3_solver_assert(z->ctx, z->solver, t[r.node]);
    }
    state.SetIterationTime(seconds_since(start));
    z.reset();
  }
  set_term_counters(state, static_cast<double>(counted.num_terms()));
}

// ---------------------------------------------------------------------------- small calls

// A session of small calls in a seeded mix, as tracer_bench's: declarations of fresh integer
// constants, assertions (<= (+ a b) c), push, pop, check-sat, and the value of a constant right
// after a check (the only place where a model is there to ask). The terms are made beforehand
// on both sides; the calls are timed.
struct SmallScript {
  enum Kind : std::uint8_t { Declare, Assert, Push, Pop, Check, GetValue };
  struct Call {
    Kind kind;
    std::uint32_t a, b, c;  // constants by index; c: the numeral
  };
  std::vector<Call> calls;
  std::size_t constants = 0;

  explicit SmallScript(std::size_t n) {
    Rng rng(3);
    constants = 8;
    int depth = 0;
    auto pick = [&] { return static_cast<std::uint32_t>(rng.below(constants)); };
    calls.reserve(n);
    while (calls.size() < n) {
      std::uint64_t const r = rng.below(100);
      if (r < 15) {
        calls.push_back({Declare, static_cast<std::uint32_t>(constants++), 0, 0});
      } else if (r < 55) {
        std::uint32_t const a = pick(), b = pick();
        calls.push_back({Assert, a, b, static_cast<std::uint32_t>(rng.below(16))});
      } else if (r < 70 || (r < 85 && depth == 0)) {
        ++depth;
        calls.push_back({Push, 0, 0, 0});
      } else if (r < 85) {
        --depth;
        calls.push_back({Pop, 0, 0, 0});
      } else if (r < 93 || calls.empty() || calls.back().kind != Check) {
        calls.push_back({Check, 0, 0, 0});
      } else {
        calls.push_back({GetValue, pick(), 0, 0});
      }
    }
  }
};

SmallScript const& small_script(std::size_t n) {
  static std::unique_ptr<SmallScript> s;
  if (!s || s->calls.size() != n) {
    s.reset();
    s = std::make_unique<SmallScript>(n);
  }
  return *s;
}

void set_call_counters(benchmark::State& state, SmallScript const& s) {
  set_term_counters(state, static_cast<double>(s.calls.size()));
}

void bm_small_tvx_engine(benchmark::State& state, bool traced, std::string const& engine) {
  SmallScript const& script = small_script(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    auto s = std::make_unique<TvxSession>(traced, true, engine);
    TermManager& m = s->mgr;
    DataType const* i = m.get_integer_type();
    std::vector<Symbol const*> syms;
    std::vector<Term const*> vars, nums;
    for (std::size_t k = 0; k < script.constants; ++k) {
      syms.push_back(m.make_symbol("x" + std::to_string(k), i));
      vars.push_back(m.make_constant(syms.back()));
    }
    for (int k = 0; k < 16; ++k) {
      nums.push_back(m.make_number(std::to_string(k), i));
    }
    std::vector<Term const*> atoms;
    for (SmallScript::Call const& c : script.calls) {
      if (c.kind == SmallScript::Assert) {
        Term const* sum = m.make_builtin("+", {vars[c.a], vars[c.b]});
        atoms.push_back(m.make_builtin("<=", {sum, nums[c.c]}));
      }
    }
    Solver& solver = *s->solver;
    std::size_t next_atom = 0;
    Clock::time_point const start = Clock::now();
    for (SmallScript::Call const& c : script.calls) {
      switch (c.kind) {
        case SmallScript::Declare:
          solver.declare_fun(syms[c.a]);
          break;
        case SmallScript::Assert:
          solver.assert_formula(atoms[next_atom++]);
          break;
        case SmallScript::Push:
          solver.push();
          break;
        case SmallScript::Pop:
          solver.pop();
          break;
        case SmallScript::Check:
          benchmark::DoNotOptimize(solver.check());
          break;
        case SmallScript::GetValue:
          benchmark::DoNotOptimize(solver.get_model_value(vars[c.a]));
          break;
      }
    }
    state.SetIterationTime(seconds_since(start));
    s.reset();
  }
  set_call_counters(state, script);
}

void bm_small_tvx(benchmark::State& state, bool traced) {
  bm_small_tvx_engine(state, traced, "z3");
}

// The process engine's peer: z3 reading the same calls as a script, started and run to the end.
void bm_small_z3_script(benchmark::State& state) {
  SmallScript const& script = small_script(static_cast<std::size_t>(state.range(0)));
  std::string const path = sink_path("small_script");
  {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    // Declarations outlive the scope they were made in, as the term layer's symbols do.
    out << "(set-option :global-decls true)\n(set-option :produce-models true)\n";
    std::size_t declared = 8;
    for (std::size_t k = 0; k < 8; ++k) {
      out << "(declare-fun x" << k << " () Int)\n";
    }
    for (SmallScript::Call const& c : script.calls) {
      switch (c.kind) {
        case SmallScript::Declare:
          out << "(declare-fun x" << declared++ << " () Int)\n";
          break;
        case SmallScript::Assert:
          out << "(assert (<= (+ x" << c.a << " x" << c.b << ") " << c.c << "))\n";
          break;
        case SmallScript::Push:
          out << "(push 1)\n";
          break;
        case SmallScript::Pop:
          out << "(pop 1)\n";
          break;
        case SmallScript::Check:
          out << "(check-sat)\n";
          break;
        case SmallScript::GetValue:
          out << "(get-value (x" << c.a << "))\n";
          break;
      }
    }
  }
  std::string const command = "z3 -smt2 '" + path + "' >/dev/null";
  for (auto _ : state) {
    Clock::time_point const start = Clock::now();
    if (std::system(command.c_str()) != 0) {
      state.SkipWithError("z3 failed on the script");
      return;
    }
    state.SetIterationTime(seconds_since(start));
  }
  set_call_counters(state, script);
}

void bm_small_z3(benchmark::State& state) {
  SmallScript const& script = small_script(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    auto z = std::make_unique<Z3Session>(true);
    Z3_context c = z->ctx;
    Z3_sort i = Z3_mk_int_sort(c);
    std::vector<Z3_ast> vars, nums, atoms;
    for (std::size_t k = 0; k < script.constants; ++k) {
      std::string const name = "x" + std::to_string(k);
      vars.push_back(Z3_mk_const(c, Z3_mk_string_symbol(c, name.c_str()), i));
    }
    for (int k = 0; k < 16; ++k) {
      nums.push_back(Z3_mk_int(c, k, i));
    }
    for (SmallScript::Call const& call : script.calls) {
      if (call.kind == SmallScript::Assert) {
        Z3_ast sum[2] = {vars[call.a], vars[call.b]};
        atoms.push_back(Z3_mk_le(c, Z3_mk_add(c, 2, sum), nums[call.c]));
      }
    }
    std::size_t next_atom = 0;
    Clock::time_point const start = Clock::now();
    for (SmallScript::Call const& call : script.calls) {
      switch (call.kind) {
        case SmallScript::Declare:
          break;  // z3 has no declaration call: the constant was made beforehand
        case SmallScript::Assert:
          Z3_solver_assert(c, z->solver, atoms[next_atom++]);
          break;
        case SmallScript::Push:
          Z3_solver_push(c, z->solver);
          break;
        case SmallScript::Pop:
          Z3_solver_pop(c, z->solver, 1);
          break;
        case SmallScript::Check:
          benchmark::DoNotOptimize(Z3_solver_check(c, z->solver));
          break;
        case SmallScript::GetValue: {
          Z3_model model = Z3_solver_get_model(c, z->solver);
          Z3_model_inc_ref(c, model);
          Z3_ast value = nullptr;
          Z3_model_eval(c, model, vars[call.a], true, &value);
          benchmark::DoNotOptimize(value);
          Z3_model_dec_ref(c, model);
          break;
        }
      }
    }
    state.SetIterationTime(seconds_since(start));
    z.reset();
  }
  set_call_counters(state, script);
}

// ---------------------------------------------------------------------------- registration

// The small-call session is shorter than tracer_bench's: every check is a real one.
std::int64_t small_calls() {
  char const* s = std::getenv("TVX_BENCH_ENV_CALLS");
  return s != nullptr ? std::atoll(s) : 100000;
}

int register_all() {
  std::int64_t const top = max_n();
  register_sizes("env_dag/file/tvx", 1000, top, 4, bm_dag_tvx, true);
  register_sizes("env_dag/off/tvx", 1000, top, 4, bm_dag_tvx, false);
  register_sizes("env_dag/off/z3api", 1000, top, 4, bm_dag_z3);
  std::int64_t const calls = small_calls();
  benchmark::RegisterBenchmark("env_small/file/tvx", bm_small_tvx, true)
      ->Arg(calls)
      ->Iterations(3)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("env_small/off/tvx", bm_small_tvx, false)
      ->Arg(calls)
      ->Iterations(3)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("env_small/off/z3api", bm_small_z3)
      ->Arg(calls)
      ->Iterations(3)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
  // The process engine and its peer: every call a round trip to the solver, so fewer calls.
  if (std::system("command -v z3 >/dev/null") == 0) {
    std::int64_t const process_calls = calls / 10;
    benchmark::RegisterBenchmark("env_process/off/tvx", bm_small_tvx_engine, false,
                                 std::string("z3 -in"))
        ->Arg(process_calls)
        ->Iterations(3)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("env_process/off/z3script", bm_small_z3_script)
        ->Arg(process_calls)
        ->Iterations(3)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
  }
  return 0;
}

int const kRegistered = register_all();

}  // namespace
}  // namespace bench
}  // namespace tvx
