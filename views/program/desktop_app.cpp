#include "views/program/desktop_app.h"

#include <unistd.h>

#include <QApplication>
#include <QFileInfo>
#include <QMessageBox>

#include <cstdio>
#include <sstream>

#include "app/load_file_count.h"
#include "app/load_kinds.h"
#include "app/settings/plugin_lists.h"
#include "app/settings/settings_lock.h"
#include "index/sqlite/index_database.h"
#include "views/program/instance_channel.h"
#include "views/frame/main_frame.h"
#include "views/program/message_box.h"

namespace trovix::views {

DesktopApp::DesktopApp(app::CommandLine line, QObject* parent) : QObject(parent), line_(std::move(line)) {}

DesktopApp::~DesktopApp() = default;

app::SettingsEnvironment DesktopApp::Environment() const {
  return app::DefaultSettingsEnvironment(
      folders_, choice_.kind == app::StoreKind::kFile ? app::kStorageFile : app::kStorageRegistry);
}

bool DesktopApp::Start() {
  folders_ = app::DefaultStoreFolders();
  choice_ = app::ChooseStore(line_.settings_path, folders_);
  store_ = app::OpenChosenStore(choice_);
  if (!store_) {
    // The key store never fails to open (a store it cannot reach answers "no store"), so the
    // program still runs, on defaults.
    store_ = app::SettingsStore::OpenRegistry(choice_.registry_database);
  }
  std::ostringstream diagnostics;
  app::SettingsEnvironment env = Environment();
  env.diagnostics = &diagnostics;
  settings_ = app::LoadSettings(*store_, env);
  // A damaged store: the program starts on defaults and says so once.
  std::string problem = store_->OpenProblem();
  if (problem.empty()) problem = diagnostics.str();
  if (!problem.empty()) {
    ShowMessageBox(nullptr, {0, "trovix",
                             "The settings could not be read; the program starts with its defaults.\n" + problem,
                             QMessageBox::Warning, QMessageBox::Ok});
  }
  app::LoadKinds(settings_);
  app::InstallConfiguredPlugins(*store_, settings_, folders_);
  if (std::string why; !app::LoadFileCountRule(settings_, &why)) std::fprintf(stderr, "trovix: %s\n", why.c_str());
  lists_ = app::LoadSavedLists(*store_);
  // What the exit would write anyway (the use count, the defaults of values not stored yet,
  // the lists in their own form) is written now. From here on only what this session changes
  // differs from the store, and only that is merged into it when the last frame closes: a
  // search that the console saves meanwhile is kept.
  WriteSettings();
  const char* index = std::getenv("TROVIX_INDEX");
  index_path_ = index && *index ? index : engine::index::DefaultIndexPath();
  return OpenFrame(line_) != nullptr;
}

void DesktopApp::ListenForHandOver() {
  server_ = new InstanceServer(this);
  connect(server_, &InstanceServer::commandLineArrived, this, &DesktopApp::OnHandOver);
  if (server_->Listen()) {
    Trace("listening");
  } else {
    // Another instance holds the channel (it did not answer us): this one runs on its own.
    delete server_;
    server_ = nullptr;
  }
}

void DesktopApp::OnHandOver(quint32 show_command, const QString& line) {
  app::CommandLine parsed = app::ParseCommandLine(line.toStdString(), show_command);
  if (MainFrame* frame = OpenFrame(parsed)) {
    frame->raise();
    frame->activateWindow();
  }
}

MainFrame* DesktopApp::OpenFrame(const app::CommandLine& line) {
  auto* frame = new MainFrame(*this, line, static_cast<int>(frames_.size()));
  frames_.push_back(frame);
  frame->show();
  // A new window takes the keyboard: typing goes to its first rule box at once.
  frame->activateWindow();
  Trace("frame " + QString::fromStdString(line.root));
  return frame;
}

bool DesktopApp::SettingsWritable(QString* path) const {
  if (choice_.kind != app::StoreKind::kFile || settings_.bPersistSettings == app::kStorageNone) return true;
  *path = QString::fromStdString(choice_.file_path);
  QFileInfo info(*path);
  if (info.exists()) return info.isFile() && info.isWritable();
  QFileInfo folder(info.absolutePath());
  return folder.isDir() && folder.isWritable();
}

app::SettingsStatus DesktopApp::SaveAll() {
  if (saved_) return app::kSettingsOk;
  saved_ = true;
  std::string error;
  // Another process (a console command, a second instance) may be changing the store: wait for it.
  auto lock =
      app::SettingsLock::Acquire(app::SettingsLockPath(app::StoreLocation(choice_)), app::kSettingsLockTimeout, &error);
  if (reset_requested_) return app::ResetSettings(*store_);
  return WriteSettings();
}

app::SettingsStatus DesktopApp::WriteSettings() {
  app::SaveOptions options;
  options.save_lists = app::SavedListsSaver(lists_);
  return app::SaveSettings(*store_, settings_, Environment(), options);
}

void DesktopApp::Trace(const QString& line) const {
  static const QByteArray path = qgetenv("TROVIX_TRACE");
  if (path.isEmpty()) return;
  if (std::FILE* f = std::fopen(path.constData(), "a")) {
    std::fprintf(f, "%d %s\n", static_cast<int>(getpid()), line.toUtf8().constData());
    std::fclose(f);
  }
}

void DesktopApp::FrameClosed(MainFrame* frame) {
  std::erase(frames_, frame);
  Trace("closed");
  if (!frames_.empty()) return;
  Trace(QString("saved %1").arg(SaveAll()));
  emit lastFrameClosed();
}

}  // namespace trovix::views
