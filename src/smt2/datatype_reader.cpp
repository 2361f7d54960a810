// Datatypes in scripts: declare-datatype and declare-datatypes, in SMT-LIB 2.6's syntax and in
// the older one that some tools still write, and match, which is read into the testers and
// selectors it stands for, so that no engine needs a binder of its own for it.
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "smt2/reader_impl.h"

namespace tvx {
namespace smt2 {

// constructor_dec ::= (C (s S)*) | C
ConstructorDecl ScriptReader::Impl::constructor_decl(std::vector<Token>& name_tokens) {
  ConstructorDecl c;
  if (lex_->peek_kind() == TokenKind::kSymbol) {
    name_tokens.push_back(lex_->peek());
    c.name = expect_symbol("a constructor name");
    return c;
  }
  expect_lparen(" starting a constructor (C (s S) ...)");
  name_tokens.push_back(lex_->peek());
  c.name = expect_symbol("a constructor name");
  while (lex_->peek_kind() != TokenKind::kRParen) {
    expect_lparen(" starting a selector (NAME SORT)");
    name_tokens.push_back(lex_->peek());
    std::string selector = expect_symbol("a selector name");
    DataType const* sort = parse_sort();
    expect_rparen(" closing the selector (NAME SORT)");
    c.fields.emplace_back(std::move(selector), sort);
  }
  lex_->next();
  return c;
}

// (declare-datatype D (CONSTRUCTOR+))
// (declare-datatypes ((D 0) ...) ((CONSTRUCTOR+) ...))      SMT-LIB 2.6
// (declare-datatypes () ((D CONSTRUCTOR+) ...))              the older syntax
// The group's sorts are in scope while its constructors are read (in the older syntax a name
// met before its datatype is made then, and must be declared by the group), and the names
// become known for good only once the whole group was read and accepted.
void ScriptReader::Impl::cmd_declare_datatypes(bool several, Token const& cmd) {
  std::vector<Token> sort_tokens;
  std::vector<DataType const*> sorts;
  std::vector<std::vector<ConstructorDecl>> constructors;
  std::vector<Token> name_tokens;  // constructors' and selectors'
  // The group's names stand for its sorts while it is read; whatever happens, they are taken
  // back, and given again for good once the group is defined.
  struct Hidden {
    Entry* entry;
    DataType const* sort;
  };
  std::vector<Hidden> hidden;
  struct Restore {
    std::vector<Hidden>& hidden;
    std::function<DataType const*(Token const&)>*& forward;
    ~Restore() {
      for (std::size_t i = hidden.size(); i-- > 0;) {
        hidden[i].entry->sort = hidden[i].sort;
      }
      forward = nullptr;
    }
  } restore{hidden, forward_sort_};

  auto check_sort_name = [&](Token const& t) {
    std::string const& name = t.text;
    if (Entry const* e = find_entry(name);
        e != nullptr && (e->sort != nullptr || e->sort_macro != nullptr)) {
      error_at(t, "sort '" + name + "' is already declared or defined");
    }
    if (is_builtin_sort_name(name)) {
      error_at(t, "'" + name + "' is a built-in sort name and cannot be declared");
    }
  };
  std::vector<std::vector<DataType const*>> params;
  auto add_datatype = [&](Token const& t, std::size_t arity) {
    check_sort_name(t);
    DataType const* d = nullptr;
    try {
      d = mgr_.make_datatype_sort(t.text, arity);
    } catch (Error const& e) {
      error_at(t, e.what());
    }
    params.emplace_back();
    Entry& e = entry(t.text);
    hidden.push_back(Hidden{&e, e.sort});
    e.sort = d;
    sort_tokens.push_back(t);
    sorts.push_back(d);
    constructors.emplace_back();
  };
  // "par (T+)": the names of a parametric datatype's parameters, "par" current.
  auto par_names = [&] {
    std::vector<Token> names;
    lex_->next();
    expect_lparen(" starting the sort parameters");
    while (lex_->peek_kind() != TokenKind::kRParen) {
      names.push_back(lex_->peek());
      expect_symbol("a sort parameter");
      for (std::size_t k = 0; k + 1 < names.size(); ++k) {
        if (names[k].text == names.back().text) {
          error_at(names.back(), "the sort parameter '" + names.back().text + "' is repeated");
        }
      }
    }
    lex_->next();
    return names;
  };
  auto is_par = [&] {
    return lex_->peek_kind() == TokenKind::kSymbol && eq(lex_->peek().text, "par");
  };
  // The constructors of datatype i: "CONSTRUCTOR+)" after "(", or, after "(par (T+)",
  // "(CONSTRUCTOR+))", the parameters standing for sorts while the constructors are read.
  auto constructor_list = [&](std::size_t i, std::vector<Token> const* names) {
    std::vector<Hidden> bound;
    struct Unbind {
      std::vector<Hidden>& names;
      ~Unbind() {
        for (std::size_t k = names.size(); k-- > 0;) {
          names[k].entry->sort = names[k].sort;
        }
      }
    } unbind{bound};
    if (names != nullptr) {
      if (names->size() != sorts[i]->get_num_params()) {
        error_at(sort_tokens[i], "the datatype '" + sort_tokens[i].text + "' takes " +
                                     std::to_string(sorts[i]->get_num_params()) +
                                     " sort parameter(s), not " + std::to_string(names->size()));
      }
      for (Token const& t : *names) {
        try {
          params[i].push_back(mgr_.get_sort_parameter(t.text, params[i].size()));
        } catch (Error const& e) {
          error_at(t, e.what());
        }
        Entry& e = entry(t.text);
        bound.push_back(Hidden{&e, e.sort});
        e.sort = params[i].back();
      }
      expect_lparen(" starting the datatype's constructors");
    } else if (sorts[i]->get_num_params() > 0) {
      expected("'par' and the sort parameters of '" + sort_tokens[i].text + "'");
    }
    do {
      // Read first: a sort met on the way may add a datatype to the group (older syntax).
      ConstructorDecl c = constructor_decl(name_tokens);
      constructors[i].push_back(std::move(c));
    } while (lex_->peek_kind() != TokenKind::kRParen);
    lex_->next();
    if (names != nullptr) {
      expect_rparen(" closing the par");
    }
  };
  // "(" read: the constructors of datatype i, with or without parameters.
  auto datatype_body = [&](std::size_t i) {
    if (is_par()) {
      std::vector<Token> const names = par_names();
      constructor_list(i, &names);
    } else {
      constructor_list(i, nullptr);
    }
  };

  if (!several) {
    Token const t = lex_->peek();
    expect_symbol("a datatype name");
    expect_lparen(" starting the datatype's constructors");
    if (is_par()) {
      // The parameters give the arity, which the datatype is made with.
      std::vector<Token> const names = par_names();
      add_datatype(t, names.size());
      constructor_list(0, &names);
    } else {
      add_datatype(t, 0);
      constructor_list(0, nullptr);
    }
  } else {
    expect_lparen(" starting the datatypes' names");
    if (lex_->peek_kind() == TokenKind::kSymbol) {
      error_at(lex_->peek(), "datatypes with sort parameters are not supported");
    }
    bool const old_syntax = lex_->peek_kind() == TokenKind::kRParen;
    while (lex_->peek_kind() == TokenKind::kLParen) {
      lex_->next();
      Token const t = lex_->peek();
      expect_symbol("a datatype name");
      Token const arity_tok = lex_->peek();
      std::uint64_t const arity = expect_numeral("the datatype's arity");
      if (arity > 64) {
        error_at(arity_tok, "the arity " + arity_tok.text + " is too large");
      }
      expect_rparen(" after the datatype's arity");
      add_datatype(t, static_cast<std::size_t>(arity));
    }
    expect_rparen(" ending the datatypes' names");
    expect_lparen(" starting the datatypes' constructors");
    if (old_syntax) {
      // (D CONSTRUCTOR+) per datatype. A sort name not known when met is taken to be a
      // datatype of this group declared further on: resolve_sort asks for it here.
      std::vector<bool> declared;
      std::function<DataType const*(Token const&)> forward = [&](Token const& t) {
        add_datatype(t, 0);
        declared.push_back(false);
        return sorts.back();
      };
      forward_sort_ = &forward;
      while (lex_->peek_kind() == TokenKind::kLParen) {
        lex_->next();
        Token const t = lex_->peek();
        expect_symbol("a datatype name");
        std::size_t i = 0;
        while (i < sorts.size() && sort_tokens[i].text != t.text) {
          ++i;
        }
        if (i == sorts.size()) {
          add_datatype(t, 0);
          declared.push_back(false);
        } else if (declared[i]) {
          error_at(t, "the datatype '" + t.text + "' is declared twice");
        }
        declared[i] = true;
        constructor_list(i, nullptr);
      }
      for (std::size_t i = 0; i < sorts.size(); ++i) {
        if (!declared[i]) {
          error_at(sort_tokens[i], "unknown sort '" + sort_tokens[i].text + "'");
        }
      }
      forward_sort_ = nullptr;
    } else {
      for (std::size_t i = 0; i < sorts.size(); ++i) {
        expect_lparen(" starting a datatype's constructors");
        datatype_body(i);
      }
    }
    expect_rparen(" ending the datatypes' constructors");
  }
  if (sorts.empty()) {
    expected("a datatype (NAME 0)");
  }
  expect_rparen(several ? " after declare-datatypes" : " after declare-datatype");

  // Names of constructors and selectors: fresh, and each once in the group.
  std::set<std::string> seen;
  for (Token const& t : name_tokens) {
    check_fresh_name(t, t.text);
    if (!seen.insert(t.text).second) {
      error_at(t, "'" + t.text + "' is declared twice in this declaration");
    }
  }
  try {
    mgr_.define_datatypes(sorts, constructors, params);
  } catch (Error const& e) {
    error_at(cmd, e.what());
  }
  for (std::size_t i = hidden.size(); i-- > 0;) {
    hidden[i].entry->sort = hidden[i].sort;
  }
  hidden.clear();
  for (std::size_t i = 0; i < sorts.size(); ++i) {
    add_sort(sort_tokens[i].text, sorts[i]);
    for (DatatypeInfo::Constructor const& c : mgr_.datatype_info(sorts[i])->constructors) {
      std::string const& name = c.constructor->get_name();
      add_name(name, Name{c.constructor, nullptr, nullptr});
      for (Symbol const* s : c.selectors) {
        add_name(s->get_name(), Name{s, nullptr, nullptr});
      }
      // The older name of the tester, where it names nothing else.
      std::string const tester = "is-" + name;
      if (Entry const* e = find_entry(tester); e == nullptr || !e->named()) {
        add_name(tester, Name{c.tester, nullptr, nullptr});
      }
    }
  }
}

// ------------------------------------------------------------------------------ match

// "(match" is current: opens the frame whose subject comes next.
void ScriptReader::Impl::open_match(std::uint64_t line, std::uint64_t column) {
  lex_->next();
  frames_.push_back(Frame{State::kMatchSubject, HeadKind::kBuiltin, nullptr, values_.size(),
                          let_undo_.size(), line, column});
}

// Reads "(PATTERN" of the next case and binds the pattern's variables; the body comes next.
// A pattern is a constructor applied to variables, a constructor without fields, or a
// variable, which matches every value.
void ScriptReader::Impl::open_match_case(Frame& f) {
  Term const* subject = values_[f.values_begin];
  expect_lparen(" starting a match case (PATTERN TERM)");
  f.aux_begin = let_undo_.size();
  Token const t = lex_->peek();
  Symbol const* constructor = nullptr;
  auto constructor_named = [&](Token const& name) -> Symbol const* {
    Entry const* e = find_entry(name.text);
    if (e == nullptr || e->bound != nullptr || e->name.symbol == nullptr ||
        e->name.symbol->get_tag() != SymbolTag::DT_CONSTRUCTOR) {
      return nullptr;
    }
    Symbol const* c = e->name.symbol;
    DataType const* sort = subject->get_type();
    if (c->get_type()->has_params() && sort->is_instance() &&
        sort->get_generic() == c->get_output_type()->get_generic()) {
      c = mgr_.instance_symbol(c, sort);
    }
    if (c->get_output_type() != sort) {
      error_at(name, "the constructor '" + name.text + "' does not build the sort " +
                         sort_text(subject->get_type()) + " of the matched term");
    }
    return c;
  };
  std::uint64_t const stamp = ++let_stamp_;
  auto bind = [&](Token const& name, Term const* value) {
    Entry& e = entry(name.text);
    if (e.let_stamp == stamp) {
      error_at(name, "'" + name.text + "' is bound twice in one pattern");
    }
    e.let_stamp = stamp;
    let_undo_.emplace_back(&e, e.bound);
    e.bound = value;
  };
  Term const* condition = nullptr;
  if (t.kind == TokenKind::kSymbol) {
    lex_->next();
    constructor = constructor_named(t);
    if (constructor != nullptr && constructor->get_arity() != 0) {
      error_at(t, "the constructor '" + t.text + "' takes " +
                      std::to_string(constructor->get_arity()) + " field(s) in a pattern");
    }
    if (constructor == nullptr) {
      bind(t, subject);
    }
  } else if (t.kind == TokenKind::kLParen) {
    lex_->next();
    Token const c = lex_->peek();
    if (c.kind != TokenKind::kSymbol) {
      expected("a constructor in a pattern");
    }
    lex_->next();
    constructor = constructor_named(c);
    if (constructor == nullptr) {
      error_at(
          c, "'" + c.text + "' is not a constructor of the sort " + sort_text(subject->get_type()));
    }
    DatatypeInfo::Constructor const& entry = mgr_.constructor_of(constructor);
    std::size_t k = 0;
    while (lex_->peek_kind() != TokenKind::kRParen) {
      Token const v = lex_->peek();
      if (v.kind != TokenKind::kSymbol) {
        expected("a variable in a pattern");
      }
      if (k == entry.selectors.size()) {
        error_at(v, "the constructor '" + c.text + "' takes " +
                        std::to_string(entry.selectors.size()) + " field(s)");
      }
      lex_->next();
      Term const* field = mgr_.make_term(entry.selectors[k++], &subject, 1);
      bind(v, field);
    }
    if (k != entry.selectors.size()) {
      error_at(lex_->peek(), "the constructor '" + c.text + "' takes " +
                                 std::to_string(entry.selectors.size()) + " field(s)");
    }
    lex_->next();
  } else {
    expected("a pattern");
  }
  if (constructor != nullptr) {
    condition = mgr_.make_term(mgr_.constructor_of(constructor).tester, &subject, 1);
  }
  values_.push_back(condition);
  f.state = State::kMatchCase;
}

// The subject or a case's body is complete (`value`): opens the next case, or closes the
// match and returns its term (null while cases remain).
Term const* ScriptReader::Impl::next_match_case(Term const* value) {
  Frame& f = frames_.back();
  if (f.state == State::kMatchSubject) {
    if (mgr_.datatype_info(value->get_type()) == nullptr) {
      error_at(
          f.line, f.column,
          "match needs a term of a datatype, found one of sort " + sort_text(value->get_type()));
    }
    values_.push_back(value);
    expect_lparen(" starting the match cases");
    open_match_case(f);
    return nullptr;
  }
  values_.push_back(value);
  undo_lets(f.aux_begin);
  expect_rparen(" closing the match case (PATTERN TERM)");
  if (lex_->peek_kind() == TokenKind::kLParen) {
    open_match_case(f);
    return nullptr;
  }
  expect_rparen(" ending the match cases");
  expect_rparen(" closing the match");
  Frame const done = f;
  frames_.pop_back();
  return close_match(done);
}

// (match s ((P1 B1) ... (Pn Bn))) is (ite C1 B1 (ite ... Bn)), Ci being P1's tester applied
// to s; the cases must cover every constructor, and a variable pattern ends them.
Term const* ScriptReader::Impl::close_match(Frame const& f) {
  Term const* subject = values_[f.values_begin];
  DatatypeInfo const* info = mgr_.datatype_info(subject->get_type());
  std::size_t const first = f.values_begin + 1;
  std::size_t const end = values_.size();
  std::size_t last = first;  // the case after which none can match
  std::set<Symbol const*> covered;
  bool total = false;
  for (std::size_t k = first; k < end && !total; k += 2) {
    last = k;
    Term const* condition = values_[k];
    if (condition == nullptr) {
      total = true;
    } else {
      covered.insert(condition->get_symbol());
    }
  }
  if (!total) {
    for (DatatypeInfo::Constructor const& c : info->constructors) {
      if (covered.count(c.tester) == 0) {
        error_at(f.line, f.column,
                 "the match has no case for the constructor '" + c.constructor->get_name() + "'");
      }
    }
  }
  Term const* result = values_[last + 1];
  try {
    for (std::size_t k = last; k > first;) {
      k -= 2;
      result = mgr_.make_ite(values_[k], values_[k + 1], result);
    }
  } catch (Error const& e) {
    error_at(f.line, f.column, std::string("invalid match: ") + e.what());
  }
  values_.resize(f.values_begin);
  return result;
}

}  // namespace smt2
}  // namespace tvx
