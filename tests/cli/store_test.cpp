// Certificate stores of a user who has none to begin with.
#include "tool_home.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;
using testing::HasSubstr;

constexpr char kBundle[] = "/etc/ssl/certs/ca-certificates.crt";

// Two certificates and a list by openssl: anna (signs, of the authority "ca") and the authority.
class Stores : public testing::Test {
 protected:
  Stores() {
    home.out(
        "openssl req -new -x509 -newkey rsa:2048 -nodes -keyout ca.key -subj '/O=Ex/CN=ca' -days 30 -out "
        "ca.crt "
        "-addext keyUsage=critical,keyCertSign,cRLSign 2>/dev/null\n"
        "openssl req -new -newkey rsa:2048 -nodes -keyout anna.key -subj '/CN=Anna B' -out anna.csr "
        "2>/dev/null\n"
        "printf "
        "'keyUsage=digitalSignature\\nextendedKeyUsage=emailProtection\\nsubjectKeyIdentifier=hash\\n' >ext\n"
        "openssl x509 -req -in anna.csr -CA ca.crt -CAkey ca.key -set_serial 0x00C1 -days 30 -extfile ext "
        "-out anna.crt"
        " 2>/dev/null\n"
        "touch index; printf "
        "'[ca]\\ndefault_ca=d\\n[d]\\ndatabase=index\\ndefault_md=sha256\\ncrl_extensions=x\\n[x]"
        "\\nauthorityKeyIdentifier=keyid\\n' >ca.cnf\n"
        "command openssl ca -config ca.cnf -gencrl -keyfile ca.key -cert ca.crt -crldays 5 -out ca.crl "
        "2>/dev/null");
  }
  json shown(const std::string& command) const {
    return json::parse(home.out("certkern store " + command + " --json"));
  }
  size_t count(const std::string& command) const { return shown(command).size(); }

  const ToolHome home;
};

TEST_F(Stores, FillFindAndRemove) {
  const json added = shown("add MY anna.crt ca.crt ca.crl anna.crt").at(0);
  EXPECT_EQ(added.at("certificates"), 2);
  EXPECT_EQ(added.at("crls"), 1);
  EXPECT_EQ(added.at("thereAlready"), 1);
  const std::string hash = home.out("openssl x509 -in anna.crt -noout -fingerprint -sha1 | cut -d= -f2");
  const std::string keyId = home.out("openssl x509 -in anna.crt -noout -ext subjectKeyIdentifier | tail -1");
  const json byHash = shown("find MY --hash " + hash.substr(0, hash.size() - 1));
  ASSERT_EQ(byHash.size(), 1u);
  EXPECT_EQ(byHash.at(0).at("subject").at("value"), "CN=Anna B");

  EXPECT_EQ(count("find MY --subject 'Anna B'"), 1u);
  EXPECT_EQ(count("find MY --issuer ca"), 3u) << "the list, too";
  EXPECT_EQ(count("find MY --issuer ca --serial 00:C1"), 1u);
  EXPECT_EQ(count("find MY --serial c1 --usage digitalSignature --extended-usage emailProtection"), 1u);
  EXPECT_EQ(count("find MY --usage keyCertSign,cRLSign"), 1u);
  EXPECT_EQ(count("find MY --key-id '" + keyId.substr(0, keyId.size() - 1) + "'"), 1u);
  EXPECT_EQ(home.run("certkern store find MY --usage digitalSignature,keyCertSign").status, 1);
  EXPECT_EQ(home.run("certkern store find MY --has-key").status, 1);

  EXPECT_EQ(home.run("certkern store remove MY --issuer ca").status, 1) << "three fit";
  EXPECT_EQ(count("show MY"), 3u);
  home.out("certkern store remove MY --serial c1");
  EXPECT_EQ(count("show MY"), 2u);
  home.out("certkern store remove MY --all");
  EXPECT_EQ(count("show MY"), 0u);
}

TEST_F(Stores, BundlesComeBackTheSame) {
  home.out(std::string("certkern store import CA ") + kBundle);
  const std::string ours = home.out(
      "certkern store export CA >all.pem; openssl crl2pkcs7 -nocrl -certfile all.pem | "
      "openssl pkcs7 -print_certs -noout | grep subject | sort");
  EXPECT_EQ(ours,
            home.out(std::string("openssl crl2pkcs7 -nocrl -certfile ") + kBundle
                     + " | openssl pkcs7 -print_certs -noout | grep subject | sort"));
  const json stores = shown("list");
  EXPECT_EQ(stores.at(0).at("name"), "ca");
  EXPECT_EQ(stores.at(0).at("location"), "user");

  home.out("certkern store export CA --saved --out ca.sto && certkern store import Saved ca.sto");
  EXPECT_EQ(home.out("certkern store export CA | sha1sum"), home.out("certkern store export Saved | sha1sum"))
      << "the order, too";
  // as others read and write them
  home.out("certkern store export CA --pkcs7 --der --out ca.p7b && certkern store import Message ca.p7b");
  EXPECT_EQ(home.out("certkern store export CA | sha1sum"),
            home.out("certkern store export Message | sha1sum"));
  EXPECT_EQ(
      ours,
      home.out("certkern store export CA --pkcs7 | openssl pkcs7 -print_certs -noout | grep subject | sort"));
  home.out(
      "openssl crl2pkcs7 -nocrl -certfile all.pem -out theirs.p7b && certkern store import Theirs "
      "theirs.p7b");
  EXPECT_EQ(count("show Theirs"), count("show CA"));
  home.out("certkern store copy CA Few --subject Sectigo");
  EXPECT_EQ(count("show Few"), count("find CA --subject Sectigo"));
  home.out("certkern store add MY anna.crt");
  EXPECT_EQ(home.out("certkern store export MY --der | sha1sum"),
            home.out("openssl x509 -in anna.crt -outform DER | sha1sum"));
}

TEST_F(Stores, FaultsSayWhatToDo) {
  ExpectFaults(home,
               {
                   {"certkern store show MY",            1, "\"certkern store add MY FILE\" makes it"},
                   {"certkern store remove MY --all",    1, "there is no such store"                 },
                   {"certkern store find MY",            2, "what to find"                           },
                   {"certkern store find MY --hash 0g",  2, "only hexadecimal digits"                },
                   {"certkern store find MY --hash 123", 2, "whole bytes"                            },
                   {"certkern store copy MY MY",         2, "the two stores are one"                 },
                   {"certkern store export MY",          1, "there is no such store"                 },
                   {"certkern store show a/b",           1, "store \"a/b\" of the user"              },
  });
  EXPECT_THAT(home.run("certkern store list").err, HasSubstr("there is no store yet"));
  const ToolResult mixed = home.run("certkern store add MY anna.csr ext missing anna.crt");
  EXPECT_EQ(mixed.status, 1);
  EXPECT_THAT(mixed.err, HasSubstr("anna.csr"));
  EXPECT_THAT(mixed.err, HasSubstr("missing: No such file"));
  EXPECT_EQ(count("show MY"), 1u) << "a fault does not keep the others out";
}

TEST_F(Stores, OwnRootsNeedATerminal) {
  const ToolResult result = home.run("certkern store add Root ca.crt </dev/null");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("not confirmed"));
}

}  // namespace
