#include "cli/output/output_sink.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "cli/output/json_text.h"
#include "cli/output/terminal_text.h"
#include "engine/search/search_panel.h"
#include "props/fetcher.h"
#include "props/property_key.h"
#include "rules/value/value_format.h"

namespace trovix::cli {
namespace {

// Results gathered before one write: large enough that a big result list costs few system
// calls, small enough not to matter in memory.
constexpr size_t kGatherSize = 256 * 1024;

bool IsRawPathProperty(const props::PropertyInfo& p) {
  return p.hash == props::hash::kItemPathDisplay || p.hash == props::hash::kItemNameDisplay;
}

std::string RawText(props::ShellItem& item, const props::PropertyInfo& p) {
  if (p.hash == props::hash::kItemPathDisplay) return item.path();
  return std::string(item.name());
}

void AppendItemJsonValue(std::string& out, props::ShellItem& item, const props::PropertyInfo& p) {
  if (IsRawPathProperty(p)) return AppendJsonString(out, RawText(item, p));
  AppendJsonValue(out, props::GetCachedValue(item, p)->value);
}

}  // namespace

OutputSink::OutputSink(OutputOptions options, std::FILE* out, std::FILE* err)
    : options_(std::move(options)),
      out_(out),
      err_(err),
      gather_(out && !isatty(fileno(out))),
      terminal_(out && !gather_) {
  if (options_.color) colors_ = LsColors::FromEnvironment();
}

OutputSink::~OutputSink() {
  std::lock_guard lock(mutex_);
  Drain();
}

void OutputSink::Write(std::string_view text) {
  if (!gather_) {
    Put(text);
    return;
  }
  pending_.append(text);
  if (pending_.size() >= kGatherSize) Drain();
}

void OutputSink::Drain() {
  if (pending_.empty()) return;
  Put(pending_);
  pending_.clear();
}

std::string OutputSink::DisplayPath(const std::string& path) const {
  for (const auto& [absolute, given] : options_.relative_roots) {
    if (path.size() <= absolute.size() || path.compare(0, absolute.size(), absolute) != 0) continue;
    if (absolute != "/" && path[absolute.size()] != '/') continue;
    std::string rest = path.substr(absolute == "/" ? 1 : absolute.size() + 1);
    if (given.empty()) return rest;
    return given + (given.back() == '/' ? "" : "/") + rest;
  }
  return path;
}

void OutputSink::Put(std::string_view text) {
  if (write_error_ != 0) return;
  // A write that fails (a full disk, a closed pipe) ends the search: nothing after it could
  // be delivered either.
  if (std::fwrite(text.data(), 1, text.size(), out_) != text.size() || std::fflush(out_) != 0) {
    write_error_ = errno != 0 ? errno : EIO;
    if (panel_) panel_->RequestStop();
  }
}

void OutputSink::ReportError(const std::string& path, int error) {
  std::lock_guard lock(mutex_);
  ++errors_;
  if (options_.no_messages) return;
  if (status_shown_) {
    std::fprintf(err_, "\r\033[K");
    status_shown_ = false;
  }
  const std::string shown = isatty(fileno(err_)) ? TerminalSafe(path) : path;
  std::fprintf(err_, "trovix-cli: %s: %s\n", shown.c_str(), std::strerror(error));
}

void OutputSink::Notice(const std::string& text) {
  std::lock_guard lock(mutex_);
  if (options_.no_messages) return;
  if (status_shown_) {
    std::fprintf(err_, "\r\033[K");
    status_shown_ = false;
  }
  std::fprintf(err_, "trovix-cli: %s\n", (isatty(fileno(err_)) ? TerminalSafe(text) : text).c_str());
}

void OutputSink::ReportNotAnswering(const std::string& path) {
  {
    std::lock_guard lock(mutex_);
    ++errors_;
  }
  Notice(engine::NotAnsweringText(path));
}

std::string OutputSink::Cell(std::string_view text) const {
  // A title or an excerpt is as much the file's say as its name: on a terminal none of it may
  // reach the screen as an escape sequence.
  return ColumnValue(text, terminal_);
}

std::string OutputSink::Header() const {
  if (options_.format != OutputFormat::kColumns) return {};
  std::string line;
  for (size_t i = 0; i < options_.columns.size(); ++i)
    line += (i ? "\t" : "") + Cell(options_.columns[i] ? options_.columns[i]->label : std::string(kExcerptColumn));
  return line + "\n";
}

std::string OutputSink::Format(props::ShellItem& item) const {
  switch (options_.format) {
    case OutputFormat::kPaths:
      return item.path() + "\n";
    case OutputFormat::kNulPaths:
      return item.path() + std::string(1, '\0');
    case OutputFormat::kColumns: {
      std::string line;
      for (size_t i = 0; i < options_.columns.size(); ++i) {
        if (i) line += '\t';
        if (!options_.columns[i]) {
          line += Cell(item.hit_excerpt());
          continue;
        }
        const props::PropertyInfo& p = *options_.columns[i];
        line += Cell(IsRawPathProperty(p) ? RawText(item, p)
                                          : rules::DisplayValue(p, props::GetCachedValue(item, p)->value));
      }
      return line + "\n";
    }
    case OutputFormat::kJson: {
      std::string line = "{\"System.ItemPathDisplay\":";
      AppendJsonString(line, item.path());
      // Only an item of a drive that is not mounted says so: what it shows is the index's.
      if (item.offline()) line += ",\"offline\":true";
      for (const props::PropertyInfo* p : options_.columns) {
        if (!p) {
          line += ",\"excerpt\":";
          AppendJsonString(line, item.hit_excerpt());
          continue;
        }
        if (p->hash == props::hash::kItemPathDisplay) continue;
        line += ',';
        AppendJsonString(line, p->name);
        line += ':';
        AppendItemJsonValue(line, item, *p);
      }
      return line + "}\n";
    }
  }
  return {};
}

void OutputSink::ShowAdvice(uint32_t notify_bit, const std::string& text) {
  if (!text.empty()) advice_.emplace_back(notify_bit, text);
}

void OutputSink::Print(props::ShellItem& item) {
  if (options_.deliver) {
    options_.deliver(DisplayPath(item.path()));
    ++printed_;
    return;
  }
  // Paths, the common case, go out without a line built first; a terminal gets them made
  // safe to show (and painted, when colours are on), a pipe byte for byte.
  if (options_.format == OutputFormat::kPaths || options_.format == OutputFormat::kNulPaths) {
    const std::string& path = options_.relative_roots.empty() ? item.path() : DisplayPath(item.path());
    if (terminal_ || colors_) {
      std::string shown = terminal_ ? TerminalSafe(path) : path;
      Write(colors_ ? colors_->Paint(shown, item) : shown);
    } else {
      Write(path);
    }
    Write(options_.format == OutputFormat::kPaths ? std::string_view("\n", 1) : std::string_view("\0", 1));
  } else {
    Write(Format(item));
  }
  ++printed_;
}

void OutputSink::SetStatus(const std::string& text) {
  if (!options_.progress) return;
  std::lock_guard lock(mutex_);
  // One status line, rewritten in place: cut to the terminal's width so that it never wraps
  // onto a second line the next rewrite would leave behind, and with the folder names in it
  // made safe to show.
  std::string line = TerminalSafe(text);
  size_t columns = 80;
  struct winsize size {};
  if (ioctl(fileno(err_), TIOCGWINSZ, &size) == 0 && size.ws_col > 1) columns = size.ws_col;
  size_t shown = 0, cut = 0;
  for (; cut < line.size(); ++cut) {
    if ((static_cast<unsigned char>(line[cut]) & 0xC0) == 0x80) continue;  // inside a character
    if (shown == columns - 1) break;
    ++shown;
  }
  line.resize(cut);
  std::fprintf(err_, "\r\033[K%s", line.c_str());
  std::fflush(err_);
  status_shown_ = true;
}

void OutputSink::SearchState(bool running, std::shared_ptr<const rules::RuleSet>) {
  std::lock_guard lock(mutex_);
  if (running) {
    // Told before the search's worker starts, so the header always precedes the rows.
    Write(Header());
    return;
  }
  if (!options_.progress) return;
  if (status_shown_) std::fprintf(err_, "\r\033[K");
  status_shown_ = false;
}

int OutputSink::AddResult(const props::ShellItemPtr& item) {
  std::lock_guard lock(mutex_);
  if (options_.limit >= 0 && !options_.sort && taken_ >= options_.limit) return 1;
  if (options_.accept && !options_.accept(*item)) return 1;
  ++taken_;
  if (options_.quiet) {
    // Whether anything is found is all that is asked: the first result answers it.
    ++printed_;
    if (panel_) panel_->RequestStop();
    return 0;
  }
  if (options_.sort) {
    held_.push_back(item);
  } else {
    if (status_shown_) {
      std::fprintf(err_, "\r\033[K");
      status_shown_ = false;
    }
    Print(*item);
    if (options_.limit >= 0 && taken_ >= options_.limit && panel_) panel_->RequestStop();
  }
  return 0;
}

void OutputSink::Finish() {
  std::lock_guard lock(mutex_);
  if (options_.sort) {
    std::stable_sort(held_.begin(), held_.end(), [&](const auto& a, const auto& b) {
      return engine::CompareItems(*a, *b, options_.sort_options) < 0;
    });
    size_t n = options_.limit >= 0 ? std::min<size_t>(held_.size(), static_cast<size_t>(options_.limit)) : held_.size();
    for (size_t i = 0; i < n; ++i) Print(*held_[i]);
    held_.clear();
  }
  Drain();
  if (write_error_ == 0 && std::fflush(out_) != 0) write_error_ = errno != 0 ? errno : EIO;
}

}  // namespace trovix::cli
