// The sort parser: sort names (built in, declared, defined) and the sorts (_ BitVec N) and
// (Array S T) and sort-macro applications, whose nesting is kept on explicit stacks.
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
  if (forward_sort_ != nullptr && !is_builtin_sort_name(name) && name != "BitVec") {
    return (*forward_sort_)(t);
  }
  if (name == "Array" || name == "BitVec") {
    error_at(t, "the sort '" + name + "' needs arguments");
  }
  error_at(t, "unknown sort '" + name + "'");
}

DataType const* ScriptReader::Impl::parse_sort() {
  return eval_sort(parse_sort_code(nullptr));
}

// A sort name: a parameter of the sort macro being defined, or a sort in scope.
ScriptReader::Impl::SortNode ScriptReader::Impl::sort_leaf(Token const& t,
                                                           std::vector<std::string> const* params) {
  SortNode n{SortNode::Kind::kSort, nullptr, 0, nullptr, t.line, t.column};
  if (params != nullptr) {
    for (std::size_t i = params->size(); i-- > 0;) {
      if ((*params)[i] == t.text) {
        n.kind = SortNode::Kind::kParam;
        n.index = i;
        return n;
      }
    }
  }
  if (Entry const* e = find_entry(t.text); e != nullptr && e->sort_macro != nullptr) {
    error_at(t, "the sort '" + t.text + "' takes " + std::to_string(e->sort_macro->arity) +
                    " argument(s)");
  }
  n.sort = resolve_sort(t);
  if (n.sort->get_num_params() > 0) {
    error_at(t, "the sort '" + t.text + "' takes " + std::to_string(n.sort->get_num_params()) +
                    " argument(s)");
  }
  return n;
}

// sort ::= SYMBOL | (_ BitVec N) | (Array sort sort) | (MACRO sort+), in postfix order; the
// applications still open wait on an explicit stack for their arguments.
std::vector<ScriptReader::Impl::SortNode> ScriptReader::Impl::parse_sort_code(
    std::vector<std::string> const* params) {
  struct Pending {
    SortNode op;            // the array or macro application, with its head's position
    std::size_t remaining;  // the arguments still to parse
  };
  std::vector<Pending> stack;
  std::vector<SortNode> code;
  for (;;) {
    Token const t = lex_->peek();
    if (t.kind == TokenKind::kSymbol) {
      code.push_back(sort_leaf(t, params));
      lex_->next();
    } else if (t.kind == TokenKind::kLParen) {
      lex_->next();
      Token const head = lex_->peek();
      if (head.kind != TokenKind::kSymbol) {
        expected("a sort");
      }
      lex_->next();
      SortNode op{SortNode::Kind::kArray, nullptr, 0, nullptr, head.line, head.column};
      Entry const* e = find_entry(head.text);
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
          code.push_back(SortNode{SortNode::Kind::kSort, mgr_.get_bv_type(width), 0, nullptr,
                                  head.line, head.column});
        } catch (Error const& err) {
          error_at(width_tok, err.what());
        }
      } else if (eq(head.text, "Array")) {
        stack.push_back(Pending{op, 2});
        continue;
      } else if (e != nullptr && e->sort_macro != nullptr) {
        op.kind = SortNode::Kind::kMacro;
        op.macro = e->sort_macro;
        stack.push_back(Pending{op, e->sort_macro->arity});
        continue;
      } else if (is_unsupported_sort(head.text)) {
        error_at(head, "the sort '" + head.text + "' is not supported");
      } else if (e != nullptr && e->sort != nullptr && e->sort->get_num_params() > 0) {
        op.kind = SortNode::Kind::kInstance;
        op.sort = e->sort;
        op.index = e->sort->get_num_params();
        stack.push_back(Pending{op, op.index});
        continue;
      } else if ((e != nullptr && e->sort != nullptr) || eq(head.text, "Bool") ||
                 eq(head.text, "Int") || eq(head.text, "Real")) {
        error_at(head,
                 "parametric sorts are not supported ('" + head.text + "' takes no arguments)");
      } else {
        error_at(head, "unknown sort '" + head.text + "'");
      }
    } else if (t.kind == TokenKind::kRParen && !stack.empty() &&
               stack.back().op.kind == SortNode::Kind::kMacro) {
      SortMacro const& m = *stack.back().op.macro;
      error_at(t, "the sort '" + m.name + "' takes " + std::to_string(m.arity) + " argument(s)");
    } else if (t.kind == TokenKind::kRParen && !stack.empty() &&
               stack.back().op.kind == SortNode::Kind::kInstance) {
      DataType const* g = stack.back().op.sort;
      error_at(t, "the sort '" + g->get_name() + "' takes " + std::to_string(g->get_num_params()) +
                      " argument(s)");
    } else {
      expected("a sort");
    }
    // A sort is complete: count it for the application waiting for it.
    while (!stack.empty() && --stack.back().remaining == 0) {
      expect_rparen(stack.back().op.kind == SortNode::Kind::kArray
                        ? " after the array's element sort"
                        : " after the sort's arguments");
      code.push_back(stack.back().op);
      stack.pop_back();
    }
    if (stack.empty()) {
      return code;
    }
  }
}

DataType const* ScriptReader::Impl::eval_sort(std::vector<SortNode> const& code) {
  using Key = std::pair<SortMacro const*, std::vector<DataType const*>>;
  struct Frame {
    std::vector<SortNode> const* code;
    std::size_t pc;
    Key key;  // the macro and arguments this frame expands (none for the outermost)
  };
  std::vector<DataType const*> values;
  std::vector<Frame> frames{Frame{&code, 0, Key{}}};
  SortNode const* at = nullptr;  // the outermost code's node being evaluated, for errors
  for (;;) {
    Frame& f = frames.back();
    if (f.pc == f.code->size()) {
      if (frames.size() == 1) {
        return values.back();
      }
      sort_instances_.emplace(std::move(f.key), values.back());
      frames.pop_back();
      continue;
    }
    SortNode const& n = (*f.code)[f.pc++];
    if (frames.size() == 1) {
      at = &n;
    }
    switch (n.kind) {
      case SortNode::Kind::kSort:
        values.push_back(n.sort);
        break;
      case SortNode::Kind::kParam:
        values.push_back(f.key.second[n.index]);
        break;
      case SortNode::Kind::kArray: {
        DataType const* element = values.back();
        values.pop_back();
        try {
          values.back() = mgr_.get_array_type(values.back(), element);
        } catch (Error const& e) {
          error_at(at->line, at->column, e.what());
        }
        break;
      }
      case SortNode::Kind::kInstance: {
        std::vector<DataType const*> args(values.end() - static_cast<std::ptrdiff_t>(n.index),
                                          values.end());
        values.resize(values.size() - n.index);
        try {
          values.push_back(mgr_.get_instance(n.sort, args));
        } catch (Error const& e) {
          error_at(at->line, at->column, e.what());
        }
        break;
      }
      case SortNode::Kind::kMacro: {
        Key key{n.macro, std::vector<DataType const*>(values.end() - n.macro->arity, values.end())};
        values.resize(values.size() - n.macro->arity);
        if (auto it = sort_instances_.find(key); it != sort_instances_.end()) {
          values.push_back(it->second);
        } else {
          frames.push_back(Frame{&n.macro->body, 0, std::move(key)});
        }
        break;
      }
    }
  }
}

}  // namespace smt2
}  // namespace tvx
