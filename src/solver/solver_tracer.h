// SolverTracer: the tracer a Solver reports to while tracing. It passes every call to an
// SmtLib2ApiTracer, first declaring what that tracer's own search (by result sorts) misses:
// the uninterpreted sorts in a symbol's signature and, for a model-value query, whose command
// declares nothing, the declarations its term needs. Invariant: every sort and symbol a traced
// command mentions is declared in the trace before the command.
#ifndef TVX_SOLVER_SOLVER_TRACER_H
#define TVX_SOLVER_SOLVER_TRACER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <vector>

#include <tvx/core/term_manager.h>
#include <tvx/core/term_printer.h>
#include <tvx/tracer/api_tracer.h>
#include <tvx/tracer/smtlib2_api_tracer.h>

namespace tvx {

class SolverTracer final : public ApiTracer {
 public:
  // `writer` must trace over `mgr`; the manager must outlive this tracer.
  SolverTracer(TermManager& mgr, std::unique_ptr<SmtLib2ApiTracer> writer);
  ~SolverTracer() override;
  SolverTracer(SolverTracer const&) = delete;
  SolverTracer& operator=(SolverTracer const&) = delete;

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
  void trace_reset() override;
  void trace_set_logic(std::string const& logic) override;
  void trace_set_option(std::string const& keyword, std::string const& value) override;
  void trace_assert_named(Term const* t, std::string const& name) override;
  void trace_define_funs_rec(std::vector<Symbol const*> const& functions,
                             std::vector<std::vector<Term const*>> const& params,
                             std::vector<Term const*> const& bodies) override;

 private:
  // Before `term` is traced: reports the uninterpreted sorts nested in the signatures of the
  // symbols the writer is about to declare, which its own search misses.
  void declare_nested_sorts(Term const* term);
  // Reports every uninterpreted sort in `type`, array components included.
  void declare_signature_sorts(DataType const* type);
  bool has_nested_sort(DataType const* type);

  TermManager& mgr_;
  std::unique_ptr<SmtLib2ApiTracer> writer_;
  // Per sort id: 0 not known yet, 1 no uninterpreted sort nested in an array, 2 one is.
  std::vector<std::uint8_t> nested_;
  std::size_t symbols_scanned_ = 0;  // symbols of the manager looked at for nested sorts
  bool any_nested_ = false;          // some symbol's signature nests an uninterpreted sort
  std::vector<Symbol const*> nested_variables_;  // variables whose sorts nest one
  std::set<Symbol const*, TermPrinter::sym_ty_lt> new_symbols_;
  std::set<DataType const*, TermPrinter::sym_ty_lt> new_types_;
  std::vector<DataType const*> sort_stack_;
};

}  // namespace tvx

#endif  // TVX_SOLVER_SOLVER_TRACER_H
