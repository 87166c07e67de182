// The operations of the fetcher library, libfetchkern: one transfer by URL. A site may install another library of the
// same soname, so nothing beyond these declarations may be relied on.
//
// What it promises: http, https and ldap only, redirects included, never a file; no more than the size limit in memory;
// the time-out holds for the whole transfer, redirects, name look-up and all. It throws std::bad_alloc at most.
#ifndef CERTKERN_PLATFORM_FETCHKERN_H
#define CERTKERN_PLATFORM_FETCHKERN_H

#include <certkern/types.h>

#include <cstddef>
#include <list>
#include <string>

class UrlRetriever;

// The most bytes that the object may have, headers aside; the library's own limit holds as well. 0: that alone. A transfer
// that passes it fails. A library that was made before this function lacks it, and its address is then null.
extern "C" CERTKERN_API void UrlRetrieverSetSizeLimit(UrlRetriever* retriever, size_t bytes)
    __attribute__((weak));

// One transfer after the other, by one thread at a time. Settings hold until they are set anew; a null text unsets one.
class CERTKERN_API UrlRetriever {
 public:
  UrlRetriever();
  ~UrlRetriever();
  UrlRetriever(const UrlRetriever&) = delete;
  UrlRetriever& operator=(const UrlRetriever&) = delete;

  // CRYPT_..._RETRIEVAL. With CRYPT_WIRE_ONLY_RETRIEVAL caches on the way are asked to pass the request on.
  void set_flags(DWORD flags);
  // Milliseconds; 0: the library's own limit.
  void set_timeout(DWORD milliseconds);
  // Asks for the object only if it has changed since; zero: in any case.
  void set_last_modified(const FILETIME& time);
  // Whether the certificate of an https server, and the name in it, are verified; on unless set. What is fetched is signed
  // itself, and a certificate that is needed to verify a server may have to be fetched from one.
  void set_verify_server(int verify);
  void set_verify_host(int verify);
  // "[scheme://]host[:port]", and "user:password". An empty text: no proxy, whatever the configuration says.
  void set_proxy_addr(const char* address);
  void set_proxy_auth(const char* credentials);
  // Whole header lines.
  void set_headers(const std::list<std::string>& lines);
  // A body to post instead of getting; copied.
  void set_postmessage(const BYTE* bytes, size_t length);

  // Non-zero for success, "not modified" included.
  int retrieve_url(const char* url);
  // The code of the last transfer as libcurl numbers it, 0 for success.
  int get_error() const;
  // Zero: the server has nothing newer than the time that was set, and there is no data.
  int is_modified() const;
  // The body; good until the next transfer. Of an LDAP answer the first value of the attribute that the URL names.
  const BYTE* get_data() const;
  size_t get_data_len() const;
  // As the server told it; zero when it did not.
  FILETIME last_modified() const;

 private:
  friend void UrlRetrieverSetSizeLimit(UrlRetriever* retriever, size_t bytes);

  struct State;
  State* const state_;
};

#endif
