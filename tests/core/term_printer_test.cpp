// Tests of the term printers: the declaration order sym_ty_lt, SMT-LIB texts of names, sorts,
// operators and numerals, declaration commands, and whole terms with let-bound sharing.
#include "core/term_printer.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/configuration.h"
#include "core/term_manager.h"

namespace tvx {
namespace {

// ---------------------------------------------------------------------------------------------
// A small s-expression reader that expands let-bindings, so that printed terms can be compared
// with the text they stand for without sharing. Used on small terms only.

struct SExpr {
  bool is_atom = true;
  std::string atom;
  std::vector<SExpr> list;
};

class SExprReader {
 public:
  explicit SExprReader(std::string const& text) : text_(text) {}

  SExpr read() {
    SExpr e = read_one();
    skip_blanks();
    if (pos_ != text_.size()) {
      throw std::runtime_error("trailing text at " + std::to_string(pos_));
    }
    return e;
  }

 private:
  void skip_blanks() {
    while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\n' ||
                                   text_[pos_] == '\t' || text_[pos_] == '\r')) {
      ++pos_;
    }
  }

  SExpr read_one() {
    skip_blanks();
    if (pos_ >= text_.size()) {
      throw std::runtime_error("unexpected end of text");
    }
    SExpr e;
    if (text_[pos_] == '(') {
      e.is_atom = false;
      ++pos_;
      for (;;) {
        skip_blanks();
        if (pos_ >= text_.size()) {
          throw std::runtime_error("unclosed parenthesis");
        }
        if (text_[pos_] == ')') {
          ++pos_;
          return e;
        }
        e.list.push_back(read_one());
      }
    }
    if (text_[pos_] == ')') {
      throw std::runtime_error("unexpected ')' at " + std::to_string(pos_));
    }
    std::size_t start = pos_;
    if (text_[pos_] == '|') {
      std::size_t end = text_.find('|', pos_ + 1);
      if (end == std::string::npos) {
        throw std::runtime_error("unclosed quoted symbol");
      }
      pos_ = end + 1;
    } else {
      while (pos_ < text_.size() && text_[pos_] != ' ' && text_[pos_] != '(' &&
             text_[pos_] != ')' && text_[pos_] != '\n' && text_[pos_] != '\t') {
        ++pos_;
      }
    }
    e.atom = text_.substr(start, pos_ - start);
    return e;
  }

  std::string const& text_;
  std::size_t pos_ = 0;
};

std::string to_text(SExpr const& e) {
  if (e.is_atom) {
    return e.atom;
  }
  std::string out = "(";
  for (std::size_t k = 0; k < e.list.size(); ++k) {
    if (k > 0) {
      out += ' ';
    }
    out += to_text(e.list[k]);
  }
  return out + ")";
}

// Replaces every let-bound name by its (expanded) definition; bindings of one let are parallel.
SExpr expand_lets(SExpr const& e, std::map<std::string, SExpr> const& env,
                  std::vector<std::string>* bound_names) {
  if (e.is_atom) {
    auto it = env.find(e.atom);
    return it == env.end() ? e : it->second;
  }
  if (e.list.size() == 3 && e.list[0].is_atom && e.list[0].atom == "let") {
    std::map<std::string, SExpr> inner = env;
    for (SExpr const& binding : e.list[1].list) {
      if (binding.is_atom || binding.list.size() != 2 || !binding.list[0].is_atom) {
        throw std::runtime_error("malformed let binding " + to_text(binding));
      }
      bound_names->push_back(binding.list[0].atom);
      inner[binding.list[0].atom] = expand_lets(binding.list[1], env, bound_names);
    }
    return expand_lets(e.list[2], inner, bound_names);
  }
  SExpr out;
  out.is_atom = false;
  for (SExpr const& child : e.list) {
    out.list.push_back(expand_lets(child, env, bound_names));
  }
  return out;
}

std::string expand(std::string const& text, std::vector<std::string>* bound_names = nullptr) {
  std::vector<std::string> names;
  SExpr e = SExprReader(text).read();
  std::string result = to_text(expand_lets(e, {}, bound_names ? bound_names : &names));
  return result;
}

std::size_t count_of(std::string const& text, std::string const& part) {
  std::size_t n = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++n;
  }
  return n;
}

// Parentheses outside quoted symbols balance and never close more than they opened.
bool parentheses_balance(std::string const& text) {
  long depth = 0;
  bool quoted = false;
  for (char c : text) {
    if (c == '|') {
      quoted = !quoted;
    } else if (!quoted && c == '(') {
      ++depth;
    } else if (!quoted && c == ')') {
      if (--depth < 0) {
        return false;
      }
    }
  }
  return depth == 0 && !quoted;
}

// ---------------------------------------------------------------------------------------------

class TermPrinterTest : public ::testing::Test {
 protected:
  TermManager mgr;
  Configuration config;
  SmtLib2TermPrinter printer{&mgr, &config.printer, "", "", false, nullptr};

  DataType const* boolean = mgr.get_bool_type();
  DataType const* integer = mgr.get_integer_type();
  DataType const* real = mgr.get_rational_type();
  DataType const* bv4 = mgr.get_bv_type(4);
  DataType const* bv8 = mgr.get_bv_type(8);
  DataType const* sort_u = mgr.make_simple_type("U");

  Term const* constant(std::string const& name, DataType const* type) {
    return mgr.make_constant(mgr.make_symbol(name, type));
  }
  Term const* op(char const* name, std::vector<Term const*> const& args,
                 std::vector<std::uint64_t> const& indices = {}) {
    return mgr.make_builtin(name, args, indices);
  }
  std::string print(Term const* t) {
    std::ostringstream os;
    printer.print_term(os, t, false);
    return os.str();
  }
  std::string assertion(Term const* t, std::string const& annotation) {
    std::ostringstream os;
    printer.apitracer_print_term(os, t, annotation);
    return os.str();
  }
  std::string type_decl(DataType const* t) {
    std::ostringstream os;
    printer.print_type_declaration(os, t);
    return os.str();
  }
  std::string symbol_decl(Symbol const* s) {
    std::ostringstream os;
    printer.print_symbol_declaration(os, s);
    return os.str();
  }

  Term const* p = constant("p", boolean);
  Term const* q = constant("q", boolean);
  Term const* i = constant("i", integer);
  Term const* j = constant("j", integer);
  Term const* b8 = constant("b8", bv8);
  Term const* c8 = constant("c8", bv8);
};

// ---------------------------------------------------------------------------------------------
// sym_ty_lt

TEST_F(TermPrinterTest, SymbolsOrderByIdOnly) {
  TermPrinter::sym_ty_lt lt;
  Symbol const* x = mgr.make_symbol("zzz", integer);
  Symbol const* y = mgr.make_symbol("aaa", integer);
  ASSERT_LT(x->get_id(), y->get_id());
  EXPECT_TRUE(lt(x, y)) << "by id, not by name";
  EXPECT_FALSE(lt(y, x));
  EXPECT_FALSE(lt(x, x));
  Symbol const* plus = op("+", {i, j})->get_symbol();
  EXPECT_EQ(lt(x, plus), x->get_id() < plus->get_id());
  EXPECT_EQ(lt(plus, x), plus->get_id() < x->get_id());
}

class SymTyLtTest : public TermPrinterTest {
 protected:
  TermPrinter::sym_ty_lt lt;
  DataType const* sort_v = mgr.make_simple_type("V");
  std::vector<DataType const*> simple = {boolean, integer, real, bv4, bv8, sort_u, sort_v};
  DataType const* arr_ii = mgr.get_array_type(integer, integer);
  DataType const* arr_uv = mgr.get_array_type(sort_u, sort_v);
  DataType const* arr_vu = mgr.get_array_type(sort_v, sort_u);
  DataType const* arr_i_arr = mgr.get_array_type(integer, arr_ii);
  DataType const* fun_i_i = mgr.get_function_type({integer}, integer);
  DataType const* fun_ii_i = mgr.get_function_type({integer, integer}, integer);
  DataType const* fun_uuu_b = mgr.get_function_type({sort_u, sort_u, sort_u}, boolean);
  std::vector<DataType const*> compound = {arr_ii,  arr_uv,   arr_vu,   arr_i_arr,
                                           fun_i_i, fun_ii_i, fun_uuu_b};
};

TEST_F(SymTyLtTest, SimpleTypesOrderBeforeCompoundTypes) {
  for (DataType const* s : simple) {
    for (DataType const* c : compound) {
      EXPECT_TRUE(lt(s, c)) << s->to_string() << " < " << c->to_string();
      EXPECT_FALSE(lt(c, s)) << c->to_string() << " < " << s->to_string();
    }
  }
}

TEST_F(SymTyLtTest, FewerComponentsOrderFirst) {
  // Two components (array, unary function) before three (binary function), whatever the
  // components are.
  for (DataType const* two : {arr_ii, arr_uv, arr_i_arr, fun_i_i}) {
    EXPECT_TRUE(lt(two, fun_ii_i)) << two->to_string();
    EXPECT_FALSE(lt(fun_ii_i, two)) << two->to_string();
  }
  EXPECT_TRUE(lt(arr_i_arr, fun_ii_i));
  EXPECT_TRUE(lt(fun_ii_i, fun_uuu_b) || lt(fun_uuu_b, fun_ii_i));
  // Four components (ternary function) before five (quaternary function).
  DataType const* fun4 = mgr.get_function_type({integer, integer, integer, integer}, integer);
  EXPECT_TRUE(lt(fun_uuu_b, fun4));
  EXPECT_FALSE(lt(fun4, fun_uuu_b));
}

TEST_F(SymTyLtTest, EqualComponentCountsCompareComponentwise) {
  // The first component decides when it differs.
  EXPECT_EQ(lt(arr_uv, arr_vu), lt(sort_u, sort_v));
  EXPECT_EQ(lt(arr_vu, arr_uv), lt(sort_v, sort_u));
  // Equal first components: the second decides; a simple second component orders before a
  // compound one.
  EXPECT_TRUE(lt(arr_ii, arr_i_arr));
  EXPECT_FALSE(lt(arr_i_arr, arr_ii));
  DataType const* arr_ib = mgr.get_array_type(integer, boolean);
  EXPECT_EQ(lt(arr_ii, arr_ib), lt(integer, boolean));
  EXPECT_EQ(lt(arr_ib, arr_ii), lt(boolean, integer));
  // Later components only matter when the earlier ones are equal.
  DataType const* fun_ub_i = mgr.get_function_type({sort_u, boolean}, integer);
  DataType const* fun_vi_b = mgr.get_function_type({sort_v, integer}, boolean);
  EXPECT_EQ(lt(fun_ub_i, fun_vi_b), lt(sort_u, sort_v));
  // Components compare with the same order recursively: arrays of arrays.
  DataType const* deep1 = mgr.get_array_type(arr_uv, integer);
  DataType const* deep2 = mgr.get_array_type(arr_vu, integer);
  EXPECT_EQ(lt(deep1, deep2), lt(sort_u, sort_v));
  EXPECT_EQ(lt(deep2, deep1), lt(sort_v, sort_u));
}

TEST_F(SymTyLtTest, IsAStrictTotalOrderOnDistinctTypes) {
  // An array and a unary function type over the same two sorts are not told apart by the
  // order (same number of components, equal components), so only one of them is included.
  std::vector<DataType const*> all = simple;
  for (DataType const* c : compound) {
    if (c != fun_i_i) {
      all.push_back(c);
    }
  }
  all.push_back(mgr.get_array_type(arr_uv, integer));
  all.push_back(mgr.get_array_type(arr_vu, integer));
  all.push_back(mgr.get_array_type(integer, boolean));
  for (DataType const* a : all) {
    EXPECT_FALSE(lt(a, a)) << a->to_string();
    for (DataType const* b : all) {
      if (a != b) {
        EXPECT_NE(lt(a, b), lt(b, a)) << a->to_string() << " vs " << b->to_string();
      }
      for (DataType const* c : all) {
        if (lt(a, b) && lt(b, c)) {
          EXPECT_TRUE(lt(a, c)) << a->to_string() << " < " << b->to_string() << " < "
                                << c->to_string();
        }
      }
    }
  }
  std::set<DataType const*, TermPrinter::sym_ty_lt> set(all.begin(), all.end());
  EXPECT_EQ(set.size(), all.size());
}

// ---------------------------------------------------------------------------------------------
// Names, sorts, operators, numerals

struct NameCase {
  char const* name;
  char const* text;
};

std::vector<NameCase> const kNameCases = {
    {"x", "x"},
    {"a.b", "a.b"},
    {"x+y", "x+y"},
    {"~!@$%^&*_-+=<>.?/", "~!@$%^&*_-+=<>.?/"},
    {"x0", "x0"},
    {"assert", "|assert|"},
    {"let", "|let|"},
    {"", "||"},
    {"0_0", "|0_0|"},
    {"42", "|42|"},
    {"a b", "|a b|"},
    {"check-sat", "|check-sat|"},
    {"declare-fun", "|declare-fun|"},
    {"set-logic", "|set-logic|"},
    {"forall", "|forall|"},
    {"exists", "|exists|"},
    {"match", "|match|"},
    {"par", "|par|"},
    {"as", "|as|"},
    {"_", "|_|"},
    {"!", "|!|"},
    {"NUMERAL", "|NUMERAL|"},
    {"DECIMAL", "|DECIMAL|"},
    {"STRING", "|STRING|"},
    {"x'", "|x'|"},
    {"(p)", "|(p)|"},
    {"semi;colon", "|semi;colon|"},
    {"\"q\"", "|\"q\"|"},
    {"#b01", "|#b01|"},
    {"tab\there", "|tab\there|"},
};

TEST_F(TermPrinterTest, UserSymbolNamesAreQuotedWhenNeeded) {
  for (NameCase const& c : kNameCases) {
    Symbol const* s = mgr.make_symbol(c.name, integer);
    EXPECT_EQ(printer.to_smtlib(s), c.text) << "[" << c.name << "]";
    EXPECT_EQ(SmtLibTermPrinter::quote(c.name), c.text) << "[" << c.name << "]";
    EXPECT_EQ(SmtLibTermPrinter::is_simple_symbol(c.name), std::string(c.name) == c.text)
        << "[" << c.name << "]";
    EXPECT_EQ(print(mgr.make_constant(s)), c.text) << "[" << c.name << "]";
  }
}

TEST_F(TermPrinterTest, UserSortNamesAreQuotedWhenNeeded) {
  for (NameCase const& c : kNameCases) {
    if (std::string(c.name) == "U") {
      continue;
    }
    DataType const* t = mgr.make_simple_type(c.name);
    EXPECT_EQ(printer.to_smtlib(t), c.text) << "[" << c.name << "]";
    EXPECT_EQ(type_decl(t), std::string("(declare-sort ") + c.text + " 0)\n");
  }
}

TEST_F(TermPrinterTest, SortTexts) {
  DataType const* odd = mgr.make_simple_type("a b");
  struct Row {
    DataType const* type;
    char const* text;
  };
  std::vector<Row> rows = {
      {boolean, "Bool"},
      {integer, "Int"},
      {real, "Real"},
      {bv8, "(_ BitVec 8)"},
      {mgr.get_bv_type(1), "(_ BitVec 1)"},
      {mgr.get_bv_type(300), "(_ BitVec 300)"},
      {sort_u, "U"},
      {odd, "|a b|"},
      {mgr.get_array_type(integer, integer), "(Array Int Int)"},
      {mgr.get_array_type(bv4, bv8), "(Array (_ BitVec 4) (_ BitVec 8))"},
      {mgr.get_array_type(integer, mgr.get_array_type(integer, boolean)),
       "(Array Int (Array Int Bool))"},
      {mgr.get_array_type(odd, sort_u), "(Array |a b| U)"},
  };
  for (Row const& row : rows) {
    EXPECT_EQ(printer.to_smtlib(row.type), row.text);
    EXPECT_EQ(printer.type_text(row.type), row.text);
  }
}

TEST_F(TermPrinterTest, OperatorTexts) {
  struct Row {
    Term const* term;
    char const* text;
  };
  Term const* arr = constant("arr", mgr.get_array_type(integer, bv8));
  std::vector<Row> rows = {
      {op("extract", {b8}, {7, 0}), "(_ extract 7 0)"},
      {op("extract", {b8}, {3, 3}), "(_ extract 3 3)"},
      {op("zero_extend", {b8}, {4}), "(_ zero_extend 4)"},
      {op("sign_extend", {b8}, {24}), "(_ sign_extend 24)"},
      {op("repeat", {b8}, {3}), "(_ repeat 3)"},
      {op("rotate_left", {b8}, {2}), "(_ rotate_left 2)"},
      {op("rotate_right", {b8}, {9}), "(_ rotate_right 9)"},
      {op("bvadd", {b8, c8}), "bvadd"},
      {op("bvcomp", {b8, c8}), "bvcomp"},
      {op("concat", {b8, c8}), "concat"},
      {op("and", {p, q}), "and"},
      {op("=>", {p, q}), "=>"},
      {op("distinct", {i, j}), "distinct"},
      {op("-", {i}), "-"},
      {op("-", {i, j}), "-"},
      {op("div", {i, j}), "div"},
      {op("to_real", {i}), "to_real"},
      {op("select", {arr, i}), "select"},
      {op("store", {arr, i, b8}), "store"},
      {mgr.make_true(), "true"},
      {mgr.make_false(), "false"},
  };
  for (Row const& row : rows) {
    EXPECT_EQ(printer.to_smtlib(row.term->get_symbol()), row.text);
  }
  EXPECT_EQ(print(op("extract", {b8}, {7, 4})), "((_ extract 7 4) b8)");
  EXPECT_EQ(print(op("zero_extend", {op("bvnot", {b8})}, {8})), "((_ zero_extend 8) (bvnot b8))");
}

TEST_F(TermPrinterTest, NumeralTexts) {
  struct Row {
    char const* value;
    DataType const* type;
    char const* text;
  };
  std::vector<Row> rows = {
      {"5", integer, "5"},
      {"0", integer, "0"},
      {"-3", integer, "(- 3)"},
      {"123456789012345678901234567890", integer, "123456789012345678901234567890"},
      {"-123456789012345678901234567890", integer, "(- 123456789012345678901234567890)"},
      {"5", real, "5.0"},
      {"0", real, "0.0"},
      {"1/2", real, "(/ 1.0 2.0)"},
      {"0.25", real, "0.25"},
      {"-0.25", real, "(- 0.25)"},
      {"-5", real, "(- 5.0)"},
      {"10", bv4, "#b1010"},
      {"0", bv4, "#b0000"},
      {"#xff", bv8, "#b11111111"},
      {"#x0f", bv8, "#b00001111"},
      {"#b1", mgr.get_bv_type(1), "#b1"},
  };
  for (Row const& row : rows) {
    Term const* t = mgr.make_number(row.value, row.type);
    EXPECT_EQ(printer.to_smtlib(t->get_symbol()), row.text)
        << row.value << " : " << row.type->to_string();
    EXPECT_EQ(print(t), row.text) << row.value << " : " << row.type->to_string();
  }
  DataType const* bv70 = mgr.get_bv_type(70);
  EXPECT_EQ(print(mgr.make_number("1", bv70)), "#b" + std::string(69, '0') + "1");
  EXPECT_EQ(print(mgr.make_number("1180591620717411303423", bv70)), "#b" + std::string(70, '1'))
      << "2^70 - 1";
  // A negative rational is some writing of minus one half.
  std::string half = print(mgr.make_number("-1/2", real));
  EXPECT_TRUE(half == "(- (/ 1.0 2.0))" || half == "(/ (- 1.0) 2.0)") << half;
}

// ---------------------------------------------------------------------------------------------
// Declarations

TEST_F(TermPrinterTest, DeclarationCommands) {
  EXPECT_EQ(type_decl(sort_u), "(declare-sort U 0)\n");
  DataType const* odd = mgr.make_simple_type("a b");
  EXPECT_EQ(type_decl(odd), "(declare-sort |a b| 0)\n");

  struct Row {
    char const* name;
    DataType const* type;
    char const* text;
  };
  std::vector<Row> rows = {
      {"f", mgr.get_function_type({sort_u, integer}, boolean), "(declare-fun f (U Int) Bool)\n"},
      {"x", sort_u, "(declare-fun x () U)\n"},
      {"y", bv8, "(declare-fun y () (_ BitVec 8))\n"},
      {"a", mgr.get_array_type(integer, bv8), "(declare-fun a () (Array Int (_ BitVec 8)))\n"},
      {"assert", odd, "(declare-fun |assert| () |a b|)\n"},
      {"", boolean, "(declare-fun || () Bool)\n"},
      {"g", mgr.get_function_type({bv8, mgr.get_array_type(integer, integer)}, real),
       "(declare-fun g ((_ BitVec 8) (Array Int Int)) Real)\n"},
      {"h h", mgr.get_function_type({odd}, odd), "(declare-fun |h h| (|a b|) |a b|)\n"},
  };
  for (Row const& row : rows) {
    EXPECT_EQ(symbol_decl(mgr.make_symbol(row.name, row.type)), row.text);
  }
}

TEST_F(TermPrinterTest, LinePrefixStartsEveryCommand) {
  SmtLib2TermPrinter commented(&mgr, &config.printer, "", "; ", false, nullptr);
  std::ostringstream os;
  commented.print_type_declaration(os, sort_u);
  commented.print_symbol_declaration(os, p->get_symbol());
  commented.apitracer_print_term(os, p, "");
  EXPECT_EQ(os.str(), "; (declare-sort U 0)\n; (declare-fun p () Bool)\n; (assert p)\n");
}

// ---------------------------------------------------------------------------------------------
// Whole terms

TEST_F(TermPrinterTest, TermsWithoutSharingPrintPlain) {
  Symbol const* f = mgr.make_symbol("f", mgr.get_function_type({integer, integer}, integer));
  struct Row {
    Term const* term;
    char const* text;
  };
  std::vector<Row> rows = {
      {p, "p"},
      {mgr.make_true(), "true"},
      {mgr.make_not(p), "(not p)"},
      {mgr.make_and(p, q), "(and p q)"},
      {mgr.make_term(f, {i, i}), "(f i i)"},
      {op("+", {i, mgr.make_number("-3", integer), j}), "(+ i (- 3) j)"},
      {op("bvadd", {b8, op("extract", {op("concat", {b8, c8})}, {11, 4})}),
       "(bvadd b8 ((_ extract 11 4) (concat b8 c8)))"},
      {mgr.make_ite(p, i, mgr.make_term(f, {j, i})), "(ite p i (f j i))"},
  };
  for (Row const& row : rows) {
    EXPECT_EQ(print(row.term), row.text);
  }
}

TEST_F(TermPrinterTest, AssertCommands) {
  EXPECT_EQ(assertion(p, ""), "(assert p)\n");
  EXPECT_EQ(assertion(mgr.make_and(p, q), ""), "(assert (and p q))\n");
  EXPECT_EQ(assertion(p, ":named a1"), "(assert (! p :named a1))\n");
  EXPECT_EQ(assertion(mgr.make_or(p, q), ":interpolation-group g1"),
            "(assert (! (or p q) :interpolation-group g1))\n");
  // A shared term is still one command on one line.
  Term const* s = op("bvadd", {b8, c8});
  Term const* shared = mgr.make_equal(op("bvmul", {s, s}), c8);
  std::string text = assertion(shared, ":named a2");
  ASSERT_GE(text.size(), 9u);
  EXPECT_EQ(text.rfind("(assert ", 0), 0u) << text;
  EXPECT_EQ(text.back(), '\n');
  EXPECT_EQ(count_of(text, "\n"), 1u) << text;
  EXPECT_NE(text.find(":named a2"), std::string::npos);
  EXPECT_TRUE(parentheses_balance(text)) << text;
}

TEST_F(TermPrinterTest, SharedSubtermsWithChildrenAreLetBoundOnce) {
  Term const* s = op("bvadd", {b8, c8});
  Term const* t = op("bvmul", {s, s});
  std::string text = print(t);
  EXPECT_EQ(count_of(text, "bvadd"), 1u) << text;
  EXPECT_NE(text.find("(let ((_let_"), std::string::npos) << text;
  EXPECT_EQ(expand(text), "(bvmul (bvadd b8 c8) (bvadd b8 c8))") << text;

  // Leaves are never bound, however often they occur.
  Symbol const* f = mgr.make_symbol("f", mgr.get_function_type({integer, integer}, integer));
  std::string leaves = print(mgr.make_term(f, {i, mgr.make_term(f, {i, i})}));
  EXPECT_EQ(leaves, "(f i (f i i))");

  // A subterm that occurs once is not bound, even below a shared one.
  Term const* n = mgr.make_not(p);
  Term const* a = mgr.make_and(n, q);
  std::string nested = print(mgr.make_or(a, mgr.make_ite(a, q, p)));
  EXPECT_EQ(count_of(nested, "(not p)"), 1u) << nested;
  EXPECT_EQ(count_of(nested, "and"), 1u) << nested;
  EXPECT_EQ(expand(nested), "(or (and (not p) q) (ite (and (not p) q) q p))") << nested;
}

TEST_F(TermPrinterTest, NestedSharingExpandsToTheFullTerm) {
  // s1 shared inside s2, s2 shared at the top, plus a subterm shared by two different parents.
  Term const* s1 = op("bvadd", {b8, c8});
  Term const* s2 = op("bvmul", {s1, s1});
  Term const* n = op("bvnot", {s1});
  Term const* t = mgr.make_equal(op("bvor", {s2, op("bvand", {s2, n})}), op("bvxor", {n, s1}));
  std::vector<std::string> bound;
  std::string text = print(t);
  std::string expected =
      "(= (bvor (bvmul (bvadd b8 c8) (bvadd b8 c8)) (bvand (bvmul (bvadd b8 c8) (bvadd b8 c8)) "
      "(bvnot (bvadd b8 c8)))) (bvxor (bvnot (bvadd b8 c8)) (bvadd b8 c8)))";
  EXPECT_EQ(expand(text, &bound), expected) << text;
  EXPECT_EQ(bound.size(), 3u) << text;  // s1, s2 and n
  EXPECT_EQ(count_of(text, "bvadd"), 1u) << text;
  EXPECT_EQ(count_of(text, "bvmul"), 1u) << text;
  EXPECT_EQ(count_of(text, "bvnot"), 1u) << text;
}

TEST_F(TermPrinterTest, LetNamesNeverClashWithUserSymbols) {
  // User constants named like let names with one or more underscores, used inside shared
  // subterms, so that a renaming scheme that adds underscores meets them too; more such
  // names exist outside the term.
  for (int k = 0; k <= 12; ++k) {
    for (char const* prefix : {"_let___", "let_", "_let"}) {
      constant(prefix + std::to_string(k), integer);
    }
  }
  std::vector<std::string> names = {"_let_0"};
  for (int k = 1; k <= 6; ++k) {
    names.push_back("_let_" + std::to_string(k));
    names.push_back("_let__" + std::to_string(k));
  }
  Term const* t = constant(names[0], integer);
  std::string expected = names[0];
  for (std::size_t k = 1; k < names.size(); ++k) {
    t = op("+", {t, constant(names[k], integer)});
    t = op("*", {t, t});
    expected = "(+ " + expected + " " + names[k] + ")";
    expected = "(* " + expected + " " + expected + ")";
  }
  std::vector<std::string> bound;
  std::string text = print(t);
  EXPECT_EQ(expand(text, &bound), expected) << text;
  EXPECT_FALSE(bound.empty()) << text;
  for (std::string const& name : bound) {
    EXPECT_EQ(mgr.find_symbol(name), nullptr) << "let name " << name << " is a user symbol";
  }
}

TEST_F(TermPrinterTest, LetPrefixComesFromTheSettings) {
  config.printer.let_prefix = "tmp";
  SmtLib2TermPrinter custom(&mgr, &config.printer, "", "", false, nullptr);
  Term const* s = op("bvadd", {b8, c8});
  Term const* t = op("bvmul", {s, s});
  std::ostringstream os;
  custom.print_term(os, t, false);
  std::vector<std::string> bound;
  EXPECT_EQ(expand(os.str(), &bound), "(bvmul (bvadd b8 c8) (bvadd b8 c8))") << os.str();
  ASSERT_EQ(bound.size(), 1u) << os.str();
  EXPECT_EQ(bound[0].rfind("tmp", 0), 0u) << os.str();
  EXPECT_EQ(os.str().find("_let_"), std::string::npos) << os.str();
}

TEST_F(TermPrinterTest, LetNamesAreWritableWhateverThePrefix) {
  // The prefix is a user setting; the names made from it must still be single symbols.
  Term const* s = op("bvadd", {b8, c8});
  Term const* t = op("bvmul", {s, s});
  for (char const* prefix : {"a b", "1", "let", "x|"}) {
    config.printer.let_prefix = prefix;
    SmtLib2TermPrinter custom(&mgr, &config.printer, "", "", false, nullptr);
    std::ostringstream os;
    custom.print_term(os, t, false);
    std::vector<std::string> bound;
    std::string expanded;
    try {
      expanded = expand(os.str(), &bound);
    } catch (std::exception const& e) {
      expanded = std::string("<unreadable: ") + e.what() + ">";
    }
    EXPECT_EQ(expanded, "(bvmul (bvadd b8 c8) (bvadd b8 c8))")
        << "let_prefix \"" << prefix << "\": " << os.str();
    for (std::string const& name : bound) {
      bool quoted = name.size() >= 2 && name.front() == '|' && name.back() == '|' &&
                    name.find('|', 1) == name.size() - 1;
      EXPECT_TRUE(quoted || SmtLibTermPrinter::is_simple_symbol(name))
          << "let_prefix \"" << prefix << "\" gives the name " << name;
    }
  }
}

TEST_F(TermPrinterTest, RepeatedPrintsAreIndependent) {
  Term const* s = op("bvadd", {b8, c8});
  Term const* t1 = op("bvmul", {s, s});
  Term const* t2 = op("bvudiv", {op("bvneg", {t1}), op("bvneg", {t1})});
  std::string first = print(t1);
  std::string second = print(t2);
  EXPECT_EQ(print(t1), first);
  EXPECT_EQ(print(t2), second);
  EXPECT_EQ(expand(second),
            "(bvudiv (bvneg (bvmul (bvadd b8 c8) (bvadd b8 c8))) (bvneg (bvmul (bvadd b8 c8) "
            "(bvadd b8 c8))))")
      << second;
  SmtLib2TermPrinter fresh(&mgr, &config.printer, "", "", false, nullptr);
  std::ostringstream os;
  fresh.print_term(os, t2, false);
  EXPECT_EQ(os.str(), second);
}

TEST_F(TermPrinterTest, GlobalDeclarationsGiveASharedSubtermOneNameEverywhere) {
  SmtLib2TermPrinter global(&mgr, &config.printer, "", "", true, nullptr);
  Term const* s = op("bvadd", {b8, c8});
  Term const* t1 = op("bvmul", {s, s});
  Term const* t2 = op("bvor", {c8, op("bvudiv", {s, s})});
  std::ostringstream os1;
  std::ostringstream os2;
  global.print_term(os1, t1, false);
  global.print_term(os2, t2, false);
  std::vector<std::string> bound1;
  std::vector<std::string> bound2;
  EXPECT_EQ(expand(os1.str(), &bound1), "(bvmul (bvadd b8 c8) (bvadd b8 c8))") << os1.str();
  EXPECT_EQ(expand(os2.str(), &bound2), "(bvor c8 (bvudiv (bvadd b8 c8) (bvadd b8 c8)))")
      << os2.str();
  ASSERT_EQ(bound1.size(), 1u) << os1.str();
  ASSERT_EQ(bound2.size(), 1u) << os2.str();
  EXPECT_EQ(bound1[0], bound2[0]);
  EXPECT_NE(bound1[0].find(std::to_string(s->get_id())), std::string::npos)
      << bound1[0] << " for term id " << s->get_id();
}

// ---------------------------------------------------------------------------------------------
// Size and depth

class TermPrinterScaleTest : public TermPrinterTest {
 protected:
  // x, (* x x), (* (* x x) (* x x)), ...: n squarings, a tree of 2^n leaves.
  Term const* squaring_chain(std::size_t n) {
    Term const* t = i;
    for (std::size_t k = 0; k < n; ++k) {
      t = op("*", {t, t});
    }
    return t;
  }
};

TEST_F(TermPrinterScaleTest, SmallSquaringChainsExpandCorrectly) {
  std::string expected = "i";
  for (std::size_t n = 1; n <= 10; ++n) {
    expected = "(* " + expected + " " + expected + ")";
    EXPECT_EQ(expand(print(squaring_chain(n))), expected) << n;
  }
}

TEST_F(TermPrinterScaleTest, SquaringChainsPrintInLinearSize) {
  std::size_t len3 = print(squaring_chain(1000)).size();
  std::size_t len4 = print(squaring_chain(10000)).size();
  std::size_t len5 = print(squaring_chain(100000)).size();
  EXPECT_LT(len3, 1000u * 64) << "bytes per level: " << len3 / 1000;
  EXPECT_LT(len5, 100000u * 64) << "bytes per level: " << len5 / 100000;
  // Ten times the levels, about ten times the text (longer names allow a little more).
  double r1 = static_cast<double>(len4) / static_cast<double>(len3);
  double r2 = static_cast<double>(len5) / static_cast<double>(len4);
  EXPECT_GT(r1, 8.0);
  EXPECT_LT(r1, 13.0);
  EXPECT_GT(r2, 8.0);
  EXPECT_LT(r2, 13.0);
}

TEST_F(TermPrinterScaleTest, FibonacciDagPrintsInLinearSize) {
  // t(k+1) = (+ t(k) t(k-1)): every term has two parents; the tree is exponential.
  Term const* prev = i;
  Term const* cur = j;
  for (int k = 0; k < 5000; ++k) {
    Term const* next = op("+", {cur, prev});
    prev = cur;
    cur = next;
  }
  std::string text = print(cur);
  EXPECT_LT(text.size(), 5000u * 64);
  EXPECT_TRUE(parentheses_balance(text));
}

TEST_F(TermPrinterScaleTest, MillionDeepTermsPrintWithoutRecursion) {
  constexpr std::size_t kDepth = 1000000;
  // A plain chain: nothing is shared.
  Term const* t = p;
  for (std::size_t k = 0; k < kDepth; ++k) {
    t = mgr.make_not(t);
  }
  std::string text = print(t);
  EXPECT_EQ(text.size(), kDepth * 6 + 1);
  EXPECT_EQ(text.compare(0, 10, "(not (not "), 0);
  EXPECT_EQ(text.compare(text.size() - kDepth - 1, kDepth + 1, "p" + std::string(kDepth, ')')), 0);
  EXPECT_EQ(count_of(text, "let"), 0u);

  // A chain with a shared subterm at every level, t(k+1) = (bvadd t(k) (bvnot t(k))): as many
  // nested let-bindings as levels (fewer levels than above, to keep the test quick).
  constexpr std::size_t kSharedDepth = 300000;
  Term const* u = b8;
  for (std::size_t k = 0; k < kSharedDepth; ++k) {
    u = op("bvadd", {u, op("bvnot", {u})});
  }
  std::string shared = print(u);
  EXPECT_TRUE(parentheses_balance(shared));
  EXPECT_LT(shared.size(), kSharedDepth * 80);

  std::ostringstream os;
  printer.apitracer_print_term(os, mgr.make_equal(u, c8), "");
  EXPECT_EQ(os.str().rfind("(assert ", 0), 0u);
  EXPECT_TRUE(parentheses_balance(os.str()));
}

}  // namespace
}  // namespace tvx
