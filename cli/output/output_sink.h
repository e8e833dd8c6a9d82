// How trovix-cli shows results: one path per line, NUL-separated paths, tab-separated
// columns with a header row, or one JSON object per line. Results print as they come unless
// they must be sorted first. The search calls the sink on its worker thread; printing
// happens there too, under the sink's lock. Into a terminal each result is written as it
// comes; into a pipe or a file they are gathered into large blocks (a search may find
// hundreds of thousands), all written by Finish or when the sink goes.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/output/ls_colors.h"
#include "engine/results/result_order.h"
#include "engine/results/result_sink.h"

namespace trovix::engine {
class SearchPanel;
}

namespace trovix::cli {

// The column name of the hit excerpt (where a contents rule found its text); it stands in
// the column list as a null entry.
inline constexpr std::string_view kExcerptColumn = "excerpt";

enum class OutputFormat { kPaths, kNulPaths, kColumns, kJson };

struct OutputOptions {
  OutputFormat format = OutputFormat::kPaths;
  std::vector<const props::PropertyInfo*> columns;  // --columns, in order
  bool sort = false;
  engine::SortOptions sort_options;
  int64_t limit = -1;  // -1: no limit
  // A last say on each result before it counts (--type); null takes every one.
  std::function<bool(props::ShellItem&)> accept;
  // Takes each result's path (as it would be shown) instead of printing it (--exec); null prints.
  std::function<void(const std::string& path)> deliver;
  bool progress = false;
  bool color = false;  // paint paths as ls does (LS_COLORS)
  bool quiet = false;        // print nothing; the first result ends the search
  bool no_messages = false;  // do not say which folders could not be read
  // Relative roots give relative paths: a path under `first` (an absolute root) is shown with
  // `second` (the root as given; empty for the current folder) in its place.
  std::vector<std::pair<std::string, std::string>> relative_roots;
};

class OutputSink : public engine::ResultSink {
 public:
  OutputSink(OutputOptions options, std::FILE* out, std::FILE* err);
  ~OutputSink() override;
  void set_panel(engine::SearchPanel* panel) { panel_ = panel; }

  void SetStatus(const std::string& text) override;
  void SearchState(bool running, std::shared_ptr<const rules::RuleSet> rules) override;
  int AddResult(const props::ShellItemPtr& item) override;
  // A folder or root that could not be read: one line on stderr (unless no_messages).
  void ReportError(const std::string& path, int error) override;
  void ShowAdvice(uint32_t notify_bit, const std::string& text) override;
  // One line on stderr (unless no_messages).
  void Notice(const std::string& text) override;
  // Said as a notice, and counted with the errors: the answer lacks what was left behind.
  void ReportNotAnswering(const std::string& path) override;
  // The advice of the last search (printed once by the command), empty when there was none.
  const std::vector<std::pair<uint32_t, std::string>>& advice() const { return advice_; }
  void ReportUnread(const std::vector<engine::UnreadCount>& counts) override { unread_ = counts; }
  // The files the last search met and could not read (printed once by the command).
  const std::vector<engine::UnreadCount>& unread() const { return unread_; }

  // Prints what was held back for sorting; call once after the search has ended.
  void Finish();
  int64_t printed() const { return printed_; }
  int64_t errors() const { return errors_; }
  // The errno of the first write to stdout that failed, 0 when none did.
  int write_error() const { return write_error_; }

  // The path as shown: relative when its root was given relative.
  std::string DisplayPath(const std::string& path) const;
  // One result in the chosen format, newline (or NUL) included. Public for the explain path.
  std::string Format(props::ShellItem& item) const;
  // The header row of --columns: each column's label.
  std::string Header() const;

 private:
  std::vector<std::pair<uint32_t, std::string>> advice_;  // (bin1OffNotify bit, text)
  std::vector<engine::UnreadCount> unread_;
  void Print(props::ShellItem& item);
  void Write(std::string_view text);
  void Drain();  // writes what is gathered; needs the lock (or no other thread)
  void Put(std::string_view text);  // to stdout, noting the first failure
  std::string Cell(std::string_view text) const;  // one value of a --columns row, escaped

  OutputOptions options_;
  std::FILE* out_;
  std::FILE* err_;
  engine::SearchPanel* panel_ = nullptr;
  std::mutex mutex_;
  std::vector<props::ShellItemPtr> held_;
  int64_t taken_ = 0;
  int64_t printed_ = 0;
  bool status_shown_ = false;
  bool gather_ = false;  // out_ is no terminal: results are gathered in pending_
  bool terminal_ = false;  // out_ is a terminal: paths are made safe to show
  std::optional<LsColors> colors_;
  std::string pending_;
  int64_t errors_ = 0;
  int write_error_ = 0;
};

}  // namespace trovix::cli
