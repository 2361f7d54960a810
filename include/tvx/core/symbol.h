// Symbol: a function symbol or constant of the term layer, uninterpreted (declared by the user)
// or interpreted (a theory operator at one signature, or a numeral). Its id is its first field.
#ifndef TVX_CORE_SYMBOL_H
#define TVX_CORE_SYMBOL_H

#include <cstddef>
#include <cstdint>
#include <string>

#include <tvx/core/data_type.h>
#include <tvx/support/hashtable.h>

namespace tvx {

// The kind of a symbol: what it means, independent of the sorts it is applied to.
struct SymbolTag {
  enum tag : std::uint16_t {
    UNINTERPRETED,
    NUMERAL,  // Int, Real or bit-vector literal; the value is in the symbol's name
    // core
    TRUE,
    FALSE,
    NOT,
    AND,
    OR,
    XOR,
    IMPLIES,
    EQUAL,
    DISTINCT,
    ITE,
    // integers and reals
    ADD,
    SUB,  // binary or more: left-associative subtraction
    NEG,  // unary minus
    MUL,
    DIV,   // real division "/"
    IDIV,  // integer division "div"
    MOD,
    ABS,
    LT,
    LE,
    GT,
    GE,
    TO_REAL,
    TO_INT,
    IS_INT,
    // bit-vectors
    CONCAT,
    EXTRACT,
    REPEAT,
    ZERO_EXTEND,
    SIGN_EXTEND,
    ROTATE_LEFT,
    ROTATE_RIGHT,
    BVNOT,
    BVNEG,
    BVAND,
    BVOR,
    BVXOR,
    BVNAND,
    BVNOR,
    BVXNOR,
    BVCOMP,
    BVADD,
    BVSUB,
    BVMUL,
    BVUDIV,
    BVUREM,
    BVSDIV,
    BVSREM,
    BVSMOD,
    BVSHL,
    BVLSHR,
    BVASHR,
    BVULT,
    BVULE,
    BVUGT,
    BVUGE,
    BVSLT,
    BVSLE,
    BVSGT,
    BVSGE,
    // conversions between integers and bit-vectors
    BV2NAT,  // the non-negative integer a bit-vector denotes
    INT2BV,  // indexed (n): an integer modulo 2^n as a bit-vector of width n
    // arrays
    SELECT,
    STORE,
    CONST_ARRAY,  // ((as const (Array I E)) v): the array whose every element is v
    // binders
    VARIABLE,  // a variable that a binder binds; never declared
    FORALL,    // arguments: the bound variables, the body, then the patterns
    EXISTS,
    // values
    ALGEBRAIC,  // an irrational Real as a solver wrote it: (root-obj POLYNOMIAL INDEX)
    // datatypes: interpreted, so never declared; the datatype's declaration makes them
    DT_CONSTRUCTOR,  // index 0: the constructor's position in its datatype
    DT_SELECTOR,     // indices: the constructor's position, the field's position
    DT_TESTER,       // (_ is C); index 0: the constructor's position
    NUM_TAGS
  };
};

class Symbol {
 public:
  std::uint64_t get_id() const { return id_; }
  std::uint64_t get_arity() const { return arity_; }
  // The user's name (unquoted), the operator's SMT-LIB name ("bvadd", "extract"), or for a
  // numeral its value: "5", "-3" (Int); "5", "1/2", "0.25" (Real); "#b0101" (bit-vector).
  std::string const& get_name() const { return name_; }
  // The function type for a symbol of positive arity, else the constant's sort.
  DataType const* get_type() const { return type_; }
  // The result sort: the sort of every term with this head. Never null.
  DataType const* get_output_type() const { return output_type_; }
  SymbolTag::tag get_tag() const { return tag_; }
  bool is_uninterpreted() const { return tag_ == SymbolTag::UNINTERPRETED; }
  // Indices of an indexed operator: (_ extract 7 0) has the two indices 7 and 0.
  std::size_t get_num_indices() const { return num_indices_; }
  std::uint64_t get_index(std::size_t i) const { return indices_[i]; }

  Symbol(std::uint64_t id, std::uint64_t arity, DataType const* type, DataType const* output_type,
         SymbolTag::tag tag, std::string name, std::size_t num_indices = 0,
         std::uint64_t const* indices = nullptr)
      : id_(id),
        arity_(arity),
        type_(type),
        output_type_(output_type),
        tag_(tag),
        num_indices_(static_cast<std::uint8_t>(num_indices)),
        name_(std::move(name)) {
    for (std::size_t i = 0; i < num_indices; ++i) {
      indices_[i] = indices[i];
    }
  }

 private:
  std::uint64_t id_;
  std::uint64_t arity_;
  DataType const* type_;
  DataType const* output_type_;
  SymbolTag::tag tag_;
  std::uint8_t num_indices_;
  std::uint64_t indices_[2] = {0, 0};
  std::string name_;
};

namespace hsh {
template <>
struct hash<Symbol const*> {
  std::uint64_t operator()(Symbol const* s) const { return s->get_id(); }
};
}  // namespace hsh

}  // namespace tvx

#endif  // TVX_CORE_SYMBOL_H
