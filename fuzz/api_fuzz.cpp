// Fuzz target: bytes decoded into a sequence of term-layer and tracer calls (sorts, symbols,
// terms over every theory, assertions, balanced push/pop, resets, every query, interpolation
// groups), in either tracer mode. After every call the tracer's declaration record must hold its
// invariants; after the sequence the trace must read back through the reader without error.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <new>
#include <set>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <unordered_set>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/smt2/read_error.h>
#include <tvx/smt2/script_reader.h>
#include <tvx/tracer/smtlib2_api_tracer.h>
#include "tracer/tracer_test_access.h"

namespace tvx {
namespace {

using Access = SmtLib2ApiTracerTestAccess;

[[noreturn]] void finding(char const* what, std::string const& detail) {
  std::fprintf(stderr, "api_fuzz finding: %s: %s\n", what, detail.c_str());
  std::abort();
}

// Swallows everything written; keeps the stream good.
class NullBuf : public std::streambuf {
 protected:
  int_type overflow(int_type ch) override { return traits_type::not_eof(ch); }
  std::streamsize xsputn(char const*, std::streamsize n) override { return n; }
};

// The fuzzer's bytes, read front to back; zeros once they run out.
class Bytes {
 public:
  Bytes(std::uint8_t const* data, std::size_t size) : data_(data), size_(size) {}
  bool done() const { return pos_ >= size_; }
  std::uint8_t u8() { return pos_ < size_ ? data_[pos_++] : 0; }
  // A value in [0, n), n > 0.
  std::size_t below(std::size_t n) { return u8() % n; }
  bool flag() { return (u8() & 1) != 0; }

 private:
  std::uint8_t const* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

// Pieces of names: reserved words, characters that force quoting, UTF-8, and names that look
// like the printer's own let names. None starts with '.', which trace labels use.
constexpr char const* kNameParts[] = {
    "x",  "f",    "U",   "a b",   "let",      "assert", "_let_0",  "_let_1", "_let_2",
    "1x", "#b1",  ":k",  "\"s\"", "\xc3\xa9", "\t",     "(",       ")",      "",
    ";c", "as",   "par", "!",     "_",        "x'",     "NUMERAL", "push",   "|",
    "\\", "\x01", "not", "Int",   "g0",       "~x",     "@x",      "-",      "0"};
constexpr std::size_t kNumNameParts = sizeof(kNameParts) / sizeof(kNameParts[0]);

constexpr std::size_t kMaxBvWidth = 256;
constexpr std::size_t kMaxPool = 48;  // terms kept per sort
constexpr std::size_t kMaxDepth = 32;

enum class Op : std::uint8_t {
  kDeclConst,
  kDeclFun,
  kApply,
  kBool,
  kArith,
  kBv,
  kBvIndexed,
  kArray,
  kNumber,
  kTraceDecl,
  kAssert,
  kPush,
  kPop,
  kReset,
  kCheck,
  kCheckAllsat,
  kCheckAssuming,
  kNewGroup,
  kSetGroup,
  kGetInterpolant,
  kUnsatCore,
  kUnsatAssumptions,
  kGetModel,
  kGetValue,
  kNewSort,
  kCount
};

class Session {
 public:
  Session(Bytes& in, bool global, bool dump_config, std::ostream& out)
      : in_(in),
        global_(global),
        tracer_((set_prefix(), &config_), &mgr_, out, global, dump_config) {
    base_sorts_ = {mgr_.get_bool_type(), mgr_.get_integer_type(), mgr_.get_rational_type(),
                   mgr_.get_bv_type(1),  mgr_.get_bv_type(8),     mgr_.get_bv_type(32)};
    // Uninterpreted sorts declared before any push stay declared for the whole session, so
    // arrays may range over them: the tracer declares only the result sorts of terms.
    std::size_t const n = in_.below(4);
    for (std::size_t i = 0; i < n; ++i) {
      if (DataType const* s = new_sort()) {
        declare_type(s);
        array_components_.push_back(s);
      }
    }
    array_components_.insert(array_components_.end(), base_sorts_.begin(), base_sorts_.end());
  }

  void run() {
    for (std::size_t steps = 0; !in_.done() && steps < 4000; ++steps) {
      step(static_cast<Op>(in_.below(static_cast<std::size_t>(Op::kCount))));
      check_invariants();
    }
  }

  std::size_t depth() const { return depth_; }

 private:
  void set_prefix() {
    // Labels are the prefix and an id; the prefixes here cannot clash with the names made.
    static constexpr char const* kPrefixes[] = {"", "d_", "$"};
    std::size_t const p = in_.below(3);
    ConfigurationSetter().set(&config_, "printer.defines_prefix", kPrefixes[p]);
    static constexpr char const* kLetPrefixes[] = {"", "_let_", "a b", "v"};
    ConfigurationSetter().set(&config_, "printer.let_prefix", kLetPrefixes[in_.below(4)]);
  }

  std::string make_name() {
    std::string name = kNameParts[in_.below(kNumNameParts)];
    if (in_.flag()) {
      name += kNameParts[in_.below(kNumNameParts)];
    }
    if (name.empty() || name[0] == '.' || name.compare(0, 2, "d_") == 0 || name[0] == '$' ||
        (name[0] == 'v' && name.size() > 1)) {
      name = "n" + name;
    }
    return name;
  }

  DataType const* new_sort() {
    std::string name = make_name();
    if (mgr_.get_simple_type(name, false) != nullptr) {
      name += std::to_string(++counter_);
    }
    try {
      DataType const* s = mgr_.make_simple_type(name);
      user_sorts_.push_back(s);
      return s;
    } catch (std::invalid_argument const&) {
      return nullptr;  // a name the term layer refuses
    }
  }

  DataType const* pick_sort(bool allow_array) {
    std::size_t const n = base_sorts_.size() + user_sorts_.size() + (allow_array ? 2 : 0);
    std::size_t const i = in_.below(n);
    if (i < base_sorts_.size()) {
      return base_sorts_[i];
    }
    if (i < base_sorts_.size() + user_sorts_.size()) {
      return user_sorts_[i - base_sorts_.size()];
    }
    DataType const* index = array_components_[in_.below(array_components_.size())];
    DataType const* element = array_components_[in_.below(array_components_.size())];
    if (in_.flag()) {
      element = mgr_.get_array_type(index, element);  // nested arrays
    }
    return mgr_.get_array_type(index, element);
  }

  DataType const* pick_bv_sort() {
    std::vector<DataType const*> bvs;
    for (auto const& entry : pool_) {
      if (entry.first->is_bv()) {
        bvs.push_back(entry.first);
      }
    }
    if (bvs.empty() || in_.below(4) == 0) {
      return mgr_.get_bv_type(1 + in_.below(64));
    }
    return bvs[in_.below(bvs.size())];
  }

  void add(Term const* t) {
    std::vector<Term const*>& v = pool_[t->get_type()];
    if (v.size() < kMaxPool) {
      v.push_back(t);
    } else {
      v[in_.below(v.size())] = t;
    }
  }

  // Declares the uninterpreted sorts that a symbol's sort mentions, then the symbol, as an
  // environment does before it reports a symbol.
  void trace_declare(Symbol const* s) {
    std::vector<DataType const*> work{s->get_type()};
    while (!work.empty()) {
      DataType const* ty = work.back();
      work.pop_back();
      if (ty->is_uninterpreted()) {
        declare_type(ty);
      }
      for (std::size_t i = 0; i < ty->get_num_components(); ++i) {
        work.push_back(ty->get_component(i));
      }
    }
    tracer_.trace_symbol_declaration(s);
    if (global_) {
      ever_symbols_.insert(s);
    }
  }

  void declare_type(DataType const* ty) {
    tracer_.trace_type_declaration(ty);
    if (global_) {
      ever_types_.insert(ty);
    }
  }

  Symbol const* new_symbol(DataType const* type) {
    std::string name = make_name();
    if (mgr_.find_symbol(name) != nullptr) {
      name += std::to_string(++counter_);
    }
    try {
      return mgr_.make_symbol(name, type);
    } catch (std::invalid_argument const&) {
      return nullptr;  // a name the term layer refuses
    }
  }

  Term const* leaf(DataType const* sort) {
    if (sort->is_bool()) {
      return in_.flag() ? mgr_.make_true() : mgr_.make_false();
    }
    if ((sort->is_int() || sort->is_real() || sort->is_bv()) && in_.flag()) {
      return number(sort);
    }
    for (int attempt = 0; attempt < 4; ++attempt) {
      if (Symbol const* s = new_symbol(sort)) {
        Term const* t = mgr_.make_constant(s);
        add(t);
        return t;
      }
    }
    Symbol const* s = mgr_.make_symbol("k" + std::to_string(++counter_), sort);
    Term const* t = mgr_.make_constant(s);
    add(t);
    return t;
  }

  // A term of `sort`: mostly one made earlier, otherwise a fresh leaf.
  Term const* pick(DataType const* sort) {
    auto it = pool_.find(sort);
    if (it != pool_.end() && !it->second.empty() && in_.below(8) != 0) {
      return it->second[in_.below(it->second.size())];
    }
    return leaf(sort);
  }

  Term const* number(DataType const* sort) {
    static constexpr char const* kInts[] = {
        "0", "1", "-3", "42", "18446744073709551617", "-99999999999999999999999"};
    static constexpr char const* kReals[] = {"0.5", "1/3", "-7/2", "2", "0.0", "-0.125"};
    std::string value;
    if (sort->is_int()) {
      value = kInts[in_.below(6)];
    } else if (sort->is_real()) {
      value = in_.flag() ? kInts[in_.below(6)] : kReals[in_.below(6)];
    } else {
      std::uint64_t const w = sort->get_bv_width();
      switch (in_.below(3)) {
        case 0:
          value = std::to_string(in_.u8() * 977u);
          break;
        case 1:
          value = "#b";
          for (std::uint64_t i = 0; i < w; ++i) {
            value += static_cast<char>('0' + (in_.u8() & 1));
          }
          break;
        default:
          if (w % 4 != 0) {
            value = "0";
          } else {
            value = "#x";
            for (std::uint64_t i = 0; i < w / 4; ++i) {
              value += "0123456789abcdefABCDEF"[in_.below(22)];
            }
          }
      }
    }
    Term const* t = mgr_.make_number(value, sort);
    add(t);
    return t;
  }

  Term const* pick_bool() { return pick(mgr_.get_bool_type()); }

  Term const* builtin(char const* op, std::vector<Term const*> const& args,
                      std::vector<std::uint64_t> const& indices = {}) {
    try {
      Term const* t = mgr_.make_builtin(op, args, indices);
      add(t);
      return t;
    } catch (std::invalid_argument const& e) {
      finding("a well-sorted application was refused", e.what());
    }
  }

  void bool_op() {
    static constexpr char const* kOps[] = {"not", "and", "or", "xor", "=>", "=", "distinct", "ite"};
    std::size_t const k = in_.below(8);
    std::vector<Term const*> args;
    if (k == 0) {
      args = {pick_bool()};
    } else if (k <= 4) {
      std::size_t const n = 2 + in_.below(3);
      for (std::size_t i = 0; i < n; ++i) {
        args.push_back(pick_bool());
      }
    } else {
      DataType const* s = pick_sort(true);
      if (k == 7) {
        args.push_back(pick_bool());
      }
      std::size_t const n = k == 7 ? 2 : 2 + in_.below(2);
      for (std::size_t i = 0; i < n; ++i) {
        args.push_back(pick(s));
      }
    }
    builtin(kOps[k], args);
  }

  void arith_op() {
    DataType const* ints = mgr_.get_integer_type();
    DataType const* reals = mgr_.get_rational_type();
    DataType const* s = in_.flag() ? ints : reals;
    std::size_t const k = in_.below(13);
    static constexpr char const* kNary[] = {"+", "-", "*", "<", "<=", ">", ">="};
    if (k < 7) {
      std::size_t const n = (k == 1 ? 1 : 2) + in_.below(2);
      std::vector<Term const*> args;
      for (std::size_t i = 0; i < n; ++i) {
        args.push_back(pick(s));
      }
      builtin(kNary[k], args);
      return;
    }
    switch (k) {
      case 7:
        builtin("/", {pick(reals), pick(reals)});
        break;
      case 8:
        builtin(in_.flag() ? "div" : "mod", {pick(ints), pick(ints)});
        break;
      case 9:
        builtin("abs", {pick(ints)});
        break;
      case 10:
        builtin("to_real", {pick(ints)});
        break;
      case 11:
        builtin("to_int", {pick(reals)});
        break;
      default:
        builtin("is_int", {pick(reals)});
    }
  }

  void bv_op() {
    static constexpr char const* kOps[] = {
        "bvnot",  "bvneg",  "bvand",  "bvor",  "bvxor",  "bvnand", "bvnor",
        "bvxnor", "bvcomp", "bvadd",  "bvsub", "bvmul",  "bvudiv", "bvurem",
        "bvsdiv", "bvsrem", "bvsmod", "bvshl", "bvlshr", "bvashr", "bvult",
        "bvule",  "bvugt",  "bvuge",  "bvslt", "bvsle",  "bvsgt",  "bvsge"};
    std::size_t const k = in_.below(sizeof(kOps) / sizeof(kOps[0]));
    DataType const* s = pick_bv_sort();
    std::size_t n = k < 2 ? 1 : 2;
    if (k >= 2 && k <= 4) {
      n += in_.below(2);  // the associative ones take more
    }
    std::vector<Term const*> args;
    for (std::size_t i = 0; i < n; ++i) {
      args.push_back(pick(s));
    }
    builtin(kOps[k], args);
  }

  void bv_indexed_op() {
    DataType const* s = pick_bv_sort();
    std::uint64_t const w = s->get_bv_width();
    switch (in_.below(5)) {
      case 0: {
        DataType const* t = pick_bv_sort();
        if (w + t->get_bv_width() <= kMaxBvWidth) {
          builtin("concat", {pick(s), pick(t)});
        }
        break;
      }
      case 1: {
        std::uint64_t const hi = in_.below(w);
        std::uint64_t const lo = in_.below(hi + 1);
        builtin("extract", {pick(s)}, {hi, lo});
        break;
      }
      case 2: {
        std::uint64_t const r = 1 + in_.below(4);
        if (w * r <= kMaxBvWidth) {
          builtin("repeat", {pick(s)}, {r});
        }
        break;
      }
      case 3: {
        std::uint64_t const e = in_.below(9);
        if (w + e <= kMaxBvWidth) {
          builtin(in_.flag() ? "zero_extend" : "sign_extend", {pick(s)}, {e});
        }
        break;
      }
      default:
        builtin(in_.flag() ? "rotate_left" : "rotate_right", {pick(s)}, {in_.below(2 * w + 3)});
    }
  }

  void array_op() {
    DataType const* index = array_components_[in_.below(array_components_.size())];
    DataType const* element = array_components_[in_.below(array_components_.size())];
    DataType const* a = mgr_.get_array_type(index, element);
    if (in_.flag()) {
      builtin("select", {pick(a), pick(index)});
    } else {
      builtin("store", {pick(a), pick(index), pick(element)});
    }
  }

  // Visits every distinct subterm of t.
  template <class F>
  static void for_each_subterm(Term const* t, F f) {
    std::vector<Term const*> work{t};
    std::unordered_set<Term const*> seen;
    while (!work.empty()) {
      Term const* u = work.back();
      work.pop_back();
      if (!seen.insert(u).second) {
        continue;
      }
      f(u);
      for (std::size_t i = 0; i < u->get_arity(); ++i) {
        work.push_back(u->get_arg(i));
      }
    }
  }

  // In global mode nothing is forgotten: what the trace declares is what was ever reported,
  // and what the terms of assertions and checks needed.
  void note_declared(Term const* t) {
    if (!global_) {
      return;
    }
    for_each_subterm(t, [this](Term const* u) {
      if (!mgr_.is_interpreted(u->get_symbol())) {
        ever_symbols_.insert(u->get_symbol());
      }
      if (u->get_type()->is_uninterpreted()) {
        ever_types_.insert(u->get_type());
      }
    });
  }

  bool is_declared(Symbol const* s) const {
    if (global_) {
      return ever_symbols_.count(s) != 0;
    }
    auto const& stack = Access::symbol_stack(tracer_);
    return std::find(stack.begin(), stack.end(), s) != stack.end();
  }
  bool is_declared(DataType const* ty) const {
    if (global_) {
      return ever_types_.count(ty) != 0;
    }
    auto const& stack = Access::type_stack(tracer_);
    return std::find(stack.begin(), stack.end(), ty) != stack.end();
  }

  // True when everything the term's text names is declared in the trace now: a query that
  // writes no declarations relies on that.
  bool all_declared(Term const* t) {
    bool ok = true;
    for_each_subterm(t, [&](Term const* u) {
      if ((!mgr_.is_interpreted(u->get_symbol()) && !is_declared(u->get_symbol())) ||
          (u->get_type()->is_uninterpreted() && !is_declared(u->get_type()))) {
        ok = false;
      }
    });
    return ok;
  }

  std::vector<Term const*> some_bools() {
    std::vector<Term const*> v;
    std::size_t const n = in_.below(4);
    for (std::size_t i = 0; i < n; ++i) {
      v.push_back(pick_bool());
    }
    return v;
  }

  void step(Op op) {
    switch (op) {
      case Op::kDeclConst: {
        if (Symbol const* s = new_symbol(pick_sort(true))) {
          add(mgr_.make_constant(s));
          if (in_.flag()) {
            trace_declare(s);
          }
        }
        break;
      }
      case Op::kDeclFun: {
        std::vector<DataType const*> args;
        std::size_t const n = 1 + in_.below(3);
        for (std::size_t i = 0; i < n; ++i) {
          args.push_back(pick_sort(true));
        }
        if (Symbol const* s = new_symbol(mgr_.get_function_type(args, pick_sort(true)))) {
          functions_.push_back(s);
          if (in_.flag()) {
            trace_declare(s);
          }
        }
        break;
      }
      case Op::kApply: {
        if (functions_.empty()) {
          break;
        }
        Symbol const* f = functions_[in_.below(functions_.size())];
        DataType const* type = f->get_type();
        std::vector<Term const*> args;
        for (std::size_t i = 0; i + 1 < type->get_num_components(); ++i) {
          args.push_back(pick(type->get_component(i)));
        }
        try {
          add(mgr_.make_term(f, args));
        } catch (std::invalid_argument const& e) {
          finding("a well-sorted application was refused", e.what());
        }
        break;
      }
      case Op::kBool:
        bool_op();
        break;
      case Op::kArith:
        arith_op();
        break;
      case Op::kBv:
        bv_op();
        break;
      case Op::kBvIndexed:
        bv_indexed_op();
        break;
      case Op::kArray:
        array_op();
        break;
      case Op::kNumber: {
        static constexpr std::size_t kNumeric[] = {1, 2, 3, 4, 5};
        number(base_sorts_[kNumeric[in_.below(5)]]);
        break;
      }
      case Op::kTraceDecl:
        if (!user_sorts_.empty() && in_.flag()) {
          declare_type(user_sorts_[in_.below(user_sorts_.size())]);
        } else if (!functions_.empty()) {
          trace_declare(functions_[in_.below(functions_.size())]);
        }
        break;
      case Op::kAssert: {
        Term const* t = pick_bool();
        tracer_.trace_assert_formula(t);
        note_declared(t);
        break;
      }
      case Op::kPush:
        if (depth_ < kMaxDepth) {
          tracer_.trace_push_backtrack_point();
          ++depth_;
        }
        break;
      case Op::kPop:
        if (depth_ > 0) {
          tracer_.trace_pop_backtrack_point();
          --depth_;
        }
        break;
      case Op::kReset:
        tracer_.trace_reset_assertions();
        depth_ = 0;
        group_ = -1;
        break;
      case Op::kCheck:
        tracer_.trace_check();
        break;
      case Op::kCheckAllsat: {
        std::vector<Term const*> const terms = some_bools();
        tracer_.trace_check_allsat(terms);
        for (Term const* t : terms) {
          note_declared(t);
        }
        break;
      }
      case Op::kCheckAssuming: {
        std::vector<TheoryLit> lits;
        for (Term const* t : some_bools()) {
          lits.emplace_back(t, in_.flag());
        }
        tracer_.trace_check_with_assumptions(lits);
        for (TheoryLit const& lit : lits) {
          note_declared(lit.get_term());
        }
        break;
      }
      case Op::kNewGroup:
        tracer_.trace_new_interpolation_group();
        break;
      case Op::kSetGroup:
        group_ = static_cast<int>(in_.below(7)) - 1;
        tracer_.trace_set_interpolation_group(group_);
        break;
      case Op::kGetInterpolant: {
        std::vector<int> groups;
        std::size_t const n = in_.below(4);
        for (std::size_t i = 0; i < n; ++i) {
          groups.push_back(static_cast<int>(in_.below(6)));
        }
        tracer_.trace_get_interpolant(groups);
        break;
      }
      case Op::kUnsatCore:
        tracer_.trace_get_unsat_core();
        break;
      case Op::kUnsatAssumptions:
        tracer_.trace_get_unsat_assumptions();
        break;
      case Op::kGetModel:
        tracer_.trace_get_model();
        break;
      case Op::kGetValue: {
        Term const* t = pick(pick_sort(true));
        if (all_declared(t)) {
          tracer_.trace_get_model_value(t);
        }
        break;
      }
      case Op::kNewSort:
        new_sort();
        break;
      case Op::kCount:
        break;
    }
  }

  void check_invariants() {
    std::string const fault = Access::record_fault(tracer_);
    if (!fault.empty()) {
      finding("declaration record", fault);
    }
    if (Access::itp_group(tracer_) != group_) {
      finding("interpolation group",
              std::to_string(Access::itp_group(tracer_)) + " instead of " + std::to_string(group_));
    }
    if (global_) {
      return;
    }
    auto const& symbols = Access::symbol_stack(tracer_);
    std::size_t const markers =
        static_cast<std::size_t>(std::count(symbols.begin(), symbols.end(), nullptr));
    if (markers != depth_) {
      finding("markers", std::to_string(markers) + " markers at depth " + std::to_string(depth_));
    }
  }

  Bytes& in_;
  bool global_;
  TermManager mgr_;
  Configuration config_;
  SmtLib2ApiTracer tracer_;
  std::vector<DataType const*> base_sorts_;
  std::vector<DataType const*> user_sorts_;
  std::vector<DataType const*> array_components_;
  std::vector<Symbol const*> functions_;
  std::map<DataType const*, std::vector<Term const*>> pool_;
  std::set<Symbol const*> ever_symbols_;
  std::set<DataType const*> ever_types_;
  std::size_t depth_ = 0;
  int group_ = -1;
  std::uint64_t counter_ = 0;
};

}  // namespace
}  // namespace tvx

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace tvx;
  Bytes in(data, size);
  std::uint8_t const mode = in.u8();
  bool const global = (mode & 1) != 0;
  std::ostringstream trace;
  {
    Session session(in, global, (mode & 2) != 0, trace);
    session.run();
  }
  std::string const text = trace.str();

  TermManager mgr;
  Configuration config;
  NullBuf null_buf;
  std::ostream null_out(&null_buf);
  Solver solver(mgr, config, nullptr, null_out, false, false);
  smt2::ScriptReader reader(solver);
  std::istringstream again(text);
  try {
    reader.read(again, "trace.smt2");
  } catch (smt2::ReadError const& e) {
    finding("the trace does not read back", std::string(e.what()) + "\n--- trace ---\n" + text);
  } catch (std::bad_alloc const&) {
    return 0;
  }
  return 0;
}
