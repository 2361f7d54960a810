// Engine: a solver that answers for a Solver environment (z3 or cvc5 in process, or any
// SMT-LIB 2 solver over a pipe). Invariant: the environment has checked every call before it
// reaches the engine, so an engine sees only well-sorted terms of its term manager, pops only
// open scopes, and queries only in the state that allows them.
#ifndef TVX_SOLVER_ENGINE_H
#define TVX_SOLVER_ENGINE_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>

namespace tvx {

enum class CheckResult { Sat, Unsat, Unknown };

// "sat", "unsat" or "unknown".
char const* to_string(CheckResult result);

// The value of a function symbol: a table and a value everywhere else. A point may leave some
// arguments free (null in `args`: any value matches), so the table is read in order: the
// value at a tuple of arguments is that of the first point that matches it, or `otherwise`
// when none does. Every point fixes at least one argument.
struct FunctionValue {
  struct Point {
    std::vector<Term const*> args;
    Term const* value;
  };
  std::vector<Point> points;
  Term const* otherwise = nullptr;

  // The value at `args` (values, compared as terms): the first matching point's, or otherwise.
  Term const* at(std::vector<Term const*> const& args) const;
};

// A model: a value for each constant and function symbol that the engine knows, in symbol id
// order. Every value is a value term of the term layer (see Engine::value).
struct Model {
  std::vector<std::pair<Symbol const*, Term const*>> constants;
  std::vector<std::pair<Symbol const*, FunctionValue>> functions;
};

class Engine {
 public:
  virtual ~Engine();

  // The engine's name in messages: "z3", "cvc5", or the command line of a solver process.
  virtual std::string const& name() const = 0;

  // Declarations the application made. Symbols that reach an engine only inside terms are
  // declared by the engine itself, so these calls matter only to engines that must see a
  // declaration before its first use.
  virtual void declare_sort(DataType const* sort) = 0;
  virtual void declare_fun(Symbol const* symbol) = 0;

  // Asserts a formula in the current scope. With `track` set the formula may appear in the
  // core of a later unsatisfiable check.
  virtual void assert_formula(Term const* formula, bool track) = 0;
  // One scope each.
  virtual void push() = 0;
  virtual void pop() = 0;
  // Removes every assertion and scope; declarations stay.
  virtual void reset_assertions() = 0;
  // The time limit of each later check, in seconds; 0 for none.
  virtual void set_timeout(double seconds) = 0;
  // Back to the state the engine was made in: no assertions, scopes or declarations.
  virtual void reset() = 0;
  // Defines each function (used in no term before) by its body over its parameters
  // (variables), in the current scope; the bodies may apply every function of the group.
  virtual void define_funs_rec(std::vector<Symbol const*> const& functions,
                               std::vector<std::vector<Term const*>> const& params,
                               std::vector<Term const*> const& bodies) = 0;

  // Checks the assertions together with the assumption literals (none for a plain check).
  virtual CheckResult check(std::vector<TheoryLit> const& assumptions) = 0;
  // After an unknown answer: the engine's reason ("timeout", "incomplete", ...).
  virtual std::string reason_unknown() = 0;

  // After an unsatisfiable check: the tracked formulas of an unsatisfiable core, as asserted.
  virtual std::vector<Term const*> unsat_core() = 0;
  // After an unsatisfiable check under assumptions: the assumptions of a core.
  virtual std::vector<TheoryLit> unsat_assumptions() = 0;

  // After a satisfiable check: the value of `term` in the model, as a value term of the term
  // layer: true or false, an Int or Real numeral (Reals as rationals), a bit-vector literal,
  // an array as stores over a constant array, an element of an uninterpreted sort as the
  // manager's abstract value of that sort and index.
  virtual Term const* value(Term const* term) = 0;
  // After a satisfiable check: the model of every symbol the engine knows.
  virtual Model model() = 0;

  // After an unsatisfiable check: an interpolant of the formulas `a` and `b` (whose
  // conjunction is unsatisfiable), over the uninterpreted symbols they share. Neither list is
  // empty (the environment answers those cases itself), and the environment refuses an answer
  // that uses a symbol the two do not share. Engines without interpolation throw Unsupported
  // naming an engine that has it.
  virtual Term const* interpolant(std::vector<Term const*> const& a,
                                  std::vector<Term const*> const& b) = 0;
};

// The engines built into this library, by name ("z3", "cvc5"); engines whose solver library
// was not found at build time are left out.
std::vector<std::string> builtin_engine_names();
// The version of a built-in engine's solver library ("4.8.12"); empty for any other name.
std::string builtin_engine_version(std::string const& name);

// Makes an engine: a built-in engine by name, or, for any other text, a solver process started
// from that command line ("z3 -in", "cvc5 --incremental"). The engine reads the configuration's
// solver settings (model_generation, unsat_core_generation, random_seed, timeout) now.
// Throws Error for an unknown name that cannot be started either.
std::unique_ptr<Engine> make_engine(std::string const& name, TermManager& mgr,
                                    Configuration const& config);

}  // namespace tvx

#endif  // TVX_SOLVER_ENGINE_H
