#include "views/preview/page_view.h"

#include <QPointer>
#include <QVBoxLayout>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineSettings>
#include <QWebEngineUrlRequestInterceptor>
#include <QWebEngineView>

#include <atomic>

namespace trovix::views {

// Runs on the engine's IO thread: only local files and the page's inline data pass.
class LocalOnlyInterceptor : public QWebEngineUrlRequestInterceptor {
 public:
  using QWebEngineUrlRequestInterceptor::QWebEngineUrlRequestInterceptor;
  void interceptRequest(QWebEngineUrlRequestInfo& info) override {
    const QString scheme = info.requestUrl().scheme();
    if (scheme == "file" || scheme == "data") return;
    info.block(true);
    ++refused;
  }
  std::atomic<int> refused{0};
};

namespace {

// Loads only the page it was asked for: a link, a form or a script-less refresh goes nowhere.
class PreviewPage : public QWebEnginePage {
 public:
  PreviewPage(QWebEngineProfile* profile, QObject* parent, const QUrl* expected, LocalOnlyInterceptor* refusals)
      : QWebEnginePage(profile, parent), expected_(expected), refusals_(refusals) {}

 protected:
  bool acceptNavigationRequest(const QUrl& url, NavigationType, bool main_frame) override {
    if (!main_frame || url == *expected_ || url.scheme() == "data") return true;
    ++refusals_->refused;
    return false;
  }
  QWebEnginePage* createWindow(WebWindowType) override {
    ++refusals_->refused;
    return nullptr;
  }

 private:
  const QUrl* expected_;
  LocalOnlyInterceptor* refusals_;
};

}  // namespace

PageView::PageView(QWidget* parent)
    : QWidget(parent),
      // Off the record: nothing a previewed page sets (cookies, storage, cache) reaches the disk.
      profile_(new QWebEngineProfile(this)),
      interceptor_(new LocalOnlyInterceptor(this)),
      view_(new QWebEngineView(this)) {
  profile_->setUrlRequestInterceptor(interceptor_);
  profile_->setHttpCacheType(QWebEngineProfile::MemoryHttpCache);
  profile_->setPersistentCookiesPolicy(QWebEngineProfile::NoPersistentCookies);
  auto* page = new PreviewPage(profile_, view_, &expected_, interceptor_);
  QWebEngineSettings* s = page->settings();
  s->setAttribute(QWebEngineSettings::JavascriptEnabled, false);
  s->setAttribute(QWebEngineSettings::LocalContentCanAccessRemoteUrls, false);
  s->setAttribute(QWebEngineSettings::PluginsEnabled, false);
  s->setAttribute(QWebEngineSettings::AutoLoadIconsForPage, false);
  s->setAttribute(QWebEngineSettings::ErrorPageEnabled, false);
  s->setAttribute(QWebEngineSettings::PdfViewerEnabled, false);
  view_->setPage(page);
  view_->setContextMenuPolicy(Qt::NoContextMenu);
  view_->setObjectName("pageQV");
  view_->setAccessibleName(tr("Preview page"));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(view_);
  setFocusProxy(view_);
}

PageView::~PageView() {
  // The page must go before its profile.
  delete view_;
  view_ = nullptr;
}

void PageView::Load(const QString& path, std::function<void(bool ok, const QString& text)> done) {
  const uint64_t load = ++load_;
  expected_ = QUrl::fromLocalFile(path);
  QWebEnginePage* page = view_->page();
  disconnect(page, &QWebEnginePage::loadFinished, this, nullptr);
  connect(page, &QWebEnginePage::loadFinished, this, [this, load, done](bool ok) {
    if (load != load_) return;
    disconnect(view_->page(), &QWebEnginePage::loadFinished, this, nullptr);
    if (!ok) {
      done(false, {});
      return;
    }
    QPointer<PageView> self(this);
    view_->page()->toPlainText([self, load, done](const QString& text) {
      if (self && load == self->load_) done(true, text);
    });
  });
  view_->load(expected_);
}

void PageView::Release() {
  ++load_;
  expected_ = QUrl();
  view_->setHtml(QString());
}

int PageView::refused() const { return interceptor_->refused; }

}  // namespace trovix::views
