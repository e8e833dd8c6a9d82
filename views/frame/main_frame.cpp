#include "views/frame/main_frame.h"

#include "views/frame/elided_label.h"

#include <unistd.h>

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDockWidget>
#include <QFormLayout>
#include <QItemSelectionModel>
#include <QTableView>
#include <QIcon>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QScreen>
#include <QSignalBlocker>
#include <QStatusBar>
#include <QStyle>
#include <QTimer>
#include <QToolBar>
#include <QToolTip>
#include <QVBoxLayout>

#include <filesystem>
#include <thread>

#include "app/request_settings.h"
#include "app/settings/settings_frame.h"
#include "engine/extraction/contents_reader.h"
#include "engine/walk/folder_walk.h"
#include "index/indexer_state.h"
#include "rules/blob/rule_blob.h"
#include "views/program/app_icon.h"
#include "views/program/mnemonics.h"
#include "views/program/desktop_app.h"
#include "views/frame/filter_bar.h"
#include "views/frame/frame_commands.h"
#include "views/frame/frame_search.h"
#include "views/map/picture_map.h"
#include "views/preview/quick_view.h"
#include "views/preview/quick_view_settings.h"
#include "views/qt_text.h"
#include "views/results/results_pane.h"
#include "views/rule_boxes/rule_box.h"
#include "views/frame/search_pane.h"
#include "views/frame/settings_dialog.h"
#include "views/program/speech.h"
#include "views/frame/window_placement.h"

namespace trovix::views {
namespace {

constexpr const char* kAbandonQuestion = "Do you want to abandon the current search?";

QMessageBox::StandardButton Box(QWidget* parent, QMessageBox::Icon icon, const QString& caption, const QString& text,
                                QMessageBox::StandardButtons buttons = QMessageBox::Ok) {
  return ShowMessageBox(parent, {0, caption.toStdString(), text.toStdString(), icon, buttons});
}

// The status-bar part of a tip (before "\n") and the tool tip (after it).
std::pair<QString, QString> SplitTip(const QString& tip) {
  const int nl = tip.indexOf('\n');
  if (nl < 0) return {tip, tip};
  return {tip.left(nl), tip.mid(nl + 1)};
}

// Standard pixmaps stand in when the desktop's icon theme lacks a name.
QStyle::StandardPixmap FallbackIcon(uint32_t id) {
  switch (id) {
    case kCmdSaveSearch: return QStyle::SP_DialogSaveButton;
    case kCmdHelp: return QStyle::SP_DialogHelpButton;
    case kCmdDefaultRules: return QStyle::SP_DialogResetButton;
    case kCmdPreview: return QStyle::SP_FileDialogContentsView;
    case kCmdRemoveRule: return QStyle::SP_DialogCloseButton;
    case kCmdAdvancedSearch: return QStyle::SP_FileDialogDetailedView;
    case kCmdClearAll: return QStyle::SP_LineEditClearButton;
    case kCmdSettings: return QStyle::SP_ComputerIcon;
    case kCmdAddRule: return QStyle::SP_FileDialogNewFolder;
    case kCmdSimpleMode: return QStyle::SP_FileDialogListView;
    case kCmdDetective: return QStyle::SP_MessageBoxQuestion;
    case kCmdPictureMap: return QStyle::SP_DriveNetIcon;
    default: return QStyle::SP_DialogYesButton;
  }
}

}  // namespace

MainFrame::MainFrame(DesktopApp& app, const app::CommandLine& line, int offset) : app_(app) {
  setAttribute(Qt::WA_DeleteOnClose);
  setWindowTitle("trovix");
  setWindowIcon(AppIcon());
  setAccessibleName("trovix");
  search_ = std::make_unique<FrameSearch>(app_.index_path());
  BuildPanes();
  BuildCommands();
  BuildMenus();
  ApplySettings(line, offset);

  connect(search_.get(), &FrameSearch::started, this, [this] {
    results_->BeginSearch();
    notice_label_->SetFullText({});
    notice_label_->hide();
    quick_view_->Clear();  // the item it showed has left the list
    search_pane_->SetRunning(true);
  });
  connect(search_.get(), &FrameSearch::results, this, &MainFrame::OnResults);
  connect(search_.get(), &FrameSearch::status, this, &MainFrame::SetStatus);
  connect(search_.get(), &FrameSearch::notice, this, &MainFrame::AddNotice);
  connect(search_.get(), &FrameSearch::finished, this, &MainFrame::OnFinished);
  connect(search_.get(), &FrameSearch::advice, this, [this](quint32 bit, const QString& text) {
    if (text.isEmpty() || (app_.settings().bin1OffNotify & bit)) return;
    QMessageBox::StandardButton b =
        Box(this, QMessageBox::Information, "trovix",
            bit == engine::kNotifyIndexAdvice
                ? "Searches of this folder would be faster from the index.\nAdd it with: trovix-cli index add FOLDER\n\nShow this advice again?"
                : text + "\n\nShow this advice again?",
            QMessageBox::Yes | QMessageBox::No);
    if (b == QMessageBox::No) app_.settings().bin1OffNotify |= bit;
  });
  connect(search_.get(), &FrameSearch::rootError, this, [this](const QString& path, int error) {
    SetStatus(QString("%1: %2").arg(path, QString::fromLocal8Bit(std::strerror(error))));
  });
  connect(search_pane_, &SearchPane::startStopRequested, this, &MainFrame::StartOrStop);
  typed_timer_ = new QTimer(this);
  typed_timer_->setSingleShot(true);
  connect(typed_timer_, &QTimer::timeout, this, &MainFrame::SearchAsTyped);
  connect(search_pane_, &SearchPane::rulesEdited, this, [this] { typed_timer_->start(0); });
  // The first rule box has the focus, its text selected: a new window is ready for typing what
  // to find, and typing replaces the value restored from the last search.
  if (!search_pane_->boxes().empty()) {
    QWidget* value = search_pane_->boxes().front()->valueWidget();
    value->setFocus();
    if (auto* edit = qobject_cast<QLineEdit*>(value)) edit->selectAll();
    if (auto* combo = qobject_cast<QComboBox*>(value); combo && combo->lineEdit()) combo->lineEdit()->selectAll();
  }
  connect(results_, &ResultsPane::statusText, this, &MainFrame::SetStatus);
  connect(results_, &ResultsPane::robustSearchRequested, this, &MainFrame::StartOrStop);

  // /G:name loads a saved search instead of the last rules, and runs it.
  if (!line.search.empty()) {
    if (auto index = app::FindSavedSearch(app_.lists().searches, line.search)) {
      QMetaObject::invokeMethod(this, [this, i = *index] { RunSavedSearch(i); }, Qt::QueuedConnection);
    } else {
      SetStatus(QString("No saved search is named \"%1\"").arg(FromUtf8(line.search)));
    }
  }
}

MainFrame::~MainFrame() = default;

void MainFrame::AbandonSearchOnClose() { closing_ = true; }

void MainFrame::BuildPanes() {
  results_ = new ResultsPane(this);
  results_->setAccessibleName("Results");
  setCentralWidget(results_);

  search_pane_ = new SearchPane(this);
  search_dock_ = new QDockWidget("Search", this);
  search_dock_->setObjectName("SearchDock");
  search_dock_->setWidget(search_pane_);
  search_dock_->setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
  addDockWidget(Qt::TopDockWidgetArea, search_dock_);

  filter_bar_ = new FilterBar(this);
  filter_dock_ = new QDockWidget("Filter", this);
  filter_dock_->setObjectName("FilterDock");
  filter_dock_->setWidget(filter_bar_);
  filter_dock_->setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable |
                            QDockWidget::DockWidgetClosable);
  // One line of controls needs no caption of its own; View > Filter shows and hides it.
  filter_dock_->setTitleBarWidget(new QWidget(filter_dock_));
  addDockWidget(Qt::TopDockWidgetArea, filter_dock_);
  // The filter bar lies under the rule boxes, directly over the list it filters, and both take
  // the window's whole width.
  splitDockWidget(search_dock_, filter_dock_, Qt::Vertical);
  results_->SetFilterBar(filter_bar_);
  filter_bar_->setFocusProxy(filter_bar_->box());

  // The quick view follows the list's focused item while its pane is shown.
  quick_view_ = new QuickView(this);
  quick_view_->SetFocusedItemSource([this] { return results_->FocusedItem(); });
  preview_dock_ = new QDockWidget("Preview", this);
  preview_dock_->setObjectName("PreviewDock");
  preview_dock_->setWidget(quick_view_);
  addDockWidget(Qt::RightDockWidgetArea, preview_dock_);
  preview_dock_->hide();
  connect(results_->view()->selectionModel(), &QItemSelectionModel::currentChanged, this, [this] {
    if (preview_dock_->isVisible()) quick_view_->Schedule(results_->FocusedItem());
  });
  connect(preview_dock_, &QDockWidget::visibilityChanged, this, [this](bool visible) {
    if (!visible) return;
    // A pane narrower than a third of the window shows pictures too small to be of use.
    if (!preview_dock_->isFloating() && preview_dock_->width() < width() / 3)
      resizeDocks({preview_dock_}, {width() / 3}, Qt::Horizontal);
    quick_view_->Schedule(results_->FocusedItem());
  });

  // The label has no accessible name of its own: a screen reader reads its text ("3 item(s)
  // found") as its name, and hears each new text as a change of name.
  status_label_ = new QLabel(this);
  status_label_->setAccessibleDescription("Status");
  statusBar()->addWidget(status_label_, 1);
  // The search's notices beside it: the count that ends a search replaces the status text, and
  // a notice such as "results from a catalogue last seen 3 days ago" must outlive it.
  notice_label_ = new ElidedLabel(this);
  notice_label_->setAccessibleDescription("Notice");
  notice_label_->setContentsMargins(12, 0, 0, 0);  // apart from the count it follows
  notice_label_->hide();
  statusBar()->addWidget(notice_label_, 2);
}

QAction* MainFrame::AddCommand(uint32_t id, const QString& tip, const QString& theme_icon,
                               QStyle::StandardPixmap fallback, const QString& menu_text) {
  auto [status, tool] = SplitTip(tip);
  auto* action = new QAction(QIcon::fromTheme(theme_icon, style()->standardIcon(fallback)),
                             menu_text.isEmpty() ? tool : menu_text, this);
  action->setStatusTip(status);
  action->setToolTip(tool);
  action->setData(id);
  commands_[id] = action;
  addAction(action);  // the keys work wherever the focus is in the frame
  return action;
}

QAction* MainFrame::command(uint32_t id) const {
  auto it = commands_.find(id);
  return it == commands_.end() ? nullptr : it->second;
}

void MainFrame::BuildCommands() {
  auto* bar = addToolBar("Tool bar");
  bar->setObjectName("ToolBar");
  bar->setAccessibleName("Tool bar");
  for (const ToolCommand& c : kToolBar)
    bar->addAction(AddCommand(c.id, c.tip, c.theme_icon, FallbackIcon(c.id), c.menu_text));

  command(kCmdSaveSearch)->setShortcut(QKeySequence::Save);
  connect(command(kCmdSaveSearch), &QAction::triggered, this, &MainFrame::SaveSearchDialog);
  command(kCmdHelp)->setShortcut(Qt::Key_F1);
  connect(command(kCmdHelp), &QAction::triggered, this, &MainFrame::ShowHelp);
  connect(command(kCmdDefaultRules), &QAction::triggered, this, [this] { search_pane_->DefaultRules(); });
  command(kCmdPreview)->setShortcut(Qt::CTRL | Qt::Key_Q);
  command(kCmdPreview)->setCheckable(true);
  connect(command(kCmdPreview), &QAction::toggled, preview_dock_, &QDockWidget::setVisible);
  connect(command(kCmdRemoveRule), &QAction::triggered, this, [this] { search_pane_->RemoveRule(); });
  connect(command(kCmdAdvancedSearch), &QAction::triggered, this, [this] {
    search_pane_->SetPlainMode(false);
    command(kCmdSimpleMode)->setChecked(false);
  });
  command(kCmdClearAll)->setShortcut(Qt::Key_F8);
  connect(command(kCmdClearAll), &QAction::triggered, this, [this] { search_pane_->ClearAll(); });
  command(kCmdSettings)->setShortcut(Qt::Key_F12);
  connect(command(kCmdSettings), &QAction::triggered, this, &MainFrame::SettingsDialog);
  connect(command(kCmdAddRule), &QAction::triggered, this, [this] { search_pane_->AddRule(); });
  command(kCmdSimpleMode)->setCheckable(true);
  connect(command(kCmdSimpleMode), &QAction::toggled, this, [this](bool on) { search_pane_->SetPlainMode(on); });
  connect(command(kCmdDetective), &QAction::triggered, this, &MainFrame::ExplainFocused);
  // Rating needs a network; it stays visible but off.
  command(kCmdRate)->setEnabled(false);

  auto* next =
      AddCommand(kCmdNextPane, "Next pane", "go-next", QStyle::SP_ArrowRight, "&Next pane");
  next->setShortcut(Qt::Key_F6);
  connect(next, &QAction::triggered, this, [this] { FocusPane(1); });
  auto* previous = AddCommand(kCmdPreviousPane, "Previous pane", "go-previous",
                              QStyle::SP_ArrowLeft, "&Previous pane");
  previous->setShortcut(Qt::SHIFT | Qt::Key_F6);
  connect(previous, &QAction::triggered, this, [this] { FocusPane(-1); });
  auto* exit = AddCommand(kCmdExit, "Close all windows and terminate the application", "application-exit",
                          QStyle::SP_DialogCloseButton);
  exit->setText("E&xit");
  exit->setShortcut(Qt::ALT | Qt::Key_X);
  // Every frame is asked to close; one whose search the user does not abandon stays, and so
  // do the frames after it.
  connect(exit, &QAction::triggered, qApp, &QApplication::closeAllWindows);
  // Ctrl+0 ... Ctrl+9: the first ten rule-box layouts.
  for (int i = 0; i < 10; ++i) {
    auto* a = new QAction(this);
    a->setShortcut(QKeySequence(Qt::CTRL | (Qt::Key_0 + i)));
    connect(a, &QAction::triggered, this, [this, i] { RestoreLayout(static_cast<size_t>(i)); });
    addAction(a);
  }
}

void MainFrame::BuildMenus() {
  QMenu* file = menuBar()->addMenu("&File");
  auto* new_window = file->addAction("&New window", this, [this] { app_.OpenFrame(app::CommandLine{}); });
  new_window->setShortcut(QKeySequence::New);
  file->addAction(command(kCmdSaveSearch));
  saved_menu_ = file->addMenu("Saved s&earches");
  file->addSeparator();
  auto* close = file->addAction("&Close window", this, &QWidget::close);
  close->setShortcut(QKeySequence::Close);
  file->addAction(command(kCmdExit));

  // The list's commands: those on items under Edit, the sort orders and view modes under View.
  QMenu* edit = menuBar()->addMenu("&Edit");
  auto* sort = new QMenu("S&ort", this);
  std::vector<QAction*> view_modes;
  for (QAction* a : results_->ListActions()) {
    const int id = a->data().toInt();
    if (id >= kListSortFirst && id <= kListSortLast) {
      sort->addAction(a);
    } else if (id == kListDetailsView || id == kListThumbnailView) {
      view_modes.push_back(a);
    } else {
      edit->addAction(a);
    }
  }

  QMenu* rules = menuBar()->addMenu("&Rules");
  auto* start = rules->addAction("&Start / Stop", this, &MainFrame::StartOrStop);
  start->setShortcut(Qt::CTRL | Qt::Key_Return);
  rules->addSeparator();
  for (uint32_t id : {kCmdAddRule, kCmdRemoveRule, kCmdClearAll, kCmdDefaultRules, kCmdSimpleMode, kCmdAdvancedSearch})
    rules->addAction(command(id));
  rules->addSeparator();
  layout_menu_ = rules->addMenu("Rule &layouts");

  QMenu* view = menuBar()->addMenu("&View");
  QAction* tool_bar = findChild<QToolBar*>("ToolBar")->toggleViewAction();
  tool_bar->setText("&Tool bar");
  view->addAction(tool_bar);
  auto* status = view->addAction("&Status bar");
  status->setCheckable(true);
  status->setChecked(true);
  connect(status, &QAction::toggled, statusBar(), &QWidget::setVisible);
  filter_dock_->toggleViewAction()->setText("&Filter bar");
  view->addAction(filter_dock_->toggleViewAction());
  view->addAction(command(kCmdPreview));
  view->addSeparator();
  for (QAction* a : view_modes) view->addAction(a);
  view->addMenu(sort);

  QMenu* tools = menuBar()->addMenu("&Tools");
  tools->addAction(command(kCmdDetective));
  tools->addAction(command(kCmdPictureMap));
  tools->addAction(command(kCmdSettings));
  auto* reset = tools->addAction("&Reset all settings at exit");
  reset->setCheckable(true);
  reset->setStatusTip("Forget every setting and saved list when the program ends");
  connect(reset, &QAction::toggled, this, [this](bool on) { app_.RequestReset(on); });
  tools->addSeparator();
  auto* pause_indexing = tools->addAction("Pause &indexing");
  pause_indexing->setObjectName("PauseIndexing");
  pause_indexing->setCheckable(true);
  pause_indexing->setStatusTip("Hold the index watch back until this is switched off (trovix-cli index pause)");
  // The console may have switched it meanwhile: the menu shows the switch as it stands.
  connect(tools, &QMenu::aboutToShow, pause_indexing, [this, pause_indexing] {
    QSignalBlocker quiet(pause_indexing);
    pause_indexing->setChecked(engine::index::IndexPausedByUser(app_.index_path()));
  });
  connect(pause_indexing, &QAction::toggled, this, [this, pause_indexing](bool on) {
    std::string error;
    if (engine::index::SetIndexPaused(app_.index_path(), on, &error)) return;
    QSignalBlocker quiet(pause_indexing);
    pause_indexing->setChecked(!on);
    Box(this, QMessageBox::Warning, "Trovix", QString::fromStdString(error));
  });

  picture_map_ = new PictureMap(this, &app_.lists().map_areas);
  picture_map_->Install(rules, tools);
  connect(picture_map_, &PictureMap::areasChanged, this, [this] {
    for (MainFrame* frame : app_.frames()) frame->RebuildSavedMenus();
  });

  QMenu* help = menuBar()->addMenu("&Help");
  help->addAction(command(kCmdHelp));
  help->addAction(command(kCmdRate));
  RebuildSavedMenus();
  for (QAction* a : menuBar()->actions())
    if (a->menu()) GiveMnemonics(a->menu());
}

void MainFrame::RebuildSavedMenus() {
  saved_menu_->clear();
  const auto& searches = app_.lists().searches;
  for (size_t i = 0; i < searches.size() && i < app::kCommandRangeSize; ++i) {
    auto* a = saved_menu_->addAction(EscapeMnemonics(FromUtf8(searches[i].szName)), this,
                                     [this, i] { RunSavedSearch(i); });
    a->setData(app::kSavedSearchCommandFirst + static_cast<uint32_t>(i));
    a->setStatusTip(QString("Find: %1").arg(FromUtf8(searches[i].szName)));
  }
  saved_menu_->setEnabled(!searches.empty());

  layout_menu_->clear();
  layout_menu_->addAction("&Save layout...", this, &MainFrame::SaveLayoutDialog);
  layout_menu_->addSeparator();
  const auto& layouts = app_.lists().layouts;
  for (size_t i = 0; i < layouts.size() && i < app::kCommandRangeSize; ++i) {
    auto* a = layout_menu_->addAction(EscapeMnemonics(FromUtf8(layouts[i].szName)), this,
                                      [this, i] { RestoreLayout(i); });
    a->setData(app::kLayoutCommandFirst + static_cast<uint32_t>(i));
    a->setStatusTip(QString("Restore rules (%1)").arg(FromUtf8(layouts[i].szName)));
    if (i < 10) a->setShortcut(QKeySequence(Qt::CTRL | (Qt::Key_0 + static_cast<int>(i))));
    // The frame's own Ctrl+digit actions answer the keys; the menu only shows them.
    a->setShortcutContext(Qt::WidgetShortcut);
  }
  GiveMnemonics(saved_menu_);
  GiveMnemonics(layout_menu_);
  if (picture_map_) picture_map_->RebuildAreaMenu();
}

void MainFrame::ApplySettings(const app::CommandLine& line, int offset) {
  app::Settings& s = app_.settings();
  frame_settings_ = app::LoadFrameSettings(app_.store());
  SetTalkEnabled((s.binFlags & kFlagTalkEnabled) != 0);
  results_->SetGeneralFlags(s.binFlags);
  results_->SetAutoFilterChars(s.nCharsAutoFilter);
  results_->SetThumbnailSize(s.nThumbSize);
  engine::ContentsOptions contents;
  app::ApplySettingsToContents(s, &contents);
  quick_view_->SetSettings(LoadQuickViewSettings(app_.store()), contents);
  results_->LoadViewOptions(app_.store(), kResultsListId);
  search_pane_->SetSimplePropertyList(s.szSimplePropertyList);
  search_pane_->SetPlainMode(frame_settings_.bPlainMode != 0);
  command(kCmdSimpleMode)->setChecked(frame_settings_.bPlainMode != 0);
  search_pane_->SetFrequentFolders(app_.lists().frequent);
  findChild<QToolBar*>("ToolBar")->setVisible(frame_settings_.bShowToolbar != 0);
  statusBar()->setVisible(frame_settings_.bShowStatusbar != 0);

  // The frame's current rule boxes, then the rules of the last search unless /F or /G: said no.
  auto frame_layouts = app::LoadLayouts(app_.store(), app::kFrameLayoutList);
  if (!frame_layouts.empty()) search_pane_->RestoreLayout(frame_layouts[0]);
  const bool fresh = (line.switches & app::kSwitchFresh) != 0;
  if (line.search.empty() && !fresh && !frame_settings_.binLastRule.empty()) {
    std::string blob(frame_settings_.binLastRule.begin(), frame_settings_.binLastRule.end());
    auto rules = rules::Deserialise(blob);
    if (!rules.empty()) search_pane_->SetRules(rules);
  }
  if (search_pane_->RootText().isEmpty() || !line.root.empty())
    search_pane_->SetRootText(FromUtf8(line.root.empty() ? std::filesystem::current_path().string() : line.root));

  // Placement: the stored one, moved off the first frame for a later one.
  QRect geometry(80, 60, 1100, 720);
  uint32_t show = kShowNormal;
  if (frame_settings_.binWindowPlacement) {
    if (auto p = DecodePlacement(*frame_settings_.binWindowPlacement)) {
      geometry = QRect(QPoint(p->left, p->top), QPoint(p->right - 1, p->bottom - 1));
      show = p->show;
    }
  }
  geometry.translate(offset * 32, offset * 32);
  if (QScreen* screen = QGuiApplication::primaryScreen()) {
    const QRect avail = screen->availableGeometry();
    if (!avail.intersects(geometry)) geometry.moveTopLeft(avail.topLeft() + QPoint(40, 40));
  }
  setGeometry(geometry);
  if (show == kShowMaximised) {
    setWindowState(Qt::WindowMaximized);
  } else if (show == kShowMinimised && !(line.switches & app::kSwitchMinimised)) {
    setWindowState(Qt::WindowMinimized);
  }

  // /C with /G: writes the results to the console that started the program too.
  if ((line.switches & app::kSwitchConsole) && !line.search.empty() && ::write(STDOUT_FILENO, "", 0) == 0)
    console_ = stdout;
}

bool MainFrame::MakeRequest(engine::SearchRequest* request) {
  std::vector<rules::RulePtr> rule_list;
  QString why;
  // Rule text that does not parse never starts a search; the pane says why beside the box.
  if (!search_pane_->CollectRules(&rule_list, &why)) {
    search_pane_->ShowRuleError(why);
    return false;
  }
  const app::Settings& s = app_.settings();
  engine::SearchRequest& r = *request;
  r.rules = std::move(rule_list);
  r.root_text = search_pane_->RootText().toStdString();
  r.default_root = std::filesystem::current_path().string();
  r.threads = static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 8u));
  app::ApplySettingsToRequest(s, ~0u, &r);
  return true;
}

namespace {

// How long an edit waits for the previous search to end before it tries again later: the
// index query ends within a millisecond of being asked, while a walk blocked on a slow disk
// must not freeze the window.
constexpr int kTypedStopWaitMs = 20;
constexpr int kTypedRetryMs = 30;

bool IsNameRule(const rules::Rule& rule) {
  const props::PropertyInfo* info = rule.Descriptor();
  return !rule.IsComplex() && info != nullptr &&
         (info->name == "System.ItemNameDisplay" || info->name == "System.FileName");
}

}  // namespace

bool MainFrame::StopForNextSearch() {
  search_->Stop();
  return search_->WaitFor(kTypedStopWaitMs);
}

void MainFrame::SearchAsTyped() {
  if (closing_) return;
  // Text half typed in any box waits quietly for the next key; Start says what is wrong.
  std::vector<rules::RulePtr> typed;
  QString why;
  if (!search_pane_->CollectRules(&typed, &why) || typed.empty()) return;
  for (const rules::RulePtr& rule : typed)
    if (!IsNameRule(*rule)) return;
  engine::SearchRequest request;
  if (!MakeRequest(&request)) return;
  const engine::ParsedRoots parsed =
      engine::ParseRootText(request.root_text.empty() ? request.default_root : request.root_text, request.default_root);
  if (parsed.single_file || !search_->IndexCovers(parsed.roots)) return;
  request.index_only = true;
  request.index_advice_suppressed = true;
  if (search_->running() && !StopForNextSearch()) {
    typed_timer_->start(kTypedRetryMs);
    return;
  }
  search_->DiscardQueued();
  if (search_->StartOrStop(request) != engine::StartOutcome::kStarted) return;
  typed_running_ = true;
  searched_ = true;
  last_rules_ = request.rules;
  last_root_ = request.root_text;
}

void MainFrame::StartOrStop() {
  typed_timer_->stop();
  if (search_->running()) {
    // A search started by typing gives way to the one asked for; any other is stopped.
    if (!typed_running_ || !StopForNextSearch()) {
      search_->Stop();
      return;
    }
  }
  typed_running_ = false;
  engine::SearchRequest request;
  if (!MakeRequest(&request)) return;
  const std::vector<rules::RulePtr>& rule_list = request.rules;
  switch (search_->StartOrStop(request)) {
    case engine::StartOutcome::kStarted: {
      searched_ = true;
      last_rules_ = rule_list;
      last_root_ = request.root_text;
      const std::string blob = rules::Serialise(rule_list);
      frame_settings_.binLastRule.assign(blob.begin(), blob.end());
      if (!request.root_text.empty()) {
        app::NoteFrequentUse(&app_.lists().frequent, request.root_text);
        search_pane_->SetFrequentFolders(app_.lists().frequent);
      }
      break;
    }
    case engine::StartOutcome::kStopped:
    case engine::StartOutcome::kVetoed:
      break;
    case engine::StartOutcome::kNoRules:
      ReportError(this, 10027, "what is Sir looking for?");
      break;
    case engine::StartOutcome::kNoRoot:
      ReportError(this, 10028, "where is that folder like?");
      break;
    case engine::StartOutcome::kBadRules:
      search_pane_->ShowRuleError(FromUtf8(search_->error()));
      break;
    case engine::StartOutcome::kExplained:
      searched_ = true;
      last_rules_ = rule_list;
      last_root_ = request.root_text;
      ShowDetective(search_->detective_report());
      break;
    case engine::StartOutcome::kNothing:
      Say("computer says no!");
      break;
  }
}

void MainFrame::OnResults(const std::vector<props::ShellItemPtr>& items) {
  if (console_) {
    for (const auto& item : items) std::fprintf(console_, "%s\n", item->DisplayPath().c_str());
  }
  results_->AddResults(items);
}

void MainFrame::OnFinished(qint64 taken) {
  if (console_) std::fflush(console_);
  search_pane_->SetRunning(false);
  results_->EndSearch(search_->index_answered(), search_->unread_note());
  picture_map_->SearchFinished();
  emit searchFinished(taken);
}

void MainFrame::SetStatus(const QString& text) { status_label_->setText(text); }
QString MainFrame::status_text() const { return status_label_->text(); }
QString MainFrame::notice_text() const { return notice_label_->full_text(); }

void MainFrame::AddNotice(const QString& text) {
  // Several notices of one search are kept side by side, each said once.
  const QString now = notice_label_->full_text();
  if (now.split("; ").contains(text)) return;
  notice_label_->SetFullText(now.isEmpty() ? text : now + "; " + text);
  notice_label_->show();
}

void MainFrame::ShowDetective(const engine::DetectiveReport& report) {
  if (!report.found) Say("computer says no!");
  Box(this, report.found ? QMessageBox::Information : QMessageBox::Critical, "equivalent expression",
      FromUtf8(report.text));
}

void MainFrame::ExplainFocused() {
  props::ShellItemPtr item = results_->FocusedItem();
  if (!item) {
    SetStatus("Select a result to explain it");
    return;
  }
  // The detective runs on the focused file as if it were the root, with the rules in the boxes.
  engine::SearchRequest request;
  if (search_->running() || !MakeRequest(&request)) return;
  request.root_text.clear();
  request.roots = {item->path()};
  if (search_->StartOrStop(request) == engine::StartOutcome::kExplained) {
    ShowDetective(search_->detective_report());
  } else if (!search_->error().empty()) {
    Box(this, QMessageBox::Warning, "trovix", FromUtf8(search_->error()));
  } else {
    ShowStringBox(this, 10025, QMessageBox::Warning);
  }
}

void MainFrame::RunSavedSearch(size_t index) {
  const auto& searches = app_.lists().searches;
  if (index >= searches.size()) return;
  const app::SavedSearch& saved = searches[index];
  auto rule_list = rules::Deserialise(saved.binFilter);
  if (rule_list.empty()) return;
  search_pane_->SetRules(rule_list);
  if (saved.szRoot) search_pane_->SetRootText(FromUtf8(*saved.szRoot));
  if (search_->running()) {
    search_->Stop();
    search_->WaitFor(7000);
  }
  StartOrStop();
}

void MainFrame::RestoreLayout(size_t index) {
  const auto& layouts = app_.lists().layouts;
  if (index < layouts.size()) search_pane_->RestoreLayout(layouts[index]);
}

bool MainFrame::SaveSearchAs(const QString& name, bool include_root) {
  if (!searched_ || name.trimmed().isEmpty()) return false;
  std::optional<std::string> root;
  if (include_root) root = search_pane_->RootText().toStdString();
  auto& searches = app_.lists().searches;
  if (auto same = app::FindSameSearch(searches, last_rules_, root)) {
    if (ShowStringBox(this, 11357, QMessageBox::Question, QMessageBox::Yes | QMessageBox::No,
                      FromUtf8(searches[*same].szName)) != QMessageBox::Yes)
      return false;
  }
  if (searches.size() >= app::kMaxSavedSearches) {
    Box(this, QMessageBox::Warning, "trovix",
        QString("At most %1 searches can be kept; delete one first.").arg(app::kMaxSavedSearches));
    return false;
  }
  searches.push_back(app::MakeSavedSearch(name.trimmed().toStdString(), last_rules_, root));
  for (MainFrame* frame : app_.frames()) frame->RebuildSavedMenus();
  return true;
}

void MainFrame::SaveSearchDialog() {
  if (!searched_) {
    // A balloon at the tool bar button, as the frame has nothing to save yet.
    QToolTip::showText(mapToGlobal(QPoint(24, 48)), "first search, then save!", this);
    SetStatus("first search, then save!");
    return;
  }
  QDialog dialog(this);
  dialog.setWindowTitle("Save search");
  auto* layout = new QFormLayout(&dialog);
  auto* name = new QLineEdit(&dialog);
  name->setAccessibleName("Name for search parameters");
  auto* root = new QCheckBox("Include root folder", &dialog);
  root->setToolTip("Save starting folder along with the search parameters");
  root->setAccessibleName("Include root folder");
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
  layout->addRow("Name for search parameters", name);
  layout->addRow(root);
  layout->addRow(buttons);
  GiveMnemonics(buttons);
  connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
  if (dialog.exec() == QDialog::Accepted) SaveSearchAs(name->text(), root->isChecked());
}

void MainFrame::SaveLayoutDialog() {
  QInputDialog ask(this);
  ask.setWindowTitle("Save layout");
  ask.setLabelText("Name for toolbar layout ");
  ask.setOkButtonText("&OK");
  ask.setCancelButtonText("&Cancel");
  if (ask.exec() != QDialog::Accepted) return;
  const QString name = ask.textValue();
  if (name.trimmed().isEmpty()) return;
  auto& layouts = app_.lists().layouts;
  if (layouts.size() >= app::kMaxLayouts) return;
  app::RuleBoxLayout layout = search_pane_->CaptureLayout(name.trimmed().toStdString());
  if (!app::IsValidLayout(layout)) return;
  layouts.push_back(std::move(layout));
  for (MainFrame* frame : app_.frames()) frame->RebuildSavedMenus();
}

void MainFrame::SettingsDialog() {
  app::Settings& s = app_.settings();
  if (!EditSettings(this, &s)) return;
  for (MainFrame* frame : app_.frames()) {
    frame->results_->SetGeneralFlags(s.binFlags);
    frame->results_->SetAutoFilterChars(s.nCharsAutoFilter);
  }
  SetTalkEnabled((s.binFlags & kFlagTalkEnabled) != 0);
}

void MainFrame::ShowHelp() {
  Box(this, QMessageBox::Information, "trovix",
               "Describe what to find as rules: pick a property in each rule box and type its value "
               "(a name with * and ?, a size such as >= 50 KB, a date such as yesterday or 2024-01-31 .. 2024-02-15).\n\n"
               "Enter or Start runs the search; a single file as the root folder is explained rule by rule.\n\n"
               "Keys: F8 clear all, F6 next pane, Ctrl+0...9 rule layouts, Ctrl+Alt+N/S/D/T/P sort, "
               "Ctrl+Enter open containing folder, F2 rename, Del to the trash, Alt+X exit.\n\n"
               "trovix-cli --help describes the console program and the index.");
}

void MainFrame::FocusPane(int step) {
  QWidget* panes[] = {search_pane_, filter_bar_, results_};
  int current = 0;
  for (int i = 0; i < 3; ++i)
    if (panes[i]->isAncestorOf(QApplication::focusWidget()) || panes[i] == QApplication::focusWidget()) current = i;
  for (int n = 1; n <= 3; ++n) {
    QWidget* next = panes[(current + step * n + 6) % 3];
    if (!next->isVisible()) continue;
    // Each pane puts the focus on a control of its own: the search panel itself takes no focus,
    // the filter bar and the list pass it to their box and view.
    if (next == search_pane_) {
      search_pane_->FocusRules();
    } else {
      next->setFocus(Qt::OtherFocusReason);
    }
    return;
  }
}

void MainFrame::SaveFrameState() {
  WindowPlacement p;
  const QRect normal = normalGeometry().isValid() ? normalGeometry() : geometry();
  p.left = normal.left();
  p.top = normal.top();
  p.right = normal.right() + 1;
  p.bottom = normal.bottom() + 1;
  p.show = isMaximized() ? kShowMaximised : isMinimized() ? kShowMinimised : kShowNormal;
  frame_settings_.binWindowPlacement = EncodePlacement(p);
  frame_settings_.bPlainMode = search_pane_->PlainMode() ? 1 : 0;
  frame_settings_.bShowToolbar = findChild<QToolBar*>("ToolBar")->isVisible() ? 1 : 0;
  frame_settings_.bShowStatusbar = statusBar()->isVisible() ? 1 : 0;
  app::SaveFrameSettings(app_.store(), frame_settings_);
  std::vector<app::RuleBoxLayout> frame_layouts = app::LoadLayouts(app_.store(), app::kFrameLayoutList);
  app::RuleBoxLayout current = search_pane_->CaptureLayout("default");
  if (app::IsValidLayout(current)) {
    if (frame_layouts.empty()) frame_layouts.push_back(current);
    else frame_layouts[0] = current;
    app::SaveLayouts(app_.store(), frame_layouts, app::kFrameLayoutList);
  }
  results_->SaveViewOptions(app_.store(), kResultsListId);
}

void MainFrame::closeEvent(QCloseEvent* event) {
  if (search_->running()) {
    // Closing (the window's close button, Alt+X) would throw away a search the user may be
    // waiting for: ask once. No keeps the window and its search as they are. A search that
    // typing started is no such search: nobody asked for it to finish.
    if (!closing_ && !typed_running_ &&
        ShowMessageBox(this, {0, "trovix", kAbandonQuestion, QMessageBox::Question,
                              QMessageBox::Yes | QMessageBox::No}) != QMessageBox::Yes) {
      event->ignore();
      return;
    }
    closing_ = true;
    search_->Stop();
    if (!search_->WaitFor(5000) &&
        ShowStringBox(this, 11186, QMessageBox::Warning, QMessageBox::Yes | QMessageBox::No) ==
            QMessageBox::Yes) {
      while (!search_->WaitFor(10000)) {
      }
    }
  }
  SaveFrameState();
  QString path;
  if (!app_.SettingsWritable(&path)) ShowStringBox(this, 10002, QMessageBox::Warning, QMessageBox::Ok, path);
  event->accept();
  app_.FrameClosed(this);
}

}  // namespace trovix::views
