// The stock properties computed from the file system: streams and size on disk, the comment
// fall-back, folder counts and the info tip, on real files in a temporary folder.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stop_token>

#include "base/utf.h"
#include "platform/named_streams.h"
#include "props/catalogue.h"
#include "props/fetch_stop.h"
#include "props/fetcher.h"
#include "props/file_count.h"
#include "props/item_comment.h"
#include "tests/support/temp_tree.h"

namespace trovix::props {
namespace {

const PropertyInfo& Prop(const char* name) {
  const PropertyInfo* p = DefaultCatalogue().FindProperty(name);
  EXPECT_NE(p, nullptr) << name;
  return *p;
}

HRESULT Fetch(ShellItem& item, const char* name, PropValue* value) { return FetchValue(item, Prop(name), value); }

uint64_t Cluster(const std::string& path) { return platform::DefaultStreamSystem().ClusterSize(path); }

#define SET_STREAM(path, name, value)                                                             \
  do {                                                                                            \
    const std::string v_(value);                                                                  \
    if (setxattr((path).c_str(), "user." name, v_.data(), v_.size(), 0) != 0) {                   \
      if (errno == ENOTSUP || errno == EPERM)                                                     \
        GTEST_SKIP() << "the temporary folder's file system keeps no user attributes";            \
      FAIL() << "setxattr " name ": " << std::strerror(errno);                                    \
    }                                                                                             \
  } while (0)

TEST(StockStreams, PlainFileCountsItsMainStreamAndOneCluster) {
  testing::TempTree tree({"empty.txt", "small.txt=hello"});
  for (const char* name : {"empty.txt", "small.txt"}) {
    SCOPED_TRACE(name);
    auto item = ShellItem::FromPath(tree.path(name));
    PropValue v;
    ASSERT_EQ(Fetch(*item, "Stock.TotalFileSize", &v), S_OK);
    EXPECT_EQ(v.tag(), VT_UI8);
    EXPECT_EQ(v.AsInt64(), static_cast<int64_t>(Cluster(tree.path(name))));
    ASSERT_EQ(Fetch(*item, "Stock.ADS", &v), S_OK);
    EXPECT_EQ(v.tag(), VT_UI4);
    EXPECT_EQ(v.AsInt64(), 1);  // the main stream counts
    EXPECT_EQ(Fetch(*item, "Stock.ADSNames", &v), S_FALSE);
  }
}

TEST(StockStreams, NamedStreamsAddAtLeastAClusterEachAndListLastFirst) {
  testing::TempTree tree({"a.txt=main"});
  const std::string path = tree.path("a.txt");
  SET_STREAM(path, "a", "");
  SET_STREAM(path, "b", std::string(3000, 'x'));
  std::vector<platform::NamedStream> listed;
  ASSERT_EQ(platform::DefaultStreamSystem().List(path, false, &listed), 0);
  ASSERT_EQ(listed.size(), 2u);
  const std::string expected_names = listed[1].name + "; " + listed[0].name;  // "b; a" as listed
  const uint64_t cluster = Cluster(path);

  auto item = ShellItem::FromPath(path);
  PropValue v;
  ASSERT_EQ(Fetch(*item, "Stock.ADSNames", &v), S_OK);
  EXPECT_EQ(v.text(), expected_names);
  ASSERT_EQ(Fetch(*item, "Stock.ADS", &v), S_OK);
  EXPECT_EQ(v.AsInt64(), 3);
  ASSERT_EQ(Fetch(*item, "Stock.TotalFileSize", &v), S_OK);
  // main: what is allocated (some file systems count a block of attributes there too), at
  // least one cluster; "a": empty, still one; "b": 3000 bytes rounded up.
  struct stat st {};
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  const uint64_t main = std::max<uint64_t>(cluster, (st.st_blocks * 512 + cluster - 1) / cluster * cluster);
  EXPECT_EQ(static_cast<uint64_t>(v.AsInt64()), main + cluster + (3000 + cluster - 1) / cluster * cluster);
}

TEST(StockStreams, OnePassFillsTheOtherTwoIntoTheCache) {
  testing::TempTree tree({"a.txt"});
  SET_STREAM(tree.path("a.txt"), "tag", "1");
  auto item = ShellItem::FromPath(tree.path("a.txt"));
  const CachedValue* count = GetCachedValue(*item, Prop("Stock.ADS"));
  ASSERT_NE(count, nullptr);
  EXPECT_EQ(count->value.AsInt64(), 2);
  // The other two are there before anyone asks, and a new stream does not change them.
  ASSERT_NE(item->FindCached(Prop("Stock.ADSNames").hash), nullptr);
  ASSERT_NE(item->FindCached(Prop("Stock.TotalFileSize").hash), nullptr);
  SET_STREAM(tree.path("a.txt"), "later", "2");
  EXPECT_EQ(GetCachedValue(*item, Prop("Stock.ADSNames"))->value.text(), "tag");
  // Asked again uncached, a second pass does not add a second node for the others.
  PropValue v;
  ASSERT_EQ(Fetch(*item, "Stock.ADS", &v), S_OK);
  EXPECT_EQ(v.AsInt64(), 3);
  EXPECT_EQ(GetCachedValue(*item, Prop("Stock.ADSNames"))->value.text(), "tag");
}

TEST(StockStreams, SparseFileCountsWhatIsAllocated) {
  testing::TempTree tree({"sparse.bin"});
  const std::string path = tree.path("sparse.bin");
  int fd = open(path.c_str(), O_WRONLY);
  ASSERT_GE(fd, 0);
  constexpr off_t kSize = 256 << 20;
  ASSERT_EQ(ftruncate(fd, kSize), 0);
  ASSERT_EQ(pwrite(fd, "x", 1, kSize / 2), 1);
  close(fd);
  auto item = ShellItem::FromPath(path);
  PropValue v;
  ASSERT_EQ(Fetch(*item, "Stock.TotalFileSize", &v), S_OK);
  if (static_cast<uint64_t>(v.AsInt64()) >= static_cast<uint64_t>(kSize))
    GTEST_SKIP() << "the temporary folder's file system does not keep holes";
  EXPECT_GE(static_cast<uint64_t>(v.AsInt64()), Cluster(path));
  EXPECT_LT(static_cast<uint64_t>(v.AsInt64()), 1u << 20);
}

TEST(StockStreams, FoldersLinksAndItemsOutsideTheFileSystem) {
  testing::TempTree tree({"dir/", "target.txt", "link->target.txt", "dangling->nowhere"});
  PropValue v;
  auto dir = ShellItem::FromPath(tree.path("dir"));
  ASSERT_EQ(Fetch(*dir, "Stock.ADS", &v), S_OK);
  EXPECT_EQ(v.AsInt64(), 1);
  ASSERT_EQ(Fetch(*dir, "Stock.TotalFileSize", &v), S_OK);
  EXPECT_GE(static_cast<uint64_t>(v.AsInt64()), Cluster(tree.path("dir")));

  // A link not followed is an item of its own, counted as one stream; a dangling followed
  // link cannot be opened and counts none.
  ASSERT_EQ(Fetch(*ShellItem::FromPath(tree.path("link")), "Stock.ADS", &v), S_OK);
  EXPECT_EQ(v.AsInt64(), 1);
  ASSERT_EQ(Fetch(*ShellItem::FromPath(tree.path("dangling"), true), "Stock.ADS", &v), S_OK);
  EXPECT_EQ(v.AsInt64(), 0);
  ASSERT_EQ(Fetch(*ShellItem::FromPath(tree.path("gone.txt")), "Stock.ADS", &v), S_OK);
  EXPECT_EQ(v.AsInt64(), 0);

  platform::FileStatus member;
  member.type = platform::FileType::kRegular;
  member.size = 10;
  auto in_archive = ShellItem::FromArchiveMember({tree.path("a.zip"), {"x.txt"}}, member);
  for (const char* name : {"Stock.TotalFileSize", "Stock.ADS", "Stock.ADSNames"})
    EXPECT_EQ(Fetch(*in_archive, name, &v), E_FAIL) << name;
}

TEST(StockComment, StreamDecodingAndDesktopEntries) {
  std::string utf16;
  base::AppendUtf16LE(utf16, u"Größe\0junk");
  EXPECT_EQ(DecodeCommentStream(utf16), "Größe");
  EXPECT_EQ(DecodeCommentStream(std::string_view("\xFF\xFEh\0i\0", 6)), "hi");
  EXPECT_EQ(DecodeCommentStream(std::string_view("plain text\0tail", 15)), "plain text");
  EXPECT_EQ(DecodeCommentStream(std::string(3000, 'a')).size(), 1024u);

  EXPECT_EQ(DesktopEntryComment("[Desktop Entry]\nIcon=folder\nComment[de]=Fotos\nComment = Photos\\sof 2020\n"),
            "Photos of 2020");
  EXPECT_EQ(DesktopEntryComment("[Other]\nComment=not this\n[Desktop Entry]\nIcon=x\n"), "");
  EXPECT_EQ(DesktopEntryComment("# Comment=no\n[Desktop Entry]\r\nComment=crlf\r\n"), "crlf");
}

TEST(StockComment, FallBackOfSystemComment) {
  testing::TempTree tree({"note.txt", "custom/.directory=[Desktop Entry]\nComment=Holiday photos\n",
                          "plain/", "bare.txt"});
  std::string utf16;
  base::AppendUtf16LE(utf16, u"checked by Ann");
  SET_STREAM(tree.path("note.txt"), "ow_AFScomment", utf16);
  // A customised folder answers from its desktop entry only.
  SET_STREAM(tree.path("custom"), "ow_AFScomment", "ignored");
  SET_STREAM(tree.path("plain"), "ow_AFScomment", "folder note");

  auto text = [&](const char* name) {
    PropValue v;
    HRESULT hr = Fetch(*ShellItem::FromPath(tree.path(name)), "System.Comment", &v);
    return hr == S_OK ? v.text() : std::string("<none>");
  };
  EXPECT_EQ(text("note.txt"), "checked by Ann");
  EXPECT_EQ(text("custom"), "Holiday photos");
  EXPECT_EQ(text("plain"), "folder note");
  EXPECT_EQ(text("bare.txt"), "<none>");
}

class StockFileCount : public ::testing::Test {
 protected:
  ~StockFileCount() override { SetFileCountSettings({}); }

  std::string Count(const std::string& path) {
    PropValue v;
    HRESULT hr = Fetch(*ShellItem::FromPath(path), "Stock.FileCount", &v);
    return hr == S_OK ? v.ToDisplayText() : hr == S_FALSE ? "<none>" : "<fail>";
  }
};

// Accepts names ending in ".txt", and says how often it was asked.
class TextFiles final : public FileCountFilter {
 public:
  std::unique_ptr<ItemTest> NewTest() const override {
    struct Test final : ItemTest {
      const TextFiles* owner;
      bool Accepts(const ShellItemPtr& item) override {
        ++owner->asked;
        return item->name().ends_with(".txt");
      }
    };
    auto test = std::make_unique<Test>();
    test->owner = this;
    return test;
  }
  mutable int asked = 0;
};

TEST_F(StockFileCount, CountsWhatTheFilterAcceptsAndHidesHiddenItems) {
  testing::TempTree tree({"d/a.txt", "d/b.txt", "d/c.md", "d/sub/", "d/sub/deep.txt", "d/.hidden.txt",
                          "empty/", "file.txt", "dlink->d"});
  EXPECT_EQ(Count(tree.path("d")), "4");
  EXPECT_EQ(Count(tree.path("empty")), "0");
  EXPECT_EQ(Count(tree.path("file.txt")), "<none>");
  EXPECT_EQ(Count(tree.path("dlink")), "4");  // a link to a folder counts its target's items

  auto filter = std::make_shared<TextFiles>();
  SetFileCountSettings({filter, true, false});
  EXPECT_EQ(Count(tree.path("d")), "2");
  SetFileCountSettings({filter, true, true});
  EXPECT_EQ(Count(tree.path("d")), "3");
  SetFileCountSettings({nullptr, false, false});
  EXPECT_EQ(Count(tree.path("d")), "<fail>");
}

TEST_F(StockFileCount, AStopEndsTheCountAtTheNextTenItems) {
  testing::TempTree tree;
  for (int i = 0; i < 25; ++i) tree.Add("big/f" + std::to_string(i));
  auto filter = std::make_shared<TextFiles>();
  SetFileCountSettings({filter, true, false});
  std::stop_source stop;
  {
    FetchStopScope scope(stop.get_token());
    EXPECT_EQ(Count(tree.path("big")), "0");
    EXPECT_EQ(filter->asked, 25);
    stop.request_stop();
    filter->asked = 0;
    Count(tree.path("big"));
    EXPECT_EQ(filter->asked, 10);
  }
  EXPECT_FALSE(FetchStopRequested());  // the scope is over
}

TEST(StockInfoTip, TypeSizeDatesAndComment) {
  testing::TempTree tree({"report.docx=0123456789", "notes.xyz", "dir/"});
  SET_STREAM(tree.path("notes.xyz"), "ow_AFScomment", "draft");
  auto tip = [&](const char* name) {
    PropValue v;
    EXPECT_EQ(Fetch(*ShellItem::FromPath(tree.path(name)), "Stock.InfoTipText", &v), S_OK);
    return v.text();
  };
  const std::string report = tip("report.docx");
  EXPECT_TRUE(report.starts_with("Type: documents\nSize: 10 bytes\nDate created: ")) << report;
  EXPECT_NE(report.find("\nDate modified: "), std::string::npos);
  const std::string notes = tip("notes.xyz");
  EXPECT_TRUE(notes.starts_with("Type: XYZ file\nSize: 0 bytes\n")) << notes;
  EXPECT_TRUE(notes.ends_with("\nComments: draft")) << notes;
  const std::string dir = tip("dir");
  EXPECT_TRUE(dir.starts_with("Type: Folder\nDate created: ")) << dir;
}

}  // namespace
}  // namespace trovix::props
