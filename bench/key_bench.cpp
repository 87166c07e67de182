// The key level beside what it stands on, called directly: hashes, ciphers, signatures; and the verification of
// certificates beside OpenSSL's. GOST signatures have no counterpart in this process: `openssl speed` with the plug-in tells.
#include <benchmark/benchmark.h>
#include <gcrypt.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

// behind OpenSSL's headers: both define X509_NAME, there a type and here a number
#include <certkern/certkern.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/owner.h"

namespace {

using ProviderHandle = certkern::Owner<HCRYPTPROV, CryptReleaseContext>;
using HashHandle = certkern::Owner<HCRYPTHASH, CryptDestroyHash>;
using KeyHandle = certkern::Owner<HCRYPTKEY, CryptDestroyKey>;

template <auto Free>
struct Freer {
  template <class T>
  void operator()(T* object) const {
    Free(object);
  }
};
using PkeyPtr = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY_free>>;
using PkeyContext = std::unique_ptr<EVP_PKEY_CTX, Freer<EVP_PKEY_CTX_free>>;
using MdContext = std::unique_ptr<EVP_MD_CTX, Freer<EVP_MD_CTX_free>>;
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, Freer<EVP_CIPHER_CTX_free>>;
using X509Ptr = std::unique_ptr<X509, Freer<X509_free>>;

constexpr int64_t kMebibyte = 1 << 20;

void Check(benchmark::State& state, bool ok) {
  if (!ok) state.SkipWithError("failed");
}

ProviderHandle Context(DWORD type = PROV_GOST_2012_256) {
  ProviderHandle provider;
  CryptAcquireContextA(provider.out(), nullptr, nullptr, type, CRYPT_VERIFYCONTEXT);
  return provider;
}

void CountBytes(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

// --- hashes: a new object, its data, its value ---

void HashOurs(benchmark::State& state, ALG_ID algorithm) {
  const ProviderHandle provider = Context();
  const std::vector<BYTE> data(static_cast<size_t>(state.range(0)), 0x5A);
  BYTE value[64];
  for (auto _ : state) {
    HashHandle hash;
    DWORD size = sizeof(value);
    Check(state,
          CryptCreateHash(provider.get(), algorithm, 0, 0, hash.out())
              && CryptHashData(hash.get(), data.data(), static_cast<DWORD>(data.size()), 0)
              && CryptGetHashParam(hash.get(), HP_HASHVAL, value, &size, 0));
    benchmark::DoNotOptimize(value);
  }
  CountBytes(state);
}

void HashLibcrypto(benchmark::State& state, const char* name) {
  EVP_MD* algorithm = EVP_MD_fetch(nullptr, name, nullptr);
  const std::vector<BYTE> data(static_cast<size_t>(state.range(0)), 0x5A);
  BYTE value[64];
  for (auto _ : state) {
    const MdContext context(EVP_MD_CTX_new());
    EVP_DigestInit_ex2(context.get(), algorithm, nullptr);
    EVP_DigestUpdate(context.get(), data.data(), data.size());
    EVP_DigestFinal_ex(context.get(), value, nullptr);
    benchmark::DoNotOptimize(value);
  }
  EVP_MD_free(algorithm);
  CountBytes(state);
}

void HashLibgcrypt(benchmark::State& state, int algorithm) {
  const std::vector<BYTE> data(static_cast<size_t>(state.range(0)), 0x5A);
  for (auto _ : state) {
    gcry_md_hd_t handle = nullptr;
    gcry_md_open(&handle, algorithm, 0);
    gcry_md_write(handle, data.data(), data.size());
    benchmark::DoNotOptimize(gcry_md_read(handle, algorithm));
    gcry_md_close(handle);
  }
  CountBytes(state);
}

void HashSizes(benchmark::internal::Benchmark* bench) { bench->Arg(64)->Arg(1024)->Arg(kMebibyte); }

BENCHMARK_CAPTURE(HashOurs, sha256, CALG_SHA_256)->Apply(HashSizes);
BENCHMARK_CAPTURE(HashLibcrypto, sha256, "SHA256")->Apply(HashSizes);
BENCHMARK_CAPTURE(HashOurs, streebog256, CALG_GR3411_2012_256)->Apply(HashSizes);
BENCHMARK_CAPTURE(HashLibgcrypt, streebog256, GCRY_MD_STRIBOG256)->Apply(HashSizes);
BENCHMARK_CAPTURE(HashOurs, streebog512, CALG_GR3411_2012_512)->Apply(HashSizes);
BENCHMARK_CAPTURE(HashLibgcrypt, streebog512, GCRY_MD_STRIBOG512)->Apply(HashSizes);
BENCHMARK_CAPTURE(HashOurs, gost94, CALG_GR3411)->Apply(HashSizes);
BENCHMARK_CAPTURE(HashLibgcrypt, gost94, GCRY_MD_GOSTR3411_CP)->Apply(HashSizes);

// --- ciphers: pieces of one message ---

void CipherOurs(benchmark::State& state, ALG_ID algorithm, DWORD mode) {
  const ProviderHandle provider = Context();
  KeyHandle key;
  Check(state,
        CryptGenKey(provider.get(), algorithm, 0, key.out())
            && CryptSetKeyParam(key.get(), KP_MODE, reinterpret_cast<const BYTE*>(&mode), 0));
  std::vector<BYTE> data(static_cast<size_t>(state.range(0)), 0x5A);
  for (auto _ : state) {
    DWORD size = static_cast<DWORD>(data.size());
    Check(state, CryptEncrypt(key.get(), 0, FALSE, 0, data.data(), &size, size));
    benchmark::ClobberMemory();
  }
  CountBytes(state);
}

void CipherLibcrypto(benchmark::State& state, const char* name) {
  EVP_CIPHER* algorithm = EVP_CIPHER_fetch(nullptr, name, nullptr);
  const BYTE key[32] = {1};
  const BYTE iv[16] = {};
  const CipherContext context(EVP_CIPHER_CTX_new());
  EVP_EncryptInit_ex2(context.get(), algorithm, key, iv, nullptr);
  EVP_CIPHER_CTX_set_padding(context.get(), 0);
  std::vector<BYTE> data(static_cast<size_t>(state.range(0)), 0x5A);
  for (auto _ : state) {
    int size = 0;
    EVP_EncryptUpdate(context.get(), data.data(), &size, data.data(), static_cast<int>(data.size()));
    benchmark::ClobberMemory();
  }
  EVP_CIPHER_free(algorithm);
  CountBytes(state);
}

void CipherLibgcrypt(benchmark::State& state, int algorithm, int mode) {
  gcry_cipher_hd_t handle = nullptr;
  gcry_cipher_open(&handle, algorithm, mode, 0);
  char box[] = "1.2.643.7.1.2.5.1.1";
  gcry_cipher_ctl(handle, GCRYCTL_SET_SBOX, box, 0);
  const BYTE key[32] = {1};
  const BYTE iv[8] = {};
  gcry_cipher_setkey(handle, key, sizeof(key));
  gcry_cipher_setiv(handle, iv, sizeof(iv));
  std::vector<BYTE> data(static_cast<size_t>(state.range(0)), 0x5A);
  for (auto _ : state) {
    gcry_cipher_encrypt(handle, data.data(), data.size(), nullptr, 0);
    benchmark::ClobberMemory();
  }
  gcry_cipher_close(handle);
  CountBytes(state);
}

void CipherSizes(benchmark::internal::Benchmark* bench) { bench->Arg(64)->Arg(kMebibyte); }

BENCHMARK_CAPTURE(CipherOurs, aes256cbc, CALG_AES_256, CRYPT_MODE_CBC)->Apply(CipherSizes);
BENCHMARK_CAPTURE(CipherLibcrypto, aes256cbc, "AES-256-CBC")->Apply(CipherSizes);
BENCHMARK_CAPTURE(CipherOurs, des3cbc, CALG_3DES, CRYPT_MODE_CBC)->Apply(CipherSizes);
BENCHMARK_CAPTURE(CipherLibcrypto, des3cbc, "DES-EDE3-CBC")->Apply(CipherSizes);
BENCHMARK_CAPTURE(CipherOurs, gost28147cfb, CALG_G28147, CRYPT_MODE_CFB)->Apply(CipherSizes);
BENCHMARK_CAPTURE(CipherLibgcrypt, gost28147cfb, GCRY_CIPHER_GOST28147_MESH, GCRY_CIPHER_MODE_CFB)
    ->Apply(CipherSizes);
BENCHMARK_CAPTURE(CipherOurs, magma, CALG_GR3412_2015_M, CRYPT_MODE_CTR_ACPKM)->Apply(CipherSizes);
BENCHMARK_CAPTURE(CipherOurs, kuznyechik, CALG_GR3412_2015_K, CRYPT_MODE_CTR_ACPKM)->Apply(CipherSizes);
BENCHMARK_CAPTURE(CipherOurs, kuznyechikomac, CALG_GR3412_2015_K, CRYPT_MODE_CTR_ACPKM_OMAC)
    ->Apply(CipherSizes);

// --- signatures of a hash that has its value ---

struct Signer {
  ProviderHandle provider = Context();
  KeyHandle key;
  HashHandle hash;
  BYTE signature[1024];
  DWORD size = sizeof(signature);

  Signer(ALG_ID algorithm, ALG_ID hashAlgorithm, DWORD flags = 0) {
    const BYTE value[64] = {7};
    CryptGenKey(provider.get(), algorithm, flags, key.out());
    CryptCreateHash(provider.get(), hashAlgorithm, 0, 0, hash.out());
    if (hashAlgorithm == CALG_MESSAGE_ITSELF) {
      CryptHashData(hash.get(), value, 32, 0);
    } else {
      CryptSetHashParam(hash.get(), HP_HASHVAL, value, 0);
    }
  }
  bool sign() {
    size = sizeof(signature);
    return CryptSignHashA(hash.get(), AT_SIGNATURE, nullptr, 0, signature, &size);
  }
  bool verify() const { return CryptVerifySignatureA(hash.get(), signature, size, key.get(), nullptr, 0); }
};

void SignOurs(benchmark::State& state, ALG_ID algorithm, ALG_ID hash) {
  Signer signer(algorithm, hash);
  for (auto _ : state) Check(state, signer.sign());
}
void VerifyOurs(benchmark::State& state, ALG_ID algorithm, ALG_ID hash) {
  Signer signer(algorithm, hash);
  Check(state, signer.sign());
  for (auto _ : state) Check(state, signer.verify());
}

PkeyPtr NewPkey(const char* algorithm) {
  const std::string name = algorithm;
  if (name == "RSA") return PkeyPtr(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t{2048}));
  if (name == "EC") return PkeyPtr(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  return PkeyPtr(EVP_PKEY_Q_keygen(nullptr, nullptr, algorithm));
}

// The back end as the key level has to call it: a prepared key, a context for each operation.
struct DirectSigner {
  PkeyPtr key;
  BYTE signature[1024];
  size_t size = sizeof(signature);

  explicit DirectSigner(const char* algorithm) : key(NewPkey(algorithm)) {}
  static void setHash(EVP_PKEY_CTX* context) { EVP_PKEY_CTX_set_signature_md(context, EVP_sha256()); }
  bool sign() {
    const BYTE value[32] = {7};
    const PkeyContext context(EVP_PKEY_CTX_new_from_pkey(nullptr, key.get(), nullptr));
    size = sizeof(signature);
    if (EVP_PKEY_sign_init(context.get()) != 1) return false;
    setHash(context.get());
    return EVP_PKEY_sign(context.get(), signature, &size, value, sizeof(value)) == 1;
  }
  bool verify() const {
    const BYTE value[32] = {7};
    const PkeyContext context(EVP_PKEY_CTX_new_from_pkey(nullptr, key.get(), nullptr));
    if (EVP_PKEY_verify_init(context.get()) != 1) return false;
    setHash(context.get());
    return EVP_PKEY_verify(context.get(), signature, size, value, sizeof(value)) == 1;
  }
};

void SignDirect(benchmark::State& state, const char* algorithm) {
  DirectSigner signer(algorithm);
  for (auto _ : state) Check(state, signer.sign());
}
void VerifyDirect(benchmark::State& state, const char* algorithm) {
  DirectSigner signer(algorithm);
  Check(state, signer.sign());
  for (auto _ : state) Check(state, signer.verify());
}

BENCHMARK_CAPTURE(SignOurs, p256, CALG_ECDSA, CALG_SHA_256);
BENCHMARK_CAPTURE(SignDirect, p256, "EC");
BENCHMARK_CAPTURE(VerifyOurs, p256, CALG_ECDSA, CALG_SHA_256);
BENCHMARK_CAPTURE(VerifyDirect, p256, "EC");
BENCHMARK_CAPTURE(SignOurs, rsa2048, CALG_RSA_SIGN, CALG_SHA_256);
BENCHMARK_CAPTURE(SignDirect, rsa2048, "RSA");
BENCHMARK_CAPTURE(VerifyOurs, rsa2048, CALG_RSA_SIGN, CALG_SHA_256);
BENCHMARK_CAPTURE(VerifyDirect, rsa2048, "RSA");
BENCHMARK_CAPTURE(SignOurs, ed25519, CALG_EDDSA, CALG_MESSAGE_ITSELF);
BENCHMARK_CAPTURE(VerifyOurs, ed25519, CALG_EDDSA, CALG_MESSAGE_ITSELF);
BENCHMARK_CAPTURE(SignOurs, gost256, CALG_GR3410_12_256, CALG_GR3411_2012_256);
BENCHMARK_CAPTURE(VerifyOurs, gost256, CALG_GR3410_12_256, CALG_GR3411_2012_256);
BENCHMARK_CAPTURE(SignOurs, gost512, CALG_GR3410_12_512, CALG_GR3411_2012_512);
BENCHMARK_CAPTURE(VerifyOurs, gost512, CALG_GR3410_12_512, CALG_GR3411_2012_512);

// --- certificates: decoded anew, key imported anew, verified ---

std::vector<BYTE> SelfSigned(const char* algorithm) {
  const PkeyPtr key = NewPkey(algorithm);
  const X509Ptr certificate(X509_new());
  X509_set_version(certificate.get(), 2);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
  X509_set_pubkey(certificate.get(), key.get());
  X509_sign(certificate.get(), key.get(), EVP_sha256());
  BYTE* encoded = nullptr;
  const int size = i2d_X509(certificate.get(), &encoded);
  std::vector<BYTE> bytes(encoded, encoded + size);
  OPENSSL_free(encoded);
  return bytes;
}

void CertificateOurs(benchmark::State& state, const char* algorithm) {
  const std::vector<BYTE> encoded = SelfSigned(algorithm);
  const auto size = static_cast<DWORD>(encoded.size());
  CERT_INFO* info = nullptr;
  DWORD infoSize = 0;
  Check(state,
        CryptDecodeObjectEx(X509_ASN_ENCODING, X509_CERT_TO_BE_SIGNED, encoded.data(), size,
                            CRYPT_DECODE_ALLOC_FLAG, nullptr, &info, &infoSize));
  for (auto _ : state) {
    Check(state,
          CryptVerifyCertificateSignature(0, X509_ASN_ENCODING, encoded.data(), size,
                                          &info->SubjectPublicKeyInfo));
  }
  LocalFree(info);
}
void CertificateDirect(benchmark::State& state, const char* algorithm) {
  const std::vector<BYTE> encoded = SelfSigned(algorithm);
  for (auto _ : state) {
    const BYTE* at = encoded.data();
    const X509Ptr certificate(d2i_X509(nullptr, &at, static_cast<long>(encoded.size())));
    Check(state, X509_verify(certificate.get(), X509_get0_pubkey(certificate.get())) == 1);
  }
}
BENCHMARK_CAPTURE(CertificateOurs, rsa2048, "RSA");
BENCHMARK_CAPTURE(CertificateDirect, rsa2048, "RSA");
BENCHMARK_CAPTURE(CertificateOurs, p256, "EC");
BENCHMARK_CAPTURE(CertificateDirect, p256, "EC");

}  // namespace
