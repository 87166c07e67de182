// Messages, opened for reading.
#ifndef CERTKERN_CLI_MESSAGE_H
#define CERTKERN_CLI_MESSAGE_H

#include "stores.h"

#include <certkern/msg.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace certkern::cli {

inline void CloseMessage(HCRYPTMSG message) { CryptMsgClose(message); }
using MessageHandle = Owner<HCRYPTMSG, CloseMessage, nullptr>;

enum class ContentPlace { Inside, Elsewhere };
// Null, and the last error tells why.
MessageHandle OpenMessage(std::span<const BYTE> encoded, ContentPlace place);

// A parameter of a message; a record lies in the bytes with all that it points to.
Bytes MessageBytes(HCRYPTMSG message, DWORD parameter, DWORD index = 0);
DWORD MessageNumber(HCRYPTMSG message, DWORD parameter);
template <typename Record>
const Record& RecordIn(const Bytes& bytes) {
  return *reinterpret_cast<const Record*>(bytes.data());
}

// The first value of an attribute; nothing when it is not there.
std::optional<std::span<const BYTE>> AttributeValue(const CRYPT_ATTRIBUTES& attributes, std::string_view oid);
// When a signer says that he signed.
std::optional<FILETIME> SigningTime(const CRYPT_ATTRIBUTES& attributes);

// A certificate or CRL of a message. Nothing for one of another kind (an attribute certificate, an OCSP response), which
// stands in the same set. RFC 5652, 10.2
std::optional<Bytes> MessageObject(HCRYPTMSG message, DWORD parameter, DWORD index);
// Puts what a message carries into a store. Objects that the library can't read are left out; their number.
size_t TakeCertificates(HCRYPTMSG message, HCERTSTORE into);

}  // namespace certkern::cli

#endif
