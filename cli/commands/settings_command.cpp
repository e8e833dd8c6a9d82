// trovix-cli settings: where the settings live, and every stored value listed, read or written
// through the store. A value's type follows its name's prefix, as the program names them: "sz"
// text, "b", "n", "rgb", "lvs" integers, "bin" a flag word or a binary block (shown and typed
// as "hex:" and two hexadecimal digits a byte); names without a prefix (the file kinds) are text.
// A flag word also takes "+BITS" and "-BITS": those bits set or cleared, the others kept.
#include <cstdio>
#include <cstdlib>

#include "cli/cli_store.h"
#include "cli/commands/command_table.h"
#include "cli/commands/store_commands.h"

namespace trovix::cli {
namespace {

enum class ValueKind { kText, kSigned, kUnsigned, kHexWord, kFlagsOrBlock };

constexpr std::string_view kGeneralSection = "general";
constexpr std::string_view kHexPrefix = "hex:";
// The value a settings file keeps in an otherwise empty section; not a setting.
constexpr std::string_view kKeepSectionName = "@";

int Fail(const std::string& message) {
  std::fprintf(stderr, "trovix-cli: %s\n", message.c_str());
  return 2;
}

bool HasPrefix(std::string_view name, std::string_view prefix) {
  // "bin1OffNotify", "szName", "nFreq": the prefix is followed by anything but a small letter,
  // so that a kind named "binaries" stays text.
  if (name.size() < prefix.size() || name.substr(0, prefix.size()) != prefix) return false;
  return name.size() == prefix.size() || !(name[prefix.size()] >= 'a' && name[prefix.size()] <= 'z');
}

ValueKind KindOfName(std::string_view name) {
  if (HasPrefix(name, "sz")) return ValueKind::kText;
  if (HasPrefix(name, "bin")) return ValueKind::kFlagsOrBlock;
  if (HasPrefix(name, "rgb") || HasPrefix(name, "lvs")) return ValueKind::kHexWord;
  if (HasPrefix(name, "n")) return ValueKind::kSigned;
  if (HasPrefix(name, "b")) return ValueKind::kUnsigned;
  return ValueKind::kText;
}

std::string Hex(const std::vector<uint8_t>& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text(kHexPrefix);
  for (uint8_t b : bytes) {
    text += kDigits[b >> 4];
    text += kDigits[b & 15];
  }
  return text;
}

bool ParseHex(std::string_view text, std::vector<uint8_t>* bytes) {
  text.remove_prefix(kHexPrefix.size());
  if (text.size() % 2 != 0) return false;
  auto digit = [](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  for (size_t i = 0; i < text.size(); i += 2) {
    int high = digit(text[i]), low = digit(text[i + 1]);
    if (high < 0 || low < 0) return false;
    bytes->push_back(static_cast<uint8_t>(high << 4 | low));
  }
  return true;
}

// The value as shown, or nullopt when it is not there (or not of its name's type).
std::optional<std::string> ReadValue(const app::SettingsSection& section, const std::string& name) {
  const ValueKind kind = KindOfName(name);
  if (kind == ValueKind::kText) {
    std::string text;
    if (section.ReadString(name, &text) != app::kSettingsOk) return std::nullopt;
    return text;
  }
  if (kind == ValueKind::kFlagsOrBlock) {
    std::vector<uint8_t> bytes;
    if (section.ReadBinary(name, &bytes) == app::kSettingsOk) return Hex(bytes);
  }
  uint32_t value = 0;
  if (section.ReadInt(name, &value) != app::kSettingsOk) return std::nullopt;
  char text[32];
  if (kind == ValueKind::kSigned) {
    std::snprintf(text, sizeof text, "%d", static_cast<int32_t>(value));
  } else if (kind == ValueKind::kUnsigned) {
    std::snprintf(text, sizeof text, "%u", value);
  } else {
    std::snprintf(text, sizeof text, "0x%08X", value);
  }
  return std::string(text);
}

bool ParseInt(const std::string& text, uint32_t* value) {
  if (text.empty()) return false;
  char* end = nullptr;
  long long v = std::strtoll(text.c_str(), &end, 0);
  if (*end != '\0' || v < INT32_MIN || v > UINT32_MAX) return false;
  *value = static_cast<uint32_t>(v);
  return true;
}

// "SavedSearch\0\szName" names section "SavedSearch\0" and value "szName"; a bare name is in
// "general".
void SplitName(const std::string& full, std::string* section, std::string* name) {
  size_t slash = full.rfind('\\');
  if (slash == std::string::npos) {
    *section = kGeneralSection;
    *name = full;
  } else {
    *section = full.substr(0, slash);
    *name = full.substr(slash + 1);
  }
}

void ListSection(const app::SettingsStore& store, const std::string& section) {
  const app::SettingsSection handle = store.Open(section, true);
  if (!section.empty()) {
    for (const std::string& name : handle.ValueNames()) {
      if (name == kKeepSectionName) continue;
      std::optional<std::string> value = ReadValue(handle, name);
      std::printf("%s\t%s\t%s\n", section.c_str(), name.c_str(),
                  value ? value->c_str() : "(unreadable)");
    }
  }
  for (const std::string& sub : handle.SubSections()) {
    ListSection(store, section.empty() ? sub : section + "\\" + sub);
  }
}

// The flag word in effect while it is not stored: its default (binFlags has bits set by
// default, which "+BITS" must keep).
bool EffectiveFlags(const std::string& section, const std::string& name, uint32_t* value) {
  std::string error;
  bool found = false;
  WithEffectiveSettings(
      [&](const app::SettingsStore& effective) {
        found = effective.Open(section, true).ReadInt(name, value) == app::kSettingsOk;
      },
      &error);
  return found;
}

int Set(const std::string& full, const std::string& text) {
  std::string section_name, name;
  SplitName(full, &section_name, &name);
  if (name.empty() || section_name.empty()) return Fail("\"" + full + "\" names no value");
  // The settings file keeps one value a line; the store would refuse these anyway, but the
  // user should hear why.
  if (full.find_first_of("\r\n") != std::string::npos) {
    return Fail("a setting's name cannot hold a line break (CR or LF)");
  }
  if (text.find_first_of("\r\n") != std::string::npos) {
    return Fail("the value of " + name + " cannot hold a line break (CR or LF)");
  }
  const ValueKind kind = KindOfName(name);
  std::vector<uint8_t> bytes;
  uint32_t value = 0;
  const bool is_block = kind == ValueKind::kFlagsOrBlock && text.rfind(kHexPrefix, 0) == 0;
  // "+BITS" and "-BITS" on a flag word set and clear those bits and keep the others.
  const char bit_op =
      kind == ValueKind::kFlagsOrBlock && !text.empty() && (text[0] == '+' || text[0] == '-')
          ? text[0]
          : 0;
  if (is_block && !ParseHex(text, &bytes)) return Fail("\"" + text + "\" is not hex:XXXX...");
  if (bit_op != 0) {
    const std::string bits = text.substr(1);
    if (bits.empty() || bits[0] == '-' || bits[0] == '+' || !ParseInt(bits, &value)) {
      return Fail(name + " needs bits after \"" + std::string(1, bit_op) +
                  "\" (a number, hexadecimal with 0x), not \"" + text + "\"");
    }
  } else if (kind != ValueKind::kText && !is_block && !ParseInt(text, &value)) {
    return Fail(name + " needs a number, not \"" + text + "\"");
  }
  return ChangeCliStore([&](app::SettingsStore& store) {
    const app::SettingsSection section = store.Open(section_name, false);
    if (bit_op != 0) {
      uint32_t now = 0;
      if (section.ReadInt(name, &now) != app::kSettingsOk &&
          !EffectiveFlags(section_name, name, &now)) {
        return Fail(name + " is not a flag word that is set or has a default; set it whole");
      }
      value = bit_op == '+' ? (now | value) : (now & ~value);
    }
    app::SettingsStatus status;
    if (kind == ValueKind::kText) {
      status = section.WriteString(name, text);
    } else if (is_block) {
      status = section.WriteBinary(name, bytes);
    } else {
      status = section.WriteInt(name, value);
    }
    return status == app::kSettingsOk ? 0 : Fail(name + " cannot be stored");
  });
}

}  // namespace

int RunSettingsCommand(const std::vector<std::string>& all_args) {
  std::vector<std::string> args;
  bool raw = false;
  for (const std::string& a : all_args) {
    if (a == "--raw") raw = true;
    else if (a.size() > 1 && a[0] == '-' && args.size() < 2) return Fail(UnknownOptionMessage(*FindCommand("settings"), a));
    else args.push_back(a);
  }
  if (args.empty()) return Fail("settings needs path, list, get or set");
  const std::string& verb = args[0];
  const size_t wanted = verb == "get" ? 2 : verb == "set" ? 3 : 1;
  if (verb != "path" && verb != "list" && verb != "get" && verb != "set") {
    return Fail("unknown settings command \"" + verb + "\"");
  }
  if (args.size() != wanted) return Fail("settings " + verb + ": wrong number of arguments");
  if (raw && verb != "get") return Fail("--raw goes with settings get");
  if (verb == "set") return Set(args[1], args[2]);
  if (verb == "path") {
    // Only says where: asking must not create the store. The path alone on stdout (for
    // scripts), why there on stderr.
    std::printf("%s\n", CliStoreLocation().c_str());
    std::fprintf(stderr,
                 "trovix-cli: the store the desktop program reads too, kept in the per-user folder "
                 "$XDG_CONFIG_HOME/velmora/ beside the plug-in configuration; --settings FILE or "
                 "/I:FILE chooses another\n");
    return 0;
  }
  std::string error;
  std::unique_ptr<app::SettingsStore> store = OpenCliStore(&error);
  if (!store) return Fail(error);
  if (verb == "list") {
    ListSection(*store, "");
    return 0;
  }
  std::string section, name;
  SplitName(args[1], &section, &name);
  std::optional<std::string> value;
  if (!raw && !WithEffectiveSettings([&](const app::SettingsStore& effective) {
        value = ReadValue(effective.Open(section, true), name);
      }, &error)) {
    return Fail(error);
  }
  // Names the settings do not cover (file kinds, the saved lists) are in effect as stored.
  if (!value) value = ReadValue(store->Open(section, true), name);
  if (!value) {
    std::fprintf(stderr, "trovix-cli: %s is not set\n", args[1].c_str());
    return 1;
  }
  std::printf("%s\n", value->c_str());
  return 0;
}

}  // namespace trovix::cli
