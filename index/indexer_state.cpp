#include "index/indexer_state.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/atomic_file.h"

namespace trovix::engine::index {
namespace {

constexpr std::string_view kHeader = "trovix indexer activity 1";

// Folder names may hold tabs, newlines and backslashes: each is written escaped, so that one
// line stays one field.
std::string Escape(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (c == '\\') out += "\\\\";
    else if (c == '\t') out += "\\t";
    else if (c == '\n') out += "\\n";
    else out += c;
  }
  return out;
}

std::string Unescape(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      out += text[i];
      continue;
    }
    const char c = text[++i];
    out += c == 't' ? '\t' : c == 'n' ? '\n' : c;
  }
  return out;
}

bool ToInt(const std::string& text, int64_t* out) {
  char* end = nullptr;
  errno = 0;
  const long long v = std::strtoll(text.c_str(), &end, 10);
  if (errno != 0 || end == text.c_str() || *end != '\0') return false;
  *out = v;
  return true;
}

std::string Clock(int64_t when) {
  char stamp[32];
  std::time_t t = static_cast<std::time_t>(when);
  std::tm tm{};
  ::localtime_r(&t, &tm);
  std::strftime(stamp, sizeof stamp, "%H:%M:%S", &tm);
  return stamp;
}

std::string Span(int64_t seconds) {
  if (seconds < 120) return std::to_string(std::max<int64_t>(seconds, 0)) + " s";
  if (seconds < 7200) return std::to_string(seconds / 60) + " min";
  return std::to_string(seconds / 3600) + " h";
}

}  // namespace

std::string ActivityPath(const std::string& db_path) { return db_path + ".activity"; }
std::string PausePath(const std::string& db_path) { return db_path + ".paused"; }

std::string LocalDay(int64_t unix_seconds) {
  char day[16];
  std::time_t t = static_cast<std::time_t>(unix_seconds);
  std::tm tm{};
  ::localtime_r(&t, &tm);
  std::strftime(day, sizeof day, "%Y-%m-%d", &tm);
  return day;
}

std::string FormatIndexerState(const IndexerState& s) {
  std::ostringstream out;
  out << kHeader << "\n";
  out << "pid\t" << s.pid << "\n";
  out << "mode\t" << (s.watching ? "watch" : "update") << "\n";
  out << "activity\t" << Escape(s.activity) << "\n";
  if (!s.paused_why.empty()) out << "paused\t" << Escape(s.paused_why) << "\n";
  out << "written\t" << s.written << "\n";
  if (s.oldest_unwritten > 0) out << "behind_since\t" << s.oldest_unwritten << "\n";
  if (s.unwatched_count > 0) out << "unwatched_count\t" << s.unwatched_count << "\n";
  for (const auto& f : s.unwatched) out << "unwatched\t" << Escape(f) << "\n";
  for (const auto& [f, kind] : s.no_events) out << "no_events\t" << Escape(kind) << "\t" << Escape(f) << "\n";
  if (s.rescan_seconds > 0) out << "rescan_seconds\t" << s.rescan_seconds << "\n";
  char cpu[32];
  std::snprintf(cpu, sizeof cpu, "%.3f", s.cpu_seconds_today);
  out << "cpu_day\t" << s.cpu_day << "\n";
  out << "cpu_seconds\t" << cpu << "\n";
  return out.str();
}

std::optional<IndexerState> ParseIndexerState(const std::string& text) {
  std::istringstream in(text);
  std::string line;
  if (!std::getline(in, line) || line != kHeader) return std::nullopt;
  IndexerState s;
  while (std::getline(in, line)) {
    const size_t tab = line.find('\t');
    if (tab == std::string::npos) return std::nullopt;
    const std::string key = line.substr(0, tab), value = line.substr(tab + 1);
    int64_t number = 0;
    bool ok = true;
    if (key == "pid") ok = ToInt(value, &s.pid);
    else if (key == "mode") s.watching = value == "watch";
    else if (key == "activity") s.activity = Unescape(value);
    else if (key == "paused") s.paused_why = Unescape(value);
    else if (key == "written") ok = ToInt(value, &s.written);
    else if (key == "behind_since") ok = ToInt(value, &s.oldest_unwritten);
    else if (key == "unwatched_count") ok = ToInt(value, &s.unwatched_count);
    else if (key == "unwatched") s.unwatched.push_back(Unescape(value));
    else if (key == "rescan_seconds") ok = ToInt(value, &number), s.rescan_seconds = static_cast<int>(number);
    else if (key == "cpu_day") s.cpu_day = value;
    else if (key == "cpu_seconds") {
      char* end = nullptr;
      s.cpu_seconds_today = std::strtod(value.c_str(), &end);
      ok = end != value.c_str() && std::isfinite(s.cpu_seconds_today) && s.cpu_seconds_today >= 0;
    } else if (key == "no_events") {
      const size_t second = value.find('\t');
      if (second == std::string::npos) return std::nullopt;
      s.no_events.emplace_back(Unescape(value.substr(second + 1)), Unescape(value.substr(0, second)));
    }
    // Keys a newer program writes are passed over.
    if (!ok) return std::nullopt;
  }
  if (s.pid <= 0) return std::nullopt;
  return s;
}

bool WriteIndexerState(const std::string& db_path, const IndexerState& state) {
  return platform::WriteFileAtomically(ActivityPath(db_path), FormatIndexerState(state)) == 0;
}

std::optional<IndexerState> ReadIndexerState(const std::string& db_path) {
  std::ifstream in(ActivityPath(db_path), std::ios::binary);
  if (!in) return std::nullopt;
  std::string text;
  // The file is a few hundred bytes; anything far larger is not ours.
  text.resize(1 << 20);
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(in.gcount()));
  return ParseIndexerState(text);
}

bool IndexPausedByUser(const std::string& db_path) {
  struct stat st;
  return ::stat(PausePath(db_path).c_str(), &st) == 0;
}

bool SetIndexPaused(const std::string& db_path, bool paused, std::string* error) {
  const std::string path = PausePath(db_path);
  if (!paused) {
    if (::unlink(path.c_str()) == 0 || errno == ENOENT) return true;
    if (error) *error = "cannot remove " + path + ": " + std::strerror(errno);
    return false;
  }
  if (IndexPausedByUser(db_path)) return true;
  // Paused before any index was made: the switch waits in the index's folder for the first one.
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
  const int code = platform::WriteFileAtomically(path, "paused by the user\n");
  if (code == 0) return true;
  if (error) *error = "cannot write " + path + ": " + std::strerror(code);
  return false;
}

bool IndexerRunning(const IndexerState& state) {
  return state.pid > 0 && (::kill(static_cast<pid_t>(state.pid), 0) == 0 || errno == EPERM);
}

std::vector<std::string> IndexerStateLines(const std::string& db_path, int64_t now) {
  std::vector<std::string> lines;
  const std::optional<IndexerState> state = ReadIndexerState(db_path);
  const bool user_paused = IndexPausedByUser(db_path);
  const bool running = state && IndexerRunning(*state);
  std::string doing;
  if (running) {
    doing = std::string(state->watching ? "watching" : "updating") + ", ";
    doing += !state->paused_why.empty() ? "paused: " + state->paused_why : state->activity;
    doing += " (process " + std::to_string(state->pid) + ")";
  } else {
    doing = "not running (trovix-cli index watch keeps the index live)";
  }
  // A pause asked for is said even when no indexer runs: it holds back the next one too.
  if (user_paused && !(running && !state->paused_why.empty()))
    doing += "; paused by the user (trovix-cli index resume)";
  lines.push_back("indexer:     " + doing);
  if (running && state->watching) {
    if (state->oldest_unwritten > 0)
      lines.push_back("behind:      " + Span(now - state->oldest_unwritten) + " (the oldest change not yet written, at " +
                      Clock(state->oldest_unwritten) + ")");
    else
      lines.push_back("behind:      no (every change seen is written)");
    const std::string rescan =
        state->rescan_seconds > 0 ? " every " + Span(state->rescan_seconds) : std::string(" from time to time");
    if (state->unwatched_count > 0) {
      std::string line = "not watched: " + std::to_string(state->unwatched_count) +
                         " folder(s) over the kernel's limit of watches (fs.inotify.max_user_watches), rescanned" +
                         rescan;
      lines.push_back(line);
      for (const auto& f : state->unwatched) lines.push_back("             " + f);
      if (state->unwatched_count > static_cast<int64_t>(state->unwatched.size()))
        lines.push_back("             and " +
                        std::to_string(state->unwatched_count - static_cast<int64_t>(state->unwatched.size())) +
                        " more");
    }
    for (const auto& [folder, kind] : state->no_events)
      lines.push_back("no events:   " + folder + " (" + kind +
                      ": changes made elsewhere send no event; rescanned" + rescan + ")");
  }
  const double today = state && state->cpu_day == LocalDay(now) ? state->cpu_seconds_today : 0;
  char cpu[64];
  std::snprintf(cpu, sizeof cpu, "cpu today:   %.2f s", today);
  lines.push_back(cpu);
  return lines;
}

}  // namespace trovix::engine::index
