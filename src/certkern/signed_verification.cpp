// Does a signature of a signed message hold? RFC 5652, 5.4 and 5.6.
#include <certkern/chain.h>
#include <certkern/errors.h>
#include <certkern/keys.h>

#include <algorithm>
#include <cstring>

#include "certkern/ASN1Traits.h"
#include "certkern/CMSSignedMessage.h"
#include "keys/public_key.h"
#include "oid/algorithm_lookup.h"

namespace certkern {
namespace {

constexpr const char* kRsaPss = "1.2.840.113549.1.1.10";

bool IsPssKey(const CERT_PUBLIC_KEY_INFO& key) {
  return key.Algorithm.pszObjId && std::strcmp(key.Algorithm.pszObjId, kRsaPss) == 0;
}

// A key of RSASSA-PSS makes no other signatures, and with parameters none that are weaker.
SignatureScheme SchemeFor(const SignerInfo& signer, const CERT_PUBLIC_KEY_INFO& key) {
  const SignatureScheme scheme = SchemeOf(signer);
  if (IsPssKey(key) && !scheme.isPss) throw CryptException(NTE_BAD_DATA);
  if (!scheme.isPss) return scheme;
  if (!scheme.hash) throw CryptException(NTE_BAD_DATA);
  const CRYPT_OBJID_BLOB& stated = key.Algorithm.Parameters;
  if (IsPssKey(key) && stated.cbData) {
    PssParameters least;
    if (!ParsePssParams(GivenBytes(stated), least) || least.hash != scheme.hash
        || least.saltLength > scheme.saltLength) {
      throw CryptException(NTE_BAD_DATA);
    }
  }
  return scheme;
}

const CERT_PUBLIC_KEY_INFO& KeyOf(const CERT_CONTEXT* certificate) {
  if (!certificate || !certificate->pCertInfo) throw CryptException(E_INVALIDARG);
  return certificate->pCertInfo->SubjectPublicKeyInfo;
}

const CERT_PUBLIC_KEY_INFO& KeyOf(const CERT_CHAIN_CONTEXT& chain) {
  if (!chain.cChain || !chain.rgpChain) throw CryptException(E_INVALIDARG);
  const CERT_SIMPLE_CHAIN* const simple = chain.rgpChain[0];
  if (!simple || !simple->cElement || !simple->rgpElement || !simple->rgpElement[0]) {
    throw CryptException(E_INVALIDARG);
  }
  return KeyOf(simple->rgpElement[0]->pCertContext);
}

const CERT_PUBLIC_KEY_INFO& KeyOf(const CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA& para) {
  switch (para.dwSignerType) {
    case CMSG_VERIFY_SIGNER_PUBKEY:
      return *static_cast<const CERT_PUBLIC_KEY_INFO*>(para.pvSigner);
    case CMSG_VERIFY_SIGNER_CERT:
      return KeyOf(static_cast<const CERT_CONTEXT*>(para.pvSigner));
    case CMSG_VERIFY_SIGNER_CHAIN:
      return KeyOf(*static_cast<const CERT_CHAIN_CONTEXT*>(para.pvSigner));
    default:
      throw CryptException(E_INVALIDARG);
  }
}

// The third word of what the table says about a signature is the type of provider that verifies it.
DWORD ProviderTypeOf(const CRYPT_OID_INFO& row) {
  DWORD words[3] = {};
  if (row.ExtraInfo.cbData >= sizeof words) std::memcpy(words, row.ExtraInfo.pbData, sizeof words);
  return words[2];
}

ProviderHandle DefaultProvider(DWORD type, const CERT_PUBLIC_KEY_INFO& key) {
  if (type) return ProviderHandle(SVAPI_I_GetDefaultProvider(type));
  const PCCRYPT_OID_INFO row = PublicKeyInfoFor(key.Algorithm.pszObjId, AT_SIGNATURE);
  ProviderHandle provider = row ? FindProviderForAlgorithm(row->Algid) : ProviderHandle();
  if (!provider) SetLastError(NTE_BAD_ALGID);
  return provider;
}

}  // namespace

// Who brings a provider has the key imported there; the default ones keep the keys that were used lately.
SharedKey SignedMessageDecodeContext::verificationKey(const VerificationPlace& place,
                                                      const CERT_PUBLIC_KEY_INFO& key) const {
  const ALG_ID algorithm = AlgIdOfOid(key.Algorithm.pszObjId);
  SharedKey found;
  if (place.provider) {
    HeldKey made{HoldProvider(place.provider), {}};
    CERT_PUBLIC_KEY_INFO copy = key;
    if (ImportPublicKey(made.provider.get(), &copy, algorithm, 0, made.key.out()))
      found = std::make_shared<const HeldKey>(std::move(made));
  } else {
    found = HoldKey(place.type, key, algorithm, [&] { return DefaultProvider(place.type, key); });
  }
  if (!found) ThrowLastError();
  return found;
}

SignedMessageDecodeContext::VerificationPlace SignedMessageDecodeContext::verificationPlace(
    HCRYPTPROV given, const CERT_PUBLIC_KEY_INFO& key, const SignerInfo& signer) const {
  if (given) return {given, 0};
  if (provider_) return {provider_.get(), 0};
  const PCCRYPT_OID_INFO signature =
      SignatureInfo(key.Algorithm.pszObjId, oid2str(signer.digestAlgorithm.algorithm).c_str());
  if (!signature) throw CryptException(NTE_BAD_ALGID);
  return {0, ProviderTypeOf(*signature)};
}

bool SignedMessageDecodeContext::verifySigner(const SignerInfo& signer, const CERT_PUBLIC_KEY_INFO& key,
                                              const VerificationPlace& place) {
  const auto bad = [] {
    SetLastError(NTE_BAD_SIGNATURE);
    return false;
  };
  if (!core_.data().digestAlgorithms.count) return bad();
  const SignatureScheme scheme = SchemeFor(signer, key);
  const auto [contentProvider, contentHash] = hashFor(signer, scheme.hash);
  const HashHandle digest =
      core_.digest(signer, contentHash, contentProvider, SignedDataCore::DigestUse::Verify);
  if (!digest) return bad();
  const std::vector<BYTE> value = HashValue(digest.get());
  std::vector<BYTE> signature(signer.signature.bytes().begin(), signer.signature.bytes().end());
  std::ranges::reverse(signature);

  const SharedKey held = verificationKey(place, key);
  const HashHandle hash = CreateHash(held->provider.get(), scheme.hash);
  if (!CryptSetHashParam(hash.get(), HP_HASHVAL, value.data(), 0)) ThrowLastError();
  if (scheme.isPss) SetPssSalt(hash.get(), scheme);
  if (CryptVerifySignatureA(hash.get(), signature.data(), static_cast<DWORD>(signature.size()),
                            held->key.get(), nullptr, scheme.flags())) {
    return true;
  }
  if (GetLastError() != NTE_BAD_SIGNATURE) ThrowLastError();
  return false;
}

void SignedMessageDecodeContext::requireVerified(const SignerInfo& signer, const CERT_PUBLIC_KEY_INFO& key,
                                                 HCRYPTPROV given) {
  if (!verifySigner(signer, key, verificationPlace(given, key, signer)))
    throw CryptException(NTE_BAD_SIGNATURE);
}

void SignedMessageDecodeContext::verifyByCertificate(const CERT_INFO& info) {
  if (!core_.data().digestAlgorithms.count) throw CryptException(NTE_BAD_SIGNATURE);
  const auto& signers = core_.data().signerInfos;
  const auto found = std::ranges::find_if(signers, [&](const SignerInfo& s) { return IsSignedBy(s, info); });
  if (found == signers.end()) throw CryptException(CRYPT_E_SIGNER_NOT_FOUND);
  requireVerified(*found, info.SubjectPublicKeyInfo, 0);
}

void SignedMessageDecodeContext::verifyByIndex(const CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA& para) {
  if (para.cbSize < sizeof para || !para.pvSigner || !para.dwSignerType) throw CryptException(E_INVALIDARG);
  const CERT_PUBLIC_KEY_INFO& key = KeyOf(para);
  const SignerInfo* const signer = core_.findSigner(para.dwSignerIndex);
  if (!signer) throw CryptException(CRYPT_E_SIGNER_NOT_FOUND);
  requireVerified(*signer, key, para.hCryptProv);
}

}  // namespace certkern
