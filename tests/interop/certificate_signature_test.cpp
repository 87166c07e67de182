// Signatures that the openssl program makes, of every family of keys: certificates, requests and lists verify, and no
// longer do when one byte of what is signed, or of the signature, is another.
#include "interop/openssl_tool.h"

#include <certkern/encode.h>
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/keys.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

namespace fs = std::filesystem;

namespace {

// objects NAME KEY-OPTIONS SIGNING-OPTIONS makes NAME.crt, NAME.csr and NAME.crl, all DER.
constexpr char kScript[] = R"sh(
set -eu
cat >openssl.cnf <<CONFIG
openssl_conf = init
[init]
engines = engines
[engines]
gost = gost
[gost]
engine_id = gost
dynamic_path = ${GOST_ENGINE:-$(openssl version -e | sed 's/.*"\(.*\)"
        .*
    /\1 /')/gost.so} default_algorithms = ALL[req] distinguished_name = none prompt =
    no[none][ca] default_ca = authority[authority] database = index.txt default_md =
        default default_crl_days = 30 CONFIG export OPENSSL_CONF =
            "$PWD/openssl.cnf" printf 'R\t400101000000Z\t240101000000Z\t01\tunknown\t/CN=01\n'
    > index.txt

      sign(){name = $1 key = $2 shift 2 openssl req - x509 - new - key "$key.key" - subj "/CN=$name"
                 - days 90 "$@" - out "$name.pem" openssl x509 - in "$name.pem" - outform DER
                 - out "$name.crt" openssl req - new - key "$key.key"
                 - subj
                 "/CN=$name"
                 "$@"
                 - outform DER
                 - out "$name.csr"
#a list takes its digest as - md, not as an option of that name
                 list = $(printf '%s ' "$@" | sed 's/-sha\([0-9]*\)/-md sha\1/') openssl ca - gencrl
                         - keyfile "$key.key" - cert "$name.pem" $list - out list.pem 2
                     > errors
                 || {cat errors > &2;
exit 1;
}  // namespace
openssl crl - in list.pem - outform DER - out "$name.crl"
}
key() {
  name = $1 shift openssl genpkey "$@" - out "$name.key" 2 > errors || {
    cat errors > &2;
    exit 1;
  }
}

key rsa -algorithm RSA -pkeyopt rsa_keygen_bits:2048
for hash in sha1 sha256 sha384 sha512;
do
  sign rsa-$hash rsa -$hash
done
for hash in sha1 sha256 sha512;
do
  for
    salt in 0 20 32 64;
do
    sign pss-$hash-$salt rsa -$hash -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:$salt
  done
done
#keys that make nothing but RSASSA - PSS
key free-pss -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048
sign free-pss free-pss -sha256 -sigopt rsa_pss_saltlen:32
key bound-pss -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048 -pkeyopt rsa_pss_keygen_md:sha256 \
  -pkeyopt rsa_pss_keygen_mgf1_md:sha256 -pkeyopt rsa_pss_keygen_saltlen:20
sign bound-pss bound-pss -sha256 -sigopt rsa_pss_saltlen:32
for curve in P-256 P-384 P-521;
do
  key $curve -algorithm EC -pkeyopt ec_paramgen_curve:$curve
  for hash in sha1 sha256 sha384 sha512;
do
    sign $curve-$hash $curve -$hash
  done
done
for algorithm in ED25519 ED448;
do key $algorithm - algorithm $algorithm sign $algorithm $algorithm done gost() {
  algorithm=$1
  shift
  for set in "$@";
  do
    key $algorithm - $set - algorithm $algorithm - pkeyopt paramset : $set sign $algorithm - $set $algorithm
                                                                      - $set done
  }
gost gost2001 A B C XA XB 0
gost gost2012_256 A B C XA XB TCA TCB TCC TCD 0
gost gost2012_512 A B C
)sh";
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
    fs::create_directory(directory_);
    std::ofstream(directory_ / "make.sh") << kScript;
    RunShell("cd '" + directory_.string() + "' && sh make.sh");
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
