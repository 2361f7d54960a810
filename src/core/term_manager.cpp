#include <tvx/core/term_manager.h>

#include <algorithm>
#include <cassert>
#include <new>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <tvx/support/str.h>
#include "core/operator_table.h"

namespace tvx {

using optable::find_op;
using optable::kBuiltinSorts;
using optable::kForeignFunctions;
using optable::kForeignPrefixes;
using optable::kForeignSorts;
using optable::OpInfo;

namespace {

// A name must be writable between bars: no '|', no backslash, and only printable characters or
// white space (bytes from 128 up are taken as parts of UTF-8 characters).
void check_name(std::string const& name, char const* what) {
  // SMT-LIB keeps names that start with '.' or '@' for solvers; traces name their defined
  // terms that way, so a user name of that shape could clash with a label.
  if (!name.empty() && (name[0] == '.' || name[0] == '@')) {
    throw Error(std::string("invalid ") + what + " name '" + name +
                "': names starting with '.' or '@' are reserved for solvers");
  }
  for (char ch : name) {
    unsigned char const c = static_cast<unsigned char>(ch);
    bool const printable = (c >= 32 && c != 127) || c == '\t' || c == '\n' || c == '\r';
    if (c == '|' || c == '\\' || !printable) {
      throw Error(std::string("invalid ") + what + " name '" + name +
                  "': SMT-LIB cannot write a name containing '|', '\\' or a "
                  "control character");
    }
  }
  if (TermManager::is_builtin_name(name)) {
    throw Error(std::string("invalid ") + what + " name '" + name + "': it is a built-in name");
  }
}

constexpr std::size_t kTermChunkBytes = std::size_t{1} << 20;

}  // namespace

bool TermManager::is_builtin_name(std::string const& name) {
  return find_op(name) != nullptr || is_builtin_sort_name(name);
}

SymbolTag::tag TermManager::builtin_tag(std::string const& name) {
  OpInfo const* info = find_op(name);
  return info == nullptr ? SymbolTag::UNINTERPRETED : info->tag;
}

bool TermManager::is_builtin_sort_name(std::string const& name) {
  for (char const* sort : kBuiltinSorts) {
    if (name == sort) {
      return true;
    }
  }
  return false;
}

bool TermManager::is_foreign_theory_name(std::string const& name, bool sort) {
  std::string_view const view(name);
  if (sort) {
    return std::find(std::begin(kForeignSorts), std::end(kForeignSorts), view) !=
           std::end(kForeignSorts);
  }
  std::size_t const dot = view.find('.');
  if (dot != std::string_view::npos &&
      std::find(std::begin(kForeignPrefixes), std::end(kForeignPrefixes),
                view.substr(0, dot + 1)) != std::end(kForeignPrefixes)) {
    return true;
  }
  return std::find(std::begin(kForeignFunctions), std::end(kForeignFunctions), view) !=
         std::end(kForeignFunctions);
}

std::uint64_t TermManager::structural_hash(Symbol const* s, Term const* const* args,
                                           std::size_t n) {
  std::uint64_t h = reinterpret_cast<std::uintptr_t>(s) * 0x9E3779B97F4A7C15ULL;
  for (std::size_t i = 0; i < n; ++i) {
    h = (h ^ reinterpret_cast<std::uintptr_t>(args[i])) * 0xFF51AFD7ED558CCDULL;
    h ^= h >> 32;
  }
  return (h ^ (h >> 29)) * 0x9E3779B97F4A7C15ULL;  // the top bits choose the slot
}

TermManager::TermManager() {
  bool_type_ = intern_type(DataType::Kind::Bool, "Bool", 0, {});
  int_type_ = intern_type(DataType::Kind::Int, "Int", 0, {});
  real_type_ = intern_type(DataType::Kind::Real, "Real", 0, {});
}

TermManager::~TermManager() = default;

// ---------------------------------------------------------------- sorts

DataType const* TermManager::intern_type(DataType::Kind kind, std::string name, std::uint64_t width,
                                         std::vector<DataType const*> components,
                                         DataType const* generic, std::size_t num_params) {
  // The id is taken only once the sort exists, so that ids stay the indices plus one (which
  // owns() relies on) even when making one fails.
  types_.emplace_back(next_type_id_, kind, std::move(name), width, std::move(components), generic,
                      num_params);
  ++next_type_id_;
  assert(types_.back().get_id() == types_.size() && "a sort's id is its index plus one");
  return &types_.back();
}

DataType const* TermManager::get_bool_type() {
  return bool_type_;
}
DataType const* TermManager::get_integer_type() {
  return int_type_;
}
DataType const* TermManager::get_rational_type() {
  return real_type_;
}

DataType const* TermManager::get_bv_type(std::size_t width) {
  if (width == 0 || width > kMaxBvWidth) {
    throw Error("invalid bit-vector sort (_ BitVec " + std::to_string(width) +
                "): the width must be between 1 and " + std::to_string(kMaxBvWidth));
  }
  auto it = bv_types_.find(width);
  if (it != bv_types_.end()) {
    return it->second;
  }
  std::string name = "(_ BitVec " + std::to_string(width) + ")";
  DataType const* t = intern_type(DataType::Kind::BitVector, name, width, {});
  bv_types_.emplace(width, t);
  return t;
}

DataType const* TermManager::get_array_type(DataType const* index, DataType const* element) {
  if (index == nullptr || element == nullptr || index->is_function() || element->is_function() ||
      index->get_num_params() > 0 || element->get_num_params() > 0) {
    throw Error("invalid array sort: index and element must be sorts");
  }
  std::vector<std::uint64_t> key{static_cast<std::uint64_t>(DataType::Kind::Array), index->get_id(),
                                 element->get_id()};
  auto it = compound_types_.find(key);
  if (it != compound_types_.end()) {
    return it->second;
  }
  DataType const* t = intern_type(DataType::Kind::Array, "", 0, {index, element});
  compound_types_.emplace(std::move(key), t);
  return t;
}

DataType const* TermManager::get_function_type(std::vector<DataType const*> const& args,
                                               DataType const* result) {
  if (result == nullptr || result->is_function() || result->get_num_params() > 0) {
    throw Error("invalid function sort: the result must be a sort");
  }
  if (args.empty()) {
    return result;
  }
  std::vector<std::uint64_t> key{static_cast<std::uint64_t>(DataType::Kind::Function)};
  key.reserve(args.size() + 2);
  for (DataType const* a : args) {
    if (a == nullptr || a->is_function() || a->get_num_params() > 0) {
      throw Error("invalid function sort: every argument must be a sort");
    }
    key.push_back(a->get_id());
  }
  key.push_back(result->get_id());
  auto it = compound_types_.find(key);
  if (it != compound_types_.end()) {
    return it->second;
  }
  std::vector<DataType const*> components(args);
  components.push_back(result);
  DataType const* t = intern_type(DataType::Kind::Function, "", 0, std::move(components));
  compound_types_.emplace(std::move(key), t);
  return t;
}

DataType const* TermManager::make_simple_type(std::string const& name) {
  return make_sort_constructor(name, 0);
}

DataType const* TermManager::make_sort_constructor(std::string const& name, std::size_t arity) {
  check_name(name, "sort");
  // Bit-vector sorts are known by names of this form; a user sort must not look like one.
  if (name.compare(0, 9, "(_ BitVec") == 0) {
    throw Error("invalid sort name '" + name + "': it names a bit-vector sort");
  }
  auto const own = sort_names_.try_emplace(name).first;
  auto const printed = choose_printed_name(sort_names_, own, is_foreign_theory_name(name, true));
  std::uint64_t const id = next_type_id_;
  bool const renamed = *printed.first != name;
  if (renamed) {
    renamed_sorts_.emplace(id, printed.first);
  }
  DataType const* t;
  try {
    t = intern_type(DataType::Kind::Uninterpreted, name, 0, {}, nullptr, arity);
  } catch (...) {
    renamed_sorts_.erase(id);
    throw;
  }
  own->second.user = t;
  printed.second->printed = t;
  return t;
}

DataType const* TermManager::get_simple_type(std::string const& name, bool uninterpreted_only) {
  // The declaration search asks this for the sort of every term it visits: answer the common
  // cases without hashing the name.
  if (uninterpreted_only && sort_names_.empty()) {
    return nullptr;
  }
  if (name == "Bool" || name == "Int" || name == "Real") {
    if (uninterpreted_only) {
      return nullptr;
    }
    return name == "Bool" ? bool_type_ : name == "Int" ? int_type_ : real_type_;
  }
  auto it = sort_names_.find(name);
  if (it != sort_names_.end() && it->second.user != nullptr) {
    return it->second.user;
  }
  if (uninterpreted_only) {
    return nullptr;
  }
  // "(_ BitVec N)": an existing bit-vector sort.
  static constexpr char kBv[] = "(_ BitVec ";
  std::size_t const prefix = sizeof(kBv) - 1;
  if (name.size() > prefix + 1 && name.compare(0, prefix, kBv) == 0 && name.back() == ')' &&
      str::all_digits(name, prefix, name.size() - 1) && name.size() - prefix - 1 <= 18) {
    auto bv = bv_types_.find(std::stoull(name.substr(prefix, name.size() - prefix - 1)));
    if (bv != bv_types_.end() && bv->second->get_name() == name) {
      return bv->second;
    }
  }
  return nullptr;
}

// ---------------------------------------------------------------- datatypes

DataType const* TermManager::make_datatype_sort(std::string const& name, std::size_t num_params) {
  check_name(name, "datatype");
  return intern_type(DataType::Kind::Datatype, name, 0, {}, nullptr, num_params);
}

DataType const* TermManager::get_sort_parameter(std::string const& name, std::size_t index) {
  check_name(name, "sort parameter");
  auto key = std::make_pair(name, static_cast<std::uint64_t>(index));
  auto it = params_.find(key);
  if (it != params_.end()) {
    return it->second;
  }
  DataType const* t = intern_type(DataType::Kind::Param, name, index, {});
  params_.emplace(std::move(key), t);
  return t;
}

DataType const* TermManager::get_instance(DataType const* generic,
                                          std::vector<DataType const*> const& args) {
  if (generic == nullptr || !owns(generic) || generic->get_num_params() == 0) {
    throw Error("invalid sort application: " +
                (generic == nullptr ? std::string("no sort") : generic->to_string()) +
                " takes no arguments");
  }
  if (args.size() != generic->get_num_params()) {
    throw Error("invalid sort application: " + generic->get_name() + " takes " +
                std::to_string(generic->get_num_params()) + " argument(s), not " +
                std::to_string(args.size()));
  }
  std::vector<std::uint64_t> key{static_cast<std::uint64_t>(DataType::Kind::Param) + 1,
                                 generic->get_id()};
  for (DataType const* a : args) {
    if (a == nullptr || !owns(a) || a->is_function() || a->get_num_params() > 0) {
      throw Error("invalid sort application of " + generic->get_name() +
                  ": every argument must be a sort");
    }
    key.push_back(a->get_id());
  }
  auto it = compound_types_.find(key);
  if (it != compound_types_.end()) {
    return it->second;
  }
  DataType const* t = intern_type(generic->get_kind(), generic->get_name(), 0, args, generic);
  compound_types_.emplace(std::move(key), t);
  return t;
}

DataType const* TermManager::substitute_params(DataType const* t,
                                               std::vector<DataType const*> const& args) {
  if (!t->has_params()) {
    return t;
  }
  // Post-order over the sort's structure, on an explicit stack.
  std::vector<std::pair<DataType const*, bool>> stack{{t, false}};
  std::vector<DataType const*> done;
  while (!stack.empty()) {
    auto [u, expanded] = stack.back();
    stack.pop_back();
    if (!u->has_params()) {
      done.push_back(u);
    } else if (u->is_param()) {
      if (u->get_param_index() >= args.size()) {
        throw Error("invalid sort: the parameter " + u->get_name() + " has no argument");
      }
      done.push_back(args[u->get_param_index()]);
    } else if (!expanded) {
      stack.emplace_back(u, true);
      for (std::size_t i = u->get_num_components(); i-- > 0;) {
        stack.emplace_back(u->get_component(i), false);
      }
    } else {
      std::size_t const n = u->get_num_components();
      std::vector<DataType const*> parts(done.end() - static_cast<std::ptrdiff_t>(n), done.end());
      done.resize(done.size() - n);
      DataType const* r =
          u->is_array() ? get_array_type(parts[0], parts[1])
          : u->is_instance()
              ? get_instance(u->get_generic(), parts)
              : get_function_type(std::vector<DataType const*>(parts.begin(), parts.end() - 1),
                                  parts.back());
      done.push_back(r);
    }
  }
  return done.back();
}

bool TermManager::match_params(DataType const* pattern, DataType const* actual,
                               std::vector<DataType const*>& binding) const {
  std::vector<std::pair<DataType const*, DataType const*>> stack{{pattern, actual}};
  while (!stack.empty()) {
    auto [p, a] = stack.back();
    stack.pop_back();
    if (!p->has_params()) {
      if (p != a) {
        return false;
      }
    } else if (p->is_param()) {
      std::size_t const i = p->get_param_index();
      if (binding.size() <= i) {
        binding.resize(i + 1, nullptr);
      }
      if (binding[i] != nullptr && binding[i] != a) {
        return false;
      }
      binding[i] = a;
    } else {
      if (p->get_kind() != a->get_kind() || p->get_generic() != a->get_generic() ||
          p->get_num_components() != a->get_num_components()) {
        return false;
      }
      for (std::size_t i = 0; i < p->get_num_components(); ++i) {
        stack.emplace_back(p->get_component(i), a->get_component(i));
      }
    }
  }
  return true;
}

void TermManager::define_datatypes(std::vector<DataType const*> const& sorts,
                                   std::vector<std::vector<ConstructorDecl>> const& constructors,
                                   std::vector<std::vector<DataType const*>> const& params) {
  // Everything is checked before anything is made, so a refused group leaves no trace.
  if (sorts.empty() || sorts.size() != constructors.size() ||
      (!params.empty() && params.size() != sorts.size())) {
    throw Error("invalid datatype declaration: one list of constructors per datatype");
  }
  auto in_group = [&](DataType const* f) {
    DataType const* g = f->is_instance() ? f->get_generic() : f;
    auto it = std::find(sorts.begin(), sorts.end(), g);
    return it == sorts.end() ? sorts.size() : static_cast<std::size_t>(it - sorts.begin());
  };
  std::set<std::string> names;
  for (std::size_t i = 0; i < sorts.size(); ++i) {
    DataType const* d = sorts[i];
    if (!owns(d) || !d->is_datatype() || d->is_instance() || datatypes_.count(d->get_id()) != 0 ||
        std::find(sorts.begin(), sorts.begin() + static_cast<std::ptrdiff_t>(i), d) !=
            sorts.begin() + static_cast<std::ptrdiff_t>(i)) {
      throw Error(
          "invalid datatype declaration: each sort must come from make_datatype_sort "
          "and be defined once");
    }
    std::vector<DataType const*> const none;
    std::vector<DataType const*> const& own_params = params.empty() ? none : params[i];
    if (own_params.size() != d->get_num_params()) {
      throw Error("invalid datatype '" + d->get_name() + "': it takes " +
                  std::to_string(d->get_num_params()) + " sort parameter(s)");
    }
    for (std::size_t k = 0; k < own_params.size(); ++k) {
      if (own_params[k] == nullptr || !owns(own_params[k]) || !own_params[k]->is_param() ||
          own_params[k]->get_param_index() != k) {
        throw Error("invalid datatype '" + d->get_name() +
                    "': its parameters must come from "
                    "get_sort_parameter, in order");
      }
    }
    if (constructors[i].empty()) {
      throw Error("invalid datatype '" + d->get_name() + "': it has no constructor");
    }
    for (ConstructorDecl const& c : constructors[i]) {
      check_name(c.name, "constructor");
      if (!names.insert(c.name).second) {
        throw Error("invalid datatype '" + d->get_name() + "': the name '" + c.name +
                    "' is declared twice");
      }
      for (auto const& field : c.fields) {
        check_name(field.first, "selector");
        if (!names.insert(field.first).second) {
          throw Error("invalid datatype '" + d->get_name() + "': the name '" + field.first +
                      "' is declared twice");
        }
        DataType const* f = field.second;
        if (f == nullptr || !owns(f) || f->is_function() || f->get_num_params() > 0) {
          throw Error("invalid selector '" + field.first + "': its sort must be a sort");
        }
        std::vector<DataType const*> walk{f};
        while (!walk.empty()) {
          DataType const* u = walk.back();
          walk.pop_back();
          for (std::size_t k = 0; k < u->get_num_components(); ++k) {
            walk.push_back(u->get_component(k));
          }
          DataType const* g = u->is_instance() ? u->get_generic() : u;
          if (u->is_param() &&
              std::find(own_params.begin(), own_params.end(), u) == own_params.end()) {
            throw Error("invalid selector '" + field.first + "': the sort parameter " +
                        u->get_name() + " is not one of " + d->get_name() + "'s");
          }
          if (g->is_datatype() && datatypes_.count(g->get_id()) == 0 &&
              in_group(g) == sorts.size()) {
            throw Error("invalid selector '" + field.first + "': the datatype '" + g->get_name() +
                        "' is not defined");
          }
        }
      }
    }
  }
  // Every datatype must have a value: a constructor whose fields' sorts all have values. Sorts
  // from outside the group have values; within it, a fixed point.
  std::vector<bool> inhabited(sorts.size(), false);
  for (bool changed = true; changed;) {
    changed = false;
    for (std::size_t i = 0; i < sorts.size(); ++i) {
      for (std::size_t k = 0; !inhabited[i] && k < constructors[i].size(); ++k) {
        bool all = true;
        for (auto const& field : constructors[i][k].fields) {
          std::size_t const j = in_group(field.second);
          all = all && (j == sorts.size() || inhabited[j]);
        }
        if (all) {
          inhabited[i] = changed = true;
        }
      }
    }
  }
  for (std::size_t i = 0; i < sorts.size(); ++i) {
    if (!inhabited[i]) {
      throw Error("invalid datatype '" + sorts[i]->get_name() +
                  "': it has no value (every constructor needs a value of the datatype)");
    }
  }

  datatype_groups_.push_back(sorts);
  std::vector<DataType const*> const* group = &datatype_groups_.back();
  for (std::size_t i = 0; i < sorts.size(); ++i) {
    DataType const* d = sorts[i];
    auto const own = sort_names_.try_emplace(d->get_name()).first;
    auto const printed =
        choose_printed_name(sort_names_, own, is_foreign_theory_name(d->get_name(), true));
    if (*printed.first != d->get_name()) {
      renamed_sorts_.emplace(d->get_id(), printed.first);
    }
    own->second.user = d;
    printed.second->printed = d;
    datatype_infos_.emplace_back();
    DatatypeInfo& info = datatype_infos_.back();
    info.group = group;
    if (!params.empty()) {
      info.params = params[i];
    }
    datatypes_[d->get_id()] = &info;
    if (d->get_num_params() > 0) {
      any_generic_ = true;
      // The generic's constructors build its instance over its own parameters.
      datatypes_[get_instance(d, info.params)->get_id()] = &info;
    }
  }
  DataType const* bool_sort = get_bool_type();
  for (std::size_t i = 0; i < sorts.size(); ++i) {
    DataType const* d = sorts[i];
    DatatypeInfo& info = *datatypes_[d->get_id()];
    DataType const* self = d->get_num_params() > 0 ? get_instance(d, info.params) : d;
    for (std::size_t k = 0; k < constructors[i].size(); ++k) {
      ConstructorDecl const& c = constructors[i][k];
      std::vector<DataType const*> field_sorts;
      for (auto const& field : c.fields) {
        field_sorts.push_back(field.second);
      }
      std::uint64_t const position[2] = {k, 0};
      DatatypeInfo::Constructor entry;
      entry.constructor = new_uninterpreted_symbol(c.name, get_function_type(field_sorts, self),
                                                   true, SymbolTag::DT_CONSTRUCTOR, position, 1);
      entry.tester =
          interpreted_symbol(SymbolTag::DT_TESTER, c.name, &self, 1, bool_sort, position, 1);
      for (std::size_t j = 0; j < c.fields.size(); ++j) {
        std::uint64_t const at[2] = {k, j};
        entry.selectors.push_back(new_uninterpreted_symbol(
            c.fields[j].first, get_function_type({self}, c.fields[j].second), true,
            SymbolTag::DT_SELECTOR, at, 2));
      }
      info.constructors.push_back(std::move(entry));
    }
  }
}

DatatypeInfo const* TermManager::datatype_info(DataType const* sort) {
  if (sort == nullptr || !sort->is_datatype() || !owns(sort)) {
    return nullptr;
  }
  auto it = datatypes_.find(sort->get_id());
  if (it != datatypes_.end()) {
    return it->second;
  }
  if (!sort->is_instance() || datatypes_.count(sort->get_generic()->get_id()) == 0) {
    return nullptr;
  }
  instantiate_datatypes(sort);
  return datatypes_.at(sort->get_id());
}

// The instances, over the same arguments, of an instance's whole group (those members that take
// as many parameters), each with constructors, selectors and testers of its own: the generic
// ones with the arguments put for the parameters, printed under the generic ones' names.
void TermManager::instantiate_datatypes(DataType const* instance) {
  std::vector<DataType const*> const& args = instance->get_components();
  DatatypeInfo const& generic_info = *datatypes_.at(instance->get_generic()->get_id());
  std::vector<DataType const*> members;
  for (DataType const* g : *generic_info.group) {
    if (g->get_num_params() == args.size()) {
      members.push_back(get_instance(g, args));
    }
  }
  datatype_groups_.push_back(members);
  std::vector<DataType const*> const* group = &datatype_groups_.back();
  std::vector<DatatypeInfo*> infos;
  for (DataType const* m : members) {
    datatype_infos_.emplace_back();
    datatype_infos_.back().group = group;
    datatypes_[m->get_id()] = &datatype_infos_.back();
    infos.push_back(&datatype_infos_.back());
  }
  DataType const* bool_sort = get_bool_type();
  for (std::size_t i = 0; i < members.size(); ++i) {
    DataType const* m = members[i];
    DatatypeInfo const& generic = *datatypes_.at(m->get_generic()->get_id());
    for (std::size_t k = 0; k < generic.constructors.size(); ++k) {
      DatatypeInfo::Constructor const& g = generic.constructors[k];
      std::vector<DataType const*> field_sorts;
      for (Symbol const* selector : g.selectors) {
        field_sorts.push_back(substitute_params(selector->get_output_type(), args));
      }
      std::uint64_t const position[2] = {k, 0};
      DatatypeInfo::Constructor entry;
      entry.constructor = make_datatype_symbol(g.constructor, get_function_type(field_sorts, m));
      entry.tester = interpreted_symbol(SymbolTag::DT_TESTER, g.constructor->get_name(), &m, 1,
                                        bool_sort, position, 1);
      for (std::size_t j = 0; j < g.selectors.size(); ++j) {
        entry.selectors.push_back(
            make_datatype_symbol(g.selectors[j], get_function_type({m}, field_sorts[j])));
      }
      infos[i]->constructors.push_back(std::move(entry));
    }
  }
}

Symbol const* TermManager::make_datatype_symbol(Symbol const* like, DataType const* type) {
  std::uint64_t const id = next_symbol_id_;
  auto renamed = renamed_symbols_.find(like->get_id());
  std::uint64_t const arity = type->is_function() ? type->get_num_components() - 1 : 0;
  DataType const* output = type->is_function() ? type->get_function_result() : type;
  std::uint64_t indices[2] = {like->get_index(0),
                              like->get_num_indices() > 1 ? like->get_index(1) : 0};
  symbols_.emplace_back(id, arity, type, output, like->get_tag(), like->get_name(),
                        like->get_num_indices(), indices);
  ++next_symbol_id_;
  if (renamed != renamed_symbols_.end()) {
    renamed_symbols_.emplace(id, renamed->second);
  }
  return &symbols_.back();
}

Symbol const* TermManager::instance_symbol(Symbol const* generic, DataType const* instance) {
  DatatypeInfo const* info = datatype_info(instance);
  if (info == nullptr) {
    throw Error("invalid datatype instance " + instance->to_string());
  }
  DatatypeInfo::Constructor const& c =
      info->constructors[static_cast<std::size_t>(generic->get_index(0))];
  switch (generic->get_tag()) {
    case SymbolTag::DT_CONSTRUCTOR:
      return c.constructor;
    case SymbolTag::DT_TESTER:
      return c.tester;
    default:
      return c.selectors[static_cast<std::size_t>(generic->get_index(1))];
  }
}

std::vector<DataType const*> TermManager::datatype_dependencies(DataType const* sort) {
  DatatypeInfo const* info = datatype_info(sort);
  std::vector<DataType const*> out;
  if (info == nullptr) {
    return out;
  }
  std::vector<DataType const*> const& group = *info->group;
  // A generic group's fields name its members' instances over any arguments; an instance
  // group's fields name its members themselves.
  bool const generic_group = !group[0]->is_instance();
  auto member = [&](DataType const* f) {
    if (std::find(group.begin(), group.end(), f) != group.end()) {
      return true;
    }
    return generic_group && f->is_instance() &&
           std::find(group.begin(), group.end(), f->get_generic()) != group.end();
  };
  std::vector<DataType const*> stack;
  for (DataType const* m : group) {
    for (auto const& c : datatype_info(m)->constructors) {
      for (Symbol const* selector : c.selectors) {
        stack.assign(1, selector->get_output_type());
        while (!stack.empty()) {
          DataType const* f = stack.back();
          stack.pop_back();
          if (f->is_param() || member(f)) {
            for (std::size_t i = f->get_num_components(); i-- > 0;) {
              stack.push_back(f->get_component(i));
            }
            continue;
          }
          if (!generic_group && f->is_instance() && f->is_datatype()) {
            DataType const* g = f->get_generic();
            for (DataType const* m2 : group) {
              if (m2->is_instance() ? m2->get_generic() == g : m2 == g) {
                throw Unsupported("the datatype " + f->to_string() +
                                  " is one of its own group's over other arguments");
              }
            }
          }
          if (f->is_declarable() || f->is_instance()) {
            if (std::find(out.begin(), out.end(), f) == out.end()) {
              out.push_back(f);
            }
            continue;
          }
          for (std::size_t i = f->get_num_components(); i-- > 0;) {
            stack.push_back(f->get_component(i));
          }
        }
      }
    }
  }
  return out;
}

DatatypeInfo::Constructor const& TermManager::constructor_of(Symbol const* s) const {
  assert((s->get_tag() == SymbolTag::DT_CONSTRUCTOR || s->get_tag() == SymbolTag::DT_SELECTOR ||
          s->get_tag() == SymbolTag::DT_TESTER) &&
         "a datatype's symbol");
  DataType const* d = s->get_tag() == SymbolTag::DT_CONSTRUCTOR ? s->get_output_type()
                                                                : s->get_type()->get_component(0);
  return datatypes_.at(d->get_id())->constructors[static_cast<std::size_t>(s->get_index(0))];
}

// ---------------------------------------------------------------- symbols

Symbol const* TermManager::make_symbol(std::string const& name, DataType const* type) {
  check_name(name, "symbol");
  if (type == nullptr || type->get_num_params() > 0) {
    throw Error("invalid symbol '" + name + "': " +
                (type == nullptr ? std::string("no sort given")
                                 : "the sort " + type->get_name() + " takes arguments"));
  }
  return new_uninterpreted_symbol(name, type, true);
}

Symbol const* TermManager::make_fresh_symbol(std::string const& name, DataType const* type) {
  check_name(name, "symbol");
  if (type == nullptr) {
    throw Error("invalid symbol '" + name + "': no sort given");
  }
  return new_uninterpreted_symbol(name, type, false);
}

Symbol const* TermManager::new_uninterpreted_symbol(std::string const& name, DataType const* type,
                                                    bool user, SymbolTag::tag tag,
                                                    std::uint64_t const* indices,
                                                    std::size_t num_indices) {
  auto const own = symbol_names_.try_emplace(name).first;
  auto const printed = choose_printed_name(symbol_names_, own, is_foreign_theory_name(name, false));
  std::uint64_t const id = next_symbol_id_;
  if (*printed.first != name) {
    renamed_symbols_.emplace(id, printed.first);
  }
  std::uint64_t const arity = type->is_function() ? type->get_num_components() - 1 : 0;
  DataType const* output = type->is_function() ? type->get_function_result() : type;
  try {
    symbols_.emplace_back(id, arity, type, output, tag, name, num_indices, indices);
  } catch (...) {
    renamed_symbols_.erase(id);
    throw;
  }
  ++next_symbol_id_;
  assert(symbols_.back().get_id() == symbols_.size() && "a symbol's id is its index plus one");
  Symbol const* s = &symbols_.back();
  if (user) {
    own->second.user = s;
  }
  printed.second->printed = s;
  return s;
}

Symbol const* TermManager::find_symbol(std::string const& name) const {
  auto it = symbol_names_.find(name);
  return it == symbol_names_.end() ? nullptr : it->second.user;
}

// The printed name of a new object whose own name has the entry `own`. A candidate is free when
// no object is printed under it and, unless it is the own name, no object has it as its own
// name; entries left by a failed attempt hold no object and count as free.
template <class T>
std::pair<std::string const*, TermManager::NameEntry<T>*> TermManager::choose_printed_name(
    NameTable<T>& table, typename NameTable<T>::iterator own, bool foreign) {
  if (!foreign && own->second.printed == nullptr) {
    return {&own->first, &own->second};  // the common case: a name not printed yet
  }
  std::string const base = foreign ? "_" + own->first : own->first;
  auto free = [&](std::string const& candidate) {
    auto it = table.find(candidate);
    return it == table.end() || (it->second.printed == nullptr && it->second.user == nullptr);
  };
  if (foreign && free(base)) {
    auto it = table.try_emplace(base).first;
    return {&it->first, &it->second};
  }
  // The base's entry remembers how far its suffixes are used, so that a name declared many
  // times does not try every suffix again.
  NameEntry<T>& base_entry = table.try_emplace(base).first->second;
  std::string candidate;
  for (std::uint64_t k = base_entry.next_suffix;; ++k) {
    candidate = base;
    candidate += '!';
    candidate += std::to_string(k);
    if (free(candidate)) {
      auto it = table.try_emplace(candidate).first;
      base_entry.next_suffix = k + 1;
      return {&it->first, &it->second};
    }
  }
}

std::string const& TermManager::get_printed_name(Symbol const* s) const {
  if (!renamed_symbols_.empty()) {
    auto it = renamed_symbols_.find(s->get_id());
    if (it != renamed_symbols_.end() && owns(s)) {
      return *it->second;
    }
  }
  return s->get_name();
}

std::string const& TermManager::get_printed_name(DataType const* t) const {
  if (!renamed_sorts_.empty()) {
    auto it = renamed_sorts_.find(t->get_id());
    if (it != renamed_sorts_.end() && owns(t)) {
      return *it->second;
    }
  }
  return t->get_name();
}

Symbol const* TermManager::find_printed_symbol(std::string const& printed_name) const {
  auto it = symbol_names_.find(printed_name);
  return it == symbol_names_.end() ? nullptr : it->second.printed;
}

DataType const* TermManager::find_printed_sort(std::string const& printed_name) const {
  auto it = sort_names_.find(printed_name);
  return it == sort_names_.end() ? nullptr : it->second.printed;
}

Symbol const* TermManager::interpreted_symbol(SymbolTag::tag tag, std::string const& name,
                                              DataType const* const* arg_types, std::size_t n,
                                              DataType const* result, std::uint64_t const* indices,
                                              std::size_t num_indices) {
  key_scratch_.clear();
  key_scratch_.push_back(tag);
  key_scratch_.push_back(num_indices);
  key_scratch_.insert(key_scratch_.end(), indices, indices + num_indices);
  for (std::size_t i = 0; i < n; ++i) {
    key_scratch_.push_back(arg_types[i]->get_id());
  }
  key_scratch_.push_back(result->get_id());
  auto it = theory_symbols_.find(key_scratch_);
  if (it != theory_symbols_.end()) {
    return it->second;
  }
  DataType const* type = result;
  if (n > 0) {
    type = get_function_type(std::vector<DataType const*>(arg_types, arg_types + n), result);
  }
  symbols_.emplace_back(next_symbol_id_, n, type, result, tag, name, num_indices, indices);
  ++next_symbol_id_;
  assert(symbols_.back().get_id() == symbols_.size() && "a symbol's id is its index plus one");
  Symbol const* s = &symbols_.back();
  theory_symbols_.emplace(key_scratch_, s);
  return s;
}

// ---------------------------------------------------------------- terms

void* TermManager::allocate_term(std::size_t bytes) {
  if (static_cast<std::size_t>(chunk_end_ - chunk_pos_) < bytes) {
    std::size_t const size = std::max(kTermChunkBytes, bytes);
    term_chunks_.emplace_back(new char[size]);
    chunk_pos_ = term_chunks_.back().get();
    chunk_end_ = chunk_pos_ + size;
  }
  void* p = chunk_pos_;
  chunk_pos_ += bytes;
  return p;
}

std::size_t TermManager::find_slot(std::uint64_t hash, Symbol const* s, Term const* const* args,
                                   std::size_t n) const {
  std::size_t const mask = term_slots_.size() - 1;
  for (std::size_t i = static_cast<std::size_t>(hash >> term_shift_);; i = (i + 1) & mask) {
    TermSlot const& slot = term_slots_[i];
    if (slot.term == nullptr) {
      return i;
    }
    if (slot.hash == hash && slot.term->get_symbol() == s && slot.term->get_arity() == n &&
        std::equal(args, args + n, slot.term->args())) {
      return i;
    }
  }
}

void TermManager::grow_terms() {
  std::size_t const size = term_slots_.empty() ? 1024 : 2 * term_slots_.size();
  std::vector<TermSlot> slots(size, TermSlot{0, nullptr});
  unsigned shift = 64;
  for (std::size_t k = size; k > 1; k >>= 1) {
    --shift;
  }
  // Moved by their stored hashes: no term is read.
  for (TermSlot const& slot : term_slots_) {
    if (slot.term != nullptr) {
      std::size_t i = static_cast<std::size_t>(slot.hash >> shift);
      while (slots[i].term != nullptr) {
        i = (i + 1) & (size - 1);
      }
      slots[i] = slot;
    }
  }
  term_slots_.swap(slots);
  term_shift_ = shift;
  // Probes wrap with a mask and start at the hash's top bits: the size is a power of two.
  assert((size & (size - 1)) == 0 && (std::size_t{1} << (64 - shift)) == size);
}

Term const* TermManager::intern_term(Symbol const* s, Term const* const* args, std::size_t n) {
  assert(n == s->get_arity() && "a term has as many arguments as its symbol's arity");
  if (2 * (term_count_ + 1) > term_slots_.size()) {
    grow_terms();
  }
  // At most half the slots are full, so a probe always ends at an empty slot.
  assert(2 * (term_count_ + 1) <= term_slots_.size());
  std::uint64_t const hash = structural_hash(s, args, n);
  std::size_t const i = find_slot(hash, s, args, n);
  if (term_slots_[i].term != nullptr) {
    return term_slots_[i].term;
  }
  Term* t = new (allocate_term(sizeof(Term) + n * sizeof(Term const*))) Term(next_term_id_, s);
  std::copy(args, args + n, t->mutable_args());
  // Every argument exists before the term, so ids order a DAG's terms bottom-up.
  assert(std::all_of(args, args + n, [&](Term const* a) { return a->get_id() < next_term_id_; }));
  ++next_term_id_;
  term_slots_[i] = TermSlot{hash, t};
  ++term_count_;
  assert(t->get_id() == term_count_ && "term ids grow in creation order from 1");
  if (!var_sets_.empty()) {
    note_free_vars(t);
  }
  if (any_generic_) {
    bool generic = s->get_type()->has_params();
    for (std::size_t i = 0; i < n && !generic; ++i) {
      generic = has_params(args[i]);
    }
    if (generic) {
      std::size_t const id = static_cast<std::size_t>(t->get_id());
      if (generic_terms_.size() <= id) {
        generic_terms_.resize(std::max(2 * generic_terms_.size(), id + 1), false);
      }
      generic_terms_[id] = true;
    }
  }
  return t;
}

Term const* TermManager::make_algebraic(std::string const& text, std::string const& approximation) {
  auto it = algebraics_.find(text);
  if (it != algebraics_.end()) {
    return it->second;
  }
  DataType const* real = get_rational_type();
  symbols_.emplace_back(next_symbol_id_, 0, real, real, SymbolTag::ALGEBRAIC, text);
  ++next_symbol_id_;
  Symbol const* s = &symbols_.back();
  approximations_.emplace(s->get_id(), approximation);
  Term const* t = intern_term(s, nullptr, 0);
  algebraics_.emplace(text, t);
  return t;
}

std::string const& TermManager::algebraic_approximation(Symbol const* s) const {
  assert(s->get_tag() == SymbolTag::ALGEBRAIC && "an algebraic number's symbol");
  return approximations_.at(s->get_id());
}

// ---------------------------------------------------------------- binders

Term const* TermManager::make_variable(std::string const& name, DataType const* sort) {
  check_name(name, "variable");
  if (sort == nullptr || !owns(sort) || sort->is_function()) {
    throw Error("invalid variable '" + name +
                "': it needs a sort of this manager, not a "
                "function sort");
  }
  auto const key = std::make_pair(name, sort->get_id());
  auto it = variables_.find(key);
  if (it != variables_.end()) {
    return it->second;
  }
  if (var_sets_.empty()) {
    var_sets_.emplace_back();  // the empty set, index 0
    var_set_index_.emplace(std::vector<std::uint64_t>{}, 0);
  }
  Symbol const* s = new_uninterpreted_symbol(name, sort, false, SymbolTag::VARIABLE);
  Term const* t = intern_term(s, nullptr, 0);
  variables_.emplace(key, t);
  return t;
}

Term const* TermManager::make_forall(std::vector<Term const*> const& vars, Term const* body,
                                     BinderAttributes const& attributes) {
  return make_binder(SymbolTag::FORALL, vars, body, attributes);
}

Term const* TermManager::make_exists(std::vector<Term const*> const& vars, Term const* body,
                                     BinderAttributes const& attributes) {
  return make_binder(SymbolTag::EXISTS, vars, body, attributes);
}

BinderInfo const& TermManager::binder_info(Symbol const* binder) const {
  assert((binder->get_tag() == SymbolTag::FORALL || binder->get_tag() == SymbolTag::EXISTS) &&
         "a binder's symbol");
  return binder_infos_[static_cast<std::size_t>(binder->get_index(1))];
}

Term const* TermManager::make_binder_like(Symbol const* binder, Term const* const* args,
                                          std::size_t n) {
  BinderInfo const& info = binder_info(binder);
  assert(n == binder->get_arity() && "the binder's number of arguments");
  (void)n;
  BinderAttributes attributes;
  std::size_t k = info.num_vars + 1;
  for (std::size_t size : info.pattern_sizes) {
    attributes.patterns.emplace_back(args + k, args + k + size);
    k += size;
  }
  attributes.no_patterns.assign(args + k, args + k + info.num_no_patterns);
  attributes.qid = info.qid;
  attributes.skolemid = info.skolemid;
  attributes.weight = info.weight;
  std::vector<Term const*> const vars(args, args + info.num_vars);
  return make_binder(binder->get_tag(), vars, args[info.num_vars], attributes);
}

Term const* TermManager::make_binder(SymbolTag::tag tag, std::vector<Term const*> const& vars,
                                     Term const* body, BinderAttributes const& attributes) {
  char const* name = tag == SymbolTag::FORALL ? "forall" : "exists";
  auto fail = [&](std::string const& why) {
    throw Error(std::string("invalid ") + name + ": " + why);
  };
  if (vars.empty()) {
    fail("no variable to bind");
  }
  std::vector<Term const*> args;
  for (Term const* v : vars) {
    if (v == nullptr || !owns(v) || v->get_symbol()->get_tag() != SymbolTag::VARIABLE) {
      fail("a bound variable must be made by make_variable");
    }
    if (std::find(args.begin(), args.end(), v) != args.end()) {
      fail("the variable '" + v->get_symbol()->get_name() + "' is bound twice");
    }
    args.push_back(v);
  }
  if (body == nullptr || !owns(body) || !body->get_type()->is_bool()) {
    fail("the body must be a formula of this manager");
  }
  args.push_back(body);
  BinderInfo info;
  info.num_vars = vars.size();
  for (auto const& pattern : attributes.patterns) {
    if (pattern.empty()) {
      fail("a pattern needs at least one term");
    }
    info.pattern_sizes.push_back(pattern.size());
    args.insert(args.end(), pattern.begin(), pattern.end());
  }
  info.num_no_patterns = attributes.no_patterns.size();
  args.insert(args.end(), attributes.no_patterns.begin(), attributes.no_patterns.end());
  for (std::size_t i = vars.size() + 1; i < args.size(); ++i) {
    if (args[i] == nullptr || !owns(args[i])) {
      fail("a pattern's term must be a term of this manager");
    }
  }
  info.qid = attributes.qid;
  info.skolemid = attributes.skolemid;
  info.weight = attributes.weight < 0 ? -1 : attributes.weight;
  // Equal attributes are one entry, so that equal binders are one symbol and one term. The
  // names are written with their lengths, so that no two attribute sets share a key.
  std::string key = std::to_string(info.num_vars) + ' ' + std::to_string(info.num_no_patterns) +
                    ' ' + std::to_string(info.weight) + ' ' + std::to_string(info.qid.size()) +
                    ' ' + info.qid + ' ' + std::to_string(info.skolemid.size()) + ' ' +
                    info.skolemid;
  for (std::size_t size : info.pattern_sizes) {
    key += ' ' + std::to_string(size);
  }
  auto [slot, added] = binder_info_index_.try_emplace(key, binder_infos_.size());
  if (added) {
    binder_infos_.push_back(std::move(info));
  }
  std::vector<DataType const*> sorts;
  for (Term const* a : args) {
    sorts.push_back(a->get_type());
  }
  std::uint64_t const indices[2] = {vars.size(), slot->second};
  Symbol const* s =
      interpreted_symbol(tag, name, sorts.data(), sorts.size(), get_bool_type(), indices, 2);
  return intern_term(s, args.data(), args.size());
}

// A variable's set is itself; a binder's, its body's and patterns' less its own variables;
// any other term's, the union of its arguments'. Most terms have at most one argument with
// free variables, and take that argument's set as it is.
void TermManager::note_free_vars(Term const* t) {
  std::size_t const id = static_cast<std::size_t>(t->get_id());
  if (free_vars_of_.size() <= id) {
    free_vars_of_.resize(std::max(id + 1, 2 * free_vars_of_.size()), 0);
  }
  Symbol const* s = t->get_symbol();
  SymbolTag::tag const tag = s->get_tag();
  if (tag == SymbolTag::VARIABLE) {
    free_vars_of_[id] = intern_var_set({s->get_id()});
    return;
  }
  bool const binder = tag == SymbolTag::FORALL || tag == SymbolTag::EXISTS;
  std::size_t const first = binder ? binder_info(s).num_vars : 0;
  auto set_of = [this](Term const* a) {
    std::size_t const i = static_cast<std::size_t>(a->get_id());
    return i < free_vars_of_.size() ? free_vars_of_[i] : 0u;
  };
  std::uint32_t single = 0;
  bool several = false;
  for (std::size_t i = first, n = t->get_arity(); i < n; ++i) {
    std::uint32_t const f = set_of(t->get_arg(i));
    if (f != 0 && single != 0 && f != single) {
      several = true;
    } else if (f != 0) {
      single = f;
    }
  }
  if (single == 0 || (!binder && !several)) {
    free_vars_of_[id] = single;
    return;
  }
  std::vector<std::uint64_t> ids;
  for (std::size_t i = first, n = t->get_arity(); i < n; ++i) {
    std::vector<std::uint64_t> const& set = var_sets_[set_of(t->get_arg(i))];
    ids.insert(ids.end(), set.begin(), set.end());
  }
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  for (std::size_t i = 0; i < first; ++i) {
    std::uint64_t const v = t->get_arg(i)->get_symbol()->get_id();
    ids.erase(std::remove(ids.begin(), ids.end(), v), ids.end());
  }
  free_vars_of_[id] = intern_var_set(std::move(ids));
}

bool TermManager::is_closed_over(Term const* t, std::vector<Term const*> const& vars) const {
  std::size_t const id = static_cast<std::size_t>(t->get_id());
  if (id >= free_vars_of_.size()) {
    return true;
  }
  for (std::uint64_t v : var_sets_[free_vars_of_[id]]) {
    if (std::none_of(vars.begin(), vars.end(),
                     [v](Term const* x) { return x->get_symbol()->get_id() == v; })) {
      return false;
    }
  }
  return true;
}

std::uint32_t TermManager::intern_var_set(std::vector<std::uint64_t>&& ids) {
  auto [it, added] = var_set_index_.try_emplace(ids, static_cast<std::uint32_t>(var_sets_.size()));
  if (added) {
    var_sets_.push_back(std::move(ids));
  }
  return it->second;
}

Term const* TermManager::make_constant(Symbol const* s) {
  return make_term(s, nullptr, 0);
}

bool TermManager::owns(DataType const* t) const {
  return t != nullptr && t->get_id() >= 1 && t->get_id() <= types_.size() &&
         &types_[t->get_id() - 1] == t;
}

bool TermManager::owns(Symbol const* s) const {
  return s != nullptr && s->get_id() >= 1 && s->get_id() <= symbols_.size() &&
         &symbols_[s->get_id() - 1] == s;
}

bool TermManager::owns(Term const* t) const {
  if (t == nullptr || !owns(t->get_symbol())) {
    return false;
  }
  if (term_slots_.empty()) {
    return false;
  }
  std::size_t const n = t->get_arity();
  std::uint64_t const hash = structural_hash(t->get_symbol(), t->args(), n);
  return term_slots_[find_slot(hash, t->get_symbol(), t->args(), n)].term == t;
}

}  // namespace tvx
