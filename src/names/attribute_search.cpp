#include "names/attribute_search.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <cstring>

#include "names/decoded_name.h"
#include "names/value_text.h"

namespace certkern {
namespace {

// Null oid: any attribute.
const CERT_RDN_ATTR* FindFromLast(std::span<const CERT_RDN> relativeNames, LPCSTR oid) {
  for (size_t i = relativeNames.size(); i-- > 0;) {
    for (const CERT_RDN_ATTR& attribute : AttributesOf(relativeNames[i])) {
      if (!oid || std::strcmp(attribute.pszObjId, oid) == 0) return &attribute;
    }
  }
  return nullptr;
}

bool SameBytes(const CERT_RDN_VALUE_BLOB& a, const CERT_RDN_VALUE_BLOB& b) {
  return a.cbData == b.cbData && (!a.cbData || std::memcmp(a.pbData, b.pbData, a.cbData) == 0);
}

bool Matches(const CERT_RDN_ATTR& attribute, const CERT_RDN_ATTR& wanted) {
  if (wanted.dwValueType && wanted.dwValueType != attribute.dwValueType) return false;
  if (wanted.pszObjId && std::strcmp(wanted.pszObjId, attribute.pszObjId) != 0) return false;
  return !wanted.Value.pbData || SameBytes(wanted.Value, attribute.Value);
}

bool HasAttribute(const CERT_NAME_INFO& name, const CERT_RDN_ATTR& wanted) {
  return std::any_of(name.rgRDN, name.rgRDN + name.cRDN, [&](const CERT_RDN& relativeName) {
    return std::ranges::any_of(AttributesOf(relativeName),
                               [&](const CERT_RDN_ATTR& attribute) { return Matches(attribute, wanted); });
  });
}

PCERT_RDN_ATTR Broken() {
  SetLastError(ERROR_INVALID_PARAMETER);
  return nullptr;
}

}  // namespace

std::wstring SearchAttribute(const CERT_NAME_BLOB& name, std::span<const LPCSTR> oids) {
  static constexpr LPCSTR kAny[] = {nullptr};
  DecodedName decoded;
  std::wstring text;
  if (!decoded.decode(name)) return text;
  for (const LPCSTR oid : oids.empty() ? std::span<const LPCSTR>(kAny) : oids) {
    const CERT_RDN_ATTR* found = FindFromLast(decoded.relativeNames(), oid);
    if (!found) continue;
    if (!PlainDecodedValue(*found, text)) text.clear();
    break;
  }
  return text;
}

PCERT_RDN_ATTR FindAttribute(LPCSTR oid, const CERT_NAME_INFO& name) {
  if (name.cRDN && !name.rgRDN) return Broken();
  for (const CERT_RDN& relativeName : std::span(name.rgRDN, name.cRDN)) {
    if (relativeName.cRDNAttr && !relativeName.rgRDNAttr) return Broken();
    for (CERT_RDN_ATTR& attribute : std::span(relativeName.rgRDNAttr, relativeName.cRDNAttr)) {
      if (attribute.pszObjId && std::strcmp(attribute.pszObjId, oid) == 0) return &attribute;
    }
  }
  return nullptr;
}

bool HasAttributes(const CERT_NAME_INFO& name, const CERT_RDN& wanted) {
  if (wanted.cRDNAttr && !wanted.rgRDNAttr) return false;
  return std::ranges::all_of(AttributesOf(wanted),
                             [&](const CERT_RDN_ATTR& attribute) { return HasAttribute(name, attribute); });
}

}  // namespace certkern
