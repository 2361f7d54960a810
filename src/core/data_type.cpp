#include <tvx/core/data_type.h>

#include <functional>
#include <string>
#include <vector>

namespace tvx {

void DataType::write(std::string& out, SimpleWriter const& simple) const {
  // Iterative: compound sorts may nest arbitrarily deep (arrays of arrays of ...).
  struct Frame {
    DataType const* type;
    std::size_t next;
  };
  std::vector<Frame> stack{{this, 0}};
  while (!stack.empty()) {
    Frame& f = stack.back();
    DataType const* t = f.type;
    if (t->is_simple()) {
      simple(out, *t);
      stack.pop_back();
      continue;
    }
    if (f.next == 0) {
      if (t->is_instance()) {
        out += '(';
        simple(out, *t->generic_);
      } else {
        out += t->is_array() ? "(Array" : "(->";
      }
    }
    if (f.next < t->components_.size()) {
      out += ' ';
      DataType const* c = t->components_[f.next++];
      stack.push_back({c, 0});
      continue;
    }
    out += ')';
    stack.pop_back();
  }
}

std::string DataType::to_string() const {
  std::string out;
  write(out, [](std::string& text, DataType const& t) { text += t.get_name(); });
  return out;
}

}  // namespace tvx
