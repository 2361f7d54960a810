// Stream faults: a trace stream in a failed or bad state, and a stream buffer that throws from
// overflow, xsputn or sync on its n-th call (n = 1, 2, ... until the operation completes) while
// the stream rethrows (exceptions(badbit)). The tracer must not crash, must keep its record
// sound, and once the stream is good again the calls that follow write exactly what they write
// after a fault-free run.
#include <gtest/gtest.h>

#include <cstddef>
#include <ios>
#include <set>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <tuple>
#include <vector>

#include "scenarios.h"
#include "trace_session.h"
#include "tracer/tracer_test_access.h"

namespace tvx {
namespace test {
namespace {

using Access = SmtLib2ApiTracerTestAccess;

struct DeviceFailure : std::runtime_error {
  DeviceFailure() : std::runtime_error("device failure") {}
};

// Which calls of the stream buffer fail.
enum class Fault { kWrite, kSync };

// Unbuffered: every character reaches overflow or xsputn. The n-th call of the faulting kind
// throws; every call before it succeeds.
class ThrowingBuf : public std::streambuf {
 public:
  ThrowingBuf(Fault fault, std::size_t n) : fault_(fault), fail_at_(n) {}
  bool fired() const { return fired_; }

 protected:
  int_type overflow(int_type ch) override {
    write_call();
    return traits_type::not_eof(ch);
  }
  std::streamsize xsputn(char const*, std::streamsize n) override {
    write_call();
    return n;
  }
  int sync() override {
    if (fault_ == Fault::kSync) {
      count();
    }
    return 0;
  }

 private:
  void write_call() {
    if (fault_ == Fault::kWrite) {
      count();
    }
  }
  void count() {
    if (++calls_ == fail_at_) {
      fired_ = true;
      throw DeviceFailure();
    }
  }

  Fault fault_;
  std::size_t fail_at_;
  std::size_t calls_ = 0;
  bool fired_ = false;
};

// The record's own invariants: marks clear, stacks in step with the declared sets.
void expect_record_sound(TraceSession& s, std::string const& where) {
  SmtLib2ApiTracer const& t = *s.tracer;
  EXPECT_FALSE(Access::any_visit_mark(t)) << where;
  auto const& sym_stack = Access::symbol_decl_stack(t);
  auto const& type_stack = Access::type_decl_stack(t);
  if (s.global) {
    EXPECT_TRUE(sym_stack.empty() && type_stack.empty()) << where;
    return;
  }
  std::multiset<Symbol const*> syms;
  std::multiset<DataType const*> types;
  std::size_t sym_markers = 0;
  std::size_t type_markers = 0;
  for (Symbol const* e : sym_stack) {
    if (e == nullptr) {
      ++sym_markers;
    } else {
      syms.insert(e);
    }
  }
  for (DataType const* e : type_stack) {
    if (e == nullptr) {
      ++type_markers;
    } else {
      types.insert(e);
    }
  }
  auto const declared_symbols = Access::declared_symbols(t);
  auto const declared_types = Access::declared_types(t);
  EXPECT_EQ(std::multiset<Symbol const*>(declared_symbols.begin(), declared_symbols.end()), syms)
      << where;
  EXPECT_EQ(std::multiset<DataType const*>(declared_types.begin(), declared_types.end()), types)
      << where;
  EXPECT_EQ(sym_markers, type_markers) << where;
}

// What the probe writes after history, operation and a fault-free stream.
std::string probe_after(Scenario const& sc, bool global) {
  TraceSession s(global);
  sc.setup(s);
  sc.op(s);
  std::size_t const from = s.buf.size();
  probe(s);
  return s.buf.text().substr(from);
}

class StreamFaultTest : public ::testing::TestWithParam<std::tuple<int, bool>> {
 protected:
  Scenario const& scenario() const {
    return scenarios()[static_cast<std::size_t>(std::get<0>(GetParam()))];
  }
  bool global() const { return std::get<1>(GetParam()); }
};

// With the stream bad or failed the operation's text is lost and nothing else changes.
TEST_P(StreamFaultTest, FailedStateLosesTextAndNothingElse) {
  Scenario const& sc = scenario();
  std::string const expected = probe_after(sc, global());
  for (std::ios::iostate state : {std::ios::badbit, std::ios::failbit}) {
    TraceSession s(global());
    sc.setup(s);
    std::size_t const before = s.buf.size();
    s.out.setstate(state);
    ASSERT_NO_THROW(sc.op(s));
    EXPECT_EQ(before, s.buf.size()) << "a stream in a failed state received text";
    s.out.clear();
    ASSERT_NE(nullptr, s.tracer);
    expect_record_sound(s, sc.name);
    std::size_t const from = s.buf.size();
    probe(s);
    EXPECT_EQ(expected, s.buf.text().substr(from)) << (state == std::ios::badbit ? "bad" : "fail");
    expect_record_sound(s, std::string(sc.name) + " after the probe");
  }
}

// The stream throws at every write (or flush) of the operation in turn; the exception reaches
// the caller unchanged, and after a retry on a good stream the later calls write what they
// write after a fault-free run.
TEST_P(StreamFaultTest, ThrowingStreamAtEveryCall) {
  Scenario const& sc = scenario();
  std::string const expected = probe_after(sc, global());
  for (Fault fault : {Fault::kWrite, Fault::kSync}) {
    std::string const kind = fault == Fault::kWrite ? "write" : "sync";
    bool completed = false;
    std::size_t faults = 0;
    for (std::size_t n = 1; n < 100000 && !completed; ++n) {
      std::string const where = std::string(sc.name) + " " + kind + " n=" + std::to_string(n);
      TraceSession s(global());
      sc.setup(s);
      ThrowingBuf bad(fault, n);
      std::streambuf* const good = s.out.rdbuf(&bad);
      s.out.exceptions(std::ios::badbit);
      bool threw = false;
      try {
        sc.op(s);
      } catch (DeviceFailure const&) {
        threw = true;
      }
      s.out.exceptions(std::ios::goodbit);
      s.out.rdbuf(good);  // also clears the state
      EXPECT_EQ(bad.fired(), threw) << where << ": the stream's exception did not reach the caller";
      if (!bad.fired()) {
        completed = true;
      } else {
        ++faults;
        if (s.tracer == nullptr) {
          s.start(sc.constructs);
        } else {
          expect_record_sound(s, where);
          if (!sc.atomic) {
            sc.op(s);
          }
        }
      }
      if (!sc.atomic || !threw) {
        std::size_t const from = s.buf.size();
        probe(s);
        EXPECT_EQ(expected, s.buf.text().substr(from)) << where;
      }
      expect_record_sound(s, where + " after the probe");
      if (HasFailure()) {
        return;
      }
    }
    EXPECT_TRUE(completed) << kind;
    RecordProperty(kind + "_faults", static_cast<int>(faults));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Operations, StreamFaultTest,
    ::testing::Combine(::testing::Range(0, static_cast<int>(scenarios().size())),
                       ::testing::Bool()),
    [](::testing::TestParamInfo<std::tuple<int, bool>> const& info) {
      return std::string(scenarios()[static_cast<std::size_t>(std::get<0>(info.param))].name) +
             (std::get<1>(info.param) ? "Global" : "Scoped");
    });

}  // namespace
}  // namespace test
}  // namespace tvx
