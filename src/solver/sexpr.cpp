#include "solver/sexpr.h"

#include <algorithm>
#include <string>
#include <utility>

namespace tvx {

namespace {

bool is_blank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// The index of the quote that closes the string opening at text[i]; npos when none does. A
// doubled quote "" is a quote inside the string.
std::size_t string_end(std::string const& text, std::size_t i) {
  std::size_t const n = text.size();
  for (std::size_t j = i + 1; j < n; ++j) {
    if (text[j] == '"') {
      if (j + 1 < n && text[j + 1] == '"') {
        ++j;
        continue;
      }
      return j;
    }
  }
  return std::string::npos;
}

// Reads the atom that starts at text[i] into `atom` (a |quoted| symbol without its bars, a
// string with its quotes); returns the index after it, or npos when it is not closed.
std::size_t read_atom(std::string const& text, std::size_t i, std::string& atom) {
  char const c = text[i];
  if (c == '|' || c == '"') {
    std::size_t const end = c == '|' ? text.find('|', i + 1) : string_end(text, i);
    if (end == std::string::npos) {
      return end;
    }
    atom = c == '|' ? text.substr(i + 1, end - i - 1) : text.substr(i, end + 1 - i);
    return end + 1;
  }
  std::size_t j = i;
  while (j < text.size() && !is_blank(text[j]) && text[j] != '(' && text[j] != ')' &&
         text[j] != ';' && text[j] != '"' && text[j] != '|') {
    ++j;
  }
  atom = text.substr(i, j - i);
  return j;
}

}  // namespace

bool Sexpr::parse(std::string const& text) {
  nodes_.clear();
  std::vector<std::size_t> open;  // the lists not closed yet, innermost last
  std::size_t const n = text.size();
  std::size_t i = 0;
  bool done = false;  // the top-level expression is complete
  bool ok = true;
  auto add = [&](Node node) {
    std::size_t const index = nodes_.size();
    nodes_.push_back(std::move(node));
    if (!open.empty()) {
      nodes_[open.back()].kids.push_back(index);
    }
    return index;
  };
  while (i < n && ok) {
    char const c = text[i];
    if (is_blank(c)) {
      ++i;
    } else if (c == ';') {
      i = std::min(text.find('\n', i), n);
    } else if (done) {
      ok = false;  // more than one expression
    } else if (c == '(') {
      Node list;
      list.list = true;
      open.push_back(add(std::move(list)));
      ++i;
    } else if (c == ')') {
      ok = !open.empty();
      if (ok) {
        open.pop_back();
        done = open.empty();
        ++i;
      }
    } else {
      Node atom;
      i = read_atom(text, i, atom.atom);
      ok = i != std::string::npos;
      if (ok) {
        add(std::move(atom));
        done = open.empty();
      }
    }
  }
  if (!ok || !done) {
    nodes_.clear();
    return false;
  }
  return true;
}

std::string Sexpr::text(std::size_t i) const {
  std::string out;
  // (node, next element) pairs; a list's ')' is written when its elements are done.
  std::vector<std::pair<std::size_t, std::size_t>> stack{{i, 0}};
  while (!stack.empty()) {
    auto& [n, k] = stack.back();
    Node const& x = nodes_[n];
    if (!x.list) {
      out += x.atom;
      stack.pop_back();
      continue;
    }
    if (k == x.kids.size()) {
      out += ')';
      stack.pop_back();
      continue;
    }
    out += k == 0 ? "(" : " ";
    stack.emplace_back(x.kids[k++], 0);
  }
  return out;
}

}  // namespace tvx
