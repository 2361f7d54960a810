// Hostile scripts through the reader and the tracer: huge numerals and bit-vector widths, a
// million declarations, names with every printable byte, NUL bytes, invalid UTF-8, strings,
// quoted symbols and comments cut off by the end of input, pops beyond the open depth, and input
// nested a million levels deep. Each must end in a trace or in the one error line that names the
// culprit's line and column; none may crash, hang or overflow the call stack.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/smt2/read_error.h>
#include <tvx/smt2/script_reader.h>
#include <tvx/tracer/smtlib2_api_tracer.h>

namespace tvx {
namespace {

constexpr std::size_t kMillion = 1000000;
using S = std::string;

S rep(S const& s, std::size_t n) {
  S out;
  for (std::size_t i = 0; i < n; ++i) {
    out += s;
  }
  return out;
}

S digits(std::size_t n) {
  return "1" + S(n - 1, '0');
}

// For every printable character c from `first` on but those in `but`: pre + c + post.
S printable(int first, S const& but, S const& pre = "", S const& post = "") {
  S out;
  for (int c = first; c < 127; ++c) {
    out += but.find(static_cast<char>(c)) == S::npos ? pre + static_cast<char>(c) + post : "";
  }
  return out;
}

S declarations(S const& prefix, S const& sort) {
  S s;
  for (std::size_t i = 0; i < kMillion; ++i) {
    s += "(declare-fun " + prefix + std::to_string(i) + " () " + sort + ")\n";
  }
  return s;
}

S deep_sort() {
  return "(declare-const a " + rep("(Array Int ", kMillion) + "Bool" + S(kMillion, ')') +
         ")(assert (= a a))";
}

// The longest chain of arguments below t along which every term has the symbol of t.
std::size_t depth_of(Term const* t) {
  std::size_t depth = 0;
  for (Symbol const* s = t->get_symbol(); t != nullptr; ++depth) {
    Term const* next = nullptr;
    for (std::size_t i = 0; i < t->get_arity(); ++i) {
      next = t->get_arg(i)->get_symbol() == s ? t->get_arg(i) : next;
    }
    t = next;
  }
  return depth - 1;
}

// Keeps the depth of each asserted formula on its way into the trace.
struct DepthTracer : SmtLib2ApiTracer {
  using SmtLib2ApiTracer::SmtLib2ApiTracer;
  std::vector<std::size_t> depths;
  void trace_assert_formula(Term const* t) override {
    depths.push_back(depth_of(t));
    SmtLib2ApiTracer::trace_assert_formula(t);
  }
};

// Reads `script` through a tracer in the given mode; returns the trace and the depths of the
// asserted formulas. Throws ReadError.
std::pair<S, std::vector<std::size_t>> trace_of(S const& script, bool global) {
  TermManager mgr;
  Configuration config;
  std::ostringstream out;
  auto owned = std::make_unique<DepthTracer>(&config, &mgr, out, global, false);
  DepthTracer const& tracer = *owned;
  Solver solver(mgr, config, nullptr, std::move(owned));
  smt2::ScriptReader reader(solver);
  std::istringstream in(script);
  reader.read(in, "hostile.smt2");
  return {out.str(), tracer.depths};
}

// Replays a trace in z3; true unless z3 reports an error.
bool z3_accepts(S const& trace, S const& name) {
  S const path = S(TVX_BINARY_DIR) + "/hostile_" + name + ".smt2";
  std::ofstream(path, std::ios::binary) << trace;
  int const found = std::system(("z3 -smt2 '" + path + "' 2>&1 | grep -q error").c_str());
  std::remove(path.c_str());
  return found != 0;
}

// line 0: the script is traced, the trace contains `expect` and, with `z3`, z3 replays it
// without an error. Otherwise the error is at line:column and its message contains `expect`.
// `global`: traced with global declarations.
struct Hostile {
  char const* name;
  std::function<S()> script;
  std::uint64_t line, column;
  S expect = "";
  bool z3 = false, global = false;
};

std::vector<Hostile> const& cases() {
  constexpr std::size_t k = kMillion;
  static std::vector<Hostile> const all = {
      {"BitVecWidthOfAThousandMillion", [] { return "(declare-const v (_ BitVec 1000000000))"; }, 1,
       28, "BitVec"},
      {"BitVecWidthOfAMillionDigits",
       [] { return "(declare-const v (_ BitVec " + digits(k) + "))"; }, 1, 28},
      {"BvLiteralOf10To8Bits", [] { return "(assert (= (_ bv5 100000000) #b1))"; }, 1, 19},
      {"ExtractIndexOfAMillionDigits",
       [] { return "(assert (= ((_ extract " + digits(k) + " 0) #b1) #b1))"; }, 1, 24},
      {"PushOfHugeCount", [] { return "(push 100000000000000000000)"; }, 1, 7},
      {"BvLiteralOfTheLargestWidth",
       [] { return "(declare-const v (_ BitVec 16777216))(assert (= v (_ bv5 16777216)))"; }, 0, 0,
       S(1000, '0') + "101)"},
      {"IntNumeralOfAMillionDigits",
       [] { return "(declare-const n Int)(assert (> n " + digits(k) + "))"; }, 0, 0,
       digits(k) + ")"},
      {"DecimalOfAMillionDigits",
       [] { return "(declare-const r Real)(assert (< r 0." + S(k - 1, '0') + "1))"; }, 0, 0},
      {"MillionDeclarations",
       [] { return declarations("x", "Int") + "(assert (> x999999 x0))(check-sat)"; }, 0, 0,
       "(declare-fun x999999 () Int)", true},
      {"MillionDeclarationsInAScope",
       [] {
         return "(push 1)" + declarations("f", "Bool") +
                "(assert f123456)(pop 1)(declare-const f123456 Bool)";
       },
       0, 0, "(pop 1)\n(declare-fun f123456 () Bool)"},
      {"NameOfAMillionCharacters",
       [] { return "(declare-const " + S(k, 'n') + " Bool)(assert " + S(k, 'n') + ")"; }, 0, 0,
       "(assert " + S(k, 'n') + ")"},
      {"NameWithEveryPrintableByte",
       [] { return "(declare-const |" + printable(32, "|\\") + "| Int)"; }, 0, 0,
       "(declare-fun |" + printable(32, "|\\") + "| () Int)"},
      // One name per printable byte but the built-in operators, '_' and the reserved '.' and '@'.
      {"OneNamePerPrintableByte",
       [] {
         return printable(33, "|\\+-*/<=>_.@", "(declare-const |", "| Bool)") +
                "(assert (or |!| |~| |(| |)| |;| |\"| |#| |:|))(check-sat)";
       },
       0, 0, "(declare-fun |(| () Bool)", true},
      {"BackslashInQuotedSymbol", [] { return "(declare-const |a\\b| Int)"; }, 1, 16},
      {"NulBetweenCommands", [] { return S("(check-sat)\n\0(check-sat)", 24); }, 2, 1},
      {"NulInsideASimpleSymbol", [] { return S("(declare-const a\0b Int)", 23); }, 1, 17},
      {"NulInsideAQuotedSymbol", [] { return S("(declare-const |a\0b| Int)", 25); }, 1, 16},
      // echo is not traced, so its string reaches nothing.
      {"NulInsideAnEchoedString", [] { return S("(echo \"a\0b\")(check-sat)", 23); }, 0, 0,
       "(check-sat)"},
      {"InvalidUtf8OutsideTokens", [] { return "(check-sat)\n\xff\xfe"; }, 2, 1},
      {"InvalidUtf8InASimpleSymbol", [] { return "(declare-const a\xc3 Int)"; }, 1, 17},
      {"UnterminatedString", [] { return "(check-sat)\n(echo \"no end\n\n"; }, 2, 7,
       "string literal not closed"},
      {"UnterminatedQuotedSymbol", [] { return "(declare-const |x\nInt)\n"; }, 1, 16,
       "quoted symbol not closed"},
      {"UnterminatedComment", [] { return "(check-sat)\n(assert ; true)"; }, 2, 16, "end of input"},
      {"CommentAtEndWithoutNewline", [] { return "(check-sat) ; the end"; }, 0, 0, "(check-sat)\n"},
      {"PopAfterResetClosedEveryScope", [] { return "(push 1)(push 1)(reset-assertions)(pop 1)"; },
       1, 40, "cannot pop"},
      {"PopOfHugeCount", [] { return "(push 1)\n(pop 18446744073709551616)"; }, 2, 6},
      {"PopOneBeyondAThousandPushes", [] { return rep("(push 1)\n", 1000) + "(pop 1001)"; }, 1001,
       6, "cannot pop"},
      // A million levels deep: errors at the bottom and at the end of input, a skipped value.
      {"UnclosedMillionParentheses", [] { return S(k, '('); }, 1, 2},
      {"IllSortedBelowAMillionNots",
       [] { return "(assert " + rep("(not ", k) + "5" + S(k + 1, ')'); }, 1, 5 * k + 5, "Int"},
      {"UnclosedMillionNots", [] { return "(assert " + rep("(not ", k) + "true"; }, 1, 5 * k + 13,
       "end of input"},
      {"MillionDeepAttributeValue",
       [] { return "(set-info :deep " + S(k, '(') + S(k, ')') + ")(check-sat)"; }, 0, 0,
       "(check-sat)\n"},
      // In a global-declarations trace ".1", ".2", ... name defined terms; names starting with
      // '.' are reserved, so a script that declares one is refused at the name.
      {"NameShapedLikeALabel",
       [] { return "(declare-const |.2| Bool)(declare-const q Bool)(assert (and |.2| q))"; }, 1, 16,
       "", false, true},
      {"MillionDeepSortInTheMessage", [] { return deep_sort() + "(assert a)"; }, 1, 12 * k + 47,
       "(Array Int (Array Int"},
  };
  return all;
}

class HostileInputTest : public ::testing::TestWithParam<std::size_t> {};

TEST_P(HostileInputTest, TracesOrReportsThePosition) {
  Hostile const& c = cases()[GetParam()];
  try {
    S const trace = trace_of(c.script(), c.global).first;
    ASSERT_EQ(0u, c.line) << "no error";
    EXPECT_NE(S::npos, trace.find(c.expect)) << trace.substr(0, 300);
    EXPECT_TRUE(!c.z3 || z3_accepts(trace, c.name));
  } catch (smt2::ReadError const& e) {
    S const what = S(e.what()).substr(0, 300);
    ASSERT_NE(0u, c.line) << what;
    S const where = ":" + std::to_string(c.line) + ":" + std::to_string(c.column) + ": error: ";
    EXPECT_EQ(0u, what.rfind("hostile.smt2" + where, 0)) << what;
    EXPECT_NE(S::npos, e.message().find(c.expect)) << what;
  }
}

INSTANTIATE_TEST_SUITE_P(Scripts, HostileInputTest,
                         ::testing::Range<std::size_t>(0, cases().size()),
                         [](::testing::TestParamInfo<std::size_t> const& info) {
                           return S(cases()[info.param].name);
                         });

// A million levels of nesting, read and traced in both modes; the trace reads back to formulas
// of the same depths.
struct Deep {
  char const* name;
  S (*script)();
  std::size_t depth;
};

Deep const kDeep[] = {
    {"NestedNot",
     [] { return "(assert " + rep("(not ", kMillion) + "true" + S(kMillion + 1, ')'); },
     kMillion - 1},
    {"LetChain",
     [] {
       return "(declare-const x Bool)(assert " + rep("(let ((x (not x))) ", kMillion) + "x" +
              S(kMillion + 1, ')');
     },
     kMillion - 1},
    {"MillionDeepArraySortThroughTheTracer", deep_sort, 0},
};

class ReaderDeepTest : public ::testing::TestWithParam<std::tuple<std::size_t, bool>> {};

TEST_P(ReaderDeepTest, ReadTracedAndReadBack) {
  Deep const& c = kDeep[std::get<0>(GetParam())];
  try {
    auto const read = trace_of(c.script(), std::get<1>(GetParam()));
    EXPECT_EQ(std::vector<std::size_t>{c.depth}, read.second);
    EXPECT_EQ(read.second, trace_of(read.first, false).second);
  } catch (smt2::ReadError const& e) {
    FAIL() << S(e.what()).substr(0, 300);
  }
}

INSTANTIATE_TEST_SUITE_P(Inputs, ReaderDeepTest,
                         ::testing::Combine(::testing::Range<std::size_t>(0, 3), ::testing::Bool()),
                         [](::testing::TestParamInfo<std::tuple<std::size_t, bool>> const& info) {
                           return S(kDeep[std::get<0>(info.param)].name) +
                                  (std::get<1>(info.param) ? "Global" : "Scoped");
                         });

}  // namespace
}  // namespace tvx
