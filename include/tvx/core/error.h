// The errors tvx reports. Every one is a tvx::Error, which derives from std::invalid_argument
// (and so from std::logic_error) because misuse of the library is what most of them report.
#ifndef TVX_CORE_ERROR_H
#define TVX_CORE_ERROR_H

#include <stdexcept>
#include <string>

namespace tvx {

// Misuse of the library: an ill-sorted application, an unwritable name, an unknown
// configuration key, a call in the wrong state. The message names what was wrong.
class Error : public std::invalid_argument {
 public:
  explicit Error(std::string const& message) : std::invalid_argument(message) {}
};

// A call that the engine in use cannot answer; the message names an engine that can.
class Unsupported : public Error {
 public:
  explicit Unsupported(std::string const& message) : Error(message) {}
};

// An engine failed to answer: its process died or hung, or it reported an error.
class EngineError : public Error {
 public:
  explicit EngineError(std::string const& message) : Error(message) {}
};

}  // namespace tvx

#endif  // TVX_CORE_ERROR_H
