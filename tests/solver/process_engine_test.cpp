// The process engine against real solvers over pipes (z3 and cvc5, each skipped when its
// binary is absent) where it differs from the engines in process: names, the shapes of answers a
// solver writes, declarations a solver scopes; and against fake solvers, small shell scripts
// that crash, hang, print garbage, refuse or report errors: every fault ends in a clear error,
// and no child process or descriptor is left behind. What every engine answers is checked in
// engine_suite_test.
#include <dirent.h>
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <tvx/core/error.h>
#include <tvx/smt2/response_writer.h>
#include <tvx/solver/solver.h>

namespace tvx {
namespace {

using ::testing::HasSubstr;

// Whether `program` is an executable in one of PATH's directories.
bool on_path(std::string const& program) {
  return std::system(("command -v '" + program + "' >/dev/null 2>&1").c_str()) == 0;
}

std::size_t open_fds() {
  std::size_t n = 0;
  DIR* d = opendir("/proc/self/fd");
  while (readdir(d) != nullptr) {
    ++n;
  }
  closedir(d);
  return n;
}

// No child process of this test is left, running or as a zombie.
bool no_child_left() {
  errno = 0;
  return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

// ------------------------------------------------------------------------ real solvers

// z3 behind a shell that refuses :global-declarations, so that declarations are scoped: the
// engine must declare again what a pop removed (z3 keeps declarations on reset-assertions).
constexpr char const* kScopedZ3 =
    R"(sh -c "exec 3>&1; while IFS= read -r l; do case \"$l\" in *:global-declarations*) )"
    R"(echo unsupported >&3;; *) printf '%s\n' \"$l\";; esac; done | z3 -in")";

class ProcessEngineTest : public ::testing::TestWithParam<char const*> {
 protected:
  void SetUp() override {
    std::string const command = GetParam();
    std::string const program = command == kScopedZ3 ? "z3" : command.substr(0, command.find(' '));
    if (!on_path(program)) {
      GTEST_SKIP() << program << " is not installed; its process engine is not tested";
    }
    config_.model_generation = true;
    config_.unsat_core_generation = true;
    fds_ = open_fds();
    solver_ = std::make_unique<Solver>(mgr_, config_, make_engine(command, mgr_, config_));
    I_ = mgr_.get_integer_type();
    x_ = constant("x", I_);
    y_ = constant("y", I_);
  }
  void TearDown() override {
    if (solver_ != nullptr) {
      solver_.reset();
      EXPECT_TRUE(no_child_left());
      EXPECT_EQ(open_fds(), fds_) << "descriptors leaked";
    }
  }
  Term const* constant(char const* name, DataType const* sort) {
    return mgr_.make_constant(mgr_.make_symbol(name, sort));
  }
  Term const* num(char const* v) { return mgr_.make_number(v, I_); }
  Term const* op(char const* o, std::vector<Term const*> const& args) {
    return mgr_.make_builtin(o, args);
  }

  TermManager mgr_;
  Configuration config_;
  std::unique_ptr<Solver> solver_;
  std::size_t fds_ = 0;
  DataType const* I_ = nullptr;
  Term const* x_ = nullptr;
  Term const* y_ = nullptr;
};

TEST_P(ProcessEngineTest, UserNamesThatAreSymbolsOfOtherTheoriesStayTheUsers) {
  Solver& s = *solver_;
  DataType const* U = s.declare_sort("Set");
  Term const* empty = constant("set.empty", U);
  Term const* onion = constant("union", U);
  Term const* len = constant("str.len", I_);
  s.assert_formula(mgr_.make_equal(onion, empty));
  s.assert_formula(op(">", {len, num("3")}));
  ASSERT_EQ(s.check(), CheckResult::Sat);
  EXPECT_EQ(s.get_model_value(onion), s.get_model_value(empty));
  Model const m = s.get_model();
  ASSERT_EQ(m.constants.size(), 3u);
  EXPECT_EQ(m.constants[2].first->get_name(), "str.len");
  s.assert_formula(mgr_.make_equal(len, m.constants[2].second));
  EXPECT_EQ(s.check(), CheckResult::Sat);
}

TEST_P(ProcessEngineTest, ValuesInEveryShapeTheSolversPrintReadBack) {
  // Shapes z3 prints: a long store chain as a let, an array of Bool as a lambda, a function of
  // Bool parameters as a conjunction of literals.
  Solver& s = *solver_;
  DataType const* B = mgr_.get_bool_type();
  DataType const* B8 = mgr_.get_bv_type(8);
  DataType const* B32 = mgr_.get_bv_type(32);
  Term const* m = constant("m", mgr_.get_array_type(B32, B8));
  Term const* arr = constant("arr", mgr_.get_array_type(B8, B));
  Term const* b = constant("b", B8);
  Symbol const* p = s.declare_fun("p", {B, B}, B);
  auto bv = [&](char const* v, DataType const* sort) { return mgr_.make_number(v, sort); };
  s.assert_formula(mgr_.make_equal(op("store", {arr, op("bvadd", {b, b}), mgr_.make_true()}), arr));
  char const* values[] = {"#xf1", "#xf2", "#xf3", "#xf4", "#xf5"};
  for (int i = 0; i < 5; ++i) {
    s.assert_formula(
        mgr_.make_equal(op("select", {m, bv(std::to_string(i).c_str(), B32)}), bv(values[i], B8)));
  }
  Term const* t = mgr_.make_true();
  Term const* f = mgr_.make_false();
  s.assert_formula(mgr_.make_term(p, {f, f}));
  s.assert_formula(mgr_.make_not(mgr_.make_term(p, {t, f})));
  s.assert_formula(mgr_.make_not(mgr_.make_term(p, {f, t})));
  ASSERT_EQ(s.check(), CheckResult::Sat);
  Term const* mv = s.get_model_value(m);
  Term const* av = s.get_model_value(arr);
  Model const model = s.get_model();
  ASSERT_EQ(model.functions.size(), 1u);
  FunctionValue const& pv = model.functions[0].second;
  auto apply = [&](std::vector<Term const*> const& args) { return pv.at(args); };
  EXPECT_EQ(apply({f, f}), t);
  EXPECT_EQ(apply({t, f}), f);
  EXPECT_EQ(apply({f, t}), f);
  s.assert_formula(mgr_.make_equal(m, mv));
  s.assert_formula(mgr_.make_equal(arr, av));
  s.assert_formula(mgr_.make_equal(mgr_.make_term(p, {t, t}), apply({t, t})));
  EXPECT_EQ(s.check(), CheckResult::Sat);
}

INSTANTIATE_TEST_SUITE_P(Solvers, ProcessEngineTest,
                         ::testing::Values("z3 -in", "cvc5 --incremental --lang smt2", kScopedZ3),
                         [](::testing::TestParamInfo<char const*> const& info) {
                           std::string const p = info.param;
                           return p == kScopedZ3           ? "z3_scoped"
                                  : p.substr(0, 2) == "z3" ? "z3"
                                                           : "cvc5";
                         });

// A solver whose declarations are scoped: what a pop removed is declared again when used after
// it. (Scopes and reset on solvers that keep declarations global are in engine_suite_test.)
class ScopedDeclarationsTest : public ProcessEngineTest {};

TEST_P(ScopedDeclarationsTest, ChecksScopesAndResetFollowTheAssertions) {
  Solver& s = *solver_;
  EXPECT_EQ(s.engine()->name(), GetParam());
  s.assert_formula(op(">", {x_, y_}));
  EXPECT_EQ(s.check(), CheckResult::Sat);
  s.push();
  // A symbol first used inside a scope is declared again when used after it.
  Term const* z = constant("z", I_);
  s.assert_formula(op(">", {z, x_}));
  s.assert_formula(op(">", {y_, z}));
  EXPECT_EQ(s.check(), CheckResult::Unsat);
  s.pop();
  EXPECT_EQ(s.check(), CheckResult::Sat);
  s.assert_formula(op("=", {z, num("7")}));
  s.assert_formula(op("<", {x_, z}));
  EXPECT_EQ(s.check(), CheckResult::Sat);
  EXPECT_EQ(s.get_model_value(z), num("7"));
  s.assert_formula(op(">", {y_, x_}));
  EXPECT_EQ(s.check(), CheckResult::Unsat);
  s.reset_assertions();
  EXPECT_EQ(s.check(), CheckResult::Sat);
  s.assert_formula(op("=", {op("+", {x_, z}), num("3")}));
  s.assert_formula(op("=", {z, num("1")}));
  EXPECT_EQ(s.check(), CheckResult::Sat);
  EXPECT_EQ(s.get_model_value(x_), num("2"));
}

INSTANTIATE_TEST_SUITE_P(Solvers, ScopedDeclarationsTest, ::testing::Values(kScopedZ3),
                         [](::testing::TestParamInfo<char const*> const&) { return "z3_scoped"; });

// ------------------------------------------------------------------------ fake solvers

// A fake solver: answers "success" to every command and (:name "fake") to get-info; on
// check-sat (or the commands `when` matches) it does what `on_check` says (shell commands).
class FakeSolverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/tvx_fake_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
    config_.model_generation = true;
    config_.timeout = 0.2;
    fds_ = open_fds();
  }
  // Every test's sessions are closed by now: no child process or descriptor is left.
  void TearDown() override {
    std::system(("rm -rf " + dir_).c_str());
    EXPECT_TRUE(no_child_left());
    EXPECT_EQ(open_fds(), fds_) << "descriptors leaked";
  }
  // `more`: further cases, each "PATTERN) COMMANDS ;;".
  std::string fake(std::string const& name, std::string const& on_check,
                   std::string const& when = "*check-sat*", std::string const& more = "") {
    std::string const path = dir_ + "/" + name;
    std::ofstream out(path);
    out << "#!/bin/sh\n"
        << "while IFS= read -r line; do\n"
        << "  case \"$line\" in\n"
        << "    *'(get-info :name)'*) echo '(:name \"fake\")' ;;\n"
        << "    " << when << ") " << on_check << " ;;\n"
        << more << "    *) echo success ;;\n"
        << "  esac\n"
        << "done\n";
    out.close();
    chmod(path.c_str(), 0755);
    return path;
  }
  // Starts a traced session on the fake and checks x: the check's error, once the session is
  // closed; it is Unsupported exactly when `unsupported`, an EngineError otherwise.
  std::string check_fails(std::string const& command, bool unsupported = false) {
    std::string message;
    {
      std::ostringstream trace;
      Solver s(mgr_, config_, make_engine(command, mgr_, config_), trace, false, false);
      Symbol const* sym = mgr_.find_symbol("x");
      if (sym == nullptr) {
        sym = mgr_.make_symbol("x", mgr_.get_bool_type());
      }
      s.declare_fun(sym);
      Term const* x = mgr_.make_constant(sym);
      s.assert_formula(x);
      try {
        s.check();
        ADD_FAILURE() << "the check did not fail";
      } catch (Error const& e) {
        message = e.what();
        EXPECT_EQ(dynamic_cast<Unsupported const*>(&e) != nullptr, unsupported) << message;
        EXPECT_EQ(dynamic_cast<EngineError const*>(&e) != nullptr, !unsupported) << message;
      }
      // The trace holds the call the solver failed on.
      EXPECT_THAT(trace.str(), ::testing::EndsWith("(assert x)\n(check-sat)\n"));
      // The session goes on refusing or failing, and closes cleanly.
      EXPECT_THROW(s.check(), Error);
    }
    EXPECT_TRUE(no_child_left());
    EXPECT_EQ(open_fds(), fds_) << "descriptors leaked";
    return message;
  }

  TermManager mgr_;
  Configuration config_;
  std::string dir_;
  std::size_t fds_ = 0;
};

// Each fault of the solver's answer to the check (or to the assertion before it) ends in an
// error that names what failed, with what the solver wrote to its error stream.
TEST_F(FakeSolverTest, EveryFaultEndsInAnErrorNamingIt) {
  struct Case {
    char const* name;
    std::string on_check;
    std::vector<char const*> expect;
    char const* when = "*check-sat*";
    bool unsupported = false;
  };
  std::vector<Case> const cases = {
      {"crash", "echo 'fatal: out of cheese' >&2; exit 3", {"(check-sat)", "out of cheese"}},
      {"garbage", "echo 'hello world'", {"answered 'hello'", "(check-sat)"}},
      {"refuse",
       "echo unsupported",
       {"does not support the command: (check-sat)"},
       "*check-sat*",
       true},
      {"error",
       "echo 'bad day' >&2; echo '(error \"no check today\")'",
       {"(error \"no check today\")", "(check-sat)", "bad day"}},
      // The assertion's answer is read before the check's; the solver's state no longer mirrors
      // the session's, so it is ended and the check fails with the assertion's error.
      {"reject",
       "echo '(error \"bad assert\")'",
       {"(error \"bad assert\")", "the command: (assert tvx.x)"},
       "*assert*"},
      {"cut", "printf '(sat'; exit 0", {"in the middle of an answer"}},
      // Still running, with its output closed: it is killed and reaped.
      {"mute", "exec 1>&-; exec sleep 1000", {"closed its output"}},
  };
  for (Case const& c : cases) {
    std::string const path = fake(c.name, c.on_check, c.when);
    std::string const message = check_fails(path + " --flag", c.unsupported);
    EXPECT_THAT(message, HasSubstr("'" + path + " --flag'")) << c.name;
    for (char const* e : c.expect) {
      EXPECT_THAT(message, HasSubstr(e)) << c.name;
    }
  }
}

TEST_F(FakeSolverTest, AHangIsStoppedAfterTheTimeOutAndAGracePeriod) {
  std::string const path = fake("hang", "echo 'thinking' >&2; exec sleep 1000");
  auto const start = std::chrono::steady_clock::now();
  std::string const message = check_fails(path);
  double const seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  for (char const* e : {"no answer within", "(check-sat)", "thinking"}) {
    EXPECT_THAT(message, HasSubstr(e));
  }
  EXPECT_GT(seconds, config_.timeout);
  EXPECT_LT(seconds, 10.0);
}

TEST_F(FakeSolverTest, ARefusedCommandInABatchLeavesTheAnswersInStep) {
  // The push waits in the outbox and goes with the check, in one write; the solver refuses it
  // and answers the check (unknown): the refusal is reported, and that answer does not become
  // the answer of the next check (sat).
  std::string const path =
      fake("batch", "n=$((n+1)); if [ $n = 1 ]; then echo unknown; else echo sat; fi",
           "*check-sat*", "    *'(push'*) echo unsupported ;;\n");
  Solver s(mgr_, config_, make_engine(path, mgr_, config_));
  s.push(1);
  EXPECT_THAT([&] { s.check(); },
              ::testing::ThrowsMessage<Unsupported>(HasSubstr("the command: (push 1)")));
  EXPECT_EQ(s.check(), CheckResult::Sat);
  EXPECT_EQ(s.check(), CheckResult::Sat);
}

TEST_F(FakeSolverTest, ALetThatRefersToItselfIsAnErrorNotAHang) {
  std::string const path =
      fake("cyclic", "echo sat", "*check-sat*",
           "    *get-value*) echo '((tvx.a (let ((b (store b 0 1))) b)))' ;;\n");
  Solver s(mgr_, config_, make_engine(path, mgr_, config_));
  DataType const* I = mgr_.get_integer_type();
  Term const* a = mgr_.make_constant(s.declare_fun("a", {}, mgr_.get_array_type(I, I)));
  ASSERT_EQ(s.check(), CheckResult::Sat);
  EXPECT_THAT([&] { s.get_model_value(a); },
              ::testing::ThrowsMessage<EngineError>(HasSubstr("a let whose names")));
  EXPECT_EQ(s.check(), CheckResult::Sat) << "the solver runs on";
}

TEST_F(FakeSolverTest, ModelsInEveryShapeSolversWriteBecomeTables) {
  // cvc5 writes a function as a tree that tests one argument per level, with formulas over
  // the arguments at a predicate's leaves; z3 writes an array argument as (_ as-array k!N),
  // with k!N defined in the same model, and names conditions with lets.
  std::ofstream(dir_ + "/model")
      << "(\n(define-fun tvx.f ((_arg_1 Int) (_arg_2 Int)) Int (ite (= _arg_1 1) (ite (= _arg_2 2) "
         "12 10) (ite (= 5 _arg_2) 5 0)))\n"
         "(define-fun tvx.p ((_arg_1 Int) (_arg_2 Int)) Bool (ite (= _arg_1 (- 6)) (= _arg_2 6) "
         "(and (= _arg_1 (- 10)) (= _arg_2 0))))\n"
         "(define-fun tvx.g ((x!0 (Array Int Int))) Int (ite (= x!0 (_ as-array k!1)) 7 (ite (= "
         "x!0 (_ as-array k!2)) 8 (ite (= x!0 (_ as-array k!1)) 0 9))))\n"
         "(define-fun tvx.q ((x!0 Int) (x!1 Int)) Bool (let ((a!1 (= x!0 3))) (or (and a!1 (= "
         "x!1 4)) (and (= x!1 1) a!1))))\n"
         "(define-fun k!1 ((x!0 Int)) Int (ite (= x!0 3) 4 5))\n"
         "(define-fun k!2 ((x!0 Int)) Int (let ((a!1 4)) (ite (= x!0 3) a!1 (ite (= x!0 1) a!1 "
         "6))))\n)\n";
  std::string const path =
      fake("models", "echo sat", "*check-sat*", "    *get-model*) cat " + dir_ + "/model ;;\n");
  Solver s(mgr_, config_, make_engine(path, mgr_, config_));
  DataType const* I = mgr_.get_integer_type();
  DataType const* A = mgr_.get_array_type(I, I);
  s.declare_fun("f", {I, I}, I);
  s.declare_fun("p", {I, I}, mgr_.get_bool_type());
  s.declare_fun("g", {A}, I);
  s.declare_fun("q", {I, I}, mgr_.get_bool_type());
  ASSERT_EQ(s.check(), CheckResult::Sat);
  Model const m = s.get_model();
  ASSERT_EQ(m.functions.size(), 4u);
  auto n = [&](char const* v) { return mgr_.make_number(v, I); };
  FunctionValue const& f = m.functions[0].second;
  EXPECT_EQ(f.at({n("1"), n("2")}), n("12"));
  EXPECT_EQ(f.at({n("1"), n("5")}), n("10")) << "the outer test comes first";
  EXPECT_EQ(f.at({n("3"), n("5")}), n("5"));
  EXPECT_EQ(f.at({n("3"), n("3")}), n("0"));
  FunctionValue const& p = m.functions[1].second;
  EXPECT_EQ(p.at({n("-6"), n("6")}), mgr_.make_true());
  EXPECT_EQ(p.at({n("-6"), n("0")}), mgr_.make_false());
  EXPECT_EQ(p.at({n("-10"), n("0")}), mgr_.make_true());
  EXPECT_EQ(p.at({n("-10"), n("1")}), mgr_.make_false());
  EXPECT_EQ(p.at({n("0"), n("0")}), mgr_.make_false());
  auto store = [&](Term const* a, char const* i, char const* v) {
    return mgr_.make_builtin("store", {a, n(i), n(v)});
  };
  Term const* k1 = store(mgr_.make_const_array(A, n("5")), "3", "4");
  Term const* k2 = store(store(mgr_.make_const_array(A, n("6")), "1", "4"), "3", "4");
  FunctionValue const& g = m.functions[2].second;
  EXPECT_EQ(g.at({k1}), n("7"));
  EXPECT_EQ(g.at({k2}), n("8"));
  EXPECT_EQ(g.at({mgr_.make_const_array(A, n("5"))}), n("9"));
  FunctionValue const& q = m.functions[3].second;
  EXPECT_EQ(q.at({n("3"), n("4")}), mgr_.make_true());
  EXPECT_EQ(q.at({n("3"), n("1")}), mgr_.make_true());
  EXPECT_EQ(q.at({n("3"), n("0")}), mgr_.make_false());
  EXPECT_EQ(q.at({n("4"), n("4")}), mgr_.make_false());
  // Written as a model, a point that leaves an argument free does not test it.
  std::ostringstream out;
  smt2::ResponseWriter(mgr_, config_, out).model(m);
  EXPECT_THAT(
      out.str(),
      HasSubstr("(ite (and (= x!0 1) (= x!1 2)) 12 (ite (= x!0 1) 10 (ite (= x!1 5) 5 0)))"));
}

TEST_F(FakeSolverTest, ASolverThatCannotStartIsAnError) {
  EXPECT_THAT([&] { make_engine(dir_ + "/no-such-solver -in", mgr_, config_); },
              ::testing::ThrowsMessage<Error>(HasSubstr("no-such-solver")));
  std::string const path = fake("quit", "exit 0");
  std::ofstream(path) << "#!/bin/sh\necho 'no licence' >&2\nexit 1\n";
  EXPECT_THAT([&] { make_engine(path, mgr_, config_); },
              ::testing::ThrowsMessage<EngineError>(HasSubstr("no licence")));
  EXPECT_THAT([&] { make_engine("'unclosed", mgr_, config_); },
              ::testing::ThrowsMessage<Error>(HasSubstr("quote is not closed")));
}

}  // namespace
}  // namespace tvx
