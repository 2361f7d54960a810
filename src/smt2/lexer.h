// Lexer: splits SMT-LIB 2.6 text read from a stream into tokens, one token of look-ahead, and
// knows the line and column of every token. Invariant: nothing past the current token is read.
#ifndef TVX_SMT2_LEXER_H
#define TVX_SMT2_LEXER_H

#include <cstdint>
#include <istream>
#include <string>

namespace tvx {
namespace smt2 {

enum class TokenKind {
  kLParen,   // (
  kRParen,   // )
  kSymbol,   // simple symbol or |quoted symbol|; text is the name without bars
  kKeyword,  // :name; text includes the colon
  kNumeral,  // 0, 42
  kDecimal,  // 1.5
  kBinary,   // #b0101; text includes the prefix
  kHex,      // #xFF; text includes the prefix
  kString,   // "..."; text is the contents with "" turned into "
  kEof,
};

struct Token {
  TokenKind kind = TokenKind::kEof;
  bool quoted = false;  // a symbol written between bars, so never a reserved word
  std::string text;
  std::uint64_t line = 1;
  std::uint64_t column = 1;
};

class Lexer {
 public:
  // Reads from `in` through its stream buffer; `filename` only names the input in errors.
  Lexer(std::istream& in, std::string filename);

  // The current token; lexed on first use, so that the text after a command is not read
  // before the command has been carried out.
  Token const& peek() {
    if (!have_token_) {
      lex();
    }
    return token_;
  }
  // Consumes the current token.
  void next() {
    if (!have_token_) {
      lex();
    }
    have_token_ = false;
  }

  // Reports MESSAGE at a position: throws ReadError.
  [[noreturn]] void error(std::uint64_t line, std::uint64_t column,
                          std::string const& message) const;
  // Reports MESSAGE at the current token.
  [[noreturn]] void error_here(std::string const& message);

  std::string const& filename() const { return filename_; }
  // Characters consumed so far.
  std::uint64_t bytes_read() const { return bytes_; }

  // A short description of a token for messages: "')'", "symbol 'x'", "end of input", ...
  static std::string describe(Token const& token);

 private:
  static constexpr int kNone = -2;  // no look-ahead character fetched yet

  int peek_char() {
    if (look_ == kNone) {
      look_ = buf_->sgetc();
      if (look_ == std::char_traits<char>::eof()) {
        look_ = -1;
      }
    }
    return look_;
  }
  // Consumes the look-ahead character and keeps line and column up to date.
  void next_char() {
    if (look_ == kNone) {
      peek_char();
    }
    if (look_ < 0) {
      return;
    }
    if (look_ == '\n') {
      ++line_;
      column_ = 1;
    } else {
      ++column_;
    }
    ++bytes_;
    buf_->sbumpc();
    look_ = kNone;
  }

  void lex();
  void lex_quoted_symbol();
  void lex_string();
  void lex_number();
  void lex_hash();

  std::streambuf* buf_;
  std::string filename_;
  int look_ = kNone;
  std::uint64_t line_ = 1;
  std::uint64_t column_ = 1;
  std::uint64_t bytes_ = 0;
  bool have_token_ = false;
  Token token_;
};

}  // namespace smt2
}  // namespace tvx

#endif  // TVX_SMT2_LEXER_H
