// DesktopApp: the process of the desktop program. It chooses and loads the settings before
// the first frame opens, keeps the saved lists (searches, layouts, map areas, frequent folders)
// that every frame shares, opens one frame per command line (its own and every line a later
// start hands over through the instance channel), and when the last frame has closed saves the
// settings and the lists (or deletes them, when a reset was asked for) and ends the process.
//
// All frames live on the UI thread; each frame's search runs on a worker thread of its own, so
// the frames never wait for each other. UI thread only.
#pragma once

#include <QObject>
#include <QString>

#include <memory>
#include <optional>
#include <vector>

#include "app/command_line.h"
#include "app/settings/saved_lists.h"
#include "app/settings/settings.h"
#include "app/settings/settings_location.h"
#include "app/settings/settings_store.h"

namespace trovix::views {

class InstanceServer;
class MainFrame;

class DesktopApp : public QObject {
  Q_OBJECT
 public:
  explicit DesktopApp(app::CommandLine line, QObject* parent = nullptr);
  ~DesktopApp() override;

  // Loads the settings and the lists and opens the first frame. False when nothing could be
  // opened.
  bool Start();
  // Listens for later starts (not for a private instance).
  void ListenForHandOver();

  // A new frame for a command line (a hand-over, or "New window").
  MainFrame* OpenFrame(const app::CommandLine& line);

  app::SettingsStore& store() { return *store_; }
  app::Settings& settings() { return settings_; }
  app::SavedLists& lists() { return lists_; }
  const app::StoreChoice& store_choice() const { return choice_; }
  // The index database the frames search (TROVIX_INDEX, else the usual place).
  const std::string& index_path() const { return index_path_; }
  const std::vector<MainFrame*>& frames() const { return frames_; }

  // "Reset all settings at exit": the settings are deleted instead of saved when the last frame
  // closes.
  void RequestReset(bool reset) { reset_requested_ = reset; }
  bool reset_requested() const { return reset_requested_; }

  // Whether the settings file (in file mode) can be written; the path for the message.
  bool SettingsWritable(QString* path) const;

  // A line for the trace file named by TROVIX_TRACE, if any: what the process did (frames
  // opened and closed, hand-overs, the save at exit), for diagnosing a desktop session and for
  // the tests that drive the program from outside.
  void Trace(const QString& line) const;

  // Called by a frame as it closes.
  void FrameClosed(MainFrame* frame);
  // Saves the settings and the lists now (the last frame closed); returns the store's status.
  app::SettingsStatus SaveAll();

 signals:
  // The settings are saved: the process may end (the program's main loop quits on it).
  void lastFrameClosed();

 private slots:
  void OnHandOver(quint32 show_command, const QString& line);

 private:
  // What the desktop tells the settings' defaults, for the store chosen at start.
  app::SettingsEnvironment Environment() const;
  // Writes the settings and the lists into the store and commits (merged with what others
  // stored meanwhile).
  app::SettingsStatus WriteSettings();

  app::CommandLine line_;
  app::StoreFolders folders_;
  app::StoreChoice choice_;
  std::unique_ptr<app::SettingsStore> store_;
  app::Settings settings_;
  app::SavedLists lists_;
  std::string index_path_;
  std::vector<MainFrame*> frames_;
  InstanceServer* server_ = nullptr;
  bool reset_requested_ = false;
  bool saved_ = false;
};

}  // namespace trovix::views
