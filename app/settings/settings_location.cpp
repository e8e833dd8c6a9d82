#include "app/settings/settings_location.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "platform/no_replace_rename.h"

namespace trovix::app {
namespace {

std::string WithSlash(std::string folder) {
  if (folder.empty() || folder.back() != '/') folder += '/';
  return folder;
}

bool IsFile(const std::string& path) {
  std::error_code ec;
  return std::filesystem::is_regular_file(path, ec);
}

bool EndsWithIniNoCase(std::string_view name) {
  if (name.size() < 4) return false;
  std::string_view ext = name.substr(name.size() - 4);
  auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  return ext[0] == '.' && lower(ext[1]) == 'i' && lower(ext[2]) == 'n' && lower(ext[3]) == 'i';
}

}  // namespace

StoreFolders DefaultStoreFolders() {
  StoreFolders folders;
  std::error_code ec;
  std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (!ec && exe.has_parent_path()) {
    folders.program_folder = WithSlash(exe.parent_path().string());
  } else {
    std::filesystem::path cwd = std::filesystem::current_path(ec);
    folders.program_folder = ec ? std::string("./") : WithSlash(cwd.string());
  }

  // The XDG rules: a relative $XDG_CONFIG_HOME is to be ignored.
  std::string config;
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  const char* home = std::getenv("HOME");
  if (xdg != nullptr && xdg[0] == '/') {
    config = xdg;
  } else if (home != nullptr && home[0] == '/') {
    config = WithSlash(home) + ".config";
  }
  folders.user_folder = config.empty() ? folders.program_folder : WithSlash(config) + "velmora/";
  return folders;
}

std::string SettingsPathFromSwitch(std::string_view text, const StoreFolders& folders) {
  std::string path(text);
  if (!EndsWithIniNoCase(path)) path += ".ini";
  // The Windows build tests for a drive (a colon); here an absolute path starts with "/".
  if (path.empty() || path.front() != '/') path = WithSlash(folders.program_folder) + path;
  return path;
}

StoreChoice ChooseStore(std::string_view settings_switch, const StoreFolders& folders) {
  StoreChoice choice;
  choice.registry_database = WithSlash(folders.user_folder) + std::string(kRegistryDatabaseName);
  if (!settings_switch.empty()) {
    choice.kind = StoreKind::kFile;
    choice.file_path = SettingsPathFromSwitch(settings_switch, folders);
    return choice;
  }
  for (const std::string& folder : {folders.user_folder, folders.program_folder}) {
    std::string candidate = WithSlash(folder) + std::string(kSettingsFileName);
    if (IsFile(candidate)) {
      choice.kind = StoreKind::kFile;
      choice.file_path = candidate;
      return choice;
    }
  }
  return choice;
}

std::unique_ptr<SettingsStore> OpenChosenStore(const StoreChoice& choice) {
  if (choice.kind == StoreKind::kFile) return SettingsStore::OpenFile(choice.file_path);
  return SettingsStore::OpenRegistry(choice.registry_database);
}

bool SetSettingsFileAside(const std::string& file_path) {
  std::string aside = file_path + ".bak";
  std::remove(aside.c_str());
  return std::rename(file_path.c_str(), aside.c_str()) == 0;
}

std::string SettingsFileForSwitch(const StoreFolders& folders) {
  platform::MakePrivateFolders(folders.user_folder);
  return WithSlash(folders.user_folder) + std::string(kSettingsFileName);
}

}  // namespace trovix::app
