// Term: an application of a symbol to arguments, held inline after the header so that a term
// is one block. Invariant: a term's id is greater than the ids of its arguments.
#ifndef TVX_CORE_TERM_H
#define TVX_CORE_TERM_H

#include <cstddef>
#include <cstdint>

#include <tvx/core/symbol.h>
#include <tvx/support/hashtable.h>

namespace tvx {

class alignas(8) Term {
 public:
  std::uint64_t get_id() const { return id_; }
  Symbol const* get_symbol() const { return symbol_; }
  std::size_t get_arity() const { return static_cast<std::size_t>(symbol_->get_arity()); }
  Term const* get_arg(std::size_t i) const { return args()[i]; }
  Term const* const* args() const { return reinterpret_cast<Term const* const*>(this + 1); }
  DataType const* get_type() const { return symbol_->get_output_type(); }

  Term(Term const&) = delete;
  Term& operator=(Term const&) = delete;

 private:
  friend class TermManager;
  Term(std::uint64_t id, Symbol const* symbol) : id_(id), symbol_(symbol) {}
  Term const** mutable_args() { return reinterpret_cast<Term const**>(this + 1); }

  std::uint64_t id_;
  Symbol const* symbol_;
  // followed by get_arity() pointers to the arguments
};

static_assert(sizeof(Term) == 16, "a term header is its id and its symbol");

// An assumption literal: a term and a negation flag packed into one word, the flag in the
// lowest bit (terms are at least 8-byte aligned).
class TheoryLit {
 public:
  TheoryLit(Term const* t, bool negated)
      : word_(reinterpret_cast<std::uintptr_t>(t) | (negated ? 1u : 0u)) {}
  Term const* get_term() const {
    return reinterpret_cast<Term const*>(word_ & ~static_cast<std::uintptr_t>(1));
  }
  bool is_negated() const { return (word_ & 1u) != 0; }

 private:
  std::uintptr_t word_;
};

namespace hsh {
template <>
struct hash<Term const*> {
  std::uint64_t operator()(Term const* t) const { return t->get_id(); }
};
}  // namespace hsh

}  // namespace tvx

#endif  // TVX_CORE_TERM_H
