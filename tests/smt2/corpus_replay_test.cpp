// Real scripts: every corpus file, traced in both modes, must make z3 and cvc5 give the answers
// that the manifest records for it, and tracing its trace must reach a fixed point (but for the
// time stamp). The corpus is ../shared/corpus beside the source root, or $TVX_CORPUS_DIR;
// without it the test is skipped.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/smt2/script_reader.h>
#include <tvx/tracer/smtlib2_api_tracer.h>

namespace tvx {
namespace smt2 {
namespace {

std::string slurp(std::string const& path) {
  std::ostringstream ss;
  ss << std::ifstream(path, std::ios::binary).rdbuf();
  return ss.str();
}

// Traces `text`, labels prefixed by `prefix` when not empty; the trace lacks its time stamp.
std::string trace(std::string const& text, bool global, std::string const& prefix = "") {
  TermManager mgr;
  Configuration config;
  config.printer.defines_prefix = prefix;
  std::ostringstream os;
  Solver solver(mgr, config, nullptr, os, global, false);
  std::istringstream in(text);
  ScriptReader(solver).read(in, "<input>");
  std::string out = os.str();
  std::size_t const at = out.find(";; generated on ");
  return at == std::string::npos ? out : out.erase(at, out.find('\n', at) + 1 - at);
}

// The answers and errors of a solver run on `file`, one line each, joined by commas.
std::string answers(std::string const& command, std::string const& file) {
  std::system(("timeout 20 " + command + " '" + file +
               "' 2>&1 | grep -E '^(sat|unsat|unknown)$|^\\(error' | paste -sd, >'" + file +
               ".out'")
                  .c_str());
  std::string const out = slurp(file + ".out");
  return out.substr(0, out.find('\n'));
}

TEST(CorpusReplayTest, TracesReplayInZ3AndCvc5AndReachAFixedPoint) {
  char const* env = std::getenv("TVX_CORPUS_DIR");
  std::string const dir = env ? env : std::string(TVX_SOURCE_DIR) + "/../shared/corpus";
  std::ifstream manifest(dir + "/MANIFEST.tsv");
  std::vector<std::vector<std::string>> entries;  // file, logic, source, answers, features
  std::string line;
  for (std::getline(manifest, line); std::getline(manifest, line);) {
    std::istringstream cols(line);
    entries.emplace_back(5);
    for (std::string& col : entries.back()) {
      std::getline(cols, col, '\t');
    }
  }
  if (entries.empty() ||
      std::system("(command -v z3 && command -v cvc5 && command -v timeout) >/dev/null") != 0) {
    GTEST_SKIP() << "needs the corpus at " << dir << " (or $TVX_CORPUS_DIR), z3, cvc5, timeout";
  }
  char tmpl[] = "/tmp/tvx_corpus_XXXXXX";
  ASSERT_NE(mkdtemp(tmpl), nullptr);
  std::string const tmp = tmpl;

  // Checks one file in one mode; returns what went wrong ("" when nothing).
  auto check = [&](std::vector<std::string> const& e, bool global) -> std::string {
    std::string const mode = global ? "global" : "scoped";
    std::string const script = slurp(dir + "/smt2/" + e[0]);
    std::string const t1 = trace(script, global);
    std::string const t2 = trace(t1, global);
    if (t2 != trace(t2, global)) {
      return mode + ": the trace of its trace is not a fixed point";
    }
    // The trace carries the script's logic; the copies that the solvers read add the option
    // for unsat assumptions where the script did not set it, and the logic where the script
    // gave none. cvc5 reserves labels that start with '.'.
    bool const cores = ("," + e[4] + ",").find(",unsat-core,") != std::string::npos;
    std::string const base = tmp + "/" + e[0] + "." + mode;
    std::ofstream(base + ".z3") << (cores ? "(set-option :produce-unsat-assumptions true)\n" : "")
                                << t1;
    std::string cvc5 = trace(script, global, "tvx_d_");
    if (cvc5.find("(set-logic ") == std::string::npos) {
      cvc5 = "(set-logic " + e[1] + ")\n" + cvc5;
    }
    if (global) {
      cvc5.replace(cvc5.find(":global-decls"), 13, ":global-declarations");
    }
    std::ofstream(base + ".cvc5") << cvc5;
    std::string const z3 = answers("z3 -smt2", base + ".z3");
    std::string const cv =
        answers(std::string("cvc5 --lang=smt2 --incremental --produce-models") +
                    (cores ? " --produce-unsat-assumptions --produce-unsat-cores" : ""),
                base + ".cvc5");
    return (z3 == e[3] ? "" : " [z3 " + mode + ": " + z3 + "]") +
           (cv == e[3] ? "" : " [cvc5 " + mode + ": " + cv + "]");
  };

  std::vector<std::string> failures(entries.size());
  auto worker = [&](std::size_t first) {  // two workers take alternate files
    for (std::size_t i = first; i < entries.size(); i += 2) {
      try {
        failures[i] = check(entries[i], false) + check(entries[i], true);
      } catch (std::exception const& e) {
        failures[i] = e.what();
      }
    }
  };
  std::thread helper(worker, 1);
  worker(0);
  helper.join();
  std::system(("rm -rf '" + tmp + "'").c_str());
  std::size_t passed = 0;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    passed += failures[i].empty();
    EXPECT_EQ(failures[i], "") << entries[i][0];
  }
  std::cout << passed << " of " << entries.size() << " corpus files passed\n";
}

}  // namespace
}  // namespace smt2
}  // namespace tvx
