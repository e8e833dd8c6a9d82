// A document's own properties end to end: documents the tests make (and the sample corpus when
// it is there) read by the real helper, typed by the property table, searched by rules.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "base/file_time.h"
#include "engine/own_properties.h"
#include "engine/search_job.h"
#include "props/catalogue.h"
#include "props/fetcher.h"
#include "rules/value_syntax.h"
#include "tests/support/temp_tree.h"

namespace trovix::engine {
namespace {

const bool kEnvironment = [] {
  setenv("TROVIX_EXTRACT", TROVIX_EXTRACT_PATH, 0);
  std::string cache = std::filesystem::temp_directory_path() / ("trovix-test-cache-" + std::to_string(getpid()));
  setenv("XDG_CACHE_HOME", cache.c_str(), 1);
  InstallOwnPropertySource();
  return true;
}();

constexpr const char* kCore = R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>
<cp:coreProperties xmlns:cp="http://schemas.openxmlformats.org/package/2006/metadata/core-properties"
  xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:dcterms="http://purl.org/dc/terms/"
  xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance">
<dc:title>Quarterly report</dc:title><dc:creator>Ann Smith; Bob Jones</dc:creator>
<cp:keywords>alpha, beta;gamma</cp:keywords><dc:description>line one_x000d_
line two</dc:description>
<dcterms:created xsi:type="dcterms:W3CDTF">2021-03-04T05:06:07+02:00</dcterms:created>
<dcterms:modified xsi:type="dcterms:W3CDTF">2021-03-05T00:00:00Z</dcterms:modified>
</cp:coreProperties>)";
constexpr const char* kApp = R"(<?xml version="1.0" encoding="UTF-8"?>
<Properties xmlns="http://schemas.openxmlformats.org/officeDocument/2006/extended-properties">
<Pages>7</Pages><Words>1234</Words><Company>Acme</Company><Characters>-3</Characters></Properties>)";

// A word-processing package holding only its property parts, zipped with the zip program.
void MakeDocx(testing::TempTree& tree, const std::string& name) {
  tree.File("parts/docProps/core.xml", kCore);
  tree.File("parts/docProps/app.xml", kApp);
  const std::string command = "cd '" + tree.path("parts") + "' && zip -qr '" + tree.path(name) + "' docProps";
  ASSERT_EQ(std::system(command.c_str()), 0);
  std::filesystem::remove_all(tree.path("parts"));
}

props::PropValue ValueOf(props::ShellItem& item, const char* name) {
  const props::PropertyInfo* info = props::DefaultCatalogue().FindProperty(name);
  EXPECT_NE(info, nullptr) << name;
  if (!info) return {};
  const props::CachedValue* node = props::GetCachedValue(item, *info);
  return node ? node->value : props::PropValue();
}

TEST(OwnProperties, ADocumentsPropertiesArriveTypedFromOneRead) {
  testing::TempTree tree;
  MakeDocx(tree, "report.docx");
  auto item = props::ShellItem::FromPath(tree.path("report.docx"));
  EXPECT_EQ(ValueOf(*item, "System.Title"), props::PropValue::Text("Quarterly report"));
  EXPECT_EQ(ValueOf(*item, "System.Author"), props::PropValue::TextVector({"Ann Smith", "Bob Jones"}));
  EXPECT_EQ(ValueOf(*item, "System.Keywords"), props::PropValue::TextVector({"alpha", "beta", "gamma"}));
  EXPECT_EQ(ValueOf(*item, "System.Comment"), props::PropValue::Text("line one\nline two"));
  EXPECT_EQ(ValueOf(*item, "System.Company"), props::PropValue::Text("Acme"));
  EXPECT_EQ(ValueOf(*item, "System.Document.PageCount"), props::PropValue::Int32(7));
  EXPECT_EQ(ValueOf(*item, "System.Document.WordCount"), props::PropValue::Int32(1234));
  // A count that is no count is left out rather than wrapped.
  EXPECT_TRUE(ValueOf(*item, "System.Document.CharacterCount").IsEmpty());
  // Dates with an offset are kept in UTC.
  base::CivilTime created{2021, 3, 4, 3, 6, 7};
  EXPECT_EQ(ValueOf(*item, "System.Document.DateCreated"), props::PropValue::FileTime(base::FileTimeFromCivil(created)));
  EXPECT_TRUE(item->own_properties_read());
  // What the file does not hold is answered from the cache, without a second read.
  EXPECT_TRUE(ValueOf(*item, "System.Subject").IsEmpty());
}

TEST(OwnProperties, RulesOnThemFindOnlyTheDocumentsThatHoldThem) {
  testing::TempTree tree({"Quarterly report.txt=Quarterly report", "notes.pdf=not really a pdf"});
  MakeDocx(tree, "report.docx");
  struct Names : ResultSink {
    void SetStatus(const std::string&) override {}
    void SearchState(bool, std::shared_ptr<const rules::RuleSet>) override {}
    int AddResult(const props::ShellItemPtr& item) override {
      names.push_back(item->DisplayName());
      return 0;
    }
    std::vector<std::string> names;
  } sink;
  auto rule = rules::Rule::CreateFor(*props::DefaultCatalogue().FindProperty("System.Title"));
  ASSERT_TRUE(rules::ParseRuleText(*rule, "quarterly"));
  SearchRequest request;
  request.rules = {rule};
  request.root_text = tree.root();
  SearchPanel panel(sink);
  ASSERT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
  panel.Wait();
  EXPECT_EQ(sink.names, std::vector<std::string>{"report.docx"});
}

TEST(OwnProperties, ValuesMeetTheDeclaredTypeOrAreDropped) {
  using extract::ExtractedProperty;
  EXPECT_EQ(ToPropValue(ExtractedProperty::Number("x", 5), props::VT_UI4), props::PropValue::UInt32(5));
  EXPECT_TRUE(ToPropValue(ExtractedProperty::Number("x", -5), props::VT_UI4).IsEmpty());
  EXPECT_TRUE(ToPropValue(ExtractedProperty::Number("x", 1ll << 40), props::VT_I4).IsEmpty());
  EXPECT_TRUE(ToPropValue(ExtractedProperty::Text("x", "12"), props::VT_I4).IsEmpty());
  EXPECT_EQ(ToPropValue(ExtractedProperty::Texts("x", {"a", "b"}), props::VT_LPWSTR), props::PropValue::Text("a; b"));
  EXPECT_EQ(ToPropValue(ExtractedProperty::Reals("x", {1, 2, 3}), props::VT_R8 | props::VT_VECTOR),
            props::PropValue::DoubleVector({1, 2, 3}));
  EXPECT_TRUE(ToPropValue(ExtractedProperty::Number("x", 3), props::VT_FILETIME).IsEmpty());
}

// Sample documents compared with what poppler's own pdfinfo says; a locked one has no values
// and costs nothing but itself; no document makes the helper fail.
TEST(OwnProperties, SampleDocumentsAgreeWithPdfinfo) {
  const char* set = std::getenv("TROVIX_CORPUS");
  const std::string corpus = set && *set ? set : TROVIX_CORPUS_DIR;
  if (!std::filesystem::is_directory(corpus + "/documents")) GTEST_SKIP() << "the sample corpus is not there";
  if (std::system("pdfinfo -v >/dev/null 2>&1") != 0) GTEST_SKIP() << "pdfinfo (poppler-utils) is not installed";
  ServicePropertySource source;
  int compared = 0;
  for (const auto& entry : std::filesystem::directory_iterator(corpus + "/documents")) {
    const std::string path = entry.path();
    auto item = props::ShellItem::FromPath(path);
    std::vector<props::NamedValue> values;
    const bool read = source.ReadProperties(*item, &values);
    if (entry.path().extension() != ".pdf") continue;
    std::string info;
    if (FILE* p = popen(("pdfinfo '" + path + "' 2>/dev/null").c_str(), "r")) {
      char buf[4096];
      size_t n;
      while ((n = fread(buf, 1, sizeof buf, p)) > 0) info.append(buf, n);
      pclose(p);
    }
    auto field = [&info](const std::string& key) {
      size_t at = info.find("\n" + key + ":");
      if (at == std::string::npos && info.rfind(key + ":", 0) == 0) at = 0; else if (at != std::string::npos) ++at;
      if (at == std::string::npos) return std::string();
      size_t start = info.find_first_not_of(' ', at + key.size() + 1);
      return info.substr(start, info.find('\n', start) - start);
    };
    auto ours = [&values](const std::string& name) {
      for (const auto& v : values)
        if (v.name == name) return v.value.ToDisplayText();
      return std::string();
    };
    if (field("Encrypted").rfind("yes", 0) == 0 && info.find("Pages:") == std::string::npos) {
      EXPECT_FALSE(read) << path;  // locked: pdfinfo cannot read it either
      continue;
    }
    if (!read) continue;  // damaged beyond poppler-cpp's reading; pdfinfo may be more lenient
    EXPECT_EQ(ours("System.Document.PageCount"), field("Pages")) << path;
    // bytes.pdf keeps its title as UTF-8 without a mark: read here as UTF-8 (the words its
    // producer meant), by pdfinfo as PDFDocEncoding (mojibake).
    if (entry.path().filename() != "bytes.pdf") {
      EXPECT_EQ(ours("System.Title"), field("Title")) << path;
    }
    EXPECT_EQ(ours("System.ApplicationName"), field("Creator")) << path;
    ++compared;
  }
  EXPECT_GT(compared, 5);
}

}  // namespace
}  // namespace trovix::engine
