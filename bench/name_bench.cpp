// Names as text, and texts as names, beside OpenSSL: its printing, and its making of names entry by entry, which is what
// a program does that has a text. Ours are the exported functions, as a program calls them.
#include <benchmark/benchmark.h>
#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/x509.h>

using OpenSslName = X509_NAME;

// behind OpenSSL's headers: both define X509_NAME, there a type and here a number
#include <certkern/encode.h>
#include <certkern/name.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Part {
  const char* key;     // ours
  const char* theirs;  // their short name
  std::string_view value;
};
constexpr Part kLatin[] = {
    {"C",  "C",            "DE"                    },
    {"S",  "ST",           "Bavaria"               },
    {"L",  "L",            "Munich"                },
    {"O",  "O",            "A Company for Examples"},
    {"OU", "OU",           "Department 7"          },
    {"CN", "CN",           "Some Employee"         },
    {"E",  "emailAddress", "employee@example.org"  },
};
constexpr Part kCyrillic[] = {
    {"C",  "C",  "RU"                                      },
    {"S",  "ST", "г. Москва"                        },
    {"L",  "L",  "Москва"                            },
    {"O",  "O",  "Общество для примеров"},
    {"CN", "CN", "Иванов Иван Иванович"  },
};

using Parts = std::pair<const Part*, size_t>;
template <size_t count>
constexpr Parts All(const Part (&parts)[count]) {
  return {parts, count};
}

std::string TextOf(Parts parts) {
  std::string text;
  for (size_t i = 0; i < parts.second; ++i) {
    if (i) text += ", ";
    text.append(parts.first[i].key).append("=").append(parts.first[i].value);
  }
  return text;
}

// All characters here take one wchar_t.
std::wstring Wide(const std::string& text) {
  std::wstring wide;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    wide += byte < 0x80
        ? static_cast<wchar_t>(byte)
        : static_cast<wchar_t>((byte & 0x1F) << 6 | (static_cast<unsigned char>(text[++i]) & 0x3F));
  }
  return wide;
}

std::vector<BYTE> Encoded(const std::wstring& text) {
  std::vector<BYTE> bytes(1024);
  auto size = static_cast<DWORD>(bytes.size());
  if (!CertStrToNameW(X509_ASN_ENCODING, text.c_str(), CERT_X500_NAME_STR, nullptr, bytes.data(), &size,
                      nullptr))
    std::abort();
  bytes.resize(size);
  return bytes;
}

void TextToName(benchmark::State& state, Parts parts) {
  const std::wstring text = Wide(TextOf(parts));
  std::vector<BYTE> bytes(1024);
  for (auto _ : state) {
    auto size = static_cast<DWORD>(bytes.size());
    if (!CertStrToNameW(X509_ASN_ENCODING, text.c_str(), CERT_X500_NAME_STR, nullptr, bytes.data(), &size,
                        nullptr))
      state.SkipWithError("parse");
    benchmark::ClobberMemory();
  }
}

void NameToText(benchmark::State& state, Parts parts) {
  std::vector<BYTE> bytes = Encoded(Wide(TextOf(parts)));
  CERT_NAME_BLOB name{static_cast<DWORD>(bytes.size()), bytes.data()};
  std::wstring text(512, L'\0');
  for (auto _ : state) {
    if (CertNameToStrW(X509_ASN_ENCODING, &name, CERT_X500_NAME_STR, text.data(), 512) < 2)
      state.SkipWithError("print");
    benchmark::ClobberMemory();
  }
}

// --- theirs ---

using NameOwner = std::unique_ptr<OpenSslName, decltype(&X509_NAME_free)>;

NameOwner Build(Parts parts) {
  NameOwner name(X509_NAME_new(), &X509_NAME_free);
  for (size_t i = 0; i < parts.second; ++i) {
    const Part& part = parts.first[i];
    X509_NAME_add_entry_by_txt(name.get(), part.theirs, MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(part.value.data()),
                               static_cast<int>(part.value.size()), -1, 0);
  }
  return name;
}

// Entry by entry, and encoded.
void OpenSslTextToName(benchmark::State& state, Parts parts) {
  std::vector<BYTE> bytes(1024);
  for (auto _ : state) {
    const NameOwner name = Build(parts);
    BYTE* at = bytes.data();
    if (i2d_X509_NAME(name.get(), &at) <= 0) state.SkipWithError("encode");
    benchmark::ClobberMemory();
  }
}

// From the encoded name on, as ours.
void OpenSslNameToText(benchmark::State& state, Parts parts) {
  BYTE* encoded = nullptr;
  const int size = i2d_X509_NAME(Build(parts).get(), &encoded);
  const std::unique_ptr<BIO, decltype(&BIO_free)> out(BIO_new(BIO_s_mem()), &BIO_free);
  for (auto _ : state) {
    const BYTE* at = encoded;
    const NameOwner name(d2i_X509_NAME(nullptr, &at, size), &X509_NAME_free);
    static_cast<void>(BIO_reset(out.get()));
    if (X509_NAME_print_ex(out.get(), name.get(), 0, XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB) < 1)
      state.SkipWithError("print");
  }
  OPENSSL_free(encoded);
}

// Printing alone.
void OpenSslPrint(benchmark::State& state, Parts parts) {
  const NameOwner name = Build(parts);
  const std::unique_ptr<BIO, decltype(&BIO_free)> out(BIO_new(BIO_s_mem()), &BIO_free);
  for (auto _ : state) {
    static_cast<void>(BIO_reset(out.get()));
    if (X509_NAME_print_ex(out.get(), name.get(), 0, XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB) < 1)
      state.SkipWithError("print");
  }
}

#define CERTKERN_NAMES(function)                   \
  BENCHMARK_CAPTURE(function, latin, All(kLatin)); \
  BENCHMARK_CAPTURE(function, cyrillic, All(kCyrillic))

CERTKERN_NAMES(NameToText);
CERTKERN_NAMES(OpenSslNameToText);
CERTKERN_NAMES(OpenSslPrint);
CERTKERN_NAMES(TextToName);
CERTKERN_NAMES(OpenSslTextToName);

}  // namespace
