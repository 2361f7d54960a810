// The environment over the cvc5 engine: answers, cores and scopes; values that, asserted back,
// keep the session satisfiable (in cvc5 and in z3); terms far deeper than a thread's stack;
// interpolants checked with the z3 engine; cvc5's failures as tvx errors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include <tvx/core/error.h>
#include <tvx/solver/solver.h>

namespace tvx {
namespace {

using ::testing::HasSubstr;

// Whether z3 finds the conjunction of the formulas unsatisfiable (true) or satisfiable
// (false); any other answer fails the test.
bool z3_unsat(TermManager& mgr, std::vector<Term const*> const& formulas) {
  Configuration config;
  std::unique_ptr<Engine> z3 = make_engine("z3", mgr, config);
  for (Term const* f : formulas) {
    z3->assert_formula(f, false);
  }
  CheckResult const r = z3->check({});
  EXPECT_NE(r, CheckResult::Unknown);
  return r == CheckResult::Unsat;
}

// The uninterpreted symbols of the terms.
std::unordered_set<Symbol const*> symbols_of(std::vector<Term const*> const& roots) {
  std::unordered_set<Symbol const*> out;
  std::unordered_set<Term const*> seen;
  std::vector<Term const*> stack(roots);
  while (!stack.empty()) {
    Term const* t = stack.back();
    stack.pop_back();
    if (!seen.insert(t).second) {
      continue;
    }
    if (t->get_symbol()->is_uninterpreted()) {
      out.insert(t->get_symbol());
    }
    for (std::size_t i = 0; i < t->get_arity(); ++i) {
      stack.push_back(t->get_arg(i));
    }
  }
  return out;
}

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

TEST_F(Cvc5EngineTest, ChecksCoresAssumptionsScopesAndAllSat) {
  Solver& s = *solver_;
  EXPECT_EQ(s.engine()->name(), "cvc5");
  EXPECT_THAT(builtin_engine_names(), ::testing::Contains("cvc5"));
  Term const* p = var("p", B_);
  Term const* q = var("q", B_);
  s.assert_formula(mgr_.make_or(p, q));
  std::vector<std::vector<TheoryLit>> const cubes = s.check_allsat({p, q});
  EXPECT_EQ(cubes.size(), 3u);
  for (auto const& cube : cubes) {
    EXPECT_FALSE(cube[0].is_negated() && cube[1].is_negated()) << "p or q holds in each";
  }
  s.push(2);
  s.assert_formula(op(">", {x_, num("3")}));
  s.assert_formula(op("<", {x_, num("10")}));
  Term const* low = op("<", {x_, num("2")});
  EXPECT_EQ(s.check_with_assumptions({TheoryLit(low, false), TheoryLit(p, true)}),
            CheckResult::Unsat);
  std::vector<TheoryLit> const core = s.get_unsat_assumptions();
  ASSERT_EQ(core.size(), 1u);
  EXPECT_EQ(core[0].get_term(), low);
  EXPECT_FALSE(core[0].is_negated());
  // The negated assumption alone is what clashes with p or q once q is false.
  s.assert_formula(mgr_.make_not(q));
  EXPECT_EQ(s.check_with_assumptions({TheoryLit(p, true)}), CheckResult::Unsat);
  ASSERT_EQ(s.get_unsat_assumptions().size(), 1u);
  EXPECT_TRUE(s.get_unsat_assumptions()[0].is_negated());
  s.assert_formula(low);
  EXPECT_EQ(s.check(), CheckResult::Unsat);
  std::vector<Term const*> const formulas = s.get_unsat_core();
  EXPECT_THAT(formulas, ::testing::IsSupersetOf({op(">", {x_, num("3")}), low}));
  s.pop(2);
  EXPECT_EQ(s.check(), CheckResult::Sat);
  // The core alone is unsatisfiable, in cvc5 and in z3; a formula asserted again in a scope
  // stays tracked after that scope is gone.
  s.push();
  for (Term const* t : formulas) {
    s.assert_formula(t);
  }
  EXPECT_EQ(s.check(), CheckResult::Unsat);
  EXPECT_TRUE(z3_unsat(mgr_, formulas));
  s.pop();
  s.assert_formula(low);
  s.push();
  s.assert_formula(low);
  s.pop();
  s.assert_formula(op(">", {x_, num("5")}));
  EXPECT_EQ(s.check(), CheckResult::Unsat);
  EXPECT_THAT(s.get_unsat_core(), ::testing::Contains(low));
  // Reset: no assertion stays, and no tracked formula either.
  s.reset_assertions();
  EXPECT_EQ(s.check(), CheckResult::Sat);
  s.assert_formula(mgr_.make_false());
  EXPECT_EQ(s.check(), CheckResult::Unsat);
  EXPECT_THAT(s.get_unsat_core(), ::testing::ElementsAre(mgr_.make_false()));
}

TEST_F(Cvc5EngineTest, ValuesAssertedBackKeepTheSessionSatisfiable) {
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
  Term const* a1 = c("a1", AV);
  Term const* a2 = c("a2", AV);
  Term const* nested = c("nested", AA);
  Symbol const* f = s.declare_fun("f", {U, I_}, R);
  Symbol const* g = s.declare_fun("g", {I_}, I_);
  Symbol const* pred = s.declare_fun("pred", {I_}, B_);
  std::vector<Term const*> formulas = {
      mgr_.make_not(mgr_.make_equal(u1, u2)),
      mgr_.make_not(mgr_.make_equal(a1, a2)),
      op("<", {r, mgr_.make_number("-1/3", R)}),
      op("bvugt", {b, mgr_.make_number("#x7f0", BV)}),
      op(">", {op("select", {op("select", {nested, b}), x_}), mgr_.make_term(f, {u1, x_})}),
      op(">", {mgr_.make_term(f, {u2, x_}), mgr_.make_number("7/2", R)}),
      op(">", {x_, num("100")}),
      mgr_.make_equal(mgr_.make_term(g, {num("1")}), num("5")),
      mgr_.make_equal(mgr_.make_term(g, {num("2")}), num("-7")),
      mgr_.make_term(pred, {num("4")}),
      mgr_.make_not(mgr_.make_term(pred, {num("5")})),
      mgr_.make_term(pred, {num("6")}),
  };
  for (Term const* e : formulas) {
    s.assert_formula(e);
  }
  ASSERT_EQ(s.check(), CheckResult::Sat);
  std::vector<Term const*> equations;
  for (Term const* t : {u1, u2, r, b, a1, a2, nested, x_, mgr_.make_term(f, {u1, x_})}) {
    Term const* v = s.get_model_value(t);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v->get_type(), t->get_type());
    EXPECT_EQ(v, s.get_model_value(t)) << "the same value twice is the same term";
    equations.push_back(mgr_.make_equal(t, v));
  }
  EXPECT_NE(s.get_model_value(u1), s.get_model_value(u2)) << "distinct elements";
  EXPECT_EQ(s.get_model_value(u1), mgr_.make_abstract_value(U, 0));
  EXPECT_EQ(s.get_model_value(mgr_.make_term(g, {num("2")})), num("-7"));
  EXPECT_EQ(s.get_model_value(b)->get_symbol()->get_tag(), SymbolTag::NUMERAL);
  // Function values: the tables give the values the assertions fix, and every point,
  // asserted back, keeps the session satisfiable.
  Model const m = s.get_model();
  EXPECT_EQ(m.functions.size(), 3u);
  EXPECT_EQ(m.constants.size(), 8u);
  for (auto const& [symbol, fv] : m.functions) {
    ASSERT_NE(fv.otherwise, nullptr) << symbol->get_name();
    for (FunctionValue::Point const& p : fv.points) {
      // A point that leaves an argument free stands for many; those fixing all are asserted.
      if (std::find(p.args.begin(), p.args.end(), nullptr) == p.args.end()) {
        equations.push_back(mgr_.make_equal(mgr_.make_term(symbol, p.args), p.value));
      }
    }
    if (symbol == g) {
      EXPECT_EQ(fv.at({num("1")}), num("5"));
      EXPECT_EQ(fv.at({num("2")}), num("-7"));
    }
    if (symbol == pred) {
      EXPECT_EQ(fv.at({num("4")}), mgr_.make_true());
      EXPECT_EQ(fv.at({num("5")}), mgr_.make_false());
      EXPECT_EQ(fv.at({num("6")}), mgr_.make_true());
    }
  }
  for (auto const& [symbol, value] : m.constants) {
    equations.push_back(mgr_.make_equal(mgr_.make_constant(symbol), value));
  }
  // z3 agrees that the values satisfy the formulas (elements of U and V stay distinct).
  std::vector<Term const*> all(formulas);
  all.insert(all.end(), equations.begin(), equations.end());
  all.push_back(mgr_.make_not(
      mgr_.make_equal(mgr_.make_abstract_value(U, 0), mgr_.make_abstract_value(U, 1))));
  EXPECT_FALSE(z3_unsat(mgr_, all));
  // cvc5 takes them back too, but for arrays over V: their values are constant arrays of an
  // element of V, which cvc5 cannot be given.
  for (Term const* e : equations) {
    if (e->get_arg(0)->get_type() == AV) {
      EXPECT_THROW(s.assert_formula(e), Unsupported);
    } else {
      s.assert_formula(e);
    }
  }
  EXPECT_EQ(s.check(), CheckResult::Sat);
}

TEST_F(Cvc5EngineTest, TimeoutAnswersUnknownWithAReason) {
  Configuration config;
  config.timeout = 0.001;
  Solver s(mgr_, config, make_engine("cvc5", mgr_, config));
  // Pigeons into holes: 9 into 8 takes cvc5 far longer than a millisecond.
  std::vector<std::vector<Term const*>> in(9, std::vector<Term const*>(8));
  for (int i = 0; i < 9; ++i) {
    std::vector<Term const*> some;
    for (int j = 0; j < 8; ++j) {
      in[i][j] = mgr_.make_constant(
          mgr_.make_symbol("p" + std::to_string(i) + "_" + std::to_string(j), B_));
      some.push_back(in[i][j]);
    }
    s.assert_formula(mgr_.make_builtin("or", some));
  }
  for (int j = 0; j < 8; ++j) {
    for (int i = 0; i < 9; ++i) {
      for (int k = i + 1; k < 9; ++k) {
        s.assert_formula(mgr_.make_not(mgr_.make_and(in[i][j], in[k][j])));
      }
    }
  }
  EXPECT_EQ(s.check(), CheckResult::Unknown);
  EXPECT_EQ(s.reason_unknown(), "timeout");
}

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

// An interpolation problem: A and B, whose conjunction is unsatisfiable.
struct ItpCase {
  char const* name;
  std::vector<Term const*> a;
  std::vector<Term const*> b;
};

TEST_F(Cvc5EngineTest, InterpolantsAreImpliedByAContradictBAndUseSharedSymbolsOnly) {
  Term const* y = var("y", I_);
  Term const* z = var("z", I_);
  Term const* w = var("w", I_);
  Symbol const* f = mgr_.make_symbol("f", mgr_.get_function_type({I_}, I_));
  Term const* p = var("p", B_);
  Term const* q = var("q", B_);
  Term const* r = var("r", B_);
  DataType const* BV = mgr_.get_bv_type(8);
  Term const* bx = var("bx", BV);
  Term const* by = var("by", BV);
  std::vector<ItpCase> const cases = {
      {"bit-vectors",
       {op("bvult", {bx, mgr_.make_number("4", BV)})},
       {op("=", {by, bx}), op("bvugt", {by, mgr_.make_number("9", BV)})}},
      {"order", {op(">", {x_, y}), op(">", {y, z})}, {op(">", {z, x_})}},
      {"functions",
       {mgr_.make_equal(w, z), mgr_.make_equal(mgr_.make_term(f, {w}), y)},
       {mgr_.make_not(mgr_.make_equal(mgr_.make_term(f, {z}), y))}},
      {"propositional",
       {mgr_.make_or(p, q), mgr_.make_not(p)},
       {mgr_.make_or(mgr_.make_not(q), r), mgr_.make_not(r)}},
      {"A alone", {op("<", {x_, num("0")}), op(">", {x_, num("0")})}, {}},
      {"B alone", {}, {mgr_.make_false()}},
  };
  for (ItpCase const& c : cases) {
    SCOPED_TRACE(c.name);
    Solver& s = *solver_;
    s.reset_assertions();
    int const ga = s.new_interpolation_group();
    int const gb = s.new_interpolation_group();
    s.set_interpolation_group(ga);
    for (Term const* t : c.a) {
      s.assert_formula(t);
    }
    s.set_interpolation_group(gb);
    for (Term const* t : c.b) {
      s.assert_formula(t);
    }
    ASSERT_EQ(s.check(), CheckResult::Unsat);
    Term const* i = s.get_interpolant({ga});
    ASSERT_NE(i, nullptr);
    ASSERT_TRUE(i->get_type()->is_bool());
    std::vector<Term const*> a_not_i(c.a);
    a_not_i.push_back(mgr_.make_not(i));
    EXPECT_TRUE(z3_unsat(mgr_, a_not_i)) << "A implies I";
    std::vector<Term const*> i_and_b(c.b);
    i_and_b.push_back(i);
    EXPECT_TRUE(z3_unsat(mgr_, i_and_b)) << "I and B are unsatisfiable";
    std::unordered_set<Symbol const*> const in_a = symbols_of(c.a);
    std::unordered_set<Symbol const*> const in_b = symbols_of(c.b);
    for (Symbol const* sym : symbols_of({i})) {
      EXPECT_TRUE(in_a.count(sym) != 0 && in_b.count(sym) != 0)
          << "'" << sym->get_name() << "' is not shared";
    }
  }
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
