// Tests of the term printers: the declaration order sym_ty_lt, SMT-LIB texts of names, numerals,
// declarations and assertions, and let-bound sharing that keeps the text linear in the DAG.
#include "core/term_printer.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <sstream>
#include <string>

#include "core/configuration.h"
#include "core/term_manager.h"

namespace tvx {
namespace {

class TermPrinterTest : public ::testing::Test {
 protected:
  Term const* constant(std::string const& name, DataType const* type) {
    return mgr.make_constant(mgr.make_symbol(name, type));
  }
  std::string print(Term const* t) {
    std::ostringstream os;
    printer.print_term(os, t, false);
    return os.str();
  }

  TermManager mgr;
  Configuration config;
  SmtLib2TermPrinter printer{&mgr, &config.printer, "", "", false, nullptr};
  DataType const* integer = mgr.get_integer_type();
  DataType const* real = mgr.get_rational_type();
  DataType const* bv8 = mgr.get_bv_type(8);
  DataType const* sort_u = mgr.make_simple_type("U");
  Term const* i = constant("i", integer);
};

TEST_F(TermPrinterTest, SymTyLtOrdersSimpleFirstThenByComponentCountThenComponentwise) {
  TermPrinter::sym_ty_lt lt;
  DataType const* sort_v = mgr.make_simple_type("V");
  DataType const* arr_ii = mgr.get_array_type(integer, integer);
  DataType const* arr_uv = mgr.get_array_type(sort_u, sort_v);
  DataType const* arr_vu = mgr.get_array_type(sort_v, sort_u);
  DataType const* arr_i_arr = mgr.get_array_type(integer, arr_ii);
  DataType const* fun_ii_i = mgr.get_function_type({integer, integer}, integer);
  EXPECT_TRUE(lt(bv8, arr_ii) && !lt(arr_ii, sort_v));
  EXPECT_TRUE(lt(arr_i_arr, fun_ii_i) && !lt(fun_ii_i, arr_i_arr));  // 2 components before 3
  EXPECT_TRUE(lt(arr_ii, arr_i_arr) && !lt(arr_i_arr, arr_ii));      // simple before compound
  EXPECT_TRUE(lt(arr_uv, arr_vu) == lt(sort_u, sort_v) && lt(arr_uv, arr_vu) != lt(arr_vu, arr_uv));
  Symbol const* zzz = mgr.make_symbol("zzz", integer);
  Symbol const* aaa = mgr.make_symbol("aaa", integer);
  EXPECT_TRUE(lt(zzz, aaa) && !lt(aaa, zzz) && !lt(zzz, zzz));  // symbols by id, not name
}

// Names are quoted when they are not simple symbols or are reserved words, as constants and
// as sorts; numerals take the printed form of their sort.
TEST_F(TermPrinterTest, NameAndNumeralTexts) {
  for (char const* name :
       {"x", "~!@$%^&*_-+=<>.?/", "assert", "let", "", "0_0", "a b", "par", "!", "x'", "\"q\""}) {
    bool const plain = std::string(name) == "x" || name[0] == '~';
    std::string const text = plain ? name : "|" + std::string(name) + "|";
    EXPECT_EQ(print(constant(name, sort_u)), text);
    std::ostringstream os;
    printer.print_type_declaration(os, mgr.make_simple_type(name));
    EXPECT_EQ(os.str(), "(declare-sort " + text + " 0)\n");
  }
  struct Row {
    char const* value;
    DataType const* type;
    char const* text;
  };
  for (Row const& row :
       {Row{"-3", integer, "(- 3)"},
        Row{"-123456789012345678901", integer, "(- 123456789012345678901)"}, Row{"5", real, "5.0"},
        Row{"1/2", real, "(/ 1.0 2.0)"}, Row{"-0.25", real, "(- 0.25)"},
        Row{"10", mgr.get_bv_type(4), "#b1010"}, Row{"#x0f", bv8, "#b00001111"}}) {
    EXPECT_EQ(print(mgr.make_number(row.value, row.type)), row.text) << row.value;
  }
}

TEST_F(TermPrinterTest, DeclarationsAndAssertions) {
  Term const* p = constant("p", mgr.get_bool_type());
  DataType const* odd = mgr.make_simple_type("a b");
  std::ostringstream os;
  printer.print_symbol_declaration(
      os,
      mgr.make_symbol("f", mgr.get_function_type({odd, mgr.get_array_type(integer, bv8)}, real)));
  printer.apitracer_print_term(os, mgr.make_builtin("extract", {constant("b8", bv8)}, {7, 4}), "");
  printer.apitracer_print_term(os, mgr.make_and(p, p), ":named a1");
  EXPECT_EQ(os.str(),
            "(declare-fun f (|a b| (Array Int (_ BitVec 8))) Real)\n"
            "(assert ((_ extract 7 4) b8))\n"
            "(assert (! (and p p) :named a1))\n");
}

TEST_F(TermPrinterTest, SharedSubtermsAreWrittenOnceSoSquaringChainsStayLinear) {
  Term const* s = mgr.make_builtin("+", {i, mgr.make_number("5", integer)});
  std::string const text = print(mgr.make_builtin("*", {s, s}));
  EXPECT_TRUE(text.find("(+ i 5)") == text.rfind("(+ i 5)") &&
              text.find("(let ") != std::string::npos)
      << text;
  EXPECT_EQ(print(mgr.make_builtin("+", {i, i})), "(+ i i)");  // leaves are never bound
  std::size_t sizes[2];
  for (std::size_t n : {10000, 100000}) {
    Term const* t = i;
    for (std::size_t k = 0; k < n; ++k) {
      t = mgr.make_builtin("*", {t, t});
    }
    sizes[n == 10000 ? 0 : 1] = print(t).size();
  }
  EXPECT_LT(sizes[1], 100000u * 64);
  EXPECT_LT(sizes[1], sizes[0] * 13);  // ten times the levels, about ten times the text
}

TEST_F(TermPrinterTest, MillionDeepTermPrintsWithoutRecursion) {
  Term const* t = constant("p", mgr.get_bool_type());
  std::string expected;
  for (std::size_t k = 0; k < 1000000; ++k) {
    t = mgr.make_not(t);
    expected += "(not ";
  }
  EXPECT_TRUE(print(t) == expected + "p" + std::string(1000000, ')'));
}

}  // namespace
}  // namespace tvx
