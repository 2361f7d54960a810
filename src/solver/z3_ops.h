// The z3 engine's operator table: for each operator tag, the z3 C API function that makes its
// application and the kind of the application it makes, so that terms go into z3 by tag and
// z3's applications read back by kind. One row per tag of the operator table, in tag order.
#ifndef TVX_SOLVER_Z3_OPS_H
#define TVX_SOLVER_Z3_OPS_H

#include <z3.h>

#include <cstddef>
#include <cstdint>

#include <tvx/core/symbol.h>

#include "core/operator_table.h"

namespace tvx {
namespace z3ops {

// z3's C API has one function per operator, in a few shapes.
enum class Shape : std::uint8_t {
  Const,     // f(c)
  Unary,     // f(c, x)
  Binary,    // f(c, x, y); more arguments are spelled by pairs, by the operator's Assoc
  Ternary,   // f(c, x, y, z)
  Nary,      // f(c, n, xs)
  Indexed1,  // f(c, i, x)
  Indexed2,  // f(c, i, j, x)
  Special,   // no single function or kind: made by the engine beside the table
};

using MakeConst = Z3_ast (*)(Z3_context);
using MakeUnary = Z3_ast (*)(Z3_context, Z3_ast);
using MakeBinary = Z3_ast (*)(Z3_context, Z3_ast, Z3_ast);
using MakeTernary = Z3_ast (*)(Z3_context, Z3_ast, Z3_ast, Z3_ast);
using MakeNary = Z3_ast (*)(Z3_context, unsigned, Z3_ast const[]);
using MakeIndexed1 = Z3_ast (*)(Z3_context, unsigned, Z3_ast);
using MakeIndexed2 = Z3_ast (*)(Z3_context, unsigned, unsigned, Z3_ast);

// The function that makes an operator's applications, and its shape; one constructor per
// shape, so that a row's shape is chosen by its function's type.
struct Maker {
  Shape shape;
  union {
    MakeConst constant;
    MakeUnary unary;
    MakeBinary binary;
    MakeTernary ternary;
    MakeNary nary;
    MakeIndexed1 indexed1;
    MakeIndexed2 indexed2;
  };
  constexpr Maker() : shape(Shape::Special), constant(nullptr) {}
  constexpr Maker(MakeConst f) : shape(Shape::Const), constant(f) {}
  constexpr Maker(MakeUnary f) : shape(Shape::Unary), unary(f) {}
  constexpr Maker(MakeBinary f) : shape(Shape::Binary), binary(f) {}
  constexpr Maker(MakeTernary f) : shape(Shape::Ternary), ternary(f) {}
  constexpr Maker(MakeNary f) : shape(Shape::Nary), nary(f) {}
  constexpr Maker(MakeIndexed1 f) : shape(Shape::Indexed1), indexed1(f) {}
  constexpr Maker(MakeIndexed2 f) : shape(Shape::Indexed2), indexed2(f) {}
};

struct Z3Op {
  SymbolTag::tag tag;
  Z3_decl_kind kind;  // of the application made; Z3_OP_UNINTERPRETED for Special rows
  Maker make;
};

constexpr Z3Op row(SymbolTag::tag tag, Z3_decl_kind kind, Maker make) {
  return Z3Op{tag, kind, make};
}
// z3 4.8 has no function for abs and bvcomp (the engine spells them with ite), and bv2nat is
// its bv2int with a flag.
constexpr Z3Op special(SymbolTag::tag tag) {
  return Z3Op{tag, Z3_OP_UNINTERPRETED, Maker()};
}

using Tag = SymbolTag;
constexpr Z3Op kOps[] = {
    row(Tag::TRUE, Z3_OP_TRUE, Z3_mk_true),
    row(Tag::FALSE, Z3_OP_FALSE, Z3_mk_false),
    row(Tag::NOT, Z3_OP_NOT, Z3_mk_not),
    row(Tag::AND, Z3_OP_AND, Z3_mk_and),
    row(Tag::OR, Z3_OP_OR, Z3_mk_or),
    row(Tag::XOR, Z3_OP_XOR, Z3_mk_xor),
    row(Tag::IMPLIES, Z3_OP_IMPLIES, Z3_mk_implies),
    row(Tag::EQUAL, Z3_OP_EQ, Z3_mk_eq),
    row(Tag::DISTINCT, Z3_OP_DISTINCT, Z3_mk_distinct),
    row(Tag::ITE, Z3_OP_ITE, Z3_mk_ite),
    row(Tag::ADD, Z3_OP_ADD, Z3_mk_add),
    row(Tag::SUB, Z3_OP_SUB, Z3_mk_sub),
    row(Tag::NEG, Z3_OP_UMINUS, Z3_mk_unary_minus),
    row(Tag::MUL, Z3_OP_MUL, Z3_mk_mul),
    row(Tag::DIV, Z3_OP_DIV, Z3_mk_div),
    row(Tag::IDIV, Z3_OP_IDIV, Z3_mk_div),
    row(Tag::MOD, Z3_OP_MOD, Z3_mk_mod),
    special(Tag::ABS),
    row(Tag::LT, Z3_OP_LT, Z3_mk_lt),
    row(Tag::LE, Z3_OP_LE, Z3_mk_le),
    row(Tag::GT, Z3_OP_GT, Z3_mk_gt),
    row(Tag::GE, Z3_OP_GE, Z3_mk_ge),
    row(Tag::TO_REAL, Z3_OP_TO_REAL, Z3_mk_int2real),
    row(Tag::TO_INT, Z3_OP_TO_INT, Z3_mk_real2int),
    row(Tag::IS_INT, Z3_OP_IS_INT, Z3_mk_is_int),
    row(Tag::CONCAT, Z3_OP_CONCAT, Z3_mk_concat),
    row(Tag::EXTRACT, Z3_OP_EXTRACT, Z3_mk_extract),
    row(Tag::REPEAT, Z3_OP_REPEAT, Z3_mk_repeat),
    row(Tag::ZERO_EXTEND, Z3_OP_ZERO_EXT, Z3_mk_zero_ext),
    row(Tag::SIGN_EXTEND, Z3_OP_SIGN_EXT, Z3_mk_sign_ext),
    row(Tag::ROTATE_LEFT, Z3_OP_ROTATE_LEFT, Z3_mk_rotate_left),
    row(Tag::ROTATE_RIGHT, Z3_OP_ROTATE_RIGHT, Z3_mk_rotate_right),
    row(Tag::BVNOT, Z3_OP_BNOT, Z3_mk_bvnot),
    row(Tag::BVNEG, Z3_OP_BNEG, Z3_mk_bvneg),
    row(Tag::BVAND, Z3_OP_BAND, Z3_mk_bvand),
    row(Tag::BVOR, Z3_OP_BOR, Z3_mk_bvor),
    row(Tag::BVXOR, Z3_OP_BXOR, Z3_mk_bvxor),
    row(Tag::BVNAND, Z3_OP_BNAND, Z3_mk_bvnand),
    row(Tag::BVNOR, Z3_OP_BNOR, Z3_mk_bvnor),
    row(Tag::BVXNOR, Z3_OP_BXNOR, Z3_mk_bvxnor),
    special(Tag::BVCOMP),
    row(Tag::BVADD, Z3_OP_BADD, Z3_mk_bvadd),
    row(Tag::BVSUB, Z3_OP_BSUB, Z3_mk_bvsub),
    row(Tag::BVMUL, Z3_OP_BMUL, Z3_mk_bvmul),
    row(Tag::BVUDIV, Z3_OP_BUDIV, Z3_mk_bvudiv),
    row(Tag::BVUREM, Z3_OP_BUREM, Z3_mk_bvurem),
    row(Tag::BVSDIV, Z3_OP_BSDIV, Z3_mk_bvsdiv),
    row(Tag::BVSREM, Z3_OP_BSREM, Z3_mk_bvsrem),
    row(Tag::BVSMOD, Z3_OP_BSMOD, Z3_mk_bvsmod),
    row(Tag::BVSHL, Z3_OP_BSHL, Z3_mk_bvshl),
    row(Tag::BVLSHR, Z3_OP_BLSHR, Z3_mk_bvlshr),
    row(Tag::BVASHR, Z3_OP_BASHR, Z3_mk_bvashr),
    row(Tag::BVULT, Z3_OP_ULT, Z3_mk_bvult),
    row(Tag::BVULE, Z3_OP_ULEQ, Z3_mk_bvule),
    row(Tag::BVUGT, Z3_OP_UGT, Z3_mk_bvugt),
    row(Tag::BVUGE, Z3_OP_UGEQ, Z3_mk_bvuge),
    row(Tag::BVSLT, Z3_OP_SLT, Z3_mk_bvslt),
    row(Tag::BVSLE, Z3_OP_SLEQ, Z3_mk_bvsle),
    row(Tag::BVSGT, Z3_OP_SGT, Z3_mk_bvsgt),
    row(Tag::BVSGE, Z3_OP_SGEQ, Z3_mk_bvsge),
    special(Tag::BV2NAT),  // Z3_mk_bv2int takes a signedness flag
    row(Tag::INT2BV, Z3_OP_INT2BV, Z3_mk_int2bv),
    row(Tag::SELECT, Z3_OP_SELECT, Z3_mk_select),
    row(Tag::STORE, Z3_OP_STORE, Z3_mk_store),
};

constexpr std::size_t kNumOps = sizeof(kOps) / sizeof(kOps[0]);

// One row per row of the operator table, in its order, and no kind made by two rows, so that
// a kind reads back as one tag.
constexpr bool covers_operator_table() {
  if (kNumOps != optable::kNumOps) {
    return false;
  }
  for (std::size_t i = 0; i < kNumOps; ++i) {
    if (kOps[i].tag != optable::kOps[i].tag) {
      return false;
    }
    for (std::size_t j = 0; j < i; ++j) {
      if (kOps[i].make.shape != Shape::Special && kOps[i].kind == kOps[j].kind) {
        return false;
      }
    }
  }
  return true;
}
static_assert(covers_operator_table(),
              "the z3 operator table needs one row per operator tag, in tag order, with "
              "distinct kinds");

// The row of an operator tag; null for tags without one (UNINTERPRETED, NUMERAL, CONST_ARRAY).
constexpr Z3Op const* op_of_tag(SymbolTag::tag tag) {
  return tag >= SymbolTag::TRUE && tag < SymbolTag::TRUE + kNumOps ? &kOps[tag - SymbolTag::TRUE]
                                                                   : nullptr;
}

// The tag whose row makes applications of `kind`; UNINTERPRETED when no row does.
constexpr SymbolTag::tag tag_of_kind(Z3_decl_kind kind) {
  for (Z3Op const& op : kOps) {
    if (op.make.shape != Shape::Special && op.kind == kind) {
      return op.tag;
    }
  }
  return SymbolTag::UNINTERPRETED;
}

}  // namespace z3ops
}  // namespace tvx

#endif  // TVX_SOLVER_Z3_OPS_H
