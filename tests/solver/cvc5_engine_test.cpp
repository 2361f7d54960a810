// What is particular to the cvc5 engine: terms far deeper than a thread's stack, a cvc5 state per
// engine, and cvc5's failures and limits as tvx errors. Its answers are checked with the other
// engines' in engine_suite_test.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <tvx/core/error.h>
#include <tvx/solver/solver.h>

namespace tvx {
namespace {

using ::testing::HasSubstr;

class Cvc5EngineTest : public ::testing::Test {
 protected:
  Cvc5EngineTest() {
    config_.model_generation = true;
    config_.unsat_core_generation = true;
    solver_ = std::make_unique<Solver>(mgr_, config_, make_engine("cvc5", mgr_, config_));
    I_ = mgr_.get_integer_type();
    B_ = mgr_.get_bool_type();
    x_ = var("x", I_);
  }
  Term const* var(char const* name, DataType const* sort) {
    return mgr_.make_constant(mgr_.make_symbol(name, sort));
  }
  Term const* num(char const* v) { return mgr_.make_number(v, I_); }
  Term const* op(char const* o, std::vector<Term const*> const& args) {
    return mgr_.make_builtin(o, args);
  }

  TermManager mgr_;
  Configuration config_;
  std::unique_ptr<Solver> solver_;
  DataType const* I_;
  DataType const* B_;
  Term const* x_;
};

TEST_F(Cvc5EngineTest, DeepTermsDoNotOverflowTheStack) {
  Solver& s = *solver_;
  constexpr int kDepth = 200000;
  Term const* t = x_;
  Term const* one = num("1");
  Term const* p = var("p", B_);
  Term const* chain = p;
  for (int i = 0; i < kDepth; ++i) {
    t = op("+", {t, one});
    chain = mgr_.make_and(chain, i % 2 == 0 ? p : mgr_.make_true());
  }
  s.assert_formula(op(">", {t, num("5")}));
  s.assert_formula(op("<", {x_, num("3")}));
  s.assert_formula(chain);
  ASSERT_EQ(s.check(), CheckResult::Sat);
  long const x = std::stol(s.get_model_value(x_)->get_symbol()->get_name());
  long const sum = std::stol(s.get_model_value(t)->get_symbol()->get_name());
  EXPECT_EQ(sum, x + kDepth);
  EXPECT_EQ(s.get_model_value(chain), mgr_.make_true());
  s.assert_formula(op("<", {t, num("0")}));
  EXPECT_EQ(s.check(), CheckResult::Unsat);
}

// Each engine keeps its cvc5 state on a thread of its own: two engines, used in turn from one
// thread, answer for their own assertions only.
TEST_F(Cvc5EngineTest, TwoEnginesKeepTheirOwnState) {
  std::unique_ptr<Engine> one = make_engine("cvc5", mgr_, config_);
  std::unique_ptr<Engine> two = make_engine("cvc5", mgr_, config_);
  one->assert_formula(op(">", {x_, num("3")}), true);
  two->assert_formula(op("<", {x_, num("1")}), true);
  ASSERT_EQ(one->check({}), CheckResult::Sat);
  ASSERT_EQ(two->check({}), CheckResult::Sat);
  EXPECT_GT(std::stol(one->value(x_)->get_symbol()->get_name()), 3);
  EXPECT_LT(std::stol(two->value(x_)->get_symbol()->get_name()), 1);
  one->assert_formula(op("<", {x_, num("2")}), true);
  EXPECT_EQ(one->check({}), CheckResult::Unsat);
  EXPECT_EQ(two->check({}), CheckResult::Sat);
  EXPECT_EQ(one->unsat_core().size(), 2u);
  one.reset();
  EXPECT_EQ(two->check({TheoryLit(op(">", {x_, num("5")}), false)}), CheckResult::Unsat);
}

TEST_F(Cvc5EngineTest, Cvc5FailuresBecomeTvxErrors) {
  Solver& s = *solver_;
  // cvc5 makes constant arrays of values only: a closed term that simplifies to one is
  // accepted, a symbol is refused, and the session goes on.
  DataType const* A = mgr_.get_array_type(I_, I_);
  Term const* a = var("a", A);
  s.assert_formula(mgr_.make_equal(a, mgr_.make_const_array(A, op("+", {num("2"), num("3")}))));
  ASSERT_EQ(s.check(), CheckResult::Sat);
  EXPECT_EQ(s.get_model_value(op("select", {a, x_})), num("5"));
  EXPECT_THAT([&] { s.assert_formula(mgr_.make_equal(a, mgr_.make_const_array(A, x_))); },
              ::testing::ThrowsMessage<Unsupported>(HasSubstr("constant arrays of values")));
  EXPECT_EQ(s.check(), CheckResult::Sat);
  // Nor of an element of an uninterpreted sort, as the value of an array of them reads.
  DataType const* U = s.declare_sort("U");
  DataType const* AU = mgr_.get_array_type(I_, U);
  Term const* au = var("au", AU);
  Term const* u = var("u", U);
  s.assert_formula(mgr_.make_equal(op("select", {au, num("1")}), u));
  ASSERT_EQ(s.check(), CheckResult::Sat);
  Term const* element = s.get_model_value(u);
  EXPECT_THAT([&] { s.assert_formula(mgr_.make_equal(au, mgr_.make_const_array(AU, element))); },
              ::testing::Throws<Unsupported>());
  EXPECT_EQ(s.check(), CheckResult::Sat);

  // An exception of cvc5 names the engine and the operation: values without model
  // generation, asked of the engine directly.
  Configuration plain;
  std::unique_ptr<Engine> engine = make_engine("cvc5", mgr_, plain);
  engine->assert_formula(op(">", {x_, num("1")}), false);
  ASSERT_EQ(engine->check({}), CheckResult::Sat);
  EXPECT_THAT([&] { engine->value(x_); }, ::testing::ThrowsMessage<EngineError>(::testing::AllOf(
                                              HasSubstr("cvc5"), HasSubstr("get_model_value"))));
  EXPECT_EQ(engine->check({}), CheckResult::Sat) << "the engine goes on";

  // cvc5 finds no interpolant for this arrays problem; the time limit ends its search.
  Configuration limited;
  limited.timeout = 0.5;
  Solver t(mgr_, limited, make_engine("cvc5", mgr_, limited));
  Term const* b = var("b", A);
  int const ga = t.new_interpolation_group();
  t.set_interpolation_group(ga);
  t.assert_formula(mgr_.make_equal(b, op("store", {a, x_, num("3")})));
  t.set_interpolation_group(t.new_interpolation_group());
  t.assert_formula(mgr_.make_equal(op("select", {b, x_}), num("4")));
  ASSERT_EQ(t.check(), CheckResult::Unsat);
  EXPECT_THAT([&] { t.get_interpolant({ga}); },
              ::testing::ThrowsMessage<EngineError>(HasSubstr("no interpolant within the time")));
  EXPECT_EQ(t.check(), CheckResult::Unsat) << "the session goes on";
}

}  // namespace
}  // namespace tvx
