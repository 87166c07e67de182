// Signing and verifying in one call, over the functions of messages. What the caller gave has been checked for null; a
// failure leaves false and a code, and running out of memory throws.
#ifndef CERTKERN_CERTKERN_SIMPLE_MESSAGES_H
#define CERTKERN_CERTKERN_SIMPLE_MESSAGES_H

#include <certkern/msg_simple.h>

#include <span>

namespace certkern {

// The pieces of a content, as callers give them: two arrays of one length.
struct ContentPieces {
  DWORD count = 0;
  const BYTE** bytes = nullptr;
  const DWORD* sizes = nullptr;
};

// `content` has one piece or none; for a size (null `blob`) its bytes are not read.
[[nodiscard]] bool SignSimpleMessage(const CRYPT_SIGN_MESSAGE_PARA& given, bool detached,
                                     const ContentPieces& content, BYTE* blob, DWORD* blobSize);

// What a verification is to give beside its verdict; each may be null. The certificate is the caller's.
struct VerifiedParts {
  BYTE* decoded = nullptr;
  DWORD* decodedSize = nullptr;
  PCCERT_CONTEXT* signer = nullptr;
};
[[nodiscard]] bool VerifySimpleMessage(const CRYPT_VERIFY_MESSAGE_PARA& para, DWORD signerIndex,
                                       std::span<const BYTE> message, const VerifiedParts& parts);
[[nodiscard]] bool VerifySimpleDetachedMessage(const CRYPT_VERIFY_MESSAGE_PARA& para, DWORD signerIndex,
                                               std::span<const BYTE> message, const ContentPieces& content,
                                               PCCERT_CONTEXT* signer);

[[nodiscard]] bool CountSigners(DWORD encoding, std::span<const BYTE> message, DWORD& count);

}  // namespace certkern

#endif
