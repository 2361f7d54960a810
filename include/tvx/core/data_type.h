// DataType: a sort of the term layer. Simple sorts (Bool, Int, Real, bit-vectors, uninterpreted
// sorts, datatypes) have a name and no components; compound ones (arrays, function types) have
// components.
#ifndef TVX_CORE_DATA_TYPE_H
#define TVX_CORE_DATA_TYPE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <tvx/support/hashtable.h>

namespace tvx {

class DataType {
 public:
  enum class Kind : std::uint8_t {
    Bool,
    Int,
    Real,
    BitVector,
    Uninterpreted,
    Array,
    Function,
    Datatype,  // a user's algebraic datatype: its constructors are in the TermManager
  };

  // Non-zero exactly for a simple type; kept as the first field.
  bool is_simple() const { return simple_ != 0; }
  std::size_t get_num_components() const { return components_.size(); }
  DataType const* get_component(std::size_t i) const { return components_[i]; }
  // The SMT-LIB name of a simple type ("Int", "(_ BitVec 8)", or the user's name, unquoted);
  // empty for compound types.
  std::string const& get_name() const { return name_; }

  std::uint64_t get_id() const { return id_; }
  Kind get_kind() const { return kind_; }
  bool is_bool() const { return kind_ == Kind::Bool; }
  bool is_int() const { return kind_ == Kind::Int; }
  bool is_real() const { return kind_ == Kind::Real; }
  bool is_bv() const { return kind_ == Kind::BitVector; }
  bool is_array() const { return kind_ == Kind::Array; }
  bool is_function() const { return kind_ == Kind::Function; }
  bool is_uninterpreted() const { return kind_ == Kind::Uninterpreted; }
  bool is_datatype() const { return kind_ == Kind::Datatype; }
  // A sort that a script declares before use: an uninterpreted sort or a datatype.
  bool is_declarable() const { return kind_ == Kind::Uninterpreted || kind_ == Kind::Datatype; }
  // Width of a bit-vector sort, 0 for every other sort.
  std::uint64_t get_bv_width() const { return width_; }
  // Arrays: index and element sorts. Functions: argument sorts, then the result sort.
  DataType const* get_array_index() const { return components_[0]; }
  DataType const* get_array_element() const { return components_[1]; }
  DataType const* get_function_result() const { return components_.back(); }

  // Readable SMT-LIB text of the sort, as in error messages ("(Array Int Bool)").
  std::string to_string() const;
  // Appends the sort's text to `out`, each simple sort in it written by `simple`; without
  // recursion, whatever the nesting depth.
  using SimpleWriter = std::function<void(std::string&, DataType const&)>;
  void write(std::string& out, SimpleWriter const& simple) const;

  DataType(std::uint64_t id, Kind kind, std::string name, std::uint64_t width,
           std::vector<DataType const*> components)
      : simple_(kind != Kind::Array && kind != Kind::Function),
        kind_(kind),
        id_(id),
        width_(width),
        name_(std::move(name)),
        components_(std::move(components)) {}

 private:
  std::uint8_t simple_;
  Kind kind_;
  std::uint64_t id_;
  std::uint64_t width_;
  std::string name_;
  std::vector<DataType const*> components_;
};

namespace hsh {
template <>
struct hash<DataType const*> {
  std::uint64_t operator()(DataType const* t) const { return t->get_id(); }
};
}  // namespace hsh

}  // namespace tvx

#endif  // TVX_CORE_DATA_TYPE_H
