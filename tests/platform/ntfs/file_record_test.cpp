#include <gtest/gtest.h>

#include "platform/ntfs/boot_sector.h"
#include "platform/ntfs/data_runs.h"
#include "platform/ntfs/file_record.h"
#include "platform/ntfs/mount_table.h"
#include "tests/platform/ntfs/record_builder.h"

namespace trovix::platform::ntfs {
namespace {

using trovix::testing::RecordBuilder;

std::vector<uint8_t> TwoNameRecord() {
  RecordBuilder b(1024, 0x3);  // in use, a folder
  b.Resident(kAttrStandardInformation, RecordBuilder::StandardInformation(0x22));
  b.Resident(kAttrFileName, RecordBuilder::FileName(5 | (uint64_t{5} << 48), u"Long folder name", kNameWin32));
  b.Resident(kAttrFileName, RecordBuilder::FileName(5 | (uint64_t{5} << 48), u"LONGFO~1", kNameDos));
  return b.Finish();
}

TEST(FileRecord, FixupsPutBackTheBytesUnderTheSequenceNumber) {
  // A name that crosses the end of the first stride: its bytes there live in the array.
  RecordBuilder b;
  b.Resident(kAttrStandardInformation, RecordBuilder::StandardInformation(0));
  const size_t at = b.pos();
  const size_t name_start = at + 24 + 66;
  std::u16string name((512 - name_start) / 2 + 4, u'a');
  name[(510 - name_start) / 2] = u'\u00e9';
  b.Resident(kAttrFileName, RecordBuilder::FileName(5, name, kNamePosix));
  std::vector<uint8_t> bytes = b.Finish();
  FileRecord r;
  ASSERT_EQ(ParseFileRecord(bytes.data(), bytes.size(), &r), RecordStatus::kOk);
  ASSERT_EQ(r.names.size(), 1u);
  EXPECT_EQ(r.names[0].name, name);
}

TEST(FileRecord, TornOrForeignRecordsAreBad) {
  FileRecord r;
  std::vector<uint8_t> torn = TwoNameRecord();
  torn[1023] ^= 0xFF;  // the second stride was not written with the first
  EXPECT_EQ(ParseFileRecord(torn.data(), torn.size(), &r), RecordStatus::kBad);
  std::vector<uint8_t> baad = TwoNameRecord();
  std::memcpy(baad.data(), "BAAD", 4);
  EXPECT_EQ(ParseFileRecord(baad.data(), baad.size(), &r), RecordStatus::kBad);
  std::vector<uint8_t> zero(1024, 0);
  EXPECT_EQ(ParseFileRecord(zero.data(), zero.size(), &r), RecordStatus::kEmpty);
  std::vector<uint8_t> short_record = TwoNameRecord();
  EXPECT_EQ(ParseFileRecord(short_record.data(), 511, &r), RecordStatus::kBad);
  // An array that claims more strides than the record has.
  std::vector<uint8_t> long_array = TwoNameRecord();
  long_array[6] = 9;
  EXPECT_EQ(ParseFileRecord(long_array.data(), long_array.size(), &r), RecordStatus::kBad);
}

// Every length and offset that points outside the record makes it bad; nothing is read past it
// (the sanitizer build checks that part).
TEST(FileRecord, LyingLengthsAndOffsetsAreBad) {
  struct Case {
    const char* what;
    size_t field;  // offset from the first attribute (the file name) or, if >= 1000, from the record
    uint32_t value;
    int width;
  };
  const Case cases[] = {
      {"attribute length past the record", 4, 0x10000, 4},
      {"attribute length zero", 4, 0, 4},
      {"attribute length not aligned", 4, 0x61, 4},
      {"value length past the attribute", 16, 0x400, 4},
      {"value offset past the attribute", 20, 0x300, 2},
      {"name length past the value", 24 + 64, 200, 1},
      {"attribute name past the attribute", 9, 200, 1},
      {"used size past the record", 1000 + 24, 4096, 4},
      {"attributes start past the used size", 1000 + 20, 1020, 2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    RecordBuilder b;
    const size_t first = b.Resident(kAttrFileName, RecordBuilder::FileName(5, u"name.txt", kNameWin32));
    b.Resident(kAttrStandardInformation, RecordBuilder::StandardInformation(0));
    const size_t at = c.field >= 1000 ? c.field - 1000 : first + c.field;
    if (c.width == 4) b.Put32(at, c.value);
    if (c.width == 2) b.Put16(at, static_cast<uint16_t>(c.value));
    std::vector<uint8_t> bytes = b.Finish();
    if (c.width == 1) bytes[at] = static_cast<uint8_t>(c.value);
    if (c.field == 1000 + 24) std::memcpy(bytes.data() + 24, &c.value, 4);
    FileRecord r;
    EXPECT_EQ(ParseFileRecord(bytes.data(), bytes.size(), &r), RecordStatus::kBad);
  }
}

TEST(FileRecord, AttributeListsInAndOutOfTheRecord) {
  RecordBuilder b;
  std::string list = RecordBuilder::ListEntry(kAttrStandardInformation, 40) +
                     RecordBuilder::ListEntry(kAttrFileName, 41 | (uint64_t{3} << 48)) +
                     RecordBuilder::ListEntry(kAttrFileName, 42);
  b.Resident(kAttrAttributeList, list);
  std::vector<uint8_t> bytes = b.Finish();
  FileRecord r;
  ASSERT_EQ(ParseFileRecord(bytes.data(), bytes.size(), &r), RecordStatus::kOk);
  ASSERT_EQ(r.attribute_list.size(), 3u);
  EXPECT_EQ(r.attribute_list[1].type, kAttrFileName);
  EXPECT_EQ(RecordNumber(r.attribute_list[1].reference), 41u);
  EXPECT_EQ(SequenceOf(r.attribute_list[1].reference), 3u);

  RecordBuilder outside;
  outside.NonResident(kAttrAttributeList, std::string("\x11\x01\x20\x00", 4), 96);
  bytes = outside.Finish();
  ASSERT_EQ(ParseFileRecord(bytes.data(), bytes.size(), &r), RecordStatus::kOk);
  EXPECT_TRUE(r.attribute_list_outside);
  EXPECT_EQ(r.attribute_list_size, 96u);
  ASSERT_EQ(r.attribute_list_runs.size(), 1u);
  EXPECT_EQ(r.attribute_list_runs[0].lcn, 0x20);

  // An entry whose length runs past the list.
  std::vector<AttributeListEntry> entries;
  std::string bad = RecordBuilder::ListEntry(kAttrFileName, 41);
  bad[4] = 40;
  EXPECT_FALSE(ParseAttributeList(reinterpret_cast<const uint8_t*>(bad.data()), bad.size(), &entries));
}

TEST(DataRuns, DecodesSignedOffsetsSparseRunsAndRefusesFaults) {
  struct Case {
    const char* what;
    std::string bytes;
    bool ok;
    std::vector<DataRun> runs;
  };
  const Case cases[] = {
      {"one run", std::string("\x21\x18\x34\x56\x00", 5), true, {{0, 0x5634, 0x18}}},
      {"backwards", std::string("\x11\x10\x40\x11\x08\xF0\x00", 7), true, {{0, 0x40, 0x10}, {0x10, 0x30, 8}}},
      {"sparse", std::string("\x11\x04\x10\x01\x06\x11\x02\x02\x00", 9), true,
       {{0, 0x10, 4}, {4, kSparse, 6}, {10, 0x12, 2}}},
      {"no terminator", std::string("\x11\x04\x10", 3), true, {{0, 0x10, 4}}},
      {"offset cut short", std::string("\x21\x04\x10", 3), false, {}},
      {"zero length", std::string("\x11\x00\x10\x00", 4), false, {}},
      {"before the volume", std::string("\x11\x04\xF0\x00", 4), false, {}},
      {"nine-byte length", std::string("\x09\x01\x01\x01\x01\x01\x01\x01\x01\x01\x00", 11), false, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<DataRun> runs;
    EXPECT_EQ(DecodeDataRuns(reinterpret_cast<const uint8_t*>(c.bytes.data()), c.bytes.size(), 0, &runs), c.ok);
    if (!c.ok) continue;
    ASSERT_EQ(runs.size(), c.runs.size());
    for (size_t i = 0; i < runs.size(); ++i) {
      EXPECT_EQ(runs[i].vcn, c.runs[i].vcn);
      EXPECT_EQ(runs[i].lcn, c.runs[i].lcn);
      EXPECT_EQ(runs[i].length, c.runs[i].length);
    }
  }
}

std::vector<uint8_t> BootSector(uint16_t sector, uint8_t per_cluster, int8_t per_record) {
  std::vector<uint8_t> b(512, 0);
  std::memcpy(b.data() + 3, "NTFS    ", 8);
  std::memcpy(b.data() + 0x0B, &sector, 2);
  b[0x0D] = per_cluster;
  const uint64_t total = 1 << 20, mft = 4;
  std::memcpy(b.data() + 0x28, &total, 8);
  std::memcpy(b.data() + 0x30, &mft, 8);
  b[0x40] = static_cast<uint8_t>(per_record);
  return b;
}

TEST(BootSector, RecordSizeFromTheSignedCount) {
  Geometry g;
  std::string error;
  std::vector<uint8_t> b = BootSector(512, 8, -10);
  ASSERT_TRUE(ParseBootSector(b.data(), b.size(), &g, &error)) << error;
  EXPECT_EQ(g.bytes_per_cluster, 4096u);
  EXPECT_EQ(g.record_size, 1024u);
  EXPECT_EQ(g.mft_cluster, 4u);
  b = BootSector(512, 2, 1);  // 1 KiB clusters, one per record
  ASSERT_TRUE(ParseBootSector(b.data(), b.size(), &g, &error));
  EXPECT_EQ(g.record_size, 1024u);
  b = BootSector(512, 0xF7, -12);  // 256 KiB clusters, written as 2^(256-0xF7) sectors
  ASSERT_TRUE(ParseBootSector(b.data(), b.size(), &g, &error));
  EXPECT_EQ(g.bytes_per_cluster, 256u * 1024);
  EXPECT_EQ(g.record_size, 4096u);

  for (auto bad : {BootSector(500, 8, -10), BootSector(512, 3, -10), BootSector(512, 8, -8), BootSector(512, 8, 0),
                   BootSector(512, 8, -40), BootSector(512, 0xB0, -10)})
    EXPECT_FALSE(ParseBootSector(bad.data(), bad.size(), &g, &error));
  b = BootSector(512, 8, -10);
  b[3] = 'X';
  EXPECT_FALSE(ParseBootSector(b.data(), b.size(), &g, &error));
  EXPECT_EQ(error, "not an NTFS volume");
}

TEST(MountTable, FindsTheNtfsMountHoldingAPath) {
  const std::string text =
      "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
      "40 22 8:17 / /media/usb\\040disk rw shared:5 master:2 - ntfs3 /dev/sdb1 rw,uid=0\n"
      "41 22 8:33 /Users /home/shared rw - fuseblk /dev/sdc1 rw,user_id=0\n"
      "garbage line\n"
      "42 22 0:50 / /media/usb\\040disk/inner rw - tmpfs tmpfs rw\n";
  std::vector<MountEntry> mounts = ParseMountInfo(text);
  ASSERT_EQ(mounts.size(), 4u);
  EXPECT_EQ(mounts[1].mount_point, "/media/usb disk");
  EXPECT_EQ(mounts[1].fs_type, "ntfs3");
  EXPECT_EQ(mounts[1].source, "/dev/sdb1");
  EXPECT_EQ(mounts[2].root, "/Users");
  EXPECT_TRUE(MayBeNtfs(mounts[2]));
  EXPECT_FALSE(MayBeNtfs(mounts[0]));
  EXPECT_EQ(FindMount(mounts, "/media/usb disk/docs")->source, "/dev/sdb1");
  EXPECT_EQ(FindMount(mounts, "/media/usb disk/inner/x")->fs_type, "tmpfs");
  EXPECT_EQ(FindMount(mounts, "/media/usb diskette")->source, "/dev/sda1");
  EXPECT_EQ(PathBelow("/media/usb disk/docs/", "/media/usb disk"), "/docs");
  EXPECT_EQ(PathBelow("/media/usb disk", "/media/usb disk"), "/");
  EXPECT_EQ(JoinPath("/Users", "/"), "/Users");
  EXPECT_EQ(JoinPath("/Users", "/bob"), "/Users/bob");
}

}  // namespace
}  // namespace trovix::platform::ntfs
