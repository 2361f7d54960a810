// String helpers of the support library.
#ifndef TVX_SUPPORT_STR_H
#define TVX_SUPPORT_STR_H

#include <cstdint>
#include <string>

namespace tvx {
namespace str {

// Returns `text` with every occurrence of `c` (compared as a byte) replaced by the whole
// zero-terminated `replacement`; an empty replacement removes the character.
std::string replace(char c, char const* replacement, std::string const& text);

// `text` as an SMT-LIB string literal: between double quotes, each quote doubled.
std::string smtlib_string(std::string const& text);

// True when text[from, to) is not empty and holds only the digits 0 to 9.
bool all_digits(std::string const& text, std::size_t from = 0, std::size_t to = std::string::npos);

// Parses a decimal numeral (digits only) into `out`; false when it is empty, holds anything
// else, or does not fit in 64 bits.
bool parse_decimal(std::string const& text, std::uint64_t* out);

}  // namespace str
}  // namespace tvx

#endif  // TVX_SUPPORT_STR_H
