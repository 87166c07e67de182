/** Object identifiers as text: dotted decimal, NUL-terminated, for every function that takes a pszObjId.
 *
 *  Where a name is published it stands as published; the GOST and Russian names follow the same style. What the key
 *  level knows about an identifier (names, algorithms, flags) is asked with CryptFindOIDInfo. */
#ifndef CERTKERN_OIDS_H
#define CERTKERN_OIDS_H

/* --- X.509 extensions. RFC 5280, 4.2 and 5.2. --- */
#define szOID_AUTHORITY_KEY_IDENTIFIER "2.5.29.1" /**< the old form, CERT_AUTHORITY_KEY_ID_INFO */
#define szOID_KEY_ATTRIBUTES "2.5.29.2"
#define szOID_CERT_POLICIES_95 "2.5.29.3"
#define szOID_KEY_USAGE_RESTRICTION "2.5.29.4"
#define szOID_LEGACY_POLICY_MAPPINGS "2.5.29.5"
#define szOID_SUBJECT_ALT_NAME "2.5.29.7" /**< the old form; szOID_SUBJECT_ALT_NAME2 is what is in use */
#define szOID_ISSUER_ALT_NAME "2.5.29.8"  /**< the old form; szOID_ISSUER_ALT_NAME2 is what is in use */
#define szOID_SUBJECT_DIR_ATTRS "2.5.29.9"
#define szOID_BASIC_CONSTRAINTS "2.5.29.10" /**< the old form; szOID_BASIC_CONSTRAINTS2 is what is in use */
#define szOID_SUBJECT_KEY_IDENTIFIER "2.5.29.14"
#define szOID_KEY_USAGE "2.5.29.15"
#define szOID_PRIVATEKEY_USAGE_PERIOD "2.5.29.16" /**< RFC 3280, 4.2.1.4 */
#define szOID_SUBJECT_ALT_NAME2 "2.5.29.17"
#define szOID_ISSUER_ALT_NAME2 "2.5.29.18"
#define szOID_BASIC_CONSTRAINTS2 "2.5.29.19"
#define szOID_CRL_NUMBER "2.5.29.20"
#define szOID_CRL_REASON_CODE "2.5.29.21"
#define szOID_REASON_CODE_HOLD "2.5.29.23"
#define szOID_INVALIDITY_DATE "2.5.29.24"
#define szOID_DELTA_CRL_INDICATOR "2.5.29.27"
#define szOID_ISSUING_DIST_POINT "2.5.29.28"
#define szOID_CERTIFICATE_ISSUER "2.5.29.29"
#define szOID_NAME_CONSTRAINTS "2.5.29.30" /**< not looked at when a path is validated */
#define szOID_CRL_DIST_POINTS "2.5.29.31"
#define szOID_CERT_POLICIES "2.5.29.32"
#define szOID_ANY_CERT_POLICY "2.5.29.32.0"
#define szOID_POLICY_MAPPINGS "2.5.29.33" /**< not looked at when a path is validated */
#define szOID_AUTHORITY_KEY_IDENTIFIER2 "2.5.29.35"
#define szOID_POLICY_CONSTRAINTS "2.5.29.36"
#define szOID_ENHANCED_KEY_USAGE "2.5.29.37"
#define szOID_ANY_ENHANCED_KEY_USAGE "2.5.29.37.0" /**< has no special meaning here */
#define szOID_FRESHEST_CRL "2.5.29.46"
#define szOID_INHIBIT_ANY_POLICY "2.5.29.54" /**< not looked at when a path is validated */
#define szOID_AUTHORITY_INFO_ACCESS "1.3.6.1.5.5.7.1.1"
#define szOID_SUBJECT_INFO_ACCESS "1.3.6.1.5.5.7.1.11"

/* Policy qualifiers, RFC 5280, 4.2.1.4. */
#define szOID_PKIX_POLICY_QUALIFIER_CPS "1.3.6.1.5.5.7.2.1"
#define szOID_PKIX_POLICY_QUALIFIER_USERNOTICE "1.3.6.1.5.5.7.2.2"

/* Key purposes, RFC 5280, 4.2.1.12. */
#define szOID_PKIX_KP_SERVER_AUTH "1.3.6.1.5.5.7.3.1"
#define szOID_PKIX_KP_CLIENT_AUTH "1.3.6.1.5.5.7.3.2"
#define szOID_PKIX_KP_CODE_SIGNING "1.3.6.1.5.5.7.3.3"
#define szOID_PKIX_KP_EMAIL_PROTECTION "1.3.6.1.5.5.7.3.4"
#define szOID_PKIX_KP_TIMESTAMP_SIGNING "1.3.6.1.5.5.7.3.8"
#define szOID_PKIX_KP_OCSP_SIGNING "1.3.6.1.5.5.7.3.9"

/* Access methods, RFC 5280, 4.2.2.1, and response types, RFC 6960. */
#define szOID_PKIX_OCSP "1.3.6.1.5.5.7.48.1"
#define szOID_PKIX_OCSP_BASIC_SIGNED_RESPONSE "1.3.6.1.5.5.7.48.1.1"
#define szOID_PKIX_OCSP_NONCE "1.3.6.1.5.5.7.48.1.2"
#define szOID_PKIX_OCSP_NOCHECK "1.3.6.1.5.5.7.48.1.5"
#define szOID_PKIX_CA_ISSUERS "1.3.6.1.5.5.7.48.2"

/* Extensions and attributes of the enrolment arc. */
#define szOID_CERT_EXTENSIONS "1.3.6.1.4.1.311.2.1.14" /**< CERT_EXTENSIONS as an attribute of a request */
#define szOID_ENROLLMENT_NAME_VALUE_PAIR "1.3.6.1.4.1.311.13.2.1" /**< CRYPT_ENROLLMENT_NAME_VALUE_PAIR */
#define szOID_ENROLLMENT_CSP_PROVIDER "1.3.6.1.4.1.311.13.2.2"    /**< CRYPT_CSP_PROVIDER */
#define szOID_CERTSRV_CA_VERSION \
  "1.3.6.1.4.1.311.21.1" /**< its presence makes the key of the issuer count for a CRL */
#define szOID_CERTIFICATE_TEMPLATE "1.3.6.1.4.1.311.21.7"
#define szOID_APPLICATION_CERT_POLICIES "1.3.6.1.4.1.311.21.10"
#define szOID_APPLICATION_POLICY_MAPPINGS "1.3.6.1.4.1.311.21.11"
#define szOID_APPLICATION_POLICY_CONSTRAINTS "1.3.6.1.4.1.311.21.12"

/* --- Attributes of names. RFC 4519, RFC 5280 appendix A. --- */
#define szOID_COMMON_NAME "2.5.4.3"
#define szOID_SUR_NAME "2.5.4.4"
#define szOID_DEVICE_SERIAL_NUMBER "2.5.4.5"
#define szOID_COUNTRY_NAME "2.5.4.6"
#define szOID_LOCALITY_NAME "2.5.4.7"
#define szOID_STATE_OR_PROVINCE_NAME "2.5.4.8"
#define szOID_STREET_ADDRESS "2.5.4.9"
#define szOID_ORGANIZATION_NAME "2.5.4.10"
#define szOID_ORGANIZATIONAL_UNIT_NAME "2.5.4.11"
#define szOID_TITLE "2.5.4.12"
#define szOID_DESCRIPTION "2.5.4.13"
#define szOID_POSTAL_ADDRESS "2.5.4.16"
#define szOID_POSTAL_CODE "2.5.4.17"
#define szOID_X21_ADDRESS "2.5.4.24"
#define szOID_GIVEN_NAME "2.5.4.42"
#define szOID_INITIALS "2.5.4.43"
#define szOID_GENERATION_QUALIFIER "2.5.4.44"
#define szOID_DN_QUALIFIER "2.5.4.46"
#define szOID_PSEUDONYM "2.5.4.65"
#define szOID_DOMAIN_COMPONENT "0.9.2342.19200300.100.1.25"
#define szOID_RSA_emailAddr "1.2.840.113549.1.9.1"
#define szOID_RSA_unstructName "1.2.840.113549.1.9.2"

/* Registration numbers of Russian persons and organisations; NumericString each. */
#define szOID_OGRN "1.2.643.100.1"    /**< main state registration number, 13 digits */
#define szOID_SNILS "1.2.643.100.3"   /**< individual account number, 11 digits */
#define szOID_INNLE "1.2.643.100.4"   /**< taxpayer number of an organisation, 10 digits */
#define szOID_OGRNIP "1.2.643.100.5"  /**< registration number of an entrepreneur, 15 digits */
#define szOID_INN "1.2.643.3.131.1.1" /**< taxpayer number, 12 digits */

/* Qualified certificates in Russia: extensions, and policies that name the class of the signature tool. */
#define szOID_SUBJECT_SIGN_TOOL "1.2.643.100.111" /**< stays an opaque extension */
#define szOID_ISSUER_SIGN_TOOL "1.2.643.100.112"  /**< SV_ISSUER_SIGN_TOOL */
#define szOID_SIGN_TOOL_CLASS_KC1 "1.2.643.100.113.1"
#define szOID_SIGN_TOOL_CLASS_KC2 "1.2.643.100.113.2"
#define szOID_SIGN_TOOL_CLASS_KC3 "1.2.643.100.113.3"
#define szOID_SIGN_TOOL_CLASS_KB1 "1.2.643.100.113.4"
#define szOID_SIGN_TOOL_CLASS_KB2 "1.2.643.100.113.5"
#define szOID_SIGN_TOOL_CLASS_KA1 "1.2.643.100.113.6"
#define szOID_IDENTIFICATION_KIND "1.2.643.100.114"

/* --- Content types and attributes of messages. RFC 5652, 4 and 11. --- */
#define szOID_RSA_data "1.2.840.113549.1.7.1"
#define szOID_RSA_signedData "1.2.840.113549.1.7.2"
#define szOID_RSA_envelopedData "1.2.840.113549.1.7.3"
#define szOID_RSA_signEnvData "1.2.840.113549.1.7.4" /**< not served */
#define szOID_RSA_digestedData "1.2.840.113549.1.7.5"
#define szOID_RSA_hashedData "1.2.840.113549.1.7.5"
#define szOID_RSA_encryptedData "1.2.840.113549.1.7.6" /**< inside PKCS #12 only */
#define szOID_RSA_contentType "1.2.840.113549.1.9.3"
#define szOID_RSA_messageDigest "1.2.840.113549.1.9.4"
#define szOID_RSA_signingTime "1.2.840.113549.1.9.5"
#define szOID_RSA_counterSign "1.2.840.113549.1.9.6"
#define szOID_RSA_challengePwd "1.2.840.113549.1.9.7"
#define szOID_RSA_certExtensions "1.2.840.113549.1.9.14"
#define szOID_RSA_SMIMECapabilities "1.2.840.113549.1.9.15"
#define szOID_SIGNING_CERTIFICATE "1.2.840.113549.1.9.16.2.12"       /**< RFC 2634, 5.4 */
#define szOID_OTHER_SIGNING_CERTIFICATE "1.2.840.113549.1.9.16.2.19" /**< RFC 5126, 5.7.3.3 */
#define szOID_SIGNING_CERTIFICATE_V2 "1.2.840.113549.1.9.16.2.47"    /**< RFC 5035 */
#define szOID_GOST_CMS_MAC_ATTR "1.2.643.7.1.0.6.1.1" /**< authentication code of the content */
#define szOID_GOST_CMS_EPHEMERAL_ATTR \
  "1.2.643.7.1.3.44.5" /**< what the provider says of the ephemeral key, as text */

/* --- Public keys. --- */
#define szOID_RSA_RSA "1.2.840.113549.1.1.1"
#define szOID_RSAES_OAEP "1.2.840.113549.1.1.7"
#define szOID_RSA_MGF1 "1.2.840.113549.1.1.8"
#define szOID_RSA_PSPECIFIED "1.2.840.113549.1.1.9"
#define szOID_RSA_SSA_PSS "1.2.840.113549.1.1.10" /**< key and signature. RFC 4055 */
#define szOID_X957_DSA "1.2.840.10040.4.1"
#define szOID_ECC_PUBLIC_KEY "1.2.840.10045.2.1"
#define szOID_ED25519 "1.3.101.112"                   /**< key and signature. RFC 8410 */
#define szOID_GOST_R3410_2001 "1.2.643.2.2.19"        /**< RFC 4491 */
#define szOID_GOST_R3410_2001_DH "1.2.643.2.2.98"     /**< for key agreement only */
#define szOID_GOST_R3410_2012_256 "1.2.643.7.1.1.1.1" /**< RFC 9215 */
#define szOID_GOST_R3410_2012_512 "1.2.643.7.1.1.1.2"
#define szOID_GOST_R3410_2012_256_DH "1.2.643.7.1.1.6.1" /**< for key agreement only */
#define szOID_GOST_R3410_2012_512_DH "1.2.643.7.1.1.6.2"

/* --- Hashes. --- */
#define szOID_RSA_MD2 "1.2.840.113549.2.2"
#define szOID_RSA_MD4 "1.2.840.113549.2.4"
#define szOID_RSA_MD5 "1.2.840.113549.2.5"
#define szOID_OIWSEC_sha1 "1.3.14.3.2.26"
#define szOID_NIST_sha256 "2.16.840.1.101.3.4.2.1"
#define szOID_NIST_sha384 "2.16.840.1.101.3.4.2.2"
#define szOID_NIST_sha512 "2.16.840.1.101.3.4.2.3"
#define szOID_GOST_R3411_94 "1.2.643.2.2.9"
#define szOID_GOST_R3411_2012_256 "1.2.643.7.1.1.2.2" /**< RFC 6986 */
#define szOID_GOST_R3411_2012_512 "1.2.643.7.1.1.2.3"

/* --- Signatures. --- */
#define szOID_RSA_MD2RSA "1.2.840.113549.1.1.2"
#define szOID_RSA_MD4RSA "1.2.840.113549.1.1.3"
#define szOID_RSA_MD5RSA "1.2.840.113549.1.1.4"
#define szOID_RSA_SHA1RSA "1.2.840.113549.1.1.5"
#define szOID_RSA_SHA256RSA "1.2.840.113549.1.1.11"
#define szOID_RSA_SHA384RSA "1.2.840.113549.1.1.12"
#define szOID_RSA_SHA512RSA "1.2.840.113549.1.1.13"
#define szOID_ECDSA_SHA1 "1.2.840.10045.4.1"
#define szOID_ECDSA_SPECIFIED "1.2.840.10045.4.3" /**< the hash stands in the parameters */
#define szOID_ECDSA_SHA256 "1.2.840.10045.4.3.2"
#define szOID_ECDSA_SHA384 "1.2.840.10045.4.3.3"
#define szOID_ECDSA_SHA512 "1.2.840.10045.4.3.4"
#define szOID_GOST_R3411_94_R3410_2001 "1.2.643.2.2.3"
#define szOID_GOST_R3411_94_R3410_94 "1.2.643.2.2.4"
#define szOID_GOST_R3411_2012_256_R3410 "1.2.643.7.1.1.3.2"
#define szOID_GOST_R3411_2012_512_R3410 "1.2.643.7.1.1.3.3"

/* --- Keyed hashes and key derivation. RFC 8018; RFC 7292, appendix C. --- */
#define szOID_HMAC_SHA1 "1.2.840.113549.2.7"
#define szOID_HMAC_SHA256 "1.2.840.113549.2.9"
#define szOID_HMAC_GOST_R3411_94 "1.2.643.2.2.10"
#define szOID_HMAC_GOST_R3411_2012_256 "1.2.643.7.1.1.4.1" /**< RFC 7836, 4.1 */
#define szOID_HMAC_GOST_R3411_2012_512 "1.2.643.7.1.1.4.2"
#define szOID_PKCS_5_PBKDF2 "1.2.840.113549.1.5.12"
#define szOID_PKCS_5_PBES2 "1.2.840.113549.1.5.13"
#define szOID_PKCS_12_pbeWithSHA1And128BitRC4 "1.2.840.113549.1.12.1.1"
#define szOID_PKCS_12_pbeWithSHA1And40BitRC4 "1.2.840.113549.1.12.1.2"
#define szOID_PKCS_12_pbeWithSHA1And3KeyTripleDES "1.2.840.113549.1.12.1.3"
#define szOID_PKCS_12_pbeWithSHA1And2KeyTripleDES "1.2.840.113549.1.12.1.4"
#define szOID_PKCS_12_pbeWithSHA1And128BitRC2 "1.2.840.113549.1.12.1.5"
#define szOID_PKCS_12_pbeWithSHA1And40BitRC2 "1.2.840.113549.1.12.1.6"
#define szOID_PKCS_12_pbeWithGOST \
  "1.2.840.113549.1.12.1.80" /**< a private identifier: GOST hash chain and cipher */

/* --- Ciphers, key exchange and key wrap. --- */
#define szOID_RSA_RC2CBC "1.2.840.113549.3.2"
#define szOID_RSA_RC4 "1.2.840.113549.3.4"
#define szOID_RSA_DES_EDE3_CBC "1.2.840.113549.3.7"
#define szOID_NIST_AES128_CBC "2.16.840.1.101.3.4.1.2"
#define szOID_NIST_AES192_CBC "2.16.840.1.101.3.4.1.22"
#define szOID_NIST_AES256_CBC "2.16.840.1.101.3.4.1.42"
#define szOID_NIST_AES128_WRAP "2.16.840.1.101.3.4.1.5"
#define szOID_NIST_AES192_WRAP "2.16.840.1.101.3.4.1.25"
#define szOID_NIST_AES256_WRAP "2.16.840.1.101.3.4.1.45"
#define szOID_GOST_28147_89 "1.2.643.2.2.21"
#define szOID_GOST_28147_89_MAC "1.2.643.2.2.22"
#define szOID_GOST_R3412_2015_MAGMA_CTR_ACPKM "1.2.643.7.1.1.5.1.1" /**< RFC 9337 */
#define szOID_GOST_R3412_2015_MAGMA_CTR_ACPKM_OMAC "1.2.643.7.1.1.5.1.2"
#define szOID_GOST_R3412_2015_KUZNYECHIK_CTR_ACPKM "1.2.643.7.1.1.5.2.1"
#define szOID_GOST_R3412_2015_KUZNYECHIK_CTR_ACPKM_OMAC "1.2.643.7.1.1.5.2.2"
#define szOID_GOST_R3412_2015_MAGMA_WRAP_KEXP15 "1.2.643.7.1.1.7.1.1"
#define szOID_GOST_R3412_2015_KUZNYECHIK_WRAP_KEXP15 "1.2.643.7.1.1.7.2.1"
#define szOID_DH_SINGLE_PASS_STDDH_SHA1_KDF "1.3.133.16.840.63.0.2" /**< RFC 5753, 7.1.4 */
#define szOID_DH_SINGLE_PASS_STDDH_SHA224_KDF "1.3.132.1.11.0"
#define szOID_DH_SINGLE_PASS_STDDH_SHA256_KDF "1.3.132.1.11.1"
#define szOID_DH_SINGLE_PASS_STDDH_SHA384_KDF "1.3.132.1.11.2"
#define szOID_DH_SINGLE_PASS_STDDH_SHA512_KDF "1.3.132.1.11.3"

/* --- GOST parameter sets. RFC 4357, 11; RFC 7836. --- */
#define szOID_GOST_R3411_94_PARAM_SET_TEST "1.2.643.2.2.30.0"
#define szOID_GOST_R3411_94_PARAM_SET "1.2.643.2.2.30.1"
#define szOID_GOST_28147_89_PARAM_SET_TEST "1.2.643.2.2.31.0"
#define szOID_GOST_28147_89_PARAM_SET_A "1.2.643.2.2.31.1"
#define szOID_GOST_28147_89_PARAM_SET_B "1.2.643.2.2.31.2"
#define szOID_GOST_28147_89_PARAM_SET_C "1.2.643.2.2.31.3"
#define szOID_GOST_28147_89_PARAM_SET_D "1.2.643.2.2.31.4"
#define szOID_GOST_28147_89_PARAM_SET_Z \
  "1.2.643.7.1.2.5.1.1" /**< the substitution box of GOST R 34.12-2015 */
#define szOID_GOST_R3410_2001_PARAM_SET_TEST "1.2.643.2.2.35.0"
#define szOID_GOST_R3410_2001_PARAM_SET_A "1.2.643.2.2.35.1"
#define szOID_GOST_R3410_2001_PARAM_SET_B "1.2.643.2.2.35.2"
#define szOID_GOST_R3410_2001_PARAM_SET_C "1.2.643.2.2.35.3"
#define szOID_GOST_R3410_2001_PARAM_SET_XCHA \
  "1.2.643.2.2.36.0" /**< the same curve as set A, for exchange keys */
#define szOID_GOST_R3410_2001_PARAM_SET_XCHB \
  "1.2.643.2.2.36.1" /**< the same curve as set C, for exchange keys */
#define szOID_GOST_R3410_2012_256_PARAM_SET_A "1.2.643.7.1.2.1.1.1" /**< a twisted Edwards curve as well */
#define szOID_GOST_R3410_2012_256_PARAM_SET_B "1.2.643.7.1.2.1.1.2" /**< the same curve as 2001 set A */
#define szOID_GOST_R3410_2012_256_PARAM_SET_C "1.2.643.7.1.2.1.1.3" /**< the same curve as 2001 set B */
#define szOID_GOST_R3410_2012_256_PARAM_SET_D "1.2.643.7.1.2.1.1.4" /**< the same curve as 2001 set C */
#define szOID_GOST_R3410_2012_512_PARAM_SET_TEST "1.2.643.7.1.2.1.2.0"
#define szOID_GOST_R3410_2012_512_PARAM_SET_A "1.2.643.7.1.2.1.2.1"
#define szOID_GOST_R3410_2012_512_PARAM_SET_B "1.2.643.7.1.2.1.2.2"
#define szOID_GOST_R3410_2012_512_PARAM_SET_C "1.2.643.7.1.2.1.2.3" /**< a twisted Edwards curve as well */

/* --- GOST extensions of CRLs and of key containers. --- */
#define szOID_GOST_CRL_KEY_MATCH \
  "1.2.643.2.2.49.1" /**< ENUMERATED: 0 signed by the certificate's issuer, 1 not needed */
#define szOID_GOST_CONTAINER_STORE_1 "1.2.643.2.2.37.3.1" /**< certificates kept with a key */
#define szOID_GOST_CONTAINER_STORE_2 "1.2.643.2.2.37.3.2"
#define szOID_GOST_CONTAINER_STORE_3 "1.2.643.2.2.37.3.3"
#define szOID_GOST_CONTAINER_KEY_PERIOD_1 \
  "1.2.643.2.2.37.3.5" /**< SV_PRIVATE_KEY_USAGE_PERIOD of a kept key */
#define szOID_GOST_CONTAINER_KEY_PERIOD_2 "1.2.643.2.2.37.3.9"
#define szOID_GOST_CONTAINER_KEY_PERIOD_3 "1.2.643.2.2.37.3.10"
#define szOID_GOST_CONTAINER_DERIVE_COUNTER "1.2.643.2.2.37.3.6"
#define szOID_GOST_CONTAINER_TIME_CONTROL "1.2.643.2.2.37.3.11"

/* --- PKCS #12. RFC 7292, appendix D. --- */
#define szOID_PKCS_12_KEY_BAG "1.2.840.113549.1.12.10.1.1" /**< refused: keys come shrouded or not at all */
#define szOID_PKCS_12_SHROUDED_KEY_BAG "1.2.840.113549.1.12.10.1.2"
#define szOID_PKCS_12_CERT_BAG "1.2.840.113549.1.12.10.1.3"
#define szOID_PKCS_12_CRL_BAG "1.2.840.113549.1.12.10.1.4"           /**< refused */
#define szOID_PKCS_12_SECRET_BAG "1.2.840.113549.1.12.10.1.5"        /**< refused */
#define szOID_PKCS_12_SAFE_CONTENTS_BAG "1.2.840.113549.1.12.10.1.6" /**< refused */
#define szOID_PKCS_12_X509_CERTIFICATE "1.2.840.113549.1.9.22.1"
#define szOID_PKCS_12_FRIENDLY_NAME_ATTR "1.2.840.113549.1.9.20" /**< here: the key container's name */
#define szOID_PKCS_12_LOCAL_KEY_ID "1.2.840.113549.1.9.21"
#define szOID_PKCS_12_KEY_PROVIDER_NAME_ATTR "1.3.6.1.4.1.311.17.1"
#define szOID_LOCAL_MACHINE_KEYSET "1.3.6.1.4.1.311.17.2"
#define szOID_PKCS_12_EXTENDED_ATTRIBUTES \
  "1.3.6.1.4.1.311.17.3" /**< followed by the number of the property */
#define szOID_PKCS_12_ENHKEY_USAGE_ATTR "1.3.6.1.4.1.311.17.3.9"
#define szOID_PKCS_12_DESCRIPTION_ATTR "1.3.6.1.4.1.311.17.3.13"
#define szOID_PKCS_12_KEY_IDENTIFIER_ATTR "1.3.6.1.4.1.311.17.3.20"

#endif
