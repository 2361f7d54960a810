// ApiTracer: the interface through which a solver environment reports every API call that
// changes or queries its state. One operation per traced call; none reports anything back.
#ifndef TVX_TRACER_API_TRACER_H
#define TVX_TRACER_API_TRACER_H

#include <string>
#include <vector>

#include <tvx/core/term_manager.h>

namespace tvx {

class ApiTracer {
 public:
  virtual ~ApiTracer() = default;
  virtual void trace_type_declaration(DataType const* type) = 0;
  virtual void trace_symbol_declaration(Symbol const* sym) = 0;
  virtual void trace_push_backtrack_point() = 0;
  virtual void trace_pop_backtrack_point() = 0;
  virtual void trace_assert_formula(Term const* t) = 0;
  virtual void trace_check() = 0;
  virtual void trace_check_allsat(std::vector<Term const*> const& terms) = 0;
  virtual void trace_check_with_assumptions(std::vector<TheoryLit> const& assumptions) = 0;
  virtual void trace_reset_assertions() = 0;
  virtual void trace_new_interpolation_group() = 0;
  virtual void trace_set_interpolation_group(int group) = 0;
  virtual void trace_get_interpolant(std::vector<int> const& groups) = 0;
  virtual void trace_get_unsat_core() = 0;
  virtual void trace_get_unsat_assumptions() = 0;
  virtual void trace_get_model() = 0;
  virtual void trace_get_model_value(Term const* t) = 0;

  // Operations beyond the sixteen above.
  // Back to the start state: no assertions, scopes, declarations or definitions.
  virtual void trace_reset() = 0;
  // Recursive definitions: each function (not declared before) gets the body over its
  // parameters (variables); the bodies may apply every function of the group.
  virtual void trace_define_funs_rec(std::vector<Symbol const*> const& functions,
                                     std::vector<std::vector<Term const*>> const& params,
                                     std::vector<Term const*> const& bodies) = 0;
  // What a session declares of itself, so that its trace replays as it ran: its logic, and an
  // option that decides what it may ask (:produce-models, :produce-unsat-cores, ...), with the
  // value as the script wrote it.
  virtual void trace_set_logic(std::string const& logic) = 0;
  virtual void trace_set_option(std::string const& keyword, std::string const& value) = 0;
  // An assertion named for unsat cores: (assert (! F :named NAME)).
  virtual void trace_assert_named(Term const* t, std::string const& name) = 0;
};

}  // namespace tvx

#endif  // TVX_TRACER_API_TRACER_H
