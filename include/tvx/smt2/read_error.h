// ReadError: the one error the SMT-LIB reader throws. Its what() is the whole diagnostic line
// "FILE:LINE:COLUMN: error: MESSAGE"; line and column are 1-based and point at the culprit.
#ifndef TVX_SMT2_READ_ERROR_H
#define TVX_SMT2_READ_ERROR_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

namespace tvx {
namespace smt2 {

class ReadError : public std::runtime_error {
 public:
  ReadError(std::string file, std::uint64_t line, std::uint64_t column, std::string message)
      : std::runtime_error(file + ":" + std::to_string(line) + ":" + std::to_string(column) +
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
