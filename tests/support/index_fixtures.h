// What the index tests share: an index built over a tree in one go, the paths it holds, counts
// asked of it, and a wait for a watch or a server that works in another thread or process.
//
//   UpdateStats stats;
//   ASSERT_NO_FATAL_FAILURE(BuildIndex(tree.path("index.db"), tree.path("root"), &stats));
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <set>
#include <string>
#include <thread>

#include "index/indexer.h"
#include "index/sqlite/index_database.h"
#include "platform/sqlite_statement.h"

namespace trovix::testing {

// Opens (or makes) the index at `db_path`, adds `root`, runs one full update and closes it;
// `tune` sets the indexer's bounds first.
inline void BuildIndex(const std::string& db_path, const std::string& root, engine::index::UpdateStats* stats,
                       const std::function<void(engine::index::Indexer&)>& tune = {}) {
  using engine::index::IndexDatabase;
  std::string error;
  auto db = IndexDatabase::Open(db_path, IndexDatabase::Access::kWrite, &error);
  ASSERT_TRUE(db) << error;
  engine::index::Indexer indexer(*db);
  if (tune) tune(indexer);
  ASSERT_TRUE(indexer.AddRoot(root, &error)) << error;
  ASSERT_TRUE(indexer.Update({}, stats, {})) << indexer.error();
}

// Every path the index holds, folders and files.
inline std::set<std::string> IndexedPaths(engine::index::IndexDatabase& db) {
  std::set<std::string> out;
  platform::Statement s(db.db(), "SELECT f.path, i.name FROM items i JOIN folders f ON f.id=i.parent");
  while (s.Step() == SQLITE_ROW) out.insert(std::string(s.Text(0)) + "/" + std::string(s.Text(1)));
  return out;
}

// The first column of the first row of `sql`, -1 when it gives none.
inline int64_t CountWhere(engine::index::IndexDatabase& db, const std::string& sql) {
  platform::Statement s(db.db(), sql);
  return s.Step() == SQLITE_ROW ? s.Int(0) : -1;
}

// Polls until `done` holds or `limit` has passed.
inline bool Eventually(const std::function<bool()>& done, std::chrono::milliseconds limit = std::chrono::seconds(10),
                       std::chrono::milliseconds step = std::chrono::milliseconds(100)) {
  for (auto until = std::chrono::steady_clock::now() + limit; std::chrono::steady_clock::now() < until;) {
    if (done()) return true;
    std::this_thread::sleep_for(step);
  }
  return done();
}

}  // namespace trovix::testing
