// Tests of TermManager: hash-consing, id order, result sorts of every theory operator, and the
// misuse paths that must throw std::invalid_argument naming the operator and the sorts.
#include "core/term_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace tvx {
namespace {

// Runs `f` and returns the message of the std::invalid_argument it throws, or a text that says
// what happened instead (so a failing expectation shows it).
std::string invalid_argument_message(std::function<void()> const& f, bool* thrown) {
  *thrown = false;
  try {
    f();
  } catch (std::invalid_argument const& e) {
    *thrown = true;
    return e.what();
  } catch (std::exception const& e) {
    return std::string("<wrong exception type: ") + e.what() + ">";
  }
  return "<no exception>";
}

#define EXPECT_INVALID(stmt, ...)                                                          \
  do {                                                                                     \
    bool thrown_ = false;                                                                  \
    std::string msg_ = invalid_argument_message([&] { (void)(stmt); }, &thrown_);          \
    EXPECT_TRUE(thrown_) << #stmt << ": " << msg_;                                         \
    for (std::string const& part_ : std::vector<std::string>{__VA_ARGS__}) {               \
      EXPECT_NE(msg_.find(part_), std::string::npos)                                       \
          << #stmt << ": message \"" << msg_ << "\" does not mention \"" << part_ << "\""; \
    }                                                                                      \
  } while (0)

class TermManagerTest : public ::testing::Test {
 protected:
  TermManager mgr;
  DataType const* boolean = mgr.get_bool_type();
  DataType const* integer = mgr.get_integer_type();
  DataType const* real = mgr.get_rational_type();
  DataType const* bv4 = mgr.get_bv_type(4);
  DataType const* bv8 = mgr.get_bv_type(8);
  DataType const* arr_int_bv8 = mgr.get_array_type(integer, bv8);
  DataType const* sort_u = mgr.make_simple_type("U");

  Term const* constant(std::string const& name, DataType const* type) {
    return mgr.make_constant(mgr.make_symbol(name, type));
  }
  Term const* num(std::string const& value, DataType const* type) {
    return mgr.make_number(value, type);
  }

  // A few constants of every sort, made on first use by the tests that need them.
  Term const* p = constant("p", boolean);
  Term const* q = constant("q", boolean);
  Term const* i = constant("i", integer);
  Term const* j = constant("j", integer);
  Term const* r = constant("r", real);
  Term const* s = constant("s", real);
  Term const* a4 = constant("a4", bv4);
  Term const* b8 = constant("b8", bv8);
  Term const* c8 = constant("c8", bv8);
  Term const* arr = constant("arr", arr_int_bv8);
  Term const* u1 = constant("u1", sort_u);
  Term const* u2 = constant("u2", sort_u);
};

// ---------------------------------------------------------------------------------------------
// Sorts

TEST_F(TermManagerTest, SortsAreHashConsed) {
  EXPECT_EQ(mgr.get_bool_type(), boolean);
  EXPECT_EQ(mgr.get_integer_type(), integer);
  EXPECT_EQ(mgr.get_rational_type(), real);
  EXPECT_EQ(mgr.get_bv_type(8), bv8);
  EXPECT_NE(mgr.get_bv_type(16), bv8);
  EXPECT_EQ(mgr.get_array_type(integer, bv8), arr_int_bv8);
  EXPECT_NE(mgr.get_array_type(bv8, integer), arr_int_bv8);
  EXPECT_EQ(mgr.get_array_type(integer, mgr.get_array_type(integer, bv8)),
            mgr.get_array_type(integer, arr_int_bv8));
  DataType const* f1 = mgr.get_function_type({sort_u, integer}, boolean);
  EXPECT_EQ(mgr.get_function_type({sort_u, integer}, boolean), f1);
  EXPECT_NE(mgr.get_function_type({integer, sort_u}, boolean), f1);
  EXPECT_NE(mgr.get_function_type({sort_u, integer, integer}, boolean), f1);
  EXPECT_NE(mgr.get_function_type({sort_u, integer}, integer), f1);
  // All sorts distinct from each other.
  std::set<DataType const*> all = {boolean, integer, real, bv4, bv8, arr_int_bv8, sort_u, f1};
  EXPECT_EQ(all.size(), 8u);
}

TEST_F(TermManagerTest, SortShapes) {
  struct Row {
    DataType const* type;
    char const* name;
  };
  for (Row const& row : {Row{boolean, "Bool"}, Row{integer, "Int"}, Row{real, "Real"},
                         Row{bv8, "(_ BitVec 8)"}, Row{sort_u, "U"}}) {
    EXPECT_TRUE(row.type->is_simple()) << row.name;
    EXPECT_EQ(row.type->get_num_components(), 0u) << row.name;
    EXPECT_EQ(row.type->get_name(), row.name);
  }
  EXPECT_FALSE(arr_int_bv8->is_simple());
  ASSERT_EQ(arr_int_bv8->get_num_components(), 2u);
  EXPECT_EQ(arr_int_bv8->get_component(0), integer);
  EXPECT_EQ(arr_int_bv8->get_component(1), bv8);

  DataType const* f = mgr.get_function_type({sort_u, integer}, boolean);
  EXPECT_FALSE(f->is_simple());
  ASSERT_EQ(f->get_num_components(), 3u);
  EXPECT_EQ(f->get_component(0), sort_u);
  EXPECT_EQ(f->get_component(1), integer);
  EXPECT_EQ(f->get_component(2), boolean);
  EXPECT_EQ(bv8->get_bv_width(), 8u);
}

TEST_F(TermManagerTest, GetSimpleTypeAnswersUninterpretedOnlyWhenAsked) {
  EXPECT_EQ(mgr.get_simple_type("U", true), sort_u);
  EXPECT_EQ(mgr.get_simple_type("U", false), sort_u);
  for (DataType const* builtin : {boolean, integer, real, bv4, bv8}) {
    EXPECT_EQ(mgr.get_simple_type(builtin->get_name(), true), nullptr) << builtin->get_name();
  }
  EXPECT_EQ(mgr.get_simple_type("Int", false), integer);
  EXPECT_EQ(mgr.get_simple_type("Bool", false), boolean);
  EXPECT_EQ(mgr.get_simple_type("NoSuchSort", true), nullptr);
  EXPECT_EQ(mgr.get_simple_type("NoSuchSort", false), nullptr);
}

TEST_F(TermManagerTest, BitVectorWidthZeroAndTooWideAreRefused) {
  EXPECT_INVALID(mgr.get_bv_type(0), "0");
  EXPECT_INVALID(mgr.get_bv_type(TermManager::kMaxBvWidth + 1), "");
  EXPECT_NE(mgr.get_bv_type(1), nullptr);
  EXPECT_NE(mgr.get_bv_type(1000), nullptr);
}

// ---------------------------------------------------------------------------------------------
// Symbols and names

TEST_F(TermManagerTest, SymbolAccessors) {
  DataType const* ftype = mgr.get_function_type({sort_u, integer}, boolean);
  Symbol const* f = mgr.make_symbol("f", ftype);
  EXPECT_EQ(f->get_arity(), 2u);
  EXPECT_EQ(f->get_type(), ftype);
  EXPECT_EQ(f->get_output_type(), boolean);
  EXPECT_EQ(f->get_name(), "f");
  EXPECT_EQ(mgr.find_symbol("f"), f);

  Symbol const* x = mgr.make_symbol("x", sort_u);
  EXPECT_EQ(x->get_arity(), 0u);
  EXPECT_EQ(x->get_type(), sort_u);
  EXPECT_EQ(x->get_output_type(), sort_u);
  EXPECT_EQ(mgr.find_symbol("x"), x);

  Symbol const* a = mgr.make_symbol("a", arr_int_bv8);
  EXPECT_EQ(a->get_arity(), 0u) << "an array-sorted symbol is a constant";
  EXPECT_EQ(a->get_output_type(), arr_int_bv8);

  EXPECT_EQ(mgr.find_symbol("nope"), nullptr);
  EXPECT_EQ(mgr.find_symbol("and"), nullptr);

  Term const* app = mgr.make_term(f, {u1, i});
  EXPECT_EQ(app->get_symbol(), f);
  ASSERT_EQ(app->get_arity(), 2u);
  EXPECT_EQ(app->get_arg(0), u1);
  EXPECT_EQ(app->get_arg(1), i);
  EXPECT_EQ(app->get_type(), boolean);
}

TEST_F(TermManagerTest, UnusualButWritableNamesAreAccepted) {
  // Reserved words, names starting with a digit, the empty name and names with blanks or
  // other characters that need quoting can all be user names.
  std::vector<std::string> names = {"assert",    "let",       "",           "0_0",         "a b",
                                    "check-sat", "forall",    "exists",     "par",         "!",
                                    "_",         "as",        "NUMERAL",    "match",       "x'",
                                    "(p)",       "tab\there", "semi;colon", "declare-fun", "42",
                                    "\"q\"",     "a.b"};
  for (std::string const& name : names) {
    Symbol const* sym = nullptr;
    EXPECT_NO_THROW(sym = mgr.make_symbol(name, integer)) << "symbol [" << name << "]";
    if (sym != nullptr) {
      EXPECT_EQ(sym->get_name(), name);
      EXPECT_EQ(mgr.find_symbol(name), sym) << "[" << name << "]";
      EXPECT_FALSE(mgr.is_interpreted(sym)) << "[" << name << "]";
    }
  }
  // Sorts in a manager of their own, so that no name is taken twice.
  TermManager sorts;
  for (std::string const& name : names) {
    DataType const* sort = nullptr;
    EXPECT_NO_THROW(sort = sorts.make_simple_type(name)) << "sort [" << name << "]";
    if (sort != nullptr) {
      EXPECT_EQ(sort->get_name(), name);
      EXPECT_EQ(sorts.get_simple_type(name, true), sort) << "[" << name << "]";
    }
  }
}

TEST_F(TermManagerTest, NamesThatCannotBeWrittenOrAreBuiltinAreRefused) {
  std::vector<std::string> names = {
      "a|b",     "|",     "x\\y",    "\\",     "|x|",    "true",        "false",       "not",
      "and",     "or",    "xor",     "=>",     "=",      "distinct",    "ite",         "+",
      "-",       "*",     "/",       "div",    "mod",    "abs",         "<",           "<=",
      ">",       ">=",    "to_real", "to_int", "is_int", "select",      "store",       "concat",
      "extract", "bvadd", "bvnot",   "bvult",  "bvsge",  "zero_extend", "rotate_left", "repeat",
      "Bool",    "Int",   "Real",    "Array",  "BitVec"};
  for (std::string const& name : names) {
    EXPECT_INVALID(mgr.make_symbol(name, integer), name);
    EXPECT_INVALID(mgr.make_simple_type(name), name);
    EXPECT_EQ(mgr.find_symbol(name), nullptr) << name;
  }
}

TEST_F(TermManagerTest, SecondSortOrSymbolOfATakenNameIsRefused) {
  EXPECT_INVALID(mgr.make_simple_type("U"), "U");
  EXPECT_INVALID(mgr.make_symbol("p", boolean), "p");
  EXPECT_INVALID(mgr.make_symbol("p", integer), "p");
  EXPECT_INVALID(mgr.make_symbol("i", mgr.get_function_type({integer}, integer)), "i");
  // The first ones are still what the names stand for.
  EXPECT_EQ(mgr.find_symbol("p"), p->get_symbol());
  EXPECT_EQ(mgr.get_simple_type("U", true), sort_u);
}

TEST_F(TermManagerTest, IsInterpretedExactlyForTheorySymbolsAndNumerals) {
  Symbol const* f = mgr.make_symbol("f", mgr.get_function_type({sort_u}, sort_u));
  for (Term const* t : {p, i, r, b8, arr, u1, mgr.make_term(f, {u1})}) {
    EXPECT_FALSE(mgr.is_interpreted(t->get_symbol())) << t->get_symbol()->get_name();
  }
  std::vector<Term const*> interpreted = {
      mgr.make_true(),
      mgr.make_false(),
      mgr.make_not(p),
      mgr.make_and(p, q),
      mgr.make_equal(u1, u2),
      mgr.make_ite(p, i, j),
      num("5", integer),
      num("-5", integer),
      num("1/2", real),
      num("0.25", real),
      num("#b1010", bv4),
      mgr.make_builtin("+", {i, j}),
      mgr.make_builtin("to_real", {i}),
      mgr.make_builtin("bvadd", {b8, c8}),
      mgr.make_builtin("extract", {b8}, {7, 4}),
      mgr.make_builtin("select", {arr, i}),
      mgr.make_builtin("store", {arr, i, b8}),
  };
  for (Term const* t : interpreted) {
    EXPECT_TRUE(mgr.is_interpreted(t->get_symbol())) << t->get_symbol()->get_name();
  }
}

// ---------------------------------------------------------------------------------------------
// Hash-consing and ids

TEST_F(TermManagerTest, TermsAreHashConsed) {
  Symbol const* f = mgr.make_symbol("f", mgr.get_function_type({sort_u, sort_u}, sort_u));
  EXPECT_EQ(mgr.make_constant(u1->get_symbol()), u1);
  EXPECT_EQ(mgr.make_term(f, {u1, u2}), mgr.make_term(f, {u1, u2}));
  EXPECT_NE(mgr.make_term(f, {u1, u2}), mgr.make_term(f, {u2, u1}));
  EXPECT_EQ(mgr.make_term(f, {mgr.make_term(f, {u1, u2}), u1}),
            mgr.make_term(f, {mgr.make_term(f, {u1, u2}), u1}));
  EXPECT_EQ(mgr.make_true(), mgr.make_true());
  EXPECT_EQ(mgr.make_false(), mgr.make_false());
  EXPECT_NE(mgr.make_true(), mgr.make_false());
  EXPECT_EQ(mgr.make_not(p), mgr.make_not(p));
  EXPECT_EQ(mgr.make_and(p, q), mgr.make_builtin("and", {p, q}));
  EXPECT_EQ(mgr.make_or(p, q), mgr.make_builtin("or", {p, q}));
  EXPECT_NE(mgr.make_and(p, q), mgr.make_or(p, q));
  EXPECT_EQ(mgr.make_equal(i, j), mgr.make_builtin("=", {i, j}));
  EXPECT_EQ(mgr.make_ite(p, i, j), mgr.make_builtin("ite", {p, i, j}));
  EXPECT_EQ(mgr.make_not(p), mgr.make_builtin("not", {p}));
  EXPECT_EQ(mgr.make_true(), mgr.make_builtin("true", {}));
  EXPECT_EQ(num("5", integer), num("5", integer));
  EXPECT_NE(num("5", integer), num("5", real));
  EXPECT_NE(num("5", integer), num("-5", integer));
  EXPECT_EQ(mgr.make_builtin("extract", {b8}, {7, 4}), mgr.make_builtin("extract", {b8}, {7, 4}));
  EXPECT_NE(mgr.make_builtin("extract", {b8}, {7, 4}), mgr.make_builtin("extract", {b8}, {3, 0}));
  EXPECT_EQ(mgr.make_builtin("+", {i, j, i}), mgr.make_builtin("+", {i, j, i}));
  EXPECT_NE(mgr.make_builtin("+", {i, j}), mgr.make_builtin("+", {i, j, i}));
  EXPECT_EQ(mgr.make_builtin("select", {arr, i}), mgr.make_builtin("select", {arr, i}));
  // The pointer and the size overloads agree.
  Term const* args[] = {b8, c8};
  EXPECT_EQ(mgr.make_builtin("bvadd", args, 2), mgr.make_builtin("bvadd", {b8, c8}));
  Term const* uargs[] = {u1, u2};
  EXPECT_EQ(mgr.make_term(f, uargs, 2), mgr.make_term(f, {u1, u2}));
}

TEST_F(TermManagerTest, OneInterpretedSymbolPerOperatorAndSignature) {
  Term const* eq_int = mgr.make_equal(i, j);
  Term const* eq_u = mgr.make_equal(u1, u2);
  EXPECT_NE(eq_int->get_symbol(), eq_u->get_symbol());
  EXPECT_EQ(eq_int->get_symbol()->get_output_type(), boolean);
  EXPECT_EQ(eq_u->get_symbol()->get_output_type(), boolean);
  EXPECT_EQ(mgr.make_equal(j, i)->get_symbol(), eq_int->get_symbol());
  EXPECT_EQ(mgr.make_builtin("bvadd", {b8, c8})->get_symbol(),
            mgr.make_builtin("bvadd", {c8, b8})->get_symbol());
  EXPECT_NE(mgr.make_builtin("+", {i, j})->get_symbol(),
            mgr.make_builtin("+", {r, s})->get_symbol());
  EXPECT_EQ(mgr.make_builtin("+", {r, s})->get_symbol()->get_output_type(), real);
}

TEST_F(TermManagerTest, BitVectorNumeralNotationsGiveOneTerm) {
  Term const* ten = num("10", bv4);
  EXPECT_EQ(num("#b1010", bv4), ten);
  EXPECT_EQ(num("#xa", bv4), ten);
  EXPECT_EQ(num("#xA", bv4), ten);
  EXPECT_EQ(num("26", bv4), ten) << "decimal values are taken modulo 2^width";
  EXPECT_EQ(ten->get_type(), bv4);

  DataType const* bv100 = mgr.get_bv_type(100);
  Term const* ones = num("#b" + std::string(100, '1'), bv100);
  EXPECT_EQ(num("1267650600228229401496703205375", bv100), ones) << "2^100 - 1";
  EXPECT_EQ(num("#x" + std::string(25, 'f'), bv100), ones);
  EXPECT_EQ(num("1267650600228229401496703205376", bv100), num("0", bv100)) << "2^100";
}

TEST_F(TermManagerTest, MalformedNumeralsAreRefused) {
  struct Row {
    char const* value;
    DataType const* type;
  };
  std::vector<Row> rows = {{"", integer},     {"abc", integer},  {"1x", integer}, {"1/2", integer},
                           {"0.25", integer}, {"--1", integer},  {"", real},      {"1/0", real},
                           {"x/2", real},     {"1.2.3", real},   {"#b101", bv4},  {"#b10102", bv4},
                           {"#x1ff", bv8},    {"#xg0", bv8},     {"abc", bv8},    {"5", boolean},
                           {"5", sort_u},     {"5", arr_int_bv8}};
  for (Row const& row : rows) {
    EXPECT_INVALID(mgr.make_number(row.value, row.type), row.value);
  }
}

TEST_F(TermManagerTest, IdsStartAtOneAndGrowInCreationOrder) {
  TermManager fresh;
  Symbol const* x = fresh.make_symbol("x", fresh.get_integer_type());
  Symbol const* y = fresh.make_symbol("y", fresh.get_integer_type());
  Symbol const* g = fresh.make_symbol(
      "g", fresh.get_function_type({fresh.get_integer_type(), fresh.get_integer_type()},
                                   fresh.get_integer_type()));
  EXPECT_GE(x->get_id(), 1u);
  EXPECT_LT(x->get_id(), y->get_id());
  EXPECT_LT(y->get_id(), g->get_id());

  std::size_t before = fresh.num_terms();
  Term const* tx = fresh.make_constant(x);
  EXPECT_EQ(tx->get_id(), before + 1);
  Term const* ty = fresh.make_constant(y);
  EXPECT_EQ(ty->get_id(), before + 2);
  Term const* gxy = fresh.make_term(g, {tx, ty});
  EXPECT_EQ(gxy->get_id(), before + 3);
  EXPECT_EQ(fresh.num_terms(), before + 3);
  // Asking again makes nothing new.
  EXPECT_EQ(fresh.make_term(g, {tx, ty}), gxy);
  EXPECT_EQ(fresh.num_terms(), before + 3);
  // Interpreted terms take the next ids too.
  Term const* sum = fresh.make_builtin("+", {gxy, tx});
  EXPECT_EQ(sum->get_id(), before + 4);

  // The smallest id ever handed out is 1.
  std::vector<std::uint64_t> ids = {tx->get_id(),
                                    ty->get_id(),
                                    gxy->get_id(),
                                    sum->get_id(),
                                    fresh.make_true()->get_id(),
                                    fresh.make_false()->get_id()};
  EXPECT_EQ(*std::min_element(ids.begin(), ids.end()), 1u);
}

TEST_F(TermManagerTest, EveryTermIdIsAboveItsArgumentIds) {
  // A DAG built in an order that reuses old terms as new arguments.
  std::vector<Term const*> pool = {i, j, num("3", integer), num("-7", integer)};
  char const* ops[] = {"+", "*", "-", "div", "mod"};
  for (int k = 0; k < 200; ++k) {
    Term const* a = pool[(k * 7) % pool.size()];
    Term const* b = pool[(k * 13 + 5) % pool.size()];
    pool.push_back(mgr.make_builtin(ops[k % 5], {a, b}));
  }
  std::set<std::uint64_t> ids;
  for (Term const* t : pool) {
    ids.insert(t->get_id());
    for (std::size_t k = 0; k < t->get_arity(); ++k) {
      EXPECT_GT(t->get_id(), t->get_arg(k)->get_id());
    }
    EXPECT_LE(t->get_id(), mgr.num_terms());
  }
}

TEST_F(TermManagerTest, HashOfATermIsItsId) {
  hsh::hash<Term const*> h;
  for (Term const* t : {p, i, mgr.make_and(p, q), num("12", integer)}) {
    EXPECT_EQ(h(t), t->get_id());
  }
}

// ---------------------------------------------------------------------------------------------
// Result sorts

TEST_F(TermManagerTest, ResultSortOfEveryOperator) {
  struct Row {
    char const* op;
    std::vector<Term const*> args;
    std::vector<std::uint64_t> indices;
    DataType const* expected;
  };
  DataType const* bv1 = mgr.get_bv_type(1);
  DataType const* bv12 = mgr.get_bv_type(12);
  DataType const* bv16 = mgr.get_bv_type(16);
  DataType const* bv24 = mgr.get_bv_type(24);
  std::vector<Row> rows = {
      {"true", {}, {}, boolean},        {"false", {}, {}, boolean},
      {"not", {p}, {}, boolean},        {"and", {p, q}, {}, boolean},
      {"or", {p, q, p}, {}, boolean},   {"xor", {p, q}, {}, boolean},
      {"=>", {p, q}, {}, boolean},      {"=", {u1, u2}, {}, boolean},
      {"=", {arr, arr}, {}, boolean},   {"distinct", {i, j}, {}, boolean},
      {"ite", {p, b8, c8}, {}, bv8},    {"ite", {p, u1, u2}, {}, sort_u},
      {"+", {i, j}, {}, integer},       {"+", {r, s}, {}, real},
      {"-", {i}, {}, integer},          {"-", {r}, {}, real},
      {"-", {i, j}, {}, integer},       {"*", {r, s}, {}, real},
      {"/", {r, s}, {}, real},          {"div", {i, j}, {}, integer},
      {"mod", {i, j}, {}, integer},     {"abs", {i}, {}, integer},
      {"<", {i, j}, {}, boolean},       {"<=", {r, s}, {}, boolean},
      {">", {i, j}, {}, boolean},       {">=", {r, s}, {}, boolean},
      {"to_real", {i}, {}, real},       {"to_int", {r}, {}, integer},
      {"is_int", {r}, {}, boolean},     {"concat", {b8, a4}, {}, bv12},
      {"extract", {b8}, {7, 4}, bv4},   {"extract", {b8}, {0, 0}, bv1},
      {"repeat", {b8}, {3}, bv24},      {"zero_extend", {b8}, {4}, bv12},
      {"sign_extend", {b8}, {8}, bv16}, {"zero_extend", {b8}, {0}, bv8},
      {"rotate_left", {b8}, {3}, bv8},  {"rotate_right", {b8}, {11}, bv8},
      {"bvnot", {b8}, {}, bv8},         {"bvneg", {b8}, {}, bv8},
      {"bvand", {b8, c8}, {}, bv8},     {"bvor", {b8, c8}, {}, bv8},
      {"bvxor", {b8, c8}, {}, bv8},     {"bvnand", {b8, c8}, {}, bv8},
      {"bvnor", {b8, c8}, {}, bv8},     {"bvxnor", {b8, c8}, {}, bv8},
      {"bvcomp", {b8, c8}, {}, bv1},    {"bvadd", {b8, c8}, {}, bv8},
      {"bvsub", {b8, c8}, {}, bv8},     {"bvmul", {b8, c8}, {}, bv8},
      {"bvudiv", {b8, c8}, {}, bv8},    {"bvurem", {b8, c8}, {}, bv8},
      {"bvsdiv", {b8, c8}, {}, bv8},    {"bvsrem", {b8, c8}, {}, bv8},
      {"bvsmod", {b8, c8}, {}, bv8},    {"bvshl", {b8, c8}, {}, bv8},
      {"bvlshr", {b8, c8}, {}, bv8},    {"bvashr", {b8, c8}, {}, bv8},
      {"bvult", {b8, c8}, {}, boolean}, {"bvule", {b8, c8}, {}, boolean},
      {"bvugt", {b8, c8}, {}, boolean}, {"bvuge", {b8, c8}, {}, boolean},
      {"bvslt", {b8, c8}, {}, boolean}, {"bvsle", {b8, c8}, {}, boolean},
      {"bvsgt", {b8, c8}, {}, boolean}, {"bvsge", {b8, c8}, {}, boolean},
      {"select", {arr, i}, {}, bv8},    {"store", {arr, i, b8}, {}, arr_int_bv8},
  };
  for (Row const& row : rows) {
    Term const* t = nullptr;
    try {
      t = mgr.make_builtin(row.op, row.args, row.indices);
    } catch (std::exception const& e) {
      ADD_FAILURE() << row.op << " threw: " << e.what();
      continue;
    }
    EXPECT_EQ(t->get_type(), row.expected) << row.op << ": got " << t->get_type()->to_string()
                                           << ", expected " << row.expected->to_string();
    EXPECT_EQ(t->get_arity(), row.args.size()) << row.op;
    for (std::size_t k = 0; k < row.args.size() && k < t->get_arity(); ++k) {
      EXPECT_EQ(t->get_arg(k), row.args[k]) << row.op << " argument " << k;
    }
    EXPECT_TRUE(mgr.is_interpreted(t->get_symbol())) << row.op;
  }
}

TEST_F(TermManagerTest, NaryAndChainableOperatorsTakeAnyArityFromTwo) {
  struct Row {
    char const* op;
    Term const* x;
    Term const* y;
  };
  std::vector<Row> rows = {
      {"and", p, q},      {"or", p, q},      {"xor", p, q},     {"=>", p, q},    {"=", u1, u2},
      {"distinct", i, j}, {"+", i, j},       {"-", r, s},       {"*", i, j},     {"/", r, s},
      {"div", i, j},      {"<", i, j},       {"<=", r, s},      {">", i, j},     {">=", r, s},
      {"bvadd", b8, c8},  {"bvmul", b8, c8}, {"bvand", b8, c8}, {"bvor", b8, c8}};
  for (Row const& row : rows) {
    for (std::size_t n : {2u, 3u, 5u}) {
      std::vector<Term const*> args;
      for (std::size_t k = 0; k < n; ++k) {
        args.push_back(k % 2 == 0 ? row.x : row.y);
      }
      Term const* t = nullptr;
      EXPECT_NO_THROW(t = mgr.make_builtin(row.op, args)) << row.op << " with " << n;
      if (t != nullptr) {
        EXPECT_EQ(t->get_arity(), n) << row.op;
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Misuse

TEST_F(TermManagerTest, WrongArityOrSortsOfBuiltinsAreRefused) {
  struct Row {
    char const* op;
    std::vector<Term const*> args;
    std::vector<std::uint64_t> indices;
    std::vector<std::string> mentions;  // besides the operator name
  };
  std::vector<Row> rows = {
      // core
      {"true", {p}, {}, {}},
      {"not", {}, {}, {}},
      {"not", {p, q}, {}, {}},
      {"not", {i}, {}, {"Int"}},
      {"and", {}, {}, {}},
      {"and", {p}, {}, {}},
      {"and", {p, i}, {}, {"Int"}},
      {"or", {b8, p}, {}, {"(_ BitVec 8)"}},
      {"xor", {p, r}, {}, {"Real"}},
      {"=>", {p, u1}, {}, {"U"}},
      {"=", {i}, {}, {}},
      {"=", {i, r}, {}, {"Int", "Real"}},
      {"=", {b8, a4}, {}, {"(_ BitVec 8)", "(_ BitVec 4)"}},
      {"=", {u1, i}, {}, {"U", "Int"}},
      {"distinct", {p}, {}, {}},
      {"distinct", {p, i}, {}, {"Bool", "Int"}},
      {"ite", {p, i}, {}, {}},
      {"ite", {i, i, j}, {}, {"Int"}},
      {"ite", {p, i, r}, {}, {"Int", "Real"}},
      // arithmetic
      {"+", {i}, {}, {}},
      {"+", {i, r}, {}, {"Int", "Real"}},
      {"+", {p, q}, {}, {"Bool"}},
      {"-", {}, {}, {}},
      {"-", {b8}, {}, {"(_ BitVec 8)"}},
      {"*", {r, i}, {}, {"Real", "Int"}},
      {"/", {i, j}, {}, {"Int"}},
      {"/", {r}, {}, {}},
      {"div", {r, s}, {}, {"Real"}},
      {"mod", {i}, {}, {}},
      {"mod", {i, j, i}, {}, {}},
      {"mod", {r, s}, {}, {"Real"}},
      {"abs", {i, j}, {}, {}},
      {"abs", {r}, {}, {"Real"}},
      {"<", {i}, {}, {}},
      {"<", {i, r}, {}, {"Int", "Real"}},
      {"<=", {p, q}, {}, {"Bool"}},
      {">", {u1, u2}, {}, {"U"}},
      {">=", {b8, c8}, {}, {"(_ BitVec 8)"}},
      {"to_real", {r}, {}, {"Real"}},
      {"to_real", {i, j}, {}, {}},
      {"to_int", {i}, {}, {"Int"}},
      {"is_int", {i}, {}, {"Int"}},
      // bit-vectors
      {"bvadd", {b8}, {}, {}},
      {"bvadd", {b8, a4}, {}, {"(_ BitVec 8)", "(_ BitVec 4)"}},
      {"bvadd", {i, j}, {}, {"Int"}},
      {"bvnot", {b8, c8}, {}, {}},
      {"bvnot", {p}, {}, {"Bool"}},
      {"bvneg", {}, {}, {}},
      {"bvudiv", {b8, a4}, {}, {"(_ BitVec 8)", "(_ BitVec 4)"}},
      {"bvshl", {b8}, {}, {}},
      {"bvult", {b8, a4}, {}, {"(_ BitVec 8)", "(_ BitVec 4)"}},
      {"bvslt", {i, j}, {}, {"Int"}},
      {"bvcomp", {b8, a4}, {}, {"(_ BitVec 8)", "(_ BitVec 4)"}},
      {"concat", {b8}, {}, {}},
      {"concat", {b8, i}, {}, {"Int"}},
      {"extract", {b8}, {}, {}},
      {"extract", {b8}, {7}, {}},
      {"extract", {b8}, {3, 4}, {}},
      {"extract", {b8}, {8, 0}, {"(_ BitVec 8)"}},
      {"extract", {i}, {1, 0}, {"Int"}},
      {"extract", {b8, c8}, {7, 0}, {}},
      {"zero_extend", {b8}, {}, {}},
      {"sign_extend", {p}, {2}, {"Bool"}},
      {"repeat", {b8}, {0}, {}},
      {"repeat", {b8}, {}, {}},
      {"rotate_left", {b8}, {}, {}},
      {"rotate_right", {i}, {1}, {"Int"}},
      // indices given to an operator that takes none
      {"bvadd", {b8, c8}, {1}, {}},
      {"and", {p, q}, {1}, {}},
      // arrays
      {"select", {i, j}, {}, {"Int"}},
      {"select", {arr}, {}, {}},
      {"select", {arr, b8}, {}, {"(Array Int (_ BitVec 8))", "(_ BitVec 8)"}},
      {"store", {arr, i}, {}, {}},
      {"store", {arr, i, a4}, {}, {"(_ BitVec 4)"}},
      {"store", {arr, b8, c8}, {}, {"(_ BitVec 8)"}},
      // unknown operators
      {"foo", {p}, {}, {}},
      {"bvfoo", {b8, c8}, {}, {}},
      {"", {p}, {}, {}},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(std::string("operator \"") + row.op + "\" with " +
                 std::to_string(row.args.size()) + " arguments");
    std::vector<std::string> mentions = row.mentions;
    if (row.op[0] != '\0') {
      mentions.push_back(row.op);
    }
    bool thrown = false;
    std::string msg =
        invalid_argument_message([&] { mgr.make_builtin(row.op, row.args, row.indices); }, &thrown);
    EXPECT_TRUE(thrown) << msg;
    if (!thrown) {
      continue;
    }
    for (std::string const& part : mentions) {
      EXPECT_NE(msg.find(part), std::string::npos)
          << "message \"" << msg << "\" does not mention \"" << part << "\"";
    }
  }
}

TEST_F(TermManagerTest, MisuseOfTheTypedShortcutsIsRefused) {
  EXPECT_INVALID(mgr.make_not(i), "not", "Int");
  EXPECT_INVALID(mgr.make_and(p, i), "and", "Int");
  EXPECT_INVALID(mgr.make_or(r, q), "or", "Real");
  EXPECT_INVALID(mgr.make_equal(i, r), "=", "Int", "Real");
  EXPECT_INVALID(mgr.make_equal(u1, b8), "=", "U", "(_ BitVec 8)");
  EXPECT_INVALID(mgr.make_ite(i, p, q), "ite", "Int");
  EXPECT_INVALID(mgr.make_ite(p, i, u1), "ite", "Int", "U");
}

TEST_F(TermManagerTest, MisuseOfUninterpretedSymbolsIsRefused) {
  Symbol const* f = mgr.make_symbol("f", mgr.get_function_type({sort_u, integer}, boolean));
  EXPECT_INVALID(mgr.make_term(f, {u1}), "f");
  EXPECT_INVALID(mgr.make_term(f, {u1, i, i}), "f");
  EXPECT_INVALID(mgr.make_term(f, {i, u1}), "f", "Int", "U");
  EXPECT_INVALID(mgr.make_term(f, {u1, r}), "f", "Real");
  EXPECT_INVALID(mgr.make_constant(f), "f");
  EXPECT_INVALID(mgr.make_term(u1->get_symbol(), {u2}), "u1");
  // Nothing was made by the failed calls.
  std::size_t before = mgr.num_terms();
  EXPECT_ANY_THROW(mgr.make_term(f, {i, u1}));
  EXPECT_EQ(mgr.num_terms(), before);
  EXPECT_NE(mgr.make_term(f, {u1, i}), nullptr);
}

}  // namespace
}  // namespace tvx
