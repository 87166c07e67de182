// Building and verifying a path of a leaf, an intermediate and a root, beside X509_verify_cert.
//
// Kept: contexts, stores, lists and the engine live on, as OpenSSL's objects do; the argument is the number of unrelated
// certificates that lie in the store beside the intermediate. FromBytes: all is decoded anew. With lists, both sides ask
// one for the leaf and one for the intermediate. Installed: the user's own engine over system stores on disk, with the
// distribution's roots and 200 intermediates, beside an X509_STORE that was filled once. Arrived: the same with a leaf that
// is decoded for each build, as a program meets those of its peers. "verifying" is the share of our time inside the
// provider's hashing and verification, "keys" the share in which keys come there; "signatures" is how many a build
// verifies.
#include <dlfcn.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

// behind OpenSSL's headers: both define X509_NAME, there a type and here a number
#include <certkern/chain.h>
#include <certkern/keykern.h>
#include <certkern/store.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "gost_plug_in.h"
#include "platform/owner.h"
#include "platform/temporary_directory.h"
#include "take_turns.h"

namespace {

// --- what is spent at the key level: its functions stand here before its own ---

struct Spent {
  bool counted = false;
  double verifying = 0;
  double keys = 0;
  int signatures = 0;
};
Spent g_spent;

template <class Function, class... Arguments>
BOOL Timed(const char* name, double Spent::*part, Arguments... arguments) {
  const auto function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
  const double start = certkern::bench::Now();
  const BOOL done = function(arguments...);
  g_spent.*part += certkern::bench::Now() - start;
  return done;
}

}  // namespace

extern "C" BOOL CryptVerifySignatureA(HCRYPTHASH hash, const BYTE* signature, DWORD size, HCRYPTKEY key,
                                      LPCSTR description, DWORD flags) {
  static auto* const next = reinterpret_cast<decltype(&CryptVerifySignatureA)>(dlsym(RTLD_NEXT, __func__));
  if (!g_spent.counted) return next(hash, signature, size, key, description, flags);
  ++g_spent.signatures;
  return Timed<decltype(CryptVerifySignatureA)>(__func__, &Spent::verifying, hash, signature, size, key,
                                                description, flags);
}

extern "C" BOOL CryptHashData(HCRYPTHASH hash, const BYTE* data, DWORD size, DWORD flags) {
  static auto* const next = reinterpret_cast<decltype(&CryptHashData)>(dlsym(RTLD_NEXT, __func__));
  if (!g_spent.counted) return next(hash, data, size, flags);
  return Timed<decltype(CryptHashData)>(__func__, &Spent::verifying, hash, data, size, flags);
}

extern "C" BOOL CryptImportKey(HCRYPTPROV provider, const BYTE* data, DWORD size, HCRYPTKEY with, DWORD flags,
                               HCRYPTKEY* key) {
  static auto* const next = reinterpret_cast<decltype(&CryptImportKey)>(dlsym(RTLD_NEXT, __func__));
  if (!g_spent.counted) return next(provider, data, size, with, flags, key);
  return Timed<decltype(CryptImportKey)>(__func__, &Spent::keys, provider, data, size, with, flags, key);
}

namespace {

void Require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

// --- the objects ---

const certkern::test::TemporaryDirectory& Directory() {
  static const certkern::test::TemporaryDirectory directory;
  return directory;
}

constexpr std::string_view kMark = "unrelated 000000";

// All kinds at once; the names of the files begin with the kind.
void MakeObjects() {
  static const bool made = [] {
    std::string table;
    for (const std::string kind : {"rsa", "p256", "gost256"}) {
      table += "cert " + kind + "-root||" + kind + "||2020..2040|ca\n";
      table += "cert " + kind + "-inter|" + kind + "-root|" + kind + "||2020..2040|ca\n";
      table += "cert " + kind + "-leaf|" + kind + "-inter|" + kind + "||2020..2040|ids\n";
      table += "crl " + kind + "-upper|" + kind + "-root|\n";
      table += "crl " + kind + "-lower|" + kind + "-inter|\n";
    }
    table += "cert other||p256|/CN=" + std::string(kMark) + "||subjectKeyIdentifier = ";
    constexpr char kDigits[] = "0123456789ABCDEF";
    for (const char c : kMark) table.append({kDigits[c >> 4], kDigits[c & 15]});
    const std::string rows = Directory().write("rows.in", table + "\n");
    const std::string command = "sh '" CERTKERN_SOURCE_DIR "/tests/data/make_chains.sh' '"
        + Directory().path("") + "' <'" + rows + "' >&2";
    return std::system(command.c_str()) == 0;
  }();
  Require(made, "openssl has made no objects");
}

struct Encoded {
  explicit Encoded(const std::string& kind) {
    MakeObjects();
    const auto read = [&](const char* name) { return Directory().read(kind + name); };
    leaf = read("-leaf.crt");
    authorities = {read("-inter.crt"), read("-root.crt")};
    lists = {read("-lower.crl"), read("-upper.crl")};
  }
  std::string leaf;
  std::vector<std::string> authorities;  // the root last
  std::vector<std::string> lists;
};

const std::vector<std::string>& Unrelated(size_t count) {
  static std::vector<std::string> certificates;
  MakeObjects();
  const std::string pattern = certificates.size() < count ? Directory().read("other.crt") : "";
  while (certificates.size() < count) {
    std::string digits = std::to_string(certificates.size());
    digits.insert(0, 6 - digits.size(), '0');
    std::string& made = certificates.emplace_back(pattern);
    for (size_t at = 0; (at = made.find(kMark, at)) != made.npos; at += kMark.size())
      made.replace(at + kMark.size() - digits.size(), digits.size(), digits);
  }
  return certificates;
}

// --- ours ---

using Store = certkern::Owner<HCERTSTORE, CertCloseStore>;
using Context = certkern::Owner<PCCERT_CONTEXT, CertFreeCertificateContext>;
using Engine = certkern::Owner<HCERTCHAINENGINE, CertFreeCertificateChainEngine>;
using ChainOwner = certkern::Owner<PCCERT_CHAIN_CONTEXT, CertFreeCertificateChain>;

const BYTE* Data(const std::string& text) { return reinterpret_cast<const BYTE*>(text.data()); }
DWORD Size(const std::string& text) { return static_cast<DWORD>(text.size()); }

class Ours {
 public:
  Ours(const Encoded& encoded, bool withLists, size_t unrelated)
      : leaf_(CertCreateCertificateContext(X509_ASN_ENCODING, Data(encoded.leaf), Size(encoded.leaf))),
        flags_(CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY | CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL
               | (withLists ? CERT_CHAIN_REVOCATION_CHECK_CHAIN : 0)) {
    for (size_t i = 0; i < unrelated; ++i) add(others_, Unrelated(unrelated)[i]);
    add(others_, encoded.authorities[0]);
    add(roots_, encoded.authorities[1]);
    for (size_t i = 0; withLists && i < encoded.lists.size(); ++i) {
      Require(CertAddEncodedCRLToStore(others_.get(), X509_ASN_ENCODING, Data(encoded.lists[i]),
                                       Size(encoded.lists[i]), CERT_STORE_ADD_ALWAYS, nullptr),
              "a list is refused");
    }
    CERT_CHAIN_ENGINE_CONFIG config{};
    config.cbSize = sizeof config;
    config.hExclusiveRoot = roots_.get();
    config.hRestrictedOther = others_.get();
    Require(CertCreateCertificateChainEngine(&config, engine_.out()), "no engine");
  }

  // The user's engine.
  explicit Ours(const Encoded& encoded)
      : leaf_(CertCreateCertificateContext(X509_ASN_ENCODING, Data(encoded.leaf), Size(encoded.leaf))),
        flags_(CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY | CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL) {}

  void verify() const {
    CERT_CHAIN_PARA para{};
    para.cbSize = sizeof para;
    ChainOwner chain;
    Require(CertGetCertificateChain(engine_.get(), leaf_.get(), nullptr, nullptr, &para, flags_, nullptr,
                                    chain.out()),
            "no chain");
    Require(chain->TrustStatus.dwErrorStatus == 0 && chain->rgpChain[0]->cElement == 3, "certkern refuses");
  }

 private:
  static Store Open() { return Store(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr)); }
  static void add(const Store& store, const std::string& der) {
    Require(CertAddEncodedCertificateToStore(store.get(), X509_ASN_ENCODING, Data(der), Size(der),
                                             CERT_STORE_ADD_ALWAYS, nullptr),
            "a certificate is refused");
  }

  const Store roots_ = Open(), others_ = Open();
  const Context leaf_;
  const DWORD flags_;
  Engine engine_;
};

// --- theirs ---

template <auto kFree>
struct Release {
  template <typename T>
  void operator()(T* object) const {
    kFree(object);
  }
};
using TheirCertificate = std::unique_ptr<X509, Release<X509_free>>;
using TheirList = std::unique_ptr<X509_CRL, Release<X509_CRL_free>>;
using TheirStore = std::unique_ptr<X509_STORE, Release<X509_STORE_free>>;
using TheirVerifier = std::unique_ptr<X509_STORE_CTX, Release<X509_STORE_CTX_free>>;

class Theirs {
 public:
  Theirs(const Encoded& encoded, bool withLists, size_t unrelated)
      : store_(X509_STORE_new()), leaf_(Decode(encoded.leaf)) {
    for (size_t i = 0; i < unrelated; ++i) add(Unrelated(unrelated)[i]);
    for (const std::string& each : encoded.authorities) add(each);
    for (size_t i = 0; withLists && i < encoded.lists.size(); ++i) {
      const BYTE* at = Data(encoded.lists[i]);
      const TheirList list(d2i_X509_CRL(nullptr, &at, static_cast<long>(encoded.lists[i].size())));
      Require(X509_STORE_add_crl(store_.get(), list.get()) == 1, "OpenSSL refuses a list");
    }
    if (withLists) X509_STORE_set_flags(store_.get(), X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL);
  }

  void add(const std::vector<std::string>& certificates) {
    for (const std::string& each : certificates) add(each);
  }

  void verify() const { verify(leaf_); }
  void verifyArrived(const std::string& leaf) const { verify(Decode(leaf)); }

 private:
  static TheirCertificate Decode(const std::string& der) {
    const BYTE* at = Data(der);
    return TheirCertificate(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
  }
  void verify(const TheirCertificate& leaf) const {
    const TheirVerifier verifier(X509_STORE_CTX_new());
    X509_STORE_CTX_init(verifier.get(), store_.get(), leaf.get(), nullptr);
    Require(X509_verify_cert(verifier.get()) == 1, "OpenSSL refuses");
  }
  void add(const std::string& der) {
    Require(X509_STORE_add_cert(store_.get(), Decode(der).get()) == 1, "OpenSSL refuses a certificate");
  }

  TheirStore store_;
  TheirCertificate leaf_;
};

// --- an installation ---

// The configuration is read once, before any store is opened. Who else needs a user's directory may name another.
const bool kConfigured = [] {
  std::filesystem::create_directory(Directory().path("machine"));
  std::filesystem::permissions(Directory().path("machine"), std::filesystem::perms::owner_all);
  const std::string configuration =
      Directory().write("config.toml", "[paths]\nglobal_stores = '" + Directory().path("machine") + "'\n");
  return setenv("CERTKERN_CONFIG", configuration.c_str(), 1) == 0
      && setenv("XDG_DATA_HOME", Directory().path("").c_str(), 1) == 0;
}();

std::vector<std::string> RootsOfTheDistribution() {
  std::vector<std::string> roots;
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen("/etc/ssl/certs/ca-certificates.crt", "r"), fclose);
  while (file) {
    const TheirCertificate certificate(PEM_read_X509(file.get(), nullptr, nullptr, nullptr));
    if (!certificate) break;
    BYTE* bytes = nullptr;
    const int size = i2d_X509(certificate.get(), &bytes);
    Require(size > 0, "a root of the distribution is refused");
    roots.emplace_back(reinterpret_cast<const char*>(bytes), static_cast<size_t>(size));
    OPENSSL_free(bytes);
  }
  return roots;
}

void FillSystemStore(const wchar_t* name, DWORD location, const std::vector<std::string>& certificates) {
  const Store store(CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0, location, name));
  Require(static_cast<bool>(store), "a system store can't be opened");
  for (const std::string& each : certificates) {
    Require(CertAddEncodedCertificateToStore(store.get(), X509_ASN_ENCODING, Data(each), Size(each),
                                             CERT_STORE_ADD_ALWAYS, nullptr),
            "a system store refuses a certificate");
  }
}

struct Installation {
  std::vector<std::string> roots = RootsOfTheDistribution();
  std::vector<std::string> intermediates = Unrelated(200);

  Installation() {
    for (const char* kind : {"rsa", "p256", "gost256"}) {
      const Encoded encoded(kind);
      intermediates.push_back(encoded.authorities[0]);
      roots.push_back(encoded.authorities[1]);
    }
    const auto half = intermediates.begin() + static_cast<ptrdiff_t>(intermediates.size() / 2);
    FillSystemStore(L"Root", CERT_SYSTEM_STORE_LOCAL_MACHINE, roots);
    FillSystemStore(L"Root", CERT_SYSTEM_STORE_CURRENT_USER, {});
    FillSystemStore(L"CA", CERT_SYSTEM_STORE_CURRENT_USER, {intermediates.begin(), half});
    FillSystemStore(L"CA", CERT_SYSTEM_STORE_LOCAL_MACHINE, {half, intermediates.end()});
    std::this_thread::sleep_for(std::chrono::seconds(3));  // files that were just written are read each time
  }
};

const Installation& TheInstallation() {
  static const Installation installation;
  return installation;
}

// --- the comparison ---

enum class Lists { None, Both };

void TellWhereTimeGoes(benchmark::State& state, int times, const std::function<void()>& ours) {
  g_spent = {true};
  const double all = certkern::bench::SecondsOf(ours, times);
  g_spent.counted = false;
  state.counters["verifying"] = g_spent.verifying / all;
  state.counters["keys"] = g_spent.keys / all;
  state.counters["signatures"] = static_cast<double>(g_spent.signatures) / times;
}

void Compare(benchmark::State& state, const std::function<void()>& ours,
             const std::function<void()>& theirs) {
  constexpr int kBatch = 20;
  certkern::bench::TakeTurns(state, kBatch, 1, ours, theirs);
  TellWhereTimeGoes(state, 10 * kBatch, ours);
}

Encoded Objects(const std::string& kind) {
  Encoded objects(kind);
  if (kind == "gost256") Require(certkern::bench::LoadGostPlugIn(), "OpenSSL has no GOST plug-in");
  return objects;
}

void Kept(benchmark::State& state, const char* kind, Lists lists) {
  const Encoded encoded = Objects(kind);
  const auto unrelated = static_cast<size_t>(state.range(0));
  const Ours ours(encoded, lists == Lists::Both, unrelated);
  const Theirs theirs(encoded, lists == Lists::Both, unrelated);
  Compare(
      state, [&] { ours.verify(); }, [&] { theirs.verify(); });
}

void FromBytes(benchmark::State& state, const char* kind, Lists lists) {
  const Encoded encoded = Objects(kind);
  Compare(
      state, [&] { Ours(encoded, lists == Lists::Both, 0).verify(); },
      [&] { Theirs(encoded, lists == Lists::Both, 0).verify(); });
}

enum class Leaf { Kept, Arrived };

void Installed(benchmark::State& state, const char* kind, Leaf leaf) {
  const Encoded encoded = Objects(kind);
  const Installation& installation = TheInstallation();
  const Ours ours(encoded);
  Theirs theirs(encoded, false, 0);
  for (const auto* each : {&installation.roots, &installation.intermediates}) theirs.add(*each);
  if (leaf == Leaf::Kept) {
    Compare(
        state, [&] { ours.verify(); }, [&] { theirs.verify(); });
  } else {
    Compare(
        state, [&] { Ours(encoded).verify(); }, [&] { theirs.verifyArrived(encoded.leaf); });
  }
}

// So many batches: the library's own time asks for thousands, of which OpenSSL needs minutes.
constexpr int kBatches = 100;

#define CERTKERN_CHAINS(kind)                                                                                \
  BENCHMARK_CAPTURE(Kept, kind, #kind, Lists::None)                                                          \
      ->Arg(0)                                                                                               \
      ->Arg(1000)                                                                                            \
      ->Arg(10000)                                                                                           \
      ->Iterations(kBatches)                                                                                 \
      ->UseManualTime();                                                                                     \
  BENCHMARK_CAPTURE(Kept, kind##_lists, #kind, Lists::Both)                                                  \
      ->Arg(0)                                                                                               \
      ->Arg(1000)                                                                                            \
      ->Arg(10000)                                                                                           \
      ->Iterations(kBatches)                                                                                 \
      ->UseManualTime();                                                                                     \
  BENCHMARK_CAPTURE(Installed, kind, #kind, Leaf::Kept)->Iterations(kBatches)->UseManualTime();              \
  BENCHMARK_CAPTURE(Installed, kind##_arrived, #kind, Leaf::Arrived)->Iterations(kBatches)->UseManualTime(); \
  BENCHMARK_CAPTURE(FromBytes, kind, #kind, Lists::None)->UseManualTime();                                   \
  BENCHMARK_CAPTURE(FromBytes, kind##_lists, #kind, Lists::Both)->UseManualTime()
CERTKERN_CHAINS(rsa);
CERTKERN_CHAINS(p256);
CERTKERN_CHAINS(gost256);

}  // namespace
