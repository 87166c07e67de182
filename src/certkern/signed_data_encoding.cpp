// Encodings of a SignedData, their size beforehand, and what else than signers changes them.
#include <certkern/errors.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "asn1data/certificate.h"
#include "asn1data/oids_pkcs.h"
#include "asn1rt/message_buffer.h"
#include "certkern/ASN1Traits.h"
#include "certkern/message_encoding.h"
#include "certkern/signed_data.h"
#include "platform/limits.h"
#include "platform/sizes.h"

namespace certkern {
namespace {

using namespace asn1data;

// From here on the size is computed first and the content written once, where it stays.
constexpr DWORD kLargeContent = 64 * 1024;

size_t HeaderSize(uint64_t length) {
  size_t size = 2;
  if (length >= 0x80) {
    for (; length; length >>= 8) ++size;
  }
  return size;
}
uint64_t Wrapped(uint64_t length) { return HeaderSize(length) + length; }

void Require(int status, const ASN1Context& context) {
  if (status < 0) throw Asn1Exception(context.errorText());
}

// --- the order of signed attributes: DER's, whatever order the list has ---

struct SortedElement {
  std::vector<BYTE> encoded;
  void* element;
};

// A list of its own, of the same elements in the order of their encodings.
template <class Encode>
ASN1List SortedCopy(ASN1Context& context, const ASN1List& list, Encode encode) {
  std::vector<SortedElement> sorted;
  sorted.reserve(list.count);
  for (const ASN1ListNode* node = list.head; node; node = node->next) {
    const std::span<const BYTE> encoded = encode(node->data);
    sorted.push_back({
        {encoded.begin(), encoded.end()},
        node->data
    });
  }
  std::ranges::stable_sort(sorted, std::ranges::lexicographical_compare, &SortedElement::encoded);
  ASN1List copy{};
  for (const SortedElement& each : sorted) {
    Require(ASN1CSeqOfList::AppendToList(context, copy, each.element), context);
  }
  return copy;
}

ASN1List SortedAttributes(ASN1Context& context, const ASN1List& list) {
  ASN1BEREncodeBuffer buffer;
  ASN1Context& scratch = buffer.context();
  scratch.setSetOrder(SetOrder::AsGiven);
  return SortedCopy(context, list, [&](const void* attribute) {
    scratch.output().restart();
    Require(EncodeValue(scratch, kInfo_Attribute, attribute, Tagging::Explicit), scratch);
    return scratch.output().bytes();
  });
}

SignerInfo ForEncoding(ASN1Context& context, const SignerInfo& signer) {
  SignerInfo copy = signer;
  if (copy.signedAttrs.count > 1) {
    static_cast<ASN1List&>(copy.signedAttrs) = SortedAttributes(context, signer.signedAttrs);
  }
  return copy;
}

std::vector<BYTE> MessageOf(ASN1BEREncodeBuffer& buffer) {
  const BYTE* const start = buffer.GetMsgPtr();
  return {start, start + buffer.GetMsgLen()};
}

// One whole ContentInfo, or the type alone.
void EncodeSignedData(ASN1BEREncodeBuffer& buffer, const TypeInfo& type, void* data, bool bare) {
  ASN1Context& context = buffer.context();
  context.setSetOrder(SetOrder::AsGiven);
  if (!bare) return WriteContentInfo(context, ASN1V_id_signedData, type, data);
  Require(EncodeValue(context, type, data, Tagging::Explicit), context);
}

ASN1ContextPtr NewContext() {
  ASN1ContextPtr context = ASN1ContextPtr::Create();
  if (!context) throw CryptException(ERROR_NOT_ENOUGH_MEMORY);
  return context;
}

ByteBuffer EncodeInto(const TypeInfo& type, void* data, bool bare) {
  ASN1BEREncodeBuffer buffer;
  EncodeSignedData(buffer, type, data, bare);
  return ByteBuffer({buffer.GetMsgPtr(), buffer.GetMsgLen()});
}

void DropContent(ASN1T_EncapsulatedContentInfo& encapsulated) {
  encapsulated.m.eContentPresent = 0;
  encapsulated.eContent = {};
}

// What content adds is known without writing it: headers in front of it, and longer ones around it.
uint64_t SizeWithContent(uint64_t bareSizeWithout, uint64_t typeSize, uint64_t contentSize, bool bare) {
  const uint64_t inner = bareSizeWithout - HeaderSize(bareSizeWithout - 2);
  uint64_t length = inner;
  // the header of the outermost SEQUENCE may be longer than that of its total
  while (Wrapped(length) > bareSizeWithout) --length;
  while (Wrapped(length) < bareSizeWithout) ++length;
  const uint64_t content = Wrapped(Wrapped(contentSize));
  const uint64_t whole = Wrapped(length - Wrapped(typeSize) + Wrapped(typeSize + content));
  constexpr uint64_t kSignedDataIdentifier = 11;
  return bare ? whole : Wrapped(kSignedDataIdentifier + Wrapped(whole));
}

template <class Control, class Value>
void DecodeBlob(ASN1Context& context, const ASN1OctetString& octets, Value& value) {
  ASN1BERDecodeBuffer buffer(ASN1ContextPtr::Share(&context), octets.data, octets.numocts);
  context.setOpenValues(OpenValues::Checked);  // what goes into a message here is what it says it is
  if (Control(buffer, value).Decode() != ASN1_OK) {
    const std::string text = context.errorText();
    context.clearStatus();
    throw Asn1Exception(text);
  }
  // they would stand in the message, which nobody could read
  if (context.position() != octets.numocts) throw Asn1Exception("bytes behind the object");
}

template <class List, class Flag>
void RemoveAt(List& list, DWORD index, Flag clearPresent) {
  const ASN1ListNode* const node = NodeAt(list, index);
  if (!node) throw CryptException(E_INVALIDARG);
  Unlink(list, *node);
  if (!list.count) clearPresent();
}

// --- sizes of signatures by the key that makes them ---

struct SignatureRoom {
  std::string_view key;
  DWORD fixed;
  bool addsKey;
};
constexpr std::string_view kRsa = "1.2.840.113549.1.1.1";
constexpr SignatureRoom kSignatureRooms[] = {
    {"1.2.643.7.1.1.1.2", 148, false},
    {"1.2.643.2.2.19",    84,  false},
    {"1.2.643.7.1.1.1.1", 84,  false},
    {kRsa,                20,  true },
    {"1.2.840.10045.2.1", 28,  true },
};
constexpr DWORD kOtherSignatureRoom = 4116;

const CERT_PUBLIC_KEY_INFO& KeyOf(const CMSG_SIGNER_ENCODE_INFO& signer) {
  if (!signer.pCertInfo) throw CAException("Invalid argument: pSignerEncodeInfo");
  return signer.pCertInfo->SubjectPublicKeyInfo;
}

const SignatureRoom* RoomFor(const CERT_PUBLIC_KEY_INFO& key) {
  const std::string_view oid = key.Algorithm.pszObjId ? key.Algorithm.pszObjId : "";
  const auto* const row = std::ranges::find(kSignatureRooms, oid, &SignatureRoom::key);
  return row == std::end(kSignatureRooms) ? nullptr : row;
}

uint64_t FormulaRoom(const CERT_PUBLIC_KEY_INFO& key) {
  const SignatureRoom* const row = RoomFor(key);
  if (!row) return kOtherSignatureRoom;
  return uint64_t{row->fixed} + (row->addsKey ? key.PublicKey.cbData : 0);
}

// Octets of the longest signature that the key can make.
uint64_t LongestSignature(const CERT_PUBLIC_KEY_INFO& key) {
  const SignatureRoom* const row = RoomFor(key);
  constexpr DWORD kSlack = 20;  // that is in each room beside the signature
  if (!row) return kOtherSignatureRoom - kSlack;
  if (!row->addsKey) return row->fixed - kSlack;
  const CRYPT_BIT_BLOB& point = key.PublicKey;
  if (row->key == kRsa || !point.cbData || !point.pbData) return point.cbData;
  // two numbers of a coordinate's size, each perhaps with a sign octet, in DER
  const bool compressed = point.pbData[0] == 2 || point.pbData[0] == 3;
  const uint64_t coordinate = compressed ? point.cbData - 1 : point.cbData / 2;
  return Wrapped(2 * Wrapped(coordinate + 1));
}

}  // namespace

std::vector<BYTE> EncodeAsGiven(const TypeInfo& type, const void* value) {
  ASN1BEREncodeBuffer buffer;
  buffer.context().setSetOrder(SetOrder::AsGiven);
  Require(EncodeValue(buffer.context(), type, value, Tagging::Explicit), buffer.context());
  return MessageOf(buffer);
}

std::vector<BYTE> EncodeSigner(const SignerInfo& signer) {
  ASN1BEREncodeBuffer buffer;
  const SignerInfo ordered = ForEncoding(buffer.context(), signer);
  return EncodeAsGiven(kInfo_SignerInfo, &ordered);
}

std::vector<BYTE> EncodeSigner(const SignerInfo& signer, std::span<const BYTE> signedAttributes) {
  ASN1T_SignerInfoRaw raw{};
  raw.version = signer.version;
  raw.sid = signer.sid;
  raw.digestAlgorithm = signer.digestAlgorithm;
  raw.signedAttrs.encoded = {CheckedDword(signedAttributes.size()), signedAttributes.data()};
  raw.signatureAlgorithm = signer.signatureAlgorithm;
  raw.signature = signer.signature;
  raw.unsignedAttrs = signer.unsignedAttrs;
  raw.m.unsignedAttrsPresent = signer.m.unsignedAttrsPresent;
  return EncodeAsGiven(kInfo_SignerInfoRaw, &raw);
}

void SortSignedAttributes(ASN1Context& context, SignerInfo& signer) {
  for (ASN1T_Attribute& attribute : signer.signedAttrs) {
    if (attribute.values.count < 2) continue;
    static_cast<ASN1List&>(attribute.values) = SortedCopy(context, attribute.values, [](const void* value) {
      return static_cast<const ASN1OpenValue*>(value)->encoded.bytes();
    });
  }
  static_cast<ASN1List&>(signer.signedAttrs) = SortedAttributes(context, signer.signedAttrs);
}

void SignedDataCore::updateVersion() {
  data_.version = data_.encapContentInfo.eContentType == ASN1V_id_data ? 1 : 3;
}

std::vector<BYTE> SignedDataCore::encodedSigner(const SignerInfo& signer) const {
  if (const auto raw = rawAttributes_.find(&signer); raw != rawAttributes_.end())
    return EncodeSigner(signer, raw->second);
  const auto own = own_.find(&signer);
  const bool sorted = own != own_.end() && own->second.attributesSorted;
  return sorted ? EncodeAsGiven(kInfo_SignerInfo, &signer) : EncodeSigner(signer);
}

ASN1T_SignedDataRaw SignedDataCore::toWrite(ASN1Context& context) const {
  ASN1T_SignedDataRaw copy{};
  copy.version = data_.version;
  copy.digestAlgorithms = data_.digestAlgorithms;
  copy.encapContentInfo = data_.encapContentInfo;
  copy.certificates = data_.certificates;
  copy.m.certificatesPresent = data_.m.certificatesPresent;
  copy.crls = data_.crls;
  copy.m.crlsPresent = data_.m.crlsPresent;
  for (const SignerInfo& signer : data_.signerInfos) {
    const ASN1OpenValue encoded = {CopyOctets(context, encodedSigner(signer)), nullptr, nullptr};
    CheckedMemory(AppendElement(context, copy.signerInfos, encoded));
  }
  return copy;
}

ByteBuffer SignedDataCore::encode(bool bare) {
  if (isLarge()) {
    ByteBuffer whole;
    whole.resize(sizeOfLarge(bare));
    encodeLarge(bare, {whole.data(), whole.size()});
    return whole;
  }
  const ASN1ContextPtr copies = NewContext();
  ASN1T_SignedDataRaw data = toWrite(*copies);
  return EncodeInto(kInfo_SignedDataRaw, &data, bare);
}

bool SignedDataCore::isLarge() const {
  const ASN1T_EncapsulatedContentInfo& encapsulated = data_.encapContentInfo;
  return encapsulated.m.eContentPresent && encapsulated.eContent.numocts >= kLargeContent;
}

uint64_t SignedDataCore::sizeOfLarge(bool bare) {
  updateVersion();
  const ASN1ContextPtr copies = NewContext();
  ASN1T_SignedDataRaw data = toWrite(*copies);
  DropContent(data.encapContentInfo);
  const uint64_t without = EncodeInto(kInfo_SignedDataRaw, &data, true).size();
  const uint64_t typeSize = EncodeAsGiven(kInfo_ContentType, &data_.encapContentInfo.eContentType).size();
  return SizeWithContent(without, typeSize, data_.encapContentInfo.eContent.numocts, bare);
}

void SignedDataCore::encodeLarge(bool bare, std::span<BYTE> room) {
  const ASN1ContextPtr copies = NewContext();
  ASN1T_SignedDataRaw data = toWrite(*copies);
  ASN1BEREncodeBuffer buffer(room);
  EncodeSignedData(buffer, kInfo_SignedDataRaw, &data, bare);
  if (buffer.GetMsgLen() != room.size()) throw CryptException(ERROR_INTERNAL_ERROR);
}

const ByteBuffer& SignedDataCore::encoded(bool bare) {
  ByteBuffer& cache = bare ? bareEncoded_ : encoded_;
  if (!cache.size()) {
    updateVersion();
    cache = encode(bare);
  }
  return cache;
}

// --- an upper bound of the size ---

uint64_t SignedDataCore::formulaBound(uint64_t bareSize, std::optional<DWORD> contentSize,
                                      const CMSG_SIGNED_ENCODE_INFO& info) const {
  constexpr uint64_t kAttributeName = sizeof("1.2.840.113549.1.9.3") - 1 + 4;
  constexpr uint64_t kContentRoom = 62;
  uint64_t size = bareSize;
  for (const auto& [signer, own] : own_) {
    for (const ASN1OBJID& standard : {ASN1V_id_contentType, ASN1V_id_messageDigest}) {
      const bool present = std::ranges::any_of(
          signer->signedAttrs, [&](const ASN1T_Attribute& attribute) { return attribute.type == standard; });
      if (!present) size += kAttributeName;
    }
    size += HashValue(own.contentHash.get()).size();
  }
  ForEachSigner(info, [&](const CMSG_SIGNER_ENCODE_INFO& signer) { size += FormulaRoom(KeyOf(signer)); });
  return contentSize ? size + *contentSize + kContentRoom : size;
}

DWORD SignedDataCore::encodedSizeBound(std::optional<DWORD> contentSize, bool bare,
                                       const CMSG_SIGNED_ENCODE_INFO& info) {
  updateVersion();
  std::vector<uint64_t> longest;
  ForEachSigner(info, [&](const CMSG_SIGNER_ENCODE_INFO& signer) {
    longest.push_back(LongestSignature(KeyOf(signer)));
  });
  const std::vector<BYTE> room(longest.empty() ? 0 : std::ranges::max(longest));
  // the message without its content, and with signatures as long as these; a signer that has none here has none
  const auto withSignatures = [&](std::span<const uint64_t> sizes) {
    ASN1T_SignedData data = data_;
    DropContent(data.encapContentInfo);
    data.signerInfos = {};
    for (const SignerInfo& signer : data_.signerInfos) {
      SignerInfo* const copy = AppendElement(*context_, data.signerInfos, signer);
      CheckedMemory(copy);
      const size_t index = data.signerInfos.count - 1;
      copy->signature = {index < sizes.size() ? static_cast<uint32_t>(sizes[index]) : 0, room.data()};
    }
    return data;
  };
  const auto sizeWith = [&](std::span<const uint64_t> sizes, bool asBare) -> uint64_t {
    ASN1T_SignedData data = withSignatures(sizes);
    return EncodeInto(kInfo_SignedData, &data, asBare).size();
  };
  const uint64_t formula = formulaBound(sizeWith({}, bare), contentSize, info);
  // the same with all that signing adds, which long content types and short points can make more than the formula
  for (auto& [signer, own] : own_) updateAttributes(*signer, own);
  const uint64_t without = sizeWith(longest, bare || contentSize);
  if (!contentSize) return CheckedDword(std::max(formula, without));
  const uint64_t typeSize = EncodeAsGiven(kInfo_ContentType, &data_.encapContentInfo.eContentType).size();
  return CheckedDword(std::max(formula, SizeWithContent(without, typeSize, *contentSize, bare)));
}

// --- certificates, lists, attributes ---

// What does not decode as a Value is not taken.
template <class Control, class Value>
ASN1OctetString SignedDataCore::checkedCopy(const CRYPT_DATA_BLOB& encoded) {
  dropEncoded();
  const ASN1OctetString octets = CopyOctets(*context_, GivenBytes(encoded));
  Value value{};
  DecodeBlob<Control>(*context_, octets, value);
  return octets;
}

void SignedDataCore::addCertificate(const CRYPT_DATA_BLOB& encoded) {
  ASN1T_CertificateChoicesRaw choice{};
  choice.t = ASN1T_CertificateChoicesRaw::t_certRaw;
  choice.u.certRaw = {checkedCopy<ASN1C_Certificate, ASN1T_Certificate>(encoded), nullptr, nullptr};
  CheckedMemory(AppendElement(*context_, data_.certificates, choice));
  data_.m.certificatesPresent = 1;
}

void SignedDataCore::addCrl(const CRYPT_DATA_BLOB& encoded) {
  ASN1T_RevocationChoiceRaw choice{};
  choice.t = ASN1T_RevocationChoiceRaw::t_crlRaw;
  choice.u.crlRaw = {checkedCopy<ASN1C_CertificateList, ASN1T_CertificateList>(encoded), nullptr, nullptr};
  CheckedMemory(AppendElement(*context_, data_.crls, choice));
  data_.m.crlsPresent = 1;
}

void SignedDataCore::removeCertificate(DWORD index) {
  dropEncoded();
  RemoveAt(data_.certificates, index, [&] { data_.m.certificatesPresent = 0; });
}

void SignedDataCore::removeCrl(DWORD index) {
  dropEncoded();
  RemoveAt(data_.crls, index, [&] { data_.m.crlsPresent = 0; });
}

void SignedDataCore::addUnsignedAttribute(const CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA& para) {
  const ASN1OctetString octets = CopyOctets(*context_, GivenBytes(para.blob));
  ASN1T_Attribute attribute{};
  DecodeBlob<ASN1C_Attribute>(*context_, octets, attribute);
  SignerInfo* const signer = findSigner(para.dwSignerIndex);
  if (!signer) throw Asn1Exception("No signer with such index.");
  const bool hadAttributes = signer->m.unsignedAttrsPresent;
  CheckedMemory(AppendElement(*context_, signer->unsignedAttrs, attribute));
  signer->m.unsignedAttrsPresent = 1;
  if (!encoded_.size()) return;
  try {
    updateVersion();
    encoded_ = encode(false);
  } catch (...) {
    Unlink(signer->unsignedAttrs, *signer->unsignedAttrs.tail);
    signer->m.unsignedAttrsPresent = hadAttributes;
    throw;
  }
}

void SignedDataCore::removeUnsignedAttribute(const CMSG_CTRL_DEL_SIGNER_UNAUTH_ATTR_PARA& para) {
  dropEncoded();
  SignerInfo* const signer = findSigner(para.dwSignerIndex);
  if (!signer) throw Asn1Exception("No signer with such index.");
  if (const ASN1ListNode* const node = NodeAt(signer->unsignedAttrs, para.dwUnauthAttrIndex)) {
    Unlink(signer->unsignedAttrs, *node);
  }
  if (!signer->unsignedAttrs.count) signer->m.unsignedAttrsPresent = 0;
}

}  // namespace certkern
