// Input nested a million levels deep into the reader: formulas nested through their first and
// their last argument, a sort, a macro body, an attribute value, and errors found at the bottom
// of the nesting or at the end of input. Nothing may overflow the call stack; what is read is
// traced in both modes, and the trace reads back to a term of the same depth.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <streambuf>
#include <string>
#include <tuple>
#include <vector>

#include "core/configuration.h"
#include "core/term_manager.h"
#include "smt2/read_error.h"
#include "smt2/script_reader.h"
#include "tracer/api_tracer.h"
#include "tracer/smtlib2_api_tracer.h"

namespace tvx {
namespace {

constexpr std::size_t kDepth = 1000000;

std::string repeat(std::string const& s, std::size_t n) {
  std::string out;
  out.reserve(s.size() * n);
  for (std::size_t i = 0; i < n; ++i) {
    out += s;
  }
  return out;
}

// The longest chain of arguments below t along which every term has the symbol of t.
std::size_t depth_of(Term const* t) {
  std::size_t depth = 0;
  Symbol const* s = t->get_symbol();
  while (t->get_arity() > 0) {
    Term const* next = nullptr;
    for (std::size_t i = 0; i < t->get_arity(); ++i) {
      if (t->get_arg(i)->get_symbol() == s) {
        next = t->get_arg(i);
      }
    }
    if (next == nullptr) {
      break;
    }
    t = next;
    ++depth;
  }
  return depth;
}

// Keeps the depth of each asserted formula and passes every call on to a real tracer.
class DepthTracer : public ApiTracer {
 public:
  explicit DepthTracer(ApiTracer& next) : next_(next) {}
  std::vector<std::size_t> depths;

  void trace_type_declaration(DataType const* type) override { next_.trace_type_declaration(type); }
  void trace_symbol_declaration(Symbol const* sym) override { next_.trace_symbol_declaration(sym); }
  void trace_push_backtrack_point() override { next_.trace_push_backtrack_point(); }
  void trace_pop_backtrack_point() override { next_.trace_pop_backtrack_point(); }
  void trace_assert_formula(Term const* t) override {
    depths.push_back(depth_of(t));
    next_.trace_assert_formula(t);
  }
  void trace_check() override { next_.trace_check(); }
  void trace_check_allsat(std::vector<Term const*> const& terms) override {
    next_.trace_check_allsat(terms);
  }
  void trace_check_with_assumptions(std::vector<TheoryLit> const& assumptions) override {
    next_.trace_check_with_assumptions(assumptions);
  }
  void trace_reset_assertions() override { next_.trace_reset_assertions(); }
  void trace_new_interpolation_group() override { next_.trace_new_interpolation_group(); }
  void trace_set_interpolation_group(int group) override {
    next_.trace_set_interpolation_group(group);
  }
  void trace_get_interpolant(std::vector<int> const& groups) override {
    next_.trace_get_interpolant(groups);
  }
  void trace_get_unsat_core() override { next_.trace_get_unsat_core(); }
  void trace_get_unsat_assumptions() override { next_.trace_get_unsat_assumptions(); }
  void trace_get_model() override { next_.trace_get_model(); }
  void trace_get_model_value(Term const* t) override { next_.trace_get_model_value(t); }

 private:
  ApiTracer& next_;
};

// Reads `script` through a tracer in the given mode; returns the trace and the depths of the
// asserted formulas.
std::string trace_of(std::string const& script, bool global, std::vector<std::size_t>* depths) {
  TermManager mgr;
  Configuration config;
  std::ostringstream out;
  SmtLib2ApiTracer tracer(&config, &mgr, out, global, false);
  DepthTracer depth_tracer(tracer);
  smt2::ScriptReader reader(mgr, config, depth_tracer);
  std::istringstream in(script);
  reader.read(in, "deep.smt2");
  *depths = depth_tracer.depths;
  return out.str();
}

// The script, each formula of the expected depth, read in both modes; each trace read back
// again gives the same depths.
struct DeepCase {
  char const* name;
  std::string (*script)();
  std::size_t depth;  // of each assertion
  std::size_t assertions;
};

std::string nested_not() {
  return "(assert " + repeat("(not ", kDepth) + "true" + std::string(kDepth, ')') + ")";
}
std::string and_through_last_argument() {
  return "(declare-const p Bool)(declare-const q Bool)(assert " + repeat("(and p ", kDepth) + "q" +
         std::string(kDepth, ')') + ")";
}
std::string and_through_first_argument() {
  return "(declare-const p Bool)(declare-const q Bool)(assert " + repeat("(and ", kDepth) + "q p" +
         repeat(") p", kDepth - 1) + "))";
}
std::string deep_macro_used_twice() {
  return "(declare-const x Int)(define-fun m () Int " + repeat("(+ 1 ", kDepth) + "x" +
         std::string(kDepth, ')') + ")(assert (> m (- m 1)))(assert (= m m))";
}
std::string deep_sort() {
  return "(declare-const a " + repeat("(Array Int ", kDepth) + "Bool" + std::string(kDepth, ')') +
         ")(assert (= a a))";
}

DeepCase const kCases[] = {
    {"NestedNot", nested_not, kDepth - 1, 1},
    {"AndThroughLastArgument", and_through_last_argument, kDepth - 1, 1},
    {"AndThroughFirstArgument", and_through_first_argument, kDepth - 1, 1},
    {"MacroBodyUsedTwice", deep_macro_used_twice, 0, 2},
};

class ReaderDeepTest : public ::testing::TestWithParam<std::tuple<std::size_t, bool>> {};

TEST_P(ReaderDeepTest, ReadTracedAndReadBack) {
  DeepCase const& c = kCases[std::get<0>(GetParam())];
  bool const global = std::get<1>(GetParam());
  std::vector<std::size_t> depths;
  std::string trace;
  try {
    trace = trace_of(c.script(), global, &depths);
  } catch (smt2::ReadError const& e) {
    FAIL() << std::string(e.what()).substr(0, 300);
  }
  ASSERT_EQ(c.assertions, depths.size());
  if (c.depth > 0) {
    EXPECT_EQ(c.depth, depths[0]);
  }
  std::vector<std::size_t> again;
  try {
    trace_of(trace, false, &again);
  } catch (smt2::ReadError const& e) {
    FAIL() << "the trace does not read back: " << std::string(e.what()).substr(0, 300);
  }
  if (global) {
    // Each assertion names a define-fun; the reader expands it to the same term.
    ASSERT_EQ(depths.size(), again.size());
  }
  EXPECT_EQ(depths, again);
}

INSTANTIATE_TEST_SUITE_P(Inputs, ReaderDeepTest,
                         ::testing::Combine(::testing::Range<std::size_t>(0, sizeof(kCases) /
                                                                                 sizeof(kCases[0])),
                                            ::testing::Bool()),
                         [](::testing::TestParamInfo<std::tuple<std::size_t, bool>> const& info) {
                           return std::string(kCases[std::get<0>(info.param)].name) +
                                  (std::get<1>(info.param) ? "Global" : "Scoped");
                         });

// Errors found a million levels down, or at the end of input below a million open levels,
// are reported at their position and leave nothing on the call stack.
TEST(ReaderDeepErrorTest, ErrorsBelowAMillionLevels) {
  struct Case {
    std::string script;
    std::uint64_t column;
    char const* message;
  };
  std::uint64_t const bottom = 8 + 5 * kDepth + 1;  // after "(assert " and the "(not "s
  Case const cases[] = {
      // An ill-sorted application is reported at its operator, the innermost "not".
      {"(assert " + repeat("(not ", kDepth) + "5" + std::string(kDepth + 1, ')'), bottom - 4,
       "Int"},
      {"(assert " + repeat("(not ", kDepth) + "true", bottom + 4, "end of input"},
      {"(assert " + repeat("(not ", kDepth) + "true" + std::string(kDepth, ')') + " true)",
       bottom + 4 + kDepth + 1, ""},
      {"(set-info :deep " + std::string(kDepth, '('), 17 + kDepth, "end of input"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.message);
    TermManager mgr;
    Configuration config;
    std::ostringstream out;
    SmtLib2ApiTracer tracer(&config, &mgr, out, false, false);
    smt2::ScriptReader reader(mgr, config, tracer);
    std::istringstream in(c.script);
    try {
      reader.read(in, "deep.smt2");
      ADD_FAILURE() << "no error";
    } catch (smt2::ReadError const& e) {
      EXPECT_EQ(1u, e.line());
      EXPECT_EQ(c.column, e.column()) << std::string(e.what()).substr(0, 300);
      EXPECT_NE(std::string::npos, e.message().find(c.message)) << e.message().substr(0, 300);
    }
  }
}

// An attribute value a million levels deep is skipped without recursion.
TEST(ReaderDeepErrorTest, DeepAttributeValueIsSkipped) {
  TermManager mgr;
  Configuration config;
  std::ostringstream out;
  SmtLib2ApiTracer tracer(&config, &mgr, out, false, false);
  smt2::ScriptReader reader(mgr, config, tracer);
  std::istringstream in("(set-info :deep " + std::string(kDepth, '(') + std::string(kDepth, ')') +
                        ")(check-sat)");
  reader.read(in, "deep.smt2");
  EXPECT_NE(std::string::npos, out.str().find("(check-sat)\n"));
}

// Does nothing with what it is told.
class NullTracer : public ApiTracer {
 public:
  void trace_type_declaration(DataType const*) override {}
  void trace_symbol_declaration(Symbol const*) override {}
  void trace_push_backtrack_point() override {}
  void trace_pop_backtrack_point() override {}
  void trace_assert_formula(Term const*) override {}
  void trace_check() override {}
  void trace_check_allsat(std::vector<Term const*> const&) override {}
  void trace_check_with_assumptions(std::vector<TheoryLit> const&) override {}
  void trace_reset_assertions() override {}
  void trace_new_interpolation_group() override {}
  void trace_set_interpolation_group(int) override {}
  void trace_get_interpolant(std::vector<int> const&) override {}
  void trace_get_unsat_core() override {}
  void trace_get_unsat_assumptions() override {}
  void trace_get_model() override {}
  void trace_get_model_value(Term const*) override {}
};

// A sort nested a million deep is read, and a sort error about it is reported with its text.
TEST(ReaderDeepSortTest, MillionDeepArraySort) {
  TermManager mgr;
  Configuration config;
  NullTracer tracer;
  smt2::ScriptReader reader(mgr, config, tracer);
  std::istringstream in(deep_sort() + "(assert a)");
  try {
    reader.read(in, "deep.smt2");
    ADD_FAILURE() << "no error";
  } catch (smt2::ReadError const& e) {
    EXPECT_NE(std::string::npos, e.message().find("(Array Int (Array Int"));
  }
}

// The same sort through the tracer, in both modes, and back through the reader: the printer
// must not spend memory quadratic in the sort's depth.
TEST(ReaderDeepSortTest, MillionDeepArraySortThroughTheTracer) {
  for (bool global : {false, true}) {
    std::vector<std::size_t> depths;
    std::string const trace = trace_of(deep_sort(), global, &depths);
    ASSERT_EQ(1u, depths.size());
    std::vector<std::size_t> again;
    trace_of(trace, false, &again);
    EXPECT_EQ(1u, again.size());
  }
}

}  // namespace
}  // namespace tvx
