// Digests and random bytes.
#include "tool_home.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using testing::MatchesRegex;

TEST(Hash, AgreesWithOpenssl) {
  struct Case {
    const char* name;
    const char* openssl;  // options of openssl dgst
  };
  const Case kCases[] = {
      {"gost2012-256", "-md_gost12_256"                         },
      {"gost2012-512", "-md_gost12_512"                         },
      {"gost94",       "-md_gost94"                             },
      {"sha1",         "-sha1"                                  },
      {"sha256",       "-sha256"                                },
      {"sha384",       "-sha384"                                },
      {"sha512",       "-sha512"                                },
      {"md5",          "-md5"                                   },
      {"md4",          "-provider legacy -provider default -md4"},
  };
  const ToolHome home;
  home.out("seq 100000 >large; echo a >small");  // several pieces, and one
  for (const auto& [name, openssl] : kCases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(home.out(std::string("certkern hash --algorithm ") + name + " large small | cut -d' ' -f1"),
              home.out(std::string("openssl dgst -r ") + openssl + " large small | cut -d' ' -f1"));
  }
}

TEST(Hash, AMissingFileDoesNotKeepTheOthers) {
  const ToolHome home;
  const ToolResult result =
      home.run("echo a | tee b >'[c]'; certkern hash --algorithm md5 b missing - '[c]' <b");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out,
            "60b725f10c9c85c70d97880dfe8191b3  b\n"
            "60b725f10c9c85c70d97880dfe8191b3  -\n"
            "60b725f10c9c85c70d97880dfe8191b3  ./[c]\n");
  EXPECT_EQ(result.err, "certkern: missing: No such file or directory\n");
  const auto objects = nlohmann::json::parse(home.out("certkern hash --json --algorithm sha1 b"));
  EXPECT_EQ(objects[0]["value"], "3f786850e387550fdab836ed7e6dc881de23001b");
  EXPECT_EQ(objects[0]["algorithm"], "sha1");
  ExpectFaults(
      home,
      {
          {"certkern hash .",                 1, ".: Is a directory"},
          {"certkern hash --algorithm md6 b", 2, "md6"              }
  });
}

TEST(Random, Forms) {
  const ToolHome home;
  EXPECT_EQ(home.out("certkern random 100000").size(), 100000u);
  EXPECT_THAT(home.out("certkern random 16 --hex"), MatchesRegex("[0-9a-f]{32}\n"));
  EXPECT_EQ(home.out("certkern random 100001 --base64 | openssl base64 -d").size(), 100001u);
  EXPECT_NE(home.out("certkern random 16 --hex"), home.out("certkern random 16 --hex"));
  ExpectFaults(home,
               {
                   {"certkern random 0",                2, "COUNT"},
                   {"certkern random 1 --hex --base64", 2, "--hex"}
  });
}

}  // namespace
