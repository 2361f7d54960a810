// Replays printer output on real solvers. Declarations and assertions over every theory and
// operator are written through SmtLib2TermPrinter into a script; z3 and cvc5 must accept it
// without an error, and must find each valid formula satisfiable and its negation unsatisfiable,
// so the printed text also means what the terms mean.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "core/configuration.h"
#include "core/term_manager.h"
#include "core/term_printer.h"

namespace tvx {
namespace {

enum class Expect { kSat, kUnsat };

struct Case {
  std::string name;
  Term const* formula;
  Expect expect;
  std::string annotation;
};

struct Solver {
  char const* name;
  char const* command;  // the file name is appended
  // Whether the solver reads a quoted reserved word (|let|, |forall|) at the head of an
  // application or in a declaration as a plain symbol, as it should; z3 4.8 takes it for the
  // keyword there, so those cases are left out for it.
  bool reads_quoted_keywords;
  // Depth of the long shared chains: cvc5 1.0 takes time exponential in the depth of a
  // let-bound chain, so it gets short ones.
  int chain_depth;
};

std::ostream& operator<<(std::ostream& os, Solver const& s) {
  return os << s.name;
}

bool solver_available(char const* name) {
  std::string cmd = std::string("command -v ") + name + " >/dev/null 2>&1";
  return std::system(cmd.c_str()) == 0;
}

// Runs `command` and returns what it wrote to stdout and stderr.
std::string run(std::string const& command) {
  std::string out;
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) {
    return "error: cannot run " + command;
  }
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, pipe)) > 0) {
    out.append(buf, n);
  }
  pclose(pipe);
  return out;
}

// What the solver said about one case.
struct Outcome {
  std::vector<std::string> answers;  // sat / unsat / unknown lines
  std::vector<std::string> errors;   // lines that contain "error"
};

// Splits solver output at the echo lines "case N" (z3 prints them bare, cvc5 in quotes).
std::map<std::size_t, Outcome> parse_output(std::string const& output, std::string* preamble) {
  std::map<std::size_t, Outcome> outcomes;
  std::istringstream in(output);
  std::string line;
  long current = -1;
  while (std::getline(in, line)) {
    std::string bare = line;
    if (bare.size() >= 2 && bare.front() == '"' && bare.back() == '"') {
      bare = bare.substr(1, bare.size() - 2);
    }
    if (bare.rfind("case ", 0) == 0) {
      current = std::stol(bare.substr(5));
      outcomes[static_cast<std::size_t>(current)];
      continue;
    }
    if (current < 0) {
      *preamble += line + "\n";
      continue;
    }
    Outcome& o = outcomes[static_cast<std::size_t>(current)];
    if (line.find("error") != std::string::npos) {
      o.errors.push_back(line);
    } else if (line == "sat" || line == "unsat" || line == "unknown") {
      o.answers.push_back(line);
    } else if (!line.empty()) {
      o.errors.push_back("unexpected output: " + line);
    }
  }
  return outcomes;
}

class SolverAcceptanceTest : public ::testing::TestWithParam<Solver> {
 protected:
  TermManager mgr;
  Configuration config;
  SmtLib2TermPrinter printer{&mgr, &config.printer, "", "", false, nullptr};

  // Everything to declare, in creation order.
  std::vector<DataType const*> sorts_;
  std::vector<Symbol const*> symbols_;
  std::vector<Case> cases_;

  DataType const* boolean = mgr.get_bool_type();
  DataType const* integer = mgr.get_integer_type();
  DataType const* real = mgr.get_rational_type();
  DataType const* bv1 = mgr.get_bv_type(1);
  DataType const* bv4 = mgr.get_bv_type(4);
  DataType const* bv8 = mgr.get_bv_type(8);

  DataType const* sort(std::string const& name) {
    sorts_.push_back(mgr.make_simple_type(name));
    return sorts_.back();
  }
  Symbol const* symbol(std::string const& name, DataType const* type) {
    symbols_.push_back(mgr.make_symbol(name, type));
    return symbols_.back();
  }
  Term const* constant(std::string const& name, DataType const* type) {
    return mgr.make_constant(symbol(name, type));
  }
  Term const* op(char const* name, std::vector<Term const*> const& args,
                 std::vector<std::uint64_t> const& indices = {}) {
    return mgr.make_builtin(name, args, indices);
  }
  Term const* eq(Term const* a, Term const* b) { return mgr.make_equal(a, b); }
  Term const* n_int(char const* v) { return mgr.make_number(v, integer); }
  Term const* n_real(char const* v) { return mgr.make_number(v, real); }
  Term const* n_bv(std::string const& v, std::size_t width) {
    return mgr.make_number(v, mgr.get_bv_type(width));
  }
  Term const* x8(char const* hex) { return n_bv(std::string("#x") + hex, 8); }

  // A valid formula: satisfiable as it stands, unsatisfiable negated. Every third one carries
  // a :named annotation.
  void valid(std::string const& name, Term const* f) {
    std::size_t k = cases_.size();
    std::string note = k % 3 == 0 ? ":named n" + std::to_string(k) : "";
    cases_.push_back({name, f, Expect::kSat, note});
    cases_.push_back({name + " (negated)", mgr.make_not(f), Expect::kUnsat, ""});
  }

  void build_cases();

  std::string declarations() {
    std::ostringstream os;
    for (DataType const* t : sorts_) {
      printer.print_type_declaration(os, t);
    }
    for (Symbol const* s : symbols_) {
      printer.print_symbol_declaration(os, s);
    }
    return os.str();
  }

  // One script with every case between push and pop, introduced by an echo of its number.
  std::string script_of(std::vector<std::size_t> const& which) {
    std::ostringstream os;
    os << "(set-logic ALL)\n" << declarations();
    for (std::size_t k : which) {
      os << "(echo \"case " << k << "\")\n(push 1)\n";
      printer.apitracer_print_term(os, cases_[k].formula, cases_[k].annotation);
      os << "(check-sat)\n(pop 1)\n";
    }
    return os.str();
  }

  // Writes the script beside the test binary (kept for inspection) and runs the solver on it.
  std::string run_script(std::string const& text, std::string const& tag) {
    std::filesystem::path path =
        std::filesystem::path(TVX_BINARY_DIR) / "tests" / "core" /
        ("solver_acceptance_" + std::string(GetParam().name) + "_" + tag + ".smt2");
    {
      std::ofstream f(path);
      f << text;
    }
    return run(std::string(GetParam().command) + " '" + path.string() + "'");
  }
};

void SolverAcceptanceTest::build_cases() {
  Term const* t = mgr.make_true();
  Term const* f = mgr.make_false();
  Term const* p = constant("p", boolean);
  Term const* q = constant("q", boolean);
  Term const* x = constant("x", integer);
  Term const* r = constant("r", real);
  Term const* b = constant("b", bv8);
  Term const* c = constant("c", bv8);

  // --- core ---
  valid("and", eq(mgr.make_and(t, f), f));
  valid("or", eq(mgr.make_or(f, t), t));
  valid("xor", eq(op("xor", {t, t}), f));
  valid("xor3", op("xor", {t, t, t}));
  valid("implies", op("=>", {f, p}));
  valid("implies3 is right-associative", mgr.make_not(op("=>", {t, t, f})));
  valid("ite", eq(mgr.make_ite(t, n_int("1"), n_int("2")), n_int("1")));
  valid("ite over Bool", eq(mgr.make_ite(p, q, f), mgr.make_and(p, q)));
  valid("distinct3", op("distinct", {n_int("1"), n_int("2"), n_int("3")}));
  valid("distinct with repeat", mgr.make_not(op("distinct", {n_int("1"), n_int("2"), n_int("1")})));
  valid("equal3", mgr.make_not(op("=", {n_int("1"), n_int("1"), n_int("2")})));
  valid("equal over Bool", eq(eq(p, p), t));
  valid("excluded middle", mgr.make_or(p, mgr.make_not(p)));

  // --- integers ---
  valid("plus3", eq(op("+", {n_int("2"), n_int("3"), n_int("4")}), n_int("9")));
  valid("minus3", eq(op("-", {n_int("10"), n_int("3"), n_int("2")}), n_int("5")));
  valid("negation", eq(op("-", {n_int("5")}), n_int("-5")));
  valid("negative numeral", eq(op("-", {n_int("0"), n_int("5")}), n_int("-5")));
  valid("times3", eq(op("*", {n_int("2"), n_int("3"), n_int("4")}), n_int("24")));
  valid("negative times", eq(op("*", {n_int("-3"), n_int("-3")}), n_int("9")));
  valid("div", eq(op("div", {n_int("7"), n_int("2")}), n_int("3")));
  valid("div negative dividend", eq(op("div", {n_int("-7"), n_int("2")}), n_int("-4")));
  valid("mod negative dividend", eq(op("mod", {n_int("-7"), n_int("2")}), n_int("1")));
  valid("div negative divisor", eq(op("div", {n_int("7"), n_int("-2")}), n_int("-3")));
  valid("mod negative divisor", eq(op("mod", {n_int("7"), n_int("-2")}), n_int("1")));
  valid("div3 is left-associative",
        eq(op("div", {n_int("20"), n_int("3"), n_int("2")}), n_int("3")));
  valid("abs", eq(op("abs", {n_int("-5")}), n_int("5")));
  valid("lt chain", op("<", {n_int("1"), n_int("2"), n_int("3")}));
  valid("lt chain broken", mgr.make_not(op("<", {n_int("1"), n_int("3"), n_int("2")})));
  valid("le chain", op("<=", {n_int("1"), n_int("1"), n_int("2")}));
  valid("gt chain", op(">", {n_int("3"), n_int("2"), n_int("-1")}));
  valid("ge chain", op(">=", {n_int("3"), n_int("3"), n_int("1")}));
  valid("big numerals", eq(op("+", {n_int("123456789012345678901234567890"), n_int("1")}),
                           n_int("123456789012345678901234567891")));
  valid("linear with variable",
        op("=>", {op(">", {x, n_int("2")}), op(">=", {op("*", {n_int("2"), x}), n_int("6")})}));

  // --- reals ---
  valid("rational equals decimal", eq(n_real("1/2"), n_real("0.5")));
  valid("real division", eq(op("/", {n_real("1"), n_real("2")}), n_real("1/2")));
  valid("thirds", eq(op("+", {n_real("1/3"), n_real("2/3")}), n_real("1")));
  valid("negative rational", eq(op("*", {n_real("-1/2"), n_real("2")}), n_real("-1")));
  valid("negative decimal", eq(n_real("-0.75"), op("-", {n_real("3/4")})));
  valid("decimal", eq(n_real("0.25"), op("/", {n_real("1"), n_real("4")})));
  valid("division3", eq(op("/", {n_real("6"), n_real("4"), n_real("3")}), n_real("1/2")));
  valid("real chain", op("<", {n_real("-1/2"), n_real("0"), n_real("0.25")}));
  valid("real minus", eq(op("-", {n_real("1"), n_real("0.25")}), n_real("3/4")));
  valid("to_real", eq(op("to_real", {n_int("5")}), n_real("5")));
  valid("to_int", eq(op("to_int", {n_real("2.5")}), n_int("2")));
  valid("to_int negative", eq(op("to_int", {n_real("-2.5")}), n_int("-3")));
  valid("is_int", op("is_int", {n_real("2")}));
  valid("is_int half", mgr.make_not(op("is_int", {n_real("1/2")})));
  valid("real with variable",
        op("=>", {op(">", {r, n_real("1/2")}), op(">", {op("*", {n_real("2"), r}), n_real("1")})}));
  valid("mixed via to_real", op("=>", {eq(x, n_int("3")), eq(op("to_real", {x}), n_real("3"))}));

  // --- bit-vectors ---
  valid("bvadd3", eq(op("bvadd", {x8("01"), x8("02"), x8("03")}), x8("06")));
  valid("bvsub", eq(op("bvsub", {x8("00"), x8("01")}), x8("ff")));
  valid("bvneg", eq(op("bvneg", {x8("01")}), x8("ff")));
  valid("bvmul", eq(op("bvmul", {x8("10"), x8("10")}), x8("00")));
  valid("bvnot", eq(op("bvnot", {x8("0f")}), x8("f0")));
  valid("bvand", eq(op("bvand", {x8("0f"), x8("3c")}), x8("0c")));
  valid("bvor", eq(op("bvor", {x8("0f"), x8("30")}), x8("3f")));
  valid("bvxor", eq(op("bvxor", {x8("ff"), x8("0f")}), x8("f0")));
  valid("bvnand", eq(op("bvnand", {x8("0f"), x8("3c")}), x8("f3")));
  valid("bvnor", eq(op("bvnor", {x8("0f"), x8("30")}), x8("c0")));
  valid("bvxnor", eq(op("bvxnor", {x8("ff"), x8("0f")}), x8("0f")));
  valid("bvcomp equal", eq(op("bvcomp", {x8("ab"), x8("ab")}), n_bv("#b1", 1)));
  valid("bvcomp different", eq(op("bvcomp", {x8("ab"), x8("ac")}), n_bv("0", 1)));
  valid("bvudiv", eq(op("bvudiv", {x8("07"), x8("02")}), x8("03")));
  valid("bvudiv by zero", eq(op("bvudiv", {x8("07"), x8("00")}), x8("ff")));
  valid("bvurem", eq(op("bvurem", {x8("07"), x8("02")}), x8("01")));
  valid("bvurem by zero", eq(op("bvurem", {x8("07"), x8("00")}), x8("07")));
  valid("bvsdiv", eq(op("bvsdiv", {x8("f9"), x8("02")}), x8("fd")));
  valid("bvsrem", eq(op("bvsrem", {x8("f9"), x8("02")}), x8("ff")));
  valid("bvsmod", eq(op("bvsmod", {x8("f9"), x8("02")}), x8("01")));
  valid("bvsmod negative divisor", eq(op("bvsmod", {x8("07"), x8("fe")}), x8("ff")));
  valid("bvshl", eq(op("bvshl", {x8("01"), x8("03")}), x8("08")));
  valid("bvshl out", eq(op("bvshl", {x8("01"), x8("09")}), x8("00")));
  valid("bvlshr", eq(op("bvlshr", {x8("80"), x8("07")}), x8("01")));
  valid("bvashr", eq(op("bvashr", {x8("80"), x8("07")}), x8("ff")));
  valid("bvult", op("bvult", {x8("00"), x8("ff")}));
  valid("bvult false", mgr.make_not(op("bvult", {x8("ff"), x8("00")})));
  valid("bvule", op("bvule", {x8("05"), x8("05")}));
  valid("bvugt", op("bvugt", {x8("ff"), x8("00")}));
  valid("bvuge", op("bvuge", {x8("05"), x8("05")}));
  valid("bvslt", op("bvslt", {x8("ff"), x8("00")}));
  valid("bvsle", op("bvsle", {x8("80"), x8("7f")}));
  valid("bvsgt", op("bvsgt", {x8("7f"), x8("80")}));
  valid("bvsge", op("bvsge", {x8("00"), x8("ff")}));
  valid("concat", eq(op("concat", {n_bv("#xa", 4), n_bv("#xb", 4)}), x8("ab")));
  valid("extract", eq(op("extract", {x8("ab")}, {7, 4}), n_bv("#xa", 4)));
  valid("extract bit", eq(op("extract", {x8("01")}, {0, 0}), n_bv("#b1", 1)));
  valid("zero_extend", eq(op("zero_extend", {n_bv("#xa", 4)}, {4}), x8("0a")));
  valid("sign_extend", eq(op("sign_extend", {n_bv("#xa", 4)}, {4}), x8("fa")));
  valid("repeat", eq(op("repeat", {n_bv("#xa", 4)}, {2}), x8("aa")));
  valid("rotate_left", eq(op("rotate_left", {x8("ab")}, {4}), x8("ba")));
  valid("rotate_left 1", eq(op("rotate_left", {x8("81")}, {1}), x8("03")));
  valid("rotate_left past width", eq(op("rotate_left", {x8("81")}, {9}), x8("03")));
  valid("rotate_right", eq(op("rotate_right", {x8("81")}, {1}), x8("c0")));
  valid("decimal bit-vector", eq(n_bv("171", 8), x8("ab")));
  valid("bv variables", eq(op("bvsub", {op("bvadd", {b, c}), c}), b));
  valid("bv ite",
        eq(mgr.make_ite(op("bvult", {b, c}), b, c), mgr.make_ite(op("bvuge", {b, c}), c, b)));
  // wide bit-vectors
  std::string ones100 = "1267650600228229401496703205375";  // 2^100 - 1
  valid("wide wrap-around", eq(op("bvadd", {n_bv(ones100, 100), n_bv("1", 100)}), n_bv("0", 100)));
  valid("wide not", eq(op("bvnot", {n_bv("0", 100)}), n_bv("#x" + std::string(25, 'f'), 100)));
  valid("wide extract", eq(op("extract", {n_bv(ones100, 100)}, {99, 96}), n_bv("#xf", 4)));
  valid("128-bit product",
        eq(op("bvmul", {n_bv("18446744073709551615", 128), n_bv("18446744073709551615", 128)}),
           n_bv("340282366920938463426481119284349108225", 128)));
  valid("128-bit overflow",
        eq(op("bvmul", {n_bv("18446744073709551616", 128), n_bv("18446744073709551616", 128)}),
           n_bv("0", 128)));

  // --- arrays ---
  Term const* a = constant("a", mgr.get_array_type(integer, integer));
  valid("select of store",
        eq(op("select", {op("store", {a, n_int("1"), n_int("5")}), n_int("1")}), n_int("5")));
  valid("select past store",
        eq(op("select",
              {op("store", {op("store", {a, n_int("1"), n_int("5")}), n_int("2"), n_int("6")}),
               n_int("1")}),
           n_int("5")));
  Term const* ab = constant("ab", mgr.get_array_type(bv4, bv8));
  valid("array of bit-vectors",
        eq(op("select", {op("store", {ab, n_bv("#x1", 4), x8("ab")}), n_bv("#x1", 4)}), x8("ab")));
  valid("store of own select",
        eq(op("store", {ab, n_bv("#x1", 4), op("select", {ab, n_bv("#x1", 4)})}), ab));
  Term const* aa =
      constant("aa", mgr.get_array_type(integer, mgr.get_array_type(integer, boolean)));
  Term const* inner = op("store", {op("select", {aa, n_int("0")}), n_int("1"), t});
  valid(
      "array of arrays",
      op("select", {op("select", {op("store", {aa, n_int("0"), inner}), n_int("0")}), n_int("1")}));

  // --- uninterpreted sorts and functions, quoted names ---
  DataType const* u = sort("U");
  DataType const* odd = sort("a sort");
  DataType const* reserved = sort("par");
  Term const* u1 = constant("u1", u);
  Term const* u2 = constant("u2", u);
  Symbol const* fu = symbol("f", mgr.get_function_type({u, integer}, boolean));
  Symbol const* g = symbol("g", mgr.get_function_type({u}, u));
  valid("congruence", op("=>", {eq(u1, u2), eq(mgr.make_term(fu, {u1, n_int("3")}),
                                               mgr.make_term(fu, {u2, n_int("3")}))}));
  valid("fixpoint", op("=>", {eq(mgr.make_term(g, {u1}), u1),
                              eq(mgr.make_term(g, {mgr.make_term(g, {u1})}), u1)}));
  valid("ite over U", eq(mgr.make_ite(p, u1, u2), mgr.make_ite(mgr.make_not(p), u2, u1)));
  Term const* d = constant("d", mgr.get_array_type(u, u));
  valid("array over U", eq(op("select", {op("store", {d, u1, u2}), u1}), u2));

  Term const* q_assert = constant("assert", integer);
  Term const* q_empty = constant("", integer);
  Term const* q_00 = constant("0_0", odd);
  Term const* q_space = constant("x y", boolean);
  Term const* q_check = constant("check-sat", boolean);
  Term const* q_paren = constant("(p)", reserved);
  Term const* q_let_name = constant("let", reserved);
  Symbol const* q_let = symbol("let f", mgr.get_function_type({odd, reserved}, integer));
  Symbol const* q_forall = symbol(GetParam().reads_quoted_keywords ? "forall" : "for all",
                                  mgr.get_function_type({integer}, odd));
  valid("quoted names commute", eq(op("+", {q_assert, q_empty}), op("+", {q_empty, q_assert})));
  valid("quoted function",
        eq(mgr.make_term(q_let, {q_00, q_paren}), mgr.make_term(q_let, {q_00, q_paren})));
  valid("quoted Bool", mgr.make_or(q_check, mgr.make_not(q_check)));
  if (GetParam().reads_quoted_keywords) {
    Symbol const* kw_let = symbol("match", mgr.get_function_type({integer}, integer));
    Symbol const* kw_bang = symbol("!", mgr.get_function_type({integer}, integer));
    Symbol const* kw_under = symbol("_", mgr.get_function_type({integer}, integer));
    Term const* kw_as = constant("as", integer);
    valid("reserved words as function names",
          op("=>",
             {eq(q_assert, kw_as),
              eq(op("+", {mgr.make_term(kw_let, {q_assert}), mgr.make_term(kw_bang, {kw_as}),
                          mgr.make_term(kw_under, {q_empty})}),
                 op("+", {mgr.make_term(kw_under, {q_empty}), mgr.make_term(kw_bang, {q_assert}),
                          mgr.make_term(kw_let, {kw_as})}))}));
  }
  valid("quoted implication", op("=>", {mgr.make_and(q_space, q_check), q_space}));
  valid("quoted sorts",
        op("=>", {eq(q_paren, q_let_name), eq(mgr.make_term(q_let, {q_00, q_paren}),
                                              mgr.make_term(q_let, {q_00, q_let_name}))}));
  valid("quoted result sort",
        op("=>", {eq(q_assert, q_empty),
                  eq(mgr.make_term(q_forall, {q_assert}), mgr.make_term(q_forall, {q_empty}))}));

  // --- sharing ---
  // Nested lets: s1 inside s2, both shared.
  Term const* s1 = op("bvadd", {b, c});
  Term const* s2 = op("bvmul", {s1, s1});
  valid("nested lets", eq(op("bvadd", {s2, s2}), op("bvshl", {s2, x8("01")})));
  // User symbols named like let names, inside shared terms: with _let_1 = 3, s = _let_1 + 1
  // = 4 and v = s * _let_1 = 12, so v + v = 24. A let name that shadows the user's _let_1
  // changes the value.
  std::vector<Term const*> lets;
  for (int k = 0; k <= 4; ++k) {
    lets.push_back(constant("_let_" + std::to_string(k), integer));
  }
  Term const* sl = op("+", {lets[1], n_int("1")});
  Term const* vl = op("*", {sl, lets[1]});
  valid("let names avoid user names",
        op("=>", {mgr.make_and(eq(lets[1], n_int("3")), eq(lets[2], sl)),
                  eq(op("+", {vl, vl, op("*", {lets[2], lets[0]}), op("*", {lets[0], lets[2]})}),
                     op("+", {n_int("24"), op("*", {n_int("2"), lets[0], n_int("4")})}))}));
  int const depth = GetParam().chain_depth;
  // 10 doublings of b: 2^10 * b is 0 modulo 2^8.
  Term const* dbl = b;
  for (int k = 0; k < 10; ++k) {
    dbl = op("bvadd", {dbl, dbl});
  }
  valid("doubling chain", eq(dbl, x8("00")));
  // Doublings of 5: 2^depth * 5 is 0 modulo 2^8 from 8 doublings on.
  Term const* dbl5 = x8("05");
  for (int k = 0; k < depth; ++k) {
    dbl5 = op("bvadd", {dbl5, dbl5});
  }
  valid("long doubling chain", eq(dbl5, x8("00")));
  // Squarings of 3: 3^(2^depth) is 1 modulo 2^8 from 6 squarings on.
  Term const* sq = x8("03");
  for (int k = 0; k < depth; ++k) {
    sq = op("bvmul", {sq, sq});
  }
  valid("squaring chain", eq(sq, x8("01")));
  // Fibonacci numbers as a DAG whose tree is exponential: F(1) = F(2) = 1, ...
  Term const* prev = n_int("0");
  Term const* cur = n_int("1");
  std::uint64_t fib_prev = 0;
  std::uint64_t fib_cur = 1;
  for (int k = 0; k < std::min(depth, 80); ++k) {
    Term const* next = op("+", {cur, prev});
    prev = cur;
    cur = next;
    std::uint64_t fib_next = fib_cur + fib_prev;
    fib_prev = fib_cur;
    fib_cur = fib_next;
  }
  valid("fibonacci dag", eq(cur, n_int(std::to_string(fib_cur).c_str())));
  // A deep term without sharing.
  Term const* deep = p;
  for (int k = 0; k < 2000; ++k) {
    deep = mgr.make_not(deep);
  }
  valid("deep negations", eq(deep, p));
}

TEST_P(SolverAcceptanceTest, EveryOperatorIsAcceptedAndMeansWhatItShould) {
  if (!solver_available(GetParam().name)) {
    GTEST_SKIP() << GetParam().name << " is not installed";
  }
  ASSERT_NO_THROW(build_cases());
  std::vector<std::size_t> all;
  for (std::size_t k = 0; k < cases_.size(); ++k) {
    all.push_back(k);
  }
  std::string text = script_of(all);
  std::string preamble;
  std::map<std::size_t, Outcome> outcomes = parse_output(run_script(text, "all"), &preamble);
  EXPECT_EQ(preamble, "") << "errors in the declarations:\n" << declarations();

  // A solver that stops at its first error leaves later cases unanswered: run those alone.
  std::vector<std::size_t> unanswered;
  for (std::size_t k = 0; k < cases_.size(); ++k) {
    auto it = outcomes.find(k);
    if (it == outcomes.end() || (it->second.answers.empty() && it->second.errors.empty())) {
      unanswered.push_back(k);
    }
  }
  if (!unanswered.empty() && unanswered.size() < cases_.size()) {
    for (std::size_t k : unanswered) {
      std::string alone;
      std::map<std::size_t, Outcome> o =
          parse_output(run_script(script_of({k}), "case" + std::to_string(k)), &alone);
      outcomes[k] = o[k];
    }
  }

  for (std::size_t k = 0; k < cases_.size(); ++k) {
    Case const& c = cases_[k];
    Outcome const& o = outcomes[k];
    std::ostringstream printed;
    printer.apitracer_print_term(printed, c.formula, c.annotation);
    std::string shown =
        printed.str().size() > 600 ? printed.str().substr(0, 600) + "..." : printed.str();
    for (std::string const& e : o.errors) {
      ADD_FAILURE() << GetParam().name << ", case " << k << " \"" << c.name << "\": " << e
                    << "\n  printed: " << shown;
    }
    if (!o.errors.empty()) {
      continue;
    }
    std::string expected = c.expect == Expect::kSat ? "sat" : "unsat";
    if (o.answers.size() != 1 || o.answers[0] != expected) {
      ADD_FAILURE() << GetParam().name << ", case " << k << " \"" << c.name << "\": expected "
                    << expected << ", got "
                    << (o.answers.empty() ? std::string("nothing") : o.answers[0])
                    << "\n  printed: " << shown;
    }
  }
}

TEST_P(SolverAcceptanceTest, AllValidAssertionsTogetherAreSatisfiable) {
  if (!solver_available(GetParam().name)) {
    GTEST_SKIP() << GetParam().name << " is not installed";
  }
  ASSERT_NO_THROW(build_cases());
  std::ostringstream os;
  os << "(set-logic ALL)\n" << declarations();
  for (Case const& c : cases_) {
    if (c.expect == Expect::kSat) {
      printer.apitracer_print_term(os, c.formula, c.annotation);
    }
  }
  os << "(check-sat)\n";
  std::string out = run_script(os.str(), "together");
  EXPECT_EQ(out, "sat\n");
}

INSTANTIATE_TEST_SUITE_P(
    Solvers, SolverAcceptanceTest,
    ::testing::Values(Solver{"z3", "ulimit -v 4000000; timeout 120 z3 -smt2 -T:100", false, 1000},
                      Solver{"cvc5",
                             "ulimit -v 4000000; timeout 120 cvc5 --lang=smt2 "
                             "--incremental --tlimit=100000",
                             true, 16}),
    [](::testing::TestParamInfo<Solver> const& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace tvx
