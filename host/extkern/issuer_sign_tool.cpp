// What the issuer of a qualified certificate signs with: four texts.
#include <certkern/keykern.h>

#include <cstring>
#include <cwchar>

#include "extkern/record_codec.h"
#include "platform/extkern.h"
#include "platform/limits.h"

namespace extkern {
namespace {

using namespace certkern;  // NOLINT(google-build-using-namespace): the grammar below is written in its words

// IssuerSignTool ::= SEQUENCE { signTool UTF8String (SIZE (1..200)), cATool UTF8String (SIZE (1..200)),
//                               signToolCert UTF8String (SIZE (1..100)), cAToolCert UTF8String (SIZE (1..100)) }
struct Field {
  LPWSTR SV_ISSUER_SIGN_TOOL::*text;
  size_t most;  // characters
};
constexpr Field kFields[] = {
    {&SV_ISSUER_SIGN_TOOL::pwszSignTool,     200},
    {&SV_ISSUER_SIGN_TOOL::pwszCATool,       200},
    {&SV_ISSUER_SIGN_TOOL::pwszSignToolCert, 100},
    {&SV_ISSUER_SIGN_TOOL::pwszCAToolCert,   100},
};
constexpr size_t kLongestText = 200;
constexpr size_t kMaxUtf8Octets = 4;

// A NUL inside would end the text for whoever reads it, and show another tool than was signed.
bool TextDecode(std::span<const BYTE> utf8, LPWSTR& text, BerDecodeArena& arena) {
  if (utf8.size() > kMaxConvertedText) return Fault(CRYPT_E_ASN1_LARGE);
  const auto* const bytes = reinterpret_cast<LPCSTR>(utf8.data());
  const int size = static_cast<int>(utf8.size());
  int characters = 0;
  if (size) {
    if (std::memchr(bytes, 0, utf8.size())) return Fault(CRYPT_E_ASN1_CORRUPT);
    characters = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes, size, nullptr, 0);
    if (!characters) return Fault(CRYPT_E_ASN1_UTF8);
  }
  if (!arena.reserveRecords(static_cast<size_t>(characters) + 1, text)) return false;
  if (!text) return true;
  if (size) MultiByteToWideChar(CP_UTF8, 0, bytes, size, text, characters);
  text[characters] = L'\0';
  return true;
}

bool TextEncode(LPCWSTR text, size_t most, BerWriteCursor& out) {
  if (!text) return false;
  const size_t characters = wcsnlen(text, most + 1);
  if (characters == 0 || characters > most) return false;
  char utf8[kLongestText * kMaxUtf8Octets];
  const int size = WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text, static_cast<int>(characters),
                                       utf8, sizeof(utf8), nullptr, nullptr);
  BYTE* place;
  if (!size || !BerBeginElement(kTagUtf8String, static_cast<size_t>(size), out, place)) return false;
  if (place) std::memcpy(place, utf8, static_cast<size_t>(size));
  return true;
}

bool SignToolDecode(BerReadCursor& in, SV_ISSUER_SIGN_TOOL& tool, BerDecodeArena& arena) {
  BerReadCursor content;
  if (!Expect(in, kTagSequence, content)) return false;
  for (const Field& field : kFields) {
    BerReadCursor text;
    if (!Expect(content, kTagUtf8String, text) || !TextDecode(text.rest(), tool.*field.text, arena))
      return false;
  }
  return Finished(content);
}

bool SignToolEncode(const SV_ISSUER_SIGN_TOOL& tool, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    for (const Field& field : kFields) {
      if (!TextEncode(tool.*field.text, field.most, content)) return false;
    }
    return true;
  });
}

constexpr const RecordType& kSignTool = kRecordType<SV_ISSUER_SIGN_TOOL, SignToolEncode, SignToolDecode>;

}  // namespace
}  // namespace extkern

using namespace extkern;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" {

BOOL XnDllIssuerSignToolEncode(DWORD, LPCSTR, const void* pvStructInfo, BYTE* pbEncoded, DWORD* pcbEncoded) {
  return EncodeRecord(kSignTool, pvStructInfo, pbEncoded, pcbEncoded);
}
BOOL XnDllIssuerSignToolDecode(DWORD, LPCSTR, const BYTE* pbEncoded, DWORD cbEncoded, DWORD dwFlags,
                               void* pvStructInfo, DWORD* pcbStructInfo) {
  return DecodeRecord(kSignTool, {pbEncoded, cbEncoded}, dwFlags, pvStructInfo, pcbStructInfo);
}

}  // extern "C"
