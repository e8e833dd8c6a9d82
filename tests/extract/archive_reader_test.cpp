// Archives as folders: listings of real zips (compared by hand with unzip -Z1), archives of
// every format written here, members read out (a zip inside a zip included), names decoded as
// their archive says, and every limit: bombs, large members, depth, member counts, encryption.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/extract/extract_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::extract {
namespace {

using fixtures::Answer;
using fixtures::CorpusDir;
using fixtures::Entry;
using fixtures::RunInProcess;
using fixtures::WriteArchive;
using trovix::testing::TempTree;
using Paths = std::vector<std::string>;

TEST(ArchiveReader, CorpusZipsListAsUnzipShowsThem) {
  SKIP_WITHOUT_CORPUS();
  std::string dir = CorpusDir() + "/archives/";
  // Folders that unzip shows only as prefixes come first, once.
  EXPECT_EQ(RunInProcess(kOpList, dir + "nested-folders.zip").member_paths(),
            (Paths{"photos/", "photos/2008/", "photos/2008/italy/", "photos/2008/italy/DSCN0042.jpg",
                   "photos/2008/italy/DSCN0010.jpg", "docs/", "docs/metadata.pdf", "docs/reports/",
                   "docs/reports/doc-coreprops.docx", "notes/", "notes/readme.txt", "empty-folder/"}));
  EXPECT_EQ(RunInProcess(kOpList, dir + "stored-with-inner-zip.zip").member_paths(),
            (Paths{"hello.rtf", "inner/", "inner/song.mp3", "inner/inner-archive.zip"}));
  Answer et = RunInProcess(kOpList, dir + "et-ZIP.zip");
  EXPECT_EQ(et.member_paths(), (Paths{"test.txt"}));
  EXPECT_EQ(et.end.code, kEndOk);
  // UTF-8 names stored without the UTF-8 flag still read as UTF-8.
  EXPECT_EQ(RunInProcess(kOpList, dir + "unicode-names.zip").member_paths(),
            (Paths{"Photos été/", "Photos été/Crémieux11.tiff", "日本語/", "日本語/テキスト.txt", "Привет.txt",
                   "Grüße.txt"}));
}

TEST(ArchiveReader, MembersOfAZipInsideAZip) {
  SKIP_WITHOUT_CORPUS();
  std::string zip = CorpusDir() + "/archives/stored-with-inner-zip.zip";
  Answer inner = RunInProcess(kOpList, zip, {"inner/inner-archive.zip"});
  EXPECT_EQ(inner.end.code, kEndOk);
  EXPECT_EQ(inner.members.size(), 6u);
  Answer text = RunInProcess(kOpText, zip, {"inner/inner-archive.zip", "Grüße.txt"});
  EXPECT_EQ(text.end.code, kEndOk) << text.end.message;
  EXPECT_NE(text.text.find("ISO 8859-1, genauer ISO/IEC 8859-1"), std::string::npos);
  Answer readme = RunInProcess(kOpText, CorpusDir() + "/archives/nested-folders.zip", {"notes/readme.txt"});
  EXPECT_NE(readme.text.find("UTF-8 (abréviation de l’anglais"), std::string::npos);
  Answer pdf = RunInProcess(kOpText, CorpusDir() + "/archives/nested-folders.zip", {"docs/metadata.pdf"});
  EXPECT_NE(pdf.end.code, kEndUnreadable) << pdf.end.message;
  EXPECT_EQ(RunInProcess(kOpText, zip, {"no/such/member.txt"}).end.code, kEndUnreadable);
}

struct Format {
  const char* name;
  int format;
  int filter;
};

TEST(ArchiveReader, EveryFormatListsAndReads) {
  const Format formats[] = {
      {"a.zip", ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE},
      {"a.tar.gz", ARCHIVE_FORMAT_TAR_PAX_RESTRICTED, ARCHIVE_FILTER_GZIP},
      {"a.tar.bz2", ARCHIVE_FORMAT_TAR_USTAR, ARCHIVE_FILTER_BZIP2},
      {"a.tar.xz", ARCHIVE_FORMAT_TAR_GNUTAR, ARCHIVE_FILTER_XZ},
      {"a.tar.zst", ARCHIVE_FORMAT_TAR_PAX_RESTRICTED, ARCHIVE_FILTER_ZSTD},
      {"a.tar.lz4", ARCHIVE_FORMAT_TAR_PAX_RESTRICTED, ARCHIVE_FILTER_LZ4},
      {"a.7z", ARCHIVE_FORMAT_7ZIP, ARCHIVE_FILTER_NONE},
      {"a.cpio", ARCHIVE_FORMAT_CPIO_SVR4_NOCRC, ARCHIVE_FILTER_NONE},
      {"a.iso", ARCHIVE_FORMAT_ISO9660, ARCHIVE_FILTER_NONE},
  };
  TempTree tree;
  for (const Format& f : formats) {
    SCOPED_TRACE(f.name);
    WriteArchive(tree.path(f.name), f.format, f.filter,
                 {{"docs", "", true}, {"docs/a.txt", "alpha text in a member"}, {"b/c/deep.html", "<p>deep &amp; far</p>"}});
    Answer list = RunInProcess(kOpList, tree.path(f.name));
    EXPECT_EQ(list.end.code, kEndOk) << list.end.message;
    Paths paths = list.member_paths();
    for (const char* expected : {"docs/", "docs/a.txt", "b/", "b/c/", "b/c/deep.html"})
      EXPECT_EQ(std::count(paths.begin(), paths.end(), expected), 1) << expected;
    for (const ArchiveMember& m : list.members) {
      if (m.path == "docs/a.txt") {
        EXPECT_EQ(m.size, 22u);
      }
    }
    EXPECT_EQ(RunInProcess(kOpText, tree.path(f.name), {"docs/a.txt"}).text, "alpha text in a member");
    EXPECT_EQ(RunInProcess(kOpText, tree.path(f.name), {"b/c/deep.html"}).text, "deep & far\n");
  }
}

TEST(ArchiveReader, NamesThatAreNotUtf8AreDecodedAsTheFormatSays) {
  TempTree tree;
  WriteArchive(tree.path("cp437.zip"), ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE, {{"\x82t\x82.txt", "x"}});
  WriteArchive(tree.path("latin1.tar"), ARCHIVE_FORMAT_TAR_USTAR, ARCHIVE_FILTER_NONE, {{"caf\xE9.txt", "x"}});
  EXPECT_EQ(RunInProcess(kOpList, tree.path("cp437.zip")).member_paths(), Paths{"été.txt"});
  EXPECT_EQ(RunInProcess(kOpList, tree.path("latin1.tar")).member_paths(), Paths{"café.txt"});
  // The decoded name is the one a request names.
  EXPECT_EQ(RunInProcess(kOpText, tree.path("latin1.tar"), {"café.txt"}).text, "x");
}

TEST(ArchiveReader, ZipBombStopsAtTheExpandedLimitQuickly) {
  TempTree tree;
  Entry bomb{"zeros.txt"};
  bomb.repeat_zeros = 50'000'000;
  WriteArchive(tree.path("bomb.zip"), ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE, {bomb});
  WriteArchive(tree.path("bomb.tar.gz"), ARCHIVE_FORMAT_TAR_USTAR, ARCHIVE_FILTER_GZIP, {bomb, {"after.txt", "x"}});
  ExtractLimits limits;
  limits.max_member_bytes = 100'000'000;
  limits.max_expanded_bytes = 10'000'000;
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(RunInProcess(kOpText, tree.path("bomb.zip"), {"zeros.txt"}, limits).end.code, kEndLimit);
  EXPECT_EQ(RunInProcess(kOpText, tree.path("bomb.tar.gz"), {"after.txt"}, limits).end.code, kEndLimit);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(ArchiveReader, LargeMembersDeepChainsAndLongListsStopWithTheirCodes) {
  TempTree tree;
  std::vector<Entry> many;
  for (int i = 0; i < 20; ++i) many.push_back({"f" + std::to_string(i) + ".txt", std::string(2000, 'a')});
  WriteArchive(tree.path("many.zip"), ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE, many);

  ExtractLimits small;
  small.max_member_bytes = 1000;
  Answer large = RunInProcess(kOpText, tree.path("many.zip"), {"f3.txt"}, small);
  EXPECT_EQ(large.end.code, kEndTooLarge);
  EXPECT_EQ(large.text, "");
  ExtractLimits off;
  off.max_member_bytes = 0;  // member reading switched off
  EXPECT_EQ(RunInProcess(kOpText, tree.path("many.zip"), {"f3.txt"}, off).end.code, kEndTooLarge);

  ExtractLimits few;
  few.max_members = 5;
  Answer list = RunInProcess(kOpList, tree.path("many.zip"), {}, few);
  EXPECT_EQ(list.end.code, kEndLimit);
  EXPECT_EQ(list.members.size(), 5u);

  ExtractLimits shallow;
  shallow.max_depth = 1;
  EXPECT_EQ(RunInProcess(kOpText, tree.path("many.zip"), {"f1.txt", "x", "y"}, shallow).end.code, kEndLimit);
}

TEST(ArchiveReader, EncryptedMembersAreFlaggedAndNotRead) {
  TempTree tree;
  struct archive* a = archive_write_new();
  archive_write_set_format_zip(a);
  ASSERT_EQ(archive_write_set_options(a, "zip:encryption=zipcrypt"), ARCHIVE_OK);
  archive_write_set_passphrase(a, "secret");
  ASSERT_EQ(archive_write_open_filename(a, tree.path("locked.zip").c_str()), ARCHIVE_OK);
  struct archive_entry* e = archive_entry_new();
  archive_entry_set_pathname(e, "hidden.txt");
  archive_entry_set_filetype(e, AE_IFREG);
  archive_entry_set_size(e, 6);
  archive_write_header(a, e);
  archive_write_data(a, "hidden", 6);
  archive_entry_free(e);
  archive_write_close(a);
  archive_write_free(a);

  Answer list = RunInProcess(kOpList, tree.path("locked.zip"));
  ASSERT_EQ(list.members.size(), 1u);
  EXPECT_TRUE(list.members[0].encrypted);
  Answer text = RunInProcess(kOpText, tree.path("locked.zip"), {"hidden.txt"});
  EXPECT_EQ(text.end.code, kEndEncrypted);
  EXPECT_EQ(text.end.message, "encrypted");
}

TEST(ArchiveReader, TruncatedArchiveListsWhatItCanThenEndsUnreadable) {
  TempTree tree;
  WriteArchive(tree.path("cut.tar"), ARCHIVE_FORMAT_TAR_USTAR, ARCHIVE_FILTER_NONE,
               {{"one.txt", std::string(1000, '1')}, {"two.txt", std::string(1000, '2')}, {"three.txt", "3"}});
  // Each member takes a 512-byte header and 1024 bytes of data: cut inside the third header.
  ASSERT_EQ(truncate(tree.path("cut.tar").c_str(), 2 * 1536 + 100), 0);
  Answer list = RunInProcess(kOpList, tree.path("cut.tar"));
  EXPECT_EQ(list.member_paths(), (Paths{"one.txt", "two.txt"}));
  EXPECT_EQ(list.end.code, kEndUnreadable);
  EXPECT_EQ(RunInProcess(kOpList, tree.path("missing.zip")).end.code, kEndUnreadable);
}

}  // namespace
}  // namespace trovix::extract
