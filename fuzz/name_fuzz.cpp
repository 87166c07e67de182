// Any text through the parser, any bytes through the printer: what was printed is parsed again and says the same. Every
// buffer is of exactly the size that was asked for, and of one character less.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/name.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

CERT_NAME_BLOB BlobOf(std::vector<BYTE>& bytes) { return {static_cast<DWORD>(bytes.size()), bytes.data()}; }

std::wstring Print(std::vector<BYTE>& encoded, DWORD type) {
  CERT_NAME_BLOB blob = BlobOf(encoded);
  const DWORD count = CertNameToStrW(X509_ASN_ENCODING, &blob, type, nullptr, 0);
  const auto text = std::make_unique<wchar_t[]>(count);
  Require(CertNameToStrW(X509_ASN_ENCODING, &blob, type, text.get(), count) == count && !text[count - 1]);
  if (count > 1) {
    const auto cut = std::make_unique<wchar_t[]>(count - 1);
    Require(CertNameToStrW(X509_ASN_ENCODING, &blob, type, cut.get(), count - 1) == count - 1);
    Require(std::equal(cut.get(), cut.get() + count - 2, text.get()));
  }
  const DWORD bound = CertNameToStrA(X509_ASN_ENCODING, &blob, type, nullptr, 0);
  const auto narrow = std::make_unique<char[]>(bound);
  const DWORD size = CertNameToStrA(X509_ASN_ENCODING, &blob, type, narrow.get(), bound);
  Require(size <= bound && (size > 1) == (count > 1));
  return {text.get(), count - 1};
}

std::optional<std::vector<BYTE>> Parse(const std::wstring& text, DWORD type) {
  DWORD size = 0;
  LPCWSTR error = nullptr;
  SetLastError(0);
  if (!CertStrToNameW(X509_ASN_ENCODING, text.c_str(), type, nullptr, nullptr, &size, &error)) {
    Require(GetLastError() && error && error >= text.c_str() && error <= text.c_str() + text.size());
    return std::nullopt;
  }
  std::vector<BYTE> encoded(size);
  Require(CertStrToNameW(X509_ASN_ENCODING, text.c_str(), type, nullptr, encoded.data(), &size, nullptr));
  Require(size == encoded.size());
  return encoded;
}

// A backslash is taken for an escape, a carriage return is not quoted, and what is no character has no encoding.
bool Survives(const std::wstring& text) {
  return std::all_of(text.begin(), text.end(), [](wchar_t c) {
    const auto code = static_cast<uint32_t>(c);
    return c != L'\\' && c != L'\r' && code < 0x110000 && code >> 11 != 0xD800 >> 11;
  });
}

void PrintAndParse(std::vector<BYTE>& encoded, DWORD type, bool mustParse) {
  const std::wstring text = Print(encoded, type);
  if (!Survives(text)) return;
  auto again = Parse(text, type);
  Require(again || !mustParse);
  if (again) Require(Print(*again, type) == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static constexpr DWORD kSeparators[] = {0, CERT_NAME_STR_COMMA_FLAG, CERT_NAME_STR_SEMICOLON_FLAG,
                                          CERT_NAME_STR_CRLF_FLAG};
  if (size < 1) return 0;
  const DWORD type = (data[0] & 1 ? CERT_OID_NAME_STR : CERT_X500_NAME_STR) | kSeparators[data[0] >> 1 & 3]
      | (data[0] & 8 ? CERT_NAME_STR_REVERSE_FLAG : 0) | (data[0] & 16 ? CERT_NAME_STR_NO_PLUS_FLAG : 0);
  std::vector<BYTE> bytes(data + 1, data + size);
  PrintAndParse(bytes, type, false);
  if (bytes.empty()) return 0;
  std::wstring text(bytes.size(), L'\0');
  text.resize(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, reinterpret_cast<LPCSTR>(bytes.data()),
                                                      static_cast<int>(bytes.size()), text.data(),
                                                      static_cast<int>(text.size()))));
  text.resize(std::min(text.size(), text.find(L'\0')));
  // the printer knows an identifier by fewer digits, and then perhaps by a stricter type
  const bool mustParse = text.find(L'.') == text.npos;
  if (auto encoded = Parse(text, type)) PrintAndParse(*encoded, type, mustParse);
  return 0;
}
