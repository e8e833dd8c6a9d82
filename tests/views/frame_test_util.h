// A desktop session inside the test program: its own settings file and folders, one frame,
// message boxes answered by the test, and helpers to make rules as a user types them.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <QSignalSpy>

#include <memory>
#include <string>
#include <vector>

#include "props/catalogue.h"
#include "rules/rule.h"
#include "rules/value/value_syntax.h"
#include "tests/support/search_fixtures.h"
#include "tests/support/temp_tree.h"
#include "views/program/desktop_app.h"
#include "views/frame/frame_search.h"
#include "views/frame/main_frame.h"
#include "views/frame/search_pane.h"
#include "views/program/message_box.h"

namespace trovix::testing {

class FrameSession {
 public:
  // With `settings_file` the session keeps its settings in a file of the tree, otherwise in
  // the per-user key store under the tree's config/ folder.
  explicit FrameSession(TempTree& tree, std::vector<std::string> switches = {}, bool settings_file = true)
      : tree_(tree) {
    setenv("XDG_CONFIG_HOME", tree.path("config").c_str(), 1);
    setenv("XDG_CACHE_HOME", tree.path("cache").c_str(), 1);
    setenv("XDG_DATA_HOME", tree.path("data").c_str(), 1);
    setenv("TROVIX_EXTRACT", TROVIX_EXTRACT_PATH, 0);
    std::vector<std::string> args = {"/P", "/F"};
    if (settings_file) args.push_back("/I:" + tree.path("trovix.ini"));
    args.insert(args.end(), switches.begin(), switches.end());
    app_ = std::make_unique<views::DesktopApp>(app::ParseArguments(args, 1));
    // Installed before the start, which may have something to say about the settings.
    views::SetMessageBoxHook([this](const views::MessageBoxCall& m) {
      messages.push_back(m);
      return answer;
    });
    EXPECT_TRUE(app_->Start());
  }
  ~FrameSession() {
    // Nobody is left to answer whether a running search is to be abandoned.
    for (views::MainFrame* f : std::vector<views::MainFrame*>(app_->frames())) {
      f->AbandonSearchOnClose();
      f->close();
    }
    views::SetMessageBoxHook({});
  }

  views::MainFrame& frame() { return *app_->frames().front(); }
  views::DesktopApp& app() { return *app_; }

  // Fills the panel of the first window: the root folder and the rules.
  void SetSearch(const std::string& root, const std::vector<rules::RulePtr>& rules) {
    frame().search_pane()->SetRootText(QString::fromStdString(root));
    frame().search_pane()->SetRules(rules);
  }

  // Starts the search in the boxes and waits for its end; the count it found.
  qint64 RunSearch(int timeout_ms = 20000) {
    QSignalSpy finished(&frame(), &views::MainFrame::searchFinished);
    frame().StartOrStop();
    // A short search may already be over with its "finished" signal still queued: give the
    // queue a moment before calling it a search that never started.
    if (!frame().search()->running() && finished.isEmpty() && !finished.wait(1000)) return -1;
    if (finished.isEmpty() && !finished.wait(timeout_ms)) return -2;
    return finished.takeFirst().at(0).toLongLong();
  }

  std::vector<views::MessageBoxCall> messages;
  QMessageBox::StandardButton answer = QMessageBox::Ok;

 private:
  TempTree& tree_;
  std::unique_ptr<views::DesktopApp> app_;
};

}  // namespace trovix::testing
