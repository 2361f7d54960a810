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

}  // namespace str
}  // namespace tvx
