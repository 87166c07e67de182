// Signers as the records that callers read.
#include <algorithm>

#include "certkern/ASN1Traits.h"
#include "certkern/signed_data.h"

namespace certkern {
namespace {

using namespace asn1data;

constexpr BYTE kNull[] = {0x05, 0x00};

void LayAlgorithm(const ASN1T_AlgorithmIdentifier& generated, CRYPT_ALGORITHM_IDENTIFIER& record,
                  BerDecodeArena& arena) {
  ASN1T_AlgorithmIdentifier algorithm = generated;
  if (std::ranges::equal(algorithm.parameters.encoded.bytes(), kNull)) algorithm.m.parametersPresent = 0;
  AlgorithmTraits::get(algorithm, record, arena);
}

// What both forms have behind the identity of the signer.
template <class Record>
void LayRest(const SignerInfo& signer, Record& record, BerDecodeArena& arena) {
  LayAlgorithm(signer.digestAlgorithm, record.HashAlgorithm, arena);
  LayAlgorithm(signer.signatureAlgorithm, record.HashEncryptionAlgorithm, arena);
  OctetsTraits::get(signer.signature, record.EncryptedHash, arena);
  if (signer.m.signedAttrsPresent) AttributesTraits::get(signer.signedAttrs, record.AuthAttrs, arena);
  if (signer.m.unsignedAttrsPresent) AttributesTraits::get(signer.unsignedAttrs, record.UnauthAttrs, arena);
}

bool HasIssuer(const SignerInfo& signer) {
  return signer.sid.t == ASN1T_SignerIdentifier::t_issuerAndSerialNumber;
}

}  // namespace

void AnswerSignerInfo(const GetParamRequest& request, const SignerInfo& signer) {
  AnswerRecord<CMSG_SIGNER_INFO>(request, [&](CMSG_SIGNER_INFO& record, BerDecodeArena& arena) {
    record.dwVersion = static_cast<DWORD>(signer.version);
    if (HasIssuer(signer)) {
      NameTraits::get(signer.sid.u.issuerAndSerialNumber->issuer, record.Issuer, arena);
      SerialNumberTraits::get(signer.sid.u.issuerAndSerialNumber->serialNumber, record.SerialNumber, arena);
    }
    LayRest(signer, record, arena);
  });
}

void AnswerCmsSignerInfo(const GetParamRequest& request, const SignerInfo& signer) {
  AnswerRecord<CMSG_CMS_SIGNER_INFO>(request, [&](CMSG_CMS_SIGNER_INFO& record, BerDecodeArena& arena) {
    record.dwVersion = static_cast<DWORD>(signer.version);
    if (!CertIdTraits::get(signer.sid, record.SignerId, arena))
      throw CAException("Unknown signer identifier.");
    LayRest(signer, record, arena);
  });
}

void AnswerSignerCertInfo(const GetParamRequest& request, const SignerInfo& signer) {
  AnswerRecord<CERT_INFO>(request, [&](CERT_INFO& record, BerDecodeArena& arena) {
    if (!HasIssuer(signer)) return;
    SerialNumberTraits::get(signer.sid.u.issuerAndSerialNumber->serialNumber, record.SerialNumber, arena);
    NameTraits::get(signer.sid.u.issuerAndSerialNumber->issuer, record.Issuer, arena);
  });
}

void AnswerSignerCertId(const GetParamRequest& request, const SignerInfo& signer) {
  AnswerRecord<CERT_ID>(request, [&](CERT_ID& record, BerDecodeArena& arena) {
    if (!CertIdTraits::get(signer.sid, record, arena)) throw CAException("Unknown signer identifier.");
  });
}

void AnswerAttributes(const GetParamRequest& request, const ASN1ListOf<ASN1T_Attribute>& list) {
  AnswerRecord<CRYPT_ATTRIBUTES>(request, [&](CRYPT_ATTRIBUTES& record, BerDecodeArena& arena) {
    AttributesTraits::get(list, record, arena);
  });
}

bool IsSignedBy(const SignerInfo& signer, const CERT_INFO& info) {
  if (!HasIssuer(signer)) return false;
  const auto same = [](const CRYPT_DATA_BLOB& a, const CRYPT_DATA_BLOB& b) {
    return std::ranges::equal(GivenBytes(a), GivenBytes(b));
  };
  const ASN1T_IssuerAndSerialNumber& named = *signer.sid.u.issuerAndSerialNumber;
  // a name is written anew to be compared, which most signers of a large message need not cost
  const auto serial = GivenBytes(info.SerialNumber);
  const auto number = named.serialNumber.bytes();
  if (!std::equal(number.begin(), number.end(), serial.rbegin(), serial.rend())) return false;
  BerDecodeArena counting(sizeof(CERT_ISSUER_SERIAL_NUMBER));
  CERT_ISSUER_SERIAL_NUMBER id{};
  IssuerSerialTraits::get(named, id, counting);
  ByteBuffer room;
  room.resize(counting.size());
  BerDecodeArena filling(room.data(), room.size(), sizeof id);
  IssuerSerialTraits::get(named, id, filling);
  return same(id.Issuer, info.Issuer);
}

}  // namespace certkern
