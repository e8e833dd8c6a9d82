// Who signed a Windows executable: the corpus's executables against what osslsigncode says of
// them (same digests, same signer; it fails them all only for want of a trust store), then one
// signed image cut and bent at every field the reader trusts.
#include "extract/properties/pe_signature.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/extract/extract_fixtures.h"
#include "tests/support/test_files.h"

namespace trovix::extract {
namespace {

using fixtures::CorpusDir;

std::string Executable(const std::string& name) { return CorpusDir() + "/executables/" + name; }

void Put32(std::string& bytes, size_t at, uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(value >> (8 * i));
}

TEST(PeSignature, CorpusExecutablesGiveTheirSigners) {
  SKIP_WITHOUT_CORPUS();
  struct Case {
    const char* file;
    std::optional<std::string> signer;
  };
  const Case cases[] = {
      // RFC 3161 time stamps, some in CMS forms the PKCS #7 parser refuses.
      {"A_SSLippery_Slope.exe", "test.billdemirkapi.me [DigiCert Timestamp 2022 - 2]"},
      {"WdBoot.sys", "Microsoft Windows Early Launch Anti-malware Publisher [Microsoft Time-Stamp Service]"},
      {"amdxata.sys", "Microsoft Windows [Microsoft Time-Stamp Service]"},
      {"mscorlib.dll", "Microsoft Corporation [Microsoft Time-Stamp Service]"},
      {"pwsh.exe", "Microsoft Corporation [Microsoft Time-Stamp Service]"},
      // PKCS #9 counter-signatures; PuTTY's signs the bare SHA-1 digest.
      {"liblzo2-2.dll", "Express Vpn LLC [TIMESTAMP-SHA256-2019-10-15]"},
      {"putty.exe", "Simon Tatham [Symantec Time Stamping Services Signer - G4]"},
      // Self-signed, no time stamp; PE32 and PE32+.
      {"pegoat-authenticode-32.exe", "contact@trailofbits.com"},
      {"pegoat-authenticode-64.exe", "contact@trailofbits.com"},
      // A SHA-256 signature nested in the SHA-1 one: the primary one names the signer.
      {"pegoat-authenticode-nested-32.exe", "A SHA-1 cert"},
      {"pegoat-authenticode-nested-64.exe", "A SHA-1 cert"},
      // The table is not at the end: 2600 bytes follow it, and they are hashed like any other.
      {"YourPhone.exe", "Microsoft Corporation [Microsoft Time-Stamp Service]"},
      // The table holds the same entry twice; the first is intact and covers the image.
      {"pegoat-authenticode_duplicated-32.exe", "contact@trailofbits.com"},
      // Changed after signing: both digests mismatch.
      {"putty_modified.exe", std::nullopt},
      // Unsigned, and a 16-bit NE file.
      {"pegoat-32.exe", std::nullopt},
      {"arp.dll", std::nullopt},
      {"impbyord.exe", std::nullopt},
      {"et-EXE.exe", std::nullopt},
      {"_setup.dll", std::nullopt},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(SignedByOf(DocumentInput::File(Executable(c.file))), c.signer) << c.file;
  }
  EXPECT_EQ(SignedByOf(DocumentInput::File(Executable("no-such-file.exe"))), std::nullopt);
}

// The digest we compute is the one osslsigncode calculates, and the one the signature carries.
TEST(PeSignature, DigestIsTheSignedOne) {
  SKIP_WITHOUT_CORPUS();
  const std::string image = testing::ReadWholeFile(Executable("pegoat-authenticode-64.exe"));
  std::optional<PeLayout> layout = ReadPeLayout(image);
  ASSERT_TRUE(layout);
  EXPECT_TRUE(layout->pe32_plus);
  std::optional<std::string_view> blob = SignatureBlobOf(image);
  ASSERT_TRUE(blob);
  std::optional<SignatureInfo> info = ParseSignature(*blob);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->digest_name, "SHA1");
  EXPECT_TRUE(info->signature_valid);
  const char kOsslsigncode[] = "\x25\x59\xE9\x1A\x60\x95\x3A\x5E\x16\xF9\x65\x0F\x5F\x88\x95\x3A\x2C\xCA\x54\x25";
  EXPECT_EQ(AuthenticodeDigest(image, *layout, "SHA1"), std::string(kOsslsigncode, 20));
  EXPECT_EQ(info->image_digest, std::string(kOsslsigncode, 20));
  EXPECT_EQ(AuthenticodeDigest(image, *layout, "no-such-digest"), std::nullopt);
}

TEST(PeSignature, TruncatedImagesHaveNoSigner) {
  SKIP_WITHOUT_CORPUS();
  const std::string image = testing::ReadWholeFile(Executable("pegoat-authenticode-32.exe"));
  std::optional<PeLayout> layout = ReadPeLayout(image);
  ASSERT_TRUE(layout);
  // Inside the DOS header, at e_lfanew, inside the optional header, just before and inside the
  // directory entry, inside the sections, inside the table, one byte short of the end.
  const size_t cuts[] = {0,
                         63,
                         0x3c + 2,
                         layout->checksum_offset + 2,
                         layout->security_entry_offset,
                         layout->security_entry_offset + 6,
                         layout->table_offset - 1,
                         layout->table_offset + 8,
                         image.size() - 1};
  for (size_t cut : cuts) {
    const std::string part = image.substr(0, cut);
    EXPECT_EQ(SignedByOf(std::string_view(part)), std::nullopt) << cut;
    // A layout read from the whole image must not be trusted against a shorter one.
    EXPECT_EQ(AuthenticodeDigest(part, *layout, "SHA1"), std::nullopt) << cut;
  }
}

TEST(PeSignature, BentFieldsHaveNoSigner) {
  SKIP_WITHOUT_CORPUS();
  const std::string image = testing::ReadWholeFile(Executable("pegoat-authenticode-32.exe"));
  std::optional<PeLayout> layout = ReadPeLayout(image);
  ASSERT_TRUE(layout);
  ASSERT_TRUE(SignedByOf(std::string_view(image)));
  const uint32_t pe = static_cast<uint8_t>(image[0x3c]) | static_cast<uint8_t>(image[0x3d]) << 8;
  const size_t entry = layout->security_entry_offset;
  const size_t table = layout->table_offset;
  struct Bend {
    const char* what;
    size_t at;
    uint32_t value;
  };
  const Bend bends[] = {
      {"e_lfanew past the end", 0x3c, static_cast<uint32_t>(image.size())},
      {"e_lfanew that wraps", 0x3c, 0xfffffffc},
      {"no PE signature", pe, 0x00004550 ^ 1},
      {"unknown optional-header magic", pe + 24, 0x0107},
      {"optional header too small for entry 4", pe + 20, 0x01020060},
      {"only four directory entries", pe + 24 + 92, 4},
      {"table past the end", entry, static_cast<uint32_t>(image.size())},
      {"table size that wraps", entry + 4, 0xfffffff8},
      {"table over the headers", entry, static_cast<uint32_t>(entry)},
      {"entry length under its header", table, 7},
      {"entry longer than the table", table, layout->table_size + 8},
      {"not revision 2", table + 4, 0x00020100},
      {"not PKCS #7 SignedData", table + 4, 0x00010200},
      {"signature bytes changed", table + 200, 0x5a5a5a5a},
      {"code changed", 0x400, 0x5a5a5a5a},
  };
  for (const Bend& b : bends) {
    std::string bent = image;
    Put32(bent, b.at, b.value);
    EXPECT_EQ(SignedByOf(std::string_view(bent)), std::nullopt) << b.what;
  }
  // What the digest leaves out may change freely: the checksum is rewritten after signing.
  std::string rechecked = image;
  Put32(rechecked, layout->checksum_offset, 0x12345678);
  EXPECT_EQ(SignedByOf(std::string_view(rechecked)), "contact@trailofbits.com");
}

TEST(PeSignature, TableEntriesFollowEightByteAlignment) {
  SKIP_WITHOUT_CORPUS();
  const std::string image = testing::ReadWholeFile(Executable("pegoat-authenticode_duplicated-32.exe"));
  std::optional<PeLayout> layout = ReadPeLayout(image);
  ASSERT_TRUE(layout);
  std::vector<CertificateEntry> entries = CertificateEntries(image, *layout);
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].data, entries[1].data);
  // A first entry 3 bytes shorter still puts the second at the next 8-byte boundary.
  std::string shorter = image;
  Put32(shorter, layout->table_offset, static_cast<uint32_t>(entries[0].data.size() + 8 - 3));
  entries = CertificateEntries(shorter, *layout);
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[1].data, std::string_view(image).substr(layout->table_offset + 8 + 0x598, 0x598 - 8));
}

}  // namespace
}  // namespace trovix::extract
