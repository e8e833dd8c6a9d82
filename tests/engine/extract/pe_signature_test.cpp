#include "engine/extract/pe_signature.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "tests/engine/extract/extract_fixtures.h"

namespace trovix::extract {
namespace {

using fixtures::CorpusDir;

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

std::string Signer(const std::string& image) { return SignedByOf(image).value_or("(none)"); }

// Every sample program: signed and intact ones name their signer (and time stamper), the
// unsigned, the tampered and the malformed name nobody.
TEST(PeSignature, SampleProgramsNameTheirSigners) {
  const std::string dir = CorpusDir() + "/executables";
  if (CorpusDir().empty() || !std::filesystem::is_directory(dir)) GTEST_SKIP() << "the sample corpus is not there";
  const std::map<std::string, std::string> expected = {
      {"A_SSLippery_Slope.exe", "test.billdemirkapi.me [DigiCert Timestamp 2022 - 2]"},
      {"WdBoot.sys", "Microsoft Windows Early Launch Anti-malware Publisher"},
      // Its signature is not at the end of the file; the bytes after it are digested too.
      {"YourPhone.exe", "Microsoft Corporation"},
      {"_setup.dll", "(none)"},
      {"amdxata.sys", "Microsoft Windows"},
      {"arp.dll", "(none)"},
      {"et-EXE.exe", "(none)"},
      {"impbyord.exe", "(none)"},
      {"liblzo2-2.dll", "Express Vpn LLC [TIMESTAMP-SHA256-2019-10-15]"},
      {"mscorlib.dll", "Microsoft Corporation"},
      {"pegoat-32.exe", "(none)"},
      {"pegoat-authenticode-32.exe", "contact@trailofbits.com"},
      {"pegoat-authenticode-64.exe", "contact@trailofbits.com"},
      {"pegoat-authenticode-nested-32.exe", "A SHA-1 cert"},
      {"pegoat-authenticode-nested-64.exe", "A SHA-1 cert"},
      // A damaged table whose first signature is whole.
      {"pegoat-authenticode_duplicated-32.exe", "contact@trailofbits.com"},
      {"putty.exe", "Simon Tatham [Symantec Time Stamping Services Signer - G4]"},
      {"putty_modified.exe", "(none)"},  // changed after signing
      {"pwsh.exe", "Microsoft Corporation"},
  };
  for (const auto& [name, signer] : expected) {
    const std::string path = dir + "/" + name;
    if (!std::filesystem::exists(path)) continue;
    EXPECT_EQ(Signer(Slurp(path)), signer) << name;
  }
}

// Where osslsigncode finds a file intact, its signer's common name is ours.
TEST(PeSignature, SignersAgreeWithOsslsigncode) {
  const std::string dir = CorpusDir() + "/executables";
  if (CorpusDir().empty() || !std::filesystem::is_directory(dir)) GTEST_SKIP() << "the sample corpus is not there";
  if (std::system("osslsigncode --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "osslsigncode is not installed";
  int compared = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    std::string report;
    if (FILE* p = popen(("osslsigncode verify -in '" + entry.path().string() + "' 2>&1").c_str(), "r")) {
      char buf[4096];
      for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) report.append(buf, n);
      pclose(p);
    }
    // The file is intact when the digest osslsigncode computes is the one the signature holds
    // (it cannot take the chain to a root here, so it never says the signature is trusted).
    auto line = [&report](const char* key) {
      const size_t k = report.find(key);
      return k == std::string::npos ? std::string("?") : report.substr(k + std::strlen(key), report.find('\n', k) - k - std::strlen(key));
    };
    const size_t at = report.find("Signer's certificate:");
    const size_t cn = report.find("/CN=", at);
    if (at == std::string::npos || cn == std::string::npos ||
        line("Current message digest    :") != line("Calculated message digest :"))
      continue;
    const std::string name = report.substr(cn + 4, report.find_first_of("/\n", cn + 4) - cn - 4);
    EXPECT_EQ(Signer(Slurp(entry.path())).substr(0, name.size()), name) << entry.path();
    ++compared;
  }
  EXPECT_GT(compared, 3);
}

// A signed image changed anywhere but in the checksum is no longer signed; cut short or with
// its headers pointing outside the file it has no signer, and no read goes past its end.
TEST(PeSignature, EveryChangeOrCutIsCaught) {
  const std::string path = CorpusDir() + "/executables/pegoat-authenticode-32.exe";
  if (CorpusDir().empty() || !std::filesystem::exists(path)) GTEST_SKIP() << "the sample corpus is not there";
  const std::string image = Slurp(path);
  ASSERT_EQ(Signer(image), "contact@trailofbits.com");
  const PeLayout layout = *ReadPeLayout(image);

  std::string checksum = image;
  checksum[layout.checksum_offset] ^= 0x5A;  // the one field a signer leaves out
  EXPECT_EQ(Signer(checksum), "contact@trailofbits.com");
  for (size_t at : {size_t{0x80}, size_t{0x400}, size_t{layout.table_offset - 1}, size_t{layout.table_offset + 200}}) {
    std::string changed = image;
    changed[at] ^= 0x01;
    EXPECT_EQ(Signer(changed), "(none)") << "byte " << at;
  }
  for (size_t cut = 0; cut < image.size(); cut += 97) EXPECT_EQ(Signer(image.substr(0, cut)), "(none)") << cut;

  std::string far_header = image;
  far_header[0x3C] = '\xFF';
  far_header[0x3D] = '\xFF';
  EXPECT_FALSE(ReadPeLayout(far_header));
  std::string long_table = image;
  long_table[layout.directory_offset + 7] = '\x7F';  // the table's size far past the end
  EXPECT_FALSE(ReadPeLayout(long_table));
  std::string bad_entry = image;
  bad_entry[layout.table_offset + 6] = 9;  // not a PKCS #7 signature
  EXPECT_EQ(Signer(bad_entry), "(none)");
  EXPECT_FALSE(ReadPeLayout("MZ"));
  EXPECT_FALSE(ReadPeLayout(std::string(4096, '\0')));
}

}  // namespace
}  // namespace trovix::extract
