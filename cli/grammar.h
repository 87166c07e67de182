// What certificates, CRLs and certificate requests are made of, element by element.
#ifndef CERTKERN_CLI_GRAMMAR_H
#define CERTKERN_CLI_GRAMMAR_H

#include <certkern/types.h>

#include <span>

namespace certkern::cli {

// Identifier octets.
constexpr BYTE kBooleanTag = 0x01;
constexpr BYTE kIntegerTag = 0x02;
constexpr BYTE kBitStringTag = 0x03;
constexpr BYTE kOctetStringTag = 0x04;
constexpr BYTE kNullTag = 0x05;
constexpr BYTE kOidTag = 0x06;
constexpr BYTE kUtf8StringTag = 0x0C;
constexpr BYTE kPrintableStringTag = 0x13;
constexpr BYTE kUtcTimeTag = 0x17;
constexpr BYTE kGeneralizedTimeTag = 0x18;
constexpr BYTE kSequenceTag = 0x30;
constexpr BYTE kSetTag = 0x31;
constexpr BYTE ContextTag(int number) { return static_cast<BYTE>(0xA0 | number); }

enum class Content {
  Any,     // whatever it is, its elements must be sound
  Fields,  // the elements of inner, in their order
  ListOf,  // any number of inner[0]
  Octets,  // primitive, any content
  Integer,
  Boolean,
  Bits,
  Oid,
  Time,  // UTCTime or GeneralizedTime
};

enum class Presence { Required, Optional };

// One element of a grammar.
struct Shape {
  const char* name;
  BYTE tag;  // identifier octet; kAnyTag where the grammar leaves it open
  Content content;
  std::span<const Shape> inner;
  Presence presence;
};
constexpr BYTE kAnyTag = 0;
constexpr BYTE kTimeTag = 0x17;  // stands for both times

enum class ObjectKind { Certificate, Crl, Request };

const Shape& ShapeOf(ObjectKind kind);
// What all of them have in common.
const Shape& ShapeOfAnyObject();

}  // namespace certkern::cli

#endif
