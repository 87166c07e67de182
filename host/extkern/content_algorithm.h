// The ciphers of message contents: their identifiers, their parameters, and keys set up by these.
#ifndef CERTKERN_EXTKERN_CONTENT_ALGORITHM_H
#define CERTKERN_EXTKERN_CONTENT_ALGORITHM_H

#include <certkern/encode.h>

#include <span>
#include <string>

#include "extkern/key_calls.h"

namespace extkern {

inline constexpr char kBoxOf2001[] = "1.2.643.2.2.31.1";     // RFC 4357, 11.1
inline constexpr char kBoxOf2012[] = "1.2.643.7.1.2.5.1.1";  // RFC 7836, appendix C

// How an algorithm's parameters are written.
enum class ContentForm : BYTE {
  None,
  Iv,         // OCTET STRING. RFC 3370, 5.1; RFC 3565, 4.1
  Gost28147,  // SEQUENCE { OCTET STRING iv, OBJECT IDENTIFIER encryptionParamSet }. RFC 4357, 8.1
  Gost3412,   // SEQUENCE { OCTET STRING ukm }. R 1323565.1.025
  Rc2,        // SEQUENCE { INTEGER version, OCTET STRING iv }. RFC 3370, 5.2
};

struct ContentRow {
  const char* oid;
  ContentForm form;
  DWORD mode;    // CRYPT_MODE_...; 0 for a stream cipher
  DWORD ivSize;  // bytes
};

// An algorithm with its parameters.
struct ContentAlgorithm {
  const ContentRow* row = nullptr;
  ALG_ID algorithm = 0;
  Bytes iv;
  std::string box;    // GOST 28147-89: the substitution box
  DWORD rc2Bits = 0;  // RC2: of the key, which is its effective length, too
};

// More than nothing, and more than NULL?
bool HasParameters(const CRYPT_ALGORITHM_IDENTIFIER& identifier);
// The algorithm without its parameters. NTE_BAD_ALGID: none that is served.
DWORD FindContentAlgorithm(LPCSTR oid, ContentAlgorithm& content);
// With its parameters, which must be there. Also NTE_BAD_DATA.
DWORD ReadContentAlgorithm(const CRYPT_ALGORITHM_IDENTIFIER& identifier, ContentAlgorithm& content);
// One element, or nothing; empty, too, for a key length that RC2 has no version for, which NTE_BAD_LEN says.
DWORD WriteContentParameters(const ContentAlgorithm& content, Bytes& parameters);
// Gives a key of the algorithm its mode, substitution box and initial value.
DWORD PrepareContentKey(HCRYPTKEY key, const ContentAlgorithm& content);

// KP_CIPHEROID of any key. NTE_BAD_ALGID: no such box.
DWORD SetSubstitutionBox(HCRYPTKEY key, const std::string& box);

}  // namespace extkern

#endif
