#include "store/key_provider_info.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <vector>

#include "ber/read_cursor.h"
#include "platform/sizes.h"

namespace certkern {
namespace {

constexpr size_t kHeaderSize = 28;
constexpr size_t kParameterSize = 16;
constexpr size_t kSectionUnit = 8;

// Lengths are padded, not positions: the header has 28 bytes, so that sections stand at 4 modulo 8.
constexpr uint64_t Padded(uint64_t length) {
  return (length + kSectionUnit - 1) / kSectionUnit * kSectionUnit;
}

// In memory at least one byte follows each parameter's data, and four where it ends at a word.
constexpr uint64_t Spaced(uint64_t length) { return length + 4 - length % 4; }

// --- writing ---

// Bytes of a name with its terminator; 0 for none, and -1 for one that can't be counted.
int NarrowSize(LPCWSTR name) {
  if (!name) return 0;
  const int size = WideCharToMultiByte(CP_UTF16LE, 0, name, -1, nullptr, 0, nullptr, nullptr);
  return size > 0 ? size : -1;
}

class FlatWriter {
 public:
  FlatWriter(BYTE* begin, size_t firstSection) : begin_(begin), section_(firstSection) {}

  void word(DWORD value) {
    for (int shift = 0; shift < 32; shift += 8) begin_[at_++] = static_cast<BYTE>(value >> shift);
  }
  // The offset of the next section, which is as long as told; nothing for an empty one.
  DWORD open(size_t length) {
    const size_t offset = section_;
    section_ += Padded(length);
    return length ? static_cast<DWORD>(offset) : 0;
  }
  BYTE* place(DWORD offset) { return begin_ + offset; }

 private:
  BYTE* const begin_;
  size_t at_ = 0;
  size_t section_;
};

bool ParametersAreWhole(const CRYPT_KEY_PROV_INFO& info) {
  if (info.cProvParam && !info.rgProvParam) return false;
  const std::span parameters(info.rgProvParam, info.cProvParam);
  return std::all_of(parameters.begin(), parameters.end(),
                     [](const CRYPT_KEY_PROV_PARAM& each) { return each.pbData || !each.cbData; });
}

// --- reading ---

struct FlatParameter {
  DWORD which;
  DWORD flags;
  std::span<const BYTE> data;
};
struct FlatInfo {
  DWORD type, flags, keySpec;
  std::vector<FlatParameter> parameters;
  std::span<const BYTE> container, provider;  // without terminator; data() null: no such name
};

// Walks over the sections: each must begin where the one before it ended, and the last end with the data.
class FlatReader {
 public:
  explicit FlatReader(std::span<const BYTE> flat) : flat_(flat) {}

  DWORD word(size_t at) const {
    DWORD value = 0;
    for (size_t i = 4; i--;) value = value << 8 | flat_[at + i];
    return value;
  }
  bool read(FlatInfo& info);

 private:
  bool section(DWORD offset, size_t length, std::span<const BYTE>& data);
  bool name(DWORD offset, std::span<const BYTE>& name);
  bool parameter(size_t at, FlatParameter& parameter);

  const std::span<const BYTE> flat_;
  size_t next_ = 0;
};

bool FlatReader::section(DWORD offset, size_t length, std::span<const BYTE>& data) {
  if (offset != next_ || Padded(length) > flat_.size() - next_) return false;
  data = flat_.subspan(next_, length);
  next_ += Padded(length);
  return true;
}

bool FlatReader::name(DWORD offset, std::span<const BYTE>& name) {
  name = {};
  if (!offset) return true;
  if (offset != next_) return false;
  const std::span<const BYTE> rest = flat_.subspan(next_);
  if (rest.empty()) return false;
  size_t text = 0;
  while (text + 2 <= rest.size() && (rest[text] || rest[text + 1])) text += 2;
  const size_t terminator = std::min<size_t>(rest.size() - text, 2);
  if (!section(offset, text + terminator, name)) return false;
  name = name.first(text);
  return true;
}

bool FlatReader::parameter(size_t at, FlatParameter& parameter) {
  parameter = {word(at), word(at + 12), {}};
  const DWORD offset = word(at + 4);
  const DWORD length = word(at + 8);
  if (!length) return !offset;
  return section(offset, length, parameter.data);
}

bool FlatReader::read(FlatInfo& info) {
  if (flat_.size() < kHeaderSize) return false;
  info.type = word(8);
  info.flags = word(12);
  info.keySpec = word(24);
  const DWORD count = word(16);
  if (word(20) != (count ? kHeaderSize : 0)) return false;
  if (count > (flat_.size() - kHeaderSize) / kParameterSize) return false;
  next_ = kHeaderSize + count * kParameterSize;
  info.parameters.resize(count);
  for (DWORD i = 0; i < count; ++i) {
    if (!parameter(kHeaderSize + i * kParameterSize, info.parameters[i])) return false;
  }
  return name(word(0), info.container) && name(word(4), info.provider) && next_ == flat_.size();
}

// --- into the caller's buffer ---

int Wide(std::span<const BYTE> text, LPWSTR out, int room) {
  if (text.empty()) return 0;
  return MultiByteToWideChar(CP_UTF16LE, 0, reinterpret_cast<LPCSTR>(text.data()),
                             static_cast<int>(text.size()), out, room);
}

uint64_t WideSize(std::span<const BYTE> name) {
  if (!name.data()) return 0;
  return (static_cast<uint64_t>(Wide(name, nullptr, 0)) + 1) * sizeof(WCHAR);
}

uint64_t ExpandedSize(const FlatInfo& info) {
  uint64_t size = sizeof(CRYPT_KEY_PROV_INFO) + WideSize(info.container) + WideSize(info.provider);
  for (const FlatParameter& each : info.parameters) {
    size += sizeof(CRYPT_KEY_PROV_PARAM) + Spaced(each.data.size());
  }
  return size;
}

LPWSTR PlaceName(std::span<const BYTE> name, BYTE*& next) {
  if (!name.data()) return nullptr;
  auto* const text = reinterpret_cast<LPWSTR>(next);
  const uint64_t size = WideSize(name);
  const auto characters = size / sizeof(WCHAR) - 1;
  Wide(name, text, static_cast<int>(characters));
  text[characters] = 0;
  next += size;
  return text;
}

void PlaceInfo(const FlatInfo& flat, BYTE* out) {
  auto& info = *reinterpret_cast<CRYPT_KEY_PROV_INFO*>(out);
  auto* const parameters = reinterpret_cast<CRYPT_KEY_PROV_PARAM*>(out + sizeof info);
  const size_t count = flat.parameters.size();
  BYTE* next = reinterpret_cast<BYTE*>(parameters + count);
  for (size_t i = 0; i < count; ++i) {
    const std::span<const BYTE> data = flat.parameters[i].data;
    parameters[i] = {flat.parameters[i].which, data.empty() ? nullptr : next, static_cast<DWORD>(data.size()),
                     flat.parameters[i].flags};
    std::memset(next, 0, Spaced(data.size()));
    std::copy(data.begin(), data.end(), next);
    next += Spaced(data.size());
  }
  info = {};
  info.pwszContainerName = PlaceName(flat.container, next);
  info.pwszProvName = PlaceName(flat.provider, next);
  info.dwProvType = flat.type;
  info.dwFlags = flat.flags;
  info.cProvParam = static_cast<DWORD>(count);
  info.rgProvParam = count ? parameters : nullptr;
  info.dwKeySpec = flat.keySpec;
}

}  // namespace

PropertyItemOwner FlattenKeyProviderInfo(const CRYPT_KEY_PROV_INFO& info) {
  const int container = NarrowSize(info.pwszContainerName);
  const int provider = NarrowSize(info.pwszProvName);
  if (container < 0 || provider < 0) return {};
  if (!ParametersAreWhole(info)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  const uint64_t head = kHeaderSize + uint64_t{kParameterSize} * info.cProvParam;
  uint64_t size = head + Padded(static_cast<uint64_t>(container)) + Padded(static_cast<uint64_t>(provider));
  const std::span parameters(info.rgProvParam, info.cProvParam);
  for (const CRYPT_KEY_PROV_PARAM& each : parameters) size += Padded(each.cbData);
  if (!FitsDword(size)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  PropertyItemOwner item = NewPropertyItem(CERT_KEY_PROV_INFO_PROP_ID, size);
  if (!item) return {};
  // the headers name sections that follow in another order: parameters first, then the names
  uint64_t data = 0;
  for (const CRYPT_KEY_PROV_PARAM& each : parameters) data += Padded(each.cbData);
  FlatWriter names(item->value(), head + data);
  const DWORD containerAt = names.open(static_cast<size_t>(container));
  const DWORD providerAt = names.open(static_cast<size_t>(provider));
  FlatWriter out(item->value(), head);
  for (const DWORD word : {containerAt, providerAt, info.dwProvType, info.dwFlags, info.cProvParam,
                           info.cProvParam ? DWORD{kHeaderSize} : 0, info.dwKeySpec}) {
    out.word(word);
  }
  for (const CRYPT_KEY_PROV_PARAM& each : parameters) {
    const DWORD at = out.open(each.cbData);
    for (const DWORD word : {each.dwParam, at, each.cbData, each.dwFlags}) out.word(word);
    if (at) std::memcpy(out.place(at), each.pbData, each.cbData);
  }
  const auto place = [&](LPCWSTR name, DWORD at, int length) {
    if (!at) return true;
    return WideCharToMultiByte(CP_UTF16LE, 0, name, -1, reinterpret_cast<LPSTR>(out.place(at)), length,
                               nullptr, nullptr)
        == length;
  };
  if (!place(info.pwszContainerName, containerAt, container)) return {};
  if (!place(info.pwszProvName, providerAt, provider)) return {};
  return item;
}

bool ExpandKeyProviderInfo(std::span<const BYTE> flat, void* record, DWORD* size) {
  FlatInfo info{};
  if (!FlatReader(flat).read(info)) return Fault(ERROR_INVALID_DATA);
  const uint64_t needed = std::max<uint64_t>(flat.size(), ExpandedSize(info));
  if (!FitsDword(needed)) return Fault(ERROR_INVALID_DATA);
  const DWORD given = *size;
  *size = static_cast<DWORD>(needed);
  if (!record) return true;
  if (given < needed) return Fault(ERROR_MORE_DATA);
  PlaceInfo(info, static_cast<BYTE*>(record));
  return true;
}

}  // namespace certkern
