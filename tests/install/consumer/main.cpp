// Uses the installed headers and library: traces one assertion, then, when an engine is built
// in, solves a session the way the README shows; prints "tvx consumer ok" when both hold.
#include <iostream>
#include <sstream>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/solver/solver.h>
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
  bool ok = out.str().find(
                "(declare-fun p () Bool)\n(declare-fun q () Bool)\n"
                "(assert (and p q))\n") != std::string::npos;

  for (std::string const& engine : tvx::builtin_engine_names()) {
    config.model_generation = true;
    std::ostringstream trace;
    tvx::Solver solver(mgr, config, tvx::make_engine(engine, mgr, config), trace, false, false);
    tvx::DataType const* Int = mgr.get_integer_type();
    tvx::Term const* x = mgr.make_constant(solver.declare_fun("x_" + engine, {}, Int));
    tvx::Term const* two = mgr.make_number("2", Int);
    solver.assert_formula(mgr.make_builtin(">", {x, two}));
    bool const solved = solver.check() == tvx::CheckResult::Sat &&
                        solver.get_model_value(x) != two &&
                        trace.str().find("(check-sat)\n") != std::string::npos;
    if (!solved) {
      std::cout << engine << ": the session was not solved\n" << trace.str();
    }
    ok = ok && solved;
  }
  std::cout << (ok ? "tvx consumer ok\n" : out.str());
  return ok ? 0 : 1;
}
