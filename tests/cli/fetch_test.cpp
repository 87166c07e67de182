// Objects by URL and the cache of them, by the tool, from a real server.
#include "tool_home.h"

#include "support/web_server.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using certkern::test::WebServer;
using nlohmann::json;
using testing::HasSubstr;

class Fetch : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "ALL_PROXY"}) unsetenv(name);
    home.out(
        "openssl ecparam -name prime256v1 -genkey -noout -out key\n"
        "openssl req -new -x509 -key key -subj /CN=Anna -days 100 -outform DER -out ca.cer\n"
        "printf '[ca]\\ndefault_ca=d\\n[d]\\ndatabase=index\\ndefault_md=sha256\\ncrlnumber=number\\n' "
        ">ca.cnf; : >index; echo 01 >number\n"
        "openssl x509 -inform DER -in ca.cer -out ca.pem\n"
        "OPENSSL_CONF= command openssl ca -config ca.cnf -gencrl -crldays 7 -keyfile key -cert ca.pem -out "
        "crl.pem\n");
    for (const char* name : {"ca.cer", "ca.pem", "crl.pem"}) server.write(name, ReadFile(home.path(name)));
    server.write("text", "no certificate");
  }
  std::string fetch(const std::string& path, const std::string& options) const {
    return "certkern fetch " + server.url(path) + " " + options;
  }

  const ToolHome home;
  const WebServer server;
};

TEST_F(Fetch, ShowsAndWritesWhatCame) {
  const json any = json::parse(home.out(fetch("/ca.pem", "--json --out any.der")));
  ASSERT_EQ(any.size(), 1u);
  EXPECT_EQ(any[0].at("kind"), "certificate");
  EXPECT_EQ(any[0].at("subject").at("value"), "CN=Anna");
  EXPECT_EQ(ReadFile(home.path("any.der")), ReadFile(home.path("ca.cer")));
  EXPECT_EQ(
      home.out(fetch("/ca.cer", "--type certificate --out - | openssl x509 -inform DER -noout -subject")),
      "subject=CN = Anna\n");
  const json crl = json::parse(home.out(fetch("/crl.pem", "--type crl --json")));
  EXPECT_EQ(crl.at(0).at("kind"), "crl");
  EXPECT_EQ(crl.at(0).at("entries"), 0);
  EXPECT_EQ(json::parse(home.out(fetch("/crl.pem", "--json"))).at(0).at("kind"), "crl");
  EXPECT_THAT(home.out(fetch("/ca.cer", "")), HasSubstr("CN=Anna"));
}

TEST_F(Fetch, TheCacheIsListedUsedAndCleared) {
  EXPECT_EQ(json::parse(home.out("certkern cache list --json")).size(), 0u);
  EXPECT_NE(home.run("test -e data/certkern/stores/cache.sto").status, 0) << "asking makes none";
  home.out(fetch("/ca.cer", "--type certificate"));
  home.out(fetch("/crl.pem", "--type crl"));
  const json list = json::parse(home.out("certkern cache list --json"));
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].at("url"), server.url("/ca.cer"));
  EXPECT_EQ(list[1].at("url"), server.url("/crl.pem"));
  EXPECT_NE(list[0].at("lastModified"), nullptr);
  const size_t before = server.requests();
  EXPECT_THAT(home.out(fetch("/ca.cer", "--cache-only")), HasSubstr("CN=Anna"));
  EXPECT_THAT(home.out(fetch("/crl.pem", "--cache-only")), HasSubstr("Entries"));
  home.out(fetch("/ca.cer", "--type certificate"));
  EXPECT_EQ(server.requests(), before);
  home.out(fetch("/ca.cer", "--type certificate --wire-only"));
  EXPECT_EQ(server.requests(), before + 1);
  EXPECT_EQ(json::parse(home.out("certkern cache clear --json")).at(0).at("removed"), 2);
  EXPECT_EQ(json::parse(home.out("certkern cache list --json")).size(), 0u);
  EXPECT_EQ(json::parse(home.out("certkern cache clear --json")).at(0).at("removed"), 0);
}

TEST_F(Fetch, FaultsTellWhy) {
  const std::string missing = fetch("/missing", ""), cached = fetch("/ca.cer", "--cache-only"),
                    text = fetch("/text", "--type certificate"),
                    both = fetch("/a", "--cache-only --wire-only"), wrong = fetch("/ca.cer", "--type crl"),
                    timeout = fetch("/a", "--timeout 0");
  ExpectFaults(home,
               {
                   {missing.c_str(),                             1, "the transfer failed"                  },
                   {cached.c_str(),                              1, "the cache has nothing of this URL"    },
                   {text.c_str(),                                1, "no certificate that the library reads"},
                   {wrong.c_str(),                               1, "no CRL that the library reads"        },
                   {"certkern fetch file:///etc/passwd",         1, "no http, https or ldap"               },
                   {"certkern fetch 'http://\033[31m.invalid/'", 1, "\\u{1b}[31m"                          },
                   {both.c_str(),                                2, "excludes"                             },
                   {timeout.c_str(),                             2, "--timeout"                            },
                   {"certkern fetch",                            2, "URL is required"                      },
                   {"certkern cache",                            2, "subcommand"                           },
  });
}

}  // namespace
