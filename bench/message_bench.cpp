// Signing and verifying messages beside CMS_sign and CMS_verify: small ones, which are all structure, and large ones, which
// are all content. Of the large ones "hash" is the part of our time that the bare hash takes; "growth" and "theirs" are how
// much the process grew while the message was made or read, in sizes of its content.
#include <malloc.h>
#include <openssl/cms.h>
#include <openssl/pem.h>

// behind OpenSSL's headers: both define X509_NAME, there a type and here a number
#include <certkern/cert.h>
#include <certkern/encode.h>
#include <certkern/keykern.h>
#include <certkern/keys.h>
#include <certkern/msg.h>
#include <certkern/name.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "gost_plug_in.h"
#include "platform/owner.h"
#include "platform/temporary_directory.h"
#include "take_turns.h"

namespace {

using certkern::Owner;
using Bytes = std::vector<BYTE>;
using Message = Owner<HCRYPTMSG, CryptMsgClose>;

template <auto Free>
struct Release {
  template <class T>
  void operator()(T* object) const {
    Free(object);
  }
};
using BioPtr = std::unique_ptr<BIO, Release<BIO_free>>;
using CmsPtr = std::unique_ptr<CMS_ContentInfo, Release<CMS_ContentInfo_free>>;
using CertPtr = std::unique_ptr<X509, Release<X509_free>>;
using PkeyPtr = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;

void Require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

struct Kind {
  const char* name;
  DWORD provider;
  ALG_ID key;
  DWORD flags;
  const char* hash;
  ALG_ID hashId;
  const char* signature;
};
constexpr Kind kKinds[] = {
    {"rsa",     PROV_RSA_AES,       CALG_RSA_SIGN,      2048u << 16, "2.16.840.1.101.3.4.2.1", CALG_SHA_256,
     "1.2.840.113549.1.1.11"},
    {"p256",    PROV_EC_ECDSA_FULL, CALG_ECDSA,         0,           "2.16.840.1.101.3.4.2.1", CALG_SHA_256,
     "1.2.840.10045.4.3.2"  },
    {"gost256", PROV_GOST_2012_256, CALG_GR3410_12_256, 0,           "1.2.643.7.1.1.2.2",      CALG_GR3411_2012_256,
     "1.2.643.7.1.1.3.2"    },
};

// --- both sides' keys: each its own, of the same kind ---

struct OurSigner {
  Owner<HCRYPTPROV, CryptReleaseContext> provider;
  Owner<HCRYPTKEY, CryptDestroyKey> key;
  Owner<PCCERT_CONTEXT, CertFreeCertificateContext> certificate;
  const Kind& kind;

  explicit OurSigner(const Kind& of) : kind(of) {
    Require(CryptAcquireContextA(provider.out(), nullptr, nullptr, kind.provider, CRYPT_VERIFYCONTEXT)
                && CryptGenKey(provider.get(), kind.key, kind.flags, key.out()),
            "no key");
    std::vector<uint64_t> room(512);
    DWORD size = 4096;
    auto* const info = reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(room.data());
    Require(CryptExportPublicKeyInfo(provider.get(), AT_SIGNATURE, X509_ASN_ENCODING, info, &size),
            "no public key");
    BYTE name[] = {0x30, 0x0C, 0x31, 0x0A, 0x30, 0x08, 0x06, 0x03, 0x55, 0x04, 0x03, 0x0C, 0x01, 'A'};
    BYTE serial = 1;
    CERT_INFO made{};
    made.dwVersion = CERT_V3;
    made.SerialNumber = {1, &serial};
    made.SignatureAlgorithm.pszObjId = const_cast<char*>(kind.signature);
    made.Issuer = made.Subject = {sizeof name, name};
    GetSystemTimeAsFileTime(&made.NotBefore);
    made.NotAfter = made.NotBefore;
    made.SubjectPublicKeyInfo = *info;
    Bytes encoded(4096);
    size = 4096;
    Require(
        CryptSignAndEncodeCertificate(provider.get(), AT_SIGNATURE, X509_ASN_ENCODING, X509_CERT_TO_BE_SIGNED,
                                      &made, &made.SignatureAlgorithm, nullptr, encoded.data(), &size),
        "no certificate");
    certificate.reset(CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(), size));
  }

  void sign(const Bytes& content, Bytes& encoded) const {
    BYTE five[] = {0x02, 0x01, 0x05};
    CRYPT_ATTR_BLOB value = {sizeof five, five};
    CRYPT_ATTRIBUTE attribute = {const_cast<char*>("1.2.3"), 1, &value};
    CMSG_SIGNER_ENCODE_INFO signer{};
    signer.cbSize = sizeof signer;
    signer.pCertInfo = certificate->pCertInfo;
    signer.hCryptProv = provider.get();
    signer.dwKeySpec = AT_SIGNATURE;
    signer.HashAlgorithm.pszObjId = const_cast<char*>(kind.hash);
    signer.cAuthAttr = 1;
    signer.rgAuthAttr = &attribute;
    CERT_BLOB own = {certificate->cbCertEncoded, certificate->pbCertEncoded};
    CMSG_SIGNED_ENCODE_INFO info{};
    info.cbSize = sizeof info;
    info.cSigners = 1;
    info.rgSigners = &signer;
    info.cCertEncoded = 1;
    info.rgCertEncoded = &own;
    const Message message(CryptMsgOpenToEncode(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, SVCMSG_CADES_DISABLE,
                                               CMSG_SIGNED, &info, nullptr, nullptr));
    DWORD size = 0;
    Require(message && CryptMsgUpdate(message.get(), content.data(), static_cast<DWORD>(content.size()), TRUE)
                && CryptMsgGetParam(message.get(), CMSG_CONTENT_PARAM, 0, nullptr, &size),
            "not signed");
    if (encoded.size() < size) encoded.resize(size);
    Require(CryptMsgGetParam(message.get(), CMSG_CONTENT_PARAM, 0, encoded.data(), &size), "not encoded");
  }

  void verify(const Bytes& encoded) const {
    const Message message(
        CryptMsgOpenToDecode(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0, 0, 0, nullptr, nullptr));
    Require(CryptMsgUpdate(message.get(), encoded.data(), static_cast<DWORD>(encoded.size()), TRUE)
                && CryptMsgControl(message.get(), 0, CMSG_CTRL_VERIFY_SIGNATURE, certificate->pCertInfo),
            "not verified");
  }

  void hash(const Bytes& content) const {
    Owner<HCRYPTHASH, CryptDestroyHash> hash;
    BYTE value[64];
    DWORD size = sizeof value;
    Require(CryptCreateHash(provider.get(), kind.hashId, 0, 0, hash.out())
                && CryptHashData(hash.get(), content.data(), static_cast<DWORD>(content.size()), 0)
                && CryptGetHashParam(hash.get(), HP_HASHVAL, value, &size, 0),
            "not hashed");
  }
};

const certkern::test::TemporaryDirectory& Directory() {
  static const certkern::test::TemporaryDirectory directory;
  return directory;
}

struct TheirSigner {
  PkeyPtr key;
  CertPtr certificate;

  explicit TheirSigner(const Kind& kind) {
    Require(certkern::bench::LoadGostPlugIn(), "OpenSSL has no GOST plug-in");
    static const bool made = std::system(("sh '" CERTKERN_SOURCE_DIR "/tests/data/make_signed_messages.sh' '"
                                          + Directory().path("signed") + "' >&2")
                                             .c_str())
        == 0;
    Require(made, "openssl has made no keys");
    const auto open = [&](const char* suffix) {
      return BioPtr(BIO_new_file((Directory().path("signed/") + kind.name + suffix).c_str(), "r"));
    };
    key.reset(PEM_read_bio_PrivateKey(open(".key").get(), nullptr, nullptr, nullptr));
    certificate.reset(PEM_read_bio_X509(open(".pem").get(), nullptr, nullptr, nullptr));
    Require(key && certificate, "OpenSSL reads no keys");
  }

  void sign(const Bytes& content, Bytes& encoded) const {
    const BioPtr data(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    const CmsPtr cms(
        CMS_sign(certificate.get(), key.get(), nullptr, data.get(), CMS_BINARY | CMS_NOSMIMECAP));
    const int size = i2d_CMS_ContentInfo(cms.get(), nullptr);
    Require(size > 0, "OpenSSL has not signed");
    if (encoded.size() < static_cast<size_t>(size)) encoded.resize(static_cast<size_t>(size));
    unsigned char* out = encoded.data();
    Require(i2d_CMS_ContentInfo(cms.get(), &out) == size, "OpenSSL has not encoded");
  }

  void verify(const Bytes& encoded) const {
    const unsigned char* at = encoded.data();
    const CmsPtr cms(d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(encoded.size())));
    const BioPtr out(BIO_new(BIO_s_null()));
    Require(cms
                && CMS_verify(cms.get(), nullptr, nullptr, nullptr, out.get(),
                              CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY)
                    == 1,
            "OpenSSL has not verified");
  }
};

// --- the comparisons ---

// How far the process grew beyond what it held before: the peak since the counter was reset.
double GrowthOf(const std::function<void()>& work, size_t unit) {
  const auto status = [](const char* field) {
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with(field))
        return std::strtod(line.c_str() + std::string(field).size(), nullptr) * 1024;
    }
    return 0.0;
  };
  malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << "5";
  const double before = status("VmRSS:");
  work();
  return (status("VmHWM:") - before) / static_cast<double>(unit);
}

// Of a few runs: what disturbs one of them would be half of a ratio.
double LeastOf(const std::function<void()>& work) {
  double least = certkern::bench::SecondsOf(work, 1);
  for (int i = 0; i < 4; ++i) least = std::min(least, certkern::bench::SecondsOf(work, 1));
  return least;
}

void Compare(benchmark::State& state, const Kind& kind, bool signing) {
  const auto size = static_cast<size_t>(state.range(0));
  const Bytes content(size, 'x');
  const OurSigner ours(kind);
  const TheirSigner theirs(kind);
  // room for the messages is there before: what a caller does to get some is not part of the comparison
  Bytes ourMessage, theirMessage;
  ours.sign(content, ourMessage);
  theirs.sign(content, theirMessage);
  ours.verify(ourMessage);
  const std::function<void()> our = [&] {
    signing ? ours.sign(content, ourMessage) : ours.verify(ourMessage);
  };
  const std::function<void()> their = [&] {
    signing ? theirs.sign(content, theirMessage) : theirs.verify(theirMessage);
  };
  const bool large = size > 1 << 20;
  const double growth = large ? GrowthOf(our, size) : 0;
  const double theirGrowth = large ? GrowthOf(their, size) : 0;
  certkern::bench::TakeTurns(state, large ? 1 : 20, 1, our, their);
  if (!large) return;
  state.counters["hash"] = LeastOf([&] { ours.hash(content); }) / LeastOf(our);
  state.counters["growth"] = growth;
  state.counters["theirs"] = theirGrowth;
}

constexpr int kSmall = 1 << 10;
constexpr int kLarge = 64 << 20;

#define MESSAGES(name, kind)                                                                                 \
  BENCHMARK_CAPTURE(Compare, verify_##name, kKinds[kind], false)->Arg(kSmall)->Arg(kLarge)->UseManualTime(); \
  BENCHMARK_CAPTURE(Compare, sign_##name, kKinds[kind], true)->Arg(kSmall)->Arg(kLarge)->UseManualTime()

MESSAGES(rsa, 0);
MESSAGES(p256, 1);
MESSAGES(gost256, 2);

}  // namespace
