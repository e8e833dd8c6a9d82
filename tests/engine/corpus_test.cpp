// The shared corpus of real files, when it is present beside the checkout (or where the
// environment variable TROVIX_CORPUS points): every file of its manifest must be found by a
// walk with its recorded size. (A type's kind follows its extension alone: the kind table's
// tests.) Without the corpus the test reports itself skipped.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <map>
#include <sstream>

#include "engine/search/search_panel.h"
#include "props/catalogue.h"
#include "props/fetcher.h"
#include "tests/support/search_fixtures.h"
#include "tests/support/test_files.h"

namespace trovix::engine {
namespace {

using trovix::testing::CorpusDir;

// path -> size in bytes, from the manifest.
std::map<std::string, uint64_t> ReadManifest(const std::string& dir) {
  std::map<std::string, uint64_t> files;
  std::ifstream in(dir + "/MANIFEST.tsv");
  std::string line;
  std::getline(in, line);  // header
  while (std::getline(in, line)) {
    std::vector<std::string> f;
    std::stringstream ss(line);
    std::string field;
    while (std::getline(ss, field, '\t')) f.push_back(field);
    if (f.size() >= 7) files[f[0]] = std::stoull(f[5]);
  }
  return files;
}

using trovix::testing::CollectingSink;

class Corpus : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = CorpusDir();
    struct stat st;
    if (stat((dir_ + "/MANIFEST.tsv").c_str(), &st) != 0) GTEST_SKIP() << "no corpus at " << dir_;
    manifest_ = ReadManifest(dir_);
    ASSERT_FALSE(manifest_.empty());
  }
  std::string dir_;
  std::map<std::string, uint64_t> manifest_;
};

TEST_F(Corpus, WalkFindsEveryFileWithItsRecordedSize) {
  CollectingSink sink;
  SearchPanel panel(sink);
  SearchRequest request;
  auto rule = testing::MakeRule("System.Size", ">= 0");
  request.rules = {rule};
  request.root_text = dir_;
  ASSERT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
  panel.Wait();
  const props::PropertyInfo& size = *props::DefaultCatalogue().FindProperty("System.Size");
  std::map<std::string, uint64_t> seen;
  const std::string root = panel.root_text();  // the root as the search wrote it
  for (const auto& item : sink.items) {
    std::string relative = item->path().substr(root.size() + 1);
    seen[relative] = static_cast<uint64_t>(props::GetCachedValue(*item, size)->value.AsInt64());
  }
  for (const auto& [path, bytes] : manifest_) {
    auto it = seen.find(path);
    ASSERT_NE(it, seen.end()) << path;
    EXPECT_EQ(it->second, bytes) << path;
  }
}

}  // namespace
}  // namespace trovix::engine
