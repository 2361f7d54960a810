// ResponseWriter: writes a solver's answers as SMT-LIB 2 responses ("sat", "((x 3))", models,
// cores, "(error ...)"), one response per command, each ended by a newline and flushed, so a
// program reading them sees each answer as soon as it is known.
#ifndef TVX_SMT2_RESPONSE_WRITER_H
#define TVX_SMT2_RESPONSE_WRITER_H

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <tvx/core/configuration.h>
#include <tvx/core/term_manager.h>
#include <tvx/core/term_printer.h>
#include <tvx/solver/engine.h>

namespace tvx {
namespace smt2 {

class ResponseWriter {
 public:
  // Terms are written by a printer of the writer's own, with the configuration's printer
  // settings; the manager, the settings and the stream must outlive the writer.
  ResponseWriter(TermManager& mgr, Configuration& config, std::ostream& out);

  void check(CheckResult result);
  // ((TERM VALUE) ...)
  void values(std::vector<std::pair<Term const*, Term const*>> const& pairs);
  // The same with each term given as text, written as it is.
  void values(std::vector<std::pair<std::string, Term const*>> const& pairs);
  // ((define-fun NAME () SORT VALUE) ... (define-fun F ((x!0 S) ...) SORT BODY) ...), where a
  // function's BODY is an ite over its points, ending in its value elsewhere.
  void model(Model const& model);
  // (NAME ...), the names of the formulas in a core.
  void names(std::vector<std::string> const& names);
  // ((NAME true) (NAME false) ...): the truth values of named formulas.
  void assignment(std::vector<std::pair<std::string, bool>> const& values);
  // (LITERAL ...): a term, or (not TERM).
  void literals(std::vector<TheoryLit> const& literals);
  // One cube per line, as literals, then the answer that ended the search.
  void cubes(std::vector<std::vector<TheoryLit>> const& cubes, std::string const& reason_unknown);
  void term(Term const* t);
  // A response written as it is (an option's value, for instance).
  void text(std::string const& response);
  // (:KEYWORD VALUE), KEYWORD with its colon, VALUE written as it is.
  void info(std::string const& keyword, std::string const& value);
  // A string as SMT-LIB writes it, between double quotes with each quote doubled.
  void string(std::string const& text);
  void unsupported();
  void error(std::string const& message);
  // Responses written so far.
  std::uint64_t count() const { return count_; }

 private:
  void end();  // the newline and the flush of one response

  SmtLib2TermPrinter printer_;
  std::ostream& out_;
  std::uint64_t count_ = 0;
};

}  // namespace smt2
}  // namespace tvx

#endif  // TVX_SMT2_RESPONSE_WRITER_H
