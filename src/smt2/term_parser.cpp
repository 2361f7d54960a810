// The term parser: atoms (numerals, literals, names), applications of operators, declared
// functions and macros, indexed operators, let and annotations. Terms are parsed bottom-up on
// an explicit stack of frames, so nesting depth costs memory and never call stack.
#include <cassert>

#include "core/arith_args.h"
#include "smt2/reader_impl.h"

namespace tvx {
namespace smt2 {

Term const* ScriptReader::Impl::coerce(Term const* t, DataType const* sort) {
  if (sort->is_real() && t->get_type()->is_int()) {
    return as_real(mgr_, t);
  }
  // A constructor without fields of a parametric datatype, written bare: the sort wanted tells
  // the instance.
  if (sort->is_instance() && !sort->has_params() && t->get_arity() == 0 && mgr_.has_params(t) &&
      t->get_symbol()->get_tag() == SymbolTag::DT_CONSTRUCTOR &&
      t->get_type()->get_generic() == sort->get_generic()) {
    return mgr_.make_constant(mgr_.instance_symbol(t->get_symbol(), sort));
  }
  return t;
}

// The instance's symbol that a parametric datatype's symbol `s` stands for in an application
// to `args`, its parameters told by the arguments' sorts.
Symbol const* ScriptReader::Impl::instance_for(Symbol const* s, Term const* const* args,
                                               std::size_t n, std::uint64_t line,
                                               std::uint64_t column) {
  std::vector<DataType const*> binding;
  DataType const* type = s->get_type();
  for (std::size_t i = 0; i < n && i + 1 < type->get_num_components(); ++i) {
    if (!mgr_.has_params(args[i]) &&
        !mgr_.match_params(type->get_component(i), args[i]->get_type(), binding)) {
      error_at(line, column,
               "argument " + std::to_string(i + 1) + " of '" + s->get_name() + "' has sort " +
                   sort_text(args[i]->get_type()) + ", expected sort " +
                   sort_text(type->get_component(i)));
    }
  }
  DataType const* self =
      s->get_tag() == SymbolTag::DT_CONSTRUCTOR ? s->get_output_type() : type->get_component(0);
  for (DataType const* p : self->get_components()) {
    std::size_t const k = p->get_param_index();
    if (k >= binding.size() || binding[k] == nullptr) {
      error_at(line, column,
               "the sort of '" + s->get_name() + "' is not told by its arguments: write (as " +
                   s->get_name() + " SORT)");
    }
  }
  try {
    return mgr_.instance_symbol(s, mgr_.substitute_params(self, binding));
  } catch (Error const& e) {
    error_at(line, column, e.what());
  }
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
    error_at(t, "'" + name + "' needs its variables and body: (" + name + " ((x S) ...) body)");
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
  Token const t = lex_->peek();
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
  } else if (!t.quoted && eq(name, "lambda")) {
    error_at(t, "lambda is not supported");
  } else if (is_unsupported_symbol(name)) {
    error_at(t, "the symbol '" + name + "' is not supported");
  } else {
    error_at(t, "unknown function symbol '" + name + "'");
  }
  lex_->next();
  if (lex_->peek_kind() == TokenKind::kRParen) {
    expected("an argument of '" + name + "'");
  }
  frames_.push_back(f);
}

// "((" is read; parses "_ OP INDEX+)" and pushes a kApply frame with the indices.
void ScriptReader::Impl::open_indexed_application() {
  Token const u = lex_->peek();
  if (u.kind == TokenKind::kSymbol && eq(u.text, "as")) {
    open_qualified_application();
    return;
  }
  if (u.kind != TokenKind::kSymbol || !eq(u.text, "_")) {
    expected("'_' starting an indexed operator");
  }
  lex_->next();
  Token const op = lex_->peek();
  if (op.kind != TokenKind::kSymbol) {
    expected("an indexed operator name");
  }
  if (eq(op.text, "is")) {
    open_tester_application();
    return;
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
  } while (lex_->peek_kind() != TokenKind::kRParen);
  lex_->next();
  if (lex_->peek_kind() == TokenKind::kRParen) {
    expected("an argument of '" + *e.text + "'");
  }
  frames_.push_back(
      Frame{State::kApply, HeadKind::kBuiltin, &e, values_.size(), indices_begin, line, column});
}

// "((as" is current; parses "as const SORT)" and pushes the frame of a constant array.
void ScriptReader::Impl::open_qualified_application() {
  Token const as = lex_->peek();
  lex_->next();
  Token const name = lex_->peek();
  if (name.kind == TokenKind::kSymbol && !eq(name.text, "const")) {
    // ((as C SORT) ARG ...): a constructor of the datatype SORT.
    Entry const* e = find_entry(name.text);
    Symbol const* c = e == nullptr || e->bound != nullptr ? nullptr : e->name.symbol;
    if (c == nullptr || c->get_tag() != SymbolTag::DT_CONSTRUCTOR) {
      error_at(name, "qualified terms (as " + name.text + " ...) are not supported");
    }
    lex_->next();
    Token const sort_tok = lex_->peek();
    DataType const* sort = parse_sort();
    if (c->get_type()->has_params() && sort->is_instance() && !sort->has_params() &&
        sort->get_generic() == c->get_output_type()->get_generic()) {
      c = mgr_.instance_symbol(c, sort);
    }
    if (c->get_output_type() != sort) {
      error_at(sort_tok,
               "the constructor '" + name.text + "' does not build the sort " + sort_text(sort));
    }
    expect_rparen(" after the sort of the qualified term");
    if (lex_->peek_kind() == TokenKind::kRParen) {
      expected("an argument of '" + name.text + "'");
    }
    frames_.push_back(Frame{State::kApply, HeadKind::kSymbol, c, values_.size(), indices_.size(),
                            as.line, as.column});
    return;
  }
  if (name.kind != TokenKind::kSymbol) {
    expected("'const' after 'as'");
  }
  lex_->next();
  Token const sort_tok = lex_->peek();
  DataType const* sort = parse_sort();
  if (!sort->is_array()) {
    error_at(sort_tok, "a constant array needs an array sort, found " + sort_text(sort));
  }
  expect_rparen(" after the sort of the constant array");
  if (lex_->peek_kind() == TokenKind::kRParen) {
    expected("the value of the constant array");
  }
  frames_.push_back(Frame{State::kApply, HeadKind::kConstArray, sort, values_.size(),
                          indices_.size(), as.line, as.column});
}

// "((_ is" is current; parses "is C)" and pushes the frame of C's tester.
void ScriptReader::Impl::open_tester_application() {
  lex_->next();
  Token const c = lex_->peek();
  if (c.kind != TokenKind::kSymbol) {
    expected("a constructor after '_ is'");
  }
  Entry const* e = find_entry(c.text);
  if (e == nullptr || e->bound != nullptr || e->name.symbol == nullptr ||
      e->name.symbol->get_tag() != SymbolTag::DT_CONSTRUCTOR) {
    error_at(c, "'" + c.text + "' is not a constructor");
  }
  lex_->next();
  expect_rparen(" after the tester's constructor");
  if (lex_->peek_kind() == TokenKind::kRParen) {
    expected("an argument of the tester");
  }
  frames_.push_back(Frame{State::kApply, HeadKind::kSymbol,
                          mgr_.constructor_of(e->name.symbol).tester, values_.size(),
                          indices_.size(), c.line, c.column});
}

// "(as" is current; parses "as NAME SORT)": a constant given with its sort.
Term const* ScriptReader::Impl::qualified_constant() {
  lex_->next();
  Token const name = lex_->peek();
  if (name.kind != TokenKind::kSymbol) {
    expected("a constant after 'as'");
  }
  Term const* value = atom(name);
  lex_->next();
  Token const sort_tok = lex_->peek();
  DataType const* sort = parse_sort();
  value = coerce(value, sort);
  if (value->get_type() != sort) {
    error_at(sort_tok, "'" + name.text + "' is of sort " + sort_text(value->get_type()) + ", not " +
                           sort_text(sort));
  }
  expect_rparen(" after the sort of the qualified term");
  return value;
}

// "(_" is read; parses "bvN W)".
Term const* ScriptReader::Impl::indexed_constant() {
  Token const id = lex_->peek();
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
    if (Term const* numeral = mix_arith_args(mgr_, op, args, n)) {
      return numeral;  // (- 5) and (/ 1 2), as the printer writes numerals
    }
    if (n == 1 && (code == Op::kAdd || code == Op::kMul) &&
        (args[0]->get_type()->is_int() || args[0]->get_type()->is_real())) {
      return args[0];  // a sum or product of one term is that term
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
      if (s->get_type()->has_params()) {
        s = instance_for(s, args, n, f.line, f.column);
      }
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
    case HeadKind::kConstArray: {
      DataType const* sort = static_cast<DataType const*>(f.head);
      check_args("(as const " + sort_text(sort) + ")", 1,
                 [&](std::size_t) { return sort->get_array_element(); });
      result = mgr_.make_const_array(sort, args[0]);
      break;
    }
    case HeadKind::kBuiltin: {
      Entry const& op = *static_cast<Entry const*>(f.head);
      std::size_t const num_indices = indices_.size() - f.aux_begin;
      // The head was classified when its frame was opened.
      if (any_generic_terms() && (op.op == Op::kCompare || op.op == Op::kIte)) {
        // (= x nil), (ite c nil x): a bare constructor takes the sort of the others.
        std::size_t const first = eq(*op.text, "ite") ? 1 : 0;
        for (std::size_t i = first; i < n; ++i) {
          if (!mgr_.has_params(args[i])) {
            for (std::size_t k = first; k < n; ++k) {
              args[k] = coerce(args[k], args[i]->get_type());
            }
            break;
          }
        }
      }
      result = build_builtin(op, f.values_begin, n, indices_.data() + f.aux_begin, num_indices,
                             f.line, f.column);
      break;
    }
  }
  for (std::size_t i = 0; i < n; ++i) {
    if (mgr_.has_params(args[i])) {
      error_at(f.line, f.column, generic_term_message(args[i]));
    }
  }
  values_.resize(f.values_begin);
  indices_.resize(f.aux_begin);
  return result;
}

std::string ScriptReader::Impl::generic_term_message(Term const* t) {
  std::string const name = t->get_symbol()->get_name();
  return "the sort of '" + name + "' is not known here: write (as " + name + " SORT)";
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

// "(forall" or "(exists" is read up to the keyword: reads the sorted variables, binds them
// like let names, and opens the frame of the body.
void ScriptReader::Impl::open_quantifier(bool forall, std::uint64_t line, std::uint64_t column) {
  char const* const what = forall ? "forall" : "exists";
  lex_->next();
  expect_lparen(" starting the sorted variables");
  if (lex_->peek_kind() != TokenKind::kLParen) {
    expected("a sorted variable (NAME SORT)");
  }
  std::size_t const undo_begin = let_undo_.size();
  std::size_t const values_begin = values_.size();
  std::uint64_t const stamp = ++let_stamp_;
  while (lex_->peek_kind() == TokenKind::kLParen) {
    lex_->next();
    Token const nt = lex_->peek();
    if (nt.kind != TokenKind::kSymbol) {
      expected("a variable name");
    }
    lex_->next();
    DataType const* sort = parse_sort();
    expect_rparen(" closing the sorted variable (NAME SORT)");
    Entry& e = entry(nt.text);
    if (e.let_stamp == stamp) {
      error_at(nt, "'" + nt.text + "' is bound twice in one " + what);
    }
    Term const* v = nullptr;
    try {
      v = mgr_.make_variable(nt.text, sort);
    } catch (Error const& err) {
      error_at(nt, err.what());
    }
    e.let_stamp = stamp;
    let_undo_.emplace_back(&e, e.bound);
    e.bound = v;
    values_.push_back(v);
  }
  expect_rparen(" ending the sorted variables");
  binder_attributes_.emplace_back();
  frames_.push_back(Frame{forall ? State::kForallBody : State::kExistsBody, HeadKind::kBuiltin,
                          nullptr, values_begin, undo_begin, line, column});
}

// The body of the quantifier on top is complete: reads its ')', unbinds its variables and
// makes the binder.
Term const* ScriptReader::Impl::close_quantifier(Term const* body) {
  Frame const f = frames_.back();
  bool const forall = f.state == State::kForallBody;
  expect_rparen(forall ? " closing the forall" : " closing the exists");
  if (!body->get_type()->is_bool()) {
    error_at(f.line, f.column,
             std::string("the body of ") + (forall ? "forall" : "exists") +
                 " must be a formula of sort Bool, found sort " + sort_text(body->get_type()));
  }
  std::vector<Term const*> vars(values_.begin() + static_cast<std::ptrdiff_t>(f.values_begin),
                                values_.end());
  BinderAttributes attributes = std::move(binder_attributes_.back());
  binder_attributes_.pop_back();
  undo_lets(f.aux_begin);
  values_.resize(f.values_begin);
  frames_.pop_back();
  try {
    return forall ? mgr_.make_forall(vars, body, attributes)
                  : mgr_.make_exists(vars, body, attributes);
  } catch (Error const& e) {
    error_at(f.line, f.column, e.what());
  }
}

bool ScriptReader::Impl::quantifier_attribute(Token const& key) {
  BinderAttributes& a = binder_attributes_.back();
  if (eq(key.text, ":pattern")) {
    expect_lparen(" starting the terms of the pattern");
    a.patterns.emplace_back();
    do {
      Term const* t = parse_term(false);
      a.patterns.back().push_back(t);
    } while (lex_->peek_kind() != TokenKind::kRParen);
    lex_->next();
  } else if (eq(key.text, ":no-pattern")) {
    Term const* t = parse_term(false);
    a.no_patterns.push_back(t);
  } else if (eq(key.text, ":qid")) {
    a.qid = expect_symbol("a name after ':qid'");
  } else if (eq(key.text, ":skolemid")) {
    a.skolemid = expect_symbol("a name after ':skolemid'");
  } else if (eq(key.text, ":weight")) {
    a.weight = static_cast<std::int64_t>(expect_numeral("a numeral after ':weight'"));
  } else {
    return false;
  }
  return true;
}

void ScriptReader::Impl::close_annotation(Term const* value, bool outermost, bool assertion) {
  bool any = false;
  while (lex_->peek_kind() != TokenKind::kRParen) {
    Token const key = lex_->peek();
    if (key.kind != TokenKind::kKeyword) {
      expected(any ? "an attribute or ')'" : "an attribute");
    }
    lex_->next();
    any = true;
    bool const on_body = !outermost && (frames_.back().state == State::kForallBody ||
                                        frames_.back().state == State::kExistsBody);
    if (on_body && quantifier_attribute(key)) {
      continue;
    }
    if (eq(key.text, ":named")) {
      if (!mgr_.is_closed(value)) {
        error_at(key, "':named' cannot name a term in which a variable occurs free");
      }
      Token const name_tok = lex_->peek();
      std::string const name = expect_symbol("a name after ':named'");
      check_fresh_name(name_tok, name);
      add_name(name, Name{nullptr, nullptr, value});
      if (value->get_type() == mgr_.get_bool_type()) {
        named_formulas_.emplace_back(name, value);
      }
      if (outermost && assertion) {
        pending_name_ = name;
      }
    } else if (eq(key.text, ":interpolation-group")) {
      if (!outermost || !assertion) {
        error_at(key, "':interpolation-group' is allowed only on an asserted formula");
      }
      pending_group_ = expect_symbol("an interpolation group name");
      have_pending_group_ = true;
    } else if (eq(key.text, ":pattern") || eq(key.text, ":no-pattern") || eq(key.text, ":qid") ||
               eq(key.text, ":skolemid") || eq(key.text, ":weight")) {
      error_at(key, "'" + key.text + "' is allowed only on the body of a quantifier");
    } else {
      error_at(key, "the attribute '" + key.text + "' is not supported");
    }
  }
  if (!any) {
    expected("an attribute");
  }
  lex_->next();
}

// "(let (" has been read up to the first binding's name: opens the frame of the bindings.
inline void ScriptReader::Impl::open_let(std::uint64_t line, std::uint64_t column) {
  lex_->next();
  expect_lparen(" starting the let bindings");
  if (lex_->peek_kind() == TokenKind::kRParen) {
    expected("a binding (NAME TERM)");
  }
  expect_lparen(" starting a binding (NAME TERM)");
  Token const nt = lex_->peek();
  if (nt.kind != TokenKind::kSymbol) {
    expected("a name to bind");
  }
  frames_.push_back(Frame{State::kLetBinding, HeadKind::kBuiltin, nullptr, values_.size(),
                          let_names_.size(), line, column});
  let_names_.push_back(LetName{&entry(nt.text), nt.line, nt.column});
  lex_->next();
}

// Phase one: reads the start of a term. Returns the term when it is an atom or an indexed
// constant, and null when it opened a frame instead.
inline Term const* ScriptReader::Impl::start_term() {
  Token const t = lex_->peek();
  if (t.kind != TokenKind::kLParen) {
    Term const* value = atom(t);
    assert(value != nullptr && "an atom is a term");
    lex_->next();
    return value;
  }
  std::uint64_t const line = t.line;
  std::uint64_t const column = t.column;
  lex_->next();
  Token const h = lex_->peek();
  bool const keyword = h.kind == TokenKind::kSymbol && !h.quoted;
  if (keyword && eq(h.text, "let")) {
    open_let(line, column);
  } else if (keyword && (eq(h.text, "forall") || eq(h.text, "exists"))) {
    open_quantifier(eq(h.text, "forall"), line, column);
  } else if (keyword && eq(h.text, "match")) {
    open_match(line, column);
  } else if (keyword && eq(h.text, "as")) {
    return qualified_constant();
  } else if (keyword && eq(h.text, "!")) {
    lex_->next();
    frames_.push_back(
        Frame{State::kAnnotation, HeadKind::kBuiltin, nullptr, values_.size(), 0, line, column});
  } else if (keyword && eq(h.text, "_")) {
    lex_->next();
    return indexed_constant();
  } else if (h.kind == TokenKind::kLParen) {
    lex_->next();
    open_indexed_application();
  } else if (h.kind == TokenKind::kSymbol) {
    open_application();
  } else {
    expected("a function symbol, 'let' or '!' after '('");
  }
  return nullptr;
}

// A let's bound term is complete: reads the next binding's name, or the end of the bindings,
// after which the names are bound and the body follows.
inline void ScriptReader::Impl::next_binding(Frame& f) {
  expect_rparen(" closing the binding (NAME TERM)");
  if (lex_->peek_kind() == TokenKind::kLParen) {
    lex_->next();
    Token const nt = lex_->peek();
    if (nt.kind != TokenKind::kSymbol) {
      expected("a name to bind");
    }
    let_names_.push_back(LetName{&entry(nt.text), nt.line, nt.column});
    lex_->next();
    return;
  }
  if (lex_->peek_kind() != TokenKind::kRParen) {
    expected("'(' starting a binding or ')' ending the bindings");
  }
  lex_->next();
  bind_let(f);
}

// Phase two: hands the complete term `value` to the frame on top, which may complete in turn.
// Returns true when the term begun at frame depth `base` is complete (in `value`), false when
// the frames wait for more input.
inline bool ScriptReader::Impl::finish_term(Term const*& value, std::size_t base, bool assertion) {
  for (;;) {
    if (frames_.size() == base) {
      return true;
    }
    Frame& f = frames_.back();
    switch (f.state) {
      case State::kApply:
        values_.push_back(value);
        if (lex_->peek_kind() != TokenKind::kRParen) {
          return false;  // the next argument
        }
        lex_->next();
        value = close_application();
        break;
      case State::kLetBinding:
        values_.push_back(value);
        next_binding(f);
        return false;  // the next bound term, or the body
      case State::kLetBody:
        expect_rparen(" closing the let");
        undo_lets(f.aux_begin);
        frames_.pop_back();
        break;
      case State::kAnnotation:
        frames_.pop_back();
        close_annotation(value, frames_.size() == base, assertion);
        break;
      case State::kForallBody:
      case State::kExistsBody:
        value = close_quantifier(value);
        break;
      case State::kMatchSubject:
      case State::kMatchCase:
        value = next_match_case(value);
        if (value == nullptr) {
          return false;  // the next case's body
        }
        break;
    }
  }
}

// Parses one term starting at the current token, bottom-up on the frame stack: phase one
// reads the start of a term and either completes an atom or opens a frame; phase two hands a
// completed term to the frame on top, which may complete in turn.
Term const* ScriptReader::Impl::parse_term(bool assertion) {
  std::size_t const base = frames_.size();
  Token const start = lex_->peek();
  for (;;) {
    Term const* value = start_term();
    if (value != nullptr && finish_term(value, base, assertion)) {
      if (mgr_.has_params(value)) {
        error_at(start, generic_term_message(value));
      }
      return value;
    }
  }
}

}  // namespace smt2
}  // namespace tvx
