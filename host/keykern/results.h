// Answers of variable size: asked for twice, for the size and then for the bytes.
#ifndef CERTKERN_KEYKERN_RESULTS_H
#define CERTKERN_KEYKERN_RESULTS_H

#include <certkern/errors.h>
#include <certkern/types.h>

#include <cstring>
#include <span>
#include <string_view>

namespace keykern {

// Gives the size, and the bytes where there is room: a null buffer asks for the size alone. Answers a code.
inline DWORD GiveBytes(std::span<const BYTE> bytes, BYTE* out, DWORD* size) {
  if (!size) return ERROR_INVALID_PARAMETER;
  const DWORD room = *size;
  *size = static_cast<DWORD>(bytes.size());
  if (!out) return ERROR_SUCCESS;
  if (room < bytes.size()) return ERROR_MORE_DATA;
  if (!bytes.empty()) std::memcpy(out, bytes.data(), bytes.size());
  return ERROR_SUCCESS;
}

// The same for a record.
template <class Record>
DWORD GiveRecord(const Record& record, BYTE* out, DWORD* size) {
  return GiveBytes({reinterpret_cast<const BYTE*>(&record), sizeof(record)}, out, size);
}

// The same for ASCII text with its NUL; the size is in bytes also for wide characters.
template <class Character>
DWORD GiveText(std::string_view text, Character* out, DWORD* size) {
  if (!size) return ERROR_INVALID_PARAMETER;
  const DWORD room = *size;
  *size = static_cast<DWORD>((text.size() + 1) * sizeof(Character));
  if (!out) return ERROR_SUCCESS;
  if (room < *size) return ERROR_MORE_DATA;
  for (const char c : text) *out++ = static_cast<Character>(c);
  *out = 0;
  return ERROR_SUCCESS;
}

}  // namespace keykern

#endif
