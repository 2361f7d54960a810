// Tests of get_local_time: a known instant converted under fixed time zones.
#include "core/local_time.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace tvx {
namespace {

TEST(LocalTimeTest, FollowsTheLocalZone) {
  struct Row {
    char const* zone;
    int mday;
    int hour;
  };
  std::time_t const t = 1700000000;  // 2023-11-14 22:13:20 UTC, a Tuesday
  for (Row const& row : {Row{"UTC0", 14, 22}, Row{"XYZ-2", 15, 0}, Row{"XYZ+5", 14, 17}}) {
    setenv("TZ", row.zone, 1);
    tzset();
    std::tm const tm = get_local_time(&t);
    EXPECT_EQ(tm.tm_year * 100 + tm.tm_mon, 12310) << row.zone;
    EXPECT_EQ(tm.tm_mday * 100 + tm.tm_hour, row.mday * 100 + row.hour) << row.zone;
    EXPECT_EQ(tm.tm_min * 100 + tm.tm_sec, 1320) << row.zone;
  }
  unsetenv("TZ");
  tzset();
}

}  // namespace
}  // namespace tvx
