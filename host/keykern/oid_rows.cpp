#include "keykern/oid_rows.h"

#include <certkern/encode.h>

#include <algorithm>
#include <array>
#include <bit>
#include <string_view>

namespace keykern {
namespace {

// Public keys: a flag word. Signatures: the public key's ALG_ID, a flag word, the provider type.
// Name attributes: the value types that fit, best first, and a zero.
template <DWORD... kWords>
struct Words {
  static constexpr size_t kCount = sizeof...(kWords);
  alignas(DWORD) static constexpr auto kBytes =
      std::bit_cast<std::array<BYTE, kCount * sizeof(DWORD)>>(std::array<DWORD, kCount>{kWords...});
  // the rows are constant, and nobody writes through them
  static constexpr CRYPT_DATA_BLOB kBlob = {kBytes.size(), const_cast<BYTE*>(kBytes.data())};
};

constexpr DWORD kOmitNull = CRYPT_OID_NO_NULL_ALGORITHM_PARA_FLAG;

constexpr CRYPT_OID_INFO Row(DWORD group, LPCSTR oid, LPCWSTR name, ALG_ID algorithm = 0,
                             CRYPT_DATA_BLOB extra = {}) {
  return {sizeof(CRYPT_OID_INFO), oid, name, group, {.Algid = algorithm}, extra};
}

constexpr CRYPT_OID_INFO Hash(LPCSTR oid, LPCWSTR name, ALG_ID algorithm) {
  return Row(CRYPT_HASH_ALG_OID_GROUP_ID, oid, name, algorithm);
}
constexpr CRYPT_OID_INFO Cipher(LPCSTR oid, LPCWSTR name, ALG_ID algorithm) {
  return Row(CRYPT_ENCRYPT_ALG_OID_GROUP_ID, oid, name, algorithm);
}
template <DWORD kFlags>
constexpr CRYPT_OID_INFO PublicKey(LPCSTR oid, LPCWSTR name, ALG_ID algorithm) {
  return Row(CRYPT_PUBKEY_ALG_OID_GROUP_ID, oid, name, algorithm, Words<kFlags>::kBlob);
}
// Bit 0 of the flags, which would stop the reversal of a signature, is set nowhere: messages reverse each one.
template <ALG_ID kKey, DWORD kFlags, DWORD kProviderType>
constexpr CRYPT_OID_INFO Signature(LPCSTR oid, LPCWSTR name, ALG_ID hash) {
  return Row(CRYPT_SIGN_ALG_OID_GROUP_ID, oid, name, hash, Words<kKey, kFlags, kProviderType>::kBlob);
}
template <DWORD... kTypes>
constexpr CRYPT_OID_INFO Typed(LPCSTR oid, LPCWSTR name) {
  return Row(CRYPT_RDN_ATTR_OID_GROUP_ID, oid, name, 0, Words<kTypes..., 0>::kBlob);
}
constexpr auto Directory = Typed<CERT_RDN_UTF8_STRING>;
constexpr auto Printable = Typed<CERT_RDN_PRINTABLE_STRING>;
constexpr auto Ia5 = Typed<CERT_RDN_IA5_STRING>;
constexpr auto Numeric = Typed<CERT_RDN_NUMERIC_STRING>;
constexpr CRYPT_OID_INFO Extension(LPCSTR oid, LPCWSTR name) {
  return Row(CRYPT_EXT_OR_ATTR_OID_GROUP_ID, oid, name);
}
constexpr CRYPT_OID_INFO Usage(LPCSTR oid, LPCWSTR name) {
  return Row(CRYPT_ENHKEY_USAGE_OID_GROUP_ID, oid, name);
}
constexpr CRYPT_OID_INFO Policy(LPCSTR oid, LPCWSTR name) {
  return Row(CRYPT_POLICY_OID_GROUP_ID, oid, name);
}

constexpr CRYPT_OID_INFO kRows[] = {
    Hash("1.2.643.2.2.9", L"GOST R 34.11-94", CALG_GR3411),
    Hash("1.2.643.7.1.1.2.2", L"GOST R 34.11-2012 256 bit", CALG_GR3411_2012_256),
    Hash("1.2.643.7.1.1.2.3", L"GOST R 34.11-2012 512 bit", CALG_GR3411_2012_512),
    Hash("1.3.14.3.2.26", L"sha1", CALG_SHA1),
    Hash("2.16.840.1.101.3.4.2.1", L"sha256", CALG_SHA_256),
    Hash("2.16.840.1.101.3.4.2.2", L"sha384", CALG_SHA_384),
    Hash("2.16.840.1.101.3.4.2.3", L"sha512", CALG_SHA_512),
    Hash("1.2.840.113549.2.5", L"md5", CALG_MD5),
    Hash("1.2.840.113549.2.4", L"md4", CALG_MD4),
    Cipher("1.2.643.2.2.21", L"GOST 28147-89", CALG_G28147),
    Cipher("1.2.643.7.1.1.5.1.1", L"GOST R 34.12-2015 Magma CTR-ACPKM", CALG_GR3412_2015_M),
    Cipher("1.2.643.7.1.1.5.1.2", L"GOST R 34.12-2015 Magma CTR-ACPKM-OMAC", CALG_GR3412_2015_M),
    Cipher("1.2.643.7.1.1.5.2.1", L"GOST R 34.12-2015 Kuznyechik CTR-ACPKM", CALG_GR3412_2015_K),
    Cipher("1.2.643.7.1.1.5.2.2", L"GOST R 34.12-2015 Kuznyechik CTR-ACPKM-OMAC", CALG_GR3412_2015_K),
    Cipher("2.16.840.1.101.3.4.1.2", L"aes128", CALG_AES_128),
    Cipher("2.16.840.1.101.3.4.1.22", L"aes192", CALG_AES_192),
    Cipher("2.16.840.1.101.3.4.1.42", L"aes256", CALG_AES_256),
    Cipher("1.2.840.113549.3.7", L"3des", CALG_3DES),
    Cipher("1.2.840.113549.3.2", L"rc2", CALG_RC2),
    Cipher("1.2.840.113549.3.4", L"rc4", CALG_RC4),
    Cipher("1.3.14.3.2.7", L"des", CALG_DES),
    PublicKey<kOmitNull>("1.2.643.7.1.1.1.1", L"GOST R 34.10-2012 256 bit", CALG_GR3410_12_256),
    PublicKey<kOmitNull>("1.2.643.7.1.1.1.1", L"GOST R 34.10-2012 256 bit DH", CALG_DH_GR3410_12_256_SF),
    PublicKey<kOmitNull>("1.2.643.7.1.1.1.2", L"GOST R 34.10-2012 512 bit", CALG_GR3410_12_512),
    PublicKey<kOmitNull>("1.2.643.7.1.1.1.2", L"GOST R 34.10-2012 512 bit DH", CALG_DH_GR3410_12_512_SF),
    PublicKey<kOmitNull>("1.2.643.2.2.19", L"GOST R 34.10-2001", CALG_GR3410EL),
    PublicKey<kOmitNull>("1.2.643.2.2.19", L"GOST R 34.10-2001 DH", CALG_DH_EL_SF),
    PublicKey<0>("1.2.840.113549.1.1.1", L"RSA", CALG_RSA_KEYX),
    PublicKey<0>("1.2.840.113549.1.1.1", L"RSA_SIGN", CALG_RSA_SIGN),
    PublicKey<kOmitNull>("1.2.840.113549.1.1.10", L"RSASSA-PSS", CALG_RSA_SIGN),
    PublicKey<kOmitNull>("1.2.840.10045.2.1", L"ECC", CALG_ECDSA),
    PublicKey<kOmitNull>("1.2.840.10045.2.1", L"ECDH", CALG_ECDH),
    PublicKey<kOmitNull>("1.3.101.112", L"Ed25519", CALG_EDDSA),
    PublicKey<kOmitNull>("1.3.101.113", L"Ed448", CALG_EDDSA),
    PublicKey<kOmitNull>("1.2.840.10040.4.1", L"DSA", CALG_DSS_SIGN),
    Signature<CALG_GR3410_12_256, kOmitNull, 80>("1.2.643.7.1.1.3.2", L"GOST R 34.11/34.10-2012 256 bit",
                                                 CALG_GR3411_2012_256),
    Signature<CALG_GR3410_12_512, kOmitNull, 81>("1.2.643.7.1.1.3.3", L"GOST R 34.11/34.10-2012 512 bit",
                                                 CALG_GR3411_2012_512),
    Signature<CALG_GR3410EL, kOmitNull, 75>("1.2.643.2.2.3", L"GOST R 34.11/34.10-2001", CALG_GR3411),
    Signature<CALG_RSA_SIGN, 0, 24>("1.2.840.113549.1.1.5", L"sha1RSA", CALG_SHA1),
    Signature<CALG_RSA_SIGN, 0, 24>("1.2.840.113549.1.1.11", L"sha256RSA", CALG_SHA_256),
    Signature<CALG_RSA_SIGN, 0, 24>("1.2.840.113549.1.1.12", L"sha384RSA", CALG_SHA_384),
    Signature<CALG_RSA_SIGN, 0, 24>("1.2.840.113549.1.1.13", L"sha512RSA", CALG_SHA_512),
    Signature<CALG_RSA_SIGN, 0, 24>("1.2.840.113549.1.1.4", L"md5RSA", CALG_MD5),
    Signature<CALG_RSA_SIGN, 0, 24>("1.3.14.3.2.29", L"sha1RSA", CALG_SHA1),
    Signature<CALG_ECDSA, kOmitNull, 16>("1.2.840.10045.4.1", L"sha1ECDSA", CALG_SHA1),
    Signature<CALG_ECDSA, kOmitNull, 16>("1.2.840.10045.4.3.2", L"sha256ECDSA", CALG_SHA_256),
    Signature<CALG_ECDSA, kOmitNull, 16>("1.2.840.10045.4.3.3", L"sha384ECDSA", CALG_SHA_384),
    Signature<CALG_ECDSA, kOmitNull, 16>("1.2.840.10045.4.3.4", L"sha512ECDSA", CALG_SHA_512),
    Signature<CALG_EDDSA, kOmitNull, 32>("1.3.101.112", L"Ed25519", CALG_MESSAGE_ITSELF),
    Signature<CALG_EDDSA, kOmitNull, 32>("1.3.101.113", L"Ed448", CALG_MESSAGE_ITSELF),
    Signature<CALG_DSS_SIGN, kOmitNull, 0>("1.2.840.10040.4.3", L"sha1DSA", CALG_SHA1),
    Signature<CALG_DSS_SIGN, kOmitNull, 0>("2.16.840.1.101.3.4.3.2", L"sha256DSA", CALG_SHA_256),
    Signature<CALG_RSA_SIGN, kOmitNull, 24>("1.2.840.113549.1.1.10", L"RSASSA-PSS", CALG_SHA1),
    Directory("2.5.4.3", L"CN"),
    Printable("2.5.4.6", L"C"),
    Directory("2.5.4.7", L"L"),
    Directory("2.5.4.8", L"S"),
    Directory("2.5.4.8", L"ST"),
    Directory("2.5.4.10", L"O"),
    Directory("2.5.4.11", L"OU"),
    Ia5("1.2.840.113549.1.9.1", L"E"),
    Ia5("1.2.840.113549.1.9.1", L"Email"),
    Directory("2.5.4.12", L"T"),
    Directory("2.5.4.12", L"Title"),
    Directory("2.5.4.42", L"G"),
    Directory("2.5.4.42", L"GivenName"),
    Directory("2.5.4.43", L"I"),
    Directory("2.5.4.43", L"Initials"),
    Directory("2.5.4.4", L"SN"),
    Directory("2.5.4.65", L"PS"),
    Directory("0.9.2342.19200300.100.1.25", L"DC"),
    Directory("2.5.4.9", L"STREET"),
    Numeric("1.2.643.100.1", L"OGRN"),
    Numeric("1.2.643.100.5", L"OGRNIP"),
    Numeric("1.2.643.100.4", L"INNLE"),
    Numeric("1.2.643.3.131.1.1", L"INN"),
    Numeric("1.2.643.100.3", L"SNILS"),
    Directory("1.2.840.113549.1.9.2", L"UnstructuredName"),
    Printable("2.5.4.5", L"SERIALNUMBER"),
    Directory("2.5.4.16", L"PostalAddress"),
    Directory("2.5.4.17", L"PostalCode"),
    Directory("2.5.4.13", L"Description"),
    Directory("2.5.4.15", L"BusinessCategory"),
    Directory("2.5.4.18", L"POBox"),
    Printable("2.5.4.20", L"Phone"),
    Numeric("2.5.4.24", L"X121Address"),
    Directory("2.5.4.41", L"Name"),
    Directory("2.5.4.44", L"GenerationQualifier"),
    Printable("2.5.4.46", L"dnQualifier"),
    Directory("2.5.4.97", L"OrganizationIdentifier"),
    Directory("0.9.2342.19200300.100.1.1", L"UID"),
    Directory("1.2.840.113549.1.9.8", L"UnstructuredAddress"),
    Directory("1.3.6.1.4.1.311.60.2.1.1", L"jurisdictionLocality"),
    Directory("1.3.6.1.4.1.311.60.2.1.2", L"jurisdictionState"),
    Printable("1.3.6.1.4.1.311.60.2.1.3", L"jurisdictionCountry"),
    Extension("2.5.29.35", L"Authority Key Identifier"),
    Extension("2.5.29.1", L"Authority Key Identifier"),
    Extension("2.5.29.14", L"Subject Key Identifier"),
    Extension("2.5.29.15", L"Key Usage"),
    Extension("2.5.29.16", L"Private Key Usage Period"),
    Extension("2.5.29.2", L"Key Attributes"),
    Extension("2.5.29.32", L"Certificate Policies"),
    Extension("2.5.29.33", L"Policy Mappings"),
    Extension("2.5.29.5", L"Policy Mappings"),
    Extension("2.5.29.17", L"Subject Alternative Name"),
    Extension("2.5.29.7", L"Subject Alternative Name"),
    Extension("2.5.29.18", L"Issuer Alternative Name"),
    Extension("2.5.29.8", L"Issuer Alternative Name"),
    Extension("2.5.29.9", L"Subject Directory Attributes"),
    Extension("2.5.29.19", L"Basic Constraints"),
    Extension("2.5.29.10", L"Basic Constraints"),
    Extension("2.5.29.30", L"Name Constraints"),
    Extension("2.5.29.36", L"Policy Constraints"),
    Extension("2.5.29.37", L"Enhanced Key Usage"),
    Extension("2.5.29.31", L"CRL Distribution Points"),
    Extension("2.5.29.54", L"Inhibit Any Policy"),
    Extension("2.5.29.46", L"Freshest CRL"),
    Extension("1.3.6.1.5.5.7.1.1", L"Authority Information Access"),
    Extension("1.3.6.1.5.5.7.1.11", L"Subject Information Access"),
    Extension("1.3.6.1.5.5.7.1.3", L"Qualified Certificate Statements"),
    Extension("1.3.6.1.5.5.7.1.24", L"TLS Feature"),
    Extension("1.3.6.1.5.5.7.48.1.5", L"OCSP No Revocation Checking"),
    Extension("2.5.29.20", L"CRL Number"),
    Extension("2.5.29.27", L"Delta CRL Indicator"),
    Extension("2.5.29.28", L"Issuing Distribution Point"),
    Extension("2.5.29.21", L"CRL Reason Code"),
    Extension("2.5.29.23", L"Hold Instruction Code"),
    Extension("2.5.29.24", L"Invalidity Date"),
    Extension("2.5.29.29", L"Certificate Issuer"),
    Extension("1.3.6.1.4.1.11129.2.4.2", L"SCT List"),
    Extension("1.3.6.1.4.1.11129.2.4.3", L"CT Precertificate Poison"),
    Extension("1.2.643.100.111", L"Subject Sign Tool"),
    Extension("1.2.643.100.112", L"Issuer Sign Tool"),
    Extension("1.2.643.100.114", L"Identification Kind"),
    Extension("1.2.840.113549.1.9.3", L"Content Type"),
    Extension("1.2.840.113549.1.9.4", L"Message Digest"),
    Extension("1.2.840.113549.1.9.5", L"Signing Time"),
    Extension("1.2.840.113549.1.9.6", L"Counter Signature"),
    Extension("1.2.840.113549.1.9.7", L"Challenge Password"),
    Extension("1.2.840.113549.1.9.14", L"Extension Request"),
    Extension("1.2.840.113549.1.9.15", L"SMIME Capabilities"),
    Extension("1.2.840.113549.1.9.20", L"Friendly Name"),
    Extension("1.2.840.113549.1.9.21", L"Local Key Identifier"),
    Extension("1.2.840.113549.1.9.16.2.12", L"Signing Certificate"),
    Extension("1.2.840.113549.1.9.16.2.47", L"Signing Certificate V2"),
    Extension("1.2.840.113549.1.9.16.2.14", L"Time Stamp Token"),
    Extension("1.3.6.1.4.1.311.2.1.14", L"Certificate Extensions"),
    Extension("1.3.6.1.4.1.311.13.2.1", L"Enrollment Name Value Pair"),
    Extension("1.3.6.1.4.1.311.13.2.2", L"Enrollment CSP"),
    Extension("1.3.6.1.4.1.311.20.2", L"Certificate Template Name"),
    Extension("1.3.6.1.4.1.311.21.1", L"CA Version"),
    Extension("1.3.6.1.4.1.311.21.2", L"Previous CA Certificate Hash"),
    Extension("1.3.6.1.4.1.311.21.7", L"Certificate Template Information"),
    Extension("1.3.6.1.4.1.311.21.10", L"Application Policies"),
    Extension("1.3.6.1.4.1.311.21.11", L"Application Policy Mappings"),
    Extension("1.3.6.1.4.1.311.21.12", L"Application Policy Constraints"),
    Usage("1.3.6.1.5.5.7.3.1", L"Server Authentication"),
    Usage("1.3.6.1.5.5.7.3.2", L"Client Authentication"),
    Usage("1.3.6.1.5.5.7.3.3", L"Code Signing"),
    Usage("1.3.6.1.5.5.7.3.4", L"Secure Email"),
    Usage("1.3.6.1.5.5.7.3.5", L"IP security end system"),
    Usage("1.3.6.1.5.5.7.3.6", L"IP security tunnel termination"),
    Usage("1.3.6.1.5.5.7.3.7", L"IP security user"),
    Usage("1.3.6.1.5.5.7.3.8", L"Time Stamping"),
    Usage("1.3.6.1.5.5.7.3.9", L"OCSP Signing"),
    Usage("1.3.6.1.5.5.8.2.2", L"IP security IKE intermediate"),
    Usage("1.3.6.1.5.5.7.3.17", L"IP security IKE"),
    Usage("1.3.6.1.5.5.7.3.21", L"SSH Client"),
    Usage("1.3.6.1.5.5.7.3.22", L"SSH Server"),
    Usage("1.3.6.1.5.2.3.4", L"PKINIT Client Authentication"),
    Usage("1.3.6.1.5.2.3.5", L"KDC Authentication"),
    Usage("2.5.29.37.0", L"Any Purpose"),
    Usage("1.3.6.1.4.1.311.20.2.2", L"Smart Card Logon"),
    Usage("1.3.6.1.4.1.311.10.3.4", L"Encrypting File System"),
    Usage("1.3.6.1.4.1.311.10.3.12", L"Document Signing"),
    Usage("1.3.6.1.5.5.7.3.36", L"Document Signing, RFC 9336"),
    Usage("1.2.643.2.2.34.6", L"Registration Authority User"),
    Policy("2.5.29.32.0", L"All issuance policies"),
    Policy("1.3.6.1.5.5.7.2.1", L"CPS"),
    Policy("1.3.6.1.5.5.7.2.2", L"User Notice"),
    Policy("1.2.643.100.113.1", L"Signature tool class KC1"),
    Policy("1.2.643.100.113.2", L"Signature tool class KC2"),
    Policy("1.2.643.100.113.3", L"Signature tool class KC3"),
    Policy("1.2.643.100.113.4", L"Signature tool class KB1"),
    Policy("1.2.643.100.113.5", L"Signature tool class KB2"),
    Policy("1.2.643.100.113.6", L"Signature tool class KA1"),
    Policy("2.23.140.1.1", L"Extended Validation"),
    Policy("2.23.140.1.2.1", L"Domain Validated"),
    Policy("2.23.140.1.2.2", L"Organization Validated"),
    Policy("2.23.140.1.2.3", L"Individual Validated"),
    Policy("2.23.140.1.3", L"Extended Validation Code Signing"),
};

}  // namespace

std::span<const CRYPT_OID_INFO> OidRows() { return kRows; }

std::span<const uint16_t> OidRowsByOid() {
  static constexpr auto kOrder = [] {
    std::array<uint16_t, std::size(kRows)> order{};
    for (size_t i = 0; i < order.size(); ++i) order[i] = static_cast<uint16_t>(i);
    // rows of one OID stay in the order of the table
    std::sort(order.begin(), order.end(), [](uint16_t a, uint16_t b) {
      const int compared = std::string_view(kRows[a].pszOID).compare(kRows[b].pszOID);
      return compared ? compared < 0 : a < b;
    });
    return order;
  }();
  return kOrder;
}

}  // namespace keykern
