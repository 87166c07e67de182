// Any bytes as each record that generated types serve: it fills exactly the room that was asked for, and what was read can
// be written, and the encoding is then a fixed point.
#include <certkern/encode.h>
#include <certkern/keykern.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <vector>

#include "ber/generated_codec.h"

using certkern::GeneratedType;

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

// By a key that stays when the table gets another row, so that the corpus keeps its meaning.
const GeneratedType& PickType(BYTE key) {
  const auto types = certkern::GeneratedTypes();
  for (const GeneratedType& type : types) {
    if (type.number % 251 == key) return type;
  }
  return types[key % types.size()];
}

std::unique_ptr<BYTE[]> Decode(const GeneratedType& type, std::span<const BYTE> input) {
  DWORD needed = 0;
  SetLastError(0);
  if (!type.decode(input, nullptr, &needed)) {
    Require(GetLastError() != 0);
    return nullptr;
  }
  for (const DWORD less : {needed - 1, needed / 2, DWORD{0}}) {
    const auto small = std::make_unique<BYTE[]>(less);
    DWORD size = less;
    Require(!type.decode(input, small.get(), &size) && size == needed && GetLastError() == ERROR_MORE_DATA);
  }
  auto record = std::make_unique<BYTE[]>(needed);
  DWORD size = needed;
  Require(type.decode(input, record.get(), &size) && size == needed);
  return record;
}

std::vector<BYTE> Encode(const GeneratedType& type, const BYTE* record) {
  DWORD needed = 0;
  SetLastError(0);
  if (!type.encode(record, nullptr, &needed)) {
    Require(GetLastError() != 0);
    return {};
  }
  std::vector<BYTE> encoded(needed);
  DWORD size = needed;
  Require(type.encode(record, encoded.data(), &size) && size == needed);
  size = needed - 1;
  Require(!type.encode(record, encoded.data(), &size) && size == needed);
  return encoded;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const GeneratedType& type = PickType(data[0]);
  if (!type.decode) return 0;
  const auto record = Decode(type, {data + 1, size - 1});
  if (!record || !type.encode) return 0;
  // refused: a response of another type, a status that is none, a requestor's text that is too long
  const std::vector<BYTE> encoded = Encode(type, record.get());
  if (encoded.empty()) return 0;
  const auto again = Decode(type, encoded);
  Require(again != nullptr);
  Require(Encode(type, again.get()) == encoded);
  return 0;
}
