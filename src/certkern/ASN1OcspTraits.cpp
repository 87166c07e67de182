#include "certkern/ASN1OcspTraits.h"

#include <certkern/errors.h>
#include <certkern/oids.h>

#include <bit>
#include <cstring>
#include <vector>

#include "asn1data/certificate_extensions.h"
#include "asn1data/oids_pkix.h"
#include "asn1rt/message_buffer.h"
#include "ber/general_name.h"

namespace certkern {
namespace {

using namespace asn1data;

[[noreturn]] void ThrowBadArguments() { throw CryptException(CRYPT_E_ASN1_BADARGS); }

// --- pieces of several structures ---

void GetExtensions(const ASN1T_Extensions& list, DWORD& count, PCERT_EXTENSION& records,
                   BerDecodeArena& arena) {
  GetList<ExtensionTraits>(list, count, records, arena);
}
// False when there are none: an empty list is not written.
bool SetExtensions(ASN1Context& context, DWORD count, const CERT_EXTENSION* records, ASN1T_Extensions& list) {
  SetList<ExtensionTraits>(context, records, count, list);
  return list.count != 0;
}

// The members of a signature, which are the same in requests and responses.
template <class Generated>
void GetSignature(const Generated& generated, OCSP_SIGNATURE_INFO& record, BerDecodeArena& arena) {
  AlgorithmTraits::getWithoutNull(generated.signatureAlgorithm, record.SignatureAlgorithm, arena);
  BitsTraits::get(generated.signature, record.Signature, arena);
  GetList<OpenTraits>(generated.certs, record.cCertEncoded, record.rgCertEncoded, arena);
}
template <class Generated>
void SetSignature(ASN1Context& context, const OCSP_SIGNATURE_INFO& record, Generated& generated) {
  AlgorithmTraits::set(context, record.SignatureAlgorithm, generated.signatureAlgorithm);
  BitsTraits::set(context, record.Signature, generated.signature);
  SetList<OpenTraits>(context, record.rgCertEncoded, record.cCertEncoded, generated.certs);
  generated.m.certsPresent = generated.certs.count != 0;
}

bool GetCertId(const ASN1T_ReqCert& generated, OCSP_CERT_ID& record, BerDecodeArena& arena) {
  if (generated.t != ASN1T_ReqCert::t_certID) return false;
  const ASN1T_CertID& id = *generated.u.certID;
  AlgorithmTraits::getWithoutNull(id.hashAlgorithm, record.HashAlgorithm, arena);
  OctetsTraits::get(id.issuerNameHash, record.IssuerNameHash, arena);
  OctetsTraits::get(id.issuerKeyHash, record.IssuerKeyHash, arena);
  SerialNumberTraits::get(id.serialNumber, record.SerialNumber, arena);
  return true;
}
void SetCertId(ASN1Context& context, const OCSP_CERT_ID& record, ASN1T_ReqCert& generated) {
  auto* const id = AllocateValue<ASN1T_CertID>(context);
  AlgorithmTraits::set(context, record.HashAlgorithm, id->hashAlgorithm);
  OctetsTraits::set(context, record.IssuerNameHash, id->issuerNameHash);
  OctetsTraits::set(context, record.IssuerKeyHash, id->issuerKeyHash);
  SerialNumberTraits::set(context, record.SerialNumber, id->serialNumber);
  generated.t = ASN1T_ReqCert::t_certID;
  generated.u.certID = id;
}

// --- who asks ---

// The records' texts are wide and pass a code page, which the hand-written codec knows about.
bool GetRequestor(const ASN1T_GeneralName& generated, PCERT_ALT_NAME_ENTRY& record, BerDecodeArena& arena) {
  ASN1BEREncodeBuffer buffer;
  buffer.context().setSetOrder(SetOrder::AsGiven);
  ASN1T_GeneralName copy = generated;
  if (ASN1C_GeneralName(buffer, copy).Encode() <= 0) return false;
  CERT_ALT_NAME_ENTRY unkept;
  if (!arena.reserveRecord(record, unkept)) return false;
  BerReadCursor in({buffer.GetMsgPtr(), buffer.GetMsgLen()});
  const bool done = BerDecodeAltEntry(in, *record, arena);
  if (record == &unkept) record = nullptr;
  return done;
}

void SetRequestor(ASN1Context& context, const CERT_ALT_NAME_ENTRY& record, ASN1T_GeneralName& generated) {
  BerWriteCursor counter;
  if (!BerEncodeAltEntry(record, counter)) throw Asn1Exception("Can't encode general name.");
  std::vector<BYTE> encoded(counter.count());
  BerWriteCursor out(encoded.data(), encoded.size());
  if (!BerEncodeAltEntry(record, out)) throw Asn1Exception("Can't encode general name.");
  const auto octets = CopyOctets(context, encoded);
  ASN1BERDecodeBuffer buffer(ASN1ContextPtr::Share(&context), octets.data, octets.numocts);
  if (ASN1C_GeneralName(buffer, generated).Decode() != ASN1_OK) {
    throw Asn1DecodeException("Can't decode general name.");
  }
}

// --- lists ---

// GetList, for elements that a record may not be able to express.
template <class Element, class Record, class Get>
bool GetEach(const ASN1ListOf<Element>& list, DWORD& count, Record*& records, BerDecodeArena& arena,
             const Get& get) {
  count = list.count;
  records = list.count ? ArenaArray<Record>(list.count, arena) : nullptr;
  Record* next = records;
  for (const Element& element : list) {
    Record unkept{};
    if (!get(element, next ? *next++ : unkept, arena)) return false;
  }
  return true;
}

bool GetRequestEntry(const ASN1T_Request& generated, OCSP_REQUEST_ENTRY& record, BerDecodeArena& arena) {
  if (!GetCertId(generated.reqCert, record.CertId, arena)) return false;
  GetExtensions(generated.singleRequestExtensions, record.cExtension, record.rgExtension, arena);
  return true;
}

struct RequestEntryTraits {
  static void set(ASN1Context& context, const OCSP_REQUEST_ENTRY& record, ASN1T_Request& generated) {
    SetCertId(context, record.CertId, generated.reqCert);
    generated.m.singleRequestExtensionsPresent =
        SetExtensions(context, record.cExtension, record.rgExtension, generated.singleRequestExtensions);
  }
};

// --- one answer ---

bool GetStatus(const ASN1T_CertStatus& generated, OCSP_BASIC_RESPONSE_ENTRY& record, BerDecodeArena& arena) {
  switch (generated.t) {
    case ASN1T_CertStatus::t_good:
      record.dwCertStatus = OCSP_BASIC_GOOD_CERT_STATUS;
      return true;
    case ASN1T_CertStatus::t_unknown:
      record.dwCertStatus = OCSP_BASIC_UNKNOWN_CERT_STATUS;
      return true;
    case ASN1T_CertStatus::t_revoked:
      break;
    default:
      return false;
  }
  OCSP_BASIC_REVOKED_INFO info;
  const ASN1T_RevokedInfo& revoked = *generated.u.revoked;
  GeneralizedTimeTraits::get(revoked.revocationTime, info.RevocationDate);
  info.dwCrlReasonCode = revoked.m.revocationReasonPresent ? std::bit_cast<DWORD>(revoked.revocationReason)
                                                           : CRL_REASON_UNSPECIFIED;
  record.dwCertStatus = OCSP_BASIC_REVOKED_CERT_STATUS;
  record.pRevokedInfo = ArenaArray<OCSP_BASIC_REVOKED_INFO>(1, arena);
  if (record.pRevokedInfo) *record.pRevokedInfo = info;
  return true;
}

void SetStatus(ASN1Context& context, const OCSP_BASIC_RESPONSE_ENTRY& record, ASN1T_CertStatus& generated) {
  switch (record.dwCertStatus) {
    case OCSP_BASIC_GOOD_CERT_STATUS:
      generated.t = ASN1T_CertStatus::t_good;
      return;
    case OCSP_BASIC_UNKNOWN_CERT_STATUS:
      generated.t = ASN1T_CertStatus::t_unknown;
      return;
    case OCSP_BASIC_REVOKED_CERT_STATUS:
      break;
    default:
      ThrowBadArguments();
  }
  if (!record.pRevokedInfo) throw CryptException(ERROR_INVALID_PARAMETER);
  auto* const revoked = AllocateValue<ASN1T_RevokedInfo>(context);
  GeneralizedTimeTraits::set(context, record.pRevokedInfo->RevocationDate, revoked->revocationTime);
  // RFC 5280, 5.3.1: rather absent than unspecified
  revoked->m.revocationReasonPresent = record.pRevokedInfo->dwCrlReasonCode != CRL_REASON_UNSPECIFIED;
  revoked->revocationReason = std::bit_cast<int32_t>(record.pRevokedInfo->dwCrlReasonCode);
  generated.t = ASN1T_CertStatus::t_revoked;
  generated.u.revoked = revoked;
}

bool GetResponseEntry(const ASN1T_SingleResponse& generated, OCSP_BASIC_RESPONSE_ENTRY& record,
                      BerDecodeArena& arena) {
  if (!GetCertId(generated.reqCert, record.CertId, arena)) return false;
  if (!GetStatus(generated.certStatus, record, arena)) return false;
  GeneralizedTimeTraits::get(generated.thisUpdate, record.ThisUpdate);
  if (generated.m.nextUpdatePresent) GeneralizedTimeTraits::get(generated.nextUpdate, record.NextUpdate);
  GetExtensions(generated.singleExtensions, record.cExtension, record.rgExtension, arena);
  return true;
}

struct ResponseEntryTraits {
  static void set(ASN1Context& context, const OCSP_BASIC_RESPONSE_ENTRY& record,
                  ASN1T_SingleResponse& generated) {
    SetCertId(context, record.CertId, generated.reqCert);
    SetStatus(context, record, generated.certStatus);
    GeneralizedTimeTraits::set(context, record.ThisUpdate, generated.thisUpdate);
    generated.m.nextUpdatePresent = record.NextUpdate.dwLowDateTime || record.NextUpdate.dwHighDateTime;
    if (generated.m.nextUpdatePresent)
      GeneralizedTimeTraits::set(context, record.NextUpdate, generated.nextUpdate);
    generated.m.singleExtensionsPresent =
        SetExtensions(context, record.cExtension, record.rgExtension, generated.singleExtensions);
  }
};

}  // namespace

// --- signed objects ---

bool OcspSignedRequestTraits::get(const ASN1T_OCSPRequestRaw& generated, OCSP_SIGNED_REQUEST_INFO& record,
                                  BerDecodeArena& arena) {
  OpenTraits::get(generated.tbsRequest, record.ToBeSigned, arena);
  if (!generated.m.optionalSignaturePresent) return true;
  record.pOptionalSignatureInfo = ArenaArray<OCSP_SIGNATURE_INFO>(1, arena);
  OCSP_SIGNATURE_INFO unkept{};
  GetSignature(generated.optionalSignature,
               record.pOptionalSignatureInfo ? *record.pOptionalSignatureInfo : unkept, arena);
  return true;
}

void OcspSignedRequestTraits::set(ASN1Context& context, const OCSP_SIGNED_REQUEST_INFO& record,
                                  ASN1T_OCSPRequestRaw& generated) {
  OpenTraits::set(context, record.ToBeSigned, generated.tbsRequest);
  generated.m.optionalSignaturePresent = record.pOptionalSignatureInfo != nullptr;
  if (record.pOptionalSignatureInfo) {
    SetSignature(context, *record.pOptionalSignatureInfo, generated.optionalSignature);
  }
}

bool OcspSignedResponseTraits::get(const ASN1T_BasicOCSPResponseRaw& generated,
                                   OCSP_BASIC_SIGNED_RESPONSE_INFO& record, BerDecodeArena& arena) {
  OpenTraits::get(generated.tbsResponseData, record.ToBeSigned, arena);
  GetSignature(generated, record.SignatureInfo, arena);
  return true;
}

void OcspSignedResponseTraits::set(ASN1Context& context, const OCSP_BASIC_SIGNED_RESPONSE_INFO& record,
                                   ASN1T_BasicOCSPResponseRaw& generated) {
  OpenTraits::set(context, record.ToBeSigned, generated.tbsResponseData);
  SetSignature(context, record.SignatureInfo, generated);
}

// --- questions ---

bool OcspRequestTraits::get(const ASN1T_TBSRequest& generated, OCSP_REQUEST_INFO& record,
                            BerDecodeArena& arena) {
  record.dwVersion = std::bit_cast<DWORD>(generated.version);
  if (generated.m.requestorNamePresent
      && !GetRequestor(generated.requestorName, record.pRequestorName, arena)) {
    return false;
  }
  if (!GetEach(generated.requestList, record.cRequestEntry, record.rgRequestEntry, arena, GetRequestEntry)) {
    return false;
  }
  GetExtensions(generated.requestExtensions, record.cExtension, record.rgExtension, arena);
  return true;
}

void OcspRequestTraits::set(ASN1Context& context, const OCSP_REQUEST_INFO& record,
                            ASN1T_TBSRequest& generated) {
  generated.version = std::bit_cast<int32_t>(record.dwVersion);
  generated.m.requestorNamePresent = record.pRequestorName != nullptr;
  if (record.pRequestorName) SetRequestor(context, *record.pRequestorName, generated.requestorName);
  SetList<RequestEntryTraits>(context, record.rgRequestEntry, record.cRequestEntry, generated.requestList);
  generated.m.requestExtensionsPresent =
      SetExtensions(context, record.cExtension, record.rgExtension, generated.requestExtensions);
}

// --- answers ---

bool OcspResponseTraits::get(const ASN1T_OCSPResponse& generated, OCSP_RESPONSE_INFO& record,
                             BerDecodeArena& arena) {
  record.dwStatus = std::bit_cast<DWORD>(generated.responseStatus);
  if (!generated.m.responseBytesPresent) return true;
  ArenaText(generated.responseBytes.responseType, record.pszObjId, arena);
  OpenTraits::get(generated.responseBytes.response, record.Value, arena);
  return true;
}

void OcspResponseTraits::set(ASN1Context& context, const OCSP_RESPONSE_INFO& record,
                             ASN1T_OCSPResponse& generated) {
  if (record.dwStatus == 4 || record.dwStatus > OCSP_UNAUTHORIZED_RESPONSE) {
    throw Asn1Exception("no such response status");
  }
  generated.responseStatus = static_cast<int32_t>(record.dwStatus);
  if (!record.pszObjId && record.dwStatus != OCSP_SUCCESSFUL_RESPONSE) return;
  if (!record.pszObjId || std::strcmp(record.pszObjId, szOID_PKIX_OCSP_BASIC_SIGNED_RESPONSE) != 0) {
    ThrowBadArguments();
  }
  generated.m.responseBytesPresent = 1;
  generated.responseBytes.responseType = AsField(ASN1V_id_pkix_ocsp_basic);
  OpenTraits::set(context, record.Value, generated.responseBytes.response);
}

bool OcspBasicResponseTraits::get(const ASN1T_ResponseData& generated, OCSP_BASIC_RESPONSE_INFO& record,
                                  BerDecodeArena& arena) {
  record.dwVersion = std::bit_cast<DWORD>(generated.version);
  if (generated.responderID.t == ASN1T_ResponderID::t_byName) {
    record.dwResponderIdChoice = OCSP_BASIC_BY_NAME_RESPONDER_ID;
    NameTraits::get(*generated.responderID.u.byName, record.ByNameResponderId, arena);
  } else {
    record.dwResponderIdChoice = OCSP_BASIC_BY_KEY_RESPONDER_ID;
    OctetsTraits::get(generated.responderID.u.byKey, record.ByKeyResponderId, arena);
  }
  GeneralizedTimeTraits::get(generated.producedAt, record.ProducedAt);
  if (!GetEach(generated.responses, record.cResponseEntry, record.rgResponseEntry, arena, GetResponseEntry)) {
    return false;
  }
  GetExtensions(generated.responseExtensions, record.cExtension, record.rgExtension, arena);
  return true;
}

void OcspBasicResponseTraits::set(ASN1Context& context, const OCSP_BASIC_RESPONSE_INFO& record,
                                  ASN1T_ResponseData& generated) {
  generated.version = std::bit_cast<int32_t>(record.dwVersion);
  switch (record.dwResponderIdChoice) {
    case OCSP_BASIC_BY_NAME_RESPONDER_ID:
      generated.responderID.t = ASN1T_ResponderID::t_byName;
      generated.responderID.u.byName = AllocateValue<ASN1T_Name>(context);
      NameTraits::set(context, record.ByNameResponderId, *generated.responderID.u.byName);
      break;
    case OCSP_BASIC_BY_KEY_RESPONDER_ID:
      generated.responderID.t = ASN1T_ResponderID::t_byKey;
      OctetsTraits::set(context, record.ByKeyResponderId, generated.responderID.u.byKey);
      break;
    default:
      ThrowBadArguments();
  }
  GeneralizedTimeTraits::set(context, record.ProducedAt, generated.producedAt);
  SetList<ResponseEntryTraits>(context, record.rgResponseEntry, record.cResponseEntry, generated.responses);
  generated.m.responseExtensionsPresent =
      SetExtensions(context, record.cExtension, record.rgExtension, generated.responseExtensions);
}

}  // namespace certkern
