// The z3 engine's models and values, translated back into the term layer: numerals, Reals as
// rationals, bit-vector literals, arrays as stores over a constant array, elements of
// uninterpreted sorts as the term manager's abstract values, functions as tables.
#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <tvx/core/error.h>

#include "solver/table_builder.h"
#include "solver/z3_engine.h"

namespace tvx {

Z3_model Z3Engine::current_model() {
  if (model_ == nullptr) {
    Z3_model m = Z3_solver_get_model(ctx_, solver_);
    check_error();
    Z3_model_inc_ref(ctx_, m);
    model_ = m;
  }
  return model_;
}

void Z3Engine::drop_model() {
  if (model_ != nullptr) {
    Z3_model_dec_ref(ctx_, model_);
    model_ = nullptr;
  }
}

Term const* Z3Engine::value(Term const* term) {
  Z3_model const m = current_model();
  Z3_ast v = nullptr;
  if (!Z3_model_eval(ctx_, m, translate(term), true, &v) || v == nullptr) {
    check_error();
    throw EngineError("z3: the model gives no value to a term of sort " +
                      term->get_type()->to_string());
  }
  Z3_inc_ref(ctx_, v);
  try {
    Term const* t = to_term(v, term->get_type());
    Z3_dec_ref(ctx_, v);
    return t;
  } catch (...) {
    Z3_dec_ref(ctx_, v);
    throw;
  }
}

// A function body for TableBuilder::read: ites whose conditions are conjunctions of
// (= (:var i) v), or, for a Bool argument, (:var i) and (not (:var i)); for a predicate, a
// leaf may be such a condition, a disjunction of them, or the negation of either.
class Z3Engine::BodyReader {
 public:
  Z3Engine& z;
  std::vector<DataType const*> arg_sorts;
  DataType const* result_sort;

  bool ite(Z3_ast n, Z3_ast& cond, Z3_ast& then_part, Z3_ast& else_part) {
    Z3_app const a = app_of(n, Z3_OP_ITE);
    if (a == nullptr) {
      return false;
    }
    cond = Z3_get_app_arg(z.ctx_, a, 0);
    then_part = Z3_get_app_arg(z.ctx_, a, 1);
    else_part = Z3_get_app_arg(z.ctx_, a, 2);
    return true;
  }
  bool fixes(Z3_ast cond, TableBuilder::Fixes& out);
  bool conditions(Z3_ast n, bool& positive, std::vector<TableBuilder::Fixes>& out);
  Term const* value(Z3_ast n) { return z.to_term(n, result_sort); }

 private:
  Z3_app app_of(Z3_ast a, Z3_decl_kind kind) const {
    if (Z3_get_ast_kind(z.ctx_, a) != Z3_APP_AST) {
      return nullptr;
    }
    Z3_app const app = Z3_to_app(z.ctx_, a);
    return Z3_get_decl_kind(z.ctx_, Z3_get_app_decl(z.ctx_, app)) == kind ? app : nullptr;
  }
  // The argument a bound variable stands for; arg_sorts.size() for anything else.
  std::size_t var_index(Z3_ast a) const {
    if (Z3_get_ast_kind(z.ctx_, a) != Z3_VAR_AST) {
      return arg_sorts.size();
    }
    return std::min<std::size_t>(Z3_get_index_value(z.ctx_, a), arg_sorts.size());
  }
};

// Translates a z3 value into the term layer. Array values nest (stores over stores), so the
// walk keeps its own stack: a task converts one value, or combines converted parts of an array
// value on the result stack: the constant array of the element on top, or a store of the
// (index, element) pair on top into the array below them. A table (as-array, lambda) is read
// through a TableBuilder, whose values are converted by walks of their own: as many nested
// walks as the sort has levels of arrays, which a program wrote out.
class Z3Engine::ValueWalk {
 public:
  ValueWalk(Z3Engine& z, Z3_ast root) : z_(z), root_(root) {}
  ~ValueWalk() {
    for (Z3_ast a : simplified_) {
      Z3_dec_ref(z_.ctx_, a);
    }
  }
  ValueWalk(ValueWalk const&) = delete;
  ValueWalk& operator=(ValueWalk const&) = delete;

  Term const* run(DataType const* sort);

 private:
  enum class Step : std::uint8_t { kConvert, kConstArray, kStore, kConstruct };
  struct Task {
    Step step;
    Z3_ast value;
    DataType const* sort;
    bool retried;                    // the value is the simplification of another
    Symbol const* symbol = nullptr;  // kConstruct: the constructor to apply
  };
  void convert(Task const& task);
  void convert_array(Z3_ast v, DataType const* sort);
  bool retry(Task const& task);
  [[noreturn]] void fail(Z3_ast current, DataType const* sort);

  Z3Engine& z_;
  Z3_ast root_;
  std::vector<Task> tasks_;
  std::vector<Term const*> results_;
  std::vector<Z3_ast> simplified_;  // referenced until the walk ends
};

Term const* Z3Engine::ValueWalk::run(DataType const* sort) {
  tasks_.push_back(Task{Step::kConvert, root_, sort, false});
  while (!tasks_.empty()) {
    Task const task = tasks_.back();
    tasks_.pop_back();
    if (task.step == Step::kConstArray) {
      z_.answers_.const_array_on_top(results_, task.sort);
    } else if (task.step == Step::kStore) {
      z_.answers_.store_on_top(results_);
    } else if (task.step == Step::kConstruct) {
      std::size_t const n = static_cast<std::size_t>(task.symbol->get_arity());
      Term const* t = z_.mgr_.make_term(task.symbol, results_.data() + results_.size() - n, n);
      results_.resize(results_.size() - n);
      results_.push_back(t);
    } else {
      convert(task);
    }
  }
  return results_.back();
}

void Z3Engine::ValueWalk::fail(Z3_ast current, DataType const* sort) {
  Z3_context const ctx = z_.ctx_;
  std::string text = current == nullptr ? "(none)" : Z3_ast_to_string(ctx, current);
  if (current != root_) {
    text += " in " + std::string(Z3_ast_to_string(ctx, root_));
  }
  throw EngineError("z3: cannot translate the value " + text + " of sort " + sort->to_string());
}

// z3's model evaluation can leave a closed value unevaluated (an ite over an equality of two
// constant arrays, say): such a value is simplified, or else solved for, and converted once
// more. False when it was so once already, or neither gives a value.
bool Z3Engine::ValueWalk::retry(Task const& task) {
  if (task.retried) {
    return false;
  }
  Z3_context const ctx = z_.ctx_;
  Z3_ast s = Z3_simplify(ctx, task.value);
  z_.check_error();
  bool const done =
      s != nullptr && (Z3_is_numeral_ast(ctx, s) || Z3_get_bool_value(ctx, s) != Z3_L_UNDEF);
  if (done) {
    Z3_inc_ref(ctx, s);
  } else {
    s = z_.evaluate_closed(task.value);
    if (s == nullptr) {
      return false;
    }
  }
  simplified_.push_back(s);
  tasks_.push_back(Task{Step::kConvert, s, task.sort, true});
  return true;
}

void Z3Engine::ValueWalk::convert(Task const& task) {
  Z3_context const ctx = z_.ctx_;
  TermManager& mgr = z_.mgr_;
  Z3_ast const v = task.value;
  DataType const* sort = task.sort;
  if (v == nullptr) {
    fail(v, sort);
  }
  if (sort->is_bool()) {
    Z3_lbool const b = Z3_get_bool_value(ctx, v);
    if (b != Z3_L_UNDEF) {
      results_.push_back(b == Z3_L_TRUE ? mgr.make_true() : mgr.make_false());
    } else if (!retry(task)) {
      fail(v, sort);
    }
  } else if (sort->is_int() || sort->is_real() || sort->is_bv()) {
    if (Z3_is_numeral_ast(ctx, v)) {
      results_.push_back(mgr.make_number(Z3_get_numeral_string(ctx, v), sort));
    } else if (sort->is_real() && Z3_is_algebraic_number(ctx, v)) {
      // An irrational root: kept as z3 writes it, with z3's decimal approximation.
      std::string const text = Z3_ast_to_string(ctx, v);
      results_.push_back(mgr.make_algebraic(text, Z3_get_numeral_decimal_string(ctx, v, 20)));
    } else if (!retry(task)) {
      fail(v, sort);
    }
  } else if (sort->is_uninterpreted()) {
    // z3 names each element of a model's universe once: U!val!0, U!val!1, ...
    results_.push_back(z_.answers_.element(sort, Z3_ast_to_string(ctx, v)));
  } else if (sort->is_array()) {
    convert_array(v, sort);
  } else if (sort->is_datatype()) {
    // A constructor applied to values: its arguments are converted first, left to right.
    Symbol const* c = nullptr;
    if (Z3_get_ast_kind(ctx, v) == Z3_APP_AST) {
      Z3_func_decl const d = Z3_get_app_decl(ctx, Z3_to_app(ctx, v));
      auto it = z_.constructor_of_decl_.find(Z3_get_ast_id(ctx, Z3_func_decl_to_ast(ctx, d)));
      c = it == z_.constructor_of_decl_.end() ? nullptr : it->second;
    }
    if (c == nullptr) {
      if (!retry(task)) {
        fail(v, sort);
      }
      return;
    }
    Z3_app const app = Z3_to_app(ctx, v);
    tasks_.push_back(Task{Step::kConstruct, nullptr, sort, false, c});
    DataType const* type = c->get_type();
    for (unsigned k = Z3_get_app_num_args(ctx, app); k-- > 0;) {
      tasks_.push_back(
          Task{Step::kConvert, Z3_get_app_arg(ctx, app, k), type->get_component(k), false});
    }
  } else {
    fail(v, sort);
  }
}

void Z3Engine::ValueWalk::convert_array(Z3_ast v, DataType const* sort) {
  Z3_context const ctx = z_.ctx_;
  DataType const* index = sort->get_array_index();
  DataType const* elem = sort->get_array_element();
  if (Z3_is_as_array(ctx, v)) {
    // A function table of the model.
    Z3_func_interp f =
        Z3_model_get_func_interp(ctx, z_.current_model(), Z3_get_as_array_func_decl(ctx, v));
    z_.check_error();
    if (f == nullptr) {
      fail(v, sort);
    }
    Z3_func_interp_inc_ref(ctx, f);
    try {
      results_.push_back(z_.answers_.array_of(sort, z_.function_value(f, {index}, elem)));
    } catch (...) {
      Z3_func_interp_dec_ref(ctx, f);
      throw;
    }
    Z3_func_interp_dec_ref(ctx, f);
    return;
  }
  if (Z3_get_ast_kind(ctx, v) == Z3_QUANTIFIER_AST && Z3_is_lambda(ctx, v)) {
    // (lambda ((x I)) BODY): a table over x read from BODY.
    TableBuilder table(z_.mgr_, 1);
    BodyReader reader{z_, {index}, elem};
    table.read(Z3_get_quantifier_body(ctx, v), elem->is_bool(), reader);
    results_.push_back(z_.answers_.array_of(sort, table.finish()));
    return;
  }
  if (Z3_get_ast_kind(ctx, v) != Z3_APP_AST) {
    fail(v, sort);
  }
  Z3_app const app = Z3_to_app(ctx, v);
  Z3_decl_kind const kind = Z3_get_decl_kind(ctx, Z3_get_app_decl(ctx, app));
  if (kind == Z3_OP_CONST_ARRAY) {
    tasks_.push_back(Task{Step::kConstArray, nullptr, sort, false});
    tasks_.push_back(Task{Step::kConvert, Z3_get_app_arg(ctx, app, 0), elem, false});
  } else if (kind == Z3_OP_STORE) {
    tasks_.push_back(Task{Step::kStore, nullptr, sort, false});
    tasks_.push_back(Task{Step::kConvert, Z3_get_app_arg(ctx, app, 2), elem, false});
    tasks_.push_back(Task{Step::kConvert, Z3_get_app_arg(ctx, app, 1), index, false});
    tasks_.push_back(Task{Step::kConvert, Z3_get_app_arg(ctx, app, 0), sort, false});
  } else {
    fail(v, sort);
  }
}

Term const* Z3Engine::to_term(Z3_ast value, DataType const* sort) {
  ValueWalk walk(*this, value);
  return walk.run(sort);
}

bool Z3Engine::BodyReader::fixes(Z3_ast cond, TableBuilder::Fixes& out) {
  Z3_context const ctx = z.ctx_;
  std::size_t const none = arg_sorts.size();
  std::vector<Z3_ast> todo{cond};
  while (!todo.empty()) {
    Z3_ast const c = todo.back();
    todo.pop_back();
    if (Z3_app const a = app_of(c, Z3_OP_AND)) {
      for (unsigned k = Z3_get_app_num_args(ctx, a); k-- > 0;) {
        todo.push_back(Z3_get_app_arg(ctx, a, k));
      }
      continue;
    }
    std::size_t i = var_index(c);
    Term const* value = z.mgr_.make_true();
    if (i == none) {
      if (Z3_app const a = app_of(c, Z3_OP_NOT)) {
        i = var_index(Z3_get_app_arg(ctx, a, 0));
        value = z.mgr_.make_false();
      } else if (Z3_app const eq = app_of(c, Z3_OP_EQ)) {
        Z3_ast lhs = Z3_get_app_arg(ctx, eq, 0);
        Z3_ast rhs = Z3_get_app_arg(ctx, eq, 1);
        if (var_index(lhs) == none) {
          std::swap(lhs, rhs);
        }
        i = var_index(lhs);
        value = i == none ? nullptr : z.to_term(rhs, arg_sorts[i]);
      }
    }
    if (i == none) {
      return false;
    }
    out.emplace_back(i, value);
  }
  return true;
}

bool Z3Engine::BodyReader::conditions(Z3_ast n, bool& positive,
                                      std::vector<TableBuilder::Fixes>& out) {
  Z3_context const ctx = z.ctx_;
  if (Z3_get_bool_value(ctx, n) != Z3_L_UNDEF) {
    return false;  // true or false: a value
  }
  if (Z3_app const a = app_of(n, Z3_OP_NOT)) {
    positive = false;
    n = Z3_get_app_arg(ctx, a, 0);
  }
  std::vector<Z3_ast> disjuncts{n};
  if (Z3_app const a = app_of(n, Z3_OP_OR)) {
    disjuncts.clear();
    for (unsigned k = 0, m = Z3_get_app_num_args(ctx, a); k < m; ++k) {
      disjuncts.push_back(Z3_get_app_arg(ctx, a, k));
    }
  }
  for (Z3_ast d : disjuncts) {
    out.emplace_back();
    if (!fixes(d, out.back())) {
      return false;
    }
  }
  return true;
}

FunctionValue Z3Engine::function_value(Z3_func_interp f,
                                       std::vector<DataType const*> const& arg_sorts,
                                       DataType const* result_sort) {
  TableBuilder table(mgr_, arg_sorts.size());
  TableBuilder::Path args;
  for (unsigned k = 0, n = Z3_func_interp_get_num_entries(ctx_, f); k < n; ++k) {
    // The entry is an object of its own; its AST parts live as long as the table.
    Z3_func_entry e = Z3_func_interp_get_entry(ctx_, f, k);
    Z3_func_entry_inc_ref(ctx_, e);
    std::vector<Z3_ast> parts;
    for (unsigned i = 0, m = Z3_func_entry_get_num_args(ctx_, e); i < m; ++i) {
      parts.push_back(Z3_func_entry_get_arg(ctx_, e, i));
    }
    parts.push_back(Z3_func_entry_get_value(ctx_, e));
    Z3_func_entry_dec_ref(ctx_, e);
    args.clear();
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
      args.push_back(to_term(parts[i], arg_sorts[i]));
    }
    table.add(args, to_term(parts.back(), result_sort));
  }
  Z3_ast const otherwise = Z3_func_interp_get_else(ctx_, f);
  if (otherwise == nullptr) {
    return table.finish(answers_.any_value(result_sort));
  }
  // The else value may be a body over the arguments rather than a value.
  BodyReader reader{*this, arg_sorts, result_sort};
  try {
    table.read(otherwise, result_sort->is_bool(), reader);
  } catch (EngineError const&) {
    throw Unsupported("z3: the function value " + std::string(Z3_ast_to_string(ctx_, otherwise)) +
                      " is not a finite table");
  }
  return table.finish();
}

// The value of a closed expression over interpreted symbols, by a solver of its own: a fresh
// constant equal to it, and the constant's value in that solver's model. A simple solver,
// since preprocessing would define the constant as the expression again. Referenced; null
// when the solver finds none.
Z3_ast Z3Engine::evaluate_closed(Z3_ast value) {
  Z3_solver s = Z3_mk_simple_solver(ctx_);
  Z3_solver_inc_ref(ctx_, s);
  Z3_ast const c = Z3_mk_fresh_const(ctx_, "value", Z3_get_sort(ctx_, value));
  Z3_inc_ref(ctx_, c);
  Z3_ast const eq = Z3_mk_eq(ctx_, c, value);
  Z3_inc_ref(ctx_, eq);
  Z3_solver_assert(ctx_, s, eq);
  Z3_ast result = nullptr;
  if (Z3_solver_check(ctx_, s) == Z3_L_TRUE) {
    Z3_model m = Z3_solver_get_model(ctx_, s);
    Z3_model_inc_ref(ctx_, m);
    if (Z3_model_eval(ctx_, m, c, true, &result) && result != nullptr) {
      Z3_inc_ref(ctx_, result);
    } else {
      result = nullptr;
    }
    Z3_model_dec_ref(ctx_, m);
  }
  Z3_dec_ref(ctx_, eq);
  Z3_dec_ref(ctx_, c);
  Z3_solver_dec_ref(ctx_, s);
  check_error();
  return result;
}

Term const* Z3Engine::application_value(Symbol const* s) {
  // z3's completion of an application to fresh arguments gives the function's constant value.
  std::vector<Z3_ast> args;
  DataType const* type = s->get_type();
  for (std::size_t i = 0; i < s->get_arity(); ++i) {
    args.push_back(keep(Z3_mk_fresh_const(ctx_, "arg", sort_of(type->get_component(i)))));
  }
  Z3_func_decl const d = decls_[s->get_id()];
  Z3_ast app = keep(Z3_mk_app(ctx_, d, static_cast<unsigned>(args.size()), args.data()));
  Z3_ast v = nullptr;
  if (!Z3_model_eval(ctx_, current_model(), app, true, &v) || v == nullptr) {
    check_error();
    throw EngineError("z3: the model gives no value to '" + s->get_name() + "'");
  }
  return to_term(keep(v), s->get_output_type());
}

Model Z3Engine::model() {
  Z3_model const m = current_model();
  Answers::ModelReader reader;
  reader.constant = [&](Symbol const* s) {
    Z3_ast v = nullptr;
    Z3_ast const c = Z3_mk_app(ctx_, decls_[s->get_id()], 0, nullptr);
    if (!Z3_model_eval(ctx_, m, c, true, &v) || v == nullptr) {
      check_error();
      throw EngineError("z3: the model gives no value to '" + s->get_name() + "'");
    }
    Z3_inc_ref(ctx_, v);
    try {
      Term const* t = to_term(v, s->get_output_type());
      Z3_dec_ref(ctx_, v);
      return t;
    } catch (...) {
      Z3_dec_ref(ctx_, v);
      throw;
    }
  };
  reader.function = [&](Symbol const* s, FunctionValue& fv) {
    Z3_func_interp f = Z3_model_get_func_interp(ctx_, m, decls_[s->get_id()]);
    check_error();
    if (f == nullptr) {
      return false;  // no assertion constrains it
    }
    std::vector<DataType const*> arg_sorts;
    for (std::size_t i = 0; i < s->get_arity(); ++i) {
      arg_sorts.push_back(s->get_type()->get_component(i));
    }
    Z3_func_interp_inc_ref(ctx_, f);
    try {
      fv = function_value(f, arg_sorts, s->get_output_type());
    } catch (...) {
      Z3_func_interp_dec_ref(ctx_, f);
      throw;
    }
    Z3_func_interp_dec_ref(ctx_, f);
    return true;
  };
  reader.application = [&](Symbol const* s) { return application_value(s); };
  return answers_.model(known_, reader);
}

}  // namespace tvx
