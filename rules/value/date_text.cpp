#include "rules/value/date_text.h"

#include <cstdint>

#include <unicode/dtptngen.h>
#include <unicode/gregocal.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <memory>
#include <mutex>
#include <vector>

namespace trovix::rules {
namespace {

using base::FileTime;

// One way of reading a typed date.
struct Reader {
  std::unique_ptr<icu::SimpleDateFormat> format;
  bool iso = false;  // year-month-day: always names a day
};

// Everything prepared for one locale. Built on first use and again after SetDateLocale.
struct DateSyntax {
  icu::Locale locale;
  std::vector<Reader> readers;
  std::unique_ptr<icu::SimpleDateFormat> date_out;
  std::unique_ptr<icu::SimpleDateFormat> time_out;          // hours and minutes
  std::unique_ptr<icu::SimpleDateFormat> time_seconds_out;  // with seconds
  // Whether the locale's short date writes hyphens. Decided once: a typed hyphen then shows
  // that a day was given, as a slash does everywhere.
  bool short_date_uses_hyphen = false;
};

struct State {
  std::mutex mutex;
  std::optional<icu::Locale> chosen;  // nullopt: the user's locale
  std::unique_ptr<DateSyntax> syntax;
};

State& GetState() {
  static State state;
  return state;
}

bool IsAsciiBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view Trim(std::string_view s) {
  while (!s.empty() && (IsAsciiBlank(s.front()) || s.front() == '\r' || s.front() == '\n'))
    s.remove_prefix(1);
  while (!s.empty() && (IsAsciiBlank(s.back()) || s.back() == '\r' || s.back() == '\n'))
    s.remove_suffix(1);
  return s;
}

// Locale data puts narrow and ordinary no-break spaces into time formats ("10:30\u202FPM");
// nobody types them, so both the formats and the typed text use plain blanks instead.
icu::UnicodeString PlainBlanks(icu::UnicodeString s) {
  s.findAndReplace(icu::UnicodeString(static_cast<UChar>(0x202F)), icu::UnicodeString(u' '));
  s.findAndReplace(icu::UnicodeString(static_cast<UChar>(0x00A0)), icu::UnicodeString(u' '));
  return s;
}

// Rewrites the numeric fields of a pattern. For reading (`for_reading`), every numeric field
// becomes one letter so that "1/10/2014" and "01/10/2014" both fit "dd/MM/y" (ICU insists on
// the padding otherwise). For showing, only the year is widened: a two-digit year would be read
// back into whatever century ICU guesses.
icu::UnicodeString RewriteFields(const icu::UnicodeString& pattern, bool for_reading) {
  icu::UnicodeString out;
  bool quoted = false;
  int32_t i = 0;
  const int32_t n = pattern.length();
  while (i < n) {
    UChar c = pattern.charAt(i);
    if (c == u'\'') {
      quoted = !quoted;
      out.append(c);
      ++i;
      continue;
    }
    bool letter = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
    if (quoted || !letter) {
      out.append(c);
      ++i;
      continue;
    }
    int32_t run = 1;
    while (i + run < n && pattern.charAt(i + run) == c) ++run;
    i += run;
    if (c == u'y' || c == u'Y' || c == u'u') {
      out.append(u'y');
    } else if (for_reading && run <= 2 &&
               (c == u'd' || c == u'M' || c == u'L' || c == u'H' || c == u'h' || c == u'k' ||
                c == u'K' || c == u'm' || c == u's')) {
      out.append(c == u'L' ? u'M' : c);
    } else {
      for (int32_t k = 0; k < run; ++k) out.append(c);
    }
  }
  return out;
}

std::unique_ptr<icu::SimpleDateFormat> MakeFormat(const icu::UnicodeString& pattern,
                                                  const icu::Locale& locale, bool for_reading) {
  UErrorCode status = U_ZERO_ERROR;
  auto format = std::make_unique<icu::SimpleDateFormat>(pattern, locale, status);
  if (U_FAILURE(status)) return nullptr;
  // Wall times in, wall times out: the zone is applied by base::LocalToUtc, not by ICU.
  format->adoptTimeZone(icu::TimeZone::getGMT()->clone());
  if (for_reading) {
    // Lenient about blanks and literal separators, strict about the calendar, so that
    // "30/02/2014" is refused instead of rolling over into March.
    format->setLenient(true);
    format->setCalendarLenient(false);
  }
  return format;
}

icu::UnicodeString PatternOf(icu::DateFormat* format) {
  icu::UnicodeString pattern;
  if (auto* simple = dynamic_cast<icu::SimpleDateFormat*>(format)) simple->toPattern(pattern);
  return PlainBlanks(pattern);
}

icu::UnicodeString DatePattern(icu::DateFormat::EStyle style, const icu::Locale& locale) {
  std::unique_ptr<icu::DateFormat> f(icu::DateFormat::createDateInstance(style, locale));
  return f ? PatternOf(f.get()) : icu::UnicodeString();
}

icu::UnicodeString TimePattern(icu::DateFormat::EStyle style, const icu::Locale& locale) {
  std::unique_ptr<icu::DateFormat> f(icu::DateFormat::createTimeInstance(style, locale));
  return f ? PatternOf(f.get()) : icu::UnicodeString();
}

void AddUnique(std::vector<icu::UnicodeString>& list, const icu::UnicodeString& item) {
  if (item.isEmpty()) return;
  for (const auto& existing : list)
    if (existing == item) return;
  list.push_back(item);
}

std::unique_ptr<DateSyntax> BuildSyntax(const icu::Locale& base_locale) {
  auto syntax = std::make_unique<DateSyntax>();
  // Dates are always Gregorian, whatever calendar the locale prefers, because rule bounds
  // are stored and compared as Gregorian file times.
  icu::Locale locale = base_locale;
  UErrorCode status = U_ZERO_ERROR;
  locale.setKeywordValue("calendar", "gregorian", status);
  syntax->locale = locale;

  const icu::UnicodeString short_date = DatePattern(icu::DateFormat::kShort, locale);
  std::vector<icu::UnicodeString> dates;
  for (auto style : {icu::DateFormat::kShort, icu::DateFormat::kMedium, icu::DateFormat::kLong,
                     icu::DateFormat::kFull})
    AddUnique(dates, RewriteFields(DatePattern(style, locale), true));
  std::vector<icu::UnicodeString> times;
  AddUnique(times, RewriteFields(TimePattern(icu::DateFormat::kMedium, locale), true));
  AddUnique(times, RewriteFields(TimePattern(icu::DateFormat::kShort, locale), true));
  AddUnique(times, u"H:m:s");
  AddUnique(times, u"H:m");

  status = U_ZERO_ERROR;
  std::unique_ptr<icu::DateTimePatternGenerator> generator(
      icu::DateTimePatternGenerator::createInstance(locale, status));
  icu::UnicodeString glue = U_SUCCESS(status) ? generator->getDateTimeFormat() : u"{1} {0}";

  // Most specific first: a date with a time must not be taken by a date-only reader that
  // stops before the time, and the whole text must be used up in any case.
  std::vector<icu::UnicodeString> patterns;
  for (const auto& d : dates) {
    for (const auto& t : times) {
      AddUnique(patterns, d + u" " + t);
      icu::UnicodeString joined = glue;
      joined.findAndReplace(u"{1}", d);
      joined.findAndReplace(u"{0}", t);
      AddUnique(patterns, PlainBlanks(joined));
    }
  }
  for (const auto& d : dates) AddUnique(patterns, d);
  for (const auto& p : patterns) {
    if (auto f = MakeFormat(p, locale, true)) syntax->readers.push_back({std::move(f), false});
  }
  // The international form, whatever the locale.
  for (const char16_t* iso : {u"y-M-d H:m:s", u"y-M-d H:m", u"y-M-d"}) {
    if (auto f = MakeFormat(iso, locale, true)) syntax->readers.push_back({std::move(f), true});
  }
  // A month with its year, named or numbered.
  if (generator) {
    std::vector<icu::UnicodeString> months;
    for (const char16_t* skeleton : {u"yMMMM", u"yMMM", u"yM"}) {
      status = U_ZERO_ERROR;
      icu::UnicodeString best = generator->getBestPattern(skeleton, status);
      if (U_SUCCESS(status)) AddUnique(months, RewriteFields(PlainBlanks(best), true));
    }
    for (const auto& p : months)
      if (auto f = MakeFormat(p, locale, true)) syntax->readers.push_back({std::move(f), false});
  }

  syntax->date_out = MakeFormat(RewriteFields(short_date, false), locale, false);
  syntax->time_out = MakeFormat(TimePattern(icu::DateFormat::kShort, locale), locale, false);
  syntax->time_seconds_out =
      MakeFormat(TimePattern(icu::DateFormat::kMedium, locale), locale, false);
  if (syntax->date_out) {
    icu::UnicodeString sample;
    // Any date shows the separators; this one avoids days and months that look alike.
    syntax->date_out->format(1.4e12, sample);
    syntax->short_date_uses_hyphen = sample.indexOf(u'-') >= 0;
  }
  return syntax;
}

// Callers hold the state's lock.
DateSyntax& Syntax(State& state) {
  if (!state.syntax)
    state.syntax = BuildSyntax(state.chosen ? *state.chosen : icu::Locale::getDefault());
  return *state.syntax;
}

__int128 FloorDiv(__int128 a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

// ICU may answer dates far outside what a file time holds: clamp rather than overflow.
FileTime FileTimeFromUDate(UDate ms) {
  constexpr double kMaxMs = static_cast<double>((INT64_MAX - base::kUnixEpoch) / base::kTicksPerMillisecond);
  constexpr double kMinMs = static_cast<double>(-base::kUnixEpoch / base::kTicksPerMillisecond);
  if (!(ms < kMaxMs)) ms = kMaxMs;  // also catches NaN
  if (ms < kMinMs) ms = kMinMs;
  return base::kUnixEpoch + static_cast<int64_t>(ms) * base::kTicksPerMillisecond;
}

UDate UDateFromFileTime(FileTime t) {
  return static_cast<UDate>(FloorDiv(__int128{t} - base::kUnixEpoch, base::kTicksPerMillisecond));
}

constexpr int kLastYear = 9999;

// A leading integer, as the year-alone form reads it: optional sign, then decimal digits.
std::optional<int64_t> LeadingInteger(std::string_view s) {
  size_t i = 0;
  bool negative = false;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) negative = s[i++] == '-';
  size_t first_digit = i;
  int64_t value = 0;
  while (i < s.size() && s[i] >= '0' && s[i] <= '9') {
    if (value > 1'000'000'000) return std::nullopt;
    value = value * 10 + (s[i++] - '0');
  }
  if (i == first_digit) return std::nullopt;
  return negative ? -value : value;
}

// Whether a text converted to the first of a month names only the month. The rule is simple
// on purpose: a slash, a leading "1 " or (where the locale writes them) a hyphen show that a
// day was typed; anything else ("January 2014") means the whole month.
bool NamesWholeMonth(std::string_view text, bool locale_uses_hyphen) {
  if (text.find('/') != std::string_view::npos) return false;
  if (text.size() >= 2 && text[0] == '1' && IsAsciiBlank(text[1])) return false;
  if (locale_uses_hyphen && text.find('-') != std::string_view::npos) return false;
  return true;
}

}  // namespace

bool SetDateLocale(std::string_view locale_id) {
  std::optional<icu::Locale> chosen;
  if (!locale_id.empty()) {
    icu::Locale locale(std::string(locale_id).c_str());
    if (locale.isBogus() || std::string_view(locale.getLanguage()).empty()) return false;
    chosen = locale;
  }
  State& state = GetState();
  std::lock_guard lock(state.mutex);
  state.chosen = std::move(chosen);
  state.syntax.reset();
  return true;
}

std::string DateLocaleName() {
  State& state = GetState();
  std::lock_guard lock(state.mutex);
  return state.chosen ? state.chosen->getName() : icu::Locale::getDefault().getName();
}

std::optional<ParsedDate> ParseDate(std::string_view text, bool want_end) {
  const std::string_view typed = Trim(text);
  if (typed.empty()) return std::nullopt;

  std::optional<FileTime> local;
  bool iso = false;
  bool locale_uses_hyphen = false;
  {
    State& state = GetState();
    std::lock_guard lock(state.mutex);
    DateSyntax& syntax = Syntax(state);
    locale_uses_hyphen = syntax.short_date_uses_hyphen;
    const icu::UnicodeString u = PlainBlanks(icu::UnicodeString::fromUTF8(
        icu::StringPiece(typed.data(), static_cast<int32_t>(typed.size()))));
    for (const Reader& reader : syntax.readers) {
      icu::ParsePosition pos(0);
      UDate ms = reader.format->parse(u, pos);
      if (pos.getErrorIndex() >= 0 || pos.getIndex() != u.length()) continue;
      local = FileTimeFromUDate(ms);
      iso = reader.iso;
      break;
    }
  }

  ParsedDate result;
  if (!local) {
    std::optional<int64_t> year = LeadingInteger(typed);
    if (!year || *year < 1970 || *year > 2100) return std::nullopt;
    base::CivilTime first;
    first.year = static_cast<int>(*year);
    base::CivilTime next = first;
    next.year += 1;
    result.start = base::LocalToUtc(base::FileTimeFromCivil(first));
    result.end = base::LocalToUtc(base::FileTimeFromCivil(next));
    return result;
  }

  base::CivilTime civil = base::CivilFromFileTime(*local);
  // Dates are shown with four-digit years, so a later year could not be read back; ICU's
  // answers for such texts are clamped and mean nothing anyway.
  if (civil.year < 1970 || civil.year > kLastYear) return std::nullopt;
  result.start = base::LocalToUtc(*local);
  // The international form always carries its day, so the month test does not apply to it.
  if (want_end && civil.day == 1 && !iso && NamesWholeMonth(typed, locale_uses_hyphen)) {
    base::CivilTime next = civil;
    if (++next.month == 13) {
      next.month = 1;
      ++next.year;
    }
    FileTime end = base::LocalToUtc(base::FileTimeFromCivil(next));
    if (end != result.start) result.end = end;
  }
  return result;
}

std::string FormatDate(FileTime utc, bool with_time) {
  const FileTime local = base::UtcToLocal(utc);
  const UDate ms = UDateFromFileTime(local);
  icu::UnicodeString text;
  {
    State& state = GetState();
    std::lock_guard lock(state.mutex);
    DateSyntax& syntax = Syntax(state);
    if (syntax.date_out) syntax.date_out->format(ms, text);
    if (with_time) {
      const bool seconds = base::CivilFromFileTime(local).second != 0;
      icu::SimpleDateFormat* time_format =
          seconds ? syntax.time_seconds_out.get() : syntax.time_out.get();
      if (time_format) {
        icu::UnicodeString time;
        time_format->format(ms, time);
        text += u" ";
        text += time;
      }
    }
  }
  std::string out;
  PlainBlanks(text).toUTF8String(out);
  return out;
}

}  // namespace trovix::rules
