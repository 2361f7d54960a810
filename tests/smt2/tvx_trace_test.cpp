// The tvx-trace program: exit status 0, 1 or 2, standard input or a file, -o, help and options,
// The tvx-trace program: exit status 0, 1 or 2, standard input or a file, -o, help and options,
// an input error that keeps the trace written before it, and a script answered through an
// engine with --solver, whose trace replays to the same answers. Scripts that use names again
// after their scope is gone, or names of theories tvx does not model, replay in z3 and cvc5 in
// both modes with the answers z3 gives for the script itself.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr char const* kScript =
    "(set-logic QF_UF)\n(declare-fun p () Bool)\n(assert (not p))\n(check-sat)\n";
constexpr char const* kTrace = "(declare-fun p () Bool)\n(assert (not p))\n(check-sat)\n";

class TvxTraceTest : public ::testing::Test {
 protected:
  TvxTraceTest() : tmp_(mkdtemp(tmpl_) ? tmpl_ : "") {}
  ~TvxTraceTest() override { std::system(("rm -rf '" + tmp_ + "'").c_str()); }

  static std::string slurp(std::string const& path) {
    std::ostringstream ss;
    ss << std::ifstream(path, std::ios::binary).rdbuf();
    return ss.str();
  }

  std::string write(std::string const& name, std::string const& text) {
    std::ofstream(tmp_ + "/" + name, std::ios::binary) << text;
    return "'" + tmp_ + "/" + name + "'";
  }

  // Runs the tool with `args` (shell words) and `input` on standard input; keeps its output and
  // returns its exit status.
  int run(std::string const& args, std::string const& input = kScript) {
    std::string const cmd = std::string("'") + TVX_BINARY_DIR + "/tools/tvx-trace' " + args + " <" +
                            write("stdin", input) + " >'" + tmp_ + "/out' 2>'" + tmp_ + "/err'";
    int const raw = std::system(cmd.c_str());
    out_ = slurp(tmp_ + "/out");
    err_ = slurp(tmp_ + "/err");
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  }
  bool out_has(std::string const& part) const { return out_.find(part) != std::string::npos; }

  // The answers of a shell command line that reads a script, joined by commas: sat, unsat,
  // unknown and error lines.
  std::string answers(std::string const& command) {
    std::system(("timeout 20 " + command + " 2>&1 | grep -E '^(sat|unsat|unknown)$|^\\(error' |" +
                 " paste -sd, >'" + tmp_ + "/answers'")
                    .c_str());
    std::string const out = slurp(tmp_ + "/answers");
    return out.substr(0, out.find('\n'));
  }

  char tmpl_[27] = "/tmp/tvx_trace_test_XXXXXX";
  std::string tmp_, out_, err_;
};

TEST_F(TvxTraceTest, HelpAndUsageErrors) {
  EXPECT_EQ(run("--help"), 0);
  EXPECT_EQ(out_.rfind("usage: tvx-trace", 0), 0u) << out_;
  for (char const* args : {"--bogus", "--set", "--set no_equals_sign", "--set no.such.key=1",
                           "--set api_call_trace=notanumber", "-o", "a.smt2 b.smt2"}) {
    EXPECT_EQ(run(args), 2) << args;
    EXPECT_EQ(err_.rfind("tvx-trace: error: ", 0), 0u) << args << ": " << err_;
    EXPECT_EQ(out_, "") << args;
  }
}

TEST_F(TvxTraceTest, InputsOutputsAndOptions) {
  for (char const* args : {"", "-"}) {
    EXPECT_EQ(run(args), 0) << err_;
    EXPECT_EQ(out_.rfind(";; Tarvex API call trace\n", 0), 0u) << out_;
    EXPECT_EQ(out_.substr(out_.size() - std::string(kTrace).size()), kTrace) << out_;
  }
  EXPECT_EQ(run("-o '" + tmp_ + "/trace.smt2' " + write("in.smt2", kScript), ""), 0) << err_;
  EXPECT_EQ(out_, "");
  EXPECT_NE(slurp(tmp_ + "/trace.smt2").find(kTrace), std::string::npos);
  EXPECT_EQ(run("'" + tmp_ + "/missing.smt2'"), 1);
  EXPECT_NE(err_.find("cannot open"), std::string::npos) << err_;
  EXPECT_EQ(run("--global-decls --set printer.defines_prefix=d_"), 0) << err_;
  EXPECT_TRUE(out_has("(set-option :global-decls true)\n") && out_has("(assert d_")) << out_;
  EXPECT_EQ(run("--dump-config --set=printer.defines_prefix=d_"), 0) << err_;
  EXPECT_TRUE(out_has("(set-option :config \"printer.defines_prefix=d_\")\n")) << out_;
  EXPECT_FALSE(out_has(":global-decls")) << out_;
}

// An input error: its position on standard error, status 1, and the trace of every command
// before it, in the output file as on standard output.
TEST_F(TvxTraceTest, InputErrorKeepsTheTraceUpToIt) {
  std::string const bad = "(declare-fun p () Bool)\n(check-sat)\n(assert (and p q))\n(check-sat)\n";
  EXPECT_EQ(run("-o '" + tmp_ + "/trace.smt2' " + write("bad.smt2", bad)), 1);
  EXPECT_EQ(err_, tmp_ + "/bad.smt2:3:16: error: unknown symbol 'q'\n");
  std::string const trace = slurp(tmp_ + "/trace.smt2");
  EXPECT_EQ(trace.substr(trace.find("(declare")), "(declare-fun p () Bool)\n(check-sat)\n");
  EXPECT_EQ(run("", "(check-sat)\n(pop 1)\n"), 1);
  EXPECT_EQ(err_.rfind("<stdin>:2:6: error: ", 0), 0u) << err_;
  EXPECT_EQ(out_.substr(out_.size() - 12), "(check-sat)\n");
}

// With --solver the responses go to standard output and the trace to --trace; an error is
// answered once, on standard output, and the session goes on after it, as z3 goes on.
TEST_F(TvxTraceTest, SolverAnswersAndTracesTheSession) {
  if (std::system("command -v z3 >/dev/null") != 0) {
    GTEST_SKIP() << "needs z3 on the path to replay the trace";
  }
  std::string const script =
      "(set-logic QF_LIA)\n(declare-fun x () Int)\n(declare-fun y () Int)\n"
      "(assert (! (> x 2) :named big))\n(assert (< y x))\n(check-sat)\n(get-value (x (+ x 1)))\n"
      "(echo \"one \"\"word\"\"\")\n(push 1)\n(assert (! (< x 0) :named negative))\n"
      "(check-sat)\n(get-unsat-core)\n(get-interpolant (g))\n(pop 1)\n"
      "(check-sat-assuming ((< x 0)))\n(get-unsat-assumptions)\n(get-info :reason-unknown)\n"
      "(get-option :produce-models)\n(check-sat)\n(get-model)\n(assert (+ x 1))\n(check-sat)\n";
  std::string const trace_file = tmp_ + "/trace.smt2";
  EXPECT_EQ(run("--solver z3 --trace '" + trace_file + "'", script), 1);
  std::istringstream lines(out_);
  std::vector<std::string> got;
  for (std::string line; got.size() < 12 && std::getline(lines, line);) {
    got.push_back(line);
  }
  ASSERT_EQ(got.size(), 12u) << out_;
  EXPECT_EQ(got[0], "sat");
  EXPECT_EQ(got[1].rfind("((x ", 0), 0u) << got[1];
  EXPECT_EQ(got[2], "\"one \"\"word\"\"\"");
  EXPECT_EQ(got[3], "unsat");
  EXPECT_EQ(got[4], "(big negative)");
  // No assertion is in g: with A empty the interpolant is true, answered without z3 (which has
  // no interpolation).
  EXPECT_EQ(got[5], "true");
  EXPECT_EQ(got[6], "unsat");
  EXPECT_EQ(got[7], "((< x 0))");
  EXPECT_EQ(got[8], "(:reason-unknown unknown)");
  EXPECT_EQ(got[9], "true");
  EXPECT_EQ(got[10], "sat");
  EXPECT_EQ(got[11], "(");
  EXPECT_NE(out_.find("(define-fun y () Int"), std::string::npos) << out_;
  EXPECT_EQ(out_.substr(out_.rfind("(error")),
            "(error \"<stdin>:21:9: error: assert expects a formula of sort Bool, found sort "
            "Int\")\nsat\n")
      << out_;
  EXPECT_EQ(err_, "") << "the error is not written twice";
  // The trace holds every call but the one that failed and gives the same answers in z3.
  std::string const trace = slurp(trace_file);
  EXPECT_EQ(trace.substr(trace.size() - 24), "(get-model)\n(check-sat)\n") << trace;
  std::system(("z3 -smt2 '" + trace_file + "' >'" + tmp_ + "/z3.out' 2>&1").c_str());
  std::string const z3 = slurp(tmp_ + "/z3.out");
  EXPECT_EQ(z3.substr(0, 4), "sat\n") << z3;
  EXPECT_NE(z3.find("unsat\n"), std::string::npos) << z3;

  EXPECT_EQ(run("--solver no-such-engine"), 1);
  EXPECT_NE(err_.find("no-such-engine"), std::string::npos) << err_;
  // A solver process answers the same way.
  EXPECT_EQ(run("--solver 'z3 -in'", "(declare-fun p () Bool)(assert p)(check-sat)(get-value (p))"),
            0)
      << err_;
  EXPECT_EQ(out_, "sat\n((p true))\n");
  EXPECT_EQ(run("--help"), 0);
  EXPECT_NE(out_.find("z3"), std::string::npos) << out_;
}

// The queries that read the session's state: get-assertions lists the assertions of the open
// scopes, get-assignment the named formulas in scope; after a reset both are empty. Every
// engine answers alike.
TEST_F(TvxTraceTest, AssertionsAndAssignmentsFollowScopesAndReset) {
  std::string const script =
      "(declare-fun x () Int)(assert (! (> x 2) :named big))(push 1)"
      "(assert (! (< x 4) :named small))(assert (! (= x 7) :named seven))(pop 1)"
      "(assert (< x 4))(check-sat)(get-assertions)(get-assignment)(reset)(get-assertions)"
      "(declare-fun x () Bool)(assert (! (not x) :named nx))(check-sat)(get-assignment)";
  for (std::string const engine : {"z3", "cvc5", "'z3 -in'"}) {
    SCOPED_TRACE(engine);
    if (engine == "'z3 -in'" && std::system("command -v z3 >/dev/null") != 0) {
      continue;
    }
    ASSERT_EQ(run("--solver " + engine, script), 0) << err_;
    EXPECT_EQ(out_, "sat\n((> x 2) (< x 4))\n((big true))\n()\nsat\n((nx true))\n");
  }
}

// Each script, traced in scoped and in global-declarations mode, replays in z3 and in cvc5 with
// the command lines the README gives, answering as z3 does on the script itself.
TEST_F(TvxTraceTest, ScriptsReplayInZ3AndCvc5InBothModes) {
  if (std::system("(command -v z3 && command -v cvc5 && command -v timeout) >/dev/null") != 0) {
    GTEST_SKIP() << "needs z3, cvc5 and timeout on the PATH";
  }
  std::pair<char const*, char const*> const scripts[] = {
      {"after pop, another sort",
       "(push 1)(declare-fun a () (Array Int Int))(assert (= (select a 0) 7))(check-sat)(pop 1)"
       "(declare-fun a (Int) Int)(assert (= (a 0) 5))(check-sat)"},
      {"sorts",
       "(push 1)(declare-sort V 0)(declare-fun x () V)(declare-fun y () V)"
       "(assert (not (= x y)))(check-sat)(pop 1)(define-sort V () Bool)"
       "(declare-fun x () V)(declare-fun y () V)(declare-fun z () V)"
       "(assert (distinct x y))(check-sat)(assert (distinct x y z))(check-sat)"
       "(push 1)(declare-sort V2 0)(declare-fun x2 () V2)(pop 1)(declare-sort V2 0)"
       "(declare-fun x2 () V2)(declare-fun y2 () V2)(assert (distinct x2 y2))(check-sat)"},
      {"macros",
       "(push 1)(define-fun m ((p Int)) Int (+ p 1))(define-sort S () Int)"
       "(declare-fun s () S)(assert (= (m s) 3))(check-sat)(pop 1)"
       "(define-sort S () Bool)(declare-fun m () S)(declare-fun s () S)"
       "(assert (and m (not s)))(check-sat)(assert (= m s))(check-sat)"},
      {"nested scopes",
       "(declare-fun k () Int)(push 1)(declare-fun a () Int)(push 1)(declare-fun b () Bool)"
       "(assert (and b (> a k)))(check-sat)(pop 2)(declare-fun a () Bool)(push 1)"
       "(declare-fun b () Int)(assert (and a (< b k)))(check-sat)(pop 1)"
       "(declare-fun b () (Array Int Bool))(assert (and (select b k) (not (select b 0)) (= k 0)))"
       "(check-sat)"},
      {"declared again twice, beside a name like a made-up one",
       "(declare-fun a!1 () Int)(push 1)(declare-fun a () Int)(assert (> a 5))(check-sat)(pop 1)"
       "(push 1)(declare-fun a () Bool)(assert (not a))(check-sat)(pop 1)"
       "(declare-fun a (Int) Int)(assert (= (a 1) a!1))(check-sat)(assert (= (a 1) (+ a!1 1)))"
       "(check-sat)"},
      {"names of other theories",
       "(declare-sort Relation 0)(declare-fun char (Int) Relation)"
       "(declare-fun bv2int ((_ BitVec 4)) Int)(declare-fun fp.add (Int Int) Int)"
       "(declare-fun re.* () Bool)(declare-fun seq.len () Int)(declare-fun nat2bv (Int) (_ BitVec "
       "4))"
       "(declare-fun exp () Real)(declare-fun str.len (Int) Int)(declare-fun _str.len () Int)"
       "(assert (= (fp.add seq.len 1) (bv2int (nat2bv 3)) (str.len _str.len)))"
       "(assert (distinct (char 1) (char 2)))(assert (=> re.* (> exp 1.0)))(check-sat)(push 1)"
       "(assert (and re.* (< exp 0.0)))(check-sat)(pop 1)(assert (= seq.len (str.len 0)))"
       "(assert (distinct (str.len 0) (str.len _str.len)))(check-sat)"},
      {"reset",
       "(declare-sort U 0)(declare-fun x () U)(declare-fun y () U)(define-fun d () Bool true)"
       "(push 1)(assert (and d (distinct x y)))(check-sat)(reset)(declare-fun x () Int)"
       "(define-fun d () Int 3)(push 1)(assert (> x d))(check-sat)(reset)(reset)"
       "(declare-sort U 0)(declare-fun x () Bool)(declare-fun y () U)(assert (and x (not x)))"
       "(check-sat)"},
      {"quantifiers",
       "(declare-sort U 0)(declare-fun f (Int) Int)(declare-fun p (U Int) Bool)"
       "(declare-fun x () U)(declare-fun c () Int)"
       "(assert (forall ((y Int)) (! (> (f y) (+ y c)) :pattern ((f y)) :qid fmono :weight 2)))"
       "(assert (= c 1))(push 1)(assert (< (f 3) 4))(check-sat)(pop 1)(push 1)"
       "(assert (exists ((x Int)) (and (= (f x) (+ x c)) (forall ((x Int)) (! (> (f x) x) "
       ":no-pattern (+ x c))))))(check-sat)(pop 1)"
       "(assert (forall ((x U) (y Int)) (=> (p x y) (exists ((y Int)) (not (p x y))))))"
       "(assert (p x (f c)))(assert (forall ((y Int)) (p x y)))(check-sat)"},
      {"recursive definitions",
       "(declare-sort U 0)(define-fun-rec fact ((n Int)) Int (ite (<= n 0) 1 (* n (fact (- n 1)))))"
       "(define-funs-rec ((ev ((n Int)) Bool) (od ((n Int)) Bool)) ((ite (= n 0) true (od (- n 1)))"
       " (ite (= n 0) false (ev (- n 1)))))(push 1)(assert (= (fact 3) 7))(check-sat)(pop 1)"
       "(push 1)(define-fun-rec same ((u U) (k Int)) U (ite (<= k 0) u (same u (- k 1))))"
       "(declare-fun a () U)(declare-fun b () U)(assert (distinct (same a 2) a))(check-sat)(pop 1)"
       "(assert (od 4))(check-sat)"},
      {"constant arrays",
       "(declare-fun a () (Array Int Int))(declare-fun b () (Array Int Real))"
       "(assert (= a (store ((as const (Array Int Int)) 0) 1 5)))(assert (= (select a 2) 0))"
       "(check-sat)(assert (= b ((as const (Array Int Real)) (- 1.5))))"
       "(assert (= (select b 7) (select ((as const (Array Int Real)) (/ (- 3) 2)) 0)))(check-sat)"
       "(assert (= (select a 1) (select ((as const (Array Int Int)) 4) 0)))(check-sat)"},
      {"datatypes",
       "(declare-sort U 0)(declare-datatypes () ((Pair (mk-pair (first Int) (second U)))))"
       "(declare-datatypes ((Lst 0) (Tree 0)) (((nil) (cons (hd Tree) (tl Lst)))"
       " ((leaf (val Int)) (node (kids Lst)))))(declare-datatype Color ((red) (green) (blue)))"
       "(declare-const l Lst)(declare-const p Pair)(declare-const c Color)(push 1)"
       "(assert ((_ is cons) l))(assert (is-leaf (hd l)))(assert (> (val (hd l)) 2))"
       "(assert (= c (match l ((nil red) ((cons h t) (match h (((leaf v) (ite (> v 5) green "
       "blue)) (other red))))))))(check-sat)(assert (= c blue))(check-sat)"
       "(assert (not (= (val (hd l)) 3)))(check-sat)(pop 1)(push 1)"
       "(declare-datatypes () ((Nat zero (succ (pred Nat)))))(declare-const n Nat)"
       "(assert (= (succ n) (succ (succ zero))))(assert (is-zero n))(check-sat)(pop 1)"
       "(declare-datatypes () ((Nat zero (succ (pred Nat)))))(declare-const n Nat)"
       "(assert (= (first p) 4))(assert (distinct c red (as green Color)))"
       "(assert (=> ((_ is succ) n) (distinct n (pred n))))"
       "(assert (= n (succ (succ zero))))(check-sat)"
       "(assert (= l (cons (node nil) (cons (leaf 1) nil))))(assert (is-leaf (hd l)))(check-sat)"},
      {"integer and bit-vector conversions",
       "(declare-fun b () (_ BitVec 8))(declare-fun i () Int)(assert (= (bv2nat b) 200))"
       "(assert (= ((_ int2bv 8) i) (bvadd b #x01)))(assert (< i 0))(check-sat)"
       "(assert (= (bv2nat ((_ int2bv 4) i)) 9))(check-sat)(push 1)"
       "(assert (= (bv2nat ((_ int2bv 3) (bv2nat b))) 1))(check-sat)(pop 1)"},
      {"parametric datatypes and sorts",
       "(declare-datatypes ((Lst 1) (Pair 2)) ((par (T) ((nil) (cons (hd T) (tl (Lst T)))))"
       " (par (A B) ((mk (fst A) (snd B))))))(declare-sort S 1)"
       "(declare-datatype Opt (par (X) ((none) (some (val X)))))(declare-fun s () (S Int))"
       "(declare-fun x () (Lst Int))(declare-fun y () (Lst Bool))"
       "(declare-fun p () (Pair Int (S Int)))(declare-fun o () (Opt (Lst Int)))"
       "(assert (= x ((as cons (Lst Int)) 1 (as nil (Lst Int)))))(assert (is-cons y))"
       "(assert (not (= y (as nil (Lst Bool)))))(assert (= (tl y) (cons false (as nil (Lst "
       "Bool)))))"
       "(assert (= (snd p) s))"
       "(assert (= o (some (cons 5 x))))(assert (match o ((none false) ((some v) (= (hd v) 5)))))"
       "(check-sat)(push 1)(assert (is-nil (tl (val o))))(check-sat)(pop 1)"
       "(assert (= (fst p) (hd (tl (val o)))))(assert (distinct (fst p) 1))(check-sat)"},
  };
  std::string const trace = "'" + tmp_ + "/trace.smt2'";
  for (auto const& [what, script] : scripts) {
    SCOPED_TRACE(what);
    std::string const original = answers("z3 -smt2 " + write("script.smt2", script));
    ASSERT_NE(original.find("sat"), std::string::npos) << original;
    ASSERT_EQ(original.find("error"), std::string::npos) << original;
    for (std::string const mode : {"", "--global-decls --set printer.defines_prefix=d_ "}) {
      SCOPED_TRACE(mode);
      ASSERT_EQ(run(mode + "-o " + trace + " '" + tmp_ + "/script.smt2'"), 0) << err_;
      EXPECT_EQ(answers("z3 -smt2 " + trace), original);
      EXPECT_EQ(answers("sed 's/^(set-option :global-decls true)$/"
                        "(set-option :global-declarations true)/' " +
                        trace + " | cvc5 --lang=smt2 --incremental"),
                original);
      // Printed names read back as names of their own: tracing the trace reaches a fixed point.
      std::string rounds[2];
      std::string input = slurp(tmp_ + "/trace.smt2");
      for (std::string& round : rounds) {
        ASSERT_EQ(run(mode, input), 0) << err_;
        input = out_;
        round = out_.substr(out_.find('\n', out_.find(";; generated on")) + 1);
      }
      EXPECT_EQ(rounds[0], rounds[1]);
    }
  }
}

}  // namespace
