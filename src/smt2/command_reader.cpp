// The command reader: the loop that reads one command at a time, and one function per
// command. Each command parses its arguments, makes its calls on the Solver (which checks,
// traces and answers them), and writes the answer when a response writer is set.
#include <algorithm>
#include <cassert>

#include "smt2/reader_impl.h"

namespace tvx {
namespace smt2 {

namespace {

// Each level is one traced call; a count beyond this is taken for a mistake.
constexpr std::uint64_t kMaxPushCount = 1000000;

}  // namespace

void ScriptReader::Impl::read(std::istream& in, std::string const& filename) {
  Lexer lex(in, filename);
  lex_ = &lex;
  struct Reset {
    Impl* self;
    ~Reset() {
      self->lex_ = nullptr;
      self->reset_parse_state();
    }
  } reset{this};
  for (;;) {
    if (lex.peek_kind() == TokenKind::kEof) {
      return;
    }
    // The term layer and the solver report misuse with tvx::Error; the commands turn the ones
    // they expect into positioned errors, and this net positions any other at the command.
    // Anything else is a bug of the library and escapes as it is.
    assert(frames_.empty() && values_.empty() && let_undo_.empty());
    std::uint64_t const line = lex.peek().line;
    std::uint64_t const column = lex.peek().column;
    std::uint64_t const answered = responses_ == nullptr ? 0 : responses_->count();
    bool more = true;
    try {
      try {
        more = command();
      } catch (ReadError const&) {
        throw;
      } catch (Unsupported const& e) {
        // An engine without the feature: a solver answers "unsupported" and goes on.
        if (responses_ == nullptr) {
          error_at(line, column, e.what());
        }
        responses_->unsupported();
      } catch (Error const& e) {
        error_at(line, column, e.what());
      }
    } catch (ReadError const& e) {
      if (responses_ == nullptr || !persona_.continued_execution) {
        throw;
      }
      // Continued execution: the error is the command's answer, and the next command follows.
      responses_->error(e.what());
      ++errors_answered_;
      reset_parse_state();
      if (!lex.skip_to_command_end()) {
        return;
      }
      continue;
    }
    if (print_success_ && responses_ != nullptr && responses_->count() == answered) {
      responses_->text("success");
    }
    if (!more) {
      return;
    }
    ++commands_;
    if (progress_) {
      progress_(lex.bytes_read(), commands_);
    }
  }
}

// Carries out a command that declares, asserts, changes scopes or sets options; false for
// any other command.
bool ScriptReader::Impl::state_command(Command c, Token const& cmd) {
  switch (c) {
    case Command::kAssert:
      cmd_assert();
      return true;
    case Command::kDeclareFun:
    case Command::kDeclareConst:
      cmd_declare_fun(c == Command::kDeclareConst);
      return true;
    case Command::kDefineFun:
    case Command::kDefineConst:
      cmd_define_fun(c == Command::kDefineConst);
      return true;
    case Command::kDeclareSort:
      cmd_declare_sort();
      return true;
    case Command::kDefineSort:
      cmd_define_sort();
      return true;
    case Command::kPush:
    case Command::kPop:
      cmd_push_pop(c == Command::kPush, cmd);
      return true;
    case Command::kResetAssertions:
      cmd_reset_assertions();
      return true;
    case Command::kReset:
      cmd_reset();
      return true;
    case Command::kDefineFunRec:
    case Command::kDefineFunsRec:
      cmd_define_funs_rec(c == Command::kDefineFunsRec, cmd);
      return true;
    case Command::kDeclareDatatype:
    case Command::kDeclareDatatypes:
      cmd_declare_datatypes(c == Command::kDeclareDatatypes, cmd);
      return true;
    case Command::kSetOption:
      cmd_set_option();
      return true;
    case Command::kSetLogic:
      cmd_set_logic();
      return true;
    case Command::kSetInfo:
      cmd_set_info();
      return true;
    default:
      return false;
  }
}

// Carries out a check or a query; false for any other command.
bool ScriptReader::Impl::query_command(Command c) {
  switch (c) {
    case Command::kCheckSat:
      cmd_check_sat();
      return true;
    case Command::kCheckSatAssuming:
      cmd_check_sat_assuming();
      return true;
    case Command::kCheckAllsat:
      cmd_check_allsat();
      return true;
    case Command::kGetValue:
      cmd_get_value();
      return true;
    case Command::kGetModel:
      cmd_get_model();
      return true;
    case Command::kGetUnsatCore:
      cmd_get_unsat_core();
      return true;
    case Command::kGetUnsatAssumptions:
      cmd_get_unsat_assumptions();
      return true;
    case Command::kGetInterpolant:
      cmd_get_interpolant();
      return true;
    case Command::kGetAssertions:
      cmd_get_assertions();
      return true;
    case Command::kGetAssignment:
      cmd_get_assignment();
      return true;
    case Command::kGetInfo:
    case Command::kGetOption:
      cmd_get_info(c == Command::kGetInfo);
      return true;
    case Command::kEcho:
      cmd_echo();
      return true;
    default:
      return false;
  }
}

// A command this reader does not carry out: the error that says why.
void ScriptReader::Impl::refuse_command(Command c, Token const& cmd) {
  std::string const& name = cmd.text;
  switch (c) {
    case Command::kDatatypes:
      error_at(cmd, "codatatypes ('" + name + "') are not supported");
    default:
      error_at(cmd, "the command '" + name + "' is not supported");
  }
}

// Reads and carries out one command; false after (exit).
bool ScriptReader::Impl::command() {
  expect_lparen(" starting a command");
  Token const cmd = lex_->peek();
  if (cmd.kind != TokenKind::kSymbol) {
    expected("a command name");
  }
  lex_->next();
  Command const c = command_of(cmd.text);
  if (c == Command::kExit) {
    expect_rparen(" after exit");
    return false;
  }
  if (!state_command(c, cmd) && !query_command(c)) {
    refuse_command(c, cmd);
  }
  return true;
}

void ScriptReader::Impl::cmd_check_sat() {
  expect_rparen(" after check-sat");
  CheckResult const result = solver_.check();
  if (responses_ != nullptr) {
    responses_->check(result);
  }
}

void ScriptReader::Impl::cmd_check_sat_assuming() {
  cmd_term_list(terms_scratch_, true, "check-sat-assuming");
  std::vector<TheoryLit> lits;
  lits.reserve(terms_scratch_.size());
  for (Term const* t : terms_scratch_) {
    if (t->get_symbol()->get_tag() == SymbolTag::NOT) {
      lits.emplace_back(t->get_arg(0), true);
    } else {
      lits.emplace_back(t, false);
    }
  }
  CheckResult const result = solver_.check_with_assumptions(lits);
  if (responses_ != nullptr) {
    responses_->check(result);
  }
}

void ScriptReader::Impl::cmd_check_allsat() {
  cmd_term_list(terms_scratch_, true, "check-allsat");
  auto const cubes = solver_.check_allsat(terms_scratch_);
  if (responses_ != nullptr) {
    responses_->cubes(cubes, solver_.reason_unknown());
  }
}

// Each value is answered beside its term as the script wrote it, the way solvers echo it.
void ScriptReader::Impl::cmd_get_value() {
  std::vector<std::string> texts;
  expect_lparen(" starting the list of terms");
  terms_scratch_.clear();
  struct StopRecording {
    Lexer* lex;
    ~StopRecording() { lex->record_into(nullptr); }
  } stop{lex_};
  while (lex_->peek_kind() != TokenKind::kRParen) {
    texts.emplace_back();
    lex_->record_into(&texts.back());
    terms_scratch_.push_back(parse_term(false));
    lex_->record_into(nullptr);
  }
  if (terms_scratch_.empty()) {
    expected("a term");
  }
  lex_->next();
  expect_rparen(" after the list of terms");
  std::vector<std::pair<std::string, Term const*>> values;
  for (std::size_t i = 0; i < terms_scratch_.size(); ++i) {
    values.emplace_back(std::move(texts[i]), solver_.get_model_value(terms_scratch_[i]));
  }
  if (responses_ != nullptr) {
    responses_->values(values);
  }
}

void ScriptReader::Impl::cmd_get_model() {
  expect_rparen(" after get-model");
  Model const model = solver_.get_model();
  if (responses_ != nullptr) {
    responses_->model(model);
  }
}

void ScriptReader::Impl::cmd_get_unsat_core() {
  expect_rparen(" after get-unsat-core");
  std::vector<Term const*> const core = solver_.get_unsat_core();
  if (responses_ == nullptr) {
    return;
  }
  // A core is answered by the names of its formulas; formulas without one are left out.
  std::vector<std::string> names;
  for (Term const* t : core) {
    auto it = assertion_names_.find(t);
    if (it != assertion_names_.end()) {
      names.push_back(it->second);
    }
  }
  responses_->names(names);
}

void ScriptReader::Impl::cmd_get_unsat_assumptions() {
  expect_rparen(" after get-unsat-assumptions");
  std::vector<TheoryLit> const lits = solver_.get_unsat_assumptions();
  if (responses_ != nullptr) {
    responses_->literals(lits);
  }
}

void ScriptReader::Impl::cmd_get_interpolant() {
  expect_lparen(" starting the list of interpolation groups");
  std::vector<int> groups;
  while (lex_->peek_kind() != TokenKind::kRParen) {
    groups.push_back(group_number(expect_symbol("an interpolation group name or ')'")));
  }
  lex_->next();
  expect_rparen(" after the list of interpolation groups");
  Term const* interpolant = solver_.get_interpolant(groups);
  if (responses_ != nullptr && interpolant != nullptr) {
    responses_->term(interpolant);
  }
}

void ScriptReader::Impl::cmd_reset_assertions() {
  expect_rparen(" after reset-assertions");
  while (!scope_marks_.empty()) {
    pop_scope();
  }
  solver_.reset_assertions();
}

void ScriptReader::Impl::cmd_reset() {
  expect_rparen(" after reset");
  // Every name goes, whatever its scope, and every option; what the reader learnt about
  // operator names stays, as do the terms it made.
  for (auto& [text, e] : entries_) {
    e.name = Name{nullptr, nullptr, nullptr};
    e.constant = nullptr;
    e.sort = nullptr;
  }
  scope_log_.clear();
  scope_marks_.clear();
  macros_.clear();
  global_declarations_ = false;
  numerals_are_real_ = false;
  groups_.clear();
  group_numbers_used_.clear();
  next_group_ = 0;
  have_pending_group_ = false;
  assertion_names_.clear();
  named_formulas_.clear();
  options_.clear();
  config_.model_generation = initial_models_;
  config_.unsat_core_generation = initial_cores_;
  print_success_ = print_success_ && persona_.reset_keeps_print_success;
  solver_.reset();
}

// The assertions of the open scopes, as asserted.
void ScriptReader::Impl::cmd_get_assertions() {
  expect_rparen(" after get-assertions");
  std::vector<TheoryLit> assertions;
  for (Term const* t : solver_.get_assertions()) {
    assertions.emplace_back(t, false);
  }
  if (responses_ != nullptr) {
    responses_->literals(assertions);
  }
}

// The truth value of each :named Boolean term still in scope, in naming order.
void ScriptReader::Impl::cmd_get_assignment() {
  expect_rparen(" after get-assignment");
  std::vector<std::pair<std::string, bool>> assignment;
  std::unordered_set<std::string> seen;  // a name named again counts once, at its last naming
  for (auto it = named_formulas_.rbegin(); it != named_formulas_.rend(); ++it) {
    Entry const* e = find_entry(it->first);
    if (e != nullptr && e->name.term == it->second && seen.insert(it->first).second) {
      assignment.emplace_back(it->first, false);
    }
  }
  std::reverse(assignment.begin(), assignment.end());
  for (auto& [name, value] : assignment) {
    value = solver_.get_model_value(find_entry(name)->name.term) == mgr_.make_true();
  }
  if (responses_ != nullptr) {
    responses_->assignment(assignment);
  }
}

void ScriptReader::Impl::cmd_set_logic() {
  std::string const logic = expect_symbol("a logic name");
  expect_rparen(" after the logic name");
  // In a logic of reals without integers a numeral such as 1 denotes a Real.
  bool const ints = logic.find("IA") != std::string::npos ||
                    logic.find("IRA") != std::string::npos ||
                    logic.find("IDL") != std::string::npos || logic == "ALL";
  bool const reals =
      logic.find("RA") != std::string::npos || logic.find("RDL") != std::string::npos;
  numerals_are_real_ = reals && !ints;
  solver_.set_logic(logic);
}

void ScriptReader::Impl::cmd_set_info() {
  if (lex_->peek_kind() != TokenKind::kKeyword) {
    expected("a keyword");
  }
  lex_->next();
  skip_attribute_value();
  expect_rparen(" after the info value");
}

void ScriptReader::Impl::cmd_get_info(bool info) {
  if (lex_->peek_kind() != TokenKind::kKeyword) {
    expected("a keyword");
  }
  std::string const key = lex_->peek().text;
  lex_->next();
  expect_rparen(" after the keyword");
  if (responses_ != nullptr) {
    answer_info(info, key);
  }
}

void ScriptReader::Impl::cmd_echo() {
  if (lex_->peek_kind() != TokenKind::kString) {
    expected("a string literal");
  }
  std::string const text = lex_->peek().text;
  lex_->next();
  expect_rparen(" after the string");
  if (responses_ != nullptr && persona_.echo_quoted) {
    responses_->string(text);
  } else if (responses_ != nullptr) {
    responses_->text(text);
  }
  if (responses_ != nullptr && print_success_ && persona_.echo_success) {
    responses_->text("success");
  }
}

void ScriptReader::Impl::cmd_declare_sort() {
  Token const name_tok = lex_->peek();
  std::string const name = expect_symbol("a sort name");
  Token const arity_tok = lex_->peek();
  std::uint64_t arity = 0;
  if (arity_tok.kind != TokenKind::kRParen) {
    arity = expect_numeral("the sort's arity");
  }
  if (arity > 64) {
    error_at(arity_tok, "the arity " + arity_tok.text + " of sort '" + name + "' is too large");
  }
  expect_rparen(" after the sort's arity");
  if (Entry const* e = find_entry(name);
      e != nullptr && (e->sort != nullptr || e->sort_macro != nullptr)) {
    error_at(name_tok, "sort '" + name + "' is already declared or defined");
  }
  if (is_builtin_sort_name(name)) {
    error_at(name_tok, "'" + name + "' is a built-in sort name and cannot be declared");
  }
  DataType const* sort = mgr_.get_simple_type(name, true);
  if (sort == nullptr || !sort->is_uninterpreted() || sort->get_num_params() != arity) {
    try {
      sort = mgr_.make_sort_constructor(name, static_cast<std::size_t>(arity));
    } catch (Error const& e) {
      error_at(name_tok, e.what());
    }
  }
  add_sort(name, sort);
  solver_.declare_sort(sort);
}

// (define-sort NAME (PARAM*) SORT): without parameters a name for SORT; with them a sort
// macro, expanded where it is applied.
void ScriptReader::Impl::cmd_define_sort() {
  Token const name_tok = lex_->peek();
  std::string const name = expect_symbol("a sort name");
  expect_lparen(" starting the sort parameters");
  std::vector<std::string> params;
  while (lex_->peek_kind() != TokenKind::kRParen) {
    Token const param_tok = lex_->peek();
    params.push_back(expect_symbol("a sort parameter"));
    if (std::find(params.begin(), params.end() - 1, params.back()) != params.end() - 1) {
      error_at(param_tok, "the sort parameter '" + params.back() + "' is repeated");
    }
  }
  lex_->next();
  std::vector<SortNode> body = parse_sort_code(params.empty() ? nullptr : &params);
  expect_rparen(" after the sort");
  Entry const* e = find_entry(name);
  if ((e != nullptr && (e->sort != nullptr || e->sort_macro != nullptr)) ||
      is_builtin_sort_name(name)) {
    error_at(name_tok, "sort '" + name + "' is already declared or defined");
  }
  if (params.empty()) {
    add_sort(name, eval_sort(body));
    return;
  }
  sort_macros_.push_back(SortMacro{name, params.size(), std::move(body)});
  add_sort_macro(name, &sort_macros_.back());
}

void ScriptReader::Impl::cmd_declare_fun(bool is_const) {
  Token const name_tok = lex_->peek();
  std::string const name = expect_symbol("a function name");
  std::vector<DataType const*> args;
  if (!is_const) {
    expect_lparen(" starting the argument sorts");
    while (lex_->peek_kind() != TokenKind::kRParen) {
      args.push_back(parse_sort());
    }
    lex_->next();
  }
  DataType const* result = parse_sort();
  expect_rparen(is_const ? " after the constant's sort" : " after the result sort");
  check_fresh_name(name_tok, name);
  DataType const* type = result;
  if (!args.empty()) {
    try {
      type = mgr_.get_function_type(args, result);
    } catch (Error const& e) {
      error_at(name_tok, e.what());
    }
  }
  // The name is out of the script's scope here. Declared again with the sort it had, it is the
  // same symbol; with another sort, a new one, which the term layer prints under a name of its
  // own.
  Symbol const* sym = mgr_.find_symbol(name);
  if (sym == nullptr || sym->get_type() != type) {
    try {
      sym = mgr_.make_symbol(name, type);
    } catch (Error const& e) {
      error_at(name_tok, e.what());
    }
  }
  add_name(name, Name{sym, nullptr, nullptr});
  solver_.declare_fun(sym);
}

void ScriptReader::Impl::cmd_define_fun(bool is_const) {
  Token const name_tok = lex_->peek();
  std::string const name = expect_symbol("a function name");
  check_fresh_name(name_tok, name);
  Macro macro;
  macro.name = name;
  std::size_t const undo_begin = let_undo_.size();
  if (!is_const) {
    expect_lparen(" starting the parameter list");
    std::uint64_t const stamp = ++let_stamp_;
    while (lex_->peek_kind() != TokenKind::kRParen) {
      expect_lparen(" starting a parameter (NAME SORT)");
      Token const param_tok = lex_->peek();
      std::string param = expect_symbol("a parameter name");
      DataType const* sort = parse_sort();
      expect_rparen(" after the parameter's sort");
      Entry& e = entry(param);
      if (e.let_stamp == stamp) {
        error_at(param_tok, "parameter '" + param + "' occurs twice");
      }
      e.let_stamp = stamp;
      Term const* p = placeholder(macro.params.size(), sort);
      macro.params.push_back(p);
      let_undo_.emplace_back(&e, e.bound);
      e.bound = p;
    }
    lex_->next();
  }
  DataType const* result = parse_sort();
  Token const body_tok = lex_->peek();
  Term const* body = parse_term(false);
  undo_lets(undo_begin);
  expect_rparen(" after the definition's body");
  body = coerce(body, result);
  if (body->get_type() != result) {
    error_at(body_tok, "the body of '" + name + "' has sort " + sort_text(body->get_type()) +
                           ", but the declared sort is " + sort_text(result));
  }
  if (macro.params.empty()) {
    add_name(name, Name{nullptr, nullptr, body});
    return;
  }
  macro.body = body;
  macros_.push_back(std::move(macro));
  add_name(name, Name{nullptr, &macros_.back(), nullptr});
}

// "NAME ((x S) ...) R": the function, declared as a name at once so that the bodies can apply
// it, and its parameters as variables.
ScriptReader::Impl::RecSignature ScriptReader::Impl::rec_signature() {
  RecSignature sig{lex_->peek(), nullptr, {}, {}};
  std::string const name = expect_symbol("a function name");
  check_fresh_name(sig.name, name);
  expect_lparen(" starting the parameter list");
  std::vector<DataType const*> sorts;
  while (lex_->peek_kind() != TokenKind::kRParen) {
    expect_lparen(" starting a parameter (NAME SORT)");
    Token const param_tok = lex_->peek();
    std::string const param = expect_symbol("a parameter name");
    DataType const* sort = parse_sort();
    expect_rparen(" after the parameter's sort");
    for (Token const& t : sig.param_tokens) {
      if (t.text == param) {
        error_at(param_tok, "parameter '" + param + "' occurs twice");
      }
    }
    try {
      sig.params.push_back(mgr_.make_variable(param, sort));
    } catch (Error const& e) {
      error_at(param_tok, e.what());
    }
    sig.param_tokens.push_back(param_tok);
    sorts.push_back(sort);
  }
  lex_->next();
  DataType const* result = parse_sort();
  sig.symbol =
      mgr_.make_symbol(name, sorts.empty() ? result : mgr_.get_function_type(sorts, result));
  add_name(name, Name{sig.symbol, nullptr, nullptr});
  return sig;
}

// A body over the signature's parameters, of its result sort.
Term const* ScriptReader::Impl::rec_body(RecSignature const& sig) {
  std::size_t const undo_begin = let_undo_.size();
  for (std::size_t i = 0; i < sig.params.size(); ++i) {
    Entry& e = entry(sig.param_tokens[i].text);
    let_undo_.emplace_back(&e, e.bound);
    e.bound = sig.params[i];
  }
  Token const body_tok = lex_->peek();
  Term const* body = parse_term(false);
  undo_lets(undo_begin);
  DataType const* result = sig.symbol->get_output_type();
  body = coerce(body, result);
  if (body->get_type() != result) {
    error_at(body_tok, "the body of '" + sig.name.text + "' has sort " +
                           sort_text(body->get_type()) + ", but the declared sort is " +
                           sort_text(result));
  }
  return body;
}

// (define-fun-rec NAME ((x S) ...) R BODY) and
// (define-funs-rec ((NAME ((x S) ...) R) ...) (BODY ...)).
void ScriptReader::Impl::cmd_define_funs_rec(bool several, Token const& cmd) {
  std::vector<RecSignature> sigs;
  if (several) {
    expect_lparen(" starting the function declarations");
    do {
      expect_lparen(" starting a function declaration (NAME (PARAMETERS) SORT)");
      sigs.push_back(rec_signature());
      expect_rparen(" after the function declaration");
    } while (lex_->peek_kind() != TokenKind::kRParen);
    lex_->next();
    expect_lparen(" starting the bodies");
  } else {
    sigs.push_back(rec_signature());
  }
  std::vector<Term const*> bodies;
  for (RecSignature const& sig : sigs) {
    if (lex_->peek_kind() == TokenKind::kRParen) {
      expected("the body of '" + sig.name.text + "' (one body per function)");
    }
    bodies.push_back(rec_body(sig));
  }
  if (several) {
    expect_rparen(" after the last body (one body per function)");
  }
  expect_rparen(several ? " after define-funs-rec" : " after define-fun-rec");
  std::vector<Symbol const*> functions;
  std::vector<std::vector<Term const*>> params;
  for (RecSignature const& sig : sigs) {
    functions.push_back(sig.symbol);
    params.push_back(sig.params);
  }
  try {
    solver_.define_funs_rec(functions, params, bodies);
  } catch (Error const& e) {
    error_at(cmd, e.what());
  }
}

void ScriptReader::Impl::cmd_push_pop(bool push, Token const& command_token) {
  Token const count_tok = lex_->peek();
  std::uint64_t count = 1;
  if (count_tok.kind != TokenKind::kRParen) {
    count = expect_numeral("a numeral or ')'");
  }
  expect_rparen(push ? " after push" : " after pop");
  if (count > kMaxPushCount) {
    error_at(count_tok, "a count of " + std::to_string(count) + " levels is too large (at most " +
                            std::to_string(kMaxPushCount) + " at once)");
  }
  if (push) {
    for (std::uint64_t i = 0; i < count; ++i) {
      scope_marks_.push_back(scope_log_.size());
      solver_.push();
    }
    return;
  }
  if (count > scope_marks_.size()) {
    Token const& at = count_tok.kind == TokenKind::kRParen ? command_token : count_tok;
    error_at(at, "cannot pop " + std::to_string(count) + " level(s): only " +
                     std::to_string(scope_marks_.size()) + " push level(s) are open");
  }
  for (std::uint64_t i = 0; i < count; ++i) {
    pop_scope();
    solver_.pop();
  }
}

void ScriptReader::Impl::cmd_assert() {
  std::uint64_t const line = lex_->peek().line;
  std::uint64_t const column = lex_->peek().column;
  have_pending_group_ = false;
  pending_name_.clear();
  Term const* t = parse_term(true);
  expect_rparen(" after the asserted formula");
  if (t->get_type() != mgr_.get_bool_type()) {
    error_at(line, column,
             "assert expects a formula of sort Bool, found sort " + sort_text(t->get_type()));
  }
  if (have_pending_group_) {
    have_pending_group_ = false;
    solver_.set_interpolation_group(group_number(pending_group_));
    if (t == mgr_.make_true()) {
      return;  // only the marker that selects a group
    }
  }
  if (pending_name_.empty()) {
    solver_.assert_formula(t);
  } else {
    solver_.assert_named(t, pending_name_);
    assertion_names_[t] = pending_name_;
  }
}

// get-info and get-option: the few keys a session can answer; "unsupported" for the rest.
void ScriptReader::Impl::answer_info(bool info, std::string const& key) {
  std::string value;
  if (!info) {
    value = option_value(key);
    if (value.empty()) {
      responses_->unsupported();
    } else {
      responses_->text(value);
    }
    return;
  }
  if (key == ":name") {
    value = str::smtlib_string(persona_.name);
  } else if (key == ":version" && !persona_.version.empty()) {
    value = str::smtlib_string(persona_.version);
  } else if (key == ":authors" && !persona_.authors.empty()) {
    value = str::smtlib_string(persona_.authors);
  } else if (key == ":error-behavior") {
    value = persona_.continued_execution ? "continued-execution" : "immediate-exit";
  } else if (key == ":reason-unknown") {
    std::string reason = solver_.reason_unknown();
    if (reason.empty()) {
      reason = "unknown";
    }
    bool const simple = !reason.empty() && reason.find_first_of(" ()\"|;") == std::string::npos;
    value = simple ? reason : str::smtlib_string(reason);
  } else if (key == ":all-statistics") {
    value = "()";
  } else if (key == ":assertion-stack-levels") {
    value = std::to_string(scope_marks_.size());
  } else {
    responses_->unsupported();
    return;
  }
  responses_->info(key, value);
}

void ScriptReader::Impl::reset_parse_state() {
  frames_.clear();
  values_.clear();
  indices_.clear();
  let_names_.clear();
  undo_lets(0);
  binder_attributes_.clear();
  forward_sort_ = nullptr;
  pending_name_.clear();
  have_pending_group_ = false;
}

namespace {

// The standard options and their values before any set-option, as get-option writes them.
struct StandardOption {
  char const* key;
  char const* initial;
};
constexpr StandardOption kStandardOptions[] = {
    {":diagnostic-output-channel", "\"stderr\""},
    {":global-declarations", "false"},
    {":interactive-mode", "false"},
    {":print-success", "false"},
    {":produce-assertions", "false"},
    {":produce-assignments", "false"},
    {":produce-models", "false"},
    {":produce-proofs", "false"},
    {":produce-unsat-assumptions", "false"},
    {":produce-unsat-cores", "false"},
    {":random-seed", "0"},
    {":regular-output-channel", "\"stdout\""},
    {":reproducible-resource-limit", "0"},
    {":verbosity", "0"},
    // Options many solvers take beside the standard ones.
    {":timeout", "0"},
    {":rlimit", "0"},
};

}  // namespace

std::string ScriptReader::Impl::option_value(std::string const& key) const {
  if (key == ":produce-models") {
    return config_.model_generation ? "true" : "false";
  }
  if (key == ":produce-unsat-cores") {
    return config_.unsat_core_generation ? "true" : "false";
  }
  if (key == ":print-success") {
    return print_success_ ? "true" : "false";
  }
  if (key == ":global-declarations" || key == ":global-decls") {
    return global_declarations_ ? "true" : "false";
  }
  auto it = options_.find(key);
  if (it != options_.end()) {
    return it->second;
  }
  for (StandardOption const& o : kStandardOptions) {
    if (key == o.key) {
      return o.initial;
    }
  }
  return "";
}

void ScriptReader::Impl::cmd_set_option() {
  Token const key = lex_->peek();
  if (key.kind != TokenKind::kKeyword) {
    expected("an option keyword");
  }
  lex_->next();
  auto boolean = [&]() {
    Token const value = lex_->peek();
    if (value.kind != TokenKind::kSymbol || (value.text != "true" && value.text != "false")) {
      expected("'true' or 'false'");
    }
    lex_->next();
    expect_rparen(" after the option value");
    return value.text == "true";
  };
  if (eq(key.text, ":print-success")) {
    print_success_ = boolean();
    return;
  }
  // The options that decide what a session may ask go into the trace, so that it replays.
  if (eq(key.text, ":produce-models")) {
    config_.model_generation = boolean();
    solver_.set_option(key.text, config_.model_generation ? "true" : "false");
    return;
  }
  if (eq(key.text, ":produce-unsat-cores")) {
    config_.unsat_core_generation = boolean();
    solver_.set_option(key.text, config_.unsat_core_generation ? "true" : "false");
    return;
  }
  if (eq(key.text, ":produce-unsat-assumptions") || eq(key.text, ":produce-assignments")) {
    bool const on = boolean();
    options_[key.text] = on ? "true" : "false";
    solver_.set_option(key.text, on ? "true" : "false");
    return;
  }
  if (eq(key.text, ":config")) {
    Token const value = lex_->peek();
    if (value.kind != TokenKind::kString) {
      expected("a string \"KEY=VALUE\"");
    }
    std::size_t const eq = value.text.find('=');
    if (eq == std::string::npos) {
      error_at(value, "expected a string \"KEY=VALUE\", found \"" + value.text + "\"");
    }
    lex_->next();
    expect_rparen(" after the option value");
    try {
      setter_.set(&config_, value.text.substr(0, eq), value.text.substr(eq + 1));
    } catch (Error const& e) {
      error_at(value, e.what());
    }
    return;
  }
  if (eq(key.text, ":global-decls") || eq(key.text, ":global-declarations")) {
    Token const value = lex_->peek();
    if (value.kind != TokenKind::kSymbol || (value.text != "true" && value.text != "false")) {
      expected("'true' or 'false'");
    }
    lex_->next();
    expect_rparen(" after the option value");
    global_declarations_ = value.text == "true";
    return;
  }
  // Any other standard option is kept as written, for get-option; an option no solver
  // standard knows is answered unsupported, as SMT-LIB says.
  if (option_value(key.text).empty()) {
    skip_attribute_value();
    expect_rparen(" after the option value");
    if (responses_ != nullptr) {
      responses_->unsupported();
    }
    return;
  }
  Token const value = lex_->peek();
  if (value.kind == TokenKind::kLParen || value.kind == TokenKind::kRParen) {
    expected("an option value");
  }
  lex_->next();
  expect_rparen(" after the option value");
  std::string const text =
      value.kind == TokenKind::kString ? str::smtlib_string(value.text) : value.text;
  if (eq(key.text, ":timeout") || eq(key.text, ":random-seed")) {
    std::uint64_t n = 0;
    if (value.kind != TokenKind::kNumeral || !str::parse_decimal(value.text, &n)) {
      error_at(value, "expected a numeral after '" + key.text + "'");
    }
    if (eq(key.text, ":timeout")) {
      solver_.set_timeout(static_cast<double>(n) / 1000.0);  // milliseconds, as solvers take it
    } else {
      config_.random_seed = static_cast<unsigned>(n);
    }
  }
  options_[key.text] = text;
}

void ScriptReader::Impl::cmd_term_list(std::vector<Term const*>& out, bool allow_empty,
                                       char const* command) {
  out.clear();
  expect_lparen(" starting the list of terms");
  while (lex_->peek_kind() != TokenKind::kRParen) {
    Token const term_tok = lex_->peek();
    Term const* t = parse_term(false);
    if (std::strcmp(command, "get-value") != 0 && t->get_type() != mgr_.get_bool_type()) {
      error_at(term_tok, std::string(command) + " expects formulas of sort Bool, found sort " +
                             sort_text(t->get_type()));
    }
    out.push_back(t);
  }
  if (out.empty() && !allow_empty) {
    expected("a term");
  }
  lex_->next();
  expect_rparen(" after the list of terms");
}

// Skips one s-expression (an attribute value), nesting counted without recursion.
void ScriptReader::Impl::skip_sexpr() {
  std::uint64_t depth = 0;
  do {
    Token const t = lex_->peek();
    if (t.kind == TokenKind::kEof) {
      expected("')'");
    }
    if (t.kind == TokenKind::kLParen) {
      ++depth;
    } else if (t.kind == TokenKind::kRParen) {
      if (depth == 0) {
        expected("a value");
      }
      --depth;
    }
    lex_->next();
  } while (depth > 0);
}

void ScriptReader::Impl::skip_attribute_value() {
  TokenKind const k = lex_->peek_kind();
  if (k != TokenKind::kRParen && k != TokenKind::kKeyword) {
    skip_sexpr();
  }
}

}  // namespace smt2
}  // namespace tvx
