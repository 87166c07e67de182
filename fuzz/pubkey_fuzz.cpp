// Any bytes as a public key and as an object that it may have signed: a key that is taken has a length, is equal to itself
// and leaves the provider again; a signature that holds does not hold for another object.
#include <certkern/encode.h>
#include <certkern/keykern.h>
#include <certkern/keys.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

namespace {

using Bytes = std::vector<BYTE>;

void Require(bool condition) {
  if (!condition) std::abort();
}

constexpr DWORD kProviders[] = {PROV_GOST_2012_256, PROV_RSA_AES, PROV_EC_ECDSA_FULL, PROV_EDDSA};

struct FreeLocal {
  void operator()(void* memory) const { LocalFree(memory); }
};
using InfoPtr = std::unique_ptr<CERT_PUBLIC_KEY_INFO, FreeLocal>;

InfoPtr Decode(std::span<const BYTE> encoded) {
  void* info = nullptr;
  DWORD size = 0;
  const Bytes exact(encoded.begin(), encoded.end());
  CryptDecodeObjectEx(X509_ASN_ENCODING, X509_PUBLIC_KEY_INFO, exact.data(), static_cast<DWORD>(exact.size()),
                      CRYPT_DECODE_ALLOC_FLAG, nullptr, &info, &size);
  return InfoPtr(static_cast<CERT_PUBLIC_KEY_INFO*>(info));
}

bool ImportInto(DWORD type, CERT_PUBLIC_KEY_INFO* info) {
  HCRYPTPROV provider = 0;
  HCRYPTKEY key = 0;
  Require(CryptAcquireContextA(&provider, nullptr, nullptr, type, CRYPT_VERIFYCONTEXT));
  const bool imported = CryptImportPublicKeyInfo(provider, X509_ASN_ENCODING, info, &key);
  if (imported) {
    DWORD size = 0;
    Require(CryptExportKey(key, 0, PUBLICKEYBLOB, 0, nullptr, &size));
    Bytes blob(size);
    Require(CryptExportKey(key, 0, PUBLICKEYBLOB, 0, blob.data(), &size) && size == blob.size());
    HCRYPTKEY again = 0;
    Require(CryptImportKey(provider, blob.data(), size, 0, 0, &again));
    Require(CryptDestroyKey(again) && CryptDestroyKey(key));
  }
  CryptReleaseContext(provider, 0);
  return imported;
}

bool Verifies(const Bytes& object, CERT_PUBLIC_KEY_INFO* info) {
  return CryptVerifyCertificateSignature(0, X509_ASN_ENCODING, object.data(),
                                         static_cast<DWORD>(object.size()), info);
}

// Behind the outer header and the one of what is signed; both have lengths of two octets in what the corpus holds.
constexpr size_t kInsideSigned = 12;

}  // namespace

// Two bytes tell the length of the SubjectPublicKeyInfo, which follows; the rest is the signed object.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const size_t keySize = std::min<size_t>(data[0] << 8 | data[1], size - 2);
  const InfoPtr info = Decode({data + 2, keySize});
  if (!info) return 0;
  Require(CertComparePublicKeyInfo(X509_ASN_ENCODING, info.get(), info.get()));
  const DWORD bits = CertGetPublicKeyLength(X509_ASN_ENCODING, info.get());
  bool imported = false;
  for (const DWORD type : kProviders) imported |= ImportInto(type, info.get());
  Require(!bits || imported);
  Bytes object(data + 2 + keySize, data + size);
  if (object.size() <= kInsideSigned || !Verifies(object, info.get())) return 0;
  object[kInsideSigned] ^= 1;
  Require(!Verifies(object, info.get()));
  return 0;
}
