// The commands of SMT-LIB 2 scripts and the API calls they become; scoping of names; the
// arithmetic the reader reconciles; malformed and unsupported input; very deep nesting.
#include "smt2/script_reader.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "core/configuration.h"
#include "core/term_manager.h"
#include "tracer/api_tracer.h"
#include "tracer/smtlib2_api_tracer.h"

namespace tvx {
namespace smt2 {
namespace {

// Writes a sort as SMT-LIB text. Sorts in these tests are shallow.
std::string sort_str(DataType const* t) {
  if (t->is_simple()) {
    return t->get_name();
  }
  if (t->is_array()) {
    return "(Array " + sort_str(t->get_array_index()) + " " + sort_str(t->get_array_element()) +
           ")";
  }
  std::string s = "(";
  for (std::size_t i = 0; i + 1 < t->get_num_components(); ++i) {
    s += (i ? " " : "") + sort_str(t->get_component(i));
  }
  return s + ") " + sort_str(t->get_function_result());
}

// Writes a term as a plain s-expression without sharing, on an explicit stack. Real numerals
// carry the suffix ":R" so that 1 (Int) and 1 (Real) differ.
std::string term_str(Term const* root) {
  std::string out;
  std::vector<std::pair<Term const*, std::size_t>> stack{{root, 0}};
  while (!stack.empty()) {
    auto& top = stack.back();
    Term const* t = top.first;
    Symbol const* s = t->get_symbol();
    if (top.second == 0) {
      std::string head = s->get_name();
      if (s->get_num_indices() > 0) {
        head = "(_ " + head;
        for (std::size_t i = 0; i < s->get_num_indices(); ++i) {
          head += " " + std::to_string(s->get_index(i));
        }
        head += ")";
      }
      if (s->get_tag() == SymbolTag::NUMERAL && t->get_type()->is_real()) {
        head += ":R";
      }
      if (t->get_arity() == 0) {
        out += head;
        stack.pop_back();
        if (!stack.empty()) {
          out += stack.back().second < stack.back().first->get_arity() ? " " : "";
        }
        continue;
      }
      out += "(" + head + " ";
    }
    if (top.second < t->get_arity()) {
      Term const* arg = t->get_arg(top.second++);
      stack.emplace_back(arg, 0);
      continue;
    }
    out += ")";
    stack.pop_back();
    if (!stack.empty()) {
      out += stack.back().second < stack.back().first->get_arity() ? " " : "";
    }
  }
  return out;
}

// An ApiTracer that records each call as one line of text.
class RecordingTracer : public ApiTracer {
 public:
  std::vector<std::string> log;

  void trace_type_declaration(DataType const* type) override {
    log.push_back("declare-sort " + type->get_name());
  }
  void trace_symbol_declaration(Symbol const* sym) override {
    log.push_back("declare " + sym->get_name() + " " + sort_str(sym->get_type()));
  }
  void trace_push_backtrack_point() override { log.push_back("push"); }
  void trace_pop_backtrack_point() override { log.push_back("pop"); }
  void trace_assert_formula(Term const* t) override { log.push_back("assert " + term_str(t)); }
  void trace_check() override { log.push_back("check-sat"); }
  void trace_check_allsat(std::vector<Term const*> const& terms) override {
    std::string s = "check-allsat";
    for (Term const* t : terms) {
      s += " " + term_str(t);
    }
    log.push_back(s);
  }
  void trace_check_with_assumptions(std::vector<TheoryLit> const& lits) override {
    std::string s = "check-sat-assuming";
    for (TheoryLit const& l : lits) {
      s += l.is_negated() ? " (not " + term_str(l.get_term()) + ")" : " " + term_str(l.get_term());
    }
    log.push_back(s);
  }
  void trace_reset_assertions() override { log.push_back("reset-assertions"); }
  void trace_new_interpolation_group() override { log.push_back("new-group"); }
  void trace_set_interpolation_group(int g) override {
    log.push_back("set-group " + std::to_string(g));
  }
  void trace_get_interpolant(std::vector<int> const& groups) override {
    std::string s = "get-interpolant";
    for (int g : groups) {
      s += " " + std::to_string(g);
    }
    log.push_back(s);
  }
  void trace_get_unsat_core() override { log.push_back("get-unsat-core"); }
  void trace_get_unsat_assumptions() override { log.push_back("get-unsat-assumptions"); }
  void trace_get_model() override { log.push_back("get-model"); }
  void trace_get_model_value(Term const* t) override { log.push_back("get-value " + term_str(t)); }
};

using Log = std::vector<std::string>;

class ScriptReaderTest : public ::testing::Test {
 protected:
  // Reads the script; returns the error message ("" when none).
  std::string read(std::string const& script) {
    std::istringstream in(script);
    try {
      reader_.read(in, "s.smt2");
    } catch (ReadError const& e) {
      error_ = e.what();
      line_ = e.line();
      column_ = e.column();
      return e.message();
    }
    return "";
  }
  Log const& log() const { return tracer_.log; }

  TermManager mgr_;
  Configuration config_;
  RecordingTracer tracer_;
  ScriptReader reader_{mgr_, config_, tracer_};
  std::string error_;
  std::uint64_t line_ = 0;
  std::uint64_t column_ = 0;
};

struct Case {
  char const* name;
  char const* script;
  Log calls;
};

// Each script is read without error and makes exactly these calls.
TEST_F(ScriptReaderTest, CommandsBecomeApiCalls) {
  Case const cases[] = {
      {"declarations",
       "(set-logic QF_UF)(declare-sort U 0)(declare-fun f (U Bool) U)(declare-const c U)"
       "(declare-fun |x y| () Bool)",
       {"declare-sort U", "declare f (U Bool) U", "declare c U", "declare x y Bool"}},
      {"quoted and simple symbols are one name",
       "(declare-fun |p| () Bool)(assert p)(assert |p|)",
       {"declare p Bool", "assert p", "assert p"}},
      {"push and pop counts",
       "(push 2)(pop 1)(push)(pop)(pop 1)(push 0)",
       {"push", "push", "pop", "push", "pop", "pop"}},
      {"checks and queries",
       "(declare-fun a () Bool)(declare-fun b () Bool)(declare-fun x () Int)"
       "(check-sat)(check-sat-assuming (a (not b)))(check-sat-assuming ())"
       "(check-allsat (a b))(get-value (x (+ x 1)))(get-model)(get-unsat-core)"
       "(get-unsat-assumptions)(reset-assertions)",
       {"declare a Bool", "declare b Bool", "declare x Int", "check-sat",
        "check-sat-assuming a (not b)", "check-sat-assuming", "check-allsat a b", "get-value x",
        "get-value (+ x 1)", "get-model", "get-unsat-core", "get-unsat-assumptions",
        "reset-assertions"}},
      {"define-fun is a macro, expanded at each use",
       "(declare-fun x () Int)(define-fun inc ((a Int)) Int (+ a 1))"
       "(define-fun two () Int 2)(assert (> (inc (inc x)) two))",
       {"declare x Int", "assert (> (+ (+ x 1) 1) 2)"}},
      {"definitions substitute all parameters at once",
       "(declare-fun x () Int)(declare-fun y () Int)(define-fun g ((a Int) (b Int)) Int (- a b))"
       "(define-fun h ((a Int) (b Int)) Int (g b a))(assert (= (h x y) 0))",
       {"declare x Int", "declare y Int", "assert (= (- y x) 0)"}},
      {"define-sort and define-const",
       "(define-sort W () (_ BitVec 4))(declare-fun v () W)(define-const k W #x3)"
       "(assert (= v k))",
       {"declare v (_ BitVec 4)", "assert (= v #b0011)"}},
      {"let binds in parallel and shadows",
       "(declare-fun x () Int)(declare-fun y () Int)"
       "(assert (let ((x y) (y x)) (let ((x 5)) (< x y))))",
       {"declare x Int", "declare y Int", "assert (< 5 x)"}},
      {"a trace's own define-fun labels read back",
       "(set-option :global-decls true)(declare-fun x () Int)(define-fun .7 () Int x)"
       "(define-fun .9 () Int 3)(define-fun .12 () Bool (< .7 .9))(assert .12)"
       "(check-sat-assuming (.12 (not .12) ))(get-value (.7))",
       {"declare x Int", "assert (< x 3)", "check-sat-assuming (< x 3) (not (< x 3))",
        "get-value x"}},
      {"named terms can be used afterwards",
       "(declare-fun x () Int)(assert (! (> x 0) :named pos))(assert (=> pos (> x 1)))"
       "(check-sat-assuming (pos))",
       {"declare x Int", "assert (> x 0)", "assert (=> (> x 0) (> x 1))",
        "check-sat-assuming (> x 0)"}},
      {"interpolation groups",
       "(declare-fun a () Bool)(declare-fun b () Bool)"
       "(assert (! a :interpolation-group .g3))(assert (! true :interpolation-group .g3))"
       "(assert (! b :interpolation-group B))(assert (! (not b) :interpolation-group .g0))"
       "(get-interpolant (.g3 B .g0))",
       {"declare a Bool", "declare b Bool", "new-group", "set-group 3", "assert a", "set-group 3",
        "new-group", "set-group 0", "assert b", "new-group", "set-group 1", "assert (not b)",
        "get-interpolant 3 0 1"}},
      {"mixed Int and Real arithmetic",
       "(set-logic QF_LIRA)(declare-fun x () Real)(declare-fun n () Int)"
       "(assert (> (+ x n 1) (/ 1 3)))(assert (= x 2))(assert (< (- 5) (ite true n x)))"
       "(assert (<= n 2))",
       {"declare x Real", "declare n Int", "assert (> (+ x (to_real n) 1:R) 1/3:R)",
        "assert (= x 2:R)", "assert (< -5:R (ite true (to_real n) x))", "assert (<= n 2)"}},
      {"numerals read back as the numerals printed",
       "(declare-fun x () Real)(assert (< (- (/ 1.0 2.0)) x (/ 5.0 2.0) 0.5 (- 0.25)))",
       {"declare x Real", "assert (< -1/2:R x 5/2:R 0.5:R -0.25:R)"}},
      {"numerals of a logic of reals are reals",
       "(set-logic QF_LRA)(declare-fun x () Real)(assert (> x 1))(assert (= 0 0))",
       {"declare x Real", "assert (> x 1:R)", "assert (= 0:R 0:R)"}},
      {"bit-vectors and arrays",
       "(declare-fun v () (_ BitVec 8))(declare-fun m () (Array (_ BitVec 8) Bool))"
       "(assert (select m ((_ extract 7 0) (concat #x0 (bvadd v (_ bv5 8) #b00000001)))))"
       "(assert (= ((_ zero_extend 8) v) (_ bv300 16)))",
       {"declare v (_ BitVec 8)", "declare m (Array (_ BitVec 8) Bool)",
        "assert (select m ((_ extract 7 0) (concat #b0000 (bvadd v #b00000101 #b00000001))))",
        "assert (= ((_ zero_extend 8) v) #b0000000100101100)"}},
      {"options, infos and comments pass without a call",
       "; a comment\n(set-info :status sat)(set-info :source |multi\nline|)"
       "(set-option :produce-models true)(set-option :random-seed 3)(get-info :name)"
       "(get-option :produce-models)(echo \"hi \"\"there\"\"\")(set-info :x (a (b c)))",
       {}},
      {"exit stops reading", "(check-sat)(exit)(check-sat) garbage ( (", {"check-sat"}},
      {"names declared after a push go with its pop",
       "(push 1)(declare-fun x () Int)(define-fun d () Int 1)(declare-sort S 0)(pop 1)"
       "(declare-fun x () Int)(define-fun d () Bool true)(declare-sort S 0)",
       {"push", "declare x Int", "declare-sort S", "pop", "declare x Int", "declare-sort S"}},
      {"global declarations survive pops",
       "(set-option :global-declarations true)(push 1)(declare-fun x () Int)(pop 1)"
       "(assert (> x 0))",
       {"push", "declare x Int", "pop", "assert (> x 0)"}},
      {"reset-assertions closes every scope",
       "(declare-fun a () Bool)(push 2)(declare-fun b () Bool)(reset-assertions)"
       "(declare-fun b () Bool)(assert (and a b))",
       {"declare a Bool", "push", "push", "declare b Bool", "reset-assertions", "declare b Bool",
        "assert (and a b)"}},
      {"one-argument and, or and +",
       "(declare-fun p () Bool)(declare-fun x () Int)(assert (and (or p)))(assert (= (+ x) x))",
       {"declare p Bool", "declare x Int", "assert p", "assert (= x x)"}},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    TermManager mgr;
    Configuration config;
    RecordingTracer tracer;
    ScriptReader reader(mgr, config, tracer);
    std::istringstream in(c.script);
    try {
      reader.read(in, "s.smt2");
    } catch (ReadError const& e) {
      ADD_FAILURE() << e.what();
    }
    EXPECT_EQ(tracer.log, c.calls);
  }
}

TEST_F(ScriptReaderTest, RedeclarationAfterPopReusesTheSymbol) {
  EXPECT_EQ(read("(push 1)(declare-fun f (Int) Bool)(pop 1)(push 1)(declare-fun f (Int) Bool)"),
            "");
  EXPECT_EQ(log(), (Log{"push", "declare f (Int) Bool", "pop", "push", "declare f (Int) Bool"}));
  Symbol const* f = mgr_.find_symbol("f");
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(read("(pop 1)(declare-fun f (Int) Int)"),
            "'f' was declared before with sort (Int) Bool and now with sort (Int) Int");
  EXPECT_EQ(mgr_.find_symbol("f"), f);
  EXPECT_EQ(line_, 1u);
  EXPECT_EQ(column_, 21u);
}

TEST_F(ScriptReaderTest, ConfigOptionGoesToTheConfiguration) {
  EXPECT_EQ(read("(set-option :config \"printer.defines_prefix=p_\")"), "");
  EXPECT_EQ(config_.printer.defines_prefix, "p_");
  EXPECT_TRUE(log().empty());
}

TEST_F(ScriptReaderTest, StateCarriesOverBetweenReads) {
  EXPECT_EQ(read("(declare-fun x () Int)(push 1)"), "");
  EXPECT_EQ(read("(assert (> x 0))(pop 1)"), "");
  EXPECT_EQ(log(), (Log{"declare x Int", "push", "assert (> x 0)", "pop"}));
}

struct BadCase {
  char const* script;
  std::uint64_t line;
  std::uint64_t column;
  char const* message;  // a part of the message
  Log before;           // the calls made before the error
};

// Reading stops at the first error, which names its position; what came before was passed on.
TEST_F(ScriptReaderTest, MalformedAndUnsupportedInput) {
  BadCase const cases[] = {
      {"(assert (> x 1))", 1, 12, "unknown symbol 'x'", {}},
      {"(declare-fun x () Int)\n(assert (and x true))", 2, 10, "Int", {"declare x Int"}},
      {"(declare-fun x () Int", 1, 22, "expected ')'", {}},
      {"(check-sat)\n(foo)", 2, 2, "unknown command 'foo'", {"check-sat"}},
      {"(assert (forall ((x Int)) true))", 1, 10, "quantifiers are not supported", {}},
      {"(assert (exists ((x Int)) true))", 1, 10, "quantifiers are not supported", {}},
      {"(declare-datatypes ((L 0)) (((nil))))", 1, 2, "datatypes", {}},
      {"(check-sat)(reset)", 1, 13, "'reset' is not supported", {"check-sat"}},
      {"(declare-sort S 1)", 1, 17, "parametric sorts are not supported", {}},
      {"(define-sort S (X) X)", 1, 17, "parametric sorts are not supported", {}},
      {"(define-fun-rec f ((x Int)) Int x)", 1, 2, "not supported", {}},
      {"(declare-fun s () String)", 1, 19, "'String' is not supported", {}},
      {"(declare-fun x () Int)(assert (= x \"a\"))",
       1,
       36,
       "string literals are not supported",
       {"declare x Int"}},
      {"(declare-fun f () (_ FloatingPoint 8 24))", 1, 22, "'FloatingPoint' is not supported", {}},
      {"(pop 1)", 1, 6, "only 0 push level(s) are open", {}},
      {"(push 1)(pop)(pop)", 1, 15, "cannot pop 1 level(s)", {"push", "pop"}},
      {"(push 1)(pop 2)", 1, 14, "cannot pop 2", {"push"}},
      {"(declare-fun x () Int)(declare-fun x () Int)",
       1,
       36,
       "'x' is already declared",
       {"declare x Int"}},
      {"(push 1)(declare-fun x () Int)(pop 1)(declare-fun x () Bool)",
       1,
       51,
       "declared before with sort Int and now with sort Bool",
       {"push", "declare x Int", "pop"}},
      {"(push 1)(declare-fun x () Int)(pop 1)(assert (> x 0))",
       1,
       49,
       "unknown symbol 'x'",
       {"push", "declare x Int", "pop"}},
      {"(assert 5)", 1, 9, "expects a formula of sort Bool, found sort Int", {}},
      {"(assert (let ((x true) (x false)) x))", 1, 25, "'x' is bound twice", {}},
      {"(assert (! true :pattern (x)))", 1, 17, "':pattern' is not supported", {}},
      {"(check-sat", 1, 11, "expected ')'", {}},
      {"(check-sat))", 1, 12, "expected '(' starting a command", {"check-sat"}},
      {"(assert |abc", 1, 9, "quoted symbol not closed", {}},
      {"(echo \"abc", 1, 7, "string literal not closed", {}},
      {"(assert (= #b #b1))", 1, 14, "expected binary digits", {}},
      {"(assert #z1)", 1, 9, "expected '#b' or '#x'", {}},
      {"(declare-fun x () Real)(assert (= x 1.))",
       1,
       39,
       "digit after the decimal point",
       {"declare x Real"}},
      {"(declare-fun f (Int) Int)(assert (= (f 1 2) 0))",
       1,
       38,
       "'f' expects 1 argument(s)",
       {"declare f (Int) Int"}},
      {"(declare-fun f (Int) Int)(assert (= f 0))",
       1,
       37,
       "used as a constant",
       {"declare f (Int) Int"}},
      {"(declare-fun c () Int)(assert (c 1))", 1, 32, "is a constant", {"declare c Int"}},
      {"(assert (= (bvadd #b01 #b001) #b01))", 1, 13, "bvadd", {}},
      {"(set-option :config \"no.such.key=1\")", 1, 21, "no.such.key", {}},
      {"(set-option :config \"novalue\")", 1, 21, "KEY=VALUE", {}},
      {"(define-fun f () Int true)", 1, 22, "the body of 'f' has sort Bool", {}},
      {"(assert (= ((_ extract 8 0) #b0101) #b0))", 1, 16, "extract", {}},
      {"(assert {)", 1, 9, "unexpected '{'", {}},
      {"(get-value ())", 1, 13, "expected a term", {}},
      {"(assert (= ((as const (Array Int Int)) 0) 0))", 1, 14, "(as) are not supported", {}},
      {"(declare-fun p () Bool)(assert (not (! p :interpolation-group g)))",
       1,
       42,
       "only on an asserted formula",
       {"declare p Bool"}},
      {"(declare-fun x () Int)(check-sat-assuming (x))",
       1,
       44,
       "sort Bool, found sort Int",
       {"declare x Int"}},
      {"(assert (let ((a true)) (a 1)))", 1, 26, "bound by let", {}},
      {"(assert (str.len x))", 1, 10, "'str.len' is not supported", {}},
      {"(declare-fun f (Int) Int)(define-fun g ((a Bool)) Int (f a))",
       1,
       56,
       "argument 1 of 'f' has sort Bool, expected sort Int",
       {"declare f (Int) Int"}},
      {"(declare-fun Int () Bool)", 1, 14, "built-in name", {}},
      {"(assert (lambda ((x Int)) x))", 1, 10, "lambda is not supported", {}},
      {"(push 1)(push 2000000)", 1, 15, "too large", {"push"}},
      {"(declare-fun v () (_ BitVec 0))", 1, 29, "BitVec", {}},
      {"(assert (= #b1 (_ bv1 0)))", 1, 23, "BitVec", {}},
  };
  for (BadCase const& c : cases) {
    SCOPED_TRACE(c.script);
    TermManager mgr;
    Configuration config;
    RecordingTracer tracer;
    ScriptReader reader(mgr, config, tracer);
    std::istringstream in(c.script);
    try {
      reader.read(in, "bad.smt2");
      ADD_FAILURE() << "no error";
    } catch (ReadError const& e) {
      EXPECT_EQ(e.line(), c.line) << e.what();
      EXPECT_EQ(e.column(), c.column) << e.what();
      EXPECT_NE(e.message().find(c.message), std::string::npos) << e.what();
      std::string const where =
          "bad.smt2:" + std::to_string(c.line) + ":" + std::to_string(c.column) + ": error: ";
      EXPECT_EQ(std::string(e.what()).rfind(where, 0), 0u) << e.what();
    }
    EXPECT_EQ(tracer.log, c.before);
  }
}

// Nesting a million deep is read without recursion: terms, lets and definitions.
TEST_F(ScriptReaderTest, MillionDeepNesting) {
  constexpr int kDepth = 1000000;
  std::string s = "(declare-fun p () Bool)(assert ";
  s.reserve(static_cast<std::size_t>(kDepth) * 20);
  for (int i = 0; i < kDepth; ++i) {
    s += "(not ";
  }
  s += "p";
  s.append(kDepth, ')');
  s += ")";

  struct DepthTracer : RecordingTracer {
    std::vector<std::size_t> depths;
    void trace_assert_formula(Term const* t) override {
      std::size_t d = 0;
      while (t->get_arity() == 1) {
        t = t->get_arg(0);
        ++d;
      }
      depths.push_back(d);
    }
  } tracer;
  TermManager mgr;
  Configuration config;
  ScriptReader reader(mgr, config, tracer);
  std::istringstream in(s);
  reader.read(in, "deep.smt2");
  ASSERT_EQ(tracer.depths.size(), 1u);
  EXPECT_EQ(tracer.depths[0], static_cast<std::size_t>(kDepth));

  // A chain of lets, each binding the previous: 10^6 scopes open at once.
  std::string lets = "(declare-fun q () Bool)(assert (let ((a0 q)) ";
  for (int i = 1; i < kDepth; ++i) {
    lets += "(let ((a (not ";
    lets += i == 1 ? "a0" : "a";
    lets += "))) ";
  }
  lets += "a";
  lets.append(kDepth, ')');
  lets += ")";
  std::istringstream in2(lets);
  reader.read(in2, "lets.smt2");
  ASSERT_EQ(tracer.depths.size(), 2u);
  EXPECT_EQ(tracer.depths[1], static_cast<std::size_t>(kDepth - 1));
}

// Deep input through the real tracer, in both modes.
TEST_F(ScriptReaderTest, DeepInputThroughTheTracer) {
  constexpr int kDepth = 200000;
  std::string s = "(declare-fun x () Int)(assert (> ";
  for (int i = 0; i < kDepth; ++i) {
    s += "(+ 1 ";
  }
  s += "x";
  s.append(kDepth, ')');
  s += " 0))(check-sat)";
  for (bool global : {false, true}) {
    SCOPED_TRACE(global ? "global" : "scoped");
    TermManager mgr;
    Configuration config;
    std::ostringstream out;
    SmtLib2ApiTracer tracer(&config, &mgr, out, global, false);
    ScriptReader reader(mgr, config, tracer);
    std::istringstream in(s);
    reader.read(in, "deep.smt2");
    std::string const text = out.str();
    EXPECT_NE(text.find("(declare-fun x () Int)"), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 12), "(check-sat)\n");
  }
}

}  // namespace
}  // namespace smt2
}  // namespace tvx
