// Any bytes as any of the sample types: what is read can be written, and what was written reads and writes as itself. A
// room of exactly the length takes it, one octet less does not.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <vector>

#include "asn1rt/decoder.h"
#include "asn1rt/encoder.h"
#include "asn1rt/sample_types.h"
#include "platform/limits.h"

using namespace certkern;

namespace {

using Bytes = std::vector<uint8_t>;

void Require(bool condition) {
  if (!condition) std::abort();
}

int Encode(ASN1Context& context, const TypeInfo& type, const void* value, std::span<uint8_t> room) {
  context.clearStatus();
  context.output().useFixed(room);
  return EncodeValue(context, type, value, Tagging::Explicit);
}

bool Recode(const TypeInfo& type, std::span<const uint8_t> input, SetOrder order, Bytes& der) {
  const auto context = ASN1ContextPtr::Create();
  context->setInput(input);
  context->setSetOrder(order);
  void* const value = context->allocate(type.size);
  const int status = DecodeValue(*context, type, value, Tagging::Explicit, 0);
  Require(context->status() == status && context->errorOffset() <= input.size());
  if (status < 0) return false;
  Require(context->position() <= input.size());

  const int length = Encode(*context, type, value, {});
  Require(length > 0 && context->output().length() == static_cast<size_t>(length));
  const std::span<const uint8_t> written = context->output().bytes();
  der.assign(written.begin(), written.end());
  Bytes exact(der.size()), small(der.size() - 1);
  Require(Encode(*context, type, value, exact) == length && exact == der);
  // an empty room would be one that grows
  Require(small.empty() || Encode(*context, type, value, small) == ASN1_E_BUFFER_FULL);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const auto types = sample::Catalogue();
  const TypeInfo& type = *types[(data[0] & 0x7F) % types.size()];
  const SetOrder order = data[0] & 0x80 ? SetOrder::AsGiven : SetOrder::Der;
  const Bytes input(data + 1, data + size);
  Bytes der, again;
  if (!Recode(type, input, order, der)) return 0;
  Require(Recode(type, der, order, again) && der == again);
  return 0;
}
