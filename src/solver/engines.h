// The engines this library builds, each made by its own factory; make_engine chooses among
// them. An engine whose solver library was not found at build time is left out, and so is its
// factory.
#ifndef TVX_SOLVER_ENGINES_H
#define TVX_SOLVER_ENGINES_H

#include <memory>
#include <string>

#include <tvx/solver/engine.h>

namespace tvx {

#ifdef TVX_HAVE_Z3
std::unique_ptr<Engine> make_z3_engine(TermManager& mgr, Configuration const& config);
std::string z3_library_version();
#endif
#ifdef TVX_HAVE_CVC5
std::unique_ptr<Engine> make_cvc5_engine(TermManager& mgr, Configuration const& config);
std::string cvc5_library_version();
#endif
// A solver process started from the command line `command` (split at blanks; quotes group).
// Always built: it needs no solver library.
std::unique_ptr<Engine> make_process_engine(std::string const& command, TermManager& mgr,
                                            Configuration const& config);

}  // namespace tvx

#endif  // TVX_SOLVER_ENGINES_H
