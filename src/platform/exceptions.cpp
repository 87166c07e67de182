#include "platform/exceptions.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <cstdio>

namespace certkern {
namespace {

std::string Join(std::string_view message, std::string_view file, int32_t line) {
  std::string text;
  text.reserve(message.size() + file.size() + 48);
  text.append("Exception :'").append(message).append("' at file:'").append(file).append("' line:");
  return text.append(std::to_string(line));
}

std::string ErrorMessage(DWORD code) {
  char text[32];
  std::snprintf(text, sizeof text, "Error 0x%x.", code);
  return text;
}

}  // namespace

CAException::CAException(std::string_view message, std::string_view file, int32_t line)
    : std::runtime_error(Join(message, file, line)), file_(file), line_(line) {}

// The destructors stand here so that the type information, by which a catch clause knows an exception, exists once.
CAException::~CAException() = default;
CryptException::~CryptException() = default;
RetrieveObjectException::~RetrieveObjectException() = default;
Asn1Exception::~Asn1Exception() = default;
Asn1DecodeException::~Asn1DecodeException() = default;

const char* CAException::what() const noexcept { return std::runtime_error::what(); }

CryptException::CryptException(DWORD code, std::string_view file, int32_t line)
    : CAException(ErrorMessage(code), file, line), code_(code) {}

CryptException::CryptException(DWORD code, std::string_view message, std::string_view file, int32_t line)
    : CAException(message, file, line), code_(code) {}

RetrieveObjectException::RetrieveObjectException(std::string_view message, DWORD code, std::string_view file,
                                                 int32_t line)
    : CryptException(code, message, file, line) {}

Asn1Exception::Asn1Exception(std::string_view message, std::string_view file, int32_t line)
    : CAException(message, file, line) {}

Asn1DecodeException::Asn1DecodeException(std::string_view message, std::string_view file, int32_t line)
    : CAException(message, file, line) {}

void ThrowLastError(std::string_view file, int32_t line) {
  const DWORD code = GetLastError();
  throw CryptException(code ? code : ERROR_INTERNAL_ERROR, file, line);
}

}  // namespace certkern
