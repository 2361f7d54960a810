// A function's table fed point by point; see table_builder.h.
#include "solver/table_builder.h"

#include <algorithm>
#include <cassert>

namespace tvx {

bool TableBuilder::narrow(Path& path, Fixes const& fixes) {
  bool reachable = true;
  for (auto const& [i, value] : fixes) {
    assert(i < path.size() && value != nullptr && "a condition fixes an argument to a value");
    if (path[i] != nullptr && path[i] != value) {
      reachable = false;
    }
    path[i] = value;
  }
  return reachable;
}

void TableBuilder::add(Path const& path, Term const* value) {
  assert(path.size() == arity_ && value != nullptr && !complete());
  if (std::all_of(path.begin(), path.end(), [](Term const* a) { return a == nullptr; })) {
    table_.otherwise = value;
    return;
  }
  if (seen_.insert(path).second) {
    table_.points.push_back(FunctionValue::Point{path, value});
  }
}

void TableBuilder::add_conditions(Path const& path, std::vector<Fixes> const& conditions,
                                  bool positive) {
  Term const* const hit = positive ? mgr_.make_true() : mgr_.make_false();
  Path point;
  for (Fixes const& c : conditions) {
    point = path;
    if (narrow(point, c)) {
      add(point, hit);
      if (complete()) {
        return;  // a condition that fixes nothing holds everywhere
      }
    }
  }
  add(path, positive ? mgr_.make_false() : mgr_.make_true());
}

FunctionValue TableBuilder::finish(Term const* fallback) {
  if (!complete()) {
    table_.otherwise = fallback;
  }
  assert(table_.otherwise != nullptr && "a table has a value everywhere else");
  seen_.clear();
  return std::move(table_);
}

}  // namespace tvx
