// Tests of get_local_time: known instants converted under fixed time zones.
#include "core/local_time.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

namespace tvx {
namespace {

// Sets TZ for one test and restores the previous value afterwards.
class LocalTimeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char const* old = std::getenv("TZ");
    had_tz_ = old != nullptr;
    if (had_tz_) {
      old_tz_ = old;
    }
  }
  void TearDown() override {
    if (had_tz_) {
      setenv("TZ", old_tz_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }
  static void use_zone(char const* tz) {
    setenv("TZ", tz, 1);
    tzset();
  }

 private:
  bool had_tz_ = false;
  std::string old_tz_;
};

TEST_F(LocalTimeTest, EpochInUtc) {
  use_zone("UTC0");
  std::time_t t = 0;
  std::tm tm = get_local_time(&t);
  EXPECT_EQ(tm.tm_year, 70);
  EXPECT_EQ(tm.tm_mon, 0);
  EXPECT_EQ(tm.tm_mday, 1);
  EXPECT_EQ(tm.tm_hour, 0);
  EXPECT_EQ(tm.tm_min, 0);
  EXPECT_EQ(tm.tm_sec, 0);
  EXPECT_EQ(tm.tm_wday, 4);  // a Thursday
  EXPECT_EQ(tm.tm_yday, 0);
}

TEST_F(LocalTimeTest, KnownInstantInUtc) {
  use_zone("UTC0");
  std::time_t t = 1700000000;  // 2023-11-14 22:13:20 UTC, a Tuesday
  std::tm tm = get_local_time(&t);
  EXPECT_EQ(tm.tm_year, 123);
  EXPECT_EQ(tm.tm_mon, 10);
  EXPECT_EQ(tm.tm_mday, 14);
  EXPECT_EQ(tm.tm_hour, 22);
  EXPECT_EQ(tm.tm_min, 13);
  EXPECT_EQ(tm.tm_sec, 20);
  EXPECT_EQ(tm.tm_wday, 2);
  EXPECT_EQ(tm.tm_yday, 317);
}

TEST_F(LocalTimeTest, FollowsTheLocalZone) {
  use_zone("XYZ-2");  // two hours east of UTC
  std::time_t t = 1700000000;
  std::tm tm = get_local_time(&t);
  EXPECT_EQ(tm.tm_mday, 15);
  EXPECT_EQ(tm.tm_hour, 0);
  EXPECT_EQ(tm.tm_min, 13);
  use_zone("XYZ+5");  // five hours west
  tm = get_local_time(&t);
  EXPECT_EQ(tm.tm_mday, 14);
  EXPECT_EQ(tm.tm_hour, 17);
}

}  // namespace
}  // namespace tvx
