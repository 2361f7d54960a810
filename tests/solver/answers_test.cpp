// Answers read back the same way for every engine: elements numbered once per session, default
// values, function tables built from trees of conditions, arrays from tables, models in id
// order; and the Int/Real mixing of arithmetic arguments that readers of answers share.
// Expectations follow SMT-LIB semantics: a table's value at a tuple is that of the body it was
// read from, an array's element is what select gives.
#include <gtest/gtest.h>

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

// A function body as a solver writes it, over the arguments x0, x1, ...: if-then-else, the
// conditions (= xi v), xi, (not c), (and c ...), (or c ...), and values at the leaves.
struct Body {
  enum Kind { kIte, kEq, kVar, kNot, kAnd, kOr, kValue };
  struct Node {
    Kind kind;
    std::vector<int> kids;
    std::size_t arg;
    Term const* value;
  };
  std::vector<Node> nodes;

  int add(Kind kind, std::vector<int> kids, std::size_t arg = 0, Term const* value = nullptr) {
    nodes.push_back(Node{kind, std::move(kids), arg, value});
    return static_cast<int>(nodes.size()) - 1;
  }
  int ite(int c, int t, int e) { return add(kIte, {c, t, e}); }
  int eq(std::size_t arg, Term const* v) { return add(kEq, {}, arg, v); }
  int var(std::size_t arg) { return add(kVar, {}, arg); }
  int negation(int c) { return add(kNot, {c}); }
  int conj(std::vector<int> cs) { return add(kAnd, std::move(cs)); }
  int disj(std::vector<int> cs) { return add(kOr, std::move(cs)); }
  int val(Term const* v) { return add(kValue, {}, 0, v); }
};

// The reader TableBuilder::read asks for, over a Body.
class BodyReader {
 public:
  BodyReader(TermManager& mgr, Body const& body) : mgr_(mgr), body_(body) {}

  bool ite(int n, int& cond, int& then_part, int& else_part) const {
    Body::Node const& x = body_.nodes[n];
    if (x.kind != Body::kIte) {
      return false;
    }
    cond = x.kids[0];
    then_part = x.kids[1];
    else_part = x.kids[2];
    return true;
  }
  bool fixes(int cond, TableBuilder::Fixes& out) const {
    std::vector<int> todo{cond};
    while (!todo.empty()) {
      Body::Node const& x = body_.nodes[todo.back()];
      todo.pop_back();
      if (x.kind == Body::kAnd) {
        todo.insert(todo.end(), x.kids.rbegin(), x.kids.rend());
      } else if (x.kind == Body::kEq) {
        out.emplace_back(x.arg, x.value);
      } else if (x.kind == Body::kVar) {
        out.emplace_back(x.arg, mgr_.make_true());
      } else if (x.kind == Body::kNot && body_.nodes[x.kids[0]].kind == Body::kVar) {
        out.emplace_back(body_.nodes[x.kids[0]].arg, mgr_.make_false());
      } else {
        return false;
      }
    }
    return true;
  }
  bool conditions(int n, bool& positive, std::vector<TableBuilder::Fixes>& out) const {
    if (body_.nodes[n].kind == Body::kValue) {
      return false;
    }
    if (body_.nodes[n].kind == Body::kNot) {
      positive = false;
      n = body_.nodes[n].kids[0];
    }
    std::vector<int> disjuncts{n};
    if (body_.nodes[n].kind == Body::kOr) {
      disjuncts = body_.nodes[n].kids;
    }
    for (int d : disjuncts) {
      out.emplace_back();
      if (!fixes(d, out.back())) {
        return false;
      }
    }
    return true;
  }
  Term const* value(int n) const {
    EXPECT_EQ(body_.nodes[n].kind, Body::kValue) << "a leaf read as a value is one";
    return body_.nodes[n].value;
  }

 private:
  TermManager& mgr_;
  Body const& body_;
};

class AnswersTest : public ::testing::Test {
 protected:
  Term const* num(char const* v) { return mgr.make_number(v, mgr.get_integer_type()); }
  Term const* real(char const* v) { return mgr.make_number(v, mgr.get_rational_type()); }

  FunctionValue read(Body const& body, int root, std::size_t arity, bool predicate) {
    TableBuilder table(mgr, arity);
    BodyReader reader(mgr, body);
    table.read(root, predicate, reader);
    EXPECT_TRUE(table.complete());
    FunctionValue fv = table.finish();
    for (FunctionValue::Point const& p : fv.points) {
      bool fixes_one = false;
      for (Term const* a : p.args) {
        fixes_one = fixes_one || a != nullptr;
      }
      EXPECT_TRUE(fixes_one) << "every point fixes an argument";
    }
    return fv;
  }

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

TEST_F(AnswersTest, TablePointsMayLeaveArgumentsFreeAndAreTriedInOrder) {
  // f(x0, x1) = (ite (= x0 1) (ite (= x1 2) 10 20) (ite (= x1 2) 30 40)), as cvc5 writes
  // trees that fix one argument per level.
  Body b;
  int const inner1 = b.ite(b.eq(1, num("2")), b.val(num("10")), b.val(num("20")));
  int const inner2 = b.ite(b.eq(1, num("2")), b.val(num("30")), b.val(num("40")));
  FunctionValue const f = read(b, b.ite(b.eq(0, num("1")), inner1, inner2), 2, false);
  EXPECT_EQ(f.at({num("1"), num("2")}), num("10"));
  EXPECT_EQ(f.at({num("1"), num("7")}), num("20"));
  EXPECT_EQ(f.at({num("5"), num("2")}), num("30"));
  EXPECT_EQ(f.at({num("5"), num("7")}), num("40"));
  EXPECT_EQ(f.otherwise, num("40"));
}

TEST_F(AnswersTest, TheFirstMatchWinsAndUnreachableBranchesAreLeftOut) {
  // (ite (= x 1) 5 (ite (= x 1) 6 (ite (= x 2) 7 8))): the second test of 1 is never reached.
  Body b;
  int const chain = b.ite(b.eq(0, num("1")), b.val(num("5")),
                          b.ite(b.eq(0, num("1")), b.val(num("6")),
                                b.ite(b.eq(0, num("2")), b.val(num("7")), b.val(num("8")))));
  FunctionValue const f = read(b, chain, 1, false);
  EXPECT_EQ(f.at({num("1")}), num("5"));
  EXPECT_EQ(f.at({num("2")}), num("7"));
  EXPECT_EQ(f.at({num("3")}), num("8"));
  EXPECT_EQ(f.points.size(), 2u) << "a later point at the same argument is dropped";

  // (ite (= x 1) (ite (= x 2) 99 5) 7): under x = 1 the test of x = 2 fails, so 99 is never
  // the value, at 2 or anywhere.
  Body c;
  int const nested =
      c.ite(c.eq(0, num("1")), c.ite(c.eq(0, num("2")), c.val(num("99")), c.val(num("5"))),
            c.val(num("7")));
  FunctionValue const g = read(c, nested, 1, false);
  EXPECT_EQ(g.at({num("1")}), num("5"));
  EXPECT_EQ(g.at({num("2")}), num("7"));

  // Points fed directly, as entries of a table: the first at a tuple wins.
  TableBuilder t(mgr, 1);
  t.add({num("1")}, num("10"));
  t.add({num("1")}, num("11"));
  t.add(t.root(), num("0"));
  FunctionValue const h = t.finish();
  EXPECT_EQ(h.at({num("1")}), num("10"));
  EXPECT_EQ(h.at({num("2")}), num("0"));
}

TEST_F(AnswersTest, APredicateWrittenAsConditionsIsTrueExactlyWhereOneHolds) {
  Term const* t = mgr.make_true();
  Term const* f = mgr.make_false();
  // p(x) = (or (= x 1) (= x 3))
  Body b;
  FunctionValue const p = read(b, b.disj({b.eq(0, num("1")), b.eq(0, num("3"))}), 1, true);
  EXPECT_EQ(p.at({num("1")}), t);
  EXPECT_EQ(p.at({num("3")}), t);
  EXPECT_EQ(p.at({num("2")}), f);

  // q(x, y) = (not (or (and (= x 1) y) (= x 2))): false at (1, true) and at (2, any).
  Body c;
  int const body = c.negation(c.disj({c.conj({c.eq(0, num("1")), c.var(1)}), c.eq(0, num("2"))}));
  FunctionValue const q = read(c, body, 2, true);
  EXPECT_EQ(q.at({num("1"), t}), f);
  EXPECT_EQ(q.at({num("1"), f}), t);
  EXPECT_EQ(q.at({num("2"), t}), f);
  EXPECT_EQ(q.at({num("2"), f}), f);
  EXPECT_EQ(q.at({num("5"), t}), t);

  // r(x, y) = (ite (= x 1) (= y 2) false): a condition below a branch holds under it only.
  Body d;
  FunctionValue const r = read(d, d.ite(d.eq(0, num("1")), d.eq(1, num("2")), d.val(f)), 2, true);
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
