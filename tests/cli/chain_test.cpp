// Chains by the tool: words, statuses, JSON, pictures. What is true of a chain is the library's test.
#include "tool_home.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;
using testing::HasSubstr;

// root > ca > a (good), b (revoked), and a second certificate of the authority that has expired.
class Chains : public testing::Test {
 protected:
  Chains() {
    home.out(
        "key() { command openssl ecparam -name prime256v1 -genkey -noout -out $1.key; }\n"
        "sign() { openssl x509 -req -in $1.csr -CA $2.crt -CAkey $2.key -set_serial $3 -days ${4:-30} "
        "-extfile ext -out "
        "${5:-$1}.crt 2>/dev/null; }\n"
        "for n in root ca a b; do key $n; openssl req -new -key $n.key -subj /CN=$n -out $n.csr; done\n"
        "printf 'basicConstraints=critical,CA:TRUE\\nsubjectKeyIdentifier=hash\\n' >ext\n"
        "openssl x509 -req -in root.csr -signkey root.key -days 30 -extfile ext -out root.crt 2>/dev/null\n"
        "sign ca root 2; sign ca root 3 -1 old\n"
        "printf 'subjectAltName=DNS:www.example.org\\nextendedKeyUsage=serverAuth\\n' >ext\n"
        "sign a ca 10; sign b ca 11\n"
        "touch index; echo 01 >number\n"
        "printf '[ca]\\ndefault_ca=d\\n[d]\\ndatabase=index\\ndefault_md=sha256\\ncrlnumber=number\\n' "
        ">ca.cnf\n"
        "for n in ca root; do\n"
        "  test $n = root || command openssl ca -config ca.cnf -keyfile ca.key -cert ca.crt -revoke b.crt "
        "2>/dev/null\n"
        "  command openssl ca -config ca.cnf -gencrl -keyfile $n.key -cert $n.crt -crldays 5 -out $n.crl "
        "2>/dev/null\n"
        "  : >index\n"
        "done");
  }
  static constexpr char kWorld[] =
      " --store root.crt --additional ca.crt --additional ca.crl --additional root.crl --cache-only ";
  ToolResult chain(const std::string& rest) const { return home.run("certkern chain " + rest + kWorld); }

  const ToolHome home;
};

TEST_F(Chains, StatusTellsValidInvalidAndUndeterminedApart) {
  const ToolResult good = chain("a.crt");
  EXPECT_EQ(good.status, 0) << good.out << good.err;
  EXPECT_THAT(good.out, HasSubstr("CN=root  (until "));
  EXPECT_THAT(good.out, HasSubstr("\n   └─ CN=a  (until "));
  EXPECT_THAT(good.out, HasSubstr("CRL: CN=ca, age 0 minutes"));
  EXPECT_THAT(good.out, HasSubstr("\nValid.\n"));
  const ToolResult revoked = chain("b.crt");
  EXPECT_EQ(revoked.status, 3);
  EXPECT_THAT(revoked.out, HasSubstr("listed as revoked since"));
  EXPECT_THAT(revoked.out, HasSubstr("Not valid: The certificate, or one of its chain, is revoked."));
  const ToolResult unknown =
      home.run("certkern chain a.crt --store root.crt --additional ca.crt --cache-only");
  EXPECT_EQ(unknown.status, 4);
  EXPECT_THAT(unknown.out, HasSubstr("Undetermined: No CRL tells"));
  EXPECT_EQ(home.run("certkern chain a.crt --store root.crt --revocation none --cache-only").status, 4)
      << "no issuer";
  EXPECT_EQ(home.run("certkern chain a.crt --store ca.crt --revocation none --cache-only").status, 4);
  EXPECT_EQ(chain("a.crt --time 2000-01-01").status, 3);
  EXPECT_EQ(chain("a.crt --usage clientAuth").status, 3);
  EXPECT_EQ(chain("a.crt --usage clientAuth,serverAuth --any-usage").status, 0);
}

// Whoever can't be told still learns the status.
TEST_F(Chains, StatusOutlivesStandardError) {
  const struct {
    const char* script;
    int status;
  } kCases[] = {
      {"certkern show missing",                                              1},
      {"certkern hash missing",                                              1},
      {"echo junk | certkern show",                                          1},
      {"certkern chain a.crt --usage",                                       2},
      {"certkern nonsense",                                                  2},
      {"certkern chain b.crt --store root.crt --additional ca.crt --additional ca.crl --additional root.crl "
       "--cache-only",                                                3},
      {"certkern chain a.crt --store ca.crt --revocation none --cache-only", 4},
  };
  for (const auto& [script, status] : kCases) {
    for (const char* target : {" 2>&-", " 2>/dev/full"}) {
      EXPECT_EQ(home.run(script + std::string(target)).status, status) << script << target;
    }
  }
}

TEST_F(Chains, PoliciesForServers) {
  EXPECT_EQ(chain("a.crt --policy ssl --host WWW.example.org").status, 0);
  const ToolResult other = chain("a.crt --policy ssl --host www.example.com");
  EXPECT_EQ(other.status, 3);
  EXPECT_THAT(other.out, HasSubstr("Policy ssl: The certificate is for another server name."));
  EXPECT_THAT(chain("a.crt --policy ssl --client").out, HasSubstr("not meant for this use"));
  EXPECT_EQ(chain("a.crt --policy base").status, 0);
}

TEST_F(Chains, ForProgramsInRussianAndAsPicture) {
  const json object = json::parse(chain("b.crt --json").out).at(0);
  EXPECT_EQ(object.at("verdict"), "invalid");
  EXPECT_EQ(object.at("errors"), json({"IS_REVOKED"}));
  const json& end = object.at("elements").at(0);
  EXPECT_EQ(end.at("subject").at("value"), "CN=b");
  EXPECT_EQ(end.at("revocation").at("result"), "revoked");
  EXPECT_EQ(object.at("elements").size(), 3u);
  EXPECT_THAT(
      home.run("LC_ALL=ru_RU.UTF-8 certkern chain b.crt" + std::string(kWorld)).out,
      HasSubstr("Сертификат недействителен: Этот сертификат или один из сертификатов цепочки отозван."));
  const std::string picture = chain("a.crt --dot --additional old.crt").out;
  EXPECT_THAT(picture, HasSubstr("digraph chain {"));
  EXPECT_THAT(picture, HasSubstr("n0 -> n1 [penwidth=2]"));
  EXPECT_THAT(picture, HasSubstr("label=\"not time valid\""));
}

TEST_F(Chains, FaultsSayWhatToDo) {
  ExpectFaults(home,
               {
                   {"certkern chain a.crt",                                      1, "sudo certkern store import Root"},
                   {"certkern chain a.csr --store root.crt",                     1, "neither a certificate nor a CRL"},
                   {"certkern chain ca.crl --store root.crt",                    1, "found only CRLs"                },
                   {"certkern chain missing --store root.crt",                   1, "missing: No such file"          },
                   {"certkern chain a.crt --store Nix",                          1, "there is no such store"         },
                   {"certkern chain a.crt --store root.crt --time yesterday",    2, "a date as 2026-01-31"           },
                   {"certkern chain a.crt --store root.crt --time 2026-02-30",   2, "a date as 2026-01-31"           },
                   {"certkern chain a.crt --store root.crt --policy ssl",        2, "needs the server's name"        },
                   {"certkern chain a.crt --store root.crt --host x",            2, "go with --policy ssl"           },
                   {"certkern chain a.crt --store root.crt --revocation always", 2, "--revocation"                   },
  });
}

}  // namespace
