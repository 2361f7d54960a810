// The process engine's interpolants: a helper solver started with interpolation, in which A is
// asserted and the interpolant of A and not B is asked, and its answer read back as a formula
// over the session's symbols. See process_engine.h.
#include <cassert>
#include <cstddef>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <tvx/core/error.h>
#include <tvx/support/str.h>

#include "core/arith_args.h"
#include "core/operator_table.h"
#include "solver/process_engine.h"

namespace tvx {

Term const* ProcessEngine::interpolant(std::vector<Term const*> const& a,
                                       std::vector<Term const*> const& b) {
  if (solver_ != "cvc5") {
    throw Unsupported("the engine of solver '" + name_ +
                      "' cannot compute interpolants; the cvc5 engine, and cvc5 over a pipe, can");
  }
  // The environment answers when a side is empty, and checks the symbols of the answer.
  assert(!a.empty() && !b.empty());
  // A solver of its own, in which A is asserted: an interpolant I of A and not B has A imply I
  // and I imply not B, so I and B are unsatisfiable together.
  Configuration config = config_;
  config.model_generation = false;
  config.unsat_core_generation = false;
  ProcessEngine helper(mgr_, config, name_, true);
  for (Term const* f : a) {
    helper.assert_formula(f, false);
  }
  Term const* conjunction = b.size() == 1 ? b[0] : mgr_.make_builtin(SymbolTag::AND, b);
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
  if (a == optable::name_of(SymbolTag::TRUE) || a == optable::name_of(SymbolTag::FALSE)) {
    return a == optable::name_of(SymbolTag::TRUE) ? mgr_.make_true() : mgr_.make_false();
  }
  auto it = by_name_.find(a);
  if (it != by_name_.end() && it->second->get_arity() == 0) {
    return mgr_.make_constant(it->second);
  }
  if (str::all_digits(a)) {
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
// own arithmetic mixes them (see arith_args.h).
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
      if (!str::all_digits(index) || index.size() > 18) {
        unreadable(e, node, "a term", command);
      }
      indices.push_back(std::stoull(index));
    }
  } else {
    op = e.node(head).atom;
  }
  try {
    auto it = by_name_.find(op);
    if (it != by_name_.end() && indices.empty()) {
      Symbol const* s = it->second;
      for (std::size_t i = 0; i < args.size() && i < s->get_arity(); ++i) {
        if (s->get_type()->get_component(i)->is_real()) {
          args[i] = as_real(mgr_, args[i]);
        }
      }
      return mgr_.make_term(s, args);
    }
    if (Term const* numeral = mix_arith_args(mgr_, op, args.data(), args.size())) {
      return numeral;
    }
    return mgr_.make_builtin(op, args, indices);
  } catch (Error const&) {
    unreadable(e, node, "a well-sorted term", command);
  }
}

// (_ bvN W), or null.
Term const* ProcessEngine::bv_literal(Sexpr const& e, std::size_t node) {
  Sexpr::Node const& x = e.node(node);
  if (!x.list || x.kids.size() != 3 || !e.is_atom(x.kids[0], "_") ||
      e.node(x.kids[1]).atom.compare(0, 2, "bv") != 0 ||
      !str::all_digits(e.node(x.kids[1]).atom.substr(2)) ||
      !str::all_digits(e.node(x.kids[2]).atom)) {
    return nullptr;
  }
  return mgr_.make_number(e.node(x.kids[1]).atom.substr(2),
                          mgr_.get_bv_type(std::stoull(e.node(x.kids[2]).atom)));
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
  std::unordered_set<std::size_t> open;  // let-bound expressions being read
  std::vector<Term const*> args;
  auto done = [&]() {
    open.erase(frames.back().node);
    frames.pop_back();
  };
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
      done();
      continue;
    }
    auto known = memo.find(n);
    if (known != memo.end()) {
      out.push_back(known->second);
      done();
      continue;
    }
    if (!x.list) {
      auto bound = lets_.find(x.atom);
      if (bound != lets_.end()) {
        // The expression the name stands for, through names bound to names.
        std::size_t const target = resolve(e, n);
        if ((!e.node(target).list && lets_.count(e.node(target).atom) != 0) ||
            !open.insert(target).second) {
          unreadable(e, n, "a let whose names do not stand for themselves", command);
        }
        frames.back().node = target;
      } else {
        out.push_back(read_atom(e, n, command));
        done();
      }
      continue;
    }
    if (open_let(e, frames.back().node, command)) {
      continue;
    }
    if (Term const* literal = bv_literal(e, n)) {
      out.push_back(literal);
      done();
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

}  // namespace tvx
