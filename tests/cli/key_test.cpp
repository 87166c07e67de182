// Keys: made, shown, protected, moved in and out of files. The openssl program reads what leaves, and makes what comes.
#include "tool_home.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <sys/stat.h>

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

json ShowKey(const ToolHome& home, const std::string& name) {
  const json containers = json::parse(home.out("certkern key show --json " + name), nullptr, false);
  EXPECT_EQ(containers.size(), 1u) << containers;
  return containers.at(0);
}

TEST(Key, ShowsAndListsWhatWasMade) {
  const ToolHome home;
  home.out(
      "certkern key new anna --algorithm gost2012-512 --parameters c --purpose signature --no-pin\n"
      "certkern key new 'two words' --algorithm rsa --bits 1024 --exportable --no-pin\n"
      "certkern certificate selfsign --key anna --subject CN=Anna --install");
  const json anna = ShowKey(home, "anna");
  EXPECT_EQ(anna["kind"], "keyContainer");
  const json& key = anna["keys"][0];
  EXPECT_EQ(key["purpose"], "signature");
  EXPECT_EQ(key["algorithm"]["parameterSet"]["oid"], "1.2.643.7.1.2.1.2.3");
  EXPECT_EQ(key["sizeInBits"], 512);
  EXPECT_EQ(key["exportable"], false);
  EXPECT_EQ(key["pin"], false);
  EXPECT_EQ(key["certificate"]["subject"]["value"], "CN=Anna");

  const json list = json::parse(home.out("certkern key list --json"));
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[1]["name"], "two words");
  EXPECT_EQ(list[1]["keys"][0]["sizeInBits"], 1024);
  EXPECT_EQ(list[1]["keys"][0]["purpose"], "exchange");
  EXPECT_TRUE(ShowKey(home, "'two words'")["keys"][0]["exportable"]);

  home.out("certkern key delete anna --yes");
  EXPECT_THAT(home.out("certkern key list"), Not(HasSubstr("anna")));
}

TEST(Key, FaultsSayWhatToDo) {
  const ToolHome home;
  home.out("certkern key new old --algorithm ecdsa --no-pin");
  ExpectFaults(
      home,
      {
          {"certkern key new old --algorithm rsa --no-pin",                    1, "exists already"                        },
          {"certkern key new x --algorithm dsa --no-pin",                      2, "--algorithm"                           },
          {"certkern key new x --algorithm ecdsa --parameters Q --no-pin",     2, "one of P-256"                          },
          {"certkern key new x --algorithm ecdsa --parameters 1.2.3 --no-pin", 1, "not available"                         },
          {"certkern key new x --algorithm ed448 --parameters A --no-pin",     2, "no parameter sets"                     },
          {"certkern key new x --algorithm ed448 --purpose exchange --no-pin", 2, "for signatures only"                   },
          {"certkern key new x --algorithm gost2001 --bits 2048 --no-pin",     2, "only RSA"                              },
          {"certkern key new x --algorithm rsa --bits 0 --no-pin",             2, "--bits"                                },
          {"certkern key new x --algorithm rsa --pin 1234",                    2, "--pin"                                 },
          {"certkern key new x --algorithm rsa",                               1, "--pin-fd or --pin-command, or --no-pin"},
          {"certkern key new '' --algorithm rsa --no-pin",                     2, "empty"                                 },
          {"certkern key show x",                                              1, "\"certkern key new\" makes one"        },
          {"certkern key delete x --yes",                                      1, "no such key container"                 },
          {"certkern key delete old",                                          1, "--yes"                                 },
          {"certkern key export old",                                          1, "--exportable"                          },
          {"certkern key export old --purpose signature --public",             1, "no key of this purpose"                },
          {"certkern key",                                                     2, "subcommand"                            },
  });
  // what could not be finished left nothing
  EXPECT_EQ(json::parse(home.out("certkern key list --json")).size(), 1u);
}

// --- PIN ---

TEST(KeyPin, LocksTheKeyUntilItIsRemoved) {
  const ToolHome home;
  const std::string sign = "certkern request new --key anna --subject CN=Anna --out /dev/null ";
  std::string all = home.out("echo secret1 | certkern key new anna --algorithm gost2012-256 --pin-fd 0");
  EXPECT_EQ(ShowKey(home, "anna")["keys"][0]["pin"], true);
  ExpectFaults(
      home,
      {
          {"certkern request new --key anna --subject CN=A --pin-command 'echo other1'",                      1,
           "anna: wrong PIN"                                                                                                                    },
          {"certkern request new --key anna --subject CN=A",                                                  1, "--pin-fd or --pin-command"    },
          {"certkern request new --key anna --subject CN=A --pin-fd 0 </dev/null",                            1, "nothing to read"              },
          {"certkern request new --key anna --subject CN=A --pin-fd 77",                                      1, "--pin-fd: Bad file descriptor"},
          {"echo | certkern request new --key anna --subject CN=A --pin-fd 0",                                1, "empty"                        },
          {"certkern request new --key anna --subject CN=A --pin-command 'echo secret1; exit 3'",             1,
           "failed"                                                                                                                             },
          {"head -c 1025 /dev/zero | tr '\\0' x | certkern request new --key anna --subject CN=A --pin-fd 0",
           1,                                                                                                    "longer"                       },
          {"certkern key set-pin anna --pin-command 'echo other1' --remove",                                  1, "wrong PIN"                    },
          {"echo x | certkern key new b --algorithm rsa --pin-fd 0 --no-pin",                                 2, "--no-pin"                     },
  });
  all += home.out(sign + "--pin-command 'echo secret1; yes | head -100000'");
  // one descriptor gives one line to each who reads
  all += home.out("printf 'secret1\\nsecret2\\n' | certkern key set-pin anna --pin-fd 0 --new-pin-fd 0");
  all += home.out(sign + "--pin-fd 3 3<<X\nsecret2\nX\n");
  EXPECT_EQ(home.run(sign + "--pin-command 'echo secret1'").status, 1);
  all += home.out("certkern key set-pin anna --pin-command 'echo secret2' --remove; " + sign);
  all += home.out("certkern key set-pin anna --new-pin-command 'echo secret3'; " + sign
                  + "--pin-command 'echo secret3'");
  EXPECT_EQ(all, "");
  EXPECT_THAT(home.out("cat data/certkern/keys/*/*"), Not(HasSubstr("secret")));
}

// --- files ---

TEST(KeyFiles, ImportedKeysSignAndLeaveAsTheyCame) {
  struct Case {
    const char* name;
    const char* make;  // arguments of openssl genpkey
  };
  const Case kCases[] = {
      {"2012-256 TCA", "-algorithm gost2012_256 -pkeyopt paramset:TCA" },
      {"2012-256 XA",  "-algorithm gost2012_256 -pkeyopt paramset:XA"  },
      {"2012-512 B",   "-algorithm gost2012_512 -pkeyopt paramset:B"   },
      {"2001 B",       "-algorithm gost2001 -pkeyopt paramset:B"       },
      {"RSA",          "-algorithm RSA -pkeyopt rsa_keygen_bits:2048"  },
      {"P-384",        "-algorithm EC -pkeyopt ec_paramgen_curve:P-384"},
      {"Ed25519",      "-algorithm ED25519"                            },
      {"Ed448",        "-algorithm ED448"                              },
  };
  const ToolHome home;
  for (const Case& row : kCases) {
    SCOPED_TRACE(row.name);
    home.out(std::string("openssl genpkey ") + row.make + R"( -out in.key 2>/dev/null
      certkern key import it in.key --exportable --no-pin
      certkern certificate selfsign --key it --subject CN=it --out it.crt
      openssl verify -check_ss_sig -CAfile it.crt it.crt
      openssl pkey -in in.key -pubout >in.pub; openssl x509 -in it.crt -noout -pubkey >it.pub
      openssl pkey -pubin -in it.pub -pubout | cmp - in.pub
      certkern key export it --out out.key
      openssl pkey -in out.key -pubout | cmp - in.pub
      certkern key delete it --yes; rm out.key)");
  }
}

TEST(KeyFiles, FormsOfPrivateKeys) {
  struct Case {
    const char* name;
    const char* make;  // file from plain.key
  };
  const Case kCases[] = {
      {"PEM behind other blocks",  "openssl ecparam -name P-256 >file; cat plain.key >>file"              },
      {"DER",                      "openssl pkcs8 -topk8 -nocrypt -in plain.key -outform DER -out file"   },
      {"AES-256, HMAC-SHA-256",    "openssl pkcs8 -topk8 -in plain.key -passout pass:$word -out file"     },
      {"AES-128, HMAC-SHA-1, DER",
       "openssl pkcs8 -topk8 -in plain.key -v2 aes128 -v2prf hmacWithSHA1 -passout pass:$word -outform DER "
       "-out file"                                                                                        },
      {"AES-192, HMAC-SHA-512",
       "openssl pkcs8 -topk8 -in plain.key -v2 aes192 -v2prf hmacWithSHA512 -passout pass:$word -out file"},
      {"AES-256, HMAC of GOST",
       "openssl pkcs8 -topk8 -in plain.key -v2 aes256 -v2prf id-tc26-hmac-gost-3411-2012-512 -passout "
       "pass:$word -out file"                                                                             },
  };
  const ToolHome home;
  const std::string password(70, 'x');  // an HMAC hashes a key that is longer than its block
  home.out("openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out plain.key");
  for (const Case& row : kCases) {
    SCOPED_TRACE(row.name);
    home.out("word=" + password + "; " + row.make + R"(
      echo $word | certkern key import it file --exportable --no-pin --password-fd 0
      certkern key export it | cmp - plain.key
      certkern key delete it --yes)");
  }
  home.out(
      "openssl pkcs8 -topk8 -in plain.key -v1 PBE-SHA1-3DES -passout pass:word -out old.p8\n"
      "openssl ec -in plain.key -out traditional.key 2>/dev/null; openssl genpkey -algorithm X25519 -out "
      "x.key\n"
      "openssl pkcs8 -topk8 -nocrypt -in plain.key -outform DER | head -c 100 >cut.der; : >empty\n"
      "openssl pkey -in plain.key -pubout -out public.pem");
  ExpectFaults(home,
               {
                   {"echo wrong | certkern key import x file --no-pin --password-fd 0", 1,
                    "file: the password is wrong"                                                                 },
                   {"certkern key import x file --no-pin",                              1, "--password-fd"        },
                   {"certkern key import x old.p8 --no-pin",                            1, "openssl pkcs8"        },
                   {"certkern key import x traditional.key --no-pin",                   1, "openssl pkcs8 -topk8" },
                   {"certkern key import x x.key --no-pin",                             1, "1.3.101.110"          },
                   {"certkern key import x cut.der --no-pin",                           1, "cut.der"              },
                   {"certkern key import x empty --no-pin",                             1, "empty: empty"         },
                   {"certkern key import x public.pem --no-pin",                        1, "no private key"       },
                   {"certkern key import x missing --no-pin",                           1, "missing: No such file"},
                   {"certkern key import x /dev/zero --no-pin",                         1, "too large"            },
  });
  EXPECT_EQ(home.out("certkern key list --json"), "[]\n");
}

TEST(KeyFiles, PrivateKeysGoToNewFilesOfTheOwnerAlone) {
  const ToolHome home;
  home.out(
      "umask 0; certkern key new it --algorithm ecdsa --exportable --no-pin; certkern key export it --out "
      "key.pem");
  struct stat status {};
  ASSERT_EQ(stat(home.path("key.pem").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  ExpectFaults(home,
               {
                   {"certkern key export it --out key.pem",                  1, "exists already"},
                   {"ln -s nowhere link; certkern key export it --out link", 1, "exists already"}
  });
}

}  // namespace
