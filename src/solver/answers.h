// Answers: what every engine's answers share: elements of uninterpreted sorts, default values,
// arrays from tables, models. Invariant: an engine's key names one element for the session's
// life, so the same element is the same abstract value in every answer.
#ifndef TVX_SOLVER_ANSWERS_H
#define TVX_SOLVER_ANSWERS_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <tvx/solver/engine.h>

namespace tvx {

class Answers {
 public:
  // What assembling a model asks of an engine, symbol by symbol.
  struct ModelReader {
    // The value of a constant.
    std::function<Term const*(Symbol const*)> constant;
    // Fills the table of a function; false when the model leaves the function out.
    std::function<bool(Symbol const*, FunctionValue&)> function;
    // The value of one application of a function the model leaves out (see model()).
    std::function<Term const*(Symbol const*)> application;
  };

  explicit Answers(TermManager& mgr) : mgr_(mgr) {}

  // The element of the uninterpreted `sort` that the engine knows by `key`: whatever names it
  // for the engine's whole life (the solver's name for it, an id that is never reused),
  // written as text so that every engine's identity fits. Elements of a sort are numbered from
  // 0 in the order first met; the result is the manager's abstract value of that number.
  Term const* element(DataType const* sort, std::string const& key);

  // Some value of `sort`: false, 0, the element numbered 0, or a constant array of such.
  Term const* any_value(DataType const* sort);
  Term const* any_constructed(DataType const* sort);
  // A value of each argument sort of the function `s`.
  std::vector<Term const*> any_arguments(Symbol const* s);

  // The array whose element at each index is the table's value there: the constant array of
  // the else value with the points stored over it, the first point stored last so that it
  // wins. The table is over one argument, which every point fixes.
  Term const* array_of(DataType const* array_sort, FunctionValue const& table);

  // Array values read bottom-up on a stack of results. The top becomes the constant array of
  // `array_sort` whose every element it is; the top three (array, index, element) become the
  // store of the element at the index.
  void const_array_on_top(std::vector<Term const*>& results, DataType const* array_sort);
  void store_on_top(std::vector<Term const*>& results);

  // The symbols in id order, as models list them.
  static std::vector<Symbol const*> in_id_order(std::vector<Symbol const*> symbols);

  // The model of `symbols`, in id order: each constant's value, and each function's table. A
  // function the model leaves out is unconstrained, so any function will do: it takes the
  // value of one application everywhere.
  Model model(std::vector<Symbol const*> const& symbols, ModelReader const& reader);

 private:
  TermManager& mgr_;
  // The number of each element met, by (sort id, engine key), and the next number per sort.
  std::map<std::pair<std::uint64_t, std::string>, std::uint64_t> elements_;
  std::unordered_map<std::uint64_t, std::uint64_t> next_element_;
};

}  // namespace tvx

#endif  // TVX_SOLVER_ANSWERS_H
