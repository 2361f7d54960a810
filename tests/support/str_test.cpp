// Tests of str::replace: every occurrence of one byte becomes a whole replacement string.
#include "support/str.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace tvx {
namespace {

using namespace std::string_literals;

TEST(StrReplaceTest, ReplacesEveryOccurrence) {
  // Byte, replacement, text, expected result.
  for (auto const& [c, replacement, text, expected] :
       std::vector<std::tuple<char, char const*, std::string, std::string>>{
           {'"', "\\\"", "a\\b\n\"c\"", "a\\b\n\\\"c\\\""},
           {'x', "", "xaxbxx", "ab"},
           {'a', "aa", "aba", "aabaa"},
           {'\xa2', "!", "\"\xa2\x22", "\"!\""},
           {'\0', "\\0", "a\0b\0"s, "a\\0b\\0"}}) {
    EXPECT_EQ(str::replace(c, replacement, text), expected) << text;
  }
}

}  // namespace
}  // namespace tvx
