#include <tvx/smt2/script_reader.h>

#include <cstring>
#include <deque>
#include <map>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <tvx/core/configuration.h>
#include "smt2/lexer.h"

namespace tvx {
namespace smt2 {

namespace {

// Names of theories and constructs outside the supported fragment, so that they are reported
// as unsupported rather than unknown.
constexpr char const* kUnsupportedPrefixes[] = {"str.",  "re.",  "fp.", "seq.", "set.", "bag.",
                                                "char.", "int.", "bv2", "int2", "nat2"};
constexpr char const* kUnsupportedSymbols[] = {"to_fp",
                                               "to_fp_unsigned",
                                               "fp",
                                               "RNE",
                                               "RNA",
                                               "RTP",
                                               "RTN",
                                               "RTZ",
                                               "roundNearestTiesToEven",
                                               "roundNearestTiesToAway",
                                               "roundTowardPositive",
                                               "roundTowardNegative",
                                               "roundTowardZero",
                                               "+oo",
                                               "-oo",
                                               "+zero",
                                               "-zero",
                                               "NaN",
                                               "const",
                                               "ubv_to_int",
                                               "sbv_to_int",
                                               "iand",
                                               "bvredor",
                                               "bvredand",
                                               "bvite",
                                               "bvuaddo",
                                               "bvsaddo",
                                               "bvumulo",
                                               "bvsmulo",
                                               "bvnego",
                                               "bvusubo",
                                               "bvssubo",
                                               "bvsdivo",
                                               "to_int_bv"};
constexpr char const* kUnsupportedSorts[] = {
    "String",       "RegLan", "FloatingPoint", "Float16", "Float32",   "Float64", "Float128",
    "RoundingMode", "Seq",    "Set",           "Bag",     "UnitTuple", "Tuple"};

// Compares with a literal without a call to strlen or memcmp.
template <std::size_t N>
bool eq(std::string const& s, char const (&literal)[N]) {
  return s.size() == N - 1 && std::memcmp(s.data(), literal, N - 1) == 0;
}

bool is_unsupported_symbol(std::string const& name) {
  for (char const* p : kUnsupportedPrefixes) {
    if (name.compare(0, std::strlen(p), p) == 0) {
      return true;
    }
  }
  for (char const* s : kUnsupportedSymbols) {
    if (name == s) {
      return true;
    }
  }
  return false;
}

bool is_unsupported_sort(std::string const& name) {
  for (char const* s : kUnsupportedSorts) {
    if (name == s) {
      return true;
    }
  }
  return false;
}

bool is_builtin_sort_name(std::string const& name) {
  return eq(name, "Bool") || eq(name, "Int") || eq(name, "Real") || eq(name, "BitVec") ||
         eq(name, "Array");
}

// Parses a decimal numeral into a 64-bit number; false when it does not fit.
bool parse_u64(std::string const& text, std::uint64_t* out) {
  std::uint64_t v = 0;
  for (char c : text) {
    if (c < '0' || c > '9') {
      return false;
    }
    std::uint64_t const d = static_cast<std::uint64_t>(c - '0');
    if (v > (UINT64_MAX - d) / 10) {
      return false;
    }
    v = v * 10 + d;
  }
  *out = v;
  return !text.empty();
}

bool all_digits(std::string const& s) {
  if (s.empty()) {
    return false;
  }
  for (char c : s) {
    if (c < '0' || c > '9') {
      return false;
    }
  }
  return true;
}

// Each level is one traced call; a count beyond this is taken for a mistake.
constexpr std::uint64_t kMaxPushCount = 1000000;

// The built-in operators the reader treats apart from the rest.
enum class Op : std::uint8_t {
  kUnknown,    // not classified yet
  kNone,       // not an operator that takes arguments
  kTrueFalse,  // true, false
  kAdd,        // +
  kMul,        // *
  kSub,        // -
  kDiv,        // /
  kIte,        // ite
  kCompare,    // < <= > >= = distinct
  kAndOrXor,   // and or xor
  kRealArg,    // to_int is_int
  kArray,      // select store
  kOther,      // every other operator
};

Op classify_op(std::string const& name) {
  if (!TermManager::is_builtin_name(name) || is_builtin_sort_name(name)) {
    return Op::kNone;
  }
  if (eq(name, "true") || eq(name, "false")) {
    return Op::kTrueFalse;
  }
  if (eq(name, "+")) {
    return Op::kAdd;
  }
  if (eq(name, "*")) {
    return Op::kMul;
  }
  if (eq(name, "-")) {
    return Op::kSub;
  }
  if (eq(name, "/")) {
    return Op::kDiv;
  }
  if (eq(name, "ite")) {
    return Op::kIte;
  }
  if (eq(name, "<") || eq(name, "<=") || eq(name, ">") || eq(name, ">=") || eq(name, "=") ||
      eq(name, "distinct")) {
    return Op::kCompare;
  }
  if (eq(name, "and") || eq(name, "or") || eq(name, "xor")) {
    return Op::kAndOrXor;
  }
  if (eq(name, "to_int") || eq(name, "is_int")) {
    return Op::kRealArg;
  }
  if (eq(name, "select") || eq(name, "store")) {
    return Op::kArray;
  }
  return Op::kOther;
}

// Operators that take Int and Real arguments together, the Int ones made Real.
bool is_arith_mixing_op(Op op) {
  return op == Op::kAdd || op == Op::kMul || op == Op::kSub || op == Op::kDiv || op == Op::kIte ||
         op == Op::kCompare;
}

// A sort for messages; a function sort as declare-fun writes it: "(Int U) Bool".
std::string sort_text(DataType const* t) {
  if (!t->is_function()) {
    return t->to_string();
  }
  std::string s = "(";
  for (std::size_t i = 0; i + 1 < t->get_num_components(); ++i) {
    s += (i ? " " : "") + t->get_component(i)->to_string();
  }
  return s + ") " + t->get_function_result()->to_string();
}

}  // namespace

class ScriptReader::Impl {
 public:
  Impl(TermManager& mgr, Configuration& config, ApiTracer& tracer)
      : mgr_(mgr), config_(config), tracer_(tracer) {}

  void read(std::istream& in, std::string const& filename);
  ProgressCallback progress_;

 private:
  // A define-fun: the body is a term over placeholder constants, one per parameter; an
  // application substitutes the arguments for the placeholders.
  struct Macro {
    std::string name;
    std::vector<Term const*> params;  // placeholder terms, in parameter order
    Term const* body;
  };

  // What a function or constant name stands for in the current scope: exactly one of the
  // three is set.
  struct Name {
    Symbol const* symbol;  // a declared symbol
    Macro const* macro;    // a definition with parameters
    Term const* term;      // a definition without parameters (define-fun, :named)
  };

  // Everything one symbol text stands for now, so that each symbol token is looked up once.
  // An entry is made on first need and kept; empty fields mean nothing in scope.
  struct Entry {
    std::string const* text = nullptr;  // the table's key
    Term const* bound = nullptr;        // a let binding or a define-fun parameter
    Name name{nullptr, nullptr, nullptr};
    Term const* constant = nullptr;  // the constant term of name.symbol, once made
    DataType const* sort = nullptr;  // a declared or defined sort
    std::uint64_t let_stamp = 0;     // the latest let (or parameter list) that bound it
    Op op = Op::kUnknown;            // as an operator; classified on first use as one
    bool named() const {
      return name.symbol != nullptr || name.macro != nullptr || name.term != nullptr;
    }
  };

  // The states of a frame on the term parser's work stack.
  enum class State : std::uint8_t {
    // "(" HEAD ARG* ")": the arguments parsed so far are on values_ from values_begin.
    kApply,
    // "(let (... (NAME TERM": the TERM of the latest binding is being parsed; the names are
    // on let_names_ from names_begin, the terms bound so far on values_ from values_begin.
    kLetBinding,
    // "(let (BINDINGS) BODY": the names are bound (undo log from undo_begin); the BODY is
    // being parsed, then ")" closes the let and the bindings go.
    kLetBody,
    // "(! TERM ATTRIBUTE* )": TERM is being parsed, then the attributes.
    kAnnotation,
  };
  enum class HeadKind : std::uint8_t { kBuiltin, kSymbol, kMacro };

  struct Frame {
    State state;
    HeadKind head_kind;
    void const* head;  // Entry const* (builtin operator), Symbol const*, or Macro const*
    std::size_t values_begin;
    std::size_t aux_begin;  // indices_ (kApply), let_names_ (kLetBinding), let_undo_ (kLetBody)
    std::uint64_t line;     // the head token, or the opening parenthesis
    std::uint64_t column;
  };

  struct LetName {
    Entry* entry;
    std::uint64_t line;
    std::uint64_t column;
  };

  [[noreturn]] void error_at(Token const& t, std::string const& message) {
    lex_->error(t.line, t.column, message);
  }
  [[noreturn]] void error_at(std::uint64_t line, std::uint64_t column, std::string const& message) {
    lex_->error(line, column, message);
  }
  [[noreturn]] void expected(std::string const& what) {
    lex_->error_here("expected " + what + ", found " + Lexer::describe(lex_->peek()));
  }
  void expect_rparen(char const* context) {
    if (lex_->peek().kind != TokenKind::kRParen) {
      expected(std::string("')'") + context);
    }
    lex_->next();
  }
  void expect_lparen(char const* context) {
    if (lex_->peek().kind != TokenKind::kLParen) {
      expected(std::string("'('") + context);
    }
    lex_->next();
  }
  // The name of a symbol token, consumed.
  std::string expect_symbol(char const* what) {
    if (lex_->peek().kind != TokenKind::kSymbol) {
      expected(what);
    }
    std::string name = lex_->peek().text;
    lex_->next();
    return name;
  }
  std::uint64_t expect_numeral(char const* what) {
    Token const& t = lex_->peek();
    if (t.kind != TokenKind::kNumeral) {
      expected(what);
    }
    std::uint64_t v = 0;
    if (!parse_u64(t.text, &v)) {
      error_at(t, "numeral '" + t.text + "' is too large");
    }
    lex_->next();
    return v;
  }

  bool command();
  void skip_sexpr();
  void skip_attribute_value();

  // sorts
  DataType const* parse_sort();
  DataType const* resolve_sort(Token const& t);

  // terms
  Term const* parse_term(bool assertion);
  Term const* atom(Token const& t);
  void open_application();
  void open_indexed_application();
  Term const* indexed_constant();
  Term const* close_application();
  void bind_let(Frame& f);
  // Undoes the let bindings made since let_undo_ had `begin` entries, restoring what they hid.
  void undo_lets(std::size_t begin);
  void close_annotation(Term const* value, bool outermost, bool assertion);
  Term const* build_builtin(Entry const& head, std::size_t begin, std::size_t n,
                            std::uint64_t const* indices, std::size_t num_indices,
                            std::uint64_t line, std::uint64_t column);
  Term const* to_real(Term const* t);
  Term const* coerce(Term const* t, DataType const* sort);
  Term const* substitute(Macro const& m, Term const* const* args);
  Term const* placeholder(std::size_t index, DataType const* sort);

  Term const* number(std::unordered_map<std::string, Term const*>& cache, Token const& t,
                     DataType const* sort);

  // names and scopes
  Entry* find_entry(std::string const& text) {
    auto it = entries_.find(text);
    return it == entries_.end() ? nullptr : &it->second;
  }
  Entry& entry(std::string const& text) {
    auto it = entries_.try_emplace(text).first;
    it->second.text = &it->first;
    return it->second;
  }
  Op op_of(Entry& e) {
    if (e.op == Op::kUnknown) {
      e.op = classify_op(*e.text);
    }
    return e.op;
  }
  void check_fresh_name(Token const& t, std::string const& name);
  void add_name(std::string const& name, Name value);
  void add_sort(std::string const& name, DataType const* sort);
  void pop_scope();
  int group_number(std::string const& name);

  // commands
  void cmd_declare_sort();
  void cmd_define_sort();
  void cmd_declare_fun(bool is_const);
  void cmd_define_fun(bool is_const);
  void cmd_push_pop(bool push, Token const& command_token);
  void cmd_assert();
  void cmd_set_option();
  void cmd_term_list(std::vector<Term const*>& out, bool allow_empty, char const* command);

  TermManager& mgr_;
  Configuration& config_;
  ApiTracer& tracer_;
  ConfigurationSetter setter_;
  Lexer* lex_ = nullptr;
  std::uint64_t commands_ = 0;

  // Every symbol text met as a name; the table's nodes, and so the entries, never move.
  std::unordered_map<std::string, Entry> entries_;
  // Scopes: an undo log of what each open push added.
  std::vector<std::pair<bool, Entry*>> scope_log_;  // (is a sort, entry)
  std::vector<std::size_t> scope_marks_;            // scope_log_ size at each open push
  bool global_declarations_ = false;
  bool numerals_are_real_ = false;  // set by a logic of reals without integers
  std::deque<Macro> macros_;
  std::map<std::pair<std::size_t, DataType const*>, Term const*> placeholders_;
  // Numeral terms by their text: Int numerals, Real numerals and decimals, bit-vector literals
  // (#b, #x, and (_ bvN W) as "N W").
  std::unordered_map<std::string, Term const*> int_numbers_;
  std::unordered_map<std::string, Term const*> real_numbers_;
  std::unordered_map<std::string, Term const*> bv_numbers_;

  // Interpolation groups by their names in the script.
  std::unordered_map<std::string, int> groups_;
  std::unordered_set<int> group_numbers_used_;
  int next_group_ = 0;
  bool have_pending_group_ = false;
  std::string pending_group_;

  // Term parser state, reused from term to term.
  std::vector<Frame> frames_;
  std::vector<Term const*> values_;
  std::vector<std::uint64_t> indices_;
  std::vector<LetName> let_names_;
  std::vector<std::pair<Entry*, Term const*>> let_undo_;  // entry, shadowed term or null
  std::uint64_t let_stamp_ = 0;
  std::vector<Term const*> args_scratch_;

  // Substitution scratch.
  std::unordered_map<Term const*, Term const*> memo_;
  std::vector<std::pair<Term const*, bool>> subst_stack_;

  std::vector<Term const*> terms_scratch_;
};

// ----------------------------------------------------------------------------- top level

void ScriptReader::Impl::read(std::istream& in, std::string const& filename) {
  Lexer lex(in, filename);
  lex_ = &lex;
  struct Reset {
    Impl* self;
    ~Reset() {
      self->lex_ = nullptr;
      self->frames_.clear();
      self->values_.clear();
      self->indices_.clear();
      self->let_names_.clear();
      self->undo_lets(0);
    }
  } reset{this};
  for (;;) {
    if (lex.peek().kind == TokenKind::kEof) {
      return;
    }
    // The term layer reports misuse with exceptions; the commands turn the ones they expect
    // into positioned errors, and this net catches any other at the command's position.
    std::uint64_t const line = lex.peek().line;
    std::uint64_t const column = lex.peek().column;
    bool more = true;
    try {
      more = command();
    } catch (ReadError const&) {
      throw;
    } catch (Error const& e) {
      error_at(line, column, e.what());
    } catch (std::out_of_range const& e) {
      error_at(line, column, e.what());
    } catch (std::length_error const& e) {
      error_at(line, column, e.what());
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

// Reads and carries out one command; false after (exit).
bool ScriptReader::Impl::command() {
  expect_lparen(" starting a command");
  Token const cmd = lex_->peek();
  if (cmd.kind != TokenKind::kSymbol) {
    expected("a command name");
  }
  lex_->next();
  std::string const& name = cmd.text;
  if (eq(name, "assert")) {
    cmd_assert();
  } else if (eq(name, "declare-fun")) {
    cmd_declare_fun(false);
  } else if (eq(name, "declare-const")) {
    cmd_declare_fun(true);
  } else if (eq(name, "define-fun")) {
    cmd_define_fun(false);
  } else if (eq(name, "define-const")) {
    cmd_define_fun(true);
  } else if (eq(name, "declare-sort")) {
    cmd_declare_sort();
  } else if (eq(name, "define-sort")) {
    cmd_define_sort();
  } else if (eq(name, "push") || eq(name, "pop")) {
    cmd_push_pop(eq(name, "push"), cmd);
  } else if (eq(name, "check-sat")) {
    expect_rparen(" after check-sat");
    tracer_.trace_check();
  } else if (eq(name, "check-sat-assuming")) {
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
    tracer_.trace_check_with_assumptions(lits);
  } else if (eq(name, "check-allsat")) {
    cmd_term_list(terms_scratch_, true, "check-allsat");
    tracer_.trace_check_allsat(terms_scratch_);
  } else if (eq(name, "get-value")) {
    cmd_term_list(terms_scratch_, false, "get-value");
    for (Term const* t : terms_scratch_) {
      tracer_.trace_get_model_value(t);
    }
  } else if (eq(name, "get-model")) {
    expect_rparen(" after get-model");
    tracer_.trace_get_model();
  } else if (eq(name, "get-unsat-core")) {
    expect_rparen(" after get-unsat-core");
    tracer_.trace_get_unsat_core();
  } else if (eq(name, "get-unsat-assumptions")) {
    expect_rparen(" after get-unsat-assumptions");
    tracer_.trace_get_unsat_assumptions();
  } else if (eq(name, "get-interpolant")) {
    expect_lparen(" starting the list of interpolation groups");
    std::vector<int> groups;
    while (lex_->peek().kind != TokenKind::kRParen) {
      groups.push_back(group_number(expect_symbol("an interpolation group name or ')'")));
    }
    lex_->next();
    expect_rparen(" after the list of interpolation groups");
    tracer_.trace_get_interpolant(groups);
  } else if (eq(name, "reset-assertions")) {
    expect_rparen(" after reset-assertions");
    while (!scope_marks_.empty()) {
      pop_scope();
    }
    tracer_.trace_reset_assertions();
  } else if (eq(name, "set-option")) {
    cmd_set_option();
  } else if (eq(name, "set-logic")) {
    std::string const logic = expect_symbol("a logic name");
    expect_rparen(" after the logic name");
    // In a logic of reals without integers a numeral such as 1 denotes a Real.
    bool const ints = logic.find("IA") != std::string::npos ||
                      logic.find("IRA") != std::string::npos ||
                      logic.find("IDL") != std::string::npos || logic == "ALL";
    bool const reals =
        logic.find("RA") != std::string::npos || logic.find("RDL") != std::string::npos;
    numerals_are_real_ = reals && !ints;
  } else if (eq(name, "set-info")) {
    if (lex_->peek().kind != TokenKind::kKeyword) {
      expected("a keyword");
    }
    lex_->next();
    skip_attribute_value();
    expect_rparen(" after the info value");
  } else if (eq(name, "get-info") || eq(name, "get-option")) {
    if (lex_->peek().kind != TokenKind::kKeyword) {
      expected("a keyword");
    }
    lex_->next();
    expect_rparen(" after the keyword");
  } else if (eq(name, "echo")) {
    if (lex_->peek().kind != TokenKind::kString) {
      expected("a string literal");
    }
    lex_->next();
    expect_rparen(" after the string");
  } else if (eq(name, "exit")) {
    expect_rparen(" after exit");
    return false;
  } else if (eq(name, "reset")) {
    error_at(cmd, "the command 'reset' is not supported");
  } else if (eq(name, "define-fun-rec") || eq(name, "define-funs-rec")) {
    error_at(cmd, "recursive definitions ('" + name + "') are not supported");
  } else if (eq(name, "declare-datatype") || eq(name, "declare-datatypes") ||
             eq(name, "declare-codatatypes")) {
    error_at(cmd, "datatypes ('" + name + "') are not supported");
  } else if (eq(name, "get-assertions") || eq(name, "get-assignment") || eq(name, "get-proof") ||
             eq(name, "simplify") || eq(name, "get-abduct") || eq(name, "block-model") ||
             eq(name, "get-qe") || eq(name, "declare-pool") || eq(name, "get-difficulty") ||
             eq(name, "get-learned-literals") || eq(name, "check-synth") ||
             eq(name, "get-timeout-core") || eq(name, "block-model-values")) {
    error_at(cmd, "the command '" + name + "' is not supported");
  } else {
    error_at(cmd, "unknown command '" + name + "'");
  }
  return true;
}

// Skips one s-expression (an attribute value), nesting counted without recursion.
void ScriptReader::Impl::skip_sexpr() {
  std::uint64_t depth = 0;
  do {
    Token const& t = lex_->peek();
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
  TokenKind const k = lex_->peek().kind;
  if (k != TokenKind::kRParen && k != TokenKind::kKeyword) {
    skip_sexpr();
  }
}

// ----------------------------------------------------------------------------- scopes

void ScriptReader::Impl::check_fresh_name(Token const& t, std::string const& name) {
  Entry const* e = find_entry(name);
  if (e != nullptr && e->named()) {
    error_at(t, "'" + name + "' is already declared or defined");
  }
  if (TermManager::is_builtin_name(name)) {
    error_at(t, "'" + name + "' is a built-in name and cannot be declared or defined");
  }
}

void ScriptReader::Impl::add_name(std::string const& name, Name value) {
  Entry& e = entry(name);
  e.name = value;
  e.constant = nullptr;
  if (!global_declarations_ && !scope_marks_.empty()) {
    scope_log_.emplace_back(false, &e);
  }
}

void ScriptReader::Impl::add_sort(std::string const& name, DataType const* sort) {
  Entry& e = entry(name);
  e.sort = sort;
  if (!global_declarations_ && !scope_marks_.empty()) {
    scope_log_.emplace_back(true, &e);
  }
}

void ScriptReader::Impl::pop_scope() {
  std::size_t const mark = scope_marks_.back();
  scope_marks_.pop_back();
  while (scope_log_.size() > mark) {
    Entry& e = *scope_log_.back().second;
    if (scope_log_.back().first) {
      e.sort = nullptr;
    } else {
      e.name = Name{nullptr, nullptr, nullptr};
      e.constant = nullptr;
    }
    scope_log_.pop_back();
  }
}

int ScriptReader::Impl::group_number(std::string const& name) {
  auto it = groups_.find(name);
  if (it != groups_.end()) {
    return it->second;
  }
  int number = -1;
  std::uint64_t n = 0;
  if (name.size() > 2 && name.compare(0, 2, ".g") == 0 && parse_u64(name.substr(2), &n) &&
      n <= static_cast<std::uint64_t>(INT32_MAX) && group_numbers_used_.count(int(n)) == 0) {
    number = static_cast<int>(n);
  } else {
    while (group_numbers_used_.count(next_group_) != 0) {
      ++next_group_;
    }
    number = next_group_++;
  }
  groups_.emplace(name, number);
  group_numbers_used_.insert(number);
  tracer_.trace_new_interpolation_group();
  return number;
}

// ----------------------------------------------------------------------------- commands

void ScriptReader::Impl::cmd_declare_sort() {
  Token const name_tok = lex_->peek();
  std::string const name = expect_symbol("a sort name");
  Token const arity_tok = lex_->peek();
  std::uint64_t arity = 0;
  if (arity_tok.kind != TokenKind::kRParen) {
    arity = expect_numeral("the sort's arity");
  }
  if (arity != 0) {
    error_at(arity_tok, "parametric sorts are not supported (sort '" + name + "' has arity " +
                            arity_tok.text + ")");
  }
  expect_rparen(" after the sort's arity");
  if (Entry const* e = find_entry(name); e != nullptr && e->sort != nullptr) {
    error_at(name_tok, "sort '" + name + "' is already declared or defined");
  }
  if (is_builtin_sort_name(name) || is_unsupported_sort(name)) {
    error_at(name_tok, "'" + name + "' is a built-in sort name and cannot be declared");
  }
  DataType const* sort = mgr_.get_simple_type(name, true);
  if (sort == nullptr) {
    try {
      sort = mgr_.make_simple_type(name);
    } catch (Error const& e) {
      error_at(name_tok, e.what());
    }
  }
  add_sort(name, sort);
  tracer_.trace_type_declaration(sort);
}

void ScriptReader::Impl::cmd_define_sort() {
  Token const name_tok = lex_->peek();
  std::string const name = expect_symbol("a sort name");
  expect_lparen(" starting the sort parameters");
  if (lex_->peek().kind != TokenKind::kRParen) {
    error_at(lex_->peek(),
             "parametric sorts are not supported (define-sort '" + name + "' has parameters)");
  }
  lex_->next();
  DataType const* sort = parse_sort();
  expect_rparen(" after the sort");
  Entry const* e = find_entry(name);
  if ((e != nullptr && e->sort != nullptr) || is_builtin_sort_name(name) ||
      is_unsupported_sort(name)) {
    error_at(name_tok, "sort '" + name + "' is already declared or defined");
  }
  add_sort(name, sort);
}

void ScriptReader::Impl::cmd_declare_fun(bool is_const) {
  Token const name_tok = lex_->peek();
  std::string const name = expect_symbol("a function name");
  std::vector<DataType const*> args;
  if (!is_const) {
    expect_lparen(" starting the argument sorts");
    while (lex_->peek().kind != TokenKind::kRParen) {
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
  tracer_.trace_symbol_declaration(sym);
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
    while (lex_->peek().kind != TokenKind::kRParen) {
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
      tracer_.trace_push_backtrack_point();
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
    tracer_.trace_pop_backtrack_point();
  }
}

void ScriptReader::Impl::cmd_assert() {
  std::uint64_t const line = lex_->peek().line;
  std::uint64_t const column = lex_->peek().column;
  have_pending_group_ = false;
  Term const* t = parse_term(true);
  expect_rparen(" after the asserted formula");
  if (t->get_type() != mgr_.get_bool_type()) {
    error_at(line, column,
             "assert expects a formula of sort Bool, found sort " + sort_text(t->get_type()));
  }
  if (have_pending_group_) {
    have_pending_group_ = false;
    tracer_.trace_set_interpolation_group(group_number(pending_group_));
    if (t == mgr_.make_true()) {
      return;  // only the marker that selects a group
    }
  }
  tracer_.trace_assert_formula(t);
}

void ScriptReader::Impl::cmd_set_option() {
  Token const key = lex_->peek();
  if (key.kind != TokenKind::kKeyword) {
    expected("an option keyword");
  }
  lex_->next();
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
  skip_attribute_value();
  expect_rparen(" after the option value");
}

void ScriptReader::Impl::cmd_term_list(std::vector<Term const*>& out, bool allow_empty,
                                       char const* command) {
  out.clear();
  expect_lparen(" starting the list of terms");
  while (lex_->peek().kind != TokenKind::kRParen) {
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

// ----------------------------------------------------------------------------- sorts

DataType const* ScriptReader::Impl::resolve_sort(Token const& t) {
  std::string const& name = t.text;
  if (eq(name, "Bool")) {
    return mgr_.get_bool_type();
  }
  if (eq(name, "Int")) {
    return mgr_.get_integer_type();
  }
  if (eq(name, "Real")) {
    return mgr_.get_rational_type();
  }
  if (Entry const* e = find_entry(name); e != nullptr && e->sort != nullptr) {
    return e->sort;
  }
  if (is_unsupported_sort(name)) {
    error_at(t, "the sort '" + name + "' is not supported");
  }
  if (name == "Array" || name == "BitVec") {
    error_at(t, "the sort '" + name + "' needs arguments");
  }
  error_at(t, "unknown sort '" + name + "'");
}

// sort ::= SYMBOL | (_ BitVec N) | (Array sort sort); arrays nest on an explicit stack.
DataType const* ScriptReader::Impl::parse_sort() {
  struct Pending {
    std::uint64_t line, column;  // the "Array" token
    DataType const* index;       // null until the index sort is known
  };
  std::vector<Pending> stack;
  for (;;) {
    DataType const* sort = nullptr;
    Token const& t = lex_->peek();
    if (t.kind == TokenKind::kSymbol) {
      sort = resolve_sort(t);
      lex_->next();
    } else if (t.kind == TokenKind::kLParen) {
      lex_->next();
      Token const head = lex_->peek();
      if (head.kind != TokenKind::kSymbol) {
        expected("a sort");
      }
      lex_->next();
      if (eq(head.text, "_")) {
        Token const id = lex_->peek();
        std::string const index_name = expect_symbol("'BitVec'");
        if (index_name == "FloatingPoint") {
          error_at(id, "the sort 'FloatingPoint' is not supported");
        }
        if (index_name != "BitVec") {
          error_at(id, "expected 'BitVec', found " + Lexer::describe(id));
        }
        Token const width_tok = lex_->peek();
        std::uint64_t const width = expect_numeral("the bit-vector width");
        expect_rparen(" after the bit-vector width");
        try {
          sort = mgr_.get_bv_type(width);
        } catch (Error const& e) {
          error_at(width_tok, e.what());
        }
      } else if (eq(head.text, "Array")) {
        stack.push_back(Pending{head.line, head.column, nullptr});
        continue;
      } else if (is_unsupported_sort(head.text)) {
        error_at(head, "the sort '" + head.text + "' is not supported");
      } else if ((find_entry(head.text) != nullptr && find_entry(head.text)->sort != nullptr) ||
                 eq(head.text, "Bool") || eq(head.text, "Int") || eq(head.text, "Real")) {
        error_at(head,
                 "parametric sorts are not supported ('" + head.text + "' takes no arguments)");
      } else {
        error_at(head, "unknown sort '" + head.text + "'");
      }
    } else {
      expected("a sort");
    }
    // A sort is complete: hand it to the array waiting for it.
    for (;;) {
      if (stack.empty()) {
        return sort;
      }
      Pending& p = stack.back();
      if (p.index == nullptr) {
        p.index = sort;
        break;  // parse the element sort
      }
      Token const close = lex_->peek();
      expect_rparen(" after the array's element sort");
      try {
        sort = mgr_.get_array_type(p.index, sort);
      } catch (Error const& e) {
        error_at(close, e.what());
      }
      stack.pop_back();
    }
  }
}

// ----------------------------------------------------------------------------- terms

Term const* ScriptReader::Impl::placeholder(std::size_t index, DataType const* sort) {
  auto key = std::make_pair(index, sort);
  auto it = placeholders_.find(key);
  if (it != placeholders_.end()) {
    return it->second;
  }
  // A fresh symbol: no declaration of the script can find it, whatever its name. It never
  // reaches a trace, since every use of a definition substitutes its arguments for the
  // placeholders.
  Symbol const* s = mgr_.make_fresh_symbol("define-fun parameter " + std::to_string(index), sort);
  Term const* t = mgr_.make_constant(s);
  placeholders_.emplace(key, t);
  return t;
}

Term const* ScriptReader::Impl::to_real(Term const* t) {
  Symbol const* s = t->get_symbol();
  if (s->get_tag() == SymbolTag::NUMERAL) {
    return mgr_.make_number(s->get_name(), mgr_.get_rational_type());
  }
  Term const* args[1] = {t};
  return mgr_.make_builtin("to_real", args, 1);
}

Term const* ScriptReader::Impl::coerce(Term const* t, DataType const* sort) {
  if (sort->is_real() && t->get_type()->is_int()) {
    return to_real(t);
  }
  return t;
}

// A numeral term, made by the term manager the first time its text is met with that sort.
Term const* ScriptReader::Impl::number(std::unordered_map<std::string, Term const*>& cache,
                                       Token const& t, DataType const* sort) {
  auto it = cache.find(t.text);
  if (it != cache.end()) {
    return it->second;
  }
  if (sort == nullptr) {  // a bit-vector literal: its digits give the width
    std::size_t const digits = t.text.size() - 2;
    sort = mgr_.get_bv_type(t.kind == TokenKind::kBinary ? digits : digits * 4);
  }
  Term const* n = mgr_.make_number(t.text, sort);
  cache.emplace(t.text, n);
  return n;
}

Term const* ScriptReader::Impl::atom(Token const& t) {
  try {
    switch (t.kind) {
      case TokenKind::kNumeral:
        return numerals_are_real_ ? number(real_numbers_, t, mgr_.get_rational_type())
                                  : number(int_numbers_, t, mgr_.get_integer_type());
      case TokenKind::kDecimal:
        return number(real_numbers_, t, mgr_.get_rational_type());
      case TokenKind::kBinary:
      case TokenKind::kHex:
        return number(bv_numbers_, t, nullptr);
      default:
        break;
    }
  } catch (Error const& e) {
    error_at(t, e.what());
  }
  switch (t.kind) {
    case TokenKind::kString:
      error_at(t, "string literals are not supported");
    case TokenKind::kSymbol:
      break;
    default:
      expected("a term");
  }
  std::string const& name = t.text;
  if (Entry* e = find_entry(name); e != nullptr) {
    if (e->bound != nullptr) {
      return e->bound;
    }
    Name const& n = e->name;
    if (n.symbol != nullptr) {
      if (n.symbol->get_arity() != 0) {
        error_at(t, "'" + name + "' is a function of " + std::to_string(n.symbol->get_arity()) +
                        " argument(s), used as a constant");
      }
      if (e->constant == nullptr) {
        e->constant = mgr_.make_constant(n.symbol);
      }
      return e->constant;
    }
    if (n.term != nullptr) {
      return n.term;
    }
    if (n.macro != nullptr) {
      error_at(t, "'" + name + "' is a function of " + std::to_string(n.macro->params.size()) +
                      " argument(s), used as a constant");
    }
  }
  if (eq(name, "true")) {
    return mgr_.make_true();
  }
  if (eq(name, "false")) {
    return mgr_.make_false();
  }
  if (!t.quoted && (eq(name, "forall") || eq(name, "exists"))) {
    error_at(t, "quantifiers are not supported");
  }
  if (is_builtin_sort_name(name)) {
    error_at(t, "expected a term, found the sort '" + name + "'");
  }
  if (TermManager::is_builtin_name(name)) {
    error_at(t, "the operator '" + name + "' needs arguments");
  }
  if (is_unsupported_symbol(name)) {
    error_at(t, "the symbol '" + name + "' is not supported");
  }
  error_at(t, "unknown symbol '" + name + "'");
}

// The head token is current; pushes a kApply frame for it.
void ScriptReader::Impl::open_application() {
  Token const& t = lex_->peek();
  std::string const& name = t.text;
  Frame f{State::kApply, HeadKind::kBuiltin, nullptr, values_.size(), indices_.size(), t.line,
          t.column};
  Entry& e = entry(name);
  if (e.bound != nullptr) {
    error_at(t, "'" + name + "' is bound by let to a term and cannot be applied to arguments");
  }
  if (e.named()) {
    Name const& n = e.name;
    if (n.symbol != nullptr) {
      if (n.symbol->get_arity() == 0) {
        error_at(t, "'" + name + "' is a constant and cannot be applied to arguments");
      }
      f.head_kind = HeadKind::kSymbol;
      f.head = n.symbol;
    } else {
      if (n.term != nullptr) {
        error_at(t, "'" + name +
                        "' is defined without parameters and cannot be applied to "
                        "arguments");
      }
      f.head_kind = HeadKind::kMacro;
      f.head = n.macro;
    }
  } else if (Op const op = op_of(e); op != Op::kNone) {
    if (op == Op::kTrueFalse) {
      error_at(t, "'" + name + "' cannot be applied to arguments");
    }
    f.head = &e;
  } else if (!t.quoted && (eq(name, "forall") || eq(name, "exists"))) {
    error_at(t, "quantifiers are not supported");
  } else if (!t.quoted && eq(name, "lambda")) {
    error_at(t, "lambda is not supported");
  } else if (!t.quoted && eq(name, "match")) {
    error_at(t, "datatypes (match) are not supported");
  } else if (!t.quoted && eq(name, "as")) {
    error_at(t, "qualified terms (as) are not supported");
  } else if (is_unsupported_symbol(name)) {
    error_at(t, "the symbol '" + name + "' is not supported");
  } else {
    error_at(t, "unknown function symbol '" + name + "'");
  }
  lex_->next();
  if (lex_->peek().kind == TokenKind::kRParen) {
    // Not `name`: that is the head token's text, which lexing the ')' has overwritten.
    expected("an argument of '" + *e.text + "'");
  }
  frames_.push_back(f);
}

// "((" is read; parses "_ OP INDEX+)" and pushes a kApply frame with the indices.
void ScriptReader::Impl::open_indexed_application() {
  Token const& u = lex_->peek();
  if (u.kind != TokenKind::kSymbol || !eq(u.text, "_")) {
    if (u.kind == TokenKind::kSymbol && eq(u.text, "as")) {
      error_at(u, "qualified terms (as) are not supported");
    }
    expected("'_' starting an indexed operator");
  }
  lex_->next();
  Token const& op = lex_->peek();
  if (op.kind != TokenKind::kSymbol) {
    expected("an indexed operator name");
  }
  Entry& e = entry(op.text);
  if (op_of(e) == Op::kNone) {
    if (is_unsupported_symbol(op.text)) {
      error_at(op, "the operator '" + op.text + "' is not supported");
    }
    error_at(op, "unknown indexed operator '" + op.text + "'");
  }
  std::uint64_t const line = op.line;
  std::uint64_t const column = op.column;
  lex_->next();
  std::size_t const indices_begin = indices_.size();
  do {
    indices_.push_back(expect_numeral("a numeral index"));
  } while (lex_->peek().kind != TokenKind::kRParen);
  lex_->next();
  if (lex_->peek().kind == TokenKind::kRParen) {
    expected("an argument of '" + *e.text + "'");
  }
  frames_.push_back(
      Frame{State::kApply, HeadKind::kBuiltin, &e, values_.size(), indices_begin, line, column});
}

// "(_" is read; parses "bvN W)".
Term const* ScriptReader::Impl::indexed_constant() {
  Token const& id = lex_->peek();
  if (id.kind != TokenKind::kSymbol) {
    expected("'bvN' of a bit-vector literal (_ bvN W)");
  }
  std::string const& name = id.text;
  if (name.size() < 3 || name.compare(0, 2, "bv") != 0 ||
      name.find_first_not_of("0123456789", 2) != std::string::npos) {
    if (is_unsupported_symbol(name)) {
      error_at(id, "the constant '" + name + "' is not supported");
    }
    if (TermManager::is_builtin_name(name)) {
      error_at(id, "the indexed operator '" + name + "' needs arguments");
    }
    error_at(id, "expected a bit-vector literal (_ bvN W), found " + Lexer::describe(id));
  }
  // Cached as "VALUE WIDTH", which no "#b" or "#x" literal text can equal.
  std::string key = name.substr(2);
  std::size_t const digits = key.size();
  lex_->next();
  std::uint64_t const line = lex_->peek().line;
  std::uint64_t const column = lex_->peek().column;
  std::uint64_t const width = expect_numeral("the bit-vector width");
  expect_rparen(" after the bit-vector width");
  key += ' ';
  key += std::to_string(width);
  auto it = bv_numbers_.find(key);
  if (it != bv_numbers_.end()) {
    return it->second;
  }
  try {
    Term const* n = mgr_.make_number(key.substr(0, digits), mgr_.get_bv_type(width));
    bv_numbers_.emplace(std::move(key), n);
    return n;
  } catch (Error const& e) {
    error_at(line, column, e.what());
  }
}

Term const* ScriptReader::Impl::build_builtin(Entry const& head, std::size_t begin, std::size_t n,
                                              std::uint64_t const* indices, std::size_t num_indices,
                                              std::uint64_t line, std::uint64_t column) {
  std::string const& op = *head.text;
  Op const code = head.op;
  Term const** args = values_.data() + begin;
  try {
    if (is_arith_mixing_op(code)) {
      std::size_t const first = code == Op::kIte ? 1 : 0;
      bool has_int = false;
      bool has_real = false;
      for (std::size_t i = first; i < n; ++i) {
        has_int = has_int || args[i]->get_type()->is_int();
        has_real = has_real || args[i]->get_type()->is_real();
      }
      if (has_int && (has_real || code == Op::kDiv)) {
        for (std::size_t i = first; i < n; ++i) {
          args[i] = coerce(args[i], mgr_.get_rational_type());
        }
      }
      if (n == 1 && (code == Op::kAdd || code == Op::kMul) &&
          (args[0]->get_type()->is_int() || args[0]->get_type()->is_real())) {
        return args[0];  // a sum or product of one term is that term
      }
      // Numerals as the printer writes them: (- 5) and (/ 1.0 2.0).
      if (code == Op::kSub && n == 1 && args[0]->get_symbol()->get_tag() == SymbolTag::NUMERAL) {
        std::string const& v = args[0]->get_symbol()->get_name();
        if (!v.empty() && v[0] != '-' && v != "0") {
          return mgr_.make_number("-" + v, args[0]->get_type());
        }
      }
      if (code == Op::kDiv && n == 2 && args[0]->get_symbol()->get_tag() == SymbolTag::NUMERAL &&
          args[1]->get_symbol()->get_tag() == SymbolTag::NUMERAL) {
        std::string const& a = args[0]->get_symbol()->get_name();
        std::string const& b = args[1]->get_symbol()->get_name();
        if (all_digits(a) && all_digits(b) && b.find_first_not_of('0') != std::string::npos) {
          return mgr_.make_number(a + "/" + b, mgr_.get_rational_type());
        }
      }
    } else if (n == 1 && code == Op::kAndOrXor) {
      return args[0];  // a one-argument conjunction or disjunction is its argument
    } else if (code == Op::kRealArg && n == 1) {
      args[0] = coerce(args[0], mgr_.get_rational_type());
    } else if (code == Op::kArray && n >= 2 && args[0]->get_type()->is_array()) {
      args[1] = coerce(args[1], args[0]->get_type()->get_array_index());
      if (n == 3) {
        args[2] = coerce(args[2], args[0]->get_type()->get_array_element());
      }
    }
    return mgr_.make_builtin(op, args, n, indices, num_indices);
  } catch (Error const& e) {
    error_at(line, column, e.what());
  }
}

// The ")" of an application is consumed; builds the term and pops the frame.
Term const* ScriptReader::Impl::close_application() {
  Frame const f = frames_.back();
  frames_.pop_back();
  std::size_t const n = values_.size() - f.values_begin;
  Term const** args = values_.data() + f.values_begin;
  Term const* result = nullptr;
  auto check_args = [&](std::string const& name, std::size_t arity, auto param_sort) {
    if (n != arity) {
      error_at(f.line, f.column,
               "'" + name + "' expects " + std::to_string(arity) + " argument(s), got " +
                   std::to_string(n));
    }
    for (std::size_t i = 0; i < n; ++i) {
      DataType const* want = param_sort(i);
      args[i] = coerce(args[i], want);
      if (args[i]->get_type() != want) {
        error_at(f.line, f.column,
                 "argument " + std::to_string(i + 1) + " of '" + name + "' has sort " +
                     sort_text(args[i]->get_type()) + ", expected sort " + sort_text(want));
      }
    }
  };
  switch (f.head_kind) {
    case HeadKind::kSymbol: {
      Symbol const* s = static_cast<Symbol const*>(f.head);
      check_args(s->get_name(), s->get_arity(),
                 [&](std::size_t i) { return s->get_type()->get_component(i); });
      try {
        result = mgr_.make_term(s, args, n);
      } catch (Error const& e) {
        error_at(f.line, f.column, e.what());
      }
      break;
    }
    case HeadKind::kMacro: {
      Macro const* m = static_cast<Macro const*>(f.head);
      check_args(m->name, m->params.size(),
                 [&](std::size_t i) { return m->params[i]->get_type(); });
      try {
        result = substitute(*m, args);
      } catch (Error const& e) {
        error_at(f.line, f.column, e.what());
      }
      break;
    }
    case HeadKind::kBuiltin: {
      Entry const& op = *static_cast<Entry const*>(f.head);
      std::size_t const num_indices = indices_.size() - f.aux_begin;
      result = build_builtin(op, f.values_begin, n, indices_.data() + f.aux_begin, num_indices,
                             f.line, f.column);
      break;
    }
  }
  values_.resize(f.values_begin);
  indices_.resize(f.aux_begin);
  return result;
}

// Substitutes the arguments for the placeholders of a definition's body: a post-order walk
// of the body's DAG on an explicit stack, each term rebuilt once.
Term const* ScriptReader::Impl::substitute(Macro const& m, Term const* const* args) {
  memo_.clear();
  for (std::size_t i = 0; i < m.params.size(); ++i) {
    memo_[m.params[i]] = args[i];
  }
  subst_stack_.clear();
  subst_stack_.emplace_back(m.body, false);
  while (!subst_stack_.empty()) {
    auto& top = subst_stack_.back();
    Term const* t = top.first;
    if (memo_.count(t) != 0) {
      subst_stack_.pop_back();
      continue;
    }
    std::size_t const arity = t->get_arity();
    if (arity == 0) {
      memo_[t] = t;
      subst_stack_.pop_back();
      continue;
    }
    if (!top.second) {
      top.second = true;
      for (std::size_t i = arity; i-- > 0;) {
        if (memo_.count(t->get_arg(i)) == 0) {
          subst_stack_.emplace_back(t->get_arg(i), false);
        }
      }
      continue;
    }
    subst_stack_.pop_back();
    args_scratch_.clear();
    bool changed = false;
    for (std::size_t i = 0; i < arity; ++i) {
      Term const* a = memo_[t->get_arg(i)];
      changed = changed || a != t->get_arg(i);
      args_scratch_.push_back(a);
    }
    Term const* r = t;
    if (changed) {
      Symbol const* s = t->get_symbol();
      if (s->is_uninterpreted()) {
        r = mgr_.make_term(s, args_scratch_.data(), arity);
      } else {
        std::uint64_t idx[2] = {s->get_num_indices() > 0 ? s->get_index(0) : 0,
                                s->get_num_indices() > 1 ? s->get_index(1) : 0};
        r = mgr_.make_builtin(s->get_name(), args_scratch_.data(), arity, idx,
                              s->get_num_indices());
      }
    }
    memo_[t] = r;
  }
  return memo_[m.body];
}

void ScriptReader::Impl::undo_lets(std::size_t begin) {
  while (let_undo_.size() > begin) {
    let_undo_.back().first->bound = let_undo_.back().second;
    let_undo_.pop_back();
  }
}

void ScriptReader::Impl::bind_let(Frame& f) {
  std::size_t const n = let_names_.size() - f.aux_begin;
  std::size_t const undo_begin = let_undo_.size();
  std::uint64_t const stamp = ++let_stamp_;
  for (std::size_t i = 0; i < n; ++i) {
    LetName const& ln = let_names_[f.aux_begin + i];
    Entry& e = *ln.entry;
    if (e.let_stamp == stamp) {
      error_at(ln.line, ln.column, "'" + *e.text + "' is bound twice in one let");
    }
    e.let_stamp = stamp;
    let_undo_.emplace_back(&e, e.bound);
    e.bound = values_[f.values_begin + i];
  }
  let_names_.resize(f.aux_begin);
  values_.resize(f.values_begin);
  f.state = State::kLetBody;
  f.aux_begin = undo_begin;
}

void ScriptReader::Impl::close_annotation(Term const* value, bool outermost, bool assertion) {
  bool any = false;
  while (lex_->peek().kind != TokenKind::kRParen) {
    Token const key = lex_->peek();
    if (key.kind != TokenKind::kKeyword) {
      expected(any ? "an attribute or ')'" : "an attribute");
    }
    lex_->next();
    any = true;
    if (eq(key.text, ":named")) {
      Token const name_tok = lex_->peek();
      std::string const name = expect_symbol("a name after ':named'");
      check_fresh_name(name_tok, name);
      add_name(name, Name{nullptr, nullptr, value});
    } else if (eq(key.text, ":interpolation-group")) {
      if (!outermost || !assertion) {
        error_at(key, "':interpolation-group' is allowed only on an asserted formula");
      }
      pending_group_ = expect_symbol("an interpolation group name");
      have_pending_group_ = true;
    } else {
      error_at(key, "the attribute '" + key.text + "' is not supported");
    }
  }
  if (!any) {
    expected("an attribute");
  }
  lex_->next();
}

// Parses one term starting at the current token, bottom-up on the frame stack: phase one
// reads the start of a term and either completes an atom or opens a frame; phase two hands a
// completed term to the frame on top, which may complete in turn.
Term const* ScriptReader::Impl::parse_term(bool assertion) {
  std::size_t const base = frames_.size();
  for (;;) {
    Term const* value = nullptr;
    Token const& t = lex_->peek();
    if (t.kind == TokenKind::kLParen) {
      std::uint64_t const line = t.line;
      std::uint64_t const column = t.column;
      lex_->next();
      Token const& h = lex_->peek();
      if (h.kind == TokenKind::kSymbol && !h.quoted && eq(h.text, "let")) {
        lex_->next();
        expect_lparen(" starting the let bindings");
        if (lex_->peek().kind == TokenKind::kRParen) {
          expected("a binding (NAME TERM)");
        }
        expect_lparen(" starting a binding (NAME TERM)");
        Token const& nt = lex_->peek();
        if (nt.kind != TokenKind::kSymbol) {
          expected("a name to bind");
        }
        frames_.push_back(Frame{State::kLetBinding, HeadKind::kBuiltin, nullptr, values_.size(),
                                let_names_.size(), line, column});
        let_names_.push_back(LetName{&entry(nt.text), nt.line, nt.column});
        lex_->next();
        continue;
      }
      if (h.kind == TokenKind::kSymbol && !h.quoted && eq(h.text, "!")) {
        lex_->next();
        frames_.push_back(Frame{State::kAnnotation, HeadKind::kBuiltin, nullptr, values_.size(), 0,
                                line, column});
        continue;
      }
      if (h.kind == TokenKind::kSymbol && !h.quoted && eq(h.text, "_")) {
        lex_->next();
        value = indexed_constant();
      } else if (h.kind == TokenKind::kLParen) {
        lex_->next();
        open_indexed_application();
        continue;
      } else if (h.kind == TokenKind::kSymbol) {
        open_application();
        continue;
      } else {
        expected("a function symbol, 'let' or '!' after '('");
      }
    } else {
      value = atom(t);
      lex_->next();
    }

    // Phase two: value is a complete term.
    for (;;) {
      if (frames_.size() == base) {
        return value;
      }
      Frame& f = frames_.back();
      if (f.state == State::kApply) {
        values_.push_back(value);
        if (lex_->peek().kind != TokenKind::kRParen) {
          break;  // the next argument
        }
        lex_->next();
        value = close_application();
        continue;
      }
      if (f.state == State::kLetBinding) {
        values_.push_back(value);
        expect_rparen(" closing the binding (NAME TERM)");
        if (lex_->peek().kind == TokenKind::kLParen) {
          lex_->next();
          Token const& nt = lex_->peek();
          if (nt.kind != TokenKind::kSymbol) {
            expected("a name to bind");
          }
          let_names_.push_back(LetName{&entry(nt.text), nt.line, nt.column});
          lex_->next();
          break;  // the next bound term
        }
        if (lex_->peek().kind != TokenKind::kRParen) {
          expected("'(' starting a binding or ')' ending the bindings");
        }
        lex_->next();
        bind_let(f);
        break;  // the body
      }
      if (f.state == State::kLetBody) {
        expect_rparen(" closing the let");
        undo_lets(f.aux_begin);
        frames_.pop_back();
        continue;
      }
      // kAnnotation
      frames_.pop_back();
      close_annotation(value, frames_.size() == base, assertion);
    }
  }
}

// ----------------------------------------------------------------------------- ScriptReader

ScriptReader::ScriptReader(TermManager& mgr, Configuration& config, ApiTracer& tracer)
    : impl_(new Impl(mgr, config, tracer)) {}

ScriptReader::~ScriptReader() = default;

void ScriptReader::read(std::istream& in, std::string const& filename) {
  impl_->read(in, filename);
}

void ScriptReader::set_progress_callback(ProgressCallback callback) {
  impl_->progress_ = std::move(callback);
}

}  // namespace smt2
}  // namespace tvx
