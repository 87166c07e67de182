#include "certkern/signed_data.h"

#include <certkern/errors.h>
#include <certkern/oid.h>
#include <certkern/oids.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "asn1data/cms_algorithms.h"
#include "asn1data/oids_pkcs.h"
#include "asn1rt/message_buffer.h"
#include "certkern/ASN1Traits.h"
#include "certkern/message_settings.h"
#include "oid/algorithm_lookup.h"
#include "platform/sizes.h"

namespace certkern {
namespace {

using namespace asn1data;

constexpr const char* kRsaPss = "1.2.840.113549.1.1.10";
// All of RSASSA-PSS by default, which is over SHA-1: an empty SEQUENCE.
constexpr BYTE kDefaultPssParameters[] = {0x30, 0x00};
constexpr BYTE kSetTag = 0x31;

// What the caller's record holds, and zeros where it ends early.
CMSG_SIGNER_ENCODE_INFO FullRecord(const CMSG_SIGNER_ENCODE_INFO& info) {
  if (info.cbSize < kShortestSignerRecord) throw CryptException(ERROR_INVALID_PARAMETER);
  CMSG_SIGNER_ENCODE_INFO full{};
  std::memcpy(static_cast<void*>(&full), &info, std::min<size_t>(info.cbSize, sizeof full));
  return full;
}

void SetSignerId(ASN1Context& context, const CERT_ID& id, SignerInfo& signer) {
  if (!CertIdTraits::set(context, id, signer.sid)) throw CryptException(E_INVALIDARG);
}

bool IsPss(const CRYPT_ALGORITHM_IDENTIFIER& algorithm) {
  return algorithm.pszObjId && std::strcmp(algorithm.pszObjId, kRsaPss) == 0;
}
bool IsBarePss(const CRYPT_ALGORITHM_IDENTIFIER& algorithm) {
  return IsPss(algorithm) && !algorithm.Parameters.cbData;
}

DWORD SizeOfHash(ALG_ID algorithm, HCRYPTPROV provider) {
  const ProviderHandle usual = FindProviderForAlgorithm(algorithm);
  const HashHandle hash = CreateHash(usual ? usual.get() : provider, algorithm);
  DWORD value = 0;
  DWORD size = sizeof value;
  if (!CryptGetHashParam(hash.get(), HP_HASHSIZE, reinterpret_cast<BYTE*>(&value), &size, 0))
    ThrowLastError();
  return value;
}

// What a key that may be used with any hash signs this one with: a mask by the same hash, a salt of its size. RFC 4055, 3.1.
std::vector<BYTE> PssParametersFor(const CRYPT_ALGORITHM_IDENTIFIER& hash, HCRYPTPROV provider) {
  const ALG_ID algorithm = AlgIdOfOid(hash.pszObjId);
  if (!algorithm) throw CAException("Failed to get hash AlgID.");
  if (algorithm == CALG_SHA1) return {std::begin(kDefaultPssParameters), std::end(kDefaultPssParameters)};
  const ASN1ContextPtr context = ASN1ContextPtr::Create();
  if (!context) throw CryptException(ERROR_NOT_ENOUGH_MEMORY);
  ASN1T_RSASSA_PSS_params parameters{};
  AlgorithmTraits::set(*context, {hash.pszObjId, {}}, parameters.hashAlgorithm);
  std::vector<BYTE> inner = EncodeAsGiven(kInfo_AlgorithmIdentifier, &parameters.hashAlgorithm);
  const CRYPT_DATA_BLOB innerBlob = {CheckedDword(inner.size()), inner.data()};
  char mask[] = szOID_RSA_MGF1;
  AlgorithmTraits::set(*context, {mask, innerBlob}, parameters.maskGenAlgorithm);
  parameters.saltLength = static_cast<int32_t>(SizeOfHash(algorithm, provider));
  parameters.trailerField = 1;
  parameters.m.hashAlgorithmPresent = 1;
  parameters.m.maskGenAlgorithmPresent = 1;
  return EncodeAsGiven(kInfo_RSASSA_PSS_params, &parameters);
}

// The identifier is the key's: that of the signature it makes is not asked for. Only RSASSA-PSS has parameters with a
// signature, those of other keys are about the key.
void SetSignatureAlgorithm(ASN1Context& context, const CRYPT_ALGORITHM_IDENTIFIER& key,
                           std::span<const BYTE> pssParameters, SignerInfo& signer) {
  CRYPT_ALGORITHM_IDENTIFIER algorithm = {key.pszObjId, {}};
  if (IsPss(key)) algorithm.Parameters = key.Parameters;
  if (IsBarePss(key))
    algorithm.Parameters = {CheckedDword(pssParameters.size()), const_cast<BYTE*>(pssParameters.data())};
  AlgorithmTraits::set(context, algorithm, signer.signatureAlgorithm);
}

template <class List>
void SetAttributes(ASN1Context& context, DWORD count, const CRYPT_ATTRIBUTE* attributes, List& list) {
  AttributesTraits::set(context, {count, const_cast<CRYPT_ATTRIBUTE*>(attributes)}, list);
}

const ASN1T_Attribute* FindAttribute(const ASN1ListOf<ASN1T_Attribute>& list, const ASN1OBJID& type) {
  const auto found =
      std::ranges::find_if(list, [&](const auto& attribute) { return attribute.type == type; });
  return found == list.end() ? nullptr : &*found;
}

// One value, which stays in the context's heap.
void ReplaceAttribute(ASN1Context& context, ASN1ListOf<ASN1T_Attribute>& list, const ASN1OBJID& type,
                      std::span<const BYTE> value) {
  for (const ASN1ListNode* node = list.head; node; node = node->next) {
    if (static_cast<const ASN1T_Attribute*>(node->data)->type == type) Unlink(list, *node);
  }
  auto* const attribute = AppendElement(context, list);
  CheckedMemory(attribute);
  attribute->type = AsField(type);
  const ASN1OpenValue open = {CopyOctets(context, value), nullptr, nullptr};
  CheckedMemory(AppendElement(context, attribute->values, open));
}

bool SameBytes(std::span<const BYTE> a, std::span<const BYTE> b) { return std::ranges::equal(a, b); }

// Present and empty is the same as absent.
std::span<const BYTE> ParametersOf(const ASN1T_AlgorithmIdentifier& algorithm) {
  return algorithm.m.parametersPresent ? algorithm.parameters.encoded.bytes() : std::span<const BYTE>();
}

}  // namespace

bool IsPss(const ASN1ObjectId& algorithm) { return algorithm == ASN1V_id_RSASSA_PSS; }

SignatureScheme SchemeOf(const SignerInfo& signer) {
  SignatureScheme scheme;
  scheme.isPss = IsPss(signer.signatureAlgorithm.algorithm);
  if (!scheme.isPss) {
    scheme.hash = AlgIdOfOid(oid2str(signer.digestAlgorithm.algorithm).c_str());
    return scheme;
  }
  PssParameters parameters;
  if (ParsePssParams(ParametersOf(signer.signatureAlgorithm), parameters)) {
    scheme.hash = parameters.hash;
    scheme.saltLength = parameters.saltLength;
  }
  return scheme;
}

void SetPssSalt(HCRYPTHASH hash, const SignatureScheme& scheme) {
  const DWORD salt[] = {scheme.saltLength, scheme.hash};
  if (!CryptSetHashParam(hash, HP_PSS_SALT, reinterpret_cast<const BYTE*>(salt), 0)) ThrowLastError();
}

ASN1ListNode* NodeAt(const ASN1List& list, uint32_t index, ListPlace& place) {
  const bool same =
      place.list.count == list.count && place.list.head == list.head && place.list.tail == list.tail;
  if (!same || index < place.index) place = {list, list.head, 0};
  if (index >= list.count) return nullptr;
  for (; place.index < index; ++place.index) place.node = place.node->next;
  return place.node;
}

void Unlink(ASN1List& list, const ASN1ListNode& node) {
  (node.prev ? node.prev->next : list.head) = node.next;
  (node.next ? node.next->prev : list.tail) = node.prev;
  --list.count;
}

SignedDataCore::SignedDataCore() : context_(ASN1ContextPtr::Create()) {
  if (!context_) throw CAException("out of memory");
  data_.encapContentInfo.eContentType = AsField(ASN1V_id_data);
}

SignerInfo* SignedDataCore::findSigner(DWORD index) const {
  const ASN1ListNode* const node = NodeAt(data_.signerInfos, index, signerPlace_);
  return node ? static_cast<SignerInfo*>(node->data) : nullptr;
}

SignerInfo& SignedDataCore::signerAt(DWORD index) const {
  SignerInfo* const signer = findSigner(index);
  if (!signer) throw CAException("No signer with such index.");
  return *signer;
}

// --- signers that sign here ---

SignedDataCore::OwnSigner SignedDataCore::prepareOwnSigner(const CMSG_SIGNER_ENCODE_INFO& info,
                                                           const SignerInfo& signer) const {
  OwnSigner own;
  own.provider = HoldProvider(info.hCryptProv);
  own.keySpec = info.dwKeySpec;
  const ALG_ID hash = SchemeOf(signer).hash;
  if (!hash) throw CAException("Failed to get hash AlgID.");
  if (!HashesWithSigner()) own.hashProvider = HoldProvider(SVAPI_I_CryptGetDefaultCryptProv(hash));
  own.contentHash = CreateHash(own.hashingProvider(), hash);
  return own;
}

SignerInfo& SignedDataCore::addSigner(const CMSG_SIGNER_ENCODE_INFO& given) {
  const CMSG_SIGNER_ENCODE_INFO info = FullRecord(given);
  dropEncoded();
  if (!info.pCertInfo) throw CAException("Invalid argument: pSignerEncodeInfo");
  auto* const signer = AllocateValue<SignerInfo>(*context_);
  signer->version = 1;
  if (info.SignerId.dwIdChoice) {
    SetSignerId(*context_, info.SignerId, *signer);
  } else {
    CERT_ID id{};
    id.dwIdChoice = CERT_ID_ISSUER_SERIAL_NUMBER;
    id.IssuerSerialNumber = {info.pCertInfo->Issuer, info.pCertInfo->SerialNumber};
    SetSignerId(*context_, id, *signer);
  }
  AlgorithmTraits::set(*context_, info.HashAlgorithm, signer->digestAlgorithm);
  if (info.cAuthAttr) {
    SetAttributes(*context_, info.cAuthAttr, info.rgAuthAttr, signer->signedAttrs);
    signer->m.signedAttrsPresent = 1;
  }
  if (info.cUnauthAttr) {
    SetAttributes(*context_, info.cUnauthAttr, info.rgUnauthAttr, signer->unsignedAttrs);
    signer->m.unsignedAttrsPresent = 1;
  }
  const CRYPT_ALGORITHM_IDENTIFIER& key = info.pCertInfo->SubjectPublicKeyInfo.Algorithm;
  std::vector<BYTE> pssParameters;
  if (IsBarePss(key)) pssParameters = PssParametersFor(info.HashAlgorithm, info.hCryptProv);
  SetSignatureAlgorithm(*context_, key, pssParameters, *signer);
  // a key that is bound to one hash would sign what the message says was hashed with another: nobody could verify that
  const ALG_ID bound = IsPss(key) ? SchemeOf(*signer).hash : 0;
  if (bound && bound != AlgIdOfOid(info.HashAlgorithm.pszObjId)) throw CryptException(NTE_BAD_ALGID);
  OwnSigner own = prepareOwnSigner(info, *signer);
  addDigestAlgorithm(signer->digestAlgorithm);
  own_.emplace(signer, std::move(own));
  if (ASN1CSeqOfList::AppendToList(*context_, data_.signerInfos, signer) != ASN1_OK) {
    own_.erase(signer);
    throw CAException("out of memory");
  }
  return *signer;
}

void SignedDataCore::addFinishedSigner(const CMSG_CMS_SIGNER_INFO& info) {
  dropEncoded();
  SignerInfo signer{};
  signer.version = static_cast<int32_t>(info.dwVersion);
  SetSignerId(*context_, info.SignerId, signer);
  AlgorithmTraits::set(*context_, info.HashAlgorithm, signer.digestAlgorithm);
  // whoever made the signature and named no parameters made it with the defaults
  SetSignatureAlgorithm(*context_, info.HashEncryptionAlgorithm, kDefaultPssParameters, signer);
  OctetsTraits::set(*context_, info.EncryptedHash, signer.signature);
  AttributesTraits::set(*context_, info.AuthAttrs, signer.signedAttrs);
  signer.m.signedAttrsPresent = info.AuthAttrs.cAttr != 0;
  AttributesTraits::set(*context_, info.UnauthAttrs, signer.unsignedAttrs);
  signer.m.unsignedAttrsPresent = info.UnauthAttrs.cAttr != 0;
  CheckedMemory(AppendElement(*context_, data_.signerInfos, signer));
}

void SignedDataCore::addDigestAlgorithm(const ASN1T_AlgorithmIdentifier& algorithm) {
  const bool listed = std::ranges::any_of(data_.digestAlgorithms, [&](const auto& present) {
    return present.algorithm == algorithm.algorithm
        && SameBytes(ParametersOf(present), ParametersOf(algorithm));
  });
  if (!listed) CheckedMemory(AppendElement(*context_, data_.digestAlgorithms, algorithm));
}

void SignedDataCore::removeSigner(DWORD index) {
  dropEncoded();
  SignerInfo& signer = signerAt(index);
  own_.erase(&signer);
  rawAttributes_.erase(&signer);
  Unlink(data_.signerInfos, *NodeAt(data_.signerInfos, index));
  if (!data_.signerInfos.count) data_.digestAlgorithms = {};
}

void SignedDataCore::removeAddedSigner(SignerInfo& signer, uint32_t digestAlgorithmsBefore) {
  dropEncoded();
  own_.erase(&signer);
  const ASN1ListNode* node = data_.signerInfos.tail;
  while (node && node->data != &signer) node = node->prev;
  if (node) Unlink(data_.signerInfos, *node);
  while (data_.digestAlgorithms.count > digestAlgorithmsBefore) {
    Unlink(data_.digestAlgorithms, *data_.digestAlgorithms.tail);
  }
}

void SignedDataCore::hashContent(std::span<const BYTE> content) {
  for (auto& [signer, own] : own_) {
    own.isSigned = false;
    HashBytes(own.contentHash.get(), content);
  }
}

void SignedDataCore::setContentType(const ASN1ObjectId& type) {
  dropEncoded();
  data_.encapContentInfo.eContentType = type;
  for (auto& [signer, own] : own_) own.isSigned = false;
}

SignedDataCore::OwnSigner& SignedDataCore::ownOf(const SignerInfo& signer) {
  const auto own = own_.find(&signer);
  if (own == own_.end()) throw CAException("Cannot create hash");
  return own->second;
}

void SignedDataCore::setContentHash(const SignerInfo& signer, std::span<const BYTE> value) {
  OwnSigner& own = ownOf(signer);
  own.contentHash = CreateHash(own.hashingProvider(), SchemeOf(signer).hash);
  own.isSigned = false;
  if (!CryptSetHashParam(own.contentHash.get(), HP_HASHVAL, value.data(), 0)) ThrowLastError();
}

std::pair<HCRYPTPROV, HCRYPTHASH> SignedDataCore::hashOf(const SignerInfo& signer) const {
  const auto own = own_.find(&signer);
  if (own == own_.end()) return {};
  return {own->second.provider.get(), own->second.contentHash.get()};
}

void SignedDataCore::signAll() {
  for (SignerInfo& signer : data_.signerInfos) {
    const auto own = own_.find(&signer);
    if (own == own_.end() || own->second.isSigned) continue;
    dropEncoded();
    sign(signer, own->second);
    own->second.isSigned = true;
  }
}

HashHandle SignedDataCore::hashToSign(SignerInfo& signer) {
  OwnSigner& own = ownOf(signer);
  updateAttributes(signer, own);
  return digest(signer, own.contentHash.get(), own.provider.get(), DigestUse::Sign);
}

void SignedDataCore::updateAttributes(SignerInfo& signer, OwnSigner& own) {
  if (!signer.m.signedAttrsPresent) return;
  const std::vector<BYTE> type = EncodeAsGiven(kInfo_ContentType, &data_.encapContentInfo.eContentType);
  ReplaceAttribute(*context_, signer.signedAttrs, ASN1V_id_contentType, type);
  const std::vector<BYTE> value = HashValue(own.contentHash.get());
  const ASN1T_MessageDigest octets = {static_cast<uint32_t>(value.size()), value.data()};
  ReplaceAttribute(*context_, signer.signedAttrs, ASN1V_id_messageDigest,
                   EncodeAsGiven(kInfo_MessageDigest, &octets));
  SortSignedAttributes(*context_, signer);
  own.attributesSorted = true;
}

void SignedDataCore::sign(SignerInfo& signer, const OwnSigner& own) {
  const HashHandle hash = hashToSign(signer);
  if (!hash) throw CAException("Cannot create hash");
  const SignatureScheme scheme = SchemeOf(signer);
  if (!scheme.hash) ThrowLastError();
  if (scheme.isPss) SetPssSalt(hash.get(), scheme);
  DWORD size = 0;
  if (!CryptSignHashA(hash.get(), own.keySpec, nullptr, scheme.flags(), nullptr, &size)) ThrowLastError();
  std::vector<BYTE> signature(size);
  if (!CryptSignHashA(hash.get(), own.keySpec, nullptr, scheme.flags(), signature.data(), &size)) {
    ThrowLastError();
  }
  std::reverse(signature.data(), signature.data() + size);
  signer.signature = CopyOctets(*context_, std::span(signature).first(size));
}

// --- what a signature is made of ---

void SignedDataCore::keepRawAttributes(const SignerInfo& signer, std::span<const BYTE> encoded) {
  rawAttributes_[&signer].assign(encoded.begin(), encoded.end());
}

std::vector<BYTE> SignedDataCore::attributesToHash(const SignerInfo& signer) {
  const auto raw = rawAttributes_.find(&signer);
  if (raw == rawAttributes_.end() || EncodesAttributesAnew()) {
    return EncodeAsGiven(kInfo_SignedAttributes, &signer.signedAttrs);
  }
  if (raw->second.empty()) ThrowLastError();
  return raw->second;
}

HashHandle SignedDataCore::digest(const SignerInfo& signer, HCRYPTHASH contentHash, HCRYPTPROV provider,
                                  DigestUse use) {
  const ALG_ID algorithm = SchemeOf(signer).hash;
  if (!signer.m.signedAttrsPresent) {
    // who signs may have the content's hash on another provider than the key
    if (EncodesAttributesAnew() && use != DigestUse::Sign) {
      HashHandle copy;
      if (!CryptDuplicateHash(contentHash, nullptr, 0, copy.out())) ThrowLastError();
      return copy;
    }
    const std::vector<BYTE> value = HashValue(contentHash);
    HashHandle hash = CreateHash(provider, algorithm);
    if (!CryptSetHashParam(hash.get(), HP_HASHVAL, value.data(), 0)) ThrowLastError();
    return hash;
  }
  if (use == DigestUse::Verify && !matchesContent(signer, contentHash)) {
    SetLastError(NTE_BAD_SIGNATURE);
    return {};
  }
  std::vector<BYTE> attributes = attributesToHash(signer);
  attributes[0] = kSetTag;
  HashHandle hash = CreateHash(provider, algorithm);
  HashBytes(hash.get(), attributes);
  return hash;
}

bool SignedDataCore::matchesContent(const SignerInfo& signer, HCRYPTHASH contentHash) const {
  const ASN1T_Attribute* const attribute = FindAttribute(signer.signedAttrs, ASN1V_id_messageDigest);
  if (!attribute || !attribute->values.count) throw CAException("No messageDigest in signed attributes");
  if (attribute->values.count > 1) throw CAException("messageDigest attribute has multiple values");
  const auto encoded = attribute->values.begin()->encoded.bytes();
  ASN1BERDecodeBuffer buffer(encoded.data(), encoded.size());
  ASN1T_MessageDigest stated{};
  if (ASN1C_MessageDigest(buffer, stated).Decode() != ASN1_OK)
    throw Asn1Exception(buffer.context().errorText());
  return SameBytes(stated.bytes(), HashValue(contentHash));
}

}  // namespace certkern
