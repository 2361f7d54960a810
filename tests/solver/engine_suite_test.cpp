// Every engine through the environment, with the same cases and the same expectations: z3 and
// cvc5 in process (when built in) and over pipes (when installed). Answers are checked by what
// they mean, never by the shape an engine writes them in: a model, substituted back into the
// assertions, makes them true on the same engine; an array value read at an index gives the
// element asserted there; cores, unsat assumptions and interpolants are checked again on the
// engine. A solver process that dies in mid-session fails cleanly, now and on the next call.
#include <dirent.h>
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <tvx/core/error.h>
#include <tvx/core/term_printer.h>
#include <tvx/solver/solver.h>

namespace tvx {
namespace {

using ::testing::HasSubstr;

constexpr char const* kZ3Process = "z3 -in";
constexpr char const* kCvc5Process = "cvc5 --incremental --lang smt2";

// Whether `program` is an executable in one of PATH's directories.
bool on_path(std::string const& program) {
  char const* path = std::getenv("PATH");
  std::string const dirs = path == nullptr ? "" : path;
  std::size_t start = 0;
  while (start <= dirs.size()) {
    std::size_t end = dirs.find(':', start);
    if (end == std::string::npos) {
      end = dirs.size();
    }
    if (access((dirs.substr(start, end - start) + "/" + program).c_str(), X_OK) == 0) {
      return true;
    }
    start = end + 1;
  }
  return false;
}

// No child process of this test is left, running or as a zombie.
bool no_child_left() {
  errno = 0;
  return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

std::size_t open_fds() {
  std::size_t n = 0;
  DIR* d = opendir("/proc/self/fd");
  while (readdir(d) != nullptr) {
    ++n;
  }
  closedir(d);
  return n;
}

bool is_builtin(std::string const& engine) {
  std::vector<std::string> const names = builtin_engine_names();
  return std::find(names.begin(), names.end(), engine) != names.end();
}

// The built-in engines, then the solver processes.
std::vector<std::string> all_engines() {
  std::vector<std::string> engines = builtin_engine_names();
  engines.emplace_back(kZ3Process);
  engines.emplace_back(kCvc5Process);
  return engines;
}

std::string engine_test_name(::testing::TestParamInfo<std::string> const& info) {
  std::string const solver = info.param.substr(0, info.param.find(' '));
  return is_builtin(info.param) ? solver : solver + "_process";
}

// The uninterpreted symbols that occur in the terms.
std::set<Symbol const*> symbols_of(std::vector<Term const*> const& roots) {
  std::set<Symbol const*> out;
  std::unordered_set<Term const*> seen;
  std::vector<Term const*> stack(roots);
  while (!stack.empty()) {
    Term const* t = stack.back();
    stack.pop_back();
    if (!seen.insert(t).second) {
      continue;
    }
    if (t->get_symbol()->is_uninterpreted()) {
      out.insert(t->get_symbol());
    }
    for (std::size_t i = 0; i < t->get_arity(); ++i) {
      stack.push_back(t->get_arg(i));
    }
  }
  return out;
}

// The element of the array value `a` at the value `index`, as SMT-LIB reads stores: from the
// outermost store in, down to the constant array under them. Null when `a` is no such value.
Term const* element_at(Term const* a, Term const* index) {
  while (a->get_symbol()->get_tag() == SymbolTag::STORE) {
    if (a->get_arg(1) == index) {
      return a->get_arg(2);
    }
    a = a->get_arg(0);
  }
  return a->get_symbol()->get_tag() == SymbolTag::CONST_ARRAY ? a->get_arg(0) : nullptr;
}

// A model written into formulas: each uninterpreted constant becomes its value, each application
// of an uninterpreted function its table as a chain of ites over the arguments, and each element
// of an uninterpreted sort in the values a fresh constant, all of one sort kept distinct. What is
// left is closed, so an engine tells whether the model makes a formula true.
class ModelSubstitution {
 public:
  ModelSubstitution(TermManager& mgr, Model const& model) : mgr_(mgr) {
    for (auto const& [symbol, value] : model.constants) {
      constants_[symbol] = value;
    }
    for (auto const& [symbol, table] : model.functions) {
      functions_[symbol] = table;
    }
  }

  // The formula with the model substituted; null (and a failure) when the model misses a
  // symbol of it.
  Term const* apply(Term const* formula) { return rebuild(formula, false); }

  // The fresh constants that stand for elements, distinct within each sort.
  std::vector<Term const*> distinct_elements() {
    std::vector<Term const*> out;
    for (auto const& [sort, elements] : elements_) {
      if (elements.size() > 1) {
        out.push_back(mgr_.make_builtin("distinct", elements));
      }
    }
    return out;
  }

 private:
  // Bottom-up over the DAG of `root`. In a value every uninterpreted constant is an element of
  // its sort; in a formula it is a symbol of the model.
  Term const* rebuild(Term const* root, bool in_value) {
    if (root == nullptr) {
      ADD_FAILURE() << "the model holds a null term";
      return nullptr;
    }
    std::unordered_map<Term const*, Term const*>& done = in_value ? values_ : formulas_;
    std::vector<std::pair<Term const*, bool>> stack{{root, false}};
    while (!stack.empty()) {
      auto [t, expanded] = stack.back();
      stack.pop_back();
      if (done.count(t) != 0) {
        continue;
      }
      if (!expanded) {
        stack.emplace_back(t, true);
        for (std::size_t i = 0; i < t->get_arity(); ++i) {
          stack.emplace_back(t->get_arg(i), false);
        }
        continue;
      }
      std::vector<Term const*> args;
      for (std::size_t i = 0; i < t->get_arity(); ++i) {
        args.push_back(done.at(t->get_arg(i)));
      }
      Symbol const* s = t->get_symbol();
      if (!s->is_uninterpreted()) {
        done[t] = args.empty() ? t : mgr_.make_term(s, args);
      } else if (in_value) {
        done[t] = element(t);
      } else if (args.empty()) {
        auto it = constants_.find(s);
        if (it == constants_.end()) {
          ADD_FAILURE() << "the model has no value for '" << s->get_name() << "'";
          return nullptr;
        }
        Term const* v = rebuild(it->second, true);
        if (v == nullptr) {
          return nullptr;
        }
        done[t] = v;
      } else {
        auto it = functions_.find(s);
        if (it == functions_.end()) {
          ADD_FAILURE() << "the model has no table for '" << s->get_name() << "'";
          return nullptr;
        }
        Term const* v = table(it->second, args);
        if (v == nullptr) {
          return nullptr;
        }
        done[t] = v;
      }
    }
    return done.at(root);
  }

  Term const* element(Term const* abstract) {
    auto it = fresh_.find(abstract);
    if (it != fresh_.end()) {
      return it->second;
    }
    std::vector<Term const*>& elements = elements_[abstract->get_type()];
    Symbol const* s =
        mgr_.make_fresh_symbol("element!" + std::to_string(fresh_.size()), abstract->get_type());
    Term const* c = mgr_.make_constant(s);
    elements.push_back(c);
    fresh_[abstract] = c;
    return c;
  }

  // (ite (and (= a1 p1) ...) v1 (ite ... otherwise)): the first matching point wins. Null when
  // the table holds a null term.
  Term const* table(FunctionValue const& fv, std::vector<Term const*> const& args) {
    Term const* result = rebuild(fv.otherwise, true);
    for (auto p = fv.points.rbegin(); result != nullptr && p != fv.points.rend(); ++p) {
      std::vector<Term const*> tests;
      for (std::size_t i = 0; i < args.size(); ++i) {
        Term const* a = p->args[i] == nullptr ? nullptr : rebuild(p->args[i], true);
        if (a != nullptr) {
          tests.push_back(mgr_.make_equal(args[i], a));
        }
      }
      Term const* cond = tests.empty()       ? mgr_.make_true()
                         : tests.size() == 1 ? tests[0]
                                             : mgr_.make_builtin("and", tests);
      Term const* v = rebuild(p->value, true);
      result = v == nullptr ? nullptr : mgr_.make_ite(cond, v, result);
    }
    return result;
  }

  TermManager& mgr_;
  std::unordered_map<Symbol const*, Term const*> constants_;
  std::unordered_map<Symbol const*, FunctionValue> functions_;
  std::unordered_map<Term const*, Term const*> formulas_;
  std::unordered_map<Term const*, Term const*> values_;
  std::unordered_map<Term const*, Term const*> fresh_;
  std::map<DataType const*, std::vector<Term const*>> elements_;
};

class EngineSuiteTest : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    std::string const& engine = GetParam();
    if (!is_builtin(engine)) {
      std::string const program = engine.substr(0, engine.find(' '));
      if (!on_path(program)) {
        GTEST_SKIP() << program << " is not on PATH; the engine '" << engine << "' is not tested";
      }
    }
    config_.model_generation = true;
    config_.unsat_core_generation = true;
    solver_ = fresh_solver();
  }

  std::unique_ptr<Solver> fresh_solver() {
    return std::make_unique<Solver>(mgr_, config_, make_engine(GetParam(), mgr_, config_));
  }
  bool is_z3() const { return GetParam().compare(0, 2, "z3") == 0; }

  Term const* var(std::string const& name, DataType const* sort) {
    return mgr_.make_constant(mgr_.make_symbol(name, sort));
  }
  Term const* num(char const* v) { return mgr_.make_number(v, I_); }
  Term const* real(char const* v) { return mgr_.make_number(v, R_); }
  Term const* bv(std::string const& v, std::size_t width) {
    return mgr_.make_number(v, mgr_.get_bv_type(width));
  }
  Term const* op(char const* o, std::vector<Term const*> const& args) {
    return mgr_.make_builtin(o, args);
  }
  Term const* app(Symbol const* f, std::vector<Term const*> const& args) {
    return mgr_.make_term(f, args);
  }
  Term const* conjunction(std::vector<Term const*> const& fs) {
    return fs.empty() ? mgr_.make_true() : fs.size() == 1 ? fs[0] : op("and", fs);
  }
  std::string text(Term const* t) { return t == nullptr ? "(null)" : printer_.term_text(t); }

  void assert_all(std::vector<Term const*> const& formulas) {
    for (Term const* f : formulas) {
      solver_->assert_formula(f);
    }
  }

  // The engine's answer on the formulas alone, on a solver of its own.
  CheckResult check_alone(std::vector<Term const*> const& formulas) {
    std::unique_ptr<Solver> s = fresh_solver();
    for (Term const* f : formulas) {
      s->assert_formula(f);
    }
    return s->check();
  }

  // After a satisfiable check: the engine's model makes every formula true. The formulas with
  // the model substituted are closed; their conjunction must not be falsifiable.
  void expect_model_satisfies(std::vector<Term const*> const& formulas) {
    ModelSubstitution sub(mgr_, solver_->get_model());
    std::vector<Term const*> closed;
    for (Term const* f : formulas) {
      Term const* c = sub.apply(f);
      ASSERT_NE(c, nullptr) << text(f);
      closed.push_back(c);
    }
    std::vector<Term const*> refute = sub.distinct_elements();
    refute.push_back(mgr_.make_not(conjunction(closed)));
    EXPECT_EQ(check_alone(refute), CheckResult::Unsat)
        << "the model falsifies: " << text(conjunction(closed));
  }

  // The value of `t` asked twice is the same term, of the sort of `t`.
  Term const* value(Term const* t) {
    Term const* v = solver_->get_model_value(t);
    EXPECT_NE(v, nullptr) << text(t);
    if (v == nullptr) {
      return mgr_.make_true();
    }
    EXPECT_EQ(v->get_type(), t->get_type()) << text(t) << " = " << text(v);
    EXPECT_EQ(solver_->get_model_value(t), v) << "asked again: " << text(t);
    return v;
  }

  // The value of a constant in the whole model; null when the model has none.
  static Term const* model_value(Model const& m, Term const* constant) {
    for (auto const& [symbol, v] : m.constants) {
      if (symbol == constant->get_symbol()) {
        return v;
      }
    }
    return nullptr;
  }

  TermManager mgr_;
  Configuration config_;
  SmtLib2TermPrinter printer_{&mgr_, &config_.printer, "", "", false, nullptr};
  std::unique_ptr<Solver> solver_;
  DataType const* B_ = mgr_.get_bool_type();
  DataType const* I_ = mgr_.get_integer_type();
  DataType const* R_ = mgr_.get_rational_type();
};

// ------------------------------------------------------------------------ values

TEST_P(EngineSuiteTest, BoolIntAndRealValuesAreTheNumbersTheAssertionsFix) {
  Term const* p = var("p", B_);
  Term const* q = var("q", B_);
  Term const* x = var("x", I_);
  Term const* big = var("big", I_);
  Term const* nbig = var("nbig", I_);
  Term const* third = var("third", R_);
  Term const* half = var("half", R_);
  Term const* sevenths = var("sevenths", R_);
  Term const* whole = var("whole", R_);
  Term const* bigfrac = var("bigfrac", R_);
  // The engine computes each value: none is a literal of the assertions.
  std::vector<Term const*> const formulas = {
      p,
      mgr_.make_not(q),
      op("=", {op("+", {x, num("8")}), num("3")}),
      op("=", {big, op("+", {num("18446744073709551615"), num("6")})}),
      op("=", {op("*", {num("2"), nbig}), num("-2361183241434822606848")}),
      op("=", {op("*", {real("3"), third}), real("-1")}),
      op("=", {op("*", {real("4"), half}), real("10")}),
      op("=", {op("*", {real("7"), sevenths}), real("-22")}),
      op("=", {whole, op("to_real", {x})}),
      op("=", {op("*", {real("3"), bigfrac}), real("18446744073709551617")}),
  };
  assert_all(formulas);
  ASSERT_EQ(solver_->check(), CheckResult::Sat);
  std::vector<std::pair<Term const*, Term const*>> const expected = {
      {p, mgr_.make_true()},
      {q, mgr_.make_false()},
      {x, num("-5")},
      {big, num("18446744073709551621")},
      {nbig, num("-1180591620717411303424")},
      {third, real("-1/3")},
      {half, real("5/2")},
      {sevenths, real("-22/7")},
      {whole, real("-5")},
      {bigfrac, real("18446744073709551617/3")},
  };
  Model const m = solver_->get_model();
  for (auto const& [t, v] : expected) {
    EXPECT_EQ(value(t), v) << text(t) << " = " << text(solver_->get_model_value(t));
    EXPECT_EQ(model_value(m, t), v) << "in the model: " << text(t);
  }
  // Values of terms that are not symbols.
  EXPECT_EQ(value(op("+", {x, num("1")})), num("-4"));
  EXPECT_EQ(value(op("<", {big, nbig})), mgr_.make_false());
  EXPECT_EQ(value(op("-", {third, half})), real("-17/6"));
  expect_model_satisfies(formulas);
}

TEST_P(EngineSuiteTest, BitVectorValuesOfEveryWidth) {
  Term const* b1 = var("b1", mgr_.get_bv_type(1));
  Term const* b8 = var("b8", mgr_.get_bv_type(8));
  Term const* b64 = var("b64", mgr_.get_bv_type(64));
  Term const* b65 = var("b65", mgr_.get_bv_type(65));
  Term const* b128 = var("b128", mgr_.get_bv_type(128));
  std::vector<Term const*> const formulas = {
      op("=", {op("bvnot", {b1}), bv("#b0", 1)}),
      op("=", {op("bvadd", {b8, bv("1", 8)}), bv("0", 8)}),
      op("=", {op("bvadd", {b64, bv("1", 64)}), bv("#x8000000000000000", 64)}),
      op("=", {op("bvadd", {b65, bv("1", 65)}), bv("18446744073709551619", 65)}),
      op("=", {op("bvadd", {b128, bv("1", 128)}), bv("#x0123456789abcdef0123456789abcdf0", 128)}),
  };
  assert_all(formulas);
  ASSERT_EQ(solver_->check(), CheckResult::Sat);
  std::vector<std::pair<Term const*, Term const*>> const expected = {
      {b1, bv("#b1", 1)},
      {b8, bv("#xff", 8)},
      {b64, bv("#x7fffffffffffffff", 64)},
      {b65, bv("18446744073709551618", 65)},
      {b128, bv("#x0123456789abcdef0123456789abcdef", 128)},
  };
  Model const m = solver_->get_model();
  for (auto const& [t, v] : expected) {
    EXPECT_EQ(value(t), v) << text(t) << " = " << text(solver_->get_model_value(t));
    EXPECT_EQ(model_value(m, t), v) << "in the model: " << text(t);
  }
  EXPECT_EQ(value(op("concat", {b8, b1})), bv("#b111111111", 9));
  EXPECT_EQ(value(op("bvadd", {b128, op("bvnot", {b128})})), bv("#x" + std::string(32, 'f'), 128));
  expect_model_satisfies(formulas);
}

TEST_P(EngineSuiteTest, ElementsOfUninterpretedSortsAreNumberedConsistently) {
  DataType const* U = solver_->declare_sort("U");
  DataType const* V = solver_->declare_sort("V");
  Term const* u1 = var("u1", U);
  Term const* u2 = var("u2", U);
  Term const* u3 = var("u3", U);
  Term const* u4 = var("u4", U);
  Term const* v1 = var("v1", V);
  Term const* v2 = var("v2", V);
  Symbol const* h = solver_->declare_fun("h", {U}, U);
  std::vector<Term const*> const formulas = {
      mgr_.make_equal(u1, u2),
      mgr_.make_not(mgr_.make_equal(u1, u3)),
      op("distinct", {u3, u4, u1}),
      mgr_.make_equal(app(h, {u2}), u3),
      mgr_.make_not(mgr_.make_equal(v1, v2)),
  };
  assert_all(formulas);
  ASSERT_EQ(solver_->check(), CheckResult::Sat);
  Term const* e1 = value(u1);
  Term const* e3 = value(u3);
  Term const* e4 = value(u4);
  EXPECT_EQ(value(u2), e1) << "forced equal";
  EXPECT_NE(e1, e3) << "forced distinct";
  EXPECT_NE(e3, e4);
  EXPECT_NE(e4, e1);
  EXPECT_EQ(value(app(h, {u1})), e3);
  EXPECT_NE(value(v1), value(v2));
  // Each is the manager's element of its sort, numbered from 0.
  for (Term const* t : {u1, u3, u4, v1, v2}) {
    Term const* e = value(t);
    bool numbered = false;
    for (std::uint64_t i = 0; i < 8; ++i) {
      numbered = numbered || e == mgr_.make_abstract_value(t->get_type(), i);
    }
    EXPECT_TRUE(numbered) << text(t) << " = " << text(e);
  }
  // The model gives the same elements, and its table of h agrees.
  Model const m = solver_->get_model();
  for (Term const* t : {u1, u2, u3, u4, v1, v2}) {
    EXPECT_EQ(model_value(m, t), value(t)) << text(t);
  }
  ASSERT_EQ(m.functions.size(), 1u);
  EXPECT_EQ(m.functions[0].second.at({e1}), e3);
  expect_model_satisfies(formulas);
}

TEST_P(EngineSuiteTest, ArrayValuesGiveTheAssertedElements) {
  DataType const* U = solver_->declare_sort("U");
  DataType const* BV8 = mgr_.get_bv_type(8);
  DataType const* AII = mgr_.get_array_type(I_, I_);
  DataType const* AIR = mgr_.get_array_type(I_, R_);
  Term const* ca = var("ca", AII);
  Term const* st = var("st", AII);
  Term const* ex = var("ex", AII);
  Term const* nested = var("nested", mgr_.get_array_type(BV8, AIR));
  Term const* ab = var("ab", mgr_.get_array_type(BV8, B_));
  Term const* ua = var("ua", mgr_.get_array_type(U, I_));
  Term const* au = var("au", mgr_.get_array_type(I_, U));
  Term const* au2 = var("au2", mgr_.get_array_type(I_, U));
  Term const* u1 = var("u1", U);
  Term const* u2 = var("u2", U);
  auto sel = [&](Term const* a, Term const* i) { return op("select", {a, i}); };
  auto store = [&](Term const* a, Term const* i, Term const* e) { return op("store", {a, i, e}); };
  // Arrays whose values any engine takes back; and arrays of elements of U, whose values
  // are constant arrays of an element, which not every engine can be given.
  std::vector<Term const*> const formulas = {
      mgr_.make_equal(ca, mgr_.make_const_array(AII, num("7"))),
      mgr_.make_equal(sel(st, num("3")), num("5")),
      mgr_.make_equal(sel(st, num("-2")), num("-7")),
      mgr_.make_equal(ex, store(store(mgr_.make_const_array(AII, num("0")), num("1"), num("10")),
                                num("2"), num("20"))),
      mgr_.make_equal(sel(sel(nested, bv("1", 8)), num("4")), real("1/2")),
      mgr_.make_equal(sel(nested, bv("2", 8)), mgr_.make_const_array(AIR, real("3"))),
      sel(ab, bv("0", 8)),
      mgr_.make_not(sel(ab, bv("255", 8))),
      mgr_.make_not(mgr_.make_equal(u1, u2)),
      mgr_.make_equal(sel(ua, u1), num("1")),
      mgr_.make_equal(sel(ua, u2), num("2")),
  };
  std::vector<Term const*> const of_elements = {
      mgr_.make_equal(sel(au, num("3")), u1),
      mgr_.make_equal(sel(au, num("4")), u2),
      mgr_.make_not(mgr_.make_equal(au, au2)),
  };
  assert_all(formulas);
  assert_all(of_elements);
  ASSERT_EQ(solver_->check(), CheckResult::Sat);
  EXPECT_EQ(value(sel(ca, num("100"))), num("7"));
  EXPECT_EQ(value(sel(st, num("3"))), num("5"));
  EXPECT_EQ(value(sel(ex, num("2"))), num("20"));
  EXPECT_EQ(value(sel(sel(nested, bv("1", 8)), num("4"))), real("1/2"));
  EXPECT_EQ(value(sel(au, num("4"))), value(u2));
  // The values themselves, read as arrays.
  Term const* e1 = value(u1);
  Term const* e2 = value(u2);
  struct Read {
    Term const* array;
    std::vector<Term const*> indices;  // one per level of nesting
    Term const* element;
  };
  std::vector<Read> const reads = {
      {ca, {num("0")}, num("7")},
      {ca, {num("-100")}, num("7")},
      {st, {num("3")}, num("5")},
      {st, {num("-2")}, num("-7")},
      {ex, {num("0")}, num("0")},
      {ex, {num("1")}, num("10")},
      {ex, {num("2")}, num("20")},
      {ex, {num("3")}, num("0")},
      {nested, {bv("1", 8), num("4")}, real("1/2")},
      {nested, {bv("2", 8), num("9")}, real("3")},
      {ab, {bv("0", 8)}, mgr_.make_true()},
      {ab, {bv("255", 8)}, mgr_.make_false()},
      {ua, {e1}, num("1")},
      {ua, {e2}, num("2")},
      {au, {num("3")}, e1},
      {au, {num("4")}, e2},
  };
  for (Read const& r : reads) {
    Term const* v = value(r.array);
    for (Term const* i : r.indices) {
      Term const* e = v == nullptr ? nullptr : element_at(v, i);
      EXPECT_NE(e, nullptr) << "not an array value: " << text(v);
      v = e;
    }
    EXPECT_EQ(v, r.element) << text(r.array) << " = " << text(value(r.array)) << " at "
                            << text(r.indices.back());
  }
  EXPECT_NE(value(au), value(au2));
  expect_model_satisfies(formulas);
}

// Fractions and negative numbers as the elements of constant arrays, which solvers accept only
// as values.
TEST_P(EngineSuiteTest, ConstantArraysOfFractionsGiveTheAssertedElements) {
  DataType const* AIR = mgr_.get_array_type(I_, R_);
  Term const* c = var("c", AIR);
  Term const* d = var("d", AIR);
  Term const* e = var("e", AIR);
  std::vector<Term const*> const formulas = {
      mgr_.make_equal(c, mgr_.make_const_array(AIR, real("-3/4"))),
      mgr_.make_equal(
          d, op("store", {mgr_.make_const_array(AIR, real("5/3")), num("1"), real("-1/2")})),
      mgr_.make_equal(e, mgr_.make_const_array(AIR, real("-2"))),
  };
  assert_all(formulas);
  ASSERT_EQ(solver_->check(), CheckResult::Sat);
  EXPECT_EQ(element_at(value(c), num("0")), real("-3/4")) << text(value(c));
  EXPECT_EQ(element_at(value(d), num("0")), real("5/3")) << text(value(d));
  EXPECT_EQ(element_at(value(d), num("1")), real("-1/2")) << text(value(d));
  EXPECT_EQ(element_at(value(e), num("7")), real("-2")) << text(value(e));
  expect_model_satisfies(formulas);
}

TEST_P(EngineSuiteTest, FunctionTablesAgreeWithTheConstraints) {
  DataType const* U = solver_->declare_sort("U");
  DataType const* BV8 = mgr_.get_bv_type(8);
  Term const* x = var("x", I_);
  Term const* u1 = var("u1", U);
  Term const* u2 = var("u2", U);
  Symbol const* f = solver_->declare_fun("f", {I_}, I_);
  Symbol const* g = solver_->declare_fun("g of two", {I_, I_}, I_);
  Symbol const* p = solver_->declare_fun("p", {I_}, B_);
  Symbol const* q = solver_->declare_fun("q", {U, U}, B_);
  Symbol const* h = solver_->declare_fun("h", {U}, U);
  Symbol const* r = solver_->declare_fun("r", {R_}, R_);
  Symbol const* k = solver_->declare_fun("k", {BV8, B_}, BV8);
  Symbol const* unused = solver_->declare_fun("unused", {I_}, I_);
  Term const* t = mgr_.make_true();
  Term const* fl = mgr_.make_false();
  std::vector<Term const*> const formulas = {
      op("=", {app(f, {num("1")}), num("3")}),
      op("=", {app(f, {num("2")}), num("-4")}),
      op("=", {app(f, {num("-1")}), num("36893488147419103232")}),
      op("=", {app(g, {num("1"), num("2")}), num("12")}),
      op("=", {app(g, {num("2"), num("1")}), num("21")}),
      op("=", {app(g, {x, x}), op("+", {app(f, {x}), num("1")})}),
      op("=", {x, num("2")}),
      app(p, {num("4")}),
      mgr_.make_not(app(p, {num("5")})),
      app(p, {num("6")}),
      mgr_.make_not(mgr_.make_equal(u1, u2)),
      app(q, {u1, u2}),
      mgr_.make_not(app(q, {u2, u1})),
      mgr_.make_equal(app(h, {u1}), u2),
      mgr_.make_equal(app(h, {u2}), u1),
      op("=", {app(r, {real("1/2")}), real("-1/3")}),
      op("=", {app(k, {bv("1", 8), t}), bv("255", 8)}),
      op("=", {app(k, {bv("1", 8), fl}), bv("0", 8)}),
  };
  assert_all(formulas);
  ASSERT_EQ(solver_->check(), CheckResult::Sat);
  Model const m = solver_->get_model();
  // Every symbol the engine was given, in the order they were made.
  std::vector<Symbol const*> constants;
  for (auto const& c : m.constants) {
    constants.push_back(c.first);
  }
  EXPECT_THAT(constants,
              ::testing::ElementsAre(x->get_symbol(), u1->get_symbol(), u2->get_symbol()));
  std::vector<Symbol const*> functions;
  for (auto const& fn : m.functions) {
    functions.push_back(fn.first);
    EXPECT_NE(fn.second.otherwise, nullptr) << fn.first->get_name();
  }
  ASSERT_THAT(functions, ::testing::ElementsAre(f, g, p, q, h, r, k, unused));
  FunctionValue const& fv = m.functions[0].second;
  FunctionValue const& gv = m.functions[1].second;
  FunctionValue const& pv = m.functions[2].second;
  FunctionValue const& qv = m.functions[3].second;
  FunctionValue const& hv = m.functions[4].second;
  FunctionValue const& rv = m.functions[5].second;
  FunctionValue const& kv = m.functions[6].second;
  Term const* e1 = value(u1);
  Term const* e2 = value(u2);
  struct Point {
    FunctionValue const* table;
    std::vector<Term const*> args;
    Term const* expected;
  };
  std::vector<Point> const points = {
      {&fv, {num("1")}, num("3")},
      {&fv, {num("2")}, num("-4")},
      {&fv, {num("-1")}, num("36893488147419103232")},
      {&gv, {num("1"), num("2")}, num("12")},
      {&gv, {num("2"), num("1")}, num("21")},
      {&gv, {num("2"), num("2")}, num("-3")},
      {&pv, {num("4")}, t},
      {&pv, {num("5")}, fl},
      {&pv, {num("6")}, t},
      {&qv, {e1, e2}, t},
      {&qv, {e2, e1}, fl},
      {&hv, {e1}, e2},
      {&hv, {e2}, e1},
      {&rv, {real("1/2")}, real("-1/3")},
      {&kv, {bv("1", 8), t}, bv("255", 8)},
      {&kv, {bv("1", 8), fl}, bv("0", 8)},
  };
  for (Point const& pt : points) {
    std::string args;
    for (Term const* a : pt.args) {
      args += " " + text(a);
    }
    EXPECT_EQ(pt.table->at(pt.args), pt.expected) << "at" << args;
  }
  // The value of an application is what its table says.
  EXPECT_EQ(value(app(f, {num("2")})), num("-4"));
  EXPECT_EQ(value(app(g, {x, x})), num("-3"));
  EXPECT_EQ(value(app(h, {u2})), e1);
  expect_model_satisfies(formulas);
}

// Values go back to the engine that gave them: each, asserted equal to its term, keeps the
// session satisfiable. Arrays of elements of an uninterpreted sort go back to z3 only: their
// values are constant arrays of an element, and cvc5 takes constant arrays of literals only.
TEST_P(EngineSuiteTest, ValuesAssertedBackKeepTheSessionSatisfiable) {
  DataType const* U = solver_->declare_sort("U");
  DataType const* BV12 = mgr_.get_bv_type(12);
  DataType const* nested_sort = mgr_.get_array_type(BV12, mgr_.get_array_type(I_, R_));
  Term const* u1 = var("u1", U);
  Term const* u2 = var("u2", U);
  Term const* r = var("r", R_);
  Term const* b = var("b", BV12);
  Term const* a = var("a", mgr_.get_array_type(I_, I_));
  Term const* nested = var("nested", nested_sort);
  Term const* au = var("au", mgr_.get_array_type(I_, U));
  Term const* x = var("x", I_);
  Symbol const* f = solver_->declare_fun("f", {U, I_}, R_);
  Term const* sel = op("select", {op("select", {nested, b}), x});
  assert_all({
      mgr_.make_not(mgr_.make_equal(u1, u2)),
      op("<", {r, real("-1/3")}),
      op("bvugt", {b, bv("#x7f0", 12)}),
      mgr_.make_equal(op("select", {a, num("2")}), num("-7")),
      op(">", {sel, app(f, {u1, x})}),
      op(">", {app(f, {u2, x}), real("7/2")}),
      op(">", {x, num("100")}),
      mgr_.make_equal(op("select", {au, num("3")}), u2),
  });
  ASSERT_EQ(solver_->check(), CheckResult::Sat);
  std::vector<Term const*> terms = {u1, u2, r, b, a, nested, x, sel, app(f, {u1, x})};
  if (is_z3()) {
    terms.push_back(au);
  }
  std::vector<Term const*> equations;
  for (Term const* t : terms) {
    equations.push_back(mgr_.make_equal(t, value(t)));
  }
  assert_all(equations);
  EXPECT_EQ(solver_->check(), CheckResult::Sat);
}

// ------------------------------------------------------------------------ unsat answers

TEST_P(EngineSuiteTest, UnsatCoresAreUnsatisfiableSubsetsOfTheAssertions) {
  Solver& s = *solver_;
  Term const* x = var("x", I_);
  Term const* y = var("y", I_);
  Term const* positive = op(">", {x, num("0")});
  Term const* negative = op("<", {x, num("0")});
  Term const* other = op(">", {y, num("0")});
  std::vector<Term const*> asserted = {positive, other};
  assert_all(asserted);
  s.push(2);
  asserted.push_back(negative);
  s.assert_formula(negative);
  ASSERT_EQ(s.check(), CheckResult::Unsat);
  std::vector<Term const*> core = s.get_unsat_core();
  EXPECT_THAT(core, ::testing::IsSubsetOf(asserted));
  // Without either of the two bounds the rest is satisfiable: both are in every core.
  EXPECT_THAT(core, ::testing::IsSupersetOf({positive, negative}));
  EXPECT_EQ(check_alone(core), CheckResult::Unsat);
  s.pop(2);
  EXPECT_EQ(s.check(), CheckResult::Sat);

  // A formula asserted again in a scope stays tracked once that scope is gone.
  Term const* low = op("<", {x, num("2")});
  Term const* high = op(">", {x, num("5")});
  s.assert_formula(low);
  s.push();
  s.assert_formula(low);
  s.pop();
  s.assert_formula(high);
  ASSERT_EQ(s.check(), CheckResult::Unsat);
  core = s.get_unsat_core();
  EXPECT_THAT(core, ::testing::IsSubsetOf({positive, other, low, high}));
  EXPECT_THAT(core, ::testing::IsSupersetOf({low, high}));
  EXPECT_EQ(check_alone(core), CheckResult::Unsat);

  // After a reset no formula stays, tracked or not.
  s.reset_assertions();
  EXPECT_EQ(s.check(), CheckResult::Sat);
  s.assert_formula(mgr_.make_false());
  ASSERT_EQ(s.check(), CheckResult::Unsat);
  EXPECT_THAT(s.get_unsat_core(), ::testing::ElementsAre(mgr_.make_false()));
  EXPECT_THAT(s.get_unsat_assumptions(), ::testing::IsEmpty()) << "no assumptions were made";
}

TEST_P(EngineSuiteTest, UnsatAssumptionsAreAnUnsatisfiableSubsetOfTheAssumptions) {
  Solver& s = *solver_;
  Term const* p = var("p", B_);
  Term const* q = var("q", B_);
  Term const* r = var("r", B_);
  Term const* x = var("x", I_);
  Term const* exclusive = op("=>", {p, mgr_.make_not(q)});
  s.assert_formula(exclusive);
  s.assert_formula(op(">", {x, num("3")}));
  std::vector<TheoryLit> const assumptions = {TheoryLit(p, false), TheoryLit(q, false),
                                              TheoryLit(r, true),
                                              TheoryLit(op("<", {x, num("10")}), false)};
  ASSERT_EQ(s.check_with_assumptions(assumptions), CheckResult::Unsat);
  std::vector<TheoryLit> const core = s.get_unsat_assumptions();
  std::vector<std::pair<Term const*, bool>> lits;
  for (TheoryLit const& l : core) {
    lits.emplace_back(l.get_term(), l.is_negated());
  }
  EXPECT_THAT(lits, ::testing::IsSubsetOf(std::vector<std::pair<Term const*, bool>>{
                        {p, false}, {q, false}, {r, true}, {assumptions[3].get_term(), false}}));
  // Without p or without q the rest holds: both are in every core.
  EXPECT_THAT(lits, ::testing::IsSupersetOf(
                        std::vector<std::pair<Term const*, bool>>{{p, false}, {q, false}}));
  EXPECT_EQ(s.check_with_assumptions(core), CheckResult::Unsat) << "the core alone";

  // Assumptions hold for their check only.
  ASSERT_EQ(s.check_with_assumptions({TheoryLit(p, false), TheoryLit(r, true)}), CheckResult::Sat);
  EXPECT_EQ(s.get_model_value(q), mgr_.make_false());
  EXPECT_EQ(s.get_model_value(r), mgr_.make_false());
  ASSERT_EQ(s.check_with_assumptions({TheoryLit(q, false)}), CheckResult::Sat);
  EXPECT_EQ(s.get_model_value(p), mgr_.make_false());

  // A negated assumption, alone in the clash: the core is that literal, negated.
  s.assert_formula(mgr_.make_or(p, q));
  s.assert_formula(mgr_.make_not(q));
  ASSERT_EQ(s.check_with_assumptions({TheoryLit(p, true)}), CheckResult::Unsat);
  std::vector<TheoryLit> const negated = s.get_unsat_assumptions();
  ASSERT_EQ(negated.size(), 1u);
  EXPECT_EQ(negated[0].get_term(), p);
  EXPECT_TRUE(negated[0].is_negated());
  EXPECT_EQ(s.check(), CheckResult::Sat);
}

// ------------------------------------------------------------------------ all-sat and scopes

TEST_P(EngineSuiteTest, AllSatListsEveryCubeOnce) {
  Solver& s = *solver_;
  Term const* p = var("p", B_);
  Term const* q = var("q", B_);
  Term const* r = var("r", B_);
  Term const* x = var("x", I_);
  Term const* big = op(">", {x, num("10")});
  // (p or q) and (q => r) and (x > 10 => not p)
  s.assert_formula(mgr_.make_or(p, q));
  s.assert_formula(op("=>", {q, r}));
  s.assert_formula(op("=>", {big, mgr_.make_not(p)}));
  auto holds = [](bool vp, bool vq, bool vr, bool vbig) {
    return (vp || vq) && (!vq || vr) && (!vbig || !vp);
  };
  struct Projection {
    std::vector<Term const*> terms;
    std::set<std::vector<bool>> cubes;
  };
  std::vector<Projection> projections(2);
  projections[0].terms = {p, q, r, big};
  projections[1].terms = {r, p};
  for (int bits = 0; bits < 16; ++bits) {
    bool const vp = bits & 1, vq = bits & 2, vr = bits & 4, vbig = bits & 8;
    if (holds(vp, vq, vr, vbig)) {
      projections[0].cubes.insert({vp, vq, vr, vbig});
      projections[1].cubes.insert({vr, vp});
    }
  }
  ASSERT_EQ(projections[0].cubes.size(), 5u) << "the formula has five models over its atoms";
  for (Projection const& pr : projections) {
    std::set<std::vector<bool>> found;
    for (std::vector<TheoryLit> const& cube : s.check_allsat(pr.terms)) {
      ASSERT_EQ(cube.size(), pr.terms.size());
      std::vector<bool> values;
      for (std::size_t i = 0; i < cube.size(); ++i) {
        EXPECT_EQ(cube[i].get_term(), pr.terms[i]);
        values.push_back(!cube[i].is_negated());
      }
      EXPECT_TRUE(found.insert(values).second) << "a cube found twice";
    }
    EXPECT_EQ(found, pr.cubes);
    EXPECT_EQ(s.reason_unknown(), "");
    EXPECT_EQ(s.num_scopes(), 0u);
  }
  // The blocking clauses are gone; an unsatisfiable formula has no cube.
  EXPECT_EQ(s.check(), CheckResult::Sat);
  s.push();
  s.assert_formula(p);
  s.assert_formula(big);
  EXPECT_THAT(s.check_allsat({p, q}), ::testing::IsEmpty());
  EXPECT_EQ(s.reason_unknown(), "");
  s.pop();
  EXPECT_EQ(s.check_allsat({p, q}).size(), 3u) << "p, q, or both";
}

TEST_P(EngineSuiteTest, ScopesAndResetFollowTheAssertions) {
  Solver& s = *solver_;
  EXPECT_EQ(s.engine()->name(), GetParam());
  Term const* x = var("x", I_);
  Term const* y = var("y", I_);
  s.assert_formula(op(">", {x, y}));
  EXPECT_EQ(s.check(), CheckResult::Sat);
  s.push();
  // A symbol first used inside a scope is still known after it.
  Term const* z = var("z", I_);
  s.assert_formula(op(">", {z, x}));
  s.push(2);
  s.assert_formula(op(">", {y, z}));
  EXPECT_EQ(s.check(), CheckResult::Unsat);
  s.pop(2);
  EXPECT_EQ(s.num_scopes(), 1u);
  EXPECT_EQ(s.check(), CheckResult::Sat);
  s.pop();
  s.assert_formula(op("=", {z, num("7")}));
  s.assert_formula(op("<", {x, z}));
  s.assert_formula(op(">", {y, num("4")}));
  ASSERT_EQ(s.check(), CheckResult::Sat);
  EXPECT_EQ(s.get_model_value(z), num("7"));
  EXPECT_EQ(s.get_model_value(x), num("6")) << "4 < y < x < 7";
  s.assert_formula(op(">", {y, x}));
  EXPECT_EQ(s.check(), CheckResult::Unsat);
  // Reset drops the assertions and the scopes; the symbols stay declared.
  s.push(3);
  s.reset_assertions();
  EXPECT_EQ(s.num_scopes(), 0u);
  EXPECT_EQ(s.check(), CheckResult::Sat);
  s.assert_formula(op("=", {op("+", {x, z}), num("3")}));
  s.assert_formula(op("=", {z, num("1")}));
  ASSERT_EQ(s.check(), CheckResult::Sat);
  EXPECT_EQ(s.get_model_value(x), num("2"));
}

TEST_P(EngineSuiteTest, ATimeOutAnswersUnknownWithAReason) {
  Configuration config;
  config.timeout = 0.1;
  Solver s(mgr_, config, make_engine(GetParam(), mgr_, config));
  // Factoring a product of two random 48-bit primes through a 96-bit multiplier: many seconds
  // for either solver, so the time limit ends the check.
  DataType const* BV96 = mgr_.get_bv_type(96);
  Term const* x = var("x", BV96);
  Term const* y = var("y", BV96);
  Term const* bound = bv("281474976710656", 96);  // 2^48
  for (Term const* factor : {x, y}) {
    s.assert_formula(op("bvult", {factor, bound}));
    s.assert_formula(op("bvugt", {factor, bv("1", 96)}));
  }
  s.assert_formula(mgr_.make_equal(op("bvmul", {x, y}), bv("50668735533102531785624545187", 96)));
  ASSERT_EQ(s.check(), CheckResult::Unknown);
  EXPECT_EQ(s.reason_unknown(), "timeout");
  // The session goes on.
  s.reset_assertions();
  s.assert_formula(mgr_.make_equal(x, bv("251870415031607", 96)));
  ASSERT_EQ(s.check(), CheckResult::Sat);
  EXPECT_EQ(s.reason_unknown(), "");
}

// ------------------------------------------------------------------------ interpolants

TEST_P(EngineSuiteTest, InterpolantsFollowFromAContradictBAndUseSharedSymbolsOnly) {
  Term const* x = var("x", I_);
  Term const* y = var("y", I_);
  Term const* z = var("z", I_);
  Term const* w = var("w", I_);
  Term const* rz = var("rz", R_);
  Symbol const* f = mgr_.make_symbol("f", mgr_.get_function_type({I_}, I_));
  Term const* p = var("p", B_);
  Term const* q = var("q", B_);
  Term const* r = var("r", B_);
  DataType const* BV8 = mgr_.get_bv_type(8);
  Term const* bx = var("bx", BV8);
  Term const* by = var("by", BV8);
  struct Case {
    char const* name;
    std::vector<Term const*> a;
    std::vector<Term const*> b;
  };
  std::vector<Case> const cases = {
      {"bit-vectors",
       {op("bvult", {bx, bv("4", 8)})},
       {mgr_.make_equal(by, bx), mgr_.make_equal(by, bv("5", 8))}},
      {"order", {op(">", {x, y}), op(">", {y, z})}, {op(">", {z, x})}},
      {"functions",
       {mgr_.make_equal(w, z), mgr_.make_equal(app(f, {w}), y)},
       {mgr_.make_not(mgr_.make_equal(app(f, {z}), y))}},
      {"propositional",
       {mgr_.make_or(p, q), mgr_.make_not(p)},
       {mgr_.make_or(mgr_.make_not(q), r), mgr_.make_not(r)}},
      {"Int and Real",
       {op(">", {x, num("5")}), mgr_.make_equal(rz, op("to_real", {x}))},
       {op("<", {rz, real("7/2")})}},
      {"B empty", {op("<", {x, num("0")}), op(">", {x, num("0")})}, {}},
      {"A empty", {}, {op(">", {y, num("0")}), op("<", {y, num("0")})}},
  };
  Solver& s = *solver_;
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    s.reset_assertions();
    int const ga = s.new_interpolation_group();
    int const gb = s.new_interpolation_group();
    s.set_interpolation_group(ga);
    assert_all(c.a);
    s.set_interpolation_group(gb);
    assert_all(c.b);
    ASSERT_EQ(s.check(), CheckResult::Unsat);
    if (is_z3()) {
      EXPECT_THROW(s.get_interpolant({ga}), Unsupported);
      GTEST_SKIP() << "z3 has no interpolation";
    }
    Term const* i = s.get_interpolant({ga});
    ASSERT_NE(i, nullptr);
    ASSERT_TRUE(i->get_type()->is_bool());
    std::vector<Term const*> a_not_i(c.a);
    a_not_i.push_back(mgr_.make_not(i));
    EXPECT_EQ(check_alone(a_not_i), CheckResult::Unsat) << "A implies " << text(i);
    std::vector<Term const*> i_and_b(c.b);
    i_and_b.push_back(i);
    EXPECT_EQ(check_alone(i_and_b), CheckResult::Unsat) << text(i) << " and B are unsatisfiable";
    std::set<Symbol const*> const in_a = symbols_of(c.a);
    std::set<Symbol const*> const in_b = symbols_of(c.b);
    for (Symbol const* sym : symbols_of({i})) {
      EXPECT_TRUE(in_a.count(sym) != 0 && in_b.count(sym) != 0)
          << "'" << sym->get_name() << "' is not shared, in " << text(i);
    }
    if (c.a.empty()) {
      EXPECT_EQ(i, mgr_.make_true()) << text(i);
    }
    if (c.b.empty()) {
      EXPECT_EQ(i, mgr_.make_false()) << text(i);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Engines, EngineSuiteTest, ::testing::ValuesIn(all_engines()),
                         engine_test_name);

// ------------------------------------------------------------------------ a solver that dies

// A solver process behind a shell that passes each line on until one matches `pattern`, and
// then says so on its error stream and exits, closing the solver's input.
std::string dying(std::string const& solver, std::string const& pattern) {
  return "sh -c 'while IFS= read -r l; do case \"$l\" in " + pattern +
         ") echo \"going down on: $l\" >&2; exit 3;; esac; printf \"%s\\n\" \"$l\"; done | " +
         solver + "'";
}

class DyingSolverTest : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    std::string const program = GetParam().substr(0, GetParam().find(' '));
    if (!on_path(program)) {
      GTEST_SKIP() << program << " is not on PATH; the engine '" << GetParam() << "' is not tested";
    }
    config_.model_generation = true;
    config_.unsat_core_generation = true;
  }

  // Runs `session` on a solver over `command`, then closes it: the whole in bounded time, with
  // no process and no descriptor left behind.
  template <class Session>
  void run_session(std::string const& command, Session session) {
    std::size_t const fds = open_fds();
    auto const start = std::chrono::steady_clock::now();
    {
      Solver s(mgr_, config_, make_engine(command, mgr_, config_));
      session(s);
    }
    double const seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LT(seconds, 10.0) << "no hang";
    EXPECT_TRUE(no_child_left());
    EXPECT_EQ(open_fds(), fds) << "descriptors leaked";
  }

  TermManager mgr_;
  Configuration config_;
};

TEST_P(DyingSolverTest, DyingOnAnAssertionFailsTheCheckAndEveryCallAfter) {
  std::string const command = dying(GetParam(), "*assert*tvx.boom*");
  run_session(command, [&](Solver& s) {
    Term const* x = mgr_.make_constant(s.declare_fun("x", {}, mgr_.get_integer_type()));
    Term const* boom = mgr_.make_constant(s.declare_fun("boom", {}, mgr_.get_bool_type()));
    s.assert_formula(mgr_.make_builtin(">", {x, mgr_.make_number("2", mgr_.get_integer_type())}));
    ASSERT_EQ(s.check(), CheckResult::Sat) << "alive until the assertion comes";
    s.assert_formula(boom);
    std::string message;
    try {
      s.check();
      ADD_FAILURE() << "the check did not fail";
    } catch (EngineError const& e) {
      message = e.what();
    }
    EXPECT_THAT(message, HasSubstr(GetParam()));
    EXPECT_THAT(message, HasSubstr("going down on: (assert"));
    EXPECT_THAT(message, HasSubstr("tvx.boom"));
    EXPECT_THAT([&] { s.check(); }, ::testing::Throws<EngineError>());
    EXPECT_THAT(
        [&] {
          s.push();
          s.check();
        },
        ::testing::Throws<EngineError>());
  });
}

TEST_P(DyingSolverTest, DyingWhenAskedForAValueFailsThatQueryAndEveryCallAfter) {
  std::string const command = dying(GetParam(), "*get-value*");
  run_session(command, [&](Solver& s) {
    Term const* x = mgr_.make_constant(s.declare_fun("x", {}, mgr_.get_integer_type()));
    s.assert_formula(mgr_.make_builtin(">", {x, mgr_.make_number("2", mgr_.get_integer_type())}));
    ASSERT_EQ(s.check(), CheckResult::Sat);
    std::string message;
    try {
      s.get_model_value(x);
      ADD_FAILURE() << "the query did not fail";
    } catch (EngineError const& e) {
      message = e.what();
    }
    EXPECT_THAT(message, HasSubstr(GetParam()));
    EXPECT_THAT(message, HasSubstr("going down on: (get-value"));
    EXPECT_THAT(message, HasSubstr("the command: (get-value"));
    EXPECT_THAT([&] { s.get_model(); }, ::testing::Throws<EngineError>());
    EXPECT_THAT([&] { s.check(); }, ::testing::Throws<EngineError>());
    EXPECT_THAT(
        [&] {
          s.reset_assertions();
          s.check();
        },
        ::testing::Throws<EngineError>());
  });
}

INSTANTIATE_TEST_SUITE_P(Solvers, DyingSolverTest,
                         ::testing::Values(std::string(kZ3Process), std::string(kCvc5Process)),
                         [](::testing::TestParamInfo<std::string> const& info) {
                           return info.param.substr(0, info.param.find(' '));
                         });

}  // namespace
}  // namespace tvx
