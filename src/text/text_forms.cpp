#include "text/text_forms.h"

#include <certkern/encode.h>
#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <limits>
#include <optional>
#include <string>

#include "platform/limits.h"
#include "text/base64.h"
#include "text/hex.h"
#include "text/pem.h"

namespace certkern {
namespace {

// --- bytes to text ---

enum class Writer { Pem, Base64, Base64OneLine, Hex, Bytes };

struct WrittenForm {
  DWORD flags;
  Writer writer;
  const PemBanners* banners;
};

// CRYPT_STRING_NOCR changes nothing, since no form writes carriage returns; only the request form takes it.
constexpr WrittenForm kWrittenForms[] = {
    {CRYPT_STRING_BASE64HEADER,                            Writer::Pem,           &kCertificateBanners},
    {CRYPT_STRING_BASE64,                                  Writer::Base64,        nullptr             },
    {CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF,            Writer::Base64OneLine, nullptr             },
    {CRYPT_STRING_BINARY,                                  Writer::Bytes,         nullptr             },
    {CRYPT_STRING_BASE64REQUESTHEADER,                     Writer::Pem,           &kRequestBanners    },
    {CRYPT_STRING_BASE64REQUESTHEADER | CRYPT_STRING_NOCR, Writer::Pem,           &kRequestBanners    },
    {CRYPT_STRING_HEX,                                     Writer::Hex,           nullptr             },
    {CRYPT_STRING_HEX | CRYPT_STRING_NOCRLF,               Writer::Hex,           nullptr             },
    {CRYPT_STRING_BASE64X509CRLHEADER,                     Writer::Pem,           &kCrlBanners        },
};

uint64_t WrittenLength(const WrittenForm& form, size_t length) {
  switch (form.writer) {
    case Writer::Pem:
      return PemTextLength(*form.banners, length);
    case Writer::Base64:
      return Base64TextLength(length, LineEnds::Written);
    case Writer::Base64OneLine:
      return Base64TextLength(length, LineEnds::None);
    case Writer::Hex:
      return uint64_t{length} * 2;
    case Writer::Bytes:
      return length;
  }
  return 0;
}

char* WriteForm(const WrittenForm& form, std::span<const BYTE> data, char* out) {
  switch (form.writer) {
    case Writer::Pem:
      return PemWrite(*form.banners, data, out);
    case Writer::Base64:
      return Base64Write(data, LineEnds::Written, out);
    case Writer::Base64OneLine:
      return Base64Write(data, LineEnds::None, out);
    case Writer::Hex:
      return HexWrite(data, out);
    case Writer::Bytes:
      return std::copy(data.begin(), data.end(), out);
  }
  return out;
}

std::string MakeText(const WrittenForm& form, std::span<const BYTE> data, size_t length) {
  std::string text(length, '\0');
  WriteForm(form, data, text.data());
  return text;
}

// A form and what it makes of the data; answers the size query.
struct Plan {
  const WrittenForm* form;
  DWORD length;  // characters, without a NUL
  DWORD size;    // with the NUL, where the form has one
};

std::optional<Plan> MakePlan(DWORD flags, size_t dataLength) {
  const auto* form = std::ranges::find(kWrittenForms, flags, &WrittenForm::flags);
  if (form != std::end(kWrittenForms)) {
    const uint64_t length = WrittenLength(*form, dataLength);
    const uint64_t size = length + (form->writer == Writer::Bytes ? 0 : 1);
    if (size <= kMaxInterfaceSize) return Plan{form, static_cast<DWORD>(length), static_cast<DWORD>(size)};
  }
  SetLastError(ERROR_INVALID_PARAMETER);
  return std::nullopt;
}

// Too little room: how many characters are written all the same, and what the caller's count becomes.
DWORD CutShort(const Plan& plan, DWORD* count) {
  SetLastError(ERROR_MORE_DATA);
  if (plan.form->writer == Writer::Bytes) return 0;
  const DWORD room = *count;
  if (room == plan.length) *count = plan.size;
  return room;
}

// Callers may convert in place; the writers and readers can't, and work on a copy then.
bool Overlap(const void* a, size_t aSize, const void* b, size_t bSize) {
  const std::less<const BYTE*> before;
  const auto* aBegin = static_cast<const BYTE*>(a);
  const auto* bBegin = static_cast<const BYTE*>(b);
  return before(aBegin, bBegin + bSize) && before(bBegin, aBegin + aSize);
}

// Widens by the current multibyte encoding, and answers the number of wide characters; 0 for a failure.
DWORD Widen(std::string_view text, wchar_t* out, DWORD room) {
  constexpr size_t kMost = std::numeric_limits<int>::max();
  if (text.size() > kMost) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  const int outRoom = static_cast<int>(std::min<size_t>(room, kMost));
  const int written =
      MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), out, outRoom);
  return static_cast<DWORD>(std::max(written, 0));
}

// --- text to bytes ---

// A way to read a text. measure() answers the size in bytes, or nothing with CRYPT_E_BAD_ENCODE, and cuts the text
// to the part that read() takes; so read() cannot fail.
struct Reader {
  std::optional<uint64_t> (*measure)(std::string_view& text);
  void (*read)(std::string_view text, BYTE* out);
};

constexpr Reader kPemReader = {
    [](std::string_view& text) -> std::optional<uint64_t> {
      const std::optional<std::string_view> body = PemBody(text);
      if (!body) return std::nullopt;
      text = *body;
      return Base64DecodedSize(text);
    },
    Base64Read,
};
constexpr Reader kBase64Reader = {
    [](std::string_view& text) { return Base64DecodedSize(text); },
    Base64Read,
};
constexpr Reader kHexReader = {
    [](std::string_view& text) { return std::optional<uint64_t>(HexDecodedSize(text)); },
    HexRead,
};
constexpr Reader kBytesReader = {
    [](std::string_view& text) { return std::optional<uint64_t>(text.size()); },
    [](std::string_view text, BYTE* out) { std::copy(text.begin(), text.end(), out); },
};

// Reported for the form whose match is not told.
constexpr DWORD kUntold = ~DWORD{0};

struct Attempt {
  const Reader* reader;
  DWORD reported;
};

struct ReadForm {
  DWORD flags;
  Attempt attempts[3];  // in this order; unused ones have no reader
};

// CRYPT_STRING_STRICT reads as without it. A text without banners is already read by the first attempt of the ANY
// forms; the second remains for what ends before a body begins.
constexpr ReadForm kReadForms[] = {
    {CRYPT_STRING_BASE64HEADER,                     {{&kPemReader, 0}}                                         },
    {CRYPT_STRING_BASE64,                           {{&kBase64Reader, 1}}                                      },
    {CRYPT_STRING_BASE64 | CRYPT_STRING_STRICT,     {{&kBase64Reader, 1}}                                      },
    {CRYPT_STRING_BINARY,                           {{&kBytesReader, 2}}                                       },
    {CRYPT_STRING_BASE64REQUESTHEADER,              {{&kPemReader, 3}}                                         },
    {CRYPT_STRING_HEX,                              {{&kHexReader, kUntold}}                                   },
    {CRYPT_STRING_BASE64_ANY,                       {{&kPemReader, 0}, {&kBase64Reader, 1}}                    },
    {CRYPT_STRING_BASE64_ANY | CRYPT_STRING_STRICT, {{&kPemReader, 0}, {&kBase64Reader, 1}}                    },
    {CRYPT_STRING_ANY,                              {{&kPemReader, 0}, {&kBase64Reader, 1}, {&kBytesReader, 2}}},
    {CRYPT_STRING_BASE64X509CRLHEADER,              {{&kPemReader, 9}}                                         },
};

void Report(DWORD* where, DWORD value) {
  if (where) *where = value;
}

// Hands a measured text over, by the rules of sizes and room.
bool Deliver(const Attempt& attempt, std::string_view text, DWORD size, const DecodedOutput& out) {
  if (out.bytes && *out.count < size) {
    Report(out.skip, 0);
    Report(out.flags, 0);
    SetLastError(ERROR_MORE_DATA);
    return false;
  }
  if (attempt.reader == &kBytesReader) Report(out.skip, 0);
  if (attempt.reported != kUntold) Report(out.flags, attempt.reported);
  *out.count = size;
  if (!out.bytes) return true;
  std::string copy;
  if (Overlap(text.data(), text.size(), out.bytes, size)) {
    copy = text;
    text = copy;
  }
  attempt.reader->read(text, out.bytes);
  return true;
}

}  // namespace

bool BinaryToString(std::span<const BYTE> data, DWORD flags, char* out, DWORD* count) {
  const std::optional<Plan> plan = MakePlan(flags, data.size());
  if (!plan) return false;
  if (!out) {
    *count = plan->size;
    return true;
  }
  if (*count < plan->size) {
    const DWORD part = CutShort(*plan, count);
    if (part) std::memcpy(out, MakeText(*plan->form, data, plan->length).data(), part);
    return false;
  }
  if (Overlap(data.data(), data.size(), out, plan->size)) {
    std::memcpy(out, MakeText(*plan->form, data, plan->length).data(), plan->length);
  } else {
    WriteForm(*plan->form, data, out);
  }
  if (plan->size > plan->length) out[plan->length] = '\0';
  *count = plan->length;
  return true;
}

bool BinaryToWideString(std::span<const BYTE> data, DWORD flags, wchar_t* out, DWORD* count) {
  if (!out) return BinaryToString(data, flags, nullptr, count);
  const std::optional<Plan> plan = MakePlan(flags, data.size());
  if (!plan) return false;
  const std::string text = MakeText(*plan->form, data, plan->length);
  if (*count < plan->size) {
    const DWORD part = CutShort(*plan, count);
    if (part && Widen(std::string_view(text).substr(0, part), out, part)) SetLastError(ERROR_MORE_DATA);
    return false;
  }
  const DWORD written = Widen(text, out, *count);
  if (!written) return false;
  if (plan->size > plan->length) out[written] = L'\0';
  *count = written;
  return true;
}

bool StringToBinary(std::string_view text, DWORD flags, const DecodedOutput& out) {
  const auto* form = std::ranges::find(kReadForms, flags, &ReadForm::flags);
  if (form == std::end(kReadForms) || text.size() > kMaxInterfaceSize) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  for (const Attempt& attempt : form->attempts) {
    if (!attempt.reader) break;
    std::string_view body = text;
    const std::optional<uint64_t> size = attempt.reader->measure(body);
    if (size) return Deliver(attempt, body, static_cast<DWORD>(*size), out);
  }
  return false;
}

bool WideStringToBinary(std::wstring_view text, DWORD flags, const DecodedOutput& out) {
  if (text.empty()) return StringToBinary({}, flags, out);
  if (text.size() > std::numeric_limits<int>::max()) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  const int count = static_cast<int>(text.size());
  const int size = WideCharToMultiByte(CP_ACP, 0, text.data(), count, nullptr, 0, nullptr, nullptr);
  if (size <= 0) return false;
  std::string narrow(static_cast<size_t>(size), '\0');
  const int written =
      WideCharToMultiByte(CP_ACP, 0, text.data(), count, narrow.data(), size, nullptr, nullptr);
  return written > 0 && StringToBinary(narrow, flags, out);
}

}  // namespace certkern
