// The writer of the crash-safety test: traces the crash session to a file and, after every
// traced call that has returned, reports the file's length so far as one decimal line on its
// standard output, taken from the file system so that only flushed text counts. Usage:
// crash_trace_writer FILE global|scoped ROUNDS
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "crash_session.h"

int main(int argc, char** argv) {
  if (argc != 4) {
    return 2;
  }
  std::ofstream out(argv[1], std::ios::binary | std::ios::trunc);
  if (!out) {
    return 3;
  }
  bool const global = std::string(argv[2]) == "global";
  int const rounds = std::atoi(argv[3]);
  char const* path = argv[1];
  tvx::test::run_crash_session(out, global, rounds, [path]() {
    struct stat st {};
    if (stat(path, &st) != 0) {
      std::_Exit(5);
    }
    std::string const line = std::to_string(static_cast<long long>(st.st_size)) + "\n";
    if (write(STDOUT_FILENO, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
      std::_Exit(4);
    }
  });
  return 0;
}
