// solve_session: solves a short session through the z3 engine and traces it on the way.
//
//   solve_session [TRACE]      (TRACE defaults to trace.smt2)
//
// Prints the answers; TRACE is an SMT-LIB 2 script of every call, which replays the session:
//   tvx-trace --solver z3 trace.smt2
#include <iostream>
#include <string>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/core/term_printer.h>
#include <tvx/solver/solver.h>

int main(int argc, char** argv) {
  tvx::Configuration config;
  config.model_generation = true;
  config.unsat_core_generation = true;
  // Tracing is switched on by the configuration, as any application would do it.
  config.api_call_trace = true;
  config.api_call_trace_filename = argc > 1 ? argv[1] : "trace.smt2";

  tvx::TermManager mgr;
  try {
    tvx::Solver solver(mgr, config, tvx::make_engine("z3", mgr, config));
    tvx::SmtLib2TermPrinter printer(&mgr, &config.printer, "", "", false, nullptr);
    auto text = [&](tvx::Term const* t) { return printer.term_text(t); };

    // Jobs on machines: an uninterpreted sort, a function into it, integer loads.
    tvx::DataType const* Int = mgr.get_integer_type();
    tvx::DataType const* Machine = solver.declare_sort("Machine");
    tvx::Symbol const* host = solver.declare_fun("host", {Int}, Machine);
    tvx::Term const* load = mgr.make_constant(solver.declare_fun("load", {}, Int));
    tvx::Term const* job1 = mgr.make_number("1", Int);
    tvx::Term const* job2 = mgr.make_number("2", Int);
    auto num = [&](char const* v) { return mgr.make_number(v, Int); };

    solver.assert_formula(
        mgr.make_not(mgr.make_equal(mgr.make_term(host, {job1}), mgr.make_term(host, {job2}))));
    solver.assert_formula(mgr.make_builtin("<=", {num("10"), load}));
    std::cout << "check: " << tvx::to_string(solver.check()) << "\n";
    std::cout << "load = " << text(solver.get_model_value(load)) << "\n";

    // A scope with a contradiction: the core names the formulas that clash.
    solver.push();
    tvx::Term const* small = mgr.make_builtin("<", {load, num("5")});
    solver.assert_formula(small);
    std::cout << "check in the scope: " << tvx::to_string(solver.check()) << "\n";
    for (tvx::Term const* t : solver.get_unsat_core()) {
      std::cout << "  in the core: " << text(t) << "\n";
    }
    solver.pop();

    // Assumptions instead of assertions.
    tvx::Term const* big = mgr.make_builtin(">", {load, num("100")});
    std::cout << "check assuming load > 100 and not (load < 5): "
              << tvx::to_string(solver.check_with_assumptions(
                     {tvx::TheoryLit(big, false), tvx::TheoryLit(small, true)}))
              << "\n";
    for (auto const& [symbol, value] : solver.get_model().constants) {
      std::cout << "  " << symbol->get_name() << " = " << text(value) << "\n";
    }
  } catch (tvx::Error const& e) {
    std::cerr << "solve_session: " << e.what() << "\n";
    return 1;
  }
  std::cout << "trace written to " << config.api_call_trace_filename << "\n";
  return 0;
}
