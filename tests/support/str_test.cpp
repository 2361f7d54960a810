// Tests of str::replace: every occurrence of one byte becomes a whole replacement string.
#include "support/str.h"

#include <gtest/gtest.h>

#include <string>

namespace tvx {
namespace {

using namespace std::string_literals;

TEST(StrReplaceTest, ReplacesEveryOccurrence) {
  struct Row {
    char c;
    char const* replacement;
    std::string text;
    std::string expected;
  };
  for (Row const& row : {
           Row{'"', "\\\"", "say \"hi\"", "say \\\"hi\\\""},
           Row{'"', "\\\"", "a\\b\n\"c", "a\\b\n\\\"c"},
           Row{'x', "", "xaxbxx", "ab"},
           Row{'a', "aa", "aba", "aabaa"},
           Row{'\xa2', "!", "\"\xa2\x22", "\"!\""},
           Row{'b', "B", "a\0b\0c"s, "a\0B\0c"s},
           Row{'\0', "\\0", "a\0b\0"s, "a\\0b\\0"},
       }) {
    EXPECT_EQ(str::replace(row.c, row.replacement, row.text), row.expected) << row.text;
  }
}

}  // namespace
}  // namespace tvx
