#include "base/file_time.h"

#include <unicode/basictz.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <memory>
#include <mutex>

namespace trovix::base {
namespace {

// Days from 1970-01-01 to the given civil date (Howard Hinnant's algorithm).
constexpr int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void CivilFromDays(int64_t z, int* year, int* month, int* day) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t y = static_cast<int64_t>(yoe) + era * 400;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  const unsigned d = doy - (153 * mp + 2) / 5 + 1;
  const unsigned m = mp < 10 ? mp + 3 : mp - 9;
  *year = static_cast<int>(y + (m <= 2));
  *month = static_cast<int>(m);
  *day = static_cast<int>(d);
}

__int128 FloorDiv(__int128 a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

// ICU dates are milliseconds since 1970 as doubles.
double ToUDate(FileTime t) {
  return static_cast<double>(FloorDiv(__int128{t} - kUnixEpoch, kTicksPerMillisecond));
}

struct ZoneHolder {
  std::mutex mutex;
  std::shared_ptr<const icu::TimeZone> zone;
};

ZoneHolder& Holder() {
  static ZoneHolder holder;
  return holder;
}

std::shared_ptr<const icu::TimeZone> CurrentZone() {
  ZoneHolder& h = Holder();
  std::lock_guard lock(h.mutex);
  if (!h.zone) h.zone.reset(icu::TimeZone::createDefault());
  return h.zone;
}

// Offset in ticks of the zone at a UTC instant, or at a local wall time.
int64_t OffsetTicks(FileTime t, bool local) {
  auto zone = CurrentZone();
  UErrorCode status = U_ZERO_ERROR;
  int32_t raw = 0, dst = 0;
  if (auto* basic = dynamic_cast<const icu::BasicTimeZone*>(zone.get()); basic && local) {
    basic->getOffsetFromLocal(ToUDate(t), UCAL_TZ_LOCAL_FORMER, UCAL_TZ_LOCAL_FORMER, raw, dst,
                              status);
  } else {
    zone->getOffset(ToUDate(t), local, raw, dst, status);
  }
  if (U_FAILURE(status)) return 0;
  return static_cast<int64_t>(raw + dst) * kTicksPerMillisecond;
}

}  // namespace

int DaysInMonth(int year, int month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12) return 0;
  bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return kDays[month - 1] + (month == 2 && leap ? 1 : 0);
}

bool IsValidCivil(const CivilTime& c) {
  return c.month >= 1 && c.month <= 12 && c.day >= 1 && c.day <= DaysInMonth(c.year, c.month) &&
         c.hour >= 0 && c.hour < 24 && c.minute >= 0 && c.minute < 60 && c.second >= 0 &&
         c.second < 60 && c.millisecond >= 0 && c.millisecond < 1000;
}

CivilTime CivilFromFileTime(FileTime t) {
  CivilTime c;
  const __int128 since_epoch = __int128{t} - kUnixEpoch;
  const int64_t days = static_cast<int64_t>(FloorDiv(since_epoch, kTicksPerDay));
  int64_t rest = static_cast<int64_t>(since_epoch - __int128{days} * kTicksPerDay);
  CivilFromDays(days, &c.year, &c.month, &c.day);
  c.day_of_week = static_cast<int>(((days % 7) + 7 + 4) % 7);  // 1970-01-01 was a Thursday
  c.hour = static_cast<int>(rest / kTicksPerHour);
  rest %= kTicksPerHour;
  c.minute = static_cast<int>(rest / kTicksPerMinute);
  rest %= kTicksPerMinute;
  c.second = static_cast<int>(rest / kTicksPerSecond);
  rest %= kTicksPerSecond;
  c.millisecond = static_cast<int>(rest / kTicksPerMillisecond);
  c.sub_ms_ticks = static_cast<int>(rest % kTicksPerMillisecond);
  return c;
}

FileTime FileTimeFromCivil(const CivilTime& c) {
  // The day algorithm wants a month in 1-12; whole years carry the rest of the month field.
  const int64_t months = int64_t{c.month} - 1;
  const int64_t years = static_cast<int64_t>(FloorDiv(months, 12));
  const unsigned month = static_cast<unsigned>(months - years * 12) + 1;
  const __int128 days = __int128{DaysFromCivil(c.year + years, month, 1)} + c.day - 1;
  return SaturatedFileTime(__int128{kUnixEpoch} + days * kTicksPerDay +
                           __int128{c.hour} * kTicksPerHour + __int128{c.minute} * kTicksPerMinute +
                           __int128{c.second} * kTicksPerSecond +
                           __int128{c.millisecond} * kTicksPerMillisecond + c.sub_ms_ticks);
}

FileTime UtcToLocal(FileTime utc) {
  return SaturatedFileTime(__int128{utc} + OffsetTicks(utc, false));
}

FileTime LocalToUtc(FileTime local) {
  return SaturatedFileTime(__int128{local} - OffsetTicks(local, true));
}

bool SetLocalTimeZone(std::string_view zone_id) {
  std::shared_ptr<const icu::TimeZone> zone;
  if (zone_id.empty()) {
    icu::TimeZone* detected = icu::TimeZone::detectHostTimeZone();
    zone.reset(detected);
  } else {
    auto id = icu::UnicodeString::fromUTF8(icu::StringPiece(zone_id.data(), static_cast<int32_t>(zone_id.size())));
    std::unique_ptr<icu::TimeZone> candidate(icu::TimeZone::createTimeZone(id));
    if (!candidate || *candidate == icu::TimeZone::getUnknown()) return false;
    zone = std::move(candidate);
  }
  ZoneHolder& h = Holder();
  std::lock_guard lock(h.mutex);
  h.zone = std::move(zone);
  return true;
}

std::string LocalTimeZoneId() {
  icu::UnicodeString id;
  CurrentZone()->getID(id);
  std::string out;
  id.toUTF8String(out);
  return out;
}

}  // namespace trovix::base
