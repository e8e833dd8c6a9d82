#include "extract/properties/pe_signature.h"

#include <fcntl.h>
#include <openssl/asn1.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/rsa.h>
#include <openssl/ts.h>
#include <openssl/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace trovix::extract {
namespace {

// --- the PE image -------------------------------------------------------------------------

constexpr uint16_t kPe32Magic = 0x10b;
constexpr uint16_t kPe32PlusMagic = 0x20b;
constexpr uint32_t kSecurityDirectory = 4;
constexpr uint16_t kCertificateRevision2 = 0x0200;
constexpr uint16_t kCertificatePkcsSignedData = 2;
// Signing tools write one entry, and a nested signature goes inside it rather than beside it;
// a table with more entries than this is not worth walking.
constexpr size_t kMaxCertificateEntries = 64;

// Reads little-endian fields; the callers have checked that `at + sizeof` lies within `bytes`.
uint16_t U16(std::string_view bytes, uint64_t at) {
  return static_cast<uint16_t>(static_cast<uint8_t>(bytes[at]) | static_cast<uint8_t>(bytes[at + 1]) << 8);
}
uint32_t U32(std::string_view bytes, uint64_t at) {
  return static_cast<uint32_t>(U16(bytes, at)) | static_cast<uint32_t>(U16(bytes, at + 2)) << 16;
}
bool Fits(std::string_view bytes, uint64_t at, uint64_t size) { return at <= bytes.size() && size <= bytes.size() - at; }

// --- OpenSSL objects owned by scope -------------------------------------------------------

template <typename T, void (*Free)(T*)>
struct Deleter {
  void operator()(T* p) const { Free(p); }
};
using Pkcs7Ptr = std::unique_ptr<PKCS7, Deleter<PKCS7, PKCS7_free>>;
using SignerInfoPtr = std::unique_ptr<PKCS7_SIGNER_INFO, Deleter<PKCS7_SIGNER_INFO, PKCS7_SIGNER_INFO_free>>;
using X509SigPtr = std::unique_ptr<X509_SIG, Deleter<X509_SIG, X509_SIG_free>>;
using CmsPtr = std::unique_ptr<CMS_ContentInfo, Deleter<CMS_ContentInfo, CMS_ContentInfo_free>>;
using TstInfoPtr = std::unique_ptr<TS_TST_INFO, Deleter<TS_TST_INFO, TS_TST_INFO_free>>;
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, Deleter<EVP_MD_CTX, EVP_MD_CTX_free>>;
void FreeTypeStack(STACK_OF(ASN1_TYPE) * s) { sk_ASN1_TYPE_pop_free(s, ASN1_TYPE_free); }
using TypeStackPtr = std::unique_ptr<STACK_OF(ASN1_TYPE), Deleter<STACK_OF(ASN1_TYPE), FreeTypeStack>>;

// OpenSSL keeps failures on a per-thread queue; a hostile file must not leave it growing.
struct ErrorQueueGuard {
  ~ErrorQueueGuard() { ERR_clear_error(); }
};

constexpr const char* kSpcIndirectDataOid = "1.3.6.1.4.1.311.2.1.4";
constexpr const char* kRfc3161TimeStampOid = "1.3.6.1.4.1.311.3.3.1";

bool IsOid(const ASN1_OBJECT* object, const char* dotted) {
  char text[80];
  int n = OBJ_obj2txt(text, sizeof text, object, 1);
  return n > 0 && static_cast<size_t>(n) < sizeof text && strcmp(text, dotted) == 0;
}

// The text of one name entry as UTF-8, with control characters (which a certificate may carry
// to garble a display) turned into spaces and the ends trimmed.
std::string EntryText(const X509_NAME_ENTRY* entry) {
  unsigned char* utf8 = nullptr;
  int n = ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(entry));
  if (n < 0) return "";
  std::string text(reinterpret_cast<char*>(utf8), static_cast<size_t>(n));
  OPENSSL_free(utf8);
  for (char& c : text)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = ' ';
  size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// The name people know a certificate by: its common name, else its organisation, else its
// first entry of any kind.
std::string DisplayName(const X509* cert) {
  const X509_NAME* name = X509_get_subject_name(cert);
  if (!name) return "";
  for (int nid : {NID_commonName, NID_organizationName}) {
    int at = X509_NAME_get_index_by_NID(name, nid, -1);
    if (at >= 0) {
      std::string text = EntryText(X509_NAME_get_entry(name, at));
      if (!text.empty()) return text;
    }
  }
  return X509_NAME_entry_count(name) > 0 ? EntryText(X509_NAME_get_entry(name, 0)) : "";
}

X509* FindCertificate(STACK_OF(X509) * certs, const PKCS7_SIGNER_INFO* si) {
  if (!certs || !si || !si->issuer_and_serial) return nullptr;
  return X509_find_by_issuer_and_serial(certs, si->issuer_and_serial->issuer, si->issuer_and_serial->serial);
}

// The DER of a SEQUENCE-valued attribute or content, tag and length included.
std::optional<std::string_view> SequenceDer(const ASN1_TYPE* value) {
  if (!value || value->type != V_ASN1_SEQUENCE || !value->value.sequence) return std::nullopt;
  const ASN1_STRING* s = value->value.sequence;
  return std::string_view(reinterpret_cast<const char*>(ASN1_STRING_get0_data(s)),
                          static_cast<size_t>(ASN1_STRING_length(s)));
}

// The content octets of a DER value: Authenticode signs the SpcIndirectDataContent without its
// own tag and length, as PKCS #7 does for any content that is not plain data.
std::optional<std::string_view> ContentOctets(std::string_view der) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(der.data());
  long length = 0;
  int tag = 0, cls = 0;
  int ret = ASN1_get_object(&p, &length, &tag, &cls, static_cast<long>(der.size()));
  if (ret & 0x80 || !(ret & V_ASN1_CONSTRUCTED) || ret & 1) return std::nullopt;  // error, primitive, indefinite
  size_t header = static_cast<size_t>(p - reinterpret_cast<const unsigned char*>(der.data()));
  if (header > der.size() || static_cast<size_t>(length) > der.size() - header) return std::nullopt;
  return der.substr(header, static_cast<size_t>(length));
}

std::string_view Octets(const ASN1_STRING* s) {
  if (!s) return {};
  return std::string_view(reinterpret_cast<const char*>(ASN1_STRING_get0_data(s)),
                          static_cast<size_t>(ASN1_STRING_length(s)));
}

std::optional<std::string> Digest(const EVP_MD* md, std::string_view bytes) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (!md || EVP_Digest(bytes.data(), bytes.size(), out, &size, md, nullptr) != 1) return std::nullopt;
  return std::string(reinterpret_cast<char*>(out), size);
}

// Whether `key` signed `bytes` with `signature`. Some time-stamp authorities of the SHA-1 era
// signed the bare digest with RSA instead of a DigestInfo around it; Windows takes those from
// them, so where `bare_digest_too` a recovered bare digest counts as well.
bool SignedBy(EVP_PKEY* key, const EVP_MD* md, std::string_view bytes, std::string_view signature,
              bool bare_digest_too) {
  if (!key || !md) return false;
  MdCtxPtr ctx(EVP_MD_CTX_new());
  if (ctx && EVP_DigestVerifyInit(ctx.get(), nullptr, md, nullptr, key) == 1 &&
      EVP_DigestVerify(ctx.get(), reinterpret_cast<const unsigned char*>(signature.data()), signature.size(),
                       reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()) == 1)
    return true;
  if (!bare_digest_too || EVP_PKEY_get_base_id(key) != EVP_PKEY_RSA) return false;
  std::optional<std::string> digest = Digest(md, bytes);
  std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX, EVP_PKEY_CTX_free>> pctx(EVP_PKEY_CTX_new(key, nullptr));
  if (!digest || !pctx || EVP_PKEY_verify_recover_init(pctx.get()) != 1 ||
      EVP_PKEY_CTX_set_rsa_padding(pctx.get(), RSA_PKCS1_PADDING) != 1)
    return false;
  std::string recovered(static_cast<size_t>(std::max(EVP_PKEY_get_size(key), 0)), '\0');
  size_t recovered_size = recovered.size();
  if (EVP_PKEY_verify_recover(pctx.get(), reinterpret_cast<unsigned char*>(recovered.data()), &recovered_size,
                              reinterpret_cast<const unsigned char*>(signature.data()), signature.size()) != 1)
    return false;
  return std::string_view(recovered).substr(0, recovered_size) == *digest;
}

// Whether a signer info with signed attributes signed `content`: the attributes' message digest
// is the content's, and the certificate's key signed the attributes (as a DER SET, in the order
// they were written). PKCS7_verify does the same but leaks on some malformed signatures, and
// cannot take a counter-signature, which has no SignedData of its own.
bool SignerInfoSigned(PKCS7_SIGNER_INFO* si, X509* cert, std::string_view content, bool bare_digest_too) {
  if (!si || !cert || !si->digest_alg || !si->auth_attr || sk_X509_ATTRIBUTE_num(si->auth_attr) == 0) return false;
  const EVP_MD* md = EVP_get_digestbyobj(si->digest_alg->algorithm);
  std::optional<std::string> expected = Digest(md, content);
  ASN1_OCTET_STRING* stated = PKCS7_digest_from_attributes(si->auth_attr);
  if (!expected || !stated || Octets(stated) != *expected) return false;
  unsigned char* attributes = nullptr;
  int length = ASN1_item_i2d(reinterpret_cast<ASN1_VALUE*>(si->auth_attr), &attributes,
                             ASN1_ITEM_rptr(PKCS7_ATTR_VERIFY));
  if (length <= 0) return false;
  bool ok = SignedBy(X509_get0_pubkey(cert), md,
                     std::string_view(reinterpret_cast<char*>(attributes), static_cast<size_t>(length)),
                     Octets(si->enc_digest), bare_digest_too);
  OPENSSL_free(attributes);
  return ok;
}

// A PKCS #9 counter-signature: a bare SignerInfo over the main signature's encrypted digest,
// whose certificate travels with the main signature.
std::string CounterSignerOf(PKCS7* p7, PKCS7_SIGNER_INFO* si, ASN1_TYPE* counter) {
  std::optional<std::string_view> der = SequenceDer(counter);
  if (!der) return "";
  const unsigned char* p = reinterpret_cast<const unsigned char*>(der->data());
  SignerInfoPtr csi(d2i_PKCS7_SIGNER_INFO(nullptr, &p, static_cast<long>(der->size())));
  X509* tsa = FindCertificate(p7->d.sign->cert, csi.get());
  return SignerInfoSigned(csi.get(), tsa, Octets(si->enc_digest), true) ? DisplayName(tsa) : "";
}

// An RFC 3161 time stamp: a CMS SignedData of its own (often a version the PKCS #7 parser
// refuses) whose TSTInfo imprints the main signature's encrypted digest.
std::string TimeStampSignerOf(PKCS7_SIGNER_INFO* si, std::string_view der) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(der.data());
  CmsPtr token(d2i_CMS_ContentInfo(nullptr, &p, static_cast<long>(der.size())));
  if (!token || OBJ_obj2nid(CMS_get0_type(token.get())) != NID_pkcs7_signed) return "";
  if (CMS_verify(token.get(), nullptr, nullptr, nullptr, nullptr, CMS_NO_SIGNER_CERT_VERIFY) != 1) return "";
  ASN1_OCTET_STRING** content = CMS_get0_content(token.get());
  if (!content || !*content) return "";
  std::string_view tst_der = Octets(*content);
  p = reinterpret_cast<const unsigned char*>(tst_der.data());
  TstInfoPtr tst(d2i_TS_TST_INFO(nullptr, &p, static_cast<long>(tst_der.size())));
  if (!tst) return "";
  TS_MSG_IMPRINT* imprint = TS_TST_INFO_get_msg_imprint(tst.get());
  X509_ALGOR* imprint_algorithm = TS_MSG_IMPRINT_get_algo(imprint);
  const EVP_MD* md = imprint_algorithm ? EVP_get_digestbyobj(imprint_algorithm->algorithm) : nullptr;
  std::optional<std::string> expected = Digest(md, Octets(si->enc_digest));
  if (!expected || Octets(TS_MSG_IMPRINT_get_msg(imprint)) != *expected) return "";
  STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(token.get());
  if (sk_CMS_SignerInfo_num(signers) < 1) return "";
  CMS_SignerInfo* tsi = sk_CMS_SignerInfo_value(signers, 0);
  X509* tsa = nullptr;
  CMS_SignerInfo_get0_algs(tsi, nullptr, &tsa, nullptr, nullptr);  // set by CMS_verify
  return tsa ? DisplayName(tsa) : "";
}

// The time stamper of a signer, when its time stamp verifies: the time stamp signed the main
// signature, so the signer's key existed at that time. Time stamps are unsigned attributes that
// anyone could add; one that does not verify is left out, and the signature stands without it.
std::string TimeStamperOf(PKCS7* p7, PKCS7_SIGNER_INFO* si) {
  if (ASN1_TYPE* counter = PKCS7_get_attribute(si, NID_pkcs9_countersignature)) {
    std::string name = CounterSignerOf(p7, si, counter);
    if (!name.empty()) return name;
  }
  STACK_OF(X509_ATTRIBUTE)* attributes = PKCS7_get_attributes(si);
  for (int i = 0; i < sk_X509_ATTRIBUTE_num(attributes); ++i) {
    X509_ATTRIBUTE* attribute = sk_X509_ATTRIBUTE_value(attributes, i);
    if (!IsOid(X509_ATTRIBUTE_get0_object(attribute), kRfc3161TimeStampOid)) continue;
    if (std::optional<std::string_view> der = SequenceDer(X509_ATTRIBUTE_get0_type(attribute, 0))) {
      std::string name = TimeStampSignerOf(si, *der);
      if (!name.empty()) return name;
    }
  }
  return "";
}

}  // namespace

std::optional<PeLayout> ReadPeLayout(std::string_view file) {
  if (file.size() > kMaxSignedImageBytes || !Fits(file, 0, 64) || file[0] != 'M' || file[1] != 'Z') return std::nullopt;
  const uint64_t pe = U32(file, 0x3c);
  // "PE\0\0", then the COFF header (20 bytes), then the optional header.
  if (!Fits(file, pe, 24) || file.substr(pe, 4) != std::string_view("PE\0\0", 4)) return std::nullopt;
  const uint16_t optional_size = U16(file, pe + 20);
  const uint64_t optional = pe + 24;
  if (!Fits(file, optional, optional_size) || optional_size < 2) return std::nullopt;

  PeLayout layout;
  const uint16_t magic = U16(file, optional);
  if (magic == kPe32PlusMagic) {
    layout.pe32_plus = true;
  } else if (magic != kPe32Magic) {
    return std::nullopt;
  }
  // PE32+ widens four fields before the data directory by 4 bytes each (ImageBase counts once).
  const uint64_t count_at = optional + (layout.pe32_plus ? 108 : 92);
  const uint64_t directory = count_at + 4;
  const uint64_t entry = directory + 8 * kSecurityDirectory;
  // The entry must lie within the optional header the COFF header declares, and be one of the
  // entries it says it has.
  if (entry + 8 > optional + optional_size || U32(file, count_at) <= kSecurityDirectory) return std::nullopt;
  layout.checksum_offset = static_cast<uint32_t>(optional + 64);
  layout.headers_end = U32(file, optional + 60);
  layout.security_entry_offset = static_cast<uint32_t>(entry);

  const uint32_t offset = U32(file, entry);
  const uint32_t size = U32(file, entry + 4);
  if (size == 0) return layout;  // unsigned
  // A table that overlaps the headers it is excluded with, or leaves the file, makes every
  // range of the digest doubtful: the image as a whole is malformed.
  if (offset < entry + 8 || !Fits(file, offset, size)) return std::nullopt;
  layout.table_offset = offset;
  layout.table_size = size;
  return layout;
}

std::vector<CertificateEntry> CertificateEntries(std::string_view file, const PeLayout& layout) {
  std::vector<CertificateEntry> entries;
  if (layout.table_size == 0 || !Fits(file, layout.table_offset, layout.table_size)) return entries;
  std::string_view table = file.substr(layout.table_offset, layout.table_size);
  uint64_t at = 0;
  while (entries.size() < kMaxCertificateEntries && Fits(table, at, 8)) {
    const uint32_t length = U32(table, at);
    if (length < 8 || !Fits(table, at, length)) break;
    entries.push_back({U16(table, at + 4), U16(table, at + 6), table.substr(at + 8, length - 8)});
    at += (uint64_t{length} + 7) & ~uint64_t{7};  // entries start on 8-byte boundaries
  }
  return entries;
}

std::optional<std::string_view> SignatureBlobOf(std::string_view file) {
  std::optional<PeLayout> layout = ReadPeLayout(file);
  if (!layout) return std::nullopt;
  for (const CertificateEntry& entry : CertificateEntries(file, *layout))
    if (entry.revision == kCertificateRevision2 && entry.type == kCertificatePkcsSignedData) return entry.data;
  return std::nullopt;
}

std::optional<std::string> AuthenticodeDigest(std::string_view file, const PeLayout& layout,
                                              const std::string& digest_name) {
  ErrorQueueGuard errors;
  const EVP_MD* md = EVP_get_digestbyname(digest_name.c_str());
  if (!md) return std::nullopt;
  // The three ranges left out, in file order (the checksum and the directory entry both sit in
  // the optional header, the table after it), each checked against the file and its neighbour.
  struct Range {
    uint64_t start, size;
  };
  std::vector<Range> skipped = {{layout.checksum_offset, 4}, {layout.security_entry_offset, 8}};
  if (layout.table_size) skipped.push_back({layout.table_offset, layout.table_size});
  MdCtxPtr ctx(EVP_MD_CTX_new());
  if (!ctx || EVP_DigestInit_ex(ctx.get(), md, nullptr) != 1) return std::nullopt;
  uint64_t at = 0;
  for (const Range& r : skipped) {
    if (r.start < at || !Fits(file, r.start, r.size)) return std::nullopt;
    if (EVP_DigestUpdate(ctx.get(), file.data() + at, r.start - at) != 1) return std::nullopt;
    at = r.start + r.size;
  }
  if (EVP_DigestUpdate(ctx.get(), file.data() + at, file.size() - at) != 1) return std::nullopt;
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int digest_size = 0;
  if (EVP_DigestFinal_ex(ctx.get(), digest, &digest_size) != 1) return std::nullopt;
  return std::string(reinterpret_cast<char*>(digest), digest_size);
}

std::optional<SignatureInfo> ParseSignature(std::string_view der) {
  ErrorQueueGuard errors;
  const unsigned char* p = reinterpret_cast<const unsigned char*>(der.data());
  Pkcs7Ptr p7(d2i_PKCS7(nullptr, &p, static_cast<long>(der.size())));
  if (!p7 || !PKCS7_type_is_signed(p7.get()) || !p7->d.sign || !p7->d.sign->contents) return std::nullopt;
  PKCS7* contents = p7->d.sign->contents;
  if (!contents->type || !IsOid(contents->type, kSpcIndirectDataOid)) return std::nullopt;
  std::optional<std::string_view> indirect = SequenceDer(contents->d.other);
  if (!indirect) return std::nullopt;

  // SpcIndirectDataContent ::= SEQUENCE { data SpcAttributeTypeAndOptionalValue,
  //                                       messageDigest DigestInfo }
  const unsigned char* q = reinterpret_cast<const unsigned char*>(indirect->data());
  TypeStackPtr fields(d2i_ASN1_SEQUENCE_ANY(nullptr, &q, static_cast<long>(indirect->size())));
  if (!fields || sk_ASN1_TYPE_num(fields.get()) < 2) return std::nullopt;
  std::optional<std::string_view> digest_info = SequenceDer(sk_ASN1_TYPE_value(fields.get(), 1));
  if (!digest_info) return std::nullopt;
  q = reinterpret_cast<const unsigned char*>(digest_info->data());
  X509SigPtr sig(d2i_X509_SIG(nullptr, &q, static_cast<long>(digest_info->size())));
  if (!sig) return std::nullopt;
  const X509_ALGOR* algorithm = nullptr;
  const ASN1_OCTET_STRING* digest = nullptr;
  X509_SIG_get0(sig.get(), &algorithm, &digest);
  const ASN1_OBJECT* algorithm_oid = nullptr;
  X509_ALGOR_get0(&algorithm_oid, nullptr, nullptr, algorithm);
  const EVP_MD* md = EVP_get_digestbyobj(algorithm_oid);
  if (!md || !digest) return std::nullopt;

  SignatureInfo info;
  info.digest_name = EVP_MD_get0_name(md);
  info.image_digest.assign(reinterpret_cast<const char*>(ASN1_STRING_get0_data(digest)),
                           static_cast<size_t>(ASN1_STRING_length(digest)));

  // Authenticode allows exactly one signer.
  STACK_OF(PKCS7_SIGNER_INFO)* signers = PKCS7_get_signer_info(p7.get());
  if (sk_PKCS7_SIGNER_INFO_num(signers) != 1) return std::nullopt;
  PKCS7_SIGNER_INFO* si = sk_PKCS7_SIGNER_INFO_value(signers, 0);
  X509* signer = FindCertificate(p7->d.sign->cert, si);
  if (!signer) return std::nullopt;
  info.signer = DisplayName(signer);
  info.timestamper = TimeStamperOf(p7.get(), si);

  // The signed content is the SpcIndirectDataContent's octets. The certificate chain is not
  // checked (see the header).
  std::optional<std::string_view> octets = ContentOctets(*indirect);
  if (!octets) return std::nullopt;
  info.signature_valid = SignerInfoSigned(si, signer, *octets, false);
  return info;
}

std::optional<std::string> SignedByOf(std::string_view file) {
  std::optional<PeLayout> layout = ReadPeLayout(file);
  if (!layout || layout->table_size == 0) return std::nullopt;
  std::optional<std::string_view> blob = SignatureBlobOf(file);
  if (!blob) return std::nullopt;
  std::optional<SignatureInfo> info = ParseSignature(*blob);
  if (!info || !info->signature_valid || info->signer.empty()) return std::nullopt;
  std::optional<std::string> digest = AuthenticodeDigest(file, *layout, info->digest_name);
  if (!digest || *digest != info->image_digest) return std::nullopt;
  if (info->timestamper.empty()) return info->signer;
  return info->signer + " [" + info->timestamper + "]";
}

std::optional<std::string> SignedByOf(const DocumentInput& input) {
  if (input.in_memory()) return SignedByOf(std::string_view(*input.bytes));
  int fd = open(input.path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string bytes;
  struct stat st;
  bool ok = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && static_cast<uint64_t>(st.st_size) <= kMaxSignedImageBytes;
  if (ok) {
    bytes.resize(static_cast<size_t>(st.st_size));
    size_t got = 0;
    while (got < bytes.size()) {
      ssize_t n = read(fd, bytes.data() + got, bytes.size() - got);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      got += static_cast<size_t>(n);
    }
    bytes.resize(got);  // a file that shrank while read is read as it now is
  }
  close(fd);
  if (!ok) return std::nullopt;
  return SignedByOf(std::string_view(bytes));
}

}  // namespace trovix::extract
