// Objects by URL, by the exported functions, from a real server and past the cache.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/oid.h>
#include <certkern/oids.h>
#include <certkern/store.h>
#include <certkern/text.h>
#include <certkern/url.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>

#include "api/trace_recorder.h"
#include "oid/built_in_functions.h"
#include "store/sample_objects.h"
#include "store/store_kind.h"
#include "support/raw_server.h"
#include "support/web_server.h"
#include "url/url_home.h"

using namespace certkern;
using namespace certkern::test;

namespace {

constexpr DWORD kTimeout = 5000;

std::string Text(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

// What came, or the code in its place.
struct Retrieved {
  BOOL done = FALSE;
  DWORD code = 0;
  void* object = nullptr;
};

Retrieved Retrieve(const std::string& url, LPCSTR type, DWORD flags) {
  Retrieved got;
  SetLastError(0);
  got.done = CryptRetrieveObjectByUrlA(url.c_str(), type, flags, kTimeout, &got.object, nullptr, nullptr,
                                       nullptr, nullptr);
  got.code = got.done ? 0 : GetLastError();
  return got;
}

DWORD CodeOf(const std::string& url, LPCSTR type, DWORD flags) {
  const Retrieved got = Retrieve(url, type, flags);
  EXPECT_FALSE(got.done);
  EXPECT_EQ(got.object, nullptr);
  return got.code;
}

// The encoded object, empty for none.
Bytes Certificate(const std::string& url, DWORD flags) {
  const CertificateHandle context(
      static_cast<PCCERT_CONTEXT>(Retrieve(url, CONTEXT_OID_CERTIFICATE, flags).object));
  return context ? Bytes(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded) : Bytes();
}

Bytes Crl(const std::string& url, DWORD flags) {
  const CrlHandle context(static_cast<PCCRL_CONTEXT>(Retrieve(url, CONTEXT_OID_CRL, flags).object));
  return context ? Bytes(context->pbCrlEncoded, context->pbCrlEncoded + context->cbCrlEncoded) : Bytes();
}

Bytes Raw(const std::string& url) {
  auto* const array = static_cast<CRYPT_BLOB_ARRAY*>(Retrieve(url, nullptr, 0).object);
  if (!array) return {};
  EXPECT_EQ(array->cBlob, 1u);
  const Bytes bytes(array->rgBlob->pbData, array->rgBlob->pbData + array->rgBlob->cbData);
  LocalFree(array);
  return bytes;
}

std::string AsPem(const Bytes& der) {
  DWORD size = 0;
  CryptBinaryToStringA(der.data(), static_cast<DWORD>(der.size()), CRYPT_STRING_BASE64HEADER, nullptr, &size);
  std::string text(size, '\0');
  CryptBinaryToStringA(der.data(), static_cast<DWORD>(der.size()), CRYPT_STRING_BASE64HEADER, text.data(),
                       &size);
  text.resize(size);
  return text;
}

Bytes Expired(Bytes der, const char* from, const char* to) {
  const size_t at = Text(der).find(from);
  EXPECT_NE(at, std::string::npos);
  std::copy_n(to, std::strlen(to), der.begin() + static_cast<std::ptrdiff_t>(at));
  return der;
}

class Retrieval : public testing::Test {
 protected:
  static void SetUpTestSuite() { server = std::make_unique<WebServer>("location /gone { return 404; }"); }
  static void TearDownTestSuite() { server.reset(); }

  // The path is the case's own, so that nothing is in the cache.
  static std::string serve(const std::string& name, const std::string& content) {
    server->write(name, content);
    return server->url("/" + name);
  }

  static inline std::unique_ptr<WebServer> server;
  const Bytes certificate = MakeCertificate({.serial = 9});
  const Bytes crl = MakeCrl({});
};

TEST_F(Retrieval, DerPemAndBase64) {
  EXPECT_EQ(Certificate(serve("der", Text(certificate)), 0), certificate);
  EXPECT_EQ(Certificate(serve("pem", AsPem(certificate)), 0), certificate);
  const std::string pem = AsPem(certificate);
  const size_t begin = pem.find('\n') + 1;
  EXPECT_EQ(Certificate(serve("base64", pem.substr(begin, pem.find("\n-----END") - begin)), 0), certificate);
  EXPECT_EQ(Crl(serve("crl", Text(crl)), 0), crl);
  const std::string like = "0 begins like DER, and so stays as it is";
  EXPECT_EQ(Text(Raw(serve("raw", like))), like);
}

TEST_F(Retrieval, AStoreWhenSeveralAreAskedFor) {
  const std::string url = serve("one", Text(certificate));
  for (const DWORD flags : {CRYPT_WIRE_ONLY_RETRIEVAL, CRYPT_CACHE_ONLY_RETRIEVAL}) {
    const StoreHandle store(static_cast<CertStore*>(
        Retrieve(url, CONTEXT_OID_CERTIFICATE, CRYPT_RETRIEVE_MULTIPLE_OBJECTS | flags).object));
    ASSERT_TRUE(store) << flags;
    EXPECT_EQ(Serials(*store.get()), "9");
  }
}

TEST_F(Retrieval, TheCacheAnswersFirst) {
  const std::string url = serve("cached", Text(certificate));
  EXPECT_EQ(CodeOf(url, CONTEXT_OID_CERTIFICATE, CRYPT_CACHE_ONLY_RETRIEVAL), CRYPT_E_NOT_FOUND);
  const size_t before = server->requests();
  EXPECT_EQ(Certificate(url, CRYPT_WIRE_ONLY_RETRIEVAL | CRYPT_DONT_CACHE_RESULT), certificate);
  EXPECT_EQ(CodeOf(url, CONTEXT_OID_CERTIFICATE, CRYPT_CACHE_ONLY_RETRIEVAL), CRYPT_E_NOT_FOUND);
  EXPECT_EQ(Certificate(url, CRYPT_WIRE_ONLY_RETRIEVAL), certificate) << "written, though not read";
  EXPECT_EQ(server->requests(), before + 2);
  EXPECT_EQ(Certificate(url, CRYPT_CACHE_ONLY_RETRIEVAL), certificate);
  EXPECT_EQ(Certificate(url, 0), certificate);
  EXPECT_EQ(server->requests(), before + 2);
  EXPECT_EQ(Certificate(url, CRYPT_WIRE_ONLY_RETRIEVAL), certificate);
  EXPECT_EQ(server->requests(), before + 3);
  void* stale = &stale;
  EXPECT_FALSE(CryptRetrieveObjectByUrlA(url.c_str(), CONTEXT_OID_CERTIFICATE,
                                         CRYPT_WIRE_ONLY_RETRIEVAL | CRYPT_CACHE_ONLY_RETRIEVAL, kTimeout,
                                         &stale, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), CRYPT_E_NOT_FOUND);
  EXPECT_EQ(stale, nullptr) << "what is not found is said in the result, too";
  EXPECT_EQ(CodeOf(url, CONTEXT_OID_CRL, CRYPT_CACHE_ONLY_RETRIEVAL), CRYPT_E_NOT_FOUND) << "a cache each";
  EXPECT_TRUE(std::filesystem::exists(UrlHome().path("user/cache.sto")));
  const StoreHandle store = OpenStore({StoreNumber(CERT_STORE_PROV_SYSTEM_REGISTRY_W), X509_ASN_ENCODING, 0,
                                       CERT_SYSTEM_STORE_CURRENT_USER | CERT_STORE_READONLY_FLAG, L"cache"});
  ASSERT_TRUE(store);
  EXPECT_NE(Serials(*store.get()).find('9'), std::string::npos) << "on disk at once";
}

// What a million entries take is there once.
TEST_F(Retrieval, TheFirstDownloadAndTheCacheShareAList) {
  const std::string url = serve("shared", Text(crl));
  const CrlHandle first(static_cast<PCCRL_CONTEXT>(Retrieve(url, CONTEXT_OID_CRL, 0).object));
  const CrlHandle second(
      static_cast<PCCRL_CONTEXT>(Retrieve(url, CONTEXT_OID_CRL, CRYPT_CACHE_ONLY_RETRIEVAL).object));
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->pbCrlEncoded, second->pbCrlEncoded);
}

TEST_F(Retrieval, WhatIsNotValidNowComesButIsNotKept) {
  const Bytes expired = Expired(certificate, "350101000000Z", "250102000000Z");
  const std::string url = serve("expired", Text(expired));
  EXPECT_EQ(Certificate(url, 0), expired);
  EXPECT_EQ(CodeOf(url, CONTEXT_OID_CERTIFICATE, CRYPT_CACHE_ONLY_RETRIEVAL), CRYPT_E_NOT_FOUND);
}

// A CRL that runs out while it is in the cache, of a server that has no newer one.
TEST_F(Retrieval, NotModifiedButOutOfDate) {
  const std::time_t soon = std::time(nullptr) + 2;
  char text[24];
  std::strftime(text, sizeof text, "%Y%m%d%H%M%SZ", std::gmtime(&soon));
  const std::string url = serve("short", Text(Expired(crl, "350101000000Z", text + 2)));
  EXPECT_FALSE(Crl(url, 0).empty());
  EXPECT_FALSE(Crl(url, CRYPT_CACHE_ONLY_RETRIEVAL).empty());
  sleep(3);
  EXPECT_EQ(CodeOf(url, CONTEXT_OID_CRL, CRYPT_CACHE_ONLY_RETRIEVAL), CRYPT_E_NOT_FOUND);
  EXPECT_EQ(CodeOf(url, CONTEXT_OID_CRL, 0), E_INVALIDARG);
  EXPECT_NE(server->log().find("GET /short 304"), std::string::npos);
}

TEST_F(Retrieval, WhatGoesWrong) {
  const std::string good = serve("good", Text(certificate));
  const std::string half = serve("half", Text(certificate).substr(0, 40));
  const std::string noise = serve("noise", "\x01\x02 no text, no object");
  const std::string list = serve("list", Text(crl));
  const struct {
    const char* name;
    std::string url;
    LPCSTR type;
    DWORD flags;
    DWORD code;  // 0: any
  } cases[] = {
      {"no such page", server->url("/gone"),                             CONTEXT_OID_CRL, 0,                       CRYPT_E_NOT_FOUND                                                                  },
      {"nobody there", "http://127.0.0.1:" + std::to_string(FreePort()), nullptr,         0,                       CRYPT_E_NOT_FOUND                                                                  },
      {"a file",       "file:///etc/passwd",                             nullptr,         0,                       CRYPT_E_NOT_FOUND                                                                  },
      {"empty",        serve("empty",                                    ""),             CONTEXT_OID_CERTIFICATE, 0,                                                                                   E_INVALIDARG},
      {"empty, raw",              serve("empty2",                                                   ""),                                       nullptr,         0,                                               E_INVALIDARG},
      {"half an object",  half,                                                  CONTEXT_OID_CERTIFICATE,                                                  0,                                                                    0                                },
      {"the wrong type",             list,                                                             CONTEXT_OID_CERTIFICATE,                                                             0, 0},
      {"the wrong type, several",             list,                                                             CONTEXT_OID_CERTIFICATE,                                                    1,                                                           0                                                                                          },
      {"noise",             noise,                                                             CONTEXT_OID_CERTIFICATE,                                                                      0,                  0},
      {"no message",             good,                                                             CONTEXT_OID_PKCS7,                                                                 0,                                                       0                                                                                                                                     },
      {"flags",             good,                                                             CONTEXT_OID_CERTIFICATE,                                                                      16,                       E_INVALIDARG},
      {"several raw",  good,                                                  nullptr,                                                     CRYPT_RETRIEVE_MULTIPLE_OBJECTS,                                                 E_INVALIDARG                                                                                                                                                                                          },
      {"a trust list",  good,                                                  CONTEXT_OID_CTL,                                                    0,                      E_INVALIDARG},
      {"a type as text",  good,                                                  "1.2.3",                                                  0,                                               E_INVALIDARG                                                                                                                                                                                                                           },
  };
  for (const auto& [name, url, type, flags, code] : cases) {
    SCOPED_TRACE(name);
    const DWORD got = CodeOf(url, type, flags);
    EXPECT_NE(got, 0u);
    if (code) {
      EXPECT_EQ(got, code);
    }
  }
  void* object = nullptr;
  EXPECT_FALSE(
      CryptRetrieveObjectByUrlA(nullptr, nullptr, 0, 0, &object, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), E_INVALIDARG);
  EXPECT_FALSE(
      CryptRetrieveObjectByUrlA(good.c_str(), nullptr, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), E_INVALIDARG);
}

TEST_F(Retrieval, ByAWideUrl) {
  const std::string url = serve("wide", Text(certificate));
  void* object = nullptr;
  ASSERT_TRUE(CryptRetrieveObjectByUrlW(std::wstring(url.begin(), url.end()).c_str(), CONTEXT_OID_CERTIFICATE,
                                        0, kTimeout, &object, nullptr, nullptr, nullptr, nullptr));
  EXPECT_TRUE(CertFreeCertificateContext(static_cast<PCCERT_CONTEXT>(object)));
  EXPECT_FALSE(
      CryptRetrieveObjectByUrlW(nullptr, nullptr, 0, 0, &object, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), E_INVALIDARG);
}

// A signed message with nothing but certificates, by openssl.
TEST_F(Retrieval, BundlesComeAsAStore) {
  const Bytes& expected = OpensslCertificate();
  const std::string in = UrlHome().write("in.der", Text(expected));
  const std::string command = "cd '" + UrlHome().path("")
      + "' && openssl x509 -inform DER -in in.der -out in.pem"
        " && openssl crl2pkcs7 -nocrl -certfile in.pem -outform DER -out bundle";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const std::string url = serve("bundle", UrlHome().read("bundle"));
  const std::pair<LPCSTR, DWORD> questions[] = {
      {CONTEXT_OID_PKCS7,       0                              },
      {CONTEXT_OID_CERTIFICATE, CRYPT_RETRIEVE_MULTIPLE_OBJECTS},
  };
  for (const auto& [type, flags] : questions) {
    void* object = nullptr;
    ASSERT_TRUE(CryptRetrieveObjectByUrlA(url.c_str(), type, flags, kTimeout, &object, nullptr, nullptr,
                                          nullptr, nullptr))
        << std::hex << GetLastError();
    const StoreHandle store(static_cast<CertStore*>(object));
    PCCERT_CONTEXT only = CertEnumCertificatesInStore(object, nullptr);
    ASSERT_TRUE(only);
    EXPECT_EQ(Bytes(only->pbCertEncoded, only->pbCertEncoded + only->cbCertEncoded), expected);
    EXPECT_FALSE(CertEnumCertificatesInStore(object, only));
  }
}

// The limit of what it may be, not of what any download may be.
TEST_F(Retrieval, AnEndlessCertificateIsGivenUpEarly) {
  std::atomic<size_t> sent{0};
  const RawServer endless([&](RawConnection& connection) {
    if (connection.readHead().empty()) return;
    const std::string block(size_t{64} << 10, 'A');
    bool open = connection.send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n");
    while (open && sent < size_t{64} << 20) {
      open = connection.send(block);
      if (open) sent += block.size();
    }
  });
  EXPECT_EQ(CodeOf(endless.url("/endless"), CONTEXT_OID_CERTIFICATE, 0), DWORD{CRYPT_E_NOT_FOUND});
  EXPECT_LT(sent, size_t{16} << 20) << "what the sockets hold comes on top of the limit";
}

TEST_F(Retrieval, TellsWhatWasAskedAndWhatCame) {
  const std::string url = serve("traced", Text(certificate));
  const auto told = [&](DWORD flags, LPCSTR type = CONTEXT_OID_CERTIFICATE) {
    TraceRecorder recorder;
    void* object = nullptr;
    if (CryptRetrieveObjectByUrlAInternal(url.c_str(), type, flags, kTimeout, &object, nullptr, nullptr,
                                          nullptr, nullptr)) {
      CertFreeCertificateContext(static_cast<PCCERT_CONTEXT>(object));
    }
    std::string lines;
    for (const TraceRecord& each : recorder.records) {
      if (each.function == "CryptRetrieveObjectByUrlAInternal") lines += each.text + "\n";
    }
    return lines;
  };
  EXPECT_EQ(told(CRYPT_CACHE_ONLY_RETRIEVAL), "(url: " + url
                + ", flags: 2, obj_id: #1)\n"
                  "Object not found: 0x80092004\n"
                  "() result: 0(80092004)\n");
  EXPECT_EQ(told(CRYPT_WIRE_ONLY_RETRIEVAL), "(url: " + url + ", flags: 4, obj_id: #1)\n() result: 1(0)\n");
  EXPECT_TRUE(told(0, "1.2.3").starts_with("(url: " + url + ", flags: 0, obj_id: 1.2.3)\n"));
}

// --- a program's own retrieval takes the place of ours ---

BOOL Own(LPCSTR, LPCSTR, DWORD, DWORD, LPVOID* object, HCRYPTASYNC, PCRYPT_CREDENTIALS, LPVOID,
         PCRYPT_RETRIEVE_AUX_INFO) {
  *object = nullptr;
  SetLastError(4711);
  return FALSE;
}

TEST_F(Retrieval, XAnInstalledFunctionIsAsked) {  // the last: nothing is ever uninstalled
  const CRYPT_OID_FUNC_ENTRY entry{CRYPT_DEFAULT_OID, reinterpret_cast<void*>(&Own)};
  ASSERT_TRUE(CryptInstallOIDFunctionAddress(nullptr, 0, SV_OID_RETRIEVE_OBJECT_BY_URL_A_FUNC, 1, &entry,
                                             CRYPT_INSTALL_OID_FUNC_BEFORE_FLAG));
  EXPECT_EQ(CodeOf("x", CONTEXT_OID_CRL, 0), 4711u);
}

}  // namespace
