#include "engine/extract/pe_signature.h"

#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <cstring>
#include <memory>

namespace trovix::extract {
namespace {

uint32_t Le(std::string_view b, uint64_t at, int bytes) {
  uint32_t v = 0;
  for (int i = 0; i < bytes; ++i) v |= static_cast<uint32_t>(static_cast<uint8_t>(b[at + static_cast<uint64_t>(i)])) << (8 * i);
  return v;
}

constexpr uint16_t kCertificateRevision = 0x0200;
constexpr uint16_t kPkcsSignedData = 0x0002;

template <typename T, void (*Free)(T*)>
struct Deleter {
  void operator()(T* p) const { Free(p); }
};
using Pkcs7Ptr = std::unique_ptr<PKCS7, Deleter<PKCS7, PKCS7_free>>;
using BioPtr = std::unique_ptr<BIO, Deleter<BIO, BIO_free_all>>;
using SignerPtr = std::unique_ptr<PKCS7_SIGNER_INFO, Deleter<PKCS7_SIGNER_INFO, PKCS7_SIGNER_INFO_free>>;

// A minimal DER reader for the few structures OpenSSL does not parse for us.
struct Der {
  const uint8_t* p;
  size_t left;
  // The next element: its tag, its contents, and the whole element's size.
  bool Next(uint8_t* tag, const uint8_t** contents, size_t* length, size_t* whole) {
    if (left < 2) return false;
    *tag = p[0];
    size_t len = p[1], header = 2;
    if (len & 0x80) {
      const size_t n = len & 0x7F;
      if (n == 0 || n > 4 || left < 2 + n) return false;
      len = 0;
      for (size_t i = 0; i < n; ++i) len = (len << 8) | p[2 + i];
      header += n;
    }
    if (len > left - header) return false;
    *contents = p + header;
    *length = len;
    *whole = header + len;
    p += *whole;
    left -= *whole;
    return true;
  }
};

// SpcIndirectDataContent ::= SEQUENCE { data SpcAttributeTypeAndOptionalValue,
//                                        messageDigest DigestInfo }
// DigestInfo ::= SEQUENCE { digestAlgorithm AlgorithmIdentifier, digest OCTET STRING }
bool ReadIndirectData(const ASN1_STRING* content, int* digest_nid, std::string* digest) {
  Der outer{content->data, static_cast<size_t>(content->length)};
  uint8_t tag;
  const uint8_t* body;
  size_t length, whole;
  if (!outer.Next(&tag, &body, &length, &whole) || tag != 0x30) return false;
  Der seq{body, length};
  if (!seq.Next(&tag, &body, &length, &whole) || tag != 0x30) return false;  // data
  if (!seq.Next(&tag, &body, &length, &whole) || tag != 0x30) return false;  // DigestInfo
  Der info{body, length};
  if (!info.Next(&tag, &body, &length, &whole) || tag != 0x30) return false;  // AlgorithmIdentifier
  const uint8_t* oid_start = body;
  Der alg{body, length};
  if (!alg.Next(&tag, &body, &length, &whole) || tag != 0x06) return false;
  const unsigned char* q = oid_start;
  ASN1_OBJECT* oid = d2i_ASN1_OBJECT(nullptr, &q, static_cast<long>(whole));
  if (oid == nullptr) return false;
  *digest_nid = OBJ_obj2nid(oid);
  ASN1_OBJECT_free(oid);
  if (!info.Next(&tag, &body, &length, &whole) || tag != 0x04) return false;
  digest->assign(reinterpret_cast<const char*>(body), length);
  return true;
}

// The name a person reads: common name, else organisation, else the whole name.
std::string DisplayName(X509* cert) {
  if (cert == nullptr) return {};
  X509_NAME* name = X509_get_subject_name(cert);
  for (int nid : {NID_commonName, NID_organizationName}) {
    const int at = X509_NAME_get_index_by_NID(name, nid, -1);
    if (at < 0) continue;
    unsigned char* utf8 = nullptr;
    const int n = ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, at)));
    if (n <= 0) continue;
    std::string text(reinterpret_cast<char*>(utf8), static_cast<size_t>(n));
    OPENSSL_free(utf8);
    if (!text.empty()) return text;
  }
  char buffer[256];
  X509_NAME_oneline(name, buffer, sizeof buffer);
  return buffer;
}

X509* CertificateOf(STACK_OF(X509) * certs, PKCS7_ISSUER_AND_SERIAL* id) {
  if (certs == nullptr || id == nullptr) return nullptr;
  return X509_find_by_issuer_and_serial(certs, id->issuer, id->serial);
}

// The time stamper: a PKCS #9 counter-signature (a signer info signed by a certificate that
// the signature carries) or an RFC 3161 time-stamp token (a signature of its own).
std::string TimeStamper(PKCS7* p7, PKCS7_SIGNER_INFO* si) {
  if (ASN1_TYPE* counter = PKCS7_get_attribute(si, NID_pkcs9_countersignature);
      counter && counter->type == V_ASN1_SEQUENCE) {
    const unsigned char* q = counter->value.sequence->data;
    SignerPtr cs(d2i_PKCS7_SIGNER_INFO(nullptr, &q, counter->value.sequence->length));
    if (cs) return DisplayName(CertificateOf(p7->d.sign->cert, cs->issuer_and_serial));
  }
  static const int kRfc3161 = [] {
    int nid = OBJ_txt2nid("1.3.6.1.4.1.311.3.3.1");
    return nid != NID_undef ? nid : OBJ_create("1.3.6.1.4.1.311.3.3.1", "spcRFC3161", "RFC 3161 time stamp");
  }();
  if (ASN1_TYPE* token = PKCS7_get_attribute(si, kRfc3161); token && token->type == V_ASN1_SEQUENCE) {
    const unsigned char* q = token->value.sequence->data;
    Pkcs7Ptr ts(d2i_PKCS7(nullptr, &q, token->value.sequence->length));
    if (ts && PKCS7_type_is_signed(ts.get())) {
      STACK_OF(PKCS7_SIGNER_INFO)* infos = PKCS7_get_signer_info(ts.get());
      if (infos && sk_PKCS7_SIGNER_INFO_num(infos) > 0)
        return DisplayName(CertificateOf(ts->d.sign->cert, sk_PKCS7_SIGNER_INFO_value(infos, 0)->issuer_and_serial));
    }
  }
  return {};
}

}  // namespace

std::optional<PeLayout> ReadPeLayout(std::string_view image) {
  if (image.size() < 0x40 || image[0] != 'M' || image[1] != 'Z') return std::nullopt;
  const uint64_t pe = Le(image, 0x3C, 4);
  if (pe > image.size() || image.size() - pe < 24 || image.substr(pe, 4) != std::string_view("PE\0\0", 4))
    return std::nullopt;
  const uint64_t optional = pe + 24;
  const uint64_t optional_size = Le(image, pe + 20, 2);
  if (optional + 2 > image.size()) return std::nullopt;
  const uint32_t magic = Le(image, optional, 2);
  uint64_t count_at, directories;
  if (magic == 0x10B) {
    count_at = optional + 92;
    directories = optional + 96;
  } else if (magic == 0x20B) {
    count_at = optional + 108;
    directories = optional + 112;
  } else {
    return std::nullopt;
  }
  PeLayout layout;
  layout.checksum_offset = optional + 64;
  layout.directory_offset = directories + 4 * 8;
  // The certificate entry must lie inside the optional header the file declares, and inside
  // the file.
  if (count_at + 4 > image.size() || Le(image, count_at, 4) < 5 ||
      layout.directory_offset + 8 > optional + optional_size || layout.directory_offset + 8 > image.size())
    return std::nullopt;
  layout.table_offset = Le(image, layout.directory_offset, 4);  // a file offset, not an address
  layout.table_size = Le(image, layout.directory_offset + 4, 4);
  if (layout.table_size == 0 || layout.table_offset == 0) {
    layout.table_offset = layout.table_size = 0;
  } else if (layout.table_offset < layout.directory_offset + 8 || layout.table_offset > image.size() ||
             layout.table_size > image.size() - layout.table_offset) {
    return std::nullopt;
  }
  return layout;
}

std::string_view FirstSignature(std::string_view image, const PeLayout& layout) {
  if (layout.table_size < 8) return {};
  const uint64_t length = Le(image, layout.table_offset, 4);
  const uint32_t revision = Le(image, layout.table_offset + 4, 2);
  const uint32_t type = Le(image, layout.table_offset + 6, 2);
  if (length <= 8 || length > layout.table_size || revision != kCertificateRevision || type != kPkcsSignedData)
    return {};
  return image.substr(layout.table_offset + 8, length - 8);
}

std::string AuthenticodeDigest(std::string_view image, const PeLayout& layout, const char* digest_name) {
  const EVP_MD* md = EVP_get_digestbyname(digest_name);
  if (md == nullptr) return {};
  const uint64_t table_end = layout.table_offset + layout.table_size;
  const uint64_t hashed_end = layout.table_size ? layout.table_offset : image.size();
  if (layout.checksum_offset + 4 > layout.directory_offset || layout.directory_offset + 8 > hashed_end ||
      hashed_end > image.size() || table_end > image.size())
    return {};
  std::unique_ptr<EVP_MD_CTX, Deleter<EVP_MD_CTX, EVP_MD_CTX_free>> ctx(EVP_MD_CTX_new());
  if (!ctx || EVP_DigestInit_ex(ctx.get(), md, nullptr) != 1) return {};
  auto add = [&](uint64_t from, uint64_t to) {
    if (to > from) EVP_DigestUpdate(ctx.get(), image.data() + from, to - from);
  };
  add(0, layout.checksum_offset);
  add(layout.checksum_offset + 4, layout.directory_offset);
  add(layout.directory_offset + 8, hashed_end);
  // Bytes after the table are part of the image (a table that is not at the end is rare).
  if (layout.table_size) add(table_end, image.size());
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  if (EVP_DigestFinal_ex(ctx.get(), out, &n) != 1) return {};
  return std::string(reinterpret_cast<char*>(out), n);
}

std::optional<std::string> SignedByOf(std::string_view image) {
  const std::optional<PeLayout> layout = ReadPeLayout(image);
  if (!layout) return std::nullopt;
  const std::string_view der = FirstSignature(image, *layout);
  if (der.empty() || der.size() > 0x7FFFFFFF) return std::nullopt;
  const unsigned char* q = reinterpret_cast<const unsigned char*>(der.data());
  Pkcs7Ptr p7(d2i_PKCS7(nullptr, &q, static_cast<long>(der.size())));
  if (!p7 || !PKCS7_type_is_signed(p7.get()) || p7->d.sign->contents == nullptr) return std::nullopt;
  PKCS7* content = p7->d.sign->contents;
  if (content->type == nullptr || content->d.other == nullptr || content->d.other->type != V_ASN1_SEQUENCE)
    return std::nullopt;
  const ASN1_STRING* indirect = content->d.other->value.sequence;

  // 1. The image is what was signed: its digest is the one in the signed content.
  int digest_nid = NID_undef;
  std::string signed_digest;
  if (!ReadIndirectData(indirect, &digest_nid, &signed_digest)) return std::nullopt;
  const char* digest_name = OBJ_nid2sn(digest_nid);
  if (digest_name == nullptr || AuthenticodeDigest(image, *layout, digest_name) != signed_digest) return std::nullopt;

  // 2. The signer signed that content: the signed attributes hold the content's digest, and
  // the signature over them verifies with the signer's certificate. The content signed is the
  // indirect data without its outer tag and length.
  STACK_OF(PKCS7_SIGNER_INFO)* infos = PKCS7_get_signer_info(p7.get());
  if (infos == nullptr || sk_PKCS7_SIGNER_INFO_num(infos) < 1) return std::nullopt;
  PKCS7_SIGNER_INFO* si = sk_PKCS7_SIGNER_INFO_value(infos, 0);
  X509* signer = CertificateOf(p7->d.sign->cert, si->issuer_and_serial);
  if (signer == nullptr) return std::nullopt;
  Der outer{indirect->data, static_cast<size_t>(indirect->length)};
  uint8_t tag;
  const uint8_t* body;
  size_t length, whole;
  if (!outer.Next(&tag, &body, &length, &whole)) return std::nullopt;
  const EVP_MD* attribute_md = EVP_get_digestbyobj(si->digest_alg->algorithm);
  if (attribute_md == nullptr) return std::nullopt;
  BioPtr chain(BIO_new(BIO_f_md()));
  BIO* source = BIO_new_mem_buf(body, static_cast<int>(length));
  if (!chain || source == nullptr) {
    BIO_free(source);
    return std::nullopt;
  }
  BIO_set_md(chain.get(), attribute_md);
  BIO_push(chain.get(), source);
  char buffer[4096];
  while (BIO_read(chain.get(), buffer, sizeof buffer) > 0) {
  }
  if (PKCS7_signatureVerify(chain.get(), p7.get(), si, signer) != 1) return std::nullopt;

  std::string text = DisplayName(signer);
  if (text.empty()) return std::nullopt;
  if (std::string stamper = TimeStamper(p7.get(), si); !stamper.empty()) text += " [" + stamper + "]";
  return text;
}

}  // namespace trovix::extract
