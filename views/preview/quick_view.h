// QuickView: the preview pane beside the results list. It follows the list's focused item and
// shows it in the first presentation that can take it (quick_view_settings.h CandidateModes):
// a lister plugin (lister_pane.h: its window made by a plugin host, on X11), the page view for web
// pages and XML, the media player, the built-in previewer (PDF pages and pictures), the item's
// thumbnail, or a text excerpt.
//
// Nothing of the file is decoded here: pictures and PDF pages come from the sandboxed renderer
// (render_service.h), the text of documents from the extraction helper (plain text and RTF
// through our own readers), all asked on a background queue, so the pane stays responsive
// while a large file loads; a file that hangs or crashes a helper costs only its preview (that
// presentation fails and the next one is tried). A web page is drawn by the web engine's own
// renderer processes (page_view.h: no scripts, no network); an archive member's page, or any
// page in a build without the engine, shows the text the helper reads out of it.
//
// The update policy: a change of the focused item only schedules an update (a short timer);
// when it fires, nothing happens unless the list's focused item is still the scheduled one
// and is not the item shown already. Each presentation's widget is made on first use and then
// kept; switching hides the old one and releases its content (the player stops), and a
// presentation that had the keyboard focus hands it to the new one.
//
// UI thread.
#pragma once

#include <QImage>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "engine/extraction/contents_reader.h"
#include "props/plugins/lister_plugins.h"
#include "props/shell_item.h"
#include "text/rtf_reader.h"
#include "views/preview/quick_view_settings.h"

class QLabel;
class QPlainTextEdit;
class QStackedLayout;
class QStackedWidget;
class QTextBrowser;
class QToolButton;

namespace trovix::views {

class BackgroundQueue;
class ListerPane;
class MediaPane;
class PageView;
class RenderService;

// Between a change of focus and the update: fast arrow keys through the list ask nothing.
inline constexpr int kQuickViewDelayMs = 150;

class QuickView : public QWidget {
  Q_OBJECT
 public:
  explicit QuickView(QWidget* parent = nullptr, std::shared_ptr<RenderService> service = nullptr);
  ~QuickView() override;

  // The settings ("QuickView") and how documents are read (nMaxStreamExtractSize among them).
  void SetSettings(const QuickViewSettings& settings, const engine::ContentsOptions& contents);
  const QuickViewSettings& settings() const { return settings_; }
  // The lister plugins the pane offers files to; until set, the installed ones
  // (props::InstalledListers). nullptr: none.
  void SetListers(std::shared_ptr<props::ListerSet> listers);
  // Where the pane asks for the list's focused item when its timer fires.
  void SetFocusedItemSource(std::function<props::ShellItemPtr()> focused);

  // The list's focused item changed to `item`: the update runs when the timer fires.
  void Schedule(props::ShellItemPtr item);
  // The timer's work (also for tests that do not want to wait).
  void UpdateNow();
  // Shows nothing and drops whatever is under way: the list was emptied for a new search.
  void Clear();

  PreviewMode mode() const { return mode_; }
  const props::ShellItemPtr& shown_item() const { return shown_; }
  bool busy() const { return busy_; }
  QWidget* presentation(PreviewMode mode) const;
  QString shown_text() const;     // the text or page view's text
  QImage shown_picture() const;   // the previewer's or thumbnail's picture
  QFont text_font() const;

 signals:
  // The choice for an item has settled (its presentation is shown, or nothing is).
  void settled(int mode);

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  void Start(props::ShellItemPtr item);
  void TryNext();
  void AskText(PreviewMode mode, int64_t max_chars);
  void AskLister();
  void ShowWebPage();
  void AskPicture(PreviewMode mode, int page);
  void Present(PreviewMode mode);
  void Settle(PreviewMode mode);
  void ShowText(const QString& text, bool document);
  // Bold, italic and underline over the shown text, run by run (byte offsets of `text`).
  void ApplyLook(const std::string& text, const std::vector<text::RtfStyleRun>& runs);
  void ShowPage(int step);
  QWidget* Make(PreviewMode mode);
  QSize PictureBox(bool paged) const;

  std::shared_ptr<RenderService> service_;
  BackgroundQueue* queue_;
  QuickViewSettings settings_;
  engine::ContentsOptions contents_;
  std::function<props::ShellItemPtr()> focused_;
  QTimer timer_;
  props::ShellItemPtr scheduled_;
  props::ShellItemPtr shown_;
  PreviewMode mode_ = PreviewMode::kNothing;

  // The choice under way: its item, its candidates and which one is tried.
  props::ShellItemPtr choosing_;
  std::vector<PreviewMode> candidates_;
  size_t next_ = 0;
  uint64_t generation_ = 0;
  bool busy_ = false;
  int page_ = 0;
  int pages_ = 0;

  QStackedWidget* stack_;
  QLabel* empty_;
  std::map<PreviewMode, QWidget*> made_;
  // The page presentation: the page itself where the web engine is built in and the item is a
  // file, else the page's text as the helper reads it.
  QStackedLayout* page_stack_ = nullptr;
  QTextBrowser* browser_ = nullptr;
  PageView* page_view_ = nullptr;
  QString page_text_;
  QPlainTextEdit* text_ = nullptr;
  QLabel* picture_ = nullptr;     // the previewer's picture
  QLabel* page_label_ = nullptr;
  QToolButton* page_prev_ = nullptr;
  QToolButton* page_next_ = nullptr;
  QLabel* thumbnail_ = nullptr;
  MediaPane* media_ = nullptr;
  ListerPane* lister_ = nullptr;
  std::shared_ptr<props::ListerSet> listers_;
  bool listers_set_ = false;
  std::shared_ptr<props::ListerSet> choosing_listers_;  // the set the choice under way asks
  std::shared_ptr<props::ListerSet> shown_listers_;     // the set whose window the pane shows
  QImage picture_image_;
  QSize last_box_;  // the box the shown picture was drawn for
};

}  // namespace trovix::views
