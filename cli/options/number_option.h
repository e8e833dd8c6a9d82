// Numbers given to command-line options. The whole text must be a decimal number within the
// option's range: "1x", "-3" for a count, or a number too large for any integer is an error that
// names the option, never a quietly cut or wrapped value.
//
// Stateless; thread-safe.
#pragma once

#include <charconv>
#include <string>
#include <string_view>

namespace trovix::cli {

// False with a message in *error when `text` is not a whole number in [min, max].
inline bool ParseNumberOption(std::string_view option, std::string_view text, long long min,
                              long long max, long long* value, std::string* error) {
  long long n = 0;
  const char* end = text.data() + text.size();
  auto [stop, ec] = std::from_chars(text.data(), end, n);
  if (text.empty() || ec != std::errc() || stop != end || n < min || n > max) {
    *error = std::string(option) + " needs a whole number from " + std::to_string(min) + " to " +
             std::to_string(max) + ", not \"" + std::string(text) + "\"";
    return false;
  }
  *value = n;
  return true;
}

}  // namespace trovix::cli
