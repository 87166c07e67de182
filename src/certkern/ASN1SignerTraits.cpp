#include "certkern/ASN1SignerTraits.h"

#include <bit>

namespace certkern {
namespace {

// What both records have, and call alike, in the order of the older one.
template <class Record>
void GetCommon(const SignerInfoTraits::Generated& generated, Record& record, BerDecodeArena& arena) {
  AlgorithmTraits::getWithoutNull(generated.digestAlgorithm, record.HashAlgorithm, arena);
  AlgorithmTraits::getWithoutNull(generated.signatureAlgorithm, record.HashEncryptionAlgorithm, arena);
  OctetsTraits::get(generated.signature, record.EncryptedHash, arena);
  AttributesTraits::get(generated.signedAttrs, record.AuthAttrs, arena);
  AttributesTraits::get(generated.unsignedAttrs, record.UnauthAttrs, arena);
}

}  // namespace

void SignerInfoTraits::get(const Generated& generated, CMSG_SIGNER_INFO& record, BerDecodeArena& arena) {
  record.dwVersion = std::bit_cast<DWORD>(generated.version);
  if (generated.sid.t == asn1data::ASN1T_SignerIdentifier::t_issuerAndSerialNumber) {
    NameTraits::get(generated.sid.u.issuerAndSerialNumber->issuer, record.Issuer, arena);
    SerialNumberTraits::get(generated.sid.u.issuerAndSerialNumber->serialNumber, record.SerialNumber, arena);
  }
  GetCommon(generated, record, arena);
}

bool SignerInfoTraits::get(const Generated& generated, CMSG_CMS_SIGNER_INFO& record, BerDecodeArena& arena) {
  record.dwVersion = std::bit_cast<DWORD>(generated.version);
  if (!CertIdTraits::get(generated.sid, record.SignerId, arena)) return false;
  GetCommon(generated, record, arena);
  return true;
}

bool SignerInfoTraits::set(ASN1Context& context, const CMSG_CMS_SIGNER_INFO& record, Generated& generated) {
  generated = {};
  generated.version = std::bit_cast<int32_t>(record.dwVersion);
  if (!CertIdTraits::set(context, record.SignerId, generated.sid)) return false;
  AlgorithmTraits::set(context, record.HashAlgorithm, generated.digestAlgorithm);
  AlgorithmTraits::set(context, record.HashEncryptionAlgorithm, generated.signatureAlgorithm);
  OctetsTraits::set(context, record.EncryptedHash, generated.signature);
  AttributesTraits::set(context, record.AuthAttrs, generated.signedAttrs);
  AttributesTraits::set(context, record.UnauthAttrs, generated.unsignedAttrs);
  generated.m.signedAttrsPresent = generated.signedAttrs.count != 0;
  generated.m.unsignedAttrsPresent = generated.unsignedAttrs.count != 0;
  return true;
}

}  // namespace certkern
