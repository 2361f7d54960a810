#include <tvx/support/str.h>

#include <sstream>

namespace tvx {
namespace str {

std::string replace(char c, char const* replacement, std::string const& text) {
  std::ostringstream out;
  for (char ch : text) {
    if (ch == c) {
      out << replacement;
    } else {
      out << ch;
    }
  }
  return out.str();
}

std::string smtlib_string(std::string const& text) {
  std::string s = "\"";
  for (char c : text) {
    s += c;
    if (c == '"') {
      s += '"';
    }
  }
  return s + '"';
}

bool all_digits(std::string const& text, std::size_t from, std::size_t to) {
  if (to > text.size()) {
    to = text.size();
  }
  if (from >= to) {
    return false;
  }
  for (std::size_t i = from; i < to; ++i) {
    if (text[i] < '0' || text[i] > '9') {
      return false;
    }
  }
  return true;
}

bool parse_decimal(std::string const& text, std::uint64_t* out) {
  if (!all_digits(text)) {
    return false;
  }
  std::uint64_t v = 0;
  for (char c : text) {
    std::uint64_t const d = static_cast<std::uint64_t>(c - '0');
    if (v > (UINT64_MAX - d) / 10) {
      return false;
    }
    v = v * 10 + d;
  }
  *out = v;
  return true;
}

}  // namespace str
}  // namespace tvx
