#include "extkern/record_codec.h"

#include "platform/limits.h"

#include <algorithm>
#include <cstring>

namespace extkern {
namespace {

BOOL Failed(DWORD code) {
  SetLastError(code);
  return FALSE;
}

// The code of a failure that has left one, or else the default. What an earlier call left was cleared before.
BOOL FailedOr(DWORD code) {
  const DWORD own = GetLastError();
  return Failed(own ? own : code);
}

bool Run(const RecordType& type, std::span<const BYTE> encoded, void* record, BerDecodeArena& arena) {
  BerReadCursor in(encoded);
  std::memset(record, 0, type.size);
  return type.decode(in, record, arena) && Finished(in);
}

bool Measure(const RecordType& type, std::span<const BYTE> encoded, DWORD& size) {
  alignas(std::max_align_t) BYTE unkept[kLargestRecord];
  BerDecodeArena arena(type.size);
  if (!Run(type, encoded, unkept, arena)) return false;
  if (arena.size() > certkern::kMaxInterfaceSize) return Fault(CRYPT_E_ASN1_LARGE);
  size = static_cast<DWORD>(arena.size());
  return true;
}

bool Fill(const RecordType& type, std::span<const BYTE> encoded, void* record, DWORD size) {
  BerDecodeArena arena(static_cast<BYTE*>(record), size, type.size);
  return Run(type, encoded, record, arena);
}

}  // namespace

BOOL EncodeRecord(const RecordType& type, const void* record, BYTE* encoded, DWORD* size) {
  if (!record || !size) return Failed(ERROR_INVALID_PARAMETER);
  BerWriteCursor counter;
  if (!type.encode(record, counter)) return Failed(CRYPT_E_BAD_ENCODE);
  const DWORD room = *size;
  *size = static_cast<DWORD>(counter.count());
  if (!encoded) {
    SetLastError(ERROR_SUCCESS);
    return TRUE;
  }
  if (room < *size) return Failed(ERROR_MORE_DATA);
  BerWriteCursor out(encoded, *size);
  // a record that another thread changes between the passes must not leave a hole
  if (!type.encode(record, out) || out.count() != 0) return Failed(CRYPT_E_BAD_ENCODE);
  SetLastError(ERROR_SUCCESS);  // as the entry above promises for every type
  return TRUE;
}

BOOL DecodeRecord(const RecordType& type, std::span<const BYTE> encoded, DWORD flags, void* record,
                  DWORD* size) {
  if (encoded.empty() || !encoded.data() || !size || flags > kDecodeFlags)
    return Failed(ERROR_INVALID_PARAMETER);
  const DWORD before = GetLastError();
  SetLastError(ERROR_SUCCESS);
  DWORD needed;
  if (!Measure(type, encoded, needed)) return FailedOr(CRYPT_E_ASN1_CORRUPT);
  const DWORD room = *size;
  *size = needed;
  if (record && room < needed) return Failed(ERROR_MORE_DATA);
  if (record && !Fill(type, encoded, record, needed)) return FailedOr(CRYPT_E_ASN1_CORRUPT);
  SetLastError(before);
  return TRUE;
}

bool IsElement(std::span<const BYTE> bytes) {
  BerReadCursor in(bytes);
  std::span<const BYTE> element;
  return in.readWhole(element) && in.empty();
}

bool IsElement(std::span<const BYTE> bytes, BYTE tag) {
  return BerReadCursor(bytes).nextIs(tag) && IsElement(bytes);
}

bool WriteElement(const CRYPT_DER_BLOB& blob, BYTE tag, BerWriteCursor& out) {
  std::span<const BYTE> bytes;
  return certkern::BlobBytes(blob, bytes) && IsElement(bytes, tag) && out.write(bytes);
}

}  // namespace extkern
