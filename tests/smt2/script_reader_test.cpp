// The SMT-LIB reader through the real tracer: the trace each command becomes, scoping of names,
// errors in malformed and unsupported input with what was written before them, deep nesting;
// and the lexer, which reads nothing past the current token.
#include <tvx/smt2/script_reader.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/tracer/smtlib2_api_tracer.h>
#include "smt2/lexer.h"

namespace tvx {
namespace smt2 {
namespace {

// One reader writing a trace; state carries over from one read to the next.
struct Session {
  // Reads `script` as "s.smt2"; returns the error line ("" when none).
  std::string read(std::string const& script) {
    std::istringstream in(script);
    try {
      reader.read(in, "s.smt2");
    } catch (ReadError const& e) {
      return e.what();
    }
    return "";
  }

  // The trace without its two header lines, the title and the time stamp.
  std::string body() const {
    std::string const text = out.str();
    return text.substr(text.find('\n', text.find('\n') + 1) + 1);
  }

  TermManager mgr;
  Configuration config;
  std::ostringstream out;
  Solver solver{mgr, config, nullptr, out, false, false};
  ScriptReader reader{solver};
};

// Each script reads without error and becomes exactly this trace.
TEST(ScriptReaderTest, CommandsBecomeApiCalls) {
  std::pair<char const*, char const*> const cases[] = {
      // script, trace
      {"(set-logic QF_UF)(declare-sort U 0)(declare-fun f (U Bool) U)(declare-const c U)"
       "(declare-fun |x y| () Bool)(declare-fun |p| () Bool)(assert (and p |p|))",
       "(set-logic QF_UF)\n(declare-sort U 0)\n(declare-fun f (U Bool) U)\n(declare-fun c () U)\n"
       "(declare-fun |x y| () Bool)\n(declare-fun p () Bool)\n(assert (and p p))\n"},
      {"(push 2)(pop 1)(push)(pop)(pop 1)(push 0)(declare-fun a () Bool)(declare-fun x () Int)"
       "(check-sat)(check-sat-assuming (a (not a)))(check-sat-assuming ())(check-allsat (a))"
       "(get-value (x (+ x 1)))(get-model)(get-unsat-core)(get-unsat-assumptions)"
       "(reset-assertions)",
       "(push 1)\n(push 1)\n(pop 1)\n(push 1)\n(pop 1)\n(pop 1)\n(declare-fun a () Bool)\n"
       "(declare-fun x () Int)\n(check-sat)\n(check-sat-assuming (a (not a) ))\n"
       "(check-sat-assuming ())\n(check-allsat (a ))\n(get-value (x))\n(get-value ((+ x 1)))\n"
       "(get-model)\n(get-unsat-core)\n(get-unsat-assumptions)\n(reset-assertions)\n"},
      // Definitions are macros, parameters substituted all at once; lets bind in parallel.
      {"(declare-fun x () Int)(declare-fun y () Int)(define-fun inc ((a Int)) Int (+ a 1))"
       "(define-fun two () Int 2)(define-fun g ((a Int) (b Int)) Int (- a b))"
       "(define-fun h ((a Int) (b Int)) Int (g b a))(assert (> (inc (inc x)) (h x y) two))"
       "(assert (let ((x y) (y x)) (let ((x 5)) (< x y))))",
       "(declare-fun x () Int)\n(declare-fun y () Int)\n(assert (> (+ (+ x 1) 1) (- y x) 2))\n"
       "(assert (< 5 x))\n"},
      {"(define-sort W () (_ BitVec 4))(declare-fun v () W)(define-const k W #x3)(assert (= v k))",
       "(declare-fun v () (_ BitVec 4))\n(assert (= v #b0011))\n"},
      // Sorts with parameters expand where applied, in other sort definitions too; a parameter
      // hides a sort of its name, and a sort definition goes with its scope.
      {"(declare-sort U 0)(define-sort M (K V) (Array K V))(define-sort B (U) (M U U))"
       "(declare-fun m () (M Int (B U)))(declare-fun n () (B Bool))(push 1)(define-sort P (X) X)"
       "(declare-fun p () (P (P Bool)))(pop 1)(define-sort P () Int)(declare-fun q () P)",
       "(declare-sort U 0)\n(declare-fun m () (Array Int (Array U U)))\n"
       "(declare-fun n () (Array Bool Bool))\n(push 1)\n(declare-fun p () Bool)\n(pop 1)\n"
       "(declare-fun q () Int)\n"},
      // A global-declarations trace reads back, labels and all; :named names are usable.
      {"(set-option :global-decls true)(declare-fun x () Int)(define-fun .7 () Int x)"
       "(define-fun .9 () Int 3)(define-fun .12 () Bool (< .7 .9))(assert (! (> x 0) :named pos))"
       "(assert (=> pos .12))(check-sat-assuming (.12 (not pos) ))(get-value (.7))",
       "(declare-fun x () Int)\n(assert (! (> x 0) :named pos))\n(assert (=> (> x 0) (< x 3)))\n"
       "(check-sat-assuming ((< x 3) (not (> x 0)) ))\n(get-value (x))\n"},
      // .gN is group N when that is free; other names take the lowest free number.
      {"(declare-fun a () Bool)(assert (! a :interpolation-group .g3))"
       "(assert (! (not a) :interpolation-group B))(assert (! a :interpolation-group .g0))"
       "(get-interpolant (.g3 B .g0))",
       "(declare-fun a () Bool)\n(assert (! a :interpolation-group .g3))\n"
       "(assert (! true :interpolation-group .g3))\n(assert (! (not a) :interpolation-group .g0))\n"
       "(assert (! true :interpolation-group .g0))\n(assert (! a :interpolation-group .g1))\n"
       "(get-interpolant (.g3 .g0 .g1))\n"},
      {"(set-logic QF_LIRA)(declare-fun x () Real)(declare-fun n () Int)"
       "(assert (> (+ x n 1) (/ 1 3)))(assert (< (- 5) (ite true n x) 2))(assert (<= n 2))"
       "(assert (< (- (/ 1.0 2.0)) x (/ 5.0 2.0) 0.5 (- 0.25)))",
       "(set-logic QF_LIRA)\n(declare-fun x () Real)\n(declare-fun n () Int)\n"
       "(assert (> (+ x (to_real n) 1.0) (/ 1.0 3.0)))\n"
       "(assert (< (- 5.0) (ite true (to_real n) x) 2.0))\n(assert (<= n 2))\n"
       "(assert (< (- (/ 1.0 2.0)) x (/ 5.0 2.0) 0.5 (- 0.25)))\n"},
      {"(declare-fun v () (_ BitVec 8))(declare-fun m () (Array (_ BitVec 8) Bool))"
       "(assert (select m ((_ extract 7 0) (concat #x0 (bvadd v (_ bv5 8) #b00000001)))))"
       "(assert (= ((_ zero_extend 8) v) (_ bv300 16)))",
       "(declare-fun v () (_ BitVec 8))\n(declare-fun m () (Array (_ BitVec 8) Bool))\n"
       "(assert (select m ((_ extract 7 0) (concat #b0000 (bvadd v #b00000101 #b00000001)))))\n"
       "(assert (= ((_ zero_extend 8) v) #b0000000100101100))\n"},
      // Infos and comments make no call, nor do options other than those that decide what a
      // session may ask; exit ends the input.
      {"; c\n(set-info :status sat)(set-info :source |multi\nline|)(get-info :name)"
       "(set-option :produce-models true)(get-option :produce-models)(echo \"hi \"\"there\"\"\")"
       "(set-info :x (a (b c)))(check-sat)(exit)(check-sat) garbage ( (",
       "(set-option :produce-models true)\n(check-sat)\n"},
      // Names made after a push go with its pop, and can then be declared anew.
      {"(push 1)(declare-fun x () Int)(define-fun d () Int 1)(declare-sort S 0)(pop 1)"
       "(declare-fun x () Int)(define-fun d () Bool true)(declare-sort S 0)"
       "(push 1)(declare-fun f (Int) Bool)(pop 1)(declare-fun f (Int) Bool)",
       "(push 1)\n(declare-fun x () Int)\n(declare-sort S 0)\n(pop 1)\n(declare-fun x () Int)\n"
       "(declare-sort S 0)\n(push 1)\n(declare-fun f (Int) Bool)\n(pop 1)\n"
       "(declare-fun f (Int) Bool)\n"},
      // Declared anew with another sort, a name is another symbol, printed under a name of its
      // own; with its old sort, it is the old symbol.
      {"(push 1)(declare-fun x () Int)(pop 1)(push 1)(declare-fun x () Bool)(assert x)(pop 1)"
       "(declare-fun x () Bool)(push 1)(declare-fun y () Int)(pop 1)(declare-fun y (Int) Int)"
       "(assert (and x (= (y 0) 1)))",
       "(push 1)\n(declare-fun x () Int)\n(pop 1)\n(push 1)\n(declare-fun x!1 () Bool)\n"
       "(assert x!1)\n(pop 1)\n(declare-fun x!1 () Bool)\n(push 1)\n(declare-fun y () Int)\n"
       "(pop 1)\n(declare-fun y!1 (Int) Int)\n(assert (and x!1 (= (y!1 0) 1)))\n"},
      // A definition's parameters are no symbols that a declaration can meet.
      {"(declare-fun |define-fun parameter 0| () Int)"
       "(define-fun f ((a Int)) Int (+ a |define-fun parameter 0|))(assert (= (f 5) 0))",
       "(declare-fun |define-fun parameter 0| () Int)\n(assert (= (+ 5 |define-fun parameter 0|) "
       "0))\n"},
      {"(set-option :global-declarations true)(push 1)(declare-fun x () Int)(pop 1)"
       "(assert (> x 0))",
       "(push 1)\n(declare-fun x () Int)\n(pop 1)\n(declare-fun x () Int)\n(assert (> x 0))\n"},
      {"(declare-fun a () Bool)(push 2)(declare-fun b () Bool)(reset-assertions)"
       "(declare-fun b () Bool)(assert (and a b (or a) (= (+ 1) 1)))",
       "(declare-fun a () Bool)\n(push 1)\n(push 1)\n(declare-fun b () Bool)\n(reset-assertions)\n"
       "(declare-fun b () Bool)\n(assert (and a b a (= 1 1)))\n"},
      {"(declare-fun a () (Array Int Real))(assert (= a ((as const (Array Int Real)) 1)))",
       "(declare-fun a () (Array Int Real))\n(assert (= a ((as const (Array Int Real)) 1.0)))\n"},
      // SMT-LIB 2.7's names of the conversions are read as the operators they name.
      {"(declare-fun b () (_ BitVec 4))(assert (= (ubv_to_int ((_ int_to_bv 4) 19)) (ubv_to_int "
       "b)))",
       "(declare-fun b () (_ BitVec 4))\n(assert (= (bv2nat ((_ int2bv 4) 19)) (bv2nat b)))\n"},
      // A bare constructor of a parametric datatype takes its sort from where it stands.
      {"(declare-datatypes ((L 1)) ((par (T) ((nil) (cons (hd T) (tl (L T)))))))"
       "(declare-fun x () (L Int))(assert (and ((_ is cons) x) (= (tl x) nil) (= x (cons 1 nil))"
       " (match x ((nil false) ((cons h t) (= t (as nil (L Int))))))))",
       "(declare-datatypes ((L 1)) ((par (T) ((nil) (cons (hd T) (tl (L T)))))))\n"
       "(declare-fun x () (L Int))\n(assert (let ((_let_1 (= (tl x) (as nil (L Int))))) (and "
       "(is-cons x) _let_1 (= x ((as cons (L Int)) 1 (as nil (L Int)))) (ite (is-nil x) false "
       "_let_1))))\n"},
      // After a reset every name may be declared again, with another sort; the new symbol
      // has a printed name of its own.
      {"(declare-sort U 0)(declare-fun x () U)(push 1)(define-fun d () Bool true)(assert d)"
       "(reset)(declare-fun x () Int)(define-fun d () Int 1)(declare-sort U 0)(assert (= x d))",
       "(declare-sort U 0)\n(declare-fun x () U)\n(push 1)\n(assert true)\n(reset)\n"
       "(declare-fun x!1 () Int)\n(declare-sort U 0)\n(assert (= x!1 1))\n"},
  };
  for (auto const& c : cases) {
    Session s;
    EXPECT_EQ(s.read(c.first), "");
    EXPECT_EQ(s.body(), c.second) << c.first;
  }
}

// Reading stops at the first error, which names its position; what came before was written.
TEST(ScriptReaderTest, MalformedAndUnsupportedInput) {
  struct {
    char const* script;
    char const* where;    // line:column
    char const* message;  // a part of the message
    int lines_before;     // trace lines written before the error
  } const cases[] = {
      {"(assert (> x 1))", "1:12", "unknown symbol 'x'", 0},
      {"(declare-fun x () Int)\n(assert (and x true))", "2:10", "Int", 1},
      {"(declare-fun x () Int", "1:22", "expected ')'", 0},
      {"(echo \"a\nb\")\t(foo)", "2:6", "the command 'foo' is not supported", 0},
      {"(assert (forall ((x Int)) 5))", "1:9", "body of forall must be a formula of sort Bool", 0},
      {"(assert (forall () true))", "1:18", "expected a sorted variable", 0},
      {"(assert (exists ((x Int) (x Bool)) true))", "1:27", "'x' is bound twice in one exists", 0},
      {"(assert (! true :pattern (true)))", "1:17", "only on the body of a quantifier", 0},
      {"(assert (forall ((x Int)) (! (> x 0) :named n)))", "1:38", "variable occurs free", 0},
      {"(assert (forall ((x Int)) (> x 0)))(assert (> x 0))", "1:47", "unknown symbol 'x'", 1},
      {"(assert forall)", "1:9", "'forall' needs its variables and body", 0},
      {"(define-fun-rec f ((n Int)) Bool (+ n 1))", "1:34", "the body of 'f' has sort Int", 0},
      {"(define-fun-rec f ((n Int) (n Int)) Int n)", "1:29", "parameter 'n' occurs twice", 0},
      {"(define-funs-rec ((f () Int) (g () Int)) (1))", "1:44", "one body per function", 0},
      {"(declare-fun f () Int)(define-fun-rec f () Int 1)", "1:39", "already declared", 1},
      {"(check-sat)(minimize x)", "1:13", "the command 'minimize' is not supported", 1},
      {"(declare-sort S 1)(declare-fun x () S)", "1:37", "the sort 'S' takes 1 argument(s)", 1},
      {"(declare-sort S 2)(declare-fun x () (S Int))", "1:43", "'S' takes 2 argument(s)", 1},
      {"(declare-datatypes ((L 1)) ((par (T) ((nil) (cons (hd T) (tl (L T)))))))"
       "(assert (= nil nil))",
       "1:82", "the sort of 'nil' is not known here: write (as nil SORT)", 0},
      {"(declare-datatypes ((L 1)) ((par (T) ((nil) (cons (hd T) (tl (L T)))))))"
       "(declare-fun x () (L Int))(assert (= (cons true nil) x))",
       "1:108", "((L Bool) (L Int))", 2},
      {"(declare-datatypes ((L 1)) (((nil))))", "1:30", "expected 'par'", 0},
      {"(declare-datatypes ((L 1)) ((par (T U) ((nil)))))", "1:22", "takes 1 sort parameter", 0},
      {"(declare-datatype L (par (T T) ((nil))))", "1:29", "'T' is repeated", 0},
      {"(declare-datatype L (par (T) ((c (s U)))))", "1:37", "unknown sort 'U'", 0},
      {"(define-sort M (K V) (Array K V))(declare-fun m () (M Int))", "1:58", "'M' takes 2", 0},
      {"(define-sort M (K) K)(declare-fun m () M)", "1:40", "'M' takes 1 argument", 0},
      {"(define-sort M (K) K)(declare-fun m () (M Int Int))", "1:47", "expected ')'", 0},
      {"(define-sort M (K K) K)", "1:19", "'K' is repeated", 0},
      {"(define-sort M (K) (Array K V))", "1:29", "unknown sort 'V'", 0},
      {"(define-sort M (K) K)(define-sort M () Int)", "1:35", "already declared or defined", 0},
      {"(define-sort M (K) K)(declare-sort M 0)", "1:36", "already declared or defined", 0},
      {"(declare-fun x () Int)(assert (= x \"a\"))", "1:36", "string literals are not", 1},
      {"(assert (= ((as const Int) 0) 0))", "1:23", "needs an array sort, found Int", 0},
      {"(assert (= ((as const (Array Int Int)) true) 0))", "1:14", "has sort Bool", 0},
      {"(assert (= ((as nil (Array Int Int)) 0) 0))", "1:17", "(as nil ...) are not", 0},
      {"(pop 1)", "1:6", "only 0 push level(s) are open", 0},
      {"(push 1)(pop)(pop)", "1:15", "cannot pop 1 level(s)", 2},
      {"(push 1)(push 2000000)", "1:15", "too large", 1},
      {"(declare-fun x () Int)(push 1)(declare-fun x () Int)", "1:44", "already declared", 2},
      {"(push 1)(declare-fun x () Int)(push 1)(declare-fun x () Bool)", "1:52", "already declared",
       3},
      {"(declare-fun Int () Bool)", "1:14", "built-in name", 0},
      {"(assert 5)", "1:9", "expects a formula of sort Bool, found sort Int", 0},
      {"(assert (let ((x true) (x false)) x))", "1:25", "'x' is bound twice", 0},
      {"(assert (let ((a true)) (a 1)))", "1:26", "bound by let", 0},
      {"(check-sat))", "1:12", "expected '(' starting a command", 1},
      {"(assert |abc", "1:9", "quoted symbol not closed", 0},
      {"(assert (= #b #b1))", "1:14", "expected binary digits", 0},
      {"(declare-fun x () Real)(assert (= x 1.))", "1:39", "digit after the decimal point", 1},
      {"(check-sat)\n  (set-info : x)", "2:13", "expected a keyword name", 1},
      {"(check-sat)(assert \x01)", "1:20", "unexpected character 0x01", 1},
      {"(declare-fun f (Int) Int)(assert (= (f 1 2) 0))", "1:38", "'f' expects 1 argument", 1},
      {"(define-fun f () Int true)", "1:22", "the body of 'f' has sort Bool", 0},
      {"(assert (= (bvadd #b01 #b001) #b01))", "1:13", "bvadd", 0},
      {"(declare-fun v () (_ BitVec 0))", "1:29", "BitVec", 0},
      {"(assert (not (! true :interpolation-group g)))", "1:22", "only on an asserted formula", 0},
      {"(set-option :config \"no.such.key=1\")", "1:21", "no.such.key", 0},
      {"(declare-datatype A ((a (fa Int))))(declare-datatype B ((b (fb Int))))"
       "(declare-const y B)(assert (= (fa y) 1))",
       "1:102", "argument 1 of 'fa' has sort B, expected sort A", 2},
      {"(declare-datatype A ((a) (a)))", "1:27", "'a' is declared twice", 0},
      {"(declare-datatype A ((a (s Int)) (b (s Int))))", "1:38", "'s' is declared twice", 0},
      {"(declare-datatype A ((a)))(declare-datatype B ((a)))", "1:49", "already declared", 0},
      {"(declare-datatypes ((A 0) (A 0)) (((a)) ((b))))", "1:28", "already declared", 0},
      {"(declare-datatype A ((a (s A))))", "1:2", "has no value", 0},
      {"(declare-datatypes () ((A (a (s B)))))", "1:33", "unknown sort 'B'", 0},
      {"(declare-datatype A ((a) (b)))(declare-const x A)(assert (match x ((1 true))))", "1:69",
       "expected a pattern", 2},
      {"(declare-datatype A ((a (s Int)) (b)))(declare-const x A)"
       "(assert (match x (((a 1) true) (b false))))",
       "1:80", "expected a variable in a pattern", 2},
      {"(declare-datatype A ((a (s Int)) (b)))(declare-const x A)(assert (match x ((b true))))",
       "1:66", "no case for the constructor 'a'", 2},
      {"(declare-datatype A ((a (s Int)) (b)))(declare-const x A)"
       "(assert (match x (((a v) v) (b false))))",
       "1:66", "invalid match", 2},
      {"(declare-datatype A ((a) (b)))(assert (match 1 ((a true))))", "1:39",
       "match needs a term of a datatype", 0},
      {"(declare-datatype A ((a) (b)))(assert ((_ is c) a))", "1:46", "'c' is not a constructor",
       0},
      {"(declare-codatatypes ((S 0)) (((s))))", "1:2", "codatatypes", 0},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.script);
    Session s;
    std::string const error = s.read(c.script);
    EXPECT_EQ(error.rfind("s.smt2:" + std::string(c.where) + ": error: ", 0), 0u) << error;
    EXPECT_NE(error.find(c.message), std::string::npos) << error;
    std::string const body = s.body();
    EXPECT_EQ(std::count(body.begin(), body.end(), '\n'), c.lines_before) << body;
  }
}

// Nesting 10^6 deep, as terms and as lets, is read and traced without recursion; the second
// read uses what the first declared, and positions stay exact on a very long line.
TEST(ScriptReaderTest, MillionDeepNesting) {
  constexpr std::size_t kDepth = 1000000;
  std::string nots;
  std::string lets = "(assert (let ((a0 p)) (let ((a (not a0))) ";
  for (std::size_t i = 0; i < kDepth; ++i) {
    nots += "(not ";
    lets += i + 2 < kDepth ? "(let ((a (not a))) " : "";
  }
  std::string const closing(kDepth, ')');
  lets += "a" + closing + ")";
  Session s;
  EXPECT_EQ(s.read("(declare-fun p () Bool)(assert " + nots + "p" + closing + ")"), "");
  EXPECT_EQ(s.read(lets + "(foo)"), "s.smt2:1:" + std::to_string(lets.size() + 2) +
                                        ": error: the command 'foo' is not supported");
  EXPECT_TRUE(s.body() == "(declare-fun p () Bool)\n(assert " + nots + "p" + closing + ")\n" +
                              "(assert " + nots.substr(5) + "p" + closing.substr(1) + ")\n");
}

// Binders nested 10^6 deep, each over the same variable, are read and traced in both modes
// without recursion; each level is closed, so global-declarations mode defines every one.
TEST(ScriptReaderTest, MillionDeepBinders) {
  constexpr std::size_t kDepth = 1000000;
  std::string script = "(assert ";
  for (std::size_t i = 0; i < kDepth; ++i) {
    script += i % 2 == 0 ? "(forall ((x Int)) (or (> x 0) " : "(exists ((x Int)) (and (< x 0) ";
  }
  script += "true" + std::string(2 * kDepth, ')') + ")";
  Session scoped;
  EXPECT_EQ(scoped.read(script), "");
  EXPECT_TRUE(scoped.body() == script + "\n");
  TermManager mgr;
  Configuration config;
  std::ostringstream out;
  Solver solver{mgr, config, nullptr, out, true, false};
  ScriptReader reader{solver};
  std::istringstream in(script);
  reader.read(in, "s.smt2");
  std::string const trace = out.str();
  // The header, the mode, 0 and true, a definition per binder, the assertion.
  EXPECT_EQ(std::count(trace.begin(), trace.end(), '\n'), 2 + 1 + 2 + kDepth + 1);
  EXPECT_NE(trace.find("(define-fun ." + std::to_string(mgr.num_terms()) +
                       " () Bool (forall ((x Int)) (or "),
            std::string::npos);
}

// Constructor terms and matches nested 10^6 deep are read and traced without recursion.
TEST(ScriptReaderTest, MillionDeepConstructorsAndMatches) {
  constexpr std::size_t kDepth = 1000000;
  std::string succs;
  std::string matches;
  for (std::size_t i = 0; i < kDepth; ++i) {
    succs += "(s ";
    matches += i == 0 ? "(match n (((s m) " : "(match m (((s m) ";
  }
  std::string const declaration = "(declare-datatypes () ((N z (s (p N)))))(declare-const n N)";
  std::string const deep = "(assert (= n " + succs + "z" + std::string(kDepth, ')') + "))";
  std::string nested = "(assert ";
  nested.append(matches).append("true");
  for (std::size_t i = 0; i < kDepth; ++i) {
    nested += ") (z false)))";
  }
  nested += ")";
  Session s;
  EXPECT_EQ(s.read(declaration + deep + nested), "");
  std::string const body = s.body();
  EXPECT_EQ(body.rfind("(declare-datatypes ((N 0)) (((z) (s (p N)))))\n(declare-fun n () N)\n", 0),
            0u)
      << body.substr(0, 100);
  EXPECT_NE(body.find("(assert (= n " + succs.substr(0, 300)), std::string::npos);
  // Each level tests the field of the level above: (ite ((_ is s) n) (ite ((_ is s) (p n)) ...
  std::size_t ites = 0;
  for (std::size_t at = body.find("(ite "); at != std::string::npos;
       at = body.find("(ite ", at + 1)) {
    ++ites;
  }
  EXPECT_EQ(ites, kDepth);
}

// Sort-macro applications 10^6 deep, in a declaration and in another macro's body, are read
// and expanded without recursion.
TEST(ScriptReaderTest, MillionDeepSortApplications) {
  constexpr std::size_t kDepth = 1000000;
  std::string opens;
  for (std::size_t i = 0; i < kDepth; ++i) {
    opens += "(P ";
  }
  std::string const closing(kDepth, ')');
  Session s;
  EXPECT_EQ(s.read("(define-sort P (X) X)(declare-fun a () " + opens + "Int" + closing +
                   ")(define-sort D (Y) (Array Y " + opens + "Y" + closing +
                   "))(declare-fun b () (D Bool))"),
            "");
  EXPECT_EQ(s.body(), "(declare-fun a () Int)\n(declare-fun b () (Array Bool Bool))\n");
}

// A command is carried out at its ')' without waiting for more of an interactive input.
TEST(LexerTest, NothingIsReadPastTheCurrentToken) {
  std::istringstream in("(check-sat)rest");
  Lexer lexer(in, "in");
  for (int i = 0; i < 3; ++i) {
    lexer.next();
  }
  EXPECT_EQ(lexer.bytes_read(), 11u);
  EXPECT_EQ(in.rdbuf()->sgetc(), 'r');
}

}  // namespace
}  // namespace smt2
}  // namespace tvx
