#include "store/certificate_digest.h"

#include <certkern/errors.h>

#include "ber/fields.h"
#include "platform/sizes.h"

namespace certkern {
namespace {

// SEQUENCE { toBeSigned ANY, signatureAlgorithm AlgorithmIdentifier, signature BIT STRING }
bool ReadParts(BerReadCursor in, SignedObject& object) {
  BerReadCursor content, bits;
  BYTE tag;
  if (!BerExpect(in, kTagSequence, content) || !content.readWhole(object.toBeSigned)) return false;
  if (!ReadAlgorithmIdentifier(content, object.algorithm)) return false;
  object.signature = {};
  object.unusedBits = 0;
  if (content.empty()) return true;  // a signature that is not there reads as an empty one
  if (!content.readElement(tag, bits)) return false;
  if (bits.empty() || *bits.data() > 7) return false;
  object.unusedBits = *bits.data();
  object.signature = bits.rest().subspan(1);
  return true;
}

}  // namespace

ProviderHandle FindProviderForAlgorithm(ALG_ID algorithm, DWORD flags) {
  if (algorithm) {
    if (const HCRYPTPROV borrowed = SVAPI_I_CryptGetDefaultCryptProv(algorithm)) {
      if (!CryptContextAddRef(borrowed, nullptr, 0)) ThrowSearchFailed();
      return ProviderHandle(borrowed);
    }
    if (ProviderHandle found = SearchProviders({&algorithm, 1}, flags)) return found;
  }
  SetLastError(NTE_BAD_ALGID);
  return {};
}

ProviderHandle FindProviderForSignature(const SignatureRow& row, ALG_ID algorithm) {
  if (row.providerType) return ProviderHandle(SVAPI_I_GetDefaultProvider(row.providerType));
  return FindProviderForAlgorithm(algorithm);
}

bool HashEncoded(HCRYPTPROV provider, ALG_ID algorithm, std::span<const BYTE> encoded, BYTE* out,
                 DWORD* size) {
  if (!algorithm) algorithm = CALG_SHA1;
  ProviderHandle found;
  if (!provider) {
    found = FindProviderForAlgorithm(algorithm);
    if (!found) return false;
    provider = found.get();
  }
  HashHandle hash;
  return CryptCreateHash(provider, algorithm, 0, 0, hash.out())
      && CryptHashData(hash.get(), encoded.data(), CheckedDword(encoded.size()), 0)
      && CryptGetHashParam(hash.get(), HP_HASHVAL, out, size, 0);
}

bool ReadSignedObject(std::span<const BYTE> encoded, SignedObject& object) {
  return (encoded.data() && ReadParts(BerReadCursor(encoded), object)) || Fault(CRYPT_E_ASN1_ERROR);
}

bool HashToBeSigned(HCRYPTPROV provider, std::span<const BYTE> encoded, BYTE* out, DWORD* size) {
  SignedObject object;
  if (!ReadSignedObject(encoded, object)) return false;
  const std::optional<SignatureRow> row = FindSignatureRow(object.algorithm.oid.c_str());
  if (!row) return Fault(NTE_FAIL);
  ProviderHandle found;
  if (!provider) {
    found = FindProviderForSignature(*row, row->hash);
    if (!found) return false;
    provider = found.get();
  }
  return HashEncoded(provider, row->hash, object.toBeSigned, out, size);
}

}  // namespace certkern
