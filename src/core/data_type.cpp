#include "core/data_type.h"

#include <string>
#include <vector>

namespace tvx {

std::string DataType::to_string() const {
  // Iterative: compound sorts may nest arbitrarily deep (arrays of arrays of ...).
  std::string out;
  struct Frame {
    DataType const* type;
    std::size_t next;
  };
  std::vector<Frame> stack{{this, 0}};
  while (!stack.empty()) {
    Frame& f = stack.back();
    DataType const* t = f.type;
    if (t->is_simple()) {
      out += t->name_;
      stack.pop_back();
      continue;
    }
    if (f.next == 0) {
      out += t->is_array() ? "(Array" : "(->";
    }
    if (f.next < t->components_.size()) {
      out += ' ';
      stack.push_back({t->components_[f.next++], 0});
      continue;
    }
    out += ')';
    stack.pop_back();
  }
  return out;
}

}  // namespace tvx
