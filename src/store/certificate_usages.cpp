#include "store/certificate_usages.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <cstring>
#include <numeric>

#include "ber/read_cursor.h"
#include "platform/sizes.h"

namespace certkern {
namespace {

// No record is an answer, too: a certificate whose usages can't be read is passed over, as if it had none. Lack of
// memory is not the certificate's doing, and must not open a restriction.
bool ReadUsages(PCCERT_CONTEXT certificate, UsageRecord& usages) {
  usages.reset();
  DWORD size = 0;
  if (!CertGetEnhancedKeyUsage(certificate, 0, nullptr, &size)) {
    return GetLastError() != ERROR_NOT_ENOUGH_MEMORY;
  }
  usages.reset(static_cast<CERT_ENHKEY_USAGE*>(LocalAlloc(LMEM_FIXED, size)));
  if (!usages) return Fault(ERROR_NOT_ENOUGH_MEMORY);
  return CertGetEnhancedKeyUsage(certificate, 0, usages.get(), &size);
}

}  // namespace

std::span<const LPSTR> PurposesOf(const UsageRecord& record) {
  if (!record) return {};
  return {record->rgpszUsageIdentifier, record->cUsageIdentifier};
}

void KeepCommon(std::vector<LPCSTR>& purposes, std::span<const LPSTR> others) {
  std::vector<std::string_view> sorted(others.begin(), others.end());
  std::ranges::sort(sorted);
  std::erase_if(purposes, [&](LPCSTR purpose) {
    return !std::ranges::binary_search(sorted, std::string_view(purpose));
  });
}

uint64_t PackedSize(std::span<const LPCSTR> texts) {
  return std::accumulate(texts.begin(), texts.end(), uint64_t{0}, [](uint64_t size, LPCSTR text) {
    return size + sizeof text + std::strlen(text) + 1;
  });
}

void Pack(std::span<const LPCSTR> texts, LPSTR* out) {
  char* next = reinterpret_cast<char*>(out + texts.size());
  for (LPCSTR text : texts) {
    const size_t size = std::strlen(text) + 1;
    *out++ = static_cast<char*>(std::memcpy(next, text, size));
    next += size;
  }
}

bool GetValidUsages(std::span<const PCCERT_CONTEXT> certificates, int& count, LPSTR* out, DWORD& size) {
  const DWORD before = GetLastError();
  UsageRecord first, usages;  // the first that restricts; its texts are those of the answer
  std::vector<LPCSTR> common;
  for (PCCERT_CONTEXT certificate : certificates) {
    if (!ReadUsages(certificate, usages)) return false;
    if (PurposesOf(usages).empty()) continue;  // nothing found: no restriction
    if (first) {
      KeepCommon(common, PurposesOf(usages));
    } else {
      common.assign(PurposesOf(usages).begin(), PurposesOf(usages).end());
      first = std::move(usages);
    }
  }
  SetLastError(before);
  const DWORD needed = CheckedDword(PackedSize(common));
  const DWORD room = std::exchange(size, needed);
  count = first ? static_cast<int>(common.size()) : -1;
  if (!out) return true;
  if (room < needed) return Fault(ERROR_MORE_DATA);
  Pack(common, out);
  return true;
}

}  // namespace certkern
