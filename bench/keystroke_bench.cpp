// keystroke_bench: the search as typed in a main frame, on the offscreen platform. A name is
// typed into the first rule box one key at a time, as a user types it; after each key the
// frame stops the previous search and asks the index again. Printed per key: the time from
// the key to the first results in the list (or to the end of a search that found nothing) and
// to the end of the search, and the results; then the median and the slowest key. Each name
// is typed ROUNDS times (the box cleared between), so that the medians rest on enough keys.
// Target: the list follows every key within 50 ms on an index of a million items.
//
//   keystroke_bench INDEX ROOT [NAME...] [--rounds N]     (default: invoice_42, 3 rounds)
//
// INDEX must already cover ROOT (keystroke_speed.sh --desktop makes both, once, and keeps them).
#include <stdlib.h>
#include <unistd.h>

#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QStringList>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "props/catalogue.h"
#include "rules/value/value_syntax.h"
#include "views/frame/frame_search.h"
#include "views/frame/main_frame.h"
#include "views/frame/search_pane.h"
#include "views/program/desktop_app.h"
#include "views/results/results_pane.h"
#include "views/rule_boxes/rule_box.h"

namespace {

struct KeyTime {
  QString text;
  qint64 first_ms = -1;  // to the first results shown, or to the end when there were none
  qint64 end_ms = -1;
  qint64 found = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: keystroke_bench INDEX ROOT [NAME...] [--rounds N]\n");
    return 2;
  }
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  const std::string index = argv[1];
  const std::string root = argv[2];
  std::vector<QString> names;
  int rounds = 3;
  for (int i = 3; i < argc; ++i) {
    if (std::string(argv[i]) == "--rounds" && i + 1 < argc) {
      rounds = std::max(1, std::atoi(argv[++i]));
    } else {
      names.push_back(QString::fromUtf8(argv[i]));
    }
  }
  if (names.empty()) names.push_back("invoice_42");
  // What is typed, key by key; an empty text clears the box before the next name.
  std::vector<QString> typing;
  for (int r = 0; r < rounds; ++r)
    for (const QString& name : names) {
      typing.push_back(QString());
      for (QChar c : name) typing.push_back(c);
    }
  if (!std::filesystem::exists(index)) {
    std::fprintf(stderr, "keystroke_bench: no index at %s\n", index.c_str());
    return 2;
  }
  // Settings of its own, so the user's searches and lists stay untouched; the given index.
  const std::string folder =
      std::filesystem::temp_directory_path() / ("trovix-keystroke-bench-" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
  setenv("TROVIX_INDEX", index.c_str(), 1);
  QApplication application(argc, argv);
  trovix::views::DesktopApp desktop(
      trovix::app::ParseArguments(std::vector<std::string>{"/P", "/F", "/I:" + folder + "/trovix.ini"}, 1));
  if (!desktop.Start()) return 2;
  trovix::views::MainFrame& frame = *desktop.frames().front();
  auto rule = trovix::rules::Rule::CreateFor(*trovix::props::DefaultCatalogue().Resolve("System.ItemNameDisplay"));
  frame.search_pane()->SetRules({rule});
  frame.search_pane()->SetRootText(QString::fromStdString(root));
  QWidget* value = frame.search_pane()->boxes().front()->valueWidget();
  QLineEdit* line = qobject_cast<QLineEdit*>(value);
  if (line == nullptr) line = qobject_cast<QComboBox*>(value)->lineEdit();

  std::vector<KeyTime> keys;
  QElapsedTimer clock;
  bool searching = false;
  // Only the search of the key being timed counts (not one a cleared box may start).
  QObject::connect(frame.search(), &trovix::views::FrameSearch::started, [&] {
    searching = !keys.empty() && keys.back().end_ms < 0;
  });
  QObject::connect(frame.search(), &trovix::views::FrameSearch::results, [&](const auto& items) {
    if (searching && !keys.empty() && keys.back().first_ms < 0 && !items.empty()) keys.back().first_ms = clock.elapsed();
  });
  QObject::connect(&frame, &trovix::views::MainFrame::searchFinished, [&](qint64 found) {
    if (!searching || keys.empty()) return;
    searching = false;
    KeyTime& k = keys.back();
    k.end_ms = clock.elapsed();
    if (k.first_ms < 0) k.first_ms = k.end_ms;
    k.found = found;
  });

  // One key, then wait for its search to end (at most two seconds) before the next.
  size_t next = 0;
  std::function<void()> type_next = [&] {
    if (!keys.empty() && keys.back().end_ms < 0 && clock.elapsed() < 2000) {
      QTimer::singleShot(1, type_next);
      return;
    }
    if (next >= typing.size()) {
      QTimer::singleShot(100, &application, &QCoreApplication::quit);
      return;
    }
    const QString key = typing[next++];
    searching = false;
    if (key.isEmpty()) {
      // A cleared box starts no search: the next name is typed after a pause.
      frame.search()->Stop();
      line->clear();
      QTimer::singleShot(300, type_next);
      return;
    }
    keys.push_back({line->text() + key});
    clock.start();
    line->insert(key);
    QTimer::singleShot(1, type_next);
  };
  QTimer::singleShot(200, type_next);
  application.exec();

  QStringList typed;
  for (const QString& name : names) typed << name;
  std::printf("index %s, root %s, typing \"%s\" %d time(s)\n", index.c_str(), root.c_str(),
              typed.join("\", \"").toUtf8().constData(), rounds);
  std::vector<qint64> firsts, ends;
  for (const KeyTime& k : keys) {
    std::printf("  %-14s first results %5lld ms, end %5lld ms, %lld results\n", k.text.toUtf8().constData(),
                static_cast<long long>(k.first_ms), static_cast<long long>(k.end_ms), static_cast<long long>(k.found));
    if (k.first_ms >= 0) firsts.push_back(k.first_ms);
    if (k.end_ms >= 0) ends.push_back(k.end_ms);
  }
  if (firsts.size() != keys.size()) std::printf("  %zu key(s) started no search\n", keys.size() - firsts.size());
  if (!firsts.empty()) {
    std::sort(firsts.begin(), firsts.end());
    std::printf("key to first results: median %lld ms, slowest %lld ms (target: 50 ms or less)\n",
                static_cast<long long>(firsts[firsts.size() / 2]), static_cast<long long>(firsts.back()));
  }
  if (!ends.empty()) {
    std::sort(ends.begin(), ends.end());
    std::printf("key to the end of its search: median %lld ms, slowest %lld ms\n",
                static_cast<long long>(ends[ends.size() / 2]), static_cast<long long>(ends.back()));
  }
  std::fflush(stdout);
  std::filesystem::remove_all(folder);
  return firsts.size() == keys.size() ? 0 : 1;
}
