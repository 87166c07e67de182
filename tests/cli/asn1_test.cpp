// certkern asn1: the structure as openssl asn1parse sees it, the names of the schema's types, and what is said of bad input.
#include "tool_home.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <sstream>

namespace {

using nlohmann::json;
using testing::HasSubstr;

// Each element of an encoding, each in front of what is inside. What primitive ones hold is left out on demand.
void Visit(const json& element, int depth, bool intoStrings,
           const std::function<void(const json&, int)>& visit) {
  visit(element, depth);
  if (!element.contains("elements") || !(intoStrings || element["constructed"])) return;
  for (const json& inner : element["elements"]) Visit(inner, depth + 1, intoStrings, visit);
}

json At(const json& encodings, int offset) {
  json found;
  for (const json& encoding : encodings) {
    Visit(encoding, 0, true, [&](const json& element, int) {
      if (element["offset"] == offset) found = element;
    });
  }
  return found;
}

// "0:d=0 hl=4 l= 301 cons: SEQUENCE" as offset, depth, header length, length, form, and class and number where asn1parse
// tells them.
std::string OfOpenssl(const std::string& lines) {
  std::string all;
  std::istringstream in(lines);
  for (std::string line; std::getline(in, line);) {
    int offset = 0, depth = 0, header = 0, behind = 0, tag = 0;
    char length[16], form[8];
    if (std::sscanf(line.c_str(), " %d:d=%d hl=%d l= %15s %4s: %n", &offset, &depth, &header, length, form,
                    &behind)
            != 5
        || !behind) {
      ADD_FAILURE() << line;
      continue;
    }
    const std::string name = line.substr(static_cast<size_t>(behind));
    if (name.starts_with("EOC")) continue;
    const bool isContext = std::sscanf(name.c_str(), "cont [ %d ]", &tag) == 1;
    all += std::to_string(offset) + ' ' + std::to_string(depth) + ' ' + std::to_string(header) + ' ' + length
        + ' ' + form + ' ' + (isContext ? "context " + std::to_string(tag) : "universal") + '\n';
  }
  return all;
}

std::string OfTool(const json& encodings) {
  std::string all;
  for (const json& encoding : encodings) {
    Visit(encoding, 0, false, [&](const json& element, int depth) {
      const auto number = [&](const char* key) { return std::to_string(element[key].get<int>()) + ' '; };
      all += number("offset") + std::to_string(depth) + ' ' + number("headerLength")
          + (element["indefinite"] ? std::string("inf ") : number("length"))
          + (element["constructed"] ? "cons " : "prim ") + element["class"].get<std::string>();
      if (element["class"] == "context") all += ' ' + std::to_string(element["tag"].get<int>());
      all += '\n';
    });
  }
  return all;
}

// A message in BER, a key file, a request and a list, by openssl, in a directory that all tests share.
const ToolHome& Home() {
  static const ToolHome home;
  static const bool made = [] {
    home.out(
        "openssl req -x509 -newkey rsa:2048 -nodes -keyout key.pem -out cert.pem -subj /CN=anna -days 9 "
        "  -addext keyUsage=digitalSignature,keyCertSign 2>log && "
        "printf hello | openssl cms -sign -binary -stream -nodetach -signer cert.pem -inkey key.pem -outform "
        "DER -out "
        "message.ber && "
        "openssl pkcs12 -export -in cert.pem -inkey key.pem -passout pass:x -out file.p12 && "
        "openssl x509 -in cert.pem -outform DER -out cert.der");
    return true;
  }();
  EXPECT_TRUE(made);
  return home;
}

TEST(Asn1, StructureAsOpensslSeesIt) {
  const std::string kFiles[] = {Home().path("message.ber"), Home().path("file.p12"), Home().path("cert.der"),
                                ExamplePath("d1_crl.der"), ExamplePath("d2_request.der")};
  for (const std::string& file : kFiles) {
    SCOPED_TRACE(file);
    const json encodings = json::parse(Home().out("certkern asn1 --json " + file));
    const std::string expected = OfOpenssl(Home().out("openssl asn1parse -inform DER -in " + file));
    EXPECT_GT(std::count(expected.begin(), expected.end(), '\n'), 10);
    EXPECT_EQ(OfTool(encodings), expected);
  }
}

// The same bytes, whatever they are wrapped in, and however they come.
TEST(Asn1, Forms) {
  const std::string der = ReadFile(ExamplePath("d1_certificate.der"));
  const std::string expected =
      OfTool(json::parse(RunTool({"asn1", "--json", ExamplePath("d1_certificate.der")}).out));
  std::string otherLabel = Pem(der);
  for (size_t at; (at = otherLabel.find("CERTIFICATE")) != otherLabel.npos;)
    otherLabel.replace(at, 11, "THING");
  for (const std::string& form : {der, Pem(der), "Text, \xC3\xA9:\n" + otherLabel, Base64(der)}) {
    EXPECT_EQ(OfTool(json::parse(RunTool({"asn1", "--json", "-"}, form).out)), expected);
  }
  EXPECT_EQ(json::parse(RunTool({"asn1", "--json"}, der + der).out).size(), 2u);
  EXPECT_EQ(json::parse(RunTool({"asn1", "--json"}, Pem(der) + otherLabel).out).size(), 2u);
  // [0] of 65 letters, which is no text
  EXPECT_EQ(json::parse(RunTool({"asn1", "--json"}, "\x80" + std::string(66, 'A')).out)[0]["length"], 65);
}

TEST(Asn1, ValuesOfTypes) {
  struct Row {
    const char* name;
    std::string file;
    const char* type;  // null: the bare structure
    int offset;
    const char* part;  // of the element there, as JSON
  };
  const std::string d1 = ExamplePath("d1_certificate.der");
  const Row kRows[] = {
      {"a number with a name",                     d1,                         "Certificate", 9,   R"({"type": "Version", "value": 2, "names": ["v3"]})"       },
      {"a tag in front",                           d1,                         "Certificate", 7,
       R"({"member": "version", "class": "context", "constructed": true})"                                                                                     },
      {"a choice",                                 d1,                         "Certificate", 27,  R"({"member": "issuer.rdnSequence", "type": "RDNSequence"})"},
      {"a choice of times",                        d1,                         "Certificate", 64,
       R"({"member": "notAfter.generalTime", "name": "GeneralizedTime", "value": "20501231000000Z"})"                                                          },
      {"an open type",                             d1,                         "Certificate", 115, R"({"member": "parameters.publicKeyParameters"})"           },
      {"an identifier",                            d1,                         nullptr,       105,
       R"({"value": {"oid": "1.2.643.7.1.1.1.1", "name": "GOST R 34.10-2012 256 bit"}})"                                                                       },
      {"a BIT STRING that holds an element",       d1,                         nullptr,       139,
       R"({"name": "OCTET STRING", "headerLength": 2, "length": 64})"                                                                                          },
      {"an OCTET STRING that does",                d1,                         nullptr,       221, R"({"name": "SEQUENCE"})"                                   },
      {"text",                                     d1,                         nullptr,       38,  R"({"name": "PrintableString", "value": "Example"})"        },
      {"inside of indefinite lengths",             Home().path("message.ber"), "ContentInfo", 15,
       R"({"type": "SignedData", "indefinite": true})"                                                                                                         },
      {"an identifier that only the schema names", Home().path("message.ber"), nullptr,       2,
       R"({"value": {"oid": "1.2.840.113549.1.7.2", "name": "id-signedData"}})"                                                                                },
  };
  for (const auto& [name, file, type, offset, part] : kRows) {
    SCOPED_TRACE(name);
    std::vector<std::string> arguments = {"asn1", "--json", file};
    if (type) arguments.insert(arguments.end(), {"--type", type});
    const ToolResult result = RunTool(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    const json element = At(json::parse(result.out), offset);
    const json expected = json::parse(part);
    for (const auto& [key, value] : expected.items())
      EXPECT_EQ(element.value(key, json()), value) << element.dump().substr(0, 300);
    EXPECT_EQ(element.contains("type"), type && !element.value("type", "").empty());
  }
}

// Values one by one: content, and what is made of it.
TEST(Asn1, ValuesByTag) {
  struct Row {
    const char* name;
    std::string der;
    const char* value;
  };
  using namespace std::string_literals;
  const Row kRows[] = {
      {"negative",               "\x02\x01\xFF"s,                                         "-1"                         },
      {"exact in a double",      "\x02\x07\x1F\xFF\xFF\xFF\xFF\xFF\xFF"s,                 "9007199254740991"           },
      {"not exact",              "\x02\x07\x20\0\0\0\0\0\0"s,                             R"("9007199254740992")"      },
      {"more than 64 bits",      "\x02\x09\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s,           R"("18446744073709551615")"  },
      {"a number that is none",  "\x02\0"s,                                               R"("")"                      },
      {"false",                  "\x01\x01\0"s,                                           "false"                      },
      {"a BOOLEAN that is none", "\x01\x02\0\0"s,                                         R"("0000")"                  },
      {"2.999",                  "\x06\x02\x88\x37"s,                                     R"({"oid": "2.999"})"        },
      {"an arc of 64 bits",      "\x06\x0B\x69\x81\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F"s,
       R"({"oid": "2.25.18446744073709551615"})"                                                                       },
      {"one more bit",           "\x06\x0B\x69\x82\x80\x80\x80\x80\x80\x80\x80\x80\0"s,   R"("6982808080808080808000")"},
      {"UTF-16",                 "\x1E\x06\x04\x2F\xD8\x3D\xDE\0"s,                       R"("\u042f\ud83d\ude00")"    },
      {"half of UTF-16",         "\x1E\x03\x04\x2F\0"s,                                   R"("042f00")"                },
      {"UTF-8 that is none",     "\x0C\x02\xFF\x41"s,                                     R"("\ufffdA")"               },
      {"NULL",                   "\x05\0"s,                                               "null"                       },
  };
  for (const auto& [name, der, value] : kRows) {
    SCOPED_TRACE(name);
    const json element = json::parse(RunTool({"asn1", "--json"}, der).out).at(0);
    EXPECT_EQ(element.value("value", json()), json::parse(value));
  }
  EXPECT_THAT(RunTool({"asn1", "--type", "KeyUsage"}, "\x03\x02\x02\x84").out,
              HasSubstr("KeyUsage: BIT STRING 84, 2 bits unused (digitalSignature, keyCertSign)"));
  EXPECT_THAT(RunTool({"asn1"}, "\x0C\x05\x1B[31m").out, HasSubstr("UTF8String \"\\u{1b}[31m\"\n"));
}

// Octets that only happen to begin like an element are shown as octets.
TEST(Asn1, OnlySoundContentIsLookedInto) {
  struct Row {
    const char* name;
    const char* der;
    bool holds;
  };
  const Row kRows[] = {
      {"a number",                   "0403020105",       true },
      {"something behind it",        "040402010500",     false},
      {"cut",                        "0403020205",       false},
      {"a context tag",              "0403800105",       false},
      {"a SEQUENCE that is no list", "0402100030",       false},
      {"an empty number",            "04020200",         false},
      {"rotten inside",              "0406300402030001", false},
      {"twice",                      "04050403020105",   true },
      {"bits",                       "030400020105",     true },
      {"unused bits",                "030401020104",     false},
      {"indefinite",
       "04073080020105"
       "0000",                                           true },
  };
  for (const auto& [name, hex, holds] : kRows) {
    SCOPED_TRACE(name);
    std::string der;
    for (const char* at = hex; *at; at += 2)
      der += static_cast<char>(std::stoi(std::string(at, 2), nullptr, 16));
    const ToolResult result = RunTool({"asn1", "--json"}, der);
    const json encodings = json::parse(result.out);
    ASSERT_GE(encodings.size(), 1u);
    EXPECT_EQ(encodings[0].contains("elements"), holds) << result.out;
  }
}

TEST(Asn1, FaultsAndTheirPlaces) {
  struct Row {
    const char* name;
    std::vector<std::string> options;
    std::string input;
    const char* complaint;
  };
  const std::string der = ReadFile(ExamplePath("d1_certificate.der"));
  const auto with = [&](size_t offset, char octet) {
    std::string changed = der;
    changed[offset] = octet;
    return changed;
  };
  const Row kRows[] = {
      {"nothing",                                                              {},         "",                                        "expected an encoding, found an empty file"                                                               },
      {"cut",
       {},
       der.substr(0,                                                                                                                  300),
       "an element within the 300 bytes that are left, found one that runs past their end"},
      {"cut in PEM",
       {},
       Pem(der.substr(0,                                                                                                                            300)),
       "at offset 0 of the decoded object, whose PEM begins at byte offset 0"},
      {"beyond its frame",
       {},
       with(50,                                   0x70),
       "the 32 bytes that are left, found one that runs past their end at byte offset 49"},
      {"no end",
       {},
       std::string("\x30\x80\x05\0",                                          4),
       "expected end-of-contents octets, found the end of the data at byte offset 4"},
      {"zero",                                           {},                                                   std::string("\0\x01\x01",                                                 3),                                                                                                                                                           "expected an identifier, found byte 0x00 at byte offset 0"},
      {"a reserved length",                          {},std::string("\x30\xFF\x01",3),"expected a length"},
      {"another member",
       {"--type", "Certificate"},
       with(49,                                                                                         0x04),
       "Certificate, in tbsCertificate.validity: expected notBefore (Time), found OCTET STRING at byte "
       "offset 49 of the file"},
      {"another type",
       {"--type", "CertificateList"},
       der,                                                                                                     "CertificateList, in tbsCertList: expected signature (AlgorithmIdentifier), found [0] at byte offset "
       "7"                                                                                                                                                                                                                                  },
      {"no SEQUENCE",
       {"--type", "Certificate"},
       std::string("\x05\0",                                                                                      2),
       "expected Certificate, found NULL at byte offset 0"},
      {"a member too many",
       {"--type", "AlgorithmIdentifier"},
       std::string("\x30\x07\x06\x01\x2A\x05\0\x05\0",                                                                                                    9),
       "expected the end of AlgorithmIdentifier, found NULL at byte offset 7"},
      {"behind an open value of indefinite length",
       {"--type", "AttributeTypeAndValue"},
       std::string("\x30\x80\x06\x03\x55\x04\x03\x30\x80\0\0\x05\0\0\0",                                                                         15),
       "AttributeTypeAndValue: expected the end of AttributeTypeAndValue, found NULL at byte offset 11"},
      {"a member missing",
       {"--type", "AlgorithmIdentifier"},
       std::string("\x30\0",                                                        2),
       "expected algorithm (OBJECT IDENTIFIER), found the end of the data at byte offset 2"},
      {"no alternative",
       {"--type", "Time"},
       std::string("\x05\0",2),
       "expected an alternative of Time, found NULL"},
      {"behind a good one",                                                     {"--type", "Certificate"},                                                  der + "junk",                                                                                                          "at byte offset 305 of the file"                                                                                                                                                          },
  };
  for (const auto& [name, options, input, complaint] : kRows) {
    SCOPED_TRACE(name);
    std::vector<std::string> arguments = {"asn1", "--json"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const ToolResult result = RunTool(arguments, input);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr(complaint));
    EXPECT_TRUE(result.err.starts_with("certkern: standard input: ")) << result.err;
    EXPECT_TRUE(json::accept(result.out)) << result.out;
  }
}

TEST(Asn1, Names) {
  ExpectFaults(
      Home(),
      {
          {"certkern asn1 --type Certifcate cert.der",  2, "did you mean Certificate or Certificates?"},
          {"certkern asn1 --type certificate cert.der", 2, "did you mean Certificate"                 },
          {"certkern asn1 --type Qqqqqqqqqqq cert.der", 2, "there is no type Qqqqqqqqqqq (--list"     },
          {"certkern asn1 --list cert.der",             2, "--list"                                   },
          {"certkern asn1 missing",                     1, "missing: No such file or directory"       },
  });
  const std::string names = Home().out("certkern asn1 --list");
  for (const char* name : {"Certificate\n", "PFX\n", "BasicOCSPResponse\n"})
    EXPECT_THAT(names, HasSubstr(name));
  EXPECT_EQ(Home().out("certkern asn1 --list | wc -l"),
            Home().out("certkern asn1 --list --json | grep -c '\"name\"'"));
}

std::string Repeated(size_t count, std::string_view bytes) {
  std::string all;
  for (size_t i = 0; i < count; ++i) all += bytes;
  return all;
}

TEST(Asn1, Bounds) {
  const std::string_view null("\x05\0", 2);
  struct Row {
    const char* name;
    std::string input;
    const char* complaint;
  };
  const Row kRows[] = {
      {"levels",      Repeated(100'000,               "\x30\x80"),
       "expected no more than 128 levels of elements, found another at byte offset 258"},
      { "levels of all elements", Repeated(128, "\x30\x80") + Repeated(300'000,       null),
       "expected no more than"},
  };
  for (const auto& [name, input, complaint] : kRows) {
    SCOPED_TRACE(name);
    const ToolResult bare = RunTool({"asn1"}, input);
    EXPECT_EQ(bare.status, 1);
    EXPECT_THAT(bare.err, HasSubstr(complaint));
    EXPECT_LT(bare.out.size(), size_t{1} << 27);
    EXPECT_EQ(RunTool({"asn1", "--type", "Certificate"}, input).status, 1);
  }
}

// A changed or missing byte may be shown or refused; the tool goes on, what it writes is JSON, and a terminal is safe.
TEST(Asn1, EveryByteChangedOrMissing) {
  const std::string der = ReadFile(ExamplePath("d1_certificate.der"));
  std::string bundle;
  for (size_t i = 0; i < der.size(); ++i) {
    for (const unsigned char mask : {0x01, 0xFF}) {
      std::string changed = der;
      changed[i] = static_cast<char>(changed[i] ^ mask);
      bundle += Pem(changed);
    }
    if (i) bundle += Pem(der.substr(0, i));
  }
  for (const char* type : {"", "Certificate"}) {
    const ToolResult text = RunTool({"asn1", "--type", type}, bundle);
    EXPECT_EQ(text.status, 1);
    EXPECT_TRUE(std::none_of(text.out.begin(), text.out.end(),
                             [](char c) { return c != '\n' && c >= 0 && c < 0x20; }));
    const ToolResult objects = RunTool({"asn1", "--json", "--type", type}, bundle);
    EXPECT_EQ(objects.status, 1);
    EXPECT_TRUE(json::accept(objects.out));
  }
}

}  // namespace
