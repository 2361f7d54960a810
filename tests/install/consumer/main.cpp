// Uses the installed headers and library: traces one assertion and prints "tvx consumer ok"
// when the trace holds it.
#include <iostream>
#include <sstream>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/tracer/smtlib2_api_tracer.h>

int main() {
  tvx::TermManager mgr;
  tvx::Configuration config;
  std::ostringstream out;
  tvx::SmtLib2ApiTracer tracer(&config, &mgr, out, false, false);
  tvx::DataType const* boolean = mgr.get_bool_type();
  tvx::Term const* p = mgr.make_constant(mgr.make_symbol("p", boolean));
  tvx::Term const* q = mgr.make_constant(mgr.make_symbol("q", boolean));
  tracer.trace_assert_formula(mgr.make_and(p, q));
  bool const ok = out.str().find(
                      "(declare-fun p () Bool)\n(declare-fun q () Bool)\n"
                      "(assert (and p q))\n") != std::string::npos;
  std::cout << (ok ? "tvx consumer ok\n" : out.str());
  return ok ? 0 : 1;
}
