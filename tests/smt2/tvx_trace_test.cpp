// The tvx-trace program: options, exit status, input and output files, error reports.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

struct Result {
  int status;
  std::string out;
  std::string err;
};

std::string slurp(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

class TvxTraceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/tvx_trace_test_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    tmp_ = tmpl;
  }
  void TearDown() override {
    if (!tmp_.empty()) {
      std::system(("rm -rf '" + tmp_ + "'").c_str());
    }
  }

  std::string write(std::string const& name, std::string const& text) {
    std::string const path = tmp_ + "/" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  // Runs the tool with `args` (shell words) and `input` on standard input.
  Result run(std::string const& args, std::string const& input = "") {
    std::string const in = write("stdin.txt", input);
    std::string const cmd = std::string("'") + TVX_BINARY_DIR + "/tools/tvx-trace' " + args +
                            " <'" + in + "' >'" + tmp_ + "/out.txt' 2>'" + tmp_ + "/err.txt'";
    int const raw = std::system(cmd.c_str());
    Result r;
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    r.out = slurp(tmp_ + "/out.txt");
    r.err = slurp(tmp_ + "/err.txt");
    return r;
  }

  static bool contains(std::string const& text, std::string const& part) {
    return text.find(part) != std::string::npos;
  }

  std::string tmp_;
};

constexpr char const* kScript =
    "(set-logic QF_UF)\n(declare-fun p () Bool)\n(assert (not p))\n(check-sat)\n";

TEST_F(TvxTraceTest, HelpAndVersion) {
  Result r = run("--help");
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(contains(r.out, "usage: tvx-trace")) << r.out;
  EXPECT_TRUE(contains(r.out, "--global-decls"));
  r = run("--version");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("tvx-trace ", 0), 0u) << r.out;
}

TEST_F(TvxTraceTest, UsageErrorsExitWithTwo) {
  char const* const cases[] = {
      "--bogus", "--set", "--set no_equals_sign", "--set no.such.key=1", "-o", "a.smt2 b.smt2"};
  for (char const* args : cases) {
    SCOPED_TRACE(args);
    Result r = run(args, kScript);
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "tvx-trace: error: ")) << r.err;
    EXPECT_EQ(r.out, "");
  }
  Result r = run("--set printer.defines_prefix=p_ --set api_call_trace=notanumber", kScript);
  EXPECT_EQ(r.status, 2);
  EXPECT_TRUE(contains(r.err, "api_call_trace")) << r.err;
}

TEST_F(TvxTraceTest, ReadsStandardInputOrAFileAndWritesStandardOutputOrAFile) {
  Result from_stdin = run("", kScript);
  EXPECT_EQ(from_stdin.status, 0) << from_stdin.err;
  EXPECT_EQ(from_stdin.out.rfind(";; Tarvex API call trace\n", 0), 0u);
  EXPECT_TRUE(contains(from_stdin.out, "(declare-fun p () Bool)\n(assert (not p))\n(check-sat)\n"))
      << from_stdin.out;
  Result dash = run("-", kScript);
  EXPECT_EQ(dash.status, 0);
  std::string const input = write("in.smt2", kScript);
  std::string const output = tmp_ + "/trace.smt2";
  Result to_file = run("-o '" + output + "' '" + input + "'");
  EXPECT_EQ(to_file.status, 0) << to_file.err;
  EXPECT_EQ(to_file.out, "");
  std::string const written = slurp(output);
  EXPECT_TRUE(contains(written, "(assert (not p))\n(check-sat)\n")) << written;
  Result missing = run("'" + tmp_ + "/no_such_file.smt2'");
  EXPECT_EQ(missing.status, 1);
  EXPECT_TRUE(contains(missing.err, "cannot open")) << missing.err;
}

TEST_F(TvxTraceTest, GlobalDeclarationsDumpAndSettings) {
  Result r = run("--global-decls --set printer.defines_prefix=d_", kScript);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(contains(r.out, "(set-option :global-decls true)\n")) << r.out;
  EXPECT_TRUE(contains(r.out, "(define-fun d_")) << r.out;
  EXPECT_TRUE(contains(r.out, "(assert d_")) << r.out;
  EXPECT_FALSE(contains(r.out, "(define-fun .")) << r.out;
  r = run("--dump-config --set printer.defines_prefix=d_", kScript);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(contains(r.out, "(set-option :config \"printer.defines_prefix=d_\")")) << r.out;
  EXPECT_FALSE(contains(r.out, "(set-option :global-decls true)"));
}

// An input error: the position on stderr, exit status 1, and every command before the error
// in the trace.
TEST_F(TvxTraceTest, InputErrorKeepsTheTraceUpToIt) {
  std::string const input =
      write("bad.smt2", "(declare-fun p () Bool)\n(check-sat)\n(assert (and p q))\n(check-sat)\n");
  Result r = run("'" + input + "'");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, input + ":3:16: error: unknown symbol 'q'\n");
  EXPECT_TRUE(contains(r.out, "(declare-fun p () Bool)\n(check-sat)\n")) << r.out;
  EXPECT_FALSE(contains(r.out, "assert"));
  Result piped = run("", "(check-sat)\n(pop 1)\n");
  EXPECT_EQ(piped.status, 1);
  EXPECT_EQ(piped.err.rfind("<stdin>:2:6: error: ", 0), 0u) << piped.err;
  EXPECT_TRUE(contains(piped.out, "(check-sat)\n"));
}

// The bundled example traces in both modes, and z3 answers the traces as it answers the
// example itself.
TEST_F(TvxTraceTest, BundledExampleReplaysInZ3) {
  std::string const example = std::string(TVX_SOURCE_DIR) + "/examples/example.smt2";
  Result plain = run("'" + example + "'");
  ASSERT_EQ(plain.status, 0) << plain.err;
  Result global = run("--global-decls '" + example + "'");
  ASSERT_EQ(global.status, 0) << global.err;
  if (std::system("command -v z3 >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "z3 not found";
  }
  auto answers = [&](std::string const& file) {
    std::string const out = tmp_ + "/z3.txt";
    std::system(
        ("timeout 20 z3 -smt2 '" + file + "' 2>&1 | grep -E '^(sat|unsat|unknown)$' >'" + out + "'")
            .c_str());
    return slurp(out);
  };
  std::string const want = answers(example);
  EXPECT_FALSE(want.empty());
  EXPECT_EQ(answers(write("plain.smt2", plain.out)), want);
  EXPECT_EQ(answers(write("global.smt2", global.out)), want);
}

}  // namespace
