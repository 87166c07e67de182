#include "certkern/ASN1Util.h"

#include <certkern/keykern.h>
#include <certkern/keys.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "asn1data/algorithms.h"
#include "asn1data/built_in.h"
#include "asn1rt/control.h"
#include "asn1rt/message_buffer.h"
#include "asn1rt/time_parts.h"
#include "keys/public_key.h"
#include "oid/algorithm_lookup.h"
#include "oid/signature_row.h"
#include "platform/exceptions.h"
#include "platform/sizes.h"

namespace certkern {
namespace {

using asn1data::ASN1T_AlgorithmIdentifier;

constexpr const char* kBadTime = "ASN1GeneralizedTime is incorrect";
constexpr size_t kSecondsEnd = sizeof("YYYYMMDDHHMMSS") - 1;

// Takes the number that text begins with, and blanks behind it.
uint32_t TakeArc(const char*& text) {
  char* end;
  const auto arc = static_cast<uint32_t>(std::strtoul(text, &end, 0));
  text = end;
  while (std::isspace(static_cast<unsigned char>(*text))) ++text;
  return arc;
}

WORD Digits(std::string_view text, size_t at, size_t count) {
  unsigned value = 0;
  for (const char c : text.substr(at, count)) {
    if (c < '0' || c > '9') throw Asn1Exception(kBadTime);
    value = value * 10 + static_cast<unsigned>(c - '0');
  }
  return static_cast<WORD>(value);
}

// ".digits" or nothing.
WORD Milliseconds(std::string_view fraction) {
  if (fraction.empty()) return 0;
  if (fraction.front() != '.') throw Asn1Exception(kBadTime);
  fraction.remove_prefix(1);
  for (size_t i = 0; i < fraction.size(); ++i) Digits(fraction, i, 1);
  std::string digits(fraction.substr(0, 3));
  digits.resize(3, '0');
  return Digits(digits, 0, 3);
}

FILETIME ToFileTime(const SYSTEMTIME& parts) {
  FILETIME time;
  if (!SystemTimeToFileTime(&parts, &time)) throw Asn1Exception(kBadTime);
  return time;
}

bool OmitsNull(DWORD flags) { return flags & CRYPT_OID_NO_NULL_ALGORITHM_PARA_FLAG; }

// The first word of what the table says about a key.
DWORD KeyFlags(const CRYPT_OID_INFO& row) {
  DWORD flags = 0;
  if (row.ExtraInfo.cbData >= sizeof(flags)) std::memcpy(&flags, row.ExtraInfo.pbData, sizeof(flags));
  return flags;
}

}  // namespace

// --- object identifiers ---

int str2oid(const char* text, ASN1OBJID& oid) {
  if (!text) return 1;
  oid.numids = 0;
  while (true) {
    if (oid.numids == kMaxOidArcs) return 1;
    oid.subid[oid.numids++] = TakeArc(text);
    if (!*text) return 0;
    if (*text++ != '.') return 1;
  }
}

void StrToOid(const char* text, ASN1OBJID& oid) {
  if (str2oid(text, oid) != 0) throw Asn1Exception("Can't convert str to oid.");
}

ASN1ObjectId StrToOid(ASN1Context& context, const char* text) {
  ASN1OBJID oid;
  StrToOid(text, oid);
  const size_t size = oid.numids * sizeof(uint32_t);
  auto* const arcs = static_cast<uint32_t*>(CheckedMemory(context.allocate(size)));
  std::copy_n(oid.subid, oid.numids, arcs);
  return {oid.numids, arcs};
}

std::string oid2str(const ASN1ObjectId& oid) {
  if (oid.numids == 0 || oid.numids > kMaxOidArcs || !oid.subid) {
    throw Asn1Exception("Can't convert oid to str.");
  }
  std::string text;
  for (const uint32_t arc : oid.arcs()) {
    if (!text.empty()) text += '.';
    text += std::to_string(arc);
  }
  return text;
}

// --- algorithms ---

ASN1T_AlgorithmIdentifier* AlgorithmToGenerated(ASN1Context& context, const char* oid,
                                                std::span<const BYTE> parameters) {
  auto* const algorithm = AllocateValue<ASN1T_AlgorithmIdentifier>(context);
  ASN1OBJID arcs;
  if (str2oid(oid, arcs) != 0) throw Asn1Exception("str2oid failed");
  algorithm->algorithm = StrToOid(context, oid);
  if (parameters.empty()) return algorithm;
  algorithm->m.parametersPresent = 1;
  algorithm->parameters.encoded = CopyOctets(context, parameters);
  // a budget of its own, by the size of the parameters
  const ASN1BERDecodeBuffer buffer(ASN1ContextPtr::Share(&context), algorithm->parameters.encoded.data,
                                   parameters.size());
  if (DecodeOpenValue(context, asn1data::kObjects_SupportedAlgorithms, algorithm->algorithm,
                      algorithm->parameters)
      != ASN1_OK) {
    throw Asn1DecodeException("decode algorithm parameters failed");
  }
  return algorithm;
}

ASN1T_AlgorithmIdentifier* DefaultSignatureAlgorithm(ASN1Context& context, HCRYPTPROV provider,
                                                     DWORD keySpec) {
  DWORD size = 0;
  if (!ExportPublicKey(provider, keySpec, X509_ASN_ENCODING, nullptr, 0, nullptr, nullptr, &size)) {
    ThrowLastError();
  }
  std::vector<uint64_t> room(size / sizeof(uint64_t) + 1);  // aligned as the record wants it
  auto* const info = reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(room.data());
  if (!ExportPublicKey(provider, keySpec, X509_ASN_ENCODING, nullptr, 0, nullptr, info, &size)) {
    ThrowLastError();
  }
  const PCCRYPT_OID_INFO row = DefaultSignatureInfo(info->Algorithm.pszObjId);
  if (!row) throw Asn1Exception("oid info not found");
  if (!row->pszOID) throw Asn1Exception("oid not found");
  return AlgorithmToGenerated(context, row->pszOID, {});
}

EmptyParameters EmptyParametersOf(const char* oid) {
  if (!oid) return EmptyParameters::Absent;
  using enum EmptyParameters;
  constexpr std::string_view kRussianArc = "1.2.643.";
  if (FindByOid(oid, CRYPT_HASH_ALG_OID_GROUP_ID)) {
    return std::string_view(oid).starts_with(kRussianArc) ? Absent : Null;
  }
  if (const auto signature = FindSignatureRow(oid)) return OmitsNull(signature->flags) ? Absent : Null;
  if (const auto* key = FindByOid(oid, CRYPT_PUBKEY_ALG_OID_GROUP_ID)) {
    return OmitsNull(KeyFlags(*key)) ? Absent : Null;
  }
  ASN1OBJID arcs;
  if (str2oid(oid, arcs) != 0) return Absent;
  const ObjectInfo* const object = FindObject(asn1data::kObjects_SupportedAlgorithms, AsField(arcs));
  return object && object->type && object->type->kind == TypeKind::Null ? Null : Absent;
}

// --- numbers, digits, times ---

int32_t DecodeInteger(std::span<const BYTE> encoded) {
  ASN1BERDecodeBuffer buffer(encoded.data(), encoded.size());
  asn1data::ASN1T_INTEGER32 value = 0;
  if (asn1data::ASN1C_INTEGER32(buffer, value).Decode() != ASN1_OK) {
    throw Asn1Exception("decode integer failed");
  }
  return value;
}

std::string LowerHex(std::span<const BYTE> bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const BYTE byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

FILETIME GeneralizedTimeToFileTime(std::string_view text) {
  if (text.size() <= kSecondsEnd || text.back() != 'Z') throw Asn1Exception(kBadTime);
  text.remove_suffix(1);
  SYSTEMTIME parts{};
  parts.wYear = Digits(text, 0, 4);
  parts.wMonth = Digits(text, 4, 2);
  parts.wDay = Digits(text, 6, 2);
  parts.wHour = Digits(text, 8, 2);
  parts.wMinute = Digits(text, 10, 2);
  parts.wSecond = Digits(text, 12, 2);
  parts.wMilliseconds = Milliseconds(text.substr(kSecondsEnd));
  return ToFileTime(parts);
}

std::string FileTimeToGeneralizedTime(const FILETIME& time) {
  SYSTEMTIME parts;
  if (!FileTimeToSystemTime(&time, &parts) || parts.wYear > 9999) throw Asn1Exception(kBadTime);
  TimeParts printed;
  printed.year = parts.wYear;
  printed.month = parts.wMonth;
  printed.day = parts.wDay;
  printed.hour = parts.wHour;
  printed.minute = parts.wMinute;
  printed.second = parts.wSecond;
  if (parts.wMilliseconds) {
    std::string digits = std::to_string(1000 + parts.wMilliseconds).substr(1);
    digits.erase(digits.find_last_not_of('0') + 1);  // DER has no zeros at the end
    if (!printed.setFraction(digits)) throw Asn1Exception(kBadTime);
  }
  std::array<char, kMaxTimeText> room;
  return std::string(PrintGeneralizedTime(printed, room));
}

FILETIME UtcTimeToFileTime(std::string_view text) {
  constexpr int64_t kSecondsBefore1970 = 11644473600;
  constexpr int64_t kTicks = 10'000'000;
  TimeParts parts;
  if (!ParseUtcTime(text, parts)) throw Asn1Exception(kBadTime);
  const auto ticks = static_cast<uint64_t>((ToCalendarTime(parts) + kSecondsBefore1970) * kTicks);
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

// --- the context's heap ---

void* CheckedMemory(void* memory) {
  if (!memory) throw Asn1Exception("out of memory");
  return memory;
}

ASN1OctetString CopyOctets(ASN1Context& context, std::span<const BYTE> bytes) {
  return {CheckedDword(bytes.size()), static_cast<const uint8_t*>(CheckedMemory(context.copy(bytes)))};
}

}  // namespace certkern
