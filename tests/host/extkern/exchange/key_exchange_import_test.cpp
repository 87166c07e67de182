// Enveloped messages that others made, opened: published ones and those of the openssl program.
#include <gtest/gtest.h>

#include <fstream>

#include "host/extkern/exchange/key_exchange_messages.h"
#include "interop/openssl_tool.h"
#include "support/hex.h"

namespace {

ByteVector Text(std::string_view text) { return {text.begin(), text.end()}; }

std::string Repeated(std::string_view line, int count) {
  std::string text;
  while (count--) text += line;
  return text;
}

// In windows-1251: what the recommendation's messages say.
ByteVector ControlExample() {
  return FromHex(
      "caeeedf2f0eeebfcedfbe920eff0e8ece5f020e4ebff20f1f2f0f3eaf2f3f0fb20456e76656c6f706564446174612e");
}

struct PublishedCase {
  const char* message;
  const char* key;
  ByteVector content;
};
TEST(KeyExchangeImport, Published) {
  const PublishedCase cases[] = {
      {"r1323565.1.025/encrypted_keyagree_a211.der", "r1323565.1.025/recipient512_key.p8", ControlExample()                       },
      {"r1323565.1.025/encrypted_keytrans_a231.der", "r1323565.1.025/recipient256_key.p8", ControlExample()                       },
      {"tc26/enveloped_ktri256.der",                 "tc26/key256.p8",                     Text(Repeated("Test data to encrypt.\n", 100))},
      {"tc26/enveloped_ktri512.der",                                            "tc26/key512.p8",                                                     Text("Test message")                                },
      {"rfc4134/5.1.bin",                                            "rfc4134/BobPrivRSAEncrypt.pri",                                                                Text("This is some sample content.")},
      {"rfc4134/5.2.bin",                                            "rfc4134/BobPrivRSAEncrypt.pri",                                                                Text("This is some sample content.")                                },
  };
  for (const auto& [message, key, content] : cases) {
    SCOPED_TRACE(message);
    const Party recipient = PartyFromKey(PublishedData() / key);
    ByteVector plain;
    EXPECT_EQ(Open(Envelope(Load(PublishedData() / message)), recipient, plain), 0u);
    EXPECT_EQ(plain, content);
  }
}

struct ForeignCase {
  const char* key;      // options of genpkey
  const char* cipher;   // of cms -encrypt
  const char* padding;  // for the recipient
  size_t size;          // of the content
};
constexpr char kRsa[] = "-algorithm RSA -pkeyopt rsa_keygen_bits:2048";
#define KEYOPT " -keyopt "
const ForeignCase kForeign[] = {
    {kRsa,                                                       "-aes256",                    "",                             1000  },
    {kRsa,                                                       "-des3",                      KEYOPT "rsa_padding_mode:oaep", 1000  },
    {kRsa,                                                       "-aes128",
     KEYOPT "rsa_padding_mode:oaep" KEYOPT "rsa_oaep_md:sha256" KEYOPT "rsa_oaep_label:616263",                                16    },
    {"-algorithm EC -pkeyopt ec_paramgen_curve:P-256",           "-aes256",                    "",                             1000  },
    {"-algorithm EC -pkeyopt ec_paramgen_curve:P-256",           "-aes128",                    KEYOPT "ecdh_kdf_md:sha256",    0     },
    {"-algorithm EC -pkeyopt ec_paramgen_curve:P-384",           "-aes192",                    KEYOPT "ecdh_kdf_md:sha384",    1000  },
    {"-algorithm EC -pkeyopt ec_paramgen_curve:P-521",           "-des3 -des3-wrap",           KEYOPT "ecdh_kdf_md:sha512",    1000  },
    {"-algorithm EC -pkeyopt ec_paramgen_curve:brainpoolP256r1", "-aes128",                    KEYOPT "ecdh_kdf_md:sha256",
     1000                                                                                                                            },
    {"-algorithm gost2001 -pkeyopt paramset:XA",                 "-gost89",                    "",                             5000  },
    {"-algorithm gost2012_256 -pkeyopt paramset:A",              "-gost89",                    "",                             5000  },
    {"-algorithm gost2012_256 -pkeyopt paramset:TCA",            "-gost89",                    "",                             0     },
    {"-algorithm gost2012_512 -pkeyopt paramset:B",              "-gost89",                    "",                             1     },
    {"-algorithm gost2012_256 -pkeyopt paramset:TCA",            "-magma-ctr-acpkm",           "",                             20000 },
    {"-algorithm gost2012_512 -pkeyopt paramset:A",              "-magma-ctr-acpkm-omac",      "",                             20000 },
    {"-algorithm gost2012_512 -pkeyopt paramset:C",              "-kuznyechik-ctr-acpkm",      "",                             600000},
    {"-algorithm gost2012_256 -pkeyopt paramset:A",              "-kuznyechik-ctr-acpkm-omac", "",                             600000},
};
TEST(KeyExchangeImport, SealedByOpenSsl) {
  const std::string out = (WorkDirectory() / "sealed.der").string();
  const std::string certificate = (WorkDirectory() / "recipient.pem").string();
  for (const auto& [key, cipher, padding, size] : kForeign) {
    SCOPED_TRACE(std::string(key) + " " + cipher + padding);
    const Party& recipient = MadeParty(key);
    const ByteVector content = SomeContent(size);
    OpenSsl("x509 -inform DER -in " + recipient.certificate.string() + " -out " + certificate);
    OpenSsl(std::string("cms -encrypt -binary ") + cipher + " -in " + WriteScratch(content).string()
            + " -outform DER -out " + out + " -recip " + certificate + padding);
    ByteVector plain;
    EXPECT_EQ(Open(Envelope(Load(out)), recipient, plain), 0u);
    EXPECT_EQ(plain, content);
  }
}

}  // namespace
