// Answers read back into the term layer by the rules every engine shares; see answers.h.
#include "solver/answers.h"

#include <algorithm>
#include <cassert>
#include <unordered_map>
#include <vector>

#include <tvx/core/error.h>

namespace tvx {

Term const* Answers::element(DataType const* sort, std::string const& key) {
  assert(sort->is_uninterpreted() && "elements belong to uninterpreted sorts");
  auto it = elements_.find(std::make_pair(sort->get_id(), key));
  if (it == elements_.end()) {
    std::uint64_t const number = next_element_[sort->get_id()]++;
    it = elements_.emplace(std::make_pair(sort->get_id(), key), number).first;
  }
  return mgr_.make_abstract_value(sort, it->second);
}

Term const* Answers::any_value(DataType const* sort) {
  // Arrays nest as deep as their sort: the element sort's value first, then a constant array
  // per level on the way out.
  std::vector<DataType const*> arrays;
  while (sort->is_array()) {
    arrays.push_back(sort);
    sort = sort->get_array_element();
  }
  Term const* v = nullptr;
  if (sort->is_bool()) {
    v = mgr_.make_false();
  } else if (sort->is_int() || sort->is_real() || sort->is_bv()) {
    v = mgr_.make_number("0", sort);
  } else if (sort->is_uninterpreted()) {
    v = mgr_.make_abstract_value(sort, 0);
  } else if (sort->is_datatype()) {
    v = any_constructed(sort);
  } else {
    throw EngineError("no value of sort " + sort->to_string() + " to choose");
  }
  for (std::size_t k = arrays.size(); k-- > 0;) {
    v = mgr_.make_const_array(arrays[k], v);
  }
  return v;
}

// A constructor term of the datatype: the datatypes its fields reach get values in rounds, each
// round giving one to every datatype with a constructor whose fields all have one (datatypes
// are inhabited, so the rounds end).
Term const* Answers::any_constructed(DataType const* sort) {
  std::vector<DataType const*> reached{sort};
  for (std::size_t k = 0; k < reached.size(); ++k) {
    for (auto const& c : mgr_.datatype_info(reached[k])->constructors) {
      for (Symbol const* selector : c.selectors) {
        DataType const* f = selector->get_output_type();
        while (f->is_array()) {
          f = f->get_array_element();
        }
        if (f->is_datatype() && std::find(reached.begin(), reached.end(), f) == reached.end()) {
          reached.push_back(f);
        }
      }
    }
  }
  std::unordered_map<DataType const*, Term const*> values;
  auto value_of = [&](DataType const* f) -> Term const* {
    DataType const* base = f;
    while (base->is_array()) {
      base = base->get_array_element();
    }
    if (!base->is_datatype()) {
      return any_value(f);
    }
    auto it = values.find(base);
    if (it == values.end()) {
      return nullptr;
    }
    Term const* v = it->second;
    std::vector<DataType const*> arrays;
    for (DataType const* a = f; a->is_array(); a = a->get_array_element()) {
      arrays.push_back(a);
    }
    for (std::size_t k = arrays.size(); k-- > 0;) {
      v = mgr_.make_const_array(arrays[k], v);
    }
    return v;
  };
  while (values.count(sort) == 0) {
    bool progress = false;
    for (DataType const* d : reached) {
      if (values.count(d) != 0) {
        continue;
      }
      for (auto const& c : mgr_.datatype_info(d)->constructors) {
        std::vector<Term const*> args;
        for (Symbol const* selector : c.selectors) {
          Term const* a = value_of(selector->get_output_type());
          if (a == nullptr) {
            break;
          }
          args.push_back(a);
        }
        if (args.size() == c.selectors.size()) {
          values.emplace(d, mgr_.make_term(c.constructor, args));
          progress = true;
          break;
        }
      }
    }
    if (!progress) {
      throw EngineError("no value of sort " + sort->to_string() + " to choose");
    }
  }
  return values.at(sort);
}

std::vector<Term const*> Answers::any_arguments(Symbol const* s) {
  std::vector<Term const*> args;
  for (std::size_t i = 0; i < s->get_arity(); ++i) {
    args.push_back(any_value(s->get_type()->get_component(i)));
  }
  return args;
}

Term const* Answers::array_of(DataType const* array_sort, FunctionValue const& table) {
  assert(array_sort->is_array() && table.otherwise != nullptr);
  Term const* array = mgr_.make_const_array(array_sort, table.otherwise);
  for (std::size_t k = table.points.size(); k-- > 0;) {
    FunctionValue::Point const& p = table.points[k];
    assert(p.args.size() == 1 && p.args[0] != nullptr && "an array's point fixes its index");
    Term const* args[3] = {array, p.args[0], p.value};
    array = mgr_.make_builtin(SymbolTag::STORE, args, 3);
  }
  return array;
}

void Answers::const_array_on_top(std::vector<Term const*>& results, DataType const* array_sort) {
  assert(!results.empty() && "a constant array needs its element on the stack");
  results.back() = mgr_.make_const_array(array_sort, results.back());
}

void Answers::store_on_top(std::vector<Term const*>& results) {
  assert(results.size() >= 3 && "a store needs its array, index and element on the stack");
  std::size_t const first = results.size() - 3;
  Term const* store = mgr_.make_builtin(SymbolTag::STORE, &results[first], 3);
  results.resize(first);
  results.push_back(store);
}

std::vector<Symbol const*> Answers::in_id_order(std::vector<Symbol const*> symbols) {
  std::sort(symbols.begin(), symbols.end(),
            [](Symbol const* a, Symbol const* b) { return a->get_id() < b->get_id(); });
  return symbols;
}

Model Answers::model(std::vector<Symbol const*> const& symbols, ModelReader const& reader) {
  Model result;
  for (Symbol const* s : in_id_order(symbols)) {
    if (s->get_arity() == 0) {
      result.constants.emplace_back(s, reader.constant(s));
      continue;
    }
    FunctionValue fv;
    if (!reader.function(s, fv)) {
      fv = FunctionValue{};
      fv.otherwise = reader.application(s);
    }
    assert(fv.otherwise != nullptr && "a function's table has a value everywhere else");
    result.functions.emplace_back(s, std::move(fv));
  }
  return result;
}

}  // namespace tvx
