// PageView: the quick view's web-page presentation, a web view that shows a local page as a
// browser draws it and goes nowhere else. A previewed page is untrusted: its scripts are off,
// every request that is not for a local file (or the page's own inline data) is refused before
// it leaves, links do not navigate, and no window opens. The engine draws the page in its own
// renderer processes, sandboxed for every user but root (see web_engine_setup.h).
//
// Built only where Qt WebEngine is installed; the quick view then shows the page's text
// instead. UI thread.
#pragma once

#include <QString>
#include <QUrl>
#include <QWidget>

#include <functional>

class QWebEngineProfile;
class QWebEngineView;

namespace trovix::views {

class LocalOnlyInterceptor;

class PageView : public QWidget {
  Q_OBJECT
 public:
  explicit PageView(QWidget* parent = nullptr);
  ~PageView() override;

  // Shows the page at `path`; `done` runs once with whether it loaded and the page's text as
  // drawn (scripts off, so what the file says).
  void Load(const QString& path, std::function<void(bool ok, const QString& text)> done);
  // Lets the page go (the pane shows another presentation).
  void Release();

  // Requests refused since the view was made: remote resources, other schemes, navigation.
  int refused() const;

 private:
  QWebEngineProfile* profile_;
  LocalOnlyInterceptor* interceptor_;
  QWebEngineView* view_;
  QUrl expected_;
  uint64_t load_ = 0;  // which Load a finished signal belongs to
};

}  // namespace trovix::views
