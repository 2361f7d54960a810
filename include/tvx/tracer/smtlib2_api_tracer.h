// SmtLib2ApiTracer: writes each traced API call as SMT-LIB 2 commands and flushes call by call,
// so the stream replays the session. Invariant (scoped mode): the non-null entries of each
// declaration stack are exactly the declared sorts (the set) or symbols (the bits), in
// declaration order.
#ifndef TVX_TRACER_SMTLIB2_API_TRACER_H
#define TVX_TRACER_SMTLIB2_API_TRACER_H

#include <cstdint>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/core/term_printer.h>
#include <tvx/support/text_buffer.h>
#include <tvx/tracer/api_tracer.h>

namespace tvx {

class SmtLib2ApiTracerTestAccess;

class SmtLib2ApiTracer : public ApiTracer {
 public:
  // Writes the header: the title, the time stamp, the global-declarations option when
  // global_decls is set, and the configuration when dump_config is set; then flushes.
  // The configuration, the term manager and the stream must outlive the tracer.
  SmtLib2ApiTracer(Configuration* config, TermManager* mgr, std::ostream& out, bool global_decls,
                   bool dump_config);
  ~SmtLib2ApiTracer() override;

  SmtLib2ApiTracer(SmtLib2ApiTracer const&) = delete;
  SmtLib2ApiTracer& operator=(SmtLib2ApiTracer const&) = delete;

  // A datatype is declared with its whole group, after the sorts its fields need.
  void trace_type_declaration(DataType const* type) override;
  void trace_symbol_declaration(Symbol const* sym) override;
  void trace_push_backtrack_point() override;
  void trace_pop_backtrack_point() override;
  void trace_assert_formula(Term const* t) override;
  void trace_check() override;
  void trace_check_allsat(std::vector<Term const*> const& terms) override;
  void trace_check_with_assumptions(std::vector<TheoryLit> const& assumptions) override;
  void trace_reset_assertions() override;
  void trace_new_interpolation_group() override;
  void trace_set_interpolation_group(int group) override;
  void trace_get_interpolant(std::vector<int> const& groups) override;
  void trace_get_unsat_core() override;
  void trace_get_unsat_assumptions() override;
  void trace_get_model() override;
  void trace_get_model_value(Term const* t) override;
  // Writes (reset) and forgets every declaration and definition, so that each is written
  // again when next used; in global-declarations mode the option that announces the mode is
  // written again too, since a reset takes options back to their defaults.
  void trace_reset() override;
  void trace_set_logic(std::string const& logic) override;
  void trace_set_option(std::string const& keyword, std::string const& value) override;
  void trace_assert_named(Term const* t, std::string const& name) override;
  // (define-fun-rec f ((x S) ...) R BODY), or for several functions
  // (define-funs-rec ((f ((x S) ...) R) ...) (BODY ...)), after what the signatures and bodies
  // need declared; the functions count as declared from then on. The bodies are written in
  // full in both modes: their closed subterms may apply the functions being defined.
  void trace_define_funs_rec(std::vector<Symbol const*> const& functions,
                             std::vector<std::vector<Term const*>> const& params,
                             std::vector<Term const*> const& bodies) override;

  // Writes the label of t (the defines prefix, "." when empty, then the id) to os, or to the
  // trace when os is null; returns the stream written to.
  std::ostream& outlabel(Term const* t, std::ostream* os);
  // Writes one define-fun line, in id order, for each subterm of t without a definition yet.
  void do_print_formula(Term const* t);
  // Fills the sets with the undeclared uninterpreted symbols and declarable sorts of term, and
  // touches no other set: it may be called from an override of a declaration operation while
  // the tracer's own declaration pass runs.
  void find_symbols_and_types_to_declare(Term const* term,
                                         std::set<Symbol const*, TermPrinter::sym_ty_lt>& symbols,
                                         std::set<DataType const*, TermPrinter::sym_ty_lt>& types);
  // Declares the new sorts, then the new symbols, of term.
  void do_print_new_declarations(Term const* term);
  void declare_datatype(DataType const* type);
  void do_print_config(Configuration* config);

 private:
  friend class SmtLib2ApiTracerTestAccess;

  // Grows the per-id vectors of the declaration search to cover every id up to top.
  void grow_marks(std::size_t top);
  void clear_marks();  // clears the marks of the terms on search_visited_
  bool is_closed(std::size_t id) const;
  // The declaration search: fills symbols, in declaration order, and types. With define set
  // (global mode), also lists in definitions_ the terms without a definition.
  void search(Term const* term, std::vector<Symbol const*>& symbols,
              std::set<DataType const*, TermPrinter::sym_ty_lt>& types, bool define);
  // The pieces of search(), in declaration_search.cpp; the ones of its inner loop are inline
  // there, the one file that calls them.
  bool start_search(Term const* term, bool define);
  void walk(std::vector<Symbol const*>& symbols,
            std::set<DataType const*, TermPrinter::sym_ty_lt>& types, bool define);
  inline bool can_skip(std::size_t n, bool define) const;
  inline void examine(Term const* t, std::size_t n, std::vector<Symbol const*>& symbols,
                      std::set<DataType const*, TermPrinter::sym_ty_lt>& types,
                      DataType const*& last_sort, bool& last_sort_undeclared);
  inline void finish_term(Term const* t, std::size_t n, bool define);
  void abandon_search(bool define);
  void declare_and_define(Term const* t);  // global mode: declarations, then definitions
  // Puts definitions_ in ascending id order.
  void order_definitions();
  // Writes the lines of definitions_, in id order; on failure unmarks the unwritten ones.
  void write_definitions();
  void forget_definitions(std::size_t written);  // unmarks definitions_[written, end)
  bool is_symbol_declared(Symbol const* s) const;
  void forget_symbol(Symbol const* s);    // erases s from the declared record
  void reserve_record(Symbol const* s);   // makes the record's room for s
  void record_declared(Symbol const* s);  // enters s in the declared record (and scope log)
  // Appends t to line_: its label in global mode, the full term otherwise. plain says that
  // out_ writes numbers as plain decimal digits (see writes_plain_numbers).
  void append_term(Term const* t, bool plain);
  // Appends n to line_ as out_'s own insertion of an unsigned 64-bit number writes it.
  void append_stream_number(std::uint64_t n, bool plain);
  // Writes line_ as a command inserted piece by piece would reach out_: its first head bytes
  // in one insertion, which takes the stream's field width, the rest after it.
  void write_line(std::size_t head);
  // Append u's definition line to def_text_: with plain decimal digits (label: room for one
  // label), or with the numbers formatted by def_stream_.
  void compose_plain_definition(Term const* u, std::string const& prefix, std::size_t label);
  void compose_definition_in_stream(Term const* u, std::string const& prefix);
  void compose_binder_definition(Term const* u, std::string const& prefix);

  Configuration* config_;
  TermManager* mgr_;
  std::ostream& out_;
  SmtLib2TermPrinter printer_;
  // Per symbol id: whether the symbol's declaration is in the trace and still in scope.
  std::vector<bool> declared_symbols_;
  std::vector<Symbol const*> symbol_decl_stack_;
  std::set<DataType const*, TermPrinter::sym_ty_lt> declared_types_;
  // Scratch of the declaration search for sorts with instances.
  std::vector<DataType const*> instance_sorts_;
  std::vector<DataType const*> sort_walk_;
  std::vector<DataType const*> type_decl_stack_;
  std::vector<Symbol const*> new_symbols_;  // in declaration order, each once
  // Scratch of find_symbols_and_types_to_declare alone, so that it leaves new_symbols_ be.
  std::vector<Symbol const*> found_symbols_;
  std::set<DataType const*, TermPrinter::sym_ty_lt> new_types_;
  std::int32_t itp_group_;
  bool global_decls_;
  // Per term id: whether its definition is in the trace. Only grows, and is closed under
  // arguments: a term is marked only when all its arguments are.
  std::vector<bool> defined_terms_;
  std::vector<Term const*> formula_stack_;
  TextBuffer def_text_;  // definition lines not yet written
  // The string stream whose number formatting the definition lines follow: a stream of the
  // tracer's own, in the global locale of the tracer's construction. When that locale is the
  // classic one (plain_definitions_), the lines are composed directly in def_text_.
  std::ostringstream def_stream_;
  bool plain_definitions_;
  // A term defined by the current call, with its id beside it: sorting by id then compares
  // within the array instead of loading every term.
  struct Definition {
    std::uint64_t id;
    Term const* term;
  };
  std::vector<Definition> definitions_;  // the terms defined by one call
  // Scratch of order_definitions when one call's ids are dense: a bit per id of the range that
  // a definition holds, and per 64 bits the number of definitions before them.
  std::vector<std::uint64_t> id_bits_;
  std::vector<std::uint32_t> id_ranks_;
  std::vector<bool> visit_marks_;
  // Global-declarations mode: per term id, set when everything the term's DAG needs is
  // declared, which then stays true since nothing is forgotten in that mode before a reset.
  std::vector<bool> declared_closure_;
  // Scratch: the declaration search's work stack and visited list, and the text of a query
  // command being composed.
  std::vector<Term const*> search_stack_;
  std::vector<Term const*> search_visited_;
  std::string line_;
  // Formats the labels of query commands as out_ would when out_'s format is not plain.
  std::ostringstream label_stream_;
};

}  // namespace tvx

#endif  // TVX_TRACER_SMTLIB2_API_TRACER_H
