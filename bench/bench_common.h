// Shared pieces of the tracer benchmarks: a seeded, library-neutral description of the
// workloads' formulas (so tvx and the peers build the identical DAG), the sinks, and helpers.
// Invariant: a Dag's node arguments always refer to earlier nodes.
#ifndef TVX_BENCH_BENCH_COMMON_H
#define TVX_BENCH_BENCH_COMMON_H

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <streambuf>
#include <string>
#include <vector>

namespace tvx {
namespace bench {

// Fresh pages cost several microseconds each on some virtualised machines; keeping freed
// memory in the process makes repeated iterations measure the code rather than the kernel.
inline int keep_freed_memory() {
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  return 0;
}

// The largest N of the size sweeps; TVX_BENCH_MAX_N raises or lowers it.
inline std::int64_t max_n() {
  char const* s = std::getenv("TVX_BENCH_MAX_N");
  return s != nullptr ? std::atoll(s) : 1000000;
}

// Iterations that keep one benchmark near a second for n terms.
inline std::int64_t iterations_for(std::int64_t n) {
  if (char const* s = std::getenv("TVX_BENCH_ITERATIONS")) {
    return std::atoll(s);
  }
  std::int64_t k = 2000000 / (n > 0 ? n : 1);
  return k < 1 ? 1 : (k > 200 ? 200 : k);
}

// Registers NAME once per size from lo to hi (powers of ten), each with its own iteration count
// (iterations_for(n) / divisor): one benchmark's iteration count is shared by all its arguments.
template <typename... Args>
void register_sizes(std::string const& name, std::int64_t lo, std::int64_t hi, std::int64_t divisor,
                    Args... args) {
  for (std::int64_t n = lo; n <= hi; n *= 10) {
    std::int64_t const iterations = iterations_for(n) / divisor;
    benchmark::RegisterBenchmark(name.c_str(), args...)
        ->Arg(n)
        ->Iterations(iterations < 1 ? 1 : iterations)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
  }
}

// The sorts and operators the workloads use: uninterpreted functions over a sort U, linear
// integer arithmetic and 32-bit vectors.
enum class Sort : std::uint8_t { U, Int, Bv, Bool };

enum class Op : std::uint8_t {
  UConst,    // u<value> : U
  IntConst,  // x<value> : Int
  BvConst,   // b<value> : (_ BitVec 32)
  IntNum,    // the integer value
  BvNum,     // the 32-bit value
  F,         // f : U U -> U
  G,         // g : U -> Int
  H,         // h : Int -> U
  Add,       // (+ a b)
  MulC,      // (* a b), a a numeral
  BvAdd,
  BvMul,
  BvAnd,
  EqU,    // (= a b) over U
  LeInt,  // (<= a b)
  BvUlt,
  And,
  Not,
};

inline Sort sort_of(Op op) {
  switch (op) {
    case Op::UConst:
    case Op::F:
    case Op::H:
      return Sort::U;
    case Op::IntConst:
    case Op::IntNum:
    case Op::G:
    case Op::Add:
    case Op::MulC:
      return Sort::Int;
    case Op::BvConst:
    case Op::BvNum:
    case Op::BvAdd:
    case Op::BvMul:
    case Op::BvAnd:
      return Sort::Bv;
    default:
      return Sort::Bool;
  }
}

inline int arity_of(Op op) {
  switch (op) {
    case Op::UConst:
    case Op::IntConst:
    case Op::BvConst:
    case Op::IntNum:
    case Op::BvNum:
      return 0;
    case Op::G:
    case Op::H:
    case Op::Not:
      return 1;
    default:
      return 2;
  }
}

struct Node {
  Op op;
  std::uint32_t a;
  std::uint32_t b;
  std::uint64_t value;  // constants: the name's number; numerals: the value
};

// One asserted root; `scoped` roots are asserted between a push and a pop.
struct Root {
  std::uint32_t node;
  bool scoped;
};

struct Dag {
  std::vector<Node> nodes;
  std::vector<Root> roots;
};

class Rng {
 public:
  explicit Rng(std::uint64_t seed) : s_(seed * 0x9E3779B97F4A7C15ULL + 1) {}
  std::uint64_t next() {
    s_ = s_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return s_ >> 17;
  }
  std::uint64_t below(std::uint64_t n) { return next() % n; }

 private:
  std::uint64_t s_;
};

// About n nodes in blocks of kBlock: each block builds terms of the three theories from the
// shared constants and from its own earlier terms (an argument is the newest term of its sort
// half of the time, otherwise any term of the block: so terms are reused by several parents),
// then joins every term that has no parent yet into one conjunction, its root. Every fourth
// root is asserted inside push/pop. Roots share only the constants, so printing each root in
// full is linear in n.
inline Dag make_shared_dag(std::size_t n, std::uint64_t seed) {
  constexpr std::size_t kConsts = 32;
  constexpr std::size_t kBlock = 400;
  Dag d;
  d.nodes.reserve(n + n / 4 + 256);
  Rng rng(seed);
  std::vector<std::uint32_t> consts[3];
  for (std::size_t i = 0; i < kConsts; ++i) {
    consts[0].push_back(static_cast<std::uint32_t>(d.nodes.size()));
    d.nodes.push_back({Op::UConst, 0, 0, i});
    consts[1].push_back(static_cast<std::uint32_t>(d.nodes.size()));
    d.nodes.push_back({Op::IntConst, 0, 0, i});
    consts[2].push_back(static_cast<std::uint32_t>(d.nodes.size()));
    d.nodes.push_back({Op::BvConst, 0, 0, i});
  }
  std::vector<std::uint32_t> pool[3];
  std::vector<std::uint8_t> has_parent;
  std::size_t block = 0;
  while (d.nodes.size() < n) {
    std::size_t const first = d.nodes.size();
    for (int s = 0; s < 3; ++s) {
      pool[s] = consts[s];
    }
    auto pick = [&](int s) -> std::uint32_t {
      std::vector<std::uint32_t> const& p = pool[s];
      if (p.size() > kConsts && rng.below(2) == 0) {
        return p.back();
      }
      if (p.size() > kConsts && rng.below(4) != 0) {
        return p[kConsts + rng.below(p.size() - kConsts)];
      }
      return p[rng.below(p.size())];
    };
    auto add = [&](Node const& node) {
      std::uint32_t const id = static_cast<std::uint32_t>(d.nodes.size());
      d.nodes.push_back(node);
      int const ar = arity_of(node.op);
      if (ar >= 1) {
        has_parent.resize(d.nodes.size(), 0);
        has_parent[node.a] = 1;
      }
      if (ar >= 2) {
        has_parent[node.b] = 1;
      }
      return id;
    };
    for (std::size_t k = 0; k < kBlock; ++k) {
      std::uint64_t const r = rng.below(100);
      Node node{};
      if (r < 30) {
        node = r < 24 ? Node{Op::F, pick(0), pick(0), 0} : Node{Op::H, pick(1), 0, 0};
      } else if (r < 65) {
        if (r < 45) {
          node = Node{Op::Add, pick(1), pick(1), 0};
        } else if (r < 55) {
          std::uint32_t const c = add({Op::IntNum, 0, 0, 2 + rng.below(9)});
          node = Node{Op::MulC, c, pick(1), 0};
        } else {
          node = Node{Op::G, pick(0), 0, 0};
        }
      } else {
        Op const op = r < 80 ? Op::BvAdd : (r < 90 ? Op::BvAnd : Op::BvMul);
        std::uint32_t a = pick(2);
        if (rng.below(8) == 0) {
          a = add({Op::BvNum, 0, 0, rng.below(1u << 16)});
        }
        node = Node{op, a, pick(2), 0};
      }
      std::uint32_t const id = add(node);
      pool[static_cast<int>(sort_of(node.op))].push_back(id);
    }
    has_parent.resize(d.nodes.size(), 0);
    // Join the parentless terms of each sort pairwise into atoms, and the atoms into one root.
    std::vector<std::uint32_t> atoms;
    for (int s = 0; s < 3; ++s) {
      std::vector<std::uint32_t> open;
      for (std::uint32_t id : pool[s]) {
        if (id >= first && !has_parent[id]) {
          open.push_back(id);
        }
      }
      if (open.size() % 2 == 1) {
        open.push_back(consts[s][rng.below(kConsts)]);
      }
      Op const op = s == 0 ? Op::EqU : (s == 1 ? Op::LeInt : Op::BvUlt);
      for (std::size_t i = 0; i + 1 < open.size(); i += 2) {
        atoms.push_back(add({op, open[i], open[i + 1], 0}));
      }
    }
    std::uint32_t root = atoms.empty() ? add({Op::EqU, consts[0][0], consts[0][1], 0}) : atoms[0];
    for (std::size_t i = 1; i < atoms.size(); ++i) {
      std::uint32_t const atom = (i % 5 == 0) ? add({Op::Not, atoms[i], 0, 0}) : atoms[i];
      root = add({Op::And, root, atom, 0});
    }
    d.roots.push_back({root, block % 4 == 3});
    ++block;
  }
  return d;
}

// One root n levels deep: t0 = x0, t(k+1) = (+ t(k) x(k mod 32)), asserted as (<= t(n) x0).
inline Dag make_deep_chain(std::size_t n) {
  Dag d;
  d.nodes.reserve(n + 40);
  for (std::uint64_t i = 0; i < 32; ++i) {
    d.nodes.push_back({Op::IntConst, 0, 0, i});
  }
  std::uint32_t t = 0;
  for (std::size_t k = 0; k < n; ++k) {
    std::uint32_t const id = static_cast<std::uint32_t>(d.nodes.size());
    d.nodes.push_back({Op::Add, t, static_cast<std::uint32_t>(k % 32), 0});
    t = id;
  }
  std::uint32_t const root = static_cast<std::uint32_t>(d.nodes.size());
  d.nodes.push_back({Op::LeInt, t, 0, 0});
  d.roots.push_back({root, false});
  return d;
}

// A stream buffer that discards everything it is given, counting the bytes: the tracer's own
// cost without any I/O.
class DiscardBuf : public std::streambuf {
 public:
  std::uint64_t bytes() const { return bytes_ + static_cast<std::uint64_t>(pptr() - pbase()); }
  void reset() {
    bytes_ = 0;
    setp(buf_, buf_ + sizeof(buf_));
  }
  DiscardBuf() { reset(); }

 protected:
  int_type overflow(int_type c) override {
    bytes_ += static_cast<std::uint64_t>(pptr() - pbase());
    setp(buf_, buf_ + sizeof(buf_));
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
      ++bytes_;
    }
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(char const*, std::streamsize n) override {
    bytes_ += static_cast<std::uint64_t>(n);
    return n;
  }
  int sync() override {
    bytes_ += static_cast<std::uint64_t>(pptr() - pbase());
    setp(buf_, buf_ + sizeof(buf_));
    return 0;
  }

 private:
  char buf_[1024];
  std::uint64_t bytes_ = 0;
};

// A stream buffer that keeps everything and records where each flush happened, so that the
// same bytes can be replayed call by call.
class RecordingBuf : public std::streambuf {
 public:
  std::string text;
  std::vector<std::size_t> flush_points;

 protected:
  int_type overflow(int_type c) override {
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
      text.push_back(static_cast<char>(c));
    }
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(char const* s, std::streamsize n) override {
    text.append(s, static_cast<std::size_t>(n));
    return n;
  }
  int sync() override {
    if (flush_points.empty() || flush_points.back() != text.size()) {
      flush_points.push_back(text.size());
    }
    return 0;
  }
};

// Where the file sinks write.
inline std::string sink_path(char const* what) {
  char const* dir = std::getenv("TVX_BENCH_TMP");
  return std::string(dir != nullptr ? dir : "/tmp") + "/tvx_bench_" + what + ".out";
}

// Writes all of text to fd with as few write calls as the kernel allows.
inline void write_all(int fd, char const* p, std::size_t n) {
  while (n > 0) {
    ssize_t const w = ::write(fd, p, n);
    if (w <= 0) {
      std::abort();
    }
    p += w;
    n -= static_cast<std::size_t>(w);
  }
}

// Bytes the allocator has handed out and not taken back.
inline std::size_t heap_in_use() {
  return mallinfo2().uordblks;
}

}  // namespace bench
}  // namespace tvx

#endif  // TVX_BENCH_BENCH_COMMON_H
