// Any bytes as any structure type: a record fills exactly the room that was asked for, and what was read can be written
// again, and that read again, without a change.
#include <certkern/encode.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <span>
#include <vector>

#include "ber/struct_types.h"

using certkern::SizeKnown;
using certkern::StructType;

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

// Of exactly this size even when that is 0, so that the sanitizer sees the first byte too many.
struct Exact {
  explicit Exact(size_t count) : data(std::make_unique<BYTE[]>(count)), size(static_cast<DWORD>(count)) {}
  std::unique_ptr<BYTE[]> data;
  DWORD size;
  std::span<const BYTE> bytes() const { return {data.get(), size}; }
};

// By a key that stays when the table gets another row, so that the corpus keeps its meaning.
const StructType& PickType(BYTE key) {
  const auto types = certkern::StructTypes();
  for (const StructType& type : types) {
    if (type.number % 251 == key) return type;
  }
  return types[key % types.size()];
}

// Records that were read and still have no encoding, or whose encoding is not read again, or reads as another record.
enum class Lost { Written, ReadAgain, Same };
struct LossyType {
  uintptr_t number;
  Lost where;
  const char* reason;
};
constexpr LossyType kLossyTypes[] = {
    {2,     Lost::Written,   "an impossible date is read as none; the key may be absent"            },
    {2,     Lost::ReadAgain, "a version above 127 is read from one octet, and takes two"            },
    {3,     Lost::Written,   "an impossible date is read as none"                                   },
    {3,     Lost::ReadAgain, "version 0 is left out; so is an empty list of entries"                },
    {4,     Lost::Written,   "the key may be absent"                                                },
    {7,     Lost::Written,   "an attribute may have no value"                                       },
    {12,    Lost::Written,   "a general name may be longer than 511 octets"                         },
    {12,    Lost::ReadAgain, "an otherName without a value is written with an empty one"            },
    {17,    Lost::Written,   "any time is read, only those of UTCTime are written"                  },
    {20,    Lost::Written,   "characters are checked against their type"                            },
    {23,    Lost::Written,   "the values may be absent"                                             },
    {24,    Lost::Written,   "characters are checked against their type; octets are no text"        },
    {30,    Lost::Written,   "an impossible date is read as none"                                   },
    {31,    Lost::Written,   "a general name may be longer than 511 octets"                         },
    {31,    Lost::ReadAgain, "an otherName without a value is written with an empty one"            },
    {32,    Lost::Written,   "a description may be empty; a general name may be too long"           },
    {32,    Lost::ReadAgain, "an otherName without a value is written with an empty one"            },
    {35,    Lost::Written,   "the list may be empty; a general name may be too long"                },
    {35,    Lost::ReadAgain, "an otherName without a value is written with an empty one"            },
    {46,    Lost::Same,      "a character is cut to 16 bits, which may all be zero and end the text"},
    {47,    Lost::Written,   "a number may be absent"                                               },
    {54,    Lost::Written,   "a general name may be longer than 511 octets"                         },
    {54,    Lost::ReadAgain, "an otherName without a value is written with an empty one"            },
    {64,    Lost::Written,   "the identifier may be absent"                                         },
    {32967, Lost::ReadAgain, "an absent signature is written as one without bits, not read"         },
};

bool MayLose(const StructType& type, Lost where) {
  return std::any_of(std::begin(kLossyTypes), std::end(kLossyTypes),
                     [&](const LossyType& row) { return row.number == type.number && row.where == where; });
}

// False when the input is none of this type. In a buffer that is too small nothing is written past the end.
bool Decode(const StructType& type, std::span<const BYTE> input, DWORD flags,
            std::unique_ptr<Exact>& record) {
  DWORD needed = 0;
  if (!BerDecodeEntry(SizeKnown::No, type, input, flags, nullptr, &needed)) return false;
  record = std::make_unique<Exact>(needed);
  DWORD size = needed;
  Require(BerDecodeEntry(SizeKnown::No, type, input, flags, record->data.get(), &size) && size == needed);
  size = needed;
  Require(BerDecodeEntry(SizeKnown::Yes, type, input, flags, record->data.get(), &size));
  for (const DWORD less : {needed - 1, needed / 2}) {
    const Exact small(less);
    size = less;
    Require(!BerDecodeEntry(SizeKnown::No, type, input, flags, small.data.get(), &size) && size == needed);
    size = less;
    // may succeed: the last piece needs no padding
    static_cast<void>(BerDecodeEntry(SizeKnown::Yes, type, input, flags, small.data.get(), &size));
  }
  return true;
}

// Null when the record has no encoding.
std::unique_ptr<Exact> Encode(const StructType& type, const Exact& record) {
  DWORD needed = 0;
  if (!certkern::BerEncodeByType(type.number, record.data.get(), nullptr, &needed)) return nullptr;
  auto encoded = std::make_unique<Exact>(needed);
  DWORD size = needed;
  Require(certkern::BerEncodeByType(type.number, record.data.get(), encoded->data.get(), &size)
          && size == needed);
  if (needed) {
    const Exact small(needed - 1);
    size = needed - 1;
    Require(!certkern::BerEncodeByType(type.number, record.data.get(), small.data.get(), &size));
  }
  return encoded;
}

// The exported functions answer as the entry behind them does.
void CompareExported(const StructType& type, std::span<const BYTE> input, DWORD flags, const Exact* record) {
  const auto name = reinterpret_cast<LPCSTR>(type.number);
  const auto size = static_cast<DWORD>(input.size());
  void* allocated = nullptr;
  DWORD needed = 0;
  SetLastError(ERROR_SUCCESS);
  const BOOL done = CryptDecodeObjectEx(X509_ASN_ENCODING, name, input.data(), size,
                                        flags | CRYPT_DECODE_ALLOC_FLAG, nullptr, &allocated, &needed);
  Require(!done == !record);
  Require(done || GetLastError() != ERROR_SUCCESS);
  Require(!done || needed == record->size);
  LocalFree(allocated);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;  // the exported functions refuse an empty input
  const StructType& type = PickType(data[0] & 0x7F);
  const DWORD flags = data[0] & 0x80 ? CRYPT_DECODE_TO_BE_SIGNED_FLAG : 0;
  const std::span<const BYTE> input(data + 1, size - 1);
  std::unique_ptr<Exact> record;
  if (!type.decode) return 0;
  const bool decoded = Decode(type, input, flags, record);
  CompareExported(type, input, flags, record.get());
  if (!decoded || !type.encode) return 0;

  const std::unique_ptr<Exact> encoded = Encode(type, *record);
  Require(encoded || MayLose(type, Lost::Written));
  if (!encoded) return 0;
  std::unique_ptr<Exact> again;
  if (!Decode(type, encoded->bytes(), CRYPT_DECODE_TO_BE_SIGNED_FLAG, again)) {
    Require(MayLose(type, Lost::ReadAgain));
    return 0;
  }
  const std::unique_ptr<Exact> encodedAgain = Encode(type, *again);
  Require(encodedAgain || MayLose(type, Lost::Written));
  if (!encodedAgain) return 0;
  Require(std::ranges::equal(encoded->bytes(), encodedAgain->bytes()) || MayLose(type, Lost::Same));
  return 0;
}
