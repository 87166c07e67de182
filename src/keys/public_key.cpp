#include "keys/public_key.h"

#include <certkern/errors.h>

#include "ber/object_codec.h"
#include "ber/read_cursor.h"
#include "oid/algorithm_lookup.h"
#include "platform/extension_library.h"
#include "store/certificate_digest.h"

namespace certkern {
namespace {

// A converter, and what its blobs want of CryptImportKey: those that are not in the published form say so.
struct Converter {
  extension::Operation<XnConvertKey>* convert;
  DWORD importFlags;
};
constexpr Converter kPlain = {&extension::XnConvertPublicKeyInfo, CRYPT_PUBLIC_IMPORT};
constexpr Converter kEcdsa = {&extension::XnEcdsaConvertPublicKeyInfo, CRYPT_PUBLIC_IMPORT};
constexpr Converter kEdDsa = {&extension::XnEdDSAConvertPublicKeyInfo, CRYPT_PUBLIC_IMPORT};
constexpr Converter kRsa = {&extension::XnRsaConvertPublicKeyInfo, 0};

struct ConverterRow {
  DWORD number;
  const Converter& converter;
};
constexpr ConverterRow kByAlgorithm[] = {
    {CALG_ECDSA,    kEcdsa},
    {CALG_ECDH,     kEcdsa},
    {CALG_EDDSA,    kEdDsa},
    {CALG_RSA_SIGN, kRsa  },
    {CALG_RSA_KEYX, kRsa  },
};
constexpr ConverterRow kByProviderType[] = {
    {PROV_RSA_FULL,      kRsa  },
    {PROV_RSA_AES,       kRsa  },
    {PROV_EC_ECDSA_FULL, kEcdsa},
    {PROV_EDDSA,         kEdDsa},
};

template <size_t kRows>
const Converter& Choose(const ConverterRow (&rows)[kRows], DWORD number) {
  for (const ConverterRow& row : rows) {
    if (row.number == number) return row.converter;
  }
  return kPlain;
}

// Null when the provider does not tell its type.
const Converter* ChooseConverter(HCRYPTPROV provider, ALG_ID algorithm) {
  if (algorithm) return &Choose(kByAlgorithm, algorithm);
  DWORD type = 0;
  DWORD size = sizeof(type);
  if (!CryptGetProvParam(provider, PP_PROVTYPE, reinterpret_cast<BYTE*>(&type), &size, 0)) return nullptr;
  return &Choose(kByProviderType, type);
}

}  // namespace

bool ImportPublicKey(HCRYPTPROV provider, PCERT_PUBLIC_KEY_INFO info, ALG_ID algorithm, DWORD flags,
                     HCRYPTKEY* key) {
  const Converter* converter = ChooseConverter(provider, algorithm);
  if (!converter) return false;
  LocalBytes blob;
  DWORD size = 0;
  return (*converter->convert)(0, info, 0, 0, blob.out(), &size)
      && CryptImportKey(provider, blob.get(), size, 0, flags | converter->importFlags, key);
}

bool ExportPublicKey(HCRYPTPROV provider, DWORD keySpec, DWORD encodingType, LPSTR oid, DWORD flags,
                     void* aux, PCERT_PUBLIC_KEY_INFO info, DWORD* size) {
  return extension::XnDllExportPublicKeyInfoEx(provider, keySpec, encodingType, oid, flags, aux, info, size);
}

DWORD PublicKeyBits(PCERT_PUBLIC_KEY_INFO info) {
  const ALG_ID algorithm = AlgIdOfOid(info->Algorithm.pszObjId);
  const ProviderHandle provider = FindProviderForAlgorithm(algorithm);
  if (!provider) return 0;
  KeyHandle key;
  if (!ImportPublicKey(provider.get(), info, algorithm, 0, key.out())) return 0;
  DWORD bits = 0;
  DWORD size = 0;
  if (!CryptGetKeyParam(key.get(), KP_KEYLEN, nullptr, &size, 0)) return 0;
  if (size != sizeof(bits)) {
    SetLastError(NTE_FAIL);
    return 0;
  }
  if (!CryptGetKeyParam(key.get(), KP_KEYLEN, reinterpret_cast<BYTE*>(&bits), &size, 0)) return 0;
  return bits;
}

bool HashPublicKey(ALG_ID algorithm, DWORD encodingType, const CERT_PUBLIC_KEY_INFO& info, BYTE* out,
                   DWORD* size) {
  if (!algorithm) algorithm = CALG_MD5;
  const HCRYPTPROV borrowed = SVAPI_I_CryptGetDefaultCryptProv(algorithm);
  if (!borrowed) return false;
  LocalBytes encoded;
  DWORD encodedSize = 0;
  return EncodeObjectEx(encodingType, X509_PUBLIC_KEY_INFO, &info, CRYPT_ENCODE_ALLOC_FLAG, nullptr,
                        encoded.out(), &encodedSize)
      && HashEncoded(borrowed, algorithm, {encoded.get(), encodedSize}, out, size);
}

}  // namespace certkern
