// A SignedData and what signs it: shared by those who build one and those who read one. RFC 5652, clause 5.
#ifndef CERTKERN_CERTKERN_SIGNED_DATA_H
#define CERTKERN_CERTKERN_SIGNED_DATA_H

#include <certkern/msg.h>

#include <map>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "asn1data/cms.h"
#include "certkern/CMSMessage.h"
#include "keys/pss_parameters.h"
#include "platform/exceptions.h"

namespace certkern {

using SignerInfo = asn1data::ASN1T_SignerInfo;

// The hash that a signer names, and how its key signs it.
struct SignatureScheme {
  ALG_ID hash = 0;
  bool isPss = false;
  DWORD saltLength = 0;

  DWORD flags() const { return isPss ? CRYPT_PSS : 0; }
};
bool IsPss(const ASN1ObjectId& algorithm);
// PSS parameters that can't be used leave no hash, and no code of their own.
SignatureScheme SchemeOf(const SignerInfo& signer);

// Sets hash parameter HP_PSS_SALT: two words, of which a provider may read one.
void SetPssSalt(HCRYPTHASH hash, const SignatureScheme& scheme);

// Where a look-up ended, so that looking up one after the other takes a step each. Good for as long as the list is what it
// was: new elements come at its end, and nodes are not used twice.
struct ListPlace {
  ASN1List list{};
  ASN1ListNode* node = nullptr;
  uint32_t index = 0;
};
ASN1ListNode* NodeAt(const ASN1List& list, uint32_t index, ListPlace& place);

class SignedDataCore {
 public:
  SignedDataCore();

  ASN1Context& context() { return *context_; }
  const asn1data::ASN1T_SignedData& data() const { return data_; }
  asn1data::ASN1T_SignedData& data() { return data_; }

  // Null past the end.
  SignerInfo* findSigner(DWORD index) const;
  // "No signer with such index."
  SignerInfo& signerAt(DWORD index) const;

  // --- signers that sign here ---

  // With a content hash at work, to which nothing was fed.
  SignerInfo& addSigner(const CMSG_SIGNER_ENCODE_INFO& info);
  // A signer as somebody else made it: no hash, no new digest algorithm.
  void addFinishedSigner(const CMSG_CMS_SIGNER_INFO& info);
  // Digest algorithms stay while there is a signer left.
  void removeSigner(DWORD index);
  // What addSigner() did, undone: a digest algorithm that it added goes, too.
  void removeAddedSigner(SignerInfo& signer, uint32_t digestAlgorithmsBefore);
  void hashContent(std::span<const BYTE> content);
  // The content hash is exchanged for one that has this value.
  void setContentHash(const SignerInfo& signer, std::span<const BYTE> value);
  // 0 for a signer that signs elsewhere.
  HCRYPTHASH contentHash(const SignerInfo& signer) const { return hashOf(signer).second; }
  // The same with the provider that the key is on.
  std::pair<HCRYPTPROV, HCRYPTHASH> hashOf(const SignerInfo& signer) const;
  // A signature that was made stays, with all that speaks of it, until something that it covers changes.
  void signAll();
  // The hash that a signer of this place signs, its attributes brought up to date.
  HashHandle hashToSign(SignerInfo& signer);

  // --- what a signature is made of ---

  void setContentType(const ASN1ObjectId& type);
  // The [0] of a decoded signer as its sender wrote it, which is how it is hashed and goes out again.
  void keepRawAttributes(const SignerInfo& signer, std::span<const BYTE> encoded);
  enum class DigestUse { Sign, Verify, Tell };
  // The hash that a signature is about, on `provider`. Who verifies gets none, and NTE_BAD_SIGNATURE, when the attribute
  // messageDigest is not the content's.
  HashHandle digest(const SignerInfo& signer, HCRYPTHASH contentHash, HCRYPTPROV provider, DigestUse use);

  // --- what else is in it ---

  void addCertificate(const CRYPT_DATA_BLOB& encoded);
  void addCrl(const CRYPT_DATA_BLOB& encoded);
  // Nothing is removed past the end, which is E_INVALIDARG.
  void removeCertificate(DWORD index);
  void removeCrl(DWORD index);
  // All or nothing: who tries again must not find it there.
  void addUnsignedAttribute(const CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA& para);
  void removeUnsignedAttribute(const CMSG_CTRL_DEL_SIGNER_UNAUTH_ATTR_PARA& para);

  // --- encodings: each kept until the message changes, but the bare one for ever ---

  const ByteBuffer& encoded(bool bare);
  const ByteBuffer& cached(bool bare) const { return bare ? bareEncoded_ : encoded_; }
  void dropEncoded() { encoded_ = {}; }
  std::vector<BYTE> encodedSigner(const SignerInfo& signer) const;
  // Content so large that an encoding is better written once, where it stays. Room is exactly what the size says.
  bool isLarge() const;
  uint64_t sizeOfLarge(bool bare);
  void encodeLarge(bool bare, std::span<BYTE> room);
  // An upper bound, for so many bytes of content; nothing: none will be inside.
  DWORD encodedSizeBound(std::optional<DWORD> contentSize, bool bare, const CMSG_SIGNED_ENCODE_INFO& info);

 private:
  // Hashes go before the providers that they live on.
  struct OwnSigner {
    ProviderHandle provider;
    ProviderHandle hashProvider;  // none: the same
    DWORD keySpec = 0;
    HashHandle contentHash;
    bool attributesSorted = false;
    bool isSigned = false;

    HCRYPTPROV hashingProvider() const { return hashProvider ? hashProvider.get() : provider.get(); }
  };

  OwnSigner& ownOf(const SignerInfo& signer);
  OwnSigner prepareOwnSigner(const CMSG_SIGNER_ENCODE_INFO& info, const SignerInfo& signer) const;
  void addDigestAlgorithm(const asn1data::ASN1T_AlgorithmIdentifier& algorithm);
  void updateAttributes(SignerInfo& signer, OwnSigner& own);
  void sign(SignerInfo& signer, const OwnSigner& own);
  bool matchesContent(const SignerInfo& signer, HCRYPTHASH contentHash) const;
  std::vector<BYTE> attributesToHash(const SignerInfo& signer);
  template <class Control, class Value>
  ASN1OctetString checkedCopy(const CRYPT_DATA_BLOB& encoded);
  void updateVersion();
  // To be written in the order of its lists, but for signed attributes. What it is made of stays shared.
  asn1data::ASN1T_SignedDataRaw toWrite(ASN1Context& context) const;
  ByteBuffer encode(bool bare);
  uint64_t formulaBound(uint64_t bareSize, std::optional<DWORD> contentSize,
                        const CMSG_SIGNED_ENCODE_INFO& info) const;

  ASN1ContextPtr context_;
  asn1data::ASN1T_SignedData data_{};
  mutable ListPlace signerPlace_;
  ByteBuffer bareEncoded_, encoded_;
  std::map<SignerInfo*, OwnSigner, std::less<>> own_;
  std::map<const SignerInfo*, std::vector<BYTE>> rawAttributes_;
};

// --- signers as records ---

void AnswerSignerInfo(const GetParamRequest& request, const SignerInfo& signer);
void AnswerCmsSignerInfo(const GetParamRequest& request, const SignerInfo& signer);
// Serial number and issuer alone; all zero for a signer that is named by its key.
void AnswerSignerCertInfo(const GetParamRequest& request, const SignerInfo& signer);
void AnswerSignerCertId(const GetParamRequest& request, const SignerInfo& signer);
void AnswerAttributes(const GetParamRequest& request, const ASN1ListOf<asn1data::ASN1T_Attribute>& list);
// By issuer and serial number, byte by byte. A signer that is named by its key is nobody's.
bool IsSignedBy(const SignerInfo& signer, const CERT_INFO& info);
// One whole value by its type's tables, in the order of its lists.
std::vector<BYTE> EncodeAsGiven(const TypeInfo& type, const void* value);

// As it stands in a message: the signed attributes in DER's order, or those that were written already.
std::vector<BYTE> EncodeSigner(const SignerInfo& signer);
std::vector<BYTE> EncodeSigner(const SignerInfo& signer, std::span<const BYTE> signedAttributes);
// The list itself, and the values of each attribute: what is signed is then what is written, and what is looked at.
void SortSignedAttributes(ASN1Context& context, SignerInfo& signer);

// --- lists ---

// A signer record up to its SignerId, which came later.
inline constexpr size_t kShortestSignerRecord = offsetof(CMSG_SIGNER_ENCODE_INFO, SignerId);

// Callers' records follow each other by their own size; one that is too small would never end.
template <class Each>
void ForEachSigner(const CMSG_SIGNED_ENCODE_INFO& info, Each each) {
  const auto* at = reinterpret_cast<const BYTE*>(info.rgSigners);
  for (DWORD i = 0; at && i < info.cSigners; ++i) {
    const auto& signer = *reinterpret_cast<const CMSG_SIGNER_ENCODE_INFO*>(at);
    if (signer.cbSize < kShortestSignerRecord) throw CryptException(ERROR_INVALID_PARAMETER);
    each(signer);
    at += signer.cbSize;
  }
}

template <class Element>
ASN1ListNode* NodeAt(const ASN1ListOf<Element>& list, uint32_t index) {
  ASN1ListNode* node = list.head;
  for (; node && index > 0; --index) node = node->next;
  return node;
}
void Unlink(ASN1List& list, const ASN1ListNode& node);

}  // namespace certkern

#endif
