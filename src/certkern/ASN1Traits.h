// Copies between generated types and published records, a pair of functions for each pair. What fails throws.
//
//   get  generated to record. Texts, bytes and arrays go into an arena, which may only count: the same call sizes and fills.
//   set  record to generated. Everything is copied into the context's heap; the record may go. A null pointer with a
//        count or a length, and a missing identifier, are failures.
//
// A Name crosses as one blob. It is written anew in the order of its list, because who issued it did not always sort: an
// encoder of what `set` has made needs SetOrder::AsGiven, too.
#ifndef CERTKERN_CERTKERN_ASN1TRAITS_H
#define CERTKERN_CERTKERN_ASN1TRAITS_H

#include <certkern/find.h>
#include <certkern/ocsp.h>

#include <algorithm>
#include <span>

#include "asn1data/attribute_certificate.h"
#include "asn1data/certificate.h"
#include "asn1data/cms.h"
#include "asn1data/cms_recipients.h"
#include "asn1data/pkcs12.h"
#include "asn1rt/control.h"
#include "ber/decode_arena.h"
#include "certkern/ASN1Util.h"
#include "platform/exceptions.h"

namespace certkern {

// --- pieces in an arena ---

void ArenaCopy(std::span<const BYTE> bytes, CRYPT_DATA_BLOB& blob, BerDecodeArena& arena);
void ArenaText(const ASN1ObjectId& oid, LPSTR& text, BerDecodeArena& arena);
// Zeroed; null while the arena counts.
template <class Record>
Record* ArenaArray(size_t count, BerDecodeArena& arena) {
  Record* records;
  if (!arena.reserveRecords(count, records)) throw Asn1Exception("out of memory");
  if (records) std::fill_n(records, count, Record{});
  return records;
}

// What callers gave: a null pointer with a count throws.
std::span<const BYTE> GivenBytes(const CRYPT_DATA_BLOB& blob);
template <class Record>
std::span<const Record> GivenArray(const Record* records, DWORD count) {
  if (!records && count) throw CryptException(ERROR_INVALID_PARAMETER);
  return {records, records ? count : 0};
}

// --- values ---

struct OctetsTraits {
  static void get(const ASN1OctetString& octets, CRYPT_DATA_BLOB& blob, BerDecodeArena& arena) {
    ArenaCopy(octets.bytes(), blob, arena);
  }
  static void set(ASN1Context& context, const CRYPT_DATA_BLOB& blob, ASN1OctetString& octets) {
    octets = CopyOctets(context, GivenBytes(blob));
  }
};

// One whole encoded value. What was decoded from it is not looked at, and nothing is decoded on the way back.
struct OpenTraits {
  static void get(const ASN1OpenValue& value, CRYPT_DATA_BLOB& blob, BerDecodeArena& arena) {
    ArenaCopy(value.encoded.bytes(), blob, arena);
  }
  static void set(ASN1Context& context, const CRYPT_DATA_BLOB& blob, ASN1OpenValue& value) {
    value = {CopyOctets(context, GivenBytes(blob)), nullptr, nullptr};
  }
};

struct BitsTraits {
  static void get(const ASN1BitString& bits, CRYPT_BIT_BLOB& blob, BerDecodeArena& arena);
  static void set(ASN1Context& context, const CRYPT_BIT_BLOB& blob, ASN1BitString& bits);
};

// Little-endian in the record. Octets are kept on the way there; the way back gives the shortest form, of an empty blob
// none, which no encoder takes.
struct SerialNumberTraits {
  static void get(const ASN1BigInteger& number, CRYPT_INTEGER_BLOB& blob, BerDecodeArena& arena);
  static void set(ASN1Context& context, const CRYPT_INTEGER_BLOB& blob, ASN1BigInteger& number);
};

struct NameTraits {
  static void get(const asn1data::ASN1T_Name& name, CERT_NAME_BLOB& blob, BerDecodeArena& arena);
  static void set(ASN1Context& context, const CERT_NAME_BLOB& blob, asn1data::ASN1T_Name& name);
};

// Both in UTC; whole seconds on the way back, as certificates and messages want them.
struct GeneralizedTimeTraits {
  static void get(const ASN1Text& text, FILETIME& time) { time = GeneralizedTimeToFileTime(text.text()); }
  static void set(ASN1Context& context, const FILETIME& time, ASN1Text& text);
};
// UTCTime from 1950 to 2049.
struct TimeTraits {
  static void get(const asn1data::ASN1T_Time& generated, FILETIME& time);
  static void set(ASN1Context& context, const FILETIME& time, asn1data::ASN1T_Time& generated);
};

// --- structures ---

struct AlgorithmTraits {
  using Generated = asn1data::ASN1T_AlgorithmIdentifier;
  static void get(const Generated& generated, CRYPT_ALGORITHM_IDENTIFIER& record, BerDecodeArena& arena);
  // Parameters that are NULL come back empty, as absent ones do: signers may write either.
  static void getWithoutNull(const Generated& generated, CRYPT_ALGORITHM_IDENTIFIER& record,
                             BerDecodeArena& arena);
  // Parameters as they are; for empty ones see EmptyParametersOf.
  static void set(ASN1Context& context, const CRYPT_ALGORITHM_IDENTIFIER& record, Generated& generated);
};

struct ExtensionTraits {
  using Generated = asn1data::ASN1T_Extension;
  static void get(const Generated& generated, CERT_EXTENSION& record, BerDecodeArena& arena);
  static void set(ASN1Context& context, const CERT_EXTENSION& record, Generated& generated);
};

struct IssuerSerialTraits {
  using Generated = asn1data::ASN1T_IssuerAndSerialNumber;
  static void get(const Generated& generated, CERT_ISSUER_SERIAL_NUMBER& record, BerDecodeArena& arena);
  static void set(ASN1Context& context, const CERT_ISSUER_SERIAL_NUMBER& record, Generated& generated);
};

// --- lists ---

// The elements' traits take (generated, record, arena) and (context, record, generated).
template <class Traits, class Element, class Record>
void GetList(const ASN1ListOf<Element>& list, DWORD& count, Record*& records, BerDecodeArena& arena) {
  count = list.count;
  records = list.count ? ArenaArray<Record>(list.count, arena) : nullptr;
  Record* next = records;
  for (const Element& element : list) {
    Record unkept{};  // where the fields go while the arena only counts
    Traits::get(element, next ? *next++ : unkept, arena);
  }
}
template <class Traits, class Element, class Record>
void SetList(ASN1Context& context, const Record* records, DWORD count, ASN1ListOf<Element>& list) {
  list = {};
  for (const Record& record : GivenArray(records, count)) {
    auto* const element = AppendElement(context, list);
    CheckedMemory(element);
    Traits::set(context, record, *element);
  }
}

// Attributes of messages and of PKCS #12 bags have the same shape under other names.
struct AttributeTraits {
  static void get(const asn1data::ASN1T_Attribute& generated, CRYPT_ATTRIBUTE& record, BerDecodeArena& arena);
  static void get(const asn1data::ASN1T_PKCS12Attribute& generated, CRYPT_ATTRIBUTE& record,
                  BerDecodeArena& arena);
  static void set(ASN1Context& context, const CRYPT_ATTRIBUTE& record, asn1data::ASN1T_Attribute& generated);
  static void set(ASN1Context& context, const CRYPT_ATTRIBUTE& record,
                  asn1data::ASN1T_PKCS12Attribute& generated);
};

struct AttributesTraits {
  template <class Element>
  static void get(const ASN1ListOf<Element>& list, CRYPT_ATTRIBUTES& record, BerDecodeArena& arena) {
    GetList<AttributeTraits>(list, record.cAttr, record.rgAttr, arena);
  }
  template <class Element>
  static void set(ASN1Context& context, const CRYPT_ATTRIBUTES& record, ASN1ListOf<Element>& list) {
    SetList<AttributeTraits>(context, record.rgAttr, record.cAttr, list);
  }
};

struct ExtensionsTraits {
  static void get(const asn1data::ASN1T_Extensions& list, CERT_EXTENSIONS& record, BerDecodeArena& arena) {
    GetList<ExtensionTraits>(list, record.cExtension, record.rgExtension, arena);
  }
  static void set(ASN1Context& context, const CERT_EXTENSIONS& record, asn1data::ASN1T_Extensions& list) {
    SetList<ExtensionTraits>(context, record.rgExtension, record.cExtension, list);
  }
};

// Signers and recipients: choices between issuer with serial number and key identifier, of the same alternatives. False for
// another choice.
struct CertIdTraits {
  template <class Choice>
  [[nodiscard]] static bool get(const Choice& choice, CERT_ID& record, BerDecodeArena& arena) {
    if (choice.t == Choice::t_issuerAndSerialNumber) {
      record.dwIdChoice = CERT_ID_ISSUER_SERIAL_NUMBER;
      IssuerSerialTraits::get(*choice.u.issuerAndSerialNumber, record.IssuerSerialNumber, arena);
      return true;
    }
    if (choice.t != Choice::t_subjectKeyIdentifier) return false;
    record.dwIdChoice = CERT_ID_KEY_IDENTIFIER;
    OctetsTraits::get(choice.u.subjectKeyIdentifier, record.KeyId, arena);
    return true;
  }
  template <class Choice>
  [[nodiscard]] static bool set(ASN1Context& context, const CERT_ID& record, Choice& choice) {
    if (record.dwIdChoice == CERT_ID_ISSUER_SERIAL_NUMBER) {
      auto* const id = AllocateValue<asn1data::ASN1T_IssuerAndSerialNumber>(context);
      IssuerSerialTraits::set(context, record.IssuerSerialNumber, *id);
      choice.t = Choice::t_issuerAndSerialNumber;
      choice.u.issuerAndSerialNumber = id;
      return true;
    }
    if (record.dwIdChoice != CERT_ID_KEY_IDENTIFIER) return false;
    OctetsTraits::set(context, record.KeyId, choice.u.subjectKeyIdentifier);
    choice.t = Choice::t_subjectKeyIdentifier;
    return true;
  }
};

}  // namespace certkern

#endif
