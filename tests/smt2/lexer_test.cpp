// Tokens, positions and lexical errors of the SMT-LIB 2.6 lexer.
#include "smt2/lexer.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "smt2/read_error.h"

namespace tvx {
namespace smt2 {
namespace {

struct Lexed {
  TokenKind kind;
  std::string text;
  std::uint64_t line;
  std::uint64_t column;
  bool quoted;
};

class LexerTest : public ::testing::Test {
 protected:
  std::vector<Lexed> lex_all(std::string const& text) {
    std::istringstream in(text);
    Lexer lexer(in, "in.smt2");
    std::vector<Lexed> out;
    for (;;) {
      Token const& t = lexer.peek();
      out.push_back(Lexed{t.kind, t.text, t.line, t.column, t.quoted});
      if (t.kind == TokenKind::kEof) {
        return out;
      }
      lexer.next();
    }
  }

  // The error that lexing `text` to the end raises.
  ReadError lex_error(std::string const& text) {
    try {
      lex_all(text);
    } catch (ReadError const& e) {
      return e;
    }
    ADD_FAILURE() << "no error for: " << text;
    return ReadError("", 0, 0, "");
  }
};

struct OneToken {
  char const* input;
  TokenKind kind;
  char const* text;
  bool quoted;
};

TEST_F(LexerTest, SingleTokens) {
  OneToken const cases[] = {
      {"(", TokenKind::kLParen, "", false},
      {")", TokenKind::kRParen, "", false},
      {"0", TokenKind::kNumeral, "0", false},
      {"12345678901234567890123", TokenKind::kNumeral, "12345678901234567890123", false},
      {"3.25", TokenKind::kDecimal, "3.25", false},
      {"0.0", TokenKind::kDecimal, "0.0", false},
      {"#b0101", TokenKind::kBinary, "#b0101", false},
      {"#xDEADbeef", TokenKind::kHex, "#xDEADbeef", false},
      {"\"a\"\"b\"", TokenKind::kString, "a\"b", false},
      {"\"\"", TokenKind::kString, "", false},
      {"\"two\nlines\"", TokenKind::kString, "two\nlines", false},
      {"x", TokenKind::kSymbol, "x", false},
      {"bvadd", TokenKind::kSymbol, "bvadd", false},
      {"<=", TokenKind::kSymbol, "<=", false},
      {".12", TokenKind::kSymbol, ".12", false},
      {"~!@$%^&*_-+=<>.?/a9", TokenKind::kSymbol, "~!@$%^&*_-+=<>.?/a9", false},
      {"|x y|", TokenKind::kSymbol, "x y", true},
      {"||", TokenKind::kSymbol, "", true},
      {"|1abc|", TokenKind::kSymbol, "1abc", true},
      {"|multi\nline ;not a comment|", TokenKind::kSymbol, "multi\nline ;not a comment", true},
      {":named", TokenKind::kKeyword, ":named", false},
      {":global-decls", TokenKind::kKeyword, ":global-decls", false},
      {"", TokenKind::kEof, "", false},
      {"  ; only a comment", TokenKind::kEof, "", false},
  };
  for (OneToken const& c : cases) {
    SCOPED_TRACE(c.input);
    std::vector<Lexed> toks = lex_all(c.input);
    ASSERT_GE(toks.size(), 1u);
    EXPECT_EQ(toks[0].kind, c.kind);
    EXPECT_EQ(toks[0].text, c.text);
    EXPECT_EQ(toks[0].quoted, c.quoted);
    EXPECT_EQ(toks.back().kind, TokenKind::kEof);
    EXPECT_EQ(toks.size(), c.kind == TokenKind::kEof ? 1u : 2u);
  }
}

TEST_F(LexerTest, PositionsFollowLinesColumnsAndComments) {
  std::vector<Lexed> toks = lex_all("(assert ; comment ( )\n\t(f |a\nb| 12))");
  // ( assert ( f |a b| 12 ) ) EOF
  ASSERT_EQ(toks.size(), 9u);
  EXPECT_EQ(toks[0].line, 1u);
  EXPECT_EQ(toks[0].column, 1u);
  EXPECT_EQ(toks[1].text, "assert");
  EXPECT_EQ(toks[1].column, 2u);
  EXPECT_EQ(toks[2].kind, TokenKind::kLParen);
  EXPECT_EQ(toks[2].line, 2u);
  EXPECT_EQ(toks[2].column, 2u);  // a tab counts as one column
  EXPECT_EQ(toks[3].text, "f");
  EXPECT_EQ(toks[3].column, 3u);
  EXPECT_EQ(toks[4].text, "a\nb");
  EXPECT_EQ(toks[4].line, 2u);
  EXPECT_EQ(toks[4].column, 5u);
  EXPECT_EQ(toks[5].text, "12");
  EXPECT_EQ(toks[5].line, 3u);
  EXPECT_EQ(toks[5].column, 4u);
  EXPECT_EQ(toks[8].kind, TokenKind::kEof);
  EXPECT_EQ(toks[8].line, 3u);
  EXPECT_EQ(toks[8].column, 8u);
}

TEST_F(LexerTest, AdjacentTokensNeedNoBlank) {
  std::vector<Lexed> toks = lex_all("(f(g)|h|\"s\":k#b1)");
  std::vector<TokenKind> kinds;
  for (Lexed const& t : toks) {
    kinds.push_back(t.kind);
  }
  std::vector<TokenKind> const want = {TokenKind::kLParen, TokenKind::kSymbol,  TokenKind::kLParen,
                                       TokenKind::kSymbol, TokenKind::kRParen,  TokenKind::kSymbol,
                                       TokenKind::kString, TokenKind::kKeyword, TokenKind::kBinary,
                                       TokenKind::kRParen, TokenKind::kEof};
  EXPECT_EQ(kinds, want);
}

// The look-ahead is lazy: after a ')' the lexer has not read the next character, so a reader
// that carries out a command at its ')' has not waited for more input.
TEST_F(LexerTest, NothingIsReadPastTheCurrentToken) {
  std::istringstream in("(check-sat)rest");
  Lexer lexer(in, "in");
  for (int i = 0; i < 3; ++i) {
    lexer.peek();
    lexer.next();
  }
  EXPECT_EQ(lexer.bytes_read(), 11u);
  EXPECT_EQ(in.rdbuf()->sgetc(), 'r');
}

struct BadInput {
  char const* input;
  std::uint64_t line;
  std::uint64_t column;
  char const* message;
};

TEST_F(LexerTest, ErrorsNameThePosition) {
  BadInput const cases[] = {
      {"|abc", 1, 1, "quoted symbol not closed"},
      {"x \"abc", 1, 3, "string literal not closed"},
      {"#b", 1, 3, "expected binary digits"},
      {"#x(", 1, 3, "expected hexadecimal digits"},
      {"\n  #q", 2, 3, "expected '#b' or '#x'"},
      {"1.x", 1, 3, "expected a digit after the decimal point"},
      {"( {", 1, 3, "unexpected '{'"},
      {"a\n\x01", 2, 1, "unexpected character 0x01"},
      {": x", 1, 1, "expected a keyword name"},
  };
  for (BadInput const& c : cases) {
    SCOPED_TRACE(c.input);
    ReadError e = lex_error(c.input);
    EXPECT_EQ(e.file(), "in.smt2");
    EXPECT_EQ(e.line(), c.line);
    EXPECT_EQ(e.column(), c.column);
    EXPECT_NE(e.message().find(c.message), std::string::npos) << e.message();
    std::string const prefix =
        "in.smt2:" + std::to_string(c.line) + ":" + std::to_string(c.column) + ": error: ";
    EXPECT_EQ(std::string(e.what()).rfind(prefix, 0), 0u) << e.what();
  }
}

TEST_F(LexerTest, LongInputStreams) {
  // A few megabytes of tokens: positions stay exact far into the stream.
  std::string text;
  for (int i = 0; i < 200000; ++i) {
    text += "(push 1)\n";
  }
  text += "x";
  std::istringstream in(text);
  Lexer lexer(in, "big");
  while (lexer.peek().kind != TokenKind::kEof) {
    if (lexer.peek().kind == TokenKind::kSymbol && lexer.peek().text == "x") {
      EXPECT_EQ(lexer.peek().line, 200001u);
      EXPECT_EQ(lexer.peek().column, 1u);
    }
    lexer.next();
  }
  EXPECT_EQ(lexer.bytes_read(), text.size());
}

}  // namespace
}  // namespace smt2
}  // namespace tvx
