// Sexpr: one s-expression of a solver's response, parsed into a flat tree of atoms and lists.
// Invariant: parsing and every walk over it use explicit stacks, so nesting depth is bounded
// by memory only.
#ifndef TVX_SOLVER_SEXPR_H
#define TVX_SOLVER_SEXPR_H

#include <cstddef>
#include <string>
#include <vector>

namespace tvx {

class Sexpr {
 public:
  struct Node {
    bool list = false;
    // An atom's text: a |quoted| symbol without its bars, a string with its quotes.
    std::string atom;
    std::vector<std::size_t> kids;  // a list's elements, by node index
  };

  // Parses exactly one expression from `text` (comments and blanks around it allowed).
  // Returns false, leaving the object empty, when the text is not one well-formed expression.
  bool parse(std::string const& text);

  std::size_t root() const { return 0; }
  Node const& node(std::size_t i) const { return nodes_[i]; }
  bool is_atom(std::size_t i, char const* text) const {
    return !nodes_[i].list && nodes_[i].atom == text;
  }
  // A list whose first element is the atom `head` and which has `size` elements in all.
  bool is_app(std::size_t i, char const* head, std::size_t size) const {
    Node const& n = nodes_[i];
    return n.list && n.kids.size() == size && is_atom(n.kids[0], head);
  }
  std::size_t kid(std::size_t i, std::size_t k) const { return nodes_[i].kids[k]; }
  std::size_t size(std::size_t i) const { return nodes_[i].kids.size(); }
  // The text of node i, its elements one blank apart (a quoted symbol without its bars).
  std::string text(std::size_t i) const;

 private:
  std::vector<Node> nodes_;
};

}  // namespace tvx

#endif  // TVX_SOLVER_SEXPR_H
