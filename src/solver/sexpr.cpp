#include "solver/sexpr.h"

namespace tvx {

namespace {

bool is_blank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

}  // namespace

bool Sexpr::parse(std::string const& text) {
  nodes_.clear();
  std::vector<std::size_t> open;  // the lists not closed yet, innermost last
  std::size_t const n = text.size();
  std::size_t i = 0;
  bool done = false;  // the top-level expression is complete
  auto add = [&](Node node) {
    std::size_t const index = nodes_.size();
    nodes_.push_back(std::move(node));
    if (!open.empty()) {
      nodes_[open.back()].kids.push_back(index);
    }
    return index;
  };
  while (i < n) {
    char const c = text[i];
    if (is_blank(c)) {
      ++i;
      continue;
    }
    if (c == ';') {
      while (i < n && text[i] != '\n') {
        ++i;
      }
      continue;
    }
    if (done) {
      nodes_.clear();
      return false;  // more than one expression
    }
    if (c == '(') {
      Node list;
      list.list = true;
      open.push_back(add(std::move(list)));
      ++i;
      continue;
    }
    if (c == ')') {
      if (open.empty()) {
        nodes_.clear();
        return false;
      }
      open.pop_back();
      done = open.empty();
      ++i;
      continue;
    }
    Node atom;
    if (c == '|') {
      std::size_t const end = text.find('|', i + 1);
      if (end == std::string::npos) {
        nodes_.clear();
        return false;
      }
      atom.atom = text.substr(i + 1, end - i - 1);
      i = end + 1;
    } else if (c == '"') {
      std::size_t j = i + 1;
      for (;;) {
        if (j >= n) {
          nodes_.clear();
          return false;
        }
        if (text[j] == '"') {
          if (j + 1 < n && text[j + 1] == '"') {
            j += 2;  // "" is a quote inside the string
            continue;
          }
          break;
        }
        ++j;
      }
      atom.atom = text.substr(i, j + 1 - i);
      i = j + 1;
    } else {
      std::size_t j = i;
      while (j < n && !is_blank(text[j]) && text[j] != '(' && text[j] != ')' && text[j] != ';' &&
             text[j] != '"' && text[j] != '|') {
        ++j;
      }
      atom.atom = text.substr(i, j - i);
      i = j;
    }
    add(std::move(atom));
    done = open.empty();
  }
  if (!done) {
    nodes_.clear();
    return false;
  }
  return true;
}

}  // namespace tvx
