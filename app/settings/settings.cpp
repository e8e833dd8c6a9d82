#include "app/settings/settings.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <system_error>

#include "base/clock.h"
#include "base/string_table.h"
#include "props/file_kinds.h"

namespace trovix::app {
namespace {

constexpr std::string_view kGeneral = "general";
constexpr std::string_view kFileTypes = "File types";
constexpr uint32_t kFileTimeSize = 8;

std::string LowerAscii(std::string s) {
  for (char& c : s) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return s;
}

bool LessNoCase(const FileTypeCategory& a, const FileTypeCategory& b) {
  return LowerAscii(a.name) < LowerAscii(b.name);
}

// A program's path found by $PATH, as the registered application paths are found on Windows.
std::string FindOnPath(std::string_view name) {
  const char* path = std::getenv("PATH");
  if (path == nullptr || name.empty()) return {};
  std::string_view rest = path;
  while (true) {
    size_t colon = rest.find(':');
    std::string_view folder = rest.substr(0, colon);
    if (!folder.empty()) {
      std::filesystem::path candidate = std::filesystem::path(folder) / name;
      std::error_code ec;
      auto status = std::filesystem::status(candidate, ec);
      if (!ec && std::filesystem::is_regular_file(status) &&
          (status.permissions() & std::filesystem::perms::others_exec) !=
              std::filesystem::perms::none) {
        return candidate.string();
      }
    }
    if (colon == std::string_view::npos) break;
    rest.remove_prefix(colon + 1);
  }
  return {};
}

// A bare file name is taken to be in the program's folder.
std::string BesideProgram(const std::string& name, const StoreFolders& folders) {
  if (name.empty() || name.find('/') != std::string::npos) return name;
  return folders.program_folder + name;
}

// An 8-byte file time block, or `fallback` when the block is missing or of another size.
base::FileTime ReadFileTime(const SettingsSection& section, std::string_view name,
                            base::FileTime fallback) {
  uint8_t bytes[kFileTimeSize];
  uint32_t length = kFileTimeSize;
  if (section.ReadBinary(name, bytes, &length) != kSettingsOk || length != kFileTimeSize) {
    return fallback;
  }
  uint64_t value = 0;
  for (int i = kFileTimeSize - 1; i >= 0; --i) value = value << 8 | bytes[i];
  return static_cast<base::FileTime>(value);
}

void WriteFileTime(const SettingsSection& section, std::string_view name, base::FileTime time) {
  uint8_t bytes[kFileTimeSize];
  uint64_t value = static_cast<uint64_t>(time);
  for (uint32_t i = 0; i < kFileTimeSize; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
  section.WriteBinary(name, bytes, kFileTimeSize);
}

int32_t DefaultThumbSize(const SettingsEnvironment& env) {
  if (env.shell_thumbnail_size > 0) return env.shell_thumbnail_size;
  // 96 pixels, a twentieth larger for every pixel of small icons beyond 16 (larger fonts).
  int32_t extra = std::max(0, env.small_icon_width - 16);
  return 96 * (20 + extra) / 20;
}

std::vector<FileTypeCategory> ReadFileTypes(const SettingsStore& store) {
  SettingsSection section = store.Open(kFileTypes, true);
  std::vector<FileTypeCategory> types;
  for (const std::string& name : section.ValueNames()) {
    std::string extensions;
    if (section.ReadString(name, &extensions) != kSettingsOk) continue;
    types.push_back(FileTypeCategory{LowerAscii(name), std::move(extensions)});
  }
  if (types.empty()) return DefaultFileTypes();
  std::stable_sort(types.begin(), types.end(), LessNoCase);
  return types;
}

}  // namespace

std::vector<FileTypeCategory> DefaultFileTypes() {
  // The kinds table owns the defaults; settings only lower-case the names they store.
  std::vector<FileTypeCategory> types;
  for (const props::FileKind& kind : props::DefaultFileKinds())
    types.push_back(FileTypeCategory{LowerAscii(kind.name), kind.patterns});
  std::stable_sort(types.begin(), types.end(), LessNoCase);
  return types;
}

SettingsEnvironment DefaultSettingsEnvironment(const StoreFolders& folders,
                                               uint32_t storage_mode) {
  SettingsEnvironment env;
  env.storage_mode = storage_mode;
  env.folders = folders;
  env.find_program = FindOnPath;
  return env;
}

Settings LoadSettings(const SettingsStore& store, const SettingsEnvironment& env) {
  if (std::string problem = store.OpenProblem(); !problem.empty() && env.diagnostics != nullptr) {
    *env.diagnostics << problem << '\n';
  }
  const base::FileTime now = base::NowUtc();
  const SettingsSection general = store.Open(kGeneral, true);
  Settings s;
  uint32_t value = 0;

  s.bPersistSettings = env.storage_mode;
  if (general.ReadInt("bPersistSettings", &value) == kSettingsOk && value <= kStorageFile) {
    s.bPersistSettings = value;
  }
  s.bUseTrans = env.translation_loaded ? general.GetFlags("bUseTrans", 1) : 1;
  const bool translated = env.translation_loaded && s.bUseTrans != 0;

  uint32_t flags = env.show_all_hidden ? kDefaultFlagsShowAll : kDefaultFlags;
  if (translated) flags |= kFlagTranslation;
  s.binFlags = general.GetFlags("binFlags", flags);
  // Prefixing long paths only matters where the system would refuse them otherwise.
  if (env.long_paths_enabled) s.binFlags &= ~kFlagLongPathPrefix;

  s.bin1OffNotify = general.GetFlags("bin1OffNotify", 0);
  s.nUsecount = general.GetFlags("nUsecount", 0) + 1;
  s.binVer = general.GetFlags("binVer", 0);
  s.binUpdate = ReadFileTime(general, "binUpdate", now);
  s.binInstall = ReadFileTime(general, "binInstall", now);
  if (s.binVer < env.running_version) {
    // A new version starts its own count and its own dates.
    s.nUsecount = 1;
    s.binUpdate = now;
    s.binInstall = now;
  }

  const int32_t thumb_default = DefaultThumbSize(env);
  s.nThumbSize = general.GetInt("nThumbSize", thumb_default);
  if (s.nThumbSize < 32 || s.nThumbSize > 500) s.nThumbSize = thumb_default;

  s.bSantasLittleHelper = general.GetFlags("bSantasLittleHelper", 1);
  if (s.bSantasLittleHelper == 0) s.binFlags &= ~kFlagBalloonHelp;

  s.bIndexOnBattery = general.GetFlags("bIndexOnBattery", 0) != 0 ? 1 : 0;

  s.nMaxStreamExtractSize = general.GetFlags("nMaxStreamExtractSize", 0x300000);
  if (s.nMaxStreamExtractSize < 10'000) s.nMaxStreamExtractSize = 0;

  // Read, never written: it is there only when the user set it. Under a tenth of a second
  // every busy server would be left behind; over an hour is for ever.
  s.nAnswerTimeout = general.GetFlags("nAnswerTimeout", 10'000);
  if (s.nAnswerTimeout != 0 && (s.nAnswerTimeout < 100 || s.nAnswerTimeout > 3'600'000)) s.nAnswerTimeout = 10'000;

  s.binSearchFlags = general.GetFlags("binSearchFlags", 8) & ~uint32_t{0x1000};
  s.binFileOpFlags = general.GetFlags("binFileOpFlags", 0) & ~uint32_t{1 | 32};

  std::string text;
  if (general.ReadString("szTextViewerPath", &text) == kSettingsOk) {
    s.szTextViewerPath = BesideProgram(text, env.folders);
  } else {
    s.szTextViewerPath = env.find_program ? env.find_program("scrivo2") : std::string();
    if (s.szTextViewerPath.empty()) s.szTextViewerPath = kDefaultTextViewer;
  }
  s.szFileCountRule = general.GetString("szFileCountRule", "*");
  s.szSimplePropertyList = general.GetString("szSimplePropertyList", "System.ItemNameDisplay");
  s.nCharsAutoFilter = std::clamp(general.GetInt("nCharsAutoFilter", 3), 0, 12);
  s.nDefCategory = general.GetInt("nDefCategory", env.default_category);
  s.szGrepExcludeTypes = LowerAscii(general.GetString("szGrepExcludeTypes", ""));
  s.rgbViewBgcol = general.GetFlags("rgbViewBgcol", 0xFFFFFFFF);

  if (general.ReadString("szPluginINI", &text) == kSettingsOk) {
    s.szPluginINI = BesideProgram(text, env.folders);
  } else {
    s.szPluginINI = env.folders.user_folder + "tcplugins.ini";
  }
  if (env.set_commander_ini && std::getenv("COMMANDER_INI") == nullptr) {
    std::error_code ec;
    // Plug-ins look for their configuration through this variable.
    if (std::filesystem::is_regular_file(s.szPluginINI, ec)) {
      setenv("COMMANDER_INI", s.szPluginINI.c_str(), 0);
    }
  }

  s.fileTypes = ReadFileTypes(store);
  if (env.find_program) s.orbweavePath = env.find_program("orbweave");
  return s;
}

SettingsStatus SaveSettings(SettingsStore& store, const Settings& s,
                            const SettingsEnvironment& env, const SaveOptions& options) {
  {
    const SettingsSection general = store.Open(kGeneral, false);
    if (env.translation_loaded) general.WriteInt("bUseTrans", s.bUseTrans != 0 ? 1 : 0);
    general.WriteInt("bPersistSettings", s.bPersistSettings);
    if (s.bPersistSettings == kStorageNone && !options.force) return store.Commit();

    general.WriteInt("binFlags", s.binFlags);
    general.WriteInt("bin1OffNotify", s.bin1OffNotify);
    general.WriteInt("nUsecount", s.nUsecount);
    general.WriteInt("binVer", env.running_version);
    WriteFileTime(general, "binUpdate", s.binUpdate);
    WriteFileTime(general, "binInstall", s.binInstall);
    general.WriteInt("nThumbSize", static_cast<uint32_t>(s.nThumbSize));
    general.WriteInt("bSantasLittleHelper", s.bSantasLittleHelper);
    general.WriteInt("nMaxStreamExtractSize", s.nMaxStreamExtractSize);
    general.WriteInt("binSearchFlags", s.binSearchFlags);
    general.WriteInt("binFileOpFlags", s.binFileOpFlags);
    general.WriteString("szTextViewerPath", s.szTextViewerPath);
    general.WriteString("szFileCountRule", s.szFileCountRule);
    general.WriteString("szSimplePropertyList", s.szSimplePropertyList);
    general.WriteInt("nCharsAutoFilter", static_cast<uint32_t>(s.nCharsAutoFilter));
    general.WriteInt("nDefCategory", static_cast<uint32_t>(s.nDefCategory));
    general.WriteString("szPluginINI", s.szPluginINI);

    const SettingsSection types = store.Open(kFileTypes, false);
    types.DeleteValues();
    for (const FileTypeCategory& category : s.fileTypes) {
      types.WriteString(category.name, category.extensions);
    }

    general.WriteString("szGrepExcludeTypes", s.szGrepExcludeTypes);
  }
  if (options.save_lists) options.save_lists(store);
  store.Open(kGeneral, false).WriteInt("rgbViewBgcol", s.rgbViewBgcol);
  return store.Commit();
}

SettingsStatus ResetSettings(SettingsStore& store) { return store.DeleteAllSections(); }

}  // namespace trovix::app
