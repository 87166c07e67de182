// Text encodings beside OpenSSL's: its block functions for bare Base64, its line functions for lines, its PEM functions
// for banners. Ours are the exported functions, as a program calls them. Rates are in bytes of binary data.
#include <benchmark/benchmark.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

// behind OpenSSL's headers: both define X509_NAME, there a type and here a number
#include <certkern/encode.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int64_t kCertificateSize = 1536;
constexpr int64_t kMebibyte = 1 << 20;

std::vector<BYTE> RandomBytes(const benchmark::State& state) {
  std::vector<BYTE> bytes(static_cast<size_t>(state.range(0)));
  std::minstd_rand random(1);
  for (BYTE& byte : bytes) byte = static_cast<BYTE>(random());
  return bytes;
}

void CountBytes(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

std::string TextOf(const std::vector<BYTE>& data, DWORD flags) {
  DWORD count = 0;
  CryptBinaryToStringA(data.data(), static_cast<DWORD>(data.size()), flags, nullptr, &count);
  std::string text(count, '\0');
  CryptBinaryToStringA(data.data(), static_cast<DWORD>(data.size()), flags, text.data(), &count);
  text.resize(count);
  return text;
}

void Encode(benchmark::State& state, DWORD flags) {
  const std::vector<BYTE> data = RandomBytes(state);
  std::string text(TextOf(data, flags).size() + 1, '\0');
  for (auto _ : state) {
    DWORD count = static_cast<DWORD>(text.size());
    const auto size = static_cast<DWORD>(data.size());
    if (!CryptBinaryToStringA(data.data(), size, flags, text.data(), &count)) state.SkipWithError("encode");
    benchmark::ClobberMemory();
  }
  CountBytes(state);
}

void Decode(benchmark::State& state, DWORD flags, DWORD textFlags) {
  const std::vector<BYTE> data = RandomBytes(state);
  const std::string text = TextOf(data, textFlags);
  std::vector<BYTE> bytes(data.size());
  for (auto _ : state) {
    DWORD count = static_cast<DWORD>(bytes.size());
    const auto size = static_cast<DWORD>(text.size());
    if (!CryptStringToBinaryA(text.data(), size, flags, bytes.data(), &count, nullptr, nullptr)) {
      state.SkipWithError("decode");
    }
    benchmark::ClobberMemory();
  }
  if (bytes != data) state.SkipWithError("decode: other bytes");
  CountBytes(state);
}

void SizeQuery(benchmark::State& state, DWORD flags, DWORD textFlags) {
  const std::string text = TextOf(RandomBytes(state), textFlags);
  for (auto _ : state) {
    DWORD count = 0;
    const auto size = static_cast<DWORD>(text.size());
    CryptStringToBinaryA(text.data(), size, flags, nullptr, &count, nullptr, nullptr);
    benchmark::DoNotOptimize(count);
  }
  CountBytes(state);
}

void OpenSslEncodeBlock(benchmark::State& state) {
  const std::vector<BYTE> data = RandomBytes(state);
  std::vector<BYTE> text(data.size() * 2);
  for (auto _ : state) {
    EVP_EncodeBlock(text.data(), data.data(), static_cast<int>(data.size()));
    benchmark::ClobberMemory();
  }
  CountBytes(state);
}

void OpenSslDecodeBlock(benchmark::State& state) {
  const std::vector<BYTE> data = RandomBytes(state);
  const std::string text = TextOf(data, CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF);
  std::vector<BYTE> bytes(data.size() + 3);
  for (auto _ : state) {
    const auto* characters = reinterpret_cast<const BYTE*>(text.data());
    if (EVP_DecodeBlock(bytes.data(), characters, static_cast<int>(text.size())) < 0)
      state.SkipWithError("decode");
    benchmark::ClobberMemory();
  }
  CountBytes(state);
}

using EncodeContext = std::unique_ptr<EVP_ENCODE_CTX, decltype(&EVP_ENCODE_CTX_free)>;

void OpenSslEncodeLines(benchmark::State& state) {
  const std::vector<BYTE> data = RandomBytes(state);
  std::vector<BYTE> text(data.size() * 2);
  const EncodeContext context(EVP_ENCODE_CTX_new(), &EVP_ENCODE_CTX_free);
  for (auto _ : state) {
    int count = 0;
    int rest = 0;
    EVP_EncodeInit(context.get());
    EVP_EncodeUpdate(context.get(), text.data(), &count, data.data(), static_cast<int>(data.size()));
    EVP_EncodeFinal(context.get(), text.data() + count, &rest);
    benchmark::ClobberMemory();
  }
  CountBytes(state);
}

void OpenSslDecodeLines(benchmark::State& state) {
  const std::vector<BYTE> data = RandomBytes(state);
  const std::string text = TextOf(data, CRYPT_STRING_BASE64);
  std::vector<BYTE> bytes(data.size() + 3);
  const EncodeContext context(EVP_ENCODE_CTX_new(), &EVP_ENCODE_CTX_free);
  for (auto _ : state) {
    int count = 0;
    int rest = 0;
    const auto* characters = reinterpret_cast<const BYTE*>(text.data());
    EVP_DecodeInit(context.get());
    if (EVP_DecodeUpdate(context.get(), bytes.data(), &count, characters, static_cast<int>(text.size())) < 0
        || EVP_DecodeFinal(context.get(), bytes.data() + count, &rest) < 0) {
      state.SkipWithError("decode");
    }
    benchmark::ClobberMemory();
  }
  CountBytes(state);
}

using Bio = std::unique_ptr<BIO, decltype(&BIO_free)>;

void OpenSslPemWrite(benchmark::State& state) {
  const std::vector<BYTE> data = RandomBytes(state);
  const Bio bio(BIO_new(BIO_s_mem()), &BIO_free);
  for (auto _ : state) {
    BIO_reset(bio.get());
    if (!PEM_write_bio(bio.get(), PEM_STRING_X509, "", data.data(), static_cast<long>(data.size()))) {
      state.SkipWithError("write");
    }
    benchmark::ClobberMemory();
  }
  CountBytes(state);
}

void OpenSslPemRead(benchmark::State& state) {
  const std::string text = TextOf(RandomBytes(state), CRYPT_STRING_BASE64HEADER);
  for (auto _ : state) {
    const Bio bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), &BIO_free);
    char* name = nullptr;
    char* header = nullptr;
    BYTE* bytes = nullptr;
    long count = 0;
    if (!PEM_read_bio(bio.get(), &name, &header, &bytes, &count)) state.SkipWithError("read");
    benchmark::ClobberMemory();
    OPENSSL_free(name);
    OPENSSL_free(header);
    OPENSSL_free(bytes);
  }
  CountBytes(state);
}

constexpr DWORD kOneLine = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
constexpr DWORD kLines = CRYPT_STRING_BASE64;
constexpr DWORD kPem = CRYPT_STRING_BASE64HEADER;

BENCHMARK_CAPTURE(Encode, base64, kOneLine)->Arg(kMebibyte);
BENCHMARK(OpenSslEncodeBlock)->Arg(kMebibyte);
BENCHMARK_CAPTURE(Encode, base64_lines, kLines)->Arg(kMebibyte);
BENCHMARK(OpenSslEncodeLines)->Arg(kMebibyte);

BENCHMARK_CAPTURE(Decode, base64, CRYPT_STRING_BASE64, kOneLine)->Arg(kMebibyte);
BENCHMARK_CAPTURE(SizeQuery, base64, CRYPT_STRING_BASE64, kOneLine)->Arg(kMebibyte);
BENCHMARK(OpenSslDecodeBlock)->Arg(kMebibyte);
BENCHMARK_CAPTURE(Decode, base64_lines, CRYPT_STRING_BASE64, kLines)->Arg(kMebibyte);
BENCHMARK_CAPTURE(SizeQuery, base64_lines, CRYPT_STRING_BASE64, kLines)->Arg(kMebibyte);
BENCHMARK(OpenSslDecodeLines)->Arg(kMebibyte);

BENCHMARK_CAPTURE(Encode, pem, kPem)->Arg(kCertificateSize)->Arg(kMebibyte);
BENCHMARK(OpenSslPemWrite)->Arg(kCertificateSize)->Arg(kMebibyte);
BENCHMARK_CAPTURE(Decode, pem, kPem, kPem)->Arg(kCertificateSize)->Arg(kMebibyte);
BENCHMARK_CAPTURE(SizeQuery, pem, kPem, kPem)->Arg(kCertificateSize)->Arg(kMebibyte);
BENCHMARK(OpenSslPemRead)->Arg(kCertificateSize)->Arg(kMebibyte);

}  // namespace
