#include "views/preview/quick_view.h"

#include <QApplication>
#include <QFile>
#include <QFontMetricsF>
#include <QHBoxLayout>
#include <QLabel>
#include <QPixmap>
#include <QPlainTextEdit>
#include <QStackedLayout>
#include <QTextCharFormat>
#include <QTextCursor>
#include <QStackedWidget>
#include <QTextBrowser>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

#include "props/plugins/plugin_columns.h"
#include "text/rtf_reader.h"
#include "views/preview/background_queue.h"
#include "views/preview/lister_pane.h"
#include "views/preview/media_pane.h"
#ifdef TROVIX_HAVE_WEBENGINE
#include "views/preview/page_view.h"
#endif
#include "views/preview/render_service.h"

namespace trovix::views {
namespace {

constexpr int kPictureMargin = 6;

// What the page view reads of a page: enough for any page a person reads in a pane.
constexpr int64_t kPageTextChars = 256 * 1024;

// A copy of the item for the reading thread: the list's item keeps its caches on the UI thread.
props::ShellItemPtr ReaderCopy(const props::ShellItemPtr& item) {
  if (item->IsFileSystem()) return props::ShellItem::FromPath(item->path());
  const platform::FileStatus* status = item->Status();
  return props::ShellItem::FromArchiveMember(*item->archive(), status ? *status : platform::FileStatus{});
}

// Cuts UTF-8 text after `max_chars` characters (code points), never inside one.
bool AppendChars(std::string* text, std::string_view piece, int64_t max_chars, int64_t* chars) {
  size_t i = 0;
  for (; i < piece.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(piece[i]);
    if ((c & 0xC0) != 0x80) {
      if (*chars >= max_chars) break;
      ++*chars;
    }
  }
  text->append(piece.substr(0, i));
  return i == piece.size();
}

bool IsPicturePreview(const std::string& lower_extension) { return lower_extension != "pdf"; }

std::string LowerExtension(const props::ShellItemPtr& item) {
  std::string ext(item->extension());
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); });
  return ext;
}

QLabel* MakePictureLabel(QWidget* parent, const QString& name) {
  auto* label = new QLabel(parent);
  label->setAlignment(Qt::AlignCenter);
  label->setObjectName(name);
  label->setAccessibleName(name == "thumbQV" ? QObject::tr("Preview thumbnail") : QObject::tr("Preview picture"));
  label->setMinimumSize(1, 1);
  // A little air between the picture and the pane's edge, so the two do not merge.
  label->setContentsMargins(kPictureMargin, kPictureMargin, kPictureMargin, kPictureMargin);
  label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Ignored);
  return label;
}

}  // namespace

QuickView::QuickView(QWidget* parent, std::shared_ptr<RenderService> service)
    : QWidget(parent),
      service_(service ? std::move(service) : RenderService::Shared()),
      queue_(new BackgroundQueue(4, this)) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  stack_ = new QStackedWidget(this);
  layout->addWidget(stack_);
  empty_ = new QLabel(tr("No preview"), this);
  empty_->setAlignment(Qt::AlignCenter);
  empty_->setEnabled(false);
  stack_->addWidget(empty_);
  setAccessibleName(tr("Preview"));
  timer_.setSingleShot(true);
  timer_.setInterval(kQuickViewDelayMs);
  connect(&timer_, &QTimer::timeout, this, &QuickView::UpdateNow);
}

QuickView::~QuickView() = default;

void QuickView::SetSettings(const QuickViewSettings& settings, const engine::ContentsOptions& contents) {
  settings_ = settings;
  contents_ = contents;
  if (text_) {
    text_->setFont(text_font());
    text_->setTabStopDistance(QFontMetricsF(text_->font()).horizontalAdvance(' ') * settings_.nTabWidth);
  }
}

void QuickView::SetListers(std::shared_ptr<props::ListerSet> listers) {
  listers_ = std::move(listers);
  listers_set_ = true;
}

void QuickView::SetFocusedItemSource(std::function<props::ShellItemPtr()> focused) { focused_ = std::move(focused); }

QFont QuickView::text_font() const { return FontFromLogFont(settings_.binLogFont); }

void QuickView::Schedule(props::ShellItemPtr item) {
  scheduled_ = std::move(item);
  timer_.start();
}

void QuickView::UpdateNow() {
  // The timer is single-shot: it is "killed" before the work, so a new focus change during a
  // slow choice schedules a new update.
  timer_.stop();
  const props::ShellItemPtr focused = focused_ ? focused_() : scheduled_;
  if (!focused || focused != scheduled_ || focused == shown_) return;
  Start(focused);
}

void QuickView::Clear() {
  timer_.stop();
  ++generation_;
  queue_->Clear();
  scheduled_.reset();
  choosing_.reset();
  shown_.reset();
  Present(PreviewMode::kNothing);
  if (busy_) Settle(PreviewMode::kNothing);
}

void QuickView::Start(props::ShellItemPtr item) {
  ++generation_;
  queue_->Clear();
  choosing_ = std::move(item);
  shown_ = choosing_;
  PreviewFacts facts;
  facts.extension = std::string(choosing_->extension());
  facts.folder = choosing_->IsFolder();
  facts.file_system = choosing_->IsFileSystem();
  facts.has_name = !choosing_->name().empty();
  if (const platform::FileStatus* st = choosing_->Status()) {
    facts.size_known = true;
    facts.size = st->size;
  }
  facts.max_stream_extract_size = contents_.max_stream_extract_size;
  choosing_listers_ = listers_set_ ? listers_ : props::InstalledListers();
  // A lister is given a path: only files of the file system are offered to one.
  const bool have_lister = choosing_listers_ && facts.file_system && !facts.folder &&
                           choosing_listers_->MayShow(props::DetectItemOf(*choosing_));
  candidates_ =
      CandidateModes(facts, settings_.binMiscOptions, MediaPane::Available(), have_lister);
  next_ = 0;
  // The wait cursor over the pane only: the rest of the window goes on working meanwhile.
  setCursor(Qt::WaitCursor);
  busy_ = true;
  TryNext();
}

void QuickView::TryNext() {
  if (next_ >= candidates_.size()) {
    Present(PreviewMode::kNothing);
    Settle(PreviewMode::kNothing);
    return;
  }
  const PreviewMode mode = candidates_[next_++];
  switch (mode) {
    case PreviewMode::kNothing:
      TryNext();
      return;
    case PreviewMode::kLister:
      AskLister();
      return;
    case PreviewMode::kBrowser:
#ifdef TROVIX_HAVE_WEBENGINE
      if (choosing_->IsFileSystem()) {
        ShowWebPage();
        return;
      }
#endif
      AskText(mode, kPageTextChars);
      return;
    case PreviewMode::kMedia: {
      Make(mode);
      const std::string ext = LowerExtension(choosing_);
      media_->Load(QString::fromStdString(choosing_->path()), IsVideoExtension(ext));
      Present(mode);
      Settle(mode);
      return;
    }
    case PreviewMode::kHandler:
      page_ = 0;
      AskPicture(mode, 0);
      return;
    case PreviewMode::kThumbnail:
      AskPicture(mode, 0);
      return;
    case PreviewMode::kText:
      AskText(mode, settings_.nTextPrevLen);
      return;
  }
}

void QuickView::AskText(PreviewMode mode, int64_t max_chars) {
  const uint64_t generation = generation_;
  props::ShellItemPtr copy = ReaderCopy(choosing_);
  const engine::ContentsOptions options = contents_;
  // An RTF file is shown as it looks (bold, italic, underlined), read by our own RTF reader.
  const bool styled = mode == PreviewMode::kText && choosing_->IsFileSystem() && LowerExtension(choosing_) == "rtf";
  QPointer<QuickView> self(this);
  queue_->Post([copy, options, max_chars, self, generation, mode, styled]() -> std::function<void()> {
    std::string text;
    int64_t chars = 0;
    std::vector<text::RtfStyleRun> runs;
    std::unique_ptr<text::ByteSource> source = styled ? text::OpenFileSource(copy->path()) : nullptr;
    if (source) {
      text::RtfStyledText read = text::ReadRtfStyled(std::move(source), static_cast<size_t>(max_chars) * 4);
      AppendChars(&text, read.text, max_chars, &chars);
      runs = std::move(read.runs);
    } else {
      engine::ContentsReader reader(options);
      reader.Read(*copy, [&](std::string_view piece) { return AppendChars(&text, piece, max_chars, &chars); });
    }
    return [self, generation, mode, text = std::move(text), runs = std::move(runs)] {
      if (!self || generation != self->generation_) return;
      const QString shown = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
      if (shown.trimmed().isEmpty()) {
        self->TryNext();
        return;
      }
      self->Make(mode);
      if (mode == PreviewMode::kBrowser) {
        self->browser_->setPlainText(shown);
        self->page_stack_->setCurrentWidget(self->browser_);
      } else {
        self->ShowText(shown, LowerExtension(self->choosing_) == "rtf");
        if (!runs.empty()) self->ApplyLook(text, runs);
      }
      self->Present(mode);
      self->Settle(mode);
    };
  });
}

void QuickView::AskLister() {
  Make(PreviewMode::kLister);
  // The lister sizes its window by the parent's as it makes it: the pane gets the stack's
  // size now, before it is first shown.
  lister_->resize(stack_->size());
  const uint64_t parent = lister_->ParentWindow();
  if (!choosing_listers_ || parent == 0) {
    TryNext();
    return;
  }
  const uint64_t generation = generation_;
  std::shared_ptr<props::ListerSet> listers = choosing_listers_;
  const std::string path = choosing_->path();
  const props::DetectItem item = props::DetectItemOf(*choosing_);
  QPointer<QuickView> self(this);
  queue_->Post([listers, path, item, parent, self, generation]() -> std::function<void()> {
    const props::ListerShown shown = listers->Show(path, item, parent);
    return [listers, shown, self, generation] {
      // A window made for an item no longer wanted is left to the host: it shows one window
      // per parent, so the next lister loads into it or closes it, and meanwhile it lies in the
      // hidden pane. Closing it from here could close the window a newer answer reuses.
      if (!self || generation != self->generation_) return;
      if (shown.window == 0) {
        self->TryNext();
        return;
      }
      self->lister_->Embed(shown.window);
      self->shown_listers_ = listers;
      self->Present(PreviewMode::kLister);
      self->Settle(PreviewMode::kLister);
    };
  });
}

void QuickView::ShowWebPage() {
#ifdef TROVIX_HAVE_WEBENGINE
  Make(PreviewMode::kBrowser);
  if (!page_view_) {
    page_view_ = new PageView(page_stack_->parentWidget());
    page_stack_->addWidget(page_view_);
  }
  const uint64_t generation = generation_;
  const QString path = QFile::decodeName(QByteArray::fromStdString(choosing_->path()));
  page_view_->Load(path, [this, generation](bool ok, const QString& text) {
    if (generation != generation_) return;
    if (!ok) {
      TryNext();
      return;
    }
    page_text_ = text;
    page_stack_->setCurrentWidget(page_view_);
    Present(PreviewMode::kBrowser);
    Settle(PreviewMode::kBrowser);
  });
#endif
}

QSize QuickView::PictureBox(bool paged) const {
  // Pixels of the screen, not of the layout, so the picture stays sharp at 200%.
  const qreal ratio = devicePixelRatioF();
  QSize box = stack_->size() - QSize(2 * kPictureMargin, 2 * kPictureMargin);
  // A document's pages share the pane with the page bar under them.
  if (paged && page_label_) box.rheight() -= page_label_->parentWidget()->sizeHint().height();
  box = box.expandedTo(QSize(64, 64));
  return QSize(static_cast<int>(box.width() * ratio), static_cast<int>(box.height() * ratio));
}

void QuickView::AskPicture(PreviewMode mode, int page) {
  const uint64_t generation = generation_;
  const std::string ext = LowerExtension(choosing_);
  render::RenderRequest request;
  request.op = mode == PreviewMode::kThumbnail ? render::kOpThumbnail
               : IsPicturePreview(ext)        ? render::kOpPicture
                                              : render::kOpPdfPage;
  if (mode == PreviewMode::kThumbnail && ext == "pdf") request.op = render::kOpPdfPage;
  if (choosing_->IsFileSystem()) {
    request.path = choosing_->path();
  } else {
    request.path = choosing_->archive()->container;
    request.members = choosing_->archive()->members;
  }
  if (request.op == render::kOpPdfPage && mode == PreviewMode::kHandler) Make(mode);
  const QSize box = PictureBox(request.op == render::kOpPdfPage && mode == PreviewMode::kHandler);
  last_box_ = box;
  request.width = static_cast<uint32_t>(box.width());
  request.height = static_cast<uint32_t>(box.height());
  request.page = static_cast<uint32_t>(page);
  request.max_member_bytes = contents_.max_stream_extract_size;
  std::shared_ptr<RenderService> service = service_;
  QPointer<QuickView> self(this);
  queue_->Post([service, request, self, generation, mode]() -> std::function<void()> {
    RenderOutcome outcome = service->Render(request);
    return [self, generation, mode, outcome = std::move(outcome)] {
      if (!self || generation != self->generation_) return;
      if (outcome.image.isNull()) {
        // A page turn that fails keeps the page shown; a first picture falls through.
        if (self->mode_ == mode && self->busy_ == false) return;
        self->TryNext();
        return;
      }
      self->Make(mode);
      self->picture_image_ = outcome.image;
      QPixmap pixmap = QPixmap::fromImage(outcome.image);
      pixmap.setDevicePixelRatio(self->devicePixelRatioF());
      if (mode == PreviewMode::kThumbnail) {
        self->thumbnail_->setPixmap(pixmap);
      } else {
        self->picture_->setPixmap(pixmap);
        self->pages_ = outcome.pages;
        const bool paged = outcome.pages > 1;
        self->page_label_->parentWidget()->setVisible(paged);
        self->page_label_->setText(tr("Page %1 of %2").arg(self->page_ + 1).arg(outcome.pages));
        self->page_prev_->setEnabled(self->page_ > 0);
        self->page_next_->setEnabled(self->page_ + 1 < outcome.pages);
      }
      self->Present(mode);
      self->Settle(mode);
    };
  });
}

void QuickView::ShowPage(int step) {
  if (mode_ != PreviewMode::kHandler || !shown_ || busy_) return;
  const int page = std::clamp(page_ + step, 0, std::max(0, pages_ - 1));
  if (page == page_) return;
  page_ = page;
  ++generation_;
  choosing_ = shown_;
  AskPicture(PreviewMode::kHandler, page_);
}

void QuickView::ShowText(const QString& text, bool document) {
  // RTF is a document: its text wraps at the pane's edge in the document font, where plain
  // text keeps its lines and columns in the text font with its tab width.
  text_->setFont(document ? QApplication::font() : text_font());
  text_->setLineWrapMode(document ? QPlainTextEdit::WidgetWidth : QPlainTextEdit::NoWrap);
  text_->setTabStopDistance(QFontMetricsF(text_->font()).horizontalAdvance(' ') * settings_.nTabWidth);
  text_->setPlainText(text);
}

void QuickView::ApplyLook(const std::string& text, const std::vector<text::RtfStyleRun>& runs) {
  QTextCursor cursor(text_->document());
  cursor.beginEditBlock();
  int at = 0;  // the run's start in characters of the shown text
  for (size_t i = 0; i < runs.size() && runs[i].start < text.size(); ++i) {
    const size_t end = i + 1 < runs.size() ? std::min(runs[i + 1].start, text.size()) : text.size();
    const int length = static_cast<int>(QString::fromUtf8(text.data() + runs[i].start,
                                                          static_cast<qsizetype>(end - runs[i].start)).size());
    QTextCharFormat look;
    look.setFontWeight(runs[i].bold ? QFont::Bold : QFont::Normal);
    look.setFontItalic(runs[i].italic);
    look.setFontUnderline(runs[i].underline);
    cursor.setPosition(at);
    cursor.setPosition(at + length, QTextCursor::KeepAnchor);
    cursor.mergeCharFormat(look);
    at += length;
  }
  cursor.endEditBlock();
}

void QuickView::Settle(PreviewMode mode) {
  unsetCursor();
  busy_ = false;
  emit settled(static_cast<int>(mode));
}

QWidget* QuickView::presentation(PreviewMode mode) const {
  auto it = made_.find(mode);
  return it == made_.end() ? nullptr : it->second;
}

QString QuickView::shown_text() const {
  if (mode_ == PreviewMode::kText && text_) return text_->toPlainText();
  if (mode_ == PreviewMode::kBrowser && page_stack_) {
    return page_view_ && page_stack_->currentWidget() == page_view_ ? page_text_ : browser_->toPlainText();
  }
  return {};
}

QImage QuickView::shown_picture() const {
  return mode_ == PreviewMode::kHandler || mode_ == PreviewMode::kThumbnail ? picture_image_ : QImage();
}

QWidget* QuickView::Make(PreviewMode mode) {
  if (QWidget* made = presentation(mode)) return made;
  QWidget* widget = nullptr;
  switch (mode) {
    case PreviewMode::kNothing:
      return empty_;
    case PreviewMode::kLister:
      lister_ = new ListerPane(this);
      widget = lister_;
      break;
    case PreviewMode::kBrowser:
      widget = new QWidget(this);
      widget->setObjectName("pageBoxQV");
      page_stack_ = new QStackedLayout(widget);
      browser_ = new QTextBrowser(widget);
      browser_->setObjectName("pageTextQV");
      browser_->setAccessibleName(tr("Preview page text"));
      // Links and resources are never followed: the page's text is all it shows.
      browser_->setOpenLinks(false);
      browser_->setOpenExternalLinks(false);
      page_stack_->addWidget(browser_);
      break;
    case PreviewMode::kMedia:
      media_ = new MediaPane(this);
      media_->setObjectName("mediaQV");
      media_->setAccessibleName(tr("Preview player"));
      widget = media_;
      break;
    case PreviewMode::kHandler: {
      widget = new QWidget(this);
      widget->setObjectName("handlerQV");
      auto* layout = new QVBoxLayout(widget);
      layout->setContentsMargins(0, 0, 0, 0);
      picture_ = MakePictureLabel(widget, "pictureQV");
      layout->addWidget(picture_, 1);
      auto* bar = new QWidget(widget);
      auto* row = new QHBoxLayout(bar);
      row->setContentsMargins(4, 2, 4, 2);
      page_prev_ = new QToolButton(bar);
      page_prev_->setArrowType(Qt::LeftArrow);
      page_prev_->setAccessibleName(tr("Previous page"));
      page_next_ = new QToolButton(bar);
      page_next_->setArrowType(Qt::RightArrow);
      page_next_->setAccessibleName(tr("Next page"));
      page_label_ = new QLabel(bar);
      row->addStretch(1);
      row->addWidget(page_prev_);
      row->addWidget(page_label_);
      row->addWidget(page_next_);
      row->addStretch(1);
      layout->addWidget(bar);
      bar->hide();
      connect(page_prev_, &QToolButton::clicked, this, [this] { ShowPage(-1); });
      connect(page_next_, &QToolButton::clicked, this, [this] { ShowPage(1); });
      break;
    }
    case PreviewMode::kThumbnail:
      thumbnail_ = MakePictureLabel(this, "thumbQV");
      widget = thumbnail_;
      break;
    case PreviewMode::kText:
      text_ = new QPlainTextEdit(this);
      text_->setObjectName("richQV");
      text_->setAccessibleName(tr("Preview text"));
      text_->setReadOnly(true);
      text_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
      text_->setLineWrapMode(QPlainTextEdit::NoWrap);
      text_->setFont(text_font());
      text_->setTabStopDistance(QFontMetricsF(text_->font()).horizontalAdvance(' ') * settings_.nTabWidth);
      widget = text_;
      break;
  }
  stack_->addWidget(widget);
  made_[mode] = widget;
  return widget;
}

void QuickView::Present(PreviewMode mode) {
  QWidget* next = mode == PreviewMode::kNothing ? empty_ : Make(mode);
  QWidget* old = stack_->currentWidget();
  if (mode != mode_) {
    QWidget* focus = QApplication::focusWidget();
    const bool had_focus = old && focus && (old == focus || old->isAncestorOf(focus));
    // The old presentation lets its content go.
    switch (mode_) {
      case PreviewMode::kMedia: media_->Release(); break;
      case PreviewMode::kThumbnail: thumbnail_->clear(); break;
      case PreviewMode::kHandler: picture_->clear(); break;
      case PreviewMode::kBrowser:
        browser_->clear();
        if (page_view_) page_view_->Release();
        break;
      case PreviewMode::kText: text_->clear(); break;
      case PreviewMode::kLister:
        if (const uint64_t window = lister_->Release(); window != 0 && shown_listers_)
          shown_listers_->CloseLater(window);
        break;
      case PreviewMode::kNothing:
        break;
    }
    stack_->setCurrentWidget(next);
    mode_ = mode;
    if (had_focus) {
      next->setFocusPolicy(next->focusPolicy() == Qt::NoFocus ? Qt::StrongFocus : next->focusPolicy());
      next->setFocus(Qt::OtherFocusReason);
    }
  }
  if (mode == PreviewMode::kNothing) picture_image_ = QImage();
}

void QuickView::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  // A picture drawn for a smaller pane is drawn again for the new size, once the user stops.
  if ((mode_ == PreviewMode::kHandler || mode_ == PreviewMode::kThumbnail) && shown_ && !busy_ &&
      !picture_image_.isNull()) {
    const QSize box = PictureBox(mode_ == PreviewMode::kHandler && pages_ > 0 && page_label_->isVisible());
    if (box.width() > last_box_.width() + 32 && box.height() > last_box_.height() + 32) {
      props::ShellItemPtr again = shown_;
      shown_ = nullptr;
      scheduled_ = again;
      if (!focused_) timer_.start();
      else if (focused_() == again) timer_.start();
    }
  }
}

}  // namespace trovix::views
