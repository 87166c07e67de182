// Containers: names, what they keep, who may use it, and the openssl program as a reader of their files.
#include "host/keykern/internal/container_bench.h"
#include "platform/limits.h"

#include <sys/stat.h>

#include <atomic>
#include <thread>

namespace {

using namespace keykern;  // NOLINT(google-build-using-namespace): the names under test

const std::string kPrefix = kReaderPrefix;

TEST_F(ContainerTest, Names) {
  const std::string longest(200, 'n'), tooLong(201, 'n'), blanks(67, ' '), nul("nul\0", 4);
  std::string letters;
  for (int i = 0; i < 100; ++i) letters += "Ж";
  const struct {
    std::string given;
    DWORD code;
    std::string file;
  } rows[] = {
      {"simple-1_A",                   0,                    "simple-1_A"         },
      {kPrefix + "behind a reader",    0,                    "behind%20a%20reader"},
      {"\\\\.\\diskvault\\lower",      0,                    "lower"              },
      {"Ключ",                     0,                    "Ключ"           },
      {letters,                        0,                    letters              },
      {"..",                           0,                    "%2E%2E"             },
      {"../../x",                      0,                    "%2E%2E%2F%2E%2E%2Fx"},
      {"%2E%2E",                       0,                    "%252E%252E"         },
      {longest,                        0,                    longest              },
      {tooLong,                        NTE_BAD_KEYSET_PARAM, ""                   },
      {blanks,                         NTE_BAD_KEYSET_PARAM, ""                   },
      {"",                             NTE_BAD_KEYSET_PARAM, ""                   },
      {kPrefix,                        NTE_BAD_KEYSET_PARAM, ""                   },
      {kPrefix + kPrefix + "twice",    NTE_BAD_KEYSET_PARAM, ""                   },
      {kPrefix + "\\\\.\\TOKEN\\name", NTE_BAD_KEYSET_PARAM, ""                   },
      {"line\nfeed",                   NTE_BAD_KEYSET_PARAM, ""                   },
      {nul,                            NTE_BAD_KEYSET_PARAM, ""                   },
      {"\xC0\xAF",                     NTE_BAD_KEYSET_PARAM, ""                   },
      {"\xED\xA0\x80",                 NTE_BAD_KEYSET_PARAM, ""                   },
      {"cut \xD0",                     NTE_BAD_KEYSET_PARAM, ""                   },
      {"\\\\.\\TOKEN\\name",           NTE_KEYSET_NOT_DEF,   ""                   },
      {"\\\\.\\name",                  NTE_KEYSET_NOT_DEF,   ""                   },
  };
  std::vector<std::string> expected, listed;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.given);
    KeySetPtr made;
    EXPECT_EQ(CreateContainer(row.given, Scope::User, made), row.code);
    EXPECT_EQ(CreateContainer(row.given, Scope::User, made), row.code ? row.code : NTE_EXISTS);
    EXPECT_EQ(OpenContainer(row.given, Scope::User, made), row.code);
    if (row.code) continue;
    EXPECT_TRUE(std::filesystem::exists(keys(row.file + "/info")));
    expected.push_back(made->name());
  }
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(ListContainers(Scope::User, listed), 0u);
  EXPECT_EQ(listed, expected);
  KeySetPtr none;
  EXPECT_EQ(OpenContainer("nobody's", Scope::User, none), NTE_KEYSET_NOT_DEF);
  EXPECT_EQ(DeleteContainer("nobody's", Scope::User), NTE_KEYSET_NOT_DEF);
}

// What holds for every key set.
void UseKeySet(KeySet& set, const KeyRecord& key, const KeyRecord& other) {
  KeyRecord found;
  PublicKeyPtr half;
  ALG_ID algorithm = 0;
  bool exportable = true;
  SecretBytes encoded;
  std::vector<ContainerExtension> all;
  EXPECT_EQ(set.load(AT_SIGNATURE, found), NTE_NO_KEY);
  EXPECT_EQ(set.loadPublic(AT_SIGNATURE, half, algorithm, exportable), NTE_NO_KEY);
  EXPECT_EQ(set.setCertificate(AT_SIGNATURE, Bytes("c")), NTE_NO_KEY);
  EXPECT_EQ(set.store(3, key), NTE_BAD_KEY);
  EXPECT_EQ(set.store(AT_SIGNATURE, {key.key, CALG_RSA_SIGN, true}), NTE_BAD_KEY) << "of another family";
  EXPECT_EQ(set.store(AT_SIGNATURE, {nullptr, key.algorithm, true}), NTE_BAD_KEY);

  ASSERT_EQ(set.store(AT_SIGNATURE, key), 0u);
  ASSERT_EQ(set.store(AT_KEYEXCHANGE, {other.key, other.algorithm, false}), 0u);
  ASSERT_EQ(set.load(AT_SIGNATURE, found), 0u);
  EXPECT_EQ(found.key->privateKeyInfo(), key.key->privateKeyInfo());
  EXPECT_EQ(found.algorithm, key.algorithm);
  EXPECT_TRUE(found.exportable);
  ASSERT_EQ(set.loadPublic(AT_KEYEXCHANGE, half, algorithm, exportable), 0u);
  EXPECT_EQ(half->publicKeyInfo(), other.key->publicKey()->publicKeyInfo());
  EXPECT_FALSE(exportable);

  EXPECT_EQ(set.certificate(AT_SIGNATURE, encoded), NTE_NOT_FOUND);
  EXPECT_EQ(set.setCertificate(AT_SIGNATURE, Bytes("first")), 0u);
  EXPECT_EQ(set.setCertificate(AT_KEYEXCHANGE, Bytes("second")), 0u);
  EXPECT_EQ(set.store(AT_KEYEXCHANGE, key), 0u);
  EXPECT_EQ(set.certificate(AT_KEYEXCHANGE, encoded), NTE_NOT_FOUND) << "of the key before";
  EXPECT_EQ(set.certificate(AT_SIGNATURE, encoded), 0u);
  EXPECT_EQ(std::string(encoded.begin(), encoded.end()), "first");
  EXPECT_EQ(set.setCertificate(AT_SIGNATURE, {}), 0u);
  EXPECT_EQ(set.certificate(AT_SIGNATURE, encoded), NTE_NOT_FOUND);

  EXPECT_EQ(set.setExtension({"1.2.3", true, SecretBytes(3, 7)}), 0u);
  EXPECT_EQ(set.setExtension({"1.2.4", false, SecretBytes(1, 8)}), 0u);
  EXPECT_EQ(set.setExtension({"1.2.3 ", false, SecretBytes(2, 9)}), 0u) << "another spelling";
  ASSERT_EQ(set.extensions(all), 0u);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[1].oid, "1.2.3");
  EXPECT_FALSE(all[1].critical);
  EXPECT_EQ(all[1].value, SecretBytes(2, 9));
  for (const char* oid : {"", "1", "3.1", "1.2.x"}) {
    EXPECT_EQ(set.setExtension({oid, false, SecretBytes(1, 7)}), NTE_BAD_DATA) << oid;
  }
  EXPECT_EQ(set.setExtension({"1.2.5", false, SecretBytes(certkern::kMaxContainerFile)}), NTE_BAD_LEN);
  ASSERT_EQ(set.extensions(all), 0u);
  EXPECT_EQ(all.size(), 2u) << "kept though refused";
  EXPECT_EQ(set.setExtension({"1.2.3", false, {}}), 0u);
  EXPECT_EQ(set.setExtension({"1.2.4", false, {}}), 0u);
  EXPECT_EQ(set.extensions(all), 0u);
  EXPECT_TRUE(all.empty());
}

TEST_F(ContainerTest, KeepsWhatItIsGiven) {
  const KeyRecord key = newKey(), other = newKey(Family::Rsa);
  UseKeySet(*NewMemoryKeySet(), key, other);
  const mode_t mask = umask(0);
  UseKeySet(*create(), key, other);
  umask(mask);
  EXPECT_EQ(load(AT_SIGNATURE, key), 0u);
  EXPECT_EQ(load(AT_KEYEXCHANGE, key), 0u);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(keys())) {
    struct stat status {};
    ASSERT_EQ(stat(entry.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, entry.is_directory() ? 0700u : 0600u) << entry.path();
  }
  EXPECT_EQ(snapshot(box()).size(), 5u) << "two keys of two files, and info";
}

TEST_F(ContainerTest, AHandleKnowsItsContainerFromALaterOne) {
  const KeyRecord key = newKey();
  const KeySetPtr before = create();
  ASSERT_EQ(before->store(AT_SIGNATURE, key), 0u);
  EXPECT_EQ(DeleteContainer(kPrefix + "box", Scope::User), 0u);
  KeyRecord found;
  EXPECT_EQ(before->load(AT_SIGNATURE, found), NTE_KEYSET_NOT_DEF) << "what is remembered outlives the key";
  const KeySetPtr after = create();
  EXPECT_EQ(before->store(AT_SIGNATURE, key), NTE_KEYSET_NOT_DEF);
  ASSERT_EQ(after->store(AT_SIGNATURE, key), 0u);
  EXPECT_EQ(before->load(AT_SIGNATURE, found), NTE_KEYSET_NOT_DEF);
  // one handle replaces the key under another
  const KeyRecord newer = newKey();
  ASSERT_EQ(after->load(AT_SIGNATURE, found), 0u);
  ASSERT_EQ(open()->store(AT_SIGNATURE, newer), 0u);
  ASSERT_EQ(after->load(AT_SIGNATURE, found), 0u);
  EXPECT_EQ(found.key->privateKeyInfo(), newer.key->privateKeyInfo());
}

TEST_F(ContainerTest, Pins) {
  const KeyRecord key = newKey(), other = newKey();
  KeySetPtr set = create();
  EXPECT_EQ(set->presentPin(Bytes("1234")), 0u);
  ASSERT_EQ(set->store(AT_SIGNATURE, key), 0u);
  EXPECT_FALSE(set->needsPin());
  EXPECT_EQ(load(AT_SIGNATURE, key), SCARD_W_CARD_NOT_AUTHENTICATED);
  EXPECT_EQ(load(AT_SIGNATURE, key, "1235"), SCARD_W_WRONG_CHV);
  EXPECT_EQ(load(AT_SIGNATURE, key, ""), SCARD_W_WRONG_CHV);
  EXPECT_EQ(load(AT_SIGNATURE, key, "1234"), 0u);

  const KeySetPtr second = open();
  PublicKeyPtr half;
  ALG_ID algorithm = 0;
  bool exportable = false;
  EXPECT_TRUE(second->needsPin());
  EXPECT_EQ(second->loadPublic(AT_SIGNATURE, half, algorithm, exportable), 0u);
  EXPECT_EQ(second->store(AT_KEYEXCHANGE, other), SCARD_W_CARD_NOT_AUTHENTICATED);
  EXPECT_EQ(second->changePin(Bytes("5")), SCARD_W_CARD_NOT_AUTHENTICATED);
  EXPECT_EQ(second->presentPin(Bytes("1234")), 0u);
  EXPECT_EQ(second->presentPin(Bytes("1235")), SCARD_W_WRONG_CHV) << "though the key is open already";
  EXPECT_EQ(second->store(AT_KEYEXCHANGE, other), 0u) << "under the PIN before";
  EXPECT_EQ(second->changePin(Bytes("новый")), 0u);
  EXPECT_EQ(load(AT_KEYEXCHANGE, other, "1234"), SCARD_W_WRONG_CHV);
  EXPECT_EQ(load(AT_KEYEXCHANGE, other, "новый"), 0u);
  EXPECT_EQ(load(AT_SIGNATURE, key, "новый"), 0u);

  KeyRecord found;
  EXPECT_EQ(second->load(AT_SIGNATURE, found), 0u) << "it knows the PIN that it set";
  EXPECT_EQ(set->load(AT_SIGNATURE, found), SCARD_W_WRONG_CHV)
      << "its PIN is no longer that of the container";
  EXPECT_EQ(set->store(AT_KEYEXCHANGE, other), SCARD_W_WRONG_CHV) << "two PINs in one container";

  EXPECT_EQ(second->changePin({}), 0u);
  EXPECT_EQ(load(AT_SIGNATURE, key), 0u);
  EXPECT_EQ(load(AT_KEYEXCHANGE, other, "any"), 0u) << "none is needed";
  set = open();
  EXPECT_EQ(set->presentPin(Bytes("any")), 0u);
  EXPECT_EQ(set->store(AT_KEYEXCHANGE, other), 0u);
  EXPECT_EQ(load(AT_KEYEXCHANGE, other), 0u) << "a PIN that nobody needed seals nothing";

  EXPECT_EQ(DeleteContainer("box", Scope::User), 0u);
  set = create();
  EXPECT_EQ(set->presentPin(Bytes("1234")), 0u);
  EXPECT_EQ(open()->store(AT_SIGNATURE, key), 0u);
  EXPECT_EQ(set->store(AT_KEYEXCHANGE, other), 0u);
  EXPECT_EQ(load(AT_KEYEXCHANGE, other), 0u) << "one of two keys under a PIN";
}

// A key whose encoding can turn into that of another, as by a fault of memory or of a library.
class FaultyKey final : public PrivateKey {
 public:
  explicit FaultyKey(PrivateKeyPtr key) : key_(std::move(key)) {}
  PublicKeyPtr publicKey() const override { return key_->publicKey(); }
  SecretBytes privateKeyInfo() const override { return encoded; }
  DWORD signatureSize() const override { return key_->signatureSize(); }
  DWORD sign(const SignatureInput& input, SecretBytes& signature) const override {
    return key_->sign(input, signature);
  }
  SecretBytes encoded;

 private:
  const PrivateKeyPtr key_;
};

TEST_F(ContainerTest, AWrongPrivateKeyIsNotWritten) {
  const KeyRecord right = newKey(), wrong = newKey();
  const SecretBytes good = right.key->privateKeyInfo();
  const auto faulty = std::make_shared<FaultyKey>(right.key);
  const KeyRecord record{faulty, right.algorithm, true};
  SecretBytes sealed;
  ASSERT_EQ(SealPrivateKeyInfo(good, Bytes("1"), sealed), 0u);
  const SecretBytes bad[] = {
      {              },
      wrong.key->privateKeyInfo(), { good.begin(), good.end() - 1},
      sealed
  };
  for (const char* pin : {"", "1"}) {
    const KeySetPtr set = create();
    ASSERT_EQ(set->presentPin(Bytes(pin)), 0u);
    const auto refuse = [&](const auto& change) {
      const Files before = snapshot(box());
      for (const SecretBytes& encoded : bad) {
        faulty->encoded = encoded;
        EXPECT_EQ(change(), NTE_FAIL) << pin << " " << encoded.size();
        EXPECT_EQ(snapshot(box()), before);
      }
    };
    refuse([&] { return set->store(AT_SIGNATURE, record); });
    faulty->encoded = good;
    ASSERT_EQ(set->store(AT_SIGNATURE, record), 0u);
    refuse([&] { return set->changePin(Bytes("2")); });
    EXPECT_EQ(load(AT_SIGNATURE, right, pin), 0u);
    EXPECT_EQ(DeleteContainer("box", Scope::User), 0u);
  }
}

TEST_F(ContainerTest, OthersOpenTheFiles) {
  for (const Family family : {Family::Rsa, Family::Ec, Family::EdDsa}) {
    for (const std::string pin : {"", "1234"}) {
      SCOPED_TRACE(std::to_string(static_cast<int>(family)) + " " + pin);
      const KeyRecord key = newKey(family);
      const KeySetPtr set = create();
      EXPECT_EQ(set->presentPin(Bytes(pin)), 0u);
      ASSERT_EQ(set->store(AT_KEYEXCHANGE, key), 0u);
      const std::string in = " -inform DER -in " + box();
      bench_.run("pkey" + in + "private-1.p8 -pubout -outform DER -out p1"
                 + (pin.empty() ? "" : " -passin pass:" + pin));
      bench_.run("pkey -pubin" + in + "public-1.der -pubout -outform DER -out p2");
      EXPECT_EQ(bench_.read("p1"), bench_.read("p2"));
      EXPECT_EQ(bench_.succeeds("pkey" + in + "private-1.p8 -passin pass:0"), pin.empty());
      EXPECT_EQ(DeleteContainer("box", Scope::User), 0u);
    }
  }
}

TEST_F(ContainerTest, OneOfManyMakersWins) {
  for (int round = 0; round < 10; ++round) {
    std::atomic<int> made = 0, refused = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        KeySetPtr set;
        const DWORD code = CreateContainer("box", Scope::User, set);
        (code == 0 ? made : refused) += code == 0 || code == NTE_EXISTS;
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(made, 1);
    EXPECT_EQ(refused, 3);
    EXPECT_EQ(DeleteContainer("box", Scope::User), 0u);
  }
}

TEST_F(ContainerTest, ReadersAndWritersMeet) {
  const KeyRecord one = newKey(), two = newKey();
  const KeySetPtr shared = create();
  ASSERT_EQ(shared->store(AT_SIGNATURE, one), 0u);
  std::atomic<bool> done = false;
  std::atomic<int> wrong = 0;
  const auto read = [&] {
    while (!done) {
      KeySetPtr own;
      KeyRecord found;
      PublicKeyPtr half;
      ALG_ID algorithm = 0;
      bool exportable = false;
      wrong += tryOpen(own) != 0 || own->load(AT_SIGNATURE, found) != 0;
      wrong += shared->load(AT_SIGNATURE, found) != 0;
      wrong += shared->loadPublic(AT_SIGNATURE, half, algorithm, exportable) != 0;
    }
  };
  std::thread first(read), second(read);
  for (int i = 0; i < 50; ++i) wrong += shared->store(AT_SIGNATURE, i % 2 ? one : two) != 0;
  done = true;
  first.join();
  second.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
