// The process engine's values read back into the term layer, guided by the sort each must have:
// numbers, bit-vectors, elements, arrays, function tables from the solver's definitions, and
// whole models. See process_engine.h.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
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
  std::unordered_set<std::size_t> open;  // let-bound expressions being read
  auto slot_task = [&](Slot const& slot, DataType const* sort) {
    return slot.literal < 0 ? Task{Step::kRead, slot.node, sort, nullptr}
                            : Task{Step::kConst, 0, sort,
                                   slot.literal != 0 ? mgr_.make_true() : mgr_.make_false()};
  };
  std::vector<std::string> params(1);
  Table table;
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
      open.erase(task.node);
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
          if (!open.insert(bound->second).second) {
            unreadable(e, n, "a let whose names do not stand for themselves", command);
          }
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
      } else {
        // A table: (lambda ((p I)) body), or (_ as-array f) for a function f that the model
        // being read defines; read as the function tables of models are.
        std::size_t key = n;
        std::size_t param_list = 0;
        std::size_t body = 0;
        bool found = false;
        if (x.kids.size() == 3 && e.is_atom(x.kids[0], "lambda")) {
          found = true;
          param_list = x.kids[1];
          body = x.kids[2];
        } else if (x.kids.size() == 3 && e.is_atom(x.kids[0], "_") &&
                   e.is_atom(x.kids[1], "as-array")) {
          auto d = definitions_.find(e.node(x.kids[2]).atom);
          if (d != definitions_.end()) {
            found = true;
            key = d->second;  // read once, however often it is named
            param_list = e.kid(key, 2);
            body = e.kid(key, 4);
          }
        }
        if (!found || !e.node(param_list).list || e.size(param_list) != 1 ||
            !e.node(e.kid(param_list, 0)).list || e.size(e.kid(param_list, 0)) != 2) {
          unreadable(e, n, "an array value", command);
        }
        auto done = memo.find(key);
        if (done != memo.end()) {
          results.push_back(done->second);
          continue;
        }
        params[0] = e.node(e.kid(e.kid(param_list, 0), 0)).atom;
        DataType const* element = sort->get_array_element();
        if (!read_table(e, body, params, element->is_bool(), table)) {
          unreadable(e, n, "an array value", command);
        }
        // The first point is stored last, so that it wins as the first ite branch does.
        tasks.push_back(Task{Step::kMemo, key, sort, nullptr});
        for (auto const& [index, value] : table.points) {
          tasks.push_back(Task{Step::kStore, 0, sort, nullptr});
          tasks.push_back(slot_task(value, element));
          tasks.push_back(slot_task(index[0], sort->get_array_index()));
        }
        tasks.push_back(Task{Step::kConstArray, 0, sort, nullptr});
        tasks.push_back(slot_task(table.otherwise, element));
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

// A condition of a function's table: (= p v) for a parameter p, p or (not p) for a Bool
// parameter, or a conjunction of these; parameters it does not name stay free.
bool ProcessEngine::match_point(Sexpr const& e, std::size_t cond,
                                std::vector<std::string> const& params, std::vector<Slot>& slots) {
  slots.assign(params.size(), kFree);
  auto param_of = [&](std::size_t k) {
    return e.node(k).list
               ? params.size()
               : static_cast<std::size_t>(std::find(params.begin(), params.end(), e.node(k).atom) -
                                          params.begin());
  };
  cond = resolve(e, cond);
  std::vector<std::size_t> conjuncts{cond};
  if (e.node(cond).list && e.size(cond) > 1 && e.is_atom(e.kid(cond, 0), "and")) {
    conjuncts.assign(e.node(cond).kids.begin() + 1, e.node(cond).kids.end());
  }
  for (std::size_t c : conjuncts) {
    c = resolve(e, c);
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
  return true;
}

std::size_t ProcessEngine::resolve(Sexpr const& e, std::size_t node) const {
  for (std::size_t steps = 0; !e.node(node).list && steps <= lets_.size(); ++steps) {
    auto bound = lets_.find(e.node(node).atom);
    if (bound == lets_.end()) {
      break;
    }
    node = bound->second;
  }
  return node;
}

bool ProcessEngine::same(Sexpr const& e, std::size_t a, std::size_t b) const {
  // A bound on the work: lets may share (or, from a broken solver, refer to themselves), and
  // values compared here are small. Beyond it the two are taken as different.
  constexpr std::size_t kMaxSteps = 1 << 20;
  std::vector<std::pair<std::size_t, std::size_t>> pairs{{a, b}};
  for (std::size_t steps = 0; !pairs.empty(); ++steps) {
    if (steps == kMaxSteps) {
      return false;
    }
    auto const [x, y] = pairs.back();
    pairs.pop_back();
    Sexpr::Node const& nx = e.node(resolve(e, x));
    Sexpr::Node const& ny = e.node(resolve(e, y));
    if (nx.list != ny.list || nx.atom != ny.atom || nx.kids.size() != ny.kids.size()) {
      return false;
    }
    for (std::size_t k = 0; k < nx.kids.size(); ++k) {
      pairs.emplace_back(nx.kids[k], ny.kids[k]);
    }
  }
  return true;
}

// The body is a tree: (ite condition then else) whose condition fixes some parameters (see
// match_point), with values at its leaves; for a predicate, a leaf may also be a condition, its
// negation, or a disjunction of conditions, true where one holds. z3 writes chains of ites
// that fix every parameter; cvc5 writes trees that fix one parameter per level. The tree is
// read then-branch first, keeping the parameters fixed on the way down, so that its leaves
// come out in the order in which the tree tries them: the first point that fixes what a tuple
// of arguments has gives the tuple's value. The first leaf reached with every parameter free
// is the value everywhere else; what is left of the tree is unreachable. A then-branch that
// fixes a parameter to a second value is unreachable too, and left out.
bool ProcessEngine::read_table(Sexpr const& e, std::size_t body,
                               std::vector<std::string> const& params, bool predicate,
                               Table& table) {
  while (e.node(body).list && e.size(body) == 3 && e.is_atom(e.kid(body, 0), "let") &&
         e.node(e.kid(body, 1)).list) {
    for (std::size_t b : e.node(e.kid(body, 1)).kids) {
      if (!e.node(b).list || e.size(b) != 2 || e.node(e.kid(b, 0)).list) {
        return false;
      }
      lets_[e.node(e.kid(b, 0)).atom] = e.kid(b, 1);
    }
    body = e.kid(body, 2);
  }
  struct Branch {
    Slot leaf;
    std::vector<Slot> fixed;
  };
  // Fixes what `slots` says in `fixed`; false when it contradicts what is fixed already.
  auto narrow = [&](std::vector<Slot>& fixed, std::vector<Slot> const& slots) {
    for (std::size_t i = 0; i < slots.size(); ++i) {
      if (slots[i].literal == kFree.literal) {
        continue;
      }
      if (fixed[i].literal != kFree.literal &&
          (fixed[i].literal != slots[i].literal ||
           (slots[i].literal < 0 && !same(e, fixed[i].node, slots[i].node)))) {
        return false;
      }
      fixed[i] = slots[i];
    }
    return true;
  };
  table.points.clear();
  std::vector<Slot> slots;
  std::vector<Branch> stack{{Slot{body, -1}, std::vector<Slot>(params.size(), kFree)}};
  while (!stack.empty()) {
    Branch b = std::move(stack.back());
    stack.pop_back();
    std::size_t const n = b.leaf.literal < 0 ? resolve(e, b.leaf.node) : 0;
    if (b.leaf.literal < 0 && e.is_app(n, "ite", 4) && match_point(e, e.kid(n, 1), params, slots)) {
      Branch then_branch{Slot{e.kid(n, 2), -1}, b.fixed};
      bool const reachable = narrow(then_branch.fixed, slots);
      stack.push_back(Branch{Slot{e.kid(n, 3), -1}, std::move(b.fixed)});
      if (reachable) {
        stack.push_back(std::move(then_branch));
      }
      continue;
    }
    if (b.leaf.literal < 0 && predicate && !e.is_atom(n, "true") && !e.is_atom(n, "false")) {
      int const positive = e.is_app(n, "not", 2) ? 0 : 1;
      std::size_t const c = positive != 0 ? n : resolve(e, e.kid(n, 1));
      std::vector<std::size_t> conditions{c};
      if (e.node(c).list && e.size(c) > 1 && e.is_atom(e.kid(c, 0), "or")) {
        conditions.assign(e.node(c).kids.begin() + 1, e.node(c).kids.end());
      }
      stack.push_back(Branch{Slot{0, 1 - positive}, b.fixed});
      for (std::size_t k = conditions.size(); k-- > 0;) {
        if (!match_point(e, conditions[k], params, slots)) {
          return false;
        }
        Branch hit{Slot{0, positive}, b.fixed};
        if (narrow(hit.fixed, slots)) {
          stack.push_back(std::move(hit));
        }
      }
      continue;
    }
    if (std::all_of(b.fixed.begin(), b.fixed.end(),
                    [](Slot const& slot) { return slot.literal == kFree.literal; })) {
      table.otherwise = b.leaf;
      return true;
    }
    table.points.emplace_back(std::move(b.fixed), b.leaf);
  }
  return false;  // not reached: the else-branches from the root fix nothing
}

// A function's table from its definition (define-fun f ((p S) ...) R body); see read_table.
FunctionValue ProcessEngine::function_value(Sexpr const& e, std::size_t def, Symbol const* s,
                                            std::string const& command) {
  std::vector<std::string> params;
  for (std::size_t p : e.node(e.kid(def, 2)).kids) {
    if (!e.node(p).list || e.size(p) != 2) {
      unreadable(e, def, "a function definition", command);
    }
    params.push_back(e.node(e.kid(p, 0)).atom);
  }
  DataType const* result = s->get_output_type();
  Table table;
  if (params.size() != s->get_arity() ||
      !read_table(e, e.kid(def, 4), params, result->is_bool(), table)) {
    unreadable(e, def, "a table of values", command);
  }
  auto read = [&](Slot const& slot, DataType const* sort) -> Term const* {
    return slot.literal == kFree.literal ? nullptr
           : slot.literal < 0            ? to_term(e, slot.node, sort, command)
           : slot.literal != 0           ? mgr_.make_true()
                                         : mgr_.make_false();
  };
  FunctionValue fv;
  for (auto const& [fixed, value] : table.points) {
    FunctionValue::Point p;
    for (std::size_t i = 0; i < fixed.size(); ++i) {
      p.args.push_back(read(fixed[i], s->get_type()->get_component(i)));
    }
    p.value = read(value, result);
    fv.points.push_back(std::move(p));
  }
  fv.otherwise = read(table.otherwise, result);
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
  for (std::size_t k : a.node(r).kids) {
    if (a.is_app(k, "define-fun", 5) && !a.node(a.kid(k, 1)).list) {
      definitions_.emplace(a.node(a.kid(k, 1)).atom, k);
    }
  }
  for (Symbol const* s : functions) {
    auto it = definitions_.find(kNamePrefix + s->get_name());
    if (it != definitions_.end()) {
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
