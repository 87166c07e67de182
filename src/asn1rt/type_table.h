// What the schema compiler writes about each type, and what the one encoder and the one decoder run on. All tables are
// constants. Offsets are into the generated structures.
#ifndef CERTKERN_ASN1RT_TYPE_TABLE_H
#define CERTKERN_ASN1RT_TYPE_TABLE_H

#include <cstdint>
#include <span>

#include "asn1rt/values.h"

namespace certkern {

// A tag: class in the two top bits (0 universal, 1 application, 2 context, 3 private), number below.
using Asn1Tag = uint32_t;
enum class TagClass : uint32_t { Universal = 0, Application = 1, Context = 2, Private = 3 };
constexpr Asn1Tag MakeTag(TagClass tagClass, uint32_t number) {
  return static_cast<uint32_t>(tagClass) << 30 | number;
}
constexpr TagClass ClassOf(Asn1Tag tag) { return static_cast<TagClass>(tag >> 30); }
constexpr uint32_t NumberOf(Asn1Tag tag) { return tag & 0x3FFFFFFFu; }

enum class TypeKind : uint8_t {
  Boolean,      // bool
  Int32,        // int32_t: an INTEGER with named numbers or bounds that fit
  BigInteger,   // ASN1BigInteger
  Enumerated,   // int32_t
  BitString,    // ASN1BitString
  OctetString,  // ASN1OctetString
  Null,         // no storage of its own (a uint8_t that nobody reads)
  ObjectId,     // ASN1ObjectId
  Text,         // ASN1Text: character strings and times; the last tag tells which
  Open,         // ASN1OpenValue
  Sequence,     // a structure
  Set,          // a structure
  SequenceOf,   // ASN1List; members[0] is the element
  SetOf,        // the same
  Choice,       // a structure: int32_t t (from 1; 0: none), union u
};

struct TypeInfo;

// One object of an information object set: the identifier that selects, and the type of what it selects.
struct ObjectInfo {
  const char* name;  // as the schema has it
  const ASN1OBJID* id;
  const TypeInfo* type;  // null: the object has no type
};

// Sorted by arcs (fewer arcs first, then arc by arc), so that a look-up is a binary search.
struct ObjectSetInfo {
  const char* name;
  const char* objectClass;
  std::span<const ObjectInfo> objects;
};
const ObjectInfo* FindObject(const ObjectSetInfo& set, const ASN1ObjectId& id);

struct MemberInfo {
  const char* name;
  const TypeInfo* type;
  // All tags in front of the content, outermost first, those of the type included. Empty: an untagged choice, or an
  // open type that takes whatever stands there.
  std::span<const Asn1Tag> tags;
  uint32_t offset;          // of the value (or the pointer to it)
  int16_t presentBit = -1;  // of the leading uint32_t m; -1: the member has none
  bool optional = false;    // may be absent: either it has a bit, or a default
  bool hasDefault = false;  // BOOLEAN, Int32 and Enumerated: absent means defaultValue, and DER leaves it out
  bool pointer = false;     // the structure has a pointer to the value, which lies in the heap
  int32_t defaultValue = 0;
  // Open types: the set that knows them, and which member of the same structure (an ObjectId) selects. For a list of
  // open types these stand at the list's member, and serve each element.
  const ObjectSetInfo* objects = nullptr;
  int16_t selector = -1;
  bool contained = false;  // the open value stands inside an OCTET STRING
};

// A named number, named bit or enumeration value.
struct NameInfo {
  const char* name;
  int32_t value;
};

struct TypeInfo {
  const char* name;  // as the schema has it; anonymous ones as parent_member
  TypeKind kind;
  bool extensible = false;  // unknown elements behind the known ones are skipped
  std::span<const Asn1Tag>
      tags{};         // the type's own, outermost first; empty for an untagged choice or open type
  uint32_t size = 0;  // of the value's storage
  std::span<const MemberInfo> members{};
  std::span<const NameInfo> names{};
};

// A row of the catalogue of all types, sorted by name.
const TypeInfo* FindType(std::span<const TypeInfo* const> catalogue, const char* name);

}  // namespace certkern

#endif
