// Arithmetic arguments of mixed sorts, as scripts and solvers write Int and Real together, and
// numerals written (- n) and (/ a b). Invariant: only the Int arguments of an operator whose
// row mixes arithmetic change, into Real terms of the same value.
#ifndef TVX_CORE_ARITH_ARGS_H
#define TVX_CORE_ARITH_ARGS_H

#include <cstddef>
#include <string>

#include <tvx/core/term_manager.h>

#include "core/operator_table.h"

namespace tvx {

// `t` as a Real: an Int numeral becomes the Real numeral of its value, any other Int term
// (to_real t); a term of another sort is returned as it is.
Term const* as_real(TermManager& mgr, Term const* t);

// Divides the decimals num and den (den not 0) by their greatest common divisor, so that equal
// rationals have one text.
void reduce_rational(std::string& num, std::string& den);

// Prepares the `n` arguments of an application of the operator named `op`. When the operator's
// row mixes arithmetic, and its arguments (for ite, its two branches) hold both Int and Real
// ones, or Int ones under "/", every Int argument becomes Real (as_real). Then the numeral the
// application stands for, if it is one: (- n) of a numeral n other than 0 that is not negative
// already, and (/ a b) of two whole numerals with b not 0, as a Real. Null otherwise: the
// caller makes the application of the prepared arguments.
Term const* mix_arith_args(TermManager& mgr, std::string const& op, Term const** args,
                           std::size_t n);
// The same for the operator of a tag (unary minus, NEG, folds as (- n) does).
Term const* mix_arith_args(TermManager& mgr, SymbolTag::tag tag, Term const** args, std::size_t n);
// The same for the operator's row of the operator table (null: an operator without one).
Term const* mix_arith_args(TermManager& mgr, optable::OpInfo const* row, Term const** args,
                           std::size_t n);

}  // namespace tvx

#endif  // TVX_CORE_ARITH_ARGS_H
