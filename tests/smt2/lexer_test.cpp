// What only the lexer shows: it reads nothing past the current token. Tokens, positions and
// lexical errors are covered through the reader's tables.
#include "smt2/lexer.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace tvx {
namespace smt2 {
namespace {

// A command is carried out at its ')' without waiting for more of an interactive input.
TEST(LexerTest, NothingIsReadPastTheCurrentToken) {
  std::istringstream in("(check-sat)rest");
  Lexer lexer(in, "in");
  for (int i = 0; i < 3; ++i) {
    lexer.next();
  }
  EXPECT_EQ(lexer.bytes_read(), 11u);
  EXPECT_EQ(in.rdbuf()->sgetc(), 'r');
}

}  // namespace
}  // namespace smt2
}  // namespace tvx
