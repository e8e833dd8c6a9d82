// Helpers of the date tests: wall times in the current zone, and a scope that chooses the
// date locale and the zone for one test and restores the defaults afterwards.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "base/file_time.h"
#include "rules/value/date_text.h"

namespace trovix::rules::testing {

inline base::FileTime Civil(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  base::CivilTime c;
  c.year = y;
  c.month = mo;
  c.day = d;
  c.hour = h;
  c.minute = mi;
  c.second = s;
  return base::FileTimeFromCivil(c);
}
// A wall time of the current zone, as the UTC file time a rule stores.
inline base::FileTime Local(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  return base::LocalToUtc(Civil(y, mo, d, h, mi, s));
}
inline uint64_t LocalBits(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  return static_cast<uint64_t>(Local(y, mo, d, h, mi, s));
}

class DateScope {
 public:
  DateScope(const char* locale, const char* zone) {
    EXPECT_TRUE(SetDateLocale(locale));
    EXPECT_TRUE(base::SetLocalTimeZone(zone));
  }
  ~DateScope() {
    SetDateLocale("");
    base::SetLocalTimeZone("");
  }
  DateScope(const DateScope&) = delete;
  DateScope& operator=(const DateScope&) = delete;
};

}  // namespace trovix::rules::testing
