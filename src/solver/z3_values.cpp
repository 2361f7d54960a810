// The z3 engine's models and values, translated back into the term layer: numerals, Reals as
// rationals, bit-vector literals, arrays as stores over a constant array, elements of
// uninterpreted sorts as the term manager's abstract values, functions as tables.
#include <algorithm>
#include <string>
#include <vector>

#include <tvx/core/error.h>

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

// The abstract value standing for an element of an uninterpreted sort.
Term const* Z3Engine::element(Z3_ast value, DataType const* sort) {
  unsigned const id = Z3_get_ast_id(ctx_, value);
  auto it = elements_.find(id);
  if (it == elements_.end()) {
    // The AST is referenced for the engine's life, so its id is never reused for another.
    keep(value);
    it = elements_.emplace(id, next_element_[sort->get_id()]++).first;
  }
  return mgr_.make_abstract_value(sort, it->second);
}

// Translates a z3 value of the given sort into the term layer. Array values nest (arrays of
// arrays, stores over stores), so the walk keeps its own stack.
Term const* Z3Engine::to_term(Z3_ast root, DataType const* root_sort) {
  // A task converts one value, or combines converted parts of an array value on the result
  // stack: the constant array of its element on top, or `stores` (index, element) pairs
  // stored into the array below them.
  enum class Step : std::uint8_t { kConvert, kConstArray, kStores };
  struct Task {
    Step step;
    Z3_ast value;
    DataType const* sort;
    std::size_t stores;
    bool retried = false;  // the value is the simplification of another
  };
  std::vector<Task> tasks{{Step::kConvert, root, root_sort, 0}};
  std::vector<Term const*> results;
  std::vector<Z3_func_interp> interps;  // referenced until the walk ends
  std::vector<Z3_ast> simplified;       // likewise
  struct Release {
    Z3Engine* self;
    std::vector<Z3_func_interp>& interps;
    std::vector<Z3_ast>& simplified;
    ~Release() {
      for (Z3_func_interp f : interps) {
        Z3_func_interp_dec_ref(self->ctx_, f);
      }
      for (Z3_ast a : simplified) {
        Z3_dec_ref(self->ctx_, a);
      }
    }
  } release{this, interps, simplified};
  // z3's model evaluation can leave a closed value unevaluated (an ite over an equality of two
  // constant arrays, say): such a value is simplified, or else solved for, and converted once
  // more.
  bool retried = false;
  auto retry_simplified = [&](Z3_ast v, DataType const* sort) {
    if (retried) {
      return false;
    }
    Z3_ast s = Z3_simplify(ctx_, v);
    check_error();
    bool const done =
        s != nullptr && (Z3_is_numeral_ast(ctx_, s) || Z3_get_bool_value(ctx_, s) != Z3_L_UNDEF);
    if (done) {
      Z3_inc_ref(ctx_, s);
    } else {
      s = evaluate_closed(v);
      if (s == nullptr) {
        return false;
      }
    }
    simplified.push_back(s);
    tasks.push_back(Task{Step::kConvert, s, sort, 0, true});
    return true;
  };
  Z3_ast current = root;
  auto fail = [&](DataType const* sort) -> Term const* {
    std::string text = current == nullptr ? "(none)" : Z3_ast_to_string(ctx_, current);
    if (current != root) {
      text += " in " + std::string(Z3_ast_to_string(ctx_, root));
    }
    throw EngineError("z3: cannot translate the value " + text + " of sort " + sort->to_string());
  };
  while (!tasks.empty()) {
    Task const task = tasks.back();
    tasks.pop_back();
    DataType const* sort = task.sort;
    if (task.step == Step::kConstArray) {
      results.back() = mgr_.make_const_array(sort, results.back());
      continue;
    }
    if (task.step == Step::kStores) {
      std::size_t const first = results.size() - 2 * task.stores - 1;
      Term const* array = results[first];
      for (std::size_t k = 0; k < task.stores; ++k) {
        Term const* args[3] = {array, results[first + 1 + 2 * k], results[first + 2 + 2 * k]};
        array = mgr_.make_builtin("store", args, 3);
      }
      results.resize(first);
      results.push_back(array);
      continue;
    }
    Z3_ast const v = task.value;
    current = v;
    retried = task.retried;
    if (v == nullptr) {
      fail(sort);
    }
    if (sort->is_bool()) {
      Z3_lbool const b = Z3_get_bool_value(ctx_, v);
      if (b == Z3_L_UNDEF) {
        if (!retry_simplified(v, sort)) {
          fail(sort);
        }
        continue;
      }
      results.push_back(b == Z3_L_TRUE ? mgr_.make_true() : mgr_.make_false());
    } else if (sort->is_int() || sort->is_real() || sort->is_bv()) {
      if (!Z3_is_numeral_ast(ctx_, v)) {
        if (!retry_simplified(v, sort)) {
          fail(sort);
        }
        continue;
      }
      results.push_back(mgr_.make_number(Z3_get_numeral_string(ctx_, v), sort));
    } else if (sort->is_uninterpreted()) {
      results.push_back(element(v, sort));
    } else if (sort->is_array()) {
      DataType const* index = sort->get_array_index();
      DataType const* elem = sort->get_array_element();
      if (Z3_is_as_array(ctx_, v)) {
        // A function table: the constant array of its else value, then its entries stored.
        Z3_func_interp f =
            Z3_model_get_func_interp(ctx_, current_model(), Z3_get_as_array_func_decl(ctx_, v));
        check_error();
        if (f == nullptr) {
          fail(sort);
        }
        Z3_func_interp_inc_ref(ctx_, f);
        interps.push_back(f);
        unsigned const n = Z3_func_interp_get_num_entries(ctx_, f);
        tasks.push_back(Task{Step::kStores, nullptr, sort, n});
        for (unsigned k = n; k-- > 0;) {
          // The entry is an object of its own; its AST parts live as long as the table.
          Z3_func_entry e = Z3_func_interp_get_entry(ctx_, f, k);
          Z3_func_entry_inc_ref(ctx_, e);
          tasks.push_back(Task{Step::kConvert, Z3_func_entry_get_value(ctx_, e), elem, 0});
          tasks.push_back(Task{Step::kConvert, Z3_func_entry_get_arg(ctx_, e, 0), index, 0});
          Z3_func_entry_dec_ref(ctx_, e);
        }
        Z3_ast const otherwise = Z3_func_interp_get_else(ctx_, f);
        if (otherwise == nullptr) {
          tasks.push_back(Task{Step::kStores, nullptr, sort, 0});  // keeps the stack's shape
          results.push_back(mgr_.make_const_array(sort, any_value(elem)));
          continue;
        }
        tasks.push_back(Task{Step::kConstArray, nullptr, sort, 0});
        tasks.push_back(Task{Step::kConvert, otherwise, elem, 0});
        continue;
      }
      if (Z3_get_ast_kind(ctx_, v) == Z3_QUANTIFIER_AST && Z3_is_lambda(ctx_, v)) {
        // (lambda ((x I)) BODY): a table over x read from BODY, then stores over the constant
        // array of its else value, the first point stored last so that it wins.
        FunctionValue const table = body_table(Z3_get_quantifier_body(ctx_, v), {index}, elem);
        Term const* array = mgr_.make_const_array(sort, table.otherwise);
        for (std::size_t k = table.points.size(); k-- > 0;) {
          Term const* args[3] = {array, table.points[k].args[0], table.points[k].value};
          array = mgr_.make_builtin(SymbolTag::STORE, args, 3);
        }
        results.push_back(array);
        continue;
      }
      if (Z3_get_ast_kind(ctx_, v) != Z3_APP_AST) {
        fail(sort);
      }
      Z3_app const app = Z3_to_app(ctx_, v);
      Z3_decl_kind const kind = Z3_get_decl_kind(ctx_, Z3_get_app_decl(ctx_, app));
      if (kind == Z3_OP_CONST_ARRAY) {
        tasks.push_back(Task{Step::kConstArray, nullptr, sort, 0});
        tasks.push_back(Task{Step::kConvert, Z3_get_app_arg(ctx_, app, 0), elem, 0});
      } else if (kind == Z3_OP_STORE) {
        tasks.push_back(Task{Step::kStores, nullptr, sort, 1});
        tasks.push_back(Task{Step::kConvert, Z3_get_app_arg(ctx_, app, 2), elem, 0});
        tasks.push_back(Task{Step::kConvert, Z3_get_app_arg(ctx_, app, 1), index, 0});
        tasks.push_back(Task{Step::kConvert, Z3_get_app_arg(ctx_, app, 0), sort, 0});
      } else {
        fail(sort);
      }
    } else {
      fail(sort);
    }
  }
  return results.back();
}

FunctionValue Z3Engine::function_value(Z3_func_interp f, Symbol const* s) {
  DataType const* type = s->get_type();
  FunctionValue fv;
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
    FunctionValue::Point p;
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
      p.args.push_back(to_term(parts[i], type->get_component(i)));
    }
    p.value = to_term(parts.back(), s->get_output_type());
    fv.points.push_back(std::move(p));
  }
  Z3_ast const otherwise = Z3_func_interp_get_else(ctx_, f);
  if (otherwise == nullptr) {
    fv.otherwise = any_value(s->get_output_type());
    return fv;
  }
  // The else value may be a body over the arguments rather than a value.
  std::vector<DataType const*> arg_sorts;
  for (std::size_t i = 0; i < s->get_arity(); ++i) {
    arg_sorts.push_back(type->get_component(i));
  }
  FunctionValue rest = body_table(otherwise, arg_sorts, s->get_output_type());
  for (FunctionValue::Point& p : rest.points) {
    fv.points.push_back(std::move(p));
  }
  fv.otherwise = rest.otherwise;
  return fv;
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

Term const* Z3Engine::any_value(DataType const* sort) {
  if (sort->is_bool()) {
    return mgr_.make_false();
  }
  if (sort->is_int() || sort->is_real() || sort->is_bv()) {
    return mgr_.make_number("0", sort);
  }
  if (sort->is_uninterpreted()) {
    return mgr_.make_abstract_value(sort, 0);
  }
  if (sort->is_array()) {
    // Arrays nest only as deep as their sort, which a program wrote out.
    return mgr_.make_const_array(sort, any_value(sort->get_array_element()));
  }
  throw EngineError("z3: no value of sort " + sort->to_string());
}

// Reads BODY, a function's value over its arguments, into a table: an ite chain whose
// conditions fix every argument (conjunctions of (= (:var i) v), or, for a Bool argument,
// (:var i) and (not (:var i))), ending in a value; or, for a predicate, a disjunction of such
// conjunctions, true at the points they fix and false elsewhere.
FunctionValue Z3Engine::body_table(Z3_ast body, std::vector<DataType const*> const& arg_sorts,
                                   DataType const* result_sort) {
  auto fail = [&]() -> FunctionValue {
    throw Unsupported("z3: the function value " + std::string(Z3_ast_to_string(ctx_, body)) +
                      " is not a finite table");
  };
  auto app_of = [&](Z3_ast a, Z3_decl_kind kind) -> Z3_app {
    if (Z3_get_ast_kind(ctx_, a) != Z3_APP_AST) {
      return nullptr;
    }
    Z3_app const app = Z3_to_app(ctx_, a);
    return Z3_get_decl_kind(ctx_, Z3_get_app_decl(ctx_, app)) == kind ? app : nullptr;
  };
  auto var_index = [&](Z3_ast a) -> long {
    if (Z3_get_ast_kind(ctx_, a) != Z3_VAR_AST) {
      return -1;
    }
    unsigned const i = Z3_get_index_value(ctx_, a);
    return i < arg_sorts.size() ? static_cast<long>(i) : -2;
  };
  // The point a condition fixes, or false when it is not a conjunction fixing every argument.
  auto point_of = [&](Z3_ast cond, std::vector<Term const*>& args) {
    args.assign(arg_sorts.size(), nullptr);
    std::vector<Z3_ast> todo{cond};
    while (!todo.empty()) {
      Z3_ast const c = todo.back();
      todo.pop_back();
      if (Z3_app const a = app_of(c, Z3_OP_AND)) {
        for (unsigned k = 0, n = Z3_get_app_num_args(ctx_, a); k < n; ++k) {
          todo.push_back(Z3_get_app_arg(ctx_, a, k));
        }
        continue;
      }
      long i = var_index(c);
      Term const* value = mgr_.make_true();
      if (i < 0) {
        if (Z3_app const a = app_of(c, Z3_OP_NOT)) {
          i = var_index(Z3_get_app_arg(ctx_, a, 0));
          value = mgr_.make_false();
        } else if (Z3_app const eq = app_of(c, Z3_OP_EQ)) {
          Z3_ast lhs = Z3_get_app_arg(ctx_, eq, 0);
          Z3_ast rhs = Z3_get_app_arg(ctx_, eq, 1);
          if (var_index(lhs) < 0) {
            std::swap(lhs, rhs);
          }
          i = var_index(lhs);
          value = i >= 0 ? to_term(rhs, arg_sorts[static_cast<std::size_t>(i)]) : nullptr;
        }
      }
      if (i < 0 || args[static_cast<std::size_t>(i)] != nullptr) {
        return false;
      }
      args[static_cast<std::size_t>(i)] = value;
    }
    for (Term const* a : args) {
      if (a == nullptr) {
        return false;
      }
    }
    return true;
  };

  FunctionValue table;
  Z3_ast rest = body;
  while (Z3_app const ite = app_of(rest, Z3_OP_ITE)) {
    FunctionValue::Point p;
    if (!point_of(Z3_get_app_arg(ctx_, ite, 0), p.args)) {
      break;
    }
    p.value = to_term(Z3_get_app_arg(ctx_, ite, 1), result_sort);
    table.points.push_back(std::move(p));
    rest = Z3_get_app_arg(ctx_, ite, 2);
  }
  // What is left is a value, or a predicate true exactly at the points it fixes.
  try {
    table.otherwise = to_term(rest, result_sort);
    return table;
  } catch (EngineError const&) {
    if (!result_sort->is_bool()) {
      fail();
    }
  }
  std::vector<Z3_ast> disjuncts{rest};
  if (Z3_app const a = app_of(rest, Z3_OP_OR)) {
    disjuncts.clear();
    for (unsigned k = 0, n = Z3_get_app_num_args(ctx_, a); k < n; ++k) {
      disjuncts.push_back(Z3_get_app_arg(ctx_, a, k));
    }
  }
  for (Z3_ast d : disjuncts) {
    FunctionValue::Point p;
    if (!point_of(d, p.args)) {
      fail();
    }
    p.value = mgr_.make_true();
    table.points.push_back(std::move(p));
  }
  table.otherwise = mgr_.make_false();
  return table;
}

Model Z3Engine::model() {
  Z3_model const m = current_model();
  Model result;
  std::vector<Symbol const*> symbols(known_);
  std::sort(symbols.begin(), symbols.end(),
            [](Symbol const* a, Symbol const* b) { return a->get_id() < b->get_id(); });
  for (Symbol const* s : symbols) {
    Z3_func_decl const d = decls_[s->get_id()];
    if (s->get_arity() == 0) {
      Z3_ast v = nullptr;
      if (!Z3_model_eval(ctx_, m, Z3_mk_app(ctx_, d, 0, nullptr), true, &v) || v == nullptr) {
        check_error();
        throw EngineError("z3: the model gives no value to '" + s->get_name() + "'");
      }
      Z3_inc_ref(ctx_, v);
      Term const* t = nullptr;
      try {
        t = to_term(v, s->get_output_type());
      } catch (...) {
        Z3_dec_ref(ctx_, v);
        throw;
      }
      Z3_dec_ref(ctx_, v);
      result.constants.emplace_back(s, t);
      continue;
    }
    Z3_func_interp f = Z3_model_get_func_interp(ctx_, m, d);
    check_error();
    if (f == nullptr) {
      // Not constrained by the assertions: any function will do; z3's completion of an
      // application to fresh arguments gives the constant one.
      std::vector<Z3_ast> args;
      DataType const* type = s->get_type();
      for (std::size_t i = 0; i < s->get_arity(); ++i) {
        args.push_back(keep(Z3_mk_fresh_const(ctx_, "arg", sort_of(type->get_component(i)))));
      }
      Z3_ast app = keep(Z3_mk_app(ctx_, d, static_cast<unsigned>(args.size()), args.data()));
      Z3_ast v = nullptr;
      if (!Z3_model_eval(ctx_, m, app, true, &v) || v == nullptr) {
        check_error();
        throw EngineError("z3: the model gives no value to '" + s->get_name() + "'");
      }
      FunctionValue fv;
      fv.otherwise = to_term(keep(v), s->get_output_type());
      result.functions.emplace_back(s, std::move(fv));
      continue;
    }
    Z3_func_interp_inc_ref(ctx_, f);
    try {
      result.functions.emplace_back(s, function_value(f, s));
    } catch (...) {
      Z3_func_interp_dec_ref(ctx_, f);
      throw;
    }
    Z3_func_interp_dec_ref(ctx_, f);
  }
  return result;
}

}  // namespace tvx
