// Lexer: splits SMT-LIB 2.6 text read from a stream into tokens, one token of look-ahead, and
// knows the line and column of every token. Invariant: nothing past the current token is read.
//
// The text is scanned in place in the stream buffer's get area, a buffer-full at a time, and
// the stream buffer is advanced past each token as it is lexed; a stream buffer without a get
// area is read one character at a time. While a lexer lives it must be its stream buffer's only
// reader.
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
  Lexer(Lexer const&) = delete;
  Lexer& operator=(Lexer const&) = delete;

  // The current token, by value; lexed on first use, so that the text after a command is not
  // read before the command has been carried out.
  Token peek() {
    if (!have_token_) {
      lex();
    }
    return token_;
  }
  // The current token's kind, without a copy of its text.
  TokenKind peek_kind() {
    if (!have_token_) {
      lex();
    }
    return token_.kind;
  }
  // Consumes the current token.
  void next() {
    if (!have_token_) {
      lex();
    }
    have_token_ = false;
    depth_ += token_.kind == TokenKind::kLParen;
    depth_ -= token_.kind == TokenKind::kRParen && depth_ > 0;
    if (record_ != nullptr) {
      record(token_);
    }
  }
  // From now on each token consumed is appended to `text` as SMT-LIB writes it, one blank
  // between tokens except after '(' and before ')'; null stops recording.
  void record_into(std::string* text) { record_ = text; }
  // Parentheses opened and not closed by the tokens consumed so far.
  std::uint64_t depth() const { return depth_; }
  // After an error inside a command: consumes what is left of it (up to the parenthesis that
  // closes it, text that cannot be lexed skipped a character at a time), so that reading can go
  // on with the next command. False at the end of the input.
  bool skip_to_command_end();

  // Reports MESSAGE at a position: throws ReadError.
  [[noreturn]] void error(std::uint64_t line, std::uint64_t column,
                          std::string const& message) const;
  // Reports MESSAGE at the current token.
  [[noreturn]] void error_here(std::string const& message);

  std::string const& filename() const { return filename_; }
  // Characters consumed so far.
  std::uint64_t bytes_read() const { return base_ + static_cast<std::uint64_t>(cur_ - win_); }

  // A short description of a token for messages: "')'", "symbol 'x'", "end of input", ...
  static std::string describe(Token const& token);

 private:
  // The column of the character at p, which is in the window and on the current line.
  std::uint64_t column_at(char const* p) const {
    return base_ + static_cast<std::uint64_t>(p - win_) - line_start_ + 1;
  }
  // Makes the window non-empty; false at the end of the input. Call only when cur_ == end_.
  bool refill();
  // Advances the stream buffer to cur_.
  void sync();
  // The next character, not consumed, or -1 at the end of the input.
  int peek_char() {
    if (cur_ == end_ && !refill()) {
      return -1;
    }
    return static_cast<unsigned char>(*cur_);
  }
  // Appends to the token's text the characters from cur_ on that are in the class `mask`
  // (see lexer.cpp), consuming them; counts lines when `lines` is set.
  void take(std::uint8_t mask, bool lines);

  // Reports an error found while lexing, with the stream buffer advanced to the culprit.
  [[noreturn]] void fail(std::uint64_t line, std::uint64_t column, std::string const& message);
  void lex();
  void record(Token const& t);
  void skip_blanks();
  void lex_quoted_symbol();
  void lex_string();
  void lex_number();
  void lex_hash();

  std::streambuf* buf_;
  std::string filename_;
  // The window: characters of the input that are in memory. [cur_, end_) is not yet consumed;
  // the stream buffer has been advanced to synced_. In a buffered stream the window is the get
  // area, otherwise the single character one_, taken from the stream buffer by sbumpc.
  char const* win_ = nullptr;
  char const* cur_ = nullptr;
  char const* end_ = nullptr;
  char const* synced_ = nullptr;
  bool own_char_ = false;
  bool at_eof_ = false;
  char one_ = 0;
  std::uint64_t base_ = 0;        // offset of win_ in the input
  std::uint64_t line_ = 1;        // line of cur_
  std::uint64_t line_start_ = 0;  // offset of the first character of that line
  bool have_token_ = false;
  Token token_;
  std::uint64_t depth_ = 0;
  std::string* record_ = nullptr;
};

}  // namespace smt2
}  // namespace tvx

#endif  // TVX_SMT2_LEXER_H
