#include "smt2/lexer.h"

#include <array>
#include <cstdio>

#include "smt2/read_error.h"

namespace tvx {
namespace smt2 {

namespace {

// Character classes, one bit each; a character may be in several.
enum CharClass : std::uint8_t {
  kSpace = 1,        // blank, tab, newline, return, form feed, vertical tab
  kDigit = 2,        // 0-9
  kSymbolStart = 4,  // letters and ~ ! @ $ % ^ & * _ - + = < > . ? /
  kSymbolChar = 8,   // kSymbolStart and digits
  kHexDigit = 16,    // 0-9 a-f A-F
  kQuotedChar = 32,  // what may stand between bars or quotes: printable, blanks, bytes >= 128
};

struct CharTable {
  std::array<std::uint8_t, 256> cls{};
  constexpr CharTable() {
    for (int c = 0; c < 256; ++c) {
      std::uint8_t v = 0;
      bool const letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
      bool const digit = c >= '0' && c <= '9';
      bool extra = false;
      for (char e :
           {'~', '!', '@', '$', '%', '^', '&', '*', '_', '-', '+', '=', '<', '>', '.', '?', '/'}) {
        if (c == e) {
          extra = true;
        }
      }
      if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v') {
        v |= kSpace;
      }
      if (digit) {
        v |= kDigit | kSymbolChar | kHexDigit;
      }
      if (letter || extra) {
        v |= kSymbolStart | kSymbolChar;
      }
      if ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')) {
        v |= kHexDigit;
      }
      if ((c >= 32 && c <= 126) || c >= 128 || c == '\t' || c == '\n' || c == '\r') {
        v |= kQuotedChar;
      }
      cls[static_cast<std::size_t>(c)] = v;
    }
  }
};

constexpr CharTable kTable;

inline bool is(int c, std::uint8_t mask) {
  return c >= 0 && (kTable.cls[static_cast<std::size_t>(c)] & mask) != 0;
}

std::string char_text(int c) {
  if (c >= 32 && c <= 126) {
    return std::string("'") + static_cast<char>(c) + "'";
  }
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%02x", static_cast<unsigned>(c));
  return std::string("character ") + buf;
}

}  // namespace

Lexer::Lexer(std::istream& in, std::string filename)
    : buf_(in.rdbuf()), filename_(std::move(filename)) {
  if (buf_ == nullptr) {
    look_ = -1;
  }
}

void Lexer::error(std::uint64_t line, std::uint64_t column, std::string const& message) const {
  throw ReadError(filename_, line, column, message);
}

void Lexer::error_here(std::string const& message) {
  Token const& t = peek();
  error(t.line, t.column, message);
}

std::string Lexer::describe(Token const& token) {
  switch (token.kind) {
    case TokenKind::kLParen:
      return "'('";
    case TokenKind::kRParen:
      return "')'";
    case TokenKind::kSymbol:
      return "symbol '" + token.text + "'";
    case TokenKind::kKeyword:
      return "keyword '" + token.text + "'";
    case TokenKind::kNumeral:
      return "numeral '" + token.text + "'";
    case TokenKind::kDecimal:
      return "decimal '" + token.text + "'";
    case TokenKind::kBinary:
    case TokenKind::kHex:
      return "bit-vector literal '" + token.text + "'";
    case TokenKind::kString:
      return "string literal";
    case TokenKind::kEof:
      return "end of input";
  }
  return "token";
}

void Lexer::lex() {
  // Skip blanks and comments.
  for (;;) {
    int c = peek_char();
    if (is(c, kSpace)) {
      next_char();
    } else if (c == ';') {
      while (c >= 0 && c != '\n') {
        next_char();
        c = peek_char();
      }
    } else {
      break;
    }
  }
  token_.text.clear();
  token_.quoted = false;
  token_.line = line_;
  token_.column = column_;
  have_token_ = true;
  int const c = peek_char();
  if (c < 0) {
    token_.kind = TokenKind::kEof;
  } else if (c == '(') {
    next_char();
    token_.kind = TokenKind::kLParen;
  } else if (c == ')') {
    next_char();
    token_.kind = TokenKind::kRParen;
  } else if (is(c, kDigit)) {
    lex_number();
  } else if (is(c, kSymbolStart)) {
    token_.kind = TokenKind::kSymbol;
    int d = c;
    do {
      token_.text.push_back(static_cast<char>(d));
      next_char();
      d = peek_char();
    } while (is(d, kSymbolChar));
  } else if (c == '|') {
    lex_quoted_symbol();
  } else if (c == '"') {
    lex_string();
  } else if (c == ':') {
    token_.kind = TokenKind::kKeyword;
    token_.text.push_back(':');
    next_char();
    if (!is(peek_char(), kSymbolChar)) {
      error(token_.line, token_.column, "expected a keyword name after ':'");
    }
    while (is(peek_char(), kSymbolChar)) {
      token_.text.push_back(static_cast<char>(peek_char()));
      next_char();
    }
  } else if (c == '#') {
    lex_hash();
  } else {
    have_token_ = false;
    error(line_, column_, "unexpected " + char_text(c));
  }
}

void Lexer::lex_number() {
  token_.kind = TokenKind::kNumeral;
  while (is(peek_char(), kDigit)) {
    token_.text.push_back(static_cast<char>(peek_char()));
    next_char();
  }
  if (peek_char() == '.') {
    token_.kind = TokenKind::kDecimal;
    token_.text.push_back('.');
    next_char();
    if (!is(peek_char(), kDigit)) {
      have_token_ = false;
      error(line_, column_, "expected a digit after the decimal point");
    }
    while (is(peek_char(), kDigit)) {
      token_.text.push_back(static_cast<char>(peek_char()));
      next_char();
    }
  }
}

void Lexer::lex_hash() {
  next_char();  // '#'
  int const kind = peek_char();
  if (kind == 'b') {
    token_.kind = TokenKind::kBinary;
    next_char();
    token_.text = "#b";
    while (peek_char() == '0' || peek_char() == '1') {
      token_.text.push_back(static_cast<char>(peek_char()));
      next_char();
    }
    if (token_.text.size() == 2) {
      have_token_ = false;
      error(line_, column_, "expected binary digits after '#b'");
    }
  } else if (kind == 'x') {
    token_.kind = TokenKind::kHex;
    next_char();
    token_.text = "#x";
    while (is(peek_char(), kHexDigit)) {
      token_.text.push_back(static_cast<char>(peek_char()));
      next_char();
    }
    if (token_.text.size() == 2) {
      have_token_ = false;
      error(line_, column_, "expected hexadecimal digits after '#x'");
    }
  } else {
    have_token_ = false;
    error(token_.line, token_.column, "expected '#b' or '#x'");
  }
}

void Lexer::lex_quoted_symbol() {
  token_.kind = TokenKind::kSymbol;
  token_.quoted = true;
  next_char();  // '|'
  for (;;) {
    int const c = peek_char();
    if (c < 0) {
      have_token_ = false;
      error(token_.line, token_.column, "quoted symbol not closed by '|' before end of input");
    }
    next_char();
    if (c == '|') {
      return;
    }
    token_.text.push_back(static_cast<char>(c));
  }
}

void Lexer::lex_string() {
  token_.kind = TokenKind::kString;
  next_char();  // '"'
  for (;;) {
    int const c = peek_char();
    if (c < 0) {
      have_token_ = false;
      error(token_.line, token_.column, "string literal not closed by '\"' before end of input");
    }
    next_char();
    if (c == '"') {
      if (peek_char() != '"') {
        return;
      }
      next_char();  // "" stands for one quote
    }
    token_.text.push_back(static_cast<char>(c));
  }
}

}  // namespace smt2
}  // namespace tvx
