// Crash safety: a writer process traces a long session to a file and is killed with SIGKILL at
// a random moment. The file must hold the complete text of every call that had returned (the
// writer reports the flushed length after each one), that text must be an exact prefix of the
// session's trace ending at a call boundary, and a solver must read it without error.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "crash_session.h"
#include "trace_session.h"

extern char** environ;

namespace tvx {
namespace test {
namespace {

constexpr int kRounds = 400;
constexpr int kKillsPerMode = 10;

std::string read_file(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Runs the writer; kills it after `delay` unless it has ended by then. Returns the lengths it
// reported and whether the kill ended it.
struct WriterRun {
  std::vector<long long> reported;
  bool killed = false;
};

WriterRun run_writer(std::string const& file, bool global, std::chrono::microseconds delay) {
  int fds[2];
  EXPECT_EQ(0, pipe(fds));
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, fds[0]);
  std::string const rounds = std::to_string(kRounds);
  std::string const mode = global ? "global" : "scoped";
  char const* argv[] = {TVX_CRASH_WRITER, file.c_str(), mode.c_str(), rounds.c_str(), nullptr};
  pid_t pid = 0;
  int const spawned = posix_spawn(&pid, TVX_CRASH_WRITER, &actions, nullptr,
                                  const_cast<char* const*>(argv), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);
  WriterRun run;
  EXPECT_EQ(0, spawned);
  if (spawned != 0) {
    close(fds[0]);
    return run;
  }
  if (delay.count() >= 0) {
    std::this_thread::sleep_for(delay);
    kill(pid, SIGKILL);
  }
  // Everything the writer reported before it died is still in the pipe.
  std::string reports;
  char chunk[4096];
  ssize_t got = 0;
  while ((got = read(fds[0], chunk, sizeof chunk)) > 0) {
    reports.append(chunk, static_cast<std::size_t>(got));
  }
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  run.killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  if (!run.killed) {
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "writer failed: " << status;
  }
  std::istringstream lines(reports);
  std::string line;
  while (std::getline(lines, line)) {
    if (!line.empty()) {
      run.reported.push_back(std::stoll(line));
    }
  }
  return run;
}

bool have_z3() {
  return access("/usr/bin/z3", X_OK) == 0;
}

// The solver's answer to a script: its output, with any error lines.
std::string replay(std::string const& script_path) {
  std::string const command = "/usr/bin/z3 -smt2 -T:60 " + script_path + " 2>&1";
  std::string output;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char chunk[4096];
    std::size_t got = 0;
    while ((got = fread(chunk, 1, sizeof chunk, pipe)) > 0) {
      output.append(chunk, got);
    }
    pclose(pipe);
  }
  return output;
}

class CrashSafetyTest : public ::testing::TestWithParam<bool> {};

TEST_P(CrashSafetyTest, KilledWriterLeavesEveryReturnedCallComplete) {
  bool const global = GetParam();
  // The whole trace and its call boundaries, made in this process (without the stamp line).
  std::ostringstream whole;
  std::vector<std::size_t> boundaries;
  run_crash_session(whole, global, kRounds,
                    [&]() { boundaries.push_back(without_stamp(whole.str()).size()); });
  std::string const expected = without_stamp(whole.str());

  std::string const dir = TVX_BINARY_DIR "/tests/robustness";
  std::string const file = dir + "/crash_" + (global ? "global" : "scoped") + ".smt2";
  std::string const prefix_file = file + ".prefix.smt2";

  // One full run gives the time span over which to spread the kills.
  auto const start = std::chrono::steady_clock::now();
  WriterRun const full = run_writer(file, global, std::chrono::microseconds(-1));
  auto const span = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - start);
  ASSERT_FALSE(full.killed);
  ASSERT_EQ(boundaries.size(), full.reported.size());
  ASSERT_EQ(expected, without_stamp(read_file(file)));

  unsigned const seed = std::random_device{}();
  std::mt19937 rng(seed);
  // The full run includes start-up and exit; kills aim at the time the writer spends tracing.
  std::uniform_int_distribution<long long> when(0, std::max<long long>(1, span.count() * 3 / 5));
  int killed_midway = 0;
  for (int i = 0; i < kKillsPerMode; ++i) {
    SCOPED_TRACE("seed " + std::to_string(seed) + ", kill " + std::to_string(i));
    WriterRun const run = run_writer(file, global, std::chrono::microseconds(when(rng)));
    std::string const text = read_file(file);
    std::string const stripped = without_stamp(text);
    std::size_t const stamp = text.size() - stripped.size();
    long long const last = run.reported.empty() ? 0 : run.reported.back();
    ASSERT_GE(static_cast<long long>(text.size()), last) << "text of a returned call is missing";
    ASSERT_EQ(expected.substr(0, stripped.size()), stripped)
        << "the file is no prefix of the trace";
    if (run.reported.empty()) {
      continue;  // killed before the header was complete
    }
    std::size_t const returned_end = static_cast<std::size_t>(last) - stamp;
    EXPECT_TRUE(std::binary_search(boundaries.begin(), boundaries.end(), returned_end))
        << "reported length " << last << " is not the end of a call";
    std::string const prefix = text.substr(0, static_cast<std::size_t>(last));
    ASSERT_FALSE(prefix.empty());
    EXPECT_EQ('\n', prefix.back());
    if (run.killed && run.reported.size() < boundaries.size()) {
      ++killed_midway;
    }
    if (have_z3()) {
      std::ofstream(prefix_file, std::ios::binary | std::ios::trunc) << prefix;
      std::string const answer = replay(prefix_file);
      EXPECT_EQ(std::string::npos, answer.find("(error")) << answer.substr(0, 400);
    }
  }
  std::printf("[ crash    ] %s: %d of %d kills landed before the end, every one survived\n",
              global ? "global" : "scoped", killed_midway, kKillsPerMode);
  RecordProperty("kills_midway", killed_midway);
  std::remove(file.c_str());
  std::remove(prefix_file.c_str());
}

INSTANTIATE_TEST_SUITE_P(Modes, CrashSafetyTest, ::testing::Bool(),
                         [](::testing::TestParamInfo<bool> const& info) {
                           return info.param ? "Global" : "Scoped";
                         });

}  // namespace
}  // namespace test
}  // namespace tvx
