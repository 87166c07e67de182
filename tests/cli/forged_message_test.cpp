// Messages whose signature verifies, and that are not valid all the same; and what is added to valid ones to spoil them.
#include "signed_files.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <fstream>

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;

std::string Bytes(std::string_view hex) {
  std::string bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes.push_back(static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  return bytes;
}

std::string Element(unsigned char tag, const std::string& content) {
  std::string element{static_cast<char>(tag), '\x84'};  // any length in four octets, which BER allows
  for (int shift = 24; shift >= 0; shift -= 8) element.push_back(static_cast<char>(content.size() >> shift));
  return element + content;
}

// As DER has it.
std::string SmallSet(const std::string& content) {
  return std::string{'\x31', static_cast<char>(content.size())}.append(content);
}

// Of a definite length.
std::string ContentOf(const std::string& element) {
  const auto first = static_cast<unsigned char>(element.at(1));
  return element.substr(first < 0x80 ? 2 : 2 + (first & 0x7Fu));
}
std::vector<std::string> MembersOf(const std::string& content) {
  std::vector<std::string> members;
  for (size_t at = 0; at < content.size(); at += members.back().size()) {
    const auto octet = [&](size_t i) { return size_t{static_cast<unsigned char>(content.at(at + i))}; };
    size_t header = 2;
    size_t length = octet(1);
    if (length >= 0x80) {
      header += length & 0x7F;
      length = 0;
      for (size_t i = 2; i < header; ++i) length = length << 8 | octet(i);
    }
    members.push_back(content.substr(at, header + length));
  }
  return members;
}
std::string Joined(const std::vector<std::string>& members) {
  std::string content;
  for (const std::string& each : members) content += each;
  return content;
}

class ForgedMessages : public SignedFiles {
 protected:
  std::string read(const std::string& name) const { return ReadFile(home.path(name)); }
  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(home.path(name), std::ios::binary) << bytes;
  }
  // A member of a SignedData with something in front of its content, or behind it.
  struct Place {
    size_t member;
    bool inFront = false;
  };
  void extend(const std::string& from, const std::string& to, Place place, const std::string& bytes) const {
    const std::vector<std::string> info = MembersOf(ContentOf(read(from)));
    std::vector<std::string> data = MembersOf(ContentOf(ContentOf(info.at(1))));
    std::string& member = data.at(place.member);
    const auto tag = static_cast<unsigned char>(member.at(0));
    member = Element(tag, place.inFront ? bytes + ContentOf(member) : ContentOf(member) + bytes);
    write(to, Element(0x30, info.at(0) + Element(0xA0, Element(0x30, Joined(data)))));
  }
  std::string der(const std::string& certificate) const { return Der(read(certificate)); }
};
constexpr size_t kCertificates = 3;

TEST_F(ForgedMessages, MoreInTheFileThanTheMessage) {
  const std::string message = read("other.cms");
  write("pair", message + message);
  write("pair.b64", Base64(message + message));
  write("rest", message + "x");
  write("member", Element(0x30, ContentOf(message) + Bytes("3000")));
  const std::vector<std::string> info = MembersOf(ContentOf(message));
  write("content", Element(0x30, info[0] + Element(0xA0, ContentOf(info[1]) + ContentOf(info[1]))));
  home.out(
      "openssl cms -sign -stream -binary -nodetach -in text -signer boris.crt -inkey boris.key -md "
      "md_gost12_256 "
      "-outform DER -out endless; (cat endless; printf '\\060\\200') >endless.rest");
  EXPECT_THAT(read("endless").substr(0, 2), Bytes("3080"));
  EXPECT_EQ(verify("endless").status, 0);
  home.out("cat endless endless >endless.pair");
  EXPECT_EQ(json::parse(home.out("certkern show --json endless.pair")).size(), 2u);
  const std::string behind = std::to_string(message.size());
  for (const auto& [file, text] : std::map<std::string, std::string>{
           {"pair",         "another message, at byte offset " + behind               },
           {"pair.b64",     "another message, at offset " + behind                    },
           {"rest",         "bytes behind the message, at byte offset " + behind      },
           {"member",       "a member that ContentInfo does not have, at byte offset "},
           {"content",      "a second content, at byte offset "                       },
           {"endless.rest", "bytes behind the message, at byte offset "               }
  }) {
    const ToolResult result = verify(file);
    EXPECT_EQ(result.status, 1) << file;
    EXPECT_THAT(result.err, HasSubstr(file + ": " + text));
    EXPECT_EQ(result.out, "");
  }
}

// What is not signed, and is told by the message alone.
TEST_F(ForgedMessages, NamesThatNobodySigned) {
  home.out(
      "certkern key new rsa --no-pin --algorithm rsa; "
      "certkern certificate selfsign --key rsa --subject CN=rsa --out rsa.crt; "
      "openssl cms -sign -binary -nodetach -in text -signer boris.crt -inkey boris.key -md md_gost12_256 "
      "-outform DER -out gost.cms; certkern sign text --key rsa --certificate rsa.crt --der -o rsa.cms");
  struct Forgery {
    const char* file;
    const char* from;  // the last one of the file
    const char* to;
    const char* fault;  // null: none
    const char* sentence;
  };
  static constexpr Forgery kForgeries[] = {
      {"gost.cms", "06082a85030701010101",   "06082a85030701010302",   nullptr,                  "Signature: valid\n"},
      {"gost.cms", "06082a85030701010101",   "06082a85030701010303",   "algorithmOfAnotherKey",
       "not one of the signer's key"                                                                                 },
      {"gost.cms", "06082a85030701010101",   "06082a85030701010102",   "algorithmOfAnotherKey",
       "not one of the signer's key"                                                                                 },
      {"gost.cms", "06082a85030701010101",   "06082a85030701010309",   "unknownAlgorithm",       "named is unknown"  },
      {"rsa.cms",  "06092a864886f70d010101", "06092a864886f70d01010b", nullptr,                  "Signature: valid\n"},
      {"rsa.cms",  "06092a864886f70d010101", "06092a864886f70d01010d", "algorithmOfAnotherHash",
       "another hash than"                                                                                           },
  };
  for (const Forgery& forgery : kForgeries) {
    SCOPED_TRACE(forgery.to);
    std::string message = read(forgery.file);
    const size_t at = message.rfind(Bytes(forgery.from));
    ASSERT_NE(at, message.npos);
    write("forged", message.replace(at, Bytes(forgery.to).size(), Bytes(forgery.to)));
    const std::string options = " forged --revocation none --cache-only --additional ca.crt --store "
        + std::string(forgery.file == std::string("rsa.cms") ? "rsa.crt" : "root.crt");
    const ToolResult result = home.run("certkern verify" + options);
    EXPECT_EQ(result.status, forgery.fault ? 3 : 0);
    EXPECT_THAT(result.out, HasSubstr(forgery.sentence));
    const json signer = json::parse(home.run("certkern verify --json" + options).out)[0]["signers"][0];
    EXPECT_EQ(signer.at("faults"), forgery.fault ? json::array({forgery.fault}) : json::array());
    EXPECT_EQ(signer.at("signature"), forgery.fault ? "invalid" : "valid");
  }
}

TEST_F(ForgedMessages, ContentThatIsNotWhatWasSigned) {
  // the type of the content, the first one of the file, no longer is the one among the attributes
  std::string message = read("other.cms");
  message.at(message.find(Bytes("2a864886f70d010701")) + 8) = '\x05';
  write("type", message);
  const ToolResult type = verify("type");
  EXPECT_EQ(type.status, 3);
  EXPECT_THAT(type.out,
              AllOf(HasSubstr("Content: intact\n"), HasSubstr("Content type: not the one that was signed")));

  // only plain data may be signed without attributes
  message = read("bare.cms");
  message.at(message.find(Bytes("2a864886f70d010701")) + 8) = '\x05';
  write("type", message);
  const ToolResult bare = verify("type");
  EXPECT_EQ(bare.status, 3);
  EXPECT_THAT(bare.out, HasSubstr("Content type: not signed once, as it has to be"));

  const std::string contentType = Bytes("301806092a864886f70d010903310b06092a864886f70d010701");
  const std::string digest = Bytes("301106092a864886f70d0109043104") + Bytes("04020102");
  write("attributes", SmallSet(contentType + digest));
  write("half", SmallSet(contentType));
  home.out(
      "sign() { openssl cms -sign -binary -nodetach -signer boris.crt -inkey boris.key -md md_gost12_256 "
      "-outform DER -in \"$@\"; }; sign attributes -out swapped -noattr; sign attributes -out fair; sign "
      "half -out "
      "half.cms -noattr");
  const ToolResult swapped = verify("swapped");
  EXPECT_EQ(swapped.status, 3);
  EXPECT_THAT(swapped.out, HasSubstr("not valid: the content is the signed attributes of a message"));
  EXPECT_EQ(verify("fair").status, 0);
  EXPECT_EQ(verify("half.cms").status, 0);
}

// A new user has no roots, and is told so; what can be said all the same is said.
TEST_F(ForgedMessages, NobodyIsTrusted) {
  const ToolResult result = home.run("certkern verify other.cms --cache-only --revocation none");
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.out, AllOf(HasSubstr("Signature: valid\n"), HasSubstr("\nUndetermined.\n")));
  EXPECT_THAT(result.err, HasSubstr("no root is trusted on this machine yet"));
}

TEST_F(ForgedMessages, CertificatesOfAnotherKind) {
  extend("other.cms", "attribute", {kCertificates}, Bytes("a203020101"));
  extend("other.cms", "broken", {kCertificates}, Bytes("3003020101"));
  for (const char* file : {"attribute", "broken"}) {
    const ToolResult result = verify(file);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("1 of the certificates and CRLs in the message can't be read"));
    const ToolResult shown = home.run(std::string("certkern show --json ") + file);
    EXPECT_EQ(shown.status, 0) << shown.err;
    const json certificates = json::parse(shown.out).at(0).at("certificates");
    EXPECT_EQ(certificates.size(), 2u);
    EXPECT_EQ(certificates.at(1).at("remark"), "not one that the library reads");
  }
}

// Eve's certificate has issuer and serial number of boris's, which an authority of her own certifies.
TEST_F(ForgedMessages, TwoCertificatesForOneSigner) {
  home.out(R"(
    for n in false eve; do
      openssl genpkey -algorithm gost2012_256 -pkeyopt paramset:A -out $n.key 2>/dev/null
      openssl req -new -key $n.key -subj /CN=$([ $n = false ] && echo ca || echo eve) -out $n.csr
    done
    openssl x509 -req -in false.csr -signkey false.key -days 30 -extfile ca.ext -out false.crt
    issue() { openssl x509 -req -in $1.csr -CA $2.crt -CAkey $2.key -set_serial 4 -days $3 -extfile end.ext -out $4.crt; }
    issue eve false 30 eve; issue boris false 30 untrusted; issue boris ca 60 twin)");
  const auto expectBoris = [&](const std::string& rest) {
    const ToolResult result = verify(rest);
    EXPECT_EQ(result.status, 0) << rest << "\n" << result.out << result.err;
    EXPECT_THAT(result.out, HasSubstr("\nSigner 1: CN=boris\n"));
  };
  for (const char* added : {"eve.crt", "untrusted.crt"}) {
    for (const bool inFront : {false, true}) {
      extend("other.cms", "both", {kCertificates, inFront}, der(added));
      expectBoris("both");
      expectBoris("both --additional boris.crt");
    }
    expectBoris(std::string("other.cms --additional ") + added);
  }
  // of two that verify the signature, and whose chains are good, the one that was signed
  for (const bool inFront : {false, true}) {
    extend("cades.cms", "both", {kCertificates, inFront}, der("twin.crt"));
    expectBoris("both");
  }
  expectBoris("cades.cms --additional twin.crt");
  // the signature of another certificate's key stays what it is
  EXPECT_EQ(verify("nocerts.cms --additional eve.crt").status, 3);
}

TEST_F(ForgedMessages, WhatTheSignersKeyIsFor) {
  for (const auto& [usage, status] : std::map<std::string, int>{
           {"keyEncipherment",  3},
           {"nonRepudiation",   0},
           {"digitalSignature", 0}
  }) {
    home.out("printf 'keyUsage=critical," + usage + "\\n' >usage.ext; "
             "openssl x509 -req -in boris.csr -CA ca.crt -CAkey ca.key -set_serial 9 -extfile usage.ext -out usage.crt; "
             "openssl cms -sign -binary -nodetach -in text -signer usage.crt -inkey boris.key -md md_gost12_256 "
             "-outform DER -out usage.cms");
    const ToolResult result = verify("usage.cms");
    EXPECT_EQ(result.status, status) << usage << result.err;
    EXPECT_EQ(result.out.find("Certificate: not meant for signatures") != std::string::npos, status == 3);
  }
  EXPECT_THAT(
      home.run("LC_ALL=ru_RU.UTF-8 certkern verify bare.cms --revocation none" + std::string(kWorld)).out,
      HasSubstr("\nСообщение действительно.\n"));
}

}  // namespace
