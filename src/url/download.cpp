#include "url/download.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/text.h>

#include <string_view>

#include "platform/exceptions.h"
#include "platform/fetchkern.h"
#include "platform/trace.h"
#include "text/text_forms.h"

namespace certkern {
namespace {

constexpr BYTE kSequence = 0x30;
constexpr char kFailed[] = "DownloadFromNetwork failed";

[[noreturn]] void ThrowUndecoded() {
  TraceAs("DownloadFromNetwork", TRACE_ERROR, "() CryptStringToBinaryA fail: 0x%08x", GetLastError());
  throw RetrieveObjectException(kFailed, ERROR_INTERNAL_ERROR);
}

}  // namespace

std::vector<BYTE> DecodeBody(std::span<const BYTE> body) {
  const DWORD form = !body.empty() && body[0] == kSequence ? CRYPT_STRING_BINARY : CRYPT_STRING_ANY;
  const std::string_view text(reinterpret_cast<const char*>(body.data()), body.size());
  DWORD count = 0;
  if (!StringToBinary(text, form, {nullptr, &count, nullptr, nullptr})) ThrowUndecoded();
  std::vector<BYTE> bytes(count);
  if (!StringToBinary(text, form, {bytes.data(), &count, nullptr, nullptr})) ThrowUndecoded();
  bytes.resize(count);
  return bytes;
}

Download DownloadFromNetwork(const DownloadRequest& request) {
  UrlRetriever retriever;
  retriever.set_flags(request.flags);
  retriever.set_timeout(request.timeout);
  retriever.set_last_modified(request.lastModified);
  // the object is signed itself, and may be what is needed to verify that very server
  retriever.set_verify_server(0);
  retriever.set_verify_host(0);
  if (!retriever.retrieve_url(request.url.c_str())) {
    Trace(TRACE_ERROR, "() UrlRetriever failed (CURLcode: %d URL: %s).", retriever.get_error(),
          request.url.c_str());
    throw RetrieveObjectException(kFailed, CRYPT_E_NOT_FOUND);
  }
  if (!retriever.is_modified()) return {{}, retriever.last_modified()};
  return {DecodeBody({retriever.get_data(), retriever.get_data_len()}), retriever.last_modified()};
}

}  // namespace certkern
