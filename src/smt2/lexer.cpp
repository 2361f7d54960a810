#include "smt2/lexer.h"

#include <array>
#include <climits>
#include <cstdio>
#include <cstring>
#include <streambuf>

#include <tvx/smt2/read_error.h>
#include <tvx/support/str.h>

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
  kBinDigit = 32,    // 0 1
  kNotBar = 64,      // all but '|': what a quoted symbol holds
  kNotQuote = 128,   // all but '"': what a string literal holds between doubled quotes
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
      if (c == '0' || c == '1') {
        v |= kBinDigit;
      }
      if (c != '|') {
        v |= kNotBar;
      }
      if (c != '"') {
        v |= kNotQuote;
      }
      cls[static_cast<std::size_t>(c)] = v;
    }
  }
};

constexpr CharTable kTable;

inline bool is(int c, std::uint8_t mask) {
  return c >= 0 && (kTable.cls[static_cast<std::size_t>(c)] & mask) != 0;
}

inline bool is(char c, std::uint8_t mask) {
  return (kTable.cls[static_cast<unsigned char>(c)] & mask) != 0;
}

// std::streambuf shows its get area only to derived classes; member pointers formed in a
// derived class reach it on any stream buffer.
struct GetArea : std::streambuf {
  static char* next(std::streambuf* b) { return (b->*&GetArea::gptr)(); }
  static char* end(std::streambuf* b) { return (b->*&GetArea::egptr)(); }
  static void advance(std::streambuf* b, std::ptrdiff_t n) {
    for (; n > INT_MAX; n -= INT_MAX) {
      (b->*&GetArea::gbump)(INT_MAX);
    }
    (b->*&GetArea::gbump)(static_cast<int>(n));
  }
};

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
  at_eof_ = buf_ == nullptr;
}

void Lexer::error(std::uint64_t line, std::uint64_t column, std::string const& message) const {
  throw ReadError(filename_, line, column, message);
}

void Lexer::error_here(std::string const& message) {
  Token const t = peek();
  error(t.line, t.column, message);
}

void Lexer::record(Token const& t) {
  std::string& out = *record_;
  if (!out.empty() && out.back() != '(' && t.kind != TokenKind::kRParen) {
    out += ' ';
  }
  switch (t.kind) {
    case TokenKind::kLParen:
      out += '(';
      break;
    case TokenKind::kRParen:
      out += ')';
      break;
    case TokenKind::kString:
      out += str::smtlib_string(t.text);
      break;
    case TokenKind::kSymbol:
      if (t.quoted) {
        out += '|';
        out += t.text;
        out += '|';
        break;
      }
      out += t.text;
      break;
    default:
      out += t.text;
      break;
  }
}

bool Lexer::skip_to_command_end() {
  while (depth_ > 0) {
    TokenKind kind;
    try {
      kind = peek_kind();
    } catch (ReadError const&) {
      // The culprit character: past it, lexing starts afresh.
      if (peek_char() < 0) {
        return false;
      }
      ++cur_;
      continue;
    }
    if (kind == TokenKind::kEof) {
      return false;
    }
    next();
  }
  return true;
}

void Lexer::fail(std::uint64_t line, std::uint64_t column, std::string const& message) {
  have_token_ = false;
  sync();
  error(line, column, message);
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

void Lexer::sync() {
  if (cur_ == synced_) {
    return;
  }
  if (own_char_) {
    buf_->sbumpc();
  } else {
    GetArea::advance(buf_, cur_ - synced_);
  }
  synced_ = cur_;
}

bool Lexer::refill() {
  if (at_eof_) {
    return false;
  }
  sync();
  base_ += static_cast<std::uint64_t>(end_ - win_);
  win_ = cur_ = end_ = synced_ = nullptr;
  own_char_ = false;
  // Blocks, on an interactive input, only when the next character is needed.
  int const c = buf_->sgetc();
  if (c == std::char_traits<char>::eof()) {
    at_eof_ = true;
    return false;
  }
  char const* const next = GetArea::next(buf_);
  char const* const end = GetArea::end(buf_);
  if (next != end) {
    win_ = cur_ = synced_ = next;
    end_ = end;
  } else {
    one_ = static_cast<char>(c);
    win_ = cur_ = synced_ = &one_;
    end_ = &one_ + 1;
    own_char_ = true;
  }
  return true;
}

void Lexer::take(std::uint8_t mask, bool lines) {
  for (;;) {
    char const* p = cur_;
    char const* const end = end_;
    while (p != end && is(*p, mask)) {
      if (lines && *p == '\n') {
        ++line_;
        line_start_ = base_ + static_cast<std::uint64_t>(p - win_) + 1;
      }
      ++p;
    }
    token_.text.append(cur_, p);
    cur_ = p;
    if (p != end || !refill()) {
      return;
    }
  }
}

// Skips blanks and comments up to the next token or the end of the input.
void Lexer::skip_blanks() {
  bool comment = false;
  for (;;) {
    char const* p = cur_;
    char const* const end = end_;
    while (p != end) {
      if (comment) {
        p = static_cast<char const*>(std::memchr(p, '\n', static_cast<std::size_t>(end - p)));
        if (p == nullptr) {
          p = end;
          break;
        }
        comment = false;
      }
      char const c = *p;
      if (c == '\n') {
        ++line_;
        line_start_ = base_ + static_cast<std::uint64_t>(p - win_) + 1;
      } else if (c == ';') {
        comment = true;
      } else if (!is(c, kSpace)) {
        cur_ = p;
        return;
      }
      ++p;
    }
    cur_ = p;
    if (!refill()) {
      return;
    }
  }
}

void Lexer::lex() {
  skip_blanks();
  token_.text.clear();
  token_.quoted = false;
  token_.line = line_;
  token_.column = column_at(cur_);
  have_token_ = true;
  int const c = peek_char();
  if (c < 0) {
    token_.kind = TokenKind::kEof;
  } else if (c == '(') {
    ++cur_;
    token_.kind = TokenKind::kLParen;
  } else if (c == ')') {
    ++cur_;
    token_.kind = TokenKind::kRParen;
  } else if (is(c, kDigit)) {
    lex_number();
  } else if (is(c, kSymbolStart)) {
    token_.kind = TokenKind::kSymbol;
    take(kSymbolChar, false);
  } else if (c == '|') {
    lex_quoted_symbol();
  } else if (c == '"') {
    lex_string();
  } else if (c == ':') {
    token_.kind = TokenKind::kKeyword;
    token_.text.push_back(':');
    ++cur_;
    if (!is(peek_char(), kSymbolChar)) {
      fail(token_.line, token_.column, "expected a keyword name after ':'");
    }
    take(kSymbolChar, false);
  } else if (c == '#') {
    lex_hash();
  } else {
    fail(line_, column_at(cur_), "unexpected " + char_text(c));
  }
  sync();
}

void Lexer::lex_number() {
  token_.kind = TokenKind::kNumeral;
  take(kDigit, false);
  if (peek_char() == '.') {
    token_.kind = TokenKind::kDecimal;
    token_.text.push_back('.');
    ++cur_;
    if (!is(peek_char(), kDigit)) {
      fail(line_, column_at(cur_), "expected a digit after the decimal point");
    }
    take(kDigit, false);
  }
}

void Lexer::lex_hash() {
  ++cur_;  // '#'
  int const kind = peek_char();
  if (kind == 'b') {
    token_.kind = TokenKind::kBinary;
    ++cur_;
    token_.text = "#b";
    take(kBinDigit, false);
    if (token_.text.size() == 2) {
      fail(line_, column_at(cur_), "expected binary digits after '#b'");
    }
  } else if (kind == 'x') {
    token_.kind = TokenKind::kHex;
    ++cur_;
    token_.text = "#x";
    take(kHexDigit, false);
    if (token_.text.size() == 2) {
      fail(line_, column_at(cur_), "expected hexadecimal digits after '#x'");
    }
  } else {
    fail(token_.line, token_.column, "expected '#b' or '#x'");
  }
}

void Lexer::lex_quoted_symbol() {
  token_.kind = TokenKind::kSymbol;
  token_.quoted = true;
  ++cur_;  // '|'
  take(kNotBar, true);
  if (peek_char() < 0) {
    fail(token_.line, token_.column, "quoted symbol not closed by '|' before end of input");
  }
  ++cur_;
}

void Lexer::lex_string() {
  token_.kind = TokenKind::kString;
  ++cur_;  // '"'
  for (;;) {
    take(kNotQuote, true);
    if (peek_char() < 0) {
      fail(token_.line, token_.column, "string literal not closed by '\"' before end of input");
    }
    ++cur_;
    if (peek_char() != '"') {
      return;
    }
    ++cur_;  // "" stands for one quote
    token_.text.push_back('"');
  }
}

}  // namespace smt2
}  // namespace tvx
