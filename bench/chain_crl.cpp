// Looking certificates up in revocation lists of up to a million entries, beside OpenSSL over its own decoded list.
//
// "first" is the first question to a list that has just been decoded, which sets up what later ones use; "then" is the
// question of a few certificates that come again and again, "far" that of thousands whose entries no cache holds. Half of
// them are listed. "held" is what the decoded list and its index keep on the heap for each entry, beside the encoding;
// an entry's records here (CRL_ENTRY, CERT_EXTENSION, the serial number) are 88 bytes.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <openssl/asn1.h>
#include <openssl/x509.h>

// behind OpenSSL's headers: both define X509_NAME, there a type and here a number
#include <certkern/cert.h>
#include <certkern/find.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <initializer_list>
#include <memory>
#include <random>
#include <span>
#include <stdexcept>
#include <vector>

namespace {

using Bytes = std::vector<BYTE>;
using Serial = std::array<BYTE, 16>;

template <auto kFree>
struct Release {
  template <typename T>
  void operator()(T* object) const {
    kFree(object);
  }
};
using CrlHandle = std::unique_ptr<const CRL_CONTEXT, Release<CertFreeCRLContext>>;
using CertificateHandle = std::unique_ptr<const CERT_CONTEXT, Release<CertFreeCertificateContext>>;
using TheirCrl = std::unique_ptr<X509_CRL, Release<X509_CRL_free>>;
using TheirInteger = std::unique_ptr<ASN1_INTEGER, Release<ASN1_INTEGER_free>>;

void Require(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(what);
}

// --- the inputs ---

void Append(Bytes& out, std::span<const BYTE> part) { out.insert(out.end(), part.begin(), part.end()); }

Bytes Element(BYTE tag, std::initializer_list<std::span<const BYTE>> parts) {
  size_t size = 0;
  for (const auto& part : parts) size += part.size();
  const auto octet = [size](int shift) { return static_cast<BYTE>(size >> shift); };
  Bytes out;
  out.reserve(size + 6);
  out.push_back(tag);
  if (size >= 0x80) {
    out.push_back(0x84);
    for (const int shift : {24, 16, 8}) out.push_back(octet(shift));
  }
  out.push_back(octet(0));
  for (const auto& part : parts) Append(out, part);
  return out;
}

constexpr BYTE kAlgorithm[] = {0x30, 0x0A, 0x06, 0x08, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x03, 0x02};
constexpr BYTE kName[] = {0x30, 0x0D, 0x31, 0x0B, 0x30, 0x09, 0x06, 0x03,
                          0x55, 0x04, 0x03, 0x0C, 0x02, 'C',  'A'};
constexpr BYTE kTime[] = {0x17, 0x0D, '2', '5', '0', '1', '0', '1', '0', '0', '0', '0', '0', '0', 'Z'};
constexpr BYTE kNoBits[] = {0x03, 0x01, 0x00};

std::vector<Serial> MakeSerials(size_t count, uint64_t seed) {
  std::mt19937_64 random(seed);
  std::vector<Serial> serials(count);
  for (Serial& serial : serials) {
    std::generate(serial.begin(), serial.end(), [&] { return static_cast<BYTE>(random()); });
    serial[0] = static_cast<BYTE>((serial[0] & 0x3F) | 0x40);  // positive and of full length
  }
  return serials;
}

// In no order, a reason in each entry.
Bytes MakeList(const std::vector<Serial>& serials) {
  static constexpr BYTE kReason[] = {0x30, 0x0C, 0x30, 0x0A, 0x06, 0x03, 0x55,
                                     0x1D, 0x15, 0x04, 0x03, 0x0A, 0x01, 0x01};
  static constexpr BYTE kVersion[] = {0x02, 0x01, 0x01};
  static constexpr BYTE kNumber[] = {0xA0, 0x0E, 0x30, 0x0C, 0x30, 0x0A, 0x06, 0x03,
                                     0x55, 0x1D, 0x14, 0x04, 0x03, 0x02, 0x01, 0x01};
  Bytes entries;
  for (const Serial& serial : serials)
    Append(entries, Element(0x30, {Element(0x02, {serial}), kTime, kReason}));
  const Bytes body =
      Element(0x30, {kVersion, kAlgorithm, kName, kTime, kTime, Element(0x30, {entries}), kNumber});
  return Element(0x30, {body, kAlgorithm, kNoBits});
}

CertificateHandle MakeCertificate(const Serial& serial) {
  static constexpr BYTE kVersion[] = {0xA0, 0x03, 0x02, 0x01, 0x02};
  const Bytes body = Element(0x30,
                             {kVersion, Element(0x02, {serial}), kAlgorithm, kName,
                              Element(0x30, {kTime, kTime}), kName, Element(0x30, {kAlgorithm, kNoBits})});
  const Bytes whole = Element(0x30, {body, kAlgorithm, kNoBits});
  CertificateHandle certificate(
      CertCreateCertificateContext(X509_ASN_ENCODING, whole.data(), static_cast<DWORD>(whole.size())));
  Require(certificate != nullptr, "no certificate");
  return certificate;
}

CrlHandle DecodeOurs(const Bytes& der) {
  CrlHandle list(CertCreateCRLContext(X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size())));
  Require(list != nullptr, "certkern does not decode");
  return list;
}

TheirCrl DecodeTheirs(const Bytes& der) {
  const BYTE* next = der.data();
  TheirCrl list(d2i_X509_CRL(nullptr, &next, static_cast<long>(der.size())));
  Require(list != nullptr, "OpenSSL does not decode");
  return list;
}

// --- the comparison ---

// Processor time of this thread, so that a busy machine shows less.
double Now() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

size_t HeldOnHeap() {
  const struct mallinfo2 heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

bool IsListed(const CrlHandle& list, const CertificateHandle& certificate) {
  PCRL_ENTRY entry = nullptr;
  Require(CertFindCertificateInCRL(certificate.get(), list.get(), 0, nullptr, &entry), "no answer");
  return entry != nullptr;
}

bool IsListed(const TheirCrl& list, const TheirInteger& serial) {
  X509_REVOKED* entry = nullptr;
  return X509_CRL_get0_by_serial(list.get(), &entry, serial.get()) > 0;
}

template <class List, class Key>
double SecondsFor(const List& list, const std::vector<Key>& keys) {
  const double start = Now();
  size_t found = 0;
  for (const Key& key : keys) found += IsListed(list, key);
  const double taken = Now() - start;
  Require(found == keys.size() / 2, "half of them are listed");
  return taken / static_cast<double>(keys.size());
}

struct Questions {
  std::vector<CertificateHandle> ours;
  std::vector<TheirInteger> theirs;
};

// Every other one is listed.
Questions MakeQuestions(const std::vector<Serial>& listed, size_t count) {
  const std::vector<Serial> others = MakeSerials(count, 7);
  std::mt19937_64 random(8);
  Questions questions;
  for (size_t i = 0; i < count; ++i) {
    const Serial& serial = i % 2 ? others[i] : listed[random() % listed.size()];
    questions.ours.push_back(MakeCertificate(serial));
    const Bytes der = Element(0x02, {serial});
    const BYTE* next = der.data();
    questions.theirs.emplace_back(d2i_ASN1_INTEGER(nullptr, &next, static_cast<long>(der.size())));
  }
  return questions;
}

void LookUp(benchmark::State& state) {
  const auto count = static_cast<size_t>(state.range(0));
  const std::vector<Serial> serials = MakeSerials(count, count);
  const Bytes der = MakeList(serials);
  const Questions near = MakeQuestions(serials, 100), far = MakeQuestions(serials, 10000);
  double first = 0, then = 0, away = 0, theirFirst = 0, theirThen = 0, theirAway = 0, held = 0;
  for (auto _ : state) {
    const size_t before = HeldOnHeap();
    const CrlHandle ours = DecodeOurs(der);
    double start = Now();
    Require(IsListed(ours, near.ours[0]), "the first is listed");
    first += Now() - start;
    held = static_cast<double>(HeldOnHeap() - before - der.size()) / static_cast<double>(count);
    const TheirCrl theirs = DecodeTheirs(der);
    start = Now();
    Require(IsListed(theirs, near.theirs[0]), "the first is listed");
    theirFirst += Now() - start;
    away += SecondsFor(ours, far.ours);
    theirAway += SecondsFor(theirs, far.theirs);
    SecondsFor(ours, near.ours);
    const double seconds = SecondsFor(ours, near.ours);
    state.SetIterationTime(seconds);
    then += seconds;
    SecondsFor(theirs, near.theirs);
    theirThen += SecondsFor(theirs, near.theirs);
  }
  const double runs = static_cast<double>(state.iterations());
  const std::pair<const char*, double> counters[] = {
      {"first",         first     },
      {"then",          then      },
      {"far",           away      },
      {"first_openssl", theirFirst},
      {"then_openssl",  theirThen },
      {"far_openssl",   theirAway }
  };
  for (const auto& [name, seconds] : counters) state.counters[name] = benchmark::Counter(seconds / runs);
  state.counters["held"] = held;
}
BENCHMARK(LookUp)->Arg(1000)->Iterations(20)->UseManualTime();
BENCHMARK(LookUp)->Arg(100000)->Iterations(10)->UseManualTime();
BENCHMARK(LookUp)->Arg(1000000)->Iterations(4)->UseManualTime();

}  // namespace
