/** Text encodings of bytes: Base64, with and without the banners of RFC 7468, and hexadecimal.
 *
 *  The narrow and the wide functions do the same; wide text is converted through the current encoding. */
#ifndef CERTKERN_TEXT_H
#define CERTKERN_TEXT_H

#include <certkern/types.h>

CERTKERN_EXTERN_C_BEGIN

/** Flags of the text encodings: the form in the low bits, modifiers above. */
#define CRYPT_STRING_BASE64HEADER 0x0u        /**< Base64 between certificate banners; reading: between any */
#define CRYPT_STRING_BASE64 0x1u              /**< Base64, lines of 64 characters */
#define CRYPT_STRING_BINARY 0x2u              /**< the bytes as they are */
#define CRYPT_STRING_BASE64REQUESTHEADER 0x3u /**< as 0, with the banners of a request */
#define CRYPT_STRING_HEX \
  0x4u /**< upper-case pairs without separators; reading stops at the first other character */
#define CRYPT_STRING_HEXASCII 0x5u   /**< refused */
#define CRYPT_STRING_BASE64_ANY 0x6u /**< reading: with banners, else without */
#define CRYPT_STRING_ANY 0x7u /**< reading: Base64 with banners, else without, else the bytes as they are */
#define CRYPT_STRING_HEX_ANY 0x8u             /**< refused */
#define CRYPT_STRING_BASE64X509CRLHEADER 0x9u /**< as 0, with the banners of a CRL */
#define CRYPT_STRING_HEXADDR 0xAu             /**< refused */
#define CRYPT_STRING_HEXASCIIADDR 0xBu        /**< refused */
#define CRYPT_STRING_HEXRAW 0xCu              /**< refused */
#define CRYPT_STRING_STRICT 0x20000000u       /**< accepted on input; parsing is the same */
#define CRYPT_STRING_NOCRLF 0x40000000u       /**< with Base64: no line ends; with hexadecimal: no effect */
#define CRYPT_STRING_NOCR 0x80000000u         /**< accepted with the banners of a request only; no effect */

/** Writes bytes as Base64, PEM or hexadecimal. Lines end with a single line feed.
 *  @param cbBinary   bytes at pbBinary, at least one
 *  @param pszString  receives the text and a NUL; NULL asks for the size
 *  @param pcchString in: characters at pszString; out: for a size query the count with the NUL, otherwise without
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: a null argument, no bytes, an unknown form; ERROR_MORE_DATA: too little room, as
 *          much as fits was written, without a NUL */
CERTKERN_API BOOL CryptBinaryToStringA(const BYTE* pbBinary, DWORD cbBinary, DWORD dwFlags, LPSTR pszString,
                                       DWORD* pcchString);
/** As CryptBinaryToStringA, in wide characters. */
CERTKERN_API BOOL CryptBinaryToStringW(const BYTE* pbBinary, DWORD cbBinary, DWORD dwFlags, LPWSTR pszString,
                                       DWORD* pcchString);

/** Reads bytes from Base64, PEM or hexadecimal.
 *  @param cchString  characters of text; 0: up to the NUL
 *  @param pbBinary   receives the bytes; NULL asks for the size
 *  @param pcbBinary  in: bytes at pbBinary; out: bytes written, or the size for a query
 *  @param pdwSkip    may be NULL; set to 0 by some forms, otherwise kept
 *  @param pdwFlags   may be NULL; receives the form that matched, but for CRYPT_STRING_HEX
 *  @return TRUE or FALSE
 *  @errors ERROR_INVALID_PARAMETER: a null argument, an unknown form; CRYPT_E_BAD_ENCODE: no such text;
 *          ERROR_MORE_DATA: too little room, *pcbBinary unchanged */
CERTKERN_API BOOL CryptStringToBinaryA(LPCSTR pszString, DWORD cchString, DWORD dwFlags, BYTE* pbBinary,
                                       DWORD* pcbBinary, DWORD* pdwSkip, DWORD* pdwFlags);
/** As CryptStringToBinaryA, from wide characters; with CRYPT_STRING_BINARY their raw memory is the result. */
CERTKERN_API BOOL CryptStringToBinaryW(LPCWSTR pszString, DWORD cchString, DWORD dwFlags, BYTE* pbBinary,
                                       DWORD* pcbBinary, DWORD* pdwSkip, DWORD* pdwFlags);

CERTKERN_EXTERN_C_END
#endif
