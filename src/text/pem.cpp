#include "text/pem.h"

#include <certkern/encode.h>
#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>

#include "platform/limits.h"
#include "text/base64.h"

namespace certkern {
namespace {

char* WriteLine(std::string_view line, char* out) {
  out = std::copy(line.begin(), line.end(), out);
  *out++ = '\n';
  return out;
}

}  // namespace

uint64_t PemTextLength(const PemBanners& banners, size_t length) {
  const uint64_t lines = std::string_view(banners.begin).size() + std::string_view(banners.end).size() + 2;
  return lines + Base64TextLength(length, LineEnds::Written);
}

char* PemWrite(const PemBanners& banners, std::span<const BYTE> data, char* out) {
  out = WriteLine(banners.begin, out);
  out = Base64Write(data, LineEnds::Written, out);
  return WriteLine(banners.end, out);
}

std::optional<std::string_view> PemBody(std::string_view text) {
  enum class State { Nothing, OpeningDashes, Words, ClosingDashes };
  State state = State::Nothing;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '-') {
      if (state == State::Nothing) state = State::OpeningDashes;
      if (state == State::Words) state = State::ClosingDashes;
    } else if (!IsSpace(text[i])) {
      if (state == State::Nothing || state == State::ClosingDashes) return text.substr(i);
      state = State::Words;
    }
  }
  SetLastError(CRYPT_E_BAD_ENCODE);
  return std::nullopt;
}

bool Base64EncodeWithHeader(const PemBanners* banners, const BYTE* data, DWORD length, char* out,
                            DWORD* outLength) {
  if (!banners || banners->size != sizeof(PemBanners) || !banners->begin || !banners->end || !data
      || !outLength) {
    SetLastError(ERROR_BAD_ARGUMENTS);
    return false;
  }
  const SizeAnswer answer = AnswerSize(PemTextLength(*banners, length), out, outLength);
  if (answer != SizeAnswer::Write) return answer == SizeAnswer::SizeOnly;
  PemWrite(*banners, std::span(data, length), out);
  return true;
}

bool Base64DecodeSkippingHeader(const char* text, DWORD length, BYTE* out, DWORD* outLength) {
  if (!text || !outLength) {
    SetLastError(ERROR_BAD_ARGUMENTS);
    return false;
  }
  const std::optional<std::string_view> body = PemBody(std::string_view(text, length));
  if (!body) {
    *outLength = 0;
    return false;
  }
  return Base64Decode(body->data(), static_cast<DWORD>(body->size()), out, outLength);
}

}  // namespace certkern
