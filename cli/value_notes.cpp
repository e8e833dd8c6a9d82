#include "cli/value_notes.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "rules/compare_flags.h"
#include "rules/value/date_period.h"
#include "rules/patterns/text_pattern.h"
#include "rules/value/value_format.h"
#include "rules/value/value_hints.h"

namespace trovix::cli {
namespace {

const std::string_view kNumberHint = rules::NumberValueHint();
const std::string_view kDateHint = rules::DateValueHint();

std::string Lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

std::string Quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

// The sign or comparison typed before the first number, blanks removed.
std::string ComparisonBefore(std::string_view value) {
  std::string op;
  for (char c : value) {
    if (std::isdigit(static_cast<unsigned char>(c)) || c == '+' || c == '-') break;
    if (c != ' ' && c != '\t') op += c;
  }
  return op;
}

// Every run of digits in the text is a number the syntax may read: none may pass 64 bits.
bool DigitsFit(std::string_view value) {
  for (size_t i = 0; i < value.size();) {
    if (!std::isdigit(static_cast<unsigned char>(value[i]))) {
      ++i;
      continue;
    }
    size_t end = i;
    while (end < value.size() && std::isdigit(static_cast<unsigned char>(value[end]))) ++end;
    std::string digits(value.substr(i, end - i));
    errno = 0;
    std::strtoull(digits.c_str(), nullptr, 10);
    if (errno == ERANGE || std::strtoull(digits.c_str(), nullptr, 10) > static_cast<unsigned long long>(INT64_MAX))
      return false;
    i = end;
  }
  return true;
}

void NumberNotes(const rules::Rule& rule, std::string_view value, std::vector<std::string>* warnings) {
  const std::string lower = Lower(value);
  const bool range = lower.find("..") != std::string::npos;
  const bool duration = lower.find(':') != std::string::npos;
  const std::string op = ComparisonBefore(value);
  if (op == "!=" || op == "==" || op == "=>" || op == "=<" || op == "=") {
    std::string reading = op == "!=" || op == "==" || op == "=" ? "equal to" : op == "=>" ? "at least" : "at most";
    std::string fix = op == "!=" ? "<>" : op == "=>" ? ">=" : op == "=<" ? "<=" : "no sign";
    warnings->push_back(Quoted(op) + " is no comparison of the value syntax: the value reads as " + reading +
                        " the number; write " + (fix == "no sign" ? "the number alone" : Quoted(fix)) +
                        (op == "!=" ? " for not equal" : ""));
  }
  if (duration || rule.PropertyFlags() & 0x0008) return;
  // After each number: the unit letters the syntax looks for, and what else was typed.
  size_t i = 0;
  while (i < lower.size() && !std::isdigit(static_cast<unsigned char>(lower[i]))) ++i;
  size_t number_end = i;
  while (number_end < lower.size() && std::isdigit(static_cast<unsigned char>(lower[number_end]))) ++number_end;
  if (i == lower.size()) return;
  const std::string number = lower.substr(i, number_end - i);
  std::string rest = lower.substr(number_end);
  if (range) rest = rest.substr(0, rest.find(".."));
  size_t start = rest.find_first_not_of(" \t");
  rest = start == std::string::npos ? std::string() : rest.substr(start);
  if (!rest.empty() && rest[0] == '.' && rest.size() > 1 && std::isdigit(static_cast<unsigned char>(rest[1]))) {
    warnings->push_back("the fraction in " + Quoted(value) + " is ignored: sizes and counts are whole numbers (" +
                        number + " is read); write a smaller unit for a fraction (\"2.5 MB\" is \"2560 KB\")");
    return;
  }
  // The word after the number: a unit, a size letter without its "B", or something ignored.
  const std::string word = rest.substr(0, rest.find_first_of(" \t"));
  if (number == "0" || number.empty() || word.empty()) return;
  const bool letter_only = word.size() == 1 && std::string_view("kmgt").find(word[0]) != std::string_view::npos;
  const bool unit = word == "b" || word == "byte" || word == "bytes" ||
                    ((word.size() == 2 || (word.size() == 3 && word[1] == 'i')) &&
                     std::string_view("kmgt").find(word[0]) != std::string_view::npos && word.back() == 'b');
  if (letter_only) {
    const char letter = static_cast<char>(std::toupper(static_cast<unsigned char>(word[0])));
    warnings->push_back(Quoted(value) + " reads as " + number + " (a size letter without \"B\" is no unit); write " +
                        Quoted(number + " " + letter + "B") + " for " + number + " " + letter + "iB");
  } else if (unit && word[0] == 't') {
    warnings->push_back(Quoted(value) + " reads as 0: a terabyte unit gives 0 in the program's value syntax; "
                        "write the size in GB (1 TB is 1024 GB)");
  } else if (!unit) {
    warnings->push_back(Quoted(rest) + " after the number in " + Quoted(value) + " is ignored");
  }
}

void DateNotes(const rules::Rule& rule, std::string_view value, std::vector<std::string>* warnings) {
  // "2026-05": a year and a month, which the date syntax does not read as a month.
  std::string_view v = value;
  while (!v.empty() && (v.front() == '>' || v.front() == '<' || v.front() == '=' || v.front() == ' ')) v.remove_prefix(1);
  size_t digits = 0;
  while (digits < v.size() && std::isdigit(static_cast<unsigned char>(v[digits]))) ++digits;
  if (digits == 4 && v.size() >= 6 && v.size() <= 7 && v[4] == '-') {
    warnings->push_back(Quoted(value) + " reads as " + rules::FormatRuleValue(rule) +
                        ", not as a month; for the whole month write a range of dates, "
                        "such as \"" + std::string(v) + "-01 .. " + std::string(v) + "-31\"");
  }
}

}  // namespace

std::string ValueHint(int32_t kind) {
  std::string hint;
  if (kind == rules::kKindDate) {
    hint = std::string(kDateHint) + "\nPeriods:";
    for (int i = 1; i <= rules::kPeriodCount; ++i) hint += std::string(i > 1 ? ", " : " ") + std::string(rules::PeriodWord(i));
  } else {
    hint = std::string(kNumberHint);
  }
  // One line per example reads badly in a one-line error: the lines are joined.
  std::string joined;
  for (size_t i = 0; i < hint.size(); ++i) {
    if (hint[i] != '\n') {
      joined += hint[i];
      continue;
    }
    const bool after_heading = i > 0 && (hint[i - 1] == '.' || hint[i - 1] == ':');
    joined += after_heading ? " " : "; ";
  }
  return joined;
}

bool CheckValueReading(const rules::Rule& rule, std::string_view value, std::vector<std::string>* warnings,
                       std::string* error) {
  const int32_t kind = rule.Kind();
  if (kind == rules::kKindNumber || kind == rules::kKindDate) {
    if (!DigitsFit(value)) {
      *error = Quoted(value) + " holds a number too large for 64 bits";
      return false;
    }
  }
  if (kind == rules::kKindFloat) {
    std::string text(value);
    size_t at = text.find_first_of("+-0123456789.");
    if (at != std::string::npos) {
      const double d = std::strtod(text.c_str() + at, nullptr);
      if (!std::isfinite(d)) {
        *error = Quoted(value) + " is out of the range of a floating-point number";
        return false;
      }
    }
  }
  if (kind == rules::kKindNumber) NumberNotes(rule, value, warnings);
  if (kind == rules::kKindDate) DateNotes(rule, value, warnings);
  if (rules::IsTextKind(kind) && rule.Kind() == rules::kKindText &&
      (rule.Flags() & rules::cf::kVerbatim) == 0 && !value.empty() && value[0] != '=' &&
      rules::DetectMatchMode(rule.Text()) == rules::kModeRegex) {
    warnings->push_back(Quoted(value) + " is read as a regular expression; for the text as it stands write " +
                        Quoted("=" + std::string(value)) + " (the whole name) or use --literal");
  }
  return true;
}

}  // namespace trovix::cli
