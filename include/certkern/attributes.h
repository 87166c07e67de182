/** Records of signature attributes and of the extensions around GOST keys and qualified certificates.
 *
 *  Their codecs are in the extension library, which is bound on first use: where it is missing, encoding and decoding
 *  these types fails and everything else goes on. The structure types are opaque texts, compared as a whole and as
 *  spelled. A decoded record lies in one buffer, as all records of <certkern/encode.h> do. */
#ifndef CERTKERN_ATTRIBUTES_H
#define CERTKERN_ATTRIBUTES_H

#include <certkern/encode.h>

CERTKERN_EXTERN_C_BEGIN

/** Structure types beside those of <certkern/encode.h>. */
#define SV_SIGNING_CERTIFICATE_STRUCT \
  "{272ED084-4C55-42A9-AD88-A1502D9ED755}" /**< SV_SIGNING_CERTIFICATE, the RFC 2634 form: SHA-1 only */
#define SV_SIGNING_CERTIFICATE_V2_STRUCT \
  "{42AB327A-BE56-4899-9B81-1BF2F3C5E154}" /**< SV_SIGNING_CERTIFICATE, the RFC 5035 form */
#define SV_OTHER_SIGNING_CERTIFICATE_STRUCT \
  "{410F6306-0ADE-4485-80CC-462DEB3AD109}" /**< SV_SIGNING_CERTIFICATE, the RFC 5126 form */
#define SV_PRIVATE_KEY_USAGE_PERIOD_STRUCT \
  "{E36FC6F5-4880-4CB7-BA51-1FCD92CA1453}" /**< SV_PRIVATE_KEY_USAGE_PERIOD */

/** Issuer and serial number of a certificate. RFC 2634, 5.4.1. */
typedef struct _SV_ISSUER_SERIAL {
  CERT_NAME_BLOB Issuer; /**< a whole encoded Name; written as the one directoryName of GeneralNames */
  CRYPT_INTEGER_BLOB SerialNumber;
} SV_ISSUER_SERIAL, *PSV_ISSUER_SERIAL;
CERTKERN_RECORD_SIZE(SV_ISSUER_SERIAL, 32);

/** A certificate named by its hash. RFC 5035. */
typedef struct _SV_CERT_HASH_ID {
  CRYPT_ALGORITHM_IDENTIFIER
  HashAlgorithm;                   /**< NULL identifier: the default of the form, also when decoded; empty
                                                 Parameters are absent, never NULL */
  CRYPT_HASH_BLOB CertHash;        /**< over the whole encoded certificate */
  PSV_ISSUER_SERIAL pIssuerSerial; /**< NULL when absent */
} SV_CERT_HASH_ID, *PSV_CERT_HASH_ID;
CERTKERN_RECORD_SIZE(SV_CERT_HASH_ID, 48);

/** The certificates that a signature is bound to; the signer's own comes first, so there is at least one. The default
 *  hash is SHA-1 in the forms of RFC 2634, which has no other, and RFC 5126, and SHA-256 in that of RFC 5035. Policies in
 *  the encoding are checked for their shape and not kept; none are written. */
typedef struct _SV_SIGNING_CERTIFICATE {
  DWORD cCert;
  PSV_CERT_HASH_ID rgCert;
} SV_SIGNING_CERTIFICATE, *PSV_SIGNING_CERTIFICATE;
CERTKERN_RECORD_SIZE(SV_SIGNING_CERTIFICATE, 16);

/** When a private key may be used; the certificate outlives it, so that signatures can still be verified. Either
 *  bound may be NULL, for "none"; both NULL say nothing. Whole seconds. RFC 3280, 4.2.1.4. Kept keys have it under
 *  szOID_GOST_CONTAINER_KEY_PERIOD_1 to _3, which are read only. */
typedef struct _SV_PRIVATE_KEY_USAGE_PERIOD {
  LPFILETIME pNotBefore;
  LPFILETIME pNotAfter;
} SV_PRIVATE_KEY_USAGE_PERIOD, *PSV_PRIVATE_KEY_USAGE_PERIOD;
CERTKERN_RECORD_SIZE(SV_PRIVATE_KEY_USAGE_PERIOD, 16);

/** What the issuer of a qualified certificate signs with, each a text of 1 to 200 (tools) or 100 (certificates of
 *  conformity) characters; goes with szOID_ISSUER_SIGN_TOOL. Issuers do not all keep to the sizes: they are checked when
 *  a record is written, not when it is read. */
typedef struct _SV_ISSUER_SIGN_TOOL {
  LPWSTR pwszSignTool;
  LPWSTR pwszCATool;
  LPWSTR pwszSignToolCert;
  LPWSTR pwszCAToolCert;
} SV_ISSUER_SIGN_TOOL, *PSV_ISSUER_SIGN_TOOL;
CERTKERN_RECORD_SIZE(SV_ISSUER_SIGN_TOOL, 32);

/** Certificates that are kept with a key in its container, each a whole encoded Certificate, none or more; goes with
 *  szOID_GOST_CONTAINER_STORE_1 to _3. The encoding is SEQUENCE OF Certificate. */
typedef struct _SV_PRIVATE_CERTIFICATE_STORE {
  DWORD cCertificate;
  PCERT_BLOB rgCertificate;
} SV_PRIVATE_CERTIFICATE_STORE, *PSV_PRIVATE_CERTIFICATE_STORE;
CERTKERN_RECORD_SIZE(SV_PRIVATE_CERTIFICATE_STORE, 16);

/* Two extensions of a key container are read into a plain DWORD, and never written: szOID_GOST_CONTAINER_DERIVE_COUNTER,
   how many keys were derived from the key, from an INTEGER, and szOID_GOST_CONTAINER_TIME_CONTROL, how the validity of
   the key is watched over, from an INTEGER or ENUMERATED. */

CERTKERN_EXTERN_C_END
#endif
