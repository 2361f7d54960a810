// trace_session: traces a short solver session to an SMT-LIB 2 file.
//
//   trace_session [FILE]      (FILE defaults to trace.smt2)
//
// The file that comes out is a script that any SMT-LIB 2 solver can replay, e.g.
//   z3 -smt2 trace.smt2
#include <fstream>
#include <iostream>
#include <string>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/tracer/smtlib2_api_tracer.h>

int main(int argc, char** argv) {
  std::string const path = argc > 1 ? argv[1] : "trace.smt2";
  std::ofstream out(path);
  if (!out) {
    std::cerr << "trace_session: cannot open " << path << " for writing\n";
    return 1;
  }

  // The environment: settings and the term manager that owns every sort, symbol and term.
  tvx::Configuration config;
  tvx::TermManager mgr;

  // Scoped declarations (false): terms are printed in full, and what is declared after a push
  // is forgotten at the matching pop. Pass true for one define-fun per distinct subterm.
  bool const global_decls = false;
  bool const dump_config = false;
  tvx::SmtLib2ApiTracer tracer(&config, &mgr, out, global_decls, dump_config);

  // A sort and two functions over it.
  tvx::DataType const* person = mgr.make_simple_type("Person");
  tvx::DataType const* boolean = mgr.get_bool_type();
  tvx::Symbol const* parent = mgr.make_symbol("parent", mgr.get_function_type({person}, person));
  tvx::Symbol const* likes =
      mgr.make_symbol("likes", mgr.get_function_type({person, person}, boolean));
  tracer.trace_type_declaration(person);
  tracer.trace_symbol_declaration(parent);
  tracer.trace_symbol_declaration(likes);

  // Constants need no explicit declaration: the tracer declares what a term uses on the way.
  tvx::Term const* alice = mgr.make_constant(mgr.make_symbol("alice", person));
  tvx::Term const* bob = mgr.make_constant(mgr.make_symbol("bob", person));
  tvx::Term const* alice_parent = mgr.make_term(parent, {alice});

  // Everyone likes their parent, and alice's parent is bob.
  tracer.trace_assert_formula(mgr.make_term(likes, {alice, alice_parent}));
  tracer.trace_assert_formula(mgr.make_equal(alice_parent, bob));
  tracer.trace_check();

  // A what-if inside a backtrack point: alice does not like bob.
  tracer.trace_push_backtrack_point();
  tracer.trace_assert_formula(mgr.make_not(mgr.make_term(likes, {alice, bob})));
  tracer.trace_check();  // unsat
  tracer.trace_pop_backtrack_point();

  // Back to the consistent state; ask for a value.
  tracer.trace_check();
  tracer.trace_get_model_value(alice_parent);

  std::cout << "trace written to " << path << "\n";
  return 0;
}
