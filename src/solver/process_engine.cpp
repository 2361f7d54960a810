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
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <tvx/core/error.h>
#include <tvx/core/term_printer.h>
#include <tvx/solver/engine.h>

#include "solver/engines.h"
#include "solver/process.h"
#include "solver/sexpr.h"

namespace tvx {

namespace {

// Seconds to wait for any answer when the configuration sets no time-out.
constexpr double kNoTimeoutLimit = 600.0;
// Commands sent before their answers are read.
constexpr std::size_t kMaxPending = 256;
// The most of a command that a message shows.
constexpr std::size_t kCommandShown = 300;
// Written before every user symbol and sort name: a solver knows more theories than the term
// layer, and a user's name may be one of their symbols (set.empty, union, ...), which the
// solver would take for its own.
constexpr char const* kNamePrefix = "tvx.";

// The words of a command line, split as a shell would without expansions: blanks separate
// words; '...' and "..." group (the quotes go); a backslash takes the next character as it is,
// inside double quotes only before one of " \ $ `.
std::vector<std::string> split_command(std::string const& line) {
  std::vector<std::string> words;
  std::string word;
  bool in_word = false;
  char quote = 0;
  for (std::size_t i = 0; i < line.size(); ++i) {
    char const c = line[i];
    if (quote != 0) {
      if (c == quote) {
        quote = 0;
      } else if (c == '\\' && quote == '"' && i + 1 < line.size() &&
                 std::string("\"\\$`").find(line[i + 1]) != std::string::npos) {
        word += line[++i];
      } else {
        word += c;
      }
      continue;
    }
    if (c == ' ' || c == '\t' || c == '\n') {
      if (in_word) {
        words.push_back(word);
        word.clear();
        in_word = false;
      }
      continue;
    }
    in_word = true;
    if (c == '\'' || c == '"') {
      quote = c;
    } else if (c == '\\' && i + 1 < line.size()) {
      word += line[++i];
    } else {
      word += c;
    }
  }
  if (quote != 0) {
    throw Error("cannot start the solver '" + line + "': a quote is not closed");
  }
  if (in_word) {
    words.push_back(word);
  }
  return words;
}

// A command as messages show it: one line, cut short when long.
std::string shown(std::string const& command) {
  std::string text = command.substr(0, kCommandShown);
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
    text.pop_back();
  }
  std::replace(text.begin(), text.end(), '\n', ' ');
  if (command.size() > kCommandShown) {
    text += " ...";
  }
  return text;
}

bool all_digits(std::string const& s) {
  return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// A decimal numeral ("12", "0.5").
bool is_decimal(std::string const& s) {
  std::size_t const dot = s.find('.');
  if (dot == std::string::npos) {
    return all_digits(s);
  }
  return all_digits(s.substr(0, dot)) && all_digits(s.substr(dot + 1));
}

// "a/b" for two decimals, scaled to whole numbers: 1.5 / 3.0 gives "15/30".
std::string fraction(std::string const& a, std::string const& b) {
  auto split = [](std::string const& s) {
    std::size_t const dot = s.find('.');
    return dot == std::string::npos ? std::make_pair(s, std::string())
                                    : std::make_pair(s.substr(0, dot), s.substr(dot + 1));
  };
  auto [ia, fa] = split(a);
  auto [ib, fb] = split(b);
  std::size_t const k = std::max(fa.size(), fb.size());
  fa.resize(k, '0');
  fb.resize(k, '0');
  return ia + fa + "/" + ib + fb;
}

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
  CheckResult check(std::vector<TheoryLit> const& assumptions) override;
  std::string reason_unknown() override;
  std::vector<Term const*> unsat_core() override;
  std::vector<TheoryLit> unsat_assumptions() override;
  Term const* value(Term const* term) override;
  Model model() override;
  Term const* interpolant(std::vector<Term const*> const& a,
                          std::vector<Term const*> const& b) override;

 private:
  // --- talking to the solver ---
  // Sends a command whose answer must be "success"; the answer is read later.
  void send(std::string const& command);
  // Sends a command and returns its answer, parsed into answer_. An (error ...) answer throws
  // EngineError and `unsupported` throws Unsupported; the solver goes on running.
  Sexpr const& ask(std::string const& command);
  // Sets an option; true when the solver accepted it. With `required`, refusal throws.
  bool set_option(std::string const& option, std::string const& value, bool required);
  // Reads the answers of every command sent and not answered yet.
  void sync();
  void write(std::string const& command);
  std::string receive(std::string const& command);
  void check_running();
  // Ends the solver and throws EngineError: `what` it did, and the command it did it on.
  [[noreturn]] void fail(std::string const& what, std::string const& command);
  // Throws for an (error ...) or `unsupported` answer; returns otherwise.
  void refuse(std::string const& answer, std::string const& command, bool end_solver);

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
  Term const* to_term(Sexpr const& e, std::size_t node, DataType const* sort,
                      std::string const& command);
  bool read_number(Sexpr const& e, std::size_t node, DataType const* sort, std::string& out);
  Term const* element(DataType const* sort, std::string const& engine_name);
  FunctionValue function_value(Sexpr const& e, std::size_t def, Symbol const* s,
                               std::string const& command);
  bool read_point(Sexpr const& e, std::size_t cond, std::vector<std::string> const& params,
                  Symbol const* s, std::vector<Term const*>& args, std::string const& command);
  // What a condition says of the parameters: one slot per parameter, the value's node (literal
  // -1) or false (0) or true (1) for a Bool parameter written p or (not p).
  struct Slot {
    std::size_t node;
    int literal;
  };
  bool match_point(Sexpr const& e, std::size_t cond, std::vector<std::string> const& params,
                   std::vector<Slot>& slots);
  Term const* any_value(DataType const* sort);
  // Reads a formula of the solver's into the term layer (an interpolant).
  Term const* read_term(Sexpr const& e, std::size_t root, std::string const& command);
  Term const* read_atom(Sexpr const& e, std::size_t node, std::string const& command);
  Term const* apply(Sexpr const& e, std::size_t node, std::vector<Term const*>& args,
                    std::string const& command);
  // The interpolant of the assertions and `goal`, for a solver started with interpolation.
  Term const* interpolant_of(Term const* goal);
  [[noreturn]] void unreadable(Sexpr const& e, std::size_t node, char const* what,
                               std::string const& command);

  TermManager& mgr_;
  Configuration config_;
  std::string name_;
  Configuration::Printer settings_;
  SmtLib2TermPrinter printer_;
  std::unique_ptr<Process> process_;
  std::string ended_;                // why the solver was ended; empty while it runs
  double limit_ = 0.0;               // seconds to wait for one answer
  std::string solver_;               // the solver's :name, in lower case
  bool global_decls_ = false;        // declarations outlive scopes and reset-assertions
  std::string probe_;                // without global declarations: a symbol declared at the bottom
  std::deque<std::string> pending_;  // commands sent, answers not read yet (as shown)
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

  // Elements of uninterpreted sorts by (sort id, the solver's name): the index each was given.
  std::map<std::pair<std::uint64_t, std::string>, std::uint64_t> elements_;
  std::unordered_map<std::uint64_t, std::uint64_t> next_element_;

  // The let-bound names of the answer being read, each to the expression it stands for.
  std::unordered_map<std::string, std::size_t> lets_;

  std::vector<Term const*> stack_;  // scratch of declare_in
};

ProcessEngine::ProcessEngine(TermManager& mgr, Configuration const& config,
                             std::string const& command, bool interpolation)
    : mgr_(mgr),
      config_(config),
      name_(command),
      settings_(config.printer),
      printer_(&mgr, &settings_, kNamePrefix, "", false, nullptr) {
  std::vector<std::string> const argv = split_command(command);
  if (argv.empty()) {
    throw Error("unknown engine '" + command + "'");
  }
  name_ = command.substr(command.find_first_not_of(" \t\n"));
  name_.erase(name_.find_last_not_of(" \t\n") + 1);
  limit_ = config.timeout > 0 ? config.timeout * 1.5 + 2.0 : kNoTimeoutLimit;
  process_ = std::make_unique<Process>(argv);
  set_option(":print-success", "true", true);
  // The solver's name chooses the options that SMT-LIB leaves to each solver.
  try {
    Sexpr const& info = ask("(get-info :name)\n");
    if (info.node(info.root()).list && info.size(info.root()) == 2) {
      std::string n = info.node(info.kid(info.root(), 1)).atom;
      n.erase(std::remove(n.begin(), n.end(), '"'), n.end());
      std::transform(n.begin(), n.end(), n.begin(),
                     [](char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); });
      solver_ = n;
    }
  } catch (EngineError const&) {
    check_running();
  } catch (Unsupported const&) {
  }
  global_decls_ = set_option(":global-declarations", "true", false);
  if (config.timeout > 0) {
    double const ms = config.timeout * 1000.0;
    std::string const limit =
        std::to_string(ms >= 4294967295.0 ? 4294967295u : static_cast<unsigned>(ms + 0.5));
    set_option(solver_ == "cvc5" ? ":tlimit-per" : ":timeout", limit == "0" ? "1" : limit, false);
  }
  if (config.random_seed != 0) {
    set_option(solver_ == "cvc5" ? ":seed" : ":random-seed", std::to_string(config.random_seed),
               false);
  }
  if (config.model_generation) {
    set_option(":produce-models", "true", true);
  }
  if (config.unsat_core_generation) {
    set_option(":produce-unsat-cores", "true", true);
  }
  if (interpolation) {
    // cvc5 computes interpolants by synthesis, which it refuses while it tracks cores.
    set_option(":produce-interpolants", "true", true);
  } else {
    set_option(":produce-unsat-assumptions", "true", false);
  }
  // Every theory the term layer has; a solver that knows no such logic picks its own.
  try {
    ask("(set-logic ALL)\n");
  } catch (EngineError const&) {
    check_running();
  } catch (Unsupported const&) {
  }
  if (!global_decls_) {
    // Declared at the bottom (after the options, which some solvers fix at the first
    // declaration), to learn after each reset-assertions whether the solver dropped its
    // declarations (SMT-LIB says it does; some solvers keep them).
    probe_ = fresh_name("probe");
    send("(declare-fun " + probe_ + " () Bool)\n");
  }
}

// ------------------------------------------------------------------------ talking

void ProcessEngine::check_running() {
  if (!ended_.empty()) {
    throw EngineError("solver '" + name_ + "' is not running: " + ended_);
  }
}

void ProcessEngine::fail(std::string const& what, std::string const& command) {
  process_->kill();
  std::string message = "solver '" + name_ + "' " + what + "; the command: " + shown(command);
  std::string const words = process_->last_words();
  if (!words.empty()) {
    message += "; its last words: " + words;
  }
  ended_ = message;
  pending_.clear();
  throw EngineError(message);
}

void ProcessEngine::write(std::string const& command) {
  check_running();
  try {
    process_->send(command);
  } catch (EngineError const& e) {
    ended_ = std::string(e.what()) + "; the command: " + shown(command);
    pending_.clear();
    throw EngineError(ended_);
  }
}

std::string ProcessEngine::receive(std::string const& command) {
  try {
    return process_->receive(limit_);
  } catch (EngineError const& e) {
    ended_ = std::string(e.what()) + "; the command: " + shown(command);
    pending_.clear();
    throw EngineError(ended_);
  }
}

void ProcessEngine::refuse(std::string const& answer, std::string const& command, bool end_solver) {
  if (answer == "unsupported") {
    throw Unsupported("solver '" + name_ + "' does not support the command: " + shown(command));
  }
  if (answer.compare(0, 6, "(error") == 0) {
    if (end_solver) {
      // The solver's state no longer mirrors the session's: it is ended.
      fail("answered " + answer, command);
    }
    std::string message =
        "solver '" + name_ + "' answered " + answer + " to the command: " + shown(command);
    std::string const words = process_->last_words();
    if (!words.empty()) {
      message += "; its last words: " + words;
    }
    throw EngineError(message);
  }
}

void ProcessEngine::sync() {
  std::string unsupported;
  while (!pending_.empty()) {
    std::string const command = pending_.front();
    std::string const answer = receive(command);
    pending_.pop_front();
    if (answer == "success") {
      continue;
    }
    if (answer == "unsupported") {
      // The other answers are read first, so that the next command meets its own.
      if (unsupported.empty()) {
        unsupported = command;
      }
      continue;
    }
    if (answer.compare(0, 6, "(error") == 0) {
      refuse(answer, command, true);
    }
    fail("answered '" + answer.substr(0, kCommandShown) + "' where success was expected", command);
  }
  if (!unsupported.empty()) {
    refuse("unsupported", unsupported, false);
  }
}

void ProcessEngine::send(std::string const& command) {
  write(command);
  pending_.push_back(shown(command));
  if (pending_.size() >= kMaxPending) {
    sync();
  }
}

Sexpr const& ProcessEngine::ask(std::string const& command) {
  sync();
  write(command);
  std::string const answer = receive(command);
  refuse(answer, command, false);
  lets_.clear();
  if (!answer_.parse(answer)) {
    fail("answered '" + answer.substr(0, kCommandShown) + "', which is not an s-expression",
         command);
  }
  return answer_;
}

bool ProcessEngine::set_option(std::string const& option, std::string const& value, bool required) {
  std::string const command = "(set-option " + option + " " + value + ")\n";
  try {
    Sexpr const& a = ask(command);
    if (a.is_atom(a.root(), "success")) {
      return true;
    }
    fail("answered '" + a.node(a.root()).atom + "' where success was expected", command);
  } catch (Unsupported const&) {
    if (required) {
      throw;
    }
  } catch (EngineError const&) {
    if (required) {
      throw;
    }
    check_running();
  }
  return false;
}

// ------------------------------------------------------------------------ declarations

void ProcessEngine::mark(std::vector<std::uint8_t>& flags, std::uint64_t id, std::uint8_t kind) {
  if (flags.size() <= id) {
    flags.resize(static_cast<std::size_t>(id) + 1, 0);
  }
  flags[id] = 1;
  if (!global_decls_) {
    log_.push_back(Mark{kind, id, depth_});
  }
}

void ProcessEngine::declare_sorts(DataType const* root) {
  auto done = [this](DataType const* t) {
    return t->get_id() < sort_done_.size() && sort_done_[t->get_id()] != 0;
  };
  if (done(root)) {
    return;
  }
  std::vector<DataType const*> stack{root};
  while (!stack.empty()) {
    DataType const* t = stack.back();
    if (done(t)) {
      stack.pop_back();
      continue;
    }
    if (t->is_uninterpreted()) {
      text_.str("");
      printer_.print_type_declaration(text_, t);
      send(text_.str());
    } else if (!t->is_simple()) {
      bool ready = true;
      for (std::size_t i = 0; i < t->get_num_components(); ++i) {
        if (!done(t->get_component(i))) {
          stack.push_back(t->get_component(i));
          ready = false;
        }
      }
      if (!ready) {
        continue;
      }
    }
    mark(sort_done_, t->get_id(), 0);
    stack.pop_back();
  }
}

void ProcessEngine::declare_symbol(Symbol const* s) {
  if (s->get_id() < symbol_done_.size() && symbol_done_[s->get_id()] != 0) {
    return;
  }
  declare_sorts(s->get_type());
  text_.str("");
  printer_.print_symbol_declaration(text_, s);
  send(text_.str());
  mark(symbol_done_, s->get_id(), 1);
  by_name_[kNamePrefix + s->get_name()] = s;
  // Abstract values (elements read back from models) are declared as constants of their
  // sort like any symbol, but they are the manager's, not the user's: no model lists them.
  if (mgr_.find_symbol(s->get_name()) == s) {
    known_.push_back(s);
  }
}

void ProcessEngine::declare_in(Term const* root) {
  if (term_done_.size() <= mgr_.num_terms()) {
    term_done_.resize(mgr_.num_terms() + 1, 0);
  }
  if (term_done_[root->get_id()] != 0) {
    return;
  }
  stack_.clear();
  stack_.push_back(root);
  while (!stack_.empty()) {
    Term const* t = stack_.back();
    stack_.pop_back();
    if (term_done_[t->get_id()] != 0) {
      continue;
    }
    Symbol const* s = t->get_symbol();
    if (s->is_uninterpreted()) {
      declare_symbol(s);
    } else if (s->get_tag() == SymbolTag::CONST_ARRAY) {
      declare_sorts(s->get_output_type());  // written in the term as (as const S)
    }
    term_done_[t->get_id()] = 1;
    for (std::size_t i = 0; i < t->get_arity(); ++i) {
      if (term_done_[t->get_arg(i)->get_id()] == 0) {
        stack_.push_back(t->get_arg(i));
      }
    }
  }
}

void ProcessEngine::forget_above(std::size_t depth, bool all) {
  while (!named_log_.empty() && (all || named_log_.back().second > depth)) {
    named_.erase(named_log_.back().first);
    named_log_.pop_back();
  }
  if (global_decls_) {
    return;
  }
  bool forgot = false;
  while (!log_.empty() && (all || log_.back().depth > depth)) {
    Mark const m = log_.back();
    (m.kind == 0 ? sort_done_ : symbol_done_)[m.id] = 0;
    log_.pop_back();
    forgot = true;
  }
  if (forgot) {
    // Which terms still have all their symbols declared is not recorded; walk them again.
    std::fill(term_done_.begin(), term_done_.end(), 0);
    known_.erase(std::remove_if(known_.begin(), known_.end(),
                                [this](Symbol const* s) { return symbol_done_[s->get_id()] == 0; }),
                 known_.end());
  }
}

void ProcessEngine::close_assumption_scope() {
  if (!assumption_scope_) {
    return;
  }
  assumption_scope_ = false;
  send("(pop 1)\n");
  --depth_;
  forget_above(depth_, false);
}

std::string ProcessEngine::fresh_name(char const* kind) {
  // User names all start with kNamePrefix, so no user name is ever one of these.
  return std::string("tvx!") + kind + std::to_string(next_name_++);
}

void ProcessEngine::declare_sort(DataType const* sort) {
  close_assumption_scope();
  declare_sorts(sort);
}

void ProcessEngine::declare_fun(Symbol const* symbol) {
  close_assumption_scope();
  declare_symbol(symbol);
}

// ------------------------------------------------------------------------ assertions

void ProcessEngine::assert_formula(Term const* formula, bool track) {
  close_assumption_scope();
  declare_in(formula);
  text_.str("");
  if (track) {
    std::string const name = fresh_name("a");
    printer_.apitracer_print_term(text_, formula, ":named " + name);
    named_.emplace(name, formula);
    named_log_.emplace_back(name, depth_);
  } else {
    printer_.apitracer_print_term(text_, formula, "");
  }
  send(text_.str());
}

void ProcessEngine::push() {
  close_assumption_scope();
  send("(push 1)\n");
  ++depth_;
}

void ProcessEngine::pop() {
  close_assumption_scope();
  send("(pop 1)\n");
  --depth_;
  forget_above(depth_, false);
}

void ProcessEngine::reset_assertions() {
  assumption_scope_ = false;
  send("(reset-assertions)\n");
  depth_ = 0;
  bool dropped = true;
  if (!global_decls_) {
    // Declaring the probe again succeeds only when the solver dropped its declarations.
    try {
      ask("(declare-fun " + probe_ + " () Bool)\n");
    } catch (EngineError const&) {
      check_running();
      dropped = false;
    }
  }
  forget_above(0, dropped);
}

CheckResult ProcessEngine::check(std::vector<TheoryLit> const& assumptions) {
  close_assumption_scope();
  assumptions_ = assumptions;
  proxies_.clear();
  std::string command = "(check-sat)\n";
  if (!assumptions.empty()) {
    send("(push 1)\n");
    ++depth_;
    assumption_scope_ = true;
    command = "(check-sat-assuming (";
    for (std::size_t i = 0; i < assumptions.size(); ++i) {
      Term const* t = assumptions[i].get_term();
      declare_in(t);
      std::string const p = fresh_name("lit");
      send("(declare-fun " + p + " () Bool)\n");
      send("(assert (= " + p + " " + printer_.term_text(t) + "))\n");
      proxies_.emplace(p, i);
      command += (i == 0 ? "" : " ") + (assumptions[i].is_negated() ? "(not " + p + ")" : p);
    }
    command += "))\n";
  }
  Sexpr const& a = ask(command);
  if (a.is_atom(a.root(), "sat")) {
    return CheckResult::Sat;
  }
  if (a.is_atom(a.root(), "unsat")) {
    return CheckResult::Unsat;
  }
  if (a.is_atom(a.root(), "unknown")) {
    return CheckResult::Unknown;
  }
  fail("answered '" + (a.node(a.root()).list ? std::string("(...)") : a.node(a.root()).atom) +
           "' where sat, unsat or unknown was expected",
       command);
}

std::string ProcessEngine::reason_unknown() {
  std::string const command = "(get-info :reason-unknown)\n";
  Sexpr const& a = ask(command);
  if (!a.node(a.root()).list || a.size(a.root()) != 2 || a.node(a.kid(a.root(), 1)).list) {
    unreadable(a, a.root(), "a reason", command);
  }
  std::string reason = a.node(a.kid(a.root(), 1)).atom;
  if (reason.size() >= 2 && reason.front() == '"') {
    reason = reason.substr(1, reason.size() - 2);
  }
  // z3 says "canceled" when its time limit stopped the check.
  return reason == "canceled" ? "timeout" : reason;
}

std::vector<Term const*> ProcessEngine::unsat_core() {
  std::string const command = "(get-unsat-core)\n";
  Sexpr const& a = ask(command);
  if (!a.node(a.root()).list) {
    unreadable(a, a.root(), "a core", command);
  }
  std::vector<Term const*> core;
  for (std::size_t k : a.node(a.root()).kids) {
    auto it = named_.find(a.node(k).atom);
    if (!a.node(k).list && it != named_.end()) {
      core.push_back(it->second);
    }
  }
  return core;
}

std::vector<TheoryLit> ProcessEngine::unsat_assumptions() {
  if (assumptions_.empty()) {
    return {};
  }
  std::string const command = "(get-unsat-assumptions)\n";
  Sexpr const& a = ask(command);
  if (!a.node(a.root()).list) {
    unreadable(a, a.root(), "assumptions", command);
  }
  std::vector<TheoryLit> core;
  for (std::size_t k : a.node(a.root()).kids) {
    std::size_t lit = k;
    if (a.is_app(k, "not", 2)) {
      lit = a.kid(k, 1);
    }
    auto it = proxies_.find(a.node(lit).atom);
    if (!a.node(lit).list && it != proxies_.end()) {
      core.push_back(assumptions_[it->second]);
    }
  }
  return core;
}

Term const* ProcessEngine::interpolant(std::vector<Term const*> const& a,
                                       std::vector<Term const*> const& b) {
  if (solver_ != "cvc5") {
    throw Unsupported("the engine of solver '" + name_ +
                      "' cannot compute interpolants; the cvc5 engine, and cvc5 over a pipe, can");
  }
  // A solver of its own, in which A is asserted: an interpolant I of A and not B has A imply I
  // and I imply not B, so I and B are unsatisfiable together.
  Configuration config = config_;
  config.model_generation = false;
  config.unsat_core_generation = false;
  ProcessEngine helper(mgr_, config, name_, true);
  for (Term const* f : a) {
    helper.assert_formula(f, false);
  }
  Term const* conjunction = b.empty()       ? mgr_.make_true()
                            : b.size() == 1 ? b[0]
                                            : mgr_.make_builtin("and", b);
  return helper.interpolant_of(mgr_.make_not(conjunction));
}

Term const* ProcessEngine::interpolant_of(Term const* goal) {
  declare_in(goal);
  std::string const command =
      "(get-interpolant " + fresh_name("itp") + " " + printer_.term_text(goal) + ")\n";
  Sexpr const& a = ask(command);
  if (!a.is_app(a.root(), "define-fun", 5)) {
    unreadable(a, a.root(), "(define-fun NAME () Bool TERM)", command);
  }
  Term const* t = read_term(a, a.kid(a.root(), 4), command);
  if (!t->get_type()->is_bool()) {
    unreadable(a, a.root(), "a formula", command);
  }
  return t;
}

Term const* ProcessEngine::read_atom(Sexpr const& e, std::size_t node, std::string const& command) {
  std::string const& a = e.node(node).atom;
  if (a == "true" || a == "false") {
    return a == "true" ? mgr_.make_true() : mgr_.make_false();
  }
  auto it = by_name_.find(a);
  if (it != by_name_.end() && it->second->get_arity() == 0) {
    return mgr_.make_constant(it->second);
  }
  if (all_digits(a)) {
    return mgr_.make_number(a, mgr_.get_integer_type());
  }
  if (is_decimal(a)) {
    return mgr_.make_number(a, mgr_.get_rational_type());
  }
  if (a.size() > 2 && a[0] == '#' && (a[1] == 'b' || a[1] == 'x')) {
    std::size_t const width = (a.size() - 2) * (a[1] == 'b' ? 1 : 4);
    return mgr_.make_number(a, mgr_.get_bv_type(width));
  }
  unreadable(e, node, "a term", command);
}

// Applies the head of the list at `node` to the terms read for its arguments. Int arguments
// where Real ones are needed become Real (numerals) or to_real of themselves, as the solver's
// own arithmetic mixes them.
Term const* ProcessEngine::apply(Sexpr const& e, std::size_t node, std::vector<Term const*>& args,
                                 std::string const& command) {
  std::size_t const head = e.kid(node, 0);
  std::string op;
  std::vector<std::uint64_t> indices;
  if (e.node(head).list) {
    // (_ extract 7 0) and the like
    if (e.size(head) < 3 || !e.is_atom(e.kid(head, 0), "_")) {
      unreadable(e, node, "a term", command);
    }
    op = e.node(e.kid(head, 1)).atom;
    for (std::size_t k = 2; k < e.size(head); ++k) {
      std::string const& index = e.node(e.kid(head, k)).atom;
      if (!all_digits(index) || index.size() > 18) {
        unreadable(e, node, "a term", command);
      }
      indices.push_back(std::stoull(index));
    }
  } else {
    op = e.node(head).atom;
  }
  auto to_real = [&](Term const*& t) {
    if (!t->get_type()->is_int()) {
      return;
    }
    Symbol const* s = t->get_symbol();
    t = s->get_tag() == SymbolTag::NUMERAL
            ? mgr_.make_number(s->get_name(), mgr_.get_rational_type())
            : mgr_.make_builtin("to_real", {t});
  };
  try {
    auto it = by_name_.find(op);
    if (it != by_name_.end() && indices.empty()) {
      Symbol const* s = it->second;
      for (std::size_t i = 0; i < args.size() && i < s->get_arity(); ++i) {
        if (s->get_type()->get_component(i)->is_real()) {
          to_real(args[i]);
        }
      }
      return mgr_.make_term(s, args);
    }
    bool const arith = op == "+" || op == "-" || op == "*" || op == "/" || op == "<" ||
                       op == "<=" || op == ">" || op == ">=" || op == "=" || op == "distinct" ||
                       op == "ite";
    if (arith) {
      std::size_t const first = op == "ite" ? 1 : 0;
      bool real = op == "/";
      for (std::size_t i = first; i < args.size(); ++i) {
        real = real || args[i]->get_type()->is_real();
      }
      if (real) {
        for (std::size_t i = first; i < args.size(); ++i) {
          to_real(args[i]);
        }
      }
      // Numerals: (- n) and (/ n d) are numerals of their own.
      Symbol const* s0 = args.empty() ? nullptr : args[0]->get_symbol();
      if (op == "-" && args.size() == 1 && s0->get_tag() == SymbolTag::NUMERAL) {
        std::string const& v = s0->get_name();
        return mgr_.make_number(v[0] == '-' ? v.substr(1) : "-" + v, args[0]->get_type());
      }
      if (op == "/" && args.size() == 2 && s0->get_tag() == SymbolTag::NUMERAL &&
          args[1]->get_symbol()->get_tag() == SymbolTag::NUMERAL &&
          args[1]->get_symbol()->get_name() != "0") {
        std::string n = s0->get_name();
        std::string d = args[1]->get_symbol()->get_name();
        bool const negative = (n[0] == '-') != (d[0] == '-');
        n.erase(0, n[0] == '-' ? 1 : 0);
        d.erase(0, d[0] == '-' ? 1 : 0);
        if (n.find('/') == std::string::npos && d.find('/') == std::string::npos) {
          return mgr_.make_number((negative ? "-" : "") + fraction(n, d), args[0]->get_type());
        }
      }
    }
    return mgr_.make_builtin(op, args, indices);
  } catch (Error const&) {
    unreadable(e, node, "a well-sorted term", command);
  }
}

// Reads a term without recursion: a frame per list, expanded into its arguments first and
// applied when they are read. Let-bound names stand for their expressions.
Term const* ProcessEngine::read_term(Sexpr const& e, std::size_t root, std::string const& command) {
  struct Frame {
    std::size_t node;
    bool expanded;
    std::size_t base;  // where its arguments start in `out`
  };
  std::vector<Frame> frames{{root, false, 0}};
  std::vector<Term const*> out;
  std::unordered_map<std::size_t, Term const*> memo;
  std::vector<Term const*> args;
  while (!frames.empty()) {
    std::size_t const n = frames.back().node;
    Sexpr::Node const& x = e.node(n);
    if (frames.back().expanded) {
      std::size_t const base = frames.back().base;
      args.assign(out.begin() + static_cast<std::ptrdiff_t>(base), out.end());
      out.resize(base);
      Term const* t = apply(e, n, args, command);
      memo.emplace(n, t);
      out.push_back(t);
      frames.pop_back();
      continue;
    }
    auto known = memo.find(n);
    if (known != memo.end()) {
      out.push_back(known->second);
      frames.pop_back();
      continue;
    }
    if (!x.list) {
      auto bound = lets_.find(x.atom);
      if (bound != lets_.end()) {
        frames.back().node = bound->second;
      } else {
        out.push_back(read_atom(e, n, command));
        frames.pop_back();
      }
      continue;
    }
    if (x.kids.size() == 3 && e.is_atom(x.kids[0], "let") && e.node(x.kids[1]).list) {
      for (std::size_t b : e.node(x.kids[1]).kids) {
        if (!e.node(b).list || e.size(b) != 2 || e.node(e.kid(b, 0)).list) {
          unreadable(e, n, "a let", command);
        }
        lets_[e.node(e.kid(b, 0)).atom] = e.kid(b, 1);
      }
      frames.back().node = x.kids[2];
      continue;
    }
    if (x.kids.size() == 3 && e.is_atom(x.kids[0], "_") &&
        e.node(x.kids[1]).atom.compare(0, 2, "bv") == 0 &&
        all_digits(e.node(x.kids[1]).atom.substr(2)) && all_digits(e.node(x.kids[2]).atom)) {
      // (_ bvN W)
      out.push_back(mgr_.make_number(e.node(x.kids[1]).atom.substr(2),
                                     mgr_.get_bv_type(std::stoull(e.node(x.kids[2]).atom))));
      frames.pop_back();
      continue;
    }
    if (x.kids.size() < 2) {
      unreadable(e, n, "a term", command);
    }
    frames.back().expanded = true;
    frames.back().base = out.size();
    for (std::size_t k = x.kids.size(); k-- > 1;) {
      frames.push_back(Frame{x.kids[k], false, 0});
    }
  }
  return out.back();
}

// ------------------------------------------------------------------------ values

void ProcessEngine::unreadable(Sexpr const& e, std::size_t node, char const* what,
                               std::string const& command) {
  // Shows the part that could not be read, as text again.
  std::string text;
  std::vector<std::pair<std::size_t, std::size_t>> stack{{node, 0}};
  while (!stack.empty() && text.size() < kCommandShown) {
    auto& [n, next] = stack.back();
    Sexpr::Node const& x = e.node(n);
    if (!x.list) {
      text += (text.empty() || text.back() == '(' ? "" : " ") + x.atom;
      stack.pop_back();
      continue;
    }
    if (next == 0) {
      text += (text.empty() || text.back() == '(' ? "(" : " (");
    }
    if (next == x.kids.size()) {
      text += ')';
      stack.pop_back();
      continue;
    }
    std::size_t const k = x.kids[next++];
    stack.emplace_back(k, 0);
  }
  throw EngineError("solver '" + name_ + "' answered '" + text + "' where " + what +
                    " was expected, to the command: " + shown(command));
}

Term const* ProcessEngine::element(DataType const* sort, std::string const& engine_name) {
  auto key = std::make_pair(sort->get_id(), engine_name);
  auto it = elements_.find(key);
  if (it == elements_.end()) {
    it = elements_.emplace(key, next_element_[sort->get_id()]++).first;
  }
  return mgr_.make_abstract_value(sort, it->second);
}

// The text make_number takes for an Int or Real value written n, (- n), (/ n d), (- (/ n d))
// or (/ (- n) d), with decimals in a Real value.
bool ProcessEngine::read_number(Sexpr const& e, std::size_t node, DataType const* sort,
                                std::string& out) {
  bool const real = sort->is_real();
  bool negative = false;
  auto signed_atom = [&](std::size_t n, std::string& text) {
    if (e.is_app(n, "-", 2)) {
      negative = !negative;
      n = e.kid(n, 1);
    }
    if (e.node(n).list) {
      return false;
    }
    text = e.node(n).atom;
    return real ? is_decimal(text) : all_digits(text);
  };
  if (e.is_app(node, "-", 2) && e.node(e.kid(node, 1)).list) {
    negative = true;
    node = e.kid(node, 1);
  }
  if (real && e.is_app(node, "/", 3)) {
    std::string a;
    std::string b;
    if (!signed_atom(e.kid(node, 1), a) || !signed_atom(e.kid(node, 2), b)) {
      return false;
    }
    out = fraction(a, b);
  } else if (!signed_atom(node, out)) {
    return false;
  }
  if (negative) {
    out = "-" + out;
  }
  return true;
}

// Reads a value of the given sort. Array values nest (stores over stores, arrays of arrays),
// so the walk keeps its own stack: a task reads one value, or combines the values read last
// on the result stack.
Term const* ProcessEngine::to_term(Sexpr const& e, std::size_t root, DataType const* root_sort,
                                   std::string const& command) {
  // kMemo records the value just read for its node, so that a let-bound expression used
  // many times is read once; kConst pushes a value known already.
  enum class Step : std::uint8_t { kRead, kConstArray, kStore, kMemo, kConst };
  struct Task {
    Step step;
    std::size_t node;
    DataType const* sort;
    Term const* term;
  };
  std::vector<Task> tasks{{Step::kRead, root, root_sort, nullptr}};
  std::vector<Term const*> results;
  std::unordered_map<std::size_t, Term const*> memo;
  auto slot_task = [&](Slot const& slot, DataType const* sort) {
    return slot.literal < 0 ? Task{Step::kRead, slot.node, sort, nullptr}
                            : Task{Step::kConst, 0, sort,
                                   slot.literal != 0 ? mgr_.make_true() : mgr_.make_false()};
  };
  std::vector<std::string> params(1);
  std::vector<Slot> slots;
  std::vector<std::pair<Slot, Slot>> points;
  while (!tasks.empty()) {
    Task const task = tasks.back();
    tasks.pop_back();
    DataType const* sort = task.sort;
    if (task.step == Step::kConst) {
      results.push_back(task.term);
      continue;
    }
    if (task.step == Step::kMemo) {
      memo.emplace(task.node, results.back());
      continue;
    }
    if (task.step == Step::kConstArray) {
      results.back() = mgr_.make_const_array(sort, results.back());
      continue;
    }
    if (task.step == Step::kStore) {
      std::size_t const first = results.size() - 3;
      Term const* store = mgr_.make_builtin("store", &results[first], 3);
      results.resize(first);
      results.push_back(store);
      continue;
    }
    std::size_t const n = task.node;
    Sexpr::Node const& x = e.node(n);
    auto known = memo.find(n);
    if (known != memo.end()) {
      results.push_back(known->second);
      continue;
    }
    if (!x.list) {
      auto bound = lets_.find(x.atom);
      if (bound != lets_.end()) {
        auto done = memo.find(bound->second);
        if (done != memo.end()) {
          results.push_back(done->second);
        } else {
          tasks.push_back(Task{Step::kMemo, bound->second, sort, nullptr});
          tasks.push_back(Task{Step::kRead, bound->second, sort, nullptr});
        }
        continue;
      }
    } else if (x.kids.size() == 3 && e.is_atom(x.kids[0], "let") && e.node(x.kids[1]).list) {
      for (std::size_t b : e.node(x.kids[1]).kids) {
        if (!e.node(b).list || e.size(b) != 2 || e.node(e.kid(b, 0)).list) {
          unreadable(e, n, "a let", command);
        }
        lets_[e.node(e.kid(b, 0)).atom] = e.kid(b, 1);
      }
      tasks.push_back(Task{Step::kRead, x.kids[2], sort, nullptr});
      continue;
    }
    std::string text;
    if (sort->is_bool()) {
      if (!e.is_atom(n, "true") && !e.is_atom(n, "false")) {
        unreadable(e, n, "a Bool value", command);
      }
      results.push_back(x.atom == "true" ? mgr_.make_true() : mgr_.make_false());
    } else if (sort->is_int() || sort->is_real()) {
      if (!read_number(e, n, sort, text)) {
        unreadable(e, n, sort->is_int() ? "an Int value" : "a Real value", command);
      }
      results.push_back(mgr_.make_number(text, sort));
    } else if (sort->is_bv()) {
      if (!x.list && (x.atom.compare(0, 2, "#b") == 0 || x.atom.compare(0, 2, "#x") == 0)) {
        text = x.atom;
      } else if (x.list && x.kids.size() == 3 && e.is_atom(x.kids[0], "_") &&
                 e.node(x.kids[1]).atom.compare(0, 2, "bv") == 0 &&
                 all_digits(e.node(x.kids[1]).atom.substr(2)) &&
                 e.node(x.kids[2]).atom == std::to_string(sort->get_bv_width())) {
        text = e.node(x.kids[1]).atom.substr(2);
      } else {
        unreadable(e, n, "a bit-vector value", command);
      }
      try {
        results.push_back(mgr_.make_number(text, sort));
      } catch (Error const&) {
        unreadable(e, n, "a bit-vector value", command);
      }
    } else if (sort->is_uninterpreted()) {
      // An element: a name of the solver's, maybe with its sort: (as @U_0 U).
      std::size_t name = n;
      if (x.list && x.kids.size() == 3 && e.is_atom(x.kids[0], "as")) {
        name = x.kids[1];
      }
      if (e.node(name).list || e.node(name).atom.empty()) {
        unreadable(e, n, "an element", command);
      }
      results.push_back(element(sort, e.node(name).atom));
    } else if (sort->is_array()) {
      if (e.is_app(n, "store", 4)) {
        tasks.push_back(Task{Step::kMemo, n, sort, nullptr});
        tasks.push_back(Task{Step::kStore, 0, sort, nullptr});
        tasks.push_back(Task{Step::kRead, x.kids[3], sort->get_array_element(), nullptr});
        tasks.push_back(Task{Step::kRead, x.kids[2], sort->get_array_index(), nullptr});
        tasks.push_back(Task{Step::kRead, x.kids[1], sort, nullptr});
      } else if (x.list && x.kids.size() == 2 && e.node(x.kids[0]).list && e.size(x.kids[0]) == 3 &&
                 e.is_atom(e.kid(x.kids[0], 0), "as") && e.is_atom(e.kid(x.kids[0], 1), "const")) {
        tasks.push_back(Task{Step::kConstArray, 0, sort, nullptr});
        tasks.push_back(Task{Step::kRead, x.kids[1], sort->get_array_element(), nullptr});
      } else if (x.kids.size() == 3 && e.is_atom(x.kids[0], "lambda") && e.size(x.kids[1]) == 1 &&
                 e.node(e.kid(x.kids[1], 0)).list && e.size(e.kid(x.kids[1], 0)) == 2) {
        // (lambda ((p I)) body): a table, read as the function tables of models are.
        params[0] = e.node(e.kid(e.kid(x.kids[1], 0), 0)).atom;
        DataType const* element = sort->get_array_element();
        points.clear();
        std::size_t body = x.kids[2];
        while (e.is_app(body, "ite", 4) && match_point(e, e.kid(body, 1), params, slots)) {
          points.emplace_back(slots[0], Slot{e.kid(body, 2), -1});
          body = e.kid(body, 3);
        }
        Slot otherwise{body, -1};
        if (element->is_bool() && !e.is_atom(body, "true") && !e.is_atom(body, "false")) {
          int const positive = e.is_app(body, "not", 2) ? 0 : 1;
          std::size_t const c = positive != 0 ? body : e.kid(body, 1);
          std::vector<std::size_t> conditions{c};
          if (e.node(c).list && e.size(c) > 1 && e.is_atom(e.kid(c, 0), "or")) {
            conditions.assign(e.node(c).kids.begin() + 1, e.node(c).kids.end());
          }
          for (std::size_t k : conditions) {
            if (!match_point(e, k, params, slots)) {
              unreadable(e, n, "an array value", command);
            }
            points.emplace_back(slots[0], Slot{0, positive});
          }
          otherwise = Slot{0, 1 - positive};
        }
        // The first point is stored last, so that it wins as the first ite branch does.
        tasks.push_back(Task{Step::kMemo, n, sort, nullptr});
        for (auto const& [index, value] : points) {
          tasks.push_back(Task{Step::kStore, 0, sort, nullptr});
          tasks.push_back(slot_task(value, element));
          tasks.push_back(slot_task(index, sort->get_array_index()));
        }
        tasks.push_back(Task{Step::kConstArray, 0, sort, nullptr});
        tasks.push_back(slot_task(otherwise, element));
      } else {
        unreadable(e, n, "an array value", command);
      }
    } else {
      unreadable(e, n, "a value", command);
    }
  }
  return results.back();
}

Term const* ProcessEngine::value(Term const* term) {
  declare_in(term);
  std::string const command = "(get-value (" + printer_.term_text(term) + "))\n";
  Sexpr const& a = ask(command);
  std::size_t const r = a.root();
  if (!a.node(r).list || a.size(r) != 1 || !a.node(a.kid(r, 0)).list || a.size(a.kid(r, 0)) != 2) {
    unreadable(a, r, "((term value))", command);
  }
  return to_term(a, a.kid(a.kid(r, 0), 1), term->get_type(), command);
}

// A condition of a function's table: (= p v) for each parameter p, or their conjunction.
bool ProcessEngine::match_point(Sexpr const& e, std::size_t cond,
                                std::vector<std::string> const& params, std::vector<Slot>& slots) {
  slots.assign(params.size(), Slot{0, -2});
  auto param_of = [&](std::size_t k) {
    return e.node(k).list
               ? params.size()
               : static_cast<std::size_t>(std::find(params.begin(), params.end(), e.node(k).atom) -
                                          params.begin());
  };
  std::vector<std::size_t> conjuncts{cond};
  if (e.node(cond).list && e.size(cond) > 1 && e.is_atom(e.kid(cond, 0), "and")) {
    conjuncts.assign(e.node(cond).kids.begin() + 1, e.node(cond).kids.end());
  }
  for (std::size_t c : conjuncts) {
    std::size_t p = params.size();
    if (e.is_app(c, "=", 3)) {
      for (std::size_t side = 1; side <= 2 && p == params.size(); ++side) {
        p = param_of(e.kid(c, side));
        if (p < params.size()) {
          slots[p] = Slot{e.kid(c, 3 - side), -1};
        }
      }
    } else if (e.is_app(c, "not", 2) && (p = param_of(e.kid(c, 1))) < params.size()) {
      slots[p] = Slot{0, 0};
    } else if ((p = param_of(c)) < params.size()) {
      slots[p] = Slot{0, 1};
    }
    if (p >= params.size()) {
      return false;
    }
  }
  return std::all_of(slots.begin(), slots.end(),
                     [](Slot const& slot) { return slot.literal > -2; });
}

// A point of a function's table, read from a condition (see match_point).
bool ProcessEngine::read_point(Sexpr const& e, std::size_t cond,
                               std::vector<std::string> const& params, Symbol const* s,
                               std::vector<Term const*>& args, std::string const& command) {
  std::vector<Slot> slots;
  if (!match_point(e, cond, params, slots)) {
    return false;
  }
  args.clear();
  for (std::size_t i = 0; i < slots.size(); ++i) {
    args.push_back(slots[i].literal < 0
                       ? to_term(e, slots[i].node, s->get_type()->get_component(i), command)
                   : slots[i].literal != 0 ? mgr_.make_true()
                                           : mgr_.make_false());
  }
  return true;
}

// A function's table from its definition (define-fun f ((p S) ...) R body), whose body is a
// chain of (ite condition value else) over equalities of the parameters with values, or for a
// Bool result a condition, its negation or a disjunction of conditions.
FunctionValue ProcessEngine::function_value(Sexpr const& e, std::size_t def, Symbol const* s,
                                            std::string const& command) {
  std::vector<std::string> params;
  for (std::size_t p : e.node(e.kid(def, 2)).kids) {
    if (!e.node(p).list || e.size(p) != 2) {
      unreadable(e, def, "a function definition", command);
    }
    params.push_back(e.node(e.kid(p, 0)).atom);
  }
  if (params.size() != s->get_arity()) {
    unreadable(e, def, "a function definition", command);
  }
  DataType const* result = s->get_output_type();
  FunctionValue fv;
  std::vector<Term const*> args;
  std::size_t body = e.kid(def, 4);
  while (e.node(body).list && e.size(body) == 3 && e.is_atom(e.kid(body, 0), "let") &&
         e.node(e.kid(body, 1)).list) {
    for (std::size_t b : e.node(e.kid(body, 1)).kids) {
      if (!e.node(b).list || e.size(b) != 2 || e.node(e.kid(b, 0)).list) {
        unreadable(e, body, "a let", command);
      }
      lets_[e.node(e.kid(b, 0)).atom] = e.kid(b, 1);
    }
    body = e.kid(body, 2);
  }
  while (e.is_app(body, "ite", 4) && read_point(e, e.kid(body, 1), params, s, args, command)) {
    fv.points.push_back(FunctionValue::Point{args, to_term(e, e.kid(body, 2), result, command)});
    body = e.kid(body, 3);
  }
  if (result->is_bool() && !e.is_atom(body, "true") && !e.is_atom(body, "false")) {
    bool positive = true;
    if (e.is_app(body, "not", 2)) {
      positive = false;
      body = e.kid(body, 1);
    }
    std::vector<std::size_t> conditions{body};
    if (e.node(body).list && e.size(body) > 1 && e.is_atom(e.kid(body, 0), "or")) {
      conditions.assign(e.node(body).kids.begin() + 1, e.node(body).kids.end());
    }
    for (std::size_t c : conditions) {
      if (!read_point(e, c, params, s, args, command)) {
        unreadable(e, c, "a table of values", command);
      }
      fv.points.push_back(
          FunctionValue::Point{args, positive ? mgr_.make_true() : mgr_.make_false()});
    }
    fv.otherwise = positive ? mgr_.make_false() : mgr_.make_true();
    return fv;
  }
  fv.otherwise = to_term(e, body, result, command);
  return fv;
}

// Some value of the sort, to apply a function the model leaves out to.
Term const* ProcessEngine::any_value(DataType const* sort) {
  std::vector<DataType const*> arrays;
  while (sort->is_array()) {
    arrays.push_back(sort);
    sort = sort->get_array_element();
  }
  Term const* v = sort->is_bool()            ? mgr_.make_false()
                  : sort->is_uninterpreted() ? mgr_.make_abstract_value(sort, 0)
                                             : mgr_.make_number("0", sort);
  while (!arrays.empty()) {
    v = mgr_.make_const_array(arrays.back(), v);
    arrays.pop_back();
  }
  return v;
}

Model ProcessEngine::model() {
  std::vector<Symbol const*> symbols(known_);
  std::sort(symbols.begin(), symbols.end(),
            [](Symbol const* a, Symbol const* b) { return a->get_id() < b->get_id(); });
  Model result;
  std::string command = "(get-value (";
  std::vector<Symbol const*> functions;
  for (Symbol const* s : symbols) {
    if (s->get_arity() == 0) {
      command += (result.constants.empty() ? "" : " ") + printer_.symbol_text(s);
      result.constants.emplace_back(s, nullptr);
    } else {
      functions.push_back(s);
    }
  }
  command += "))\n";
  if (!result.constants.empty()) {
    Sexpr const& a = ask(command);
    std::size_t const r = a.root();
    if (!a.node(r).list || a.size(r) != result.constants.size()) {
      unreadable(a, r, "a value for each constant", command);
    }
    for (std::size_t i = 0; i < result.constants.size(); ++i) {
      std::size_t const pair = a.kid(r, i);
      if (!a.node(pair).list || a.size(pair) != 2) {
        unreadable(a, pair, "(constant value)", command);
      }
      result.constants[i].second =
          to_term(a, a.kid(pair, 1), result.constants[i].first->get_output_type(), command);
    }
  }
  if (functions.empty()) {
    return result;
  }
  command = "(get-model)\n";
  Sexpr const& a = ask(command);
  std::size_t const r = a.root();
  if (!a.node(r).list) {
    unreadable(a, r, "a model", command);
  }
  std::unordered_map<std::string, std::size_t> definitions;  // by name
  for (std::size_t k : a.node(r).kids) {
    if (a.is_app(k, "define-fun", 5) && !a.node(a.kid(k, 1)).list) {
      definitions.emplace(a.node(a.kid(k, 1)).atom, k);
    }
  }
  for (Symbol const* s : functions) {
    auto it = definitions.find(kNamePrefix + s->get_name());
    if (it != definitions.end()) {
      result.functions.emplace_back(s, function_value(a, it->second, s, command));
    } else {
      result.functions.emplace_back(s, FunctionValue{});
    }
  }
  // Functions the solver leaves out of its model (z3 does so for those no assertion uses)
  // get the value of one application everywhere.
  for (auto& [s, fv] : result.functions) {
    if (fv.otherwise == nullptr) {
      std::vector<Term const*> args;
      for (std::size_t i = 0; i < s->get_arity(); ++i) {
        args.push_back(any_value(s->get_type()->get_component(i)));
      }
      fv.otherwise = value(mgr_.make_term(s, args));
    }
  }
  return result;
}

}  // namespace

std::unique_ptr<Engine> make_process_engine(std::string const& command, TermManager& mgr,
                                            Configuration const& config) {
  return std::make_unique<ProcessEngine>(mgr, config, command);
}

}  // namespace tvx
