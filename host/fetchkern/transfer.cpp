#include "fetchkern/transfer.h"

#include <certkern/url.h>

#include <strings.h>
#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <string_view>

#include "fetchkern/ldap_answer.h"
#include "fetchkern/settings.h"
#include "platform/limits.h"

namespace certkern::fetch {
namespace {

enum class Scheme { None, Http, Ldap };

struct SchemeRow {
  std::string_view prefix;
  Scheme scheme;
};
// Never a file, nor anything else that libcurl happens to speak: URLs come out of certificates of strangers.
constexpr SchemeRow kSchemes[] = {
    {"http://",  Scheme::Http},
    {"https://", Scheme::Http},
    {"ldap://",  Scheme::Ldap},
};
constexpr char kSchemeNames[] = "http,https,ldap";

constexpr long kNotModified = 304;

Scheme SchemeOf(std::string_view url) {
  const auto* const row = std::ranges::find_if(kSchemes, [&](const SchemeRow& each) {
    return url.size() > each.prefix.size()
        && strncasecmp(url.data(), each.prefix.data(), each.prefix.size()) == 0;
  });
  return row != std::end(kSchemes) ? row->scheme : Scheme::None;
}

bool IsControlOrBlank(char character) {
  const auto octet = static_cast<unsigned char>(character);
  return octet <= 0x20 || octet == 0x7F;
}

// A line end inside would be the beginning of a request or header of the URL's own making.
CURLcode CheckRequest(const Request& request) {
  if (request.url.size() > kMaxUrl || std::ranges::any_of(request.url, IsControlOrBlank)) {
    return CURLE_URL_MALFORMAT;
  }
  if (SchemeOf(request.url) == Scheme::None) return CURLE_UNSUPPORTED_PROTOCOL;
  const bool clean = std::ranges::all_of(request.headers, [](const std::string& line) {
    return line.find_first_of(std::string_view("\r\n\0", 3)) == line.npos;
  });
  return clean ? CURLE_OK : CURLE_BAD_FUNCTION_ARGUMENT;
}

// What arrives, and how much of it may.
struct Sink {
  Body body;
  size_t limit = 0;
  size_t headerBytes = 0;
  CURLcode fault = CURLE_OK;  // why we stopped the transfer ourselves
};

// Anything but the whole size tells libcurl to stop.
size_t Stop(Sink& sink, CURLcode why) {
  sink.fault = why;
  return 0;
}

size_t OnBody(char* data, size_t, size_t size, void* context) {
  auto& sink = *static_cast<Sink*>(context);
  if (size > sink.limit - sink.body.size()) return Stop(sink, CURLE_FILESIZE_EXCEEDED);
  return sink.body.append({data, size}) ? size : Stop(sink, CURLE_OUT_OF_MEMORY);
}

size_t OnHeader(char*, size_t, size_t size, void* context) {
  auto& sink = *static_cast<Sink*>(context);
  if (size > kMaxDownloadHeaders - sink.headerBytes) return Stop(sink, CURLE_FILESIZE_EXCEEDED);
  sink.headerBytes += size;
  return size;
}

// A handle of libcurl; the first option that cannot be set ends the matter.
class Session {
 public:
  explicit Session(const CurlLibrary& curl) : curl_(curl), handle_(curl.easyInit(), curl.easyCleanup) {
    if (!handle_) code_ = CURLE_FAILED_INIT;
  }

  template <typename Value>
  void set(CURLoption option, Value value) {
    if (code_ == CURLE_OK) code_ = curl_.easySetopt(handle_.get(), option, value);
  }
  void set(CURLoption option, const std::optional<std::string>& text) {
    if (text) set(option, text->c_str());
  }
  void addHeader(const char* line) {
    curl_slist* const longer = curl_.slistAppend(headers_.get(), line);
    if (!longer) code_ = CURLE_OUT_OF_MEMORY;
    if (!longer || longer == headers_.get()) return;
    static_cast<void>(headers_.release());
    headers_.reset(longer);
  }
  void useHeaders() {
    if (headers_) set(CURLOPT_HTTPHEADER, headers_.get());
  }

  CURLcode perform() { return code_ == CURLE_OK ? curl_.easyPerform(handle_.get()) : code_; }
  template <typename Value>
  Value info(CURLINFO which) const {
    Value value{};
    return curl_.easyGetinfo(handle_.get(), which, &value) == CURLE_OK ? value : Value{};
  }

 private:
  const CurlLibrary& curl_;
  CURLcode code_ = CURLE_OK;
  // behind the handle that reads it
  std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers_{nullptr, curl_.slistFreeAll};
  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle_;
};

void SetLimits(Session& session, const Request& request, Sink& sink) {
  session.set(CURLOPT_PROTOCOLS_STR, kSchemeNames);
  session.set(CURLOPT_REDIR_PROTOCOLS_STR, kSchemeNames);
  session.set(CURLOPT_FOLLOWLOCATION, 1L);
  session.set(CURLOPT_MAXREDIRS, kMaxRedirects);
  // names and passwords in a URL, a redirect's included, are somebody else's wish to try them on a third
  session.set(CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
  const long limit = request.timeout ? static_cast<long>(request.timeout) : kDefaultTransferTime;
  session.set(CURLOPT_TIMEOUT_MS, std::min(limit, long{0x7FFFFFFF}));
  session.set(CURLOPT_NOSIGNAL, 1L);
  session.set(CURLOPT_QUICK_EXIT, 1L);  // a name server that never answers does not hold us up
  session.set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(sink.limit));
  session.set(CURLOPT_FAILONERROR, 1L);  // the page that says so is not the object
  session.set(CURLOPT_WRITEFUNCTION, &OnBody);
  session.set(CURLOPT_WRITEDATA, &sink);
  session.set(CURLOPT_HEADERFUNCTION, &OnHeader);
  session.set(CURLOPT_HEADERDATA, &sink);
}

void SetProxy(Session& session, const Request& request) {
  const ProxySettings configured = ConfiguredProxy();
  session.set(CURLOPT_PROXY, request.proxy ? request.proxy : configured.address);
  session.set(CURLOPT_NOPROXY, configured.exceptions);
  // an empty text stands for no credentials, which libcurl would try as an empty name
  const auto& credentials = request.proxyCredentials ? request.proxyCredentials : configured.credentials;
  if (credentials && !credentials->empty()) session.set(CURLOPT_PROXYUSERPWD, credentials);
}

void SetRequest(Session& session, const Request& request) {
  session.set(CURLOPT_URL, request.url.c_str());
  session.set(CURLOPT_USERAGENT, "certkern/4");
  session.set(CURLOPT_SSL_VERIFYPEER, long{request.verifyServer});
  session.set(CURLOPT_SSL_VERIFYHOST, request.verifyHost ? 2L : 0L);
  session.set(CURLOPT_CAINFO, AuthorityFile());
  session.set(CURLOPT_FILETIME, 1L);
  if (request.modifiedSince) {
    session.set(CURLOPT_TIMECONDITION, long{CURL_TIMECOND_IFMODSINCE});
    session.set(CURLOPT_TIMEVALUE_LARGE, static_cast<curl_off_t>(request.modifiedSince));
  }
  if (request.post) {
    session.set(CURLOPT_POST, 1L);
    session.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.post->size()));
    session.set(CURLOPT_POSTFIELDS, request.post->data());
  }
  if (request.flags & CRYPT_WIRE_ONLY_RETRIEVAL) session.addHeader("Cache-Control: no-cache");
  for (const std::string& line : request.headers) session.addHeader(line.c_str());
  session.useHeaders();
}

bool CameByLdap(const Session& session) {
  const char* const url = session.info<const char*>(CURLINFO_EFFECTIVE_URL);
  return url && SchemeOf(url) == Scheme::Ldap;
}

Answer Outcome(const Session& session, Sink& sink, CURLcode code) {
  Answer answer;
  answer.code = sink.fault != CURLE_OK ? sink.fault : code;
  if (answer.code != CURLE_OK) return answer;
  answer.modified = session.info<long>(CURLINFO_CONDITION_UNMET) == 0
      && session.info<long>(CURLINFO_RESPONSE_CODE) != kNotModified;
  answer.lastModified = std::max(session.info<curl_off_t>(CURLINFO_FILETIME_T), curl_off_t{0});
  if (!answer.modified) return answer;
  if (!CameByLdap(session)) {
    answer.body = std::move(sink.body);
  } else if (auto value =
                 FirstLdapValue({reinterpret_cast<const char*>(sink.body.data()), sink.body.size()})) {
    answer.body = {};
    if (!answer.body.append({reinterpret_cast<const char*>(value->data()), value->size()}))
      answer.code = CURLE_OUT_OF_MEMORY;
  } else {
    answer.code = CURLE_REMOTE_FILE_NOT_FOUND;
  }
  return answer;
}

Answer Refused(CURLcode code) {
  Answer answer;
  answer.code = code;
  return answer;
}

}  // namespace

bool Body::append(std::span<const char> data) {
  constexpr size_t kLeastGrowth = size_t{64} << 10;
  if (data.size() > room_ - size_) {
    const size_t room = room_ + std::max({data.size(), room_ / 8, kLeastGrowth});
    // of large memory the pages move, not the bytes
    void* const larger = std::realloc(bytes_.get(), room);
    if (!larger) return false;
    static_cast<void>(bytes_.release());
    bytes_.reset(static_cast<BYTE*>(larger));
    room_ = room;
  }
  if (!data.empty()) std::memcpy(bytes_.get() + size_, data.data(), data.size());
  size_ += data.size();
  return true;
}

Answer Perform(const Request& request) {
  if (const CURLcode fault = CheckRequest(request); fault != CURLE_OK) return Refused(fault);
  const CurlLibrary* const curl = LoadCurl();
  if (!curl) return Refused(CURLE_FAILED_INIT);
  Sink sink;
  sink.limit = static_cast<size_t>(SizeLimit());
  if (request.sizeLimit) sink.limit = std::min(sink.limit, request.sizeLimit);
  Session session(*curl);
  SetLimits(session, request, sink);
  SetProxy(session, request);
  SetRequest(session, request);
  const CURLcode code = session.perform();
  return Outcome(session, sink, code);
}

}  // namespace certkern::fetch
