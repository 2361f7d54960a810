// Every operator of the operator table on each in-process engine: closed applications whose
// truth SMT-LIB fixes, checked by the engine (operators of many arguments spelled by pairs
// included); the engines' operator tables read both ways: cvc5's terms read back as the terms
// they came from, and each z3 function makes an application of its row's kind; and the
// spelling by pairs that both engines share.
#include <gtest/gtest.h>
#include <z3.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <tvx/core/term_manager.h>
#include <tvx/solver/engine.h>

#include "core/operator_table.h"
#include "solver/cvc5_engine.h"
#include "solver/dag_translation.h"
#include "solver/z3_ops.h"

namespace tvx {
namespace {

// A closed formula and its truth value under SMT-LIB's semantics.
struct Fact {
  Term const* formula;
  bool holds;
};

// Builds closed terms in a few words.
class Words {
 public:
  explicit Words(TermManager& mgr) : mgr_(mgr) {}
  Term const* i(char const* v) { return mgr_.make_number(v, mgr_.get_integer_type()); }
  Term const* r(char const* v) { return mgr_.make_number(v, mgr_.get_rational_type()); }
  // A bit-vector literal "#b…" or "#x…", of the width it spells.
  Term const* bv(std::string const& v) {
    std::size_t const width = (v.size() - 2) * (v[1] == 'x' ? 4 : 1);
    return mgr_.make_number(v, mgr_.get_bv_type(width));
  }
  Term const* t() { return mgr_.make_true(); }
  Term const* f() { return mgr_.make_false(); }
  Term const* op(SymbolTag::tag tag, std::vector<Term const*> const& args,
                 std::vector<std::uint64_t> const& indices = {}) {
    return mgr_.make_builtin(tag, args, indices);
  }
  Term const* eq(Term const* a, Term const* b) { return mgr_.make_equal(a, b); }
  // The Int array whose every element is 0.
  Term const* zeros() {
    DataType const* I = mgr_.get_integer_type();
    return mgr_.make_const_array(mgr_.get_array_type(I, I), i("0"));
  }

 private:
  TermManager& mgr_;
};

// One fact or more per row of the operator table, each family of rows together; applications of
// three arguments where left folding, right folding, chaining and pairwise spelling differ.
std::vector<Fact> facts(TermManager& mgr) {
  Words w(mgr);
  using T = SymbolTag;
  auto neg = [&](Term const* a) { return w.op(T::NEG, {a}); };
  return {
      // core
      {w.t(), true},
      {w.f(), false},
      {w.op(T::NOT, {w.f()}), true},
      {w.op(T::AND, {w.t(), w.t(), w.f()}), false},
      {w.op(T::AND, {w.t(), w.t(), w.t()}), true},
      {w.op(T::OR, {w.f(), w.f(), w.t()}), true},
      {w.op(T::XOR, {w.t(), w.t(), w.t()}), true},
      {w.op(T::XOR, {w.t(), w.t()}), false},
      {w.op(T::IMPLIES, {w.f(), w.t(), w.f()}), true},  // false from the left
      {w.op(T::IMPLIES, {w.t(), w.t(), w.f()}), false},
      {w.op(T::EQUAL, {w.i("1"), w.i("1"), w.i("1")}), true},
      {w.op(T::EQUAL, {w.i("1"), w.i("1"), w.i("2")}), false},
      {w.op(T::DISTINCT, {w.i("1"), w.i("2"), w.i("3")}), true},
      {w.op(T::DISTINCT, {w.i("1"), w.i("2"), w.i("1")}), false},  // true as a chain
      {w.eq(w.op(T::ITE, {w.f(), w.i("1"), w.i("2")}), w.i("2")), true},
      // integers and reals
      {w.eq(w.op(T::ADD, {w.i("1"), w.i("2"), w.i("3")}), w.i("6")), true},
      {w.eq(w.op(T::SUB, {w.i("10"), w.i("3"), w.i("2")}), w.i("5")), true},
      {w.eq(neg(w.i("3")), w.i("-3")), true},
      {w.eq(w.op(T::MUL, {w.i("2"), w.i("3"), w.i("4")}), w.i("24")), true},
      {w.eq(w.op(T::DIV, {w.r("12"), w.r("2"), w.r("3")}), w.r("2")), true},
      {w.eq(w.op(T::IDIV, {w.i("20"), w.i("3"), w.i("2")}), w.i("3")), true},
      {w.eq(w.op(T::IDIV, {w.i("-7"), w.i("2")}), w.i("-4")), true},
      {w.eq(w.op(T::MOD, {w.i("-7"), w.i("2")}), w.i("1")), true},
      {w.eq(w.op(T::ABS, {w.i("-5")}), w.i("5")), true},
      {w.op(T::LT, {w.i("1"), w.i("2"), w.i("3")}), true},
      {w.op(T::LT, {w.i("1"), w.i("3"), w.i("2")}), false},
      {w.op(T::LE, {w.i("1"), w.i("1"), w.i("2")}), true},
      {w.op(T::LE, {w.i("2"), w.i("1"), w.i("3")}), false},
      {w.op(T::GT, {w.i("3"), w.i("2"), w.i("1")}), true},
      {w.op(T::GT, {w.i("3"), w.i("1"), w.i("2")}), false},
      {w.op(T::GE, {w.i("3"), w.i("3"), w.i("1")}), true},
      {w.op(T::GE, {w.i("1"), w.i("3"), w.i("2")}), false},
      {w.eq(w.op(T::TO_REAL, {w.i("2")}), w.r("2")), true},
      {w.eq(w.op(T::TO_INT, {w.r("-5/2")}), w.i("-3")), true},
      {w.op(T::IS_INT, {w.r("2")}), true},
      {w.op(T::IS_INT, {w.r("5/2")}), false},
      // bit-vectors
      {w.eq(w.op(T::CONCAT, {w.bv("#b1"), w.bv("#b0"), w.bv("#b11")}), w.bv("#b1011")), true},
      {w.eq(w.op(T::EXTRACT, {w.bv("#b0110")}, {2, 1}), w.bv("#b11")), true},
      {w.eq(w.op(T::REPEAT, {w.bv("#b10")}, {3}), w.bv("#b101010")), true},
      {w.eq(w.op(T::ZERO_EXTEND, {w.bv("#b10")}, {2}), w.bv("#b0010")), true},
      {w.eq(w.op(T::SIGN_EXTEND, {w.bv("#b10")}, {2}), w.bv("#b1110")), true},
      {w.eq(w.op(T::ROTATE_LEFT, {w.bv("#b1001")}, {1}), w.bv("#b0011")), true},
      {w.eq(w.op(T::ROTATE_RIGHT, {w.bv("#b1001")}, {1}), w.bv("#b1100")), true},
      {w.eq(w.op(T::BVNOT, {w.bv("#b0101")}), w.bv("#b1010")), true},
      {w.eq(w.op(T::BVNEG, {w.bv("#x01")}), w.bv("#xff")), true},
      {w.eq(w.op(T::BVAND, {w.bv("#b1100"), w.bv("#b1010"), w.bv("#b1001")}), w.bv("#b1000")),
       true},
      {w.eq(w.op(T::BVOR, {w.bv("#b1000"), w.bv("#b0100"), w.bv("#b0001")}), w.bv("#b1101")), true},
      {w.eq(w.op(T::BVXOR, {w.bv("#b1100"), w.bv("#b1010"), w.bv("#b0111")}), w.bv("#b0001")),
       true},
      {w.eq(w.op(T::BVNAND, {w.bv("#b1100"), w.bv("#b1010")}), w.bv("#b0111")), true},
      {w.eq(w.op(T::BVNOR, {w.bv("#b1100"), w.bv("#b1010")}), w.bv("#b0001")), true},
      {w.eq(w.op(T::BVXNOR, {w.bv("#b1100"), w.bv("#b1010")}), w.bv("#b1001")), true},
      {w.eq(w.op(T::BVCOMP, {w.bv("#x05"), w.bv("#x05")}), w.bv("#b1")), true},
      {w.eq(w.op(T::BVCOMP, {w.bv("#x05"), w.bv("#x06")}), w.bv("#b0")), true},
      {w.eq(w.op(T::BVADD, {w.bv("#x01"), w.bv("#x02"), w.bv("#xff")}), w.bv("#x02")), true},
      {w.eq(w.op(T::BVSUB, {w.bv("#x0a"), w.bv("#x03"), w.bv("#x02")}), w.bv("#x05")), true},
      {w.eq(w.op(T::BVMUL, {w.bv("#x02"), w.bv("#x03"), w.bv("#x04")}), w.bv("#x18")), true},
      {w.eq(w.op(T::BVUDIV, {w.bv("#xf0"), w.bv("#x10")}), w.bv("#x0f")), true},
      {w.eq(w.op(T::BVUDIV, {w.bv("#x05"), w.bv("#x00")}), w.bv("#xff")), true},
      {w.eq(w.op(T::BVUREM, {w.bv("#x07"), w.bv("#x03")}), w.bv("#x01")), true},
      {w.eq(w.op(T::BVSDIV, {w.bv("#xf9"), w.bv("#x02")}), w.bv("#xfd")), true},  // -7/2 = -3
      {w.eq(w.op(T::BVSREM, {w.bv("#xf9"), w.bv("#x02")}), w.bv("#xff")), true},  // -1
      {w.eq(w.op(T::BVSMOD, {w.bv("#xf9"), w.bv("#x02")}), w.bv("#x01")), true},  // 1
      {w.eq(w.op(T::BVSHL, {w.bv("#x03"), w.bv("#x02")}), w.bv("#x0c")), true},
      {w.eq(w.op(T::BVLSHR, {w.bv("#xf0"), w.bv("#x04")}), w.bv("#x0f")), true},
      {w.eq(w.op(T::BVASHR, {w.bv("#xf0"), w.bv("#x04")}), w.bv("#xff")), true},
      {w.op(T::BVULT, {w.bv("#x01"), w.bv("#xff")}), true},
      {w.op(T::BVULE, {w.bv("#x05"), w.bv("#x05")}), true},
      {w.op(T::BVUGT, {w.bv("#xff"), w.bv("#x01")}), true},
      {w.op(T::BVUGE, {w.bv("#x01"), w.bv("#x02")}), false},
      {w.op(T::BVSLT, {w.bv("#xff"), w.bv("#x01")}), true},
      {w.op(T::BVSLE, {w.bv("#x01"), w.bv("#xff")}), false},
      {w.op(T::BVSGT, {w.bv("#x01"), w.bv("#xff")}), true},
      {w.op(T::BVSGE, {w.bv("#x80"), w.bv("#x7f")}), false},
      // arrays
      {w.eq(w.op(T::SELECT, {w.op(T::STORE, {w.zeros(), w.i("1"), w.i("5")}), w.i("1")}), w.i("5")),
       true},
      {w.eq(w.op(T::SELECT, {w.op(T::STORE, {w.zeros(), w.i("1"), w.i("5")}), w.i("2")}), w.i("0")),
       true},
  };
}

// The operator tags that occur in the terms.
std::set<SymbolTag::tag> tags_in(std::vector<Fact> const& facts) {
  std::set<SymbolTag::tag> tags;
  std::vector<Term const*> stack;
  for (Fact const& fact : facts) {
    stack.push_back(fact.formula);
  }
  while (!stack.empty()) {
    Term const* t = stack.back();
    stack.pop_back();
    tags.insert(t->get_symbol()->get_tag());
    for (std::size_t i = 0; i < t->get_arity(); ++i) {
      stack.push_back(t->get_arg(i));
    }
  }
  return tags;
}

// The spelling by pairs, written out: what each Assoc makes of (op a b c d).
TEST(SpellNaryTest, EachAssociativitySpellsManyArgumentsAsSmtLibDefinesIt) {
  std::vector<std::string> const a = {"a", "b", "c", "d"};
  std::vector<std::string> links;
  auto spell = [&](optable::Assoc assoc, std::size_t n) {
    return spell_nary(
        assoc, a.data(), n,
        [](std::string const& x, std::string const& y) { return "(op " + x + " " + y + ")"; },
        [](std::vector<std::string> const& all) {
          std::string text = "(and";
          for (std::string const& l : all) {
            text += " " + l;
          }
          return text + ")";
        },
        links);
  };
  using optable::Assoc;
  EXPECT_EQ(spell(Assoc::Left, 4), "(op (op (op a b) c) d)");
  EXPECT_EQ(spell(Assoc::Right, 4), "(op a (op b (op c d)))");
  EXPECT_EQ(spell(Assoc::Chainable, 4), "(and (op a b) (op b c) (op c d))");
  EXPECT_EQ(spell(Assoc::Pairwise, 4),
            "(and (op a b) (op a c) (op a d) (op b c) (op b d) (op c d))");
  for (Assoc assoc : {Assoc::None, Assoc::Left, Assoc::Right, Assoc::Chainable, Assoc::Pairwise}) {
    EXPECT_EQ(spell(assoc, 2), "(op a b)");  // two arguments need no conjunction
  }
}

class EngineOpsTest : public ::testing::TestWithParam<char const*> {};

TEST_P(EngineOpsTest, EveryOperatorMeansWhatSmtLibSays) {
  TermManager mgr;
  std::vector<Fact> const all = facts(mgr);
  std::set<SymbolTag::tag> const covered = tags_in(all);
  for (optable::OpInfo const& op : optable::kOps) {
    EXPECT_EQ(covered.count(op.tag), 1u) << "no fact about '" << op.name << "'";
  }
  Configuration config;
  std::unique_ptr<Engine> engine = make_engine(GetParam(), mgr, config);
  for (std::size_t k = 0; k < all.size(); ++k) {
    // A fact holds when its negation is unsatisfiable, and fails when it is unsatisfiable.
    for (bool const negate : {false, true}) {
      engine->push();
      engine->assert_formula(negate ? mgr.make_not(all[k].formula) : all[k].formula, false);
      CheckResult const expected = all[k].holds == negate ? CheckResult::Unsat : CheckResult::Sat;
      EXPECT_EQ(engine->check({}), expected)
          << GetParam() << " on " << (negate ? "the negation of " : "") << "fact " << k;
      engine->pop();
    }
  }
}

INSTANTIATE_TEST_SUITE_P(InProcess, EngineOpsTest, ::testing::Values("z3", "cvc5"));

// A well-sorted application of the row's operator to fresh constants: two arguments where it
// takes several.
Term const* application(TermManager& mgr, optable::OpInfo const& op) {
  DataType const* B = mgr.get_bool_type();
  DataType const* I = mgr.get_integer_type();
  DataType const* R = mgr.get_rational_type();
  DataType const* V = mgr.get_bv_type(8);
  DataType const* A = mgr.get_array_type(I, I);
  std::vector<DataType const*> sorts;
  std::vector<std::uint64_t> indices;
  using optable::Sig;
  switch (op.sig) {
    case Sig::Const:
      break;
    case Sig::BoolUnary:
      sorts = {B};
      break;
    case Sig::BoolNary:
      sorts = {B, B};
      break;
    case Sig::Ite:
      sorts = {B, I, I};
      break;
    case Sig::Minus:
      sorts = op.tag == SymbolTag::NEG ? std::vector<DataType const*>{I}
                                       : std::vector<DataType const*>{I, I};
      break;
    case Sig::RealNary:
      sorts = {R, R};
      break;
    case Sig::IntUnary:
    case Sig::ToReal:
      sorts = {I};
      break;
    case Sig::ToInt:
    case Sig::IsInt:
      sorts = {R};
      break;
    case Sig::Extract:
      indices = {5, 2};
      sorts = {V};
      break;
    case Sig::Repeat:
    case Sig::Extend:
    case Sig::Rotate:
      indices = {3};
      sorts = {V};
      break;
    case Sig::BvUnary:
      sorts = {V};
      break;
    case Sig::Concat:
    case Sig::BvNary:
    case Sig::BvBinary:
    case Sig::BvComp:
    case Sig::BvPred:
      sorts = {V, V};
      break;
    case Sig::Select:
      sorts = {A, I};
      break;
    case Sig::Store:
      sorts = {A, I, I};
      break;
    case Sig::Chain:
    case Sig::ArithNary:
    case Sig::IntNary:
    case Sig::IntBinary:
    case Sig::ArithChain:
      sorts = {I, I};
      break;
  }
  std::vector<Term const*> args;
  for (DataType const* sort : sorts) {
    std::string const name = "x" + std::to_string(args.size()) + "_" + sort->to_string();
    Symbol const* s = mgr.find_symbol(name);
    args.push_back(mgr.make_constant(s != nullptr ? s : mgr.make_symbol(name, sort)));
  }
  return mgr.make_builtin(op.tag, args, indices);
}

TEST(Cvc5OpsTest, EveryApplicationReadsBackAsTheTermItCameFrom) {
  TermManager mgr;
  Configuration config;
  Cvc5Session session(mgr, config);
  for (optable::OpInfo const& op : optable::kOps) {
    Term const* t = application(mgr, op);
    EXPECT_EQ(session.read_back(t), t) << "'" << op.name << "' read back from cvc5";
  }
}

// Each z3 function of the table makes an application of its row's kind, and the kind reads back
// as the row's tag.
class Z3OpsTest : public ::testing::Test {
 protected:
  Z3OpsTest() {
    Z3_config cfg = Z3_mk_config();
    ctx_ = Z3_mk_context(cfg);  // every AST lives as long as the context
    Z3_del_config(cfg);
    Z3_set_error_handler(ctx_, nullptr);
  }
  ~Z3OpsTest() override { Z3_del_context(ctx_); }
  Z3OpsTest(Z3OpsTest const&) = delete;
  Z3OpsTest& operator=(Z3OpsTest const&) = delete;

  Z3_sort sort_of(DataType const* t) {
    if (t->is_bool()) {
      return Z3_mk_bool_sort(ctx_);
    }
    if (t->is_int()) {
      return Z3_mk_int_sort(ctx_);
    }
    if (t->is_real()) {
      return Z3_mk_real_sort(ctx_);
    }
    if (t->is_bv()) {
      return Z3_mk_bv_sort(ctx_, static_cast<unsigned>(t->get_bv_width()));
    }
    return Z3_mk_array_sort(ctx_, Z3_mk_int_sort(ctx_), Z3_mk_int_sort(ctx_));
  }

  // The row's function applied to constants of the sorts of t's arguments.
  Z3_ast make(z3ops::Z3Op const& op, Term const* t) {
    std::vector<Z3_ast> a;
    for (std::size_t i = 0; i < t->get_arity(); ++i) {
      Z3_symbol const name = Z3_mk_int_symbol(ctx_, static_cast<int>(i));
      a.push_back(Z3_mk_const(ctx_, name, sort_of(t->get_arg(i)->get_type())));
    }
    auto index = [&](std::size_t i) {
      return static_cast<unsigned>(t->get_symbol()->get_index(i));
    };
    switch (op.make.shape) {
      case z3ops::Shape::Const:
        return op.make.constant(ctx_);
      case z3ops::Shape::Unary:
        return op.make.unary(ctx_, a[0]);
      case z3ops::Shape::Binary:
        return op.make.binary(ctx_, a[0], a[1]);
      case z3ops::Shape::Ternary:
        return op.make.ternary(ctx_, a[0], a[1], a[2]);
      case z3ops::Shape::Nary:
        return op.make.nary(ctx_, static_cast<unsigned>(a.size()), a.data());
      case z3ops::Shape::Indexed1:
        return op.make.indexed1(ctx_, index(0), a[0]);
      case z3ops::Shape::Indexed2:
        return op.make.indexed2(ctx_, index(0), index(1), a[0]);
      case z3ops::Shape::Special:
        break;
    }
    return nullptr;
  }

  Z3_context ctx_ = nullptr;
};

TEST_F(Z3OpsTest, EachFunctionMakesItsRowsKindAndTheKindReadsBackAsTheTag) {
  TermManager mgr;
  std::size_t specials = 0;
  for (optable::OpInfo const& info : optable::kOps) {
    z3ops::Z3Op const& op = *z3ops::op_of_tag(info.tag);
    ASSERT_EQ(op.tag, info.tag);
    if (op.make.shape == z3ops::Shape::Special) {
      ++specials;  // spelled with other operators, checked by their meaning above
      continue;
    }
    Z3_ast const a = make(op, application(mgr, info));
    ASSERT_NE(a, nullptr) << info.name;
    ASSERT_EQ(Z3_get_error_code(ctx_), Z3_OK) << info.name;
    Z3_decl_kind const kind = Z3_get_decl_kind(ctx_, Z3_get_app_decl(ctx_, Z3_to_app(ctx_, a)));
    EXPECT_EQ(kind, op.kind) << "'" << info.name << "' made by z3";
    EXPECT_EQ(z3ops::tag_of_kind(kind), info.tag) << "'" << info.name << "' read back";
  }
  EXPECT_EQ(specials, 2u);  // abs and bvcomp
  EXPECT_EQ(z3ops::tag_of_kind(Z3_OP_UNINTERPRETED), SymbolTag::UNINTERPRETED);
}

}  // namespace
}  // namespace tvx
