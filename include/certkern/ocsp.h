/** Records of the Online Certificate Status Protocol, for CryptEncodeObject and CryptDecodeObject.
 *
 *  They follow RFC 6960, field by field; names, times and serial numbers have the form that they have in certificates
 *  (whole encoded Names, FILETIME, little-endian integers). A decoded record lies in one buffer, as all records of
 *  <certkern/encode.h> do. The functions that keep a fresh response for a server are in <certkern/url.h>. */
#ifndef CERTKERN_OCSP_H
#define CERTKERN_OCSP_H

#include <certkern/encode.h>

CERTKERN_EXTERN_C_BEGIN

/** CertID: which certificate is asked for. The key hash is taken over the content of the issuer's BIT STRING, without
 *  its header and unused-bit count; the name hash over the whole encoded issuer name. RFC 6960, 4.1.1. */
typedef struct _OCSP_CERT_ID {
  CRYPT_ALGORITHM_IDENTIFIER HashAlgorithm; /**< of both hashes */
  CRYPT_HASH_BLOB IssuerNameHash;
  CRYPT_HASH_BLOB IssuerKeyHash;
  CRYPT_INTEGER_BLOB SerialNumber;
} OCSP_CERT_ID, *POCSP_CERT_ID;
CERTKERN_RECORD_SIZE(OCSP_CERT_ID, 72);

/** Request: one certificate, with extensions of its own. */
typedef struct _OCSP_REQUEST_ENTRY {
  OCSP_CERT_ID CertId;
  DWORD cExtension;
  PCERT_EXTENSION rgExtension;
} OCSP_REQUEST_ENTRY, *POCSP_REQUEST_ENTRY;
CERTKERN_RECORD_SIZE(OCSP_REQUEST_ENTRY, 88);

/** Value of dwVersion in requests and responses. */
#define OCSP_REQUEST_V1 0
#define OCSP_BASIC_RESPONSE_V1 0

/** TBSRequest; goes with OCSP_REQUEST. */
typedef struct _OCSP_REQUEST_INFO {
  DWORD dwVersion;
  PCERT_ALT_NAME_ENTRY pRequestorName; /**< NULL when absent */
  DWORD cRequestEntry;
  POCSP_REQUEST_ENTRY rgRequestEntry;
  DWORD cExtension;
  PCERT_EXTENSION rgExtension;
} OCSP_REQUEST_INFO, *POCSP_REQUEST_INFO;
CERTKERN_RECORD_SIZE(OCSP_REQUEST_INFO, 48);

/** Signature with the certificates that come with it, each whole encoded. */
typedef struct _OCSP_SIGNATURE_INFO {
  CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
  CRYPT_BIT_BLOB Signature;
  DWORD cCertEncoded;
  PCERT_BLOB rgCertEncoded;
} OCSP_SIGNATURE_INFO, *POCSP_SIGNATURE_INFO;
CERTKERN_RECORD_SIZE(OCSP_SIGNATURE_INFO, 64);

/** OCSPRequest; goes with OCSP_SIGNED_REQUEST. ToBeSigned is an encoded OCSP_REQUEST. */
typedef struct _OCSP_SIGNED_REQUEST_INFO {
  CRYPT_DER_BLOB ToBeSigned;
  POCSP_SIGNATURE_INFO pOptionalSignatureInfo; /**< NULL when the request is not signed */
} OCSP_SIGNED_REQUEST_INFO, *POCSP_SIGNED_REQUEST_INFO;
CERTKERN_RECORD_SIZE(OCSP_SIGNED_REQUEST_INFO, 24);

/** Values of OCSP_RESPONSE_INFO.dwStatus. There is no 4. RFC 6960, 4.2.1. */
#define OCSP_SUCCESSFUL_RESPONSE 0
#define OCSP_MALFORMED_REQUEST_RESPONSE 1
#define OCSP_INTERNAL_ERROR_RESPONSE 2
#define OCSP_TRY_LATER_RESPONSE 3
#define OCSP_SIG_REQUIRED_RESPONSE 5
#define OCSP_UNAUTHORIZED_RESPONSE 6

/** OCSPResponse; goes with OCSP_RESPONSE. The only type that can be written is szOID_PKIX_OCSP_BASIC_SIGNED_RESPONSE,
 *  whose Value is an encoded OCSP_BASIC_SIGNED_RESPONSE. */
typedef struct _OCSP_RESPONSE_INFO {
  DWORD dwStatus;
  LPSTR pszObjId;         /**< NULL when there is no response behind the status */
  CRYPT_OBJID_BLOB Value; /**< empty then */
} OCSP_RESPONSE_INFO, *POCSP_RESPONSE_INFO;
CERTKERN_RECORD_SIZE(OCSP_RESPONSE_INFO, 32);

/** BasicOCSPResponse; goes with OCSP_BASIC_SIGNED_RESPONSE. ToBeSigned is an encoded OCSP_BASIC_RESPONSE. */
typedef struct _OCSP_BASIC_SIGNED_RESPONSE_INFO {
  CRYPT_DER_BLOB ToBeSigned;
  OCSP_SIGNATURE_INFO SignatureInfo;
} OCSP_BASIC_SIGNED_RESPONSE_INFO, *POCSP_BASIC_SIGNED_RESPONSE_INFO;
CERTKERN_RECORD_SIZE(OCSP_BASIC_SIGNED_RESPONSE_INFO, 80);

/** When and why a certificate was revoked. */
typedef struct _OCSP_BASIC_REVOKED_INFO {
  FILETIME RevocationDate;
  DWORD dwCrlReasonCode; /**< CRL_REASON_UNSPECIFIED when the responder names none */
} OCSP_BASIC_REVOKED_INFO, *POCSP_BASIC_REVOKED_INFO;
CERTKERN_RECORD_SIZE(OCSP_BASIC_REVOKED_INFO, 12);

/** Values of OCSP_BASIC_RESPONSE_ENTRY.dwCertStatus. */
#define OCSP_BASIC_GOOD_CERT_STATUS 0
#define OCSP_BASIC_REVOKED_CERT_STATUS 1
#define OCSP_BASIC_UNKNOWN_CERT_STATUS 2

/** SingleResponse: the answer for one certificate. */
typedef struct _OCSP_BASIC_RESPONSE_ENTRY {
  OCSP_CERT_ID CertId;
  DWORD dwCertStatus;
  union {
    POCSP_BASIC_REVOKED_INFO pRevokedInfo; /**< with OCSP_BASIC_REVOKED_CERT_STATUS, else NULL */
  };
  FILETIME ThisUpdate;
  FILETIME NextUpdate; /**< all zero when absent */
  DWORD cExtension;
  PCERT_EXTENSION rgExtension;
} OCSP_BASIC_RESPONSE_ENTRY, *POCSP_BASIC_RESPONSE_ENTRY;
CERTKERN_RECORD_SIZE(OCSP_BASIC_RESPONSE_ENTRY, 120);

/** Values of OCSP_BASIC_RESPONSE_INFO.dwResponderIdChoice. */
#define OCSP_BASIC_BY_NAME_RESPONDER_ID 1
#define OCSP_BASIC_BY_KEY_RESPONDER_ID 2 /**< SHA-1 of the responder's public key bits */

/** ResponseData; goes with OCSP_BASIC_RESPONSE. RFC 6960, 4.2.1. */
typedef struct _OCSP_BASIC_RESPONSE_INFO {
  DWORD dwVersion;
  DWORD dwResponderIdChoice;
  union {
    CERT_NAME_BLOB ByNameResponderId; /**< a whole encoded Name */
    CRYPT_HASH_BLOB ByKeyResponderId;
  };
  FILETIME ProducedAt;
  DWORD cResponseEntry;
  POCSP_BASIC_RESPONSE_ENTRY rgResponseEntry;
  DWORD cExtension;
  PCERT_EXTENSION rgExtension;
} OCSP_BASIC_RESPONSE_INFO, *POCSP_BASIC_RESPONSE_INFO;
CERTKERN_RECORD_SIZE(OCSP_BASIC_RESPONSE_INFO, 64);

CERTKERN_EXTERN_C_END
#endif
