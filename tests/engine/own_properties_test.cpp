// A document's own properties end to end: documents the tests make (and the sample corpus when
// it is there) read by the real helper, typed by the property table, searched by rules.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>
#include <map>
#include <filesystem>
#include <memory>
#include <string>

#include "base/file_time.h"
#include "engine/extraction/extraction_service.h"
#include "engine/extraction/own_properties.h"
#include "engine/search/search_panel.h"
#include "props/catalogue.h"
#include "props/fetcher.h"
#include "rules/value/value_syntax.h"
#include "tests/support/extract_env.h"
#include "tests/support/search_fixtures.h"
#include "tests/support/temp_tree.h"
#include "tests/support/test_files.h"

namespace trovix::engine {
namespace {

const bool kEnvironment = [] {
  testing::UseBuiltExtractionHelper();
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
  testing::CollectingSink sink;
  auto rule = testing::MakeRule("System.Title", "quarterly");
  SearchRequest request;
  request.rules = {rule};
  request.root_text = tree.root();
  SearchPanel panel(sink);
  ASSERT_EQ(panel.StartOrStop(request), StartOutcome::kStarted);
  panel.Wait();
  EXPECT_EQ(sink.Names(tree.root()), std::vector<std::string>{"report.docx"});
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

// What a command prints.
std::string Output(const std::string& command) {
  std::string text;
  if (FILE* p = popen(command.c_str(), "r")) {
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) text.append(buf, n);
    pclose(p);
  }
  return text;
}

// Sample documents compared with what poppler's own pdfinfo says; a locked one has no values
// and costs nothing but itself; no document makes the helper fail.
TEST(OwnProperties, SampleDocumentsAgreeWithPdfinfo) {
  const std::string corpus = testing::CorpusDir();
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
    const std::string info = Output("pdfinfo '" + path + "' 2>/dev/null");
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

std::vector<std::string> Split(const std::string& line, const std::string& separator) {
  std::vector<std::string> fields;
  size_t start = 0;
  for (size_t at; (at = line.find(separator, start)) != std::string::npos; start = at + separator.size())
    fields.push_back(line.substr(start, at - start));
  fields.push_back(line.substr(start));
  return fields;
}

std::map<std::string, props::PropValue> Read(const std::string& path) {
  ServicePropertySource source;
  auto item = props::ShellItem::FromPath(path);
  std::vector<props::NamedValue> values;
  source.ReadProperties(*item, &values);
  std::map<std::string, props::PropValue> by_name;
  for (auto& v : values) by_name[v.name] = v.value;
  return by_name;
}

// Every sample picture against exiftool: camera, GPS position and (for the formats whose
// pixel size both read from the same place) width and height.
TEST(OwnProperties, SamplePicturesAgreeWithExiftool) {
  const std::string dir = testing::CorpusDir() + "/images";
  if (!std::filesystem::is_directory(dir)) GTEST_SKIP() << "the sample corpus is not there";
  if (std::system("exiftool -ver >/dev/null 2>&1") != 0) GTEST_SKIP() << "exiftool is not installed";
  const std::string table =
      Output("exiftool -q -m -T -n -filename -Make -Model -GPSLatitude -GPSLongitude -ImageWidth -ImageHeight '" + dir + "'");
  int checked = 0;
  for (const std::string& line : Split(table, "\n")) {
    std::vector<std::string> f = Split(line, "\t");
    if (f.size() != 7) continue;
    auto ours = Read(dir + "/" + f[0]);
    auto text = [&ours](const char* name) { return ours.count(name) ? ours[name].ToDisplayText() : std::string("-"); };
    // et-ExifTool.jpg names two cameras, in its EXIF and in a Canon CIFF block; we read the
    // EXIF one, exiftool shows the other.
    if (f[0] != "et-ExifTool.jpg") {
      EXPECT_EQ(text("System.Photo.CameraManufacturer"), f[1]) << f[0];
      EXPECT_EQ(text("System.Photo.CameraModel"), f[2]) << f[0];
    }
    if (f[3] != "-") {
      ASSERT_TRUE(ours.count("System.GPS.LatitudeDecimal")) << f[0];
      EXPECT_NEAR(ours["System.GPS.LatitudeDecimal"].AsDouble(), std::stod(f[3]), 1e-6) << f[0];
      EXPECT_NEAR(ours["System.GPS.LongitudeDecimal"].AsDouble(), std::stod(f[4]), 1e-6) << f[0];
    }
    const std::string ext = std::filesystem::path(f[0]).extension();
    // Raw files name several images; the two tools pick different ones. A HEIF picture's is
    // its primary image's.
    if (ext == ".jpg" || ext == ".jpeg" || ext == ".png" || ext == ".webp" || ext == ".heic" || ext == ".HEIC" ||
        ext == ".heif") {
      EXPECT_EQ(text("System.Image.HorizontalSize"), f[5]) << f[0];
      EXPECT_EQ(text("System.Image.VerticalSize"), f[6]) << f[0];
    }
    ++checked;
  }
  EXPECT_GT(checked, 30);
}

// Every sample sound file against mediainfo: the artists, and the length where both read
// one (to a second, or 2 % for long files: the two estimate VBR streams differently).
TEST(OwnProperties, SampleSoundFilesAgreeWithMediainfo) {
  const std::string dir = testing::CorpusDir() + "/audio";
  if (!std::filesystem::is_directory(dir)) GTEST_SKIP() << "the sample corpus is not there";
  if (std::system("mediainfo --Version >/dev/null 2>&1") != 0) GTEST_SKIP() << "mediainfo is not installed";
  const std::string table =
      Output("cd '" + dir + "' && mediainfo --Inform='General;%FileName%.%FileExtension%|%Performer%|%Duration%\\n' *");
  int checked = 0;
  for (const std::string& line : Split(table, "\n")) {
    std::vector<std::string> f = Split(line, "|");
    if (f.size() != 3 || f[0].empty()) continue;
    auto ours = Read(dir + "/" + f[0]);
    // mediainfo joins several artists with " / ". duplicate_tags.wav holds two tags that
    // disagree: we read its ID3v2 tag (as players do), mediainfo its RIFF INFO list.
    if (!f[1].empty() && ours.count("System.Music.Artist") && f[0] != "duplicate_tags.wav") {
      std::string joined;
      for (const std::string& a : ours["System.Music.Artist"].texts()) joined += (joined.empty() ? "" : " / ") + a;
      EXPECT_EQ(joined, f[1]) << f[0];
    }
    if (!f[2].empty() && ours.count("System.Media.Duration")) {
      const double theirs_ms = std::stod(f[2]);
      const double ours_ms = static_cast<double>(ours["System.Media.Duration"].AsInt64()) / 10'000;
      EXPECT_NEAR(ours_ms, theirs_ms, std::max(1000.0, theirs_ms * 0.02)) << f[0];
    }
    ++checked;
  }
  EXPECT_GT(checked, 25);
}

// Every sample file (malformed, truncated and tampered ones included) gives its properties or
// none, and no helper dies or hangs on any of them.
TEST(OwnProperties, NoSampleFileKillsAHelper) {
  if (!std::filesystem::is_directory(testing::CorpusDir())) GTEST_SKIP() << "the sample corpus is not there";
  CrashMemory memory("");
  ExtractionService service(ExtractionOptions{}, memory);
  int files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(testing::CorpusDir())) {
    if (!entry.is_regular_file()) continue;
    extract::ExtractRequest request;
    request.op = extract::kOpProps;
    request.path = entry.path();
    std::vector<extract::ExtractedProperty> found;
    ExtractOutcome outcome = service.Properties(request, {request.path, 0, 0}, &found);
    EXPECT_FALSE(outcome.helper_failed) << request.path << ": " << outcome.message;
    ++files;
  }
  EXPECT_GT(files, 100);
}

// A picture tagged with a position by exiftool: the position in degrees, minutes and seconds,
// the decimal degrees negative in the south, and a rule on it.
TEST(OwnProperties, APictureTaggedWithAPositionIsFoundByIt) {
  const std::string sample = testing::CorpusDir() + "/images/BlueSquare.jpg";
  if (!std::filesystem::exists(sample)) GTEST_SKIP() << "the sample corpus is not there";
  if (std::system("exiftool -ver >/dev/null 2>&1") != 0) GTEST_SKIP() << "exiftool is not installed";
  testing::TempTree tree({"plain.txt=south"});
  std::filesystem::copy_file(sample, tree.path("sydney.jpg"));
  ASSERT_EQ(std::system(("exiftool -q -overwrite_original -GPSLatitude=33.5 -GPSLatitudeRef=S -GPSLongitude=151.25 "
                         "-GPSLongitudeRef=E '" + tree.path("sydney.jpg") + "'").c_str()),
            0);
  auto ours = Read(tree.path("sydney.jpg"));
  EXPECT_EQ(ours["System.GPS.Latitude"], props::PropValue::DoubleVector({33, 30, 0}));
  EXPECT_EQ(ours["System.GPS.LatitudeRef"], props::PropValue::Text("S"));
  EXPECT_DOUBLE_EQ(ours["System.GPS.LatitudeDecimal"].AsDouble(), -33.5);
  EXPECT_DOUBLE_EQ(ours["System.GPS.LongitudeDecimal"].AsDouble(), 151.25);
}

}  // namespace
}  // namespace trovix::engine
