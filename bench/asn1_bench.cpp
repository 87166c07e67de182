// Generated types beside OpenSSL's, in one run: signed messages with one and a hundred certificates, an OCSP answer, a key file,
// decoded and encoded. A call is what a program does for one object: ours makes and drops a context, theirs the object.
//
// "deep" rows decode each certificate of the message, too, as OpenSSL always does. Encoding starts from values without
// any bytes kept from decoding, but for what the types keep as bytes; OpenSSL keeps those of certificates as well.
#include <openssl/cms.h>
#include <openssl/ocsp.h>
#include <openssl/pkcs12.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <vector>

#include "asn1data/catalogue.h"
#include "asn1data/visit.h"
#include "asn1rt/context.h"
#include "asn1rt/decoder.h"
#include "asn1rt/encoder.h"
#include "take_turns.h"

namespace {

using namespace certkern;
using namespace certkern::asn1data;
using bench::TakeTurns;
using Bytes = std::vector<uint8_t>;

template <auto kFree>
struct Release {
  template <typename T>
  void operator()(T* object) const {
    kFree(object);
  }
};
template <class T, auto kFree>
using Own = std::unique_ptr<T, Release<kFree>>;
using Key = Own<EVP_PKEY, EVP_PKEY_free>;
using Certificate = Own<X509, X509_free>;
using Message = Own<CMS_ContentInfo, CMS_ContentInfo_free>;
using Answer = Own<OCSP_BASICRESP, OCSP_BASICRESP_free>;
using CertificateId = Own<OCSP_CERTID, OCSP_CERTID_free>;
using KeyFile = Own<PKCS12, PKCS12_free>;
using Time = Own<ASN1_TIME, ASN1_TIME_free>;
using Bio = Own<BIO, BIO_free>;
struct Stack {
  STACK_OF(X509) * certificates = sk_X509_new_null();
  Stack() = default;
  Stack(const Stack&) = delete;
  Stack& operator=(const Stack&) = delete;
  ~Stack() { sk_X509_pop_free(certificates, X509_free); }
};

void Require(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(what);
}

// What OpenSSL has for a type.
template <class T>
struct Codec {
  T* (*decode)(T**, const unsigned char**, long);
  int (*encode)(const T*, unsigned char**);
  void (*release)(T*);
};
constexpr Codec<CMS_ContentInfo> kMessage{d2i_CMS_ContentInfo, i2d_CMS_ContentInfo, CMS_ContentInfo_free};
constexpr Codec<OCSP_BASICRESP> kAnswer{d2i_OCSP_BASICRESP, i2d_OCSP_BASICRESP, OCSP_BASICRESP_free};
constexpr Codec<PKCS12> kKeyFile{d2i_PKCS12, i2d_PKCS12, PKCS12_free};

template <class T>
Bytes DerOf(const Codec<T>& codec, const T* object) {
  unsigned char* der = nullptr;
  const int length = codec.encode(object, &der);
  Require(length > 0, "OpenSSL does not encode");
  Bytes bytes(der, der + length);
  OPENSSL_free(der);
  return bytes;
}

// --- the inputs ---

const Key& TheKey() {
  static const Key key(EVP_RSA_gen(2048));
  return key;
}

Certificate MakeCertificate(int64_t serial) {
  Certificate made(X509_new());
  X509_set_version(made.get(), 2);
  ASN1_INTEGER_set_int64(X509_get_serialNumber(made.get()), serial);
  X509_gmtime_adj(X509_getm_notBefore(made.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(made.get()), 90L * 86400);
  X509_set_pubkey(made.get(), TheKey().get());
  X509_NAME* const name = X509_get_subject_name(made.get());
  for (const auto& [field, text] : {
           std::pair{"C",  "NL"                },
           {"O",  "Example"           },
           {"CN", "signer.example.org"}
  })
    X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8, reinterpret_cast<const unsigned char*>(text), -1,
                               -1, 0);
  X509_set_issuer_name(made.get(), name);
  X509V3_CTX context;
  X509V3_set_ctx(&context, made.get(), made.get(), nullptr, nullptr, 0);
  for (const auto& [nid, text] : {
           std::pair{NID_subject_key_identifier, "hash"                     },
           {NID_key_usage,              "critical,digitalSignature"},
           {NID_basic_constraints,      "critical,CA:FALSE"        }
  }) {
    const Own<X509_EXTENSION, X509_EXTENSION_free> extension(
        X509V3_EXT_conf_nid(nullptr, &context, nid, text));
    Require(extension && X509_add_ext(made.get(), extension.get(), -1), text);
  }
  Require(X509_sign(made.get(), TheKey().get(), EVP_sha256()) > 0, "no signature");
  return made;
}

Bytes MakeMessage(int64_t certificates) {
  const Certificate signer = MakeCertificate(1);
  Stack others;
  for (int64_t i = 2; i <= certificates; ++i) sk_X509_push(others.certificates, MakeCertificate(i).release());
  const Bio content(BIO_new_mem_buf("Some content", -1));
  const Message message(
      CMS_sign(signer.get(), TheKey().get(), others.certificates, content.get(), CMS_BINARY));
  Require(message != nullptr, "no message");
  return DerOf(kMessage, message.get());
}

Bytes MakeAnswer() {
  const Certificate signer = MakeCertificate(1);
  const Answer answer(OCSP_BASICRESP_new());
  const CertificateId id(OCSP_cert_to_id(EVP_sha1(), signer.get(), signer.get()));
  const Time now(X509_gmtime_adj(nullptr, 0));
  Require(
      OCSP_basic_add1_status(answer.get(), id.get(), V_OCSP_CERTSTATUS_GOOD, 0, nullptr, now.get(), now.get())
          && OCSP_basic_sign(answer.get(), signer.get(), TheKey().get(), EVP_sha256(), nullptr, 0),
      "no answer");
  return DerOf(kAnswer, answer.get());
}

Bytes MakeKeyFile() {
  const Certificate certificate = MakeCertificate(1);
  const KeyFile file(
      PKCS12_create("secret", "name", TheKey().get(), certificate.get(), nullptr, 0, 0, 1, 1, 0));
  Require(file != nullptr, "no key file");
  return DerOf(kKeyFile, file.get());
}

// --- the comparison ---

// Calls between two looks at the clock.
constexpr int kBatch = 10;

struct Decoded {
  ASN1ContextPtr context = ASN1ContextPtr::Create();
  void* value = nullptr;

  Decoded(const TypeInfo& type, std::span<const uint8_t> der) {
    context->setInput(der);
    value = context->allocate(type.size);
    Require(DecodeValue(*context, type, value, Tagging::Explicit, 0) == ASN1_OK, type.name);
  }
};

void DecodeDeep(std::span<const uint8_t> der) {
  const Decoded message(kInfo_ContentInfo, der);
  const auto& content = static_cast<const ASN1T_ContentInfo*>(message.value)->content;
  for (const ASN1T_CertificateChoicesRaw& each :
       static_cast<const ASN1T_SignedData*>(content.decoded)->certificates)
    benchmark::DoNotOptimize(Decoded(kInfo_Certificate, each.u.certRaw.encoded.bytes()).value);
}

template <class T>
void DecodeTheirs(const Codec<T>& codec, const Bytes& der) {
  const unsigned char* next = der.data();
  T* const object = codec.decode(nullptr, &next, static_cast<long>(der.size()));
  Require(object, "OpenSSL does not decode");
  codec.release(object);
}

template <class T>
void CompareDecoding(benchmark::State& state, const TypeInfo& type, const Codec<T>& codec, const Bytes& der) {
  state.counters["bytes"] = static_cast<double>(der.size());
  TakeTurns(
      state, kBatch, 1, [&] { benchmark::DoNotOptimize(Decoded(type, der).value); },
      [&] { DecodeTheirs(codec, der); });
}

template <class T>
void CompareEncoding(benchmark::State& state, const TypeInfo& type, const Codec<T>& codec, const Bytes& der) {
  const Decoded ours(type, der);
  test::VisitValues(type, ours.value, [](const TypeInfo& each, void* slot) {
    if (each.kind != TypeKind::Open) return;
    if (auto& open = *static_cast<ASN1OpenValue*>(slot); open.type) open.encoded = {};
  });
  const unsigned char* next = der.data();
  const std::unique_ptr<T, void (*)(T*)> theirs(codec.decode(nullptr, &next, static_cast<long>(der.size())),
                                                codec.release);
  Require(DerOf(codec, theirs.get()) == der, "OpenSSL encodes otherwise");
  TakeTurns(
      state, kBatch, 1,
      [&] {
        const ASN1ContextPtr context = ASN1ContextPtr::Create();
        Require(EncodeValue(*context, type, ours.value, Tagging::Explicit) == static_cast<int>(der.size()),
                type.name);
      },
      [&] {
        unsigned char* out = nullptr;
        Require(codec.encode(theirs.get(), &out) > 0, "OpenSSL does not encode");
        OPENSSL_free(out);
      });
}

void DecodeSignedData(benchmark::State& state) {
  CompareDecoding(state, kInfo_ContentInfo, kMessage, MakeMessage(state.range(0)));
}
BENCHMARK(DecodeSignedData)->Arg(1)->Arg(100)->Iterations(40)->UseManualTime();

void DecodeSignedDataDeep(benchmark::State& state) {
  const Bytes der = MakeMessage(state.range(0));
  TakeTurns(
      state, kBatch, 1, [&] { DecodeDeep(der); }, [&] { DecodeTheirs(kMessage, der); });
}
BENCHMARK(DecodeSignedDataDeep)->Arg(1)->Arg(100)->Iterations(40)->UseManualTime();

void EncodeSignedData(benchmark::State& state) {
  CompareEncoding(state, kInfo_ContentInfo, kMessage, MakeMessage(state.range(0)));
}
BENCHMARK(EncodeSignedData)->Arg(1)->Arg(100)->Iterations(40)->UseManualTime();

void DecodeAnswer(benchmark::State& state) {
  CompareDecoding(state, kInfo_BasicOCSPResponse, kAnswer, MakeAnswer());
}
BENCHMARK(DecodeAnswer)->Iterations(40)->UseManualTime();

void EncodeAnswer(benchmark::State& state) {
  CompareEncoding(state, kInfo_BasicOCSPResponse, kAnswer, MakeAnswer());
}
BENCHMARK(EncodeAnswer)->Iterations(40)->UseManualTime();

void DecodeKeyFile(benchmark::State& state) { CompareDecoding(state, kInfo_PFX, kKeyFile, MakeKeyFile()); }
BENCHMARK(DecodeKeyFile)->Iterations(40)->UseManualTime();

void EncodeKeyFile(benchmark::State& state) { CompareEncoding(state, kInfo_PFX, kKeyFile, MakeKeyFile()); }
BENCHMARK(EncodeKeyFile)->Iterations(40)->UseManualTime();

}  // namespace
