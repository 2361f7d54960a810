// Int and Real arguments made one sort, and numerals folded; see arith_args.h.
#include "core/arith_args.h"

#include <cassert>

#include <tvx/support/str.h>

#include "core/operator_table.h"

namespace tvx {

namespace {

bool is_numeral(Term const* t) {
  return t->get_symbol()->get_tag() == SymbolTag::NUMERAL;
}

// (- n) for a numeral n written without a sign: the numeral -n. Zero keeps its application,
// as a script wrote it.
Term const* fold_negation(TermManager& mgr, Term const* arg) {
  if (!is_numeral(arg)) {
    return nullptr;
  }
  std::string const& v = arg->get_symbol()->get_name();
  if (v.empty() || v[0] == '-' || v == "0") {
    return nullptr;
  }
  return mgr.make_number("-" + v, arg->get_type());
}

// (/ a b) for whole numerals a and b, b positive: the rational numeral a/b. A negative a is
// (/ (- 3) 2), the form of a negative rational that every solver takes as a value.
Term const* fold_division(TermManager& mgr, Term const* a, Term const* b) {
  if (!is_numeral(a) || !is_numeral(b)) {
    return nullptr;
  }
  std::string const& n = a->get_symbol()->get_name();
  std::string const& d = b->get_symbol()->get_name();
  bool const negative = !n.empty() && n[0] == '-';
  if (!str::all_digits(n, negative ? 1 : 0) || !str::all_digits(d) ||
      d.find_first_not_of('0') == std::string::npos) {
    return nullptr;
  }
  return mgr.make_number(n + "/" + d, mgr.get_rational_type());
}

}  // namespace

Term const* as_real(TermManager& mgr, Term const* t) {
  if (!t->get_type()->is_int()) {
    return t;
  }
  if (is_numeral(t)) {
    return mgr.make_number(t->get_symbol()->get_name(), mgr.get_rational_type());
  }
  Term const* args[1] = {t};
  return mgr.make_builtin(SymbolTag::TO_REAL, args, 1);
}

Term const* mix_arith_args(TermManager& mgr, std::string const& op, Term const** args,
                           std::size_t n) {
  return mix_arith_args(mgr, optable::find_op(op), args, n);
}

Term const* mix_arith_args(TermManager& mgr, SymbolTag::tag tag, Term const** args, std::size_t n) {
  return mix_arith_args(mgr, optable::op_of_tag(tag), args, n);
}

Term const* mix_arith_args(TermManager& mgr, optable::OpInfo const* row, Term const** args,
                           std::size_t n) {
  if (row == nullptr || !optable::mixes_arith(*row)) {
    return nullptr;
  }
  assert((n == 0 || args != nullptr) && "arguments to mix");
  // An ite's condition is Bool; only its branches take part.
  std::size_t const first = row->tag == SymbolTag::ITE ? 1 : 0;
  bool const division = row->tag == SymbolTag::DIV;
  bool has_int = false;
  bool has_real = false;
  for (std::size_t i = first; i < n; ++i) {
    has_int = has_int || args[i]->get_type()->is_int();
    has_real = has_real || args[i]->get_type()->is_real();
  }
  if (has_int && (has_real || division)) {
    for (std::size_t i = first; i < n; ++i) {
      args[i] = as_real(mgr, args[i]);
    }
  }
  if ((row->tag == SymbolTag::SUB || row->tag == SymbolTag::NEG) && n == 1) {
    return fold_negation(mgr, args[0]);
  }
  if (division && n == 2) {
    return fold_division(mgr, args[0], args[1]);
  }
  return nullptr;
}

}  // namespace tvx
