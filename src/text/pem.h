// Base64 between banners, RFC 7468: the banner table, and the way from a text to the body behind its banner.
#ifndef CERTKERN_TEXT_PEM_H
#define CERTKERN_TEXT_PEM_H

#include <certkern/types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace certkern {

// A pair of banners, NUL-terminated and without line ends. size is the size of this record, so that a caller's
// uninitialised record is noticed.
struct PemBanners {
  DWORD size;
  const char* begin;
  const char* end;
};
CERTKERN_RECORD_SIZE(PemBanners, 24);

inline constexpr PemBanners kCertificateBanners = {
    sizeof(PemBanners),
    "-----BEGIN CERTIFICATE-----",
    "-----END CERTIFICATE-----",
};
inline constexpr PemBanners kRequestBanners = {
    sizeof(PemBanners),
    "-----BEGIN NEW CERTIFICATE REQUEST-----",
    "-----END NEW CERTIFICATE REQUEST-----",
};
inline constexpr PemBanners kCrlBanners = {
    sizeof(PemBanners),
    "-----BEGIN X509 CRL-----",
    "-----END X509 CRL-----",
};

// The exact number of characters that PemWrite makes; each banner has a line of its own.
uint64_t PemTextLength(const PemBanners& banners, size_t length);

// As Base64Write, between the banners.
char* PemWrite(const PemBanners& banners, std::span<const BYTE> data, char* out);

// The text from its first character behind the banner on, to be read as Base64, where the closing banner ends it.
// What stands in a banner is never compared, and a text that does not begin with "-" is all body. Nothing, with
// CRYPT_E_BAD_ENCODE, when the text ends before a body begins.
std::optional<std::string_view> PemBody(std::string_view text);

// White space of the C locale: how a file reads must not depend on the locale that a process has set.
constexpr bool IsSpace(char character) {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

// As Base64Encode, with lines, between the banners. Fails with ERROR_BAD_ARGUMENTS also for null banners or a
// wrong size in them.
[[nodiscard]] bool Base64EncodeWithHeader(const PemBanners* banners, const BYTE* data, DWORD length,
                                          char* out, DWORD* outLength);

// As Base64Decode, of the body that PemBody finds.
[[nodiscard]] bool Base64DecodeSkippingHeader(const char* text, DWORD length, BYTE* out, DWORD* outLength);

}  // namespace certkern

#endif
