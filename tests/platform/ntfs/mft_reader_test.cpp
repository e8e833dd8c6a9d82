#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>

#include "platform/ntfs/mft_reader.h"
#include "tests/platform/ntfs/ntfs_image.h"

namespace trovix::platform::ntfs {
namespace {

using trovix::testing::NtfsImage;

struct Listing {
  std::map<uint64_t, std::vector<VolumeRecord>> records;
  // Paths rebuilt from the names, as "/folder/name", skipping the file system's own files.
  std::set<std::string> Paths() const {
    std::set<std::string> out;
    for (const auto& [number, names] : records) {
      for (const VolumeRecord& v : names) {
        if (number == 5 || v.name[0] == '$') continue;
        std::string path = "/" + v.name;
        uint64_t parent = RecordNumber(v.parent);
        while (parent != 5 && records.count(parent)) {
          path = "/" + records.at(parent)[0].name + path;
          parent = RecordNumber(records.at(parent)[0].parent);
        }
        if (parent == 5) out.insert(path);
      }
    }
    return out;
  }
};

Listing Read(const std::string& image, MftReader* reader) {
  Listing l;
  EXPECT_EQ(reader->Open(image), 0) << reader->error();
  EXPECT_TRUE(reader->Scan([&](uint64_t n, const std::vector<VolumeRecord>& names) {
    if (!names.empty()) l.records[n] = names;
    return true;
  }));
  return l;
}

// What ntfsls, the file system's own lister, sees: the paths of every file but its own.
std::set<std::string> ListWithNtfsls(const std::string& image) {
  std::set<std::string> out;
  std::FILE* p = ::popen(("ntfsls -R -a -p / " + image + " 2>/dev/null").c_str(), "r");
  if (p == nullptr) return out;
  // Its output is a folder's entries, then for each subfolder a blank line, "/path:" and its entries.
  std::string folder, line;
  char buf[4096];
  while (std::fgets(buf, sizeof buf, p)) {
    line = buf;
    if (!line.empty() && line.back() == '\n') line.pop_back();
    if (line.empty()) continue;
    if (line.back() == ':' && line[0] == '/') {
      folder = line.substr(0, line.size() - 1);
      if (folder == "/") folder.clear();
      continue;
    }
    if (line == "." || line == ".." || line[0] == '$') continue;
    out.insert(folder + "/" + line);
  }
  ::pclose(p);
  return out;
}

TEST(MftReader, ListsFoldersFilesAndNamesAsTheToolsDo) {
  NtfsImage image;
  ASSERT_TRUE(image.ok()) << image.error();
  const std::string long_name(200, 'L');
  ASSERT_NE(image.Folder("/docs"), 0u);
  ASSERT_NE(image.Folder("/docs/deep"), 0u);
  const uint64_t hidden = image.File("/docs/secret.txt", 0x2);
  const uint64_t system = image.File("/docs/deep/boot.sys", 0x4);
  ASSERT_NE(image.File("/docs/" + long_name + ".txt"), 0u);
  ASSERT_NE(image.File("/Zürich – 東京 🎉.txt"), 0u);
  ASSERT_NE(image.File("/A Long File Name.txt"), 0u);
  ASSERT_TRUE(image.SetDosName("/A Long File Name.txt", "ALONGF~1.TXT"));
  const uint64_t linked = image.File("/docs/original.txt");
  ASSERT_TRUE(image.Link("/docs/original.txt", "/docs/deep/link.txt"));
  ASSERT_NE(image.File("/gone.txt"), 0u);
  ASSERT_TRUE(image.Remove("/gone.txt"));
  ASSERT_TRUE(image.Close());

  MftReader reader;
  Listing listing = Read(image.path(), &reader);
  const std::set<std::string> expected = {"/docs",
                                          "/docs/deep",
                                          "/docs/secret.txt",
                                          "/docs/deep/boot.sys",
                                          "/docs/" + long_name + ".txt",
                                          "/Zürich – 東京 🎉.txt",
                                          "/A Long File Name.txt",
                                          "/docs/original.txt",
                                          "/docs/deep/link.txt"};
  EXPECT_EQ(listing.Paths(), expected);
  EXPECT_EQ(ListWithNtfsls(image.path()), expected);
  EXPECT_EQ(reader.bad_records(), 0u);

  EXPECT_EQ(listing.records[hidden][0].attributes & 0x2, 0x2u);
  EXPECT_EQ(listing.records[system][0].attributes & 0x4, 0x4u);
  EXPECT_EQ(listing.records[5][0].attributes & kAttributeDirectory, kAttributeDirectory);
  EXPECT_EQ(listing.records[hidden][0].attributes & kAttributeDirectory, 0u);
  // One record per name of a linked file, both with the file's own reference.
  ASSERT_EQ(listing.records[linked].size(), 2u);
  EXPECT_EQ(listing.records[linked][0].reference, listing.records[linked][1].reference);
  EXPECT_EQ(RecordNumber(listing.records[linked][0].reference), linked);
}

TEST(MftReader, FollowsTheAttributeListToNamesInExtensionRecords) {
  NtfsImage image;
  ASSERT_TRUE(image.ok()) << image.error();
  const uint64_t many = image.File("/many.txt");
  std::set<std::string> expected = {"/many.txt"};
  // Long names fill a 1 KiB record after a few links; the rest move to extension records.
  for (int i = 0; i < 24; ++i) {
    const std::string name = "/link " + std::to_string(i) + " " + std::string(100, 'n');
    ASSERT_TRUE(image.Link("/many.txt", name));
    expected.insert(name);
  }
  ASSERT_TRUE(image.Close());

  MftReader reader;
  Listing listing = Read(image.path(), &reader);
  FileRecord base;
  ASSERT_EQ(reader.ReadRecord(many, &base), RecordStatus::kOk);
  EXPECT_TRUE(base.attribute_list_outside || !base.attribute_list.empty());
  EXPECT_LT(base.names.size(), expected.size());
  EXPECT_EQ(listing.Paths(), expected);
  EXPECT_EQ(listing.records[many].size(), expected.size());
  // No extension record is reported on its own.
  for (const auto& [number, names] : listing.records) {
    if (number == many) continue;
    EXPECT_NE(names[0].reference, listing.records[many][0].reference);
  }
}

TEST(MftReader, ReadsATableThatGrewPastItsFirstExtent) {
  NtfsImage image(16);
  ASSERT_TRUE(image.ok()) << image.error();
  std::set<std::string> expected = {"/bulk"};
  ASSERT_NE(image.Folder("/bulk"), 0u);
  for (int i = 0; i < 3000; ++i) {
    const std::string name = "/bulk/file" + std::to_string(i);
    // Now and then a file with contents, so that clusters after the table are taken and the
    // table has to continue elsewhere once it outgrows the zone kept for it.
    ASSERT_NE(image.File(name, 0, i % 50 == 0 ? 8192 : 0), 0u) << name;
    expected.insert(name);
  }
  ASSERT_TRUE(image.Close());
  MftReader reader;
  Listing listing = Read(image.path(), &reader);
  EXPECT_GT(reader.record_count(), 3000u);
  EXPECT_GT(reader.extent_count(), 1u);
  EXPECT_EQ(listing.Paths(), expected);
}

TEST(MftReader, SkipsATornRecordAndKeepsTheRest) {
  NtfsImage image;
  ASSERT_TRUE(image.ok()) << image.error();
  const uint64_t torn = image.File("/torn.txt");
  ASSERT_NE(image.File("/kept.txt"), 0u);
  ASSERT_TRUE(image.Close());
  {
    MftReader reader;
    ASSERT_EQ(reader.Open(image.path()), 0);
    // Tear the record: the last byte of its first stride no longer carries the sequence number.
    const uint64_t at = reader.geometry().mft_cluster * reader.geometry().bytes_per_cluster +
                        torn * reader.geometry().record_size + 510;
    std::fstream f(image.path(), std::ios::in | std::ios::out | std::ios::binary);
    f.seekp(static_cast<std::streamoff>(at));
    f.put('\x5A');
  }
  MftReader reader;
  Listing listing = Read(image.path(), &reader);
  EXPECT_EQ(listing.Paths(), (std::set<std::string>{"/kept.txt"}));
  EXPECT_EQ(reader.bad_records(), 1u);
}

// Random damage to the table of an image with folders, links and extension records: the
// reader may refuse the volume or skip records, but never crash or read out of bounds (the
// sanitizer build checks the latter), and a scan always ends.
TEST(MftReader, SurvivesRandomDamageToTheTable) {
  NtfsImage image;
  ASSERT_TRUE(image.ok()) << image.error();
  ASSERT_NE(image.Folder("/docs"), 0u);
  ASSERT_NE(image.File("/docs/many.txt"), 0u);
  for (int i = 0; i < 16; ++i)
    ASSERT_TRUE(image.Link("/docs/many.txt", "/docs/link " + std::to_string(i) + std::string(90, 'x')));
  ASSERT_TRUE(image.Close());
  uint64_t table = 0, table_size = 0;
  {
    MftReader reader;
    ASSERT_EQ(reader.Open(image.path()), 0);
    table = reader.geometry().mft_cluster * reader.geometry().bytes_per_cluster;
    table_size = reader.record_count() * reader.geometry().record_size;
  }
  std::fstream f(image.path(), std::ios::in | std::ios::out | std::ios::binary);
  std::string original(table_size, '\0');
  f.seekg(static_cast<std::streamoff>(table));
  f.read(original.data(), static_cast<std::streamsize>(original.size()));
  uint32_t seed = 12345;
  int scanned = 0;
  uint64_t bad = 0;
  auto next = [&seed] { return seed = seed * 1103515245u + 12345u; };
  for (int round = 0; round < 300; ++round) {
    std::string damaged = original;
    const int flips = 1 + static_cast<int>(next() % 16);
    for (int i = 0; i < flips; ++i) damaged[next() % damaged.size()] = static_cast<char>(next() >> 16);
    f.seekp(static_cast<std::streamoff>(table));
    f.write(damaged.data(), static_cast<std::streamsize>(damaged.size()));
    f.flush();
    MftReader reader;
    if (reader.Open(image.path()) != 0) continue;
    uint64_t visited = 0;
    reader.Scan([&](uint64_t, const std::vector<VolumeRecord>& names) {
      for (const VolumeRecord& v : names) EXPECT_FALSE(v.name.empty());
      return ++visited < 1000000;
    });
    EXPECT_LE(visited, reader.record_count());
    ++scanned;
    bad += reader.bad_records();
  }
  // Most rounds leave record 0 whole, and some damage lands where it is noticed.
  EXPECT_GT(scanned, 150);
  EXPECT_GT(bad, 0u);
}

TEST(MftReader, RefusesWhatIsNotNtfs) {
  NtfsImage image;
  ASSERT_TRUE(image.ok());
  ASSERT_TRUE(image.Close());
  MftReader missing;
  EXPECT_EQ(missing.Open(image.path() + ".missing"), ENOENT);
  const std::string plain = image.path() + ".txt";
  std::ofstream(plain) << std::string(4096, 'x');
  MftReader text;
  EXPECT_EQ(text.Open(plain), kNotNtfs);
  EXPECT_EQ(text.error(), "not an NTFS volume");
  // A boot sector whose table lies in a part of the image that was cut off.
  std::ifstream in(image.path(), std::ios::binary);
  std::string head(8192, '\0');
  in.read(head.data(), static_cast<std::streamsize>(head.size()));
  const std::string cut = image.path() + ".cut";
  std::ofstream(cut, std::ios::binary) << head;
  MftReader truncated;
  EXPECT_EQ(truncated.Open(cut), kNotNtfs);
  std::remove(plain.c_str());
  std::remove(cut.c_str());

  // A boot sector that makes the volume smaller than the table's own runs reach.
  {
    std::fstream f(image.path(), std::ios::in | std::ios::out | std::ios::binary);
    f.seekp(0x28);
    const char sectors[8] = {64, 0, 0, 0, 0, 0, 0, 0};
    f.write(sectors, 8);
  }
  MftReader damaged;
  EXPECT_EQ(damaged.Open(image.path()), kNotNtfs);
  EXPECT_EQ(damaged.error(), "the file table's run list points past the end of the volume");
}

TEST(MftReader, EndsAtARunListWhoseByteOffsetsOverflow) {
  // Found by the whole-image fuzz target: runs whose cluster numbers overflow when turned into
  // bytes gave the table reader a piece of nothing to read, and it went round for ever.
  MftReader reader;
  ASSERT_EQ(reader.Open(TROVIX_SOURCE_DIR "/fuzz/seeds/ntfs_image/run-list-overflow.img"), 0) << reader.error();
  // Coming back at all is most of the test; the visitor is not what ends the scan.
  uint64_t positions = 0;
  const bool scanned = reader.Scan([&](uint64_t, const std::vector<VolumeRecord>&) { return ++positions < 1000000; });
  EXPECT_FALSE(scanned);
  EXPECT_NE(reader.error().find("run list is damaged"), std::string::npos) << reader.error();
}

}  // namespace
}  // namespace trovix::platform::ntfs
