// The drop-in solver: tvx-trace called under a solver's name (a link named z3 or cvc5 earlier on
// PATH, or `tvx-trace --as NAME`) takes that solver's command line, answers as that solver
// does, runs the session on the engine of that name (in process when built in, else the real
// binary found next on PATH), and writes one trace per session into the trace directory.
#ifndef TVX_TOOLS_DROPIN_H
#define TVX_TOOLS_DROPIN_H

#include <string>
#include <vector>

namespace tvx {
namespace dropin {

// The solver a program name stands for ("z3", "cvc5"), from the last component of argv[0]: z3
// and cvc5 themselves, and the names TVX_DROPIN_NAMES gives ("z3-4.8=z3 mysolver=cvc5");
// empty for any other name.
std::string solver_of_program(std::string const& argv0);

// Runs the drop-in for `solver` with that solver's command-line arguments; returns the exit
// status.
int run(std::string const& solver, std::vector<std::string> const& args);

}  // namespace dropin
}  // namespace tvx

#endif  // TVX_TOOLS_DROPIN_H
