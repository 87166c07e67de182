#include "ber/general_name.h"

#include "platform/limits.h"

#include <cstring>

namespace certkern {
namespace {

// The first element must announce a length that is there.
bool HasSoundHeader(const BerReadCursor& content) {
  BerReadCursor ahead = content;
  std::span<const BYTE> element;
  return ahead.readWhole(element);
}

// OtherName ::= SEQUENCE { type-id OBJECT IDENTIFIER, value [0] EXPLICIT ANY }
bool OtherNameDecode(BerReadCursor& content, PCERT_OTHER_NAME& name, BerDecodeArena& arena) {
  CERT_OTHER_NAME unkept;
  if (!arena.reserveRecord(name, unkept)) return false;
  CERT_OTHER_NAME& record = *name;
  BerReadCursor oid;
  if (!BerExpect(content, kTagOid, oid) || !BerCopyOidText(oid.rest(), record.pszObjId, arena)) return false;
  if (content.empty()) return true;
  BerReadCursor value;
  return BerExpect(content, ContextConstructed(0), value) && HasSoundHeader(value)
      && BerCopyBytes(value.rest(), record.Value, arena);
}

bool OtherNameEncode(const CERT_OTHER_NAME* name, BerWriteCursor& out) {
  if (!name) return false;
  return BerEncodeConstructed(Context(0), out, [&](BerWriteCursor& content) {
    return BerEncodeOidField(kTagOid, name->pszObjId, content)
        && BerEncodeOctets(ContextConstructed(0), name->Value, content);
  });
}

// Through the current code page, as the text has no stated repertoire beyond IA5 and peers put more into it.
bool AltTextDecode(std::span<const BYTE> content, LPWSTR& text, BerDecodeArena& arena) {
  if (content.empty() || content.size() > kMaxConvertedText) return false;
  // a NUL would hide the rest of the name from whoever reads the text
  if (std::memchr(content.data(), 0, content.size())) return false;
  const LPCSTR narrow = reinterpret_cast<LPCSTR>(content.data());
  const int size = static_cast<int>(content.size());
  const int count = MultiByteToWideChar(CP_ACP, 0, narrow, size, nullptr, 0);
  WCHAR* place;
  if (count <= 0 || !arena.reserveRecords(static_cast<size_t>(count) + 1, place)) return false;
  text = place;
  if (!place) return true;
  place[count] = L'\0';
  return MultiByteToWideChar(CP_ACP, 0, narrow, size, place, count) == count;
}

bool AltTextEncode(BYTE tag, LPCWSTR text, BerWriteCursor& out) {
  char narrow[kMaxAltNameText];
  if (!text || !*text) return false;
  const DWORD before = GetLastError();
  if (WideCharToMultiByte(CP_ACP, 0, text, -1, narrow, sizeof(narrow), nullptr, nullptr) <= 0) {
    SetLastError(before);  // a text that does not fit is a failure without a code
    return false;
  }
  const CRYPT_DATA_BLOB bytes = {static_cast<DWORD>(std::strlen(narrow)), reinterpret_cast<BYTE*>(narrow)};
  return BerEncodeOctets(tag, bytes, out);
}

bool DescriptionDecode(BerReadCursor& in, CERT_ACCESS_DESCRIPTION& description, BerDecodeArena& arena) {
  BerReadCursor content;
  BerReadCursor oid;
  if (!BerExpect(in, kTagSequence, content)) return false;
  if (content.empty()) return true;
  return BerExpect(content, kTagOid, oid) && BerCopyOidText(oid.rest(), description.pszAccessMethod, arena)
      && BerDecodeAltEntry(content, description.AccessLocation, arena);
}

bool DescriptionEncode(const CERT_ACCESS_DESCRIPTION& description, BerWriteCursor& out) {
  return BerEncodeConstructed(kTagSequence, out, [&](BerWriteCursor& content) {
    return BerEncodeOidField(kTagOid, description.pszAccessMethod, content)
        && BerEncodeAltEntry(description.AccessLocation, content);
  });
}

}  // namespace

bool BerDecodeAltEntry(BerReadCursor& in, CERT_ALT_NAME_ENTRY& entry, BerDecodeArena& arena) {
  BYTE tag;
  BerReadCursor content;
  if (in.empty()) return true;
  if (!in.readElement(tag, content)) return false;
  // primitive or constructed alike, and whatever the class
  const DWORD choice = (tag & 0x5Fu) + 1;
  entry.dwAltNameChoice = choice;
  switch (choice) {
    case CERT_ALT_NAME_OTHER_NAME:
      return OtherNameDecode(content, entry.pOtherName, arena);
    case CERT_ALT_NAME_RFC822_NAME:
    case CERT_ALT_NAME_DNS_NAME:
    case CERT_ALT_NAME_URL:
      return AltTextDecode(content.rest(), entry.pwszURL, arena);
    case CERT_ALT_NAME_DIRECTORY_NAME:
      return HasSoundHeader(content) && BerCopyBytes(content.rest(), entry.DirectoryName, arena);
    case CERT_ALT_NAME_IP_ADDRESS:
      return BerCopyBytes(content.rest(), entry.IPAddress, arena);
    case CERT_ALT_NAME_REGISTERED_ID:
      return BerCopyOidText(content.rest(), entry.pszRegisteredID, arena);
    default:
      return false;
  }
}

bool BerEncodeAltEntry(const CERT_ALT_NAME_ENTRY& entry, BerWriteCursor& out) {
  const DWORD choice = entry.dwAltNameChoice;
  const BYTE tag = static_cast<BYTE>((choice - 1) | 0x80);
  switch (choice) {
    case CERT_ALT_NAME_OTHER_NAME:
      return OtherNameEncode(entry.pOtherName, out);
    case CERT_ALT_NAME_RFC822_NAME:
    case CERT_ALT_NAME_DNS_NAME:
    case CERT_ALT_NAME_URL:
      return AltTextEncode(tag, entry.pwszURL, out);
    case CERT_ALT_NAME_DIRECTORY_NAME:
      return BerEncodeOctets(static_cast<BYTE>(tag | kConstructed), entry.DirectoryName, out);
    case CERT_ALT_NAME_IP_ADDRESS:
      return BerEncodeOctets(tag, entry.IPAddress, out);
    case CERT_ALT_NAME_REGISTERED_ID:
      return BerEncodeOidField(tag, entry.pszRegisteredID, out);
    default:
      return false;
  }
}

bool BerDecodeAltNames(BerReadCursor& in, CERT_ALT_NAME_INFO& info, BerDecodeArena& arena) {
  return BerReadElements(in, info.cAltEntry, info.rgAltEntry, arena, BerDecodeAltEntry);
}

bool BerEncodeAltNames(BYTE tag, const CERT_ALT_NAME_INFO& info, BerWriteCursor& out) {
  return BerEncodeListOf(tag, info.rgAltEntry, info.cAltEntry, out, BerEncodeAltEntry);
}

bool AltNameDecode(BerReadCursor& in, CERT_ALT_NAME_INFO& info, BerDecodeArena& arena) {
  BerReadCursor content;
  return BerExpect(in, kTagSequence, content) && BerDecodeAltNames(content, info, arena);
}

bool AltNameEncode(const CERT_ALT_NAME_INFO& info, BerWriteCursor& out) {
  return BerEncodeAltNames(kTagSequence, info, out);
}

bool AccessDecode(BerReadCursor& in, CERT_AUTHORITY_INFO_ACCESS& info, BerDecodeArena& arena) {
  return BerReadSequenceOf(in, kTagSequence, info.cAccDescr, info.rgAccDescr, arena, DescriptionDecode);
}

bool AccessEncode(const CERT_AUTHORITY_INFO_ACCESS& info, BerWriteCursor& out) {
  return !info.cAccDescr
      || BerEncodeListOf(kTagSequence, info.rgAccDescr, info.cAccDescr, out, DescriptionEncode);
}

}  // namespace certkern
