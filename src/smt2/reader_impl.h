// ScriptReader::Impl: the reader's state and the parts it is made of. The reader is one class
// whose member functions are grouped by concern, one file each:
//   command_reader.cpp  the command loop and one function per command, each making its calls
//                       on the Solver and writing its answer
//   reader_state.cpp    names and their scopes, define-fun macros and their expansion,
//                       interpolation groups
//   sort_parser.cpp     sorts
//   datatype_reader.cpp declare-datatype(s), and match, read into testers and selectors
//   term_parser.cpp     terms, parsed bottom-up on an explicit stack of frames
//   smtlib_names.cpp    the SMT-LIB names the reader classifies: commands, operators, and the
//                       theories outside the supported fragment
// Invariant: between commands the term parser's stacks are empty and every scope opened by a
// push has one mark in scope_marks_.
#ifndef TVX_SMT2_READER_IMPL_H
#define TVX_SMT2_READER_IMPL_H

#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/error.h>
#include <tvx/smt2/script_reader.h>
#include <tvx/support/str.h>
#include "smt2/lexer.h"

namespace tvx {
namespace smt2 {

// Compares with a literal without a call to strlen or memcmp.
template <std::size_t N>
bool eq(std::string const& s, char const (&literal)[N]) {
  return s.size() == N - 1 && std::memcmp(s.data(), literal, N - 1) == 0;
}

// Names of theories and constructs outside the supported fragment, reported as unsupported
// rather than unknown.
bool is_unsupported_symbol(std::string const& name);
bool is_unsupported_sort(std::string const& name);
inline bool is_builtin_sort_name(std::string const& name) {
  return TermManager::is_builtin_sort_name(name);
}

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

Op classify_op(std::string const& name);

// The commands, by kind; the unsupported ones are grouped by the error they get.
enum class Command : std::uint8_t {
  kAssert,
  kDeclareFun,
  kDeclareConst,
  kDefineFun,
  kDefineConst,
  kDeclareSort,
  kDefineSort,
  kPush,
  kPop,
  kCheckSat,
  kCheckSatAssuming,
  kCheckAllsat,
  kGetValue,
  kGetModel,
  kGetUnsatCore,
  kGetUnsatAssumptions,
  kGetInterpolant,
  kResetAssertions,
  kSetOption,
  kSetLogic,
  kSetInfo,
  kGetInfo,
  kGetOption,
  kEcho,
  kExit,
  kReset,
  kGetAssertions,
  kGetAssignment,
  kDefineFunRec,
  kDefineFunsRec,
  kDeclareDatatype,
  kDeclareDatatypes,
  kDatatypes,  // declare-codatatypes: not supported
  kUnknown,    // any other command, standard or not: not supported
};
Command command_of(std::string const& name);

// A sort for messages; a function sort as declare-fun writes it: "(Int U) Bool".
std::string sort_text(DataType const* t);

class ScriptReader::Impl {
 public:
  explicit Impl(Solver& solver)
      : solver_(solver),
        mgr_(solver.term_manager()),
        config_(solver.configuration()),
        initial_models_(config_.model_generation),
        initial_cores_(config_.unsat_core_generation) {}

  void read(std::istream& in, std::string const& filename);
  ProgressCallback progress_;
  ResponseWriter* responses_ = nullptr;
  SolverPersona persona_;
  std::uint64_t errors_answered_ = 0;

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

  // A sort written in postfix order: leaves push a sort, an array or a sort-macro application
  // replaces the sorts it takes on top of the stack by the sort it makes. Sort macros keep
  // their bodies in this form, with their parameters as leaves.
  struct SortMacro;
  struct SortNode {
    enum class Kind : std::uint8_t { kSort, kParam, kArray, kMacro, kInstance };
    Kind kind;
    DataType const* sort;    // kSort; kInstance: the generic sort applied
    std::size_t index;       // kParam: the parameter's position; kInstance: the argument count
    SortMacro const* macro;  // kMacro
    std::uint64_t line, column;
  };
  // A define-sort with parameters.
  struct SortMacro {
    std::string name;
    std::size_t arity;
    std::vector<SortNode> body;
  };

  // Everything one symbol text stands for now, so that each symbol token is looked up once.
  // An entry is made on first need and kept; empty fields mean nothing in scope.
  struct Entry {
    std::string const* text = nullptr;  // the table's key
    Term const* bound = nullptr;        // a let binding or a define-fun parameter
    Name name{nullptr, nullptr, nullptr};
    Term const* constant = nullptr;         // the constant term of name.symbol, once made
    DataType const* sort = nullptr;         // a declared or defined sort
    SortMacro const* sort_macro = nullptr;  // a define-sort with parameters
    std::uint64_t let_stamp = 0;            // the latest let (or parameter list) that bound it
    Op op = Op::kUnknown;                   // as an operator; classified on first use as one
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
    // "(forall (VARIABLES) BODY" and exists: the variables are bound like let names (undo log
    // from aux_begin) and on values_ from values_begin; the BODY is being parsed.
    kForallBody,
    kExistsBody,
    // "(match SUBJECT": the SUBJECT is being parsed.
    kMatchSubject,
    // "(match SUBJECT (... (PATTERN BODY": a case's BODY is being parsed, its pattern's
    // variables bound like let names (undo log from aux_begin). values_ holds, from
    // values_begin, the subject and then each case's condition (null when it matches every
    // value) and body.
    kMatchCase,
  };
  // kConstArray: ((as const SORT) VALUE), the head being the array sort.
  enum class HeadKind : std::uint8_t { kBuiltin, kSymbol, kMacro, kConstArray };

  struct Frame {
    State state;
    HeadKind head_kind;
    // Entry const* (builtin operator), Symbol const*, Macro const*, or DataType const*
    void const* head;
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
    if (lex_->peek_kind() != TokenKind::kRParen) {
      expected(std::string("')'") + context);
    }
    lex_->next();
  }
  void expect_lparen(char const* context) {
    if (lex_->peek_kind() != TokenKind::kLParen) {
      expected(std::string("'('") + context);
    }
    lex_->next();
  }
  // The name of a symbol token, consumed.
  std::string expect_symbol(char const* what) {
    if (lex_->peek_kind() != TokenKind::kSymbol) {
      expected(what);
    }
    std::string name = lex_->peek().text;
    lex_->next();
    return name;
  }
  std::uint64_t expect_numeral(char const* what) {
    Token const t = lex_->peek();
    if (t.kind != TokenKind::kNumeral) {
      expected(what);
    }
    std::uint64_t v = 0;
    if (!str::parse_decimal(t.text, &v)) {
      error_at(t, "numeral '" + t.text + "' is too large");
    }
    lex_->next();
    return v;
  }

  // One function per command; command() reads the command's name and calls it.
  bool command();
  // The families of commands that command() hands a command to.
  bool state_command(Command c, Token const& cmd);
  bool query_command(Command c);
  [[noreturn]] void refuse_command(Command c, Token const& cmd);
  void cmd_check_sat();
  void cmd_check_sat_assuming();
  void cmd_check_allsat();
  void cmd_get_value();
  void cmd_get_model();
  void cmd_get_unsat_core();
  void cmd_get_unsat_assumptions();
  void cmd_get_interpolant();
  void cmd_reset_assertions();
  void cmd_reset();
  void cmd_get_assertions();
  void cmd_get_assignment();
  void cmd_set_logic();
  void cmd_set_info();
  void cmd_get_info(bool info);
  void cmd_echo();
  void skip_sexpr();
  void skip_attribute_value();

  // sorts
  DataType const* parse_sort();
  // Parses a sort into postfix code; `params` names a sort macro's parameters, if any.
  std::vector<SortNode> parse_sort_code(std::vector<std::string> const* params);
  SortNode sort_leaf(Token const& t, std::vector<std::string> const* params);
  // Evaluates postfix sort code, expanding sort macros on a stack of frames.
  DataType const* eval_sort(std::vector<SortNode> const& code);
  DataType const* resolve_sort(Token const& t);

  // terms
  Term const* parse_term(bool assertion);
  // The phases of parse_term, inline in term_parser.cpp, the one file that calls them.
  inline Term const* start_term();
  inline bool finish_term(Term const*& value, std::size_t base, bool assertion);
  inline void open_let(std::uint64_t line, std::uint64_t column);
  void open_quantifier(bool forall, std::uint64_t line, std::uint64_t column);
  Term const* close_quantifier(Term const* body);
  // An attribute of a quantifier's body (:pattern, :no-pattern, :qid, :skolemid, :weight),
  // its keyword read; false for any other keyword.
  bool quantifier_attribute(Token const& key);
  inline void next_binding(Frame& f);
  Term const* atom(Token const& t);
  void open_application();
  void open_indexed_application();
  void open_qualified_application();
  void open_tester_application();
  Term const* qualified_constant();
  Term const* indexed_constant();
  Term const* close_application();
  void bind_let(Frame& f);
  // Undoes the let bindings made since let_undo_ had `begin` entries, restoring what they hid.
  void undo_lets(std::size_t begin);
  void close_annotation(Term const* value, bool outermost, bool assertion);
  Term const* build_builtin(Entry const& head, std::size_t begin, std::size_t n,
                            std::uint64_t const* indices, std::size_t num_indices,
                            std::uint64_t line, std::uint64_t column);
  Term const* coerce(Term const* t, DataType const* sort);
  Symbol const* instance_for(Symbol const* s, Term const* const* args, std::size_t n,
                             std::uint64_t line, std::uint64_t column);
  static std::string generic_term_message(Term const* t);
  bool any_generic_terms() const { return mgr_.has_any_params(); }
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
  void add_sort_macro(std::string const& name, SortMacro const* macro);
  void pop_scope();
  int group_number(std::string const& name);

  // datatypes
  void cmd_declare_datatypes(bool several, Token const& cmd);
  // One constructor declaration, "(C (s S) ...)" or a bare "C", with the group's sorts in scope.
  ConstructorDecl constructor_decl(std::vector<Token>& name_tokens);
  void open_match(std::uint64_t line, std::uint64_t column);
  // The subject or a case's body is complete: opens the next case or closes the match.
  void open_match_case(Frame& f);
  Term const* next_match_case(Term const* value);
  Term const* close_match(Frame const& f);

  // commands
  void cmd_declare_sort();
  void cmd_define_sort();
  void cmd_declare_fun(bool is_const);
  void cmd_define_fun(bool is_const);
  // A recursive definition's signature, its parameters as variables.
  struct RecSignature {
    Token name;
    Symbol const* symbol;
    std::vector<Term const*> params;
    std::vector<Token> param_tokens;
  };
  RecSignature rec_signature();
  Term const* rec_body(RecSignature const& sig);
  void cmd_define_funs_rec(bool several, Token const& cmd);
  void cmd_push_pop(bool push, Token const& command_token);
  void cmd_assert();
  void cmd_set_option();
  void answer_info(bool info, std::string const& key);
  void cmd_term_list(std::vector<Term const*>& out, bool allow_empty, char const* command);
  // Forgets what a command that failed half-way left in the term parser's state.
  void reset_parse_state();
  // The value an option has now, as get-option writes it; empty for an option not known.
  std::string option_value(std::string const& key) const;

  Solver& solver_;
  TermManager& mgr_;
  Configuration& config_;
  ConfigurationSetter setter_;
  Lexer* lex_ = nullptr;
  std::uint64_t commands_ = 0;

  // Every symbol text met as a name; the table's nodes, and so the entries, never move.
  std::unordered_map<std::string, Entry> entries_;
  // Scopes: an undo log of what each open push added.
  std::vector<std::pair<bool, Entry*>> scope_log_;  // (is a sort, entry)
  std::deque<SortMacro> sort_macros_;               // every define-sort with parameters
  // The sorts sort macros made, by macro and arguments.
  std::map<std::pair<SortMacro const*, std::vector<DataType const*>>, DataType const*>
      sort_instances_;
  std::vector<std::size_t> scope_marks_;  // scope_log_ size at each open push
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
  // The :named name of each asserted formula that had one, for the names of unsat cores.
  std::unordered_map<Term const*, std::string> assertion_names_;
  std::string pending_name_;  // the :named name on the formula being asserted
  // Every :named name of a Boolean term, in naming order, for get-assignment (a name whose
  // scope is gone no longer names its term, and is skipped).
  std::vector<std::pair<std::string, Term const*>> named_formulas_;

  // Term parser state, reused from term to term.
  std::vector<Frame> frames_;
  std::vector<Term const*> values_;
  std::vector<std::uint64_t> indices_;
  std::vector<LetName> let_names_;
  std::vector<std::pair<Entry*, Term const*>> let_undo_;  // entry, shadowed term or null
  std::vector<BinderAttributes> binder_attributes_;       // one per open quantifier frame
  std::uint64_t let_stamp_ = 0;
  std::vector<Term const*> args_scratch_;

  // Substitution scratch.
  std::unordered_map<Term const*, Term const*> memo_;
  std::vector<std::pair<Term const*, bool>> subst_stack_;
  std::uint64_t renamed_variables_ = 0;

  std::vector<Term const*> terms_scratch_;
  // While the older syntax of declare-datatypes is read: makes a sort name not known yet a
  // datatype of the group being declared.
  std::function<DataType const*(Token const&)>* forward_sort_ = nullptr;

  // Options set by set-option that change nothing else, as written, by keyword.
  std::map<std::string, std::string> options_;
  bool print_success_ = false;
  // The options a reset goes back to.
  bool initial_models_;
  bool initial_cores_;
};

}  // namespace smt2
}  // namespace tvx

#endif  // TVX_SMT2_READER_IMPL_H
