// TableBuilder: a function's table, fed point by point as an engine reads its solver's answer.
// Invariant: points stay in the order fed, each fixes an argument, and a point at the same
// arguments as an earlier one is dropped, since the first match wins.
#ifndef TVX_SOLVER_TABLE_BUILDER_H
#define TVX_SOLVER_TABLE_BUILDER_H

#include <cstddef>
#include <set>
#include <utility>
#include <vector>

#include <tvx/solver/engine.h>

namespace tvx {

class TableBuilder {
 public:
  // What a condition over the arguments fixes: (argument index, value) pairs.
  using Fixes = std::vector<std::pair<std::size_t, Term const*>>;
  // The arguments fixed on the way to a node of a tree of conditions: a value per argument,
  // null where the argument is free.
  using Path = std::vector<Term const*>;

  TableBuilder(TermManager& mgr, std::size_t arity) : mgr_(mgr), arity_(arity) {}

  // The path of a tree's root: every argument free.
  Path root() const { return Path(arity_, nullptr); }
  // Adds what a condition fixes to `path`; false when the path fixes one of those arguments
  // to another value already (a branch that cannot be reached).
  static bool narrow(Path& path, Fixes const& fixes);

  // The value at a path: a point when the path fixes an argument (dropped when an earlier
  // point fixes the same), else the value everywhere else, which completes the table.
  void add(Path const& path, Term const* value);
  // A predicate's value under `path` written as conditions (a disjunction): true where one
  // holds, in their order, and false elsewhere under the path; the other way round when not
  // `positive` (a negated disjunction).
  void add_conditions(Path const& path, std::vector<Fixes> const& conditions, bool positive);
  // Whether the value everywhere else is known; nothing fed after it could be reached.
  bool complete() const { return table_.otherwise != nullptr; }

  // Reads a function body, a tree of (ite condition then else) with values at its leaves,
  // through the engine's `reader`. The tree is read then-branch first, keeping what the conditions
  // on the way fix, so that its leaves come out in the order in which it tries them; the first leaf
  // reached with every argument free is the value everywhere else and ends the walk. `Reader`
  // provides, for its `Node`:
  //   bool ite(Node n, Node& cond, Node& then_part, Node& else_part)  n is an if-then-else
  //   bool fixes(Node cond, Fixes& out)   cond is (= arg v), arg, (not arg) or a conjunction
  //                                       of these: appends what it fixes
  //   bool conditions(Node n, bool& positive, std::vector<Fixes>& out)   n, a predicate's
  //        leaf, is a disjunction of such conditions, maybe negated, and not a Bool value
  //   Term const* value(Node n)           a leaf's value (throws when it is none)
  template <class Node, class Reader>
  void read(Node body, bool predicate, Reader& reader);

  // The table, with `fallback` as the value everywhere else when none was fed.
  FunctionValue finish(Term const* fallback = nullptr);

 private:
  TermManager& mgr_;
  std::size_t arity_;
  FunctionValue table_;
  std::set<Path> seen_;  // the argument tuples of the points so far
};

template <class Node, class Reader>
void TableBuilder::read(Node body, bool predicate, Reader& reader) {
  struct Branch {
    Node node;
    Path path;
  };
  std::vector<Branch> stack;
  stack.push_back(Branch{body, root()});
  Fixes fixes;
  std::vector<Fixes> conditions;
  Node cond{};
  Node then_part{};
  Node else_part{};
  while (!stack.empty() && !complete()) {
    Branch b = std::move(stack.back());
    stack.pop_back();
    fixes.clear();
    if (reader.ite(b.node, cond, then_part, else_part) && reader.fixes(cond, fixes)) {
      Path then_path = b.path;
      bool const reachable = narrow(then_path, fixes);
      stack.push_back(Branch{else_part, std::move(b.path)});
      if (reachable) {
        stack.push_back(Branch{then_part, std::move(then_path)});
      }
      continue;
    }
    bool positive = true;
    conditions.clear();
    if (predicate && reader.conditions(b.node, positive, conditions)) {
      add_conditions(b.path, conditions, positive);
      continue;
    }
    add(b.path, reader.value(b.node));
  }
}

}  // namespace tvx

#endif  // TVX_SOLVER_TABLE_BUILDER_H
