// results_list_bench: the results list with a million rows, on the offscreen platform.
//
// The items are ShellItems for made-up paths, each with the status a folder listing would
// have handed over (size and modification time), so no row needs the file system. They are
// added in batches of 10,000, one batch per turn of the running event loop, as the search's
// batching sink delivers them, while a 10 ms timer ticks. Printed:
//   - the time from the first batch to the last row shown (the view scrolled to the end and
//     painted);
//   - the memory the list keeps per row of its own, beyond the items: the model's vectors
//     (counted) and the process's resident growth while the rows went in (measured, which
//     includes the view's own per-row share);
//   - the time to sort by name and by size, and to filter by name and show all again;
//   - the longest gap between two ticks of the 10 ms timer while rows stream in.
// Targets: under 2 s to show, under 300 bytes per row, sorts under 1 s, no gap over 50 ms.
//
//   results_list_bench [rows] [batch]
#include <QApplication>
#include <QElapsedTimer>
#include <QTableView>
#include <QTimer>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "props/shell_item.h"
#include "views/results/results_model.h"
#include "views/results/results_pane.h"

namespace {

using trovix::props::ShellItem;
using trovix::props::ShellItemPtr;

long ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * 4096;
}

std::vector<ShellItemPtr> MakeItems(size_t count) {
  std::mt19937_64 random(42);
  std::vector<ShellItemPtr> items;
  items.reserve(count);
  const char* extensions[] = {"txt", "pdf", "jpg", "cpp", "h", "md", "png", "docx"};
  for (size_t i = 0; i < count; ++i) {
    char path[128];
    std::snprintf(path, sizeof path, "/bench/tree/folder%04zu/file%zu_%06llu.%s", i / 1000, i,
                  static_cast<unsigned long long>(random() % 1000000), extensions[random() % 8]);
    ShellItemPtr item = ShellItem::FromListing(path, trovix::platform::FileType::kRegular);
    trovix::platform::FileStatus status;
    status.type = trovix::platform::FileType::kRegular;
    status.size = random() % (64ull << 20);
    status.modified = 130000000000000000ll + static_cast<int64_t>(random() % 100000000000000ll);
    status.created = status.modified;
    item->SetListedStatus(0, status);
    items.push_back(std::move(item));
  }
  return items;
}

}  // namespace

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  const size_t rows = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1000000;
  const size_t batch = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 10000;

  trovix::views::ResultsPane pane;
  pane.resize(1200, 800);
  pane.show();
  QApplication::processEvents();

  QElapsedTimer clock;
  clock.start();
  std::vector<ShellItemPtr> items = MakeItems(rows);
  std::printf("made %zu items in %lld ms\n", rows, static_cast<long long>(clock.elapsed()));

  long resident_before = ResidentBytes();
  pane.BeginSearch();
  QElapsedTimer since_tick;
  qint64 longest_gap = 0;
  QTimer ticker;
  ticker.setInterval(10);
  QObject::connect(&ticker, &QTimer::timeout, [&] {
    longest_gap = std::max(longest_gap, since_tick.restart());
  });

  size_t next = 0;
  qint64 shown_ms = 0;
  QElapsedTimer streaming;
  std::function<void()> finish;
  std::function<void()> feed = [&] {
    size_t end = std::min(rows, next + batch);
    pane.AddResults(std::vector<ShellItemPtr>(items.begin() + static_cast<long>(next), items.begin() + static_cast<long>(end)));
    next = end;
    if (next < rows) {
      QTimer::singleShot(0, feed);
      return;
    }
    pane.EndSearch(false);
    QTimer::singleShot(0, finish);
  };
  // An oversized batch goes into the list over several turns: wait for its last row.
  finish = [&] {
    if (pane.VisibleCount() < pane.ItemCount()) {
      QTimer::singleShot(0, finish);
      return;
    }
    pane.view()->scrollToBottom();
    pane.view()->viewport()->repaint();
    shown_ms = streaming.elapsed();
    ticker.stop();
    QTimer::singleShot(0, &app, &QApplication::quit);
  };
  since_tick.start();
  ticker.start();
  streaming.start();
  QTimer::singleShot(0, feed);
  app.exec();
  long resident_after = ResidentBytes();

  std::printf("rows shown: %d of %lld\n", pane.VisibleCount(), static_cast<long long>(pane.ItemCount()));
  std::printf("time to the last row shown: %lld ms (batches of %zu)\n", static_cast<long long>(shown_ms), batch);
  std::printf("longest gap between 10 ms ticks while streaming: %lld ms\n", static_cast<long long>(longest_gap));
  std::printf("bytes per row of our own: %zu counted in the model, %ld resident growth\n", pane.model()->BytesPerRow(),
              (resident_after - resident_before) / static_cast<long>(rows));

  auto timed = [&](const char* what, auto&& step) {
    QElapsedTimer t;
    t.start();
    step();
    pane.view()->viewport()->repaint();
    std::printf("%s: %lld ms\n", what, static_cast<long long>(t.elapsed()));
  };
  timed("sort by name (first, values read)", [&] { pane.SortByCommand(32892); });
  timed("sort by name again", [&] { pane.SortByCommand(32899); });
  timed("sort by size", [&] { pane.SortByCommand(32893); });
  timed("sort by date, newest first", [&] { pane.SortByCommand(32894); });
  timed("filter by name (\"_0001\")", [&] { pane.model()->SetFilter(QStringLiteral("_0001"), true); });
  std::printf("  rows matching: %d\n", pane.VisibleCount());
  timed("show all items again", [&] { pane.model()->SetFilter(QString(), true); });
  std::printf("  rows shown: %d\n", pane.VisibleCount());
  return 0;
}
