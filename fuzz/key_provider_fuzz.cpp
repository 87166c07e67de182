// Any bytes as the flat form of a key provider record: what expands does so into exactly the room that was asked for,
// and written again it is a form that says the same and that nothing changes any more.
#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

#include "store/key_provider_info.h"

namespace {

using namespace certkern;  // NOLINT(google-build-using-namespace): the vocabulary of this target
using Bytes = std::vector<BYTE>;

void Require(bool condition) {
  if (!condition) std::abort();
}

std::unique_ptr<BYTE[]> Expand(const Bytes& flat) {
  DWORD size = 0;
  if (!ExpandKeyProviderInfo(flat, nullptr, &size)) return {};
  Require(size >= sizeof(CRYPT_KEY_PROV_INFO) && size >= flat.size());
  auto record = std::make_unique<BYTE[]>(size);
  DWORD less = size - 1;
  Require(!ExpandKeyProviderInfo(flat, record.get(), &less) && GetLastError() == ERROR_MORE_DATA
          && less == size);
  Require(ExpandKeyProviderInfo(flat, record.get(), &size));
  return record;
}

const CRYPT_KEY_PROV_INFO& InfoOf(const std::unique_ptr<BYTE[]>& record) {
  return *reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(record.get());
}

bool SameText(LPCWSTR one, LPCWSTR other) {
  return !one == !other && (!one || std::wstring_view(one) == other);
}

bool SameParameter(const CRYPT_KEY_PROV_PARAM& one, const CRYPT_KEY_PROV_PARAM& other) {
  return one.dwParam == other.dwParam && one.dwFlags == other.dwFlags
      && std::equal(one.pbData, one.pbData + one.cbData, other.pbData, other.pbData + other.cbData);
}

bool SameInfo(const CRYPT_KEY_PROV_INFO& one, const CRYPT_KEY_PROV_INFO& other) {
  return SameText(one.pwszContainerName, other.pwszContainerName)
      && SameText(one.pwszProvName, other.pwszProvName) && one.dwProvType == other.dwProvType
      && one.dwFlags == other.dwFlags && one.dwKeySpec == other.dwKeySpec
      && std::equal(one.rgProvParam, one.rgProvParam + one.cProvParam, other.rgProvParam,
                    other.rgProvParam + other.cProvParam, SameParameter);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto first = Expand(Bytes(data, data + size));
  if (!first) return 0;
  const PropertyItemOwner item = FlattenKeyProviderInfo(InfoOf(first));
  if (!item) {  // half of a character has no form
    Require(GetLastError() == ERROR_NO_UNICODE_TRANSLATION);
    return 0;
  }
  const auto bytes = item->bytes();
  const Bytes written(bytes.begin(), bytes.end());
  const auto second = Expand(written);
  Require(second && SameInfo(InfoOf(first), InfoOf(second)));
  const PropertyItemOwner again = FlattenKeyProviderInfo(InfoOf(second));
  Require(again && std::ranges::equal(again->bytes(), written));
  return 0;
}
