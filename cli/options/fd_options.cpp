#include "cli/options/fd_options.h"

#include <charconv>
#include <cstdio>

#include "platform/dir_reader.h"

namespace trovix::cli {
namespace {

using platform::FileType;

std::string_view Trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

bool Lower(std::string_view text, std::string* out) {
  out->clear();
  for (char c : text) *out += (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
  return true;
}

bool FolderIsEmpty(const std::string& path, bool follow) {
  std::unique_ptr<platform::DirReader> reader;
  if (platform::DefaultDirSystem().OpenDir(path, follow, &reader) != 0) return false;
  platform::DirEntry entry;
  return !reader->Next(&entry) && reader->error() == 0;
}

// A whole number at the start of `text`; the rest is left in `text`.
bool TakeNumber(std::string_view* text, uint64_t* n) {
  const char* end = text->data() + text->size();
  auto [stop, ec] = std::from_chars(text->data(), end, *n);
  if (ec != std::errc() || stop == text->data()) return false;
  text->remove_prefix(static_cast<size_t>(stop - text->data()));
  return true;
}

// Seconds in a duration unit, as people write them ("7d", "2weeks", "90 min"); 0 if unknown.
uint64_t UnitSeconds(std::string_view unit) {
  struct Unit {
    std::string_view names[5];
    uint64_t seconds;
  };
  static constexpr Unit kUnits[] = {
      {{"s", "sec", "secs", "second", "seconds"}, 1},
      {{"m", "min", "mins", "minute", "minutes"}, 60},
      {{"h", "hr", "hrs", "hour", "hours"}, 3600},
      {{"d", "day", "days"}, 86400},
      {{"w", "week", "weeks"}, 7 * 86400},
      {{"M", "month", "months"}, 2'630'016},  // 30.44 days, a twelfth of a year
      {{"y", "year", "years"}, 31'557'600},   // 365.25 days
  };
  for (const Unit& u : kUnits)
    for (std::string_view name : u.names)
      if (!name.empty() && name == unit) return u.seconds;
  return 0;
}

// "1h 30min", "2weeks", "7d": the duration in seconds.
bool ParseDuration(std::string_view text, uint64_t* seconds) {
  *seconds = 0;
  text = Trim(text);
  if (text.empty()) return false;
  while (!text.empty()) {
    uint64_t n = 0;
    if (!TakeNumber(&text, &n)) return false;
    text = Trim(text);
    size_t unit_end = 0;
    while (unit_end < text.size() && ((text[unit_end] | 0x20) >= 'a' && (text[unit_end] | 0x20) <= 'z')) ++unit_end;
    const uint64_t unit = UnitSeconds(text.substr(0, unit_end));
    if (unit == 0) return false;
    if (n > UINT64_MAX / unit || *seconds > UINT64_MAX - n * unit) return false;
    *seconds += n * unit;
    text = Trim(text.substr(unit_end));
  }
  return true;
}

// "2026-05-01" or "2026-05-01 10:00:00" (a "T" between is fine too), local time.
bool ParseLocalDate(std::string_view text, std::tm* tm) {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  char rest = 0;
  std::string s(Trim(text));
  for (char& c : s)
    if (c == 'T') c = ' ';
  if (s.empty() || s.find_first_not_of("0123456789-: ") != std::string::npos || s.back() < '0' || s.back() > '9')
    return false;
  int n = std::sscanf(s.c_str(), "%4d-%2d-%2d %2d:%2d:%2d%c", &year, &month, &day, &hour, &minute, &second, &rest);
  if (n != 3 && n != 5 && n != 6) return false;
  if (n == 5) {
    // "10:00" without seconds; anything after it is not a date.
    int h = 0, m = 0;
    char after = 0;
    if (std::sscanf(s.c_str(), "%*4d-%*2d-%*2d %2d:%2d%c", &h, &m, &after) != 2) return false;
  }
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) return false;
  *tm = std::tm{};
  tm->tm_year = year - 1900;
  tm->tm_mon = month - 1;
  tm->tm_mday = day;
  tm->tm_hour = hour;
  tm->tm_min = minute;
  tm->tm_sec = second;
  tm->tm_isdst = -1;
  return true;
}

std::string DateText(const std::tm& tm) {
  char text[96];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
                tm.tm_hour, tm.tm_min, tm.tm_sec);
  return text;
}

}  // namespace

bool TypeFilter::Add(std::string_view value, std::string* error) {
  std::string v;
  Lower(value, &v);
  if (v == "f" || v == "file") kinds_ |= kFile;
  else if (v == "d" || v == "dir" || v == "directory") kinds_ |= kDirectory;
  else if (v == "l" || v == "symlink" || v == "link") kinds_ |= kLink;
  else if (v == "x" || v == "executable") executable_ = true;
  else if (v == "e" || v == "empty") empty_ = true;
  else {
    *error = "--type takes f (file), d (directory), l (link), x (executable) or e (empty), not \"" +
             std::string(value) + "\"";
    return false;
  }
  return true;
}

bool TypeFilter::Accepts(props::ShellItem& item) const {
  const FileType type = item.Type();
  const bool is_link = type == FileType::kSymlink;
  const bool is_folder = type == FileType::kDirectory;
  const bool is_file = !is_link && !is_folder;
  if (kinds_ != 0) {
    const bool kind_ok = ((kinds_ & kFile) && is_file) || ((kinds_ & kDirectory) && is_folder) ||
                         ((kinds_ & kLink) && is_link);
    // "x" and "e" alone name their own kinds; beside f or d they only narrow them.
    if (!kind_ok) return false;
  }
  if (executable_) {
    const platform::FileStatus* st = item.Status();
    if (st == nullptr || is_folder || is_link || (st->mode & 0111) == 0) return false;
  }
  if (empty_) {
    if (is_folder) return FolderIsEmpty(item.path(), item.follow_links());
    const platform::FileStatus* st = item.Status();
    return st != nullptr && type == FileType::kRegular && st->size == 0;
  }
  return true;
}

std::string TypeFilter::Describe() const {
  std::string text;
  auto add = [&](const char* word, const char* joint) {
    text += (text.empty() ? "" : joint);
    text += word;
  };
  if (kinds_ & kFile) add("file", " or ");
  if (kinds_ & kDirectory) add("folder", " or ");
  if (kinds_ & kLink) add("link", " or ");
  if (executable_) add("executable", ", ");
  if (empty_) add("empty", ", ");
  return text;
}

bool ExtensionRuleLine(std::string_view extension, std::string* line, std::string* error) {
  if (!extension.empty() && extension.front() == '.') extension.remove_prefix(1);
  // The extension goes into a wildcard pattern: characters that would make it one are refused
  // rather than silently read as wildcards.
  if (extension.empty() || extension.find_first_of("*?[]/|\"") != std::string_view::npos) {
    *error = "--ext takes an extension such as \"pdf\" or \"tar.gz\", not \"" + std::string(extension) + "\"";
    return false;
  }
  *line = "System.ItemNameDisplay: =*." + std::string(extension);
  return true;
}

bool SizeRuleLine(std::string_view value, std::string* line, std::string* error) {
  auto fail = [&] {
    *error = "--size takes [+-]NUMBER[UNIT] with units b, k, m, g, t, ki, mi, gi, ti (\"+10k\", \"-1mi\"), not \"" +
             std::string(value) + "\"";
    return false;
  };
  std::string_view text = Trim(value);
  char sign = 0;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    sign = text.front();
    text.remove_prefix(1);
  }
  uint64_t n = 0;
  if (!TakeNumber(&text, &n)) return fail();
  std::string unit;
  Lower(Trim(text), &unit);
  uint64_t factor = 0;
  static constexpr std::pair<std::string_view, uint64_t> kUnits[] = {
      {"", 1},
      {"b", 1},
      {"k", 1000},
      {"m", 1000'000},
      {"g", 1000'000'000},
      {"t", 1000'000'000'000},
      {"ki", 1ull << 10},
      {"mi", 1ull << 20},
      {"gi", 1ull << 30},
      {"ti", 1ull << 40},
  };
  for (const auto& [name, f] : kUnits)
    if (unit == name) factor = f;
  if (factor == 0) return fail();
  if (n > UINT64_MAX / factor || n * factor > static_cast<uint64_t>(INT64_MAX)) {
    *error = "--size \"" + std::string(value) + "\" is too large";
    return false;
  }
  const std::string bytes = std::to_string(n * factor);
  // ">" and "<" include the value they name, as fd's "+" and "-" do.
  *line = "System.Size: " + (sign == '+' ? "> " + bytes : sign == '-' ? "< " + bytes : bytes);
  return true;
}

bool ChangedRuleLine(std::string_view value, bool within, std::time_t now, std::string* line,
                     std::string* error) {
  std::tm tm{};
  uint64_t seconds = 0;
  if (ParseDuration(value, &seconds)) {
    const std::time_t at = seconds > static_cast<uint64_t>(now) ? 0 : now - static_cast<std::time_t>(seconds);
    if (localtime_r(&at, &tm) == nullptr) return false;
  } else if (!ParseLocalDate(value, &tm)) {
    *error = std::string(within ? "--changed-within" : "--changed-before") +
             " takes a duration (\"7d\", \"2weeks\", \"10h\", \"1h 30min\") or a date (\"2026-05-01\", "
             "\"2026-05-01 10:00:00\"), not \"" + std::string(value) + "\"";
    return false;
  }
  *line = "System.DateModified: " + std::string(within ? "> " : "< ") + DateText(tm);
  return true;
}

}  // namespace trovix::cli
