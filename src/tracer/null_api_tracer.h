// NullApiTracer: the tracer of an environment that is not tracing. Invariant: every operation
// writes nothing and changes nothing, so a caller may report each call without asking first
// whether anyone listens.
#ifndef TVX_TRACER_NULL_API_TRACER_H
#define TVX_TRACER_NULL_API_TRACER_H

#include <string>
#include <vector>

#include <tvx/tracer/api_tracer.h>

namespace tvx {

class NullApiTracer final : public ApiTracer {
 public:
  void trace_type_declaration(DataType const*) override {}
  void trace_symbol_declaration(Symbol const*) override {}
  void trace_push_backtrack_point() override {}
  void trace_pop_backtrack_point() override {}
  void trace_assert_formula(Term const*) override {}
  void trace_check() override {}
  void trace_check_allsat(std::vector<Term const*> const&) override {}
  void trace_check_with_assumptions(std::vector<TheoryLit> const&) override {}
  void trace_reset_assertions() override {}
  void trace_new_interpolation_group() override {}
  void trace_set_interpolation_group(int) override {}
  void trace_get_interpolant(std::vector<int> const&) override {}
  void trace_get_unsat_core() override {}
  void trace_get_unsat_assumptions() override {}
  void trace_get_model() override {}
  void trace_get_model_value(Term const*) override {}
  void trace_reset() override {}
  void trace_define_funs_rec(std::vector<Symbol const*> const&,
                             std::vector<std::vector<Term const*>> const&,
                             std::vector<Term const*> const&) override {}
  void trace_set_logic(std::string const&) override {}
  void trace_set_option(std::string const&, std::string const&) override {}
  void trace_assert_named(Term const*, std::string const&) override {}
};

}  // namespace tvx

#endif  // TVX_TRACER_NULL_API_TRACER_H
