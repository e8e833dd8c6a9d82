// Dependencies go one way, down. CMake catches a wrong-way include only when it needs a symbol
// from a library the including one does not link; a header-only include slips through. This
// test reads every source and header of the code folders and holds each project include
// against the table below.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace trovix::base {
namespace {

namespace fs = std::filesystem;

// Each room and the rooms its files may include (itself included). A file belongs to the
// longest folder of this table its path starts with; so does an included header. A new room
// is one more row, and one more name in the rows of the rooms above it.
const std::map<std::string, std::set<std::string>>& AllowedIncludes() {
  static const std::map<std::string, std::set<std::string>> table = [] {
    const std::set<std::string> base = {"base"};
    const std::set<std::string> platform = {"base", "platform"};
    // The text patterns depend only on base, so that file kinds (props) can match with them.
    const std::set<std::string> patterns = {"base", "rules/patterns"};
    std::set<std::string> props = {"base", "platform", "rules/patterns", "props"};
    std::set<std::string> rules = props;
    rules.insert("rules");
    // A rule list's stored form and its index query are libraries above the rules.
    std::set<std::string> rule_blob = rules;
    rule_blob.insert("rules/blob");
    std::set<std::string> rule_query = rules;
    rule_query.insert("rules/query");
    // The text decoding shared by the helper and the search process sits below both.
    const std::set<std::string> text = {"base", "platform", "text"};
    // The helper program links base, platform and its own readers only.
    const std::set<std::string> extract = {"base", "platform", "text", "extract"};
    std::set<std::string> engine = rules;
    engine.insert({"engine", "text"});
    // The index's language and its SQLite store stand on the rules alone; the route and the
    // indexer above them answer rules on top of the search they stand in for.
    const std::set<std::string> index_dialect = {"base", "rules/patterns", "index/dialect"};
    std::set<std::string> index_sqlite = rules;
    index_sqlite.insert({"index/dialect", "index/sqlite"});
    std::set<std::string> index = engine;
    index.insert({"index", "index/dialect", "index/sqlite", "rules/query"});
    // The shared index on PostgreSQL stands above the local index, whose rows and route it reuses.
    std::set<std::string> index_postgres = index;
    index_postgres.insert("index/postgres");
    std::set<std::string> app = index_postgres;
    app.insert({"app", "rules/blob"});
    std::set<std::string> cli = app;
    cli.insert("cli");
    std::set<std::string> views = app;
    views.insert("views");
    return std::map<std::string, std::set<std::string>>{
        {"base", base},
        {"platform", platform},
        {"rules/patterns", patterns},
        {"props", props},
        {"rules", rules},
        {"rules/blob", rule_blob},
        {"rules/query", rule_query},
        {"text", text},
        {"extract", extract},
        {"engine", engine},
        {"index", index},
        {"index/dialect", index_dialect},
        {"index/sqlite", index_sqlite},
        {"index/postgres", index_postgres},
        {"app", app},
        {"cli", cli},
        {"views", views},
    };
  }();
  return table;
}

// The room of a path relative to the source root, or "" when no row names it.
std::string RoomOf(const std::string& path) {
  std::string best;
  for (const auto& [room, allowed] : AllowedIncludes()) {
    (void)allowed;
    if (path.size() > room.size() && path.compare(0, room.size(), room) == 0 && path[room.size()] == '/' &&
        room.size() > best.size())
      best = room;
  }
  return best;
}

struct WrongWay {
  std::string file;
  int line;
  std::string header;
};

// The quoted includes of one file that leave the rooms its own room may use.
std::vector<WrongWay> WrongWayIncludes(const std::string& relative, std::istream& in) {
  std::vector<WrongWay> found;
  const std::string room = RoomOf(relative);
  const auto& allowed = AllowedIncludes().at(room);
  std::string line;
  int number = 0;
  while (std::getline(in, line)) {
    ++number;
    size_t at = line.find_first_not_of(" \t");
    if (at == std::string::npos || line.compare(at, 1, "#") != 0) continue;
    at = line.find_first_not_of(" \t", at + 1);
    if (at == std::string::npos || line.compare(at, 7, "include") != 0) continue;
    const size_t open = line.find('"', at);
    if (open == std::string::npos) continue;  // a system or library header
    const size_t close = line.find('"', open + 1);
    if (close == std::string::npos) continue;
    const std::string header = line.substr(open + 1, close - open - 1);
    const std::string target = RoomOf(header);
    if (!target.empty() && !allowed.count(target)) found.push_back({relative, number, header});
  }
  return found;
}

std::string Describe(const std::vector<WrongWay>& found) {
  std::ostringstream out;
  for (const WrongWay& w : found) out << w.file << ":" << w.line << " includes " << w.header << "\n";
  return out.str();
}

TEST(LayerIncludes, NoFileIncludesARoomAboveItsOwn) {
  const fs::path root = TROVIX_SOURCE_DIR;
  std::vector<WrongWay> found;
  size_t files = 0;
  for (const auto& [room, allowed] : AllowedIncludes()) {
    (void)allowed;
    if (room.find('/') != std::string::npos || !fs::is_directory(root / room)) continue;
    for (const auto& entry : fs::recursive_directory_iterator(root / room)) {
      const std::string ext = entry.path().extension().string();
      if (!entry.is_regular_file() || (ext != ".h" && ext != ".cpp")) continue;
      const std::string relative = fs::relative(entry.path(), root).generic_string();
      std::ifstream in(entry.path());
      ++files;
      for (WrongWay& w : WrongWayIncludes(relative, in)) found.push_back(std::move(w));
    }
  }
  EXPECT_GT(files, 100u) << "the source folders were not found under " << root;
  EXPECT_TRUE(found.empty()) << Describe(found);
}

// The check itself: the longest room wins, and a sibling front end is not below the other.
TEST(LayerIncludes, ReportsWrongWayIncludesByLongestRoom) {
  std::istringstream extract_file(
      "#include <string>\n#include \"text/utf8_scan.h\"\n#  include \"engine/results/result_sink.h\"\n");
  const auto extract = WrongWayIncludes("extract/reader.cpp", extract_file);
  ASSERT_EQ(extract.size(), 1u);
  EXPECT_EQ(extract[0].line, 3);
  EXPECT_EQ(extract[0].header, "engine/results/result_sink.h");

  std::istringstream cli_file("#include \"views/frame/main_frame.h\"\n#include \"index/indexer.h\"\n");
  const auto cli = WrongWayIncludes("cli/main.cpp", cli_file);
  ASSERT_EQ(cli.size(), 1u);
  EXPECT_EQ(cli[0].header, "views/frame/main_frame.h");

  std::istringstream props_file("#include \"rules/patterns/keyword.h\"\n#include \"rules/rule.h\"\n");
  const auto props = WrongWayIncludes("props/file_kinds.cpp", props_file);
  ASSERT_EQ(props.size(), 1u);
  EXPECT_EQ(props[0].header, "rules/rule.h");
}

}  // namespace
}  // namespace trovix::base
