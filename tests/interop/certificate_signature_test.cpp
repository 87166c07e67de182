// Signatures that the openssl program makes, of every family of keys: certificates, requests and lists verify, and no
// longer do when one byte of what is signed, or of the signature, is another.
#include "interop/openssl_tool.h"

#include <certkern/encode.h>
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/keys.h>

#include <gtest/gtest.h>

#include <algorithm>

namespace fs = std::filesystem;

namespace {

// What the script makes: RSA, RSASSA-PSS with two kinds of key, three curves, two Edwards curves, GOST.
constexpr size_t kFamilies = 4 + 12 + 2 + 12 + 2 + 6 + 10 + 3;

template <class Record>
struct Decoded {
  Decoded(LPCSTR type, std::span<const BYTE> bytes) {
    void* memory = nullptr;
    DWORD size = 0;
    EXPECT_TRUE(CryptDecodeObjectEx(X509_ASN_ENCODING, type, bytes.data(), static_cast<DWORD>(bytes.size()),
                                    CRYPT_DECODE_ALLOC_FLAG, nullptr, &memory, &size));
    record = static_cast<Record*>(memory);
  }
  ~Decoded() { LocalFree(record); }
  Decoded(const Decoded&) = delete;
  Decoded& operator=(const Decoded&) = delete;
  Record* operator->() const { return record; }
  Record* record;
};

BOOL Verify(std::span<const BYTE> object, PCERT_PUBLIC_KEY_INFO key) {
  SetLastError(0);
  return CryptVerifyCertificateSignature(0, X509_ASN_ENCODING, object.data(),
                                         static_cast<DWORD>(object.size()), key);
}

// Where a part of an object begins; the part is a copy.
size_t PlaceOf(const CRYPT_DATA_BLOB& part, std::span<const BYTE> object) {
  const auto place = std::search(object.begin(), object.end(), part.pbData, part.pbData + part.cbData);
  EXPECT_NE(place, object.end());
  return static_cast<size_t>(place - object.begin());
}

void ExpectBadSignature(Bytes object, size_t place, PCERT_PUBLIC_KEY_INFO key) {
  object[place] ^= 0x01;
  EXPECT_FALSE(Verify(object, key)) << "byte " << place;
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_SIGNATURE}) << "byte " << place;
}

void ExpectSigned(const Bytes& object, PCERT_PUBLIC_KEY_INFO key) {
  EXPECT_TRUE(Verify(object, key)) << std::hex << GetLastError();
  const Decoded<CERT_SIGNED_CONTENT_INFO> parts(X509_CERT, object);
  ASSERT_TRUE(parts.record);
  const size_t toBeSigned = PlaceOf(parts->ToBeSigned, object);
  // behind the element's own header, whose bytes decide where it ends
  ExpectBadSignature(object, toBeSigned + 4, key);
  ExpectBadSignature(object, toBeSigned + parts->ToBeSigned.cbData - 1, key);
  const size_t signature = PlaceOf({parts->Signature.cbData, parts->Signature.pbData}, object);
  for (const DWORD place : {0u, parts->Signature.cbData / 2, parts->Signature.cbData - 1})
    ExpectBadSignature(object, signature + place, key);
}

class CertificateSignatures : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    directory_ = WorkDirectory() / "signed";
    RunShell("sh '" CERTKERN_SOURCE_DIR "/tests/data/make_signed.sh' '" + directory_.string() + "'");
  }
  static Bytes read(const std::string& name) { return ReadFile(directory_ / name); }
  static Bytes readCertificate(const std::string& name) { return read(name + ".crt"); }

  static fs::path directory_;
};
fs::path CertificateSignatures::directory_;

TEST_F(CertificateSignatures, OfEveryFamily) {
  size_t families = 0;
  for (const auto& entry : fs::directory_iterator(directory_)) {
    if (entry.path().extension() != ".crt") continue;
    const std::string name = entry.path().stem().string();
    SCOPED_TRACE(name);
    ++families;
    const Bytes certificate = readCertificate(name);
    const Decoded<CERT_INFO> info(X509_CERT_TO_BE_SIGNED, certificate);
    ASSERT_TRUE(info.record);
    const PCERT_PUBLIC_KEY_INFO key = &info->SubjectPublicKeyInfo;
    for (const char* kind : {".crt", ".csr", ".crl"}) {
      SCOPED_TRACE(kind);
      ExpectSigned(read(name + kind), key);
    }
  }
  EXPECT_EQ(families, kFamilies);
}

// One family's signature under another's key, and a plain signature under a key for RSASSA-PSS.
TEST_F(CertificateSignatures, OfAnotherKey) {
  const struct {
    const char *object, *key;
    DWORD code;
  } kCases[] = {
      {"rsa-sha256",     "free-pss",        NTE_BAD_DATA     },
      {"pss-sha1-32",    "bound-pss",       NTE_BAD_DATA     },
      {"pss-sha256-0",   "bound-pss",       NTE_BAD_DATA     },
      {"pss-sha256-20",  "bound-pss",       NTE_BAD_SIGNATURE},
      {"P-256-sha256",   "P-384-sha256",    NTE_BAD_SIGNATURE},
      {"gost2012_256-A", "gost2012_256-XA", NTE_BAD_SIGNATURE},
      {"gost2012_512-A", "gost2012_512-B",  NTE_BAD_SIGNATURE},
  };
  for (const auto& [object, key, code] : kCases) {
    SCOPED_TRACE(testing::Message() << object << " under " << key);
    const Decoded<CERT_INFO> info(X509_CERT_TO_BE_SIGNED, readCertificate(key));
    ASSERT_TRUE(info.record);
    EXPECT_FALSE(Verify(readCertificate(object), &info->SubjectPublicKeyInfo));
    EXPECT_EQ(GetLastError(), code);
  }
}

// A good signature under the name of another algorithm with the same hash.
TEST_F(CertificateSignatures, UnderALyingName) {
  const struct {
    const char *name, *lie;
  } kCases[] = {
      {"rsa-sha256",   "1.2.840.10045.4.3.2"  },
      {"P-256-sha256", "1.2.840.113549.1.1.11"},
      {"ED448",        "1.3.101.112"          }
  };
  for (const auto& [name, lie] : kCases) {
    SCOPED_TRACE(name);
    const Bytes certificate = readCertificate(name);
    const Decoded<CERT_INFO> info(X509_CERT_TO_BE_SIGNED, certificate);
    const Decoded<CERT_SIGNED_CONTENT_INFO> parts(X509_CERT, certificate);
    ASSERT_TRUE(info.record && parts.record);
    parts.record->SignatureAlgorithm.pszObjId = const_cast<char*>(lie);
    DWORD size = 0;
    ASSERT_TRUE(CryptEncodeObject(X509_ASN_ENCODING, X509_CERT, parts.record, nullptr, &size));
    Bytes renamed(size);
    ASSERT_TRUE(CryptEncodeObject(X509_ASN_ENCODING, X509_CERT, parts.record, renamed.data(), &size));
    renamed.resize(size);
    EXPECT_FALSE(Verify(renamed, &info->SubjectPublicKeyInfo));
    EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_SIGNATURE});
  }
}

// Nothing that is changed inside the signed part or the signature passes; elsewhere it is only that nothing breaks.
TEST_F(CertificateSignatures, EachByteCounts) {
  for (const char* name : {"P-256-sha256", "bound-pss", "gost2012_256-TCA"}) {
    SCOPED_TRACE(name);
    const Bytes certificate = readCertificate(name);
    const Decoded<CERT_INFO> info(X509_CERT_TO_BE_SIGNED, certificate);
    const Decoded<CERT_SIGNED_CONTENT_INFO> parts(X509_CERT, certificate);
    ASSERT_TRUE(info.record && parts.record);
    const size_t begin = PlaceOf(parts->ToBeSigned, certificate);
    const size_t end = begin + parts->ToBeSigned.cbData;
    const size_t signature = PlaceOf({parts->Signature.cbData, parts->Signature.pbData}, certificate);
    for (size_t place = 0; place < certificate.size(); ++place) {
      Bytes changed = certificate;
      changed[place] ^= 0x01;
      const BOOL verified = Verify(changed, &info->SubjectPublicKeyInfo);
      const bool counts = (place >= begin && place < end) || place >= signature;
      EXPECT_FALSE(counts && verified) << place;
    }
  }
}

}  // namespace
