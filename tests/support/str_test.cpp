// Tests of str::replace: every occurrence of one byte becomes a whole replacement string.
#include "support/str.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace tvx {
namespace {

struct ReplaceCase {
  char const* name;
  char c;
  char const* replacement;
  std::string text;
  std::string expected;
};

void PrintTo(ReplaceCase const& c, std::ostream* os) {
  *os << c.name;
}

class StrReplaceTest : public ::testing::TestWithParam<ReplaceCase> {};

TEST_P(StrReplaceTest, ReplacesEveryOccurrence) {
  ReplaceCase const& c = GetParam();
  std::string const text = c.text;
  std::string const result = str::replace(c.c, c.replacement, text);
  EXPECT_EQ(result, c.expected);
  EXPECT_EQ(result.size(), c.expected.size());
  EXPECT_EQ(text, c.text) << "the text itself is not changed";
}

using namespace std::string_literals;

INSTANTIATE_TEST_SUITE_P(
    Cases, StrReplaceTest,
    ::testing::Values(
        ReplaceCase{"QuoteIsEscaped", '"', "\\\"", "say \"hi\"", "say \\\"hi\\\""},
        ReplaceCase{"OnlyQuotes", '"', "\\\"", "\"\"", "\\\"\\\""},
        ReplaceCase{"BackslashesAndNewlinesStay", '"', "\\\"", "a\\b\n\"c", "a\\b\n\\\"c"},
        ReplaceCase{"EmptyReplacementRemoves", 'x', "", "xaxbxx", "ab"},
        ReplaceCase{"NoOccurrenceGivesEqualCopy", '"', "\\\"", "plain text", "plain text"},
        ReplaceCase{"EmptyText", '"', "\\\"", "", ""},
        ReplaceCase{"ReplacementContainingTheCharacterIsNotRescanned", 'a', "aa", "aba", "aabaa"},
        ReplaceCase{"ByteAbove127", '\xe9', "e", "caf\xe9 \xc3\xa9", "cafe \xc3\xa9"},
        ReplaceCase{"ReplacementWithHighBytes", '-', "\xe2\x80\x94", "a-b",
                    "a\xe2\x80\x94"
                    "b"},
        ReplaceCase{"HighByteIsNotItsLowSevenBits", '\xa2', "!", "\"\xa2\x22", "\"!\""},
        ReplaceCase{"EmbeddedNulIsKept", 'b', "B", "a\0b\0c"s, "a\0B\0c"s},
        ReplaceCase{"NulCanBeReplaced", '\0', "\\0", "a\0b\0"s, "a\\0b\\0"},
        ReplaceCase{"ReplacementStopsAtItsTerminator", 'x', "ab\0cd", "x", "ab"}),
    [](::testing::TestParamInfo<ReplaceCase> const& info) { return info.param.name; });

}  // namespace
}  // namespace tvx
