#include "ber/struct_types.h"

#include "ber/algorithm.h"
#include "ber/certificate.h"
#include "ber/distribution_point.h"
#include "ber/extension.h"
#include "ber/fields.h"
#include "ber/general_name.h"
#include "ber/key_identifier.h"
#include "ber/name.h"
#include "ber/policy.h"
#include "ber/sequences.h"
#include "ber/time_text.h"
#include "platform/limits.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace certkern {
namespace {

// --- from functions over a record to the columns of the table ---

using EncodeColumn = bool (*)(const void*, BerWriteCursor&);
using DecodeColumn = bool (*)(BerReadCursor&, void*, BerDecodeArena&);

template <typename Record>
struct Typed {
  template <bool (*kEncode)(const Record&, BerWriteCursor&)>
  static bool encode(const void* record, BerWriteCursor& out) {
    return kEncode(*static_cast<const Record*>(record), out);
  }
  template <bool (*kDecode)(BerReadCursor&, Record&, BerDecodeArena&)>
  static bool decode(BerReadCursor& in, void* record, BerDecodeArena& arena) {
    return kDecode(in, *static_cast<Record*>(record), arena);
  }
};

// A primitive on its own must have its identifier.
template <BYTE kTag, typename Record, bool (*kDecode)(BerReadCursor&, Record&, BerDecodeArena&)>
bool Tagged(BerReadCursor& in, Record& record, BerDecodeArena& arena) {
  return in.nextIs(kTag) ? kDecode(in, record, arena) : Fault(CRYPT_E_ASN1_BADTAG);
}

template <BYTE kTag>
bool Integer32Decode(BerReadCursor& in, DWORD& value, BerDecodeArena&) {
  BerReadCursor content;
  return BerExpect(in, kTag, content) && BerSignedValue(content.rest(), value);
}
template <BYTE kTag>
bool Integer32Encode(const DWORD& value, BerWriteCursor& out) {
  return BerEncodeInteger32(kTag, value, out);
}

// One primitive under the identifier of its type.
template <BYTE kTag, typename Record, bool (*kEncode)(BYTE, const Record&, BerWriteCursor&)>
bool Under(const Record& record, BerWriteCursor& out) {
  return kEncode(kTag, record, out);
}
bool OidEncode(const LPSTR& oid, BerWriteCursor& out) { return BerEncodeOidField(kTagOid, oid, out); }

// Named bits end with the last one that is set, so the last byte decides and not the caller's count. X.680, 22.7.
bool KeyUsageEncode(const CRYPT_BIT_BLOB& usage, BerWriteCursor& out) {
  CRYPT_BIT_BLOB bits = usage;
  bits.cUnusedBits = 0;
  if (bits.cbData && bits.pbData) {
    bits.cUnusedBits = static_cast<DWORD>(std::min(std::countr_zero(bits.pbData[bits.cbData - 1]), 7));
  }
  return BerEncodeBits(kTagBitString, bits, out);
}

// The bytes are whole elements; none are nothing.
bool ContentEncode(const CRYPT_DER_BLOB& blob, BerWriteCursor& out) {
  std::span<const BYTE> bytes;
  return BlobBytes(blob, bytes) && out.write(bytes);
}

bool UtcTimeEncode(const FILETIME& time, BerWriteCursor& out) { return BerEncodeUtcTime(time, out); }
bool ChoiceOfTimeEncode(const FILETIME& time, BerWriteCursor& out) { return BerEncodeTime(time, out); }
bool TimeDecode(BerReadCursor& in, FILETIME& time, BerDecodeArena& arena) {
  return BerDecodeTime(in, time, arena);
}

bool StrictNameDecode(BerReadCursor& in, CERT_NAME_INFO& name, BerDecodeArena& arena) {
  return NameDecode(in, NameValueForm::Strict, name, arena);
}
bool WideNameDecode(BerReadCursor& in, CERT_NAME_INFO& name, BerDecodeArena& arena) {
  return NameDecode(in, NameValueForm::Wide, name, arena);
}
bool DisplayNameDecode(BerReadCursor& in, CERT_NAME_INFO& name, BerDecodeArena& arena) {
  return NameDecode(in, NameValueForm::Lenient, name, arena);
}
bool TypedNameEncode(const CERT_NAME_INFO& name, BerWriteCursor& out) {
  return NameEncode(name, NameValues::AsTyped, out);
}
bool WideNameEncode(const CERT_NAME_INFO& name, BerWriteCursor& out) {
  return NameEncode(name, NameValues::Wide, out);
}

bool StrictValueDecode(BerReadCursor& in, CERT_NAME_VALUE& value, BerDecodeArena& arena) {
  return NameValueDecode(in, NameValueForm::Strict, value, arena);
}
bool WideValueDecode(BerReadCursor& in, CERT_NAME_VALUE& value, BerDecodeArena& arena) {
  return NameValueDecode(in, NameValueForm::Wide, value, arena);
}
bool WideValueEncode(const CERT_NAME_VALUE& value, BerWriteCursor& out) {
  return WideNameValueEncode(value, OctetStringType::Refused, out);
}

template <typename Record, bool (*kEncode)(const Record&, BerWriteCursor&),
          bool (*kDecode)(BerReadCursor&, Record&, BerDecodeArena&)>
constexpr StructType Row(uintptr_t number, const char* name) {
  return {number,
          name,
          sizeof(Record),
          sizeof(Record),
          Typed<Record>::template encode<kEncode>,
          Typed<Record>::template decode<kDecode>};
}
template <typename Record, bool (*kDecode)(BerReadCursor&, Record&, BerDecodeArena&)>
constexpr StructType ReadOnlyRow(uintptr_t number, const char* name) {
  return {number, name, sizeof(Record), sizeof(Record), nullptr, Typed<Record>::template decode<kDecode>};
}
template <typename Record, bool (*kEncode)(const Record&, BerWriteCursor&)>
constexpr StructType WriteOnlyRow(uintptr_t number, const char* name) {
  return {number, name, sizeof(Record), sizeof(Record), Typed<Record>::template encode<kEncode>, nullptr};
}
// A 32-bit number asks for a whole slot of 8.
template <BYTE kTag>
constexpr StructType NumberRow(uintptr_t number, const char* name) {
  StructType row = Row<DWORD, Integer32Encode<kTag>, Integer32Decode<kTag>>(number, name);
  row.recordSize = 8;
  return row;
}
template <BYTE kTag, typename Record, bool (*kEncode)(BYTE, const Record&, BerWriteCursor&),
          bool (*kDecode)(BerReadCursor&, Record&, BerDecodeArena&)>
constexpr StructType PrimitiveRow(uintptr_t number, const char* name) {
  return Row<Record, Under<kTag, Record, kEncode>, Tagged<kTag, Record, kDecode>>(number, name);
}

// By number, which the look-up relies on.
constexpr StructType kStructTypes[] = {
    Row<CERT_SIGNED_CONTENT_INFO, SignedContentEncode, SignedContentDecode>(1, "signed object"),
    Row<CERT_INFO, CertInfoEncode, CertInfoDecode>(2, "certificate"),
    Row<CRL_INFO, CrlInfoEncode, CrlInfoDecode>(3, "certificate revocation list"),
    Row<CERT_REQUEST_INFO, CertRequestInfoEncode, CertRequestInfoDecode>(4, "certificate request"),
    Row<CERT_EXTENSIONS, ExtensionsEncode, ExtensionsDecode>(5, "extensions"),
    Row<CERT_NAME_VALUE, NameValueEncode, StrictValueDecode>(6, "name value"),
    Row<CERT_NAME_INFO, TypedNameEncode, StrictNameDecode>(7, "name"),
    Row<CERT_PUBLIC_KEY_INFO, PublicKeyInfoEncode, PublicKeyInfoDecode>(8, "public key info"),
    Row<CERT_AUTHORITY_KEY_ID_INFO, AuthorityKeyIdEncode, AuthorityKeyIdDecode>(
        9, "authority key identifier, opaque issuer"),
    Row<CERT_ALT_NAME_INFO, AltNameEncode, AltNameDecode>(12, "general names"),
    Row<CRYPT_BIT_BLOB, KeyUsageEncode, Tagged<kTagBitString, CRYPT_BIT_BLOB, BerDecodeBits>>(14,
                                                                                              "key usage"),
    Row<CERT_BASIC_CONSTRAINTS2_INFO, BasicConstraintsEncode, BasicConstraintsDecode>(15,
                                                                                      "basic constraints"),
    Row<CERT_POLICIES_INFO, PoliciesEncode, PoliciesDecode>(16, "certificate policies"),
    Row<FILETIME, UtcTimeEncode, TimeDecode>(17, "UTC time"),
    Row<CERT_NAME_INFO, WideNameEncode, WideNameDecode>(20, "name with wide values"),
    WriteOnlyRow<CRYPT_ATTRIBUTE, AttributeEncode>(22, "attribute"),
    Row<CRYPT_CONTENT_INFO_SEQUENCE_OF_ANY, ContentInfoEncode, ContentInfoDecode>(23, "content info"),
    Row<CERT_NAME_VALUE, WideValueEncode, WideValueDecode>(24, "wide name value"),
    PrimitiveRow<kTagOctetString, CRYPT_DATA_BLOB, BerEncodeOctets, BerDecodeOctets>(25, "octet string"),
    PrimitiveRow<kTagBitString, CRYPT_BIT_BLOB, BerEncodeBits, BerDecodeBits>(26, "bit string"),
    NumberRow<kTagInteger>(27, "integer"),
    PrimitiveRow<kTagInteger, CRYPT_DATA_BLOB, BerEncodeInteger, BerDecodeInteger>(28, "long integer"),
    NumberRow<kTagEnumerated>(29, "enumerated"),
    Row<FILETIME, ChoiceOfTimeEncode, TimeDecode>(30, "time"),
    Row<CERT_AUTHORITY_KEY_ID2_INFO, AuthorityKeyId2Encode, AuthorityKeyId2Decode>(
        31, "authority key identifier"),
    Row<CERT_AUTHORITY_INFO_ACCESS, AccessEncode, AccessDecode>(32, "information access"),
    Row<CRYPT_SEQUENCE_OF_ANY, SequenceOfAnyEncode, SequenceOfAnyDecode>(34, "sequence of any"),
    Row<CRL_DIST_POINTS_INFO, DistPointsEncode, DistPointsDecode>(35, "CRL distribution points"),
    Row<CERT_ENHKEY_USAGE, EnhancedKeyUsageEncode, EnhancedKeyUsageDecode>(36, "enhanced key usage"),
    PrimitiveRow<kTagInteger, CRYPT_DATA_BLOB, BerEncodeUint, BerDecodeUint>(38, "unsigned long integer"),
    Row<CERT_POLICY_QUALIFIER_USER_NOTICE, UserNoticeEncode, UserNoticeDecode>(46, "user notice"),
    Row<CERT_DH_PARAMETERS, DhParametersEncode, DhParametersDecode>(47, "DH parameters"),
    Row<CRL_ISSUING_DIST_POINT, IssuingDistPointEncode, IssuingDistPointDecode>(54,
                                                                                "issuing distribution point"),
    Row<CERT_POLICY_MAPPINGS_INFO, PolicyMappingsEncode, PolicyMappingsDecode>(56, "policy mappings"),
    ReadOnlyRow<CERT_POLICY_CONSTRAINTS_INFO, PolicyConstraintsDecode>(57, "policy constraints"),
    Row<CERT_TEMPLATE_EXT, TemplateEncode, TemplateDecode>(64, "certificate template"),
    Row<LPSTR, OidEncode, Tagged<kTagOid, LPSTR, BerDecodeOidField>>(73, "object identifier"),
    Row<CRYPT_DER_BLOB, ContentEncode, BerCaptureElement>(kTypeElementContent, "element content"),
    Row<CRYPT_DER_BLOB, BerEncodeVerbatim, BerCaptureElement>(kTypeElement, "element"),
    Row<CRYPT_ENROLLMENT_NAME_VALUE_PAIR, NameValuePairEncode, NameValuePairDecode>(
        kTypeNameValuePair, "enrollment name and value"),
    Row<CRYPT_CSP_PROVIDER, CspProviderEncode, CspProviderDecode>(kTypeCspProvider, "enrollment provider"),
    ReadOnlyRow<CERT_NAME_INFO, DisplayNameDecode>(kTypeDisplayName, "name for display"),
    WriteOnlyRow<CERT_RDN_ATTR, WideAttributeEncode>(kTypeWideAttribute, "name attribute"),
};

constexpr bool ByNumber(const StructType& a, const StructType& b) { return a.number < b.number; }
static_assert(std::is_sorted(std::begin(kStructTypes), std::end(kStructTypes), ByNumber),
              "searched by halves");

constexpr size_t kLargestRecord =
    std::max_element(std::begin(kStructTypes), std::end(kStructTypes),
                     [](const StructType& a, const StructType& b) { return a.recordSize < b.recordSize; })
        ->recordSize;

// Types that are signed as a whole may come with the signature around them, and are told apart by the stream alone.
// Moves to the inner structure of a signed object; stays where it is for a bare one.
bool UnwrapSigned(BerReadCursor& in, uintptr_t type) {
  size_t header;
  size_t length;
  if (!in.nextIs(kTagSequence) || !in.peekHeader(header, length)) return false;
  BerReadCursor inner = in;
  inner.skip(header);
  if (!length || inner.empty()) return false;
  if (!inner.nextIs(kTagSequence)) return true;
  if (type == StructNumber(X509_CERT_CRL_TO_BE_SIGNED)) {
    // a bare list without a version opens with the SEQUENCE of its algorithm, which opens with an OID
    if (!inner.peekHeader(header, length)) return false;
    BerReadCursor content = inner;
    content.skip(header);
    if (!length || content.empty()) return false;
    if (!content.nextIs(kTagInteger) && !content.nextIs(kTagSequence)) return true;
  }
  in = inner;
  return true;
}

bool IsSignedWhole(uintptr_t type) {
  return type == StructNumber(X509_CERT_TO_BE_SIGNED) || type == StructNumber(X509_CERT_CRL_TO_BE_SIGNED)
      || type == StructNumber(X509_CERT_REQUEST_TO_BE_SIGNED);
}

// The sizing pass: what the record and all that it points to will take.
bool MeasureRecord(const StructType& type, BerReadCursor in, DWORD& size) {
  alignas(std::max_align_t) BYTE unkept[kLargestRecord];
  std::memset(unkept, 0, type.recordSize);
  BerDecodeArena arena(type.recordSize);
  if (!type.decode(in, unkept, arena) || arena.size() > kMaxInterfaceSize) return false;
  size = static_cast<DWORD>(arena.size());
  return true;
}

// The filling pass.
bool FillRecord(const StructType& type, BerReadCursor in, void* record, DWORD size) {
  if (size < type.recordLeast) return false;
  const size_t recordSize = std::min<size_t>(type.recordSize, size);
  std::memset(record, 0, recordSize);
  BerDecodeArena arena(static_cast<BYTE*>(record), size, recordSize);
  return type.decode(in, record, arena);
}

}  // namespace

std::span<const StructType> StructTypes() { return kStructTypes; }

const StructType* FindStructType(uintptr_t number) {
  const auto* row =
      std::lower_bound(std::begin(kStructTypes), std::end(kStructTypes), number,
                       [](const StructType& type, uintptr_t wanted) { return type.number < wanted; });
  return row != std::end(kStructTypes) && row->number == number ? row : nullptr;
}

bool BerEncodeByType(uintptr_t type, const void* record, BYTE* out, DWORD* size) {
  if (!record || !size || !type) return Fault(ERROR_INVALID_PARAMETER);
  const StructType* row = FindStructType(type);
  if (!row || !row->encode) return false;
  if (!out) {
    BerWriteCursor counter;
    if (!row->encode(record, counter)) return false;
    *size = static_cast<DWORD>(counter.count());
    return true;
  }
  BerWriteCursor cursor(out, *size);
  if (!row->encode(record, cursor)) return false;
  *size -= static_cast<DWORD>(cursor.count());
  return true;
}

bool BerDecodeEntry(SizeKnown known, const StructType& type, std::span<const BYTE> input, DWORD flags,
                    void* record, DWORD* size) {
  BerReadCursor in(input);
  if (!type.decode) return false;
  if (IsSignedWhole(type.number) && !(flags & CRYPT_DECODE_TO_BE_SIGNED_FLAG)
      && !UnwrapSigned(in, type.number)) {
    return false;
  }
  if (known == SizeKnown::Yes) return record && FillRecord(type, in, record, *size);
  DWORD needed;
  if (!MeasureRecord(type, in, needed)) return false;
  const DWORD given = *size;
  *size = needed;
  if (!record) return true;
  return given >= needed && FillRecord(type, in, record, needed);
}

}  // namespace certkern
