// Messages and OCSP objects that the openssl program makes, once for the test program, and the object codec with buffers
// of exactly the size that it asks for.
#ifndef CERTKERN_TESTS_CERTKERN_MADE_MESSAGES_H
#define CERTKERN_TESTS_CERTKERN_MADE_MESSAGES_H

#include <certkern/encode.h>

#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "interop/openssl_tool.h"

namespace certkern::test {

std::filesystem::path MadeMessage(const std::string& name);

struct SignerSample {
  std::string name;
  Bytes encoded;
};
// Every signer of every message.
const std::vector<SignerSample>& MadeSigners();

inline Bytes BytesOf(const CRYPT_DATA_BLOB& blob) { return {blob.pbData, blob.pbData + blob.cbData}; }

// Null for what is refused, which then has a code. What the sizing call asks for is needed, and enough.
std::unique_ptr<BYTE[]> DecodeExactly(LPCSTR type, std::span<const BYTE> encoded);
template <class Record>
class Read {
 public:
  Read(LPCSTR type, std::span<const BYTE> encoded) : room_(DecodeExactly(type, encoded)) {}
  explicit operator bool() const { return room_ != nullptr; }
  Record* operator->() const { return reinterpret_cast<Record*>(room_.get()); }
  Record& operator*() const { return *operator->(); }

 private:
  std::unique_ptr<BYTE[]> room_;
};

// Empty for a record that is refused, which then has a code.
Bytes EncodeExactly(LPCSTR type, const void* record);

}  // namespace certkern::test

#endif
