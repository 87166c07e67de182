#include "url/pki_request.h"

#include <certkern/keykern.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <list>
#include <new>
#include <optional>
#include <span>
#include <string>

#include "platform/fetchkern.h"
#include "platform/limits.h"
#include "platform/sizes.h"

namespace certkern {
namespace {

constexpr DWORD kOk = 200;
constexpr DWORD kUnsent = 456;  // and whatever the transfer calls by a number that could pass for a status
constexpr int kStatusLimit = 512;
constexpr DWORD kTimeout = 5000;  // milliseconds
constexpr uint64_t kSmallestBuffer = 4096;

enum class Lines { One, Any };

// By the current multibyte encoding. Nothing for text that does not convert or is too long, or, where it has to be one
// line, has an end of line: that would begin a header of its own.
std::optional<std::string> Narrow(LPCWSTR text, Lines lines) {
  std::array<char, kMaxRequestText> buffer{};
  std::mbstate_t state{};
  const wchar_t* rest = text;
  const size_t length = std::wcsrtombs(buffer.data(), &rest, buffer.size(), &state);
  if (length == static_cast<size_t>(-1) || rest) return std::nullopt;  // rest: the NUL was not reached
  std::string narrow(buffer.data(), length);
  if (lines == Lines::One && narrow.find_first_of("\r\n") != narrow.npos) return std::nullopt;
  return narrow;
}

bool AddHeader(LPCWSTR text, std::list<std::string>& headers) {
  if (!text) return true;
  std::optional<std::string> line = Narrow(text, Lines::One);
  if (line) headers.push_back(*std::move(line));
  return line.has_value();
}

bool SetProxy(const PkiRequest& request, UrlRetriever& retriever) {
  const auto set = [&](LPCWSTR text, void (UrlRetriever::*setter)(const char*)) {
    if (!text) return true;
    const std::optional<std::string> narrow = Narrow(text, Lines::One);
    if (narrow) (retriever.*setter)(narrow->c_str());
    return narrow.has_value();
  };
  return set(request.proxy, &UrlRetriever::set_proxy_addr)
      && set(request.proxyAuth, &UrlRetriever::set_proxy_auth);
}

void Release(SV_BYTE_BUFFER& buffer) {
  LocalFree(buffer.pbData);
  buffer = {};
}

// Doubling in 64 bits: the interface's 32 would come back to 0 and never arrive.
void Grow(SV_BYTE_BUFFER& buffer, uint64_t needed) {
  uint64_t capacity = buffer.cbCapacity ? buffer.cbCapacity : kSmallestBuffer;
  while (capacity < needed) capacity *= 2;
  if (capacity == buffer.cbCapacity) return;
  if (!FitsDword(capacity)) throw std::bad_alloc();
  void* const larger = std::realloc(buffer.pbData, capacity);
  if (!larger) throw std::bad_alloc();
  buffer.pbData = static_cast<BYTE*>(larger);
  buffer.cbCapacity = static_cast<DWORD>(capacity);
}

void Fill(SV_BYTE_BUFFER& response, std::span<const BYTE> bytes) {
  if (bytes.empty()) return Release(response);
  Grow(response, bytes.size());
  std::memcpy(response.pbData, bytes.data(), bytes.size());
  response.cbData = static_cast<DWORD>(bytes.size());
}

}  // namespace

DWORD PostPkiRequest(const PkiRequest& request, const SV_BYTE_BUFFER& body, SV_BYTE_BUFFER& response) {
  UrlRetriever retriever;
  std::list<std::string> headers;
  const std::optional<std::string> url = Narrow(request.url, Lines::One);
  if (!url || !SetProxy(request, retriever) || !AddHeader(request.userAgent, headers)
      || !AddHeader(request.contentType, headers)) {
    return kUnsent;
  }
  retriever.set_headers(headers);
  retriever.set_timeout(kTimeout);
  retriever.set_postmessage(body.pbData, body.cbData);
  if (!retriever.retrieve_url(url->c_str())) {
    const int code = retriever.get_error();
    return code < kStatusLimit ? static_cast<DWORD>(code) : kUnsent;
  }
  Fill(response, {retriever.get_data(), retriever.get_data_len()});
  return kOk;
}

}  // namespace certkern
