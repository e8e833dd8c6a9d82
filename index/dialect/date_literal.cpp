// ParseDateLiteral (sql_parser.h). Dates are written as the builder writes them, in UTC and to
// the second; the dash form is what people type by habit.
#include <charconv>

#include "index/dialect/sql_parser.h"

namespace trovix::engine::index {
namespace {

// Reads exactly `digits` digits (at most `digits` when `up_to`) at text[*i].
bool Number(std::string_view text, size_t* i, size_t min_digits, size_t max_digits, int* out) {
  size_t j = *i;
  while (j < text.size() && j - *i < max_digits && text[j] >= '0' && text[j] <= '9') ++j;
  if (j - *i < min_digits) return false;
  std::from_chars(text.data() + *i, text.data() + j, *out);
  *i = j;
  return true;
}

bool Char(std::string_view text, size_t* i, char c) {
  if (*i >= text.size() || text[*i] != c) return false;
  ++*i;
  return true;
}

}  // namespace

bool ParseDateLiteral(std::string_view text, base::FileTime* out) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  base::CivilTime c;
  size_t i = 0;
  if (!Number(text, &i, 4, 4, &c.year) || i >= text.size()) return false;
  const char separator = text[i];
  if (separator != '/' && separator != '-') return false;
  ++i;
  if (!Number(text, &i, 1, 2, &c.month) || !Char(text, &i, separator) || !Number(text, &i, 1, 2, &c.day))
    return false;
  if (i < text.size()) {
    if (!Char(text, &i, ' ') && !Char(text, &i, 'T')) return false;
    if (!Number(text, &i, 1, 2, &c.hour) || !Char(text, &i, ':') || !Number(text, &i, 2, 2, &c.minute))
      return false;
    if (i < text.size() && (!Char(text, &i, ':') || !Number(text, &i, 2, 2, &c.second))) return false;
    if (i != text.size()) return false;
  }
  if (!base::IsValidCivil(c)) return false;
  *out = base::FileTimeFromCivil(c);
  return true;
}

}  // namespace trovix::engine::index
