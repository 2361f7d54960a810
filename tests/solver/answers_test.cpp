// Answers read back the same way for every engine: elements numbered once per session, default
// values, function tables built from trees of conditions, arrays from tables, models in id
// order; and the Int/Real mixing of arithmetic arguments that readers of answers share.
// Expectations follow SMT-LIB semantics: a table's value at a tuple is that of the body it was
// read from, an array's element is what select gives.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include <tvx/core/term_manager.h>
#include <tvx/solver/engine.h>

#include "core/arith_args.h"
#include "solver/answers.h"
#include "solver/table_builder.h"

namespace tvx {
namespace {

// The reader TableBuilder::read asks for, over a body written as terms over the argument
// constants `args`: if-then-else, the conditions (= xi v), xi, (not xi), (and c ...),
// (or c ...) and (not (or ...)), and values at the leaves.
class TermReader {
 public:
  using Fixes = TableBuilder::Fixes;
  TermReader(TermManager& mgr, std::vector<Term const*> args) : mgr_(mgr), args_(args) {}

  bool ite(Term const* n, Term const*& cond, Term const*& then_part, Term const*& else_part) const {
    if (tag(n) != SymbolTag::ITE) {
      return false;
    }
    cond = n->get_arg(0);
    then_part = n->get_arg(1);
    else_part = n->get_arg(2);
    return true;
  }
  bool fixes(Term const* cond, Fixes& out) const {
    std::vector<Term const*> todo{cond};
    while (!todo.empty()) {
      Term const* c = todo.back();
      todo.pop_back();
      bool const negated = tag(c) == SymbolTag::NOT;
      if (tag(c) == SymbolTag::AND) {
        for (std::size_t i = c->get_arity(); i-- > 0;) {
          todo.push_back(c->get_arg(i));
        }
      } else if (tag(c) == SymbolTag::EQUAL && index(c->get_arg(0)) < args_.size()) {
        out.emplace_back(index(c->get_arg(0)), c->get_arg(1));
      } else if (index(negated ? c->get_arg(0) : c) < args_.size()) {
        out.emplace_back(index(negated ? c->get_arg(0) : c),
                         negated ? mgr_.make_false() : mgr_.make_true());
      } else {
        return false;
      }
    }
    return true;
  }
  bool conditions(Term const* n, bool& positive, std::vector<Fixes>& out) const {
    if (n == mgr_.make_true() || n == mgr_.make_false()) {
      return false;
    }
    if (tag(n) == SymbolTag::NOT) {
      positive = false;
      n = n->get_arg(0);
    }
    std::size_t const k = tag(n) == SymbolTag::OR ? n->get_arity() : 1;
    for (std::size_t i = 0; i < k; ++i) {
      out.emplace_back();
      if (!fixes(k == 1 ? n : n->get_arg(i), out.back())) {
        return false;
      }
    }
    return true;
  }
  Term const* value(Term const* n) const { return n; }

 private:
  static SymbolTag::tag tag(Term const* t) { return t->get_symbol()->get_tag(); }
  std::size_t index(Term const* t) const {
    return static_cast<std::size_t>(std::find(args_.begin(), args_.end(), t) - args_.begin());
  }
  TermManager& mgr_;
  std::vector<Term const*> args_;
};

class AnswersTest : public ::testing::Test {
 protected:
  Term const* num(char const* v) { return mgr.make_number(v, mgr.get_integer_type()); }
  Term const* real(char const* v) { return mgr.make_number(v, mgr.get_rational_type()); }

  // The table read from `body`, a function of `args` (x0 and x1 unless told).
  FunctionValue read(Term const* body, bool predicate, std::vector<Term const*> args = {}) {
    args = args.empty() ? std::vector<Term const*>{x0, x1} : args;
    TableBuilder table(mgr, args.size());
    TermReader reader(mgr, args);
    table.read(body, predicate, reader);
    EXPECT_TRUE(table.complete());
    return table.finish();
  }
  Term const* eq(Term const* a, Term const* b) { return mgr.make_equal(a, b); }
  Term const* ite(Term const* c, Term const* a, Term const* b) { return mgr.make_ite(c, a, b); }

  // select over stores on a constant array, as SMT-LIB defines it.
  static Term const* select(Term const* array, Term const* index) {
    while (array->get_symbol()->get_tag() == SymbolTag::STORE) {
      if (array->get_arg(1) == index) {
        return array->get_arg(2);
      }
      array = array->get_arg(0);
    }
    EXPECT_EQ(array->get_symbol()->get_tag(), SymbolTag::CONST_ARRAY);
    return array->get_arg(0);
  }

  TermManager mgr;
  Answers answers{mgr};
  Term const* x0 = mgr.make_constant(mgr.make_symbol("x0", mgr.get_integer_type()));
  Term const* x1 = mgr.make_constant(mgr.make_symbol("x1", mgr.get_integer_type()));
  Term const* b1 = mgr.make_constant(mgr.make_symbol("b1", mgr.get_bool_type()));
};

TEST_F(AnswersTest, ElementsAreNumberedPerSortInOrderOfFirstSightAndStayNumbered) {
  DataType const* u = mgr.make_simple_type("U");
  DataType const* v = mgr.make_simple_type("V");
  Term const* a = answers.element(u, "@a");
  Term const* b = answers.element(u, "@b");
  EXPECT_EQ(a, mgr.make_abstract_value(u, 0));
  EXPECT_EQ(b, mgr.make_abstract_value(u, 1));
  EXPECT_EQ(answers.element(u, "@a"), a) << "asked again, in a later answer";
  EXPECT_EQ(answers.element(v, "@b"), mgr.make_abstract_value(v, 0))
      << "a key names an element of its sort only";
  EXPECT_EQ(answers.element(u, "@c"), mgr.make_abstract_value(u, 2));
  EXPECT_EQ(answers.element(u, "@b"), b);
}

TEST_F(AnswersTest, AnyValueHasTheSortAskedAtAnyDepthOfArrays) {
  DataType const* u = mgr.make_simple_type("U");
  std::vector<DataType const*> sorts = {mgr.get_bool_type(), mgr.get_integer_type(),
                                        mgr.get_rational_type(), mgr.get_bv_type(8), u};
  DataType const* deep = mgr.get_bool_type();
  for (int i = 0; i < 100000; ++i) {
    deep = mgr.get_array_type(mgr.get_integer_type(), deep);
  }
  sorts.push_back(deep);
  sorts.push_back(mgr.get_array_type(u, mgr.get_bv_type(4)));
  for (DataType const* s : sorts) {
    EXPECT_EQ(answers.any_value(s)->get_type(), s) << s->get_id();
  }
  EXPECT_EQ(answers.any_value(mgr.get_bool_type()), mgr.make_false());
}

TEST_F(AnswersTest, TablePointsMayLeaveArgumentsFreeAndTheFirstMatchWins) {
  // (ite (= x0 1) (ite (= x1 2) 10 20) (ite (= x1 2) 30 40)), as cvc5 writes trees that fix
  // one argument per level.
  FunctionValue const f = read(ite(eq(x0, num("1")), ite(eq(x1, num("2")), num("10"), num("20")),
                                   ite(eq(x1, num("2")), num("30"), num("40"))),
                               false);
  EXPECT_EQ(f.at({num("1"), num("2")}), num("10"));
  EXPECT_EQ(f.at({num("1"), num("7")}), num("20"));
  EXPECT_EQ(f.at({num("5"), num("2")}), num("30"));
  EXPECT_EQ(f.at({num("5"), num("7")}), num("40"));
  EXPECT_EQ(f.otherwise, num("40"));

  // (ite (= x0 1) 5 (ite (= x0 1) 6 (ite (= x0 2) 7 8))): the second test of 1 is never reached.
  FunctionValue const g =
      read(ite(eq(x0, num("1")), num("5"),
               ite(eq(x0, num("1")), num("6"), ite(eq(x0, num("2")), num("7"), num("8")))),
           false);
  for (auto const& [x, v] : {std::pair{"1", "5"}, {"2", "7"}, {"3", "8"}}) {
    EXPECT_EQ(g.at({num(x), num("0")}), num(v)) << x;
  }
  EXPECT_EQ(g.points.size(), 2u) << "a later point at the same arguments is dropped";

  // (ite (= x0 1) (ite (= x0 2) 99 5) 7): under x0 = 1 the test of x0 = 2 fails, so 99 is never
  // the value, at 2 or anywhere.
  FunctionValue const h =
      read(ite(eq(x0, num("1")), ite(eq(x0, num("2")), num("99"), num("5")), num("7")), false);
  EXPECT_EQ(h.at({num("1"), num("0")}), num("5"));
  EXPECT_EQ(h.at({num("2"), num("0")}), num("7"));

  // Points fed directly, as entries of a table: the first at a tuple wins.
  TableBuilder t(mgr, 1);
  t.add({num("1")}, num("10"));
  t.add({num("1")}, num("11"));
  t.add(t.root(), num("0"));
  FunctionValue const e = t.finish();
  EXPECT_EQ(e.at({num("1")}), num("10"));
  EXPECT_EQ(e.at({num("2")}), num("0"));
}

TEST_F(AnswersTest, APredicateWrittenAsConditionsIsTrueExactlyWhereOneHolds) {
  Term const* t = mgr.make_true();
  Term const* f = mgr.make_false();
  // (or (= x0 1) (= x0 3))
  FunctionValue const p = read(mgr.make_or(eq(x0, num("1")), eq(x0, num("3"))), true);
  // (not (or (and (= x0 1) b1) (= x0 2))): false at (1, true) and at (2, any).
  FunctionValue const q =
      read(mgr.make_not(mgr.make_or(mgr.make_and(eq(x0, num("1")), b1), eq(x0, num("2")))), true,
           {x0, b1});
  // (ite (= x0 1) (= x1 2) false): a condition below a branch holds under it only.
  FunctionValue const r = read(ite(eq(x0, num("1")), eq(x1, num("2")), f), true);
  Term const* o = num("0");
  EXPECT_EQ(p.at({num("1"), o}), t);
  EXPECT_EQ(p.at({num("3"), o}), t);
  EXPECT_EQ(p.at({num("2"), o}), f);
  EXPECT_EQ(q.at({num("1"), t}), f);
  EXPECT_EQ(q.at({num("1"), f}), t);
  EXPECT_EQ(q.at({num("2"), t}), f);
  EXPECT_EQ(q.at({num("2"), f}), f);
  EXPECT_EQ(q.at({num("5"), t}), t);
  EXPECT_EQ(r.at({num("1"), num("2")}), t);
  EXPECT_EQ(r.at({num("1"), num("3")}), f);
  EXPECT_EQ(r.at({num("4"), num("2")}), f);
}

TEST_F(AnswersTest, AnArrayFromATableSelectsWhatTheTableGives) {
  DataType const* sort = mgr.get_array_type(mgr.get_integer_type(), mgr.get_integer_type());
  FunctionValue table;
  table.points.push_back(FunctionValue::Point{{num("1")}, num("10")});
  table.points.push_back(FunctionValue::Point{{num("2")}, num("20")});
  table.points.push_back(FunctionValue::Point{{num("1")}, num("30")});  // hidden by the first
  table.otherwise = num("0");
  Term const* array = answers.array_of(sort, table);
  EXPECT_EQ(array->get_type(), sort);
  for (char const* i : {"1", "2", "3"}) {
    EXPECT_EQ(select(array, num(i)), table.at({num(i)})) << i;
  }
}

TEST_F(AnswersTest, AModelListsSymbolsInIdOrderAndGivesAMissingFunctionOneValue) {
  DataType const* i = mgr.get_integer_type();
  Symbol const* x = mgr.make_symbol("x", i);
  Symbol const* f = mgr.make_symbol("f", mgr.get_function_type({i}, i));
  Symbol const* g = mgr.make_symbol("g", mgr.get_function_type({i, i}, i));
  Symbol const* y = mgr.make_symbol("y", i);
  Answers::ModelReader reader;
  reader.constant = [&](Symbol const* s) { return num(s == x ? "1" : "2"); };
  reader.function = [&](Symbol const* s, FunctionValue& fv) {
    if (s == g) {
      return false;  // left out of the model
    }
    fv.points.push_back(FunctionValue::Point{{num("1")}, num("5")});
    fv.otherwise = num("6");
    return true;
  };
  reader.application = [&](Symbol const* s) {
    EXPECT_EQ(s, g);
    return num("7");
  };
  Model const m = answers.model({g, y, f, x}, reader);
  ASSERT_EQ(m.constants.size(), 2u);
  EXPECT_EQ(m.constants[0], std::make_pair(x, num("1")));
  EXPECT_EQ(m.constants[1], std::make_pair(y, num("2")));
  ASSERT_EQ(m.functions.size(), 2u);
  EXPECT_EQ(m.functions[0].first, f);
  EXPECT_EQ(m.functions[0].second.at({num("1")}), num("5"));
  EXPECT_EQ(m.functions[1].first, g);
  EXPECT_EQ(m.functions[1].second.at({num("1"), num("9")}), num("7"));
  EXPECT_EQ(m.functions[1].second.at({num("4"), num("4")}), num("7"));
}

// --- Int and Real arguments of one application ---

class ArithArgsTest : public AnswersTest {
 protected:
  // The arguments as mix_arith_args leaves them, and the numeral it folds to (or null).
  std::pair<std::vector<Term const*>, Term const*> mix(std::string const& op,
                                                       std::vector<Term const*> args) {
    Term const* numeral = mix_arith_args(mgr, op, args.data(), args.size());
    return {args, numeral};
  }
  Term const* to_real(Term const* t) { return mgr.make_builtin("to_real", {t}); }

  Term const* xi = mgr.make_constant(mgr.make_symbol("xi", mgr.get_integer_type()));
  Term const* yi = mgr.make_constant(mgr.make_symbol("yi", mgr.get_integer_type()));
  Term const* xr = mgr.make_constant(mgr.make_symbol("xr", mgr.get_rational_type()));
  Term const* c = mgr.make_constant(mgr.make_symbol("c", mgr.get_bool_type()));
};

TEST_F(ArithArgsTest, IntArgumentsBecomeRealWhereARealOneIsBesideThem) {
  using Args = std::vector<Term const*>;
  EXPECT_EQ(mix("+", {xi, xr}).first, (Args{to_real(xi), xr}));
  EXPECT_EQ(mix("<=", {num("1"), xr}).first, (Args{real("1"), xr})) << "a numeral stays one";
  EXPECT_EQ(mix("=", {xr, xi, num("2")}).first, (Args{xr, to_real(xi), real("2")}));
  EXPECT_EQ(mix("distinct", {xi, xr}).first, (Args{to_real(xi), xr}));
  EXPECT_EQ(mix("-", {xr, xi}).first, (Args{xr, to_real(xi)}));
  EXPECT_EQ(mix("*", {xi, yi}).first, (Args{xi, yi})) << "Ints alone stay Int";
  // ite mixes its branches, never its condition.
  EXPECT_EQ(mix("ite", {c, num("1"), xr}).first, (Args{c, real("1"), xr}));
  EXPECT_EQ(mix("ite", {c, xi, yi}).first, (Args{c, xi, yi}));
  // Division is Real: Int arguments become Real even without a Real beside them.
  EXPECT_EQ(mix("/", {xi, yi}).first, (Args{to_real(xi), to_real(yi)}));
  // Operators that take one sort by their signature are left alone.
  EXPECT_EQ(mix("div", {xi, yi}).first, (Args{xi, yi}));
  EXPECT_EQ(mix("to_real", {xi}).first, (Args{xi}));
  EXPECT_EQ(mix("f", {xi, xr}).first, (Args{xi, xr})) << "not an operator";
  EXPECT_EQ(as_real(mgr, num("3")), real("3"));
  EXPECT_EQ(as_real(mgr, xr), xr);
}

TEST_F(ArithArgsTest, NegativeAndFractionalNumeralsFoldIntoNumerals) {
  EXPECT_EQ(mix("-", {num("5")}).second, num("-5"));
  EXPECT_EQ(mix("-", {real("5/2")}).second, real("-5/2"));
  EXPECT_EQ(mix("/", {num("1"), num("2")}).second, real("1/2"));
  EXPECT_EQ(mix("/", {num("6"), num("4")}).second, real("3/2"));
  EXPECT_EQ(mix("/", {num("1"), num("0")}).second, nullptr) << "no numeral divides by 0";
  EXPECT_EQ(mix("/", {xi, num("2")}).second, nullptr);
  EXPECT_EQ(mix("-", {xi}).second, nullptr);
  EXPECT_EQ(mix("-", {num("5"), num("2")}).second, nullptr) << "a subtraction stays one";
  EXPECT_EQ(mix("+", {num("5")}).second, nullptr);
}

}  // namespace
}  // namespace tvx
