// The tracer's declarations: sorts and symbols declared by the application, and the search
// that finds, before a call traces a term, the symbols and sorts the term needs declared. The
// search walks the term DAG on an explicit stack and marks what it has seen by term id.
#include <tvx/tracer/smtlib2_api_tracer.h>

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <string>
#include <vector>

#include <tvx/support/sort.h>

#include "tracer/reserve_one.h"

namespace tvx {

// ------------------------------------------------------------------------------ declarations

// A declaration is recorded only if its command was written: a sort is taken out of the set
// again when writing fails, a symbol's bit is set only after the write, and the stack has room
// reserved before anything is recorded, so that record and stack always agree.
void SmtLib2ApiTracer::trace_type_declaration(DataType const* type) {
  if (type->is_instance()) {
    // An instance needs its generic sort and the declarable sorts among its arguments, found
    // on an explicit stack however deep the arguments nest.
    std::vector<DataType const*> walk{type};
    std::vector<DataType const*> found;
    while (!walk.empty()) {
      DataType const* u = walk.back();
      walk.pop_back();
      DataType const* d = u->is_instance() ? u->get_generic() : u;
      if (d->is_declarable() && declared_types_.count(d) == 0) {
        found.push_back(d);
      }
      walk.insert(walk.end(), u->get_components().begin(), u->get_components().end());
    }
    for (DataType const* d : found) {
      trace_type_declaration(d);
    }
    out_.flush();
    return;
  }
  if (type->is_datatype()) {
    declare_datatype(type);
    out_.flush();
    return;
  }
  if (!global_decls_) {
    reserve_one(type_decl_stack_);
  }
  if (declared_types_.insert(type).second) {
    try {
      printer_.print_type_declaration(out_, type);
    } catch (...) {
      declared_types_.erase(type);
      throw;
    }
    if (!global_decls_) {
      type_decl_stack_.push_back(type);
    }
  }
  out_.flush();
}

// A datatype is declared with its whole group, after the sorts its fields take from outside
// the group (uninterpreted sorts and other datatypes, which may need others in turn: an
// explicit stack declares dependencies first).
void SmtLib2ApiTracer::declare_datatype(DataType const* type) {
  if (type->is_instance()) {
    type = type->get_generic();
  }
  if (declared_types_.count(type) != 0) {
    return;
  }
  struct Pending {
    DataType const* datatype;
    bool expanded;
  };
  std::vector<Pending> stack{{type, false}};
  while (!stack.empty()) {
    Pending& top = stack.back();
    DataType const* d = top.datatype;
    if (declared_types_.count(d) != 0) {
      stack.pop_back();
      continue;
    }
    DatatypeInfo const* info = mgr_->datatype_info(d);
    assert(info != nullptr && "a traced datatype is defined");
    if (!top.expanded) {
      top.expanded = true;
      for (DataType const* f : mgr_->datatype_dependencies(d)) {
        if (declared_types_.count(f) != 0) {
          continue;
        }
        if (f->is_datatype()) {
          stack.push_back({f->is_instance() ? f->get_generic() : f, false});
        } else {
          trace_type_declaration(f);
        }
      }
      continue;
    }
    stack.pop_back();
    if (!global_decls_) {
      type_decl_stack_.reserve(type_decl_stack_.size() + info->group->size());
    }
    printer_.print_type_declaration(out_, d);
    for (DataType const* member : *info->group) {
      declared_types_.insert(member);
      if (!global_decls_) {
        type_decl_stack_.push_back(member);
      }
    }
  }
}

// The record's room is made before the declaration is written, so that recording it cannot
// fail after the text went out.
void SmtLib2ApiTracer::trace_symbol_declaration(Symbol const* sym) {
  if (!is_symbol_declared(sym)) {
    reserve_record(sym);
    printer_.print_symbol_declaration(out_, sym);
    record_declared(sym);
  }
  out_.flush();
}

void SmtLib2ApiTracer::reserve_record(Symbol const* sym) {
  if (!global_decls_) {
    reserve_one(symbol_decl_stack_);
  }
  std::size_t const id = static_cast<std::size_t>(sym->get_id());
  if (id >= declared_symbols_.size()) {
    declared_symbols_.resize(std::max(2 * declared_symbols_.size(), id + 1), false);
  }
}

void SmtLib2ApiTracer::record_declared(Symbol const* sym) {
  reserve_record(sym);
  declared_symbols_[static_cast<std::size_t>(sym->get_id())] = true;
  if (!global_decls_) {
    symbol_decl_stack_.push_back(sym);
  }
}

void SmtLib2ApiTracer::do_print_new_declarations(Term const* term) {
  search(term, new_symbols_, new_types_, false);
  for (DataType const* type : new_types_) {
    trace_type_declaration(type);
  }
  for (Symbol const* sym : new_symbols_) {
    trace_symbol_declaration(sym);
  }
}

bool SmtLib2ApiTracer::is_symbol_declared(Symbol const* s) const {
  std::size_t const id = static_cast<std::size_t>(s->get_id());
  return id < declared_symbols_.size() && declared_symbols_[id];
}

void SmtLib2ApiTracer::forget_symbol(Symbol const* s) {
  std::size_t const id = static_cast<std::size_t>(s->get_id());
  if (id < declared_symbols_.size()) {
    declared_symbols_[id] = false;
  }
}

// Arguments are made before the terms that use them, so no subterm of a term has a larger id
// than the term itself: sizing the per-id vectors for the root once makes every later index
// valid.
void SmtLib2ApiTracer::grow_marks(std::size_t top) {
  if (2 * top + 1 >= visit_marks_.size()) {
    visit_marks_.resize(std::max(2 * visit_marks_.size(), 2 * top + 2), false);
  }
  assert(visit_marks_.size() >= 2 * top + 2 && "two mark bits per id up to the root's");
  if (global_decls_ && top >= declared_closure_.size()) {
    declared_closure_.resize(std::max(2 * declared_closure_.size(), top + 1), false);
  }
}

bool SmtLib2ApiTracer::is_closed(std::size_t id) const {
  return global_decls_ && id < declared_closure_.size() && declared_closure_[id];
}

void SmtLib2ApiTracer::find_symbols_and_types_to_declare(
    Term const* term, std::set<Symbol const*, TermPrinter::sym_ty_lt>& symbols,
    std::set<DataType const*, TermPrinter::sym_ty_lt>& types) {
  symbols.clear();
  try {
    search(term, found_symbols_, types, false);
  } catch (...) {
    symbols.insert(found_symbols_.begin(), found_symbols_.end());
    throw;
  }
  symbols.insert(found_symbols_.begin(), found_symbols_.end());
}

// Whether the walk can leave the term with id n alone: in global-declarations mode nothing
// declared is forgotten before a reset (which clears the closure bits), so a term whose whole DAG
// was found declared (its closure bit) stays so, and, unless definitions are wanted and it has
// none, holds nothing to find.
inline bool SmtLib2ApiTracer::can_skip(std::size_t n, bool define) const {
  return global_decls_ && declared_closure_[n] && (!define || defined_terms_[n]);
}

// Examines the term t with id n: its symbol when uninterpreted and undeclared, its sort when
// simple and undeclared. A closed term (global mode) is walked for its definition only. Most
// terms share their sort with the term examined before, so the record of declared sorts is
// looked up once per run of one sort (last_sort, last_sort_undeclared).
inline void SmtLib2ApiTracer::examine(Term const* t, std::size_t n,
                                      std::vector<Symbol const*>& symbols,
                                      std::set<DataType const*, TermPrinter::sym_ty_lt>& types,
                                      DataType const*& last_sort, bool& last_sort_undeclared) {
  if (global_decls_ && declared_closure_[n]) {
    return;
  }
  Symbol const* s = t->get_symbol();
  DataType const* ty = s->get_output_type();
  bool own_declared = true;
  if (!mgr_->is_interpreted(s) && !is_symbol_declared(s)) {
    symbols.push_back(s);
    own_declared = false;
  }
  if (ty->is_simple()) {
    // The declarable sorts are the user's uninterpreted ones and datatypes.
    if (ty != last_sort) {
      last_sort = ty;
      last_sort_undeclared =
          ty->is_declarable() && declared_types_.find(ty) == declared_types_.end();
    }
    if (last_sort_undeclared) {
      types.insert(ty);
      own_declared = false;
    }
  } else if (ty->has_instances()) {
    // (S Int), (Array Int (L U)): the generic sorts and the declarable sorts inside.
    if (ty != last_sort) {
      last_sort = ty;
      instance_sorts_.clear();
      sort_walk_.assign(1, ty);
      while (!sort_walk_.empty()) {
        DataType const* u = sort_walk_.back();
        sort_walk_.pop_back();
        DataType const* d = u->is_instance() ? u->get_generic() : u;
        if (d->is_declarable() && declared_types_.find(d) == declared_types_.end()) {
          instance_sorts_.push_back(d);
        }
        sort_walk_.insert(sort_walk_.end(), u->get_components().begin(), u->get_components().end());
      }
      last_sort_undeclared = !instance_sorts_.empty();
    }
    if (last_sort_undeclared) {
      types.insert(instance_sorts_.begin(), instance_sorts_.end());
      own_declared = false;
    }
  }
  // From here on the closure bit holds "its own symbol and sort need nothing"; it becomes
  // final when the term is done.
  if (global_decls_) {
    declared_closure_[n] = own_declared;
  }
}

// Marks the term t with id n done: its closure bit becomes final (closed when all its
// arguments are), and with define set it is listed for a definition unless it has one.
inline void SmtLib2ApiTracer::finish_term(Term const* t, std::size_t n, bool define) {
  visit_marks_[2 * n] = true;
  if (global_decls_ && declared_closure_[n]) {
    Term const* const* args = t->args();
    for (std::size_t i = 0, arity = t->get_arity(); i < arity; ++i) {
      if (!declared_closure_[static_cast<std::size_t>(args[i]->get_id())]) {
        declared_closure_[n] = false;
        break;
      }
    }
  }
  if (define && !defined_terms_[n] && mgr_->is_closed(t)) {
    // A term in which a variable occurs free gets no definition: its binder's definition
    // holds it. The defined terms are closed under arguments, binders aside: a term's
    // arguments are done, and so defined, before the term.
    assert(std::all_of(t->args(), t->args() + t->get_arity(), [&](Term const* a) {
      return defined_terms_[static_cast<std::size_t>(a->get_id())] ||
             SmtLibTermPrinter::is_inline_value(t, a) || !mgr_->is_closed(a);
    }));
    definitions_.push_back({static_cast<std::uint64_t>(n), t});
    defined_terms_[n] = true;
  }
}

// Sizes the per-id vectors for term and puts it alone on the work stack; false when the walk
// can leave the whole term alone.
bool SmtLib2ApiTracer::start_search(Term const* term, bool define) {
  std::size_t const top = static_cast<std::size_t>(term->get_id());
  grow_marks(top);
  if (define && top >= defined_terms_.size()) {
    defined_terms_.resize(std::max(2 * defined_terms_.size(), top + 1), false);
  }
  if (can_skip(top, define)) {
    return false;
  }
  search_stack_.clear();
  search_visited_.clear();
  search_stack_.push_back(term);
  return true;
}

// The walk itself: each term is examined at its first sight and done when its arguments are.
void SmtLib2ApiTracer::walk(std::vector<Symbol const*>& symbols,
                            std::set<DataType const*, TermPrinter::sym_ty_lt>& types, bool define) {
  std::vector<Term const*>& stack = search_stack_;
  std::vector<bool>& marks = visit_marks_;
  DataType const* last_sort = nullptr;
  bool last_sort_undeclared = false;
  while (!stack.empty()) {
    Term const* t = stack.back();
    std::size_t const n = static_cast<std::size_t>(t->get_id());
    if (marks[2 * n]) {
      stack.pop_back();
      continue;
    }
    if (marks[2 * n + 1]) {
      stack.pop_back();
      finish_term(t, n, define);
      continue;
    }
    if (can_skip(n, define)) {
      stack.pop_back();
      continue;
    }
    // Listed before it is marked, so that a failure in between leaves no mark uncleared.
    search_visited_.push_back(t);
    examine(t, n, symbols, types, last_sort, last_sort_undeclared);
    marks[2 * n + 1] = true;
    bool pushed = false;
    Term const* const* args = t->args();
    std::size_t arity = t->get_arity();
    if (t->get_symbol()->get_tag() == SymbolTag::CONST_ARRAY &&
        SmtLibTermPrinter::is_inline_value(t, args[0])) {
      // Written in place, never by a label: a numeral needs no declaration either.
      arity = 0;
      if (global_decls_) {
        declared_closure_[static_cast<std::size_t>(args[0]->get_id())] = true;
      }
    }
    for (std::size_t i = 0; i < arity; ++i) {
      std::size_t const m = static_cast<std::size_t>(args[i]->get_id());
      // Arguments are made before the terms that use them.
      assert(m < n && "an argument's id is smaller than its parent's");
      if (!marks[2 * m] && !can_skip(m, define)) {
        stack.push_back(args[i]);
        pushed = true;
      }
    }
    if (!pushed) {
      // The term is still on top: nothing was pushed above it.
      stack.pop_back();
      finish_term(t, n, define);
    }
  }
}

// After a failure inside the walk: a closure bit of a term left unfinished is not final and is
// dropped, the marks are cleared, and the definitions listed are forgotten.
void SmtLib2ApiTracer::abandon_search(bool define) {
  if (global_decls_) {
    for (Term const* t : search_visited_) {
      std::size_t const n = static_cast<std::size_t>(t->get_id());
      if (!visit_marks_[2 * n]) {
        declared_closure_[n] = false;
      }
    }
  }
  clear_marks();
  if (define) {
    forget_definitions(0);
  }
}

// Bit 2n of visit_marks_ is the done mark of the term with id n, bit 2n+1 its entered mark.
//
// In global-declarations mode a term whose whole DAG was found declared has its closure bit
// set when it is done, and later searches skip it. They would find nothing in it; skipping
// keeps a session that asserts ever larger formulas over old subterms linear instead of
// quadratic.
//
// With define set (global mode only), the same walk also lists in definitions_, and marks
// defined, every term without a definition: it then skips only the terms that are both closed
// and defined. Closed terms are walked for their definitions but not examined, and defined
// ones are examined but not listed, so the lists are those of the two separate walks.
void SmtLib2ApiTracer::search(Term const* term, std::vector<Symbol const*>& symbols,
                              std::set<DataType const*, TermPrinter::sym_ty_lt>& types,
                              bool define) {
  assert((global_decls_ || !define) && "definitions are made in global-declarations mode only");
  symbols.clear();
  types.clear();
  if (!start_search(term, define)) {
    return;
  }
  try {
    walk(symbols, types, define);
  } catch (...) {
    abandon_search(define);
    throw;
  }
  clear_marks();
  // A function symbol heads many terms: the list is put in declaration order without repeats.
  if (symbols.size() > 1) {
    tvx::sort(symbols.data(), symbols.size(), TermPrinter::sym_ty_lt());
    symbols.erase(std::unique(symbols.begin(), symbols.end()), symbols.end());
  }
}

// Every mark is clear between searches: only the visited terms were marked.
void SmtLib2ApiTracer::clear_marks() {
  for (Term const* t : search_visited_) {
    std::size_t const n = static_cast<std::size_t>(t->get_id());
    visit_marks_[2 * n] = false;
    visit_marks_[2 * n + 1] = false;
  }
  assert(std::all_of(search_stack_.begin(), search_stack_.end(), [&](Term const* t) {
    std::size_t const n = static_cast<std::size_t>(t->get_id());
    return !visit_marks_[2 * n] && !visit_marks_[2 * n + 1];
  }));
}

}  // namespace tvx
