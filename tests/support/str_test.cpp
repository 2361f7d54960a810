// Tests of the string helpers: str::replace (every occurrence of one byte becomes a whole
// replacement string) and TextBuffer's pointer writers.
#include <tvx/support/str.h>
#include <tvx/support/text_buffer.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
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

TEST(TextBufferTest, NumbersAtEveryLengthAndGrowthKeepsTheText) {
  TextBuffer buf;
  std::string expected;
  std::uint64_t const max = std::numeric_limits<std::uint64_t>::max();
  for (std::uint64_t n : {std::uint64_t{0}, std::uint64_t{7}, std::uint64_t{10}, std::uint64_t{99},
                          std::uint64_t{100}, std::uint64_t{1000000}, std::uint64_t{9999999999},
                          std::uint64_t{10000000000000000000u}, max}) {
    // Enough rounds that the buffer grows several times past its first capacity.
    for (int round = 0; round < 40; ++round) {
      char* p = buf.room(TextBuffer::kMaxDigits + 1);
      p = TextBuffer::put_number(p, n);
      buf.commit(TextBuffer::put(p, ' '));
      expected += std::to_string(n) + ' ';
    }
  }
  EXPECT_EQ(std::string(buf.data(), buf.size()), expected);
}

}  // namespace
}  // namespace tvx
