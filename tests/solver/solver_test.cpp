// The environment over the z3 engine: misuse is refused before anything is traced or reaches
// the engine; values read back keep the session satisfiable; every trace it writes replays in
// z3; an engine that dies mid-check leaves a trace that ends with that check. The engines'
// answers themselves are checked, on every engine, in engine_suite_test.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <tvx/core/term_printer.h>
#include <tvx/solver/solver.h>
#include "solver/recording_engine.h"

namespace tvx {
namespace {

using ::testing::HasSubstr;

// Passes every call to the z3 engine and logs its name; aborts the process in check() when
// `die_in_check` is set, as a crashing engine would.
class SpyEngine : public Engine {
 public:
  SpyEngine(TermManager& mgr, Configuration const& config, std::vector<std::string>& log,
            bool die_in_check = false)
      : inner_(make_engine("z3", mgr, config)), log_(log), die_(die_in_check) {}
  std::string const& name() const override { return inner_->name(); }
  void declare_sort(DataType const* s) override { log("declare_sort"), inner_->declare_sort(s); }
  void declare_fun(Symbol const* s) override { log("declare_fun"), inner_->declare_fun(s); }
  void assert_formula(Term const* f, bool track) override {
    log("assert"), inner_->assert_formula(f, track);
  }
  void push() override { log("push"), inner_->push(); }
  void pop() override { log("pop"), inner_->pop(); }
  void reset_assertions() override { log("reset-assertions"), inner_->reset_assertions(); }
  void reset() override { log("reset"), inner_->reset(); }
  void set_timeout(double seconds) override { log("set_timeout"), inner_->set_timeout(seconds); }
  void define_funs_rec(std::vector<Symbol const*> const& f,
                       std::vector<std::vector<Term const*>> const& p,
                       std::vector<Term const*> const& b) override {
    log("define-funs-rec"), inner_->define_funs_rec(f, p, b);
  }
  CheckResult check(std::vector<TheoryLit> const& a) override {
    if (die_) {
      std::abort();
    }
    return log("check"), inner_->check(a);
  }
  std::string reason_unknown() override { return inner_->reason_unknown(); }
  std::vector<Term const*> unsat_core() override { return log("core"), inner_->unsat_core(); }
  std::vector<TheoryLit> unsat_assumptions() override {
    return log("assumptions"), inner_->unsat_assumptions();
  }
  Term const* value(Term const* t) override { return log("value"), inner_->value(t); }
  Model model() override { return log("model"), inner_->model(); }
  Term const* interpolant(std::vector<Term const*> const& a,
                          std::vector<Term const*> const& b) override {
    return log("interpolant"), inner_->interpolant(a, b);
  }

 private:
  void log(char const* call) { log_.emplace_back(call); }
  std::unique_ptr<Engine> inner_;
  std::vector<std::string>& log_;
  bool die_;
};

// The check answers z3 gives on a script, one per line; "" when z3 reported an error.
std::string z3_answers(std::string const& script) {
  char path[] = "/tmp/tvx_solver_XXXXXX";
  int const fd = mkstemp(path);
  std::string const text = "(set-option :produce-unsat-cores true)\n" + script;
  EXPECT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  close(fd);
  std::string const out = std::string(path) + ".out";
  std::system(("z3 -smt2 " + std::string(path) + " > " + out + " 2>&1").c_str());
  std::ifstream in(out);
  std::string answers;
  for (std::string line; std::getline(in, line);) {
    if (line.find("error") != std::string::npos) {
      answers = "error: " + line;
      break;
    }
    if (line == "sat" || line == "unsat" || line == "unknown") {
      answers += line + "\n";
    }
  }
  std::remove(path);
  std::remove(out.c_str());
  return answers;
}

class SolverTest : public ::testing::TestWithParam<bool> {
 protected:
  SolverTest() {
    config_.model_generation = true;
    config_.unsat_core_generation = true;
    solver_ = std::make_unique<Solver>(
        mgr_, config_, std::make_unique<SpyEngine>(mgr_, config_, log_), trace_, GetParam(), false);
    I_ = mgr_.get_integer_type();
    x_ = mgr_.make_constant(mgr_.make_symbol("x", I_));
  }
  Term const* num(char const* v) { return mgr_.make_number(v, I_); }
  Term const* op(char const* o, std::vector<Term const*> const& args) {
    return mgr_.make_builtin(o, args);
  }

  TermManager mgr_;
  Configuration config_;
  std::ostringstream trace_;
  std::vector<std::string> log_;
  std::unique_ptr<Solver> solver_;
  DataType const* I_;
  Term const* x_;
};

TEST_P(SolverTest, MisuseIsRefusedBeforeTracingAndTheSessionGoesOn) {
  TermManager other;
  Term const* foreign = other.make_true();
  Solver& s = *solver_;
  s.assert_formula(op(">", {x_, num("0")}));
  struct Case {
    char const* name;
    std::function<void()> call;
    char const* message;
  };
  std::vector<Case> const cases = {
      {"non-Bool assertion", [&] { s.assert_formula(x_); }, "expected a formula of sort Bool"},
      {"foreign term", [&] { s.assert_formula(foreign); }, "another term manager"},
      {"foreign symbol", [&] { s.declare_fun(other.make_symbol("y", other.get_integer_type())); },
       "another term manager"},
      {"built-in sort", [&] { s.declare_sort(I_); }, "is built in"},
      {"null term", [&] { s.get_model_value(nullptr); }, "no term given"},
      {"pop past the bottom", [&] { s.pop(); }, "only 0 are open"},
      {"model before a check", [&] { s.get_model(); }, "needs a satisfiable"},
      {"value before a check", [&] { s.get_model_value(x_); }, "needs a satisfiable"},
      {"core before a check", [&] { s.get_unsat_core(); }, "needs an unsatisfiable"},
      {"unknown group", [&] { s.set_interpolation_group(0); }, "no interpolation group 0"},
      {"unknown group in a query", [&] { s.get_interpolant({7}); }, "no interpolation group 7"},
      {"non-Bool assumption", [&] { s.check_with_assumptions({TheoryLit(x_, false)}); },
       "expected a formula"},
  };
  for (Case const& c : cases) {
    std::string const before = trace_.str();
    std::size_t const calls = log_.size();
    EXPECT_THAT(c.call, ::testing::ThrowsMessage<Error>(HasSubstr(c.message))) << c.name;
    EXPECT_EQ(trace_.str(), before) << c.name << ": nothing traced";
    EXPECT_EQ(log_.size(), calls) << c.name << ": engine untouched";
  }
  // Answers are forgotten when the assertions change.
  EXPECT_EQ(s.check(), CheckResult::Sat);
  s.get_model_value(x_);
  s.assert_formula(op("<", {x_, num("5")}));
  EXPECT_THROW(s.get_model_value(x_), Error);
  EXPECT_THROW(s.get_unsat_core(), Error) << "after sat";
  // With no group, A is empty and the answer is true: the engine, which has no interpolation,
  // is not asked.
  s.assert_formula(op("<", {x_, num("0")}));
  EXPECT_EQ(s.check(), CheckResult::Unsat);
  std::size_t const calls = log_.size();
  EXPECT_EQ(s.get_interpolant({}), mgr_.make_true());
  EXPECT_EQ(log_.size(), calls);
  EXPECT_THAT(trace_.str(), ::testing::EndsWith("(get-interpolant ())\n"));
  // The session goes on, and the trace replays in z3 (which has no interpolation command)
  // with the same answers.
  EXPECT_EQ(s.get_unsat_core().size(), 2u);
  s.reset_assertions();
  EXPECT_EQ(s.check(), CheckResult::Sat);
  std::string text = trace_.str();
  text.erase(text.find("(get-interpolant ())\n"), 21);
  EXPECT_EQ(z3_answers(text), "sat\nunsat\nsat\n");
}

TEST_P(SolverTest, ValuesReadBackKeepTheSessionSatisfiableAndTheTraceReplays) {
  Solver& s = *solver_;
  DataType const* U = s.declare_sort("U");
  DataType const* R = mgr_.get_rational_type();
  DataType const* BV = mgr_.get_bv_type(12);
  DataType const* AV = mgr_.get_array_type(I_, mgr_.make_simple_type("V"));
  DataType const* AA = mgr_.get_array_type(BV, mgr_.get_array_type(I_, R));
  auto c = [&](char const* name, DataType const* sort) {
    return mgr_.make_constant(s.declare_fun(name, {}, sort));
  };
  Term const* u1 = c("u1", U);
  Term const* u2 = c("u2", U);
  Term const* r = c("r", R);
  Term const* b = c("b", BV);
  // Arrays over an undeclared sort V and nested arrays; `a1` and `a2` meet only in an
  // equation, so V reaches the trace through their signatures alone.
  Term const* a1 = mgr_.make_constant(mgr_.make_symbol("a1", AV));
  Term const* a2 = mgr_.make_constant(mgr_.make_symbol("a2", AV));
  Term const* nested = c("nested", AA);
  Symbol const* f = s.declare_fun("f", {U, I_}, R);
  s.assert_formula(mgr_.make_not(mgr_.make_equal(u1, u2)));
  s.assert_formula(mgr_.make_not(mgr_.make_equal(a1, a2)));
  // A bound variable's sort nests the undeclared sort W: W reaches the trace all the same.
  Term const* w = mgr_.make_variable("w", mgr_.get_array_type(I_, mgr_.make_simple_type("W")));
  s.assert_formula(mgr_.make_forall({w}, mgr_.make_equal(w, w)));
  s.assert_formula(op("<", {r, mgr_.make_number("-1/3", R)}));
  s.assert_formula(op("bvugt", {b, mgr_.make_number("#x7f0", BV)}));
  Term const* sel = op("select", {op("select", {nested, b}), x_});
  s.assert_formula(op(">", {sel, mgr_.make_term(f, {u1, x_})}));
  s.assert_formula(op(">", {x_, num("100")}));
  ASSERT_EQ(s.check(), CheckResult::Sat);
  std::vector<Term const*> equations;
  for (Term const* t : {u1, u2, r, b, a1, a2, nested, sel, x_}) {
    Term const* v = s.get_model_value(t);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v, s.get_model_value(t)) << "the same value twice is the same term";
    equations.push_back(mgr_.make_equal(t, v));
  }
  EXPECT_NE(s.get_model_value(u1), s.get_model_value(u2)) << "distinct elements";
  Model const m = s.get_model();
  EXPECT_EQ(m.functions.size(), 1u);
  EXPECT_GE(m.constants.size(), 8u);
  for (Term const* e : equations) {
    s.assert_formula(e);
  }
  EXPECT_EQ(s.check(), CheckResult::Sat);
  EXPECT_EQ(z3_answers(trace_.str()), "sat\nsat\n") << trace_.str();
}

// Operators that z3 builds from several pieces (chains of relations, folds, abs, bvcomp,
// right-associative implications): each piece must outlive the term it is part of.
TEST_P(SolverTest, OperatorsBuiltFromSeveralPiecesMeanWhatTheySay) {
  Solver& s = *solver_;
  std::vector<Term const*> xs;
  for (int i = 0; i < 6; ++i) {
    xs.push_back(mgr_.make_constant(mgr_.make_symbol("y" + std::to_string(i), I_)));
  }
  DataType const* B = mgr_.get_bool_type();
  DataType const* BV = mgr_.get_bv_type(8);
  Term const* b = mgr_.make_constant(mgr_.make_symbol("b", BV));
  Term const* c = mgr_.make_constant(mgr_.make_symbol("c", BV));
  std::vector<Term const*> ps;
  for (char const* name : {"p0", "p1", "p2", "p3"}) {
    ps.push_back(mgr_.make_constant(mgr_.make_symbol(name, B)));
  }
  Term const* bit1 = mgr_.make_number("#b1", mgr_.get_bv_type(1));
  // Each pair is satisfiable alone and unsatisfiable with its second formula.
  std::vector<std::pair<Term const*, Term const*>> const cases = {
      {op("<", xs), op(">", {xs[0], xs[5]})},
      {op("=", {xs[0], xs[1], xs[2], xs[3]}), mgr_.make_not(mgr_.make_equal(xs[0], xs[3]))},
      {op("bvadd", {b, c, b, c}),
       mgr_.make_not(
           mgr_.make_equal(op("bvadd", {b, c, b, c}),
                           op("bvmul", {mgr_.make_number("#x02", BV), op("bvadd", {b, c})})))},
      {op("=", {op("abs", {xs[0]}), num("3")}), op("=", {op("abs", {xs[0]}), op("-", {num("3")})})},
      {mgr_.make_equal(b, c), op("distinct", {op("bvcomp", {b, c}), bit1})},
      {op("=>", ps), op("and", {ps[0], ps[1], ps[2], mgr_.make_not(ps[3])})},
      {op("xor", ps), op("and", ps)},
  };
  for (auto const& [first, second] : cases) {
    s.push();
    if (first->get_type() == B) {
      s.assert_formula(first);
    } else {
      s.assert_formula(mgr_.make_equal(first, first));
    }
    EXPECT_EQ(s.check(), CheckResult::Sat);
    s.assert_formula(second);
    EXPECT_EQ(s.check(), CheckResult::Unsat);
    s.pop();
  }
}

INSTANTIATE_TEST_SUITE_P(Modes, SolverTest, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "Global" : "Scoped"; });

// An engine whose every check is unsatisfiable and whose interpolant is whatever the test
// sets, so that the environment's own checks of the answer are seen.
class FixedInterpolantEngine : public RecordingEngine {
 public:
  FixedInterpolantEngine(Term const*& answer, int& asked) : answer_(answer), asked_(asked) {}
  std::string const& name() const override { return name_; }
  CheckResult check(std::vector<TheoryLit> const&) override { return CheckResult::Unsat; }
  Term const* interpolant(std::vector<Term const*> const&,
                          std::vector<Term const*> const&) override {
    return ++asked_, answer_;
  }

 private:
  std::string const name_ = "fixed-itp";
  Term const*& answer_;
  int& asked_;
};

// The environment answers when a side is empty and refuses an engine's interpolant that is
// not a formula over the symbols A and B share, whatever the engine.
class SolverInterpolantTest : public ::testing::Test {
 protected:
  SolverInterpolantTest()
      : solver_(mgr_, config_, std::make_unique<FixedInterpolantEngine>(answer_, asked_)) {
    DataType const* I = mgr_.get_integer_type();
    a_only_ = mgr_.make_constant(mgr_.make_symbol("a_only", I));
    shared_ = mgr_.make_constant(mgr_.make_symbol("shared", I));
    b_only_ = mgr_.make_constant(mgr_.make_symbol("b_only", I));
    zero_ = mgr_.make_number("0", I);
    ga_ = solver_.new_interpolation_group();
    gb_ = solver_.new_interpolation_group();
  }
  // A: a_only = shared, a_only > 0 in group ga_; B: shared = b_only, b_only < 0 in group gb_.
  void assert_both_sides() {
    solver_.set_interpolation_group(ga_);
    solver_.assert_formula(mgr_.make_equal(a_only_, shared_));
    solver_.assert_formula(mgr_.make_builtin(">", {a_only_, zero_}));
    solver_.set_interpolation_group(gb_);
    solver_.assert_formula(mgr_.make_equal(shared_, b_only_));
    solver_.assert_formula(mgr_.make_builtin("<", {b_only_, zero_}));
  }

  TermManager mgr_;
  Configuration config_;
  Term const* answer_ = nullptr;
  int asked_ = 0;
  Solver solver_;
  Term const* a_only_;
  Term const* shared_;
  Term const* b_only_;
  Term const* zero_;
  int ga_;
  int gb_;
};

TEST_F(SolverInterpolantTest, AnEmptySideIsAnsweredWithoutTheEngine) {
  solver_.set_interpolation_group(ga_);
  solver_.assert_formula(mgr_.make_builtin("<", {a_only_, zero_}));
  solver_.assert_formula(mgr_.make_builtin(">", {a_only_, zero_}));
  ASSERT_EQ(solver_.check(), CheckResult::Unsat);
  EXPECT_EQ(solver_.get_interpolant({gb_}), mgr_.make_true()) << "A (group gb) is empty";
  EXPECT_EQ(solver_.get_interpolant({ga_}), mgr_.make_false()) << "B is empty";
  EXPECT_EQ(solver_.get_interpolant({ga_, gb_}), mgr_.make_false()) << "B is empty";
  EXPECT_EQ(asked_, 0);
}

TEST_F(SolverInterpolantTest, AnAnswerOverUnsharedSymbolsIsRefused) {
  assert_both_sides();
  ASSERT_EQ(solver_.check(), CheckResult::Unsat);
  struct Case {
    char const* name;
    Term const* answer;
    char const* message;  // empty: accepted
  };
  std::vector<Case> const cases = {
      {"shared symbol only", mgr_.make_builtin(">", {shared_, zero_}), ""},
      {"no symbol at all", mgr_.make_true(), ""},
      {"a symbol of A alone", mgr_.make_builtin(">", {a_only_, zero_}),
       "fixed-itp: get_interpolant: the interpolant uses 'a_only', which B does not use"},
      {"a symbol of B alone, below a shared one",
       mgr_.make_and(mgr_.make_builtin(">", {shared_, zero_}),
                     mgr_.make_builtin(">", {b_only_, zero_})),
       "fixed-itp: get_interpolant: the interpolant uses 'b_only', which A does not use"},
      {"a symbol of neither side",
       mgr_.make_constant(mgr_.make_symbol("elsewhere", mgr_.get_bool_type())),
       "'elsewhere', which A does not use"},
      {"no answer", nullptr, "fixed-itp: get_interpolant: the engine's answer is not a formula"},
      {"not a formula", shared_,
       "fixed-itp: get_interpolant: the engine's answer is not a formula"},
  };
  for (Case const& c : cases) {
    answer_ = c.answer;
    int const asked = asked_;
    if (*c.message == '\0') {
      EXPECT_EQ(solver_.get_interpolant({ga_}), c.answer) << c.name;
    } else {
      EXPECT_THAT([&] { solver_.get_interpolant({ga_}); },
                  ::testing::ThrowsMessage<EngineError>(HasSubstr(c.message)))
          << c.name;
    }
    EXPECT_EQ(asked_, asked + 1) << c.name << ": the engine was asked once";
  }
}

TEST(SolverConfigTest, TracingIsSwitchedByTheConfiguration) {
  TermManager mgr;
  Configuration config;
  config.api_call_trace = true;
  EXPECT_THAT([&] { Solver(mgr, config, nullptr); },
              ::testing::ThrowsMessage<Error>(HasSubstr("debug.api_call_trace_filename")));
  char path[] = "/tmp/tvx_trace_XXXXXX";
  close(mkstemp(path));
  config.api_call_trace_filename = path;
  config.api_call_trace_global_decls = true;
  {
    Solver recorder(mgr, config, nullptr);
    recorder.assert_formula(mgr.make_constant(mgr.make_symbol("p", mgr.get_bool_type())));
    EXPECT_EQ(recorder.check(), CheckResult::Unknown);
    EXPECT_EQ(recorder.reason_unknown(), "no engine");
    EXPECT_EQ(recorder.get_model_value(mgr.make_true()), nullptr) << "a recorder answers nothing";
  }
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  std::remove(path);
  EXPECT_THAT(text.str(), HasSubstr("(set-option :global-decls true)\n"));
  EXPECT_THAT(text.str(), ::testing::EndsWith("(assert .1)\n(check-sat)\n(define-fun .2 () Bool "
                                              "true)\n(get-value (.2))\n"));
  config.api_call_trace = false;
  // A recorder that does not trace: no state is enforced and every query answers nothing,
  // an interpolant with an empty side included.
  Solver quiet(mgr, config, nullptr);
  EXPECT_EQ(quiet.tracer(), nullptr);
  EXPECT_EQ(quiet.engine(), nullptr);
  Term const* q = mgr.make_constant(mgr.make_symbol("q", mgr.get_bool_type()));
  quiet.assert_formula(q);
  EXPECT_TRUE(quiet.get_unsat_core().empty());
  EXPECT_EQ(quiet.get_interpolant({}), nullptr);
  EXPECT_TRUE(quiet.check_allsat({q}).empty());
  EXPECT_EQ(quiet.reason_unknown(), "no engine");
  EXPECT_TRUE(quiet.get_model().constants.empty());
}

// The trace is written before the engine sees the call: a crash in the engine leaves the
// call that caused it at the end of the trace, and what precedes it replays.
TEST(SolverCrashTest, AnEngineThatDiesMidCheckLeavesTheCheckInTheTrace) {
  char path[] = "/tmp/tvx_crash_XXXXXX";
  close(mkstemp(path));
  pid_t const child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    TermManager mgr;
    Configuration config;
    config.api_call_trace = true;
    config.api_call_trace_filename = path;
    std::vector<std::string> log;
    Solver s(mgr, config, std::make_unique<SpyEngine>(mgr, config, log, true));
    Term const* x = mgr.make_constant(s.declare_fun("x", {}, mgr.get_integer_type()));
    s.assert_formula(mgr.make_builtin(">", {x, mgr.make_number("2", mgr.get_integer_type())}));
    s.check();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status)) << "the engine aborts";
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  std::remove(path);
  EXPECT_THAT(text.str(),
              ::testing::EndsWith("(declare-fun x () Int)\n(assert (> x 2))\n(check-sat)\n"));
  EXPECT_EQ(z3_answers(text.str()), "sat\n");
}

}  // namespace
}  // namespace tvx
