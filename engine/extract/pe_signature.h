// Who signed a Windows program (PE: exe, dll, sys ...): its Authenticode signature, checked.
//
// "Verifies" means here: the digest of the image (the whole file but its checksum field, the
// certificate table's directory entry and the certificate table itself) equals the digest the
// signature carries, and the signature over that digest verifies with the signer's own
// certificate. There is no code-signing trust store on this platform, so the certificate
// chain is not taken to a root: a file signed by anyone who keeps the file intact verifies.
// A file whose digest or signature does not verify has no signer.
//
// The signer is named by its certificate's common name (else its organisation, else the
// first part of its name), followed by " [" and the time stamper's name "]" when the
// signature holds a counter-signature or an RFC 3161 time stamp. Of nested signatures the
// first (primary) is taken.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace trovix::extract {

// Where the certificate table and the fields left out of the digest are, in a PE image.
struct PeLayout {
  uint64_t checksum_offset = 0;   // the optional header's CheckSum (4 bytes)
  uint64_t directory_offset = 0;  // the certificate table's data-directory entry (8 bytes)
  uint64_t table_offset = 0;      // the certificate table (0 when there is none)
  uint64_t table_size = 0;
};

// The layout of `image`; nullopt when it is no PE image or its fields point outside it.
std::optional<PeLayout> ReadPeLayout(std::string_view image);

// The first PKCS #7 signature of the certificate table (its DER bytes); empty when there is
// none or the table is malformed.
std::string_view FirstSignature(std::string_view image, const PeLayout& layout);

// The Authenticode digest of the image with the named OpenSSL digest ("SHA1", "SHA256" ...);
// empty when the digest is unknown or the layout does not fit the image.
std::string AuthenticodeDigest(std::string_view image, const PeLayout& layout, const char* digest_name);

// The signer's text as above; nullopt for an unsigned, tampered or malformed image.
std::optional<std::string> SignedByOf(std::string_view image);

}  // namespace trovix::extract
