// The term manager's applications, their sorts checked: of declared functions, and of the
// operators of the operator table; numerals in canonical form, constant arrays and abstract
// values of uninterpreted sorts.
#include <tvx/core/term_manager.h>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <gmp.h>

#include <tvx/support/str.h>
#include "core/operator_table.h"

namespace tvx {

using optable::find_op;
using optable::num_indices_of;
using optable::OpInfo;
using optable::Sig;

namespace {

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

// Divides the decimals num and den (den not 0) by their greatest common divisor, so that
// equal rationals have one text. Machine words when both fit, GMP's integers otherwise.
void reduce_fraction(std::string& num, std::string& den) {
  if (fits_u64(num) && fits_u64(den)) {
    std::uint64_t n = std::stoull(num);
    std::uint64_t d = std::stoull(den);
    std::uint64_t const g = gcd(n, d);
    if (g > 1) {
      num = std::to_string(n / g);
      den = std::to_string(d / g);
    }
    return;
  }
  mpz_t n;
  mpz_t d;
  mpz_t g;
  mpz_init_set_str(n, num.c_str(), 10);
  mpz_init_set_str(d, den.c_str(), 10);
  mpz_init(g);
  mpz_gcd(g, n, d);
  if (mpz_cmp_ui(g, 1) > 0) {
    mpz_divexact(n, n, g);
    mpz_divexact(d, d, g);
    auto text = [](mpz_t const x) {
      std::string out(mpz_sizeinbase(x, 10) + 1, '\0');
      mpz_get_str(&out[0], 10, x);
      out.resize(std::strlen(out.c_str()));
      return out;
    };
    num = text(n);
    den = text(d);
  }
  mpz_clear(g);
  mpz_clear(d);
  mpz_clear(n);
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
    reduce_fraction(num, den);
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

}  // namespace

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

}  // namespace tvx
