// The term manager's applications, their sorts checked: of declared functions, and of the
// operators of the operator table; numerals in canonical form, constant arrays and abstract
// values of uninterpreted sorts.
#include <tvx/core/term_manager.h>

#include <algorithm>
#include <cassert>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <gmp.h>

#include <tvx/support/str.h>
#include "core/arith_args.h"
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

}  // namespace

// Machine words when both fit, GMP's integers otherwise.
void reduce_rational(std::string& num, std::string& den) {
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

namespace {

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
    reduce_rational(num, den);
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

// One application of an operator being checked against its signature: its arguments and
// indices, the sorts the checks compare with, and the error that names them all.
struct Application {
  char const* op;
  Term const* const* args;
  std::size_t n;
  std::uint64_t const* indices;
  std::size_t num_indices;
  DataType const* bool_type;
  DataType const* int_type;
  DataType const* real_type;

  [[noreturn]] void fail(std::string const& why) const {
    fail_application(op, args, n, indices, num_indices, why);
  }
  DataType const* sort(std::size_t i) const { return args[i]->get_type(); }
  void arity(std::size_t expected) const {
    if (n != expected) {
      fail("expected " + std::to_string(expected) + " argument(s)");
    }
  }
  void at_least(std::size_t expected) const {
    if (n < expected) {
      fail("expected at least " + std::to_string(expected) + " arguments");
    }
  }
  void all_of_sort(DataType const* expected, char const* what) const {
    for (std::size_t i = 0; i < n; ++i) {
      if (args[i]->get_type() != expected) {
        fail(std::string("expected ") + what);
      }
    }
  }
  DataType const* same_arith() const {
    DataType const* s = sort(0);
    if (!s->is_int() && !s->is_real()) {
      fail("expected Int or Real arguments");
    }
    all_of_sort(s, "arguments of one sort, Int or Real");
    return s;
  }
  DataType const* same_bv() const {
    DataType const* s = sort(0);
    if (!s->is_bv()) {
      fail("expected bit-vector arguments");
    }
    all_of_sort(s, "bit-vector arguments of one width");
    return s;
  }
  // `count` arguments, all of sort `expected`; the result sort is `result`.
  DataType const* fixed(std::size_t count, DataType const* expected, char const* what,
                        DataType const* result) const {
    arity(count);
    all_of_sort(expected, what);
    return result;
  }
};

// The result sort of an application of a core operator: the Boolean connectives, the chains
// (=, distinct) and ite.
DataType const* core_result(Sig sig, Application const& app) {
  switch (sig) {
    case Sig::Const:
      app.arity(0);
      return app.bool_type;
    case Sig::BoolUnary:
      return app.fixed(1, app.bool_type, "a Bool argument", app.bool_type);
    case Sig::BoolNary:
      app.at_least(2);
      app.all_of_sort(app.bool_type, "Bool arguments");
      return app.bool_type;
    case Sig::Chain:
      app.at_least(2);
      if (app.sort(0)->is_function()) {
        app.fail("expected sorted arguments");
      }
      app.all_of_sort(app.sort(0), "arguments of one sort");
      return app.bool_type;
    default:  // Sig::Ite
      app.arity(3);
      if (app.sort(0) != app.bool_type) {
        app.fail("expected a Bool condition");
      }
      if (app.sort(1) != app.sort(2)) {
        app.fail("expected two branches of one sort");
      }
      return app.sort(1);
  }
}

// The result sort of an application of an arithmetic operator.
DataType const* arith_result(Sig sig, Application const& app) {
  switch (sig) {
    case Sig::ArithNary:
      app.at_least(2);
      return app.same_arith();
    case Sig::Minus:
      app.at_least(1);
      return app.same_arith();
    case Sig::RealNary:
      app.at_least(2);
      app.all_of_sort(app.real_type, "Real arguments");
      return app.real_type;
    case Sig::IntNary:
      app.at_least(2);
      app.all_of_sort(app.int_type, "Int arguments");
      return app.int_type;
    case Sig::IntBinary:
      return app.fixed(2, app.int_type, "Int arguments", app.int_type);
    case Sig::IntUnary:
      return app.fixed(1, app.int_type, "an Int argument", app.int_type);
    case Sig::ArithChain:
      app.at_least(2);
      app.same_arith();
      return app.bool_type;
    case Sig::ToReal:
      return app.fixed(1, app.int_type, "an Int argument", app.real_type);
    case Sig::ToInt:
      return app.fixed(1, app.real_type, "a Real argument", app.int_type);
    default:  // Sig::IsInt
      return app.fixed(1, app.real_type, "a Real argument", app.bool_type);
  }
}

// The width of a concatenation's result.
std::uint64_t concat_width(Application const& app) {
  app.at_least(2);
  std::uint64_t width = 0;
  for (std::size_t i = 0; i < app.n; ++i) {
    if (!app.sort(i)->is_bv()) {
      app.fail("expected bit-vector arguments");
    }
    width += app.sort(i)->get_bv_width();
  }
  if (width > TermManager::kMaxBvWidth) {
    app.fail("the result is too wide");
  }
  return width;
}

// The result width of an indexed bit-vector operator (extract, repeat, the extensions) over
// one argument of width m.
std::uint64_t indexed_width(Sig sig, Application const& app, std::uint64_t m) {
  std::uint64_t const* idx = app.indices;
  switch (sig) {
    case Sig::Extract:
      if (!(idx[0] < m && idx[1] <= idx[0])) {
        app.fail("expected indices i j with width > i >= j");
      }
      return idx[0] - idx[1] + 1;
    case Sig::Repeat:
      if (idx[0] == 0 || idx[0] > TermManager::kMaxBvWidth / m) {
        app.fail("expected a repeat count of at least 1 within the widest sort");
      }
      return m * idx[0];
    default:  // Sig::Extend
      if (idx[0] > TermManager::kMaxBvWidth - m) {
        app.fail("the result is too wide");
      }
      return m + idx[0];
  }
}

// The result sort of an application of a bit-vector operator.
DataType const* bv_result(Sig sig, Application const& app, TermManager& mgr) {
  switch (sig) {
    case Sig::Concat:
      return mgr.get_bv_type(concat_width(app));
    case Sig::Extract:
    case Sig::Repeat:
    case Sig::Extend:
      app.arity(1);
      return mgr.get_bv_type(indexed_width(sig, app, app.same_bv()->get_bv_width()));
    case Sig::Rotate:
    case Sig::BvUnary:
      app.arity(1);
      return app.same_bv();
    case Sig::BvNary:
      app.at_least(2);
      return app.same_bv();
    case Sig::BvBinary:
      app.arity(2);
      return app.same_bv();
    case Sig::BvComp:
      app.arity(2);
      app.same_bv();
      return mgr.get_bv_type(1);
    case Sig::BvToNat:
      app.arity(1);
      app.same_bv();
      return app.int_type;
    case Sig::IntToBv:
      app.arity(1);
      app.all_of_sort(app.int_type, "an Int argument");
      if (app.indices[0] == 0 || app.indices[0] > TermManager::kMaxBvWidth) {
        app.fail("expected a width between 1 and " + std::to_string(TermManager::kMaxBvWidth));
      }
      return mgr.get_bv_type(app.indices[0]);
    default:  // Sig::BvPred
      app.arity(2);
      app.same_bv();
      return app.bool_type;
  }
}

// The result sort of select or store.
DataType const* array_result(Sig sig, Application const& app) {
  app.arity(sig == Sig::Select ? 2 : 3);
  DataType const* a = app.sort(0);
  if (!a->is_array()) {
    app.fail("expected an array first");
  }
  if (app.sort(1) != a->get_array_index()) {
    app.fail("expected an index of sort " + a->get_array_index()->to_string());
  }
  if (sig == Sig::Select) {
    return a->get_array_element();
  }
  if (app.sort(2) != a->get_array_element()) {
    app.fail("expected an element of sort " + a->get_array_element()->to_string());
  }
  return a;
}

}  // namespace

Term const* TermManager::make_term(Symbol const* s, std::vector<Term const*> const& args) {
  return make_term(s, args.data(), args.size());
}

Term const* TermManager::make_term(Symbol const* s, Term const* const* args, std::size_t n) {
  if (s == nullptr) {
    throw Error("invalid application: no symbol");
  }
  if (s->get_tag() == SymbolTag::FORALL || s->get_tag() == SymbolTag::EXISTS) {
    throw Error("invalid application of '" + s->get_name() + "': binders are made by " +
                (s->get_tag() == SymbolTag::FORALL ? "make_forall" : "make_exists"));
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
  return make_builtin(SymbolTag::TRUE, nullptr, 0);
}
Term const* TermManager::make_false() {
  return make_builtin(SymbolTag::FALSE, nullptr, 0);
}
Term const* TermManager::make_not(Term const* t) {
  return make_builtin(SymbolTag::NOT, &t, 1);
}
Term const* TermManager::make_and(Term const* a, Term const* b) {
  Term const* args[2] = {a, b};
  return make_builtin(SymbolTag::AND, args, 2);
}
Term const* TermManager::make_or(Term const* a, Term const* b) {
  Term const* args[2] = {a, b};
  return make_builtin(SymbolTag::OR, args, 2);
}
Term const* TermManager::make_equal(Term const* a, Term const* b) {
  Term const* args[2] = {a, b};
  return make_builtin(SymbolTag::EQUAL, args, 2);
}
Term const* TermManager::make_ite(Term const* c, Term const* a, Term const* b) {
  Term const* args[3] = {c, a, b};
  return make_builtin(SymbolTag::ITE, args, 3);
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
    symbols_.emplace_back(next_symbol_id_, 0, type, type, SymbolTag::NUMERAL, text);
    ++next_symbol_id_;
    assert(symbols_.back().get_id() == symbols_.size() && "a symbol's id is its index plus one");
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
  Application const app{info->name,  args,       n,         indices,
                        num_indices, bool_type_, int_type_, real_type_};
  for (std::size_t i = 0; i < n; ++i) {
    if (args[i] == nullptr) {
      throw Error(std::string("invalid application of '") + app.op + "': null argument");
    }
  }
  if (num_indices != num_indices_of(info->sig)) {
    app.fail("expected " + std::to_string(num_indices_of(info->sig)) + " index(es), got " +
             std::to_string(num_indices));
  }
  SymbolTag::tag const tag = info->sig == Sig::Minus && n == 1 ? SymbolTag::NEG : info->tag;
  DataType const* result = nullptr;
  switch (info->sig) {
    case Sig::Const:
    case Sig::BoolUnary:
    case Sig::BoolNary:
    case Sig::Chain:
    case Sig::Ite:
      result = core_result(info->sig, app);
      break;
    case Sig::ArithNary:
    case Sig::Minus:
    case Sig::RealNary:
    case Sig::IntNary:
    case Sig::IntBinary:
    case Sig::IntUnary:
    case Sig::ArithChain:
    case Sig::ToReal:
    case Sig::ToInt:
    case Sig::IsInt:
      result = arith_result(info->sig, app);
      break;
    case Sig::Concat:
    case Sig::Extract:
    case Sig::Repeat:
    case Sig::Extend:
    case Sig::Rotate:
    case Sig::BvUnary:
    case Sig::BvNary:
    case Sig::BvBinary:
    case Sig::BvComp:
    case Sig::BvPred:
    case Sig::BvToNat:
    case Sig::IntToBv:
      result = bv_result(info->sig, app, *this);
      break;
    case Sig::Select:
    case Sig::Store:
      result = array_result(info->sig, app);
      break;
  }
  assert(result != nullptr && "every signature gives its result sort");

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
