// The corpus answered through each engine: every script's checks give the answers its manifest
// lists, the whole model comes back into the term layer after each satisfiable check, and the
// trace recorded on the way (in both modes), read again through the next engine in the list,
// gives the same answers, so a session traced on one engine replays on another.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <tvx/smt2/response_writer.h>
#include <tvx/smt2/script_reader.h>
#include <tvx/solver/engine.h>
#include <tvx/solver/solver.h>

namespace tvx {
namespace {

struct Entry {
  std::string file;
  std::string answers;  // comma-separated
};

// The manifest's files; with TVX_CORPUS_SAMPLE=N only every Nth (the sanitizer builds, whose
// engine calls are many times slower, take a sample).
std::vector<Entry> read_manifest(std::string const& dir) {
  char const* sample_env = std::getenv("TVX_CORPUS_SAMPLE");
  std::size_t const sample = sample_env != nullptr && std::atoi(sample_env) > 1
                                 ? static_cast<std::size_t>(std::atoi(sample_env))
                                 : 1;
  std::ifstream manifest(dir + "/MANIFEST.tsv");
  std::vector<Entry> entries;
  std::string line;
  for (std::size_t row = 0; std::getline(manifest, line); ++row) {
    if (row == 0 || (row - 1) % sample != 0) {
      continue;  // the header, or a file left out of the sample
    }
    std::istringstream cols(line);
    std::string col[4];
    for (std::string& c : col) {
      std::getline(cols, c, '\t');
    }
    entries.push_back(Entry{col[0], col[3]});
  }
  return entries;
}

// Passes every call to `inner`, and reads the whole model after each satisfiable check.
class ModelReader : public Engine {
 public:
  explicit ModelReader(std::unique_ptr<Engine> inner) : inner_(std::move(inner)) {}
  std::string const& name() const override { return inner_->name(); }
  void declare_sort(DataType const* s) override { inner_->declare_sort(s); }
  void declare_fun(Symbol const* s) override { inner_->declare_fun(s); }
  void assert_formula(Term const* f, bool track) override { inner_->assert_formula(f, track); }
  void push() override { inner_->push(); }
  void pop() override { inner_->pop(); }
  void reset_assertions() override { inner_->reset_assertions(); }
  void reset() override { inner_->reset(); }
  void set_timeout(double seconds) override { inner_->set_timeout(seconds); }
  void define_funs_rec(std::vector<Symbol const*> const& f,
                       std::vector<std::vector<Term const*>> const& p,
                       std::vector<Term const*> const& b) override {
    inner_->define_funs_rec(f, p, b);
  }
  CheckResult check(std::vector<TheoryLit> const& assumptions) override {
    CheckResult const r = inner_->check(assumptions);
    if (r == CheckResult::Sat) {
      inner_->model();
    }
    return r;
  }
  std::string reason_unknown() override { return inner_->reason_unknown(); }
  std::vector<Term const*> unsat_core() override { return inner_->unsat_core(); }
  std::vector<TheoryLit> unsat_assumptions() override { return inner_->unsat_assumptions(); }
  Term const* value(Term const* t) override { return inner_->value(t); }
  Model model() override { return inner_->model(); }
  Term const* interpolant(std::vector<Term const*> const& a,
                          std::vector<Term const*> const& b) override {
    return inner_->interpolant(a, b);
  }

 private:
  std::unique_ptr<Engine> inner_;
};

// Answers `script` through the engine `engine`, tracing to `trace` when it is not null; returns
// the check answers joined by commas, then the error if reading stopped at one.
std::string answer(std::string const& script, std::string const& engine, std::ostream* trace,
                   bool global) {
  TermManager mgr;
  Configuration config;
  config.model_generation = true;
  config.unsat_core_generation = true;
  config.timeout = 60;
  auto checked = std::make_unique<ModelReader>(make_engine(engine, mgr, config));
  std::unique_ptr<Solver> solver =
      trace != nullptr
          ? std::make_unique<Solver>(mgr, config, std::move(checked), *trace, global, false)
          : std::make_unique<Solver>(mgr, config, std::move(checked));
  std::ostringstream out;
  smt2::ResponseWriter responses(mgr, config, out);
  smt2::ScriptReader reader(*solver);
  reader.set_response_writer(&responses);
  std::istringstream in(script);
  std::string error;
  try {
    reader.read(in, "<script>");
  } catch (Error const& e) {
    error = std::string(" error: ") + e.what();
  }
  std::istringstream lines(out.str());
  std::string answers;
  for (std::string line; std::getline(lines, line);) {
    if (line == "sat" || line == "unsat" || line == "unknown") {
      answers += (answers.empty() ? "" : ",") + line;
    }
  }
  return answers + error;
}

// The built-in engines, then z3 and cvc5 as processes.
std::vector<std::string> engines_to_test() {
  std::vector<std::string> engines = builtin_engine_names();
  engines.push_back("z3 -in");
  engines.push_back("cvc5 --incremental --lang smt2");
  return engines;
}

class CorpusSolveTest : public ::testing::TestWithParam<std::string> {};

TEST_P(CorpusSolveTest, ManifestAnswersAndTheTraceReplaysOnTheNextEngine) {
  char const* env = std::getenv("TVX_CORPUS_DIR");
  std::string const dir = env ? env : std::string(TVX_SOURCE_DIR) + "/../shared/corpus";
  std::vector<Entry> const entries = read_manifest(dir);
  if (entries.empty()) {
    GTEST_SKIP() << "needs the corpus at " << dir << " (or $TVX_CORPUS_DIR)";
  }
  std::vector<std::string> const engines = engines_to_test();
  std::string const engine = GetParam();
  if (engine.find(' ') != std::string::npos &&
      std::system(("command -v " + engine.substr(0, engine.find(' ')) + " >/dev/null").c_str()) !=
          0) {
    GTEST_SKIP() << "the solver of '" << engine << "' is not installed";
  }
  // The engine after this one in the list, the first after the last, replays its traces.
  std::string next = engines.front();
  for (std::size_t i = 0; i + 1 < engines.size(); ++i) {
    next = engines[i] == engine ? engines[i + 1] : next;
  }

  std::vector<std::string> failures(entries.size());
  auto check = [&](Entry const& e) {
    std::ostringstream ss;
    ss << std::ifstream(dir + "/smt2/" + e.file, std::ios::binary).rdbuf();
    std::string failure;
    for (bool global : {false, true}) {
      std::ostringstream trace;
      std::string const got = answer(ss.str(), engine, &trace, global);
      if (got != e.answers) {
        failure += " [" + engine + (global ? " global" : " scoped") + ": " + got + "]";
        continue;  // the session was not the same, so neither is its trace
      }
      std::string const replayed = answer(trace.str(), next, nullptr, global);
      if (replayed != e.answers) {
        failure += " [trace replayed on " + next + (global ? " global" : " scoped") + ": " +
                   replayed + "]";
      }
    }
    return failure;
  };
  auto worker = [&](std::size_t first) {  // two workers take alternate files
    for (std::size_t i = first; i < entries.size(); i += 2) {
      failures[i] = check(entries[i]);
    }
  };
  std::thread helper(worker, 1);
  worker(0);
  helper.join();
  std::size_t passed = 0;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    passed += failures[i].empty();
    EXPECT_EQ(failures[i], "") << entries[i].file;
  }
  std::cout << passed << " of " << entries.size() << " corpus files passed on " << engine << "\n";
}

INSTANTIATE_TEST_SUITE_P(Engines, CorpusSolveTest, ::testing::ValuesIn(engines_to_test()),
                         [](auto const& info) {
                           std::string name = info.param.substr(0, info.param.find(' '));
                           return info.param.find(' ') == std::string::npos ? name
                                                                            : name + "_process";
                         });

}  // namespace
}  // namespace tvx
