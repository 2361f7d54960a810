#include "solver/solver_tracer.h"

#include <cassert>
#include <utility>

namespace tvx {

SolverTracer::SolverTracer(TermManager& mgr, std::unique_ptr<SmtLib2ApiTracer> writer)
    : mgr_(mgr), writer_(std::move(writer)) {
  assert(writer_ != nullptr && "a tracing solver has a writer");
}

SolverTracer::~SolverTracer() = default;

// ------------------------------------------------------------------------ nested sorts

// Per sort, whether an uninterpreted sort or a datatype sits inside an array sort among its
// components, or an instance of a sort with parameters anywhere in it; only such sorts need
// reporting, so sessions without them pay nothing for this.
bool SolverTracer::has_nested_sort(DataType const* type) {
  std::size_t const id = static_cast<std::size_t>(type->get_id());
  if (id < nested_.size() && nested_[id] != 0) {
    return nested_[id] == 2;
  }
  bool nested = type->is_instance();
  sort_stack_.clear();
  sort_stack_.push_back(type);
  while (!sort_stack_.empty() && !nested) {
    DataType const* t = sort_stack_.back();
    sort_stack_.pop_back();
    for (std::size_t i = 0; i < t->get_num_components(); ++i) {
      DataType const* c = t->get_component(i);
      nested = nested || c->is_instance() || (t->is_array() && c->is_declarable());
      sort_stack_.push_back(c);
    }
  }
  if (nested_.size() <= id) {
    nested_.resize(id + 1, 0);
  }
  nested_[id] = nested ? 2 : 1;
  return nested;
}

void SolverTracer::declare_signature_sorts(DataType const* type) {
  sort_stack_.clear();
  sort_stack_.push_back(type);
  while (!sort_stack_.empty()) {
    DataType const* t = sort_stack_.back();
    sort_stack_.pop_back();
    if (t->is_declarable()) {
      writer_->trace_type_declaration(t);
    } else if (t->is_instance()) {
      writer_->trace_type_declaration(t->get_generic());
    }
    for (std::size_t i = t->get_num_components(); i-- > 0;) {
      sort_stack_.push_back(t->get_component(i));
    }
  }
}

void SolverTracer::declare_nested_sorts(Term const* term) {
  // The solver checks a term before it traces it.
  assert(mgr_.owns(term) && "a traced term was checked first");
  // Look at the symbols made since the last call; only if one of them has a nested sort does
  // a term need the extra search.
  for (; symbols_scanned_ < mgr_.num_symbols(); ++symbols_scanned_) {
    Symbol const* s = mgr_.symbol_at(symbols_scanned_);
    any_nested_ = any_nested_ || (s->is_uninterpreted() && has_nested_sort(s->get_type()));
    if (s->get_tag() == SymbolTag::VARIABLE && has_nested_sort(s->get_type())) {
      nested_variables_.push_back(s);
    }
  }
  // Bound variables are never declared, so the search never meets their signatures: the
  // sorts nested in theirs are reported whenever a term is traced (a sort declared already
  // is not written again).
  for (Symbol const* v : nested_variables_) {
    declare_signature_sorts(v->get_type());
  }
  if (!any_nested_) {
    return;
  }
  new_symbols_.clear();
  new_types_.clear();
  writer_->find_symbols_and_types_to_declare(term, new_symbols_, new_types_);
  for (Symbol const* s : new_symbols_) {
    if (has_nested_sort(s->get_type())) {
      declare_signature_sorts(s->get_type());
    }
  }
}

// ------------------------------------------------------------------------ traced calls

void SolverTracer::trace_type_declaration(DataType const* type) {
  assert(mgr_.owns(type) && type->is_declarable() && "only checked sorts are declared");
  writer_->trace_type_declaration(type);
}

// The writer declares a symbol as it is: the sorts of its signature come first.
void SolverTracer::trace_symbol_declaration(Symbol const* sym) {
  assert(mgr_.owns(sym) && sym->is_uninterpreted() && "only checked symbols are declared");
  declare_signature_sorts(sym->get_type());
  writer_->trace_symbol_declaration(sym);
}

void SolverTracer::trace_push_backtrack_point() {
  writer_->trace_push_backtrack_point();
}

void SolverTracer::trace_pop_backtrack_point() {
  writer_->trace_pop_backtrack_point();
}

void SolverTracer::trace_assert_formula(Term const* t) {
  declare_nested_sorts(t);
  writer_->trace_assert_formula(t);
}

void SolverTracer::trace_check() {
  writer_->trace_check();
}

void SolverTracer::trace_check_allsat(std::vector<Term const*> const& terms) {
  for (Term const* t : terms) {
    declare_nested_sorts(t);
  }
  writer_->trace_check_allsat(terms);
}

void SolverTracer::trace_check_with_assumptions(std::vector<TheoryLit> const& assumptions) {
  for (TheoryLit const& lit : assumptions) {
    declare_nested_sorts(lit.get_term());
  }
  writer_->trace_check_with_assumptions(assumptions);
}

void SolverTracer::trace_reset_assertions() {
  writer_->trace_reset_assertions();
}

void SolverTracer::trace_define_funs_rec(std::vector<Symbol const*> const& functions,
                                         std::vector<std::vector<Term const*>> const& params,
                                         std::vector<Term const*> const& bodies) {
  for (Symbol const* f : functions) {
    declare_signature_sorts(f->get_type());
  }
  for (Term const* body : bodies) {
    declare_nested_sorts(body);
  }
  writer_->trace_define_funs_rec(functions, params, bodies);
}

void SolverTracer::trace_set_logic(std::string const& logic) {
  writer_->trace_set_logic(logic);
}

void SolverTracer::trace_set_option(std::string const& keyword, std::string const& value) {
  writer_->trace_set_option(keyword, value);
}

void SolverTracer::trace_assert_named(Term const* t, std::string const& name) {
  declare_nested_sorts(t);
  writer_->trace_assert_named(t, name);
}

void SolverTracer::trace_reset() {
  writer_->trace_reset();
}

void SolverTracer::trace_new_interpolation_group() {
  writer_->trace_new_interpolation_group();
}

void SolverTracer::trace_set_interpolation_group(int group) {
  writer_->trace_set_interpolation_group(group);
}

void SolverTracer::trace_get_interpolant(std::vector<int> const& groups) {
  writer_->trace_get_interpolant(groups);
}

void SolverTracer::trace_get_unsat_core() {
  writer_->trace_get_unsat_core();
}

void SolverTracer::trace_get_unsat_assumptions() {
  writer_->trace_get_unsat_assumptions();
}

void SolverTracer::trace_get_model() {
  writer_->trace_get_model();
}

// The traced query declares nothing itself: declare what the term needs first, so the trace
// replays even for a term whose symbols no assertion used.
void SolverTracer::trace_get_model_value(Term const* t) {
  declare_nested_sorts(t);
  writer_->do_print_new_declarations(t);
  writer_->trace_get_model_value(t);
}

}  // namespace tvx
