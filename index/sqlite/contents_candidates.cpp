#include "index/sqlite/contents_candidates.h"

#include <string>
#include <utility>
#include <vector>

#include "platform/sqlite_statement.h"

namespace trovix::engine::index {

void NarrowContentsLookups(sqlite3* db, SqliteQuery* query) {
  if (query->contents_lookups.empty()) return;
  platform::Statement probe(db, "SELECT count(*) FROM (SELECT rowid FROM contents WHERE contents MATCH ?1 LIMIT ?2)");
  if (!probe.ok()) return;
  for (const ContentsLookup& lookup : query->contents_lookups) {
    // A lookup of one trigram has nothing to leave out.
    if (lookup.param >= query->params.size() || lookup.trigrams.size() < 2) continue;
    std::vector<std::pair<int64_t, const std::string*>> counted;
    bool failed = false;
    for (const std::string& trigram : lookup.trigrams) {
      probe.Bind(1, TrigramMatch({trigram})).Bind(2, kRareTrigramPieces);
      failed = probe.Step() != SQLITE_ROW;
      const int64_t pieces = failed ? 0 : probe.Int(0);
      probe.Reset();
      if (failed) break;
      counted.emplace_back(pieces, &trigram);
      if (pieces == 0) break;  // no piece holds it: the lookup finds nothing
    }
    if (failed || counted.empty()) continue;
    std::vector<std::string> rare;
    if (counted.back().first == 0) {
      rare.push_back(*counted.back().second);
    } else {
      for (const auto& [pieces, trigram] : counted)
        if (pieces < kRareTrigramPieces) rare.push_back(*trigram);
    }
    if (!rare.empty() && rare.size() < lookup.trigrams.size()) query->params[lookup.param] = TrigramMatch(rare);
  }
}

}  // namespace trovix::engine::index
