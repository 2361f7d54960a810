// Tests of the term layer. TermManager: hash-consing, id order, numerals, and the misuse and names
// that must throw std::invalid_argument naming the operator, sort or name. The printers: the
// declaration order sym_ty_lt, SMT-LIB texts of names and numerals, and let-bound sharing that
// keeps the text linear in the DAG.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/core/term_printer.h>

namespace tvx {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;
using Refused = std::invalid_argument;

class TermTest : public ::testing::Test {
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
  DataType const* bv4 = mgr.get_bv_type(4);
  DataType const* bv8 = mgr.get_bv_type(8);
  DataType const* sort_u = mgr.make_simple_type("U");
  Term const* p = constant("p", mgr.get_bool_type());
  Term const* i = constant("i", integer);
  Term const* b8 = constant("b8", bv8);
};

TEST_F(TermTest, HashConsingIdOrderAndNumeralNotations) {
  EXPECT_EQ(mgr.get_array_type(integer, bv8), mgr.get_array_type(integer, bv8));
  EXPECT_EQ(mgr.make_and(p, p), mgr.make_builtin("and", {p, p}));
  EXPECT_NE(mgr.make_builtin("extract", {b8}, {7, 4}), mgr.make_builtin("extract", {b8}, {3, 0}));
  EXPECT_NE(mgr.make_number("5", integer), mgr.make_number("5", real));
  std::size_t const count = mgr.num_terms();
  Term const* sum = mgr.make_builtin("+", {i, i});
  EXPECT_TRUE(sum->get_id() == count + 1 && mgr.make_builtin("+", {i, i}) == sum);
  EXPECT_EQ(hsh::hash<Term const*>()(sum), sum->get_id());
  EXPECT_TRUE(p->get_id() < i->get_id() && i->get_id() < b8->get_id()) << "ids in creation order";
  for (char const* same : {"#b1010", "#xA", "26"})
    EXPECT_EQ(mgr.make_number(same, bv4), mgr.make_number("10", bv4)) << same;
  // Equal rationals are one numeral, also past 64 bits: 2^64 * 10 + 10 over 30 is (2^64 + 1) / 3.
  EXPECT_EQ(mgr.make_number("-184467440737095516170/30", real),
            mgr.make_number("-18446744073709551617/3", real));
  EXPECT_EQ(mgr.make_number("340282366920938463463374607431768211456/18446744073709551616", real),
            mgr.make_number("18446744073709551616", real));  // 2^128 / 2^64
  EXPECT_EQ(mgr.make_number("6/4", real), mgr.make_number("3/2", real));
  EXPECT_EQ(mgr.make_number("1267650600228229401496703205376", mgr.get_bv_type(100)),  // 2^100
            mgr.make_number("0", mgr.get_bv_type(100)));
  std::pair<char const*, DataType const*> const refused[] = {
      {"", integer},   {"1/2", integer}, {"--1", integer}, {"1/0", real},
      {"1.2.3", real}, {"#b101", bv4},   {"#x1ff", bv8},   {"5", sort_u}};
  for (auto const& [value, type] : refused)
    EXPECT_THROW(mgr.make_number(value, type), Refused) << value;
}

TEST_F(TermTest, MisuseThrowsNamingTheOperatorAndTheSorts) {
  // {operator, arguments by letter (p Bool, i Int, r Real, 4 and 8 bit-vectors of that width,
  // a an array), a sort the message names, indices}.
  struct Row {
    char const *op, *args, *sort;
    std::vector<std::uint64_t> indices = {};
  };
  DataType const* arr = mgr.get_array_type(integer, bv8);
  Term const* terms[] = {p, i, constant("r", real), constant("a4", bv4), b8, constant("a", arr)};
  for (Row const& row :
       {Row{"not", "pp", ""}, Row{"and", "pi", "Int"}, Row{"=", "ir", "Real"},
        Row{"ite", "iii", "Int"}, Row{"distinct", "p", ""}, Row{"div", "rr", "Real"},
        Row{"to_int", "i", "Int"}, Row{"<", "pp", "Bool"}, Row{"bvadd", "84", "(_ BitVec 4)"},
        Row{"extract", "8", "(_ BitVec 8)", {8, 0}}, Row{"extract", "8", "", {7}},
        Row{"repeat", "8", "", {0}}, Row{"select", "a8", "(Array Int (_ BitVec 8))"},
        Row{"store", "ai4", "(_ BitVec 4)"}, Row{"bvfoo", "88", ""}}) {
    std::vector<Term const*> args;
    for (char const* c = row.args; *c != '\0'; ++c)
      args.push_back(terms[std::string("pir48a").find(*c)]);
    EXPECT_THAT([&] { mgr.make_builtin(row.op, args, row.indices); },
                ThrowsMessage<Refused>(AllOf(HasSubstr(row.op), HasSubstr(row.sort))));
  }
  Symbol const* f = mgr.make_symbol("f", mgr.get_function_type({sort_u, integer}, real));
  Term const* u = constant("u", sort_u);
  std::size_t const count = mgr.num_terms();
  EXPECT_THAT([&] { mgr.make_term(f, {i, u}); }, ThrowsMessage<Refused>(HasSubstr("f")));
  EXPECT_EQ(mgr.num_terms(), count);
  EXPECT_THROW(mgr.get_bv_type(0), Refused);
}

TEST_F(TermTest, RefusesNamesThatAreBuiltinOrCannotBeQuoted) {
  for (char const* name : {"a|b", "x\\y", "true", "not", "=>", "bvadd", "select", "Int"}) {
    EXPECT_THAT([&] { mgr.make_simple_type(name); }, ThrowsMessage<Refused>(HasSubstr(name)));
    EXPECT_THAT([&] { mgr.make_symbol(name, integer); }, ThrowsMessage<Refused>(HasSubstr(name)));
  }
  EXPECT_THAT([&] { mgr.make_fresh_symbol("a|b", integer); },
              ThrowsMessage<Refused>(HasSubstr("a|b")));
  EXPECT_EQ(mgr.get_simple_type("Int", true), nullptr);
}

// A name may be used again (a script declares it anew once its scope is gone): lookups find the
// newest object, and every object keeps a printed name that no other symbol or sort takes,
// whichever order the names come in.
TEST_F(TermTest, NamesUsedAgainArePrintedUnderNamesOfTheirOwn) {
  auto text = [&](Symbol const* s) { return print(mgr.make_constant(s)); };
  Symbol const* taken2 = mgr.make_symbol("p!2", integer);
  Symbol const* p2 = mgr.make_symbol("p", integer);
  Symbol const* taken1 = mgr.make_symbol("p!1", integer);  // p2 is printed so already
  Symbol const* p3 = mgr.make_symbol("p", mgr.get_bool_type());
  EXPECT_EQ(mgr.find_symbol("p"), p3);
  EXPECT_EQ(print(p), "p") << "the first keeps its name";
  EXPECT_EQ(text(p2), "p!1");
  EXPECT_EQ(text(taken1), "p!1!1");
  EXPECT_EQ(text(taken2), "p!2");
  EXPECT_EQ(text(p3), "p!3");
  EXPECT_TRUE(mgr.find_printed_symbol("p!1") == p2 && mgr.find_printed_symbol("p!1!1") == taken1);
  Symbol const* spaced = mgr.make_symbol("a b", integer);
  EXPECT_EQ(text(spaced) + text(mgr.make_symbol("a b", integer)), "|a b||a b!1|");
  EXPECT_NE(mgr.make_and(p, mgr.make_constant(p3)), mgr.make_and(p, p)) << "two symbols";

  DataType const* u2 = mgr.make_simple_type("U");
  EXPECT_TRUE(u2 != sort_u && mgr.get_simple_type("U", true) == u2);
  EXPECT_TRUE(mgr.find_printed_sort("U!1") == u2 && mgr.find_printed_sort("U") == sort_u);
  std::ostringstream decls;
  printer.print_type_declaration(decls, u2);
  printer.print_symbol_declaration(decls,
                                   mgr.make_symbol("f", mgr.get_function_type({sort_u}, u2)));
  EXPECT_EQ(decls.str(), "(declare-sort U!1 0)\n(declare-fun f (U) U!1)\n");

  // A fresh symbol is found by no lookup, yet its name is its own in print.
  Symbol const* fresh = mgr.make_fresh_symbol("q", integer);
  EXPECT_EQ(mgr.find_symbol("q"), nullptr);
  Symbol const* q = mgr.make_symbol("q", integer);
  EXPECT_EQ(mgr.find_symbol("q"), q);
  EXPECT_EQ(text(fresh) + " " + text(q), "q q!1");
  // So is a model's abstract value.
  Term const* value = mgr.make_abstract_value(sort_u, 0);
  Symbol const* like_value = mgr.make_symbol("U!val!0", sort_u);
  EXPECT_EQ(print(value) + " " + text(like_value), "U!val!0 U!val!0!1");
  EXPECT_EQ(mgr.find_symbol("U!val!0")->get_name(), "U!val!0");

  // Let names step around printed names, not only around user names.
  Term const* s = mgr.make_builtin("+", {i, mgr.make_number("5", integer)});
  config.printer.let_prefix = "p!";
  EXPECT_EQ(print(mgr.make_builtin("*", {s, s})), "(let ((p!_1 (+ i 5))) (* p!_1 p!_1))");
}

// Names of theories the term layer does not model are printed with '_' in front, which no such
// theory's name has; a user name equal to the result then takes a suffix.
TEST_F(TermTest, NamesOfOtherTheoriesArePrintedApart) {
  auto text = [&](char const* name, DataType const* type) {
    return print(mgr.make_constant(mgr.make_symbol(name, type)));
  };
  DataType const* fun = mgr.get_function_type({integer}, integer);
  std::ostringstream decl;
  printer.print_symbol_declaration(decl, mgr.make_symbol("str.len", fun));
  EXPECT_EQ(decl.str(), "(declare-fun _str.len (Int) Int)\n");
  EXPECT_EQ(text("_str.len", integer), "_str.len!1");
  for (char const* name : {"bv2int", "char", "exp", "sqrt", "fp", "RNE", "re.*", "seq.len",
                           "fp.add", "str.anything", "set.union", "int.pow2"})
    EXPECT_EQ(text(name, integer), std::string("_") + name) << name;
  for (char const* name : {"strlen", "str", "chars", "x.str.len", "bvsize", "Exp"})
    EXPECT_EQ(text(name, integer), name) << name;
  for (char const* name : {"String", "RegLan", "FloatingPoint", "Tuple", "Relation"}) {
    std::ostringstream os;
    printer.print_type_declaration(os, mgr.make_simple_type(name));
    EXPECT_EQ(os.str(), std::string("(declare-sort _") + name + " 0)\n");
    EXPECT_TRUE(TermManager::is_foreign_theory_name(name, true) &&
                !TermManager::is_foreign_theory_name(name, false));
  }
  EXPECT_EQ(mgr.find_symbol("str.len")->get_name(), "str.len") << "names stay the user's";
}

TEST_F(TermTest, SymTyLtOrdersSimpleFirstThenByComponentCountThenComponentwise) {
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

// Names are quoted when they are not simple symbols or are reserved words; numerals take the
// printed form of their sort.
TEST_F(TermTest, NameAndNumeralTexts) {
  for (std::string name : {"x", "~!@$%^&*_-+=<>.?/"})
    EXPECT_EQ(print(constant(name, sort_u)), name);
  for (std::string name : {"assert", "let", "", "0_0", "a b", "par", "!", "x'", "\"q\""})
    EXPECT_EQ(print(constant(name, sort_u)), "|" + name + "|");
  for (auto const& [value, type, text] :
       std::vector<std::tuple<char const*, DataType const*, char const*>>{
           {"-3", integer, "(- 3)"},
           {"-123456789012345678901", integer, "(- 123456789012345678901)"},
           {"5", real, "5.0"},
           {"1/2", real, "(/ 1.0 2.0)"},
           {"-0.25", real, "(- 0.25)"},
           {"10", mgr.get_bv_type(4), "#b1010"},
           {"#x0f", bv8, "#b00001111"}})
    EXPECT_EQ(print(mgr.make_number(value, type)), text) << value;
  // As quotients of integers, the form cvc5 takes in a constant array; Ints stay as they are.
  SmtLib2TermPrinter quotients{&mgr, &config.printer, "", "", false, nullptr};
  quotients.set_real_quotients(true);
  for (auto const& [value, type, text] :
       std::vector<std::tuple<char const*, DataType const*, char const*>>{
           {"-3", integer, "(- 3)"},
           {"5", real, "5.0"},
           {"0.25", real, "0.25"},
           {"1/2", real, "(/ 1 2)"},
           {"-3", real, "(/ (- 3) 1)"},
           {"-1/2", real, "(/ (- 1) 2)"},
           {"-0.25", real, "(/ (- 1) 4)"},
           {"-10.5", real, "(/ (- 21) 2)"}})
    EXPECT_EQ(quotients.to_smtlib(mgr.make_number(value, type)->get_symbol()), text) << value;
}

TEST_F(TermTest, SharedSubtermsAreWrittenOnceSoSquaringChainsStayLinear) {
  Term const* s = mgr.make_builtin("+", {i, mgr.make_number("5", integer)});
  std::string const text = print(mgr.make_builtin("*", {s, s}));
  EXPECT_TRUE(text.find("(+ i 5)") == text.rfind("(+ i 5)") && text.find("(let ") == 0) << text;
  EXPECT_EQ(print(mgr.make_builtin("+", {i, i})), "(+ i i)");  // leaves are never bound
  // Reached twice below the top, in a small term and in one with more than 16 compound subterms.
  Term const* deep =
      mgr.make_builtin("-", {mgr.make_builtin("+", {s, i}), mgr.make_builtin("*", {i, s})});
  EXPECT_EQ(print(deep), "(let ((_let_1 (+ i 5))) (- (+ _let_1 i) (* i _let_1)))");
  Term const* chain = i;
  for (int k = 0; k < 20; ++k) {
    chain = mgr.make_builtin("+", {chain, mgr.make_number(std::to_string(k), integer)});
  }
  std::string const wide = print(mgr.make_builtin("-", {mgr.make_builtin("*", {chain, s}), s}));
  EXPECT_EQ(wide.find("(let ((_let_1 (+ i 5)))"), 0u) << wide;
  EXPECT_EQ(print(mgr.make_builtin("-", {chain, s})).find("(let"), std::string::npos);
  Term const* t = i;
  std::size_t sizes[2];  // after 10^4 and 10^5 squarings
  for (std::size_t k = 1; k <= 100000; ++k) {
    t = mgr.make_builtin("*", {t, t});
    if (k == 10000 || k == 100000)
      sizes[k / 100000] = print(t).size();
  }
  EXPECT_LT(sizes[1], 100000u * 64);
  EXPECT_LT(sizes[1], sizes[0] * 13);  // ten times the levels, about ten times the text
}

TEST_F(TermTest, LetNamesStepAroundUserNames) {
  Term const* s = mgr.make_builtin("+", {i, mgr.make_number("5", integer)});
  Term const* square = mgr.make_builtin("*", {s, s});
  EXPECT_EQ(print(square), "(let ((_let_1 (+ i 5))) (* _let_1 _let_1))");
  constant("_let_1", integer);  // made after the first print: the printer must see it
  EXPECT_EQ(print(square), "(let ((_let__1 (+ i 5))) (* _let__1 _let__1))");
  config.printer.let_prefix = "v1";  // ends in a digit: "v11" is v1 and 1, not stem v and 11
  constant("v11", integer);
  EXPECT_EQ(print(square), "(let ((v1_1 (+ i 5))) (* v1_1 v1_1))");
}

// Variables are one term per name and sort; binders are hash-consed with their attributes;
// closedness follows SMT-LIB's scoping, a binder inside another over the same variable hiding
// the outer binding.
TEST_F(TermTest, BindersAndTheirVariables) {
  Term const* x = mgr.make_variable("x", integer);
  Term const* y = mgr.make_variable("y", integer);
  EXPECT_EQ(mgr.make_variable("x", integer), x);
  EXPECT_NE(mgr.make_variable("x", real), x);
  EXPECT_EQ(mgr.find_symbol("x"), nullptr) << "a variable is no user name";
  Symbol const* f = mgr.make_symbol("f", mgr.get_function_type({integer}, integer));
  Term const* fx = mgr.make_term(f, {x});
  Term const* body = mgr.make_builtin(">", {fx, x});
  BinderAttributes attributes;
  attributes.patterns = {{fx}};
  attributes.qid = "q 1";
  attributes.weight = 3;
  Term const* all = mgr.make_forall({x}, body, attributes);
  EXPECT_EQ(mgr.make_forall({x}, body, attributes), all);
  EXPECT_NE(mgr.make_forall({x}, body), all) << "attributes tell binders apart";
  EXPECT_NE(mgr.make_exists({x}, body, attributes), all);
  // Names that could run into the pattern sizes after them keep binders apart all the same.
  BinderAttributes spaced;
  spaced.skolemid = "s 1";
  BinderAttributes patterned;
  patterned.skolemid = "s";
  patterned.patterns = {{fx}};
  EXPECT_NE(print(mgr.make_forall({x}, body, spaced)),
            print(mgr.make_forall({x}, body, patterned)));
  EXPECT_EQ(print(all), "(forall ((x Int)) (! (> (f x) x) :pattern ((f x)) :qid |q 1| :weight 3))");
  // Closed: no variable occurs free; the inner binder over x hides the outer x.
  Term const* inner = mgr.make_exists({x}, mgr.make_builtin("<", {x, y}));
  EXPECT_FALSE(mgr.is_closed(fx));
  EXPECT_FALSE(mgr.is_closed(inner)) << "y is free";
  EXPECT_TRUE(mgr.is_closed(mgr.make_forall({x, y}, mgr.make_and(inner, body))));
  EXPECT_FALSE(mgr.is_closed(mgr.make_forall({y}, mgr.make_and(inner, body)))) << "x free";
  EXPECT_FALSE(mgr.is_closed(mgr.make_forall({x}, mgr.make_and(inner, body)))) << "y free";
  EXPECT_TRUE(mgr.is_closed(all) && mgr.is_closed(i));
  // Shared closed subterms are let-bound outside the binders, open ones never.
  Term const* s = mgr.make_builtin("+", {i, mgr.make_number("1", integer)});
  Term const* open = mgr.make_builtin("+", {x, s});
  Term const* both = mgr.make_forall(
      {x}, mgr.make_and(mgr.make_builtin(">", {open, s}), mgr.make_builtin("<", {open, s})));
  EXPECT_EQ(print(both),
            "(let ((_let_1 (+ i 1))) (forall ((x Int)) (and (> (+ x _let_1) _let_1) "
            "(< (+ x _let_1) _let_1))))");
  // A variable named like a user symbol is printed under a name of its own.
  Term const* vi = mgr.make_variable("i", integer);
  EXPECT_EQ(print(mgr.make_exists({vi}, mgr.make_equal(vi, i))), "(exists ((i!1 Int)) (= i!1 i))");

  auto refused = [&](auto make, char const* part) {
    EXPECT_THAT(make, ThrowsMessage<Refused>(HasSubstr(part))) << part;
  };
  refused([&] { mgr.make_forall({}, p); }, "no variable to bind");
  refused([&] { mgr.make_forall({i}, p); }, "make_variable");
  refused([&] { mgr.make_forall({x, x}, p); }, "'x' is bound twice");
  refused([&] { mgr.make_exists({x}, fx); }, "the body must be a formula");
  refused(
      [&] {
        mgr.make_forall({x}, body, BinderAttributes{{{}}, {}, "", "", -1});
      },
      "a pattern needs at least one term");
  refused([&] { mgr.make_term(all->get_symbol(), {x, body, fx}); }, "made by make_forall");
  refused([&] { mgr.make_variable("x", mgr.get_function_type({integer}, integer)); },
          "not a function sort");
}

// A group of datatypes made in two steps: its constructors, selectors and testers are
// interpreted symbols with the group's sorts; a refused group makes no name known, and one
// declared again is printed under names of its own.
TEST_F(TermTest, DatatypesAndTheirConstructors) {
  DataType const* list = mgr.make_datatype_sort("L");
  DataType const* tree = mgr.make_datatype_sort("T");
  EXPECT_EQ(mgr.get_simple_type("L", true), nullptr) << "known only once defined";
  mgr.define_datatypes({list, tree}, {{{"nil", {}}, {"cons", {{"hd", tree}, {"tl", list}}}},
                                      {{"leaf", {{"val", sort_u}}}, {"node", {{"kids", list}}}}});
  EXPECT_EQ(mgr.get_simple_type("L", true), list);
  DatatypeInfo const* info = mgr.datatype_info(list);
  ASSERT_NE(info, nullptr);
  ASSERT_EQ(info->group->size(), 2u);
  EXPECT_EQ(mgr.datatype_info(tree)->group, info->group) << "one group, shared";
  ASSERT_EQ(info->constructors.size(), 2u);
  Symbol const* nil = info->constructors[0].constructor;
  Symbol const* cons = info->constructors[1].constructor;
  EXPECT_EQ(mgr.find_symbol("cons"), cons);
  EXPECT_TRUE(mgr.is_interpreted(cons)) << "never declared";
  EXPECT_EQ(mgr.datatype_dependencies(list), std::vector<DataType const*>{sort_u});
  Symbol const* leaf = mgr.datatype_info(tree)->constructors[0].constructor;
  Term const* u = constant("u", sort_u);
  Term const* l = mgr.make_term(cons, {mgr.make_term(leaf, {u}), mgr.make_constant(nil)});
  EXPECT_EQ(print(l), "(cons (leaf u) nil)");
  EXPECT_EQ(mgr.constructor_of(info->constructors[1].tester).constructor, cons);
  Term const* test = mgr.make_term(info->constructors[1].tester, {l});
  Term const* head = mgr.make_term(info->constructors[1].selectors[0], {l});
  EXPECT_EQ(print(test), "((_ is cons) (cons (leaf u) nil))");
  EXPECT_EQ(head->get_type(), tree);
  std::ostringstream declaration;
  printer.print_type_declaration(declaration, tree);
  EXPECT_EQ(declaration.str(),
            "(declare-datatypes ((L 0) (T 0)) (((nil) (cons (hd T) (tl L))) ((leaf (val U)) "
            "(node (kids L)))))\n");
  EXPECT_THAT([&] { mgr.make_term(info->constructors[1].selectors[0], {u}); },
              ThrowsMessage<Refused>(HasSubstr("must be of sort L")));

  auto refused = [&](std::vector<std::vector<ConstructorDecl>> const& constructors,
                     char const* part) {
    std::size_t const symbols = mgr.num_symbols();
    DataType const* d = mgr.make_datatype_sort("D");
    std::vector<DataType const*> sorts{d};
    if (constructors.size() == 2) {
      sorts.push_back(mgr.make_datatype_sort("E"));
    }
    EXPECT_THAT([&] { mgr.define_datatypes(sorts, constructors); },
                ThrowsMessage<Refused>(HasSubstr(part)))
        << part;
    EXPECT_EQ(mgr.num_symbols(), symbols) << part;
    EXPECT_EQ(mgr.get_simple_type("D", true), nullptr) << part;
    EXPECT_EQ(mgr.find_symbol("c"), nullptr) << part;
  };
  refused({{}}, "has no constructor");
  refused({{{"c", {}}, {"c", {}}}}, "'c' is declared twice");
  refused({{{"c", {{"s", integer}}}, {"k", {{"s", integer}}}}}, "'s' is declared twice");
  refused({{{"c", {{"s", mgr.make_datatype_sort("Undefined")}}}}}, "is not defined");
  refused({{{"c", {{"s", mgr.get_function_type({integer}, integer)}}}}}, "must be a sort");
  refused({{{"c", {{"and", integer}}}}}, "built-in name");
  DataType const* other = mgr.make_datatype_sort("D");
  EXPECT_THROW(mgr.define_datatypes({other}, {{{"c", {{"s", other}}}}}), Refused)
      << "no value: every value of D holds a D";

  // Declared again: every name printed under one of its own.
  DataType const* list2 = mgr.make_datatype_sort("L");
  mgr.define_datatypes({list2}, {{{"nil", {}}, {"cons", {{"hd", integer}, {"tl", list2}}}}});
  Symbol const* cons2 = mgr.datatype_info(list2)->constructors[1].constructor;
  Symbol const* nil2 = mgr.datatype_info(list2)->constructors[0].constructor;
  EXPECT_EQ(mgr.find_symbol("cons"), cons2);
  EXPECT_EQ(print(mgr.make_term(cons2, {i, mgr.make_constant(nil2)})), "(cons!1 i nil!1)");
  EXPECT_EQ(print(mgr.make_term(mgr.datatype_info(list2)->constructors[0].tester,
                                {mgr.make_constant(nil2)})),
            "((_ is nil!1) nil!1)");
  EXPECT_EQ(mgr.get_printed_name(list2), "L!1");
}

// Sorts with parameters: instances are hash-consed and printed as applications; a parametric
// datatype's instance has constructors of its own, printed under the generic names, with the
// constructor qualified by its sort.
TEST_F(TermTest, SortsWithParametersAndTheirInstances) {
  DataType const* s2 = mgr.make_sort_constructor("S", 2);
  DataType const* s_ib = mgr.get_instance(s2, {integer, mgr.get_bool_type()});
  EXPECT_EQ(mgr.get_instance(s2, {integer, mgr.get_bool_type()}), s_ib);
  EXPECT_NE(mgr.get_instance(s2, {integer, integer}), s_ib);
  EXPECT_EQ(s_ib->to_string(), "(S Int Bool)");
  EXPECT_TRUE(s_ib->is_instance() && !s_ib->is_simple() && !s_ib->is_declarable());
  EXPECT_THROW(mgr.get_instance(s2, {integer}), Refused);
  EXPECT_THROW(mgr.make_symbol("bad", s2), Refused) << "a generic sort is no term's sort";

  DataType const* t = mgr.get_sort_parameter("T", 0);
  DataType const* list = mgr.make_datatype_sort("L", 1);
  DataType const* l_t = mgr.get_instance(list, {t});
  mgr.define_datatypes({list}, {{{"nil", {}}, {"cons", {{"hd", t}, {"tl", l_t}}}}}, {{t}});
  std::ostringstream declaration;
  printer.print_type_declaration(declaration, list);
  EXPECT_EQ(declaration.str(),
            "(declare-datatypes ((L 1)) ((par (T) ((nil) (cons (hd T) (tl (L T)))))))\n");
  DataType const* l_int = mgr.get_instance(list, {integer});
  EXPECT_EQ(mgr.substitute_params(mgr.get_array_type(t, l_t), {integer}),
            mgr.get_array_type(integer, l_int));
  std::vector<DataType const*> binding;
  EXPECT_TRUE(
      mgr.match_params(mgr.get_array_type(t, l_t), mgr.get_array_type(integer, l_int), binding));
  EXPECT_EQ(binding, std::vector<DataType const*>{integer});
  EXPECT_FALSE(mgr.match_params(l_t, mgr.get_array_type(integer, integer), binding));
  Symbol const* generic_cons = mgr.find_symbol("cons");
  Symbol const* cons = mgr.instance_symbol(generic_cons, l_int);
  Symbol const* nil = mgr.datatype_info(l_int)->constructors[0].constructor;
  EXPECT_EQ(cons->get_output_type(), l_int);
  EXPECT_EQ(mgr.instance_symbol(generic_cons, l_int), cons) << "made once";
  Term const* one = mgr.make_term(cons, {i, mgr.make_constant(nil)});
  EXPECT_EQ(print(one), "((as cons (L Int)) i (as nil (L Int)))");
  EXPECT_EQ(print(mgr.make_term(mgr.datatype_info(l_int)->constructors[1].tester, {one})),
            "(is-cons ((as cons (L Int)) i (as nil (L Int))))");
  EXPECT_FALSE(mgr.has_params(one));
  EXPECT_TRUE(mgr.has_params(mgr.make_constant(mgr.find_symbol("nil"))));
  // A field of a parameter that is not the datatype's own is refused.
  DataType const* other = mgr.make_datatype_sort("M", 1);
  EXPECT_THAT(
      [&] {
        mgr.define_datatypes({other}, {{{"m", {{"f", mgr.get_sort_parameter("X", 1)}}}}},
                             {{mgr.get_sort_parameter("Y", 0)}});
      },
      ThrowsMessage<Refused>(HasSubstr("not one of M's")));
}

TEST_F(TermTest, MillionDeepTermPrintsWithoutRecursion) {
  Term const* t = p;
  std::string expected;
  for (std::size_t k = 0; k < 1000000; ++k)
    t = mgr.make_not(t);
  for (std::size_t k = 0; k < 1000000; ++k)
    expected += "(not ";
  EXPECT_TRUE(print(t) == expected + "p" + std::string(1000000, ')'));
}

}  // namespace
}  // namespace tvx
