// How message contexts come to be, and what is done to a caller's parameters before a context reads them.
#ifndef CERTKERN_CERTKERN_MESSAGE_OPENING_H
#define CERTKERN_CERTKERN_MESSAGE_OPENING_H

#include "certkern/CMSMessage.h"

namespace certkern {

struct EncodeRequest {
  DWORD flags;
  DWORD type;
  const void* info;
  const char* innerType;           // null: not given
  const CMSG_STREAM_INFO* stream;  // null: none
};
// Empty, with the code that the signers' attributes left, when these could not be made. Everything else throws.
MessageOwner OpenToEncode(const EncodeRequest& request);
// The size of a message with so much content; 0 as above.
DWORD EncodedLength(EncodeRequest request, DWORD contentSize);

struct DecodeRequest {
  DWORD flags;
  DWORD type;
  HCRYPTPROV provider;
  const CMSG_STREAM_INFO* stream;
};
// An open that fails leaves the provider to the caller, whatever the flags say.
MessageOwner OpenToDecode(const DecodeRequest& request);

// CryptMsgControl. False with the code of the signer's attributes.
[[nodiscard]] bool ControlMessage(MessageContext& message, const ControlRequest& request);

}  // namespace certkern

#endif
