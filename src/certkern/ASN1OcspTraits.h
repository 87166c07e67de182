// Questions about the state of certificates and their answers, between generated types and published records.
//
// get is false for what a record cannot express: a certificate that is named in the way of the protocol's second version,
// a requestor that is an X.400 address or an EDI party. set throws for what a record says and the protocol cannot, with
// CRYPT_E_ASN1_BADARGS for a choice that is none.
#ifndef CERTKERN_CERTKERN_ASN1OCSPTRAITS_H
#define CERTKERN_CERTKERN_ASN1OCSPTRAITS_H

#include <certkern/ocsp.h>

#include "asn1data/ocsp.h"
#include "asn1data/ocsp_signed.h"
#include "certkern/ASN1Traits.h"

namespace certkern {

// OCSP_SIGNED_REQUEST and OCSP_BASIC_SIGNED_RESPONSE. What is signed stays the bytes that it is.
struct OcspSignedRequestTraits {
  [[nodiscard]] static bool get(const asn1data::ASN1T_OCSPRequestRaw& generated,
                                OCSP_SIGNED_REQUEST_INFO& record, BerDecodeArena& arena);
  static void set(ASN1Context& context, const OCSP_SIGNED_REQUEST_INFO& record,
                  asn1data::ASN1T_OCSPRequestRaw& generated);
};
struct OcspSignedResponseTraits {
  [[nodiscard]] static bool get(const asn1data::ASN1T_BasicOCSPResponseRaw& generated,
                                OCSP_BASIC_SIGNED_RESPONSE_INFO& record, BerDecodeArena& arena);
  static void set(ASN1Context& context, const OCSP_BASIC_SIGNED_RESPONSE_INFO& record,
                  asn1data::ASN1T_BasicOCSPResponseRaw& generated);
};

// OCSP_REQUEST
struct OcspRequestTraits {
  [[nodiscard]] static bool get(const asn1data::ASN1T_TBSRequest& generated, OCSP_REQUEST_INFO& record,
                                BerDecodeArena& arena);
  static void set(ASN1Context& context, const OCSP_REQUEST_INFO& record,
                  asn1data::ASN1T_TBSRequest& generated);
};

// OCSP_RESPONSE. Any type of response is read, one is written.
struct OcspResponseTraits {
  [[nodiscard]] static bool get(const asn1data::ASN1T_OCSPResponse& generated, OCSP_RESPONSE_INFO& record,
                                BerDecodeArena& arena);
  static void set(ASN1Context& context, const OCSP_RESPONSE_INFO& record,
                  asn1data::ASN1T_OCSPResponse& generated);
};

// OCSP_BASIC_RESPONSE
struct OcspBasicResponseTraits {
  [[nodiscard]] static bool get(const asn1data::ASN1T_ResponseData& generated,
                                OCSP_BASIC_RESPONSE_INFO& record, BerDecodeArena& arena);
  static void set(ASN1Context& context, const OCSP_BASIC_RESPONSE_INFO& record,
                  asn1data::ASN1T_ResponseData& generated);
};

}  // namespace certkern

#endif
