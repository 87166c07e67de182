// What the tool says of input that is none, and where it says that it breaks.
#include "run_tool.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <sstream>

namespace {

std::string With(std::string bytes, size_t offset, char octet) {
  bytes[offset] = octet;
  return bytes;
}

struct BadInput {
  const char* name;
  std::string content;
  const char* complaint;
};
BadInput Bad(const char* name, std::string content, const char* complaint) {
  return {name, std::move(content), complaint};
}

// Offsets as openssl asn1parse shows them for the certificate of RFC 9215, D.1: first value of issuer 38,
// notBefore 49, subjectPublicKey 136, signature 238; 305 bytes in all.
TEST(ShowBadInput, PlaceAndExpectation) {
  const std::string der = ReadFile(ExamplePath("d1_certificate.der"));
  const std::string pem = Pem(der);
  const std::string body = pem.substr(0, pem.find("-----END"));
  const BadInput kCases[] = {
      Bad("nothing", "", "found an empty file"),
      Bad("blanks", " \n\t", "found nothing but blanks at byte offset 0 of the file"),
      Bad("bytes", std::string("\x00\x01\x02", 3), "found byte 0x00 at byte offset 0 of the file"),
      Bad("prose", "hello world, this is no object", "found byte 0x2c at byte offset 11 of the file"),
      Bad("a cut header", der.substr(0, 3), "found the end of the data at byte offset 3 of the file"),
      Bad("cut in the key", der.substr(0, 150),
          "certificate: expected 67 bytes of subjectPublicKey (BIT STRING), "
          "found the end of the data after 12 at byte offset 150 of the file"),
      Bad("cut in front of the signature", der.substr(0, 238),
          "certificate: expected signature (BIT STRING), "
          "found the end of the data at byte offset 238 of the file"),
      Bad("a wrong field", With(der, 49, 0x04),
          "certificate: expected notBefore (UTCTime or GeneralizedTime), "
          "found OCTET STRING at byte offset 49 of the file"),
      Bad("a length beyond its frame", With(der, 50, 0x70),
          "certificate: expected notBefore (UTCTime or GeneralizedTime) within the 30 bytes that are left, "
          "found a length of 112 at byte offset 49 of the file"),
      Bad("no object of ours", std::string("\x30\x03\x02\x01\x05", 5),
          "certificate, CRL or certificate request: expected signed part (SEQUENCE), "
          "found INTEGER at byte offset 2 of the file"),
      Bad("something behind it", der + "junk", "found identifier 0x6a at byte offset 305 of the file"),
      Bad("indefinite length", std::string("\x30\x80\x30\x00\x00\x00", 6),
          "of definite length, found indefinite length at byte offset 1 of the file"),
      Bad("PEM of a cut object", Pem(der.substr(0, 150)),
          "at offset 150 of the decoded object, whose PEM begins at byte offset 0 of the file"),
      Bad("Base64 of a cut object", Base64(der.substr(0, 150)), "at offset 150 of the decoded Base64"),
      Bad("a sign in PEM", With(pem, 100, '*'), "found byte 0x2a at byte offset 100 of the file"),
      Bad("a high bit in PEM", With(pem, 100, '\xC1'), "found byte 0xc1 at byte offset 100 of the file"),
      Bad("PEM without an end", pem.substr(0, 200),
          "expected a line -----END CERTIFICATE-----, "
          "found the end of the file at byte offset 200 of the file"),
      Bad("PEM with another end", body + "-----END X509 CRL-----\n", "found another banner at byte offset"),
      Bad("nothing in PEM", "-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----\n",
          "found the end of the text"),
      Bad("only a key", ReadFile(DataPath("key.pem")), "found none in the file"),
  };
  for (const auto& [name, content, complaint] : kCases) {
    SCOPED_TRACE(name);
    const ToolResult result = RunTool({"show", "--json"}, content);
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find(complaint), std::string::npos) << result.err;
    EXPECT_TRUE(result.err.starts_with("certkern: standard input: ")) << result.err;
    EXPECT_TRUE(nlohmann::json::accept(result.out)) << result.out;
  }
}

TEST(ShowBadInput, GoodNeighboursAreShown) {
  const std::string good = ReadFile(ExamplePath("d1_certificate.der"));
  const std::string missing = "/nonexistent/\x1B[31mred";
  const TemporaryFile mixed(Pem(good) + Pem(good.substr(0, 99)) + Pem(good));
  const ToolResult result =
      RunTool({"show", "--json", missing, "/", mixed.path(), ExamplePath("d1_crl.der")});
  EXPECT_EQ(result.status, 1);
  const auto objects = nlohmann::json::parse(result.out);
  ASSERT_EQ(objects.size(), 3u);
  EXPECT_EQ(objects[1]["object"], 2);
  EXPECT_EQ(objects[2]["kind"], "crl");
  EXPECT_NE(result.err.find("certkern: /nonexistent/\\u{1b}[31mred: No such file or directory\n"),
            std::string::npos)
      << result.err;
  EXPECT_NE(result.err.find("certkern: /: Is a directory\n"), std::string::npos) << result.err;
  EXPECT_NE(result.err.find(mixed.path() + ": certificate: expected "), std::string::npos) << result.err;
}

// Every cut is noticed, and noticed inside what is there.
TEST(ShowBadInput, EveryTruncation) {
  for (const char* file : {"rich.pem", "list.pem", "request.pem"}) {
    const std::string der = Der(ReadFile(DataPath(file)));
    std::string bundle;
    for (size_t size = 1; size < der.size(); ++size) bundle += Pem(der.substr(0, size));
    const ToolResult result = RunTool({"show"}, bundle);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    std::istringstream lines(result.err);
    constexpr std::string_view kPlace = " at offset ";
    size_t size = 1;
    for (std::string line; std::getline(lines, line); ++size) {
      const size_t place = line.find(kPlace);
      ASSERT_NE(place, std::string::npos) << line;
      EXPECT_EQ(std::stoul(line.substr(place + kPlace.size())), size) << line;
    }
    EXPECT_EQ(size, der.size());
  }
}

bool HasControlCharacter(const std::string& text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return c != '\n' && static_cast<unsigned char>(c) < 0x20; });
}

// A changed byte may be shown or refused, but it never ends the tool and never reaches the terminal raw.
TEST(ShowBadInput, EveryChangedByte) {
  for (const char* file : {"rich.pem", "list.pem", "hostile.pem"}) {
    const std::string der = Der(ReadFile(DataPath(file)));
    for (const unsigned char mask : {0x01, 0xFF}) {
      std::string bundle;
      for (size_t i = 0; i < der.size(); ++i) bundle += Pem(With(der, i, static_cast<char>(der[i] ^ mask)));
      const ToolResult text = RunTool({"show"}, bundle);
      EXPECT_EQ(text.status, 1) << "some of these are no objects";
      EXPECT_FALSE(HasControlCharacter(text.out + text.err));
      const ToolResult objects = RunTool({"show", "--json"}, bundle);
      EXPECT_EQ(objects.status, 1);
      EXPECT_TRUE(nlohmann::json::accept(objects.out));
    }
  }
}

// What the library reads although it is not as it should be is shown, with the place where it is not.
TEST(ShowBadInput, OverlookedFaultsAreRemarks) {
  const std::string der = ReadFile(ExamplePath("d1_certificate.der"));
  const auto objects = nlohmann::json::parse(RunTool({"show", "--json"}, With(der, 39, 0x70)).out);
  ASSERT_EQ(objects.size(), 1u);
  EXPECT_EQ(
      objects[0]["remark"],
      "expected attribute value within the 7 bytes that are left, found a length of 112 at byte offset 38 "
      "of the file");
  EXPECT_EQ(objects[0]["issuer"]["value"], "30123110300e060355040313704578616d706c65") << "its bytes";
  EXPECT_EQ(objects[0]["subject"]["value"], "CN=Example");
}

}  // namespace
