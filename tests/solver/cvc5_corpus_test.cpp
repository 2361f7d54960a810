// Real scripts through the cvc5 engine: every corpus file, read command by command with each
// call handed straight to the engine, gives the answers that the manifest records; after each
// satisfiable check the whole model and every value the script asks for come back into the
// term layer. The corpus is ../shared/corpus beside the source root, or $TVX_CORPUS_DIR;
// without it the test is skipped.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <tvx/smt2/script_reader.h>
#include <tvx/solver/engine.h>
#include <tvx/tracer/api_tracer.h>

namespace tvx {
namespace {

// Hands each call the reader makes to an engine, and records the checks' answers.
class EngineDriver : public ApiTracer {
 public:
  explicit EngineDriver(Engine& engine) : engine_(engine) {}
  std::string const& answers() const { return answers_; }

  void trace_type_declaration(DataType const* type) override { engine_.declare_sort(type); }
  void trace_symbol_declaration(Symbol const* sym) override { engine_.declare_fun(sym); }
  void trace_push_backtrack_point() override { engine_.push(); }
  void trace_pop_backtrack_point() override { engine_.pop(); }
  void trace_assert_formula(Term const* t) override { engine_.assert_formula(t, true); }
  void trace_check() override { record(engine_.check({})); }
  void trace_check_allsat(std::vector<Term const*> const&) override {}
  void trace_check_with_assumptions(std::vector<TheoryLit> const& assumptions) override {
    record(engine_.check(assumptions));
  }
  void trace_reset_assertions() override { engine_.reset_assertions(); }
  void trace_new_interpolation_group() override {}
  void trace_set_interpolation_group(int) override {}
  void trace_get_interpolant(std::vector<int> const&) override {}
  void trace_get_unsat_core() override {
    if (last_ == CheckResult::Unsat) {
      engine_.unsat_core();
    }
  }
  void trace_get_unsat_assumptions() override {
    if (last_ == CheckResult::Unsat) {
      engine_.unsat_assumptions();
    }
  }
  void trace_get_model() override {}
  void trace_get_model_value(Term const* t) override {
    if (last_ == CheckResult::Sat) {
      EXPECT_NE(engine_.value(t), nullptr);
    }
  }

 private:
  void record(CheckResult r) {
    last_ = r;
    answers_ += (answers_.empty() ? "" : ",") + std::string(to_string(r));
    if (r == CheckResult::Sat) {
      engine_.model();
    }
  }

  Engine& engine_;
  std::string answers_;
  CheckResult last_ = CheckResult::Unknown;
};

TEST(Cvc5CorpusTest, EveryScriptGivesTheManifestsAnswersAndItsModels) {
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
  if (entries.empty()) {
    GTEST_SKIP() << "needs the corpus at " << dir << " (or $TVX_CORPUS_DIR)";
  }
  std::size_t passed = 0;
  for (std::vector<std::string> const& e : entries) {
    TermManager mgr;
    Configuration config;
    config.model_generation = true;
    config.unsat_core_generation = true;
    config.timeout = 20;
    std::string got;
    try {
      std::unique_ptr<Engine> engine = make_engine("cvc5", mgr, config);
      EngineDriver driver(*engine);
      std::ifstream in(dir + "/smt2/" + e[0], std::ios::binary);
      smt2::ScriptReader(mgr, config, driver).read(in, e[0]);
      got = driver.answers();
    } catch (std::exception const& ex) {
      got = ex.what();
    }
    EXPECT_EQ(got, e[3]) << e[0];
    passed += got == e[3];
  }
  std::cout << passed << " of " << entries.size() << " corpus files passed\n";
}

}  // namespace
}  // namespace tvx
