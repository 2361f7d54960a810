// The process engine's values read back into the term layer, guided by the sort each must have:
// numbers, bit-vectors, elements, arrays, function tables from the solver's definitions, and
// whole models. See process_engine.h.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <tvx/core/error.h>
#include <tvx/support/str.h>

#include "solver/process_engine.h"

namespace tvx {

bool ProcessEngine::is_decimal(std::string const& s) {
  std::size_t const dot = s.find('.');
  if (dot == std::string::npos) {
    return str::all_digits(s);
  }
  return str::all_digits(s, 0, dot) && str::all_digits(s, dot + 1);
}

std::string ProcessEngine::fraction(std::string const& a, std::string const& b) {
  auto split = [](std::string const& s) {
    std::size_t const dot = s.find('.');
    return dot == std::string::npos ? std::make_pair(s, std::string())
                                    : std::make_pair(s.substr(0, dot), s.substr(dot + 1));
  };
  auto [ia, fa] = split(a);
  auto [ib, fb] = split(b);
  std::size_t const k = std::max(fa.size(), fb.size());
  fa.resize(k, '0');
  fb.resize(k, '0');
  return ia + fa + "/" + ib + fb;
}

// ------------------------------------------------------------------------ values

void ProcessEngine::unreadable(Sexpr const& e, std::size_t node, char const* what,
                               std::string const& command) {
  // Shows the part that could not be read, as text again.
  std::string text;
  std::vector<std::pair<std::size_t, std::size_t>> stack{{node, 0}};
  while (!stack.empty() && text.size() < kCommandShown) {
    auto& [n, next] = stack.back();
    Sexpr::Node const& x = e.node(n);
    if (!x.list) {
      text += (text.empty() || text.back() == '(' ? "" : " ") + x.atom;
      stack.pop_back();
      continue;
    }
    if (next == 0) {
      text += (text.empty() || text.back() == '(' ? "(" : " (");
    }
    if (next == x.kids.size()) {
      text += ')';
      stack.pop_back();
      continue;
    }
    std::size_t const k = x.kids[next++];
    stack.emplace_back(k, 0);
  }
  throw EngineError("solver '" + name_ + "' answered '" + text + "' where " + what +
                    " was expected, to the command: " + shown(command));
}

Term const* ProcessEngine::element(DataType const* sort, std::string const& engine_name) {
  auto key = std::make_pair(sort->get_id(), engine_name);
  auto it = elements_.find(key);
  if (it == elements_.end()) {
    it = elements_.emplace(key, next_element_[sort->get_id()]++).first;
  }
  return mgr_.make_abstract_value(sort, it->second);
}

// The text make_number takes for an Int or Real value written n, (- n), (/ n d), (- (/ n d))
// or (/ (- n) d), with decimals in a Real value.
bool ProcessEngine::read_number(Sexpr const& e, std::size_t node, DataType const* sort,
                                std::string& out) {
  bool const real = sort->is_real();
  bool negative = false;
  auto signed_atom = [&](std::size_t n, std::string& text) {
    if (e.is_app(n, "-", 2)) {
      negative = !negative;
      n = e.kid(n, 1);
    }
    if (e.node(n).list) {
      return false;
    }
    text = e.node(n).atom;
    return real ? is_decimal(text) : str::all_digits(text);
  };
  if (e.is_app(node, "-", 2) && e.node(e.kid(node, 1)).list) {
    negative = true;
    node = e.kid(node, 1);
  }
  if (real && e.is_app(node, "/", 3)) {
    std::string a;
    std::string b;
    if (!signed_atom(e.kid(node, 1), a) || !signed_atom(e.kid(node, 2), b)) {
      return false;
    }
    out = fraction(a, b);
  } else if (!signed_atom(node, out)) {
    return false;
  }
  if (negative) {
    out = "-" + out;
  }
  return true;
}

// Reads a value of the given sort. Array values nest (stores over stores, arrays of arrays),
// so the walk keeps its own stack: a task reads one value, or combines the values read last
// on the result stack.
Term const* ProcessEngine::to_term(Sexpr const& e, std::size_t root, DataType const* root_sort,
                                   std::string const& command) {
  // kMemo records the value just read for its node, so that a let-bound expression used
  // many times is read once; kConst pushes a value known already.
  enum class Step : std::uint8_t { kRead, kConstArray, kStore, kMemo, kConst };
  struct Task {
    Step step;
    std::size_t node;
    DataType const* sort;
    Term const* term;
  };
  std::vector<Task> tasks{{Step::kRead, root, root_sort, nullptr}};
  std::vector<Term const*> results;
  std::unordered_map<std::size_t, Term const*> memo;
  auto slot_task = [&](Slot const& slot, DataType const* sort) {
    return slot.literal < 0 ? Task{Step::kRead, slot.node, sort, nullptr}
                            : Task{Step::kConst, 0, sort,
                                   slot.literal != 0 ? mgr_.make_true() : mgr_.make_false()};
  };
  std::vector<std::string> params(1);
  std::vector<Slot> slots;
  std::vector<std::pair<Slot, Slot>> points;
  while (!tasks.empty()) {
    Task const task = tasks.back();
    tasks.pop_back();
    DataType const* sort = task.sort;
    if (task.step == Step::kConst) {
      results.push_back(task.term);
      continue;
    }
    if (task.step == Step::kMemo) {
      memo.emplace(task.node, results.back());
      continue;
    }
    if (task.step == Step::kConstArray) {
      results.back() = mgr_.make_const_array(sort, results.back());
      continue;
    }
    if (task.step == Step::kStore) {
      std::size_t const first = results.size() - 3;
      Term const* store = mgr_.make_builtin("store", &results[first], 3);
      results.resize(first);
      results.push_back(store);
      continue;
    }
    std::size_t const n = task.node;
    Sexpr::Node const& x = e.node(n);
    auto known = memo.find(n);
    if (known != memo.end()) {
      results.push_back(known->second);
      continue;
    }
    if (!x.list) {
      auto bound = lets_.find(x.atom);
      if (bound != lets_.end()) {
        auto done = memo.find(bound->second);
        if (done != memo.end()) {
          results.push_back(done->second);
        } else {
          tasks.push_back(Task{Step::kMemo, bound->second, sort, nullptr});
          tasks.push_back(Task{Step::kRead, bound->second, sort, nullptr});
        }
        continue;
      }
    } else if (x.kids.size() == 3 && e.is_atom(x.kids[0], "let") && e.node(x.kids[1]).list) {
      for (std::size_t b : e.node(x.kids[1]).kids) {
        if (!e.node(b).list || e.size(b) != 2 || e.node(e.kid(b, 0)).list) {
          unreadable(e, n, "a let", command);
        }
        lets_[e.node(e.kid(b, 0)).atom] = e.kid(b, 1);
      }
      tasks.push_back(Task{Step::kRead, x.kids[2], sort, nullptr});
      continue;
    }
    std::string text;
    if (sort->is_bool()) {
      if (!e.is_atom(n, "true") && !e.is_atom(n, "false")) {
        unreadable(e, n, "a Bool value", command);
      }
      results.push_back(x.atom == "true" ? mgr_.make_true() : mgr_.make_false());
    } else if (sort->is_int() || sort->is_real()) {
      if (!read_number(e, n, sort, text)) {
        unreadable(e, n, sort->is_int() ? "an Int value" : "a Real value", command);
      }
      results.push_back(mgr_.make_number(text, sort));
    } else if (sort->is_bv()) {
      if (!x.list && (x.atom.compare(0, 2, "#b") == 0 || x.atom.compare(0, 2, "#x") == 0)) {
        text = x.atom;
      } else if (x.list && x.kids.size() == 3 && e.is_atom(x.kids[0], "_") &&
                 e.node(x.kids[1]).atom.compare(0, 2, "bv") == 0 &&
                 str::all_digits(e.node(x.kids[1]).atom.substr(2)) &&
                 e.node(x.kids[2]).atom == std::to_string(sort->get_bv_width())) {
        text = e.node(x.kids[1]).atom.substr(2);
      } else {
        unreadable(e, n, "a bit-vector value", command);
      }
      try {
        results.push_back(mgr_.make_number(text, sort));
      } catch (Error const&) {
        unreadable(e, n, "a bit-vector value", command);
      }
    } else if (sort->is_uninterpreted()) {
      // An element: a name of the solver's, maybe with its sort: (as @U_0 U).
      std::size_t name = n;
      if (x.list && x.kids.size() == 3 && e.is_atom(x.kids[0], "as")) {
        name = x.kids[1];
      }
      if (e.node(name).list || e.node(name).atom.empty()) {
        unreadable(e, n, "an element", command);
      }
      results.push_back(element(sort, e.node(name).atom));
    } else if (sort->is_array()) {
      if (e.is_app(n, "store", 4)) {
        tasks.push_back(Task{Step::kMemo, n, sort, nullptr});
        tasks.push_back(Task{Step::kStore, 0, sort, nullptr});
        tasks.push_back(Task{Step::kRead, x.kids[3], sort->get_array_element(), nullptr});
        tasks.push_back(Task{Step::kRead, x.kids[2], sort->get_array_index(), nullptr});
        tasks.push_back(Task{Step::kRead, x.kids[1], sort, nullptr});
      } else if (x.list && x.kids.size() == 2 && e.node(x.kids[0]).list && e.size(x.kids[0]) == 3 &&
                 e.is_atom(e.kid(x.kids[0], 0), "as") && e.is_atom(e.kid(x.kids[0], 1), "const")) {
        tasks.push_back(Task{Step::kConstArray, 0, sort, nullptr});
        tasks.push_back(Task{Step::kRead, x.kids[1], sort->get_array_element(), nullptr});
      } else if (x.kids.size() == 3 && e.is_atom(x.kids[0], "lambda") && e.size(x.kids[1]) == 1 &&
                 e.node(e.kid(x.kids[1], 0)).list && e.size(e.kid(x.kids[1], 0)) == 2) {
        // (lambda ((p I)) body): a table, read as the function tables of models are.
        params[0] = e.node(e.kid(e.kid(x.kids[1], 0), 0)).atom;
        DataType const* element = sort->get_array_element();
        points.clear();
        std::size_t body = x.kids[2];
        while (e.is_app(body, "ite", 4) && match_point(e, e.kid(body, 1), params, slots)) {
          points.emplace_back(slots[0], Slot{e.kid(body, 2), -1});
          body = e.kid(body, 3);
        }
        Slot otherwise{body, -1};
        if (element->is_bool() && !e.is_atom(body, "true") && !e.is_atom(body, "false")) {
          int const positive = e.is_app(body, "not", 2) ? 0 : 1;
          std::size_t const c = positive != 0 ? body : e.kid(body, 1);
          std::vector<std::size_t> conditions{c};
          if (e.node(c).list && e.size(c) > 1 && e.is_atom(e.kid(c, 0), "or")) {
            conditions.assign(e.node(c).kids.begin() + 1, e.node(c).kids.end());
          }
          for (std::size_t k : conditions) {
            if (!match_point(e, k, params, slots)) {
              unreadable(e, n, "an array value", command);
            }
            points.emplace_back(slots[0], Slot{0, positive});
          }
          otherwise = Slot{0, 1 - positive};
        }
        // The first point is stored last, so that it wins as the first ite branch does.
        tasks.push_back(Task{Step::kMemo, n, sort, nullptr});
        for (auto const& [index, value] : points) {
          tasks.push_back(Task{Step::kStore, 0, sort, nullptr});
          tasks.push_back(slot_task(value, element));
          tasks.push_back(slot_task(index, sort->get_array_index()));
        }
        tasks.push_back(Task{Step::kConstArray, 0, sort, nullptr});
        tasks.push_back(slot_task(otherwise, element));
      } else {
        unreadable(e, n, "an array value", command);
      }
    } else {
      unreadable(e, n, "a value", command);
    }
  }
  return results.back();
}

Term const* ProcessEngine::value(Term const* term) {
  declare_in(term);
  std::string const command = "(get-value (" + printer_.term_text(term) + "))\n";
  Sexpr const& a = ask(command);
  std::size_t const r = a.root();
  if (!a.node(r).list || a.size(r) != 1 || !a.node(a.kid(r, 0)).list || a.size(a.kid(r, 0)) != 2) {
    unreadable(a, r, "((term value))", command);
  }
  return to_term(a, a.kid(a.kid(r, 0), 1), term->get_type(), command);
}

// A condition of a function's table: (= p v) for each parameter p, or their conjunction.
bool ProcessEngine::match_point(Sexpr const& e, std::size_t cond,
                                std::vector<std::string> const& params, std::vector<Slot>& slots) {
  slots.assign(params.size(), Slot{0, -2});
  auto param_of = [&](std::size_t k) {
    return e.node(k).list
               ? params.size()
               : static_cast<std::size_t>(std::find(params.begin(), params.end(), e.node(k).atom) -
                                          params.begin());
  };
  std::vector<std::size_t> conjuncts{cond};
  if (e.node(cond).list && e.size(cond) > 1 && e.is_atom(e.kid(cond, 0), "and")) {
    conjuncts.assign(e.node(cond).kids.begin() + 1, e.node(cond).kids.end());
  }
  for (std::size_t c : conjuncts) {
    std::size_t p = params.size();
    if (e.is_app(c, "=", 3)) {
      for (std::size_t side = 1; side <= 2 && p == params.size(); ++side) {
        p = param_of(e.kid(c, side));
        if (p < params.size()) {
          slots[p] = Slot{e.kid(c, 3 - side), -1};
        }
      }
    } else if (e.is_app(c, "not", 2) && (p = param_of(e.kid(c, 1))) < params.size()) {
      slots[p] = Slot{0, 0};
    } else if ((p = param_of(c)) < params.size()) {
      slots[p] = Slot{0, 1};
    }
    if (p >= params.size()) {
      return false;
    }
  }
  return std::all_of(slots.begin(), slots.end(),
                     [](Slot const& slot) { return slot.literal > -2; });
}

// A point of a function's table, read from a condition (see match_point).
bool ProcessEngine::read_point(Sexpr const& e, std::size_t cond,
                               std::vector<std::string> const& params, Symbol const* s,
                               std::vector<Term const*>& args, std::string const& command) {
  std::vector<Slot> slots;
  if (!match_point(e, cond, params, slots)) {
    return false;
  }
  args.clear();
  for (std::size_t i = 0; i < slots.size(); ++i) {
    args.push_back(slots[i].literal < 0
                       ? to_term(e, slots[i].node, s->get_type()->get_component(i), command)
                   : slots[i].literal != 0 ? mgr_.make_true()
                                           : mgr_.make_false());
  }
  return true;
}

// A function's table from its definition (define-fun f ((p S) ...) R body), whose body is a
// chain of (ite condition value else) over equalities of the parameters with values, or for a
// Bool result a condition, its negation or a disjunction of conditions.
FunctionValue ProcessEngine::function_value(Sexpr const& e, std::size_t def, Symbol const* s,
                                            std::string const& command) {
  std::vector<std::string> params;
  for (std::size_t p : e.node(e.kid(def, 2)).kids) {
    if (!e.node(p).list || e.size(p) != 2) {
      unreadable(e, def, "a function definition", command);
    }
    params.push_back(e.node(e.kid(p, 0)).atom);
  }
  if (params.size() != s->get_arity()) {
    unreadable(e, def, "a function definition", command);
  }
  DataType const* result = s->get_output_type();
  FunctionValue fv;
  std::vector<Term const*> args;
  std::size_t body = e.kid(def, 4);
  while (e.node(body).list && e.size(body) == 3 && e.is_atom(e.kid(body, 0), "let") &&
         e.node(e.kid(body, 1)).list) {
    for (std::size_t b : e.node(e.kid(body, 1)).kids) {
      if (!e.node(b).list || e.size(b) != 2 || e.node(e.kid(b, 0)).list) {
        unreadable(e, body, "a let", command);
      }
      lets_[e.node(e.kid(b, 0)).atom] = e.kid(b, 1);
    }
    body = e.kid(body, 2);
  }
  while (e.is_app(body, "ite", 4) && read_point(e, e.kid(body, 1), params, s, args, command)) {
    fv.points.push_back(FunctionValue::Point{args, to_term(e, e.kid(body, 2), result, command)});
    body = e.kid(body, 3);
  }
  if (result->is_bool() && !e.is_atom(body, "true") && !e.is_atom(body, "false")) {
    bool positive = true;
    if (e.is_app(body, "not", 2)) {
      positive = false;
      body = e.kid(body, 1);
    }
    std::vector<std::size_t> conditions{body};
    if (e.node(body).list && e.size(body) > 1 && e.is_atom(e.kid(body, 0), "or")) {
      conditions.assign(e.node(body).kids.begin() + 1, e.node(body).kids.end());
    }
    for (std::size_t c : conditions) {
      if (!read_point(e, c, params, s, args, command)) {
        unreadable(e, c, "a table of values", command);
      }
      fv.points.push_back(
          FunctionValue::Point{args, positive ? mgr_.make_true() : mgr_.make_false()});
    }
    fv.otherwise = positive ? mgr_.make_false() : mgr_.make_true();
    return fv;
  }
  fv.otherwise = to_term(e, body, result, command);
  return fv;
}

// Some value of the sort, to apply a function the model leaves out to.
Term const* ProcessEngine::any_value(DataType const* sort) {
  std::vector<DataType const*> arrays;
  while (sort->is_array()) {
    arrays.push_back(sort);
    sort = sort->get_array_element();
  }
  Term const* v = sort->is_bool()            ? mgr_.make_false()
                  : sort->is_uninterpreted() ? mgr_.make_abstract_value(sort, 0)
                                             : mgr_.make_number("0", sort);
  while (!arrays.empty()) {
    v = mgr_.make_const_array(arrays.back(), v);
    arrays.pop_back();
  }
  return v;
}

Model ProcessEngine::model() {
  std::vector<Symbol const*> symbols(known_);
  std::sort(symbols.begin(), symbols.end(),
            [](Symbol const* a, Symbol const* b) { return a->get_id() < b->get_id(); });
  Model result;
  std::string command = "(get-value (";
  std::vector<Symbol const*> functions;
  for (Symbol const* s : symbols) {
    if (s->get_arity() == 0) {
      command += (result.constants.empty() ? "" : " ") + printer_.symbol_text(s);
      result.constants.emplace_back(s, nullptr);
    } else {
      functions.push_back(s);
    }
  }
  command += "))\n";
  if (!result.constants.empty()) {
    Sexpr const& a = ask(command);
    std::size_t const r = a.root();
    if (!a.node(r).list || a.size(r) != result.constants.size()) {
      unreadable(a, r, "a value for each constant", command);
    }
    for (std::size_t i = 0; i < result.constants.size(); ++i) {
      std::size_t const pair = a.kid(r, i);
      if (!a.node(pair).list || a.size(pair) != 2) {
        unreadable(a, pair, "(constant value)", command);
      }
      result.constants[i].second =
          to_term(a, a.kid(pair, 1), result.constants[i].first->get_output_type(), command);
    }
  }
  if (functions.empty()) {
    return result;
  }
  command = "(get-model)\n";
  Sexpr const& a = ask(command);
  std::size_t const r = a.root();
  if (!a.node(r).list) {
    unreadable(a, r, "a model", command);
  }
  std::unordered_map<std::string, std::size_t> definitions;  // by name
  for (std::size_t k : a.node(r).kids) {
    if (a.is_app(k, "define-fun", 5) && !a.node(a.kid(k, 1)).list) {
      definitions.emplace(a.node(a.kid(k, 1)).atom, k);
    }
  }
  for (Symbol const* s : functions) {
    auto it = definitions.find(kNamePrefix + s->get_name());
    if (it != definitions.end()) {
      result.functions.emplace_back(s, function_value(a, it->second, s, command));
    } else {
      result.functions.emplace_back(s, FunctionValue{});
    }
  }
  // Functions the solver leaves out of its model (z3 does so for those no assertion uses)
  // get the value of one application everywhere.
  for (auto& [s, fv] : result.functions) {
    if (fv.otherwise == nullptr) {
      std::vector<Term const*> args;
      for (std::size_t i = 0; i < s->get_arity(); ++i) {
        args.push_back(any_value(s->get_type()->get_component(i)));
      }
      fv.otherwise = value(mgr_.make_term(s, args));
    }
  }
  return result;
}

}  // namespace tvx
