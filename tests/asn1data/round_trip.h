// Any type of the schema by its name, read and written again.
#ifndef CERTKERN_TESTS_ASN1DATA_ROUND_TRIP_H
#define CERTKERN_TESTS_ASN1DATA_ROUND_TRIP_H

#include <certkern/types.h>

#include <span>
#include <string>
#include <vector>

#include "asn1rt/context.h"
#include "asn1rt/type_table.h"

namespace certkern::test {

// What was decoded, with the message that its strings point into.
class Decoded {
 public:
  // Fails the test when the bytes are not one whole value.
  Decoded(const TypeInfo& type, std::span<const BYTE> bytes);
  Decoded(const char* typeName, std::span<const BYTE> bytes);

  explicit operator bool() const { return value_ != nullptr; }
  template <class T>
  const T& as() const {
    return *static_cast<const T*>(value_);
  }
  void* value() { return value_; }
  // As DER. Open values of known types are written from what they were decoded to, not from the bytes that they keep.
  std::vector<BYTE> encoded(SetOrder order = SetOrder::Der);

 private:
  const TypeInfo& type_;
  std::vector<BYTE> message_;
  ASN1ContextPtr context_;
  void* value_ = nullptr;
};

// The catalogue's type; a name that is not there fails the test.
const TypeInfo& TypeNamed(const char* name);
// Fails the test unless the bytes are decoded completely, and come back.
void ExpectRoundTrip(const TypeInfo& type, std::span<const BYTE> bytes);
void ExpectRoundTrip(const char* typeName, std::span<const BYTE> bytes);

}  // namespace certkern::test

#endif
