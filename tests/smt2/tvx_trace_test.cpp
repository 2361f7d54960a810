// The tvx-trace program: exit status 0, 1 or 2, standard input or a file, -o, help and options,
// an input error that keeps the trace written before it, and a script answered through an
// engine with --solver, whose trace replays to the same answers.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr char const* kScript =
    "(set-logic QF_UF)\n(declare-fun p () Bool)\n(assert (not p))\n(check-sat)\n";
constexpr char const* kTrace = "(declare-fun p () Bool)\n(assert (not p))\n(check-sat)\n";

class TvxTraceTest : public ::testing::Test {
 protected:
  TvxTraceTest() : tmp_(mkdtemp(tmpl_) ? tmpl_ : "") {}
  ~TvxTraceTest() override { std::system(("rm -rf '" + tmp_ + "'").c_str()); }

  static std::string slurp(std::string const& path) {
    std::ostringstream ss;
    ss << std::ifstream(path, std::ios::binary).rdbuf();
    return ss.str();
  }

  std::string write(std::string const& name, std::string const& text) {
    std::ofstream(tmp_ + "/" + name, std::ios::binary) << text;
    return "'" + tmp_ + "/" + name + "'";
  }

  // Runs the tool with `args` (shell words) and `input` on standard input; keeps its output and
  // returns its exit status.
  int run(std::string const& args, std::string const& input = kScript) {
    std::string const cmd = std::string("'") + TVX_BINARY_DIR + "/tools/tvx-trace' " + args + " <" +
                            write("stdin", input) + " >'" + tmp_ + "/out' 2>'" + tmp_ + "/err'";
    int const raw = std::system(cmd.c_str());
    out_ = slurp(tmp_ + "/out");
    err_ = slurp(tmp_ + "/err");
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  }
  bool out_has(std::string const& part) const { return out_.find(part) != std::string::npos; }

  char tmpl_[27] = "/tmp/tvx_trace_test_XXXXXX";
  std::string tmp_, out_, err_;
};

TEST_F(TvxTraceTest, HelpAndUsageErrors) {
  EXPECT_EQ(run("--help"), 0);
  EXPECT_EQ(out_.rfind("usage: tvx-trace", 0), 0u) << out_;
  for (char const* args : {"--bogus", "--set", "--set no_equals_sign", "--set no.such.key=1",
                           "--set api_call_trace=notanumber", "-o", "a.smt2 b.smt2"}) {
    EXPECT_EQ(run(args), 2) << args;
    EXPECT_EQ(err_.rfind("tvx-trace: error: ", 0), 0u) << args << ": " << err_;
    EXPECT_EQ(out_, "") << args;
  }
}

TEST_F(TvxTraceTest, InputsOutputsAndOptions) {
  for (char const* args : {"", "-"}) {
    EXPECT_EQ(run(args), 0) << err_;
    EXPECT_EQ(out_.rfind(";; Tarvex API call trace\n", 0), 0u) << out_;
    EXPECT_EQ(out_.substr(out_.size() - std::string(kTrace).size()), kTrace) << out_;
  }
  EXPECT_EQ(run("-o '" + tmp_ + "/trace.smt2' " + write("in.smt2", kScript), ""), 0) << err_;
  EXPECT_EQ(out_, "");
  EXPECT_NE(slurp(tmp_ + "/trace.smt2").find(kTrace), std::string::npos);
  EXPECT_EQ(run("'" + tmp_ + "/missing.smt2'"), 1);
  EXPECT_NE(err_.find("cannot open"), std::string::npos) << err_;
  EXPECT_EQ(run("--global-decls --set printer.defines_prefix=d_"), 0) << err_;
  EXPECT_TRUE(out_has("(set-option :global-decls true)\n") && out_has("(assert d_")) << out_;
  EXPECT_EQ(run("--dump-config --set=printer.defines_prefix=d_"), 0) << err_;
  EXPECT_TRUE(out_has("(set-option :config \"printer.defines_prefix=d_\")\n")) << out_;
  EXPECT_FALSE(out_has(":global-decls")) << out_;
}

// An input error: its position on standard error, status 1, and the trace of every command
// before it, in the output file as on standard output.
TEST_F(TvxTraceTest, InputErrorKeepsTheTraceUpToIt) {
  std::string const bad = "(declare-fun p () Bool)\n(check-sat)\n(assert (and p q))\n(check-sat)\n";
  EXPECT_EQ(run("-o '" + tmp_ + "/trace.smt2' " + write("bad.smt2", bad)), 1);
  EXPECT_EQ(err_, tmp_ + "/bad.smt2:3:16: error: unknown symbol 'q'\n");
  std::string const trace = slurp(tmp_ + "/trace.smt2");
  EXPECT_EQ(trace.substr(trace.find("(declare")), "(declare-fun p () Bool)\n(check-sat)\n");
  EXPECT_EQ(run("", "(check-sat)\n(pop 1)\n"), 1);
  EXPECT_EQ(err_.rfind("<stdin>:2:6: error: ", 0), 0u) << err_;
  EXPECT_EQ(out_.substr(out_.size() - 12), "(check-sat)\n");
}

// With --solver the responses go to standard output and the trace to --trace; an error ends
// the session with an error response, and a feature the engine lacks is answered unsupported.
TEST_F(TvxTraceTest, SolverAnswersAndTracesTheSession) {
  if (std::system("command -v z3 >/dev/null") != 0) {
    GTEST_SKIP() << "needs z3 on the path to replay the trace";
  }
  std::string const script =
      "(set-logic QF_LIA)\n(declare-fun x () Int)\n(declare-fun y () Int)\n"
      "(assert (! (> x 2) :named big))\n(assert (< y x))\n(check-sat)\n(get-value (x (+ x 1)))\n"
      "(echo \"one \"\"word\"\"\")\n(push 1)\n(assert (! (< x 0) :named negative))\n"
      "(check-sat)\n(get-unsat-core)\n(get-interpolant (g))\n(pop 1)\n"
      "(check-sat-assuming ((< x 0)))\n(get-unsat-assumptions)\n(get-info :reason-unknown)\n"
      "(get-option :produce-models)\n(check-sat)\n(get-model)\n(assert (+ x 1))\n(check-sat)\n";
  std::string const trace_file = tmp_ + "/trace.smt2";
  EXPECT_EQ(run("--solver z3 --trace '" + trace_file + "'", script), 1);
  std::istringstream lines(out_);
  std::vector<std::string> got;
  for (std::string line; got.size() < 12 && std::getline(lines, line);) {
    got.push_back(line);
  }
  ASSERT_EQ(got.size(), 12u) << out_;
  EXPECT_EQ(got[0], "sat");
  EXPECT_EQ(got[1].rfind("((x ", 0), 0u) << got[1];
  EXPECT_EQ(got[2], "\"one \"\"word\"\"\"");
  EXPECT_EQ(got[3], "unsat");
  EXPECT_EQ(got[4], "(big negative)");
  EXPECT_EQ(got[5], "unsupported");  // z3 has no interpolation
  EXPECT_EQ(got[6], "unsat");
  EXPECT_EQ(got[7], "((< x 0))");
  EXPECT_EQ(got[8], "(:reason-unknown \"\")");
  EXPECT_EQ(got[9], "true");
  EXPECT_EQ(got[10], "sat");
  EXPECT_EQ(got[11], "(");
  EXPECT_NE(out_.find("(define-fun y () Int"), std::string::npos) << out_;
  EXPECT_EQ(
      out_.substr(out_.rfind('(')),
      "(error \"<stdin>:21:9: error: assert expects a formula of sort Bool, found sort Int\")\n")
      << out_;
  EXPECT_NE(err_.find("<stdin>:21:"), std::string::npos) << err_;
  // The trace holds every call up to the error and gives the same answers in z3.
  std::string const trace = slurp(trace_file);
  EXPECT_EQ(trace.substr(trace.size() - 12), "(get-model)\n") << trace;
  std::system(("z3 -smt2 '" + trace_file + "' >'" + tmp_ + "/z3.out' 2>&1").c_str());
  std::string const z3 = slurp(tmp_ + "/z3.out");
  EXPECT_EQ(z3.substr(0, 4), "sat\n") << z3;
  EXPECT_NE(z3.find("unsat\n"), std::string::npos) << z3;

  EXPECT_EQ(run("--solver no-such-engine"), 1);
  EXPECT_NE(err_.find("no-such-engine"), std::string::npos) << err_;
  EXPECT_EQ(run("--help"), 0);
  EXPECT_NE(out_.find("z3"), std::string::npos) << out_;
}

}  // namespace
