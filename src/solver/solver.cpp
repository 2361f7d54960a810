#include <tvx/solver/solver.h>

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <iostream>
#include <string>
#include <unordered_set>
#include <utility>

#include <tvx/core/error.h>

#include "solver/recording_engine.h"
#include "solver/solver_tracer.h"
#include "tracer/null_api_tracer.h"

namespace tvx {

namespace {

std::unique_ptr<Engine> engine_or_recorder(std::unique_ptr<Engine> engine) {
  return engine != nullptr ? std::move(engine) : std::make_unique<RecordingEngine>();
}

// Adds the uninterpreted symbols of the terms on `stack` and below them to `symbols`; `stack`
// is empty on return.
void collect_symbols(std::vector<Term const*>& stack, std::unordered_set<Term const*>& seen,
                     std::unordered_set<Symbol const*>& symbols) {
  seen.clear();
  while (!stack.empty()) {
    Term const* t = stack.back();
    stack.pop_back();
    if (!seen.insert(t).second) {
      continue;
    }
    if (t->get_symbol()->is_uninterpreted()) {
      symbols.insert(t->get_symbol());
    }
    for (std::size_t i = 0; i < t->get_arity(); ++i) {
      stack.push_back(t->get_arg(i));
    }
  }
}

// Whether the entries' symbols ascend by id.
template <class Value>
bool in_id_order(std::vector<std::pair<Symbol const*, Value>> const& entries) {
  return std::is_sorted(entries.begin(), entries.end(), [](auto const& a, auto const& b) {
    return a.first->get_id() < b.first->get_id();
  });
}

}  // namespace

// ------------------------------------------------------------------------ construction

Solver::Solver(TermManager& mgr, Configuration& config, std::unique_ptr<Engine> engine)
    : mgr_(mgr),
      config_(config),
      recorder_(engine == nullptr),
      engine_(engine_or_recorder(std::move(engine))) {
  if (!config.api_call_trace) {
    start_tracing(nullptr);
    return;
  }
  std::string const& name = config.api_call_trace_filename;
  if (name.empty()) {
    throw Error(
        "debug.api_call_trace is on but debug.api_call_trace_filename is empty (name a file, "
        "or \"-\" for standard output)");
  }
  std::ostream* out = &std::cout;
  if (name != "-") {
    trace_file_.open(name, std::ios::binary | std::ios::trunc);
    if (!trace_file_) {
      throw Error("cannot open the trace file '" + name + "' (debug.api_call_trace_filename)");
    }
    out = &trace_file_;
  }
  start_tracing(std::make_unique<SmtLib2ApiTracer>(&config_, &mgr_, *out,
                                                   config.api_call_trace_global_decls,
                                                   config.api_call_trace_dump_config));
}

Solver::Solver(TermManager& mgr, Configuration& config, std::unique_ptr<Engine> engine,
               std::ostream& trace, bool global_decls, bool dump_config)
    : mgr_(mgr),
      config_(config),
      recorder_(engine == nullptr),
      engine_(engine_or_recorder(std::move(engine))) {
  start_tracing(
      std::make_unique<SmtLib2ApiTracer>(&config_, &mgr_, trace, global_decls, dump_config));
}

Solver::Solver(TermManager& mgr, Configuration& config, std::unique_ptr<Engine> engine,
               std::unique_ptr<SmtLib2ApiTracer> tracer)
    : mgr_(mgr),
      config_(config),
      recorder_(engine == nullptr),
      engine_(engine_or_recorder(std::move(engine))) {
  start_tracing(std::move(tracer));
}

Solver::~Solver() = default;

// Without a writer the solver reports its calls to a tracer that writes nothing.
void Solver::start_tracing(std::unique_ptr<SmtLib2ApiTracer> writer) {
  writer_ = writer.get();
  if (writer == nullptr) {
    tracer_ = std::make_unique<NullApiTracer>();
  } else {
    tracer_ = std::make_unique<SolverTracer>(mgr_, std::move(writer));
  }
}

std::vector<Term const*> Solver::get_assertions() const {
  std::vector<Term const*> formulas;
  formulas.reserve(assertions_.size());
  for (Assertion const& a : assertions_) {
    formulas.push_back(a.formula);
  }
  return formulas;
}

void Solver::reset() {
  tracer_->trace_reset();
  forget_answers();
  group_ = -1;
  num_groups_ = 0;
  assertions_.clear();
  scopes_.clear();
  engine_->reset();
}

// ------------------------------------------------------------------------ checks

void Solver::check_sort(DataType const* sort, char const* call) const {
  if (sort == nullptr) {
    throw Error(std::string(call) + ": no sort given");
  }
  if (!mgr_.owns(sort)) {
    throw Error(std::string(call) + ": the sort " + sort->to_string() +
                " was made by another term manager");
  }
}

void Solver::check_symbol(Symbol const* symbol, char const* call) const {
  if (symbol == nullptr) {
    throw Error(std::string(call) + ": no symbol given");
  }
  if (!mgr_.owns(symbol)) {
    throw Error(std::string(call) + ": the symbol '" + symbol->get_name() +
                "' was made by another term manager");
  }
  if (!symbol->is_uninterpreted()) {
    throw Error(std::string(call) + ": '" + symbol->get_name() +
                "' is a built-in symbol, which is never declared");
  }
}

void Solver::check_term(Term const* term, char const* call) const {
  if (term == nullptr) {
    throw Error(std::string(call) + ": no term given");
  }
  if (!mgr_.owns(term)) {
    throw Error(std::string(call) + ": the term was made by another term manager");
  }
  if (!mgr_.is_closed(term)) {
    throw Error(std::string(call) +
                ": a variable occurs free in the term; only a binder can "
                "hold a variable");
  }
  if (mgr_.has_params(term)) {
    throw Error(std::string(call) +
                ": the term holds a constructor, selector or tester of a parametric datatype "
                "over its parameters; terms take those of an instance (instance_symbol)");
  }
}

void Solver::check_formula(Term const* term, char const* call) const {
  check_term(term, call);
  if (!term->get_type()->is_bool()) {
    throw Error(std::string(call) + ": expected a formula of sort Bool, found sort " +
                term->get_type()->to_string());
  }
}

void Solver::check_group(int group, char const* call) const {
  if (group < 0 || group >= num_groups_) {
    throw Error(std::string(call) + ": no interpolation group " + std::to_string(group) +
                (num_groups_ == 0
                     ? std::string(" (none was created)")
                     : " (groups 0 to " + std::to_string(num_groups_ - 1) + " exist)"));
  }
}

// Queries are checked against the last check's answer only when an engine gives answers.
void Solver::check_state(bool ok, char const* call, char const* needed) const {
  if (!recorder_ && !ok) {
    throw Error(std::string(call) + ": " + needed);
  }
}

// ------------------------------------------------------------------------ declarations

DataType const* Solver::declare_sort(std::string const& name) {
  DataType const* sort = mgr_.make_simple_type(name);
  declare_sort(sort);
  return sort;
}

void Solver::declare_sort(DataType const* sort) {
  check_sort(sort, "declare_sort");
  if (!sort->is_uninterpreted()) {
    throw Error("declare_sort: the sort " + sort->to_string() +
                " is built in; only uninterpreted sorts are declared");
  }
  tracer_->trace_type_declaration(sort);
  engine_->declare_sort(sort);
}

Symbol const* Solver::declare_fun(std::string const& name, std::vector<DataType const*> const& args,
                                  DataType const* result) {
  for (DataType const* a : args) {
    check_sort(a, "declare_fun");
  }
  check_sort(result, "declare_fun");
  Symbol const* s = mgr_.make_symbol(name, mgr_.get_function_type(args, result));
  declare_fun(s);
  return s;
}

void Solver::declare_fun(Symbol const* symbol) {
  check_symbol(symbol, "declare_fun");
  tracer_->trace_symbol_declaration(symbol);
  engine_->declare_fun(symbol);
}

void Solver::define_funs_rec(std::vector<Symbol const*> const& functions,
                             std::vector<std::vector<Term const*>> const& params,
                             std::vector<Term const*> const& bodies) {
  char const* const call = "define_funs_rec";
  if (functions.empty() || params.size() != functions.size() || bodies.size() != functions.size()) {
    throw Error(std::string(call) + ": one parameter list and one body per function");
  }
  for (std::size_t k = 0; k < functions.size(); ++k) {
    Symbol const* f = functions[k];
    check_symbol(f, call);
    if (std::find(functions.begin(), functions.begin() + k, f) != functions.begin() + k) {
      throw Error(std::string(call) + ": '" + f->get_name() + "' is defined twice");
    }
    std::string const what = std::string(call) + ": '" + f->get_name() + "'";
    if (params[k].size() != f->get_arity()) {
      throw Error(what + " takes " + std::to_string(f->get_arity()) + " argument(s), given " +
                  std::to_string(params[k].size()) + " parameter(s)");
    }
    for (std::size_t i = 0; i < params[k].size(); ++i) {
      Term const* x = params[k][i];
      if (x == nullptr || !mgr_.owns(x) || x->get_symbol()->get_tag() != SymbolTag::VARIABLE ||
          x->get_type() != f->get_type()->get_component(i) ||
          std::find(params[k].begin(), params[k].begin() + i, x) != params[k].begin() + i) {
        throw Error(what + ": parameter " + std::to_string(i + 1) +
                    " must be a variable of the argument's sort, once");
      }
    }
    Term const* body = bodies[k];
    if (body == nullptr || !mgr_.owns(body) || body->get_type() != f->get_output_type()) {
      throw Error(what + ": the body must be a term of the result sort " +
                  f->get_output_type()->to_string());
    }
    if (!mgr_.is_closed_over(body, params[k])) {
      throw Error(what + ": a variable other than the parameters occurs free in the body");
    }
  }
  tracer_->trace_define_funs_rec(functions, params, bodies);
  engine_->define_funs_rec(functions, params, bodies);
}

// ------------------------------------------------------------------------ assertions

void Solver::assert_formula(Term const* formula) {
  check_formula(formula, "assert_formula");
  tracer_->trace_assert_formula(formula);
  add_assertion(formula);
}

void Solver::assert_named(Term const* formula, std::string const& name) {
  check_formula(formula, "assert_named");
  if (name.empty()) {
    throw Error("assert_named: the name is empty");
  }
  tracer_->trace_assert_named(formula, name);
  add_assertion(formula);
}

// A checked and traced assertion goes to the engine and the record.
void Solver::add_assertion(Term const* formula) {
  forget_answers();
  engine_->assert_formula(formula, config_.unsat_core_generation);
  assertions_.push_back(Assertion{formula, group_});
}

void Solver::set_logic(std::string const& logic) {
  if (logic.empty()) {
    throw Error("set_logic: no logic named");
  }
  tracer_->trace_set_logic(logic);
}

void Solver::set_timeout(double seconds) {
  if (!(seconds >= 0)) {
    throw Error("set_timeout: the time limit must be 0 (none) or more seconds");
  }
  config_.timeout = seconds;
  engine_->set_timeout(seconds);
}

void Solver::set_option(std::string const& keyword, std::string const& value) {
  if (keyword.size() < 2 || keyword[0] != ':' || value.empty()) {
    throw Error("set_option: expected a keyword such as :produce-models and a value");
  }
  tracer_->trace_set_option(keyword, value);
}

void Solver::push(std::size_t levels) {
  for (std::size_t i = 0; i < levels; ++i) {
    tracer_->trace_push_backtrack_point();
    forget_answers();
    engine_->push();
    scopes_.push_back(assertions_.size());
  }
}

void Solver::pop(std::size_t levels) {
  if (levels > scopes_.size()) {
    throw Error("pop: cannot pop " + std::to_string(levels) + " level(s): only " +
                std::to_string(scopes_.size()) + " are open");
  }
  for (std::size_t i = 0; i < levels; ++i) {
    tracer_->trace_pop_backtrack_point();
    forget_answers();
    assert(!scopes_.empty() && "an engine pops only open scopes");
    engine_->pop();
    // A scope remembers how many assertions were there when it opened; none is removed since.
    assert(scopes_.back() <= assertions_.size());
    assertions_.resize(scopes_.back());
    scopes_.pop_back();
  }
}

void Solver::reset_assertions() {
  tracer_->trace_reset_assertions();
  forget_answers();
  group_ = -1;
  assertions_.clear();
  scopes_.clear();
  engine_->reset_assertions();
}

// ------------------------------------------------------------------------ checks

CheckResult Solver::check() {
  tracer_->trace_check();
  return run_check({});
}

CheckResult Solver::check_with_assumptions(std::vector<TheoryLit> const& assumptions) {
  for (TheoryLit const& lit : assumptions) {
    check_formula(lit.get_term(), "check_with_assumptions");
  }
  tracer_->trace_check_with_assumptions(assumptions);
  return run_check(assumptions);
}

CheckResult Solver::run_check(std::vector<TheoryLit> const& assumptions) {
  forget_answers();
  reason_unknown_.clear();
  CheckResult const result = engine_->check(assumptions);
  if (result == CheckResult::Unknown) {
    reason_unknown_ = engine_->reason_unknown();
  }
  state_ = result == CheckResult::Sat     ? State::kSat
           : result == CheckResult::Unsat ? State::kUnsat
                                          : State::kUnknown;
  return result;
}

std::vector<std::vector<TheoryLit>> Solver::check_allsat(std::vector<Term const*> const& terms) {
  for (Term const* t : terms) {
    check_formula(t, "check_allsat");
  }
  check_state(config_.model_generation, "check_allsat",
              "needs model_generation, to read each model's truth values");
  tracer_->trace_check_allsat(terms);
  forget_answers();
  reason_unknown_.clear();
  std::vector<std::vector<TheoryLit>> cubes;
  engine_->push();
  try {
    std::vector<Term const*> blocking;
    for (;;) {
      CheckResult const r = engine_->check({});
      if (r == CheckResult::Unknown) {
        reason_unknown_ = engine_->reason_unknown();
      }
      if (r != CheckResult::Sat) {
        break;
      }
      std::vector<TheoryLit> cube;
      blocking.clear();
      for (Term const* t : terms) {
        bool const value = engine_->value(t) == mgr_.make_true();
        cube.emplace_back(t, !value);
        blocking.push_back(value ? mgr_.make_not(t) : t);
      }
      cubes.push_back(std::move(cube));
      // The next model must differ on some term; with no terms, one model is all there is.
      Term const* clause = blocking.empty()       ? mgr_.make_false()
                           : blocking.size() == 1 ? blocking[0]
                                                  : mgr_.make_builtin(SymbolTag::OR, blocking);
      engine_->assert_formula(clause, false);
    }
  } catch (...) {
    engine_->pop();
    throw;
  }
  engine_->pop();
  return cubes;
}

// ------------------------------------------------------------------------ interpolation

int Solver::new_interpolation_group() {
  if (num_groups_ == INT32_MAX) {
    throw Error("new_interpolation_group: no more groups can be made");
  }
  tracer_->trace_new_interpolation_group();
  return num_groups_++;
}

void Solver::set_interpolation_group(int group) {
  check_group(group, "set_interpolation_group");
  tracer_->trace_set_interpolation_group(group);
  group_ = group;
}

Term const* Solver::get_interpolant(std::vector<int> const& groups) {
  for (int g : groups) {
    check_group(g, "get_interpolant");
  }
  check_state(state_ == State::kUnsat, "get_interpolant",
              "needs an unsatisfiable check, with no assertion or scope change since");
  tracer_->trace_get_interpolant(groups);
  if (recorder_) {
    return nullptr;
  }
  std::vector<Term const*> a;
  std::vector<Term const*> b;
  for (Assertion const& as : assertions_) {
    bool in_a = false;
    for (int g : groups) {
      in_a = in_a || as.group == g;
    }
    (in_a ? a : b).push_back(as.formula);
  }
  // With one side empty the other is unsatisfiable alone, and a constant interpolates.
  if (a.empty()) {
    return mgr_.make_true();
  }
  if (b.empty()) {
    return mgr_.make_false();
  }
  Term const* interpolant = engine_->interpolant(a, b);
  check_interpolant(interpolant, a, b);
  return interpolant;
}

void Solver::check_interpolant(Term const* interpolant, std::vector<Term const*> const& a,
                               std::vector<Term const*> const& b) {
  std::string const where = engine_->name() + ": get_interpolant: ";
  if (interpolant == nullptr || !mgr_.owns(interpolant) || !interpolant->get_type()->is_bool()) {
    throw EngineError(where + "the engine's answer is not a formula of this session");
  }
  std::unordered_set<Term const*> seen;
  std::unordered_set<Symbol const*> in_a;
  std::unordered_set<Symbol const*> in_b;
  std::unordered_set<Symbol const*> in_i;
  term_stack_.assign(a.begin(), a.end());
  collect_symbols(term_stack_, seen, in_a);
  term_stack_.assign(b.begin(), b.end());
  collect_symbols(term_stack_, seen, in_b);
  term_stack_.assign(1, interpolant);
  collect_symbols(term_stack_, seen, in_i);
  // Report the first offending symbol by id, so that the message does not vary between runs.
  Symbol const* unshared = nullptr;
  for (Symbol const* s : in_i) {
    if ((in_a.count(s) == 0 || in_b.count(s) == 0) &&
        (unshared == nullptr || s->get_id() < unshared->get_id())) {
      unshared = s;
    }
  }
  if (unshared != nullptr) {
    throw EngineError(where + "the interpolant uses '" + unshared->get_name() + "', which " +
                      (in_a.count(unshared) == 0 ? "A" : "B") + " does not use");
  }
}

// ------------------------------------------------------------------------ queries

std::vector<Term const*> Solver::get_unsat_core() {
  check_state(config_.unsat_core_generation, "get_unsat_core",
              "needs unsat_core_generation, set before the assertions");
  check_state(state_ == State::kUnsat, "get_unsat_core",
              "needs an unsatisfiable check, with no assertion or scope change since");
  tracer_->trace_get_unsat_core();
  return engine_->unsat_core();
}

std::vector<TheoryLit> Solver::get_unsat_assumptions() {
  check_state(state_ == State::kUnsat, "get_unsat_assumptions",
              "needs an unsatisfiable check, with no assertion or scope change since");
  tracer_->trace_get_unsat_assumptions();
  return engine_->unsat_assumptions();
}

Model Solver::get_model() {
  check_state(config_.model_generation, "get_model", "needs model_generation");
  check_state(state_ == State::kSat || state_ == State::kUnknown, "get_model",
              "needs a satisfiable (or unknown) check, with no assertion or scope change since");
  tracer_->trace_get_model();
  Model model = engine_->model();
  assert(in_id_order(model.constants) && in_id_order(model.functions) &&
         "a model lists its symbols in id order");
  return model;
}

Term const* Solver::get_model_value(Term const* term) {
  check_term(term, "get_model_value");
  check_state(config_.model_generation, "get_model_value", "needs model_generation");
  check_state(state_ == State::kSat || state_ == State::kUnknown, "get_model_value",
              "needs a satisfiable (or unknown) check, with no assertion or scope change since");
  tracer_->trace_get_model_value(term);
  return engine_->value(term);
}

}  // namespace tvx
