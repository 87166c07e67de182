/** Encoding and decoding: the published records, and the four entry points between them and DER.
 *
 *  A decoded record and everything that it points to lie in one buffer, which the caller gave or which the decoder
 *  took from the caller's allocator. It is freed with one call, never piece by piece, and never moved: the pointers
 *  inside are addresses into the same buffer. Records that go into an encoder are only read. */
#ifndef CERTKERN_ENCODE_H
#define CERTKERN_ENCODE_H

#include <certkern/errors.h>
#include <certkern/text.h>
#include <certkern/types.h>

CERTKERN_EXTERN_C_BEGIN

/** Encoding types; they may be combined. */
#define CRYPT_ASN_ENCODING 0x00000001u
#define X509_ASN_ENCODING 0x00000001u
#define PKCS_7_ASN_ENCODING 0x00010000u

/** Structure types: what lpszStructType may be beside an OID string. */
#define X509_CERT ((LPCSTR)1)                      /**< CERT_SIGNED_CONTENT_INFO */
#define X509_CERT_TO_BE_SIGNED ((LPCSTR)2)         /**< CERT_INFO */
#define X509_CERT_CRL_TO_BE_SIGNED ((LPCSTR)3)     /**< CRL_INFO */
#define X509_CERT_REQUEST_TO_BE_SIGNED ((LPCSTR)4) /**< CERT_REQUEST_INFO */
#define X509_EXTENSIONS ((LPCSTR)5)                /**< CERT_EXTENSIONS */
#define X509_NAME_VALUE ((LPCSTR)6)                /**< CERT_NAME_VALUE */
#define X509_ANY_STRING X509_NAME_VALUE
#define X509_NAME ((LPCSTR)7)                          /**< CERT_NAME_INFO */
#define X509_PUBLIC_KEY_INFO ((LPCSTR)8)               /**< CERT_PUBLIC_KEY_INFO */
#define X509_AUTHORITY_KEY_ID ((LPCSTR)9)              /**< CERT_AUTHORITY_KEY_ID_INFO */
#define X509_KEY_ATTRIBUTES ((LPCSTR)10)               /**< known, without a codec */
#define X509_ALTERNATE_NAME ((LPCSTR)12)               /**< CERT_ALT_NAME_INFO */
#define X509_KEY_USAGE ((LPCSTR)14)                    /**< CRYPT_BIT_BLOB */
#define X509_BASIC_CONSTRAINTS2 ((LPCSTR)15)           /**< CERT_BASIC_CONSTRAINTS2_INFO */
#define X509_CERT_POLICIES ((LPCSTR)16)                /**< CERT_POLICIES_INFO */
#define PKCS_UTC_TIME ((LPCSTR)17)                     /**< FILETIME */
#define RSA_CSP_PUBLICKEYBLOB ((LPCSTR)19)             /**< PUBLICKEYBLOB of RSA, as RSAPublicKey. RFC 8017 */
#define X509_UNICODE_NAME ((LPCSTR)20)                 /**< CERT_NAME_INFO with wide values */
#define PKCS_ATTRIBUTE ((LPCSTR)22)                    /**< CRYPT_ATTRIBUTE */
#define PKCS_CONTENT_INFO_SEQUENCE_OF_ANY ((LPCSTR)23) /**< CRYPT_CONTENT_INFO_SEQUENCE_OF_ANY */
#define X509_UNICODE_NAME_VALUE ((LPCSTR)24)           /**< CERT_NAME_VALUE with a wide value */
#define X509_UNICODE_ANY_STRING X509_UNICODE_NAME_VALUE
#define X509_OCTET_STRING ((LPCSTR)25)       /**< CRYPT_DATA_BLOB */
#define X509_BITS ((LPCSTR)26)               /**< CRYPT_BIT_BLOB */
#define X509_INTEGER ((LPCSTR)27)            /**< int */
#define X509_MULTI_BYTE_INTEGER ((LPCSTR)28) /**< CRYPT_INTEGER_BLOB */
#define X509_ENUMERATED ((LPCSTR)29)         /**< int */
#define X509_CRL_REASON_CODE X509_ENUMERATED
#define X509_CHOICE_OF_TIME ((LPCSTR)30)                   /**< FILETIME */
#define X509_AUTHORITY_KEY_ID2 ((LPCSTR)31)                /**< CERT_AUTHORITY_KEY_ID2_INFO */
#define X509_AUTHORITY_INFO_ACCESS ((LPCSTR)32)            /**< CERT_AUTHORITY_INFO_ACCESS */
#define X509_SEQUENCE_OF_ANY ((LPCSTR)34)                  /**< CRYPT_SEQUENCE_OF_ANY */
#define X509_CRL_DIST_POINTS ((LPCSTR)35)                  /**< CRL_DIST_POINTS_INFO */
#define X509_ENHANCED_KEY_USAGE ((LPCSTR)36)               /**< CERT_ENHKEY_USAGE */
#define X509_MULTI_BYTE_UINT ((LPCSTR)38)                  /**< CRYPT_UINT_BLOB */
#define PKCS_SMIME_CAPABILITIES ((LPCSTR)42)               /**< known, without a codec */
#define X509_PKIX_POLICY_QUALIFIER_USERNOTICE ((LPCSTR)46) /**< CERT_POLICY_QUALIFIER_USER_NOTICE */
#define X509_DH_PARAMETERS ((LPCSTR)47)                    /**< CERT_DH_PARAMETERS */
#define X509_ISSUING_DIST_POINT ((LPCSTR)54)               /**< CRL_ISSUING_DIST_POINT */
#define X509_POLICY_MAPPINGS ((LPCSTR)56)                  /**< CERT_POLICY_MAPPINGS_INFO */
#define X509_POLICY_CONSTRAINTS ((LPCSTR)57)               /**< CERT_POLICY_CONSTRAINTS_INFO, decoding only */
#define X509_CERTIFICATE_TEMPLATE ((LPCSTR)64)             /**< CERT_TEMPLATE_EXT */
#define OCSP_SIGNED_REQUEST ((LPCSTR)65)                   /**< OCSP_SIGNED_REQUEST_INFO */
#define OCSP_REQUEST ((LPCSTR)66)                          /**< OCSP_REQUEST_INFO */
#define OCSP_RESPONSE ((LPCSTR)67)                         /**< OCSP_RESPONSE_INFO */
#define OCSP_BASIC_SIGNED_RESPONSE ((LPCSTR)68)            /**< OCSP_BASIC_SIGNED_RESPONSE_INFO */
#define OCSP_BASIC_RESPONSE ((LPCSTR)69)                   /**< OCSP_BASIC_RESPONSE_INFO */
#define X509_OBJECT_IDENTIFIER ((LPCSTR)73)                /**< LPSTR, dotted decimal */
#define X509_ALGORITHM_IDENTIFIER ((LPCSTR)74)             /**< CRYPT_ALGORITHM_IDENTIFIER */
#define PKCS7_SIGNER_INFO ((LPCSTR)500)                    /**< CMSG_SIGNER_INFO */
#define CMS_SIGNER_INFO ((LPCSTR)501)                      /**< CMSG_CMS_SIGNER_INFO */

/** An algorithm and its parameters. Parameters holds the whole encoded element; empty means "by the table": absent
 *  or NULL, whichever the algorithm wants. RFC 5280, 4.1.1.2. */
typedef struct _CRYPT_ALGORITHM_IDENTIFIER {
  LPSTR pszObjId;
  CRYPT_OBJID_BLOB Parameters;
} CRYPT_ALGORITHM_IDENTIFIER, *PCRYPT_ALGORITHM_IDENTIFIER;
CERTKERN_RECORD_SIZE(CRYPT_ALGORITHM_IDENTIFIER, 24);

/** SubjectPublicKeyInfo. RFC 5280, 4.1.2.7. */
typedef struct _CERT_PUBLIC_KEY_INFO {
  CRYPT_ALGORITHM_IDENTIFIER Algorithm;
  CRYPT_BIT_BLOB PublicKey;
} CERT_PUBLIC_KEY_INFO, *PCERT_PUBLIC_KEY_INFO;
CERTKERN_RECORD_SIZE(CERT_PUBLIC_KEY_INFO, 48);

/** One extension; Value is the content of its OCTET STRING. RFC 5280, 4.2. */
typedef struct _CERT_EXTENSION {
  LPSTR pszObjId;
  BOOL fCritical;
  CRYPT_OBJID_BLOB Value;
} CERT_EXTENSION, *PCERT_EXTENSION;
typedef const CERT_EXTENSION* PCCERT_EXTENSION;
CERTKERN_RECORD_SIZE(CERT_EXTENSION, 32);

/** X509_EXTENSIONS: the extensions of a certificate, a list or a request. */
typedef struct _CERT_EXTENSIONS {
  DWORD cExtension;
  PCERT_EXTENSION rgExtension;
} CERT_EXTENSIONS, *PCERT_EXTENSIONS;
CERTKERN_RECORD_SIZE(CERT_EXTENSIONS, 16);

/** Values of CERT_INFO.dwVersion. */
#define CERT_V1 0
#define CERT_V2 1
#define CERT_V3 2

/** TBSCertificate. Issuer and Subject are whole encoded Names; the serial number is little-endian. RFC 5280, 4.1. */
typedef struct _CERT_INFO {
  DWORD dwVersion;
  CRYPT_INTEGER_BLOB SerialNumber;
  CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
  CERT_NAME_BLOB Issuer;
  FILETIME NotBefore;
  FILETIME NotAfter;
  CERT_NAME_BLOB Subject;
  CERT_PUBLIC_KEY_INFO SubjectPublicKeyInfo;
  CRYPT_BIT_BLOB IssuerUniqueId;
  CRYPT_BIT_BLOB SubjectUniqueId;
  DWORD cExtension;
  PCERT_EXTENSION rgExtension;
} CERT_INFO, *PCERT_INFO;
CERTKERN_RECORD_SIZE(CERT_INFO, 208);

/** One revoked certificate. The bytes of a plain reason-code extension may be constants of the library: never write
 *  to them. RFC 5280, 5.1.2.6. */
typedef struct _CRL_ENTRY {
  CRYPT_INTEGER_BLOB SerialNumber;
  FILETIME RevocationDate;
  DWORD cExtension;
  PCERT_EXTENSION rgExtension;
} CRL_ENTRY, *PCRL_ENTRY;
CERTKERN_RECORD_SIZE(CRL_ENTRY, 40);

/** TBSCertList. NextUpdate is all zero when absent. RFC 5280, 5.1. */
typedef struct _CRL_INFO {
  DWORD dwVersion;
  CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
  CERT_NAME_BLOB Issuer;
  FILETIME ThisUpdate;
  FILETIME NextUpdate;
  DWORD cCRLEntry;
  PCRL_ENTRY rgCRLEntry;
  DWORD cExtension;
  PCERT_EXTENSION rgExtension;
} CRL_INFO, *PCRL_INFO;
CERTKERN_RECORD_SIZE(CRL_INFO, 96);

/** An attribute with its values, each a whole encoded element. */
typedef struct _CRYPT_ATTRIBUTE {
  LPSTR pszObjId;
  DWORD cValue;
  PCRYPT_ATTR_BLOB rgValue;
} CRYPT_ATTRIBUTE, *PCRYPT_ATTRIBUTE;
CERTKERN_RECORD_SIZE(CRYPT_ATTRIBUTE, 24);

/** Attributes of a signer or an envelope. RFC 5652, 5.3. */
typedef struct _CRYPT_ATTRIBUTES {
  DWORD cAttr;
  PCRYPT_ATTRIBUTE rgAttr;
} CRYPT_ATTRIBUTES, *PCRYPT_ATTRIBUTES;
CERTKERN_RECORD_SIZE(CRYPT_ATTRIBUTES, 16);

/** CERT_REQUEST_INFO.dwVersion. */
#define CERT_REQUEST_V1 0

/** CertificationRequestInfo. RFC 2986, 4.1. */
typedef struct _CERT_REQUEST_INFO {
  DWORD dwVersion;
  CERT_NAME_BLOB Subject;
  CERT_PUBLIC_KEY_INFO SubjectPublicKeyInfo;
  DWORD cAttribute;
  PCRYPT_ATTRIBUTE rgAttribute;
} CERT_REQUEST_INFO, *PCERT_REQUEST_INFO;
CERTKERN_RECORD_SIZE(CERT_REQUEST_INFO, 88);

/** What every signed object looks like from outside: the bytes that are signed, header included, the algorithm, and
 *  the signature in stream order. */
typedef struct _CERT_SIGNED_CONTENT_INFO {
  CRYPT_DER_BLOB ToBeSigned;
  CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
  CRYPT_BIT_BLOB Signature;
} CERT_SIGNED_CONTENT_INFO, *PCERT_SIGNED_CONTENT_INFO;
CERTKERN_RECORD_SIZE(CERT_SIGNED_CONTENT_INFO, 64);

/** Values of dwValueType: how the value of a name attribute is written. */
#define CERT_RDN_ANY_TYPE 0
#define CERT_RDN_ENCODED_BLOB 1
#define CERT_RDN_OCTET_STRING 2
#define CERT_RDN_NUMERIC_STRING 3
#define CERT_RDN_PRINTABLE_STRING 4
#define CERT_RDN_TELETEX_STRING 5
#define CERT_RDN_T61_STRING 5
#define CERT_RDN_VIDEOTEX_STRING 6
#define CERT_RDN_IA5_STRING 7
#define CERT_RDN_GRAPHIC_STRING 8
#define CERT_RDN_VISIBLE_STRING 9
#define CERT_RDN_ISO646_STRING 9
#define CERT_RDN_GENERAL_STRING 10
#define CERT_RDN_UNIVERSAL_STRING 11
#define CERT_RDN_INT4_STRING 11
#define CERT_RDN_BMP_STRING 12
#define CERT_RDN_UNICODE_STRING 12
#define CERT_RDN_UTF8_STRING 13
#define CERT_RDN_TYPE_MASK 0x000000FFu
#define CERT_RDN_FLAGS_MASK 0xFF000000u
#define CERT_RDN_DISABLE_CHECK_TYPE_FLAG \
  0x40000000u /**< write the characters without asking if the type has them */

/** A string with its type. Value.cbData is in bytes: four to a character for the wide types. */
typedef struct _CERT_NAME_VALUE {
  DWORD dwValueType;
  CERT_RDN_VALUE_BLOB Value;
} CERT_NAME_VALUE, *PCERT_NAME_VALUE;
CERTKERN_RECORD_SIZE(CERT_NAME_VALUE, 24);

/** One attribute of a name. */
typedef struct _CERT_RDN_ATTR {
  LPSTR pszObjId;
  DWORD dwValueType;
  CERT_RDN_VALUE_BLOB Value;
} CERT_RDN_ATTR, *PCERT_RDN_ATTR;
CERTKERN_RECORD_SIZE(CERT_RDN_ATTR, 32);

/** A relative name: attributes that belong together, in stream order. */
typedef struct _CERT_RDN {
  DWORD cRDNAttr;
  PCERT_RDN_ATTR rgRDNAttr;
} CERT_RDN, *PCERT_RDN;
CERTKERN_RECORD_SIZE(CERT_RDN, 16);

/** A distinguished name, its relative names in stream order. RFC 5280, 4.1.2.4. */
typedef struct _CERT_NAME_INFO {
  DWORD cRDN;
  PCERT_RDN rgRDN;
} CERT_NAME_INFO, *PCERT_NAME_INFO;
CERTKERN_RECORD_SIZE(CERT_NAME_INFO, 16);

/** The key identifier of the old extension szOID_AUTHORITY_KEY_IDENTIFIER; empty fields are absent. */
typedef struct _CERT_AUTHORITY_KEY_ID_INFO {
  CRYPT_DATA_BLOB KeyId;
  CERT_NAME_BLOB CertIssuer;
  CRYPT_INTEGER_BLOB CertSerialNumber;
} CERT_AUTHORITY_KEY_ID_INFO, *PCERT_AUTHORITY_KEY_ID_INFO;
CERTKERN_RECORD_SIZE(CERT_AUTHORITY_KEY_ID_INFO, 48);

/** otherName of a general name; Value is a whole encoded element. */
typedef struct _CERT_OTHER_NAME {
  LPSTR pszObjId;
  CRYPT_OBJID_BLOB Value;
} CERT_OTHER_NAME, *PCERT_OTHER_NAME;
CERTKERN_RECORD_SIZE(CERT_OTHER_NAME, 24);

/** Values of dwAltNameChoice: the context tag of RFC 5280, 4.2.1.6, plus one. */
#define CERT_ALT_NAME_OTHER_NAME 1
#define CERT_ALT_NAME_RFC822_NAME 2
#define CERT_ALT_NAME_DNS_NAME 3
#define CERT_ALT_NAME_X400_ADDRESS 4
#define CERT_ALT_NAME_DIRECTORY_NAME 5
#define CERT_ALT_NAME_EDI_PARTY_NAME 6
#define CERT_ALT_NAME_URL 7
#define CERT_ALT_NAME_IP_ADDRESS 8
#define CERT_ALT_NAME_REGISTERED_ID 9

/** A general name. Text is wide and NUL-terminated; an address is 4 or 16 bytes in network order. */
typedef struct _CERT_ALT_NAME_ENTRY {
  DWORD dwAltNameChoice;
  union {
    PCERT_OTHER_NAME pOtherName;
    LPWSTR pwszRfc822Name;
    LPWSTR pwszDNSName;
    CERT_NAME_BLOB DirectoryName;
    LPWSTR pwszURL;
    CRYPT_DATA_BLOB IPAddress;
    LPSTR pszRegisteredID;
  };
} CERT_ALT_NAME_ENTRY, *PCERT_ALT_NAME_ENTRY;
CERTKERN_RECORD_SIZE(CERT_ALT_NAME_ENTRY, 24);

/** General names. RFC 5280, 4.2.1.6. */
typedef struct _CERT_ALT_NAME_INFO {
  DWORD cAltEntry;
  PCERT_ALT_NAME_ENTRY rgAltEntry;
} CERT_ALT_NAME_INFO, *PCERT_ALT_NAME_INFO;
CERTKERN_RECORD_SIZE(CERT_ALT_NAME_INFO, 16);

/** RFC 5280, 4.2.1.9. */
typedef struct _CERT_BASIC_CONSTRAINTS2_INFO {
  BOOL fCA;
  BOOL fPathLenConstraint;
  DWORD dwPathLenConstraint;
} CERT_BASIC_CONSTRAINTS2_INFO, *PCERT_BASIC_CONSTRAINTS2_INFO;
CERTKERN_RECORD_SIZE(CERT_BASIC_CONSTRAINTS2_INFO, 12);

/** A qualifier of a policy; Qualifier is a whole encoded element. */
typedef struct _CERT_POLICY_QUALIFIER_INFO {
  LPSTR pszPolicyQualifierId;
  CRYPT_OBJID_BLOB Qualifier;
} CERT_POLICY_QUALIFIER_INFO, *PCERT_POLICY_QUALIFIER_INFO;
CERTKERN_RECORD_SIZE(CERT_POLICY_QUALIFIER_INFO, 24);

/** A policy with its qualifiers. */
typedef struct _CERT_POLICY_INFO {
  LPSTR pszPolicyIdentifier;
  DWORD cPolicyQualifier;
  CERT_POLICY_QUALIFIER_INFO* rgPolicyQualifier;
} CERT_POLICY_INFO, *PCERT_POLICY_INFO;
CERTKERN_RECORD_SIZE(CERT_POLICY_INFO, 24);

/** RFC 5280, 4.2.1.4. */
typedef struct _CERT_POLICIES_INFO {
  DWORD cPolicyInfo;
  CERT_POLICY_INFO* rgPolicyInfo;
} CERT_POLICIES_INFO, *PCERT_POLICIES_INFO;
CERTKERN_RECORD_SIZE(CERT_POLICIES_INFO, 16);

/** Where a notice is printed. Known by shape only. */
typedef struct _CERT_POLICY_QUALIFIER_NOTICE_REFERENCE {
  LPSTR pszOrganization;
  DWORD cNoticeNumbers;
  int* rgNoticeNumbers;
} CERT_POLICY_QUALIFIER_NOTICE_REFERENCE, *PCERT_POLICY_QUALIFIER_NOTICE_REFERENCE;
CERTKERN_RECORD_SIZE(CERT_POLICY_QUALIFIER_NOTICE_REFERENCE, 24);

/** A notice to the user. A notice reference is neither written nor read. */
typedef struct _CERT_POLICY_QUALIFIER_USER_NOTICE {
  CERT_POLICY_QUALIFIER_NOTICE_REFERENCE* pNoticeReference;
  LPWSTR pszDisplayText;
} CERT_POLICY_QUALIFIER_USER_NOTICE, *PCERT_POLICY_QUALIFIER_USER_NOTICE;
CERTKERN_RECORD_SIZE(CERT_POLICY_QUALIFIER_USER_NOTICE, 16);

/** A content type and a sequence of whole encoded elements behind [0]. */
typedef struct _CRYPT_CONTENT_INFO_SEQUENCE_OF_ANY {
  LPSTR pszObjId;
  DWORD cValue;
  PCRYPT_DER_BLOB rgValue;
} CRYPT_CONTENT_INFO_SEQUENCE_OF_ANY, *PCRYPT_CONTENT_INFO_SEQUENCE_OF_ANY;
CERTKERN_RECORD_SIZE(CRYPT_CONTENT_INFO_SEQUENCE_OF_ANY, 24);

/** RFC 5280, 4.2.1.1; empty fields are absent. */
typedef struct _CERT_AUTHORITY_KEY_ID2_INFO {
  CRYPT_DATA_BLOB KeyId;
  CERT_ALT_NAME_INFO AuthorityCertIssuer;
  CRYPT_INTEGER_BLOB AuthorityCertSerialNumber;
} CERT_AUTHORITY_KEY_ID2_INFO, *PCERT_AUTHORITY_KEY_ID2_INFO;
CERTKERN_RECORD_SIZE(CERT_AUTHORITY_KEY_ID2_INFO, 48);

/** How, and where, to get something. */
typedef struct _CERT_ACCESS_DESCRIPTION {
  LPSTR pszAccessMethod;
  CERT_ALT_NAME_ENTRY AccessLocation;
} CERT_ACCESS_DESCRIPTION, *PCERT_ACCESS_DESCRIPTION;
CERTKERN_RECORD_SIZE(CERT_ACCESS_DESCRIPTION, 32);

/** RFC 5280, 4.2.2.1 and 4.2.2.2. */
typedef struct _CERT_AUTHORITY_INFO_ACCESS {
  DWORD cAccDescr;
  PCERT_ACCESS_DESCRIPTION rgAccDescr;
} CERT_AUTHORITY_INFO_ACCESS, *PCERT_AUTHORITY_INFO_ACCESS, CERT_SUBJECT_INFO_ACCESS,
    *PCERT_SUBJECT_INFO_ACCESS;
CERTKERN_RECORD_SIZE(CERT_AUTHORITY_INFO_ACCESS, 16);

/** A sequence of whole encoded elements. */
typedef struct _CRYPT_SEQUENCE_OF_ANY {
  DWORD cValue;
  PCRYPT_DER_BLOB rgValue;
} CRYPT_SEQUENCE_OF_ANY, *PCRYPT_SEQUENCE_OF_ANY;
CERTKERN_RECORD_SIZE(CRYPT_SEQUENCE_OF_ANY, 16);

/** Values of dwDistPointNameChoice. */
#define CRL_DIST_POINT_NO_NAME 0
#define CRL_DIST_POINT_FULL_NAME 1
#define CRL_DIST_POINT_ISSUER_RDN_NAME 2 /**< neither written nor read */

typedef struct _CRL_DIST_POINT_NAME {
  DWORD dwDistPointNameChoice;
  union {
    CERT_ALT_NAME_INFO FullName;
  };
} CRL_DIST_POINT_NAME, *PCRL_DIST_POINT_NAME;
CERTKERN_RECORD_SIZE(CRL_DIST_POINT_NAME, 24);

/** One distribution point; empty fields are absent. */
typedef struct _CRL_DIST_POINT {
  CRL_DIST_POINT_NAME DistPointName;
  CRYPT_BIT_BLOB ReasonFlags;
  CERT_ALT_NAME_INFO CRLIssuer;
} CRL_DIST_POINT, *PCRL_DIST_POINT;
CERTKERN_RECORD_SIZE(CRL_DIST_POINT, 64);

/** RFC 5280, 4.2.1.13. */
typedef struct _CRL_DIST_POINTS_INFO {
  DWORD cDistPoint;
  PCRL_DIST_POINT rgDistPoint;
} CRL_DIST_POINTS_INFO, *PCRL_DIST_POINTS_INFO;
CERTKERN_RECORD_SIZE(CRL_DIST_POINTS_INFO, 16);

/** Reasons of a distribution point, first byte. RFC 5280, 4.2.1.13. */
#define CRL_REASON_UNUSED_FLAG 0x80
#define CRL_REASON_KEY_COMPROMISE_FLAG 0x40
#define CRL_REASON_CA_COMPROMISE_FLAG 0x20
#define CRL_REASON_AFFILIATION_CHANGED_FLAG 0x10
#define CRL_REASON_SUPERSEDED_FLAG 0x08
#define CRL_REASON_CESSATION_OF_OPERATION_FLAG 0x04
#define CRL_REASON_CERTIFICATE_HOLD_FLAG 0x02

/** Reason codes of a revocation entry. RFC 5280, 5.3.1. */
#define CRL_REASON_UNSPECIFIED 0
#define CRL_REASON_KEY_COMPROMISE 1
#define CRL_REASON_CA_COMPROMISE 2
#define CRL_REASON_AFFILIATION_CHANGED 3
#define CRL_REASON_SUPERSEDED 4
#define CRL_REASON_CESSATION_OF_OPERATION 5
#define CRL_REASON_CERTIFICATE_HOLD 6
#define CRL_REASON_REMOVE_FROM_CRL 8
#define CRL_REASON_PRIVILEGE_WITHDRAWN 9
#define CRL_REASON_AA_COMPROMISE 10

/** Key purposes, dotted decimal each. RFC 5280, 4.2.1.12. */
typedef struct _CTL_USAGE {
  DWORD cUsageIdentifier;
  LPSTR* rgpszUsageIdentifier;
} CTL_USAGE, *PCTL_USAGE, CERT_ENHKEY_USAGE, *PCERT_ENHKEY_USAGE;
typedef const CTL_USAGE* PCCTL_USAGE;
typedef const CERT_ENHKEY_USAGE* PCCERT_ENHKEY_USAGE;
CERTKERN_RECORD_SIZE(CERT_ENHKEY_USAGE, 16);

/** Prime and generator, both little-endian. */
typedef struct _CERT_DH_PARAMETERS {
  CRYPT_UINT_BLOB p;
  CRYPT_UINT_BLOB g;
} CERT_DH_PARAMETERS, *PCERT_DH_PARAMETERS;
CERTKERN_RECORD_SIZE(CERT_DH_PARAMETERS, 32);

/** RFC 5280, 5.2.5. */
typedef struct _CRL_ISSUING_DIST_POINT {
  CRL_DIST_POINT_NAME DistPointName;
  BOOL fOnlyContainsUserCerts;
  BOOL fOnlyContainsCACerts;
  CRYPT_BIT_BLOB OnlySomeReasonFlags;
  BOOL fIndirectCRL;
} CRL_ISSUING_DIST_POINT, *PCRL_ISSUING_DIST_POINT;
CERTKERN_RECORD_SIZE(CRL_ISSUING_DIST_POINT, 64);
CERTKERN_FIELD_AT(CRL_ISSUING_DIST_POINT, fOnlyContainsUserCerts, 24);
CERTKERN_FIELD_AT(CRL_ISSUING_DIST_POINT, fOnlyContainsCACerts, 28);

/** Two policies that count as one. */
typedef struct _CERT_POLICY_MAPPING {
  LPSTR pszIssuerDomainPolicy;
  LPSTR pszSubjectDomainPolicy;
} CERT_POLICY_MAPPING, *PCERT_POLICY_MAPPING;
CERTKERN_RECORD_SIZE(CERT_POLICY_MAPPING, 16);

/** RFC 5280, 4.2.1.5. */
typedef struct _CERT_POLICY_MAPPINGS_INFO {
  DWORD cPolicyMapping;
  PCERT_POLICY_MAPPING rgPolicyMapping;
} CERT_POLICY_MAPPINGS_INFO, *PCERT_POLICY_MAPPINGS_INFO;
CERTKERN_RECORD_SIZE(CERT_POLICY_MAPPINGS_INFO, 16);

/** RFC 5280, 4.2.1.11. */
typedef struct _CERT_POLICY_CONSTRAINTS_INFO {
  BOOL fRequireExplicitPolicy;
  DWORD dwRequireExplicitPolicySkipCerts;
  BOOL fInhibitPolicyMapping;
  DWORD dwInhibitPolicyMappingSkipCerts;
} CERT_POLICY_CONSTRAINTS_INFO, *PCERT_POLICY_CONSTRAINTS_INFO;
CERTKERN_RECORD_SIZE(CERT_POLICY_CONSTRAINTS_INFO, 16);

/** The template that a certificate was issued by. */
typedef struct _CERT_TEMPLATE_EXT {
  LPSTR pszObjId;
  DWORD dwMajorVersion;
  BOOL fMinorVersion;
  DWORD dwMinorVersion;
} CERT_TEMPLATE_EXT, *PCERT_TEMPLATE_EXT;
CERTKERN_RECORD_SIZE(CERT_TEMPLATE_EXT, 24);

/** A name and its value in a request. */
typedef struct _CRYPT_ENROLLMENT_NAME_VALUE_PAIR {
  LPWSTR pwszName;
  LPWSTR pwszValue;
} CRYPT_ENROLLMENT_NAME_VALUE_PAIR, *PCRYPT_ENROLLMENT_NAME_VALUE_PAIR;
CERTKERN_RECORD_SIZE(CRYPT_ENROLLMENT_NAME_VALUE_PAIR, 16);

/** The provider that made a request's key. */
typedef struct _CRYPT_CSP_PROVIDER {
  DWORD dwKeySpec;
  LPWSTR pwszProviderName;
  CRYPT_BIT_BLOB Signature;
} CRYPT_CSP_PROVIDER, *PCRYPT_CSP_PROVIDER;
CERTKERN_RECORD_SIZE(CRYPT_CSP_PROVIDER, 40);

/** The caller's allocator. A field counts when cbSize reaches past it and it is not null. Both or neither. */
typedef LPVOID (*PFN_CRYPT_ALLOC)(size_t cbSize);
typedef void (*PFN_CRYPT_FREE)(LPVOID pv);

/** For CryptEncodeObjectEx. */
typedef struct _CRYPT_ENCODE_PARA {
  DWORD cbSize;
  PFN_CRYPT_ALLOC pfnAlloc;
  PFN_CRYPT_FREE pfnFree;
} CRYPT_ENCODE_PARA, *PCRYPT_ENCODE_PARA;
CERTKERN_RECORD_SIZE(CRYPT_ENCODE_PARA, 24);

/** For CryptDecodeObjectEx. */
typedef struct _CRYPT_DECODE_PARA {
  DWORD cbSize;
  PFN_CRYPT_ALLOC pfnAlloc;
  PFN_CRYPT_FREE pfnFree;
} CRYPT_DECODE_PARA, *PCRYPT_DECODE_PARA;
CERTKERN_RECORD_SIZE(CRYPT_DECODE_PARA, 24);

/** dwFlags of the Ex functions, and of CryptDecodeObject. Bits that are not named with the function are refused. */
#define CRYPT_ENCODE_ALLOC_FLAG 0x8000u
#define CRYPT_DECODE_NOCOPY_FLAG 0x1u       /**< accepted; everything is copied all the same */
#define CRYPT_DECODE_TO_BE_SIGNED_FLAG 0x2u /**< the input is the bare to-be-signed structure */
#define CRYPT_DECODE_SHARE_OID_STRING_FLAG 0x4u
#define CRYPT_DECODE_NO_SIGNATURE_BYTE_REVERSAL_FLAG 0x8u
#define CRYPT_DECODE_ALLOC_FLAG 0x8000u

/** Encodes a record as DER.
 *  @param dwCertEncodingType  handed to the extension library; not looked at otherwise
 *  @param lpszStructType      a structure type, or the OID of an extension or attribute
 *  @param pvStructInfo        the record; only read
 *  @param pbEncoded           receives the encoding; NULL asks for the size
 *  @param pcbEncoded          in: bytes at pbEncoded; out: bytes written, or on failure the size that is needed
 *  @return TRUE or FALSE; success sets the last error to 0, but for the types of OCSP, signers and algorithms, which leave it
 *  @errors ERROR_MORE_DATA: too little room; CRYPT_E_BAD_ENCODE: an unknown type or a record that has no encoding;
 *          of the types of OCSP and algorithms also CRYPT_E_ASN1_BADARGS: a choice or a response type that does not exist,
 *          CRYPT_E_OID_FORMAT: no identifier, ERROR_NOT_ENOUGH_MEMORY, and ERROR_INVALID_PARAMETER: a null argument;
 *          E_INVALIDARG, CRYPT_E_NOT_CHAR_STRING, CRYPT_E_INVALID_IA5_STRING, CRYPT_E_INVALID_NUMERIC_STRING,
 *          CRYPT_E_INVALID_PRINTABLE_STRING, CRYPT_E_ASN1_CHOICE: a name value that its type cannot hold */
CERTKERN_API BOOL CryptEncodeObject(DWORD dwCertEncodingType, LPCSTR lpszStructType, const void* pvStructInfo,
                                    BYTE* pbEncoded, DWORD* pcbEncoded);

/** As CryptEncodeObject; with CRYPT_ENCODE_ALLOC_FLAG the buffer comes from the caller's allocator.
 *  @param dwFlags      0 or CRYPT_ENCODE_ALLOC_FLAG
 *  @param pEncodePara  the allocator; NULL or neither function set: LocalAlloc, LocalFree
 *  @param pvEncoded    with the flag: address of a pointer that receives the buffer, which the caller frees
 *  @param pcbEncoded   receives the size; may be NULL with the flag
 *  @errors ERROR_INVALID_PARAMETER: other flags, half an allocator; ERROR_NOT_ENOUGH_MEMORY */
CERTKERN_API BOOL CryptEncodeObjectEx(DWORD dwCertEncodingType, LPCSTR lpszStructType,
                                      const void* pvStructInfo, DWORD dwFlags, PCRYPT_ENCODE_PARA pEncodePara,
                                      void* pvEncoded, DWORD* pcbEncoded);

/** Decodes BER into a record. The input need not outlive the call.
 *  @param dwCertEncodingType  must have X509_ASN_ENCODING or PKCS_7_ASN_ENCODING
 *  @param lpszStructType      a structure type, or the OID of an extension or attribute
 *  @param dwFlags             0, CRYPT_DECODE_NOCOPY_FLAG, CRYPT_DECODE_TO_BE_SIGNED_FLAG
 *  @param pvStructInfo        receives the record, at a multiple of 8; NULL asks for the size
 *  @param pcbStructInfo       in: bytes at pvStructInfo; out: the size that is needed, in every case
 *  @return TRUE or FALSE; too little room is FALSE without a code of its own (the generated types set ERROR_MORE_DATA)
 *  @errors ERROR_INVALID_PARAMETER: a null argument, no input, an unknown type or flag; CRYPT_E_ASN1_EOD,
 *          CRYPT_E_ASN1_BADTAG: malformed input; CRYPT_E_ASN1_ERROR: malformed in another way, when the last error
 *          was 0 before the call. The generated types (OCSP, signers, attributes) do not look at flags, and have
 *          CRYPT_E_BAD_ENCODE for all malformed input, ERROR_NOT_ENOUGH_MEMORY, and ERROR_MORE_DATA. In them values of
 *          attributes and extensions need not be what their identifiers say: they come as bytes */
CERTKERN_API BOOL CryptDecodeObject(DWORD dwCertEncodingType, LPCSTR lpszStructType, const BYTE* pbEncoded,
                                    DWORD cbEncoded, DWORD dwFlags, void* pvStructInfo, DWORD* pcbStructInfo);

/** As CryptDecodeObject; with CRYPT_DECODE_ALLOC_FLAG the buffer comes from the caller's allocator.
 *  @param pDecodePara    the allocator; NULL or neither function set: LocalAlloc, LocalFree
 *  @param pvStructInfo   with the flag: address of a pointer that receives the buffer, which the caller frees
 *  @param pcbStructInfo  receives the size; may be NULL with the flag
 *  @errors ERROR_INVALID_PARAMETER: half an allocator; ERROR_NOT_ENOUGH_MEMORY */
CERTKERN_API BOOL CryptDecodeObjectEx(DWORD dwCertEncodingType, LPCSTR lpszStructType, const BYTE* pbEncoded,
                                      DWORD cbEncoded, DWORD dwFlags, PCRYPT_DECODE_PARA pDecodePara,
                                      void* pvStructInfo, DWORD* pcbStructInfo);

/** Flags of LocalAlloc. */
#define LMEM_FIXED 0x0u
#define LMEM_MOVEABLE 0x2u
#define LMEM_ZEROINIT 0x40u
#define LPTR (LMEM_FIXED | LMEM_ZEROINIT)

/** Takes memory that LocalFree gives back.
 *  @param uFlags  LMEM_ZEROINIT fills with zeros; LMEM_MOVEABLE is not served
 *  @return the memory, NULL when there is none or for LMEM_MOVEABLE */
CERTKERN_API HLOCAL LocalAlloc(UINT uFlags, SIZE_T uBytes);
/** Gives back what LocalAlloc gave; NULL is allowed. @return always NULL */
CERTKERN_API HLOCAL LocalFree(HLOCAL hMem);

CERTKERN_EXTERN_C_END
#endif
