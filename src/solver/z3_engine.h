// Z3Engine: the z3 engine's class, shared by its two files: z3_engine.cpp (sorts, symbols and
// terms into z3, assertions, scopes, checks and cores) and z3_values.cpp (models and values
// back into the term layer).
#ifndef TVX_SOLVER_Z3_ENGINE_H
#define TVX_SOLVER_Z3_ENGINE_H

#include <z3.h>

#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <tvx/solver/engine.h>

#include "solver/answers.h"
#include "solver/dag_translation.h"
#include "solver/z3_ops.h"

namespace tvx {

class Z3Engine final : public Engine {
 public:
  Z3Engine(TermManager& mgr, Configuration const& config);
  ~Z3Engine() override;
  Z3Engine(Z3Engine const&) = delete;
  Z3Engine& operator=(Z3Engine const&) = delete;

  std::string const& name() const override { return name_; }
  void declare_sort(DataType const* sort) override { sort_of(sort); }
  void declare_fun(Symbol const* symbol) override { decl_of(symbol); }
  void assert_formula(Term const* formula, bool track) override;
  void push() override;
  void pop() override;
  void reset_assertions() override;
  // z3's declarations belong to its context, not to its solver: a reset of the solver is the
  // start state.
  void reset() override { reset_assertions(); }
  void set_timeout(double seconds) override;
  void define_funs_rec(std::vector<Symbol const*> const& functions,
                       std::vector<std::vector<Term const*>> const& params,
                       std::vector<Term const*> const& bodies) override;
  CheckResult check(std::vector<TheoryLit> const& assumptions) override;
  std::string reason_unknown() override;
  std::vector<Term const*> unsat_core() override;
  std::vector<TheoryLit> unsat_assumptions() override;
  Term const* value(Term const* term) override;
  Model model() override;
  Term const* interpolant(std::vector<Term const*> const& a,
                          std::vector<Term const*> const& b) override;

 private:
  // A z3 AST with a reference of its own.
  Z3_ast keep(Z3_ast a) {
    check_error();
    Z3_inc_ref(ctx_, a);
    kept_.push_back(a);
    return a;
  }
  void check_error();
  Z3_sort sort_of(DataType const* t);
  // Declares the datatypes of member's group, whose fields' other sorts z3 has.
  void make_datatypes(DataType const* member);
  // A recursive function's declaration is made by define_funs_rec, before its first use.
  Z3_func_decl decl_of(Symbol const* s, bool recursive = false);
  Z3_ast translate(Term const* t);
  // The z3 AST of t from the ASTs of its arguments; build() holds the intermediate ASTs.
  Z3_ast build(Term const* t, Z3_ast const* args);
  Z3_ast build_numeral(Symbol const* s);
  Z3_ast build_special(Symbol const* s, Z3_ast const* args);
  Z3_ast build_quantifier(Term const* t, Z3_ast const* args);
  Z3_ast build_by_row(z3ops::Z3Op const& op, Symbol const* s, Z3_ast const* args, std::size_t n);
  // z3 keeps an AST without references alive only until the next call; build() holds each
  // intermediate AST of one term here until the term's own AST has its reference.
  Z3_ast hold(Z3_ast a) {
    Z3_inc_ref(ctx_, a);
    held_.push_back(a);
    return a;
  }
  void release_held() {
    for (Z3_ast a : held_) {
      Z3_dec_ref(ctx_, a);
    }
    held_.clear();
  }
  template <class T>
  std::vector<T> core_of(Z3_solver solver, std::unordered_map<unsigned, T> const& known);
  Z3_model current_model();
  void drop_model();
  // Translates a z3 value of the given sort into the term layer (see ValueWalk).
  Term const* to_term(Z3_ast value, DataType const* sort);
  class ValueWalk;
  // Reads a function body over its arguments ((:var i) is argument i) for a TableBuilder.
  class BodyReader;
  // A function's table: its entries, then its else value, which may be a body over the
  // arguments; without one, any value of the result sort.
  FunctionValue function_value(Z3_func_interp interp, std::vector<DataType const*> const& arg_sorts,
                               DataType const* result_sort);
  // The value of one application of a function the model leaves out.
  Term const* application_value(Symbol const* s);
  Z3_ast evaluate_closed(Z3_ast value);

  TermManager& mgr_;
  std::string name_ = "z3";
  Z3_context ctx_ = nullptr;
  Z3_solver solver_ = nullptr;
  Z3_model model_ = nullptr;
  // Every AST the engine references; released with the context.
  std::vector<Z3_ast> kept_;
  std::vector<Z3_ast> held_;          // see hold()
  std::vector<Z3_sort> sorts_;        // by sort id
  std::vector<Z3_func_decl> decls_;   // by symbol id: uninterpreted and datatype symbols
  std::vector<Symbol const*> known_;  // the uninterpreted symbols translated, in order
  std::unordered_map<unsigned, Symbol const*> symbol_of_decl_;       // by z3 AST id of the decl
  std::unordered_map<unsigned, Symbol const*> constructor_of_decl_;  // the same, constructors

  Z3_params params_ = nullptr;

  // The assertions of the open scopes, for cores: z3 checks much slower with every assertion
  // tracked by a literal, so assertions go to the solver as they are, and a core is computed
  // when asked, by a second solver given the same assertions, the tracked ones behind
  // literals, and the last check's assumptions.
  struct Asserted {
    Term const* formula;
    bool track;
    std::size_t depth;
  };
  std::vector<Asserted> asserted_;
  std::size_t depth_ = 0;
  std::vector<Z3_ast> last_assumptions_;
  // The last check's assumptions, by the z3 AST id of their literal.
  std::unordered_map<unsigned, TheoryLit> assumptions_;

  // Elements (known by z3's text for them, "U!val!0"), defaults, tables and models.
  Answers answers_{mgr_};

  // Terms translated, by term id, each with a reference of its own (in kept_).
  DagTranslation<Z3_ast> dag_;
  std::vector<Z3_ast> links_;  // scratch of build_by_row
};

}  // namespace tvx

#endif  // TVX_SOLVER_Z3_ENGINE_H
