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
  };
  std::vector<Task> tasks{{Step::kConvert, root, root_sort, 0}};
  std::vector<Term const*> results;
  std::vector<Z3_func_interp> interps;  // referenced until the walk ends
  struct Release {
    Z3Engine* self;
    std::vector<Z3_func_interp>& interps;
    ~Release() {
      for (Z3_func_interp f : interps) {
        Z3_func_interp_dec_ref(self->ctx_, f);
      }
    }
  } release{this, interps};
  auto fail = [&](DataType const* sort) -> Term const* {
    throw EngineError("z3: cannot translate the value " +
                      std::string(Z3_ast_to_string(ctx_, root)) + " of sort " + sort->to_string());
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
    if (sort->is_bool()) {
      Z3_lbool const b = Z3_get_bool_value(ctx_, v);
      results.push_back(b == Z3_L_TRUE    ? mgr_.make_true()
                        : b == Z3_L_FALSE ? mgr_.make_false()
                                          : fail(sort));
    } else if (sort->is_int() || sort->is_real() || sort->is_bv()) {
      if (!Z3_is_numeral_ast(ctx_, v)) {
        fail(sort);
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
          Z3_func_entry e = Z3_func_interp_get_entry(ctx_, f, k);
          tasks.push_back(Task{Step::kConvert, Z3_func_entry_get_value(ctx_, e), elem, 0});
          tasks.push_back(Task{Step::kConvert, Z3_func_entry_get_arg(ctx_, e, 0), index, 0});
        }
        tasks.push_back(Task{Step::kConstArray, nullptr, sort, 0});
        tasks.push_back(Task{Step::kConvert, Z3_func_interp_get_else(ctx_, f), elem, 0});
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
    Z3_func_entry e = Z3_func_interp_get_entry(ctx_, f, k);
    FunctionValue::Point p;
    for (unsigned i = 0, m = Z3_func_entry_get_num_args(ctx_, e); i < m; ++i) {
      p.args.push_back(to_term(Z3_func_entry_get_arg(ctx_, e, i), type->get_component(i)));
    }
    p.value = to_term(Z3_func_entry_get_value(ctx_, e), s->get_output_type());
    fv.points.push_back(std::move(p));
  }
  fv.otherwise = to_term(Z3_func_interp_get_else(ctx_, f), s->get_output_type());
  return fv;
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
