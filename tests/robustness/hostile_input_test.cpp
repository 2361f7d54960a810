// Hostile scripts through the reader and the tracer: huge numerals and bit-vector widths, a
// million declarations, names with every printable byte, NUL bytes, invalid UTF-8, strings,
// quoted symbols and comments cut off by the end of input, pops beyond the open depth. Each must
// end in a trace (which z3 accepts, where the row says so) or in the one error line that names
// the culprit's line and column; none may crash or hang.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "core/configuration.h"
#include "core/term_manager.h"
#include "smt2/read_error.h"
#include "smt2/script_reader.h"
#include "tracer/smtlib2_api_tracer.h"

namespace tvx {
namespace {

constexpr int kMillion = 1000000;

struct Hostile {
  char const* name;
  std::function<std::string()> script;
  // Success: the trace contains `expect` (unless empty) and, with `z3`, replays in z3 without
  // an error. Failure (line > 0): the error is at line:column and its message contains `expect`.
  std::uint64_t line;
  std::uint64_t column;
  std::string expect;
  bool z3;
};

std::string repeat(std::string const& s, std::size_t n) {
  std::string out;
  out.reserve(s.size() * n);
  for (std::size_t i = 0; i < n; ++i) {
    out += s;
  }
  return out;
}

std::string digits(std::size_t n) {
  return "1" + std::string(n - 1, '0');
}

// Every printable ASCII character that a quoted symbol may hold: all but '|' and '\'.
std::string printable_name() {
  std::string name;
  for (int c = 32; c < 127; ++c) {
    if (c != '|' && c != '\\') {
      name.push_back(static_cast<char>(c));
    }
  }
  return name;
}

std::string million_declarations() {
  std::string s;
  s.reserve(30u * kMillion);
  for (int i = 0; i < kMillion; ++i) {
    s += "(declare-const x" + std::to_string(i) + " Int)\n";
  }
  s += "(assert (> x999999 x0))\n(check-sat)\n";
  return s;
}

// A million declarations inside one scope; after the pop the names are free again.
std::string million_scoped_declarations() {
  std::string s = "(push 1)\n";
  s.reserve(30u * kMillion);
  for (int i = 0; i < kMillion; ++i) {
    s += "(declare-fun f" + std::to_string(i) + " () Bool)\n";
  }
  s += "(assert f123456)\n(pop 1)\n(declare-const f123456 Bool)\n(assert (not f123456))\n";
  return s;
}

// The operators + - * / < = > are the theories' own names and cannot be declared; z3 takes
// |_| for the reserved word _, so that one is left out too.
std::string one_of_each_printable() {
  std::string s;
  for (int c = 33; c < 127; ++c) {
    // Built-in operators are refused, and so are names starting with '.' or '@' (reserved).
    if (c != '|' && c != '\\' &&
        std::string("+-*/<=>_.@").find(static_cast<char>(c)) == std::string::npos) {
      s += "(declare-const |" + std::string(1, static_cast<char>(c)) + "| Bool)\n";
    }
  }
  s += "(assert (or |!| |~| |(| |)| |;| |\"| |#| |:|))\n(check-sat)\n";
  return s;
}

std::vector<Hostile> const& cases() {
  static std::vector<Hostile> const all = {
      // Huge bit-vector widths and indices: refused at the width.
      {"BitVecWidthOfAThousandMillion", [] { return "(declare-const v (_ BitVec 1000000000))"; }, 1,
       28, "BitVec", false},
      {"BitVecWidthBeyond64Bits",
       [] { return "(declare-const v (_ BitVec 18446744073709551616))"; }, 1, 28, "", false},
      {"BitVecWidthOfAMillionDigits",
       [] { return "(declare-const v (_ BitVec " + digits(kMillion) + "))"; }, 1, 28, "", false},
      {"BvLiteralOfWidthAHundredMillion",
       [] { return "(assert (= (_ bv5 100000000) (_ bv5 100000000)))"; }, 1, 19, "", false},
      {"ExtractIndexOfAMillionDigits",
       [] { return "(assert (= ((_ extract " + digits(kMillion) + " 0) #b1) #b1))"; }, 1, 24, "",
       false},
      {"PushOfHugeCount", [] { return "(push 100000000000000000000)"; }, 1, 7, "", false},
      // The largest width accepted, with a literal that fills it.
      {"BvLiteralOfTheLargestWidth",
       [] { return "(declare-const v (_ BitVec 16777216))\n(assert (= v (_ bv5 16777216)))\n"; }, 0,
       0, std::string(1000, '0') + "101)", false},
      // Numerals of a million digits are kept exactly.
      {"IntNumeralOfAMillionDigits",
       [] { return "(declare-const n Int)\n(assert (> n " + digits(kMillion) + "))\n"; }, 0, 0,
       digits(kMillion) + ")", false},
      {"DecimalOfAMillionDigits",
       [] {
         return "(declare-const r Real)\n(assert (< r 0." + std::string(kMillion - 1, '0') +
                "1))\n";
       },
       0, 0, "", false},
      // A million declarations, at level 0 and inside a scope.
      {"MillionDeclarations", million_declarations, 0, 0, "(declare-fun x999999 () Int)", true},
      {"MillionDeclarationsInAScope", million_scoped_declarations, 0, 0,
       "(pop 1)\n(declare-fun f123456 () Bool)", true},
      {"NameOfAMillionCharacters",
       [] {
         std::string const name(kMillion, 'n');
         return "(declare-const " + name + " Bool)(assert " + name + ")";
       },
       0, 0, "(assert " + std::string(kMillion, 'n') + ")", true},
      // Names with every printable byte, quoted.
      {"NameWithEveryPrintableByte",
       [] {
         std::string const q = "|" + printable_name() + "|";
         return "(declare-const " + q + " Int)\n(assert (> " + q + " 0))\n(check-sat)\n";
       },
       0, 0, "(declare-fun |" + printable_name() + "| () Int)", true},
      {"OneNamePerPrintableByte", one_of_each_printable, 0, 0, "(declare-fun |(| () Bool)", true},
      {"NameWithUtf8",
       [] { return "(declare-const |\xc3\xa9t\xc3\xa9| Bool)(assert |\xc3\xa9t\xc3\xa9|)"; }, 0, 0,
       "\xc3\xa9t\xc3\xa9", false},
      {"BackslashInQuotedSymbol", [] { return "(declare-const |a\\b| Int)"; }, 1, 16, "", false},
      // NUL bytes: outside tokens, inside a quoted symbol, inside a string.
      {"NulBetweenCommands", [] { return std::string("(check-sat)\n\0(check-sat)", 24); }, 2, 1, "",
       false},
      {"NulInsideASimpleSymbol", [] { return std::string("(declare-const a\0b Int)", 23); }, 1, 17,
       "", false},
      {"NulInsideAQuotedSymbol", [] { return std::string("(declare-const |a\0b| Int)", 25); }, 1,
       16, "", false},
      // echo is not traced, so its string reaches nothing.
      {"NulInsideAnEchoedString", [] { return std::string("(echo \"a\0b\")(check-sat)", 23); }, 0,
       0, "(check-sat)", false},
      // Invalid UTF-8.
      {"InvalidUtf8OutsideTokens", [] { return "(check-sat)\n\xff\xfe"; }, 2, 1, "", false},
      {"InvalidUtf8InASimpleSymbol", [] { return "(declare-const a\xc3 Int)"; }, 1, 17, "", false},
      // Cut off by the end of input.
      {"UnterminatedString", [] { return "(check-sat)\n(echo \"no end\n\n"; }, 2, 7,
       "string literal not closed", false},
      {"UnterminatedQuotedSymbol", [] { return "(declare-const |x\nInt)\n"; }, 1, 16,
       "quoted symbol not closed", false},
      {"UnterminatedCommentInACommand", [] { return "(check-sat)\n(assert ; true)"; }, 2, 16,
       "end of input", false},
      {"CommentAtEndWithoutNewline", [] { return "(check-sat) ; the end"; }, 0, 0, "(check-sat)\n",
       true},
      {"UnclosedMillionParentheses", [] { return std::string(kMillion, '('); }, 1, 2, "", false},
      // Pops beyond the open depth.
      {"PopAfterResetClosedEveryScope", [] { return "(push 1)(push 1)(reset-assertions)(pop 1)"; },
       1, 40, "cannot pop", false},
      {"PopOfHugeCount", [] { return "(push 1)\n(pop 18446744073709551616)"; }, 2, 6, "", false},
      {"PopOneBeyondAThousandPushes", [] { return repeat("(push 1)\n", 1000) + "(pop 1001)"; },
       1001, 6, "cannot pop", false},
  };
  return all;
}

class HostileInputTest : public ::testing::TestWithParam<std::size_t> {
 protected:
  // Replays a trace in z3; returns z3's output.
  static std::string replay_in_z3(std::string const& trace, std::string const& name) {
    std::string const path = std::string(TVX_BINARY_DIR) + "/hostile_" + name + ".smt2";
    {
      std::ofstream f(path, std::ios::binary);
      f << trace;
    }
    std::string out;
    if (FILE* p = popen(("z3 -smt2 '" + path + "' 2>&1").c_str(), "r")) {
      char buf[4096];
      std::size_t n = 0;
      while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) {
        out.append(buf, n);
      }
      pclose(p);
    }
    std::remove(path.c_str());
    return out;
  }
};

TEST_P(HostileInputTest, TracesOrReportsThePosition) {
  Hostile const& c = cases()[GetParam()];
  std::string const script = c.script();
  TermManager mgr;
  Configuration config;
  std::ostringstream out;
  SmtLib2ApiTracer tracer(&config, &mgr, out, false, false);
  smt2::ScriptReader reader(mgr, config, tracer);
  std::istringstream in(script);
  if (c.line == 0) {
    try {
      reader.read(in, "hostile.smt2");
    } catch (smt2::ReadError const& e) {
      FAIL() << std::string(e.what()).substr(0, 300);
    }
    std::string const trace = out.str();
    if (!c.expect.empty()) {
      EXPECT_NE(trace.find(c.expect), std::string::npos) << trace.substr(0, 300);
    }
    if (c.z3) {
      std::string const z3 = replay_in_z3(trace, c.name);
      EXPECT_EQ(z3.find("error"), std::string::npos) << z3.substr(0, 500);
    }
    return;
  }
  try {
    reader.read(in, "hostile.smt2");
    ADD_FAILURE() << "no error";
  } catch (smt2::ReadError const& e) {
    std::string const what = std::string(e.what()).substr(0, 300);
    EXPECT_EQ(c.line, e.line()) << what;
    EXPECT_EQ(c.column, e.column()) << what;
    std::string const where =
        "hostile.smt2:" + std::to_string(c.line) + ":" + std::to_string(c.column) + ": error: ";
    EXPECT_EQ(0u, std::string(e.what()).rfind(where, 0)) << what;
    EXPECT_NE(std::string::npos, e.message().find(c.expect)) << what;
  }
}

INSTANTIATE_TEST_SUITE_P(Scripts, HostileInputTest,
                         ::testing::Range<std::size_t>(0, cases().size()),
                         [](::testing::TestParamInfo<std::size_t> const& info) {
                           return std::string(cases()[info.param].name);
                         });

// In a global-declarations trace the labels ".1", ".2", ... name defined terms. A script that
// declares a name of that shape (SMT-LIB reserves names starting with '.' for solvers) must be
// refused at the name, or else traced so that the trace still reads back.
TEST(HostileNameTest, NameShapedLikeALabel) {
  std::string const script = "(declare-const |.2| Bool)(declare-const q Bool)(assert (and |.2| q))";
  TermManager mgr;
  Configuration config;
  std::ostringstream out;
  SmtLib2ApiTracer tracer(&config, &mgr, out, true, false);
  smt2::ScriptReader reader(mgr, config, tracer);
  std::istringstream in(script);
  try {
    reader.read(in, "hostile.smt2");
  } catch (smt2::ReadError const& e) {
    EXPECT_EQ(1u, e.line()) << e.what();
    EXPECT_EQ(16u, e.column()) << e.what();
    return;
  }
  TermManager mgr2;
  Configuration config2;
  std::ostringstream out2;
  SmtLib2ApiTracer tracer2(&config2, &mgr2, out2, false, false);
  smt2::ScriptReader reader2(mgr2, config2, tracer2);
  std::istringstream again(out.str());
  try {
    reader2.read(again, "trace.smt2");
  } catch (smt2::ReadError const& e) {
    ADD_FAILURE() << "the trace does not read back: " << e.what() << "\n" << out.str();
  }
}

}  // namespace
}  // namespace tvx
