// MainFrame: one main window of the desktop program with its own search. Docking panes hold
// the search panel (root box, Start/Stop, the rule boxes), the filter bar and the quick view;
// the results list fills the middle. The tool bar carries the thirteen frame commands, the
// menus the list's commands, the saved searches (40100...) and the rule-box layouts (40000...).
//
// The frame turns the rule boxes into a search request, hands it to its FrameSearch, and feeds
// the results list from the batches that come back. A root that is one file is explained by the
// desktop detective instead of searched. The frame reads its own settings (section "frame" and
// the list's "view_%x") when it opens and writes them when it closes.
//
// UI thread.
#pragma once

#include <QMainWindow>
#include <QStyle>

#include <cstdio>
#include <map>
#include <memory>

#include "app/command_line.h"
#include "app/settings/settings_frame.h"
#include "engine/search/search_panel.h"

class QAction;
class QDockWidget;
class QLabel;

namespace trovix::views {
class ElidedLabel;
}
class QTimer;
class QMenu;

namespace trovix::views {

class DesktopApp;
class FilterBar;
class FrameSearch;
class PictureMap;
class QuickView;
class ResultsPane;
class SearchPane;

// The results list's control identifier: its view options live in "view_e900".
inline constexpr uint32_t kResultsListId = 0xE900;

class MainFrame : public QMainWindow {
  Q_OBJECT
 public:
  // `offset`: how many frames are open already (a later frame is moved off the first).
  MainFrame(DesktopApp& app, const app::CommandLine& line, int offset);
  ~MainFrame() override;

  SearchPane* search_pane() { return search_pane_; }
  ResultsPane* results() { return results_; }
  FilterBar* filter_bar() { return filter_bar_; }
  FrameSearch* search() { return search_.get(); }
  PictureMap* picture_map() { return picture_map_; }
  QuickView* quick_view() { return quick_view_; }
  QAction* command(uint32_t id) const;
  QString status_text() const;
  // The second field of the status bar: what the last search said once (a catalogue's age,
  // folders that did not answer), kept there after the count; empty when it said nothing.
  QString notice_text() const;

  // The Start/Stop command.
  void StartOrStop();
  // Restores the saved search at `index` into the rule boxes (and its root) and starts it.
  void RunSavedSearch(size_t index);
  void RestoreLayout(size_t index);
  // The save dialog's work, without the dialog: false when nothing was saved.
  bool SaveSearchAs(const QString& name, bool include_root);
  // Explains the focused result with the desktop detective.
  void ExplainFocused();
  // The next close stops a running search without asking (the session is ending).
  void AbandonSearchOnClose();

 signals:
  void searchFinished(qint64 found);

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  void BuildPanes();
  void BuildCommands();
  void BuildMenus();
  void RebuildSavedMenus();
  QAction* AddCommand(uint32_t id, const QString& tip, const QString& theme_icon,
                      QStyle::StandardPixmap fallback, const QString& menu_text = QString());
  void ApplySettings(const app::CommandLine& line, int offset);
  // The request for the rules in the boxes and the root box; false (the reason shown beside the
  // boxes) when a box's text does not parse.
  bool MakeRequest(engine::SearchRequest* request);
  // The search as typed: when the index covers the roots and every rule is a name rule, each
  // edit of the rules starts an index-only search in place of the one before it.
  void SearchAsTyped();
  bool StopForNextSearch();
  void ShowDetective(const engine::DetectiveReport& report);
  void SaveSearchDialog();
  void SaveLayoutDialog();
  void SettingsDialog();
  void ShowHelp();
  void FocusPane(int step);
  void SetStatus(const QString& text);
  void AddNotice(const QString& text);
  void OnResults(const std::vector<props::ShellItemPtr>& items);
  void OnFinished(qint64 taken);
  void SaveFrameState();

  DesktopApp& app_;
  app::FrameSettings frame_settings_;
  std::unique_ptr<FrameSearch> search_;
  SearchPane* search_pane_ = nullptr;
  FilterBar* filter_bar_ = nullptr;
  ResultsPane* results_ = nullptr;
  QDockWidget* search_dock_ = nullptr;
  QDockWidget* filter_dock_ = nullptr;
  QDockWidget* preview_dock_ = nullptr;
  QuickView* quick_view_ = nullptr;
  QLabel* status_label_ = nullptr;
  ElidedLabel* notice_label_ = nullptr;  // the search's notices, cut with "…" to fit
  QMenu* saved_menu_ = nullptr;
  QMenu* layout_menu_ = nullptr;
  PictureMap* picture_map_ = nullptr;
  std::map<uint32_t, QAction*> commands_;
  bool searched_ = false;       // a search ran in this frame (saving needs one)
  bool closing_ = false;        // the user chose to abandon the running search and close
  bool typed_running_ = false;  // the running search was started by an edit, not by Start
  // Edits that arrive together (a paste, a cleared box) start one search, on the next turn of
  // the event loop; a previous search that does not stop at once is asked again shortly.
  QTimer* typed_timer_ = nullptr;
  std::vector<rules::RulePtr> last_rules_;
  std::string last_root_;
  // /C: results also go to the standard output of the console that started the program.
  std::FILE* console_ = nullptr;
};

}  // namespace trovix::views
