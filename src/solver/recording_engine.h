// RecordingEngine: the engine of a Solver made without one, whose session is only checked and
// traced. Invariant: it keeps no state and answers nothing: every check is unknown for the
// reason "no engine", and every query answers an empty list, an empty model or null.
#ifndef TVX_SOLVER_RECORDING_ENGINE_H
#define TVX_SOLVER_RECORDING_ENGINE_H

#include <string>
#include <vector>

#include <tvx/solver/engine.h>

namespace tvx {

class RecordingEngine : public Engine {
 public:
  std::string const& name() const override { return name_; }
  void declare_sort(DataType const*) override {}
  void declare_fun(Symbol const*) override {}
  void assert_formula(Term const*, bool) override {}
  void push() override {}
  void pop() override {}
  void reset_assertions() override {}
  void reset() override {}
  void set_timeout(double) override {}  // nothing is checked
  void define_funs_rec(std::vector<Symbol const*> const&,
                       std::vector<std::vector<Term const*>> const&,
                       std::vector<Term const*> const&) override {}
  CheckResult check(std::vector<TheoryLit> const&) override { return CheckResult::Unknown; }
  std::string reason_unknown() override { return name_; }
  std::vector<Term const*> unsat_core() override { return {}; }
  std::vector<TheoryLit> unsat_assumptions() override { return {}; }
  Term const* value(Term const*) override { return nullptr; }
  Model model() override { return {}; }
  Term const* interpolant(std::vector<Term const*> const&,
                          std::vector<Term const*> const&) override {
    return nullptr;
  }

 private:
  std::string const name_ = "no engine";
};

}  // namespace tvx

#endif  // TVX_SOLVER_RECORDING_ENGINE_H
