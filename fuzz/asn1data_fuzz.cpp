// Any bytes as any type of the schema: what is read can be written by the tables alone, and what was written reads and writes
// as itself.
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>
#include <vector>

#include "asn1data/catalogue.h"
#include "asn1data/visit.h"
#include "asn1rt/decoder.h"
#include "asn1rt/encoder.h"

using namespace certkern;

namespace {

using Bytes = std::vector<uint8_t>;

void Require(bool condition) {
  if (!condition) std::abort();
}

uint32_t KeyOf(std::string_view name) {
  uint32_t hash = 2166136261;
  for (const char letter : name) hash = (hash ^ static_cast<uint8_t>(letter)) * 16777619;
  return (hash ^ hash >> 24) & 0xFFFFFF;
}

// By a key that stays when the schema gets another type, so that the corpus keeps its meaning.
const TypeInfo& PickType(uint32_t key) {
  const auto types = asn1data::AllTypes();
  for (const TypeInfo* type : types) {
    if (KeyOf(type->name) == key) return *type;
  }
  return *types[key % types.size()];
}

// Otherwise the encoder would copy them.
void ForgetOpenBytes(const TypeInfo& type, void* value) {
  test::VisitValues(type, value, [](const TypeInfo& each, void* slot) {
    if (each.kind != TypeKind::Open) return;
    if (auto& open = *static_cast<ASN1OpenValue*>(slot); open.type) open.encoded = {};
  });
}

bool Recode(const TypeInfo& type, std::span<const uint8_t> input, Bytes& der) {
  const auto context = ASN1ContextPtr::Create();
  context->setInput(input);
  void* const value = context->allocate(type.size);
  const int status = DecodeValue(*context, type, value, Tagging::Explicit, 0);
  Require(context->status() == status && context->errorOffset() <= input.size());
  if (status < 0) return false;
  ForgetOpenBytes(type, value);
  Require(EncodeValue(*context, type, value, Tagging::Explicit) > 0);
  const std::span<const uint8_t> written = context->output().bytes();
  der.assign(written.begin(), written.end());
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const TypeInfo& type = PickType(uint32_t{data[0]} << 16 | uint32_t{data[1]} << 8 | data[2]);
  const Bytes input(data + 3, data + size);
  Bytes der, again;
  if (!Recode(type, input, der)) return 0;
  Require(Recode(type, der, again) && der == again);
  return 0;
}
