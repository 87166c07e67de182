// The hand-written codec beside OpenSSL's, in one run: a certificate into its whole record, the system's bundle of
// authorities, and revocation lists up to a million entries. Ours are the exported functions, as a program calls them.
//
// Each row takes turns between the two sides, so that what else the machine does meets both. Time and items are ours;
// "openssl" is the other side's time for the same work, "ratio" how many times as long it is. "held" and "held_openssl"
// are the bytes that the decoded objects keep on the heap, one by one.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <openssl/conf.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

// behind OpenSSL's headers: both define X509_NAME, there a type and here a number
#include <certkern/encode.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <random>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

#include "take_turns.h"

namespace {

using certkern::bench::TakeTurns;
using Bytes = std::vector<BYTE>;

template <auto kFree>
struct Release {
  template <typename T>
  void operator()(T* object) const {
    kFree(object);
  }
};
using Certificate = std::unique_ptr<X509, Release<X509_free>>;
using Crl = std::unique_ptr<X509_CRL, Release<X509_CRL_free>>;
using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using Bio = std::unique_ptr<BIO, Release<BIO_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Release<X509_EXTENSION_free>>;
using Configuration = std::unique_ptr<CONF, Release<NCONF_free>>;
using Record = std::unique_ptr<void, Release<LocalFree>>;

void Require(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(what);
}

// --- the two sides ---

Record DecodeOurs(LPCSTR type, const Bytes& der, DWORD& size) {
  void* record = nullptr;
  Require(CryptDecodeObjectEx(X509_ASN_ENCODING, type, der.data(), static_cast<DWORD>(der.size()),
                              CRYPT_DECODE_ALLOC_FLAG, nullptr, &record, &size),
          "certkern does not decode");
  return Record(record);
}

Certificate DecodeTheirs(const Bytes& der) {
  const BYTE* next = der.data();
  Certificate certificate(d2i_X509(nullptr, &next, static_cast<long>(der.size())));
  Require(certificate != nullptr, "OpenSSL does not decode");
  return certificate;
}

Crl DecodeTheirList(const Bytes& der) {
  const BYTE* next = der.data();
  Crl list(d2i_X509_CRL(nullptr, &next, static_cast<long>(der.size())));
  Require(list != nullptr, "OpenSSL does not decode");
  return list;
}

// --- the inputs ---

Bytes DerOf(X509* certificate) {
  Bytes der(static_cast<size_t>(i2d_X509(certificate, nullptr)));
  BYTE* next = der.data();
  i2d_X509(certificate, &next);
  return der;
}

// What a public web server shows today: RSA of 2048 bits, nine extensions.
Bytes MakeServerCertificate() {
  static constexpr std::pair<int, const char*> kExtensions[] = {
      {NID_key_usage,                "critical,digitalSignature,keyEncipherment"                      },
      {NID_ext_key_usage,            "serverAuth,clientAuth"                                          },
      {NID_basic_constraints,        "critical,CA:FALSE"                                              },
      {NID_subject_key_identifier,   "hash"                                                           },
      {NID_authority_key_identifier, "keyid"                                                          },
      {NID_info_access,              "OCSP;URI:http://o.example/,caIssuers;URI:http://i.example/i.der"},
      {NID_subject_alt_name,         "DNS:example.org,DNS:www.example.org,DNS:mail.example.org"       },
      {NID_certificate_policies,     "2.23.140.1.2.1"                                                 },
      {NID_crl_distribution_points,  "URI:http://c.example/1.crl"                                     },
  };
  const Key key(EVP_RSA_gen(2048));
  const Certificate made(X509_new());
  X509* const certificate = made.get();
  Require(key && certificate, "no key");
  const auto entry = [](auto* name, const char* field, const char* text) {
    X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8, reinterpret_cast<const BYTE*>(text), -1, -1, 0);
  };
  X509_set_version(certificate, 2);
  ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), 0x0123456789ABCDEF);
  X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate), 90 * 86400);
  X509_set_pubkey(certificate, key.get());
  auto* const subject = X509_get_subject_name(certificate);
  entry(subject, "C", "NL");
  entry(subject, "O", "Example");
  entry(subject, "CN", "www.example.org");
  X509_set_issuer_name(certificate, subject);
  X509V3_CTX context;
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  const Configuration empty(NCONF_new(nullptr));  // policies ask for one
  X509V3_set_nconf(&context, empty.get());
  for (const auto& [nid, text] : kExtensions) {
    const Extension extension(X509V3_EXT_nconf_nid(empty.get(), &context, nid, text));
    Require(extension && X509_add_ext(certificate, extension.get(), -1), text);
  }
  Require(X509_sign(certificate, key.get(), EVP_sha256()) > 0, "no signature");
  return DerOf(certificate);
}

std::vector<Bytes> ReadBundle() {
  std::vector<Bytes> bundle;
  const Bio file(BIO_new_file("/etc/ssl/certs/ca-certificates.crt", "r"));
  Require(file != nullptr, "the package ca-certificates is not installed");
  while (const Certificate certificate{PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr)}) {
    bundle.push_back(DerOf(certificate.get()));
  }
  return bundle;
}

Bytes Join(std::initializer_list<std::span<const BYTE>> parts) {
  size_t size = 0;
  for (const auto& part : parts) size += part.size();
  Bytes out(size);
  auto next = out.begin();
  for (const auto& part : parts) next = std::copy(part.begin(), part.end(), next);
  return out;
}

Bytes Element(BYTE tag, std::span<const BYTE> content) {
  const size_t size = content.size();
  if (size < 0x80)
    return Join({
        std::array{tag, static_cast<BYTE>(size)},
        content
    });
  const auto octet = [size](int shift) { return static_cast<BYTE>(size >> shift); };
  return Join({
      std::array{tag, BYTE{0x84}, octet(24), octet(16), octet(8), octet(0)},
      content
  });
}

// A list as a large authority publishes it: random serial numbers in order, a reason code in each entry.
Bytes MakeList(size_t count) {
  static constexpr size_t kSerialSize = 16;
  static constexpr BYTE kAlgorithm[] = {0x30, 0x0A, 0x06, 0x08, 0x2A, 0x86,
                                        0x48, 0xCE, 0x3D, 0x04, 0x03, 0x02};
  static constexpr BYTE kIssuer[] = {0x30, 0x0D, 0x31, 0x0B, 0x30, 0x09, 0x06, 0x03,
                                     0x55, 0x04, 0x03, 0x0C, 0x02, 'C',  'A'};
  static constexpr BYTE kTimes[] = {0x17, 0x0D, '2', '5', '0', '1',  '0',  '1', '0', '0',
                                    '0',  '0',  '0', '0', 'Z', 0x17, 0x0D, '2', '5', '0',
                                    '2',  '0',  '1', '0', '0', '0',  '0',  '0', '0', 'Z'};
  static constexpr BYTE kNumber[] = {0x30, 0x0C, 0x30, 0x0A, 0x06, 0x03, 0x55,
                                     0x1D, 0x14, 0x04, 0x03, 0x02, 0x01, 0x01};
  std::mt19937_64 random(count);
  std::vector<std::array<BYTE, kSerialSize>> serials(count);
  for (auto& serial : serials) {
    std::generate(serial.begin(), serial.end(), [&] { return static_cast<BYTE>(random()); });
    serial[0] = static_cast<BYTE>((serial[0] & 0x3F) | 0x40);  // positive and of full length
  }
  std::sort(serials.begin(), serials.end());

  Bytes entries;
  for (const auto& serial : serials) {
    BYTE entry[49] = {0x30, 0x2F, 0x02, 0x10};
    static constexpr BYTE kRest[] = {0x17, 0x0D, '2',  '4',  '0',  '1',  '0',  '1',  '0',  '0',
                                     '0',  '0',  '0',  '0',  'Z',  0x30, 0x0C, 0x30, 0x0A, 0x06,
                                     0x03, 0x55, 0x1D, 0x15, 0x04, 0x03, 0x0A, 0x01, 0x01};
    std::copy(std::begin(kRest), std::end(kRest), std::copy(serial.begin(), serial.end(), entry + 4));
    entry[sizeof(entry) - 1] = static_cast<BYTE>(1 + random() % 5);
    entries.insert(entries.end(), std::begin(entry), std::end(entry));
  }
  const Bytes content = Join({
      std::array<BYTE, 3>{0x02, 0x01, 0x01},
       kAlgorithm, kIssuer, kTimes, Element(0x30, entries),
      Element(0xA0, kNumber)
  });
  return Element(0x30, Join({Element(0x30, content), kAlgorithm, Element(0x03, std::array<BYTE, 65>{})}));
}

// --- the comparison ---

size_t HeldOnHeap() {
  const struct mallinfo2 heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

// Bytes that what make() returns keeps for each of a number of items.
template <typename Make>
double HeldBy(const Make& make, size_t items) {
  const size_t before = HeldOnHeap();
  const auto object = make();
  return static_cast<double>(HeldOnHeap() - before) / static_cast<double>(items);
}

void DecodeCertificate(benchmark::State& state, LPCSTR type) {
  static const Bytes der = MakeServerCertificate();
  DWORD size = 0;
  TakeTurns(
      state, 50, 1, [&] { benchmark::DoNotOptimize(DecodeOurs(type, der, size)); },
      [] { benchmark::DoNotOptimize(DecodeTheirs(der)); });
  state.counters["held"] = HeldBy([&] { return DecodeOurs(type, der, size); }, 1);
  state.counters["held_openssl"] = HeldBy([] { return DecodeTheirs(der); }, 1);
}
BENCHMARK_CAPTURE(DecodeCertificate, record, X509_CERT_TO_BE_SIGNED)->Iterations(400)->UseManualTime();
BENCHMARK_CAPTURE(DecodeCertificate, signed_object, X509_CERT)->Iterations(400)->UseManualTime();

void DecodeBundle(benchmark::State& state) {
  static const std::vector<Bytes> bundle = ReadBundle();
  DWORD size = 0;
  TakeTurns(
      state, 1, bundle.size(),
      [&] {
        for (const Bytes& der : bundle)
          benchmark::DoNotOptimize(DecodeOurs(X509_CERT_TO_BE_SIGNED, der, size));
      },
      [] {
        for (const Bytes& der : bundle) benchmark::DoNotOptimize(DecodeTheirs(der));
      });
  const auto all = [](const auto& decode) {
    return [&decode] {
      std::vector<decltype(decode(bundle[0]))> objects;
      objects.reserve(bundle.size());
      for (const Bytes& der : bundle) objects.push_back(decode(der));
      return objects;
    };
  };
  const auto ours = [&](const Bytes& der) { return DecodeOurs(X509_CERT_TO_BE_SIGNED, der, size); };
  state.counters["held"] = HeldBy(all(ours), bundle.size());
  state.counters["held_openssl"] = HeldBy(all(DecodeTheirs), bundle.size());
}
BENCHMARK(DecodeBundle)->Iterations(100)->UseManualTime();

void DecodeList(benchmark::State& state) {
  const auto count = static_cast<size_t>(state.range(0));
  const Bytes der = MakeList(count);
  DWORD size = 0;
  const Record record = DecodeOurs(X509_CERT_CRL_TO_BE_SIGNED, der, size);
  Require(static_cast<const CRL_INFO*>(record.get())->cCRLEntry == count, "entries are missing");
  TakeTurns(
      state, count <= 1000 ? 50 : 1, count,
      [&] { benchmark::DoNotOptimize(DecodeOurs(X509_CERT_CRL_TO_BE_SIGNED, der, size)); },
      [&] { benchmark::DoNotOptimize(DecodeTheirList(der)); });
  state.counters["held"] = HeldBy([&] { return DecodeOurs(X509_CERT_CRL_TO_BE_SIGNED, der, size); }, count);
  state.counters["held_openssl"] = HeldBy([&] { return DecodeTheirList(der); }, count);
}
BENCHMARK(DecodeList)->Arg(10)->Iterations(400)->UseManualTime();
BENCHMARK(DecodeList)->Arg(1000)->Iterations(20)->UseManualTime();
BENCHMARK(DecodeList)->Arg(100000)->Iterations(10)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeList)->Arg(1000000)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
