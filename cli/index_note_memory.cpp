#include "cli/index_note_memory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string_view>

#include "index/sqlite/index_database.h"
#include "platform/atomic_file.h"
#include "platform/regular_file.h"

namespace trovix::cli {
namespace {

// A day's records are a few roots; a file far larger is not ours.
constexpr size_t kNotesLimit = 256 * 1024;

std::string NotesFile() {
  // Beside the default index: the cache folder, whichever index --index names.
  const std::string index = engine::index::DefaultIndexPath();
  return index.substr(0, index.find_last_of('/') + 1) + "index-notes";
}

std::string LocalDay(std::time_t now) {
  std::tm local{};
  localtime_r(&now, &local);
  char day[16];
  std::strftime(day, sizeof day, "%Y-%m-%d", &local);
  return day;
}

}  // namespace

bool FirstIndexNoteToday(const std::string& root_text, std::time_t now) {
  const std::string file = NotesFile();
  const std::string day = LocalDay(now);
  std::string bytes;
  platform::ReadRegularFile(file, &bytes, kNotesLimit);
  // Records are "DAY<TAB>ROOT" ended by NUL: a root may hold any byte but NUL.
  std::string kept;
  std::string_view rest = bytes;
  while (!rest.empty()) {
    const size_t end = rest.find('\0');
    const std::string_view record = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    const size_t tab = record.find('\t');
    if (tab == std::string_view::npos || record.substr(0, tab) != day) continue;
    if (record.substr(tab + 1) == root_text) return false;
    kept.append(record);
    kept += '\0';
  }
  kept += day + "\t" + root_text;
  kept += '\0';
  std::error_code ec;
  const std::string folder = file.substr(0, file.find_last_of('/'));
  std::filesystem::create_directories(folder, ec);
  // A note that cannot be remembered is only given again; the command goes on.
  platform::WriteFileAtomically(file, kept);
  return true;
}

}  // namespace trovix::cli
