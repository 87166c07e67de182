// Owners of what the library and the system hand out, and their properties.
#ifndef CERTKERN_CLI_HANDLES_H
#define CERTKERN_CLI_HANDLES_H

#include "common/secret_bytes.h"
#include "failure.h"
#include "field.h"

#include <certkern/keykern.h>
#include <unistd.h>

#include <span>
#include <string_view>
#include <utility>

namespace certkern::cli {

// Gives its handle back at the end; the last error of what came before stays readable.
template <typename Handle, auto kClose, Handle kNone>
class Owner {
 public:
  Owner() = default;
  explicit Owner(Handle handle) : handle_(handle) {}
  ~Owner() { reset(); }
  Owner(Owner&& other) noexcept : handle_(std::exchange(other.handle_, kNone)) {}
  Owner& operator=(Owner&& other) noexcept {
    if (this != &other) {
      reset();
      handle_ = std::exchange(other.handle_, kNone);
    }
    return *this;
  }
  Handle get() const { return handle_; }
  // For a function that hands out a handle.
  Handle* out() {
    reset();
    return &handle_;
  }
  explicit operator bool() const { return handle_ != kNone; }
  void reset() {
    if (handle_ == kNone) return;
    const DWORD code = GetLastError();
    kClose(std::exchange(handle_, kNone));
    SetLastError(code);
  }

 private:
  Handle handle_ = kNone;
};

inline void ReleaseProvider(HCRYPTPROV provider) { CryptReleaseContext(provider, 0); }
inline void CloseDescriptor(int number) { close(number); }

using ProviderHandle = Owner<HCRYPTPROV, ReleaseProvider, HCRYPTPROV{0}>;
using KeyHandle = Owner<HCRYPTKEY, CryptDestroyKey, HCRYPTKEY{0}>;
using HashHandle = Owner<HCRYPTHASH, CryptDestroyHash, HCRYPTHASH{0}>;
using FileDescriptor = Owner<int, CloseDescriptor, -1>;

// Sizes cross the library's interface as 32 bits.
inline DWORD CheckedSize(size_t size) {
  if (size > 0xFFFFFFFFu) throw Failure("more than 4 GiB in one piece");
  return static_cast<DWORD>(size);
}

// A property that is one record. The caller says what it wanted, for the error.
template <typename Record>
Record KeyParam(HCRYPTKEY key, DWORD param, std::string_view what) {
  Record record{};
  DWORD size = sizeof(record);
  if (!CryptGetKeyParam(key, param, reinterpret_cast<BYTE*>(&record), &size, 0)) ThrowLastError(what);
  return record;
}

// Asks ask(buffer, size) for a size, then for the bytes. False: the last error tells why.
template <typename Container, typename Ask>
bool AskBytes(const Ask& ask, Container& bytes) {
  DWORD size = 0;
  if (!ask(nullptr, &size)) return false;
  Container answer(size ? size : 1);
  if (!ask(answer.data(), &size)) return false;
  answer.resize(size);
  bytes = std::move(answer);
  return true;
}

inline bool KeyParamBytes(HCRYPTKEY key, DWORD param, Bytes& bytes) {
  return AskBytes([&](BYTE* out, DWORD* size) { return CryptGetKeyParam(key, param, out, size, 0); }, bytes);
}

}  // namespace certkern::cli

#endif
