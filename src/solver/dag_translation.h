// DagTranslation: the walk that turns a term DAG into an in-process engine's terms, arguments
// first, each term of the term layer translated once (memoised by term id). spell_nary: an
// application of many arguments spelled with an engine's constructor of two, by the operator's
// associativity.
#ifndef TVX_SOLVER_DAG_TRANSLATION_H
#define TVX_SOLVER_DAG_TRANSLATION_H

#include <cassert>
#include <cstddef>
#include <type_traits>
#include <utility>
#include <vector>

#include <tvx/core/term.h>

#include "core/operator_table.h"

namespace tvx {

// Handle is the engine's term: a pointer (z3's Z3_ast) or a value with isNull() (cvc5::Term);
// null marks a term not translated yet. Every translated term's arguments are translated.
template <class Handle>
class DagTranslation {
 public:
  // The engine's term of root. build(t, args) makes the engine's term of t from the engine's
  // terms of its arguments, in order; it is called once per term of the DAG not translated
  // before, arguments first.
  template <class Build>
  Handle translate(Term const* root, Build&& build) {
    std::size_t const root_id = static_cast<std::size_t>(root->get_id());
    if (root_id < terms_.size() && !is_null(terms_[root_id])) {
      return terms_[root_id];
    }
    if (terms_.size() <= root_id) {
      terms_.resize(root_id + 1);  // no argument has a larger id
    }
    frames_.clear();
    frames_.push_back(Frame{root, 0});
    while (!frames_.empty()) {
      Frame& f = frames_.back();
      Term const* t = f.term;
      if (f.next_arg < t->get_arity()) {
        Term const* arg = t->get_arg(f.next_arg++);
        if (is_null(terms_[arg->get_id()])) {
          frames_.push_back(Frame{arg, 0});
        }
        continue;
      }
      if (is_null(terms_[t->get_id()])) {
        args_.clear();
        for (std::size_t i = 0; i < t->get_arity(); ++i) {
          args_.push_back(terms_[t->get_arg(i)->get_id()]);
        }
        Handle built = build(t, static_cast<std::vector<Handle> const&>(args_));
        assert(!is_null(built) && "an engine's build makes a term for every term it is given");
        terms_[t->get_id()] = std::move(built);
      }
      frames_.pop_back();
    }
    return terms_[root_id];
  }

 private:
  static bool is_null(Handle const& h) {
    if constexpr (std::is_pointer_v<Handle>) {
      return h == nullptr;
    } else {
      return h.isNull();
    }
  }

  struct Frame {
    Term const* term;
    std::size_t next_arg;
  };
  std::vector<Handle> terms_;  // by term id
  // Scratch of translate, reused from call to call.
  std::vector<Frame> frames_;
  std::vector<Handle> args_;
};

// The application of an operator to the n >= 2 arguments a[0..n), spelled with an engine's
// constructor of two arguments as SMT-LIB defines the operator (`assoc` of its row): folded
// from the left or the right, or the conjunction of each neighbouring pair (chainable) or of
// every pair (pairwise). pair(x, y) makes the binary application; all(links) the conjunction
// of the terms in links, which is scratch (chainable and pairwise operators of three or more
// arguments only).
template <class Handle, class Pair, class All>
Handle spell_nary(optable::Assoc assoc, Handle const* a, std::size_t n, Pair&& pair, All&& all,
                  std::vector<Handle>& links) {
  assert(n >= 2 && "an application spelled by pairs has two arguments or more");
  assert((assoc != optable::Assoc::None || n == 2) &&
         "an operator of fixed arity has the arity of its constructor");
  if (n == 2) {
    return pair(a[0], a[1]);
  }
  switch (assoc) {
    case optable::Assoc::None:
    case optable::Assoc::Left: {
      Handle r = a[0];
      for (std::size_t i = 1; i < n; ++i) {
        r = pair(r, a[i]);
      }
      return r;
    }
    case optable::Assoc::Right: {
      Handle r = a[n - 1];
      for (std::size_t i = n - 1; i-- > 0;) {
        r = pair(a[i], r);
      }
      return r;
    }
    case optable::Assoc::Chainable:
      links.clear();
      for (std::size_t i = 0; i + 1 < n; ++i) {
        links.push_back(pair(a[i], a[i + 1]));
      }
      return all(links);
    case optable::Assoc::Pairwise:
      links.clear();
      for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = i + 1; j < n; ++j) {
          links.push_back(pair(a[i], a[j]));
        }
      }
      return all(links);
  }
  return a[0];  // not reached: every Assoc is handled above
}

}  // namespace tvx

#endif  // TVX_SOLVER_DAG_TRANSLATION_H
