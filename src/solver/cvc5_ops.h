// The cvc5 engine's operator table: for each operator tag, the cvc5 kind of its application,
// whether the kind is indexed and how many arguments cvc5's term of that kind takes. Terms go
// into cvc5 by tag, and cvc5's terms read back by kind, through the same rows. One row per
// tag of the operator table, in tag order.
#ifndef TVX_SOLVER_CVC5_OPS_H
#define TVX_SOLVER_CVC5_OPS_H

#include <cvc5/cvc5_kind.h>

#include <cstddef>
#include <cstdint>

#include <tvx/core/symbol.h>

#include "core/operator_table.h"

namespace tvx {
namespace cvc5ops {

// The arguments cvc5's term of a row's kind takes.
enum class Arity : std::uint8_t {
  None,   // a value made by the engine (true, false), not an application
  Given,  // the application's own arguments, as many as there are
  Two,    // two; more are spelled by pairs, by the operator's Assoc
};

struct Cvc5Op {
  SymbolTag::tag tag;
  cvc5::Kind kind;
  Arity arity;
  bool indexed;  // the kind makes an operator with the symbol's indices (cvc5::Op)
};

using Tag = SymbolTag;
using K = cvc5::Kind;
constexpr Arity kGiven = Arity::Given;
constexpr Arity kTwo = Arity::Two;
constexpr Cvc5Op kOps[] = {
    {Tag::TRUE, K::CONST_BOOLEAN, Arity::None, false},
    {Tag::FALSE, K::CONST_BOOLEAN, Arity::None, false},
    {Tag::NOT, K::NOT, kGiven, false},
    {Tag::AND, K::AND, kGiven, false},
    {Tag::OR, K::OR, kGiven, false},
    {Tag::XOR, K::XOR, kTwo, false},
    {Tag::IMPLIES, K::IMPLIES, kTwo, false},
    {Tag::EQUAL, K::EQUAL, kTwo, false},
    {Tag::DISTINCT, K::DISTINCT, kGiven, false},
    {Tag::ITE, K::ITE, kGiven, false},
    {Tag::ADD, K::ADD, kGiven, false},
    {Tag::SUB, K::SUB, kTwo, false},
    {Tag::NEG, K::NEG, kGiven, false},
    {Tag::MUL, K::MULT, kGiven, false},
    {Tag::DIV, K::DIVISION, kTwo, false},
    {Tag::IDIV, K::INTS_DIVISION, kTwo, false},
    {Tag::MOD, K::INTS_MODULUS, kGiven, false},
    {Tag::ABS, K::ABS, kGiven, false},
    {Tag::LT, K::LT, kTwo, false},
    {Tag::LE, K::LEQ, kTwo, false},
    {Tag::GT, K::GT, kTwo, false},
    {Tag::GE, K::GEQ, kTwo, false},
    {Tag::TO_REAL, K::TO_REAL, kGiven, false},
    {Tag::TO_INT, K::TO_INTEGER, kGiven, false},
    {Tag::IS_INT, K::IS_INTEGER, kGiven, false},
    {Tag::CONCAT, K::BITVECTOR_CONCAT, kTwo, false},
    {Tag::EXTRACT, K::BITVECTOR_EXTRACT, kGiven, true},
    {Tag::REPEAT, K::BITVECTOR_REPEAT, kGiven, true},
    {Tag::ZERO_EXTEND, K::BITVECTOR_ZERO_EXTEND, kGiven, true},
    {Tag::SIGN_EXTEND, K::BITVECTOR_SIGN_EXTEND, kGiven, true},
    {Tag::ROTATE_LEFT, K::BITVECTOR_ROTATE_LEFT, kGiven, true},
    {Tag::ROTATE_RIGHT, K::BITVECTOR_ROTATE_RIGHT, kGiven, true},
    {Tag::BVNOT, K::BITVECTOR_NOT, kGiven, false},
    {Tag::BVNEG, K::BITVECTOR_NEG, kGiven, false},
    {Tag::BVAND, K::BITVECTOR_AND, kTwo, false},
    {Tag::BVOR, K::BITVECTOR_OR, kTwo, false},
    {Tag::BVXOR, K::BITVECTOR_XOR, kTwo, false},
    {Tag::BVNAND, K::BITVECTOR_NAND, kGiven, false},
    {Tag::BVNOR, K::BITVECTOR_NOR, kGiven, false},
    {Tag::BVXNOR, K::BITVECTOR_XNOR, kGiven, false},
    {Tag::BVCOMP, K::BITVECTOR_COMP, kGiven, false},
    {Tag::BVADD, K::BITVECTOR_ADD, kTwo, false},
    {Tag::BVSUB, K::BITVECTOR_SUB, kTwo, false},
    {Tag::BVMUL, K::BITVECTOR_MULT, kTwo, false},
    {Tag::BVUDIV, K::BITVECTOR_UDIV, kGiven, false},
    {Tag::BVUREM, K::BITVECTOR_UREM, kGiven, false},
    {Tag::BVSDIV, K::BITVECTOR_SDIV, kGiven, false},
    {Tag::BVSREM, K::BITVECTOR_SREM, kGiven, false},
    {Tag::BVSMOD, K::BITVECTOR_SMOD, kGiven, false},
    {Tag::BVSHL, K::BITVECTOR_SHL, kGiven, false},
    {Tag::BVLSHR, K::BITVECTOR_LSHR, kGiven, false},
    {Tag::BVASHR, K::BITVECTOR_ASHR, kGiven, false},
    {Tag::BVULT, K::BITVECTOR_ULT, kGiven, false},
    {Tag::BVULE, K::BITVECTOR_ULE, kGiven, false},
    {Tag::BVUGT, K::BITVECTOR_UGT, kGiven, false},
    {Tag::BVUGE, K::BITVECTOR_UGE, kGiven, false},
    {Tag::BVSLT, K::BITVECTOR_SLT, kGiven, false},
    {Tag::BVSLE, K::BITVECTOR_SLE, kGiven, false},
    {Tag::BVSGT, K::BITVECTOR_SGT, kGiven, false},
    {Tag::BVSGE, K::BITVECTOR_SGE, kGiven, false},
    {Tag::BV2NAT, K::BITVECTOR_TO_NAT, kGiven, false},
    {Tag::INT2BV, K::INT_TO_BITVECTOR, kGiven, true},
    {Tag::SELECT, K::SELECT, kGiven, false},
    {Tag::STORE, K::STORE, kGiven, false},
};

constexpr std::size_t kNumOps = sizeof(kOps) / sizeof(kOps[0]);

// One row per row of the operator table, in its order; the operators of fixed arity are
// never spelled by pairs.
constexpr bool covers_operator_table() {
  if (kNumOps != optable::kNumOps) {
    return false;
  }
  for (std::size_t i = 0; i < kNumOps; ++i) {
    if (kOps[i].tag != optable::kOps[i].tag ||
        (kOps[i].arity == Arity::Two && optable::kOps[i].assoc == optable::Assoc::None)) {
      return false;
    }
  }
  return true;
}
static_assert(covers_operator_table(),
              "the cvc5 operator table needs one row per operator tag, in tag order");

// The row of an operator tag; null for tags without one (UNINTERPRETED, NUMERAL, CONST_ARRAY).
constexpr Cvc5Op const* op_of_tag(SymbolTag::tag tag) {
  return tag >= SymbolTag::TRUE && tag < SymbolTag::TRUE + kNumOps ? &kOps[tag - SymbolTag::TRUE]
                                                                   : nullptr;
}

// The reverse of the table: the tag of each kind that an application of the term layer has,
// built at compile time. Values (CONST_BOOLEAN) are read as values, not through it.
struct KindIndex {
  SymbolTag::tag tag_of[K::LAST_KIND] = {};  // UNINTERPRETED (0): no row
  bool distinct_kinds = true;                // no kind is made by two rows
  constexpr KindIndex() {
    for (Cvc5Op const& op : kOps) {
      if (op.arity == Arity::None) {
        continue;
      }
      if (tag_of[op.kind] != SymbolTag::UNINTERPRETED) {
        distinct_kinds = false;
      }
      tag_of[op.kind] = op.tag;
    }
  }
};
static_assert(SymbolTag::UNINTERPRETED == 0, "an empty slot of the kind index reads as no tag");
constexpr KindIndex kKindIndex;
static_assert(kKindIndex.distinct_kinds, "a cvc5 kind reads back as one tag");

// The tag whose row makes applications of `kind`; UNINTERPRETED when no row does.
constexpr SymbolTag::tag tag_of_kind(cvc5::Kind kind) {
  return kind >= 0 && kind < K::LAST_KIND ? kKindIndex.tag_of[kind] : SymbolTag::UNINTERPRETED;
}

}  // namespace cvc5ops
}  // namespace tvx

#endif  // TVX_SOLVER_CVC5_OPS_H
