// Cvc5Session: everything of the cvc5 engine that touches cvc5, shared by its two files:
// cvc5_engine.cpp (sorts, symbols and terms into cvc5, assertions, scopes, checks and cores,
// and the engine that runs the session on a thread of its own) and cvc5_values.cpp (models,
// values and interpolants back into the term layer).
#ifndef TVX_SOLVER_CVC5_ENGINE_H
#define TVX_SOLVER_CVC5_ENGINE_H

#include <cvc5/cvc5.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <tvx/core/error.h>
#include <tvx/solver/engine.h>

#include "solver/answers.h"
#include "solver/cvc5_ops.h"
#include "solver/dag_translation.h"
#include "solver/deep_stack.h"
#include "solver/engines.h"

namespace tvx {

// Everything that touches cvc5; made, used and destroyed on the engine's own thread only.
class Cvc5Session {
 public:
  Cvc5Session(TermManager& mgr, Configuration const& config);

  void declare_sort(DataType const* sort) { sort_of(sort); }
  void set_timeout(double seconds);
  void declare_fun(Symbol const* symbol) { decl_of(symbol); }
  void assert_formula(Term const* formula, bool track);
  void push();
  void pop();
  void reset_assertions();
  void define_funs_rec(std::vector<Symbol const*> const& functions,
                       std::vector<std::vector<Term const*>> const& params,
                       std::vector<Term const*> const& bodies);
  CheckResult check(std::vector<TheoryLit> const& assumptions);
  std::string reason_unknown() const;
  std::vector<Term const*> unsat_core();
  std::vector<TheoryLit> unsat_assumptions();
  Term const* value(Term const* term);
  Model model();
  Term const* interpolant(std::vector<Term const*> const& a, std::vector<Term const*> const& b);
  // The term layer's reading of the engine's cvc5 term for t: t itself when each operator in it
  // has its own kind, as the operator table both ways makes it (tests check the table with it).
  Term const* read_back(Term const* t) { return to_term(translate(t)); }

 private:
  cvc5::Sort sort_of(DataType const* t);
  // Declares the datatypes of member's group, whose fields' other sorts cvc5 has.
  void make_datatypes(DataType const* member);
  DataType const* sort_back(cvc5::Sort const& s);
  cvc5::Term decl_of(Symbol const* s);
  cvc5::Term translate(Term const* t);
  // The cvc5 term of t from the terms of its arguments.
  cvc5::Term build_quantifier(Term const* t, std::vector<cvc5::Term> const& a);
  cvc5::Term build(Term const* t, std::vector<cvc5::Term> const& args);
  cvc5::Term build_numeral(Symbol const* s);
  cvc5::Term build_by_row(cvc5ops::Cvc5Op const& op, Symbol const* s,
                          std::vector<cvc5::Term> const& args);
  cvc5::Term const_array(DataType const* sort, cvc5::Term const& value);
  Term const* to_term(cvc5::Term const& root);
  Term const* leaf(cvc5::Term const& t);
  Term const* apply(cvc5::Term const& t, std::vector<Term const*>& args);
  // Reads a lambda's body for a TableBuilder.
  class BodyReader;
  FunctionValue function_value(Symbol const* s, cvc5::Term const& lambda);

  TermManager& mgr_;
  cvc5::Solver solver_;
  bool models_;
  bool cores_;
  std::string time_limit_;  // cvc5's "tlimit-per" in milliseconds; empty for none
  cvc5::Result last_;
  std::vector<cvc5::Sort> sorts_;     // by sort id
  std::vector<cvc5::Term> decls_;     // by symbol id: uninterpreted and datatype symbols
  std::vector<Symbol const*> known_;  // the uninterpreted symbols translated, in order
  std::unordered_map<cvc5::Term, Symbol const*> symbol_of_;  // by cvc5 constant
  // Datatypes' constructors, selectors and testers, by their cvc5 terms.
  std::unordered_map<cvc5::Term, Symbol const*> datatype_symbol_of_;
  std::unordered_map<cvc5::Sort, DataType const*> sort_of_;  // by cvc5 sort

  // Tracked assertions by their cvc5 term, with how many scopes assert them.
  struct Tracked {
    Term const* formula;
    std::size_t count;
  };
  std::unordered_map<cvc5::Term, Tracked> tracked_;
  std::vector<std::pair<cvc5::Term, std::size_t>> track_log_;  // (assertion, scope depth)
  std::size_t depth_ = 0;
  std::unordered_map<cvc5::Term, TheoryLit> assumptions_;

  // Elements (known by cvc5's text for them), tables and models.
  Answers answers_{mgr_};

  DagTranslation<cvc5::Term> dag_;  // terms translated, by term id
  // Scratch of build_by_row, reused from call to call.
  std::vector<cvc5::Term> pair_;
  std::vector<cvc5::Term> links_;
  std::vector<std::uint32_t> indices_;
};

}  // namespace tvx

#endif  // TVX_SOLVER_CVC5_ENGINE_H
