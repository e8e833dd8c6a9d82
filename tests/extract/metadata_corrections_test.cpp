// Property values that other tools read differently from the obvious library call: a HEIF
// picture's size (its primary image, not its EXIF; the sample pictures are checked against
// exiftool with the other pictures), AIFF stream facts (also without sound data), ID3v1
// fields an ID3v2 tag lacks, and PDF dates in every offset form writers use.
#include <gtest/gtest.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>

#include <cstdio>
#include <string>

#include "base/file_time.h"
#include "extract/properties/document_properties.h"
#include "extract/properties/heif_image_size.h"
#include "extract/properties/media_properties.h"
#include "tests/extract/extract_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::extract {
namespace {

using fixtures::PropertiesOf;
using trovix::testing::TempTree;

std::string Be(uint64_t v, int n) {
  std::string out;
  for (int i = n - 1; i >= 0; --i) out += static_cast<char>((v >> (8 * i)) & 0xFF);
  return out;
}
std::string Box(const std::string& type, const std::string& body) { return Be(8 + body.size(), 4) + type + body; }
std::string FullBox(const std::string& type, int version, uint32_t flags, const std::string& body) {
  return Box(type, std::string(1, static_cast<char>(version)) + Be(flags, 3) + body);
}
std::string Ispe(uint32_t w, uint32_t h) { return FullBox("ispe", 0, 0, Be(w, 4) + Be(h, 4)); }

// A meta box's contents (from its version on): items 1 (a thumbnail) and 2, each with its
// own size; `primary` names one. ipma in its compact form (16-bit ids, 7-bit indices) or its
// wide one, with the essential bit set on every association.
std::string Meta(uint32_t primary, bool wide) {
  const std::string ipco = Box("ipco", Ispe(160, 120) + Box("colr", "nclx") + Ispe(4032, 3024));
  const int id_bytes = wide ? 4 : 2;
  const int index_bytes = wide ? 2 : 1;
  const uint64_t essential = wide ? 0x8000 : 0x80;
  std::string entries = Be(2, 4);
  entries += Be(1, id_bytes) + Be(1, 1) + Be(essential | 1, index_bytes);
  entries += Be(2, id_bytes) + Be(2, 1) + Be(2, index_bytes) + Be(essential | 3, index_bytes);
  const std::string ipma = FullBox("ipma", wide ? 1 : 0, wide ? 1 : 0, entries);
  const std::string pitm = wide ? FullBox("pitm", 1, 0, Be(primary, 4)) : FullBox("pitm", 0, 0, Be(primary, 2));
  return std::string(4, '\0') + FullBox("hdlr", 0, 0, std::string(4, '\0') + "pict" + std::string(13, '\0')) + pitm +
         Box("iprp", ipco + ipma);
}

TEST(HeifImageSize, ThePrimaryItemsOwnSizeInEitherLayout) {
  ImageSize size;
  for (bool wide : {false, true}) {
    ASSERT_TRUE(ImageSizeInMeta(Meta(2, wide), &size)) << wide;
    EXPECT_EQ(size.width, 4032u);
    EXPECT_EQ(size.height, 3024u);
    ASSERT_TRUE(ImageSizeInMeta(Meta(1, wide), &size)) << wide;
    EXPECT_EQ(size.width, 160u);
    EXPECT_FALSE(ImageSizeInMeta(Meta(7, wide), &size)) << wide;  // no such item
  }
  // Cut anywhere, the walk stays inside the bytes and answers one of the sizes or none.
  const std::string good = Meta(2, false);
  for (size_t cut = 0; cut < good.size(); ++cut) {
    size = {};
    EXPECT_TRUE(!ImageSizeInMeta(good.substr(0, cut), &size) || size.width == 4032 || size.width == 160) << cut;
  }
}

TEST(HeifImageSize, AFileWhoseMetaFollowsTheTypeBox) {
  TempTree tree;
  const std::string file = Box("ftyp", "heic" + Be(0, 4) + "mif1heic") + Box("meta", Meta(2, false)) +
                           Box("mdat", std::string(64, 'x'));
  tree.File("shot.heic", file);
  ImageSize size;
  ASSERT_TRUE(ReadHeifImageSize(DocumentInput::File(tree.path("shot.heic")), &size));
  EXPECT_EQ(size.width, 4032u);
  auto props = PropertiesOf(tree.path("shot.heic"));
  EXPECT_EQ(props["System.Image.HorizontalSize"].integer, 4032);
  EXPECT_EQ(props["System.Image.VerticalSize"].integer, 3024);
}

// --- AIFF ---------------------------------------------------------------------------------

// 80-bit extended real of a whole number, as AIFF stores its sample rate.
std::string Extended(uint32_t n) {
  int exponent = 31;
  while (!(n & 0x80000000u)) n <<= 1, --exponent;
  return Be(static_cast<uint64_t>(16383 + exponent), 2) + Be(uint64_t{n} << 32, 8);
}

std::string Aiff(uint32_t frames, int channels, int bits, uint32_t rate, bool with_sound) {
  std::string comm = Be(static_cast<uint64_t>(channels), 2) + Be(frames, 4) + Be(static_cast<uint64_t>(bits), 2) +
                     Extended(rate);
  std::string chunks = "COMM" + Be(comm.size(), 4) + comm;
  if (with_sound) {
    const std::string ssnd = Be(0, 4) + Be(0, 4) + std::string(frames * channels * (bits / 8), '\0');
    chunks += "SSND" + Be(ssnd.size(), 4) + ssnd;
  }
  return "FORM" + Be(4 + chunks.size(), 4) + "AIFF" + chunks;
}

TEST(AiffProperties, StreamFactsWithAndWithoutSoundData) {
  TempTree tree;
  // Two seconds of 16-bit stereo at 8,000 Hz; the second file declares it and holds none.
  tree.File("full.aiff", Aiff(16000, 2, 16, 8000, true));
  tree.File("header-only.aif", Aiff(16000, 2, 16, 8000, false));
  for (const char* name : {"full.aiff", "header-only.aif"}) {
    SCOPED_TRACE(name);
    auto props = PropertiesOf(tree.path(name));
    EXPECT_EQ(props["System.Media.Duration"].integer, 20'000'000);
    EXPECT_EQ(props["System.Audio.SampleRate"].integer, 8000);
    EXPECT_EQ(props["System.Audio.ChannelCount"].integer, 2);
    EXPECT_EQ(props["System.Audio.SampleSize"].integer, 16);
    EXPECT_EQ(props["System.Audio.EncodingBitrate"].integer, 256'000);
  }
}

TEST(AiffProperties, CommonChunkAfterOtherChunksAndCut) {
  AiffCommon c;
  std::string named = Aiff(10, 1, 8, 44100, false);
  named.insert(12, "NAME" + Be(3, 4) + "abc" + std::string(1, '\0'));  // padded to an even size
  ASSERT_TRUE(ReadAiffCommon(named, &c));
  EXPECT_EQ(c.sample_rate, 44100);
  for (size_t cut = 0; cut < named.size(); ++cut) EXPECT_FALSE(ReadAiffCommon(named.substr(0, cut), &c)) << cut;
  named.replace(8, 4, "AIFC");  // compressed, and no type named: no bit rate follows
  ASSERT_TRUE(ReadAiffCommon(named, &c));
  EXPECT_FALSE(c.uncompressed);
}

// --- MP3 tags -------------------------------------------------------------------------------

TEST(Mp3Properties, Id3v1FieldsFillWhatId3v2Lacks) {
  TempTree tree;
  // Silent MPEG-1 layer III frames (128 kbit/s, 44.1 kHz, 417 bytes each).
  std::string frames;
  for (int i = 0; i < 40; ++i) frames += std::string("\xFF\xFB\x90\x00", 4) + std::string(413, '\0');
  tree.File("song.mp3", frames);
  {
    TagLib::MPEG::File f(tree.path("song.mp3").c_str());
    ASSERT_TRUE(f.isValid());
    f.ID3v2Tag(true)->setTitle("Title from v2");
    TagLib::ID3v1::Tag* v1 = f.ID3v1Tag(true);
    v1->setTitle("Title from v1");
    v1->setArtist("Artist from v1");
    v1->setAlbum("Album from v1");
    v1->setYear(1999);
    ASSERT_TRUE(f.save(TagLib::MPEG::File::AllTags, TagLib::File::StripOthers, TagLib::ID3v2::v4,
                       TagLib::File::DoNotDuplicate));
  }
  auto props = PropertiesOf(tree.path("song.mp3"));
  EXPECT_EQ(props["System.Title"].texts, std::vector<std::string>{"Title from v2"});
  EXPECT_EQ(props["System.Music.Artist"].texts, std::vector<std::string>{"Artist from v1"});
  EXPECT_EQ(props["System.Music.AlbumTitle"].texts, std::vector<std::string>{"Album from v1"});
  EXPECT_EQ(props["System.Media.Year"].integer, 1999);
  EXPECT_EQ(props["System.Audio.SampleRate"].integer, 44100);
}

// --- PDF dates ----------------------------------------------------------------------------

int64_t Utc(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  base::CivilTime c{y, mo, d, h, mi, s};
  return base::FileTimeFromCivil(c);
}

TEST(ParsePdfDate, EveryOffsetFormWritersUse) {
  struct Case {
    const char* text;
    int64_t want;
  };
  const Case cases[] = {
      {"D:20240102030405Z", Utc(2024, 1, 2, 3, 4, 5)},
      {"D:20240102030405Z07'46'", Utc(2024, 1, 2, 3, 4, 5)},  // Z wins over what follows it
      {"D:20240102030405+05'30'", Utc(2024, 1, 1, 21, 34, 5)},
      {"D:20240102030405-08'00'", Utc(2024, 1, 2, 11, 4, 5)},
      {"D:20240102030405+0530", Utc(2024, 1, 1, 21, 34, 5)},
      {"D:20240102030405+05'", Utc(2024, 1, 1, 22, 4, 5)},
      {"D:20240102030405+05", Utc(2024, 1, 1, 22, 4, 5)},
      {"D:20240102030405", Utc(2024, 1, 2, 3, 4, 5)},  // no offset: taken as UTC
      {"20240102030405-01'00'", Utc(2024, 1, 2, 4, 4, 5)},
      {"D:2024", Utc(2024, 1, 1)},
      {"D:20240229", Utc(2024, 2, 29)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    int64_t t = 0;
    ASSERT_TRUE(ParsePdfDate(c.text, &t));
    EXPECT_EQ(t, c.want);
  }
  for (const char* bad : {"", "D:", "D:20", "D:abcd", "D:20241301", "D:20230229", "D:20240102250000",
                          "D:20240102030405+25'00'", "D:20240102030405+05'75'", "D:15000101", "yesterday"}) {
    int64_t t = 0;
    EXPECT_FALSE(ParsePdfDate(bad, &t)) << bad;
  }
}

// A PDF whose information dictionary holds the two dates as written.
std::string PdfWithDates(const std::string& created, const std::string& modified) {
  std::string pdf = "%PDF-1.4\n";
  std::vector<size_t> offsets;
  auto object = [&](const std::string& body) {
    offsets.push_back(pdf.size());
    pdf += std::to_string(offsets.size()) + " 0 obj\n" + body + "\nendobj\n";
  };
  object("<< /Type /Catalog /Pages 2 0 R >>");
  object("<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
  object("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] >>");
  object("<< /Title (Dated) /CreationDate (" + created + ") /ModDate (" + modified + ") >>");
  const size_t xref = pdf.size();
  pdf += "xref\n0 5\n0000000000 65535 f \n";
  for (size_t at : offsets) {
    char line[32];
    std::snprintf(line, sizeof line, "%010zu 00000 n \n", at);
    pdf += line;
  }
  pdf += "trailer\n<< /Size 5 /Root 1 0 R /Info 4 0 R >>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
  return pdf;
}

TEST(PdfProperties, DatesAreReadAsWrittenNotShiftedByAnOffsetAfterZ) {
  TempTree tree;
  tree.File("dated.pdf", PdfWithDates("D:20240102030405Z07'46'", "D:20240102030405-08'00'"));
  auto props = PropertiesOf(tree.path("dated.pdf"));
  EXPECT_EQ(props["System.Title"].texts, std::vector<std::string>{"Dated"});
  EXPECT_EQ(props["System.Document.DateCreated"].integer, Utc(2024, 1, 2, 3, 4, 5));
  EXPECT_EQ(props["System.Document.DateSaved"].integer, Utc(2024, 1, 2, 11, 4, 5));
}

}  // namespace
}  // namespace trovix::extract
