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
#include <fstream>
#include <functional>
#include <ios>
#include <iterator>
#include <memory>
#include <new>
#include <random>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <thread>
#include <vector>

#include "core/configuration.h"
#include "core/term_manager.h"
#include "tracer/tracer_test_access.h"

extern "C" void* __real_malloc(std::size_t size);
extern "C" void __real_free(void* p);

namespace {

std::atomic<long> live{0};  // blocks handed out and not given back
std::size_t calls = 0;      // allocations since arming
std::size_t fail_at = 0;    // the allocation that fails; 0: none
bool fired = false;

void* allocate(std::size_t size) {
  if (fail_at != 0 && ++calls == fail_at) {
    fired = true;
    return nullptr;
  }
  void* p = __real_malloc(size == 0 ? 1 : size);
  live += p != nullptr ? 1 : 0;
  return p;
}

void release(void* p) {
  if (p != nullptr) {
    --live;
    __real_free(p);
  }
}

}  // namespace

extern "C" void* __wrap_malloc(std::size_t size) {
  return allocate(size);
}
extern "C" void __wrap_free(void* p) {
  release(p);
}
// The other standard forms of new and delete forward to these two.
void* operator new(std::size_t size) {
  if (void* p = allocate(size)) {
    return p;
  }
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
  release(p);
}
void operator delete(void* p, std::size_t) noexcept {
  release(p);
}

namespace tvx {
namespace {

// Keeps the trace in memory reserved up front, so that writing allocates nothing.
class FixedBuf : public std::streambuf {
 public:
  FixedBuf() : data_(new char[1 << 20]) { setp(data_.get(), data_.get() + (1 << 20)); }
  std::string text(std::size_t from) const { return std::string(pbase() + from, pptr()); }
  std::size_t size() const { return static_cast<std::size_t>(pptr() - pbase()); }

 private:
  std::unique_ptr<char[]> data_;
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

struct Session {
  explicit Session(bool global, bool dump = true) {
    DataType const* U = m.make_simple_type("U");
    DataType const* i = m.get_integer_type();
    Symbol const* f = m.make_symbol("f", m.get_function_type({U, U}, U));
    Symbol const* g = m.make_symbol("g", m.get_function_type({U}, U));
    Symbol const* p = m.make_symbol("p", m.get_function_type({U}, m.get_bool_type()));
    auto F = [&](Term const* l, Term const* r) { return m.make_term(f, {l, r}); };
    auto G = [&](Term const* u) { return m.make_term(g, {u}); };
    auto P = [&](Term const* u) { return m.make_term(p, {u}); };
    Term const* a = m.make_constant(m.make_symbol("a", U));
    Term const* b = m.make_constant(m.make_symbol("b", U));
    Term const* c = m.make_constant(m.make_symbol("c", U));
    Term const* big = b;  // many subterms that nothing has used yet
    for (int k = 0; k < 12; ++k) {
      big = F(big, G(big));
    }
    Term const* x = m.make_constant(m.make_symbol("x", i));
    big = m.make_and(P(big), m.make_builtin("<", {x, m.make_number("7", i)}));
    Term const *pgc = P(G(c)), *pab = P(F(a, b)), *pc = P(c), *pb = P(b), *pggb = P(G(G(b)));
    Term const* value = F(G(c), F(b, G(G(a))));
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
        {"CheckAllsat", false, false,
         [=] {
           tracer->trace_check_allsat({pab, big});
         }},
        {"CheckSatAssuming", false, true,
         [=] {
           tracer->trace_check_with_assumptions({TheoryLit(pc, false), TheoryLit(pb, true)});
         }},
        {"GetValue", false, false, [=] { tracer->trace_get_model_value(value); }},
        {"Pop", true, true, [this] { tracer->trace_pop_backtrack_point(); }},
        {"AssertAfterPop", false, true, [=] { tracer->trace_assert_formula(pggb); }},
        {"Reset", true, false, [this] { tracer->trace_reset_assertions(); }},
        {"Check", false, true, [this] { tracer->trace_check(); }},
    };
  }
  // The replayable calls, round after round, after the construction; `returned` runs after
  // every call.
  void rounds(int n, std::function<void()> const& returned) {
    calls[0].run();
    returned();
    for (int r = 0; r < n; ++r) {
      for (std::size_t i = 1; i < calls.size(); ++i) {
        if (calls[i].replayable) {
          calls[i].run();
          returned();
        }
      }
    }
  }

  TermManager m;
  Configuration config;
  FixedBuf buf;
  std::ostream out{&buf};
  std::unique_ptr<SmtLib2ApiTracer> tracer;
  std::vector<Call> calls;
};

using Access = SmtLib2ApiTracerTestAccess;

struct DeviceFailure : std::runtime_error {
  DeviceFailure() : std::runtime_error("device failure") {}
};

// Passes everything on to `to`, except that its n-th call (write or flush; 0: none) throws.
class ThrowingBuf : public std::streambuf {
 public:
  ThrowingBuf(std::streambuf* to, std::size_t n) : to_(to), fail_at_(n) {}
  bool fired = false;

 protected:
  int_type overflow(int_type ch) override { return count(), to_->sputc(static_cast<char>(ch)); }
  std::streamsize xsputn(char const* s, std::streamsize n) override {
    return count(), to_->sputn(s, n);
  }
  int sync() override { return count(), to_->pubsync(); }

 private:
  void count() {
    if (++calls_ == fail_at_) {
      fired = true;
      throw DeviceFailure();
    }
  }
  std::streambuf* to_;
  std::size_t fail_at_;
  std::size_t calls_ = 0;
};

// A fault-free run: text[i] is what call i writes (stamp left out), after[i] what the calls
// after it write, and without[i] what they write when call i is left out.
struct Reference {
  std::vector<std::string> text, after, without;
  explicit Reference(bool global) {
    for (std::size_t skip = 0; skip <= text.size(); ++skip) {
      Session s(global);
      std::vector<std::size_t> at;
      for (std::size_t i = 0; i < s.calls.size(); ++i) {
        at.push_back(s.buf.size());
        if (i != skip || skip == 0) {
          s.calls[i].run();
        }
      }
      at.push_back(s.buf.size());
      for (std::size_t i = 0; skip == 0 && i < s.calls.size(); ++i) {
        text.push_back(without_stamp(s.buf.text(at[i]).substr(0, at[i + 1] - at[i])));
        after.push_back(s.buf.text(at[i + 1]));
        without.emplace_back();
      }
      if (skip > 0 && skip < without.size()) {
        without[skip] = s.buf.text(at[skip + 1]);
      }
    }
  }
};

class FaultTest : public ::testing::TestWithParam<bool> {
 protected:
  static ::testing::TestResult const* result() {
    return ::testing::UnitTest::GetInstance()->current_test_info()->result();
  }
};

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
      int const failures = result()->total_part_count();  // the first fault found ends the loop
      for (bool completed = false; !completed && result()->total_part_count() == failures;) {
        SCOPED_TRACE(std::to_string(i) + (alloc ? ": allocation " : ": stream call ") +
                     std::to_string(++k));
        long const before = live;
        {
          Session s(global);
          for (std::size_t j = 0; j < i; ++j) {
            s.calls[j].run();
          }
          Call const& call = s.calls[i];
          std::size_t const from = s.buf.size();
          ThrowingBuf bad(&s.buf, alloc ? 0 : k);
          s.out.rdbuf(&bad);
          s.out.exceptions(std::ios::badbit);
          bool threw = false;
          calls = 0;
          fired = false;
          fail_at = alloc ? k : 0;
          try {
            call.run();
          } catch (std::bad_alloc const&) {
            threw = alloc;
          } catch (DeviceFailure const&) {
            threw = !alloc;
          }
          fail_at = 0;
          s.out.exceptions(std::ios::goodbit);
          s.out.rdbuf(&s.buf);
          completed = !fired && !bad.fired;
          ASSERT_EQ(!completed, threw);
          std::string const text = s.buf.text(from);
          EXPECT_TRUE(!completed || without_stamp(text) == ref.text[i]) << text;
          if (s.tracer == nullptr) {
            call.run();
          } else if (!completed) {
            EXPECT_EQ("", Access::record_fault(*s.tracer));
            EXPECT_TRUE(!alloc || text.empty() || text.back() == '\n') << "a partial command";
            if (!call.atomic) {
              call.run();
              EXPECT_TRUE(!alloc || s.buf.text(from) == ref.text[i]) << s.buf.text(from);
            }
          }
          bool const skipped = call.atomic && !completed;
          std::size_t const rest = s.buf.size();
          for (std::size_t j = i + 1; j < s.calls.size(); ++j) {
            s.calls[j].run();
          }
          EXPECT_EQ(skipped ? ref.without[i] : ref.after[i], s.buf.text(rest));
        }
        if (result()->total_part_count() == failures) {  // else gtest's own messages count
          EXPECT_EQ(before, live) << "allocations leaked";
        }
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
        std::size_t const from = s.buf.size();
        s.out.setstate(j == i ? state : std::ios::goodbit);
        ASSERT_NO_THROW(s.calls[j].run());
        EXPECT_TRUE(j != i || from == s.buf.size()) << s.calls[i].name;
        s.out.clear();
      }
      EXPECT_EQ("", Access::record_fault(*s.tracer));
      EXPECT_EQ(ref.after[i], s.buf.text(s.buf.size() - ref.after[i].size())) << s.calls[i].name;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Modes, FaultTest, ::testing::Bool(),
                         [](::testing::TestParamInfo<bool> const& info) {
                           return info.param ? "Global" : "Scoped";
                         });

// The text of `rounds` rounds of the session's replayable calls, without the stamp line.
std::string session_text(bool global, int rounds) {
  std::ostringstream out;
  Session s(global, false);
  s.out.rdbuf(out.rdbuf());
  s.rounds(rounds, [] {});
  return without_stamp(out.str());
}

class CrashSafetyTest : public ::testing::TestWithParam<bool> {};

// The writer reports the file's length after every call that has returned; a kill must leave
// at least that much, an exact prefix of the trace that ends at a call boundary and that a
// solver reads without error.
TEST_P(CrashSafetyTest, KilledWriterLeavesEveryReturnedCallComplete) {
  constexpr int kRounds = 400;
  constexpr int kKills = 10;
  bool const global = GetParam();
  std::ostringstream whole;
  std::vector<std::size_t> boundaries;
  Session reference(global, false);
  reference.out.rdbuf(whole.rdbuf());
  auto const begin = std::chrono::steady_clock::now();
  reference.rounds(kRounds, [&] { boundaries.push_back(static_cast<std::size_t>(whole.tellp())); });
  long long const span = std::chrono::duration_cast<std::chrono::microseconds>(
                             std::chrono::steady_clock::now() - begin)
                             .count();
  std::string const expected = without_stamp(whole.str());
  std::size_t const stamp = whole.str().size() - expected.size();
  std::string const file = TVX_BINARY_DIR "/tests/robustness/crash_" +
                           std::string(global ? "global" : "scoped") + ".smt2";
  unsigned const seed = std::random_device{}();
  std::mt19937 rng(seed);
  std::uniform_int_distribution<long long> when(0, 2 * span);
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
    if (access("/usr/bin/z3", X_OK) == 0) {
      std::ofstream(file + ".prefix.smt2", std::ios::binary | std::ios::trunc)
          << text.substr(0, end);
      std::string answer;
      if (FILE* z3 =
              popen(("/usr/bin/z3 -smt2 -T:60 " + file + ".prefix.smt2 2>&1").c_str(), "r")) {
        char chunk[4096];
        for (std::size_t got; (got = std::fread(chunk, 1, sizeof chunk, z3)) > 0;) {
          answer.append(chunk, got);
        }
        pclose(z3);
      }
      EXPECT_EQ(std::string::npos, answer.find("(error")) << answer.substr(0, 400);
    }
  }
  std::printf("[ crash    ] %s: %d of %d kill points landed before the end, all survived\n",
              global ? "global" : "scoped", midway, kKills);
  std::remove(file.c_str());
  std::remove((file + ".prefix.smt2").c_str());
}

INSTANTIATE_TEST_SUITE_P(Modes, CrashSafetyTest, ::testing::Bool(),
                         [](::testing::TestParamInfo<bool> const& info) {
                           return info.param ? "Global" : "Scoped";
                         });

// Under ThreadSanitizer this finds state that sessions share behind the caller's back; in
// every build each thread's trace must equal the one the same session writes alone.
TEST(ThreadIsolationTest, TwoSessionsOnTwoThreadsWriteWhatEachWritesAlone) {
  std::string const alone[] = {session_text(false, 300), session_text(true, 300)};
  for (bool mixed : {false, true}) {
    std::string first;
    std::string second;
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
