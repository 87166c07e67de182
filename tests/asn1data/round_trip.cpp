#include "asn1data/round_trip.h"

#include <gtest/gtest.h>

#include "asn1data/catalogue.h"
#include "asn1data/visit.h"
#include "asn1rt/decoder.h"
#include "asn1rt/encoder.h"
#include "support/hex.h"

namespace certkern::test {
namespace {

// The decoder keeps the bytes of an open value beside what it made of them, and the encoder prefers the bytes: without
// them it must use the tables in its own direction.
void ForgetOpenBytes(const TypeInfo& type, void* value) {
  VisitValues(type, value, [](const TypeInfo& each, void* slot) {
    if (each.kind != TypeKind::Open) return;
    if (auto& open = *static_cast<ASN1OpenValue*>(slot); open.type) open.encoded = {};
  });
}

}  // namespace

const TypeInfo& TypeNamed(const char* name) {
  static const TypeInfo kNoType{.name = "none", .kind = TypeKind::Null};
  const TypeInfo* const type = FindType(asn1data::AllTypes(), name);
  EXPECT_TRUE(type) << name;
  return type ? *type : kNoType;
}

Decoded::Decoded(const TypeInfo& type, std::span<const BYTE> bytes)
    : type_(type), message_(bytes.begin(), bytes.end()), context_(ASN1ContextPtr::Create()) {
  context_->setInput(message_);
  void* const value = context_->allocate(type.size);
  const int status = DecodeValue(*context_, type, value, Tagging::Explicit, 0);
  EXPECT_EQ(status, ASN1_OK) << type.name << " at " << context_->errorOffset();
  EXPECT_EQ(context_->position(), message_.size()) << type.name;
  if (status == ASN1_OK) value_ = value;
}

Decoded::Decoded(const char* typeName, std::span<const BYTE> bytes) : Decoded(TypeNamed(typeName), bytes) {}

std::vector<BYTE> Decoded::encoded(SetOrder order) {
  if (!value_) return {};
  ForgetOpenBytes(type_, value_);
  context_->setSetOrder(order);
  EXPECT_GT(EncodeValue(*context_, type_, value_, Tagging::Explicit), 0) << type_.name;
  const std::span<const uint8_t> bytes = context_->output().bytes();
  return {bytes.begin(), bytes.end()};
}

void ExpectRoundTrip(const TypeInfo& type, std::span<const BYTE> bytes) {
  Decoded decoded(type, bytes);
  EXPECT_EQ(ToHex(decoded.encoded()), ToHex(bytes)) << type.name;
}

void ExpectRoundTrip(const char* typeName, std::span<const BYTE> bytes) {
  ExpectRoundTrip(TypeNamed(typeName), bytes);
}

}  // namespace certkern::test
