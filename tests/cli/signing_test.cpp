// Requests and self-signed certificates of every kind of key, judged by the openssl program.
#include "tool_home.h"

#include <gmock/gmock.h>

#include <set>

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

TEST(Signing, EveryKindOfKeySignsWhatOpensslVerifies) {
  struct Case {
    const char* key;      // options of certkern key new
    const char* signing;  // options of what signs
    const char* oid;      // of the signature, as openssl names it
  };
  const Case kCases[] = {
      {"gost2012-256",                                    "",                    "GOST R 34.10-2012 with GOST R 34.11-2012 (256 bit)"},
      {"gost2012-256 --parameters B --purpose signature", "",
       "GOST R 34.10-2012 with GOST R 34.11-2012 (256 bit)"                                                                          },
      {"gost2012-512 --parameters 1.2.643.7.1.2.1.2.2",   "",
       "GOST R 34.10-2012 with GOST R 34.11-2012 (512 bit)"                                                                          },
      {"gost2001 --parameters XA",                        "--hash gost94",       "GOST R 34.11-94 with GOST R 34.10-2001"            },
      {"rsa",                                             "",                    "sha256WithRSAEncryption"                           },
      {"rsa --purpose signature",                         "--hash sha512",       "sha512WithRSAEncryption"                           },
      {"rsa",                                             "--pss --hash sha384", "rsassaPss"                                         },
      {"ecdsa",                                           "",                    "ecdsa-with-SHA256"                                 },
      {"ecdsa --parameters brainpoolP384r1",              "",                    "ecdsa-with-SHA384"                                 },
      {"ecdsa --parameters P-521",                        "",                    "ecdsa-with-SHA512"                                 },
      {"ecdsa --parameters secp256k1",                    "--hash sha1",         "ecdsa-with-SHA1"                                   },
      {"ed25519",                                         "",                    "ED25519"                                           },
      {"ed448",                                           "",                    "ED448"                                             },
  };
  const ToolHome home;
  for (const auto& [key, signing, oid] : kCases) {
    SCOPED_TRACE(std::string(key) + " " + signing);
    const std::string options =
        std::string(" --key it --subject C=RU --subject CN=Anna --out out ") + signing;
    const std::string algorithm = std::string("Signature Algorithm: ") + oid + "\n";
    home.out(std::string("certkern key new it --no-pin --algorithm ") + key);
    const ToolResult request =
        home.run("certkern request new" + options + "; openssl req -in out -verify -noout -text");
    EXPECT_THAT(request.err, HasSubstr("verify OK"));
    EXPECT_THAT(request.out, HasSubstr(algorithm));
    EXPECT_THAT(home.out("certkern certificate selfsign" + options + R"(
      # @SECLEVEL=0: SHA-1 is among what is tested
      openssl verify -auth_level 0 -check_ss_sig -x509_strict -CAfile out out >/dev/null
      openssl x509 -in out -noout -text; certkern key delete it --yes)"),
                HasSubstr(algorithm));
  }
}

TEST(Signing, PssSaltIsAsLongAsTheHash) {
  const ToolHome home;
  home.out("certkern key new it --algorithm rsa --no-pin");
  const std::string text =
      home.out("certkern request new --key it --subject CN=x --pss --hash sha384 | openssl req -noout -text");
  EXPECT_THAT(text, HasSubstr("Hash Algorithm: sha384"));
  EXPECT_THAT(text, HasSubstr("Mask Algorithm: mgf1 with sha384"));
  EXPECT_THAT(text, HasSubstr("Salt Length: 0x30"));
}

TEST(Signing, NamesAndExtensionsOfARequest) {
  const ToolHome home;
  home.out("certkern key new it --algorithm ecdsa --no-pin");
  const std::string text = home.out(
      "certkern request new --key it --subject C=RU --subject 'O=Рога, копыта' --subject ou=x=y --subject "
      "CN=Anna "
      "--subject E=a@example.org --subject DC=example --subject serialNumber=A-12 --subject INN=123456789012 "
      "--subject 2.5.4.12=title --subject 1.2.3.4=other "
      "--dns a.example.org --dns b.example.org --ip 192.0.2.1 --ip 2001:db8::1 --email a@example.org "
      "--usage digitalSignature,decipherOnly --extended-usage serverAuth,1.2.3 --extended-usage OCSPSigning "
      "--der "
      "| openssl req -inform DER -noout -text -nameopt show_type,utf8,sep_comma_plus,sname");
  for (const char* expected : {
           "Subject: C=PRINTABLESTRING:RU,O=UTF8STRING:Рога, копыта,OU=UTF8STRING:x=y,CN=UTF8STRING:Anna,"
           "emailAddress=IA5STRING:a@example.org,DC=IA5STRING:example,serialNumber=PRINTABLESTRING:A-12,"
           "INN=NUMERICSTRING:123456789012,title=UTF8STRING:title,1.2.3.4=UTF8STRING:other\n",
           "DNS:a.example.org, DNS:b.example.org, IP Address:192.0.2.1, IP Address:2001:DB8:0:0:0:0:0:1, "
           "email:a@example.org\n",
           "X509v3 Key Usage: critical\n                    Digital Signature, Decipher Only\n",
           "TLS Web Server Authentication, 1.2.3, OCSP Signing\n",
       })
    EXPECT_THAT(text, HasSubstr(expected));
  // DER ends a list of named bits with the last that is set
  EXPECT_THAT(
      home.out(
          "certkern request new --key it --subject CN=x --usage keyCertSign,cRLSign | openssl asn1parse"),
      HasSubstr("[HEX DUMP]:03020106\n"));
  // RFC 2986 wants the attributes even where nothing is asked for
  EXPECT_THAT(home.out("certkern request new --key it --subject CN=x | openssl asn1parse"),
              HasSubstr("cont [ 0 ]"));
}

TEST(Signing, SelfSignedCertificates) {
  const ToolHome home;
  home.out("certkern key new it --algorithm rsa --exportable --no-pin; certkern key export it --out it.key");
  // the same certificate, but for the serial number, by the other party
  const std::string extensions =
      " -noout -ext subjectKeyIdentifier,authorityKeyIdentifier,basicConstraints,keyUsage\n";
  EXPECT_EQ(
      home.out("certkern certificate selfsign --key it --subject CN=A --ca --path-length 2 | openssl x509"
               + extensions),
      home.out(
          "openssl req -x509 -new -key it.key -subj /CN=A -addext subjectKeyIdentifier=hash "
          "-addext authorityKeyIdentifier=keyid:always -addext basicConstraints=critical,CA:true,pathlen:2 "
          "-addext keyUsage=critical,keyCertSign,cRLSign | openssl x509"
          + extensions));
  const std::string leaf = home.out(
      "certkern certificate selfsign --key it --subject CN=A --days 10 --out a.crt\n"
      "openssl x509 -in a.crt -noout -ext basicConstraints,keyUsage -checkend 863000");
  EXPECT_THAT(leaf, HasSubstr("CA:FALSE"));
  EXPECT_THAT(leaf, HasSubstr("Digital Signature, Key Encipherment"));
  EXPECT_EQ(home.run("openssl x509 -in a.crt -noout -checkend 864100").status, 1);
  std::set<std::string> serials;
  for (int i = 0; i < 3; ++i)
    serials.insert(
        home.out("certkern certificate selfsign --key it --subject CN=A | openssl x509 -noout -serial"));
  EXPECT_EQ(serials.size(), 3u);
  EXPECT_THAT(*serials.begin(), MatchesRegex("serial=[4-7][0-9A-F]+\n"));
  EXPECT_EQ(serials.begin()->size(), std::string("serial=\n").size() + 32);
}

TEST(Signing, InstalledCertificateStaysWithTheKey) {
  const ToolHome home;
  home.out("certkern key new it --algorithm gost2012-256 --no-pin");
  EXPECT_EQ(home.out("certkern certificate selfsign --key it --subject CN=A --install"), "");
  home.out("certkern certificate selfsign --key it --subject CN=B --install --out b.crt --der");
  home.out("cmp b.crt data/certkern/keys/it/certificate-1.der");
}

TEST(Signing, Faults) {
  const ToolHome home;
  home.out("certkern key new rsa --algorithm rsa --no-pin; certkern key new ed --algorithm ed25519 --no-pin");
  ExpectFaults(
      home,
      {
          {"certkern request new --key none --subject CN=A",                         1, "none: there is no such key container"},
          {"certkern request new --key rsa",                                         2, "--subject is required"               },
          {"certkern request new --key rsa --subject Anna",                          2, "TYPE=VALUE"                          },
          {"certkern request new --key rsa --subject =Anna",                         2, "TYPE=VALUE"                          },
          {"certkern request new --key rsa --subject CN=",                           2, "empty"                               },
          {"certkern request new --key rsa --subject XYZ=Anna",                      2, "no such type"                        },
          {"certkern request new --key rsa --subject 1..2=x",                        2, "--subject"                           },
          {"certkern request new --key rsa --subject C=РФ",                        2, "only ASCII letters"                  },
          {"certkern request new --key rsa --subject INN=12a",                       2, "only digits"                         },
          {"certkern request new --key rsa --subject $(printf 'CN=\\377')",          2, "no UTF-8"                            },
          {"certkern request new --key rsa --subject CN=A --ip 1.2.3",               2, "no address"                          },
          {"certkern request new --key rsa --subject CN=A --dns бг",               2, "xn--"                                },
          {"certkern request new --key rsa --subject CN=A --usage sign",             2, "digitalSignature"                    },
          {"certkern request new --key rsa --subject CN=A --extended-usage web",     2, "serverAuth"                          },
          {"certkern request new --key rsa --subject CN=A --hash gost94",            2, "keys of rsa do not sign it"          },
          {"certkern request new --key ed --subject CN=A --hash sha256",             2, "no variants"                         },
          {"certkern request new --key ed --subject CN=A --pss",                     2, "no variants"                         },
          {"certkern request new --key rsa --subject CN=A --out /nowhere/x",         1, "/nowhere/x: No such file"            },
          {"certkern certificate selfsign --key rsa --subject CN=A --days 0",        2, "--days"                              },
          {"certkern certificate selfsign --key rsa --subject CN=A --path-length 1", 2, "--ca"                                },
  });
}

}  // namespace
