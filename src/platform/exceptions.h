// What the class layer throws. Each exception knows the source file and line that threw it, and its text is made in
// the constructor and never changes. The frames of the exported functions turn them into the last error: only
// CryptException carries a code of its own there, the others' text lives on in the trace.
#ifndef CERTKERN_PLATFORM_EXCEPTIONS_H
#define CERTKERN_PLATFORM_EXCEPTIONS_H

#include <certkern/types.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace certkern {

// "/home/me/src/certkern/ASN1Blob.cpp" is "certkern/ASN1Blob": texts must not depend on where the tree was built.
constexpr std::string_view SourceName(std::string_view path) {
  constexpr std::string_view kRoot = "/src/";
  if (const size_t root = path.rfind(kRoot); root != path.npos) path.remove_prefix(root + kRoot.size());
  const size_t dot = path.rfind('.');
  if (dot != path.npos && path.find('/', dot) == path.npos) path.remove_suffix(path.size() - dot);
  return path;
}

// A failure described by a text. what(): Exception :'MESSAGE' at file:'FILE' line:LINE
class CAException : public std::runtime_error {
 public:
  explicit CAException(std::string_view message, std::string_view file = SourceName(__builtin_FILE()),
                       int32_t line = __builtin_LINE());
  ~CAException() override;
  const char* what() const noexcept override;

  const std::string& file() const { return file_; }
  int32_t line() const { return line_; }

 private:
  std::string file_;
  int32_t line_;
};

// A failure described by the code that the caller will find as the last error. Its message is "Error 0x%x.".
class CryptException : public CAException {
 public:
  explicit CryptException(DWORD code, std::string_view file = SourceName(__builtin_FILE()),
                          int32_t line = __builtin_LINE());
  ~CryptException() override;

  DWORD code() const { return code_; }

 protected:
  CryptException(DWORD code, std::string_view message, std::string_view file, int32_t line);

 private:
  DWORD code_;
};

// An object that could not be had by its URL; says what failed beside the code.
class RetrieveObjectException : public CryptException {
 public:
  RetrieveObjectException(std::string_view message, DWORD code,
                          std::string_view file = SourceName(__builtin_FILE()),
                          int32_t line = __builtin_LINE());
  ~RetrieveObjectException() override;
};

// A failure in the bridge to the generated types, or in the file access of a blob.
class Asn1Exception : public CAException {
 public:
  explicit Asn1Exception(std::string_view message, std::string_view file = SourceName(__builtin_FILE()),
                         int32_t line = __builtin_LINE());
  ~Asn1Exception() override;
};

// Bytes that do not decode.
class Asn1DecodeException : public CAException {
 public:
  explicit Asn1DecodeException(std::string_view message, std::string_view file = SourceName(__builtin_FILE()),
                               int32_t line = __builtin_LINE());
  ~Asn1DecodeException() override;
};

// The seam from the plain layer: what just failed there has left its code as the last error. A failure that left no
// code is ERROR_INTERNAL_ERROR, because a CryptException of code 0 would read as success.
[[noreturn]] void ThrowLastError(std::string_view file = SourceName(__builtin_FILE()),
                                 int32_t line = __builtin_LINE());

}  // namespace certkern

#endif
