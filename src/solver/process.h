// Process: a solver started as a child process, spoken to over its standard input and output.
// Invariant: the child is reaped whatever happens (no zombie), and every descriptor the object
// opened is closed by its destructor.
#ifndef TVX_SOLVER_PROCESS_H
#define TVX_SOLVER_PROCESS_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tvx {

// Finds where the top-level s-expressions of SMT-LIB text end, fed a piece at a time:
// parentheses nest; strings ("" inside is a quote), |quoted symbols| and ; comments are
// skipped whole; an atom at the top level ends at white space or a parenthesis.
class SexprScanner {
 public:
  // Scans text[from, size); returns the offset just past the first top-level expression that
  // ends in it, or npos when none does (the state carries over to the next call).
  std::size_t scan(char const* text, std::size_t from, std::size_t size);
  // Whether the scanner is between top-level expressions.
  bool idle() const { return depth_ == 0 && mode_ == Mode::kCode && !in_atom_; }

  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

 private:
  enum class Mode : std::uint8_t { kCode, kString, kQuoted, kComment };
  Mode mode_ = Mode::kCode;
  std::uint64_t depth_ = 0;
  bool in_atom_ = false;
  bool quote_pending_ = false;  // a '"' inside a string: the end, or the first of ""
};

class Process {
 public:
  // Starts `argv[0]` (looked up in PATH) with the arguments. Throws EngineError when it cannot
  // be started.
  explicit Process(std::vector<std::string> const& argv);
  // Closes the pipes, ends the child (politely, then with SIGKILL) and reaps it.
  ~Process();
  Process(Process const&) = delete;
  Process& operator=(Process const&) = delete;

  // Writes all of `text` to the child's input, reading what it writes meanwhile so that
  // neither side can block the other. Throws EngineError when the child is gone.
  void send(std::string const& text);
  // The next top-level expression the child writes (its text, without surrounding blanks).
  // Throws EngineError when the child closes its output first, or when `timeout` seconds
  // (0: no limit) pass first, in which case the child is ended.
  std::string receive(double timeout);
  // The last lines the child wrote to its standard error and any unread output, for messages.
  std::string last_words();
  // Ends the child now and reaps it; later calls fail with EngineError.
  void kill();

 private:
  void read_available(bool block, int timeout_ms);
  void drain(int fd, std::string& into, bool& open);
  [[noreturn]] void fail(std::string const& what);

  std::string name_;
  pid_t pid_ = -1;
  int in_ = -1;   // the child's standard input
  int out_ = -1;  // its standard output
  int err_ = -1;  // its standard error
  bool out_open_ = false;
  bool err_open_ = false;
  std::string output_;  // read from out_, not yet returned
  std::size_t scanned_ = 0;
  SexprScanner scanner_;
  std::string errors_;  // the tail of what the child wrote to standard error
};

}  // namespace tvx

#endif  // TVX_SOLVER_PROCESS_H
