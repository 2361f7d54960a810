// ProcessEngine: the engine of a solver process, shared by its three files: process_engine.cpp
// (starting the solver, talking to it, declarations, assertions, scopes, checks and cores),
// process_values.cpp (values and models read back into the term layer) and
// process_interpolants.cpp (interpolants, read back as formulas).
//
// The process engine: any solver that speaks SMT-LIB 2 on its standard input and output,
// started as a child process ("z3 -in", "cvc5 --incremental --lang smt2", ...). Commands are
// written by the term layer's printer; answers are read back into the term layer, guided by the
// sort each value must have. With :print-success on, every command has exactly one answer;
// commands that answer only "success" are sent without waiting, and their answers are read
// before the next command that answers something else, so requests and answers stay in step
// and a failure still names the command it answered.
//
// A solver that dies, hangs past the time-out and its grace, answers out of step, or reports
// an error on a command that changes its state is ended (killed and reaped): its state may no
// longer mirror the session's. An error on a query, or `unsupported`, leaves it running.
// Elements of uninterpreted sorts read from a model become the manager's abstract values;
// sent back, each is a constant of its sort (cvc5 takes no such constant in a constant array).
#ifndef TVX_SOLVER_PROCESS_ENGINE_H
#define TVX_SOLVER_PROCESS_ENGINE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <tvx/core/term_printer.h>
#include <tvx/solver/engine.h>

#include "solver/answers.h"
#include "solver/process.h"
#include "solver/sexpr.h"

namespace tvx {

class ProcessEngine final : public Engine {
 public:
  // With `interpolation`, the solver is asked to produce interpolants (for a helper solver
  // that interpolant() starts).
  ProcessEngine(TermManager& mgr, Configuration const& config, std::string const& command,
                bool interpolation = false);

  std::string const& name() const override { return name_; }
  void declare_sort(DataType const* sort) override;
  void declare_fun(Symbol const* symbol) override;
  void assert_formula(Term const* formula, bool track) override;
  void push() override;
  void pop() override;
  void reset_assertions() override;
  // Starts the solver anew: solvers differ on whether (reset) itself answers under
  // :print-success, and a new process is the start state for every one of them.
  void reset() override;
  void set_timeout(double seconds) override;
  void define_funs_rec(std::vector<Symbol const*> const& functions,
                       std::vector<std::vector<Term const*>> const& params,
                       std::vector<Term const*> const& bodies) override;
  CheckResult check(std::vector<TheoryLit> const& assumptions) override;
  std::string reason_unknown() override;
  std::vector<Term const*> unsat_core() override;
  std::vector<TheoryLit> unsat_assumptions() override;
  Term const* value(Term const* term) override;
  Model model() override;
  Term const* interpolant(std::vector<Term const*> const& a,
                          std::vector<Term const*> const& b) override;

 private:
  // The most of a command that a message shows.
  static constexpr std::size_t kCommandShown = 300;
  // Written before every user symbol and sort name: a solver knows more theories than the term
  // layer, and a user's name may be one of their symbols (set.empty, union, ...), which the
  // solver would take for its own.
  static constexpr char const* kNamePrefix = "tvx.";

  // A command as messages show it: one line, cut short when long.
  static std::string shown(std::string const& command);
  // A decimal numeral ("12", "0.5").
  static bool is_decimal(std::string const& s);
  // "a/b" for two decimals, scaled to whole numbers: 1.5 / 3.0 gives "15/30".
  static std::string fraction(std::string const& a, std::string const& b);

  // --- talking to the solver ---
  // Sends a command whose answer must be "success"; the answer is read later. The command waits
  // in the outbox until a query or a full outbox sends the batch in one write.
  void send(std::string const& command);
  // Writes the commands waiting in the outbox, in one write.
  void flush();
  // Sends a command and returns its answer, parsed into answer_. An (error ...) answer throws
  // EngineError and `unsupported` throws Unsupported; the solver goes on running.
  Sexpr const& ask(std::string const& command);
  // Sets an option; true when the solver accepted it. With `required`, refusal throws.
  bool set_option(std::string const& option, std::string const& value, bool required);
  // Writes the outbox, then reads the answers of every command sent and not answered yet.
  void sync();
  void write(std::string const& command);
  std::string receive(std::string const& command);
  void check_running();
  // Ends the solver and throws EngineError: `what` it did, and the command it did it on.
  [[noreturn]] void fail(std::string const& what, std::string const& command);
  // Throws for an (error ...) or `unsupported` answer; returns otherwise.
  void refuse(std::string const& answer, std::string const& command, bool end_solver);

  // Starts the solver process and sets the session's options.
  void start();

  // --- declarations ---
  void declare_sorts(DataType const* type);
  void declare_symbol(Symbol const* s);
  void declare_in(Term const* root);
  void mark(std::vector<std::uint8_t>& flags, std::uint64_t id, std::uint8_t kind);
  // Forgets what the solver dropped with the scopes above `depth` (every scope when `all`).
  void forget_above(std::size_t depth, bool all);
  void close_assumption_scope();
  std::string fresh_name(char const* kind);

  // --- answers ---
  // Reads a value of the given sort (see ValueWalk).
  Term const* to_term(Sexpr const& e, std::size_t node, DataType const* sort,
                      std::string const& command);
  class ValueWalk;
  bool read_number(Sexpr const& e, std::size_t node, DataType const* sort, std::string& out);
  // The expression a let-bound name stands for (the node itself when it is no such name).
  std::size_t resolve(Sexpr const& e, std::size_t node) const;
  // For (let (BINDINGS) BODY) at `node`: records the bindings in lets_, moves `node` to BODY
  // and returns true; false for any other node.
  bool open_let(Sexpr const& e, std::size_t& node, std::string const& command);
  // Reads the body of a function's definition (or of a lambda) for a TableBuilder.
  class BodyReader;
  FunctionValue function_value(Sexpr const& e, std::size_t def, Symbol const* s,
                               std::string const& command);
  std::vector<Term const*> constant_values(std::vector<Symbol const*> const& constants);
  std::vector<std::optional<FunctionValue>> function_tables(
      std::vector<Symbol const*> const& functions);
  // Reads a formula of the solver's into the term layer (an interpolant).
  Term const* read_term(Sexpr const& e, std::size_t root, std::string const& command);
  Term const* read_atom(Sexpr const& e, std::size_t node, std::string const& command);
  Term const* bv_literal(Sexpr const& e, std::size_t node);
  Term const* apply(Sexpr const& e, std::size_t node, std::vector<Term const*>& args,
                    std::string const& command);
  // The interpolant of the assertions and `goal`, for a solver started with interpolation.
  Term const* interpolant_of(Term const* goal);
  [[noreturn]] void unreadable(Sexpr const& e, std::size_t node, char const* what,
                               std::string const& command);

  TermManager& mgr_;
  Configuration config_;
  std::string name_;
  std::vector<std::string> argv_;
  bool interpolation_;
  Configuration::Printer settings_;
  SmtLib2TermPrinter printer_;
  std::unique_ptr<Process> process_;
  std::string ended_;                // why the solver was ended; empty while it runs
  double limit_ = 0.0;               // seconds to wait for one answer
  std::string solver_;               // the solver's :name, in lower case
  bool global_decls_ = false;        // declarations outlive scopes and reset-assertions
  std::string probe_;                // without global declarations: a symbol declared at the bottom
  std::deque<std::string> pending_;  // commands sent, answers not read yet (as shown)
  std::string outbox_;               // commands sent and not yet written
  std::ostringstream text_;
  Sexpr answer_;

  // Declarations the solver holds: per sort id (uninterpreted sorts; compound sorts whose
  // nested sorts are all declared) and per symbol id; and per term id, whether the symbols of
  // the term's DAG are declared. Without global declarations, the log says at which scope
  // depth each flag was set, so that pop can clear it.
  std::vector<std::uint8_t> sort_done_;
  std::vector<std::uint8_t> symbol_done_;
  std::vector<std::uint8_t> term_done_;
  struct Mark {
    std::uint8_t kind;  // 0 sort, 1 symbol
    std::uint64_t id;
    std::size_t depth;
  };
  std::vector<Mark> log_;
  std::vector<Symbol const*> known_;  // user symbols declared, in order
  // Every symbol declared, by the name the solver knows it by (unquoted).
  std::unordered_map<std::string, Symbol const*> by_name_;
  std::size_t depth_ = 0;  // scopes open in the solver
  std::uint64_t next_name_ = 1;

  // Tracked assertions by the name they were asserted with, and the depth of each.
  std::unordered_map<std::string, Term const*> named_;
  std::vector<std::pair<std::string, std::size_t>> named_log_;
  // A check under assumptions runs in a scope of its own, opened with fresh literals equal to
  // the assumptions; it stays open for the queries that follow, until the state changes.
  bool assumption_scope_ = false;
  std::vector<TheoryLit> assumptions_;
  std::unordered_map<std::string, std::size_t> proxies_;  // literal name -> assumption index

  // Elements (known by the solver's name for them), defaults, tables and models.
  Answers answers_{mgr_};

  // The let-bound names of the answer being read, each to the expression it stands for.
  std::unordered_map<std::string, std::size_t> lets_;
  // The definitions of the model just read, by name, for arrays written (_ as-array f).
  std::unordered_map<std::string, std::size_t> definitions_;

  std::vector<Term const*> stack_;  // scratch of declare_in
};

}  // namespace tvx

#endif  // TVX_SOLVER_PROCESS_ENGINE_H
