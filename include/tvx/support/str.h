// String helpers of the support library.
#ifndef TVX_SUPPORT_STR_H
#define TVX_SUPPORT_STR_H

#include <string>

namespace tvx {
namespace str {

// Returns `text` with every occurrence of `c` (compared as a byte) replaced by the whole
// zero-terminated `replacement`; an empty replacement removes the character.
std::string replace(char c, char const* replacement, std::string const& text);

}  // namespace str
}  // namespace tvx

#endif  // TVX_SUPPORT_STR_H
