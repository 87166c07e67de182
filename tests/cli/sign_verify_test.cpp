// Messages by the tool: signed here and by openssl, verified by both; what each alteration is called.
#include "signed_files.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST_F(SignedFiles, BothWays) {
  home.out(std::string("certkern sign text -o a.cms --add-certificate ca.crt --cades strict") + kByAnna);
  EXPECT_EQ(opensslVerifies("-in a.cms -inform PEM -cades"), "same\n");
  const ToolResult own = verify("a.cms");
  EXPECT_EQ(own.status, 0) << own.out << own.err;
  EXPECT_THAT(own.out,
              AllOf(HasSubstr("Content: in the message, 15 bytes\n"), HasSubstr("\nSigner 1: CN=anna\n"),
                    HasSubstr("Content: intact\n"), HasSubstr("Signature: valid\n"),
                    HasSubstr("Certificate: named in the signature\n"), HasSubstr("Signed at: 20"),
                    HasSubstr("└─ CN=anna  (until "), HasSubstr("\nValid.\n")));

  home.out(std::string("certkern sign --detached --der text -o a.sig --add-certificate ca.crt") + kByAnna);
  EXPECT_EQ(opensslVerifies("-in a.sig -inform DER -content text -cades"), "same\n");
  EXPECT_EQ(verify("a.sig --content text").status, 0);
  for (const char* message : {"other.cms", "other.sig --content text", "cades.cms", "bare.cms"}) {
    const ToolResult result = verify(message);
    EXPECT_EQ(result.status, 0) << message << "\n" << result.out << result.err;
  }
}

TEST_F(SignedFiles, WhatTheOptionsPutIn) {
  home.out(std::string("certkern sign text -o a.cms --attribute 1.2.3.4=0c0141 --attribute 1.2.3.5=0500 "
                       "--add-certificate ca.crt --add-certificate ca.crl")
           + kByAnna);
  const json object = json::parse(home.out("certkern show --json a.cms")).at(0);
  EXPECT_EQ(object.at("contentSize"), 15);
  EXPECT_EQ(object.at("certificates").size(), 2u);
  EXPECT_EQ(object.at("crls").size(), 1u);
  const json& signer = object.at("signers").at(0);
  EXPECT_EQ(signer.at("issuer").at("value"), "CN=ca");
  EXPECT_EQ(signer.at("hashAlgorithm").at("oid"), "1.2.643.7.1.1.2.2");
  const std::string shown = home.out("certkern show a.cms");
  EXPECT_THAT(
      shown, AllOf(HasSubstr("Signed message\n"), HasSubstr("1.2.3.4"), HasSubstr("Signing Certificate V2")));
  home.out(std::string("certkern sign text -o off.cms --cades off") + kByAnna);
  EXPECT_THAT(home.out("certkern show off.cms"), Not(HasSubstr("igned attributes")));
  EXPECT_EQ(verify("off.cms --revocation none").status, 0);
  home.out("printf '' >text.0; certkern sign text.0 -o empty.cms --key anna --certificate anna.crt");
  EXPECT_EQ(verify("empty.cms").status, 0);
}

// A file that would be read and written at once, by whatever name, and a place that fails half way.
TEST_F(SignedFiles, WhatIsReadIsNotOverwritten) {
  home.out("cp text safe; ln -s text link; ln text hard; cp boris.crt own.crt; cp anna.crt anna2.crt");
  for (const char* script :
       {"certkern sign text -o text --detached", "certkern sign text -o text", "certkern sign text -o link",
        "certkern sign hard -o ./text", "certkern sign link -o hard", "certkern sign - -o text <text",
        "certkern sign safe --add-certificate own.crt -o own.crt", "certkern sign safe -o anna.crt"}) {
    const ToolResult result = home.run(script + std::string(kByAnna));
    EXPECT_EQ(result.status, 1) << script;
    EXPECT_THAT(result.err, HasSubstr("this is the file that is read")) << script;
    EXPECT_EQ(home.out("cmp text safe && cmp hard safe && cmp own.crt boris.crt && cmp anna.crt anna2.crt && "
                       "echo same; ls -a | grep -c XXX || :; ls -a | grep certkern- || :"),
              "same\n0\n")
        << script;
  }
}

TEST_F(SignedFiles, OutputTakesThePlaceOfAFile) {
  const std::string sign = std::string("certkern sign text --detached --der") + kByAnna;
  home.out(
      "umask 027; printf old >old; chmod 604 old; ln -s old link; mkdir locked; printf old >locked/old; "
      "mkfifo pipe");
  home.out(sign + "-o link; " + sign + "-o new; " + sign + "-o /dev/null");
  EXPECT_EQ(home.out("test -L link && stat -c %a old; stat -c %a new; umask; ls -a | grep certkern- || :"),
            "604\n644\n0022\n");
  EXPECT_EQ(verify("old --content text").status, 0);
  home.out("cat pipe >read & " + sign + "-o pipe; wait");
  EXPECT_EQ(verify("read --content text").status, 0) << "no file, so written as it is";
  // no room for all of it: what was there stays
  EXPECT_NE(home.run("printf old >old2; ulimit -f 0; trap '' XFSZ; " + sign + "-o old2").status, 0);
  EXPECT_EQ(home.out("cat old2; ls -a | grep certkern- || :"), "old");
}

TEST_F(SignedFiles, WhereTheCertificateMayBe) {
  EXPECT_EQ(home.run("certkern sign text --key anna").status, 1) << "none anywhere";
  home.out("certkern certificate selfsign --key anna --subject CN=self --install");
  EXPECT_THAT(home.out("certkern sign text --key anna | certkern show -"), HasSubstr("CN=self"));
  home.out(
      "certkern key new rsa --no-pin --algorithm rsa; "
      "certkern certificate selfsign --key rsa --subject CN=rsa --out rsa.crt; "
      "certkern sign text --key rsa --certificate rsa.crt -o rsa.cms");
  EXPECT_EQ(home.run("certkern verify rsa.cms --store rsa.crt --revocation none").status, 0);
  EXPECT_EQ(home.run("certkern verify rsa.cms --store root.crt --revocation none").status, 3)
      << "not that root's";
}

TEST_F(SignedFiles, HowFaultsAreFoundOut) {
  home.out(
      "swap() { LC_ALL=C sed \"s/$1/$2/\" other.cms >$3; }; swap 'what is' 'what iz' content.cms\n"
      "printf 'what iz signed\\n' >texz\n"
      // the last octet is the signature's
      "head -c -1 other.cms >signature.cms; tail -c 1 other.cms | LC_ALL=C tr '\\000-\\377' "
      "'\\001-\\377\\000' >>signature.cms");
  const ToolResult content = verify("content.cms");
  EXPECT_EQ(content.status, 3);
  EXPECT_THAT(content.out, AllOf(HasSubstr("Content: changed after it was signed"), HasSubstr("Not valid.")));
  EXPECT_EQ(verify("other.sig --content texz").status, 3);
  const ToolResult signature = verify("signature.cms");
  EXPECT_EQ(signature.status, 3);
  EXPECT_THAT(signature.out, AllOf(HasSubstr("Content: intact"), HasSubstr("Signature: not valid")));
  const ToolResult revoked = verify("other.cms", "revoked.crl");
  EXPECT_EQ(revoked.status, 3);
  EXPECT_THAT(revoked.out, AllOf(HasSubstr("Signature: valid"), HasSubstr("listed as revoked since")));
  EXPECT_EQ(verify("other.cms --revocation none", "revoked.crl").status, 0);
  EXPECT_EQ(home.run("certkern verify other.cms --store root.crt --cache-only").status, 4)
      << "no authority, no CRL";
  const ToolResult stranger = verify("nocerts.cms");
  EXPECT_EQ(stranger.status, 4);
  EXPECT_THAT(stranger.out, HasSubstr("not checked: the signer's certificate is not there"));
  EXPECT_EQ(verify("nocerts.cms --additional boris.crt").status, 0);
  EXPECT_EQ(verify("other.cms --time 2000-01-01").status, 3);
}

// A certificate with the same issuer, serial number and key verifies the signature, but is not the one that was signed.
TEST_F(SignedFiles, AnotherCertificateInPlaceOfTheSigners) {
  home.out(R"(
    openssl x509 -req -in boris.csr -CA ca.crt -CAkey ca.key -set_serial 4 -days 300 -extfile end.ext -out twin.crt
    openssl cms -sign -binary -in text -signer boris.crt -inkey boris.key -md md_gost12_256 -nodetach -cades -nocerts \
      -outform DER -out bound.cms)");
  const ToolResult own = verify("bound.cms --additional boris.crt");
  EXPECT_EQ(own.status, 0) << own.out << own.err;
  const ToolResult twin = verify("bound.cms --additional twin.crt");
  EXPECT_EQ(twin.status, 3);
  EXPECT_THAT(
      twin.out,
      AllOf(HasSubstr("Signature: valid"), HasSubstr("Certificate: the signature names another one")));
}

TEST_F(SignedFiles, SeveralSigners) {
  home.out(
      "openssl cms -resign -in other.cms -inform DER -binary -nodetach -signer vera.crt -inkey boris.key "
      "-md md_gost12_256 -outform DER -out two.cms");
  const json object = json::parse(verify("two.cms --json", "revoked.crl").out).at(0);
  EXPECT_EQ(object.at("verdict"), "invalid");
  EXPECT_EQ(object.at("signerCount"), 2);
  std::map<std::string, std::string> verdicts;
  for (const json& signer : object.at("signers")) {
    EXPECT_EQ(signer.at("signature"), "valid");
    const json& subject = signer.at("chain").at("elements").at(0).at("subject").at("value");
    verdicts[subject.get<std::string>()] = signer.at("verdict").get<std::string>();
  }
  EXPECT_EQ(verdicts,
            (std::map<std::string, std::string>{
                {"CN=boris", "invalid"},
                {"CN=vera",  "valid"  }
  }));
  for (const json& signer : object.at("signers")) {
    const std::string number = std::to_string(signer.at("signer").get<int>());
    EXPECT_EQ(verify("two.cms --signer " + number, "revoked.crl").status,
              signer.at("verdict") == "valid" ? 0 : 3);
  }
  EXPECT_EQ(verify("two.cms --signer 3").status, 1);
}

// A message that nobody could believe is not made; one that is weak is, and both programs say so.
TEST_F(SignedFiles, WhatSignChecks) {
  home.out(
      "certkern key new rsa --no-pin --algorithm rsa; certkern key new ed --no-pin --algorithm ed25519; "
      "for n in rsa ed; do certkern certificate selfsign --key $n --subject CN=$n --install --out $n.crt; "
      "done; "
      "cp config.toml usual; printf '[config.Parameters]\nAddEsAttribute = 0\n' >never");
  ExpectFaults(
      home,
      {
          {"certkern sign text --key anna --certificate anna.crt --hash sha256",                           2,
           "--hash sha256: keys of gost2012-256 do not sign it"                                                                                 },
          {"certkern sign text --key rsa --hash gost2012-256",                                             2, "keys of rsa do not sign it"      },
          {"certkern sign text --key rsa --hash 1.2.3.4",                                                  2, "keys of rsa do not sign it"      },
          {"certkern sign text --key ed",                                                                  1, "keys of ed25519 sign no messages"},
          {"certkern sign text --key rsa --attribute 1.2.840.113549.1.9.16.2.47=3000",                     1,
           "nobody could read this message: in content.signerInfos.signedAttrs"                                                                 },
          {"certkern sign text --key rsa --attribute "
           "1.2.840.113549.1.9.16.2.12=300e300c300a0408aaaaaaaaaaaaaaaa",                       1, "names another certificate"       },
          {"cat never >>config.toml; certkern sign text --key anna --certificate anna.crt --cades strict", 1,
           "--cades strict: the attributes are not there"                                                                                       },
          {"mv usual config.toml; certkern sign text --key rsa --hash md5 -o weak.cms",                    0,
           "--hash md5: weak"                                                                                                                   },
  });
  const std::string weak = "certkern verify weak.cms --revocation none --store rsa.crt";
  EXPECT_THAT(home.out(weak), AllOf(HasSubstr("Signature: valid (weak hash)\n"), HasSubstr("\nValid.\n")));
  EXPECT_EQ(json::parse(home.out(weak + " --json"))[0]["signers"][0]["weakHash"], true);
}

TEST_F(SignedFiles, Faults) {
  home.out(
      "certkern key new other --no-pin --algorithm gost2012-256; openssl cms -data_create -in text -outform "
      "DER -out data.cms; openssl cms -encrypt -in text -aes256 -outform DER -secretkey "
      "00112233445566778899aabbccddeeff"
      "00112233445566778899aabbccddeeff -secretkeyid 01 -out secret.cms; : >nothing; openssl cms -sign "
      "-binary -in nothing "
      "-signer boris.crt -inkey boris.key -md md_gost12_256 -outform DER -out nothing.sig");
  ExpectFaults(
      home,
      {
          {"certkern sign text",                                         2, "who signs?"                       },
          {"certkern sign none --key anna --certificate anna.crt",       1, "none: "                           },
          {"certkern sign text --key anna",                              1, "no certificate with this key"     },
          {"certkern sign text --certificate anna.crt",                  1, "name the key container with --key"},
          {"certkern sign text --key other --certificate anna.crt",      1, "its key is not that of other"     },
          {"certkern sign text --key anna --attribute 1.2.3",            2, "must be OID=HEX"                  },
          {"certkern sign text --key anna --attribute 1.2.3=0x",         2, "only hexadecimal digits"          },
          {"certkern sign text --key anna --attribute 1.2.3=050000",     2, "one whole DER element"            },
          {"certkern verify other.sig --store root.crt",                 1, "name it with --content"           },
          {"certkern verify other.cms --content text --store root.crt",  2, "the content is in the message"    },
          {"certkern verify nothing.sig --store root.crt",               1, "name it with --content"           },
          {"certkern verify other.cms --signer 0 --store root.crt",      2, "from 1 to 999999999"              },
          {"certkern verify data.cms --store root.crt",                  1, "not a signed one"                 },
          {"certkern verify secret.cms --store root.crt",                1, "not a signed one"                 },
          {"certkern verify /bin/sh --store root.crt",                   1, "expected DER"                     },
          {"certkern verify root.crt --store root.crt",                  1, "not a message"                    },
          {"head -c 300 other.cms | certkern verify - --store root.crt", 1,
           "runs past its end at byte offset 0"                                                                },
  });
}

}  // namespace
