// The process engine's session: starting the solver, talking to it in step, declarations
// mirrored scope by scope, assertions, checks and cores. See process_engine.h.
#include "solver/process_engine.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <tvx/core/error.h>

#include "core/operator_table.h"
#include "solver/engines.h"

namespace tvx {

namespace {

// Seconds to wait for any answer when the configuration sets no time-out.
constexpr double kNoTimeoutLimit = 600.0;
// Commands sent before their answers are read.
constexpr std::size_t kMaxPending = 256;

// The command that declares a Boolean constant of the engine's own; `bool_sort` is the term
// layer's Bool, whose name is the sort's SMT-LIB name.
std::string declare_bool(std::string const& name, DataType const* bool_sort) {
  return "(declare-fun " + name + " () " + bool_sort->get_name() + ")\n";
}

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

}  // namespace

// A command as messages show it: one line, cut short when long.
std::string ProcessEngine::shown(std::string const& command) {
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

ProcessEngine::ProcessEngine(TermManager& mgr, Configuration const& config,
                             std::string const& command, bool interpolation)
    : mgr_(mgr),
      config_(config),
      name_(command),
      argv_(split_command(command)),
      interpolation_(interpolation),
      settings_(config.printer),
      printer_(&mgr, &settings_, kNamePrefix, "", false, nullptr) {
  if (argv_.empty()) {
    throw Error("unknown engine '" + command + "'");
  }
  name_ = command.substr(command.find_first_not_of(" \t\n"));
  name_.erase(name_.find_last_not_of(" \t\n") + 1);
  limit_ = config.timeout > 0 ? config.timeout * 1.5 + 2.0 : kNoTimeoutLimit;
  start();
}

void ProcessEngine::start() {
  Configuration const& config = config_;
  process_ = std::make_unique<Process>(argv_);
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
      // cvc5 takes a negative or fractional Real as a constant array's value only as a
      // quotient of integers.
      printer_.set_real_quotients(solver_ == "cvc5");
    }
  } catch (EngineError const&) {
    check_running();
  } catch (Unsupported const&) {
  }
  global_decls_ = set_option(":global-declarations", "true", false);
  if (config.timeout > 0) {
    set_timeout(config.timeout);
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
  if (interpolation_) {
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
    send(declare_bool(probe_, mgr_.get_bool_type()));
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
  outbox_.clear();
  throw EngineError(message);
}

void ProcessEngine::write(std::string const& command) {
  check_running();
  try {
    process_->send(command);
  } catch (EngineError const& e) {
    ended_ = std::string(e.what()) + "; the command: " + shown(command);
    pending_.clear();
    outbox_.clear();
    throw EngineError(ended_);
  }
}

std::string ProcessEngine::receive(std::string const& command) {
  try {
    return process_->receive(limit_);
  } catch (EngineError const& e) {
    ended_ = std::string(e.what()) + "; the command: " + shown(command);
    pending_.clear();
    outbox_.clear();
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
  flush();
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
  check_running();
  outbox_ += command;
  pending_.push_back(shown(command));
  if (pending_.size() >= kMaxPending) {
    sync();
  }
}

void ProcessEngine::flush() {
  if (!outbox_.empty()) {
    std::string batch;
    batch.swap(outbox_);
    write(batch);
  }
}

Sexpr const& ProcessEngine::ask(std::string const& command) {
  // The commands waiting in the outbox go with the query, in one write (sync sends them):
  // one round trip.
  check_running();
  outbox_ += command;
  try {
    sync();
  } catch (Unsupported const&) {
    // The solver runs on and has answered the query too: its answer is read and dropped, so
    // that the next command meets its own.
    receive(command);
    throw;
  }
  std::string const answer = receive(command);
  refuse(answer, command, false);
  lets_.clear();
  definitions_.clear();
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
    if (t->is_instance()) {
      // Written as an application of its generic sort: that and the arguments come first.
      bool ready = true;
      if (!done(t->get_generic())) {
        stack.push_back(t->get_generic());
        ready = false;
      }
      for (DataType const* a : t->get_components()) {
        if (!done(a)) {
          stack.push_back(a);
          ready = false;
        }
      }
      if (!ready) {
        continue;
      }
    } else if (t->is_uninterpreted()) {
      text_.str("");
      printer_.print_type_declaration(text_, t);
      send(text_.str());
    } else if (t->is_datatype()) {
      // The whole group at once, after the sorts its fields take from outside it.
      bool ready = true;
      for (DataType const* f : mgr_.datatype_dependencies(t)) {
        if (!done(f)) {
          stack.push_back(f);
          ready = false;
        }
      }
      if (!ready) {
        continue;
      }
      text_.str("");
      printer_.print_type_declaration(text_, t);
      send(text_.str());
      for (DataType const* member : *mgr_.datatype_info(t)->group) {
        mark(sort_done_, member->get_id(), 0);
      }
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
    } else if (s->get_tag() == SymbolTag::DT_CONSTRUCTOR) {
      declare_sorts(s->get_output_type());
    } else if (s->get_tag() == SymbolTag::DT_SELECTOR || s->get_tag() == SymbolTag::DT_TESTER) {
      declare_sorts(s->get_type()->get_component(0));
    } else if (s->get_tag() == SymbolTag::CONST_ARRAY || s->get_tag() == SymbolTag::VARIABLE) {
      declare_sorts(s->get_output_type());  // written in the term: (as const S), ((x S))
    } else if (s->get_tag() == SymbolTag::ALGEBRAIC) {
      throw Unsupported(name_ + " takes no algebraic number " + s->get_name() + " in a term");
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

// The functions are declared by the definition itself; as they are no model's functions,
// they are not among the symbols a model lists.
void ProcessEngine::define_funs_rec(std::vector<Symbol const*> const& functions,
                                    std::vector<std::vector<Term const*>> const& params,
                                    std::vector<Term const*> const& bodies) {
  close_assumption_scope();
  for (Symbol const* f : functions) {
    declare_sorts(f->get_type());
    mark(symbol_done_, f->get_id(), 1);
    by_name_[kNamePrefix + f->get_name()] = f;
  }
  for (Term const* body : bodies) {
    declare_in(body);
  }
  text_.str("");
  printer_.print_define_funs_rec(text_, functions, params, bodies);
  send(text_.str());
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
      ask(declare_bool(probe_, mgr_.get_bool_type()));
    } catch (EngineError const&) {
      check_running();
      dropped = false;
    }
  }
  forget_above(0, dropped);
}

void ProcessEngine::set_timeout(double seconds) {
  config_.timeout = seconds;
  limit_ = seconds > 0 ? seconds * 1.5 + 2.0 : kNoTimeoutLimit;
  double const ms = seconds * 1000.0;
  std::string const limit =
      seconds <= 0
          ? "0"
          : std::to_string(ms >= 4294967295.0 ? 4294967295u : static_cast<unsigned>(ms + 0.5));
  set_option(solver_ == "cvc5" ? ":tlimit-per" : ":timeout",
             limit == "0" && seconds > 0 ? "1" : limit, false);
}

void ProcessEngine::reset() {
  process_.reset();
  ended_.clear();
  pending_.clear();
  outbox_.clear();
  text_.str("");
  solver_.clear();
  global_decls_ = false;
  probe_.clear();
  sort_done_.clear();
  symbol_done_.clear();
  term_done_.clear();
  log_.clear();
  known_.clear();
  by_name_.clear();
  depth_ = 0;
  named_.clear();
  named_log_.clear();
  assumption_scope_ = false;
  assumptions_.clear();
  proxies_.clear();
  lets_.clear();
  definitions_.clear();
  start();
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
      send(declare_bool(p, mgr_.get_bool_type()));
      send(std::string("(assert (") + optable::name_of(SymbolTag::EQUAL) + " " + p + " " +
           printer_.term_text(t) + "))\n");
      proxies_.emplace(p, i);
      std::string const lit =
          assumptions[i].is_negated()
              ? std::string("(") + optable::name_of(SymbolTag::NOT) + " " + p + ")"
              : p;
      command += (i == 0 ? "" : " ") + lit;
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
    if (a.is_app(k, optable::name_of(SymbolTag::NOT), 2)) {
      lit = a.kid(k, 1);
    }
    auto it = proxies_.find(a.node(lit).atom);
    if (!a.node(lit).list && it != proxies_.end()) {
      core.push_back(assumptions_[it->second]);
    }
  }
  return core;
}

std::unique_ptr<Engine> make_process_engine(std::string const& command, TermManager& mgr,
                                            Configuration const& config) {
  return std::make_unique<ProcessEngine>(mgr, config, command);
}

}  // namespace tvx
