#include "engine/walk/status_throttle.h"

#include <chrono>
#include <utility>
#include <vector>

#include "base/utf.h"

namespace trovix::engine {
namespace {

// Byte offsets of the code points of valid UTF-8 `s`, plus s.size() at the end.
std::vector<size_t> CodePointStarts(const std::string& s) {
  std::vector<size_t> starts;
  for (size_t i = 0; i < s.size(); ++i) {
    if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) starts.push_back(i);
  }
  starts.push_back(s.size());
  return starts;
}

}  // namespace

uint64_t SteadyTickMs() {
  using namespace std::chrono;
  return static_cast<uint64_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

std::string ShortenPathForStatus(std::string_view path, size_t max_chars) {
  std::string shown = base::ToDisplayUtf8(path);
  std::vector<size_t> starts = CodePointStarts(shown);
  size_t chars = starts.size() - 1;
  if (chars <= max_chars) return shown;
  constexpr std::string_view kEllipsis = "...";
  if (max_chars <= kEllipsis.size()) return std::string(kEllipsis.substr(0, max_chars));
  size_t room = max_chars - kEllipsis.size();
  // The tail is the last component with its separator, or as much of its end as fits.
  size_t slash = shown.rfind('/');
  size_t tail_chars = 0;
  if (slash != std::string::npos) {
    for (size_t i = 0; i < chars; ++i) {
      if (starts[i] >= slash) ++tail_chars;
    }
  }
  // Leave at least a few leading characters so the path's origin still shows.
  size_t head_min = room < 8 ? room / 2 : 8;
  if (tail_chars == 0 || tail_chars > room - head_min) tail_chars = room - head_min;
  size_t head_chars = room - tail_chars;
  std::string out = shown.substr(0, starts[head_chars]);
  out += kEllipsis;
  out += shown.substr(starts[chars - tail_chars]);
  return out;
}

std::string SearchingInText(std::string_view folder_path) {
  std::string text(kSearchingInFormat);
  text.replace(text.find("%s"), 2, ShortenPathForStatus(folder_path));
  return text;
}

StatusThrottle::StatusThrottle(ResultSink* sink, TickSource ticks) : sink_(sink), ticks_(std::move(ticks)) {}

bool StatusThrottle::FolderEntered(std::string_view folder_path) {
  uint64_t now = ticks_();
  if (now - last_tick_ < kStatusIntervalMs && now >= last_tick_) return false;
  last_tick_ = now;
  if (sink_) sink_->SetStatus(SearchingInText(folder_path));
  return true;
}

}  // namespace trovix::engine
