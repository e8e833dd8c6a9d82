// Who signed a Windows executable (PE: exe, dll, sys...): the Authenticode signature in the
// image's certificate table, checked against the image and named by its signer.
//
// Everything here reads untrusted bytes, so it runs in the extraction helper only. Every offset
// the file states is checked before it is used: a file that lies about its layout has no
// signature, it never makes a read go past the bytes.
//
// "Signed" means two things here, both checked: the image hashes to the digest the signature
// carries (nothing was changed after signing), and the signer certificate's key made the
// signature. Whether that certificate chains to a trusted root is not asked: Linux has no
// code-signing trust store to ask, and a name that merely claims to be someone is what this
// shows in any case, with the same weight as a file's "Company" field.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "extract/document_input.h"

namespace trovix::extract {

// Bigger files are not examined: their digest alone would take seconds.
inline constexpr uint64_t kMaxSignedImageBytes = 512ull << 20;

// Where the pieces the Authenticode digest leaves out lie in the file.
struct PeLayout {
  bool pe32_plus = false;
  uint32_t checksum_offset = 0;       // the optional header's CheckSum, 4 bytes
  uint32_t security_entry_offset = 0; // the certificate table's data-directory entry, 8 bytes
  uint32_t headers_end = 0;           // SizeOfHeaders
  // The certificate table as the directory states it: a file offset, not an address. Both 0
  // when the image has none; otherwise checked to lie within the file after the directory.
  uint32_t table_offset = 0;
  uint32_t table_size = 0;
};

// The layout of a PE image, or nothing when `file` is not one (or states offsets outside it).
std::optional<PeLayout> ReadPeLayout(std::string_view file);

// One WIN_CERTIFICATE of the certificate table.
struct CertificateEntry {
  uint16_t revision = 0;  // 0x0200 for the current form
  uint16_t type = 0;      // 2: a PKCS #7 SignedData
  std::string_view data;  // bCertificate: the entry minus its 8-byte header, padding included
};

// The entries of the certificate table, in file order. A table whose entries overrun it, or
// whose first entry is malformed, gives none; entries after a malformed one are dropped.
std::vector<CertificateEntry> CertificateEntries(std::string_view file, const PeLayout& layout);

// The DER bytes of the image's signature: the first entry that is a revision-2 PKCS #7
// SignedData, or nothing.
std::optional<std::string_view> SignatureBlobOf(std::string_view file);

// The Authenticode digest of the image with the named digest ("SHA1", "SHA256", ... as OpenSSL
// names them): every byte of the file but the CheckSum, the certificate-table entry and the
// table itself. Nothing when the digest is unknown or the layout is inconsistent.
std::optional<std::string> AuthenticodeDigest(std::string_view file, const PeLayout& layout,
                                              const std::string& digest_name);

// What a signature blob says, before it is checked against an image.
struct SignatureInfo {
  std::string digest_name;    // the digest the image was hashed with, OpenSSL's short name
  std::string image_digest;   // the digest the signer signed, raw bytes
  std::string signer;         // the signer's display name
  std::string timestamper;    // the time stamp's signer, "" when there is none
  bool signature_valid = false;  // the signer's key signed the content and attributes
};

// Parses a PKCS #7 SignedData that holds an Authenticode SpcIndirectDataContent and checks its
// signature (not its certificate chain). Nothing when it is not one.
std::optional<SignatureInfo> ParseSignature(std::string_view der);

// The "Signed by" text of an image: the signer's name, then " [time stamper]" when the
// signature carries a time stamp. Nothing for an unsigned image, a signature that does not
// verify, an image changed after signing, or anything malformed.
std::optional<std::string> SignedByOf(std::string_view file);

// The same for a document of the helper: a file it reads (up to kMaxSignedImageBytes) or a
// block in memory.
std::optional<std::string> SignedByOf(const DocumentInput& input);

}  // namespace trovix::extract
