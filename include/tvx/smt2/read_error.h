// ReadError: the tvx::Error the SMT-LIB reader throws, with the position of the culprit. Its
// what() is the whole diagnostic line "FILE:LINE:COLUMN: error: MESSAGE"; line and column are
// 1-based.
#ifndef TVX_SMT2_READ_ERROR_H
#define TVX_SMT2_READ_ERROR_H

#include <cstdint>
#include <string>
#include <utility>

#include <tvx/core/error.h>

namespace tvx {
namespace smt2 {

class ReadError : public Error {
 public:
  ReadError(std::string file, std::uint64_t line, std::uint64_t column, std::string message)
      : Error(file + ":" + std::to_string(line) + ":" + std::to_string(column) +
              ": error: " + message),
        file_(std::move(file)),
        line_(line),
        column_(column),
        message_(std::move(message)) {}

  std::string const& file() const { return file_; }
  std::uint64_t line() const { return line_; }
  std::uint64_t column() const { return column_; }
  // The message alone, without the position.
  std::string const& message() const { return message_; }

 private:
  std::string file_;
  std::uint64_t line_;
  std::uint64_t column_;
  std::string message_;
};

}  // namespace smt2
}  // namespace tvx

#endif  // TVX_SMT2_READ_ERROR_H
