// Cost of tracing through SmtLib2ApiTracer, per term and per call, against the limit: the same
// bytes written in the pieces the tracer flushes, and a formatter written by hand for exactly
// that text.
// Benchmark names are WORKLOAD/SINK/IMPLEMENTATION/N; bench/report.py reads them.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/core/term_printer.h>
#include <tvx/tracer/smtlib2_api_tracer.h>
#include "bench_common.h"
#include "tvx_dag.h"

namespace tvx {
namespace bench {
namespace {

int const kKeepMemory = keep_freed_memory();

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void trace_all(SmtLib2ApiTracer& tracer, TvxDag const& g) {
  for (std::size_t k = 0; k < g.roots.size(); ++k) {
    if (g.scoped[k]) {
      tracer.trace_push_backtrack_point();
    }
    tracer.trace_assert_formula(g.roots[k]);
    if (g.scoped[k]) {
      tracer.trace_pop_backtrack_point();
    }
  }
}

// ------------------------------------------------------- the hand-written formatter (global)

// Writes exactly the text of a global-declarations trace of roots asserted in order, from a
// header, per-symbol texts computed beforehand, a bitmap of defined ids and one output buffer.
class HandFormatter {
 public:
  HandFormatter(TvxDag const& g, std::string header, std::size_t capacity)
      : g_(g), header_(std::move(header)), buf_(capacity + 4096) {
    Configuration config;
    SmtLib2TermPrinter printer(g.mgr.get(), &config.printer, "", "", true, nullptr);
    std::size_t const ids = g.mgr->num_terms() + 1;
    defined_.assign(ids, 0);
    // Symbol texts, by symbol id, for every symbol the roots reach.
    std::vector<Term const*> stack(g.roots.begin(), g.roots.end());
    std::vector<std::uint8_t> seen(ids, 0);
    while (!stack.empty()) {
      Term const* t = stack.back();
      stack.pop_back();
      if (seen[t->get_id()]) {
        continue;
      }
      seen[t->get_id()] = 1;
      Symbol const* s = t->get_symbol();
      std::size_t const sid = s->get_id();
      if (sid >= syms_.size()) {
        syms_.resize(sid + 1);
      }
      Sym& info = syms_[sid];
      if (!info.known) {
        info.known = true;
        info.text = printer.symbol_text(s);
        info.type_text = printer.type_text(s->get_output_type());
        info.user = !g.mgr->is_interpreted(s);
        if (info.user) {
          std::ostringstream os;
          printer.print_symbol_declaration(os, s);
          info.decl = os.str();
        }
        DataType const* ty = s->get_output_type();
        if (ty->is_simple() && g.mgr->get_simple_type(ty->get_name(), true) != nullptr) {
          auto it = std::find(types_.begin(), types_.end(), ty);
          info.type_index = static_cast<int>(it - types_.begin());
          if (it == types_.end()) {
            types_.push_back(ty);
            std::ostringstream os;
            printer.print_type_declaration(os, ty);
            type_decls_.push_back(os.str());
          }
        }
      }
      for (std::size_t k = 0; k < t->get_arity(); ++k) {
        stack.push_back(t->get_arg(k));
      }
    }
    stack_.reserve(ids);
    new_terms_.reserve(ids);
  }

  // Formats the whole trace into the buffer; returns its length.
  std::size_t run() {
    std::fill(defined_.begin(), defined_.end(), 0);
    for (Sym& s : syms_) {
      s.declared = false;
    }
    type_declared_.assign(types_.size(), 0);
    p_ = buf_.data();
    put(header_);
    for (std::size_t k = 0; k < g_.roots.size(); ++k) {
      if (g_.scoped[k]) {
        put("(push 1)\n");
      }
      assert_root(g_.roots[k]);
      if (g_.scoped[k]) {
        put("(pop 1)\n");
      }
    }
    return static_cast<std::size_t>(p_ - buf_.data());
  }

  char const* data() const { return buf_.data(); }

 private:
  struct Sym {
    bool known = false;
    bool user = false;
    bool declared = false;
    int type_index = -1;
    std::string text;
    std::string type_text;
    std::string decl;
  };

  void put(std::string const& s) {
    std::memcpy(p_, s.data(), s.size());
    p_ += s.size();
  }
  void put(char const* s) {
    std::size_t const n = std::strlen(s);
    std::memcpy(p_, s, n);
    p_ += n;
  }
  void put_label(std::uint64_t id) {
    *p_++ = '.';
    p_ = std::to_chars(p_, p_ + 24, id).ptr;
  }

  void assert_root(Term const* root) {
    new_terms_.clear();
    new_syms_.clear();
    new_types_.clear();
    if (!defined_[root->get_id()]) {
      defined_[root->get_id()] = 1;
      stack_.push_back(root);
    }
    while (!stack_.empty()) {
      Term const* t = stack_.back();
      stack_.pop_back();
      new_terms_.push_back(t);
      std::size_t const sid = t->get_symbol()->get_id();
      Sym& s = syms_[sid];
      if (s.user && !s.declared) {
        s.declared = true;
        new_syms_.push_back(sid);
      }
      if (s.type_index >= 0 && !type_declared_[s.type_index]) {
        type_declared_[s.type_index] = 1;
        new_types_.push_back(s.type_index);
      }
      Term const* const* args = t->args();
      for (std::size_t k = 0, n = t->get_arity(); k < n; ++k) {
        if (!defined_[args[k]->get_id()]) {
          defined_[args[k]->get_id()] = 1;
          stack_.push_back(args[k]);
        }
      }
    }
    std::sort(new_types_.begin(), new_types_.end());
    for (int k : new_types_) {
      put(type_decls_[k]);
    }
    std::sort(new_syms_.begin(), new_syms_.end());
    for (std::size_t sid : new_syms_) {
      put(syms_[sid].decl);
    }
    std::sort(new_terms_.begin(), new_terms_.end(),
              [](Term const* a, Term const* b) { return a->get_id() < b->get_id(); });
    for (Term const* t : new_terms_) {
      Sym const& s = syms_[t->get_symbol()->get_id()];
      put("(define-fun ");
      put_label(t->get_id());
      put(" () ");
      put(s.type_text);
      *p_++ = ' ';
      std::size_t const n = t->get_arity();
      if (n == 0) {
        put(s.text);
      } else {
        *p_++ = '(';
        put(s.text);
        Term const* const* args = t->args();
        for (std::size_t k = 0; k < n; ++k) {
          *p_++ = ' ';
          put_label(args[k]->get_id());
        }
        *p_++ = ')';
      }
      put(")\n");
    }
    put("(assert ");
    put_label(root->get_id());
    put(")\n");
  }

  TvxDag const& g_;
  std::string header_;
  std::vector<char> buf_;
  char* p_ = nullptr;
  std::vector<Sym> syms_;
  std::vector<DataType const*> types_;
  std::vector<std::string> type_decls_;
  std::vector<std::uint8_t> type_declared_;
  std::vector<std::uint8_t> defined_;
  std::vector<Term const*> stack_;
  std::vector<Term const*> new_terms_;
  std::vector<std::size_t> new_syms_;
  std::vector<int> new_types_;
};

// ------------------------------------------------------------------------------ workloads

enum class Workload { Dag, Chain };

// The workload being measured, kept between the benchmarks that share it.
struct Prepared {
  Workload workload;
  std::size_t n = 0;
  bool global = false;
  std::unique_ptr<TvxDag> dag;
  std::string trace;       // tvx's own output
  std::size_t header = 0;  // length of its header
  // Where tvx flushed: the limits write the same bytes in the same pieces, since a tracer must
  // deliver each call's text (and each declaration) when the call returns.
  std::vector<std::size_t> flush_points;
  double bytes_per_term = 0;  // tracer memory held per defined term
  std::unique_ptr<HandFormatter> hand;
  bool hand_matches = false;
};

Prepared& prepared(Workload w, std::size_t n, bool global) {
  static std::unique_ptr<Prepared> p;
  if (p && p->workload == w && p->n == n && p->global == global) {
    return *p;
  }
  p.reset();
  p = std::make_unique<Prepared>();
  p->workload = w;
  p->n = n;
  p->global = global;
  Dag const d = w == Workload::Dag ? make_shared_dag(n, 1) : make_deep_chain(n);
  p->dag = build_tvx(d);
  Configuration config;
  {
    // One untimed run into a discarding sink for the memory the tracer keeps (so that the
    // recorded text does not count), and one for the reference text.
    {
      DiscardBuf discard;
      std::ostream os(&discard);
      std::size_t const before = heap_in_use();
      SmtLib2ApiTracer tracer(&config, p->dag->mgr.get(), os, global, false);
      trace_all(tracer, *p->dag);
      std::size_t const after = heap_in_use();
      p->bytes_per_term =
          static_cast<double>(after - before) / static_cast<double>(p->dag->mgr->num_terms());
    }
    RecordingBuf rec;
    std::ostream os(&rec);
    {
      SmtLib2ApiTracer tracer(&config, p->dag->mgr.get(), os, global, false);
      trace_all(tracer, *p->dag);
    }
    p->trace = std::move(rec.text);
    p->header = rec.flush_points.empty() ? 0 : rec.flush_points.front();
    p->flush_points = std::move(rec.flush_points);
  }
  if (global) {
    p->hand =
        std::make_unique<HandFormatter>(*p->dag, p->trace.substr(0, p->header), p->trace.size());
    std::size_t const len = p->hand->run();
    p->hand_matches =
        len == p->trace.size() && std::memcmp(p->hand->data(), p->trace.data(), len) == 0;
  }
  return *p;
}

void set_counters(benchmark::State& state, Prepared const& p, bool with_memory) {
  double const terms = static_cast<double>(p.dag->mgr->num_terms());
  state.counters["terms"] = terms;
  state.counters["bytes"] = static_cast<double>(p.trace.size());
  state.counters["ns_per_term"] = benchmark::Counter(
      terms * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * p.trace.size()));
  if (with_memory) {
    state.counters["mem_bytes_per_term"] = p.bytes_per_term;
  }
}

// tvx tracing every root into the sink.
void bm_tvx(benchmark::State& state, Workload w, bool global, bool file) {
  Prepared& p = prepared(w, static_cast<std::size_t>(state.range(0)), global);
  Configuration config;
  for (auto _ : state) {
    DiscardBuf discard;
    std::ofstream fout;
    std::ostream dout(&discard);
    if (file) {
      fout.open(sink_path("tvx"), std::ios::binary | std::ios::trunc);
    }
    std::ostream& os = file ? static_cast<std::ostream&>(fout) : dout;
    auto tracer = std::make_unique<SmtLib2ApiTracer>(&config, p.dag->mgr.get(), os, global, false);
    Clock::time_point const start = Clock::now();
    trace_all(*tracer, *p.dag);
    os.flush();
    state.SetIterationTime(seconds_since(start));
    tracer.reset();
  }
  set_counters(state, p, true);
}

// Writes text[0, length) to the file fd, or to the discarding sink when fd < 0, one write per
// piece ending at each flush point.
void write_pieces(int fd, DiscardBuf& discard, char const* text, std::size_t length,
                  std::vector<std::size_t> const& flush_points) {
  std::size_t from = 0;
  for (std::size_t to : flush_points) {
    if (to > length) {
      break;
    }
    if (fd >= 0) {
      write_all(fd, text + from, to - from);
    } else {
      discard.sputn(text + from, static_cast<std::streamsize>(to - from));
    }
    from = to;
  }
}

// The same bytes, already in memory, written to the sink in tvx's pieces.
void bm_write(benchmark::State& state, Workload w, bool global, bool file) {
  Prepared& p = prepared(w, static_cast<std::size_t>(state.range(0)), global);
  for (auto _ : state) {
    DiscardBuf discard;
    int fd = -1;
    if (file) {
      fd = ::open(sink_path("limit").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    }
    Clock::time_point const start = Clock::now();
    write_pieces(fd, discard, p.trace.data(), p.trace.size(), p.flush_points);
    state.SetIterationTime(seconds_since(start));
    if (fd >= 0) {
      ::close(fd);
    }
  }
  set_counters(state, p, false);
}

// The hand-written formatter, then its buffer written in tvx's pieces.
void bm_hand(benchmark::State& state, Workload w, bool file) {
  Prepared& p = prepared(w, static_cast<std::size_t>(state.range(0)), true);
  if (!p.hand_matches) {
    state.SkipWithError("the hand-written formatter's text differs from the tracer's");
    return;
  }
  for (auto _ : state) {
    DiscardBuf discard;
    int fd = -1;
    if (file) {
      fd = ::open(sink_path("limit").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    }
    Clock::time_point const start = Clock::now();
    std::size_t const len = p.hand->run();
    write_pieces(fd, discard, p.hand->data(), len, p.flush_points);
    state.SetIterationTime(seconds_since(start));
    if (fd >= 0) {
      ::close(fd);
    }
  }
  set_counters(state, p, false);
}

// ---------------------------------------------------------------------------- small calls

// A session of many small calls: fresh declarations, small assertions, push, pop, check-sat
// and get-value, in a seeded mix; the tracer flushes after each.
struct SmallCalls {
  enum Kind : std::uint8_t { Declare, Assert, Push, Pop, Check, GetValue };
  struct Call {
    Kind kind;
    void const* what;
  };
  TermManager mgr;
  std::vector<Call> calls;
  RecordingBuf reference;  // tvx's bytes and its flush points
  std::size_t header = 0;

  explicit SmallCalls(std::size_t n) {
    Rng rng(3);
    DataType const* i = mgr.get_integer_type();
    std::vector<Term const*> vars;
    std::vector<Term const*> nums;
    for (int k = 0; k < 16; ++k) {
      nums.push_back(mgr.make_number(std::to_string(k), i));
    }
    for (int k = 0; k < 8; ++k) {
      vars.push_back(mgr.make_constant(mgr.make_symbol("x" + std::to_string(k), i)));
    }
    int depth = 0;
    calls.reserve(n);
    while (calls.size() < n) {
      std::uint64_t const r = rng.below(100);
      if (r < 15) {
        Symbol const* s = mgr.make_symbol("v" + std::to_string(vars.size()), i);
        vars.push_back(mgr.make_constant(s));
        calls.push_back({Declare, s});
      } else if (r < 55) {
        Term const* a = vars[rng.below(vars.size())];
        Term const* b = vars[rng.below(vars.size())];
        Term const* sum[2] = {a, b};
        Term const* le[2] = {mgr.make_builtin("+", sum, 2), nums[rng.below(nums.size())]};
        calls.push_back({Assert, mgr.make_builtin("<=", le, 2)});
      } else if (r < 70) {
        ++depth;
        calls.push_back({Push, nullptr});
      } else if (r < 85) {
        if (depth > 0) {
          --depth;
          calls.push_back({Pop, nullptr});
        } else {
          ++depth;
          calls.push_back({Push, nullptr});
        }
      } else if (r < 93) {
        calls.push_back({Check, nullptr});
      } else {
        calls.push_back({GetValue, vars[rng.below(vars.size())]});
      }
    }
  }

  void run(SmtLib2ApiTracer& tracer) const {
    for (Call const& c : calls) {
      switch (c.kind) {
        case Declare:
          tracer.trace_symbol_declaration(static_cast<Symbol const*>(c.what));
          break;
        case Assert:
          tracer.trace_assert_formula(static_cast<Term const*>(c.what));
          break;
        case Push:
          tracer.trace_push_backtrack_point();
          break;
        case Pop:
          tracer.trace_pop_backtrack_point();
          break;
        case Check:
          tracer.trace_check();
          break;
        case GetValue:
          tracer.trace_get_model_value(static_cast<Term const*>(c.what));
          break;
      }
    }
  }
};

SmallCalls& small_calls(std::size_t n) {
  static std::unique_ptr<SmallCalls> s;
  if (!s || s->calls.size() != n) {
    s.reset();
    s = std::make_unique<SmallCalls>(n);
    Configuration config;
    std::ostream os(&s->reference);
    SmtLib2ApiTracer tracer(&config, &s->mgr, os, false, false);
    s->header = s->reference.text.size();
    s->run(tracer);
  }
  return *s;
}

void set_call_counters(benchmark::State& state, SmallCalls const& s) {
  double const calls = static_cast<double>(s.calls.size());
  state.counters["terms"] = calls;
  state.counters["bytes"] = static_cast<double>(s.reference.text.size());
  state.counters["ns_per_term"] = benchmark::Counter(
      calls * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["writes"] = static_cast<double>(s.reference.flush_points.size());
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * s.reference.text.size()));
}

void bm_small_tvx(benchmark::State& state, bool file) {
  SmallCalls& s = small_calls(static_cast<std::size_t>(state.range(0)));
  Configuration config;
  for (auto _ : state) {
    DiscardBuf discard;
    std::ofstream fout;
    std::ostream dout(&discard);
    if (file) {
      fout.open(sink_path("tvx"), std::ios::binary | std::ios::trunc);
    }
    std::ostream& os = file ? static_cast<std::ostream&>(fout) : dout;
    Clock::time_point const start = Clock::now();
    SmtLib2ApiTracer tracer(&config, &s.mgr, os, false, false);
    s.run(tracer);
    state.SetIterationTime(seconds_since(start));
  }
  set_call_counters(state, s);
}

// The same bytes, one write per flush of the tracer: a bare write + flush per call.
void bm_small_write(benchmark::State& state) {
  SmallCalls& s = small_calls(static_cast<std::size_t>(state.range(0)));
  std::string const& text = s.reference.text;
  for (auto _ : state) {
    int const fd = ::open(sink_path("limit").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    DiscardBuf unused;
    Clock::time_point const start = Clock::now();
    write_pieces(fd, unused, text.data(), text.size(), s.reference.flush_points);
    state.SetIterationTime(seconds_since(start));
    ::close(fd);
  }
  set_call_counters(state, s);
}

// ---------------------------------------------------------------------------- registration

int register_all() {
  std::int64_t const top = max_n();
  struct Mode {
    char const* name;
    Workload w;
    bool global;
    std::int64_t lo;
    std::int64_t hi;
  };
  Mode const modes[] = {
      {"dag_global", Workload::Dag, true, 1000, top},
      {"dag_scoped", Workload::Dag, false, 1000, top},
      {"chain_global", Workload::Chain, true, 10000, top},
      {"chain_scoped", Workload::Chain, false, 10000, top},
  };
  for (Mode const& m : modes) {
    for (bool file : {false, true}) {
      std::string const base = std::string(m.name) + (file ? "/file/" : "/discard/");
      register_sizes(base + "tvx", m.lo, m.hi, 1, bm_tvx, m.w, m.global, file);
      register_sizes(base + "write", m.lo, m.hi, 1, bm_write, m.w, m.global, file);
      if (m.global) {
        register_sizes(base + "hand", m.lo, m.hi, 1, bm_hand, m.w, file);
      }
    }
  }
  std::int64_t const calls = std::min<std::int64_t>(1000000, std::max<std::int64_t>(top, 1000));
  benchmark::RegisterBenchmark("small_calls/discard/tvx", bm_small_tvx, false)
      ->Arg(calls)
      ->Iterations(3)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("small_calls/file/tvx", bm_small_tvx, true)
      ->Arg(calls)
      ->Iterations(3)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("small_calls/file/write", bm_small_write)
      ->Arg(calls)
      ->Iterations(3)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
  return 0;
}

int const kRegistered = register_all();

}  // namespace
}  // namespace bench
}  // namespace tvx
