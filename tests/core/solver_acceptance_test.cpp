// Replays printer output on real solvers. Facts over every theory's operators, quoted names and
// let-bound sharing are written through SmtLib2TermPrinter; z3 and cvc5 must read the script
// without an error, find each fact's negation unsatisfiable and all facts together satisfiable,
// so the printed text also means what the terms mean.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/core/term_printer.h>

namespace tvx {
namespace {

// The command runs the script file named after it; cvc5 takes time exponential in the depth of a
// let-bound chain, so it gets a shorter one.
struct Solver {
  char const *name, *command;
  int chain_depth;
};

class SolverAcceptanceTest : public ::testing::TestWithParam<Solver> {
 protected:
  Term const* constant(std::string const& name, DataType const* type) {
    symbols_.push_back(mgr.make_symbol(name, type));
    return mgr.make_constant(symbols_.back());
  }
  Term const* op(char const* name, std::vector<Term const*> const& args,
                 std::vector<std::uint64_t> const& indices = {}) {
    return mgr.make_builtin(name, args, indices);
  }
  // A token of a fact: true, false, a bit-vector #x... or #b... as wide as its digits, a real
  // numeral with the suffix r, else an integer numeral.
  Term const* atom(std::string const& s) {
    if (s == "true" || s == "false")
      return s == "true" ? mgr.make_true() : mgr.make_false();
    if (s[0] == '#')
      return mgr.make_number(s, mgr.get_bv_type((s.size() - 2) * (s[1] == 'x' ? 4 : 1)));
    bool const real = s.back() == 'r';
    return mgr.make_number(real ? s.substr(0, s.size() - 1) : s,
                           real ? mgr.get_rational_type() : mgr.get_integer_type());
  }
  Term const* fact(std::string const& text) {
    std::istringstream in(text);
    std::string head, token;
    in >> head;
    std::vector<std::uint64_t> indices;
    for (std::size_t at = head.find(':'); at != std::string::npos; at = head.find(':', at + 1))
      indices.push_back(std::stoull(head.substr(at + 1)));
    std::vector<Term const*> args;
    while (in >> token && token != "=")
      args.push_back(atom(token));
    Term const* applied = op(head.substr(0, head.find(':')).c_str(), args, indices);
    return in >> token ? op("=", {applied, atom(token)}) : applied;
  }

  TermManager mgr;
  Configuration config;
  SmtLib2TermPrinter printer{&mgr, &config.printer, "", "", false, nullptr};
  std::vector<Symbol const*> symbols_;
};

TEST_P(SolverAcceptanceTest, EveryOperatorIsReadAndMeansWhatItShould) {
  DataType const* I = mgr.get_integer_type();
  DataType const* B8 = mgr.get_bv_type(8);
  Term const* x = constant("x", I);
  Term const* b = constant("b", B8);
  std::vector<std::pair<std::string, Term const*>> facts;  // name, valid formula
  // "operator[:index...] argument... [= value]": the fact is (= (op args) value), or (op args)
  // without a value. Rows end in ";".
  std::istringstream rows(R"(
and true false = false; or false true = true; xor true true true; => true true false = false;
not false; ite false 1 2 = 2; distinct 1 2 1 = false; = true true false = false;
+ 2 3 -4 = 1; - 10 3 2 = 5; - 5 = -5; * -3 -3 = 9; div -7 2 = -4; mod 7 -2 = 1; abs -5 = 5;
< 1 3 2 = false; <= 1 1 2; > 3 2 -1; >= 3 3; / 6r 4r 3r = 1/2r; + 1/3r -0.25r = 1/12r;
to_real 5 = 5r; to_int -2.5r = -3; is_int 1/2r = false; bvadd #xff #x02 #x01 = #x02;
bvsub #x00 #x01 = #xff; bvneg #x01 = #xff; bvmul #x10 #x10 = #x00; bvnot #x0f = #xf0;
bvand #x0f #x3c = #x0c; bvor #x0f #x30 = #x3f; bvxor #xff #x0f = #xf0;
bvnand #x0f #x3c = #xf3; bvnor #x0f #x30 = #xc0; bvxnor #xff #x0f = #x0f;
bvcomp #xab #xac = #b0; bvudiv #x07 #x00 = #xff; bvurem #x07 #x02 = #x01;
bvsdiv #xf9 #x02 = #xfd; bvsrem #xf9 #x02 = #xff; bvsmod #x07 #xfe = #xff;
bvshl #x01 #x03 = #x08; bvlshr #x80 #x07 = #x01; bvashr #x80 #x07 = #xff; bvult #x00 #xff;
bvule #x05 #x05; bvugt #x00 #xff = false; bvuge #x05 #x05; bvslt #xff #x00; bvsle #x80 #x7f;
bvsgt #x7f #x80; bvsge #x00 #xff; concat #xa #xb = #xab; extract:7:4 #xab = #xa;
zero_extend:4 #xa = #x0a; sign_extend:4 #xa = #xfa; repeat:2 #xa = #xaa;
rotate_left:9 #x81 = #x03; rotate_right:1 #x81 = #xc0;
bvnot #x0000000000000000000000000 = #xfffffffffffffffffffffffff)");
  for (std::string row; std::getline(rows, row, ';');)
    facts.emplace_back(row, fact(row));
  Term const* a = constant("a", mgr.get_array_type(I, B8));
  facts.emplace_back("select/store", op("=", {op("select", {op("store", {a, x, b}), x}), b}));
  // Quoted sort and symbol names, and user names that look like let names.
  DataType const* odd = mgr.make_simple_type("a sort");
  Term const* q1 = constant("assert", odd);
  Term const* q2 = constant("", odd);
  Symbol const* g = mgr.make_symbol("0_0 f", mgr.get_function_type({odd, I}, odd));
  symbols_.push_back(g);
  facts.emplace_back("quoted names",
                     op("=>", {op("=", {q1, q2}),
                               op("=", {mgr.make_term(g, {q1, x}), mgr.make_term(g, {q2, x})})}));
  Term const* let1 = constant("_let_1", I);
  Term const* s = op("+", {let1, atom("1")});
  Term const* v = op("*", {s, let1});
  facts.emplace_back(
      "let names", op("=>", {op("=", {let1, atom("3")}), op("=", {op("+", {v, v}), atom("24")})}));
  Term const* dbl = atom("#x05");  // 2^k * 5 is 0 modulo 2^8 from k = 8 on
  for (int k = 0; k < GetParam().chain_depth; ++k)
    dbl = op("bvadd", {dbl, op("bvmul", {dbl, atom("#x01")})});
  facts.emplace_back("sharing chain", op("=", {dbl, atom("#x00")}));

  std::ostringstream script;
  script << "(set-logic ALL)\n";
  printer.print_type_declaration(script, odd);
  for (Symbol const* sym : symbols_)
    printer.print_symbol_declaration(script, sym);
  for (auto const& [name, fact] : facts) {
    script << "(push 1)\n";
    printer.apitracer_print_term(script, mgr.make_not(fact), "");
    script << "(check-sat)\n(pop 1)\n";
  }
  for (std::size_t k = 0; k < facts.size(); ++k)
    printer.apitracer_print_term(script, facts[k].second, ":named f" + std::to_string(k));
  script << "(check-sat)\n";
  std::string const path =
      std::string(TVX_BINARY_DIR) + "/tests/core/solver_acceptance_" + GetParam().name + ".smt2";
  std::ofstream(path) << script.str();
  std::string const command = GetParam().command + (" '" + path + "' >'" + path + ".out' 2>&1");
  ASSERT_NE(std::system(command.c_str()), -1);
  std::ifstream got(path + ".out");  // an error line shifts the answers after it
  for (std::size_t k = 0; k <= facts.size(); ++k) {
    std::string line;
    std::getline(got, line);
    EXPECT_EQ(line, k < facts.size() ? "unsat" : "sat")
        << (k < facts.size() ? facts[k].first : "all");
  }
  EXPECT_EQ(got.peek(), EOF) << "see " << path << ".out";
}

INSTANTIATE_TEST_SUITE_P(
    Solvers, SolverAcceptanceTest,
    ::testing::Values(Solver{"z3", "ulimit -v 4000000; timeout 120 z3 -smt2 -T:100", 1000},
                      Solver{"cvc5", "ulimit -v 4000000; timeout 120 cvc5 --incremental", 16}),
    [](::testing::TestParamInfo<Solver> const& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace tvx
