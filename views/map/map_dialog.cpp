#include "views/map/map_dialog.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QShortcut>
#include <QStyle>
#include <QTimer>
#include <QVBoxLayout>
#include <QWebChannel>
#include <QWebEnginePage>
#include <QWebEngineView>

#include "base/string_table.h"
#include "views/program/message_box.h"

// The page lives in the views library, which is static: its resources are registered by hand.
// Q_INIT_RESOURCE declares a function of the global namespace, so it is called from here.
static void RegisterMapResource() { Q_INIT_RESOURCE(map); }

namespace trovix::views {
namespace {

constexpr uint32_t kScriptingFailed = 10037;
constexpr uint32_t kLocationCue = 11382;

QString Text(uint32_t id) {
  const std::string_view text = base::LoadString(id);
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace

MapDialog::MapDialog(app::MapState* state, const Page& page, QWidget* parent) : QDialog(parent), state_(state) {
  setWindowTitle("Picture map");
  setAccessibleName("Picture map");
  resize(900, 640);

  auto* icon = new QLabel(this);
  icon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxQuestion).pixmap(20, 20));
  icon->setToolTip("Type a name to keep this area in the menu of map areas");
  name_ = new QLineEdit(this);
  name_->setPlaceholderText(Text(kLocationCue));
  name_->setAccessibleName(Text(kLocationCue));
  world_ = new QPushButton("&World", this);
  world_->setAccessibleName("World");
  world_->setToolTip("Show the whole world");
  auto* top = new QHBoxLayout;
  top->addWidget(icon);
  top->addWidget(name_, 1);
  top->addWidget(world_);

  view_ = new QWebEngineView(this);
  view_->setAccessibleName("Map");
  view_->setContextMenuPolicy(Qt::NoContextMenu);
  bridge_ = new MapBridge(state_, this);
  channel_ = new QWebChannel(this);
  channel_->registerObject("external", bridge_);
  view_->page()->setWebChannel(channel_);

  status_ = new QLabel(this);
  status_->setAccessibleName("Pictures on the map");
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel | QDialogButtonBox::Help, this);
  buttons->button(QDialogButtonBox::Ok)->setToolTip("Find pictures shot in the area shown");
  auto* bottom = new QHBoxLayout;
  bottom->addWidget(status_, 1);
  bottom->addWidget(buttons);

  auto* layout = new QVBoxLayout(this);
  layout->addLayout(top);
  layout->addWidget(view_, 1);
  layout->addLayout(bottom);

  connect(world_, &QPushButton::clicked, this, &MapDialog::World);
  connect(buttons, &QDialogButtonBox::accepted, this, &MapDialog::Ok);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  connect(buttons, &QDialogButtonBox::helpRequested, this, &MapDialog::Help);
  connect(new QShortcut(QKeySequence(Qt::Key_F1), this), &QShortcut::activated, this, &MapDialog::Help);

  // The page must load and its channel connect; a page that cannot run its script does
  // neither, and a time-out tells it from a slow start.
  page_timer_ = new QTimer(this);
  page_timer_->setSingleShot(true);
  connect(page_timer_, &QTimer::timeout, this, &MapDialog::PageFailed);
  connect(bridge_, &MapBridge::ready, page_timer_, &QTimer::stop);
  connect(view_, &QWebEngineView::loadFinished, this, [this](bool ok) {
    if (!ok) PageFailed();
  });
  static const bool registered = (RegisterMapResource(), true);
  (void)registered;
  page_timer_->start(page.timeout_ms);
  view_->load(QUrl(page.url));
}

MapDialog::~MapDialog() {
  // The page goes before the channel and the bridge it calls.
  delete view_;
}

void MapDialog::PageFailed() {
  if (failed_ || bridge_->page_ready()) return;
  failed_ = true;
  page_timer_->stop();
  emit pageFailed();
  ShowStringBox(this, kScriptingFailed, QMessageBox::Warning);
}

void MapDialog::RunScript(const QString& script, std::function<void(const QVariant&)> done) {
  if (!bridge_->page_ready()) {
    done(QVariant());
    return;
  }
  view_->page()->runJavaScript(script, [done](const QVariant& result) { done(result); });
}

void MapDialog::CallPage(const QString& function, std::function<void(bool)> done) {
  // Only a function the page has and that answers true counts as done.
  const QString script = QString("(typeof %1 === 'function') && %1() === true").arg(function);
  RunScript(script, [done](const QVariant& result) {
    const bool ok = result.typeId() == QMetaType::Bool && result.toBool();
    if (!ok) QApplication::beep();
    if (done) done(ok);
  });
}

void MapDialog::SetPictureStatus(const QString& text) { status_->setText(text); }

void MapDialog::World() { CallPage("worldZoom"); }

void MapDialog::Ok() {
  const QString script =
      "(function () {"
      "  if (typeof getMapRange !== 'function' || getMapRange() !== true) return null;"
      "  var f = document.forms.f1;"
      "  return [f.top.value, f.left.value, f.bottom.value, f.right.value, f.zoom.value];"
      "})()";
  RunScript(script, [this](const QVariant& result) {
    const QVariantList v = result.toList();
    bool ok = v.size() == 5;
    double edge[4] = {};
    for (int i = 0; ok && i < 4; ++i) edge[i] = v[i].toString().toDouble(&ok);
    const int zoom = ok ? static_cast<int>(v[4].toString().toDouble(&ok)) : 0;
    if (!ok) {
      // The page did not answer: the user keeps the dialog and can try again.
      QApplication::beep();
      return;
    }
    app::MapArea area{name_->text().trimmed().toStdString(), edge[0], edge[1], edge[2], edge[3]};
    *state_ = app::StateForArea(area, zoom);
    chosen_ = area;
    emit areaChosen(area);
    accept();
  });
}

void MapDialog::Help() {
  ShowMessageBox(this, {0, "Picture map",
                        "Pan and zoom the map to the area where the pictures were shot, then press OK: the "
                        "search gets a latitude and a longitude rule for the area shown.\n\n"
                        "Type a location name to keep the area: it is offered again under Rules > Map areas "
                        "(\"Find pictures shot in this location\").\n\n"
                        "After a search, the pictures of the results that carry a position are marked on the "
                        "map; click a marker to select its picture in the results.",
                        QMessageBox::Information, QMessageBox::Ok});
}

}  // namespace trovix::views
