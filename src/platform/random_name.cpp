#include "platform/random_name.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cwchar>

#include "platform/supkern.h"

namespace certkern {
namespace {

// Seeds with the milliseconds. Within one and the same millisecond the sequence goes on instead, since to begin it
// again would give the same name twice.
void Seed() {
  static std::atomic<unsigned> last{0};
  timeval now{};
  support_gettimeofday(&now);
  const auto seed = static_cast<unsigned>(now.tv_sec * 1000 + now.tv_usec / 1000);
  if (last.exchange(seed) != seed) std::srand(seed);
}

// Room for a text of that many characters and its NUL.
WideText Allocate(size_t length) {
  WideText text(static_cast<WCHAR*>(std::calloc(length + 1, sizeof(WCHAR))));
  if (!text) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return text;
}

unsigned short RandomWord() { return static_cast<unsigned short>(std::rand()); }

}  // namespace

WideText RandomSuffixName(LPCWSTR prefix, size_t count) {
  constexpr wchar_t kAlphabet[] = L"0123456789abcdefghijklmnopqrstuvwxyz";
  if (!prefix) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  const size_t length = std::wcslen(prefix);
  WideText name = Allocate(length + count);
  if (!name) return name;
  Seed();
  std::copy_n(prefix, length, name.get());
  std::generate_n(name.get() + length, count,
                  [&] { return kAlphabet[std::rand() % (std::size(kAlphabet) - 1)]; });
  return name;
}

WideText RandomGuidName(LPCWSTR prefix, LPCWSTR infix) {
  constexpr size_t kGuidLength = 36;
  if (!prefix || !infix) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  const size_t length = std::wcslen(prefix) + std::wcslen(infix) + kGuidLength;
  WideText name = Allocate(length);
  if (!name) return name;
  Seed();
  unsigned short words[8];
  std::generate(std::begin(words), std::end(words), RandomWord);
  std::swprintf(name.get(), length + 1, L"%ls%ls%04hx%04hx-%04hx-%04hx-%04hx-%04hx%04hx%04hx", prefix, infix,
                words[0], words[1], words[2], words[3], words[4], words[5], words[6], words[7]);
  return name;
}

}  // namespace certkern
