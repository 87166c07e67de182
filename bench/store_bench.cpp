// Stores of certificates beside OpenSSL's, whose store finds by subject only and whose stacks are walked. The
// certificates differ in serial number, subject and key identifier; their signatures are one and the same, for nobody
// verifies them. Times are for one certificate where many are handled.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <openssl/evp.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

using OpenSslName = X509_NAME;

// behind OpenSSL's headers: both define X509_NAME, there a type and here a number
#include <certkern/find.h>
#include <certkern/store.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/owner.h"

namespace {

using Bytes = std::vector<BYTE>;
using Store = certkern::Owner<HCERTSTORE, CertCloseStore>;
using Context = certkern::Owner<PCCERT_CONTEXT, CertFreeCertificateContext>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

// --- certificates by template ---

constexpr std::string_view kSerialMark = "@SERIAL@", kSubjectMark = "@SUBJ@", kKeyMark = "@KEYIDENTIFIER@";
constexpr size_t kDigits = 6;
static_assert(kSubjectMark.size() == kDigits);

void Check(bool done) {
  if (!done) std::abort();
}

void AddExtension(X509* certificate, int id, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, &context, id, value);
  Check(extension && X509_add_ext(certificate, extension, -1));
  X509_EXTENSION_free(extension);
}

void AddKeyIdentifier(X509* certificate) {
  ASN1_OCTET_STRING* const mark = ASN1_OCTET_STRING_new();
  ASN1_OCTET_STRING_set(mark, reinterpret_cast<const BYTE*>(kKeyMark.data()), kKeyMark.size());
  Check(X509_add1_ext_i2d(certificate, NID_subject_key_identifier, mark, 0, 0));
  ASN1_OCTET_STRING_free(mark);
}

void AddAttribute(OpenSslName* name, const char* key, std::string_view value) {
  Check(X509_NAME_add_entry_by_txt(name, key, MBSTRING_UTF8, reinterpret_cast<const BYTE*>(value.data()),
                                   static_cast<int>(value.size()), -1, 0));
}

Bytes MakeTemplate() {
  EVP_PKEY* const key = EVP_EC_gen("P-256");
  X509* const certificate = X509_new();
  X509_set_version(certificate, X509_VERSION_3);
  ASN1_INTEGER* const serial = ASN1_INTEGER_new();
  ASN1_STRING_set(serial, kSerialMark.data(), kSerialMark.size());
  X509_set_serialNumber(certificate, serial);
  ASN1_INTEGER_free(serial);
  X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate), 3600L * 24 * 365);
  OpenSslName* const issuer = X509_NAME_new();
  AddAttribute(issuer, "C", "DE");
  AddAttribute(issuer, "O", "An Authority");
  AddAttribute(issuer, "CN", "Issuing CA 1");
  X509_set_issuer_name(certificate, issuer);
  X509_NAME_free(issuer);
  OpenSslName* const subject = X509_get_subject_name(certificate);
  AddAttribute(subject, "C", "DE");
  AddAttribute(subject, "O", "A Company");
  AddAttribute(subject, "CN", "Employee " + std::string(kSubjectMark));
  X509_set_pubkey(certificate, key);
  AddExtension(certificate, NID_basic_constraints, "critical,CA:FALSE");
  AddExtension(certificate, NID_key_usage, "digitalSignature");
  AddKeyIdentifier(certificate);
  Check(X509_sign(certificate, key, EVP_sha256()) > 0);
  BYTE* encoded = nullptr;
  const int size = i2d_X509(certificate, &encoded);
  Check(size > 0);
  const Bytes bytes(encoded, encoded + size);
  OPENSSL_free(encoded);
  X509_free(certificate);
  EVP_PKEY_free(key);
  return bytes;
}

void Patch(Bytes& bytes, std::string_view mark, size_t number) {
  const auto at = std::search(bytes.begin(), bytes.end(), mark.begin(), mark.end());
  Check(at != bytes.end());
  const std::string digits = std::to_string(number);
  std::fill_n(at, kDigits, '0');
  std::copy(digits.begin(), digits.end(), at + static_cast<std::ptrdiff_t>(kDigits - digits.size()));
}

Bytes MakeCertificate(size_t number) {
  static const Bytes kTemplate = MakeTemplate();
  Bytes bytes = kTemplate;
  for (const std::string_view mark : {kSerialMark, kSubjectMark, kKeyMark}) Patch(bytes, mark, number);
  return bytes;
}

const std::vector<Bytes>& Certificates(size_t count) {
  static std::vector<Bytes> certificates;
  while (certificates.size() < count) certificates.push_back(MakeCertificate(certificates.size()));
  return certificates;
}

size_t CountOf(const benchmark::State& state) { return static_cast<size_t>(state.range(0)); }

void CountCertificates(benchmark::State& state) {
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
  state.counters["each"] =
      benchmark::Counter(static_cast<double>(state.range(0)),
                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Blocks that are mapped count as well.
size_t AllocatedBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// --- ours ---

Store OpenMemory() { return Store(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr)); }

void Add(const Store& store, const Bytes& bytes, DWORD disposition) {
  const auto size = static_cast<DWORD>(bytes.size());
  Check(CertAddEncodedCertificateToStore(store.get(), X509_ASN_ENCODING, bytes.data(), size, disposition,
                                         nullptr));
}

Store Filled(size_t count, DWORD disposition) {
  Store store = OpenMemory();
  for (size_t i = 0; i < count; ++i) Add(store, Certificates(count)[i], disposition);
  return store;
}

// One for each size, for all searches.
HCERTSTORE SharedStore(size_t count) {
  static std::map<size_t, Store> stores;
  auto at = stores.find(count);
  if (at == stores.end()) at = stores.emplace(count, Filled(count, CERT_STORE_ADD_ALWAYS)).first;
  return at->second.get();
}

// The parameters of searches that hit certificates all over the store.
struct Wanted {
  Context context;
  std::array<BYTE, 20> sha1;
  Bytes keyIdentifier;
};
std::vector<Wanted> WantedOf(size_t count) {
  constexpr size_t kSamples = 64;
  std::vector<Wanted> all;
  for (size_t i = 0; i < kSamples; ++i) {
    const Bytes& bytes = Certificates(count)[i * (count - 1) / kSamples];
    Wanted& wanted = all.emplace_back();
    wanted.context.reset(
        CertCreateCertificateContext(X509_ASN_ENCODING, bytes.data(), static_cast<DWORD>(bytes.size())));
    DWORD size = wanted.sha1.size();
    Check(CertGetCertificateContextProperty(wanted.context.get(), CERT_SHA1_HASH_PROP_ID, wanted.sha1.data(),
                                            &size));
    Check(
        CertGetCertificateContextProperty(wanted.context.get(), CERT_KEY_IDENTIFIER_PROP_ID, nullptr, &size));
    wanted.keyIdentifier.resize(size);
    Check(CertGetCertificateContextProperty(wanted.context.get(), CERT_KEY_IDENTIFIER_PROP_ID,
                                            wanted.keyIdentifier.data(), &size));
  }
  return all;
}

void Find(benchmark::State& state, DWORD type) {
  const HCERTSTORE store = SharedStore(CountOf(state));
  std::vector<Wanted> wanted = WantedOf(CountOf(state));
  std::vector<std::array<CRYPT_DATA_BLOB, 2>> blobs;
  for (Wanted& each : wanted) {
    blobs.push_back({
        CRYPT_DATA_BLOB{20,                                            each.sha1.data()         },
        {static_cast<DWORD>(each.keyIdentifier.size()), each.keyIdentifier.data()}
    });
  }
  size_t at = 0;
  for (auto _ : state) {
    const size_t i = at++ % wanted.size();
    const CERT_INFO* const info = wanted[i].context->pCertInfo;
    const void* parameter = type == CERT_FIND_SHA1_HASH ? static_cast<const void*>(&blobs[i][0])
        : type == CERT_FIND_KEY_IDENTIFIER              ? &blobs[i][1]
        : type == CERT_FIND_SUBJECT_NAME                ? static_cast<const void*>(&info->Subject)
                                                        : info;
    const Context found(CertFindCertificateInStore(store, X509_ASN_ENCODING, 0, type, parameter, nullptr));
    if (!found) state.SkipWithError("not found");
  }
}

void AddAll(benchmark::State& state, DWORD disposition) {
  Certificates(CountOf(state));
  for (auto _ : state) benchmark::DoNotOptimize(Filled(CountOf(state), disposition).get());
  CountCertificates(state);
}

void Enumerate(benchmark::State& state) {
  const HCERTSTORE store = SharedStore(CountOf(state));
  for (auto _ : state) {
    PCCERT_CONTEXT at = nullptr;
    size_t count = 0;
    while ((at = CertEnumCertificatesInStore(store, at))) ++count;
    Check(count == CountOf(state));
  }
  CountCertificates(state);
}

Bytes SavedToMemory(HCERTSTORE store) {
  CRYPT_DATA_BLOB blob{};
  Check(CertSaveStore(store, 0, CERT_STORE_SAVE_AS_STORE, CERT_STORE_SAVE_TO_MEMORY, &blob, 0));
  Bytes bytes(blob.cbData);
  blob.pbData = bytes.data();
  Check(CertSaveStore(store, 0, CERT_STORE_SAVE_AS_STORE, CERT_STORE_SAVE_TO_MEMORY, &blob, 0));
  return bytes;
}

void Save(benchmark::State& state) {
  const HCERTSTORE store = SharedStore(CountOf(state));
  for (auto _ : state) benchmark::DoNotOptimize(SavedToMemory(store).data());
  CountCertificates(state);
}

Store Load(const Bytes& image) {
  const CRYPT_DATA_BLOB blob{static_cast<DWORD>(image.size()), const_cast<BYTE*>(image.data())};
  return Store(CertOpenStore(CERT_STORE_PROV_SERIALIZED, 0, 0, 0, &blob));
}

void Open(benchmark::State& state) {
  const Bytes image = SavedToMemory(SharedStore(CountOf(state)));
  const size_t before = AllocatedBytes();
  const Store held = Load(image);
  state.counters["bytes"] =
      static_cast<double>(AllocatedBytes() - before) / static_cast<double>(state.range(0));
  for (auto _ : state) Check(Load(image).get());
  CountCertificates(state);
}

// Once every key of the index was asked for.
void IndexedBytes(benchmark::State& state) {
  const Bytes image = SavedToMemory(SharedStore(CountOf(state)));
  std::vector<Wanted> wanted = WantedOf(CountOf(state));
  CERT_INFO* const info = wanted[0].context->pCertInfo;
  CRYPT_DATA_BLOB hash{20, wanted[0].sha1.data()};
  CRYPT_DATA_BLOB key{static_cast<DWORD>(wanted[0].keyIdentifier.size()), wanted[0].keyIdentifier.data()};
  const std::pair<DWORD, const void*> kSearches[] = {
      {CERT_FIND_SHA1_HASH,      &hash         },
      {CERT_FIND_KEY_IDENTIFIER, &key          },
      {CERT_FIND_SUBJECT_NAME,   &info->Subject},
      {CERT_FIND_SUBJECT_CERT,   info          }
  };
  for (auto _ : state) {
    const size_t before = AllocatedBytes();
    const Store store = Load(image);
    for (const auto& [type, parameter] : kSearches) {
      Check(Context(CertFindCertificateInStore(store.get(), 1, 0, type, parameter, nullptr)).get());
    }
    state.counters["bytes"] =
        static_cast<double>(AllocatedBytes() - before) / static_cast<double>(state.range(0));
  }
  CountCertificates(state);
}

// A list of so many bytes: most of them in an extension, so that making it takes no time.
Bytes MakeList(size_t size) {
  EVP_PKEY* const key = EVP_EC_gen("P-256");
  X509_CRL* const list = X509_CRL_new();
  X509_CRL_set_version(list, X509_CRL_VERSION_2);
  OpenSslName* const issuer = X509_NAME_new();
  AddAttribute(issuer, "CN", "Issuing CA 1");
  X509_CRL_set_issuer_name(list, issuer);
  X509_NAME_free(issuer);
  ASN1_TIME* const now = X509_gmtime_adj(nullptr, 0);
  X509_CRL_set1_lastUpdate(list, now);
  ASN1_TIME_free(now);
  ASN1_OCTET_STRING* const value = ASN1_OCTET_STRING_new();
  const Bytes filling(size);
  ASN1_OCTET_STRING_set(value, filling.data(), static_cast<int>(size));
  ASN1_OBJECT* const id = OBJ_txt2obj("1.2.3.4", 1);
  X509_EXTENSION* const extension = X509_EXTENSION_create_by_OBJ(nullptr, id, 0, value);
  Check(extension && X509_CRL_add_ext(list, extension, -1) && X509_CRL_sign(list, key, EVP_sha256()) > 0);
  BYTE* encoded = nullptr;
  const int length = i2d_X509_CRL(list, &encoded);
  Check(length > 0);
  Bytes bytes(encoded, encoded + length);
  OPENSSL_free(encoded);
  X509_EXTENSION_free(extension);
  ASN1_OBJECT_free(id);
  ASN1_OCTET_STRING_free(value);
  X509_CRL_free(list);
  EVP_PKEY_free(key);
  return bytes;
}

// A system store in a directory of this run.
class SystemStore {
 public:
  explicit SystemStore(size_t count, size_t listSize = 0) : next_(count) {
    std::string name = (std::filesystem::temp_directory_path() / "certkern-bench-XXXXXX").string();
    Check(mkdtemp(name.data()) && setenv("XDG_DATA_HOME", name.c_str(), 1) == 0);
    directory_ = name;
    store_.reset(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"bench"));
    Check(store_.get());
    for (size_t i = 0; i < count; ++i) Add(store_, Certificates(count)[i], CERT_STORE_ADD_ALWAYS);
    if (listSize) {
      const Bytes list = MakeList(listSize);
      Check(CertAddEncodedCRLToStore(store_.get(), 1, list.data(), static_cast<DWORD>(list.size()),
                                     CERT_STORE_ADD_ALWAYS, nullptr));
    }
    commit();
  }
  ~SystemStore() { std::filesystem::remove_all(directory_); }
  SystemStore(const SystemStore&) = delete;
  SystemStore& operator=(const SystemStore&) = delete;
  void addAnother() { Add(store_, MakeCertificate(next_++), CERT_STORE_ADD_ALWAYS); }
  void commit() const { Check(CertControlStore(store_.get(), 0, CERT_STORE_CTRL_COMMIT, nullptr)); }
  void resync() const { Check(CertControlStore(store_.get(), 0, CERT_STORE_CTRL_RESYNC, nullptr)); }

 private:
  std::filesystem::path directory_;
  Store store_;
  size_t next_;
};

// As long after the last change as it takes to be sure of it.
void ResyncUnchanged(benchmark::State& state) {
  const SystemStore store(CountOf(state));
  std::this_thread::sleep_for(std::chrono::milliseconds(2100));
  store.resync();
  for (auto _ : state) store.resync();
  CountCertificates(state);
}

// One certificate more, in a store of so many beside a list of so many megabytes.
void CommitAddition(benchmark::State& state) {
  SystemStore store(CountOf(state), static_cast<size_t>(state.range(1)) << 20);
  for (auto _ : state) {
    store.addAnother();
    store.commit();
  }
}

// --- theirs ---

Certificate Parse(const Bytes& bytes) {
  const BYTE* at = bytes.data();
  return {d2i_X509(nullptr, &at, static_cast<long>(bytes.size())), &X509_free};
}

struct OpenSslStack {
  explicit OpenSslStack(size_t count) : all(sk_X509_new_reserve(nullptr, static_cast<int>(count))) {
    for (size_t i = 0; i < count; ++i) sk_X509_push(all, Parse(Certificates(count)[i]).release());
  }
  ~OpenSslStack() { sk_X509_pop_free(all, &X509_free); }
  OpenSslStack(const OpenSslStack&) = delete;
  OpenSslStack& operator=(const OpenSslStack&) = delete;
  STACK_OF(X509) * all;
};

using OpenSslStore = std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)>;
OpenSslStore FilledOpenSslStore(size_t count) {
  OpenSslStore store(X509_STORE_new(), &X509_STORE_free);
  for (size_t i = 0; i < count; ++i) X509_STORE_add_cert(store.get(), Parse(Certificates(count)[i]).get());
  return store;
}

void OpenSslFindSubject(benchmark::State& state) {
  const OpenSslStore store = FilledOpenSslStore(CountOf(state));
  STACK_OF(X509_OBJECT)* const objects = X509_STORE_get0_objects(store.get());
  const std::vector<Bytes>& certificates = Certificates(CountOf(state));
  const Certificate wanted = Parse(certificates[CountOf(state) / 3]);
  for (auto _ : state) {
    if (!X509_OBJECT_retrieve_by_subject(objects, X509_LU_X509, X509_get_subject_name(wanted.get())))
      state.SkipWithError("not found");
  }
}

void OpenSslFindIssuerAndSerial(benchmark::State& state) {
  const OpenSslStack stack(CountOf(state));
  const Certificate wanted = Parse(Certificates(CountOf(state))[CountOf(state) / 2]);
  for (auto _ : state) {
    if (!X509_find_by_issuer_and_serial(stack.all, X509_get_issuer_name(wanted.get()),
                                        X509_get_serialNumber(wanted.get())))
      state.SkipWithError("not found");
  }
}

void OpenSslAddAll(benchmark::State& state) {
  Certificates(CountOf(state));
  for (auto _ : state) benchmark::DoNotOptimize(FilledOpenSslStore(CountOf(state)).get());
  CountCertificates(state);
}

void OpenSslOpen(benchmark::State& state) {
  Certificates(CountOf(state));
  const size_t before = AllocatedBytes();
  const OpenSslStack held(CountOf(state));
  state.counters["bytes"] =
      static_cast<double>(AllocatedBytes() - before) / static_cast<double>(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(OpenSslStack(CountOf(state)).all);
  CountCertificates(state);
}

#define CERTKERN_SIZES ->Arg(100)->Arg(10'000)->Arg(100'000)
#define CERTKERN_MANY ->Arg(10'000)->Unit(benchmark::kMillisecond)

BENCHMARK_CAPTURE(Find, sha1, CERT_FIND_SHA1_HASH) CERTKERN_SIZES;
BENCHMARK_CAPTURE(Find, issuer_serial, CERT_FIND_SUBJECT_CERT) CERTKERN_SIZES;
BENCHMARK_CAPTURE(Find, subject, CERT_FIND_SUBJECT_NAME) CERTKERN_SIZES;
BENCHMARK_CAPTURE(Find, key_identifier, CERT_FIND_KEY_IDENTIFIER) CERTKERN_SIZES;
BENCHMARK(OpenSslFindSubject)->Arg(100)->Arg(10'000);
BENCHMARK(OpenSslFindIssuerAndSerial) CERTKERN_SIZES;
BENCHMARK_CAPTURE(AddAll, always, CERT_STORE_ADD_ALWAYS)->Arg(1'000) CERTKERN_MANY;
BENCHMARK_CAPTURE(AddAll, new, CERT_STORE_ADD_NEW)->Arg(1'000) CERTKERN_MANY->Arg(100'000);
BENCHMARK(OpenSslAddAll)->Arg(1'000) CERTKERN_MANY;
BENCHMARK(Enumerate) CERTKERN_MANY;
BENCHMARK(Save) CERTKERN_MANY;
BENCHMARK(Open) CERTKERN_MANY;
BENCHMARK(IndexedBytes) CERTKERN_MANY;
BENCHMARK(OpenSslOpen) CERTKERN_MANY;
BENCHMARK(CommitAddition)->Args({100, 0})->Args({10'000, 0})->Args({100, 28})->Unit(benchmark::kMillisecond);
BENCHMARK(ResyncUnchanged) CERTKERN_MANY;

}  // namespace
