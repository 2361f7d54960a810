// The sort parser: sort names (built in, declared, defined) and the sorts (_ BitVec N) and
// (Array S T), whose nesting is kept on an explicit stack.
#include "smt2/reader_impl.h"

namespace tvx {
namespace smt2 {

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
    Token const t = lex_->peek();
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

}  // namespace smt2
}  // namespace tvx
