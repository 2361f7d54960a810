// DataType: a sort of the term layer. Simple sorts (Bool, Int, Real, bit-vectors, uninterpreted
// sorts, datatypes, sort parameters) have a name and no components; compound ones (arrays,
// function types, and instances of sorts with parameters such as (List Int)) have components.
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
    Param,     // a sort parameter of a parametric datatype: (par (T) ...)
  };

  // Non-zero exactly for a simple type; kept as the first field.
  bool is_simple() const { return simple_ != 0; }
  std::size_t get_num_components() const { return components_.size(); }
  DataType const* get_component(std::size_t i) const { return components_[i]; }
  std::vector<DataType const*> const& get_components() const { return components_; }
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
  bool is_param() const { return kind_ == Kind::Param; }
  // A sort that a script declares before use: an uninterpreted sort or a datatype, not an
  // instance (whose generic sort is declared).
  bool is_declarable() const {
    return (kind_ == Kind::Uninterpreted || kind_ == Kind::Datatype) && generic_ == nullptr;
  }
  // Sorts with parameters: a generic sort ((declare-sort S 2), a parametric datatype) has
  // get_num_params() > 0 and is no sort of a term; its instances ((S Int Bool)) are compound
  // sorts of its kind whose components are the arguments, and get_generic() names it.
  std::size_t get_num_params() const { return num_params_; }
  DataType const* get_generic() const { return generic_; }
  bool is_instance() const { return generic_ != nullptr; }
  // Whether a sort parameter occurs in the sort: no term of such a sort reaches a solver.
  bool has_params() const { return has_params_; }
  // Whether the sort is an instance or has one among its components, at any depth.
  bool has_instances() const { return has_instances_; }
  // The position of a sort parameter among its datatype's parameters.
  std::size_t get_param_index() const { return static_cast<std::size_t>(width_); }
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
           std::vector<DataType const*> components, DataType const* generic = nullptr,
           std::size_t num_params = 0)
      : simple_(kind != Kind::Array && kind != Kind::Function && generic == nullptr),
        kind_(kind),
        id_(id),
        width_(width),
        name_(std::move(name)),
        components_(std::move(components)),
        generic_(generic),
        num_params_(num_params) {
    has_params_ = kind == Kind::Param;
    has_instances_ = generic != nullptr;
    for (DataType const* c : components_) {
      has_params_ = has_params_ || c->has_params_;
      has_instances_ = has_instances_ || c->has_instances_;
    }
  }

 private:
  std::uint8_t simple_;
  Kind kind_;
  std::uint64_t id_;
  std::uint64_t width_;
  std::string name_;
  std::vector<DataType const*> components_;
  DataType const* generic_;
  std::size_t num_params_;
  bool has_params_ = false;
  bool has_instances_ = false;
};

namespace hsh {
template <>
struct hash<DataType const*> {
  std::uint64_t operator()(DataType const* t) const { return t->get_id(); }
};
}  // namespace hsh

}  // namespace tvx

#endif  // TVX_CORE_DATA_TYPE_H
