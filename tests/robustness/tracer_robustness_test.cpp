// Robustness of the tracer over a whole traced session. Faults injected into every call: the
// k-th allocation fails (operator new, and malloc through -Wl,--wrap), or the trace stream is
// in a failed state or throws at its k-th call; after each fault nothing leaks, the record is
// sound, and the same tracer goes on to write exactly what a fault-free run writes. A writer
// killed with SIGKILL at random moments leaves every returned call complete. Two sessions on
// two threads write what each writes alone.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <ios>
#include <iterator>
#include <memory>
#include <new>
#include <random>
#include <streambuf>
#include <string>
#include <thread>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include "tracer/tracer_test_access.h"

extern "C" void* __real_malloc(std::size_t size);
extern "C" void __real_free(void* p);

namespace {

std::atomic<long> live{0};  // blocks handed out and not given back
// While armed (fail_at != 0), the fail_at-th allocation fails.
struct {
  std::size_t calls, fail_at;
  bool fired;
} faults{};

}  // namespace

extern "C" void* __wrap_malloc(std::size_t size) {
  if (faults.fail_at != 0 && ++faults.calls == faults.fail_at) {
    faults.fired = true;
    return nullptr;
  }
  void* p = __real_malloc(size == 0 ? 1 : size);
  live += p != nullptr ? 1 : 0;
  return p;
}
extern "C" void __wrap_free(void* p) {
  if (p != nullptr) {
    --live;
    __real_free(p);
  }
}
// The other standard forms of new and delete forward to these two.
void* operator new(std::size_t size) {
  void* p = __wrap_malloc(size);
  return p != nullptr ? p : throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
  __wrap_free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  __wrap_free(p);
}

namespace tvx {
namespace {

struct DeviceFailure {};

// Keeps the trace in a string reserved up front, so that writing allocates nothing. Every write
// and flush reaches it, and the n-th one after arming throws (fail_write 0: none).
class Buf : public std::streambuf {
 public:
  Buf() { text.reserve(1 << 20); }
  std::string text;
  std::size_t writes = 0, fail_write = 0;
  bool failed = false;

 protected:
  int_type overflow(int_type ch) override {
    return count(), text.push_back(static_cast<char>(ch)), ch;
  }
  std::streamsize xsputn(char const* s, std::streamsize n) override {
    return count(), text.append(s, static_cast<std::size_t>(n)), n;
  }
  int sync() override { return count(), 0; }

 private:
  void count() {
    if (fail_write != 0 && ++writes == fail_write) {
      failed = true;
      throw DeviceFailure();
    }
  }
};

std::string without_stamp(std::string const& text) {
  std::size_t const at = text.find(";; generated on ");
  return at == std::string::npos ? text : text.substr(0, at) + text.substr(text.find('\n', at) + 1);
}

struct Call {
  char const* name;
  bool atomic;      // push, pop, reset: the record changes after the command is written
  bool replayable;  // a solver accepts it in any state, any number of times
  std::function<void()> run;
};

// One traced session over a few uninterpreted functions; its first call constructs the tracer.
struct Session {
  explicit Session(bool global, bool dump = true) {
    DataType const* U = m.make_simple_type("U");
    auto fun = [&](char const* n, std::vector<DataType const*> const& args, DataType const* r) {
      Symbol const* s = m.make_symbol(n, m.get_function_type(args, r));
      return [this, s](std::vector<Term const*> const& xs) { return m.make_term(s, xs); };
    };
    auto F = fun("f", {U, U}, U), G = fun("g", {U}, U), P = fun("p", {U}, m.get_bool_type());
    auto K = [&](char const* n, DataType const* t) { return m.make_constant(m.make_symbol(n, t)); };
    Term const *a = K("a", U), *b = K("b", U), *c = K("c", U), *big = b;
    for (int k = 0; k < 12; ++k) {  // many subterms that nothing has used yet
      big = F({big, G({big})});
    }
    DataType const* i = m.get_integer_type();
    big = m.make_and(P({big}), m.make_builtin("<", {K("x", i), m.make_number("7", i)}));
    Term const *pgc = P({G({c})}), *pab = P({F({a, b})}), *pggb = P({G({G({b})})});
    std::vector<TheoryLit> const lits = {TheoryLit(P({c}), false), TheoryLit(P({b}), true)};
    std::vector<Term const*> const allsat = {pab, big};
    Term const* value = F({G({c}), F({b, G({G({a})})})});
    calls = {
        {"Construct", false, true,
         [=] { tracer = std::make_unique<SmtLib2ApiTracer>(&config, &m, out, global, dump); }},
        {"TypeDeclaration", false, true, [=] { tracer->trace_type_declaration(U); }},
        {"SymbolDeclaration", false, true,
         [=] { tracer->trace_symbol_declaration(a->get_symbol()); }},
        {"AssertManyNewSubterms", false, false, [=] { tracer->trace_assert_formula(big); }},
        {"Push", true, true, [this] { tracer->trace_push_backtrack_point(); }},
        {"SetGroup", false, false, [this] { tracer->trace_set_interpolation_group(1); }},
        {"AssertInGroup", false, false, [=] { tracer->trace_assert_formula(pgc); }},
        {"CheckAllsat", false, false, [=] { tracer->trace_check_allsat(allsat); }},
        {"CheckSatAssuming", false, true, [=] { tracer->trace_check_with_assumptions(lits); }},
        {"GetValue", false, false, [=] { tracer->trace_get_model_value(value); }},
        {"Pop", true, true, [this] { tracer->trace_pop_backtrack_point(); }},
        {"AssertAfterPop", false, true, [=] { tracer->trace_assert_formula(pggb); }},
        {"Reset", true, false, [this] { tracer->trace_reset_assertions(); }},
        {"Check", false, true, [this] { tracer->trace_check(); }},
    };
  }
  // Runs the calls from `first` up to `last` but `skip`; returns the trace's length before each
  // call and at the end.
  std::vector<std::size_t> run(std::size_t first, std::size_t last, std::size_t skip = -1) {
    std::vector<std::size_t> at{buf.text.size()};
    for (std::size_t i = first; i < last; at.push_back(buf.text.size()), ++i) {
      if (i != skip) {
        calls[i].run();
      }
    }
    return at;
  }
  // The replayable calls, round after round, after the construction; `returned` runs after
  // every call.
  void rounds(int n, std::function<void()> const& returned) {
    for (int r = 0; r < n; ++r) {
      for (std::size_t i = r == 0 ? 0 : 1; i < calls.size(); ++i) {
        if (calls[i].replayable) {
          calls[i].run();
          returned();
        }
      }
    }
  }

  TermManager m;
  Configuration config;
  Buf buf;
  std::ostream out{&buf};
  std::unique_ptr<SmtLib2ApiTracer> tracer;
  std::vector<Call> calls;
};

using Access = SmtLib2ApiTracerTestAccess;

// A fault-free run: text[i] is what call i writes (stamp left out), after[i] what the calls
// after it write, and without[i] what they write when the atomic call i is left out.
struct Reference {
  std::vector<std::string> text, after, without;
  explicit Reference(bool global) {
    Session s(global);
    std::vector<std::size_t> const at = s.run(0, s.calls.size());
    for (std::size_t i = 0; i < s.calls.size(); ++i) {
      text.push_back(without_stamp(s.buf.text.substr(at[i], at[i + 1] - at[i])));
      after.push_back(s.buf.text.substr(at[i + 1]));
      Session t(global);
      without.push_back(s.calls[i].atomic ? t.buf.text.substr(t.run(0, s.calls.size(), i)[i + 1])
                                          : "");
    }
  }
};

std::string mode_name(::testing::TestParamInfo<bool> const& info) {
  return info.param ? "Global" : "Scoped";
}

class FaultTest : public ::testing::TestWithParam<bool> {};

// The k-th allocation, or the k-th call of the stream, fails, for k = 1, 2, ... until the
// call completes. The fault reaches the caller, nothing leaks, the record stays sound, and
// after a retry the later calls write what they write in a fault-free run. A failed
// allocation also leaves no partial command, and the retry completes the call's text.
TEST_P(FaultTest, FaultAtEveryPointOfEveryCall) {
  bool const global = GetParam();
  Reference const ref(global);
  for (std::size_t i = 0; i < ref.text.size(); ++i) {
    for (bool alloc : {true, false}) {
      std::size_t k = 0;
      // The first fault found ends the loop; gtest's own messages would count as leaks.
      for (bool completed = false; !completed && !HasFailure();) {
        SCOPED_TRACE(std::to_string(i) + (alloc ? ": alloc " : ": stream ") + std::to_string(++k));
        long const before = live;
        {
          Session s(global);
          s.run(0, i);
          Call const& call = s.calls[i];
          std::size_t const from = s.buf.text.size();
          s.out.exceptions(std::ios::badbit);
          bool threw = false;
          faults = {0, alloc ? k : 0, false};
          s.buf.fail_write = alloc ? 0 : k;
          try {
            call.run();
          } catch (std::bad_alloc const&) {
            threw = alloc;
          } catch (DeviceFailure const&) {
            threw = !alloc;
          }
          faults.fail_at = s.buf.fail_write = 0;
          s.out.exceptions(std::ios::goodbit);
          s.out.clear();
          completed = !faults.fired && !s.buf.failed;
          ASSERT_EQ(!completed, threw);
          std::string const text = s.buf.text.substr(from);
          EXPECT_TRUE(!completed || without_stamp(text) == ref.text[i]) << text;
          if (s.tracer == nullptr) {
            call.run();
          } else if (!completed) {
            EXPECT_EQ("", Access::record_fault(*s.tracer));
            EXPECT_TRUE(!alloc || text.empty() || text.back() == '\n') << "a partial command";
            if (!call.atomic) {
              call.run();
              EXPECT_TRUE(!alloc || s.buf.text.substr(from) == ref.text[i]) << s.buf.text;
            }
          }
          std::size_t const rest = s.run(i + 1, s.calls.size()).front();
          EXPECT_EQ(call.atomic && !completed ? ref.without[i] : ref.after[i],
                    s.buf.text.substr(rest));
        }
        EXPECT_TRUE(HasFailure() || before == live) << live - before << " allocations leaked";
      }
      std::printf("[ %-8s ] %s %s: %zu %s failure points survived\n", alloc ? "alloc" : "stream",
                  global ? "global" : "scoped", Session(global).calls[i].name, k - 1,
                  alloc ? "allocation" : "stream");
    }
  }
}

// A failed or bad stream loses the call's text and nothing else.
TEST_P(FaultTest, FailedStreamLosesTheTextOnly) {
  Reference const ref(GetParam());
  for (std::size_t i = 0; i < ref.text.size(); ++i) {
    for (std::ios::iostate state : {std::ios::badbit, std::ios::failbit}) {
      Session s(GetParam());
      for (std::size_t j = 0; j < s.calls.size(); ++j) {
        std::size_t const from = s.buf.text.size();
        s.out.setstate(j == i ? state : std::ios::goodbit);
        ASSERT_NO_THROW(s.calls[j].run());
        EXPECT_TRUE(j != i || from == s.buf.text.size()) << s.calls[i].name;
        s.out.clear();
      }
      EXPECT_EQ("", Access::record_fault(*s.tracer));
      EXPECT_EQ(ref.after[i], s.buf.text.substr(s.buf.text.size() - ref.after[i].size()))
          << s.calls[i].name;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Modes, FaultTest, ::testing::Bool(), mode_name);

// The text of `rounds` rounds of the session's replayable calls, without the stamp line.
std::string session_text(bool global, int rounds) {
  Session s(global, false);
  s.rounds(rounds, [] {});
  return without_stamp(s.buf.text);
}

class CrashSafetyTest : public ::testing::TestWithParam<bool> {};

// The writer reports the file's length after every call that has returned; a kill must leave
// at least that much, an exact prefix of the trace that ends at a call boundary and that a
// solver reads without error.
TEST_P(CrashSafetyTest, KilledWriterLeavesEveryReturnedCallComplete) {
  constexpr int kRounds = 400;
  constexpr int kKills = 10;
  bool const global = GetParam();
  std::vector<std::size_t> boundaries;
  Session reference(global, false);
  auto const begin = std::chrono::steady_clock::now();
  reference.rounds(kRounds, [&] { boundaries.push_back(reference.buf.text.size()); });
  auto const span = std::chrono::steady_clock::now() - begin;
  std::string const expected = without_stamp(reference.buf.text);
  std::size_t const stamp = reference.buf.text.size() - expected.size();
  std::string const file = TVX_BINARY_DIR "/tests/robustness/crash_" +
                           std::string(global ? "global" : "scoped") + ".smt2";
  unsigned const seed = std::random_device{}();
  std::mt19937 rng(seed);
  std::uniform_int_distribution<long long> when(
      0, 2 * std::chrono::duration_cast<std::chrono::microseconds>(span).count());
  int midway = 0;
  for (int i = 0; i < kKills; ++i) {
    SCOPED_TRACE("seed " + std::to_string(seed) + ", kill " + std::to_string(i));
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    pid_t const pid = fork();
    if (pid == 0) {
      close(fds[0]);
      std::ofstream out(file, std::ios::binary | std::ios::trunc);
      Session writer(global, false);
      writer.out.rdbuf(out.rdbuf());
      writer.rounds(kRounds, [&] {
        struct stat st {};
        long long const size = stat(file.c_str(), &st) == 0 ? st.st_size : -1;
        if (write(fds[1], &size, sizeof size) != sizeof size) {
          _exit(3);
        }
      });
      _exit(0);
    }
    close(fds[1]);
    std::this_thread::sleep_for(std::chrono::microseconds(when(rng)));
    kill(pid, SIGKILL);
    std::vector<long long> reported;
    for (long long size = 0; read(fds[0], &size, sizeof size) == sizeof size;) {
      reported.push_back(size);
    }
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    midway += WIFSIGNALED(status) && reported.size() < boundaries.size() ? 1 : 0;
    std::ifstream in(file, std::ios::binary);
    std::string const text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    std::string const stripped = without_stamp(text);
    ASSERT_EQ(expected.substr(0, stripped.size()), stripped) << "no prefix of the trace";
    if (reported.empty()) {
      continue;  // killed before the header was complete
    }
    ASSERT_GE(static_cast<long long>(text.size()), reported.back()) << "returned text is lost";
    std::size_t const end = static_cast<std::size_t>(reported.back());
    EXPECT_TRUE(std::binary_search(boundaries.begin(), boundaries.end(),
                                   end - (text.size() - stripped.size()) + stamp));
    std::ofstream(file, std::ios::binary) << text.substr(0, end);
    std::string const z3 = "z3 -smt2 -T:60 " + file + " 2>&1 | grep -q '(error'";
    EXPECT_NE(0, std::system(z3.c_str())) << "z3 refuses the prefix";
  }
  std::printf("[ crash    ] %s: %d of %d kill points landed before the end, all survived\n",
              global ? "global" : "scoped", midway, kKills);
  std::remove(file.c_str());
}

INSTANTIATE_TEST_SUITE_P(Modes, CrashSafetyTest, ::testing::Bool(), mode_name);

// Under ThreadSanitizer this finds state that sessions share behind the caller's back; in
// every build each thread's trace must equal the one the same session writes alone.
TEST(ThreadIsolationTest, TwoSessionsOnTwoThreadsWriteWhatEachWritesAlone) {
  std::string const alone[] = {session_text(false, 300), session_text(true, 300)};
  for (bool mixed : {false, true}) {
    std::string first, second;
    std::thread one([&] { first = session_text(false, 300); });
    std::thread two([&] { second = session_text(mixed, 300); });
    one.join();
    two.join();
    EXPECT_EQ(alone[0], first);
    EXPECT_EQ(alone[mixed ? 1 : 0], second);
  }
}

}  // namespace
}  // namespace tvx
