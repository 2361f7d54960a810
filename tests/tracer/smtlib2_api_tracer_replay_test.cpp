// Replays traces of whole API sessions with real SMT solvers: a trace must be a script that
// they accept without an error, and their check answers must be the ones the session implies.
#include "tracer/smtlib2_api_tracer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "core/configuration.h"
#include "core/term_manager.h"

namespace tvx {
namespace {

bool have_program(std::string const& name) {
  std::string const command = "command -v " + name + " >/dev/null 2>&1";
  return std::system(command.c_str()) == 0;
}

// Runs a shell command and returns what it wrote to standard output and standard error.
std::string run(std::string const& command) {
  std::string output;
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) {
    return "(error \"could not start " + command + "\")";
  }
  char chunk[4096];
  std::size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, pipe)) > 0) {
    output.append(chunk, n);
  }
  pclose(pipe);
  return output;
}

// The answers to check-sat and check-sat-assuming, in order.
std::vector<std::string> answers(std::string const& output) {
  std::vector<std::string> result;
  std::istringstream in(output);
  std::string line;
  while (std::getline(in, line)) {
    if (line == "sat" || line == "unsat" || line == "unknown") {
      result.push_back(line);
    }
  }
  return result;
}

std::string replace_all(std::string text, std::string const& from, std::string const& to) {
  for (std::size_t pos = text.find(from); pos != std::string::npos;
       pos = text.find(from, pos + to.size())) {
    text.replace(pos, from.size(), to);
  }
  return text;
}

// One API session: declarations reported by the environment and found in terms, nested
// backtrack points with a symbol that is needed again after its scope was popped, shared
// subterms, checks under assumptions, model queries and a reset of the assertions.
// Returns the answers that its checks must get.
std::vector<std::string> run_session(ApiTracer& t, TermManager& m) {
  DataType const* u = m.make_simple_type("U");
  DataType const* int_type = m.get_integer_type();
  Symbol const* xs = m.make_symbol("x", u);
  Symbol const* ys = m.make_symbol("y", u);
  Symbol const* fs = m.make_symbol("f", m.get_function_type({u}, u));
  Symbol const* hs = m.make_symbol("h", m.get_function_type({u, u}, u));
  Symbol const* ps = m.make_symbol("p", m.get_bool_type());
  Symbol const* ns = m.make_symbol("n", int_type);
  Symbol const* zs = m.make_symbol("z", u);
  Symbol const* ws = m.make_symbol("w", int_type);

  t.trace_type_declaration(u);
  t.trace_symbol_declaration(xs);
  Term const* x = m.make_constant(xs);
  Term const* y = m.make_constant(ys);
  Term const* xy = m.make_equal(x, y);
  t.trace_assert_formula(m.make_not(xy));

  // Shared subterms: f(x) and f(f(x)) occur twice each.
  Term const* fx = m.make_term(fs, {x});
  Term const* ffx = m.make_term(fs, {fx});
  t.trace_assert_formula(m.make_or(m.make_equal(ffx, x), m.make_equal(ffx, fx)));
  // 2^30 paths through 31 distinct terms.
  Term const* c = x;
  for (int i = 0; i < 30; ++i) {
    c = m.make_term(hs, {c, c});
  }
  t.trace_assert_formula(m.make_equal(c, y));
  t.trace_check();

  t.trace_push_backtrack_point();
  Term const* z = m.make_constant(zs);
  t.trace_assert_formula(m.make_equal(x, z));
  t.trace_assert_formula(m.make_equal(y, z));
  t.trace_check();
  t.trace_pop_backtrack_point();

  t.trace_push_backtrack_point();
  Term const* fz = m.make_term(fs, {z});
  t.trace_assert_formula(m.make_equal(fz, y));  // z is needed again after its pop
  t.trace_check();
  t.trace_get_model_value(fz);
  t.trace_pop_backtrack_point();

  Term const* p = m.make_constant(ps);
  t.trace_check_with_assumptions({TheoryLit(p, false), TheoryLit(xy, true)});
  t.trace_check_with_assumptions({TheoryLit(xy, false)});

  Term const* n = m.make_constant(ns);
  Term const* sum = m.make_builtin("+", {n, m.make_number("1", int_type)});
  t.trace_assert_formula(m.make_builtin(">", {sum, m.make_number("-3", int_type)}));
  t.trace_check();
  t.trace_get_model();
  t.trace_get_model_value(n);
  t.trace_get_model_value(sum);

  t.trace_reset_assertions();
  Term const* w = m.make_constant(ws);
  t.trace_assert_formula(m.make_equal(w, m.make_number("5", int_type)));
  t.trace_check();
  t.trace_get_model_value(w);

  return {"sat", "unsat", "sat", "sat", "unsat", "sat", "sat"};
}

class ReplayTest : public ::testing::Test {
 protected:
  // Writes the trace of one session to a file; returns the file's name.
  std::string write_trace(std::string const& name, bool global_decls,
                          std::string const& defines_prefix = "") {
    Configuration config;
    config.printer.defines_prefix = defines_prefix;
    TermManager mgr;
    std::string const path = ::testing::TempDir() + "tvx_replay_" + name + ".smt2";
    std::ofstream file(path);
    {
      SmtLib2ApiTracer tracer(&config, &mgr, file, global_decls, false);
      expected_ = run_session(tracer, mgr);
    }
    return path;
  }

  static std::string read(std::string const& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }

  void expect_replays(std::string const& command, std::string const& path) {
    std::string const output = run(command + " " + path);
    EXPECT_EQ(std::string::npos, output.find("(error")) << command << " rejected the trace:\n"
                                                        << output << "\ntrace:\n"
                                                        << read(path);
    EXPECT_EQ(expected_, answers(output)) << output;
  }

  std::vector<std::string> expected_;
};

constexpr char kZ3[] = "z3 -smt2";
constexpr char kCvc5[] = "cvc5 --lang=smt2 --incremental --produce-models";

TEST_F(ReplayTest, Z3AcceptsScopedTrace) {
  if (!have_program("z3")) {
    GTEST_SKIP() << "z3 is not installed";
  }
  expect_replays(kZ3, write_trace("z3_scoped", false));
}

TEST_F(ReplayTest, Z3AcceptsGlobalTrace) {
  if (!have_program("z3")) {
    GTEST_SKIP() << "z3 is not installed";
  }
  expect_replays(kZ3, write_trace("z3_global", true));
}

TEST_F(ReplayTest, Z3AcceptsGlobalTraceWithPrefix) {
  if (!have_program("z3")) {
    GTEST_SKIP() << "z3 is not installed";
  }
  expect_replays(kZ3, write_trace("z3_global_prefix", true, "d_"));
}

TEST_F(ReplayTest, Cvc5AcceptsScopedTrace) {
  if (!have_program("cvc5")) {
    GTEST_SKIP() << "cvc5 is not installed";
  }
  expect_replays(kCvc5, write_trace("cvc5_scoped", false));
}

TEST_F(ReplayTest, Cvc5AcceptsGlobalTraceUnderItsOptionName) {
  // cvc5 reserves symbols that start with "." and names the option :global-declarations, so
  // the trace uses a plain label prefix and the copy spells the option its way.
  if (!have_program("cvc5")) {
    GTEST_SKIP() << "cvc5 is not installed";
  }
  std::string const path = write_trace("cvc5_global", true, "d_");
  std::string const text = read(path);
  ASSERT_NE(std::string::npos, text.find("(set-option :global-decls true)\n"));
  std::string const copy = path + ".cvc5.smt2";
  std::ofstream(copy) << replace_all(text, ":global-decls", ":global-declarations");
  expect_replays(kCvc5, copy);
}

}  // namespace
}  // namespace tvx
