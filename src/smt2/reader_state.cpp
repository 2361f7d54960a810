// The reader's state: names and what they stand for in the current scope (declared symbols,
// define-fun macros, :named terms, sorts), the undo log that a pop replays, the macros'
// placeholders and their expansion, and interpolation groups by name.
#include <tvx/core/term_printer.h>

#include "smt2/reader_impl.h"

namespace tvx {
namespace smt2 {

namespace {

// How far beyond the groups made so far a group name ".gN" may take its number N.
constexpr std::uint64_t kMaxGroupsAhead = 1 << 16;

}  // namespace

void ScriptReader::Impl::check_fresh_name(Token const& t, std::string const& name) {
  Entry const* e = find_entry(name);
  if (e != nullptr && e->named()) {
    error_at(t, "'" + name + "' is already declared or defined");
  }
  if (TermManager::is_builtin_name(name)) {
    error_at(t, "'" + name + "' is a built-in name and cannot be declared or defined");
  }
}

void ScriptReader::Impl::add_name(std::string const& name, Name value) {
  Entry& e = entry(name);
  e.name = value;
  e.constant = nullptr;
  if (!global_declarations_ && !scope_marks_.empty()) {
    scope_log_.emplace_back(false, &e);
  }
}

void ScriptReader::Impl::add_sort(std::string const& name, DataType const* sort) {
  Entry& e = entry(name);
  e.sort = sort;
  if (!global_declarations_ && !scope_marks_.empty()) {
    scope_log_.emplace_back(true, &e);
  }
}

void ScriptReader::Impl::add_sort_macro(std::string const& name, SortMacro const* macro) {
  Entry& e = entry(name);
  e.sort_macro = macro;
  if (!global_declarations_ && !scope_marks_.empty()) {
    scope_log_.emplace_back(true, &e);
  }
}

void ScriptReader::Impl::pop_scope() {
  std::size_t const mark = scope_marks_.back();
  scope_marks_.pop_back();
  while (scope_log_.size() > mark) {
    Entry& e = *scope_log_.back().second;
    if (scope_log_.back().first) {
      e.sort = nullptr;
      e.sort_macro = nullptr;
    } else {
      e.name = Name{nullptr, nullptr, nullptr};
      e.constant = nullptr;
    }
    scope_log_.pop_back();
  }
}

int ScriptReader::Impl::group_number(std::string const& name) {
  auto it = groups_.find(name);
  if (it != groups_.end()) {
    return it->second;
  }
  int number = -1;
  std::uint64_t n = 0;
  // A name ".gN" keeps its number, so a trace read again names its groups as it did, unless
  // that would make the solver create an absurd number of groups first.
  std::uint64_t const reach =
      static_cast<std::uint64_t>(solver_.num_interpolation_groups()) + kMaxGroupsAhead;
  if (name.size() > 2 && name.compare(0, 2, ".g") == 0 && str::parse_decimal(name.substr(2), &n) &&
      n <= reach && n < static_cast<std::uint64_t>(INT32_MAX) &&
      group_numbers_used_.count(int(n)) == 0) {
    number = static_cast<int>(n);
  } else {
    while (group_numbers_used_.count(next_group_) != 0) {
      ++next_group_;
    }
    number = next_group_++;
  }
  groups_.emplace(name, number);
  group_numbers_used_.insert(number);
  // The solver numbers its groups in creation order: make groups up to this one.
  while (solver_.num_interpolation_groups() <= number) {
    solver_.new_interpolation_group();
  }
  return number;
}

Term const* ScriptReader::Impl::placeholder(std::size_t index, DataType const* sort) {
  auto key = std::make_pair(index, sort);
  auto it = placeholders_.find(key);
  if (it != placeholders_.end()) {
    return it->second;
  }
  // A fresh symbol: no declaration of the script can find it, whatever its name. It never
  // reaches a trace, since every use of a definition substitutes its arguments for the
  // placeholders.
  Symbol const* s = mgr_.make_fresh_symbol("define-fun parameter " + std::to_string(index), sort);
  Term const* t = mgr_.make_constant(s);
  placeholders_.emplace(key, t);
  return t;
}

// Substitutes the arguments for the placeholders of a definition's body: a post-order walk
// of the body's DAG on an explicit stack, each term rebuilt once.
Term const* ScriptReader::Impl::substitute(Macro const& m, Term const* const* args) {
  memo_.clear();
  bool open_args = false;
  for (std::size_t i = 0; i < m.params.size(); ++i) {
    memo_[m.params[i]] = args[i];
    open_args = open_args || !mgr_.is_closed(args[i]);
  }
  subst_stack_.clear();
  subst_stack_.emplace_back(m.body, false);
  while (!subst_stack_.empty()) {
    auto& top = subst_stack_.back();
    Term const* t = top.first;
    if (memo_.count(t) != 0) {
      subst_stack_.pop_back();
      continue;
    }
    std::size_t const arity = t->get_arity();
    if (arity == 0) {
      // Under binders of the caller, the body's own binders get variables no argument can
      // hold, so that none captures a variable of an argument.
      memo_[t] = open_args && t->get_symbol()->get_tag() == SymbolTag::VARIABLE
                     ? mgr_.make_variable(
                           t->get_symbol()->get_name() + "!" + std::to_string(++renamed_variables_),
                           t->get_type())
                     : t;
      subst_stack_.pop_back();
      continue;
    }
    if (!top.second) {
      top.second = true;
      for (std::size_t i = arity; i-- > 0;) {
        if (memo_.count(t->get_arg(i)) == 0) {
          subst_stack_.emplace_back(t->get_arg(i), false);
        }
      }
      continue;
    }
    subst_stack_.pop_back();
    args_scratch_.clear();
    bool changed = false;
    for (std::size_t i = 0; i < arity; ++i) {
      Term const* a = memo_[t->get_arg(i)];
      changed = changed || a != t->get_arg(i);
      args_scratch_.push_back(a);
    }
    Term const* r = t;
    if (changed) {
      Symbol const* s = t->get_symbol();
      if (s->is_uninterpreted() || s->get_tag() == SymbolTag::DT_CONSTRUCTOR ||
          s->get_tag() == SymbolTag::DT_SELECTOR || s->get_tag() == SymbolTag::DT_TESTER) {
        r = mgr_.make_term(s, args_scratch_.data(), arity);
      } else if (SmtLibTermPrinter::is_binder(t)) {
        r = mgr_.make_binder_like(s, args_scratch_.data(), arity);
      } else {
        std::uint64_t idx[2] = {s->get_num_indices() > 0 ? s->get_index(0) : 0,
                                s->get_num_indices() > 1 ? s->get_index(1) : 0};
        r = mgr_.make_builtin(s->get_name(), args_scratch_.data(), arity, idx,
                              s->get_num_indices());
      }
    }
    memo_[t] = r;
  }
  return memo_[m.body];
}

}  // namespace smt2
}  // namespace tvx
