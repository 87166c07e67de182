/** X.500 names: to text and back, display names, and questions about attributes.
 *
 *  Attribute names and value types come from the key level's OID table (CRYPT_RDN_ATTR_OID_GROUP_ID). Narrow text is
 *  UTF-8 where a name is written, and the current encoding where single values are. The functions that answer a count
 *  never answer 0: a failure is an empty text and 1, and shows in the last error at most. */
#ifndef CERTKERN_NAME_H
#define CERTKERN_NAME_H

#include <certkern/properties.h>

CERTKERN_EXTERN_C_BEGIN

/** Forms of a name as text, in the low bits of dwStrType. */
#define CERT_SIMPLE_NAME_STR 1 /**< values only; can't be parsed */
#define CERT_OID_NAME_STR 2    /**< 2.5.4.3=value */
#define CERT_X500_NAME_STR 3   /**< CN=value */

/** Modifiers of dwStrType. */
#define CERT_NAME_STR_REVERSE_FLAG 0x02000000u    /**< the last relative name first */
#define CERT_NAME_STR_COMMA_FLAG 0x04000000u      /**< parsing: only commas separate; writing: the default */
#define CERT_NAME_STR_CRLF_FLAG 0x08000000u       /**< line ends separate relative names */
#define CERT_NAME_STR_NO_QUOTING_FLAG 0x10000000u /**< write values as they are */
#define CERT_NAME_STR_NO_PLUS_FLAG 0x20000000u    /**< no plus sign between attributes of a relative name */
#define CERT_NAME_STR_SEMICOLON_FLAG 0x40000000u  /**< semicolons separate relative names */

/** Writes an encoded name as text. A value that holds separators or white space at an end is quoted, and one that is no
 *  text is written in hexadecimal.
 *  @param dwCertEncodingType  not looked at
 *  @param pName               an encoded Name; what is none gives an empty text
 *  @param dwStrType           form and modifiers; form 0 is CERT_SIMPLE_NAME_STR
 *  @param psz                 receives the text and its NUL; NULL asks for the size
 *  @param csz                 bytes at psz; 0 asks for the size
 *  @return bytes with the NUL; for a size query an upper bound. A text of as many characters as csz or more is cut; one
 *          that then does not fit is an empty text and 1
 *  @errors ERROR_MORE_DATA: it does not fit; ERROR_INTERNAL_ERROR; those of WideCharToMultiByte; success clears the last
 *          error */
CERTKERN_API DWORD CertNameToStrA(DWORD dwCertEncodingType, PCERT_NAME_BLOB pName, DWORD dwStrType, LPSTR psz,
                                  DWORD csz);
/** As CertNameToStrA, in wide characters; a text that does not fit is cut, and the result is csz then. What is left of
 *  the buffer is filled with zeros. */
CERTKERN_API DWORD CertNameToStrW(DWORD dwCertEncodingType, PCERT_NAME_BLOB pName, DWORD dwStrType,
                                  LPWSTR psz, DWORD csz);

/** Reads a name from text and encodes it. A key is a name of the OID table or a dotted identifier, with or without
 *  "OID." before it; a value may be quoted, and begins with # when it is hexadecimal. The table tells the type of a
 *  value: of a key that it does not have it is CERT_RDN_PRINTABLE_STRING, and no PrintableString may hold digits here.
 *  @param dwStrType   form (not CERT_SIMPLE_NAME_STR) and modifiers; without a separator flag commas and semicolons
 *                     separate
 *  @param pvReserved  NULL
 *  @param pbEncoded   receives the encoded Name; NULL asks for the size
 *  @param pcbEncoded  in: bytes at pbEncoded; out: the size
 *  @param ppszError   may be NULL; receives where in pszX500 the text is wrong, or NULL. In UTF-8 that counts a
 *                     character as one byte
 *  @return TRUE or FALSE
 *  @errors E_INVALIDARG: the form, no text, no pcbEncoded; CRYPT_E_INVALID_X500_STRING: the syntax;
 *          CRYPT_E_INVALID_NUMERIC_STRING, CRYPT_E_INVALID_PRINTABLE_STRING, CRYPT_E_INVALID_IA5_STRING: a value that
 *          its type can't hold; ERROR_MORE_DATA; ERROR_INTERNAL_ERROR */
CERTKERN_API BOOL CertStrToNameA(DWORD dwCertEncodingType, LPCSTR pszX500, DWORD dwStrType, void* pvReserved,
                                 BYTE* pbEncoded, DWORD* pcbEncoded, LPCSTR* ppszError);
/** As CertStrToNameA. */
CERTKERN_API BOOL CertStrToNameW(DWORD dwCertEncodingType, LPCWSTR pszX500, DWORD dwStrType, void* pvReserved,
                                 BYTE* pbEncoded, DWORD* pcbEncoded, LPCWSTR* ppszError);

/** Writes one decoded attribute value as text, unquoted.
 *  @param dwValueType  CERT_RDN_...
 *  @param psz          receives the text and its NUL; NULL asks for the size
 *  @param csz          bytes at psz
 *  @return bytes with the NUL; 1 on failure
 *  @errors ERROR_INVALID_PARAMETER: no value, a length without bytes; E_NOTIMPL: a type that has no text */
CERTKERN_API DWORD CertRDNValueToStrA(DWORD dwValueType, PCERT_RDN_VALUE_BLOB pValue, LPSTR psz, DWORD csz);
/** As CertRDNValueToStrA, in wide characters. */
CERTKERN_API DWORD CertRDNValueToStrW(DWORD dwValueType, PCERT_RDN_VALUE_BLOB pValue, LPWSTR psz, DWORD csz);

/** What CertGetNameString looks for, in this order; the first that is not empty is the answer. */
#define CERT_NAME_EMAIL_TYPE 1 /**< rfc822Name, then e-mail attribute */
#define CERT_NAME_RDN_TYPE 2   /**< the whole name; pvTypePara points to a dwStrType */
#define CERT_NAME_ATTR_TYPE \
  3 /**< the attribute whose identifier pvTypePara is; NULL: the last relative name's first */
#define CERT_NAME_SIMPLE_DISPLAY_TYPE 4 /**< common name, unit, organisation, e-mail; then rfc822Name */
#define CERT_NAME_FRIENDLY_DISPLAY_TYPE \
  5                          /**< CERT_FRIENDLY_NAME_PROP_ID, then as CERT_NAME_SIMPLE_DISPLAY_TYPE */
#define CERT_NAME_DNS_TYPE 6 /**< dNSName, then common name */
#define CERT_NAME_URL_TYPE 7 /**< uniformResourceIdentifier */

/** dwFlags of CertGetNameString: the issuer's name instead of the subject's. */
#define CERT_NAME_ISSUER_FLAG 0x1u

/** Answers a name of a certificate's subject or issuer.
 *  @param dwType         CERT_NAME_..._TYPE
 *  @param pszNameString  receives the text and its NUL; NULL asks for the size
 *  @param cchNameString  bytes at pszNameString; a text that does not fit is cut between characters
 *  @return bytes with the NUL; 1 when there is no such name, or on failure
 *  @errors ERROR_INVALID_PARAMETER: no certificate, an unknown type, or CERT_NAME_FRIENDLY_DISPLAY_TYPE of a context that
 *          is not live, which has no properties; the other types read the published fields alone */
CERTKERN_API DWORD CertGetNameStringA(PCCERT_CONTEXT pCertContext, DWORD dwType, DWORD dwFlags,
                                      void* pvTypePara, LPSTR pszNameString, DWORD cchNameString);
/** As CertGetNameStringA, in wide characters; a text that does not fit is cut, and the result is cchNameString then. */
CERTKERN_API DWORD CertGetNameStringW(PCCERT_CONTEXT pCertContext, DWORD dwType, DWORD dwFlags,
                                      void* pvTypePara, LPWSTR pszNameString, DWORD cchNameString);

/** Finds the first attribute of a decoded name.
 *  @return the attribute, which belongs to pName; NULL when there is none (last error untouched) or on failure
 *  @errors ERROR_INVALID_PARAMETER: a null argument */
CERTKERN_API PCERT_RDN_ATTR CertFindRDNAttr(LPCSTR pszObjId, PCERT_NAME_INFO pName);

/** dwFlags of CertIsRDNAttrsInCertificateName. */
#define CERT_UNICODE_IS_RDN_ATTRS_FLAG 0x1u          /**< the values are wide text */
#define CERT_CASE_INSENSITIVE_IS_RDN_ATTRS_FLAG 0x2u /**< changes nothing: bytes are compared */

/** Tells if each of some attributes is somewhere in a name.
 *  @param pCertName  an encoded Name
 *  @param pRDN       of each attribute what is given must be equal: identifier (NULL: any), dwValueType (0: any),
 *                    Value (NULL bytes: any)
 *  @return TRUE; FALSE when one is missing (the last error is left alone) or on failure
 *  @errors ERROR_NOT_ENOUGH_MEMORY; those of CryptDecodeObject */
CERTKERN_API BOOL CertIsRDNAttrsInCertificateName(DWORD dwCertEncodingType, DWORD dwFlags,
                                                  PCERT_NAME_BLOB pCertName, PCERT_RDN pRDN);

CERTKERN_EXTERN_C_END
#endif
