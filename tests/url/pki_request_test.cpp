// Posted requests.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/url.h>
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <string>

#include "support/raw_server.h"
#include "support/web_server.h"

using namespace certkern::test;

namespace {

constexpr wchar_t kAgent[] = L"User-Agent: test";
constexpr wchar_t kType[] = L"Content-type: application/ocsp-request";

std::wstring Wide(const std::string& text) { return {text.begin(), text.end()}; }

TEST(PkiRequest, PostsAndFillsTheBuffer) {
  std::string seen, body;
  const RawServer server([&](RawConnection& connection) {
    seen = connection.readHead();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
  });
  BYTE bytes[] = {1, 2, 3};
  const SV_BYTE_BUFFER request{sizeof bytes, bytes, sizeof bytes};
  SV_BYTE_BUFFER response{};
  const struct {
    size_t size;
    DWORD capacity;
  } cases[] = {
      {10,      4096   },
      {4096,    4096   },
      {4097,    8192   },
      {100'000, 131'072},
      {5,       131'072},
      {0,       0      },
      {3,       4096   }
  };
  for (const auto& [size, capacity] : cases) {
    body.assign(size, 'r');
    EXPECT_EQ(SendPKIRequest(Wide(server.url("/")).c_str(), kAgent, kType, L"", L"", &request, &response),
              200u);
    EXPECT_EQ(response.cbData, size);
    EXPECT_EQ(response.cbCapacity, capacity);
    EXPECT_EQ(std::string(response.pbData, response.pbData + response.cbData), body);
  }
  LocalFree(response.pbData);
  EXPECT_TRUE(seen.starts_with("POST / HTTP/1.1\r\n")) << seen;
  const size_t agent = seen.find("User-Agent: test\r\n");
  EXPECT_NE(agent, seen.npos) << seen;
  EXPECT_LT(agent, seen.find("Content-type: application/ocsp-request\r\n"));
}

TEST(PkiRequest, Failures) {
  const WebServer server;
  const SV_BYTE_BUFFER empty{};
  SV_BYTE_BUFFER response{};
  const std::wstring missing = Wide(server.url("/missing"));
  const std::wstring base = Wide(server.url("/"));
  const std::wstring longest = base + std::wstring(247 - base.size(), L'a');
  const auto send = [&](const std::wstring& url, LPCWSTR agent, LPCWSTR proxy) {
    return SendPKIRequest(url.c_str(), agent, kType, proxy, nullptr, &empty, &response);
  };
  EXPECT_EQ(send(missing, kAgent, nullptr), DWORD{CURLE_HTTP_RETURNED_ERROR});
  EXPECT_EQ(send(L"http://127.0.0.1:" + std::to_wstring(FreePort()), kAgent, nullptr),
            DWORD{CURLE_COULDNT_CONNECT});
  EXPECT_EQ(send(longest, kAgent, nullptr), DWORD{CURLE_HTTP_RETURNED_ERROR});
  const size_t before = server.requests();
  EXPECT_EQ(send(longest + L"a", kAgent, nullptr), 456u);
  EXPECT_EQ(send(missing, L"A: b\r\nInjected: yes", nullptr), 456u);
  EXPECT_EQ(send(missing, L"A: b\nInjected: yes", nullptr), 456u);
  EXPECT_EQ(send(missing, L"A: \x416", nullptr), 456u) << "no such character in the C locale";
  EXPECT_EQ(send(missing, kAgent, std::wstring(248, L'p').c_str()), 456u);
  EXPECT_EQ(server.requests(), before) << "nothing was sent";
  EXPECT_EQ(SendPKIRequest(nullptr, kAgent, kType, nullptr, nullptr, &empty, &response), 0u);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(response.pbData, nullptr);
  SV_BYTE_BUFFER noBlock{0, nullptr, 4096};
  SetLastError(0);
  EXPECT_EQ(SendPKIRequest(base.c_str(), kAgent, kType, nullptr, nullptr, &empty, &noBlock), 0u);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER}) << "a capacity, but no block";
}

}  // namespace
