// What is done to the parameters of a signed message before it is made: copies that may be changed without the caller's
// records showing it, and the attributes that an advanced signature has (RFC 5126, RFC 5035).
#ifndef CERTKERN_CERTKERN_CMS_ATTRIBUTES_H
#define CERTKERN_CERTKERN_CMS_ATTRIBUTES_H

#include <certkern/msg.h>
#include <certkern/msg_envelope.h>
#include <certkern/msg_simple.h>

namespace certkern {

// Blocks that live until the exported function ends, all together.
class MemoryChain {
 public:
  MemoryChain() = default;
  MemoryChain(const MemoryChain&) = delete;
  MemoryChain& operator=(const MemoryChain&) = delete;
  ~MemoryChain();

 private:
  friend void* SvCmsAttrAlloc(MemoryChain* chain, size_t size);
  struct Block;
  Block* newest_ = nullptr;
};
// Zeroed, aligned to 16; null without memory.
void* SvCmsAttrAlloc(MemoryChain* pMemChain, size_t size);

// Copies at their full size in the chain, zero from the first field on that the caller's cbSize does not cover whole; those of
// signers say so in their cbSize. Null without memory: the record is then to be read only. A signer record's
// cbSize that does not reach its SignerId is a CryptException of ERROR_INVALID_PARAMETER. What the records point to is not
// copied.
CMSG_SIGNED_ENCODE_INFO* CopySignedEncodeInfo(const CMSG_SIGNED_ENCODE_INFO& info, MemoryChain& chain);
CMSG_SIGNER_ENCODE_INFO* CopySignerEncodeInfo(const CMSG_SIGNER_ENCODE_INFO& info, MemoryChain& chain);
CMSG_ENVELOPED_ENCODE_INFO* CopyEnvelopedEncodeInfo(const CMSG_ENVELOPED_ENCODE_INFO& info,
                                                    MemoryChain& chain);
CMSG_HASHED_ENCODE_INFO* CopyHashedEncodeInfo(const CMSG_HASHED_ENCODE_INFO& info, MemoryChain& chain);
CRYPT_SIGN_MESSAGE_PARA* CopySignMessagePara(const CRYPT_SIGN_MESSAGE_PARA& para, MemoryChain& chain);

// The record at its full size, which needs no memory; the signers stay the caller's.
CMSG_SIGNED_ENCODE_INFO FullSignedEncodeInfo(const CMSG_SIGNED_ENCODE_INFO& info);
CRYPT_SIGN_MESSAGE_PARA FullSignMessagePara(const CRYPT_SIGN_MESSAGE_PARA& para);

// The copied signers; each one's attributes are exchanged for longer ones in the chain. False with a code: stop.
[[nodiscard]] bool AddESAttributesToEncodeInfo(CMSG_SIGNED_ENCODE_INFO* pSignedInfo, DWORD flags,
                                               MemoryChain* pMemChain);
// One signer. Where its certificate may be found: the encode info, the message, the signer's container, or it is given.
[[nodiscard]] bool AddESAttributes(CRYPT_ATTRIBUTE** prgAuthAttr, DWORD* pcAuthAttr,
                                   const CRYPT_ALGORITHM_IDENTIFIER* pHashAlgorithm,
                                   const CMSG_SIGNED_ENCODE_INFO* pSignedInfo, HCRYPTMSG hMsg, DWORD flags,
                                   const CMSG_SIGNER_ENCODE_INFO* pSignerInfo, PCCERT_CONTEXT pSigningCert,
                                   void* reserved, MemoryChain* pMemChain);

}  // namespace certkern

#endif
