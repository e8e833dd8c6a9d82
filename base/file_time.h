// File times: 64-bit counts of 100 ns ticks since 1601-01-01 00:00 UTC, the form in which
// rules store dates and the persisted rule list keeps them. Conversions to and from Unix
// time, to and from broken-down calendar time, and between UTC and local time.
//
// Local time uses one process-wide time zone: the system's by default (ICU's default zone,
// which honours TZ), replaceable with SetLocalTimeZone so that tests can run under a zone
// with daylight saving or under UTC. Reading the zone is thread-safe; replace it only while
// no search runs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace trovix::base {

using FileTime = int64_t;

inline constexpr int64_t kTicksPerMillisecond = 10'000;
inline constexpr int64_t kTicksPerSecond = 10'000'000;
inline constexpr int64_t kTicksPerMinute = 60 * kTicksPerSecond;
inline constexpr int64_t kTicksPerHour = 60 * kTicksPerMinute;
inline constexpr int64_t kTicksPerDay = 24 * kTicksPerHour;
// 1970-01-01 00:00 UTC as a file time.
inline constexpr FileTime kUnixEpoch = 116'444'736'000'000'000;

inline constexpr FileTime kMinFileTime = INT64_MIN;
inline constexpr FileTime kMaxFileTime = INT64_MAX;

// Times come from file systems, persisted rule lists and typed text, none of which can be
// trusted to stay within 64 bits once an epoch or a zone offset is added: arithmetic on file
// times is done wide and pinned to the ends of the range.
constexpr FileTime SaturatedFileTime(__int128 ticks) {
  if (ticks > kMaxFileTime) return kMaxFileTime;
  if (ticks < kMinFileTime) return kMinFileTime;
  return static_cast<FileTime>(ticks);
}

constexpr FileTime FileTimeFromUnix(int64_t seconds, int64_t nanoseconds = 0) {
  return SaturatedFileTime(__int128{kUnixEpoch} + __int128{seconds} * kTicksPerSecond +
                           nanoseconds / 100);
}
// Whole seconds since 1970, rounded towards minus infinity.
constexpr int64_t UnixFromFileTime(FileTime t) {
  const __int128 d = __int128{t} - kUnixEpoch;
  return static_cast<int64_t>(d >= 0 ? d / kTicksPerSecond
                                     : -((-d + kTicksPerSecond - 1) / kTicksPerSecond));
}

// A broken-down time without a zone, like the platform's SYSTEMTIME.
struct CivilTime {
  int year = 1601;
  int month = 1;        // 1-12
  int day = 1;          // 1-31
  int hour = 0;         // 0-23
  int minute = 0;       // 0-59
  int second = 0;       // 0-59
  int millisecond = 0;  // 0-999
  int day_of_week = 1;  // 0 Sunday ... 6 Saturday; ignored by FileTimeFromCivil
  int sub_ms_ticks = 0; // the 100 ns ticks below the millisecond, kept for exact round trips
};

// Calendar arithmetic on the proleptic Gregorian calendar; no zone is applied. Every file time
// has a civil time (years about -27,627 to 30,828); a civil time past either end of the file
// time range, or with fields out of their ranges, gives the nearest end instead of wrapping.
CivilTime CivilFromFileTime(FileTime t);
FileTime FileTimeFromCivil(const CivilTime& c);
bool IsValidCivil(const CivilTime& c);
int DaysInMonth(int year, int month);

// UTC <-> local time of the process-wide zone. A local time that falls into a gap or an
// overlap at a change of offset takes the offset in force before the change. Times within a
// day of either end of the range stay at that end.
FileTime UtcToLocal(FileTime utc);
FileTime LocalToUtc(FileTime local);

// Replaces the process-wide zone by an ICU zone id ("UTC", "Europe/Berlin"). Returns false,
// leaving the zone alone, for an unknown id. An empty id restores the system's zone.
bool SetLocalTimeZone(std::string_view zone_id);
std::string LocalTimeZoneId();

}  // namespace trovix::base
