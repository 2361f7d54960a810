// The tvx-trace program: exit status 0, 1 or 2, standard input or a file, -o, help and options,
// and an input error that keeps the trace written before it.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <fstream>
#include <sstream>
#include <string>

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

}  // namespace
