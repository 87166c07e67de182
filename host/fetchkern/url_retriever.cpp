#include <cstdint>
#include <memory>

#include "fetchkern/transfer.h"
#include "platform/fetchkern.h"

struct UrlRetriever::State {
  certkern::fetch::Request request;
  certkern::fetch::Answer answer;
};

namespace {

constexpr int64_t kTicksPerSecond = 10'000'000;
constexpr int64_t kSecondsTo1970 = 11'644'473'600;  // from 1601

// 0 for what lies before 1970, for which no server has an object.
int64_t SecondsOf(const FILETIME& time) {
  const uint64_t ticks = uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
  const auto seconds = static_cast<int64_t>(ticks / kTicksPerSecond) - kSecondsTo1970;
  return seconds > 0 ? seconds : 0;
}

// All zero for 0, and for what a FILETIME cannot hold.
FILETIME FileTimeOf(int64_t seconds) {
  constexpr int64_t kLast = INT64_MAX / kTicksPerSecond - kSecondsTo1970;
  if (seconds <= 0 || seconds > kLast) return {};
  const auto ticks = static_cast<uint64_t>((seconds + kSecondsTo1970) * kTicksPerSecond);
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

std::optional<std::string> Text(const char* text) {
  return text ? std::optional<std::string>(text) : std::nullopt;
}

}  // namespace

UrlRetriever::UrlRetriever() : state_(std::make_unique<State>().release()) {}
UrlRetriever::~UrlRetriever() { const std::unique_ptr<State> last(state_); }

void UrlRetriever::set_flags(DWORD flags) { state_->request.flags = flags; }
void UrlRetriever::set_timeout(DWORD milliseconds) { state_->request.timeout = milliseconds; }
void UrlRetriever::set_last_modified(const FILETIME& time) {
  state_->request.modifiedSince = SecondsOf(time);
}
void UrlRetriever::set_verify_server(int verify) { state_->request.verifyServer = verify != 0; }
void UrlRetriever::set_verify_host(int verify) { state_->request.verifyHost = verify != 0; }
void UrlRetriever::set_proxy_addr(const char* address) { state_->request.proxy = Text(address); }
void UrlRetriever::set_proxy_auth(const char* credentials) {
  state_->request.proxyCredentials = Text(credentials);
}
void UrlRetriever::set_headers(const std::list<std::string>& lines) { state_->request.headers = lines; }
void UrlRetriever::set_postmessage(const BYTE* bytes, size_t length) {
  if (bytes || length == 0) state_->request.post.emplace(bytes, bytes + length);
}

void UrlRetrieverSetSizeLimit(UrlRetriever* retriever, size_t bytes) {
  retriever->state_->request.sizeLimit = bytes;
}

int UrlRetriever::retrieve_url(const char* url) {
  state_->answer = {};
  state_->answer.code = CURLE_URL_MALFORMAT;
  if (!url) return 0;
  state_->request.url = url;
  state_->answer = certkern::fetch::Perform(state_->request);
  return state_->answer.code == CURLE_OK;
}

int UrlRetriever::get_error() const { return state_->answer.code; }
int UrlRetriever::is_modified() const { return state_->answer.modified; }
const BYTE* UrlRetriever::get_data() const { return state_->answer.body.data(); }
size_t UrlRetriever::get_data_len() const { return state_->answer.body.size(); }
FILETIME UrlRetriever::last_modified() const { return FileTimeOf(state_->answer.lastModified); }
