#include "certkern/ASN1Traits.h"

#include <certkern/keykern.h>

#include <cstring>
#include <string>

#include "asn1data/names.h"
#include "asn1rt/message_buffer.h"
#include "platform/sizes.h"

namespace certkern {
namespace {

using namespace asn1data;

constexpr BYTE kNull[] = {0x05, 0x00};

BYTE* Reserve(size_t size, BerDecodeArena& arena) {
  BYTE* place;
  if (!arena.reserve(size, place)) throw Asn1Exception("out of memory");
  return place;
}

ASN1Text CopyText(ASN1Context& context, std::string_view text) {
  const auto octets = CopyOctets(context, {reinterpret_cast<const BYTE*>(text.data()), text.size()});
  return {octets.numocts, reinterpret_cast<const char*>(octets.data)};
}

std::string WholeSeconds(const FILETIME& time) {
  std::string text = FileTimeToGeneralizedTime(time);
  constexpr size_t kSecondsEnd = sizeof("YYYYMMDDHHMMSS") - 1;
  if (text.size() > kSecondsEnd + 1) text.replace(kSecondsEnd, text.npos, "Z");
  return text;
}

}  // namespace

// --- pieces in an arena ---

void ArenaCopy(std::span<const BYTE> bytes, CRYPT_DATA_BLOB& blob, BerDecodeArena& arena) {
  blob = {CheckedDword(bytes.size()), nullptr};
  if (bytes.empty()) return;
  blob.pbData = Reserve(bytes.size(), arena);
  if (blob.pbData) std::memcpy(blob.pbData, bytes.data(), bytes.size());
}

void ArenaText(const ASN1ObjectId& oid, LPSTR& text, BerDecodeArena& arena) {
  const std::string dotted = oid2str(oid);
  BYTE* const place = Reserve(dotted.size() + 1, arena);
  if (place) std::memcpy(place, dotted.c_str(), dotted.size() + 1);
  text = reinterpret_cast<LPSTR>(place);
}

std::span<const BYTE> GivenBytes(const CRYPT_DATA_BLOB& blob) {
  return GivenArray<BYTE>(blob.pbData, blob.cbData);
}

// --- values ---

void BitsTraits::get(const ASN1BitString& bits, CRYPT_BIT_BLOB& blob, BerDecodeArena& arena) {
  const DWORD size = bits.numbits / 8 + (bits.numbits % 8 != 0);
  CRYPT_DATA_BLOB bytes;
  ArenaCopy({bits.data, size}, bytes, arena);
  blob = {bytes.cbData, bytes.pbData, static_cast<DWORD>(uint64_t{size} * 8 - bits.numbits)};
}

void BitsTraits::set(ASN1Context& context, const CRYPT_BIT_BLOB& blob, ASN1BitString& bits) {
  const auto octets = CopyOctets(context, GivenArray<BYTE>(blob.pbData, blob.cbData));
  const uint64_t count = uint64_t{octets.numocts} * 8;
  if (blob.cUnusedBits > 7 || blob.cUnusedBits > count || !FitsDword(count))
    throw CryptException(ERROR_INVALID_PARAMETER);
  bits = {static_cast<uint32_t>(count - blob.cUnusedBits), octets.data};
}

void SerialNumberTraits::get(const ASN1BigInteger& number, CRYPT_INTEGER_BLOB& blob, BerDecodeArena& arena) {
  ArenaCopy(number.bytes(), blob, arena);
  if (blob.pbData) std::reverse(blob.pbData, blob.pbData + blob.cbData);
}

void SerialNumberTraits::set(ASN1Context& context, const CRYPT_INTEGER_BLOB& blob, ASN1BigInteger& number) {
  std::span<const BYTE> little = GivenBytes(blob);
  // an octet that only repeats the sign of the next one
  while (little.size() > 1) {
    const bool negative = little[little.size() - 2] & 0x80;
    if (little.back() != (negative ? 0xFF : 0x00)) break;
    little = little.first(little.size() - 1);
  }
  auto* const octets = static_cast<BYTE*>(CheckedMemory(context.copy(little)));
  std::reverse(octets, octets + little.size());
  number = {CheckedDword(little.size()), octets};
}

void NameTraits::get(const ASN1T_Name& name, CERT_NAME_BLOB& blob, BerDecodeArena& arena) {
  ASN1BEREncodeBuffer buffer;
  buffer.context().setSetOrder(SetOrder::AsGiven);
  ASN1T_Name copy = name;
  const int length = ASN1C_Name(buffer, copy).Encode();
  if (length <= 0) throw Asn1Exception("Can't encode name.");
  ArenaCopy({buffer.GetMsgPtr(), buffer.GetMsgLen()}, blob, arena);
}

void NameTraits::set(ASN1Context& context, const CERT_NAME_BLOB& blob, ASN1T_Name& name) {
  const auto octets = CopyOctets(context, GivenBytes(blob));
  ASN1BERDecodeBuffer buffer(ASN1ContextPtr::Share(&context), octets.data, octets.numocts);
  if (ASN1C_Name(buffer, name).Decode() != ASN1_OK || context.position() != octets.numocts) {
    throw Asn1DecodeException("Can't decode name.");
  }
}

void GeneralizedTimeTraits::set(ASN1Context& context, const FILETIME& time, ASN1Text& text) {
  text = CopyText(context, WholeSeconds(time));
}

void TimeTraits::get(const ASN1T_Time& generated, FILETIME& time) {
  time = generated.t == ASN1T_Time::t_utcTime ? UtcTimeToFileTime(generated.u.utcTime.text())
                                              : GeneralizedTimeToFileTime(generated.u.generalTime.text());
}

void TimeTraits::set(ASN1Context& context, const FILETIME& time, ASN1T_Time& generated) {
  const std::string text = WholeSeconds(time);
  if (text >= "1950" && text < "2050") {
    generated.t = ASN1T_Time::t_utcTime;
    generated.u.utcTime = CopyText(context, std::string_view(text).substr(2));
  } else {
    generated.t = ASN1T_Time::t_generalTime;
    generated.u.generalTime = CopyText(context, text);
  }
}

// --- structures ---

void AlgorithmTraits::get(const Generated& generated, CRYPT_ALGORITHM_IDENTIFIER& record,
                          BerDecodeArena& arena) {
  ArenaText(generated.algorithm, record.pszObjId, arena);
  if (generated.m.parametersPresent) OpenTraits::get(generated.parameters, record.Parameters, arena);
}

void AlgorithmTraits::getWithoutNull(const Generated& generated, CRYPT_ALGORITHM_IDENTIFIER& record,
                                     BerDecodeArena& arena) {
  const bool null = std::ranges::equal(generated.parameters.encoded.bytes(), kNull);
  if (null) {
    ArenaText(generated.algorithm, record.pszObjId, arena);
  } else {
    get(generated, record, arena);
  }
}

void AlgorithmTraits::set(ASN1Context& context, const CRYPT_ALGORITHM_IDENTIFIER& record,
                          Generated& generated) {
  generated = {};
  generated.algorithm = StrToOid(context, record.pszObjId);
  const std::span<const BYTE> parameters = GivenBytes(record.Parameters);
  if (!parameters.empty()) {
    generated.parameters.encoded = CopyOctets(context, parameters);
  } else if (EmptyParametersOf(record.pszObjId) == EmptyParameters::Null) {
    generated.parameters.encoded = {sizeof(kNull), kNull};
  }
  generated.m.parametersPresent = generated.parameters.encoded.numocts != 0;
}

void ExtensionTraits::get(const Generated& generated, CERT_EXTENSION& record, BerDecodeArena& arena) {
  ArenaText(generated.extnID, record.pszObjId, arena);
  record.fCritical = generated.critical;
  OctetsTraits::get(generated.extnValue, record.Value, arena);
}

void ExtensionTraits::set(ASN1Context& context, const CERT_EXTENSION& record, Generated& generated) {
  generated.extnID = StrToOid(context, record.pszObjId);
  generated.critical = record.fCritical != FALSE;
  OctetsTraits::set(context, record.Value, generated.extnValue);
}

void IssuerSerialTraits::get(const Generated& generated, CERT_ISSUER_SERIAL_NUMBER& record,
                             BerDecodeArena& arena) {
  NameTraits::get(generated.issuer, record.Issuer, arena);
  SerialNumberTraits::get(generated.serialNumber, record.SerialNumber, arena);
}

void IssuerSerialTraits::set(ASN1Context& context, const CERT_ISSUER_SERIAL_NUMBER& record,
                             Generated& generated) {
  NameTraits::set(context, record.Issuer, generated.issuer);
  SerialNumberTraits::set(context, record.SerialNumber, generated.serialNumber);
}

void AttributeTraits::get(const ASN1T_Attribute& generated, CRYPT_ATTRIBUTE& record, BerDecodeArena& arena) {
  ArenaText(generated.type, record.pszObjId, arena);
  GetList<OpenTraits>(generated.values, record.cValue, record.rgValue, arena);
}
void AttributeTraits::get(const ASN1T_PKCS12Attribute& generated, CRYPT_ATTRIBUTE& record,
                          BerDecodeArena& arena) {
  ArenaText(generated.attrId, record.pszObjId, arena);
  GetList<OpenTraits>(generated.attrValues, record.cValue, record.rgValue, arena);
}

void AttributeTraits::set(ASN1Context& context, const CRYPT_ATTRIBUTE& record, ASN1T_Attribute& generated) {
  generated.type = StrToOid(context, record.pszObjId);
  SetList<OpenTraits>(context, record.rgValue, record.cValue, generated.values);
}
void AttributeTraits::set(ASN1Context& context, const CRYPT_ATTRIBUTE& record,
                          ASN1T_PKCS12Attribute& generated) {
  generated.attrId = StrToOid(context, record.pszObjId);
  SetList<OpenTraits>(context, record.rgValue, record.cValue, generated.attrValues);
}

}  // namespace certkern
