#include "keys/certificate_signature.h"

#include <certkern/errors.h>
#include <certkern/keys.h>
#include <certkern/oids.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <vector>

#include "ber/fields.h"
#include "ber/object_codec.h"
#include "keys/held_keys.h"
#include "keys/pss_parameters.h"
#include "keys/public_key.h"
#include "keys/signing_display.h"
#include "oid/algorithm_finders.h"
#include "oid/algorithm_lookup.h"
#include "platform/sizes.h"
#include "store/certificate_digest.h"
#include "store/certificate_primitives.h"

namespace certkern {
namespace {

bool IsPss(LPCSTR oid) { return std::strcmp(oid, szOID_RSA_SSA_PSS) == 0; }

// How a signature is made: its row, and for RSASSA-PSS what its own parameters say.
struct Scheme {
  ALG_ID hash;
  std::optional<PssParameters> pss;
  bool reversed;
  DWORD flags() const { return pss ? CRYPT_PSS : 0; }
};

bool ChooseScheme(const SignatureRow& row, LPCSTR oid, std::span<const BYTE> parameters, Scheme& scheme) {
  scheme = {row.hash, std::nullopt, row.isReversed()};
  if (!IsPss(oid)) return true;
  PssParameters pss;
  if (!ParsePssParams(parameters, pss)) return false;
  scheme.hash = pss.hash;
  scheme.pss = pss;
  return true;
}

// A hash that has taken the bytes and only waits for its key.
bool HashForScheme(HCRYPTPROV provider, const Scheme& scheme, std::span<const BYTE> bytes, HashHandle& hash) {
  if (!CryptCreateHash(provider, scheme.hash, 0, 0, hash.out())) return false;
  if (scheme.pss) {
    const DWORD parameters[] = {scheme.pss->saltLength, scheme.pss->hash};
    if (!CryptSetHashParam(hash.get(), HP_PSS_SALT, reinterpret_cast<const BYTE*>(parameters), 0))
      return false;
  }
  return CryptHashData(hash.get(), bytes.data(), CheckedDword(bytes.size()), 0);
}

// A key that is restricted to RSASSA-PSS signs nothing else, with no other hash, and with no shorter salt than it says.
// RFC 4055, 3.3.
bool KeyAllows(const CRYPT_ALGORITHM_IDENTIFIER& key, const Scheme& scheme) {
  if (!IsPss(key.pszObjId)) return true;
  if (!scheme.pss) return Fault(NTE_BAD_DATA);
  std::span<const BYTE> parameters;
  if (!BlobBytes(key.Parameters, parameters)) return Fault(ERROR_INVALID_PARAMETER);
  if (parameters.empty()) return true;
  PssParameters wanted;
  if (!ParsePssParams(parameters, wanted)) return false;
  const bool allows = wanted.hash == scheme.pss->hash && wanted.saltLength <= scheme.pss->saltLength;
  return allows || Fault(NTE_BAD_DATA);
}

bool VerifyWith(HCRYPTPROV provider, HCRYPTKEY key, const SignedObject& object, const Scheme& scheme) {
  HashHandle hash;
  if (!HashForScheme(provider, scheme, object.toBeSigned, hash)) return false;
  std::vector<BYTE> signature(object.signature.begin(), object.signature.end());
  if (scheme.reversed) std::reverse(signature.begin(), signature.end());
  return CryptVerifySignatureA(hash.get(), signature.data(), CheckedDword(signature.size()), key, nullptr,
                               scheme.flags());
}

// The encoded bytes of a subject; none for a kind or a context that there is not.
std::optional<std::span<const BYTE>> SubjectBytes(DWORD type, const void* subject) {
  if (type == CRYPT_VERIFY_CERT_SIGN_SUBJECT_BLOB) {
    const auto* blob = static_cast<const CRYPT_DATA_BLOB*>(subject);
    return std::span<const BYTE>(blob->pbData, blob->cbData);
  }
  if (type == CRYPT_VERIFY_CERT_SIGN_SUBJECT_CRL) {
    const CRL_CONTEXT* const crl = ReadableCrl(subject);
    return crl ? std::optional(EncodedBytes(*crl)) : std::nullopt;
  }
  const CERT_CONTEXT* const certificate = ReadableCertificate(subject);
  return certificate ? std::optional(EncodedBytes(*certificate)) : std::nullopt;
}

// Null with a code.
PCERT_PUBLIC_KEY_INFO IssuerKey(DWORD type, void* issuer) {
  if (type == CRYPT_VERIFY_CERT_SIGN_ISSUER_PUBKEY) return static_cast<PCERT_PUBLIC_KEY_INFO>(issuer);
  const bool isCertificate = type == CRYPT_VERIFY_CERT_SIGN_ISSUER_CERT;
  const CERT_CONTEXT* const certificate = isCertificate ? ReadableCertificate(issuer) : nullptr;
  if (certificate) return &certificate->pCertInfo->SubjectPublicKeyInfo;
  SetLastError(isCertificate ? ERROR_INVALID_PARAMETER : E_INVALIDARG);
  return nullptr;
}

// Is the signature's algorithm one of the key's? A name that lies must not pass, however good the numbers are.
bool IsMadeBy(const SignatureRow& row, LPCSTR signatureOid, LPCSTR keyOid) {
  if (!row.key) return true;
  CFindPubKeyAlgId finder(keyOid, ALG_CLASS_SIGNATURE);
  if (!finder.find() || finder.algorithm() != row.key) return false;
  // keys whose OID is a signature's as well sign under that one alone (RFC 8410, RFC 4055)
  return !FindSignatureRow(keyOid) || std::strcmp(keyOid, signatureOid) == 0;
}

}  // namespace

bool SignBytes(HCRYPTPROV provider, DWORD keySpec, std::span<const BYTE> toBeSigned,
               const CRYPT_ALGORITHM_IDENTIFIER* algorithm, BYTE* out, DWORD* size) {
  std::span<const BYTE> parameters;
  if (!algorithm || !algorithm->pszObjId || !BlobBytes(algorithm->Parameters, parameters) || !size
      || (!toBeSigned.data() && !toBeSigned.empty())) {
    return Fault(ERROR_INVALID_PARAMETER);
  }
  SigningDisplay display;
  if (out && !display.registerBytes(provider, toBeSigned.data())) return false;
  const std::optional<SignatureRow> row = FindSignatureRow(algorithm->pszObjId);
  if (!row) {
    const PCCRYPT_OID_INFO bareHash = FindByOid(algorithm->pszObjId, CRYPT_HASH_ALG_OID_GROUP_ID);
    return bareHash ? HashEncoded(provider, bareHash->Algid, toBeSigned, out, size) : Fault(NTE_FAIL);
  }
  Scheme scheme;
  HashHandle hash;
  if (!ChooseScheme(*row, algorithm->pszObjId, parameters, scheme)) return false;
  if (!HashForScheme(provider, scheme, toBeSigned, hash)) return false;
  if (!CryptSignHashA(hash.get(), keySpec, nullptr, scheme.flags(), out, size)) return false;
  if (out && scheme.reversed) std::reverse(out, out + *size);
  return true;
}

bool SignAndEncode(HCRYPTPROV provider, DWORD keySpec, DWORD encodingType, LPCSTR structType,
                   const void* record, const CRYPT_ALGORITHM_IDENTIFIER* algorithm, BYTE* encoded,
                   DWORD* size) {
  if (!structType || !algorithm || !size) return Fault(ERROR_INVALID_PARAMETER);
  LocalBytes toBeSigned;
  DWORD toBeSignedSize = 0;
  if (!EncodeObjectEx(encodingType, structType, record, CRYPT_ENCODE_ALLOC_FLAG, nullptr, toBeSigned.out(),
                      &toBeSignedSize))
    return false;
  const std::span<const BYTE> bytes(toBeSigned.get(), toBeSignedSize);
  DWORD signatureSize = 0;
  if (!SignBytes(provider, keySpec, bytes, algorithm, nullptr, &signatureSize)) return false;
  std::vector<BYTE> signature(signatureSize);
  CERT_SIGNED_CONTENT_INFO content{
      {toBeSignedSize,    toBeSigned.get()},
      *algorithm, { signatureSize, signature.data(),                0}
  };
  DWORD most = 0;
  if (!EncodeObject(encodingType, X509_CERT, &content, nullptr, &most)) return false;
  if (!encoded || *size < most) {
    *size = most;
    return !encoded || Fault(ERROR_MORE_DATA);
  }
  if (!SignBytes(provider, keySpec, bytes, algorithm, signature.data(), &signatureSize)) return false;
  content.Signature.cbData = signatureSize;  // of ECDSA some are shorter than the size that was told
  return EncodeObject(encodingType, X509_CERT, &content, encoded, size);
}

bool VerifySignedObject(HCRYPTPROV provider, std::span<const BYTE> encoded, PCERT_PUBLIC_KEY_INFO key) {
  SignedObject object;
  if (!ReadSignedObject(encoded, object)) return false;
  if (!key || !key->Algorithm.pszObjId) return Fault(ERROR_INVALID_PARAMETER);
  if (object.signature.empty()) return Fault(NTE_BAD_DATA);
  if (object.unusedBits) return Fault(NTE_BAD_SIGNATURE);  // signatures are whole octets
  const LPCSTR oid = object.algorithm.oid.c_str();
  const std::optional<SignatureRow> row = FindSignatureRow(oid);
  if (!row) return false;  // with what the look-up left
  Scheme scheme;
  if (!ChooseScheme(*row, oid, object.algorithm.parameters, scheme) || !KeyAllows(key->Algorithm, scheme))
    return false;
  if (!IsMadeBy(*row, oid, key->Algorithm.pszObjId)) return Fault(NTE_BAD_SIGNATURE);
  const ALG_ID keyAlgorithm = AlgIdOfOid(key->Algorithm.pszObjId);
  if (provider) {
    KeyHandle imported;
    return ImportPublicKey(provider, key, keyAlgorithm, 0, imported.out())
        && VerifyWith(provider, imported.get(), object, scheme);
  }
  const SharedKey held = KeyForSignature(*row, *key, keyAlgorithm);
  return held && VerifyWith(held->provider.get(), held->key.get(), object, scheme);
}

bool VerifySubject(HCRYPTPROV provider, DWORD subjectType, const void* subject, DWORD issuerType,
                   void* issuer) {
  if (!subject || !issuer) return Fault(E_INVALIDARG);
  if (subjectType < CRYPT_VERIFY_CERT_SIGN_SUBJECT_BLOB || subjectType > CRYPT_VERIFY_CERT_SIGN_SUBJECT_CRL)
    return Fault(E_INVALIDARG);
  const PCERT_PUBLIC_KEY_INFO key = IssuerKey(issuerType, issuer);
  if (!key) return false;
  const std::optional<std::span<const BYTE>> bytes = SubjectBytes(subjectType, subject);
  return bytes ? VerifySignedObject(provider, *bytes, key) : Fault(ERROR_INVALID_PARAMETER);
}

}  // namespace certkern
