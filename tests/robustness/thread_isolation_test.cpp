// Two independent sessions, each with its own term manager, configuration, stream and tracer,
// run at once on two threads. Built under ThreadSanitizer this finds any state the sessions
// share behind the caller's back (static caches and the like); in every build each thread's
// trace must equal the one the same session writes alone.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <thread>

#include "crash_session.h"
#include "trace_session.h"

namespace tvx {
namespace test {
namespace {

constexpr int kRounds = 300;

std::string session_text(bool global) {
  std::ostringstream out;
  run_crash_session(out, global, kRounds, [] {});
  return without_stamp(out.str());
}

TEST(ThreadIsolationTest, TwoSessionsOnTwoThreadsWriteWhatEachWritesAlone) {
  std::string const scoped_alone = session_text(false);
  std::string const global_alone = session_text(true);
  for (bool mixed : {false, true}) {
    std::string first;
    std::string second;
    std::thread one([&] { first = session_text(false); });
    std::thread two([&] { second = session_text(mixed); });
    one.join();
    two.join();
    EXPECT_EQ(scoped_alone, first);
    EXPECT_EQ(mixed ? global_alone : scoped_alone, second);
  }
}

}  // namespace
}  // namespace test
}  // namespace tvx
