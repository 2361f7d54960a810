// DeepStack: callables run on one thread of its own whose stack holds recursions far deeper
// than an ordinary thread's, and what they throw reaches the caller.
#include <gtest/gtest.h>

#include <cstddef>
#include <stdexcept>
#include <thread>
#include <vector>

#include "solver/deep_stack.h"

namespace tvx {
namespace {

// Recursion that no compiler turns into a loop: each frame keeps a buffer alive across the
// call and uses it afterwards.
std::size_t descend(std::size_t depth) {
  volatile char buffer[64];
  buffer[0] = static_cast<char>(depth);
  if (depth == 0) {
    return 0;
  }
  std::size_t const below = descend(depth - 1);
  return below + 1 + static_cast<std::size_t>(buffer[0] != static_cast<char>(depth));
}

thread_local int calls_on_this_thread = 0;

TEST(DeepStackTest, RunsDeepRecursionOnOneThreadAndPassesExceptionsBack) {
  DeepStack stack;
  // A million frames of about a hundred bytes: far past an 8 MiB default stack.
  std::size_t depth = 0;
  stack.run([&] { depth = descend(1000000); });
  EXPECT_EQ(depth, 1000000u);

  // Every call runs on the same thread, which is not the caller's.
  std::vector<std::thread::id> ids;
  for (int i = 0; i < 3; ++i) {
    stack.run([&] {
      ids.push_back(std::this_thread::get_id());
      ++calls_on_this_thread;
      EXPECT_TRUE(stack.on_thread());
    });
  }
  EXPECT_EQ(ids[0], ids[1]);
  EXPECT_EQ(ids[1], ids[2]);
  EXPECT_NE(ids[0], std::this_thread::get_id());
  EXPECT_EQ(calls_on_this_thread, 0) << "the caller's thread ran none";
  EXPECT_FALSE(stack.on_thread());
  int seen = 0;
  stack.run([&] { seen = calls_on_this_thread; });
  EXPECT_EQ(seen, 3);

  // An exception comes back to the caller, and the thread goes on serving.
  EXPECT_THROW(stack.run([] { throw std::out_of_range("deep"); }), std::out_of_range);
  // A call made from inside a call runs at once rather than waiting for itself.
  int nested = 0;
  stack.run([&] { stack.run([&] { nested = 7; }); });
  EXPECT_EQ(nested, 7);
}

TEST(DeepStackTest, CallersFromSeveralThreadsAreServedOneAtATime) {
  DeepStack stack;
  int inside = 0;
  int overlaps = 0;
  int total = 0;
  auto work = [&] {
    for (int i = 0; i < 200; ++i) {
      stack.run([&] {
        overlaps += inside;
        ++inside;
        ++total;
        --inside;
      });
    }
  };
  std::thread a(work);
  std::thread b(work);
  a.join();
  b.join();
  EXPECT_EQ(total, 400);
  EXPECT_EQ(overlaps, 0);
}

}  // namespace
}  // namespace tvx
