// Real scripts through the reader and the tracer: every trace of the corpus, in both modes,
// must make z3 and cvc5 give the answers that the manifest records for the original script,
// and tracing a trace must reach a fixed point.
//
// The corpus lives outside the project, at ../shared/corpus beside the source root, or where
// the environment variable TVX_CORPUS_DIR points; without it the tests are skipped.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core/configuration.h"
#include "core/term_manager.h"
#include "smt2/script_reader.h"
#include "tracer/smtlib2_api_tracer.h"

namespace tvx {
namespace smt2 {
namespace {

// Labels in traces for cvc5, which reserves symbols that start with '.'; no corpus script
// uses a symbol with this prefix.
constexpr char const* kCvc5Prefix = "tvx_d_";
constexpr int kSolverTimeoutSeconds = 20;

struct Entry {
  std::string file;
  std::string logic;
  std::string expected;  // answers joined by commas
  std::string features;
};

std::string corpus_dir() {
  if (char const* env = std::getenv("TVX_CORPUS_DIR")) {
    return env;
  }
  return std::string(TVX_SOURCE_DIR) + "/../shared/corpus";
}

bool load_manifest(std::string const& dir, std::vector<Entry>* entries) {
  std::ifstream in(dir + "/MANIFEST.tsv");
  if (!in) {
    return false;
  }
  std::string line;
  std::getline(in, line);  // header
  while (std::getline(in, line)) {
    std::vector<std::string> cols;
    std::stringstream ss(line);
    std::string col;
    while (std::getline(ss, col, '\t')) {
      cols.push_back(col);
    }
    if (cols.size() >= 5) {
      entries->push_back(Entry{cols[0], cols[1], cols[3], cols[4]});
    }
  }
  return !entries->empty();
}

bool has_feature(Entry const& e, char const* feature) {
  std::stringstream ss(e.features);
  std::string f;
  while (std::getline(ss, f, ',')) {
    if (f == feature) {
      return true;
    }
  }
  return false;
}

// Traces a script in-process; returns false with the reader's message on an error.
bool trace(std::istream& in, std::string const& name, bool global, std::string const& prefix,
           std::string* out, std::string* error) {
  TermManager mgr;
  Configuration config;
  if (!prefix.empty()) {
    ConfigurationSetter().set(&config, "printer.defines_prefix", prefix);
  }
  std::ostringstream os;
  try {
    SmtLib2ApiTracer tracer(&config, &mgr, os, global, false);
    ScriptReader reader(mgr, config, tracer);
    reader.read(in, name);
  } catch (std::exception const& e) {
    *error = e.what();
    return false;
  }
  *out = os.str();
  return true;
}

bool trace_file(std::string const& path, bool global, std::string const& prefix, std::string* out,
                std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = "cannot open " + path;
    return false;
  }
  return trace(in, path, global, prefix, out, error);
}

bool trace_text(std::string const& text, bool global, std::string* out, std::string* error) {
  std::istringstream in(text);
  return trace(in, "<trace>", global, "", out, error);
}

std::string without_stamp(std::string const& text) {
  std::istringstream in(text);
  std::string line;
  std::string out;
  while (std::getline(in, line)) {
    if (line.rfind(";; generated on ", 0) != 0) {
      out += line;
      out += '\n';
    }
  }
  return out;
}

void write_file(std::string const& path, std::string const& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

std::string run(std::string const& command) {
  std::string output;
  FILE* p = popen((command + " 2>&1").c_str(), "r");
  if (p == nullptr) {
    return "(error \"cannot run " + command + "\")";
  }
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) {
    output.append(buf, n);
  }
  pclose(p);
  return output;
}

// Checks a solver's output: the sat/unsat/unknown lines must be the expected answers and no
// line may report an error. Returns "" or what went wrong.
std::string check_output(std::string const& output, std::string const& expected) {
  std::istringstream in(output);
  std::string line;
  std::string answers;
  std::string first_error;
  while (std::getline(in, line)) {
    if (line == "sat" || line == "unsat" || line == "unknown") {
      answers += (answers.empty() ? "" : ",") + line;
    } else if (line.rfind("(error", 0) == 0 && first_error.empty()) {
      first_error = line;
    }
  }
  if (answers != expected) {
    return "answers [" + answers + "], expected [" + expected + "]" +
           (first_error.empty() ? "" : "; " + first_error);
  }
  if (!first_error.empty()) {
    return first_error;
  }
  return "";
}

bool have_program(char const* name) {
  return run(std::string("command -v ") + name + " >/dev/null && echo yes") == "yes\n";
}

std::string replace_all(std::string text, std::string const& from, std::string const& to) {
  for (std::size_t pos = 0; (pos = text.find(from, pos)) != std::string::npos; pos += to.size()) {
    text.replace(pos, from.size(), to);
  }
  return text;
}

class CorpusReplayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = corpus_dir();
    if (!load_manifest(dir_, &entries_)) {
      GTEST_SKIP() << "corpus not found at " << dir_
                   << " (set TVX_CORPUS_DIR to the folder that holds MANIFEST.tsv)";
    }
  }

  // Runs `work` over every entry on two threads; collects the failure texts.
  template <typename Work>
  std::vector<std::string> for_each_entry(Work work) {
    std::atomic<std::size_t> next{0};
    std::mutex mutex;
    std::vector<std::string> failures;
    auto worker = [&]() {
      for (std::size_t i; (i = next++) < entries_.size();) {
        std::string const failure = work(entries_[i]);
        if (!failure.empty()) {
          std::lock_guard<std::mutex> lock(mutex);
          failures.push_back(entries_[i].file + ": " + failure);
        }
      }
    };
    std::thread helper(worker);
    worker();
    helper.join();
    return failures;
  }

  void report(std::vector<std::string> const& failures, char const* what) {
    std::size_t const passed = entries_.size() - failures.size();
    std::cout << passed << " of " << entries_.size() << " corpus files passed (" << what << ")\n";
    RecordProperty("passed", static_cast<int>(passed));
    RecordProperty("files", static_cast<int>(entries_.size()));
    for (std::string const& f : failures) {
      ADD_FAILURE() << f;
    }
  }

  std::string dir_;
  std::vector<Entry> entries_;
};

TEST_F(CorpusReplayTest, TracesGiveTheManifestAnswersInZ3AndCvc5) {
  if (!have_program("z3") || !have_program("cvc5") || !have_program("timeout")) {
    GTEST_SKIP() << "z3, cvc5 or timeout not found";
  }
  char tmpl[] = "/tmp/tvx_corpus_XXXXXX";
  ASSERT_NE(mkdtemp(tmpl), nullptr);
  std::string const tmp = tmpl;
  std::string const timeout = "timeout " + std::to_string(kSolverTimeoutSeconds) + " ";

  std::vector<std::string> failures = for_each_entry([&](Entry const& e) -> std::string {
    std::string const path = dir_ + "/smt2/" + e.file;
    bool const unsat_queries = has_feature(e, "unsat-core");
    std::string problems;
    for (bool global : {false, true}) {
      std::string const mode = global ? "global" : "scoped";
      std::string text;
      std::string error;
      // z3 reads the trace as it is; the option that unsat-assumption queries need is not
      // an API call, so the test's copy sets it as the original script did.
      if (!trace_file(path, global, "", &text, &error)) {
        return mode + " trace: " + error;
      }
      if (unsat_queries) {
        text = "(set-option :produce-unsat-assumptions true)\n" + text;
      }
      std::string const z3_file = tmp + "/" + e.file + "." + mode + ".z3.smt2";
      write_file(z3_file, text);
      std::string verdict = check_output(run(timeout + "z3 -smt2 '" + z3_file + "'"), e.expected);
      if (!verdict.empty()) {
        problems += " [z3 " + mode + ": " + verdict + "]";
      }
      // cvc5 reserves labels that start with '.', and calls the option :global-declarations.
      // The logic is not an API call either; without it cvc5 assumes all theories, in which
      // some user names (set.empty) are built-in.
      if (!trace_file(path, global, kCvc5Prefix, &text, &error)) {
        return mode + " trace with prefix: " + error;
      }
      text = "(set-logic " + e.logic + ")\n" +
             replace_all(text, "(set-option :global-decls true)",
                         "(set-option :global-declarations true)");
      std::string const cvc5_file = tmp + "/" + e.file + "." + mode + ".cvc5.smt2";
      write_file(cvc5_file, text);
      std::string options = "--lang=smt2 --incremental --produce-models";
      if (unsat_queries) {
        options += " --produce-unsat-assumptions --produce-unsat-cores";
      }
      verdict = check_output(run(timeout + "cvc5 " + options + " '" + cvc5_file + "'"), e.expected);
      if (!verdict.empty()) {
        problems += " [cvc5 " + mode + ": " + verdict + "]";
      }
      std::remove(z3_file.c_str());
      std::remove(cvc5_file.c_str());
    }
    return problems;
  });
  rmdir(tmp.c_str());
  report(failures, "z3 and cvc5, scoped and global traces");
}

TEST_F(CorpusReplayTest, TracingATraceReachesAFixedPoint) {
  std::vector<std::string> failures = for_each_entry([&](Entry const& e) -> std::string {
    std::string const path = dir_ + "/smt2/" + e.file;
    for (bool global : {false, true}) {
      std::string const mode = global ? "global" : "scoped";
      std::string t1, t2, t3, error;
      if (!trace_file(path, global, "", &t1, &error) || !trace_text(t1, global, &t2, &error) ||
          !trace_text(t2, global, &t3, &error)) {
        return mode + ": " + error;
      }
      std::string const a = without_stamp(t2);
      std::string const b = without_stamp(t3);
      if (a != b) {
        std::size_t i = 0;
        while (i < a.size() && i < b.size() && a[i] == b[i]) {
          ++i;
        }
        std::size_t const line_start = a.rfind('\n', i) == std::string::npos ? 0 : a.rfind('\n', i);
        return mode +
               ": trace of trace differs from its own trace near: " + a.substr(line_start, 120) +
               " / " + b.substr(line_start, 120);
      }
    }
    return "";
  });
  report(failures, "fixed point, both modes");
}

}  // namespace
}  // namespace smt2
}  // namespace tvx
