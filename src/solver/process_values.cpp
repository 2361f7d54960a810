// The process engine's values read back into the term layer, guided by the sort each must have:
// numbers, bit-vectors, elements, arrays, function tables from the solver's definitions, and
// whole models. See process_engine.h.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <tvx/core/error.h>
#include <tvx/support/str.h>

#include "core/operator_table.h"
#include "solver/process_engine.h"
#include "solver/table_builder.h"

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

// The text make_number takes for an Int or Real value written n, (- n), (/ n d), (- (/ n d))
// or (/ (- n) d), with decimals in a Real value.
bool ProcessEngine::read_number(Sexpr const& e, std::size_t node, DataType const* sort,
                                std::string& out) {
  bool const real = sort->is_real();
  bool negative = false;
  auto signed_atom = [&](std::size_t n, std::string& text) {
    if (e.is_app(n, optable::name_of(SymbolTag::SUB), 2)) {
      negative = !negative;
      n = e.kid(n, 1);
    }
    if (e.node(n).list) {
      return false;
    }
    text = e.node(n).atom;
    return real ? is_decimal(text) : str::all_digits(text);
  };
  if (e.is_app(node, optable::name_of(SymbolTag::SUB), 2) && e.node(e.kid(node, 1)).list) {
    negative = true;
    node = e.kid(node, 1);
  }
  if (real && e.is_app(node, optable::name_of(SymbolTag::DIV), 3)) {
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

// A function body for TableBuilder::read: a tree of (ite condition then else) whose
// conditions are (= p v) for a parameter p, p or (not p) for a Bool parameter, or conjunctions
// of these; for a predicate, a leaf may be a condition, its negation, or a disjunction of
// conditions. z3 writes chains of ites that fix every parameter; cvc5 writes trees that fix
// one parameter per level. Let-bound names stand for their expressions.
class ProcessEngine::BodyReader {
 public:
  ProcessEngine& p;
  Sexpr const& e;
  std::string const& command;
  std::vector<std::string> params;
  std::vector<DataType const*> param_sorts;
  DataType const* result_sort;

  bool ite(std::size_t n, std::size_t& cond, std::size_t& then_part, std::size_t& else_part) {
    n = expression(n);
    if (!e.is_app(n, optable::name_of(SymbolTag::ITE), 4)) {
      return false;
    }
    cond = e.kid(n, 1);
    then_part = e.kid(n, 2);
    else_part = e.kid(n, 3);
    return true;
  }
  bool fixes(std::size_t cond, TableBuilder::Fixes& out);
  bool conditions(std::size_t n, bool& positive, std::vector<TableBuilder::Fixes>& out);
  Term const* value(std::size_t n) { return p.to_term(e, n, result_sort, command); }

 private:
  // The expression at `n` once let-bound names are replaced and lets opened (their
  // bindings recorded).
  std::size_t expression(std::size_t n) {
    for (n = p.resolve(e, n); p.open_let(e, n, command);) {
      n = p.resolve(e, n);
    }
    return n;
  }
  std::size_t param_of(std::size_t k) const {
    return e.node(k).list
               ? params.size()
               : static_cast<std::size_t>(std::find(params.begin(), params.end(), e.node(k).atom) -
                                          params.begin());
  }
};

// Reads a value of the given sort. Array values nest (stores over stores), so the walk keeps its
// own stack: a task reads one value, or combines the values read last on the result stack. A
// table (lambda, as-array) is read through a TableBuilder, whose values are read by walks of
// their own: as many nested walks as the sort has levels of arrays, which a program wrote out.
class ProcessEngine::ValueWalk {
 public:
  ValueWalk(ProcessEngine& p, Sexpr const& e, std::string const& command)
      : p_(p), e_(e), command_(command) {}

  Term const* run(std::size_t root, DataType const* sort);

 private:
  // kMemo records the value just read for its node, so that a let-bound expression used
  // many times is read once.
  enum class Step : std::uint8_t { kRead, kConstArray, kStore, kMemo, kConstruct };
  struct Task {
    Step step;
    std::size_t node;
    DataType const* sort;
    Symbol const* symbol = nullptr;  // kConstruct: the constructor to apply
  };
  // A let-bound name or a let: its expression is read instead; false for other nodes.
  bool read_let(std::size_t n, DataType const* sort);
  void read(std::size_t n, DataType const* sort);
  void read_number(std::size_t n, DataType const* sort);
  void read_array(std::size_t n, DataType const* sort);
  void read_constructed(std::size_t n, DataType const* sort);
  // A table: (lambda ((p I)) body), or (_ as-array f) for a function f of the model being read.
  void read_table(std::size_t n, DataType const* sort);
  [[noreturn]] void unreadable(std::size_t n, char const* what) {
    p_.unreadable(e_, n, what, command_);
  }

  ProcessEngine& p_;
  Sexpr const& e_;
  std::string const& command_;
  std::vector<Task> tasks_;
  std::vector<Term const*> results_;
  std::unordered_map<std::size_t, Term const*> memo_;
  std::unordered_set<std::size_t> open_;  // let-bound expressions being read
};

Term const* ProcessEngine::ValueWalk::run(std::size_t root, DataType const* sort) {
  tasks_.push_back(Task{Step::kRead, root, sort});
  while (!tasks_.empty()) {
    Task const task = tasks_.back();
    tasks_.pop_back();
    if (task.step == Step::kMemo) {
      memo_.emplace(task.node, results_.back());
      open_.erase(task.node);
    } else if (task.step == Step::kConstArray) {
      p_.answers_.const_array_on_top(results_, task.sort);
    } else if (task.step == Step::kStore) {
      p_.answers_.store_on_top(results_);
    } else if (task.step == Step::kConstruct) {
      std::size_t const k = static_cast<std::size_t>(task.symbol->get_arity());
      Term const* t = p_.mgr_.make_term(task.symbol, results_.data() + results_.size() - k, k);
      results_.resize(results_.size() - k);
      results_.push_back(t);
    } else {
      auto known = memo_.find(task.node);
      if (known != memo_.end()) {
        results_.push_back(known->second);
      } else if (!read_let(task.node, task.sort)) {
        read(task.node, task.sort);
      }
    }
  }
  return results_.back();
}

bool ProcessEngine::ValueWalk::read_let(std::size_t n, DataType const* sort) {
  Sexpr::Node const& x = e_.node(n);
  if (!x.list) {
    auto bound = p_.lets_.find(x.atom);
    if (bound == p_.lets_.end()) {
      return false;
    }
    auto done = memo_.find(bound->second);
    if (done != memo_.end()) {
      results_.push_back(done->second);
      return true;
    }
    if (!open_.insert(bound->second).second) {
      unreadable(n, "a let whose names do not stand for themselves");
    }
    tasks_.push_back(Task{Step::kMemo, bound->second, sort});
    tasks_.push_back(Task{Step::kRead, bound->second, sort});
    return true;
  }
  if (!p_.open_let(e_, n, command_)) {
    return false;
  }
  tasks_.push_back(Task{Step::kRead, n, sort});
  return true;
}

void ProcessEngine::ValueWalk::read(std::size_t n, DataType const* sort) {
  Sexpr::Node const& x = e_.node(n);
  if (sort->is_bool()) {
    if (!e_.is_atom(n, optable::name_of(SymbolTag::TRUE)) &&
        !e_.is_atom(n, optable::name_of(SymbolTag::FALSE))) {
      unreadable(n, "a Bool value");
    }
    results_.push_back(x.atom == optable::name_of(SymbolTag::TRUE) ? p_.mgr_.make_true()
                                                                   : p_.mgr_.make_false());
  } else if (sort->is_int() || sort->is_real() || sort->is_bv()) {
    read_number(n, sort);
  } else if (sort->is_uninterpreted()) {
    // An element: a name of the solver's, maybe with its sort: (as @U_0 U).
    std::size_t name = n;
    if (x.list && x.kids.size() == 3 && e_.is_atom(x.kids[0], "as")) {
      name = x.kids[1];
    }
    if (x.list && x.kids.size() > 3 && e_.is_atom(x.kids[0], "as")) {
      // A name that the reader of answers splits, such as cvc5's @(S Int)_0 for an element of
      // an instance: the whole text is its key.
      results_.push_back(p_.answers_.element(sort, e_.text(n)));
      return;
    }
    if (e_.node(name).list || e_.node(name).atom.empty()) {
      unreadable(n, "an element");
    }
    results_.push_back(p_.answers_.element(sort, e_.node(name).atom));
  } else if (sort->is_array()) {
    read_array(n, sort);
  } else if (sort->is_datatype()) {
    read_constructed(n, sort);
  } else {
    unreadable(n, "a value");
  }
}

// A datatype's value: C, (as C D), or (C v ...), C written under the name it was declared by.
void ProcessEngine::ValueWalk::read_constructed(std::size_t n, DataType const* sort) {
  Sexpr::Node const& x = e_.node(n);
  std::size_t head = n;
  if (x.list && x.kids.size() == 3 && e_.is_atom(x.kids[0], "as")) {
    head = x.kids[1];  // (as C D)
  } else if (x.list && !x.kids.empty()) {
    head = x.kids[0];  // (C v ...) or ((as C D) v ...)
    if (e_.node(head).list && e_.size(head) == 3 && e_.is_atom(e_.kid(head, 0), "as")) {
      head = e_.kid(head, 1);
    }
  }
  Symbol const* c = nullptr;
  if (!e_.node(head).list) {
    std::string const& name = e_.node(head).atom;
    for (DatatypeInfo::Constructor const& k : p_.mgr_.datatype_info(sort)->constructors) {
      std::string const& printed = p_.mgr_.get_printed_name(k.constructor);
      if (name.size() == printed.size() + std::strlen(kNamePrefix) &&
          name.compare(0, std::strlen(kNamePrefix), kNamePrefix) == 0 &&
          name.compare(std::strlen(kNamePrefix), std::string::npos, printed) == 0) {
        c = k.constructor;
      }
    }
  }
  std::size_t const arity = c == nullptr ? 0 : static_cast<std::size_t>(c->get_arity());
  bool const applied = x.list && !(x.kids.size() == 3 && e_.is_atom(x.kids[0], "as"));
  if (c == nullptr || (applied ? x.kids.size() != arity + 1 : arity != 0)) {
    unreadable(n, "a value of a datatype");
  }
  tasks_.push_back(Task{Step::kMemo, n, sort});
  tasks_.push_back(Task{Step::kConstruct, 0, sort, c});
  for (std::size_t k = arity; k-- > 0;) {
    tasks_.push_back(Task{Step::kRead, x.kids[k + 1], c->get_type()->get_component(k)});
  }
}

void ProcessEngine::ValueWalk::read_number(std::size_t n, DataType const* sort) {
  Sexpr::Node const& x = e_.node(n);
  std::string text;
  if (sort->is_real() && x.list && !x.kids.empty() && e_.is_atom(x.kids[0], "root-obj")) {
    // An irrational root, kept as the solver wrote it; the text gives no approximation.
    results_.push_back(p_.mgr_.make_algebraic(e_.text(n), ""));
    return;
  }
  if (!sort->is_bv()) {
    if (!p_.read_number(e_, n, sort, text)) {
      unreadable(n, sort->is_int() ? "an Int value" : "a Real value");
    }
    results_.push_back(p_.mgr_.make_number(text, sort));
    return;
  }
  if (!x.list && (x.atom.compare(0, 2, "#b") == 0 || x.atom.compare(0, 2, "#x") == 0)) {
    text = x.atom;
  } else if (x.list && x.kids.size() == 3 && e_.is_atom(x.kids[0], "_") &&
             e_.node(x.kids[1]).atom.compare(0, 2, "bv") == 0 &&
             str::all_digits(e_.node(x.kids[1]).atom.substr(2)) &&
             e_.node(x.kids[2]).atom == std::to_string(sort->get_bv_width())) {
    text = e_.node(x.kids[1]).atom.substr(2);  // (_ bvN W)
  } else {
    unreadable(n, "a bit-vector value");
  }
  try {
    results_.push_back(p_.mgr_.make_number(text, sort));
  } catch (Error const&) {
    unreadable(n, "a bit-vector value");
  }
}

void ProcessEngine::ValueWalk::read_array(std::size_t n, DataType const* sort) {
  Sexpr::Node const& x = e_.node(n);
  if (e_.is_app(n, optable::name_of(SymbolTag::STORE), 4)) {
    tasks_.push_back(Task{Step::kMemo, n, sort});
    tasks_.push_back(Task{Step::kStore, 0, sort});
    tasks_.push_back(Task{Step::kRead, x.kids[3], sort->get_array_element()});
    tasks_.push_back(Task{Step::kRead, x.kids[2], sort->get_array_index()});
    tasks_.push_back(Task{Step::kRead, x.kids[1], sort});
  } else if (x.list && x.kids.size() == 2 && e_.node(x.kids[0]).list && e_.size(x.kids[0]) == 3 &&
             e_.is_atom(e_.kid(x.kids[0], 0), "as") && e_.is_atom(e_.kid(x.kids[0], 1), "const")) {
    tasks_.push_back(Task{Step::kConstArray, 0, sort});
    tasks_.push_back(Task{Step::kRead, x.kids[1], sort->get_array_element()});
  } else {
    read_table(n, sort);
  }
}

void ProcessEngine::ValueWalk::read_table(std::size_t n, DataType const* sort) {
  Sexpr::Node const& x = e_.node(n);
  std::size_t key = n;
  std::size_t param_list = 0;
  std::size_t body = 0;
  bool found = false;
  if (x.kids.size() == 3 && e_.is_atom(x.kids[0], "lambda")) {
    found = true;
    param_list = x.kids[1];
    body = x.kids[2];
  } else if (x.kids.size() == 3 && e_.is_atom(x.kids[0], "_") &&
             e_.is_atom(x.kids[1], "as-array")) {
    auto d = p_.definitions_.find(e_.node(x.kids[2]).atom);
    if (d != p_.definitions_.end()) {
      found = true;
      key = d->second;  // read once, however often it is named
      param_list = e_.kid(key, 2);
      body = e_.kid(key, 4);
    }
  }
  if (!found || !e_.node(param_list).list || e_.size(param_list) != 1 ||
      !e_.node(e_.kid(param_list, 0)).list || e_.size(e_.kid(param_list, 0)) != 2) {
    unreadable(n, "an array value");
  }
  auto done = memo_.find(key);
  if (done != memo_.end()) {
    results_.push_back(done->second);
    return;
  }
  std::vector<std::string> params{e_.node(e_.kid(e_.kid(param_list, 0), 0)).atom};
  BodyReader reader{p_, e_, command_, params, {sort->get_array_index()}, sort->get_array_element()};
  TableBuilder table(p_.mgr_, 1);
  table.read(body, sort->get_array_element()->is_bool(), reader);
  Term const* array = p_.answers_.array_of(sort, table.finish());
  memo_.emplace(key, array);
  results_.push_back(array);
}

Term const* ProcessEngine::to_term(Sexpr const& e, std::size_t root, DataType const* sort,
                                   std::string const& command) {
  ValueWalk walk(*this, e, command);
  return walk.run(root, sort);
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

bool ProcessEngine::open_let(Sexpr const& e, std::size_t& node, std::string const& command) {
  Sexpr::Node const& x = e.node(node);
  if (!x.list || x.kids.size() != 3 || !e.is_atom(x.kids[0], "let") || !e.node(x.kids[1]).list) {
    return false;
  }
  for (std::size_t b : e.node(x.kids[1]).kids) {
    if (!e.node(b).list || e.size(b) != 2 || e.node(e.kid(b, 0)).list) {
      unreadable(e, node, "a let", command);
    }
    lets_[e.node(e.kid(b, 0)).atom] = e.kid(b, 1);
  }
  node = x.kids[2];
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

bool ProcessEngine::BodyReader::fixes(std::size_t cond, TableBuilder::Fixes& out) {
  cond = expression(cond);
  std::vector<std::size_t> conjuncts{cond};
  if (e.node(cond).list && e.size(cond) > 1 &&
      e.is_atom(e.kid(cond, 0), optable::name_of(SymbolTag::AND))) {
    conjuncts.assign(e.node(cond).kids.begin() + 1, e.node(cond).kids.end());
  }
  for (std::size_t c : conjuncts) {
    c = expression(c);
    std::size_t i = params.size();
    if (e.is_app(c, optable::name_of(SymbolTag::EQUAL), 3)) {
      for (std::size_t side = 1; side <= 2 && i == params.size(); ++side) {
        i = param_of(e.kid(c, side));
        if (i < params.size()) {
          out.emplace_back(i, p.to_term(e, e.kid(c, 3 - side), param_sorts[i], command));
        }
      }
    } else if (e.is_app(c, optable::name_of(SymbolTag::NOT), 2) &&
               (i = param_of(e.kid(c, 1))) < params.size()) {
      out.emplace_back(i, p.mgr_.make_false());
    } else if ((i = param_of(c)) < params.size()) {
      out.emplace_back(i, p.mgr_.make_true());
    }
    if (i >= params.size()) {
      return false;
    }
  }
  return true;
}

bool ProcessEngine::BodyReader::conditions(std::size_t n, bool& positive,
                                           std::vector<TableBuilder::Fixes>& out) {
  n = expression(n);
  if (e.is_atom(n, optable::name_of(SymbolTag::TRUE)) ||
      e.is_atom(n, optable::name_of(SymbolTag::FALSE))) {
    return false;  // a value
  }
  if (e.is_app(n, optable::name_of(SymbolTag::NOT), 2)) {
    positive = false;
    n = expression(e.kid(n, 1));
  }
  std::vector<std::size_t> disjuncts{n};
  if (e.node(n).list && e.size(n) > 1 && e.is_atom(e.kid(n, 0), optable::name_of(SymbolTag::OR))) {
    disjuncts.assign(e.node(n).kids.begin() + 1, e.node(n).kids.end());
  }
  for (std::size_t d : disjuncts) {
    out.emplace_back();
    if (!fixes(d, out.back())) {
      return false;
    }
  }
  return true;
}

// A function's table from its definition (define-fun f ((p S) ...) R body).
FunctionValue ProcessEngine::function_value(Sexpr const& e, std::size_t def, Symbol const* s,
                                            std::string const& command) {
  BodyReader reader{*this, e, command, {}, {}, s->get_output_type()};
  for (std::size_t p : e.node(e.kid(def, 2)).kids) {
    if (!e.node(p).list || e.size(p) != 2) {
      unreadable(e, def, "a function definition", command);
    }
    reader.params.push_back(e.node(e.kid(p, 0)).atom);
  }
  if (reader.params.size() != s->get_arity()) {
    unreadable(e, def, "a table of values", command);
  }
  for (std::size_t i = 0; i < s->get_arity(); ++i) {
    reader.param_sorts.push_back(s->get_type()->get_component(i));
  }
  TableBuilder table(mgr_, s->get_arity());
  table.read(e.kid(def, 4), s->get_output_type()->is_bool(), reader);
  return table.finish();
}

// The constants' values, in the order of `constants`, by one get-value.
std::vector<Term const*> ProcessEngine::constant_values(
    std::vector<Symbol const*> const& constants) {
  std::vector<Term const*> values;
  if (constants.empty()) {
    return values;
  }
  std::string command = "(get-value (";
  for (Symbol const* s : constants) {
    command += (values.empty() ? "" : " ") + printer_.symbol_text(s);
    values.push_back(nullptr);
  }
  command += "))\n";
  Sexpr const& a = ask(command);
  std::size_t const r = a.root();
  if (!a.node(r).list || a.size(r) != constants.size()) {
    unreadable(a, r, "a value for each constant", command);
  }
  for (std::size_t i = 0; i < constants.size(); ++i) {
    std::size_t const pair = a.kid(r, i);
    if (!a.node(pair).list || a.size(pair) != 2) {
      unreadable(a, pair, "(constant value)", command);
    }
    values[i] = to_term(a, a.kid(pair, 1), constants[i]->get_output_type(), command);
  }
  return values;
}

// The tables of the functions, in their order, from one get-model; none for a function the
// model leaves out (z3 leaves out those no assertion uses).
std::vector<std::optional<FunctionValue>> ProcessEngine::function_tables(
    std::vector<Symbol const*> const& functions) {
  std::vector<std::optional<FunctionValue>> tables;
  if (functions.empty()) {
    return tables;
  }
  std::string const command = "(get-model)\n";
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
    tables.emplace_back();
    if (it != definitions_.end()) {
      tables.back() = function_value(a, it->second, s, command);
    }
  }
  return tables;
}

Model ProcessEngine::model() {
  std::vector<Symbol const*> constants;
  std::vector<Symbol const*> functions;
  for (Symbol const* s : Answers::in_id_order(known_)) {
    (s->get_arity() == 0 ? constants : functions).push_back(s);
  }
  // Every answer is read before the first value of an application is asked, since asking
  // replaces the answer being read.
  std::vector<Term const*> const values = constant_values(constants);
  std::vector<std::optional<FunctionValue>> tables = function_tables(functions);
  std::size_t next_constant = 0;
  std::size_t next_function = 0;
  Answers::ModelReader reader;
  reader.constant = [&](Symbol const*) { return values[next_constant++]; };
  reader.function = [&](Symbol const*, FunctionValue& fv) {
    std::optional<FunctionValue>& table = tables[next_function++];
    if (table) {
      fv = std::move(*table);
    }
    return table.has_value();
  };
  reader.application = [&](Symbol const* s) {
    return value(mgr_.make_term(s, answers_.any_arguments(s)));
  };
  return answers_.model(known_, reader);
}

}  // namespace tvx
