// Solver: the environment an application drives. Each call is checked first (misuse throws
// tvx::Error and changes nothing), then traced when tracing is on, then handed to the engine,
// whose answer it returns. Invariant: the trace holds exactly the calls that passed the
// checks, each written before its engine saw it, so a trace always replays up to the call an
// engine failed on.
#ifndef TVX_SOLVER_SOLVER_H
#define TVX_SOLVER_SOLVER_H

#include <cstddef>
#include <fstream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/solver/engine.h>
#include <tvx/tracer/api_tracer.h>
#include <tvx/tracer/smtlib2_api_tracer.h>

namespace tvx {

class Solver {
 public:
  // Traces as the configuration says: when debug.api_call_trace is true, to the file
  // debug.api_call_trace_filename ("-" for standard output), in global-declarations mode when
  // debug.api_call_trace_global_decls is true, with the configuration in the header when
  // debug.api_call_trace_dump_config is true. A null engine makes a recorder: every call is
  // checked and traced, check() answers unknown ("no engine") and queries answer nothing.
  // The term manager and the configuration must outlive the solver.
  Solver(TermManager& mgr, Configuration& config, std::unique_ptr<Engine> engine);
  // Traces to `trace`, whatever the configuration says about tracing.
  Solver(TermManager& mgr, Configuration& config, std::unique_ptr<Engine> engine,
         std::ostream& trace, bool global_decls, bool dump_config);
  // Traces through `tracer`, made by the caller over the same term manager and configuration
  // (a subclass that watches the calls, for instance).
  Solver(TermManager& mgr, Configuration& config, std::unique_ptr<Engine> engine,
         std::unique_ptr<SmtLib2ApiTracer> tracer);
  ~Solver();
  Solver(Solver const&) = delete;
  Solver& operator=(Solver const&) = delete;

  TermManager& term_manager() { return mgr_; }
  // Settings read when a call is made (the printer's, for instance) may change between calls;
  // the engine read its own when it was made.
  Configuration& configuration() { return config_; }
  Configuration const& configuration() const { return config_; }
  Engine* engine() { return recorder_ ? nullptr : engine_.get(); }  // null for a recorder
  ApiTracer* tracer() { return writer_; }                           // null when not tracing

  // --- declarations ---
  // Makes a new uninterpreted sort and declares it.
  DataType const* declare_sort(std::string const& name);
  // Declares a sort made by the term manager.
  void declare_sort(DataType const* sort);
  // Makes a new symbol (a constant when `args` is empty) and declares it.
  Symbol const* declare_fun(std::string const& name, std::vector<DataType const*> const& args,
                            DataType const* result);
  // Declares a symbol made by the term manager. Symbols used without a declaration are
  // declared on the way by the call that first uses them.
  void declare_fun(Symbol const* symbol);

  // Recursive definitions: each function, an uninterpreted symbol used in no term before, is
  // declared and defined by its body over its parameters (distinct variables of its argument
  // sorts, the only variables free in the body); the bodies may apply every function of the
  // group. Scoped like a declaration.
  void define_funs_rec(std::vector<Symbol const*> const& functions,
                       std::vector<std::vector<Term const*>> const& params,
                       std::vector<Term const*> const& bodies);
  void define_fun_rec(Symbol const* function, std::vector<Term const*> const& params,
                      Term const* body) {
    define_funs_rec({function}, {params}, {body});
  }

  // --- what a session declares of itself (traced, so that the trace replays as it ran) ---
  void set_logic(std::string const& logic);
  // An option that decides what the session may ask (":produce-models", "true"), as written.
  void set_option(std::string const& keyword, std::string const& value);
  // The time limit of each later check, in seconds (0 for none); not traced, since a replay
  // chooses its own limits.
  void set_timeout(double seconds);

  // --- assertions and scopes ---
  void assert_formula(Term const* formula);
  // An assertion with a name for unsat cores; answered as assert_formula.
  void assert_named(Term const* formula, std::string const& name);
  void push(std::size_t levels = 1);
  void pop(std::size_t levels = 1);  // at most num_scopes()
  std::size_t num_scopes() const { return scopes_.size(); }
  void reset_assertions();
  // Back to the start state: no assertions, scopes, declarations or interpolation groups. The
  // term manager keeps its terms; the names of symbols and sorts may be declared again.
  void reset();

  // --- checks ---
  CheckResult check();
  CheckResult check_with_assumptions(std::vector<TheoryLit> const& assumptions);
  // Every assignment of truth values to `terms` (Bool) that extends to a model of the
  // assertions, one cube each, its literals in the order of `terms`. The search blocks each
  // cube found, inside a scope of its own that it pops before returning. If a check on the way
  // answers unknown, the cubes found so far, and reason_unknown() says why; it is empty when
  // the list is complete. Needs model_generation.
  std::vector<std::vector<TheoryLit>> check_allsat(std::vector<Term const*> const& terms);
  // After an unknown answer, the engine's reason.
  std::string const& reason_unknown() const { return reason_unknown_; }

  // --- interpolation ---
  // Groups are numbered 0, 1, 2, ... in creation order; assertions belong to the group set
  // last (none before the first set, and none again after reset_assertions).
  int new_interpolation_group();
  int num_interpolation_groups() const { return num_groups_; }
  void set_interpolation_group(int group);
  // After an unsatisfiable check: an interpolant between the assertions of `groups` (A) and the
  // other assertions (B), over the uninterpreted symbols they share: true when A is empty,
  // false when B is, and otherwise the engine's, which must use only shared symbols
  // (EngineError otherwise).
  Term const* get_interpolant(std::vector<int> const& groups);

  // --- queries ---
  // After an unsatisfiable check, with unsat_core_generation set: asserted formulas whose
  // conjunction is unsatisfiable.
  std::vector<Term const*> get_unsat_core();
  // After an unsatisfiable check: assumptions whose conjunction with the assertions is
  // unsatisfiable (none after a check without assumptions).
  std::vector<TheoryLit> get_unsat_assumptions();
  // After a satisfiable or unknown check, with model_generation set.
  Model get_model();
  Term const* get_model_value(Term const* term);
  // The assertions of the open scopes, in the order they were made. Not traced: it asks
  // nothing of the engine.
  std::vector<Term const*> get_assertions() const;

 private:
  enum class State { kNone, kSat, kUnsat, kUnknown };
  struct Assertion {
    Term const* formula;
    int group;
  };

  // Traces through `writer`; not at all when it is null.
  void start_tracing(std::unique_ptr<SmtLib2ApiTracer> writer);
  void check_sort(DataType const* sort, char const* call) const;
  void check_symbol(Symbol const* symbol, char const* call) const;
  void check_term(Term const* term, char const* call) const;
  void check_formula(Term const* term, char const* call) const;
  void add_assertion(Term const* formula);
  void check_group(int group, char const* call) const;
  void check_state(bool ok, char const* call, char const* needed) const;
  CheckResult run_check(std::vector<TheoryLit> const& assumptions);
  // Throws EngineError unless `interpolant`, the engine's answer for `a` and `b`, is a formula
  // over uninterpreted symbols that both sides use.
  void check_interpolant(Term const* interpolant, std::vector<Term const*> const& a,
                         std::vector<Term const*> const& b);
  void forget_answers() { state_ = State::kNone; }

  TermManager& mgr_;
  Configuration& config_;
  // Made without an engine: engine_ records, its queries answer nothing, and the state a query
  // needs is not enforced.
  bool const recorder_;
  std::unique_ptr<Engine> engine_;  // never null
  std::ofstream trace_file_;
  // Never null: a tracer that writes nothing when not tracing. writer_ is the tracer that
  // writes the trace, null when not tracing.
  std::unique_ptr<ApiTracer> tracer_;
  SmtLib2ApiTracer* writer_ = nullptr;

  State state_ = State::kNone;
  std::string reason_unknown_;
  std::vector<Assertion> assertions_;
  std::vector<std::size_t> scopes_;  // assertions_.size() at each open push
  int num_groups_ = 0;
  int group_ = -1;

  // Scratch of check_interpolant: the terms still to look at.
  std::vector<Term const*> term_stack_;
};

}  // namespace tvx

#endif  // TVX_SOLVER_SOLVER_H
