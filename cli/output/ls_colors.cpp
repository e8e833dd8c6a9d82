#include "cli/output/ls_colors.h"

#include <sys/stat.h>

#include <cstdlib>

namespace trovix::cli {
namespace {

// The colours of a terminal without LS_COLORS, as dircolors' own defaults have them.
constexpr std::string_view kDefaults = "di=01;34:ln=01;36:so=01;35:pi=40;33:bd=40;33;01:cd=40;33;01:or=40;31;01:ex=01;32";

bool EndsWith(std::string_view text, std::string_view suffix, bool ignore_case) {
  if (suffix.size() > text.size()) return false;
  text = text.substr(text.size() - suffix.size());
  for (size_t i = 0; i < suffix.size(); ++i) {
    char a = text[i], b = suffix[i];
    if (ignore_case) {
      a = (a >= 'A' && a <= 'Z') ? static_cast<char>(a + 32) : a;
      b = (b >= 'A' && b <= 'Z') ? static_cast<char>(b + 32) : b;
    }
    if (a != b) return false;
  }
  return true;
}

std::string Wrap(std::string_view code, std::string_view text) {
  if (code.empty() || text.empty()) return std::string(text);
  std::string out = "\033[";
  out += code;
  out += 'm';
  out += text;
  out += "\033[0m";
  return out;
}

}  // namespace

bool UseColor(std::string_view choice, bool stdout_is_terminal) {
  if (choice == "always") return true;
  if (choice == "never" || !stdout_is_terminal) return false;
  const char* no_color = std::getenv("NO_COLOR");
  if (no_color != nullptr && *no_color != '\0') return false;
  const char* term = std::getenv("TERM");
  return term == nullptr || std::string_view(term) != "dumb";
}

LsColors LsColors::FromEnvironment() {
  const char* spec = std::getenv("LS_COLORS");
  return Parse(spec != nullptr && *spec != '\0' ? std::string_view(spec) : kDefaults);
}

LsColors LsColors::Parse(std::string_view spec) {
  LsColors colors;
  while (!spec.empty()) {
    const size_t colon = spec.find(':');
    std::string_view entry = spec.substr(0, colon);
    spec = colon == std::string_view::npos ? std::string_view() : spec.substr(colon + 1);
    const size_t eq = entry.find('=');
    if (eq == std::string_view::npos || eq == 0) continue;
    std::string_view key = entry.substr(0, eq), code = entry.substr(eq + 1);
    // A code is digits and semicolons; anything else could smuggle other sequences in.
    if (code.find_first_not_of("0123456789;") != std::string_view::npos) continue;
    if (key.size() > 1 && key[0] == '*') {
      colors.suffixes_.emplace_back(key.substr(1), code);
    } else {
      colors.types_[std::string(key)] = std::string(code);
    }
  }
  return colors;
}

std::string_view LsColors::CodeFor(std::string_view name, props::ShellItem& item) const {
  auto type_code = [&](const char* key) -> std::string_view {
    auto it = types_.find(key);
    return it == types_.end() ? std::string_view() : std::string_view(it->second);
  };
  using platform::FileType;
  const platform::FileStatus* st = item.Status();
  switch (item.Type()) {
    case FileType::kDirectory: return type_code("di");
    case FileType::kSymlink: {
      // A link whose target is gone is an orphan.
      struct stat target;
      if (stat(item.path().c_str(), &target) != 0 && !type_code("or").empty()) return type_code("or");
      return type_code("ln");
    }
    case FileType::kFifo: return type_code("pi");
    case FileType::kSocket: return type_code("so");
    case FileType::kBlockDevice: return type_code("bd");
    case FileType::kCharDevice: return type_code("cd");
    default: break;
  }
  if (st != nullptr && (st->mode & 0111) != 0 && !type_code("ex").empty()) return type_code("ex");
  // Suffixes: an exact-case match first, then one ignoring case, as ls does.
  for (bool ignore_case : {false, true})
    for (auto it = suffixes_.rbegin(); it != suffixes_.rend(); ++it)
      if (EndsWith(name, it->first, ignore_case)) return it->second;
  return type_code("fi");
}

std::string LsColors::Paint(std::string_view shown, props::ShellItem& item) const {
  const size_t slash = shown.find_last_of('/');
  std::string_view folder = slash == std::string_view::npos ? std::string_view() : shown.substr(0, slash + 1);
  std::string_view name = slash == std::string_view::npos ? shown : shown.substr(slash + 1);
  auto di = types_.find("di");
  std::string out = Wrap(di == types_.end() ? std::string_view() : std::string_view(di->second), folder);
  out += Wrap(CodeFor(item.name(), item), name);
  return out;
}

}  // namespace trovix::cli
