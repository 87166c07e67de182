// What the tool says of good objects. Expected values are what the openssl program says of the same files,
// and what RFC 9215, appendix D, says of its own.
#include "run_tool.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

namespace {

using nlohmann::json;

json ShowJson(std::vector<std::string> arguments, std::string_view input = {}) {
  arguments.insert(arguments.begin(), {"show", "--json"});
  const ToolResult result = RunTool(arguments, input);
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  json objects = json::parse(result.out, nullptr, false);
  EXPECT_TRUE(objects.is_array()) << result.out;
  return objects;
}

// What stands at a JSON pointer; expected is JSON itself.
struct PointerCase {
  const char* pointer;
  const char* expected;
};
PointerCase At(const char* pointer, const char* expected) { return {pointer, expected}; }

struct ExtensionCase {
  const char* oid;
  std::vector<PointerCase> values;
};
template <typename... Values>
ExtensionCase In(const char* oid, Values... values) {
  return {oid, {values...}};
}

void ExpectValues(const json& object, std::span<const PointerCase> cases) {
  for (const auto& [pointer, expected] : cases) {
    SCOPED_TRACE(pointer);
    const json::json_pointer place(pointer);
    if (!object.contains(place)) {
      ADD_FAILURE() << "no such key";
      continue;
    }
    EXPECT_EQ(object.at(place), json::parse(expected)) << object.at(place).dump();
  }
}

// The extension of an object, by its identifier.
json Extension(const json& object, const std::string& oid) {
  for (const json& extension : object.at("extensions")) {
    if (extension.at("oid") == oid) return extension;
  }
  ADD_FAILURE() << "no extension " << oid;
  return {};
}

TEST(ShowJson, PublishedGostCertificate) {
  const json objects = ShowJson({ExamplePath("d1_certificate.der")});
  ASSERT_EQ(objects.size(), 1u);
  const PointerCase kCases[] = {
      At("/kind", R"("certificate")"),
      At("/version", "3"),
      At("/serialNumber", R"("0a")"),
      At("/signatureAlgorithm/oid", R"("1.2.643.7.1.1.3.2")"),
      At("/issuer/value", R"("CN=Example")"),
      At("/subject/attributes/0/oid", R"("2.5.4.3")"),
      At("/subject/attributes/0/type", R"("PrintableString")"),
      At("/validity/notBefore", R"("2001-01-01T00:00:00Z")"),
      At("/validity/notAfter", R"("2050-12-31T00:00:00Z")"),
      At("/publicKey/algorithm/oid", R"("1.2.643.7.1.1.1.1")"),
      At("/publicKey/sizeInBits", "256"),
      At("/extensions/0/oid", R"("2.5.29.19")"),
      At("/extensions/0/critical", "true"),
      At("/extensions/0/ca", "true"),
      At("/fingerprints/sha1", R"("45e514d9f28539409a44ac5f9a4df1977d055b5c")"),
  };
  ExpectValues(objects[0], kCases);
  EXPECT_EQ(objects[0]["publicKey"]["algorithm"]["parameterSet"]["oid"], "1.2.643.2.2.35.0");
  EXPECT_EQ(objects[0]["publicKey"]["algorithm"]["digestParameterSet"]["oid"], "1.2.643.7.1.1.2.2");
  EXPECT_EQ(objects[0]["publicKey"]["key"],
            "04400bd86fe5d8db89668f789b4e1dba8585c5508b45ec5b59d8906ddb70e2492b7f"
            "da77ff871a10fbdf2766d293c5d164afbb3c7b973a41c885d11d70d689b4f126");
  EXPECT_EQ(objects[0]["signature"]["value"],
            "4d53f012fe081776507d4d9bb81f00efdb4eefd4ab83bac4bacf735173cfa81c"
            "41aa28d2f1ab148280cd9ed56feda41974053554a42767b83ad043fd39dc0493");
  EXPECT_EQ(objects[0]["fingerprints"]["sha256"],
            "46e8774ed2653fba578a8f42383727457a8f8d2086f331dc97f1c0389ac7fda5");
}

// These lists end with their times, and the requests have no attributes.
TEST(ShowJson, PublishedGostListsAndRequests) {
  const json objects =
      ShowJson({ExamplePath("d1_crl.der"), ExamplePath("d2_crl.der"), ExamplePath("d3_crl.der"),
                ExamplePath("d1_request.der"), ExamplePath("d2_request.der"), ExamplePath("d3_request.der")});
  ASSERT_EQ(objects.size(), 6u);
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(objects[i]["kind"], "crl");
    EXPECT_EQ(objects[i]["version"], 2);
    EXPECT_EQ(objects[i]["thisUpdate"], "2014-01-01T00:00:00Z");
    EXPECT_EQ(objects[i]["nextUpdate"], "2014-01-02T00:00:00Z");
    EXPECT_EQ(objects[i]["revokedCertificates"],
              json({
                  {"count", 0}
    }));
    EXPECT_EQ(objects[i + 3]["kind"], "certificateRequest");
    EXPECT_EQ(objects[i + 3]["subject"]["value"], "CN=Example");
    EXPECT_FALSE(objects[i].contains("remark"));
    EXPECT_FALSE(objects[i + 3].contains("remark"));
  }
  EXPECT_EQ(objects[0]["fingerprints"]["sha256"],
            "6ff9741bb081ba4861f0407766e70d88c2e13529bcbf9e99bde8a8ab28458c13");
  EXPECT_EQ(objects[5]["publicKey"]["sizeInBits"], 512);
  EXPECT_EQ(objects[5]["fingerprints"]["sha256"],
            "63d1bac66a58c6d21b7ba0be8df70891d9f5c6a4aea03d1b04e8909a24d94cb2");
}

TEST(ShowJson, EveryDecodedExtension) {
  const json objects = ShowJson({DataPath("rich.pem")});
  ASSERT_EQ(objects.size(), 1u);
  const json& certificate = objects[0];
  EXPECT_EQ(certificate["serialNumber"], "00f1") << "the sign octet belongs to the encoding";
  EXPECT_EQ(certificate["publicKey"]["sizeInBits"], 1024);
  EXPECT_EQ(certificate["fingerprints"]["sha1"], "570df2fd542de95761da4418ca42226d10c17ead");
  const ExtensionCase kCases[] = {
      In("2.5.29.19", At("/critical", "true"), At("/ca", "true"), At("/pathLength", "3")),
      In("2.5.29.15",
         At("/usages", R"(["digitalSignature", "keyAgreement", "keyCertSign", "cRLSign", "decipherOnly"])")),
      In("2.5.29.37", At("/usages/0/oid", R"("1.3.6.1.5.5.7.3.1")"),
         At("/usages/1", R"({"oid": "1.2.3.4.5"})")),
      In("2.5.29.14", At("/critical", "false"),
         At("/keyId", R"("4ce01124e6405264cc5ac4dcbe6c18eceda26ab3")")),
      In("2.5.29.35", At("/keyId", R"("4ce01124e6405264cc5ac4dcbe6c18eceda26ab3")"),
         At("/serialNumber", R"("00f1")"), At("/issuer/0/directoryName/attributes/0/value", R"("RU")")),
      In("2.5.29.17", At("/names/0", R"({"dnsName": "www.example.org"})"),
         At("/names/1", R"({"email": "who@example.org"})"),
         At("/names/2", R"({"url": "https://example.org/"})"),
         At("/names/3", R"({"ipAddress": "192.0.2.17"})"), At("/names/4", R"({"ipAddress": "2001:db8::17"})"),
         At("/names/5/registeredId/oid", R"("1.2.3.4")"),
         At("/names/6/directoryName/value", R"("CN=A \\+ B")"),
         At("/names/7/otherName/oid", R"("1.3.6.1.4.1.311.20.2.3")"),
         At("/names/7/otherName/value", R"("who@domain")")),
      In("2.5.29.18", At("/names/0", R"({"url": "http://issuer.example.org/"})")),
      In("2.5.29.31", At("/points/0/fullName/1/url", R"("http://crl.example.org/b.crl")"),
         At("/points/0/reasons", R"(["keyCompromise", "cACompromise"])"),
         At("/points/0/crlIssuer/0/directoryName/attributes/0/value", R"("A + B")")),
      In("2.5.29.46", At("/points/0/fullName/0/url", R"("http://crl.example.org/delta.crl")")),
      In("1.3.6.1.5.5.7.1.1", At("/locations/0/oid", R"("1.3.6.1.5.5.7.48.1")"),
         At("/locations/1/url", R"("http://ca.example.org/ca.crt")")),
      In("1.3.6.1.5.5.7.1.11", At("/locations/0/url", R"("http://repository.example.org/")")),
      In("2.5.29.32", At("/policies/0", R"({"oid": "1.2.3.4.1"})"),
         At("/policies/1/qualifiers/0/location", R"("http://cps.example.org/")"),
         At("/policies/1/qualifiers/1/notice", R"("Read this")"),
         At("/policies/1/qualifiers/2/value", R"("301330111a074578616d706c653006020101020102")")),
      In("2.5.29.33", At("/mappings/0/issuerPolicy/oid", R"("1.2.3.4.1")"),
         At("/mappings/0/subjectPolicy/oid", R"("1.2.3.4.9")")),
      In("2.5.29.36", At("/requireExplicitPolicy", "2"), At("/inhibitPolicyMapping", "0")),
      In("2.5.29.54", At("/number", R"("1")")),
      In("1.3.6.1.4.1.311.21.7", At("/template/oid", R"("1.2.3.4.5.6")"), At("/majorVersion", "100"),
         At("/minorVersion", "7")),
      In("1.3.6.1.4.1.311.20.2", At("/text", R"("Web server")")),
      In("1.2.643.100.111", At("/text", R"("Средство")")),
      In("1.2.643.100.112", At("/signatureTool", R"("Инструмент")"), At("/caToolCertificate", R"("СФ/2")")),
      In("2.5.29.30", At("/content", R"("3012a010300e820c2e6578616d706c652e6f7267")")),
      In("1.2.3.4.99", At("/content", R"("0403010203")")),
  };
  for (const auto& [oid, values] : kCases) {
    SCOPED_TRACE(oid);
    ExpectValues(Extension(certificate, oid), values);
  }
}

TEST(ShowJson, ListEntriesAndExtensions) {
  const json list = ShowJson({DataPath("list.pem")})[0];
  const PointerCase kCases[] = {
      At("/revokedCertificates/count", "4"),
      At("/revokedCertificates/entries/0",
         R"({"serialNumber": "7f", "revocationDate": "2020-03-04T05:06:07Z"})"),
      At("/revokedCertificates/entries/1/serialNumber", R"("0080")"),
      At("/revokedCertificates/entries/1/reason", R"("certificateHold")"),
      At("/revokedCertificates/entries/2/reason", R"("superseded")"),
      At("/revokedCertificates/entries/3/serialNumber", R"("0a01")"),
      At("/revokedCertificates/entries/3/reason", R"("keyCompromise")"),
      At("/revokedCertificates/entries/3/extensions/0/time", R"("2019-12-31T23:59:59Z")"),
  };
  ExpectValues(list, kCases);
  EXPECT_EQ(Extension(list, "2.5.29.20")["number"], "4096");
  EXPECT_EQ(Extension(list, "2.5.29.27")["number"], "4095");
  const PointerCase kIssuing[] = {
      At("/critical", "true"),
      At("/fullName/0/url", R"("http://crl.example.org/a.crl")"),
      At("/onlyUserCertificates", "true"),
      At("/onlyCaCertificates", "false"),
      At("/onlyReasons", R"(["keyCompromise", "superseded"])"),
      At("/indirectCrl", "true"),
  };
  ExpectValues(Extension(list, "2.5.29.28"), kIssuing);
  EXPECT_EQ(list["fingerprints"]["sha256"],
            "31a23553df694d963cf043a7f86b8ecc65c5bcab8d2955bb62ee1cfcb119e593");

  const json first = ShowJson({"--max-entries", "1", DataPath("list.pem")})[0]["revokedCertificates"];
  EXPECT_EQ(first["count"], 4);
  EXPECT_EQ(first["entries"].size(), 1u);
  EXPECT_EQ(first["notShown"], 3);
}

TEST(ShowJson, Version1ListInBareBase64) {
  const json list = ShowJson({DataPath("list_v1.b64")})[0];
  EXPECT_EQ(list["version"], 1);
  EXPECT_EQ(list["revokedCertificates"]["entries"][0]["serialNumber"], "7f");
  EXPECT_FALSE(list.contains("extensions"));
}

TEST(ShowJson, RequestAttributes) {
  const json request = ShowJson({DataPath("request.pem")})[0];
  const PointerCase kCases[] = {
      At("/attributes/0/oid", R"("1.2.840.113549.1.9.7")"),
      At("/attributes/0/value", R"("open sesame")"),
      At("/attributes/1/oid", R"("1.2.840.113549.1.9.14")"),
      At("/attributes/1/extensions/0/names/0/dnsName", R"("request.example.org")"),
      At("/attributes/1/extensions/1/critical", "true"),
      At("/attributes/1/extensions/1/usages", R"(["digitalSignature", "keyAgreement"])"),
  };
  ExpectValues(request, kCases);
}

// As openssl writes it with -nameopt RFC2253,-esc_msb, but for the name of the last attribute.
TEST(ShowText, NamesAreWrittenByRfc4514) {
  const std::string text = RunTool({"show", DataPath("rich.pem")}).out;
  EXPECT_NE(
      text.find(
          "  Subject              INNLE=1234567890,INN=123456789012,SNILS=12345678901,OGRN=1234567890123,"
          "CN=example.org,OU=\\#1,"
          "O=Общество \\\"Ромашка\\\"\\, ООО,C=RU\n"),
      std::string::npos)
      << text;
}

TEST(ShowText, ColumnsAndWrappedBytes) {
  const std::string text = RunTool({"show", ExamplePath("d1_certificate.der")}).out;
  const char* const kLines[] = {
      "Certificate\n  File                 ",
      "\n  Validity\n    Not before  2001-01-01T00:00:00Z\n    Not after   2050-12-31T00:00:00Z\n  "
      "Subject ",
      "\n    Key           04:40:0b:d8:6f:e5:d8:db:89:66:8f:78:9b:4e:1d:ba:85:85:c5:50:8b:45:ec:5b:\n"
      "                  59:d8:90:6d:db:70:e2:49:2b:7f:da:77:ff:87:1a:10:fb:df:27:66:d2:93:c5:d1:\n",
      "\n    Basic constraints (2.5.29.19)\n      Critical  yes\n      CA        yes\n",
  };
  for (const char* lines : kLines) {
    EXPECT_NE(text.find(lines), std::string::npos) << lines << "\nin\n" << text;
  }
}

// A certificate must not be able to write its own lines, move the cursor or turn a text around.
TEST(ShowHostile, NothingReachesTheTerminalRaw) {
  for (const char* form : {"--json", "--max-entries=1"}) {
    const ToolResult result = RunTool({"show", form, DataPath("hostile.pem")});
    EXPECT_EQ(result.status, 0) << result.err;
    for (const char c : result.out) {
      const auto octet = static_cast<unsigned char>(c);
      ASSERT_TRUE(octet == '\n' || (octet >= 0x20 && octet != 0x7F))
          << "octet " << int{octet} << " with " << form;
    }
    for (const char* unsafe : {"\xE2\x80\xAE", "\xC2\x9B"})
      EXPECT_EQ(result.out.find(unsafe), std::string::npos) << form;
  }
  const std::string text = RunTool({"show", DataPath("hostile.pem")}).out;
  EXPECT_NE(text.find(R"(CN=\1B[2Jevil\E2\80\AEgro.elpmaxe\0AVersion 9,OU=a\\b\7F\C2\9B)"), std::string::npos)
      << text;
  const json certificate = ShowJson({DataPath("hostile.pem")})[0];
  EXPECT_EQ(certificate["subject"]["attributes"][1]["value"], "\x1B[2Jevil\u202Egro.elpmaxe\nVersion 9");
}

TEST(ShowHostile, BrokenExtensionsAreBytesWithARemark) {
  const json certificate = ShowJson({DataPath("hostile.pem")})[0];
  const json constraints = Extension(certificate, "2.5.29.19");
  EXPECT_EQ(constraints["content"], "300602");
  EXPECT_TRUE(constraints.contains("remark"));
  EXPECT_FALSE(constraints.contains("ca"));
  const json usage = Extension(certificate, "2.5.29.15");
  EXPECT_EQ(usage["usages"], json({"digitalSignature"}));
  EXPECT_EQ(usage["content"], "0302058030820102") << "what hides behind the bits";
  EXPECT_TRUE(usage.contains("remark"));
}

TEST(ShowInput, FormsOfAFile) {
  const std::string der = ReadFile(ExamplePath("d1_certificate.der"));
  const std::string crl = ReadFile(ExamplePath("d1_crl.der"));
  const std::string bundle = "# first\n" + Pem(der) + "\n# second\n" + Pem(crl) + Pem(der) + "end\n";
  const struct {
    const char* name;
    std::string content;
    size_t objects;
  } kCases[] = {
      {"DER",                      der,                              1},
      {"one DER behind the other", der + crl,                        2},
      {"Base64",                   Base64(der),                      1},
      {"Base64 behind a mark",     "\xEF\xBB\xBF\r\n" + Base64(der), 1},
      {"PEM",                      Pem(der),                         1},
      {"PEM bundle with remarks",  bundle,                           3},
  };
  for (const auto& [name, content, objects] : kCases) {
    SCOPED_TRACE(name);
    const TemporaryFile file(content);
    EXPECT_EQ(ShowJson({file.path()}).size(), objects);
    EXPECT_EQ(ShowJson({}, content).size(), objects) << "from standard input";
    EXPECT_EQ(ShowJson({"-"}, content).size(), objects);
  }
  std::string crlf = Pem(der);
  for (size_t i = 0; (i = crlf.find('\n', i)) != std::string::npos; i += 2) crlf.insert(i, 1, '\r');
  EXPECT_EQ(ShowJson({}, crlf).size(), 1u);
}

TEST(ShowInput, Fifo) {
  const TemporaryFile name("");
  const std::string path = name.path() + ".fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  std::thread writer([&] {
    const std::string der = ReadFile(ExamplePath("d1_certificate.der"));
    const int fifo = open(path.c_str(), O_WRONLY);
    EXPECT_EQ(write(fifo, der.data(), 100), 100);
    EXPECT_EQ(write(fifo, der.data() + 100, der.size() - 100), static_cast<ssize_t>(der.size() - 100));
    close(fifo);
  });
  EXPECT_EQ(ShowJson({path}).size(), 1u);
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);  // frees the writer when the tool never came
  writer.join();
  close(reader);
  unlink(path.c_str());
}

TEST(Tool, HelpVersionAndUsage) {
  const ToolResult version = RunTool({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_TRUE(version.out.starts_with("certkern ")) << version.out;
  using Words = std::vector<std::string>;
  for (const Words& arguments : {
           Words{"--help" },
           Words{ "show", "--help"}
  }) {
    const ToolResult help = RunTool(arguments);
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("Usage: certkern"), std::string::npos) << help.out;
  }
  const Words kWrong[] = {
      Words{               },
      Words{             "shew"                      },
      Words{               "show",                            "--jsn"},
      Words{ "show", "--max-entries"},
      Words{                       "show",                        "--max-entries", "-1"},
      Words{                      "show",                                            "--max-entries", "few"},
  };
  for (const Words& arguments : kWrong) {
    const ToolResult wrong = RunTool(arguments);
    EXPECT_EQ(wrong.status, 2) << wrong.err;
    EXPECT_EQ(wrong.out, "");
    EXPECT_NE(wrong.err, "");
  }
}

}  // namespace
