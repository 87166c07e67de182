#include "platform/text_conversion.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <cstdlib>

namespace certkern {
namespace {

// Asks for the size, allocates, converts. convert(buffer, count) answers how many characters it has, 0 for a failure
// that has set its code.
template <class Char, class Convert>
MallocOwner<Char> ConvertInto(Convert convert) {
  const int count = convert(nullptr, 0);
  if (count <= 0) return {};
  MallocOwner<Char> text(static_cast<Char*>(std::malloc(size_t{sizeof(Char)} * static_cast<size_t>(count))));
  if (!text) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return {};
  }
  if (convert(text.get(), count) <= 0) return {};
  return text;
}

}  // namespace

WideText WideFromBytes(LPCSTR text, UINT codePage) {
  if (!text) return {};
  return ConvertInto<WCHAR>(
      [&](LPWSTR buffer, int count) { return MultiByteToWideChar(codePage, 0, text, -1, buffer, count); });
}

ByteText BytesFromWide(LPCWSTR text, UINT codePage) {
  if (!text) return {};
  return ConvertInto<CHAR>([&](LPSTR buffer, int count) {
    return WideCharToMultiByte(codePage, 0, text, -1, buffer, count, nullptr, nullptr);
  });
}

ByteText RecodeBytes(LPCSTR text, UINT from, UINT to) {
  return BytesFromWide(WideFromBytes(text, from).get(), to);
}

}  // namespace certkern
