// Tests of TermManager: hash-consing, id order, names it refuses, numerals, and the misuse that
// must throw std::invalid_argument naming the operator and the sorts involved.
#include "core/term_manager.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace tvx {
namespace {

// The message of the std::invalid_argument that `f` throws, or a text saying what happened
// instead that contains none of the names looked for.
template <typename F>
std::string invalid_argument_message(F const& f) {
  try {
    f();
  } catch (std::invalid_argument const& e) {
    return e.what();
  } catch (...) {
    return "OTHER EXCEPTION";
  }
  return "NO EXCEPTION";
}

class TermManagerTest : public ::testing::Test {
 protected:
  Term const* constant(std::string const& name, DataType const* type) {
    return mgr.make_constant(mgr.make_symbol(name, type));
  }

  TermManager mgr;
  DataType const* integer = mgr.get_integer_type();
  DataType const* real = mgr.get_rational_type();
  DataType const* bv4 = mgr.get_bv_type(4);
  DataType const* bv8 = mgr.get_bv_type(8);
  DataType const* arr = mgr.get_array_type(integer, bv8);
  DataType const* sort_u = mgr.make_simple_type("U");
  Term const* p = constant("p", mgr.get_bool_type());
  Term const* i = constant("i", integer);
  Term const* r = constant("r", real);
  Term const* a4 = constant("a4", bv4);
  Term const* b8 = constant("b8", bv8);
  Term const* a = constant("a", arr);
  Term const* u = constant("u", sort_u);
};

TEST_F(TermManagerTest, EverythingIsHashConsedAndIdsGrowInCreationOrder) {
  EXPECT_TRUE(mgr.get_array_type(integer, bv8) == arr && mgr.get_array_type(bv8, integer) != arr);
  EXPECT_EQ(mgr.make_and(p, p), mgr.make_builtin("and", {p, p}));
  EXPECT_EQ(mgr.make_builtin("extract", {b8}, {7, 4}), mgr.make_builtin("extract", {b8}, {7, 4}));
  EXPECT_NE(mgr.make_builtin("extract", {b8}, {7, 4}), mgr.make_builtin("extract", {b8}, {3, 0}));
  EXPECT_NE(mgr.make_number("5", integer), mgr.make_number("5", real));
  std::size_t const count = mgr.num_terms();
  Term const* sum = mgr.make_builtin("+", {i, i});
  EXPECT_EQ(sum->get_id(), count + 1);
  EXPECT_EQ(mgr.make_builtin("+", {i, i}), sum);
  EXPECT_EQ(hsh::hash<Term const*>()(sum), sum->get_id());
  EXPECT_TRUE(p->get_id() < i->get_id() && i->get_id() < u->get_id()) << "ids in creation order";
}

TEST_F(TermManagerTest, MisuseThrowsNamingTheOperatorAndTheSorts) {
  // {operator, arguments by letter (p Bool, i Int, r Real, 4 and 8 bit-vectors of that width,
  // a an array), a sort the message names, indices}.
  struct Row {
    char const* op;
    char const* args;
    char const* sort;
    std::vector<std::uint64_t> indices = {};
  };
  Term const* const terms[] = {p, i, r, a4, b8, a};
  for (Row const& row :
       {Row{"not", "pp", ""}, Row{"and", "pi", "Int"}, Row{"=", "ir", "Real"},
        Row{"ite", "iii", "Int"}, Row{"distinct", "p", ""}, Row{"+", "ir", "Real"},
        Row{"div", "rr", "Real"}, Row{"to_int", "i", "Int"}, Row{"<", "pp", "Bool"},
        Row{"bvadd", "84", "(_ BitVec 4)"}, Row{"extract", "8", "(_ BitVec 8)", {8, 0}},
        Row{"extract", "8", "", {7}}, Row{"repeat", "8", "", {0}},
        Row{"select", "a8", "(Array Int (_ BitVec 8))"}, Row{"store", "ai4", "(_ BitVec 4)"},
        Row{"bvfoo", "88", ""}}) {
    std::vector<Term const*> args;
    for (char const* c = row.args; *c != '\0'; ++c) {
      args.push_back(terms[std::string("pir48a").find(*c)]);
    }
    std::string const msg =
        invalid_argument_message([&] { mgr.make_builtin(row.op, args, row.indices); });
    EXPECT_TRUE(msg.find(row.op) != std::string::npos && msg.find(row.sort) != std::string::npos)
        << row.op << ": " << msg;
  }
  Symbol const* f = mgr.make_symbol("f", mgr.get_function_type({sort_u, integer}, real));
  std::size_t const count = mgr.num_terms();
  std::string const msg = invalid_argument_message([&] { mgr.make_term(f, {i, u}); });
  EXPECT_NE(msg.find("f"), std::string::npos) << msg;
  EXPECT_EQ(mgr.num_terms(), count);
  EXPECT_THROW(mgr.get_bv_type(0), std::invalid_argument);
}

TEST_F(TermManagerTest, RefusesNamesThatAreBuiltinOrCannotBeQuoted) {
  for (char const* name : {"a|b", "x\\y", "true", "not", "=>", "bvadd", "select", "Int"}) {
    std::string const sort = invalid_argument_message([&] { mgr.make_simple_type(name); });
    std::string const symbol = invalid_argument_message([&] { mgr.make_symbol(name, integer); });
    EXPECT_TRUE(sort.find(name) != std::string::npos && symbol.find(name) != std::string::npos)
        << sort << "; " << symbol;
  }
  EXPECT_THROW(mgr.make_simple_type("U"), std::invalid_argument);
  EXPECT_THROW(mgr.make_symbol("p", integer), std::invalid_argument);
  for (char const* name : {"assert", "let", "", "0_0", "a b", "!", "x'"}) {
    Symbol const* s = mgr.make_symbol(name, integer);
    EXPECT_EQ(mgr.find_symbol(name), s) << name;
    EXPECT_FALSE(mgr.is_interpreted(s)) << name;
  }
  EXPECT_TRUE(mgr.is_interpreted(mgr.make_number("1/2", real)->get_symbol()));
  EXPECT_EQ(mgr.get_simple_type("Int", true), nullptr);
  EXPECT_EQ(mgr.get_simple_type("U", true), sort_u);
}

TEST_F(TermManagerTest, NumeralNotations) {
  Term const* ten = mgr.make_number("10", bv4);
  for (char const* same : {"#b1010", "#xa", "#xA", "26"}) {
    EXPECT_EQ(mgr.make_number(same, bv4), ten) << same;
  }
  DataType const* bv100 = mgr.get_bv_type(100);
  EXPECT_EQ(mgr.make_number("1267650600228229401496703205376", bv100),  // 2^100
            mgr.make_number("0", bv100));
  struct Row {
    char const* value;
    DataType const* type;
  };
  for (Row const& row :
       {Row{"", integer}, Row{"1/2", integer}, Row{"--1", integer}, Row{"1/0", real},
        Row{"1.2.3", real}, Row{"#b101", bv4}, Row{"#x1ff", bv8}, Row{"5", sort_u}}) {
    EXPECT_THROW(mgr.make_number(row.value, row.type), std::invalid_argument) << row.value;
  }
}

}  // namespace
}  // namespace tvx
