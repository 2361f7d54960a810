// The traced operations that the robustness tests put under faults, each with the history of
// calls before it, and the probe: the calls after it, which read every part of the record.
#ifndef TVX_TESTS_ROBUSTNESS_SCENARIOS_H
#define TVX_TESTS_ROBUSTNESS_SCENARIOS_H

#include <functional>
#include <vector>

#include "trace_session.h"

namespace tvx {
namespace test {

using Step = std::function<void(TraceSession&)>;

// One traced operation and the history that precedes it.
struct Scenario {
  char const* name;
  Step setup;  // the calls before the operation, and the terms it needs
  Step op;
  bool constructs;  // the operation is the tracer's construction
  bool atomic;      // push, pop, reset: either all of the command or none of it
};

// A session with declarations, an assertion, an open backtrack point and a current
// interpolation group, so that the operation meets a record with some content.
inline void history(TraceSession& s) {
  s.start();
  s.t().trace_type_declaration(s.U);
  s.t().trace_symbol_declaration(s.a->get_symbol());
  s.t().trace_assert_formula(s.P(s.a));
  s.t().trace_push_backtrack_point();
  s.t().trace_set_interpolation_group(1);
}

inline std::vector<Scenario> const& scenarios() {
  static std::vector<Scenario> const all = {
      {"ConstructWithDump", [](TraceSession&) {}, [](TraceSession& s) { s.start(true); }, true,
       false},
      {"TypeDeclaration", history, [](TraceSession& s) { s.t().trace_type_declaration(s.V); },
       false, false},
      {"SymbolDeclaration", history, [](TraceSession& s) { s.t().trace_symbol_declaration(s.h); },
       false, false},
      {"AssertManyNewSubterms",
       [](TraceSession& s) {
         history(s);
         s.terms = {s.big_formula(s.b, 12)};
       },
       [](TraceSession& s) { s.t().trace_assert_formula(s.terms[0]); }, false, false},
      {"Push",
       [](TraceSession& s) {
         history(s);
         // Four entries on the symbol stack: the push has to grow both stacks.
         s.t().trace_symbol_declaration(s.b->get_symbol());
       },
       [](TraceSession& s) { s.t().trace_push_backtrack_point(); }, false, true},
      {"Pop",
       [](TraceSession& s) {
         history(s);
         s.t().trace_type_declaration(s.V);
         s.t().trace_symbol_declaration(s.h);
       },
       [](TraceSession& s) { s.t().trace_pop_backtrack_point(); }, false, true},
      {"ResetAssertions",
       [](TraceSession& s) {
         history(s);
         s.t().trace_push_backtrack_point();
         s.t().trace_symbol_declaration(s.c->get_symbol());
       },
       [](TraceSession& s) { s.t().trace_reset_assertions(); }, false, true},
      {"CheckAllsat",
       [](TraceSession& s) {
         history(s);
         s.terms = {s.big_formula(s.c, 6), s.P(s.G(s.b)), s.app(s.h, {s.a, s.v})};
       },
       [](TraceSession& s) { s.t().trace_check_allsat(s.terms); }, false, false},
      {"CheckSatAssuming",
       [](TraceSession& s) {
         history(s);
         s.terms = {s.big_formula(s.c, 6), s.P(s.G(s.b))};
       },
       [](TraceSession& s) {
         s.t().trace_check_with_assumptions(
             {TheoryLit(s.terms[0], false), TheoryLit(s.terms[1], true)});
       },
       false, false},
      {"GetValue",
       [](TraceSession& s) {
         history(s);
         s.terms = {s.F(s.G(s.c), s.F(s.b, s.G(s.G(s.a))))};
       },
       [](TraceSession& s) { s.t().trace_get_model_value(s.terms[0]); }, false, false},
  };
  return all;
}

// The calls after the operation: they read every part of the record.
inline void probe(TraceSession& s) {
  SmtLib2ApiTracer& t = s.t();
  t.trace_push_backtrack_point();
  t.trace_assert_formula(s.app(s.h, {s.G(s.c), s.v}));
  t.trace_check_allsat({s.P(s.F(s.a, s.b))});
  t.trace_check_with_assumptions({TheoryLit(s.P(s.c), false), TheoryLit(s.P(s.b), true)});
  t.trace_get_model_value(s.F(s.c, s.c));
  t.trace_pop_backtrack_point();
  t.trace_assert_formula(s.app(s.h, {s.a, s.v}));
  t.trace_set_interpolation_group(2);
  t.trace_assert_formula(s.P(s.G(s.G(s.b))));
  t.trace_check();
}

}  // namespace test
}  // namespace tvx

#endif  // TVX_TESTS_ROBUSTNESS_SCENARIOS_H
