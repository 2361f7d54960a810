// Every operator of the operator table on each in-process engine: closed applications whose
// truth SMT-LIB fixes, checked by the engine (operators of many arguments spelled by pairs
// included); the engines' operator tables read both ways on an application of each operator;
// and the spelling by pairs that both engines share.
#include <gtest/gtest.h>
#include <z3.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
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

// At least one fact per row of the operator table; applications of three arguments where left
// folding, right folding, chaining and pairwise spelling differ.
std::vector<Fact> facts(TermManager& mgr) {
  using T = SymbolTag;
  using Args = std::vector<Term const*>;
  auto i = [&](char const* v) { return mgr.make_number(v, mgr.get_integer_type()); };
  auto r = [&](char const* v) { return mgr.make_number(v, mgr.get_rational_type()); };
  auto bv = [&](std::string const& v) {  // "#b…" or "#x…", of the width it spells
    return mgr.make_number(v, mgr.get_bv_type((v.size() - 2) * (v[1] == 'x' ? 4 : 1)));
  };
  auto op = [&](T::tag tag, Args const& args, std::vector<std::uint64_t> const& indices = {}) {
    return mgr.make_builtin(tag, args, indices);
  };
  auto is = [&](Term const* a, Term const* b) { return Fact{mgr.make_equal(a, b), true}; };
  Term const* t = mgr.make_true();
  Term const* f = mgr.make_false();
  DataType const* I = mgr.get_integer_type();
  Term const* zeros = mgr.make_const_array(mgr.get_array_type(I, I), i("0"));
  Term const* stored = op(T::STORE, {zeros, i("1"), i("5")});
  return {
      {t, true},
      {f, false},
      {op(T::NOT, {f}), true},
      {op(T::AND, {t, t, f}), false},
      {op(T::AND, {t, t, t}), true},
      {op(T::OR, {f, f, t}), true},
      {op(T::XOR, {t, t, t}), true},
      {op(T::XOR, {t, t}), false},
      {op(T::IMPLIES, {f, t, f}), true},  // false from the left
      {op(T::IMPLIES, {t, t, f}), false},
      {op(T::EQUAL, {i("1"), i("1"), i("1")}), true},
      {op(T::EQUAL, {i("1"), i("1"), i("2")}), false},
      {op(T::DISTINCT, {i("1"), i("2"), i("3")}), true},
      {op(T::DISTINCT, {i("1"), i("2"), i("1")}), false},  // true as a chain
      is(op(T::ITE, {f, i("1"), i("2")}), i("2")),
      is(op(T::ADD, {i("1"), i("2"), i("3")}), i("6")),
      is(op(T::SUB, {i("10"), i("3"), i("2")}), i("5")),
      is(op(T::NEG, {i("3")}), i("-3")),
      is(op(T::MUL, {i("2"), i("3"), i("4")}), i("24")),
      is(op(T::DIV, {r("12"), r("2"), r("3")}), r("2")),
      is(op(T::IDIV, {i("20"), i("3"), i("2")}), i("3")),
      is(op(T::IDIV, {i("-7"), i("2")}), i("-4")),
      is(op(T::MOD, {i("-7"), i("2")}), i("1")),
      is(op(T::ABS, {i("-5")}), i("5")),
      {op(T::LT, {i("1"), i("2"), i("3")}), true},
      {op(T::LT, {i("1"), i("3"), i("2")}), false},
      {op(T::LE, {i("1"), i("1"), i("2")}), true},
      {op(T::LE, {i("2"), i("1"), i("3")}), false},
      {op(T::GT, {i("3"), i("2"), i("1")}), true},
      {op(T::GT, {i("3"), i("1"), i("2")}), false},
      {op(T::GE, {i("3"), i("3"), i("1")}), true},
      {op(T::GE, {i("1"), i("3"), i("2")}), false},
      is(op(T::TO_REAL, {i("2")}), r("2")),
      is(op(T::TO_INT, {r("-5/2")}), i("-3")),
      {op(T::IS_INT, {r("2")}), true},
      {op(T::IS_INT, {r("5/2")}), false},
      is(op(T::CONCAT, {bv("#b1"), bv("#b0"), bv("#b11")}), bv("#b1011")),
      is(op(T::EXTRACT, {bv("#b0110")}, {2, 1}), bv("#b11")),
      is(op(T::REPEAT, {bv("#b10")}, {3}), bv("#b101010")),
      is(op(T::ZERO_EXTEND, {bv("#b10")}, {2}), bv("#b0010")),
      is(op(T::SIGN_EXTEND, {bv("#b10")}, {2}), bv("#b1110")),
      is(op(T::ROTATE_LEFT, {bv("#b1001")}, {1}), bv("#b0011")),
      is(op(T::ROTATE_RIGHT, {bv("#b1001")}, {1}), bv("#b1100")),
      is(op(T::BVNOT, {bv("#b0101")}), bv("#b1010")),
      is(op(T::BVNEG, {bv("#x01")}), bv("#xff")),
      is(op(T::BVAND, {bv("#b1100"), bv("#b1010"), bv("#b1001")}), bv("#b1000")),
      is(op(T::BVOR, {bv("#b1000"), bv("#b0100"), bv("#b0001")}), bv("#b1101")),
      is(op(T::BVXOR, {bv("#b1100"), bv("#b1010"), bv("#b0111")}), bv("#b0001")),
      is(op(T::BVNAND, {bv("#b1100"), bv("#b1010")}), bv("#b0111")),
      is(op(T::BVNOR, {bv("#b1100"), bv("#b1010")}), bv("#b0001")),
      is(op(T::BVXNOR, {bv("#b1100"), bv("#b1010")}), bv("#b1001")),
      is(op(T::BVCOMP, {bv("#x05"), bv("#x05")}), bv("#b1")),
      is(op(T::BVCOMP, {bv("#x05"), bv("#x06")}), bv("#b0")),
      is(op(T::BVADD, {bv("#x01"), bv("#x02"), bv("#xff")}), bv("#x02")),
      is(op(T::BVSUB, {bv("#x0a"), bv("#x03"), bv("#x02")}), bv("#x05")),
      is(op(T::BVMUL, {bv("#x02"), bv("#x03"), bv("#x04")}), bv("#x18")),
      is(op(T::BVUDIV, {bv("#xf0"), bv("#x10")}), bv("#x0f")),
      is(op(T::BVUDIV, {bv("#x05"), bv("#x00")}), bv("#xff")),
      is(op(T::BVUREM, {bv("#x07"), bv("#x03")}), bv("#x01")),
      is(op(T::BVSDIV, {bv("#xf9"), bv("#x02")}), bv("#xfd")),  // -7/2 = -3
      is(op(T::BVSREM, {bv("#xf9"), bv("#x02")}), bv("#xff")),  // -1
      is(op(T::BVSMOD, {bv("#xf9"), bv("#x02")}), bv("#x01")),  // 1
      is(op(T::BVSHL, {bv("#x03"), bv("#x02")}), bv("#x0c")),
      is(op(T::BVLSHR, {bv("#xf0"), bv("#x04")}), bv("#x0f")),
      is(op(T::BVASHR, {bv("#xf0"), bv("#x04")}), bv("#xff")),
      {op(T::BVULT, {bv("#x01"), bv("#xff")}), true},
      {op(T::BVULE, {bv("#x05"), bv("#x05")}), true},
      {op(T::BVUGT, {bv("#xff"), bv("#x01")}), true},
      {op(T::BVUGE, {bv("#x01"), bv("#x02")}), false},
      {op(T::BVSLT, {bv("#xff"), bv("#x01")}), true},
      {op(T::BVSLE, {bv("#x01"), bv("#xff")}), false},
      {op(T::BVSGT, {bv("#x01"), bv("#xff")}), true},
      {op(T::BVSGE, {bv("#x80"), bv("#x7f")}), false},
      is(op(T::BV2NAT, {bv("#xc8")}), i("200")),
      is(op(T::INT2BV, {i("-55")}, {8}), bv("#xc9")),  // modulo 2^8
      is(op(T::SELECT, {stored, i("1")}), i("5")),
      is(op(T::SELECT, {stored, i("2")}), i("0")),
  };
}

// An application of each operator tag met in the facts, the first met, to fresh constants of its
// arguments' sorts (readers fold numerals); an operator of many arguments applied to two, which
// every engine keeps as one application.
std::map<SymbolTag::tag, Term const*> applications(TermManager& mgr, std::vector<Fact> const& all) {
  std::map<SymbolTag::tag, Term const*> found;
  std::vector<Term const*> stack;
  for (auto k = all.rbegin(); k != all.rend(); ++k) {
    stack.push_back(k->formula);
  }
  while (!stack.empty()) {
    Term const* t = stack.back();
    stack.pop_back();
    found.emplace(t->get_symbol()->get_tag(), t);
    for (std::size_t i = t->get_arity(); i-- > 0;) {
      stack.push_back(t->get_arg(i));
    }
  }
  for (optable::OpInfo const& op : optable::kOps) {
    Term const*& t = found[op.tag];
    if (t == nullptr) {
      continue;
    }
    std::size_t const n = op.assoc != optable::Assoc::None
                              ? std::min<std::size_t>(2, t->get_arity())
                              : t->get_arity();
    std::vector<Term const*> args;
    std::vector<std::uint64_t> indices;
    for (std::size_t i = 0; i < t->get_symbol()->get_num_indices(); ++i) {
      indices.push_back(t->get_symbol()->get_index(i));
    }
    for (std::size_t i = 0; i < n; ++i) {
      DataType const* sort = t->get_arg(i)->get_type();
      std::string const name = "x" + std::to_string(i) + "_" + sort->to_string();
      Symbol const* s = mgr.find_symbol(name);
      args.push_back(mgr.make_constant(s != nullptr ? s : mgr.make_symbol(name, sort)));
    }
    t = mgr.make_builtin(op.tag, args, indices);
  }
  return found;
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
  std::map<SymbolTag::tag, Term const*> const met = applications(mgr, all);
  for (optable::OpInfo const& op : optable::kOps) {
    EXPECT_NE(met.at(op.tag), nullptr) << "no fact about '" << op.name << "'";
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

TEST(Cvc5OpsTest, EveryApplicationReadsBackAsTheTermItCameFrom) {
  TermManager mgr;
  Configuration config;
  Cvc5Session session(mgr, config);
  std::map<SymbolTag::tag, Term const*> const met = applications(mgr, facts(mgr));
  for (optable::OpInfo const& op : optable::kOps) {
    Term const* t = met.at(op.tag);
    EXPECT_EQ(session.read_back(t), t) << "'" << op.name << "' read back from cvc5";
  }
}

// Each z3 function of the table, applied to constants of the sorts of an application's
// arguments, makes an application of its row's kind, and the kind reads back as the row's tag.
TEST(Z3OpsTest, EachFunctionMakesItsRowsKindAndTheKindReadsBackAsTheTag) {
  TermManager mgr;
  std::map<SymbolTag::tag, Term const*> const met = applications(mgr, facts(mgr));
  Z3_config cfg = Z3_mk_config();
  Z3_context const ctx = Z3_mk_context(cfg);  // every AST lives as long as the context
  Z3_del_config(cfg);
  Z3_set_error_handler(ctx, nullptr);
  auto sort_of = [&](DataType const* t) {
    return t->is_bool()   ? Z3_mk_bool_sort(ctx)
           : t->is_int()  ? Z3_mk_int_sort(ctx)
           : t->is_real() ? Z3_mk_real_sort(ctx)
           : t->is_bv()   ? Z3_mk_bv_sort(ctx, static_cast<unsigned>(t->get_bv_width()))
                          : Z3_mk_array_sort(ctx, Z3_mk_int_sort(ctx), Z3_mk_int_sort(ctx));
  };
  std::size_t specials = 0;
  for (optable::OpInfo const& info : optable::kOps) {
    z3ops::Z3Op const& op = *z3ops::op_of_tag(info.tag);
    ASSERT_EQ(op.tag, info.tag);
    Term const* t = met.at(info.tag);
    std::vector<Z3_ast> a;
    for (std::size_t i = 0; i < t->get_arity(); ++i) {
      Z3_symbol const name = Z3_mk_int_symbol(ctx, static_cast<int>(i));
      a.push_back(Z3_mk_const(ctx, name, sort_of(t->get_arg(i)->get_type())));
    }
    auto index = [&](std::size_t i) { return unsigned(t->get_symbol()->get_index(i)); };
    Z3_ast made = nullptr;
    switch (op.make.shape) {
      case z3ops::Shape::Const:
        made = op.make.constant(ctx);
        break;
      case z3ops::Shape::Unary:
        made = op.make.unary(ctx, a[0]);
        break;
      case z3ops::Shape::Binary:
        made = op.make.binary(ctx, a[0], a[1]);
        break;
      case z3ops::Shape::Ternary:
        made = op.make.ternary(ctx, a[0], a[1], a[2]);
        break;
      case z3ops::Shape::Nary:
        made = op.make.nary(ctx, unsigned(a.size()), a.data());
        break;
      case z3ops::Shape::Indexed1:
        made = op.make.indexed1(ctx, index(0), a[0]);
        break;
      case z3ops::Shape::Indexed2:
        made = op.make.indexed2(ctx, index(0), index(1), a[0]);
        break;
      case z3ops::Shape::Special:
        ++specials;
        continue;  // spelled with other operators
    }
    ASSERT_NE(made, nullptr) << info.name;
    ASSERT_EQ(Z3_get_error_code(ctx), Z3_OK) << info.name;
    Z3_decl_kind const kind = Z3_get_decl_kind(ctx, Z3_get_app_decl(ctx, Z3_to_app(ctx, made)));
    EXPECT_EQ(kind, op.kind) << "'" << info.name << "' made by z3";
    EXPECT_EQ(z3ops::tag_of_kind(kind), info.tag) << "'" << info.name << "' read back";
  }
  EXPECT_EQ(specials, 3u);  // abs, bvcomp and bv2nat
  EXPECT_EQ(z3ops::tag_of_kind(Z3_OP_UNINTERPRETED), SymbolTag::UNINTERPRETED);
  Z3_del_context(ctx);
}

}  // namespace
}  // namespace tvx
