#include <tvx/core/term_manager.h>

#include <algorithm>
#include <cstring>
#include <new>
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
using optable::num_indices_of;
using optable::OpInfo;
using optable::Sig;

namespace {

// Names of theories the term layer does not model (strings, sequences, regular expressions,
// floating point, sets, bags, relations, separation logic, transcendentals, conversions between
// integers and bit-vectors, ...). Solvers that know such a theory refuse a declaration of one of
// its names, so printers never write a user name of this kind as it is. Function names go by
// their theory's prefix or by the whole name; sort names by the whole name.
constexpr std::string_view kForeignPrefixes[] = {"bag.",      "char.", "ff.",   "fp.",    "int.",
                                                 "nullable.", "re.",   "real.", "rel.",   "sep.",
                                                 "seq.",      "set.",  "str.",  "table.", "tuple."};
// clang-format off
constexpr std::string_view kForeignFunctions[] = {
    "+oo", "+zero", "-oo", "-zero", "NaN", "RNA", "RNE", "RTN", "RTP", "RTZ",
    "arccos", "arccot", "arccsc", "arcsec", "arcsin", "arctan", "bag", "bv2int", "bv2nat",
    "bvite", "bvnego", "bvredand", "bvredor", "bvsaddo", "bvsdivo", "bvsmulo", "bvssubo", "bvuaddo",
    "bvumulo", "bvusubo", "char", "cos", "cot", "csc", "exp", "fp", "iand", "int2bv",
    "int_to_bv", "nat2bv", "pto", "roundNearestTiesToAway", "roundNearestTiesToEven",
    "roundTowardNegative", "roundTowardPositive", "roundTowardZero", "sbv_to_int", "sec", "sep",
    "sin", "sqrt", "tan", "to_fp", "to_fp_unsigned", "to_int_bv", "tuple", "ubv_to_int", "wand"};
// clang-format on
constexpr std::string_view kForeignSorts[] = {
    "Bag",           "Char",     "FiniteField", "Float128", "Float16",      "Float32", "Float64",
    "FloatingPoint", "Nullable", "RegLan",      "Relation", "RoundingMode", "Seq",     "Set",
    "String",        "Table",    "Tuple",       "Unicode",  "UnitTuple"};

[[noreturn]] void fail_application(std::string const& op, Term const* const* args, std::size_t n,
                                   std::uint64_t const* indices, std::size_t num_indices,
                                   std::string const& why) {
  std::ostringstream msg;
  msg << "invalid application of '";
  if (num_indices > 0) {
    msg << "(_ " << op;
    for (std::size_t i = 0; i < num_indices; ++i) {
      msg << ' ' << indices[i];
    }
    msg << ')';
  } else {
    msg << op;
  }
  msg << "' to (";
  for (std::size_t i = 0; i < n; ++i) {
    msg << (i ? " " : "") << args[i]->get_type()->to_string();
  }
  msg << "): " << why;
  throw Error(msg.str());
}

std::string strip_leading_zeros(std::string const& digits) {
  std::size_t i = 0;
  while (i + 1 < digits.size() && digits[i] == '0') {
    ++i;
  }
  return digits.substr(i);
}

bool fits_u64(std::string const& digits) {
  return digits.size() < 20 || (digits.size() == 20 && digits <= "18446744073709551615");
}

std::uint64_t gcd(std::uint64_t a, std::uint64_t b) {
  while (b != 0) {
    std::uint64_t r = a % b;
    a = b;
    b = r;
  }
  return a;
}

// The bits of a non-negative decimal modulo 2^width, most significant first.
std::string decimal_to_bits(std::string const& digits, std::uint64_t width) {
  // Base-10^9 limbs, most significant first; divided by 2 repeatedly until zero or `width`
  // bits have been produced.
  std::vector<std::uint32_t> limbs;
  std::size_t first = digits.size() % 9;
  if (first != 0) {
    limbs.push_back(static_cast<std::uint32_t>(std::stoul(digits.substr(0, first))));
  }
  for (std::size_t i = first; i < digits.size(); i += 9) {
    limbs.push_back(static_cast<std::uint32_t>(std::stoul(digits.substr(i, 9))));
  }
  std::string bits(width, '0');
  std::size_t start = 0;
  for (std::uint64_t k = 0; k < width; ++k) {
    while (start < limbs.size() && limbs[start] == 0) {
      ++start;
    }
    if (start == limbs.size()) {
      break;
    }
    std::uint64_t rem = 0;
    for (std::size_t i = start; i < limbs.size(); ++i) {
      std::uint64_t cur = rem * 1000000000ULL + limbs[i];
      limbs[i] = static_cast<std::uint32_t>(cur / 2);
      rem = cur % 2;
    }
    bits[width - 1 - k] = rem ? '1' : '0';
  }
  return bits;
}

[[noreturn]] void fail_number(std::string const& value, DataType const* type,
                              std::string const& why) {
  throw Error("invalid numeral '" + value + "' of sort " + type->to_string() + ": " + why);
}

// Canonical value text of a numeral of an arithmetic sort.
std::string canonical_arith(std::string const& value, DataType const* type) {
  bool const negative = !value.empty() && value[0] == '-';
  std::size_t const start = negative ? 1 : 0;
  std::size_t const dot = value.find('.');
  std::size_t const slash = value.find('/');
  std::string body;
  if (dot == std::string::npos && slash == std::string::npos) {
    if (!str::all_digits(value, start, value.size())) {
      fail_number(value, type, "expected digits");
    }
    body = strip_leading_zeros(value.substr(start));
  } else if (type->is_int()) {
    fail_number(value, type, "an integer takes no fraction");
  } else if (slash == std::string::npos) {
    if (!str::all_digits(value, start, dot) || !str::all_digits(value, dot + 1, value.size())) {
      fail_number(value, type, "expected a decimal");
    }
    std::string whole = strip_leading_zeros(value.substr(start, dot - start));
    std::string frac = value.substr(dot + 1);
    while (!frac.empty() && frac.back() == '0') {
      frac.pop_back();
    }
    body = frac.empty() ? whole : whole + "." + frac;
  } else {
    if (!str::all_digits(value, start, slash) || !str::all_digits(value, slash + 1, value.size())) {
      fail_number(value, type, "expected a rational n/d");
    }
    std::string num = strip_leading_zeros(value.substr(start, slash - start));
    std::string den = strip_leading_zeros(value.substr(slash + 1));
    if (den == "0") {
      fail_number(value, type, "zero denominator");
    }
    if (fits_u64(num) && fits_u64(den)) {
      std::uint64_t n = std::stoull(num);
      std::uint64_t d = std::stoull(den);
      std::uint64_t g = gcd(n, d);
      if (g > 1) {
        n /= g;
        d /= g;
      }
      num = std::to_string(n);
      den = std::to_string(d);
    }
    body = den == "1" ? num : num + "/" + den;
  }
  bool const zero = body == "0";
  return (negative && !zero) ? "-" + body : body;
}

std::string canonical_bv(std::string const& value, DataType const* type) {
  std::uint64_t const width = type->get_bv_width();
  if (value.size() > 2 && value[0] == '#' && value[1] == 'b') {
    if (value.size() - 2 != width) {
      fail_number(value, type, "the number of binary digits differs from the width");
    }
    for (std::size_t i = 2; i < value.size(); ++i) {
      if (value[i] != '0' && value[i] != '1') {
        fail_number(value, type, "expected binary digits");
      }
    }
    return value;
  }
  if (value.size() > 2 && value[0] == '#' && value[1] == 'x') {
    if ((value.size() - 2) * 4 != width) {
      fail_number(value, type, "four bits per hexadecimal digit must give the width");
    }
    static constexpr char const* kNibbles[16] = {"0000", "0001", "0010", "0011", "0100", "0101",
                                                 "0110", "0111", "1000", "1001", "1010", "1011",
                                                 "1100", "1101", "1110", "1111"};
    std::string bits = "#b";
    for (std::size_t i = 2; i < value.size(); ++i) {
      char c = value[i];
      int v;
      if (c >= '0' && c <= '9') {
        v = c - '0';
      } else if (c >= 'a' && c <= 'f') {
        v = c - 'a' + 10;
      } else if (c >= 'A' && c <= 'F') {
        v = c - 'A' + 10;
      } else {
        fail_number(value, type, "expected hexadecimal digits");
      }
      bits += kNibbles[v];
    }
    return bits;
  }
  if (!str::all_digits(value, 0, value.size())) {
    fail_number(value, type, "expected a non-negative decimal, #b or #x");
  }
  // Beyond this many digits the conversion would take too long to be worth it.
  if (value.size() > 100000) {
    fail_number(value, type, "decimal value too long");
  }
  return "#b" + decimal_to_bits(value, width);
}

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

std::uint64_t TermManager::StructuralHash::operator()(Term const* t) const {
  // Hashes the symbol and argument addresses, not their ids, so that hashing a term reads
  // nothing but the term itself. The table's layout never reaches any output.
  std::uint64_t h = reinterpret_cast<std::uintptr_t>(t->get_symbol()) * 0x9E3779B97F4A7C15ULL;
  Term const* const* args = t->args();
  for (std::size_t i = 0, n = t->get_arity(); i < n; ++i) {
    h = (h ^ reinterpret_cast<std::uintptr_t>(args[i])) * 0xFF51AFD7ED558CCDULL;
    h ^= h >> 32;
  }
  return h ^ (h >> 29);
}

bool TermManager::StructuralEqual::operator()(Term const* a, Term const* b) const {
  if (a->get_symbol() != b->get_symbol()) {
    return false;
  }
  std::size_t const n = a->get_arity();
  return n == 0 || std::memcmp(a->args(), b->args(), n * sizeof(Term const*)) == 0;
}

TermManager::TermManager() {
  bool_type_ = intern_type(DataType::Kind::Bool, "Bool", 0, {});
  int_type_ = intern_type(DataType::Kind::Int, "Int", 0, {});
  real_type_ = intern_type(DataType::Kind::Real, "Real", 0, {});
}

TermManager::~TermManager() = default;

// ---------------------------------------------------------------- sorts

DataType const* TermManager::intern_type(DataType::Kind kind, std::string name, std::uint64_t width,
                                         std::vector<DataType const*> components) {
  types_.emplace_back(next_type_id_++, kind, std::move(name), width, std::move(components));
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
  if (index == nullptr || element == nullptr || index->is_function() || element->is_function()) {
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
  if (result == nullptr || result->is_function()) {
    throw Error("invalid function sort: the result must be a sort");
  }
  if (args.empty()) {
    return result;
  }
  std::vector<std::uint64_t> key{static_cast<std::uint64_t>(DataType::Kind::Function)};
  key.reserve(args.size() + 2);
  for (DataType const* a : args) {
    if (a == nullptr || a->is_function()) {
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
    t = intern_type(DataType::Kind::Uninterpreted, name, 0, {});
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

// ---------------------------------------------------------------- symbols

Symbol const* TermManager::make_symbol(std::string const& name, DataType const* type) {
  check_name(name, "symbol");
  if (type == nullptr) {
    throw Error("invalid symbol '" + name + "': no sort given");
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
                                                    bool user) {
  auto const own = symbol_names_.try_emplace(name).first;
  auto const printed = choose_printed_name(symbol_names_, own, is_foreign_theory_name(name, false));
  std::uint64_t const id = next_symbol_id_;
  if (*printed.first != name) {
    renamed_symbols_.emplace(id, printed.first);
  }
  std::uint64_t const arity = type->is_function() ? type->get_num_components() - 1 : 0;
  DataType const* output = type->is_function() ? type->get_function_result() : type;
  try {
    symbols_.emplace_back(id, arity, type, output, SymbolTag::UNINTERPRETED, name);
  } catch (...) {
    renamed_symbols_.erase(id);
    throw;
  }
  ++next_symbol_id_;
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
  symbols_.emplace_back(next_symbol_id_++, n, type, result, tag, name, num_indices, indices);
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

Term const* TermManager::intern_term(Symbol const* s, Term const* const* args, std::size_t n) {
  // Look the structure up through a probe term in scratch storage, so that nothing is
  // allocated for a term that exists already.
  probe_.resize(2 + n);
  Term* probe = new (probe_.data()) Term(0, s);
  std::copy(args, args + n, probe->mutable_args());
  std::size_t const bytes = sizeof(Term) + n * sizeof(Term const*);
  auto result = terms_.find_or_insert(probe, [&]() -> Term const* {
    Term* t = new (allocate_term(bytes)) Term(next_term_id_, s);
    std::copy(args, args + n, t->mutable_args());
    ++next_term_id_;
    return t;
  });
  return *result.first;
}

Term const* TermManager::make_constant(Symbol const* s) {
  return make_term(s, nullptr, 0);
}

Term const* TermManager::make_term(Symbol const* s, std::vector<Term const*> const& args) {
  return make_term(s, args.data(), args.size());
}

Term const* TermManager::make_term(Symbol const* s, Term const* const* args, std::size_t n) {
  if (s == nullptr) {
    throw Error("invalid application: no symbol");
  }
  for (std::size_t i = 0; i < n; ++i) {
    if (args[i] == nullptr) {
      throw Error("invalid application of '" + s->get_name() + "': null argument");
    }
  }
  if (s->get_arity() != n) {
    fail_application(s->get_name(), args, n, nullptr, 0,
                     "expected " + std::to_string(s->get_arity()) + " argument(s)");
  }
  if (n > 0) {
    DataType const* type = s->get_type();
    for (std::size_t i = 0; i < n; ++i) {
      if (args[i]->get_type() != type->get_component(i)) {
        fail_application(s->get_name(), args, n, nullptr, 0,
                         "argument " + std::to_string(i + 1) + " must be of sort " +
                             type->get_component(i)->to_string());
      }
    }
  }
  return intern_term(s, args, n);
}

Term const* TermManager::make_true() {
  return make_builtin("true", nullptr, 0);
}
Term const* TermManager::make_false() {
  return make_builtin("false", nullptr, 0);
}
Term const* TermManager::make_not(Term const* t) {
  return make_builtin("not", &t, 1);
}
Term const* TermManager::make_and(Term const* a, Term const* b) {
  Term const* args[2] = {a, b};
  return make_builtin("and", args, 2);
}
Term const* TermManager::make_or(Term const* a, Term const* b) {
  Term const* args[2] = {a, b};
  return make_builtin("or", args, 2);
}
Term const* TermManager::make_equal(Term const* a, Term const* b) {
  Term const* args[2] = {a, b};
  return make_builtin("=", args, 2);
}
Term const* TermManager::make_ite(Term const* c, Term const* a, Term const* b) {
  Term const* args[3] = {c, a, b};
  return make_builtin("ite", args, 3);
}

Term const* TermManager::make_number(std::string const& value, DataType const* type) {
  if (type == nullptr) {
    throw Error("invalid numeral '" + value + "': no sort given");
  }
  std::string text;
  if (type->is_int() || type->is_real()) {
    text = canonical_arith(value, type);
  } else if (type->is_bv()) {
    text = canonical_bv(value, type);
  } else {
    fail_number(value, type, "numerals are Int, Real or bit-vector values");
  }
  auto key = std::make_pair(type->get_id(), text);
  auto it = numerals_.find(key);
  Symbol const* s;
  if (it != numerals_.end()) {
    s = it->second;
  } else {
    symbols_.emplace_back(next_symbol_id_++, 0, type, type, SymbolTag::NUMERAL, text);
    s = &symbols_.back();
    numerals_.emplace(std::move(key), s);
  }
  return intern_term(s, nullptr, 0);
}

Term const* TermManager::make_builtin(std::string const& op, std::vector<Term const*> const& args,
                                      std::vector<std::uint64_t> const& indices) {
  return make_builtin(op, args.data(), args.size(), indices.data(), indices.size());
}

Term const* TermManager::make_builtin(std::string const& op, Term const* const* args, std::size_t n,
                                      std::uint64_t const* indices, std::size_t num_indices) {
  OpInfo const* info = find_op(op);
  if (info == nullptr) {
    throw Error("unknown operator '" + op + "'");
  }
  return make_builtin(info->tag, args, n, indices, num_indices);
}

Term const* TermManager::make_builtin(SymbolTag::tag tag, std::vector<Term const*> const& args,
                                      std::vector<std::uint64_t> const& indices) {
  return make_builtin(tag, args.data(), args.size(), indices.data(), indices.size());
}

Term const* TermManager::make_builtin(SymbolTag::tag op_tag, Term const* const* args, std::size_t n,
                                      std::uint64_t const* indices, std::size_t num_indices) {
  OpInfo const* info = optable::op_of_tag(op_tag);
  if (info == nullptr) {
    throw Error("make_builtin: tag " + std::to_string(op_tag) + " is not an operator of the table");
  }
  if (op_tag == SymbolTag::NEG) {
    info = optable::op_of_tag(SymbolTag::SUB);  // "-" of one argument
  }
  char const* const op = info->name;
  for (std::size_t i = 0; i < n; ++i) {
    if (args[i] == nullptr) {
      throw Error(std::string("invalid application of '") + op + "': null argument");
    }
  }
  auto fail = [&](std::string const& why) {
    fail_application(op, args, n, indices, num_indices, why);
  };
  if (num_indices != num_indices_of(info->sig)) {
    fail("expected " + std::to_string(num_indices_of(info->sig)) + " index(es), got " +
         std::to_string(num_indices));
  }
  auto arity = [&](std::size_t expected) {
    if (n != expected) {
      fail("expected " + std::to_string(expected) + " argument(s)");
    }
  };
  auto at_least = [&](std::size_t expected) {
    if (n < expected) {
      fail("expected at least " + std::to_string(expected) + " arguments");
    }
  };
  auto all_of_sort = [&](DataType const* sort, char const* what) {
    for (std::size_t i = 0; i < n; ++i) {
      if (args[i]->get_type() != sort) {
        fail(std::string("expected ") + what);
      }
    }
  };
  auto same_arith = [&]() -> DataType const* {
    DataType const* sort = args[0]->get_type();
    if (!sort->is_int() && !sort->is_real()) {
      fail("expected Int or Real arguments");
    }
    all_of_sort(sort, "arguments of one sort, Int or Real");
    return sort;
  };
  auto same_bv = [&]() -> DataType const* {
    DataType const* sort = args[0]->get_type();
    if (!sort->is_bv()) {
      fail("expected bit-vector arguments");
    }
    all_of_sort(sort, "bit-vector arguments of one width");
    return sort;
  };

  SymbolTag::tag tag = info->tag;
  DataType const* result = nullptr;
  switch (info->sig) {
    case Sig::Const:
      arity(0);
      result = bool_type_;
      break;
    case Sig::BoolUnary:
      arity(1);
      all_of_sort(bool_type_, "a Bool argument");
      result = bool_type_;
      break;
    case Sig::BoolNary:
      at_least(2);
      all_of_sort(bool_type_, "Bool arguments");
      result = bool_type_;
      break;
    case Sig::Chain:
      at_least(2);
      if (args[0]->get_type()->is_function()) {
        fail("expected sorted arguments");
      }
      all_of_sort(args[0]->get_type(), "arguments of one sort");
      result = bool_type_;
      break;
    case Sig::Ite:
      arity(3);
      if (args[0]->get_type() != bool_type_) {
        fail("expected a Bool condition");
      }
      if (args[1]->get_type() != args[2]->get_type()) {
        fail("expected two branches of one sort");
      }
      result = args[1]->get_type();
      break;
    case Sig::ArithNary:
      at_least(2);
      result = same_arith();
      break;
    case Sig::Minus:
      at_least(1);
      result = same_arith();
      if (n == 1) {
        tag = SymbolTag::NEG;
      }
      break;
    case Sig::RealNary:
      at_least(2);
      all_of_sort(real_type_, "Real arguments");
      result = real_type_;
      break;
    case Sig::IntNary:
      at_least(2);
      all_of_sort(int_type_, "Int arguments");
      result = int_type_;
      break;
    case Sig::IntBinary:
      arity(2);
      all_of_sort(int_type_, "Int arguments");
      result = int_type_;
      break;
    case Sig::IntUnary:
      arity(1);
      all_of_sort(int_type_, "an Int argument");
      result = int_type_;
      break;
    case Sig::ArithChain:
      at_least(2);
      same_arith();
      result = bool_type_;
      break;
    case Sig::ToReal:
      arity(1);
      all_of_sort(int_type_, "an Int argument");
      result = real_type_;
      break;
    case Sig::ToInt:
      arity(1);
      all_of_sort(real_type_, "a Real argument");
      result = int_type_;
      break;
    case Sig::IsInt:
      arity(1);
      all_of_sort(real_type_, "a Real argument");
      result = bool_type_;
      break;
    case Sig::Concat: {
      at_least(2);
      std::uint64_t width = 0;
      for (std::size_t i = 0; i < n; ++i) {
        if (!args[i]->get_type()->is_bv()) {
          fail("expected bit-vector arguments");
        }
        width += args[i]->get_type()->get_bv_width();
      }
      if (width > kMaxBvWidth) {
        fail("the result is too wide");
      }
      result = get_bv_type(width);
      break;
    }
    case Sig::Extract: {
      arity(1);
      std::uint64_t const m = same_bv()->get_bv_width();
      if (!(indices[0] < m && indices[1] <= indices[0])) {
        fail("expected indices i j with width > i >= j");
      }
      result = get_bv_type(indices[0] - indices[1] + 1);
      break;
    }
    case Sig::Repeat: {
      arity(1);
      std::uint64_t const m = same_bv()->get_bv_width();
      if (indices[0] == 0 || indices[0] > kMaxBvWidth / m) {
        fail("expected a repeat count of at least 1 within the widest sort");
      }
      result = get_bv_type(m * indices[0]);
      break;
    }
    case Sig::Extend: {
      arity(1);
      std::uint64_t const m = same_bv()->get_bv_width();
      if (indices[0] > kMaxBvWidth - m) {
        fail("the result is too wide");
      }
      result = get_bv_type(m + indices[0]);
      break;
    }
    case Sig::Rotate:
      arity(1);
      result = same_bv();
      break;
    case Sig::BvUnary:
      arity(1);
      result = same_bv();
      break;
    case Sig::BvNary:
      at_least(2);
      result = same_bv();
      break;
    case Sig::BvBinary:
      arity(2);
      result = same_bv();
      break;
    case Sig::BvComp:
      arity(2);
      same_bv();
      result = get_bv_type(1);
      break;
    case Sig::BvPred:
      arity(2);
      same_bv();
      result = bool_type_;
      break;
    case Sig::Select: {
      arity(2);
      DataType const* a = args[0]->get_type();
      if (!a->is_array()) {
        fail("expected an array first");
      }
      if (args[1]->get_type() != a->get_array_index()) {
        fail("expected an index of sort " + a->get_array_index()->to_string());
      }
      result = a->get_array_element();
      break;
    }
    case Sig::Store: {
      arity(3);
      DataType const* a = args[0]->get_type();
      if (!a->is_array()) {
        fail("expected an array first");
      }
      if (args[1]->get_type() != a->get_array_index()) {
        fail("expected an index of sort " + a->get_array_index()->to_string());
      }
      if (args[2]->get_type() != a->get_array_element()) {
        fail("expected an element of sort " + a->get_array_element()->to_string());
      }
      result = a;
      break;
    }
  }

  // One symbol per operator and signature; the argument sorts are the signature.
  arg_types_scratch_.clear();
  for (std::size_t i = 0; i < n; ++i) {
    arg_types_scratch_.push_back(args[i]->get_type());
  }
  Symbol const* s = interpreted_symbol(tag, info->name, arg_types_scratch_.data(), n, result,
                                       indices, num_indices);
  return intern_term(s, args, n);
}

Term const* TermManager::make_const_array(DataType const* array_sort, Term const* value) {
  if (array_sort == nullptr || !array_sort->is_array()) {
    throw Error("invalid constant array: " +
                (array_sort == nullptr ? std::string("no sort given")
                                       : "the sort " + array_sort->to_string() + " is no array"));
  }
  if (value == nullptr || value->get_type() != array_sort->get_array_element()) {
    throw Error("invalid constant array of sort " + array_sort->to_string() +
                ": expected an element of sort " + array_sort->get_array_element()->to_string());
  }
  DataType const* element = array_sort->get_array_element();
  Symbol const* s =
      interpreted_symbol(SymbolTag::CONST_ARRAY, "const", &element, 1, array_sort, nullptr, 0);
  return intern_term(s, &value, 1);
}

Term const* TermManager::make_abstract_value(DataType const* sort, std::uint64_t index) {
  if (sort == nullptr || !sort->is_uninterpreted()) {
    throw Error("invalid abstract value: " +
                (sort == nullptr ? std::string("no sort given")
                                 : "the sort " + sort->to_string() + " is not uninterpreted"));
  }
  auto key = std::make_pair(sort->get_id(), index);
  auto it = abstract_values_.find(key);
  if (it != abstract_values_.end()) {
    return it->second;
  }
  Symbol const* s =
      new_uninterpreted_symbol(sort->get_name() + "!val!" + std::to_string(index), sort, false);
  Term const* t = intern_term(s, nullptr, 0);
  abstract_values_.emplace(key, t);
  return t;
}

// Sorts and symbols sit in their deques in id order; a term is its manager's exactly when the
// hash-consing table holds that very term.
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
  auto found = terms_.find(t);
  return found != terms_.end() && *found == t;
}

}  // namespace tvx
