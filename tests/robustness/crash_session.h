// The long traced session of the crash-safety test, shared by the writer process and by the
// test that checks what the killed writer left behind. It uses only commands that a solver
// accepts in any state, so that every complete prefix of the trace replays without error.
#ifndef TVX_TESTS_ROBUSTNESS_CRASH_SESSION_H
#define TVX_TESTS_ROBUSTNESS_CRASH_SESSION_H

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "core/configuration.h"
#include "core/term_manager.h"
#include "tracer/smtlib2_api_tracer.h"

namespace tvx {
namespace test {

// Traces `rounds` rounds of declarations, assertions, backtrack points and checks, calling
// `returned` after every traced call has returned.
inline void run_crash_session(std::ostream& out, bool global, int rounds,
                              std::function<void()> const& returned) {
  TermManager mgr;
  Configuration config;
  SmtLib2ApiTracer tracer(&config, &mgr, out, global, false);
  returned();
  DataType const* U = mgr.make_simple_type("U");
  DataType const* int_type = mgr.get_integer_type();
  Symbol const* f = mgr.make_symbol("f", mgr.get_function_type({U, U}, U));
  Symbol const* p = mgr.make_symbol("p", mgr.get_function_type({U}, mgr.get_bool_type()));
  Term const* a = mgr.make_constant(mgr.make_symbol("a", U));
  Term const* n = mgr.make_constant(mgr.make_symbol("n", int_type));
  tracer.trace_type_declaration(U);
  returned();
  Term const* chain = a;
  for (int r = 0; r < rounds; ++r) {
    std::string const id = std::to_string(r);
    Term const* c = mgr.make_constant(mgr.make_symbol("c" + id, U));
    Term const* k = mgr.make_constant(mgr.make_symbol("k" + id, int_type));
    // The chain starts afresh every 20 rounds, so that the full-text trace stays linear.
    chain = mgr.make_term(f, {r % 20 == 0 ? a : chain, c});
    Term const* fact = mgr.make_or(mgr.make_term(p, {chain}),
                                   mgr.make_builtin("<=", {n, mgr.make_builtin("+", {k, n})}));
    tracer.trace_push_backtrack_point();
    returned();
    tracer.trace_assert_formula(fact);
    returned();
    if (r % 5 == 0) {
      tracer.trace_check_with_assumptions(
          {TheoryLit(mgr.make_term(p, {c}), r % 2 == 0), TheoryLit(mgr.make_term(p, {a}), false)});
      returned();
    }
    if (r % 3 == 0) {
      tracer.trace_pop_backtrack_point();
      returned();
      tracer.trace_assert_formula(mgr.make_builtin(">=", {k, mgr.make_number(id, int_type)}));
      returned();
    }
    if (r % 50 == 49) {
      tracer.trace_check();
      returned();
    }
  }
}

}  // namespace test
}  // namespace tvx

#endif  // TVX_TESTS_ROBUSTNESS_CRASH_SESSION_H
