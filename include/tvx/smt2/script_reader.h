// ScriptReader: reads an SMT-LIB 2 script and turns each command, as soon as it is parsed, into
// the matching TermManager and Solver calls, so a script is traced and answered the way the
// same calls made by an application would be. With a ResponseWriter, every command that asks
// something writes the solver's answer as an SMT-LIB 2 response. Invariant: a command that
// fails does nothing, and every command before it has been passed on in full.
//
// What the reader accepts: the theories of the term layer (core, integers and reals,
// bit-vectors, arrays, uninterpreted sorts and functions, sorts with parameters, datatypes,
// quantifiers); declare-sort, declare-fun, declare-const, declare-datatype(s), define-fun,
// define-const and define-sort as macros, define-fun(s)-rec, let, match, the annotations
// :named and, on an asserted formula, :interpolation-group; push, pop, reset,
// reset-assertions, check-sat, check-sat-assuming, check-allsat, get-value, get-model,
// get-unsat-core, get-unsat-assumptions, get-interpolant, get-assertions, get-assignment;
// set-option, set-logic, set-info, get-info, get-option, echo and exit. Anything else is an
// error; constructs of theories and commands outside that fragment are reported as not
// supported.
//
// Arithmetic: an operator among + - * / < <= > >= = distinct ite that gets Int and Real
// arguments together turns its Int numerals into Real numerals and wraps its other Int
// arguments in to_real ("/" does so always). A unary minus of a numeral is a negative numeral,
// and "/" of two integral Real numerals is a rational numeral, so printed numerals read back
// as the numerals they were.
//
// Names follow SMT-LIB scoping: declarations, definitions and :named names made after a push
// are gone after the matching pop, unless the script set :global-declarations (or
// :global-decls) to true. Nesting is handled with explicit stacks, never recursion.
#ifndef TVX_SMT2_SCRIPT_READER_H
#define TVX_SMT2_SCRIPT_READER_H

#include <cstdint>
#include <functional>
#include <istream>
#include <memory>
#include <string>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/smt2/read_error.h>
#include <tvx/smt2/response_writer.h>
#include <tvx/solver/solver.h>

namespace tvx {
namespace smt2 {

// Who the reader answers as: what get-info tells of the solver, and what an error does. With
// continued execution (as z3 does) an error is answered and only its command is given up;
// otherwise (SMT-LIB's immediate-exit) reading ends at the first error.
struct SolverPersona {
  std::string name = "tvx";
  std::string version;
  std::string authors;
  bool continued_execution = false;
  bool echo_quoted = true;    // echo writes its string quoted (or as it is, as z3 does)
  bool echo_success = false;  // under :print-success, echo is followed by success (cvc5)
  // A reset takes every option back to its start, :print-success too unless this is set (z3
  // keeps it).
  bool reset_keeps_print_success = false;
};

class ScriptReader {
 public:
  // Called after each command with the bytes read and the commands done so far.
  using ProgressCallback = std::function<void(std::uint64_t bytes, std::uint64_t commands)>;

  // The solver (with its term manager and configuration) must outlive the reader.
  explicit ScriptReader(Solver& solver);
  ~ScriptReader();
  ScriptReader(ScriptReader const&) = delete;
  ScriptReader& operator=(ScriptReader const&) = delete;

  // Reads commands until the end of `in` or an (exit) command, carrying out each as soon as it
  // is read. `filename` names the input in error messages. Throws ReadError at the first
  // error. Declarations and definitions stay known from one call to the next.
  void read(std::istream& in, std::string const& filename);

  void set_progress_callback(ProgressCallback callback);
  // Answers go to `writer` (none by default); it must outlive the reader's use of it. A
  // feature the solver's engine lacks is then answered "unsupported" and reading goes on.
  void set_response_writer(ResponseWriter* writer);
  // With a response writer and continued execution, an error is answered (error "...") and
  // reading goes on after its command.
  void set_persona(SolverPersona persona);
  // The errors answered so far under continued execution.
  std::uint64_t errors_answered() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace smt2
}  // namespace tvx

#endif  // TVX_SMT2_SCRIPT_READER_H
