// The operator table: every built-in operator of the supported theories, one row per symbol
// tag, with its SMT-LIB name and its signature rule, the built-in sort names, and the names
// of theories the term layer does not model. The term
// manager makes and checks terms from it; the reader classifies names through the term
// manager's lookups into it. No other list of operator or sort names exists.
#ifndef TVX_CORE_OPERATOR_TABLE_H
#define TVX_CORE_OPERATOR_TABLE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <tvx/core/symbol.h>

namespace tvx {
namespace optable {

// How an operator is applied: how many arguments and which sorts it takes.
enum class Sig : std::uint8_t {
  Const,       // no arguments, Bool (true, false)
  BoolUnary,   // Bool -> Bool
  BoolNary,    // Bool^n -> Bool, n >= 2
  Chain,       // S^n -> Bool, n >= 2, any sort S (=, distinct)
  Ite,         // Bool S S -> S
  ArithNary,   // A^n -> A, n >= 2, A Int or Real
  Minus,       // A -> A (negation) or A^n -> A
  RealNary,    // Real^n -> Real, n >= 2
  IntNary,     // Int^n -> Int, n >= 2
  IntBinary,   // Int Int -> Int
  IntUnary,    // Int -> Int
  ArithChain,  // A^n -> Bool, n >= 2
  ToReal,      // Int -> Real
  ToInt,       // Real -> Int
  IsInt,       // Real -> Bool
  Concat,      // BV^n -> BV of the summed width, n >= 2
  Extract,     // indexed (i j): BV m -> BV (i - j + 1)
  Repeat,      // indexed (i): BV m -> BV (m * i)
  Extend,      // indexed (i): BV m -> BV (m + i)
  Rotate,      // indexed (i): BV m -> BV m
  BvUnary,     // BV m -> BV m
  BvNary,      // BV m ^n -> BV m, n >= 2
  BvBinary,    // BV m BV m -> BV m
  BvComp,      // BV m BV m -> BV 1
  BvPred,      // BV m BV m -> Bool
  BvToNat,     // BV m -> Int
  IntToBv,     // indexed (n): Int -> BV n
  Select,      // (Array I E) I -> E
  Store,       // (Array I E) I E -> (Array I E)
};

// How an application of more arguments than an engine's constructor takes is spelled with
// fewer, as SMT-LIB defines each operator: folded from the left ((a op b) op c) or from the
// right (a op (b op c)), as a conjunction of each neighbouring pair (chainable) or of every
// pair (pairwise). None: the operator takes a fixed number of arguments.
enum class Assoc : std::uint8_t { None, Left, Right, Chainable, Pairwise };

// Attribute bits of a row.
enum Attr : std::uint8_t {
  kNoAttr = 0,
  // Takes Int and Real arguments together, the Ints read as Reals (as solvers write them in
  // answers): +, -, *, /, the comparisons, =, distinct, and the branches of ite.
  kMixesArith = 1,
};

struct OpInfo {
  char const* name;
  SymbolTag::tag tag;
  Sig sig;
  Assoc assoc;
  std::uint8_t attrs;  // Attr bits
};

// Every operator of the supported theories: its name, tag and signature rule.
constexpr OpInfo kOps[] = {
    {"true", SymbolTag::TRUE, Sig::Const, Assoc::None, kNoAttr},
    {"false", SymbolTag::FALSE, Sig::Const, Assoc::None, kNoAttr},
    {"not", SymbolTag::NOT, Sig::BoolUnary, Assoc::None, kNoAttr},
    {"and", SymbolTag::AND, Sig::BoolNary, Assoc::Left, kNoAttr},
    {"or", SymbolTag::OR, Sig::BoolNary, Assoc::Left, kNoAttr},
    {"xor", SymbolTag::XOR, Sig::BoolNary, Assoc::Left, kNoAttr},
    {"=>", SymbolTag::IMPLIES, Sig::BoolNary, Assoc::Right, kNoAttr},
    {"=", SymbolTag::EQUAL, Sig::Chain, Assoc::Chainable, kMixesArith},
    {"distinct", SymbolTag::DISTINCT, Sig::Chain, Assoc::Pairwise, kMixesArith},
    {"ite", SymbolTag::ITE, Sig::Ite, Assoc::None, kMixesArith},
    {"+", SymbolTag::ADD, Sig::ArithNary, Assoc::Left, kMixesArith},
    {"-", SymbolTag::SUB, Sig::Minus, Assoc::Left, kMixesArith},
    // unary minus; found by name through SUB's row
    {"-", SymbolTag::NEG, Sig::Minus, Assoc::None, kMixesArith},
    {"*", SymbolTag::MUL, Sig::ArithNary, Assoc::Left, kMixesArith},
    {"/", SymbolTag::DIV, Sig::RealNary, Assoc::Left, kMixesArith},
    {"div", SymbolTag::IDIV, Sig::IntNary, Assoc::Left, kNoAttr},
    {"mod", SymbolTag::MOD, Sig::IntBinary, Assoc::None, kNoAttr},
    {"abs", SymbolTag::ABS, Sig::IntUnary, Assoc::None, kNoAttr},
    {"<", SymbolTag::LT, Sig::ArithChain, Assoc::Chainable, kMixesArith},
    {"<=", SymbolTag::LE, Sig::ArithChain, Assoc::Chainable, kMixesArith},
    {">", SymbolTag::GT, Sig::ArithChain, Assoc::Chainable, kMixesArith},
    {">=", SymbolTag::GE, Sig::ArithChain, Assoc::Chainable, kMixesArith},
    {"to_real", SymbolTag::TO_REAL, Sig::ToReal, Assoc::None, kNoAttr},
    {"to_int", SymbolTag::TO_INT, Sig::ToInt, Assoc::None, kNoAttr},
    {"is_int", SymbolTag::IS_INT, Sig::IsInt, Assoc::None, kNoAttr},
    {"concat", SymbolTag::CONCAT, Sig::Concat, Assoc::Left, kNoAttr},
    {"extract", SymbolTag::EXTRACT, Sig::Extract, Assoc::None, kNoAttr},
    {"repeat", SymbolTag::REPEAT, Sig::Repeat, Assoc::None, kNoAttr},
    {"zero_extend", SymbolTag::ZERO_EXTEND, Sig::Extend, Assoc::None, kNoAttr},
    {"sign_extend", SymbolTag::SIGN_EXTEND, Sig::Extend, Assoc::None, kNoAttr},
    {"rotate_left", SymbolTag::ROTATE_LEFT, Sig::Rotate, Assoc::None, kNoAttr},
    {"rotate_right", SymbolTag::ROTATE_RIGHT, Sig::Rotate, Assoc::None, kNoAttr},
    {"bvnot", SymbolTag::BVNOT, Sig::BvUnary, Assoc::None, kNoAttr},
    {"bvneg", SymbolTag::BVNEG, Sig::BvUnary, Assoc::None, kNoAttr},
    {"bvand", SymbolTag::BVAND, Sig::BvNary, Assoc::Left, kNoAttr},
    {"bvor", SymbolTag::BVOR, Sig::BvNary, Assoc::Left, kNoAttr},
    {"bvxor", SymbolTag::BVXOR, Sig::BvNary, Assoc::Left, kNoAttr},
    {"bvnand", SymbolTag::BVNAND, Sig::BvBinary, Assoc::None, kNoAttr},
    {"bvnor", SymbolTag::BVNOR, Sig::BvBinary, Assoc::None, kNoAttr},
    {"bvxnor", SymbolTag::BVXNOR, Sig::BvBinary, Assoc::None, kNoAttr},
    {"bvcomp", SymbolTag::BVCOMP, Sig::BvComp, Assoc::None, kNoAttr},
    {"bvadd", SymbolTag::BVADD, Sig::BvNary, Assoc::Left, kNoAttr},
    {"bvsub", SymbolTag::BVSUB, Sig::BvNary, Assoc::Left, kNoAttr},
    {"bvmul", SymbolTag::BVMUL, Sig::BvNary, Assoc::Left, kNoAttr},
    {"bvudiv", SymbolTag::BVUDIV, Sig::BvBinary, Assoc::None, kNoAttr},
    {"bvurem", SymbolTag::BVUREM, Sig::BvBinary, Assoc::None, kNoAttr},
    {"bvsdiv", SymbolTag::BVSDIV, Sig::BvBinary, Assoc::None, kNoAttr},
    {"bvsrem", SymbolTag::BVSREM, Sig::BvBinary, Assoc::None, kNoAttr},
    {"bvsmod", SymbolTag::BVSMOD, Sig::BvBinary, Assoc::None, kNoAttr},
    {"bvshl", SymbolTag::BVSHL, Sig::BvBinary, Assoc::None, kNoAttr},
    {"bvlshr", SymbolTag::BVLSHR, Sig::BvBinary, Assoc::None, kNoAttr},
    {"bvashr", SymbolTag::BVASHR, Sig::BvBinary, Assoc::None, kNoAttr},
    {"bvult", SymbolTag::BVULT, Sig::BvPred, Assoc::None, kNoAttr},
    {"bvule", SymbolTag::BVULE, Sig::BvPred, Assoc::None, kNoAttr},
    {"bvugt", SymbolTag::BVUGT, Sig::BvPred, Assoc::None, kNoAttr},
    {"bvuge", SymbolTag::BVUGE, Sig::BvPred, Assoc::None, kNoAttr},
    {"bvslt", SymbolTag::BVSLT, Sig::BvPred, Assoc::None, kNoAttr},
    {"bvsle", SymbolTag::BVSLE, Sig::BvPred, Assoc::None, kNoAttr},
    {"bvsgt", SymbolTag::BVSGT, Sig::BvPred, Assoc::None, kNoAttr},
    {"bvsge", SymbolTag::BVSGE, Sig::BvPred, Assoc::None, kNoAttr},
    {"bv2nat", SymbolTag::BV2NAT, Sig::BvToNat, Assoc::None, kNoAttr},
    {"int2bv", SymbolTag::INT2BV, Sig::IntToBv, Assoc::None, kNoAttr},
    {"select", SymbolTag::SELECT, Sig::Select, Assoc::None, kNoAttr},
    {"store", SymbolTag::STORE, Sig::Store, Assoc::None, kNoAttr},
};

constexpr std::size_t kNumOps = sizeof(kOps) / sizeof(kOps[0]);

// One-line queries on a row.
constexpr bool mixes_arith(OpInfo const& op) {
  return (op.attrs & kMixesArith) != 0;
}

// Rows are in tag order from TRUE on, one per tag, so a tag finds its row by subtraction.
// UNINTERPRETED, NUMERAL and CONST_ARRAY (made by make_const_array, since its sort cannot be
// told from its argument) have none.
constexpr bool rows_in_tag_order() {
  for (std::size_t row = 0; row < kNumOps; ++row) {
    if (kOps[row].tag != SymbolTag::TRUE + row) {
      return false;
    }
  }
  return kNumOps == SymbolTag::CONST_ARRAY - SymbolTag::TRUE;
}
static_assert(rows_in_tag_order(), "the operator table needs one row per tag, in tag order");

// The row of an operator tag; null for tags without one.
constexpr OpInfo const* op_of_tag(SymbolTag::tag tag) {
  return tag >= SymbolTag::TRUE && tag < SymbolTag::CONST_ARRAY ? &kOps[tag - SymbolTag::TRUE]
                                                                : nullptr;
}

// The SMT-LIB name of the operator of a tag that has a row.
constexpr char const* name_of(SymbolTag::tag tag) {
  return op_of_tag(tag)->name;
}

constexpr char const* kBuiltinSorts[] = {"Bool", "Int", "Real", "BitVec", "Array"};

// Every built-in application looks its operator up by name, so rows are found through an
// open-addressing index built at compile time, hashed on the name's length and first and last
// characters, rather than by comparing the name with each row.
constexpr std::size_t kOpSlots = 256;
static_assert(kNumOps * 4 <= kOpSlots, "the operator index must stay sparse");

constexpr std::size_t op_slot(char const* name, std::size_t size) {
  return (size * 131 + static_cast<unsigned char>(name[0]) * 31 +
          static_cast<unsigned char>(name[size - 1])) %
         kOpSlots;
}

struct OpIndex {
  std::uint8_t row_plus_one[kOpSlots] = {};  // 0: an empty slot
  constexpr OpIndex() {
    for (std::size_t row = 0; row < kNumOps; ++row) {
      if (kOps[row].tag == SymbolTag::NEG) {
        continue;  // "-" by name is SUB's row, which takes one argument too
      }
      char const* name = kOps[row].name;
      std::size_t size = 0;
      while (name[size] != '\0') {
        ++size;
      }
      std::size_t slot = op_slot(name, size);
      while (row_plus_one[slot] != 0) {
        slot = (slot + 1) % kOpSlots;
      }
      row_plus_one[slot] = static_cast<std::uint8_t>(row + 1);
    }
  }
};

constexpr OpIndex kOpIndex;

// Other names of operators: SMT-LIB 2.7's names of the conversions between integers and
// bit-vectors, which scripts may write and traces write by the rows' names.
struct OpAlias {
  char const* name;
  SymbolTag::tag tag;
};
constexpr OpAlias kOpAliases[] = {{"ubv_to_int", SymbolTag::BV2NAT},
                                  {"int_to_bv", SymbolTag::INT2BV}};

inline OpInfo const* find_op(std::string const& name) {
  if (name.empty()) {
    return nullptr;
  }
  for (std::size_t slot = op_slot(name.data(), name.size()); kOpIndex.row_plus_one[slot] != 0;
       slot = (slot + 1) % kOpSlots) {
    OpInfo const& op = kOps[kOpIndex.row_plus_one[slot] - 1];
    if (name == op.name) {
      return &op;
    }
  }
  for (OpAlias const& alias : kOpAliases) {
    if (name == alias.name) {
      return op_of_tag(alias.tag);
    }
  }
  return nullptr;
}

inline std::size_t num_indices_of(Sig sig) {
  switch (sig) {
    case Sig::Extract:
      return 2;
    case Sig::Repeat:
    case Sig::Extend:
    case Sig::Rotate:
    case Sig::IntToBv:
      return 1;
    default:
      return 0;
  }
}

// Names of theories the term layer does not model (strings, sequences, regular expressions,
// floating point, sets, bags, relations, separation logic, transcendentals, conversions between
// integers and bit-vectors, ...). Solvers that know such a theory refuse a declaration of one of
// its names, so printers never write a user name of this kind as it is. Function names go by
// their theory's prefix or by the whole name; sort names by the whole name.
inline constexpr std::string_view kForeignPrefixes[] = {
    "bag.", "char.", "ff.",  "fp.",  "int.", "nullable.", "re.",   "real.",
    "rel.", "sep.",  "seq.", "set.", "str.", "table.",    "tuple."};
// clang-format off
inline constexpr std::string_view kForeignFunctions[] = {
    "+oo", "+zero", "-oo", "-zero", "NaN", "RNA", "RNE", "RTN", "RTP", "RTZ",
    "arccos", "arccot", "arccsc", "arcsec", "arcsin", "arctan", "bag", "bv2int",
    "bvite", "bvnego", "bvredand", "bvredor", "bvsaddo", "bvsdivo", "bvsmulo", "bvssubo", "bvuaddo",
    "bvumulo", "bvusubo", "char", "cos", "cot", "csc", "exp", "fp", "iand", "nat2bv", "pto", "roundNearestTiesToAway", "roundNearestTiesToEven",
    "roundTowardNegative", "roundTowardPositive", "roundTowardZero", "sbv_to_int", "sec", "sep",
    "sin", "sqrt", "tan", "to_fp", "to_fp_unsigned", "to_int_bv", "tuple", "wand"};
// clang-format on
inline constexpr std::string_view kForeignSorts[] = {
    "Bag",           "Char",     "FiniteField", "Float128", "Float16",      "Float32", "Float64",
    "FloatingPoint", "Nullable", "RegLan",      "Relation", "RoundingMode", "Seq",     "Set",
    "String",        "Table",    "Tuple",       "Unicode",  "UnitTuple"};

}  // namespace optable
}  // namespace tvx

#endif  // TVX_CORE_OPERATOR_TABLE_H
