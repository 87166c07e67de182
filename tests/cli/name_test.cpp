// Names from text to their encoding and back.
#include "tool_home.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

TEST(Name, AgreesWithOpenssl) {
  const ToolHome home;
  home.out("openssl ecparam -name prime256v1 -genkey -noout -out key");
  home.out(
      "openssl req -new -x509 -utf8 -key key -subj '/O=a, \"b\"/CN=\xD0\x96' -outform DER -out certificate");
  // version, serial number and algorithm stand before the issuer
  const std::string name = home.out(
      "openssl asn1parse -inform DER -in certificate -strparse $(openssl asn1parse -inform DER -in "
      "certificate | grep 'SEQUENCE' | sed -n 4p | cut -d: -f1) -noout -out name && od -An -v -tx1 name"
      " | tr -d ' \\n'");
  const std::string text = "O=\"a, \"\"b\"\"\", CN=\xD0\x96";
  EXPECT_EQ(home.out("certkern name encode '" + text + "'"), name + "\n");
  EXPECT_EQ(home.out("certkern name decode name " + name), text + "\n" + text + "\n");
  EXPECT_EQ(home.out("certkern name decode --oid --reverse - <name"),
            "2.5.4.3=\xD0\x96, 2.5.4.10=\"a, \"\"b\"\"\"\n");
  EXPECT_EQ(home.out("certkern name encode --reverse 'CN=\xD0\x96;O=\"a, \"\"b\"\"\"'"), name + "\n");
  const auto json = nlohmann::json::parse(home.out("certkern name decode --json name"));
  EXPECT_EQ(json.at(0).at("text"), text);
  EXPECT_EQ(json.at(0).at("encoded"), name);
  EXPECT_EQ(json.at(0).at("name").at("attributes").size(), 2u);
}

TEST(Name, FaultsTellWhere) {
  const ToolHome home;
  ExpectFaults(home,
               {
                   {"certkern name encode CN=a,XY=b",      1, "found \"XY=b\" at character 6"     },
                   {"certkern name encode CN=",            1, "found the end at character 4"      },
                   {"certkern name encode SERIALNUMBER=1", 1, "found \"1\" at character 14"       },
                   {"certkern name encode 'E=\xD0\x96'",   1, "expected ASCII characters"         },
                   {"certkern name decode 3003",           1, "expected a whole name"             },
                   {"certkern name decode 300000",         1, "1 more bytes at byte offset 2"     },
                   {"certkern name decode 30020500",       1, "expected a name, found a refusal"  },
                   {"certkern name decode missing",        1, "missing: No such file or directory"},
                   {"certkern name decode",                2, "NAME is required"                  },
  });
  const ToolResult result = home.run("certkern name encode CN=a, CN=a");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "300c310a300806035504030c0161\n") << "a fault does not keep the others";
}

}  // namespace
