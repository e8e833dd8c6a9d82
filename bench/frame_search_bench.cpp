// frame_search_bench: a real search from a main frame, on the offscreen platform, with a 10 ms
// timer ticking on the UI thread. The search walks ROOT (default /usr) on its worker and the
// results arrive in batches; the UI thread must stay free for the user all along. Printed: the
// results, the time to the end of the search, and the longest gap between two ticks (target:
// no gap over 50 ms while a search runs).
//
//   frame_search_bench [ROOT] [NAME-PATTERN]     (default: /usr and *.h)
#include <stdlib.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>

#include "app/command_line.h"
#include "props/catalogue.h"
#include "rules/value/value_syntax.h"
#include "views/program/desktop_app.h"
#include "views/frame/frame_search.h"
#include "views/frame/main_frame.h"
#include "views/results/results_pane.h"
#include "views/frame/search_pane.h"

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  const std::string root = argc > 1 ? argv[1] : "/usr";
  const std::string pattern = argc > 2 ? argv[2] : "*.h";
  // A settings file of its own, so the user's searches and lists stay untouched.
  const std::string folder = std::filesystem::temp_directory_path() / ("trovix-frame-bench-" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
  QApplication application(argc, argv);

  trovix::views::DesktopApp desktop(
      trovix::app::ParseArguments(std::vector<std::string>{"/P", "/F", "/I:" + folder + "/trovix.ini"}, 1));
  if (!desktop.Start()) return 2;
  // Quitting the event loop closes (and deletes) the frame: read it only before.
  trovix::views::MainFrame& frame = *desktop.frames().front();
  auto rule = trovix::rules::Rule::CreateFor(*trovix::props::DefaultCatalogue().Resolve("System.ItemNameDisplay"));
  trovix::rules::ParseRuleText(*rule, pattern);
  frame.search_pane()->SetRules({rule});
  frame.search_pane()->SetRootText(QString::fromStdString(root));

  QElapsedTimer clock, since_tick;
  qint64 longest_gap = 0;
  QTimer ticker;
  ticker.setInterval(10);
  QObject::connect(&ticker, &QTimer::timeout, [&] {
    longest_gap = std::max(longest_gap, since_tick.restart());
  });
  qint64 found = -1, elapsed = 0;
  QObject::connect(&frame, &trovix::views::MainFrame::searchFinished, [&](qint64 n) {
    found = n;
    elapsed = clock.elapsed();
    // Let the list sort and paint what it got before stopping the clock on gaps.
    QTimer::singleShot(300, &application, &QCoreApplication::quit);
  });
  QTimer::singleShot(0, [&] {
    clock.start();
    since_tick.start();
    ticker.start();
    frame.StartOrStop();
  });
  qint64 rows = 0;
  QObject::connect(&application, &QCoreApplication::aboutToQuit, [&] { rows = frame.results()->ItemCount(); });
  application.exec();
  std::printf("root %s, name %s: %lld results in %lld ms; list rows %lld\n", root.c_str(), pattern.c_str(),
              static_cast<long long>(found), static_cast<long long>(elapsed), static_cast<long long>(rows));
  std::printf("longest gap between 10 ms ticks of the UI thread: %lld ms (target: 50 ms or less)\n",
              static_cast<long long>(longest_gap));
  std::fflush(stdout);
  std::filesystem::remove_all(folder);
  return 0;
}
