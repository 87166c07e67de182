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

void Fetch(UrlRetriever& retriever, const DownloadRequest& request) {
  retriever.set_flags(request.flags);
  retriever.set_timeout(request.timeout);
  retriever.set_last_modified(request.lastModified);
  // the object is signed itself, and may be what is needed to verify that very server
  retriever.set_verify_server(0);
  retriever.set_verify_host(0);
  if (UrlRetrieverSetSizeLimit) UrlRetrieverSetSizeLimit(&retriever, request.sizeLimit);
  const bool came = retriever.retrieve_url(request.url.c_str()) != 0;
  const bool fits = !request.sizeLimit || retriever.get_data_len() <= request.sizeLimit;
  if (came && fits) return;
  TraceAs("DownloadFromNetwork", TRACE_ERROR, "() UrlRetriever failed (CURLcode: %d URL: %s).",
          retriever.get_error(), request.url.c_str());
  throw RetrieveObjectException(kFailed, CRYPT_E_NOT_FOUND);
}

}  // namespace

std::span<const BYTE> DecodeBody(std::span<const BYTE> body, std::vector<BYTE>& decoded) {
  if (!body.empty() && body[0] == kSequence) return body;
  const std::string_view text(reinterpret_cast<const char*>(body.data()), body.size());
  DWORD count = 0;
  if (!StringToBinary(text, CRYPT_STRING_ANY, {nullptr, &count, nullptr, nullptr})) ThrowUndecoded();
  decoded.resize(count);
  if (!StringToBinary(text, CRYPT_STRING_ANY, {decoded.data(), &count, nullptr, nullptr})) ThrowUndecoded();
  decoded.resize(count);
  return decoded;
}

Download::Download(const DownloadRequest& request) : retriever_(std::make_unique<UrlRetriever>()) {
  Fetch(*retriever_, request);
  lastModified_ = retriever_->last_modified();
  if (!retriever_->is_modified()) return;
  bytes_ = DecodeBody({retriever_->get_data(), retriever_->get_data_len()}, decoded_);
  if (bytes_.data() == decoded_.data()) retriever_.reset();
}

Download::~Download() = default;

}  // namespace certkern
